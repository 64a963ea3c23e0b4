// A host that crashes, with deskaid's crash handler installed: what a customer's machine would
// keep of the failure. Usage: crash_demo DIRECTORY [box]
// It logs to DIRECTORY/app.log (enciphered), then dereferences a null pointer two calls deep. The
// handler logs the failure and the stack, writes a minidump beside the log (Windows) and, with
// "box", shows the crash box. `logexport --image crash_demo` then names every frame.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include <deskaid/deskaid.h>

#if defined(__GNUC__)
#define DEMO_NOINLINE __attribute__((noinline))
#else
#define DEMO_NOINLINE __declspec(noinline)
#endif

namespace {
volatile int* volatile g_record = nullptr;  // the record the import never found
}

extern "C" DEMO_NOINLINE int ParseRecord(int field) {
  return *g_record + field;  // the bug
}

extern "C" DEMO_NOINLINE int ImportRecords(int count) {
  int sum = 0;
  for (int i = 0; i < count; ++i) {
    LogPrintf(LOG_LEVEL_4, "importing record %d", i);
    sum += ParseRecord(i);
  }
  return sum;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: crash_demo DIRECTORY [box]\n");
    return 2;
  }
  // A full path in the platform's own form: the log writer takes a name without a separator of
  // the platform's as a file beside the executable.
  const std::string log =
      (std::filesystem::absolute(argv[1]) / "app.log").make_preferred().string();
  g_LogWriter.Open(log.c_str(), 1 << 20, /*encipher=*/1, /*dropPercent=*/20);
  CrashHandlerOptions options;
  if (argc > 2 && std::strcmp(argv[2], "box") == 0) options.dwOptions |= CRASH_SHOW_MESSAGE_BOX;
  InstallCrashHandler(&options);
  LogPrintf(LOG_LEVEL_2, "crash_demo started");
  std::fflush(stdout);
  return ImportRecords(3);
}
