#include "deskaid/diag/crash_handler.h"

#include <windows.h>
#include <dbghelp.h>
#include <signal.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#if defined(__has_include)
#if __has_include(<cxxabi.h>)
#include <cxxabi.h>  // the C++ runtime's entries of the common ABI, on GCC and clang
#define DESKAID_HAS_CXXABI 1
#endif
#endif
#ifndef DESKAID_HAS_CXXABI
#define DESKAID_HAS_CXXABI 0
#endif

#include "deskaid/common/internal/path.h"
#include "deskaid/common/internal/platform.h"
#include "deskaid/diag/debug_trace.h"
#include "deskaid/diag/internal/basic_minidump_win.h"
#include "deskaid/diag/internal/crash_annotations.h"
#include "deskaid/diag/internal/crash_report.h"
#include "deskaid/diag/internal/file_stamp.h"
#include "deskaid/diag/internal/fixed_text.h"
#include "deskaid/diag/internal/minidump_completion_win.h"
#include "deskaid/diag/internal/module_identity.h"
#include "deskaid/diag/internal/own_memory.h"
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
// A dump of all memory takes as long as the process is large.
constexpr DWORD kFullMemoryPatienceMs = 120000;
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
// The dump being written, until it is whole: a dump given up on is not left behind half written.
HANDLE g_dumpFile = INVALID_HANDLE_VALUE;
volatile LONG g_dumpUnfinished = 0;
char g_logPath[deskaid::kMaxPath];
// Taken when the handler is installed: the runtime's call for it takes a buffer from the heap.
char g_exePath[deskaid::kMaxPath];

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

// "<folder><executable name> - YYYY.MM.DD HH.MM.SS.dmp", made without the heap: the failing
// thread may hold its lock.
void MakeDumpPath(char* path, size_t size) {
  const char* const exe = g_exePath;
  deskaid::FixedText text(path, size);
  const char* folder = g_installed.options.szDumpFolder;
  if (folder[0] != '\0') {
    text.Add(folder);
    const char last = folder[std::strlen(folder) - 1];
    if (last != '\\' && last != '/') text.Add('\\');
  } else {
    const char* beside = g_logPath[0] != '\0' ? g_logPath : exe;
    for (size_t i = 0, n = deskaid::FolderLength(beside); i < n; ++i) text.Add(beside[i]);
  }
  const char* name = exe + deskaid::FolderLength(exe);
  const char* dot = std::strrchr(name, '.');
  for (const char* c = name; *c != '\0' && c != dot; ++c) text.Add(*c);
  SYSTEMTIME now;
  GetLocalTime(&now);
  std::tm local = {};
  local.tm_year = now.wYear - 1900;
  local.tm_mon = now.wMonth - 1;
  local.tm_mday = now.wDay;
  local.tm_hour = now.wHour;
  local.tm_min = now.wMinute;
  local.tm_sec = now.wSecond;
  text.Add(" - ");
  deskaid::AddFileStamp(text, local);
  text.Add(".dmp");
}

MINIDUMP_TYPE DumpType() {
  const uint32_t options = g_installed.options.dwOptions;
  if (options & CRASH_DUMP_WITH_FULL_MEMORY)
    return static_cast<MINIDUMP_TYPE>(MiniDumpWithFullMemory | MiniDumpWithHandleData);
  if (options & CRASH_DUMP_WITH_DATA) return MiniDumpWithDataSegs;
  return MiniDumpNormal;
}

// The annotations' stream: "key=value\n" each. Static, sized for every annotation at its longest.
char g_annotationText[kMaxCrashAnnotations *
                      (kMaxCrashAnnotationKey + kMaxCrashAnnotationValue + 2)];

void AddAnnotationLine(const char* key, const char* value, void* text) {
  static_cast<deskaid::FixedText*>(text)->Add(key).Add('=').Add(value).Add('\n');
}

