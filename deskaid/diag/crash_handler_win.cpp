#include "deskaid/diag/crash_handler.h"

#include <windows.h>
#include <dbghelp.h>
#include <signal.h>
#include <stdlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "deskaid/common/internal/path.h"
#include "deskaid/common/internal/platform.h"
#include "deskaid/diag/debug_trace.h"
#include "deskaid/diag/internal/crash_report.h"
#include "deskaid/diag/internal/file_stamp.h"
#include "deskaid/diag/internal/register_capture_win.h"
#include "deskaid/diag/log_writer.h"
#include "deskaid/diag/symbol_engine.h"
#include "deskaid/msgbox/message_dialog.h"

namespace {

// Exit codes of the failures that are not structured exceptions, as Windows reports them.
constexpr DWORD kFatalAppExit = 0x40000015;         // STATUS_FATAL_APP_EXIT: abort, terminate
constexpr DWORD kInvalidCrtParameter = 0xC0000417;  // STATUS_INVALID_CRUNTIME_PARAMETER
// How long the failing thread waits for the handler's work when no box waits for the user. The
// log records come first and need neither the heap nor the debug-help library; the dump needs
// both, and a failing thread that held the heap's lock would make it wait for ever.
constexpr DWORD kWorkPatienceMs = 12000;
// Stack kept for the handler when a thread's stack overflows.
constexpr ULONG kStackGuarantee = 64 * 1024;

// Everything the handler knows of one failure. It lives in static storage: a failing thread may
// have no stack left to hold it.
struct Failure {
  DWORD code;
  const char* name;
  EXCEPTION_RECORD record;
  CONTEXT context;
  EXCEPTION_POINTERS pointers;
  DWORD threadId;
  HANDLE thread;  // the failing thread, for the stack walk
};

struct Installed {
  bool active = false;
  CrashHandlerOptions options;
  LPTOP_LEVEL_EXCEPTION_FILTER previousFilter = nullptr;
  std::terminate_handler previousTerminate = nullptr;
  void (*previousAbort)(int) = nullptr;
  _invalid_parameter_handler previousInvalidParameter = nullptr;
#ifdef _MSC_VER
  _purecall_handler previousPurecall = nullptr;
#endif
};

// The thread that does the handler's work, started when the handler is installed: a failing
// process may be unable to start one (no memory, a held loader lock, a stack overflow).
struct Worker {
  HANDLE thread = nullptr;
  DWORD id = 0;
  HANDLE ready = nullptr;  // set once the thread has set itself up
  HANDLE start = nullptr;  // set when a failure is ready, or when the handler is removed
  volatile LONG quit = 0;
};

Installed g_installed;
Worker g_worker;
Failure g_failure;
volatile LONG g_handling = 0;
char g_dumpPath[deskaid::kMaxPath];
char g_logPath[deskaid::kMaxPath];

const char* ExceptionName(DWORD code) {
  switch (code) {
    case EXCEPTION_ACCESS_VIOLATION: return "EXCEPTION_ACCESS_VIOLATION";
    case EXCEPTION_ARRAY_BOUNDS_EXCEEDED: return "EXCEPTION_ARRAY_BOUNDS_EXCEEDED";
    case EXCEPTION_BREAKPOINT: return "EXCEPTION_BREAKPOINT";
    case EXCEPTION_DATATYPE_MISALIGNMENT: return "EXCEPTION_DATATYPE_MISALIGNMENT";
    case EXCEPTION_FLT_DIVIDE_BY_ZERO: return "EXCEPTION_FLT_DIVIDE_BY_ZERO";
    case EXCEPTION_FLT_INVALID_OPERATION: return "EXCEPTION_FLT_INVALID_OPERATION";
    case EXCEPTION_FLT_OVERFLOW: return "EXCEPTION_FLT_OVERFLOW";
    case EXCEPTION_ILLEGAL_INSTRUCTION: return "EXCEPTION_ILLEGAL_INSTRUCTION";
    case EXCEPTION_IN_PAGE_ERROR: return "EXCEPTION_IN_PAGE_ERROR";
    case EXCEPTION_INT_DIVIDE_BY_ZERO: return "EXCEPTION_INT_DIVIDE_BY_ZERO";
    case EXCEPTION_INT_OVERFLOW: return "EXCEPTION_INT_OVERFLOW";
    case EXCEPTION_PRIV_INSTRUCTION: return "EXCEPTION_PRIV_INSTRUCTION";
    case EXCEPTION_STACK_OVERFLOW: return "EXCEPTION_STACK_OVERFLOW";
    default: return "unknown exception";
  }
}

uint64_t ProgramCounter(const CONTEXT& context) {
#if defined(_M_X64) || defined(__x86_64__)
  return context.Rip;
#else
  return context.Eip;
#endif
}

// The folder of `path` with its separator, or the empty text.
std::string FolderOf(const char* path) {
  deskaid::SplitPath parts(path);
  return parts.drive + parts.directory;
}

// "<folder><executable name> - YYYY.MM.DD HH.MM.SS.dmp".
std::string DumpPath() {
  char exe[deskaid::kMaxPath];
  deskaid::platform::ExecutablePath(exe, sizeof exe);
  std::string folder = g_installed.options.szDumpFolder;
  if (!folder.empty() && folder.back() != '\\' && folder.back() != '/') folder += '\\';
  if (folder.empty()) folder = FolderOf(g_logPath[0] != '\0' ? g_logPath : exe);
  const std::string stamp = deskaid::FileStamp(deskaid::platform::Time32());
  return folder + deskaid::SplitPath(exe).name + " - " + stamp + ".dmp";
}

bool WriteDump(const std::string& path) {
  HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  MINIDUMP_EXCEPTION_INFORMATION exception;
  exception.ThreadId = g_failure.threadId;
  exception.ExceptionPointers = &g_failure.pointers;
  exception.ClientPointers = FALSE;
  BOOL written = MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpNormal,
                                   &exception, nullptr, nullptr);
  CloseHandle(file);
  if (!written) DeleteFileA(path.c_str());
  return written != FALSE;
}

