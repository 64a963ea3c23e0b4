// crash_child KIND DIR [box | nolog | second]: fails as KIND says under the crash handler, logging
// to DIR/crash.log; Report writes DIR/report.txt; "second" plants a fault inside the handler.
// KIND "plugin" fails inside a shared library of the child's own.
#include <deskaid/deskaid.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

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

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  g_dir = argv[2];
  const std::string flag = argc > 3 ? argv[3] : "";
  if (flag != "nolog") g_LogWriter.Open((g_dir + "/crash.log").c_str(), 0xFFFFFFFF, 1, 20);
  CrashHandlerOptions options;
  if (flag == "box") options.dwOptions |= CRASH_SHOW_MESSAGE_BOX;
  options.pfnReport = WriteReport;
  if (!InstallCrashHandler(&options)) return 3;
  if (flag == "second") SetDebugTraceSink(FaultingTraceHook, nullptr);
  LogPrintf(LOG_LEVEL_2, "child ready");
  CallerOfCrash(argv[1]);
  return 0;
}