// The dump of the failure without the heap, over what `file` holds: for a failure that leaves the
// system's writer unable to finish.
bool WriteBasicDump(HANDLE file) {
  deskaid::FixedText annotations(g_annotationText, sizeof g_annotationText);
  deskaid::VisitCrashAnnotations(AddAnnotationLine, &annotations);
  deskaid::BasicMinidumpInput input;
  input.threadId = g_failure.threadId;
  input.record = &g_failure.record;
  input.context = &g_failure.context;
  input.annotations = g_annotationText;
  input.annotationsSize = annotations.Length();
  input.annotationsType = kCrashAnnotationStreamType;
  return deskaid::WriteBasicMinidump(file, input);
}

// Ends a dump that the handler's thread left unfinished, with the dump without the heap in its
// place; a file that cannot take even that goes.
void FinishUnfinishedDump() {
  if (InterlockedExchange(&g_dumpUnfinished, 0) != 0 && !WriteBasicDump(g_dumpFile)) {
    deskaid::DeleteOnClose(g_dumpFile);
  }
}

bool WriteDump(const char* path) {
  // The file is made without the heap, so that the dump without it can go there if the system's
  // writer never finishes; a path the system call cannot take (one with "..") takes the usual way.
  HANDLE file = deskaid::CreateFileWithoutHeap(path);
  if (file == INVALID_HANDLE_VALUE) {
    file = CreateFileA(path, GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_DELETE, nullptr,
                       CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  }
  if (file == INVALID_HANDLE_VALUE) return false;
  g_dumpFile = file;
  InterlockedExchange(&g_dumpUnfinished, 1);
  MINIDUMP_EXCEPTION_INFORMATION exception;
  exception.ThreadId = g_failure.threadId;
  exception.ExceptionPointers = &g_failure.pointers;
  exception.ClientPointers = FALSE;
  deskaid::FixedText annotations(g_annotationText, sizeof g_annotationText);
  deskaid::VisitCrashAnnotations(AddAnnotationLine, &annotations);
  MINIDUMP_USER_STREAM stream;
  stream.Type = kCrashAnnotationStreamType;
  stream.BufferSize = static_cast<ULONG>(annotations.Length());
  stream.Buffer = g_annotationText;
  MINIDUMP_USER_STREAM_INFORMATION streams;
  streams.UserStreamCount = annotations.Length() > 0 ? 1 : 0;
  streams.UserStreamArray = &stream;
  // Without a symbol session of the process, Wine's writer opens one that loads every module's
  // symbols, searching the current folder and every folder below it for each module's debug
  // file: minutes on a large tree, or a fault. It uses a session the process has instead, such
  // as this one, which loads nothing. Windows' writer reads no symbols either way.
  char folder[deskaid::kMaxPath];
  deskaid::FixedText(folder, deskaid::FolderLength(path) + 1).Add(path);
  const bool session = SymInitialize(GetCurrentProcess(), folder, FALSE) != FALSE;
  BOOL written = MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file, DumpType(),
                                   &exception, &streams, nullptr);
  if (session) SymCleanup(GetCurrentProcess());
  if (written)
    deskaid::CompleteMinidump(file, (g_installed.options.dwOptions & CRASH_DUMP_WITH_DATA) != 0);
  // A writer that gave up leaves the dump without the heap in its place. Until the dump is whole
  // it stays unfinished: a failing thread that stops waiting writes it again, whole.
  const bool dumped = written || WriteBasicDump(file);
  InterlockedExchange(&g_dumpUnfinished, 0);
  if (!dumped) deskaid::DeleteOnClose(file);
  CloseHandle(file);
  return dumped;
}

// The functions through which the runtime reports a failure (abort, std::terminate, a pure
// virtual call, an invalid parameter, an assertion), and the handler's own, by where each starts.
struct FunctionStarts {
  DWORD64 starts[32] = {};
  size_t count = 0;

  // On 64-bit x86 any address within a function, through the unwind tables. On 32-bit x86,
  // which has none, the addresses given are where calls go, which is where functions start.
  static DWORD64 StartOf(DWORD64 address) {
#if defined(_M_X64) || defined(__x86_64__)
    DWORD64 imageBase = 0;
    PRUNTIME_FUNCTION function = RtlLookupFunctionEntry(address, &imageBase, nullptr);
    return function != nullptr ? imageBase + function->BeginAddress : 0;
#else
    return address;
#endif
  }
  void Add(const void* function) {
    const DWORD64 start = StartOf(reinterpret_cast<uintptr_t>(function));
    if (start != 0 && count < sizeof starts / sizeof starts[0]) starts[count++] = start;
  }
  bool Holds(DWORD64 address) const {
    const DWORD64 start = StartOf(address);
    for (size_t i = 0; i < count; ++i)
      if (start != 0 && starts[i] == start) return true;
    return false;
  }
};