#if defined(_M_X64) || defined(__x86_64__)
// The failing thread's frames, through the images' unwind tables, as the system's own exception
// dispatch walks them: without the heap, which the failing thread may hold locked.
size_t WalkFailingThread(StackFrameEntry* frames, size_t capacity) {
  CONTEXT context = g_failure.context;
  size_t count = 0;
  while (count < capacity && context.Rip != 0) {
    StackFrameEntry& frame = frames[count];
    frame.pc = context.Rip;
    frame.framePointer = context.Rbp;
    DWORD64 imageBase = 0;
    if (PRUNTIME_FUNCTION function = RtlLookupFunctionEntry(context.Rip, &imageBase, nullptr)) {
      void* handlerData = nullptr;
      DWORD64 establisher = 0;
      RtlVirtualUnwind(UNW_FLAG_NHANDLER, imageBase, context.Rip, function, &context,
                       &handlerData, &establisher, nullptr);
    } else {  // a leaf function: the return address is on top of the stack
      if (IsBadReadPtr(reinterpret_cast<void*>(context.Rsp), sizeof(DWORD64))) break;
      context.Rip = *reinterpret_cast<DWORD64*>(context.Rsp);
      context.Rsp += sizeof(DWORD64);
    }
    frame.returnAddress = context.Rip;
    // What the debug-help walk leaves out: frames that return to themselves.
    if (frame.pc != frame.returnAddress) ++count;
    else break;
  }
  return count;
}
#else
// The failing thread's frames through the debug-help library, which follows 32-bit frames best.
size_t WalkFailingThread(StackFrameEntry* frames, size_t capacity) {
  // A session of its own on a handle of its own: the host may hold a symbol session for the
  // process already, and the debug-help library keeps one per process handle.
  HANDLE process = OpenProcess(PROCESS_ALL_ACCESS, FALSE, GetCurrentProcessId());
  std::vector<StackFrameEntry> walked;
  if (process != nullptr) {
    CSymbolEngine engine;
    if (engine.Initialize(process, nullptr, 1, 0)) {
      CONTEXT context = g_failure.context;  // the walk changes the registers it is given
      engine.StackWalk(walked, 0, g_failure.thread, &context);
    }
    CloseHandle(process);
  }
  const size_t count = walked.size() < capacity ? walked.size() : capacity;
  std::copy(walked.begin(), walked.begin() + static_cast<std::ptrdiff_t>(count), frames);
  return count;
}
#endif

void LogFailure() {
  static StackFrameEntry frames[deskaid::kMaxCrashFrames + 1];
  const size_t count = WalkFailingThread(frames, sizeof frames / sizeof frames[0]);
  deskaid::LogCrash(g_failure.name, g_failure.code,
                    reinterpret_cast<uintptr_t>(g_failure.record.ExceptionAddress), frames,
                    count, g_logPath, sizeof g_logPath);
}

void ReportToHost(const char*, void*) {
  const CrashHandlerOptions& options = g_installed.options;
  if (options.pfnReport != nullptr) {
    options.pfnReport(g_dumpPath, g_logPath, options.pReportContext);
  }
}

