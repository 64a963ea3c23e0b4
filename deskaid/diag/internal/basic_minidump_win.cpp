#include "deskaid/diag/internal/basic_minidump_win.h"

#include <windows.h>
#include <dbghelp.h>
#include <psapi.h>
#include <winternl.h>

#include <cstring>

#include "deskaid/common/max_path.h"
#include "deskaid/diag/internal/module_identity.h"
#include "deskaid/diag/internal/register_capture_win.h"

namespace deskaid {
namespace {

using NtCreateFileFunction = NTSTATUS(NTAPI*)(PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES,
                                              PIO_STATUS_BLOCK, PLARGE_INTEGER, ULONG, ULONG, ULONG,
                                              ULONG, PVOID, ULONG);
using RtlGetVersionFunction = LONG(WINAPI*)(OSVERSIONINFOW*);
using NextThreadFunction = NTSTATUS(NTAPI*)(HANDLE, HANDLE, ACCESS_MASK, ULONG, ULONG, PHANDLE);

struct SystemCalls {
  NtCreateFileFunction createFile = nullptr;
  RtlGetVersionFunction getVersion = nullptr;
  NextThreadFunction nextThread = nullptr;
};
SystemCalls g_calls;

template <typename Function>
void Find(Function& function, const wchar_t* module, const char* name) {
  if (HMODULE handle = GetModuleHandleW(module)) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(handle, name)));
  }
}

// Everything the writer gathers lives here, not on the failing thread's stack, which may be
// nearly used up, nor on the heap.
constexpr DWORD kMaxModules = 1024;
constexpr size_t kCodeViewRoom = 24 + kMaxPath;  // "RSDS", GUID, age, PDB path
constexpr size_t kMaxStack = 256 * 1024;         // the top of a deeper stack
constexpr size_t kMaxThreads = 256;              // the failing thread and as many others
constexpr size_t kMaxOtherStack = 64 * 1024;     // the top of another thread's stack
// 1970 in the seconds since 1601 that a FILETIME counts (in tenths of microseconds).
constexpr uint64_t kUnixEpochInSeconds = 11644473600u;
struct Scratch {
  HMODULE modules[kMaxModules];
  MINIDUMP_MODULE entries[kMaxModules];
  wchar_t name[kMaxPath];
  uint8_t codeView[kCodeViewRoom];
  ModuleIdentity identity;
  wchar_t path[8 + kMaxPath];
  MINIDUMP_THREAD threads[kMaxThreads];
  MINIDUMP_MEMORY_DESCRIPTOR stacks[kMaxThreads];
  HANDLE suspended[kMaxThreads];
  size_t suspendedCount;
  CONTEXT context;
};
Scratch g_scratch;

// Appends to the file, counting where each piece lands.
class DumpFile {
 public:
  explicit DumpFile(HANDLE file) : m_file(file) { m_ok = MoveTo(0); }
  RVA At() const { return m_at; }
  RVA Write(const void* data, size_t size) {
    const RVA at = m_at;
    DWORD written = 0;
    if (m_ok && size > 0) {
      m_ok = WriteFile(m_file, data, static_cast<DWORD>(size), &written, nullptr) != FALSE &&
             written == size;
    }
    m_at += static_cast<RVA>(size);
    return at;
  }
  // A MINIDUMP_STRING: the length in bytes, the UTF-16 text and its terminator.
  RVA WriteString(const wchar_t* text, size_t length) {
    const ULONG32 bytes = static_cast<ULONG32>(length * sizeof(wchar_t));
    const RVA at = Write(&bytes, sizeof bytes);
    Write(text, bytes);
    const wchar_t end = 0;
    Write(&end, sizeof end);
    return at;
  }
  // Writes the file's first bytes again and cuts the file behind the last piece.
  bool Finish(const void* head, size_t size) {
    DWORD written = 0;
    return m_ok && MoveTo(0) &&
           WriteFile(m_file, head, static_cast<DWORD>(size), &written, nullptr) &&
           written == size && MoveTo(m_at) && SetEndOfFile(m_file);
  }
  bool MoveTo(uint64_t offset) {
    LARGE_INTEGER at;
    at.QuadPart = static_cast<LONGLONG>(offset);
    return SetFilePointerEx(m_file, at, nullptr, FILE_BEGIN) != FALSE;
  }

 private:
  HANDLE m_file;
  RVA m_at = 0;
  bool m_ok = true;
};

MINIDUMP_LOCATION_DESCRIPTOR Location(RVA at, size_t size) {
  MINIDUMP_LOCATION_DESCRIPTOR location;
  location.DataSize = static_cast<ULONG32>(size);
  location.Rva = at;
  return location;
}