FunctionStarts g_reportingFunctions;
HMODULE g_runtimeModules[3];

bool InRuntimeModule(DWORD64 address) {
  const uint64_t module = deskaid::LoadedImageBase(address);
  for (HMODULE runtime : g_runtimeModules)
    if (runtime != nullptr && reinterpret_cast<uintptr_t>(runtime) == module) return true;
  return false;
}

// How many frames from the handler the search for the runtime's reporting functions looks: the
// runtime reaches the handler within a few, and an unrelated one further out (a throw that is
// still being unwound, say) must not be taken for them.
constexpr int kReportingDepth = 8;

#if defined(_M_X64) || defined(__x86_64__)
// The failing thread's frames, through the images' unwind tables, as the system's own exception
// dispatch walks them: without the heap, which the failing thread may hold locked.
// Moves `context` from a frame to its caller, as the system's exception dispatch does; false when
// the stack cannot be followed further.
bool UnwindFrame(CONTEXT& context) {
  DWORD64 imageBase = 0;
  if (PRUNTIME_FUNCTION function = RtlLookupFunctionEntry(context.Rip, &imageBase, nullptr)) {
    void* handlerData = nullptr;
    DWORD64 establisher = 0;
    RtlVirtualUnwind(UNW_FLAG_NHANDLER, imageBase, context.Rip, function, &context, &handlerData,
                     &establisher, nullptr);
    return true;
  }
  // A leaf function: the return address is on top of the stack.
  if (IsBadReadPtr(reinterpret_cast<void*>(context.Rsp), sizeof(DWORD64))) return false;
  context.Rip = *reinterpret_cast<DWORD64*>(context.Rsp);
  context.Rsp += sizeof(DWORD64);
  return true;
}

// The failing thread's frames, through the images' unwind tables: without the heap, which the
// failing thread may hold locked.
size_t WalkFailingThread(StackFrameEntry* frames, size_t capacity) {
  CONTEXT context = g_failure.context;
  size_t count = 0;
  while (count < capacity && context.Rip != 0) {
    StackFrameEntry& frame = frames[count];
    frame.pc = context.Rip;
    frame.framePointer = context.Rbp;
    if (!UnwindFrame(context)) break;
    frame.returnAddress = context.Rip;
    // What the debug-help walk leaves out: frames that return to themselves.
    if (frame.pc != frame.returnAddress)
      ++count;
    else
      break;
  }
  return count;
}

// Moves `context`, captured inside the handler, out to the host's code that failed: the caller of
// the outermost reporting function within kReportingDepth frames, past any frames of the C
// runtime's own modules. Returns an address inside the failing call instruction, as its return
// address may already belong to the next line; unchanged, and 0, when the stack cannot be
// followed.
uint64_t StepOutToTheFailure(CONTEXT& context, uintptr_t /*returnSlot*/) {
  CONTEXT walk = context;
  int reportedAt = -1;
  for (int depth = 0; depth < kReportingDepth && walk.Rip != 0; ++depth) {
    if (g_reportingFunctions.Holds(walk.Rip)) reportedAt = depth;
    if (!UnwindFrame(walk)) break;
  }
  if (reportedAt < 0) return 0;
  walk = context;
  for (int depth = 0; depth <= reportedAt; ++depth)
    if (!UnwindFrame(walk)) return 0;
  for (int depth = 0; depth < kReportingDepth && InRuntimeModule(walk.Rip); ++depth)
    if (!UnwindFrame(walk)) return 0;
  if (walk.Rip == 0) return 0;
  context = walk;
  return context.Rip - 1;
}

// The unwind tables need no heap: the walk needs no thread of its own.
bool StartWalker() { return true; }
void StopWalker() {}