void ShowCrashBox(bool dumped) {
  char exe[deskaid::kMaxPath];
  deskaid::platform::ExecutablePath(exe, sizeof exe);
  const deskaid::SplitPath parts(exe);
  const std::string caption = parts.name + parts.extension;
  std::string text = caption + " stopped because of an unexpected error (" + g_failure.name + ").";
  text += dumped ? std::string("\n\nA report was saved to:\n") + g_dumpPath
                 : std::string("\n\nNo report could be saved.");
  MessageDialogParams params;
  std::strcpy(params.szCustomButtons, "&Close");
  params.pfnReport = ReportToHost;
  ShowMessageDialog(nullptr, text.c_str(), caption.c_str(), MB_ICONERROR | MDS_NOSOUND, &params);
}

// The handler's work, on its own thread.
void HandleFailure() {
  DebugTrace("in crash handler: %s (0x%08lX)\n", g_failure.name,
             static_cast<unsigned long>(g_failure.code));
  LogFailure();
  bool dumped = false;
  g_dumpPath[0] = '\0';
  if ((g_installed.options.dwOptions & CRASH_NO_DUMP) == 0) {
    const std::string path = DumpPath();
    dumped = WriteDump(path);
    if (dumped) std::snprintf(g_dumpPath, sizeof g_dumpPath, "%s", path.c_str());
  }
  if (g_installed.options.dwOptions & CRASH_SHOW_MESSAGE_BOX) ShowCrashBox(dumped);
}

DWORD WINAPI WorkerMain(void*) {
  // What a thread sets up on the heap on first use (the runtimes' records of the thread, and of
  // a thread they did not start) is set up now, not after a failure: the failing thread may hold
  // the heap's lock.
  (void)std::this_thread::get_id();
  char warm[16];
  std::snprintf(warm, sizeof warm, "%d", errno);
  SetEvent(g_worker.ready);
  WaitForSingleObject(g_worker.start, INFINITE);
  if (g_worker.quit == 0) HandleFailure();
  return 0;
}

void StopWorker() {
  if (g_worker.thread != nullptr) {
    g_worker.quit = 1;
    SetEvent(g_worker.start);
    WaitForSingleObject(g_worker.thread, INFINITE);
    CloseHandle(g_worker.thread);
  }
  if (g_worker.start != nullptr) CloseHandle(g_worker.start);
  if (g_worker.ready != nullptr) CloseHandle(g_worker.ready);
  g_worker = Worker();
}

// Returns once the thread is ready for a failure.
bool StartWorker() {
  g_worker.quit = 0;
  g_worker.ready = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  g_worker.start = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  if (g_worker.ready != nullptr && g_worker.start != nullptr) {
    g_worker.thread = CreateThread(nullptr, 1 << 20, WorkerMain, nullptr, 0, &g_worker.id);
  }
  if (g_worker.thread == nullptr) {
    StopWorker();
    return false;
  }
  WaitForSingleObject(g_worker.ready, INFINITE);
  return true;
}

// Ends the process for the failure now in g_failure, after the handler's work.
[[noreturn]] void Finish() {
  SetEvent(g_worker.start);
  const bool userWaits = (g_installed.options.dwOptions & CRASH_SHOW_MESSAGE_BOX) != 0;
  WaitForSingleObject(g_worker.thread, userWaits ? INFINITE : kWorkPatienceMs);
  TerminateProcess(GetCurrentProcess(), g_failure.code);
  for (;;) Sleep(INFINITE);
}

// Claims the handler for this failure. When another failure has it already, this one does not
// return: a failure inside the handler's work ends the process at once with the first failure's
// code, and one on another thread waits for the first report to end the process.
void Claim() {
  if (InterlockedExchange(&g_handling, 1) == 0) return;
  if (GetCurrentThreadId() == g_worker.id) TerminateProcess(GetCurrentProcess(), g_failure.code);
  for (;;) Sleep(INFINITE);
}

void TakeThread() {
  g_failure.threadId = GetCurrentThreadId();
  g_failure.thread = nullptr;
  DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &g_failure.thread,
                  0, FALSE, DUPLICATE_SAME_ACCESS);
}

LONG WINAPI OnUnhandledException(EXCEPTION_POINTERS* pointers) {
  Claim();
  g_failure.code =
      pointers->ExceptionRecord->ExceptionCode;  // first: a second failure exits with it
  g_failure.name = ExceptionName(g_failure.code);
  g_failure.record = *pointers->ExceptionRecord;
  g_failure.record.ExceptionRecord = nullptr;
  g_failure.context = *pointers->ContextRecord;
  g_failure.pointers.ExceptionRecord = &g_failure.record;
  g_failure.pointers.ContextRecord = &g_failure.context;
  TakeThread();
  Finish();
}