RVA WriteSystemInfo(DumpFile& out) {
  const RVA servicePack = out.WriteString(L"", 0);
  SYSTEM_INFO system;
  GetNativeSystemInfo(&system);
  OSVERSIONINFOW version = {};
  version.dwOSVersionInfoSize = sizeof version;
  if (g_calls.getVersion != nullptr) g_calls.getVersion(&version);
  MINIDUMP_SYSTEM_INFO info = {};
  info.ProcessorArchitecture = system.wProcessorArchitecture;
  info.ProcessorLevel = system.wProcessorLevel;
  info.ProcessorRevision = system.wProcessorRevision;
  info.NumberOfProcessors = static_cast<UCHAR>(system.dwNumberOfProcessors);
  info.ProductType = VER_NT_WORKSTATION;
  info.MajorVersion = version.dwMajorVersion;
  info.MinorVersion = version.dwMinorVersion;
  info.BuildNumber = version.dwBuildNumber;
  info.PlatformId = version.dwPlatformId;
  info.CSDVersionRva = servicePack;
  return out.Write(&info, sizeof info);
}

// A thread's stack from its stack pointer up to its top (the end of the committed pages that hold
// the stack pointer), at most `most` bytes of it.
MINIDUMP_MEMORY_DESCRIPTOR WriteStack(DumpFile& out, uint64_t stackPointer, size_t most) {
  MINIDUMP_MEMORY_DESCRIPTOR stack = {};
  MEMORY_BASIC_INFORMATION region;
  const void* const inUse = reinterpret_cast<const void*>(static_cast<uintptr_t>(stackPointer));
  if (VirtualQuery(inUse, &region, sizeof region) == sizeof region && region.State == MEM_COMMIT &&
      (region.Protect & (PAGE_READWRITE | PAGE_READONLY)) != 0) {
    const uint64_t end = reinterpret_cast<uintptr_t>(region.BaseAddress) + region.RegionSize;
    const size_t size = static_cast<size_t>(end - stackPointer < most ? end - stackPointer : most);
    stack.StartOfMemoryRange = stackPointer;
    stack.Memory = Location(out.Write(inUse, size), size);
  }
  return stack;
}

// Adds the process's other threads to the list after the failing one, each with its registers and
// stack; returns the list's length. Each stays suspended until ResumeOtherThreads, so that what
// the dump shows of them holds together. The thread that writes is left out: what it does now is
// the dump, not the failure.
size_t WriteOtherThreads(DumpFile& out, DWORD failing) {
  Scratch& s = g_scratch;
  s.suspendedCount = 0;
  size_t count = 1;
  const DWORD writer = GetCurrentThreadId();
  HANDLE cursor = nullptr;
  bool keepCursor = false;
  HANDLE next = nullptr;
  while (g_calls.nextThread != nullptr &&
         g_calls.nextThread(
             GetCurrentProcess(), cursor,
             THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_QUERY_LIMITED_INFORMATION, 0, 0,
             &next) >= 0) {
    if (cursor != nullptr && !keepCursor) CloseHandle(cursor);
    cursor = next;
    keepCursor = false;
    const DWORD id = GetThreadId(next);
    if (id == failing || id == writer || count == kMaxThreads) continue;
    if (SuspendThread(next) == static_cast<DWORD>(-1)) continue;
    s.suspended[s.suspendedCount++] = next;
    keepCursor = true;
    s.context.ContextFlags = CONTEXT_FULL;
    if (!GetThreadContext(next, &s.context)) continue;
    MINIDUMP_THREAD& entry = s.threads[count++];
    entry = MINIDUMP_THREAD();
    entry.ThreadId = id;
    entry.ThreadContext = Location(out.Write(&s.context, sizeof s.context), sizeof s.context);
    entry.Stack = WriteStack(out, StackPointerOf(s.context), kMaxOtherStack);
  }
  if (cursor != nullptr && !keepCursor) CloseHandle(cursor);
  return count;
}

void ResumeOtherThreads() {
  Scratch& s = g_scratch;
  for (size_t i = 0; i < s.suspendedCount; ++i) {
    ResumeThread(s.suspended[i]);
    CloseHandle(s.suspended[i]);
  }
  s.suspendedCount = 0;
}