#else
// On 32-bit x86 the debug-help library follows frames best (it reads the images' frame data),
// but it takes the heap and the loader's lock, which the failing thread may hold. It walks on a
// thread of its own, started with the handler; a walk not done within kWalkPatienceMs is left,
// and the frames are found without the heap instead (WalkWithoutHeap).
constexpr DWORD kWalkPatienceMs = 4000;
// How far above the stack pointer a frame's return address is looked for, in bytes.
constexpr uintptr_t kScanBytes = 4096;

struct Walker {
  HANDLE thread = nullptr;
  HANDLE start = nullptr;  // set when a failure is ready, or when the handler is removed
  HANDLE done = nullptr;   // set when the walk is done
  // The walk's own copy: a walk given up on may still be writing when the walk without the heap
  // fills the handler's frames.
  StackFrameEntry frames[deskaid::kMaxCrashFrames + 1];
  size_t count = 0;
};

Walker g_walker;

DWORD WINAPI WalkerMain(void*) {
  WaitForSingleObject(g_walker.start, INFINITE);
  if (g_worker.quit != 0) return 0;
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
  const size_t capacity = sizeof g_walker.frames / sizeof g_walker.frames[0];
  g_walker.count = walked.size() < capacity ? walked.size() : capacity;
  std::copy(walked.begin(), walked.begin() + static_cast<std::ptrdiff_t>(g_walker.count),
            g_walker.frames);
  SetEvent(g_walker.done);
  return 0;
}

void StopWalker() {
  if (g_walker.thread != nullptr) {
    SetEvent(g_walker.start);  // with the worker's quit set, the thread ends
    WaitForSingleObject(g_walker.thread, INFINITE);
    CloseHandle(g_walker.thread);
  }
  if (g_walker.start != nullptr) CloseHandle(g_walker.start);
  if (g_walker.done != nullptr) CloseHandle(g_walker.done);
  g_walker.thread = g_walker.start = g_walker.done = nullptr;
}

bool StartWalker() {
  g_walker.start = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  g_walker.done = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  if (g_walker.start != nullptr && g_walker.done != nullptr) {
    g_walker.thread = CreateThread(nullptr, 1 << 20, WalkerMain, nullptr, 0, nullptr);
  }
  return g_walker.thread != nullptr;
}

// Whether `address` may be a return address: in an image's executable memory, right behind a
// call instruction (direct, or through a register or memory).
bool FollowsCall(uintptr_t address) {
  MEMORY_BASIC_INFORMATION memory;
  if (address < 8 ||
      VirtualQuery(reinterpret_cast<void*>(address - 7), &memory, sizeof memory) == 0)
    return false;
  const DWORD executable =
      PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
  const uintptr_t regionEnd = reinterpret_cast<uintptr_t>(memory.BaseAddress) + memory.RegionSize;
  if (memory.State != MEM_COMMIT || memory.Type != MEM_IMAGE ||
      (memory.Protect & executable) == 0 || address > regionEnd)
    return false;
  const uint8_t* code = reinterpret_cast<const uint8_t*>(address);
  return code[-5] == 0xE8 ||                                                       // call rel32
         (code[-2] == 0xFF && ((code[-1] & 0xF8) == 0xD0 ||                        // call reg
                               (code[-1] & 0xF8) == 0x10)) ||                      // call [reg]
         (code[-3] == 0xFF && ((code[-2] & 0xF8) == 0x50 || code[-2] == 0x14)) ||  // +disp8, SIB
         (code[-6] == 0xFF && (code[-5] == 0x15 || (code[-5] & 0xF8) == 0x90));    // disp32
}

// The end of the committed stack above `sp`, within which its words can be read; 0 when `sp`
// is not in memory at all.
uintptr_t StackTop(uintptr_t sp) {
  MEMORY_BASIC_INFORMATION stack;
  if (VirtualQuery(reinterpret_cast<void*>(sp), &stack, sizeof stack) == 0) return 0;
  return reinterpret_cast<uintptr_t>(stack.BaseAddress) + stack.RegionSize;
}

uint32_t StackWord(uintptr_t at) { return *reinterpret_cast<const uint32_t*>(at); }