// The registers at the point of the call: the program counter, frame and stack pointer, which
// are what the stack walk and the dump's exception context need.
void CaptureContext(CONTEXT& context) {
  std::memset(&context, 0, sizeof context);
#if defined(__GNUC__) && defined(__i386__)
  DWORD eip = 0, ebp = 0, esp = 0;
  DESKAID_CAPTURE_I386_REGISTERS(eip, ebp, esp);
  context.ContextFlags = CONTEXT_CONTROL;
  context.Eip = eip;
  context.Ebp = ebp;
  context.Esp = esp;
#else
  context.ContextFlags = CONTEXT_FULL;
  RtlCaptureContext(&context);
#endif
}

// A failure reported by the runtime rather than raised by the processor: the record is made up
// here, at the point of the report, with the code Windows gives such failures.
[[noreturn]] void OnRuntimeFailure(DWORD code, const char* name) {
  Claim();
  g_failure.code = code;
  g_failure.name = name;
  CaptureContext(g_failure.context);
  std::memset(&g_failure.record, 0, sizeof g_failure.record);
  g_failure.record.ExceptionCode = code;
  g_failure.record.ExceptionFlags = EXCEPTION_NONCONTINUABLE;
  g_failure.record.ExceptionAddress =
      reinterpret_cast<void*>(static_cast<uintptr_t>(ProgramCounter(g_failure.context)));
  g_failure.pointers.ExceptionRecord = &g_failure.record;
  g_failure.pointers.ContextRecord = &g_failure.context;
  TakeThread();
  Finish();
}

// Installs the runtime's invalid-parameter handler. MinGW's import library emulates the call for
// old runtimes, keeping the handler where the runtime DLL never looks; the DLL's own entry, where
// it has one, is the one its checks call.
_invalid_parameter_handler SetInvalidParameterHandler(_invalid_parameter_handler handler) {
  _invalid_parameter_handler previous = _set_invalid_parameter_handler(handler);
#if defined(__MINGW32__)
  using Setter = _invalid_parameter_handler(__cdecl*)(_invalid_parameter_handler);
  if (HMODULE runtime = GetModuleHandleA("msvcrt.dll")) {
    auto set = reinterpret_cast<Setter>(
        reinterpret_cast<void*>(GetProcAddress(runtime, "_set_invalid_parameter_handler")));
    if (set != nullptr) previous = set(handler);
  }
#endif
  return previous;
}

void OnAbort(int) { OnRuntimeFailure(kFatalAppExit, "abort"); }
[[noreturn]] void OnTerminate() { OnRuntimeFailure(kFatalAppExit, "std::terminate"); }
void OnInvalidParameter(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, uintptr_t) {
  OnRuntimeFailure(kInvalidCrtParameter, "invalid parameter");
}
#ifdef _MSC_VER
void OnPureCall() { OnRuntimeFailure(kFatalAppExit, "pure virtual call"); }
#endif

}  // namespace

bool InstallCrashHandler(const CrashHandlerOptions* options) {
  if (g_installed.active || !StartWorker()) return false;
  void (*previousAbort)(int) = signal(SIGABRT, OnAbort);
  if (previousAbort == SIG_ERR) {
    StopWorker();
    return false;
  }
  g_installed.options = options != nullptr ? *options : CrashHandlerOptions();
  g_installed.previousAbort = previousAbort;
  // Room on the installing thread's stack for the filter after a stack overflow, which hands the
  // work to the handler's thread. Other threads keep the system's own guarantee.
  ULONG guarantee = kStackGuarantee;
  SetThreadStackGuarantee(&guarantee);
  g_installed.previousFilter = SetUnhandledExceptionFilter(OnUnhandledException);
  g_installed.previousTerminate = std::set_terminate(OnTerminate);
  g_installed.previousInvalidParameter = SetInvalidParameterHandler(OnInvalidParameter);
#ifdef _MSC_VER
  g_installed.previousPurecall = _set_purecall_handler(OnPureCall);
#endif
  g_installed.active = true;
  return true;
}

bool RemoveCrashHandler() {
  if (!g_installed.active) return false;
  signal(SIGABRT, g_installed.previousAbort);
  SetUnhandledExceptionFilter(g_installed.previousFilter);
  std::set_terminate(g_installed.previousTerminate);
  SetInvalidParameterHandler(g_installed.previousInvalidParameter);
#ifdef _MSC_VER
  _set_purecall_handler(g_installed.previousPurecall);
#endif
  StopWorker();
  g_installed.active = false;
  return true;
}

// A stack overflow is reported from the handler's own thread: threads need nothing of their own.
bool PrepareThreadForCrashHandler() { return true; }
