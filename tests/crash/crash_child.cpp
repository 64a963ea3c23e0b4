// crash_child KIND DIR [box | nolog | second | annotated | withdata | fullmemory]: fails as KIND
// says under the crash handler, logging to DIR/crash.log; Report writes DIR/report.txt; "second"
// plants a fault inside the handler. KIND is a failure of CrashingFunction (in a library of the
// child's own for "plugin") or, chosen in main, one of a process that does more (namespace more).
#include <deskaid/deskaid.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <link.h>
#include <malloc.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

// The failures must reach the processor, not a sanitized build's undefined-behaviour checks.
#define CHILD_NOINLINE __attribute__((noinline, no_sanitize("undefined")))

namespace {

std::string g_dir;
volatile int g_zero = 0, g_sink = 0;
volatile int* volatile g_null = nullptr;

void WriteReport(const char* dumpPath, const char* logPath, void*) {
  std::ofstream(g_dir + "/report.txt") << dumpPath << '|' << logPath;
}

}  // namespace

// In a module of the host's own (crash_plugin.cpp).
extern "C" void PluginCrash();
extern "C" void PluginCaller(void (*crash)());

// A pure virtual call is undefined behaviour an optimiser may remove: the child calls its target.
extern "C" void __cxa_pure_virtual();

CHILD_NOINLINE void FaultingTraceHook(const char*, void*) { *g_null = 1; }

extern "C" CHILD_NOINLINE int Recurse(int depth) {
  volatile char pad[512];
  pad[0] = static_cast<char>(depth);
  if (g_zero > 1) return pad[0];  // never: the recursion goes on until the stack is gone
  return Recurse(depth + 1) + pad[0];
}

extern "C" CHILD_NOINLINE void CrashingFunction(const char* kind) {
  if (std::strcmp(kind, "access") == 0) *g_null = 42;
  if (std::strcmp(kind, "divide") == 0) g_sink = 7 / g_zero;
  // An undefined instruction in line: a trap the compiler emits may move out of the function.
  if (std::strcmp(kind, "illegal") == 0) __asm__ volatile("ud2");
  if (std::strcmp(kind, "stack") == 0) g_sink = Recurse(0);
  if (std::strcmp(kind, "abort") == 0) std::abort();
  if (std::strcmp(kind, "terminate") == 0) std::terminate();
  if (std::strcmp(kind, "purecall") == 0) __cxa_pure_virtual();
  if (std::strcmp(kind, "plugin") == 0) PluginCaller(PluginCrash);
#ifdef _WIN32
  if (std::strcmp(kind, "parameter") == 0) {
    // Wine's msvcrt.dll only prints this report, keeping its invalid-parameter handler out of
    // reach, so the child then calls the handler the host's runtime holds, as a runtime would.
    char* target = nullptr;
    g_sink = strcpy_s(target, 0, "x");
    if (_invalid_parameter_handler handler = _get_invalid_parameter_handler()) {
      handler(nullptr, nullptr, nullptr, 0, 0);
    }
  }
#else
  if (std::strcmp(kind, "bus") == 0) {
    // A mapping beyond the end of an empty file: touching it is a bus error.
    int fd = open((g_dir + "/empty").c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    auto* page = static_cast<volatile char*>(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0));
    g_sink = page[0];
  }
#endif
  g_sink = g_sink + 1;
}

extern "C" CHILD_NOINLINE void CallerOfCrash(const char* kind) {
  CrashingFunction(kind);
  g_sink = g_sink + 1;
}

// The failures of a process that does more than one thing at a time. Each returns only when it
// did not fail.
namespace more {

std::atomic<int> g_ready{0};

CHILD_NOINLINE void FaultWhenAllAreReady(int count) {
  ++g_ready;
  while (g_ready < count) {
  }
  *g_null = 1;
}

// `count` threads line up and fault together.
CHILD_NOINLINE void ThreadsAtOnce(int count) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(FaultWhenAllAreReady, count);
  for (auto& thread : threads) thread.join();
}

// A second thread fails a moment after the first, while the first failure is reported.
CHILD_NOINLINE void SecondThreadAMomentLater() {
  std::thread later([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    *g_null = 5;
  });
  later.detach();
  *g_null = 1;
}

// Another thread writes records as fast as it can into a log that rotates every few records.
CHILD_NOINLINE void WhileTheLogIsBusy() {
  std::thread writer([] {
    for (int i = 0;; ++i) {
      LogPrintf(LOG_LEVEL_2, "busy %d with a record long enough to make the log rotate often", i);
      if (i == 2000) g_ready = 1;
    }
  });
  writer.detach();
  while (g_ready == 0) {
  }
  *g_null = 3;
}

#ifdef _WIN32
// The process heap stays locked by the failing thread: nothing of the report may wait for it.
CHILD_NOINLINE void WithTheHeapLocked() {
  HeapLock(GetProcessHeap());
  *g_null = 4;
}

// A block of the process heap runs over into the freed block behind it.
CHILD_NOINLINE void AfterHeapDamage() {
  HANDLE heap = GetProcessHeap();
  for (SIZE_T size = 24; size <= 1032; size += 16) {
    char* block = static_cast<char*>(HeapAlloc(heap, 0, size));
    char* behind = static_cast<char*>(HeapAlloc(heap, 0, size));
    HeapFree(heap, 0, behind);
    if (behind > block && behind - block < 64 + static_cast<ptrdiff_t>(size))
      std::memset(block + size, 0x41, static_cast<size_t>(behind - block) - size + 16);
  }
  *g_null = 2;
}