// The list of loaded modules, each with its name and CodeView record. Returns the list's size.
size_t WriteModuleList(DumpFile& out, RVA& listAt) {
  Scratch& s = g_scratch;
  DWORD needed = 0;
  if (!K32EnumProcessModules(GetCurrentProcess(), s.modules, sizeof s.modules, &needed)) {
    needed = 0;
  }
  const ULONG32 count =
      needed / sizeof(HMODULE) < kMaxModules ? needed / sizeof(HMODULE) : kMaxModules;
  ULONG32 kept = 0;
  for (ULONG32 i = 0; i < count; ++i) {
    if (!ReadLoadedPeIdentity(reinterpret_cast<uintptr_t>(s.modules[i]), s.identity)) continue;
    MINIDUMP_MODULE& entry = s.entries[kept++];
    entry = MINIDUMP_MODULE();
    entry.BaseOfImage = s.identity.base;
    entry.SizeOfImage = s.identity.imageSize;
    entry.TimeDateStamp = s.identity.timeStamp;
    const DWORD length =
        K32GetModuleFileNameExW(GetCurrentProcess(), s.modules[i], s.name, kMaxPath);
    entry.ModuleNameRva = out.WriteString(s.name, length < kMaxPath ? length : 0);
    const size_t codeView = WriteCodeViewRecord(s.identity, s.codeView, sizeof s.codeView);
    if (codeView > 0) entry.CvRecord = Location(out.Write(s.codeView, codeView), codeView);
  }
  listAt = out.Write(&kept, sizeof kept);
  out.Write(s.entries, kept * sizeof(MINIDUMP_MODULE));
  return sizeof kept + kept * sizeof(MINIDUMP_MODULE);
}

}  // namespace

void PrepareBasicMinidump() {
  Find(g_calls.createFile, L"ntdll.dll", "NtCreateFile");
  Find(g_calls.getVersion, L"ntdll.dll", "RtlGetVersion");
  Find(g_calls.nextThread, L"ntdll.dll", "NtGetNextThread");
}

bool WriteBasicMinidump(HANDLE file, const BasicMinidumpInput& input) {
  struct Head {
    MINIDUMP_HEADER header;
    MINIDUMP_DIRECTORY directory[7];
  };
  static Head head;
  head = Head();
  DumpFile out(file);
  out.Write(&head, sizeof head);  // written again at the end, when every place is known
  ULONG32 streams = 0;
  auto add = [&](ULONG32 type, RVA at, size_t size) {
    head.directory[streams].StreamType = type;
    head.directory[streams].Location = Location(at, size);
    ++streams;
  };
  add(SystemInfoStream, WriteSystemInfo(out), sizeof(MINIDUMP_SYSTEM_INFO));

  MINIDUMP_MISC_INFO misc = {};
  misc.SizeOfInfo = sizeof misc;
  misc.Flags1 = MINIDUMP_MISC1_PROCESS_ID;
  misc.ProcessId = GetCurrentProcessId();
  FILETIME created, ended, kernel, user;
  if (GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user)) {
    const auto seconds = [](const FILETIME& time) {
      return (uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) / 10000000;
    };
    misc.Flags1 |= MINIDUMP_MISC1_PROCESS_TIMES;
    misc.ProcessCreateTime = static_cast<ULONG32>(seconds(created) - kUnixEpochInSeconds);
    misc.ProcessUserTime = static_cast<ULONG32>(seconds(user));
    misc.ProcessKernelTime = static_cast<ULONG32>(seconds(kernel));
  }
  add(MiscInfoStream, out.Write(&misc, sizeof misc), sizeof misc);

  Scratch& s = g_scratch;
  const RVA context = out.Write(input.context, sizeof(CONTEXT));
  MINIDUMP_THREAD& failing = s.threads[0];
  failing = MINIDUMP_THREAD();
  failing.ThreadId = input.threadId;
  failing.ThreadContext = Location(context, sizeof(CONTEXT));
  failing.Stack = WriteStack(out, StackPointerOf(*input.context), kMaxStack);
  const size_t threadCount = WriteOtherThreads(out, input.threadId);

  RVA modules = 0;
  const size_t modulesSize = WriteModuleList(out, modules);
  add(ModuleListStream, modules, modulesSize);

  const ULONG32 threads = static_cast<ULONG32>(threadCount);
  const RVA threadList = out.Write(&threads, sizeof threads);
  out.Write(s.threads, threads * sizeof(MINIDUMP_THREAD));
  add(ThreadListStream, threadList, sizeof threads + threads * sizeof(MINIDUMP_THREAD));

  ULONG32 ranges = 0;
  for (size_t i = 0; i < threadCount; ++i) {
    if (s.threads[i].Stack.Memory.DataSize > 0) s.stacks[ranges++] = s.threads[i].Stack;
  }
  const RVA memory = out.Write(&ranges, sizeof ranges);
  out.Write(s.stacks, ranges * sizeof(MINIDUMP_MEMORY_DESCRIPTOR));
  add(MemoryListStream, memory, sizeof ranges + ranges * sizeof(MINIDUMP_MEMORY_DESCRIPTOR));

  MINIDUMP_EXCEPTION_STREAM exception = {};
  exception.ThreadId = input.threadId;
  exception.ExceptionRecord.ExceptionCode = input.record->ExceptionCode;
  exception.ExceptionRecord.ExceptionFlags = input.record->ExceptionFlags;
  exception.ExceptionRecord.ExceptionAddress =
      reinterpret_cast<uintptr_t>(input.record->ExceptionAddress);
  const DWORD parameters = input.record->NumberParameters < EXCEPTION_MAXIMUM_PARAMETERS
                               ? input.record->NumberParameters
                               : EXCEPTION_MAXIMUM_PARAMETERS;
  exception.ExceptionRecord.NumberParameters = parameters;
  for (DWORD i = 0; i < parameters; ++i) {
    exception.ExceptionRecord.ExceptionInformation[i] = input.record->ExceptionInformation[i];
  }
  exception.ThreadContext = Location(context, sizeof(CONTEXT));
  add(ExceptionStream, out.Write(&exception, sizeof exception), sizeof exception);

  if (input.annotations != nullptr && input.annotationsSize > 0) {
    add(input.annotationsType, out.Write(input.annotations, input.annotationsSize),
        input.annotationsSize);
  }

  head.header.Signature = 0x504D444D;  // "MDMP"
  head.header.Version = MINIDUMP_VERSION;
  head.header.NumberOfStreams = streams;
  head.header.StreamDirectoryRva = offsetof(Head, directory);
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  head.header.TimeDateStamp = static_cast<ULONG32>(
      (uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime) / 10000000 - kUnixEpochInSeconds);
  const bool written = out.Finish(&head, sizeof head);
  ResumeOtherThreads();
  return written;
}