// The failing thread's frames without the heap: through the chain of frame pointers where it
// holds, else through the first word above the stack pointer that may be a return address.
size_t WalkWithoutHeap(StackFrameEntry* frames, size_t capacity) {
  const CONTEXT& context = g_failure.context;
  const uintptr_t top = StackTop(context.Esp);
  uintptr_t pc = context.Eip, sp = context.Esp, fp = context.Ebp;
  size_t count = 0;
  while (count < capacity) {
    uintptr_t returnAt = 0;
    const bool chained = fp >= sp && fp % 4 == 0 && fp + 8 <= top && FollowsCall(StackWord(fp + 4));
    if (chained) returnAt = fp + 4;
    for (uintptr_t at = sp; returnAt == 0 && at + 4 <= top && at - sp < kScanBytes; at += 4)
      if (FollowsCall(StackWord(at))) returnAt = at;
    if (returnAt == 0) break;
    frames[count++] = StackFrameEntry{pc, StackWord(returnAt), fp};
    pc = StackWord(returnAt);
    sp = returnAt + 4;
    if (chained) fp = StackWord(fp);
  }
  return count;
}

// Where the call right before `returnAddress` (one FollowsCall accepts) goes, when the code alone
// tells: a direct call, or a call through an import slot; an import thunk (a jump through a slot)
// is followed to the function itself. 0 for a call through a register or a computed address.
uintptr_t CallTarget(uintptr_t returnAddress) {
  const uint8_t* code = reinterpret_cast<const uint8_t*>(returnAddress);
  uint32_t operand = 0, target = 0;
  std::memcpy(&operand, code - 4, 4);
  if (code[-5] == 0xE8) {
    target = static_cast<uint32_t>(returnAddress) + operand;
  } else if (code[-6] != 0xFF || code[-5] != 0x15 ||
             !deskaid::ReadOwnMemory(operand, &target, sizeof target)) {
    return 0;
  }
  uint8_t thunk[6];
  uint32_t slot = 0, imported = 0;
  if (deskaid::ReadOwnMemory(target, thunk, sizeof thunk) && thunk[0] == 0xFF && thunk[1] == 0x25) {
    std::memcpy(&slot, thunk + 2, sizeof slot);
    if (deskaid::ReadOwnMemory(slot, &imported, sizeof imported)) target = imported;
  }
  return target;
}

// Moves `context`, captured inside the handler, out to the host's code that failed. With no
// unwind tables on 32-bit x86, frames are found as the return addresses on the stack, from the
// one through which the runtime (or the host) called the handler, at `returnSlot`. Among the
// first kReportingDepth, the outermost that follows a call to one of the runtime's reporting
// functions is the failing call; where none does, the handler's own caller is. Frames of the C
// runtime's own modules are then stepped past. Returns an address inside the failing call
// instruction, where the context's program counter is put too: the debug-help walk looks a
// frame's unwind data up at the program counter itself, and the return address of a call that
// does not return can lie past the end of its function. Unchanged, and 0, when the stack cannot
// be followed.
uint64_t StepOutToTheFailure(CONTEXT& context, uintptr_t returnSlot) {
  const uintptr_t top = StackTop(returnSlot);
  if (returnSlot % 4 != 0) return 0;
  uintptr_t slots[2 * kReportingDepth];
  int count = 0;
  for (uintptr_t at = returnSlot;
       count < 2 * kReportingDepth && at + 4 <= top && at - returnSlot < kScanBytes; at += 4)
    if (FollowsCall(StackWord(at))) slots[count++] = at;
  int failing = 0;
  for (int i = 0; i < count && i < kReportingDepth; ++i)
    if (g_reportingFunctions.Holds(CallTarget(StackWord(slots[i])))) failing = i;
  while (failing < count && InRuntimeModule(StackWord(slots[failing]))) ++failing;
  if (failing >= count) return 0;
  const uintptr_t at = slots[failing];
  // The frame pointer at the failing call: each frame below it that keeps one saved the value
  // it found at its base, so the chain leads out to the first value not below the call. It
  // starts at the handler's entry, which keeps a frame pointer where GCC or clang built it
  // (DESKAID_RETURN_SLOT): its caller's lies right below the return address.
#ifdef __GNUC__
  uintptr_t fp = StackWord(returnSlot - 4);
#else
  uintptr_t fp = context.Ebp;
#endif
  for (int link = 0; link < 64 && fp % 4 == 0 && fp >= returnSlot && fp < at; ++link)
    fp = StackWord(fp);
  context.Eip = StackWord(at) - 1;
  context.Esp = static_cast<DWORD>(at + 4);
  context.Ebp = static_cast<DWORD>(fp);
  return context.Eip;
}