// The failing thread holds the loader's lock, as a failure inside a DLL's entry point does.
CHILD_NOINLINE void WithTheLoaderLockHeld() {
  using LockFunction = LONG(NTAPI*)(ULONG, ULONG*, ULONG_PTR*);
  const auto lock = reinterpret_cast<LockFunction>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "LdrLockLoaderLock")));
  ULONG_PTR cookie = 0;
  if (lock == nullptr || lock(0, nullptr, &cookie) != 0) std::_Exit(4);
  *g_null = 7;
}
#else
// Blocks beyond the per-thread caches go through the arena, whose lock free() takes in a process
// with more than one thread; a zero size behind the block makes free() fail with the lock held.
CHILD_NOINLINE void InsideFreeWithTheLockHeld() {
  std::thread idle([] { pause(); });
  idle.detach();
  auto* block = static_cast<volatile size_t*>(std::malloc(4000));
  void* after = std::malloc(4000);
  block[malloc_usable_size(const_cast<size_t*>(block)) / sizeof(size_t)] = 0;  // the next's size
  std::free(const_cast<size_t*>(block));
  std::free(after);
}

// In every small size class, a block runs over into the freed block behind it, through its size
// and its link in the per-thread cache: the next allocation of any of those sizes follows that
// link into nowhere.
CHILD_NOINLINE void AfterHeapDamage() {
  for (size_t size = 24; size <= 1032; size += 16) {  // sizes that fill their blocks exactly
    char* block = static_cast<char*>(std::malloc(size));
    char* behind = static_cast<char*>(std::malloc(size));
    std::free(behind);
    // Only a block right behind is damaged: the process's own data (its log's stream) stays whole.
    if (behind == block + size + 8) std::memset(block + size, 0x41, 16);
  }
  *g_null = 2;
}

// The stack of a worker thread, prepared for the handler, overflows.
CHILD_NOINLINE void OverflowOnAWorker() {
  std::thread worker([] {
    if (!PrepareThreadForCrashHandler()) std::_Exit(4);
    g_sink = Recurse(0);
  });
  worker.join();
}

// Another thread sits inside the dynamic linker's walk of the loaded modules, which holds the
// linker's lock, and waits there for something the failing thread never does.
CHILD_NOINLINE void WithTheLoaderLockHeld() {
  std::thread holder([] {
    dl_iterate_phdr(
        [](dl_phdr_info*, size_t, void*) {
          g_ready = 1;
          for (;;) pause();
          return 0;
        },
        nullptr);
  });
  holder.detach();
  while (g_ready == 0) {
  }
  *g_null = 6;
}

// The handlers installed before the crash handler ("chained", "chainedinfo"), which it calls on.
void WritePrevious(int) {
  close(open((g_dir + "/previous.txt").c_str(), O_WRONLY | O_CREAT, 0600));
}
void WritePreviousWithInfo(int signal, siginfo_t*, void*) { WritePrevious(signal); }

#endif
}  // namespace more

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  g_dir = argv[2];
  const std::string flag = argc > 3 ? argv[3] : "";
  const std::string kind = argv[1];
  // The busy log rotates at its smallest size, dropping half of its records each time. With a
  // damaged or locked heap the log is that small too, and so nearly full that the report's first
  // records reach its limit.
  const bool heap = kind.rfind("heap", 0) == 0;
  const uint32_t logSize = kind == "busylog" || heap ? 65536 : 0xFFFFFFFF;
  if (flag != "nolog") g_LogWriter.Open((g_dir + "/crash.log").c_str(), logSize, 1, 50);
  while (heap && g_LogWriter.GetSize() + 100 < logSize) LogPrintf(LOG_LEVEL_2, "filler");
#ifndef _WIN32
  if (kind == "chained") signal(SIGSEGV, more::WritePrevious);
  if (kind == "chainedinfo") {
    struct sigaction withInfo {};
    withInfo.sa_sigaction = more::WritePreviousWithInfo;
    withInfo.sa_flags = SA_SIGINFO;
    sigaction(SIGSEGV, &withInfo, nullptr);
  }
#endif
  CrashHandlerOptions options;
  if (flag == "box") options.dwOptions |= CRASH_SHOW_MESSAGE_BOX;
  options.pfnReport = WriteReport;
  if (flag == "annotated") {
    std::strcpy(options.szProduct, "crash child");
    std::strcpy(options.szVersion, "1.2.3");
    if (!SetCrashAnnotation("document", "a b=c") || SetCrashAnnotation("bad key", "x")) return 4;
  }
  if (flag == "withdata") {
    options.dwOptions |= CRASH_DUMP_WITH_DATA;
    std::ofstream(g_dir + "/global.txt") << reinterpret_cast<uintptr_t>(&g_sink);
  }
  if (flag == "fullmemory") options.dwOptions |= CRASH_DUMP_WITH_FULL_MEMORY;
  if (!InstallCrashHandler(&options)) return 3;
  if (flag == "second") SetDebugTraceSink(FaultingTraceHook, nullptr);
  LogPrintf(LOG_LEVEL_2, "child ready");
  if (kind == "threads2" || kind == "threads8") more::ThreadsAtOnce(kind == "threads2" ? 2 : 8);
  if (kind == "busylog") more::WhileTheLogIsBusy();
  if (kind == "threadslate") more::SecondThreadAMomentLater();
  if (kind == "heapdamage") more::AfterHeapDamage();
  if (kind == "loaderlock") more::WithTheLoaderLockHeld();
#ifdef _WIN32
  if (kind == "heaplock") more::WithTheHeapLocked();
#else
  if (kind == "heaplock") more::InsideFreeWithTheLockHeld();
  if (kind == "overflow") more::OverflowOnAWorker();
  if (kind.rfind("chained", 0) == 0) CallerOfCrash("access");
#endif
  CallerOfCrash(argv[1]);
  return 0;
}