HANDLE CreateFileWithoutHeap(const char* path) {
  if (g_calls.createFile == nullptr) return INVALID_HANDLE_VALUE;
  // The NT form: "\??\" then the full path; "\??\UNC\server\share\..." for a network path.
  wchar_t* const text = g_scratch.path;
  const size_t room = sizeof g_scratch.path / sizeof(wchar_t);
  wchar_t wide[kMaxPath];
  const int length = MultiByteToWideChar(CP_ACP, 0, path, -1, wide, kMaxPath);
  if (length <= 1) return INVALID_HANDLE_VALUE;
  size_t at = 0;
  auto append = [&](const wchar_t* piece, size_t count) {
    for (size_t i = 0; i < count && at + 1 < room; ++i) text[at++] = piece[i];
  };
  append(L"\\??\\", 4);
  const bool unc = (wide[0] == L'\\' || wide[0] == L'/') && (wide[1] == L'\\' || wide[1] == L'/');
  const bool full = unc || (wide[1] == L':' && (wide[2] == L'\\' || wide[2] == L'/'));
  if (unc) {
    append(L"UNC", 3);
    append(wide + 1, static_cast<size_t>(length) - 2);
  } else {
    if (!full) {
      wchar_t folder[kMaxPath];
      const DWORD n = GetCurrentDirectoryW(kMaxPath, folder);
      if (n == 0 || n >= kMaxPath) return INVALID_HANDLE_VALUE;
      if (wide[0] == L'\\' || wide[0] == L'/') {
        append(folder, 2);  // the drive of the current folder
      } else {
        append(folder, n);
        if (folder[n - 1] != L'\\') append(L"\\", 1);
      }
    }
    append(wide, static_cast<size_t>(length) - 1);
  }
  text[at] = L'\0';
  for (size_t i = 4; i < at; ++i) {
    if (text[i] == L'/') text[i] = L'\\';
  }
  UNICODE_STRING name;
  name.Buffer = text;
  name.Length = static_cast<USHORT>(at * sizeof(wchar_t));
  name.MaximumLength = static_cast<USHORT>(name.Length + sizeof(wchar_t));
  OBJECT_ATTRIBUTES attributes;
  InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE, nullptr, nullptr);
  IO_STATUS_BLOCK status;
  HANDLE file = nullptr;
  const NTSTATUS result = g_calls.createFile(
      &file, GENERIC_READ | GENERIC_WRITE | DELETE | SYNCHRONIZE, &attributes, &status, nullptr,
      FILE_ATTRIBUTE_NORMAL, FILE_SHARE_DELETE, FILE_OVERWRITE_IF,
      FILE_SYNCHRONOUS_IO_NONALERT | FILE_NON_DIRECTORY_FILE, nullptr, 0);
  return result >= 0 && file != nullptr ? file : INVALID_HANDLE_VALUE;
}

bool DeleteOnClose(HANDLE file) {
  FILE_DISPOSITION_INFO disposition;
  disposition.DeleteFile = TRUE;
  return SetFileInformationByHandle(file, FileDispositionInfo, &disposition, sizeof disposition) !=
         FALSE;
}

}  // namespace deskaid