size_t WalkFailingThread(StackFrameEntry* frames, size_t capacity) {
  SetEvent(g_walker.start);
  if (WaitForSingleObject(g_walker.done, kWalkPatienceMs) != WAIT_OBJECT_0) {
    SuspendThread(g_walker.thread);
    return WalkWithoutHeap(frames, capacity);
  }
  const size_t count = g_walker.count < capacity ? g_walker.count : capacity;
  std::copy(g_walker.frames, g_walker.frames + count, frames);
  return count;
}
#endif

void LogFailure() {
  static StackFrameEntry frames[deskaid::kMaxCrashFrames + 1];
  const size_t count = WalkFailingThread(frames, sizeof frames / sizeof frames[0]);
  deskaid::LogCrash(g_failure.name, g_failure.code,
                    reinterpret_cast<uintptr_t>(g_failure.record.ExceptionAddress), frames, count,
                    g_logPath, sizeof g_logPath);
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
    static char path[deskaid::kMaxPath];
    MakeDumpPath(path, sizeof path);
    dumped = WriteDump(path);
    if (dumped) deskaid::FixedText(g_dumpPath, sizeof g_dumpPath).Add(path);
  }
  if (g_installed.options.dwOptions & CRASH_SHOW_MESSAGE_BOX) ShowCrashBox(dumped);
}

DWORD WINAPI WorkerMain(void*) {
  // What a thread sets up on the heap on first use (the runtimes' records of the thread, and of
  // a thread they did not start) is set up now, not after a failure: the failing thread may hold
  // the heap's lock. So is what the runtime looks up in the loader on first use (the precise
  // clock behind the log lock's bounded wait), which the failing thread may hold too.
  (void)std::this_thread::get_id();
  (void)std::chrono::system_clock::now();
  (void)std::chrono::steady_clock::now();
  char warm[16];
  std::snprintf(warm, sizeof warm, "%d", errno);
  SetEvent(g_worker.ready);
  WaitForSingleObject(g_worker.start, INFINITE);
  if (g_worker.quit == 0) HandleFailure();
  return 0;
}

void StopWorker() {
  g_worker.quit = 1;
  StopWalker();
  if (g_worker.thread != nullptr) {
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
  if (g_worker.ready != nullptr && g_worker.start != nullptr && StartWalker()) {
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
  const bool fullMemory = (g_installed.options.dwOptions & CRASH_DUMP_WITH_FULL_MEMORY) != 0;
  const DWORD patience = userWaits    ? INFINITE
                         : fullMemory ? kFullMemoryPatienceMs
                                      : kWorkPatienceMs;
  if (WaitForSingleObject(g_worker.thread, patience) != WAIT_OBJECT_0) {
    SuspendThread(g_worker.thread);
    FinishUnfinishedDump();
  }
  TerminateProcess(GetCurrentProcess(), g_failure.code);
  for (;;) Sleep(INFINITE);
}

// Claims the handler for this failure. When another failure has it already, this one does not
// return: a failure inside the handler's work ends the process at once with the first failure's
// code, and one on another thread waits for the first report to end the process.
void Claim() {
  if (InterlockedExchange(&g_handling, 1) == 0) return;
  if (GetCurrentThreadId() == g_worker.id) {
    FinishUnfinishedDump();
    TerminateProcess(GetCurrentProcess(), g_failure.code);
  }
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
// here, with the code Windows gives such failures, at the host's call that failed. `returnSlot`
// is where the handler's entry keeps the address it returns to.
[[noreturn]] void OnRuntimeFailure(DWORD code, const char* name, uintptr_t returnSlot) {
  Claim();
  g_failure.code = code;
  g_failure.name = name;
  CaptureContext(g_failure.context);
  uint64_t address = deskaid::ProgramCounterOf(g_failure.context);
  if (const uint64_t call = StepOutToTheFailure(g_failure.context, returnSlot)) address = call;
  std::memset(&g_failure.record, 0, sizeof g_failure.record);
  g_failure.record.ExceptionCode = code;
  g_failure.record.ExceptionFlags = EXCEPTION_NONCONTINUABLE;
  g_failure.record.ExceptionAddress = reinterpret_cast<void*>(static_cast<uintptr_t>(address));
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

void OnAbort(int) { OnRuntimeFailure(kFatalAppExit, "abort", DESKAID_RETURN_SLOT()); }
[[noreturn]] void OnTerminate() {
  OnRuntimeFailure(kFatalAppExit, "std::terminate", DESKAID_RETURN_SLOT());
}
void OnInvalidParameter(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, uintptr_t) {
  OnRuntimeFailure(kInvalidCrtParameter, "invalid parameter", DESKAID_RETURN_SLOT());
}
#ifdef _MSC_VER
void OnPureCall() { OnRuntimeFailure(kFatalAppExit, "pure virtual call", DESKAID_RETURN_SLOT()); }
#endif

// Finds the functions StepOutToTheFailure looks for: the handler's own, the C++ runtime's entries
// (linked into the host, or imported), and the C runtime DLLs' reporting functions.
void FindReportingFunctions() {
  FunctionStarts& functions = g_reportingFunctions;
  functions = FunctionStarts();
  functions.Add(reinterpret_cast<const void*>(&OnRuntimeFailure));
  functions.Add(reinterpret_cast<const void*>(&CaptureContext));
  functions.Add(reinterpret_cast<const void*>(&OnAbort));
  functions.Add(reinterpret_cast<const void*>(&OnTerminate));
  functions.Add(reinterpret_cast<const void*>(&OnInvalidParameter));
#ifdef _MSC_VER
  functions.Add(reinterpret_cast<const void*>(&OnPureCall));
#endif
  functions.Add(reinterpret_cast<const void*>(&std::terminate));
  functions.Add(reinterpret_cast<const void*>(&std::abort));
#if DESKAID_HAS_CXXABI
  functions.Add(reinterpret_cast<const void*>(&abi::__cxa_pure_virtual));
  functions.Add(reinterpret_cast<const void*>(&abi::__cxa_deleted_virtual));
  functions.Add(reinterpret_cast<const void*>(&abi::__cxa_throw));
  functions.Add(reinterpret_cast<const void*>(&abi::__cxa_rethrow));
#endif
  const char* const kRuntimes[] = {"msvcrt.dll", "ucrtbase.dll", "vcruntime140.dll"};
  const char* const kReporting[] = {"abort",
                                    "terminate",
                                    "_purecall",
                                    "_invalid_parameter",
                                    "_invalid_parameter_noinfo",
                                    "_invalid_parameter_noinfo_noreturn",
                                    "_assert",
                                    "_wassert"};
  for (size_t i = 0; i < sizeof kRuntimes / sizeof kRuntimes[0]; ++i) {
    g_runtimeModules[i] = GetModuleHandleA(kRuntimes[i]);
    if (g_runtimeModules[i] == nullptr) continue;
    for (const char* name : kReporting)
      if (FARPROC function = GetProcAddress(g_runtimeModules[i], name))
        functions.Add(reinterpret_cast<const void*>(function));
  }
}

}  // namespace

bool InstallCrashHandler(const CrashHandlerOptions* options) {
  if (g_installed.active || !StartWorker()) return false;
  void (*previousAbort)(int) = signal(SIGABRT, OnAbort);
  if (previousAbort == SIG_ERR) {
    StopWorker();
    return false;
  }
  g_installed.options = options != nullptr ? *options : CrashHandlerOptions();
  deskaid::SetCrashAnnotationsFromOptions(g_installed.options);
  g_installed.previousAbort = previousAbort;
  deskaid::PrepareBasicMinidump();
  deskaid::platform::ExecutablePath(g_exePath, sizeof g_exePath);
  FindReportingFunctions();
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
