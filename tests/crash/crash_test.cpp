#include <deskaid/deskaid.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <map>

#include "diag/log_file.h"
#include "support/child_process.h"

#ifdef _WIN32
#include "support/input_win.h"
#endif

namespace fs = std::filesystem;
using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

#ifndef _WIN32
// A sanitized build's runtime installs signal handlers of its own before the crash handler, which
// passes failures on to them; its report would end the children first. The children leave the
// failures to the crash handler, as a host without a sanitizer does.
const bool g_childrenLeaveSignalsToTheHandler = [] {
  for (const char* variable : {"ASAN_OPTIONS", "UBSAN_OPTIONS"}) {
    const char* options = std::getenv(variable);
    std::string mine = options != nullptr ? options : "";
    mine += ":handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:handle_abort=0";
    setenv(variable, mine.c_str(), 1);
  }
  return true;
}();
#endif

// A child, by default the one loaded at the converter's base, with this program's extension.
std::string ChildPath(const std::string& name = "crash_child") {
  return BesideThisProgram(name + fs::path(OwnExecutablePath()).extension().string());
}

ChildExit RunChild(const char* kind, const ScratchDir& dir, const char* flag = nullptr,
                   const std::function<void()>& whileRunning = nullptr,
                   const std::string& child = ChildPath()) {
  std::vector<std::string> args = {kind, dir.path().string()};
  if (flag != nullptr) args.push_back(flag);
  // Generous: a loaded machine can take a while to write a dump.
  return RunChildProcess(child, args, 180000, whileRunning);
}

#ifdef _WIN32
std::vector<fs::path> DumpsIn(const fs::path& folder) {
  std::vector<fs::path> dumps;
  for (const auto& entry : fs::directory_iterator(folder))
    if (entry.path().filename().string().rfind("crash_child - ", 0) == 0 &&
        entry.path().extension() == ".dmp")
      dumps.push_back(entry.path());
  return dumps;
}

// A minidump's streams by type. Reads past a stream's end give 0, and a missing stream is empty.
struct Dump {
  std::map<uint32_t, std::string> streams;

  // The one dump in `folder`, which is then removed; none or several fail the test.
  explicit Dump(const fs::path& folder) {
    const auto dumps = DumpsIn(folder);
    EXPECT_EQ(dumps.size(), 1u) << "dumps in " << folder.string();
    const std::string bytes = dumps.empty() ? "" : ReadFileBytes(dumps[0].string());
    for (const auto& dump : dumps) fs::remove(dump);
    if (bytes.compare(0, 4, "MDMP") != 0) return;
    for (uint32_t i = 0, directory = U32(bytes, 12); i < U32(bytes, 8); ++i) {
      const uint32_t entry = directory + 12 * i;
      streams[U32(bytes, entry)] = bytes.substr(U32(bytes, entry + 8), U32(bytes, entry + 4));
    }
  }
  static uint32_t U32(const std::string& bytes, size_t at) {
    return at + 4 <= bytes.size() ? logtest::U32(bytes, at) : 0u;
  }
  std::string Stream(uint32_t type) const { return streams.count(type) ? streams.at(type) : ""; }
  // Stream 6: thread id, alignment, then code, flags, record (8 bytes), address.
  std::pair<uint32_t, uint32_t> Exception() const {
    return {U32(Stream(6), 8), U32(Stream(6), 24)};
  }
  uint32_t ThreadCount() const { return U32(Stream(3), 0); }
  // Whether the memory list (stream 5) holds `address`.
  bool HoldsMemoryAt(uint64_t address) const {
    const std::string list = Stream(5);
    for (uint32_t i = 0; i < U32(list, 0); ++i) {
      const size_t range = 4 + 16 * size_t{i};
      const uint64_t start = U32(list, range) | uint64_t{U32(list, range + 4)} << 32;
      if (address - start < U32(list, range + 8)) return true;
    }
    return false;
  }
};
#endif

// Each failure: its name in the first crash record, exit code or signal, and crashing function.
const struct Failure {
  const char *kind, *name;
  unsigned long status;
  const char *crashedIn, *flag = nullptr;
} kFailures[] = {
#ifdef _WIN32
    {"access", "EXCEPTION_ACCESS_VIOLATION", 0xC0000005, "CrashingFunction"},
    {"divide", "EXCEPTION_INT_DIVIDE_BY_ZERO", 0xC0000094, "CrashingFunction"},
    {"illegal", "EXCEPTION_ILLEGAL_INSTRUCTION", 0xC000001D, "CrashingFunction"},
    {"stack", "EXCEPTION_STACK_OVERFLOW", 0xC00000FD, "Recurse"},
    // The runtime's failures, at the host's call that failed.
    {"abort", "abort", 0x40000015, "CrashingFunction"},
    {"terminate", "std::terminate", 0x40000015, "CrashingFunction"},
    {"purecall", "std::terminate", 0x40000015, "CrashingFunction"},
    {"parameter", "invalid parameter", 0xC0000417, "CrashingFunction"},
    {"access", "EXCEPTION_ACCESS_VIOLATION", 0xC0000005, nullptr, "nolog"},  // dump beside the exe
};
constexpr unsigned long kSecondFailureStatus = 0xC0000094;  // the handler's fault: the first code
#else
    {"access", "SIGSEGV", SIGSEGV, "CrashingFunction"},
    {"divide", "SIGFPE", SIGFPE, "CrashingFunction"},
    {"illegal", "SIGILL", SIGILL, "CrashingFunction"},
    {"bus", "SIGBUS", SIGBUS, "CrashingFunction"},
    {"abort", "SIGABRT", SIGABRT, nullptr},
    {"access", "SIGSEGV", SIGSEGV, nullptr, "nolog"},
};
constexpr unsigned long kSecondFailureStatus = SIGSEGV;  // the second, blocked in the handler
#endif

TEST(CrashHandler, EveryKindOfFailureIsLoggedResolvedAndEndsTheProcessWithItsCode) {
  for (const Failure& failure : kFailures) {
    SCOPED_TRACE(failure.flag != nullptr ? failure.flag : failure.kind);
    const std::string kind = failure.kind;
    ScratchDir dir;
    const bool logged = failure.flag == nullptr;
#ifdef _WIN32
    // 64-bit Wine (8.0) ends a thread whose stack overflowed inside its own exception dispatch,
    // before any handler of the program runs; the 32-bit build is tested for it.
    if (sizeof(void*) == 8 && kind == "stack" &&
        GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr)
      continue;
    const fs::path dumpFolder = logged ? dir.path() : fs::path(ChildPath()).parent_path();
    for (const auto& old : DumpsIn(dumpFolder)) fs::remove(old);
#endif
    const ChildExit outcome = RunChild(failure.kind, dir, failure.flag);
    ASSERT_TRUE(outcome.finished);
    EXPECT_EQ(outcome.code, failure.status);
    const std::vector<std::string> records =
        logtest::WithoutModuleRecords(logtest::ParseFile(dir.PathOf("crash.log")).Texts());
    if (logged) {
      ASSERT_TRUE(records.size() >= 3 && records.size() <= 2 + 64) << records.size();
      EXPECT_EQ(records[0], "child ready");
      char code[16];
      std::snprintf(code, sizeof code, "0x%08lX", failure.status);
      EXPECT_THAT(records[1],
                  StartsWith(std::string("Crash: ") + failure.name + " (" + code + ") at ["));
      const auto messages = logtest::WithoutModuleRecords(logtest::ExportedMessages(
          dir.PathOf("crash.log"), dir.PathOf("crash.txt"), ChildPath().c_str()));
      ASSERT_EQ(messages.size(), records.size());
      if (failure.crashedIn) {
        EXPECT_THAT(messages[1], HasSubstr(std::string(" at ") + failure.crashedIn));
      }
      bool callerNamed = kind == "stack";
      for (size_t i = 2; i < records.size(); ++i) {
        EXPECT_THAT(records[i],
                    StartsWith("Crash: frame " + std::to_string(i - 2) + " returns to ["));
        callerNamed =
            callerNamed || messages[i].find("returns to CallerOfCrash") != std::string::npos;
      }
      EXPECT_TRUE(callerNamed) << "no frame returns to CallerOfCrash";
    } else {
      EXPECT_FALSE(fs::exists(dir.PathOf("crash.log")));
    }
#ifdef _WIN32
    // The dump goes beside the log, or without one beside the executable.
    const auto exception = Dump(dumpFolder).Exception();
    const uint32_t at =
        logged ? std::stoul(records[1].substr(records[1].find('[') + 1, 8), nullptr, 16)
               : exception.second;
    EXPECT_EQ(exception, std::make_pair(uint32_t(failure.status), at));
#endif
  }
}

// A host linked as its toolchain links by default, failing in its executable and in a library of
// its own: every frame in those modules is named, with its source line, from the images beside it.
TEST(CrashHandler, ModuleReferencesNameEveryFrameOfADefaultLinkedHost) {
  const std::string child = ChildPath("crash_child_default");
  const std::string childName = fs::path(child).filename().string();
  const std::pair<const char*, const char*> kKindsAndCrashedIn[] = {{"access", "CrashingFunction"},
                                                                    {"plugin", "PluginCrash"}};
  for (const auto& [kind, crashedIn] : kKindsAndCrashedIn) {
    SCOPED_TRACE(kind);
    ScratchDir dir;
    ASSERT_TRUE(RunChild(kind, dir, nullptr, nullptr, child).finished);
    const auto messages = logtest::WithoutModuleRecords(logtest::MessagesNamedFrom(
        dir.PathOf("crash.log"), dir.PathOf("crash.txt"), fs::path(child).parent_path().string()));
    ASSERT_GE(messages.size(), 3u);
    EXPECT_THAT(messages[1], HasSubstr(std::string(" at ") + crashedIn + " ("));
    // Every frame from the failure out to main is named with its source line, and so is the
    // runtime's start code beyond it on Windows (from the DWARF the MinGW runtime was built with);
    // a Linux program's (_start) was built without, and is named by its symbol alone.
#ifdef _WIN32
    constexpr bool kStartCodeHasLines = true;
#else
    constexpr bool kStartCodeHasLines = false;
#endif
    bool mainReached = false, callerNamed = false;
    for (size_t i = 1; i < messages.size(); ++i) {
      const std::string& m = messages[i];
      if (m.find("<" + childName + "+0x") == std::string::npos &&
          m.find("<crash_plugin") == std::string::npos)
        continue;  // the system's modules are not on the symbol path
      EXPECT_THAT(m, Not(HasSubstr("??"))) << "named";
      if (!mainReached || kStartCodeHasLines) {
        EXPECT_THAT(m, AnyOf(HasSubstr(".cpp:"), HasSubstr(".c:"))) << "with its source line";
      }
      callerNamed = callerNamed || m.find("returns to CallerOfCrash (") != std::string::npos;
      mainReached = mainReached || m.find("returns to main (") != std::string::npos;
    }
    EXPECT_TRUE(mainReached) << "no frame returns to main";
    EXPECT_TRUE(callerNamed) << "no frame returns to CallerOfCrash";
  }
}

// Failures of a process that does more than one thing: each leaves the whole report and ends the
// process with its own code or signal, promptly.
TEST(CrashHandler, ReportsSurviveOtherThreadsADamagedHeapAndHeldLocks) {
  for (const std::string kind :
       {"threads2", "threads8", "heaplock", "heapdamage", "busylog", "loaderlock",
#ifdef _WIN32
        "threadslate"}) {
    const char* name = "EXCEPTION_ACCESS_VIOLATION";
    const unsigned long status = 0xC0000005;
#else
        "overflow", "chained", "chainedinfo"}) {
    // free() finds the damage it was made to find, and aborts.
    const char* name = kind == "heaplock" ? "SIGABRT" : "SIGSEGV";
    const unsigned long status = kind == "heaplock" ? SIGABRT : SIGSEGV;
#endif
    SCOPED_TRACE(kind);
#if defined(__SANITIZE_ADDRESS__)
    // The sanitizer's allocator is not the C library's: neither damage reaches it.
    if (kind.rfind("heap", 0) == 0) continue;
#endif
    ScratchDir dir;
    const ChildExit outcome = RunChildProcess(ChildPath(), {kind, dir.path().string()}, 20000);
    ASSERT_TRUE(outcome.finished) << "still running after 20 s";
    EXPECT_EQ(outcome.code, status);
    std::vector<std::string> crash;
    for (const std::string& record : logtest::ParseFile(dir.PathOf("crash.log")).Texts())
      if (record.rfind("Crash: ", 0) == 0) crash.push_back(record);
    ASSERT_GE(crash.size(), 2u) << "the failure and at least one frame";
    EXPECT_THAT(crash[0], StartsWith(std::string("Crash: ") + name + " ("));
    for (size_t i = 1; i < crash.size(); ++i)
      EXPECT_THAT(crash[i], StartsWith("Crash: frame " + std::to_string(i - 1) + " returns to ["))
          << "one report, whole";
    if (kind.rfind("chained", 0) == 0) {
      EXPECT_TRUE(fs::exists(dir.PathOf("previous.txt"))) << "the earlier handler was not called";
    }
#ifdef _WIN32
    // A dump in every case: with the heap locked or damaged, the one written without the heap.
    // Either holds every thread: at least the failing one and the handler's own.
    EXPECT_GE(Dump(dir.path()).ThreadCount(), 2u) << "threads in the dump beside the log";
#endif
  }
}

// The host's annotations follow the crash's frames in the log and, on Windows, go into the dump as
// a stream of their own; the dump's kind is the host's choice.
TEST(CrashHandler, AnnotationsAndTheDumpsKindReachTheReport) {
  ScratchDir dir;
  ASSERT_TRUE(RunChild("access", dir, "annotated").finished);
  std::vector<std::string> annotations;
  bool afterFrames = true;
  for (const std::string& record : logtest::ParseFile(dir.PathOf("crash.log")).Texts()) {
    if (record.rfind("Annotation: ", 0) == 0)
      annotations.push_back(record);
    else if (!annotations.empty() && record.rfind("Crash: ", 0) == 0)
      afterFrames = false;
  }
  EXPECT_EQ(annotations, (std::vector<std::string>{"Annotation: document=a b=c",
                                                   "Annotation: product=crash child",
                                                   "Annotation: version=1.2.3"}));
  EXPECT_TRUE(afterFrames);
#ifdef _WIN32
  const Dump normal(dir.path());
  EXPECT_EQ(normal.Stream(kCrashAnnotationStreamType),
            "document=a b=c\nproduct=crash child\nversion=1.2.3\n");
  EXPECT_EQ(normal.streams.count(9), 0u);

  ScratchDir withData, fullMemory;
  ASSERT_TRUE(RunChild("access", withData, "withdata").finished);
  ASSERT_TRUE(RunChild("access", fullMemory, "fullmemory").finished);
  const uint64_t global = std::stoull(ReadFileBytes(withData.PathOf("global.txt")));
  EXPECT_TRUE(Dump(withData.path()).HoldsMemoryAt(global))
      << "the child's data in a dump with data";
  EXPECT_EQ(Dump(fullMemory.path()).streams.count(9), 1u) << "all memory, as a 64-bit memory list";
#endif
}

TEST(CrashHandler, AnnotationsKeepToTheirRulesAndTheirRoom) {
  const std::string longestKey(kMaxCrashAnnotationKey, 'k'),
      longestValue(kMaxCrashAnnotationValue, 'v');
  EXPECT_TRUE(SetCrashAnnotation(longestKey.c_str(), longestValue.c_str()));
  for (const char* key : {"", "two words", "line\n", "\xC3\xA9"})
    EXPECT_FALSE(SetCrashAnnotation(key, "x")) << key;
  EXPECT_FALSE(SetCrashAnnotation((longestKey + "k").c_str(), "x"));
  EXPECT_FALSE(SetCrashAnnotation("key", (longestValue + "v").c_str()));
  EXPECT_FALSE(SetCrashAnnotation("key", "two\nlines"));
  EXPECT_TRUE(SetCrashAnnotation("absent", "")) << "removing what is not there";
  for (size_t i = 1; i < kMaxCrashAnnotations; ++i)
    EXPECT_TRUE(SetCrashAnnotation(("key" + std::to_string(i)).c_str(), "x"));
  EXPECT_FALSE(SetCrashAnnotation("one.more", "x")) << "no room";
  EXPECT_TRUE(SetCrashAnnotation("key1", "replaced")) << "a key set already takes no room";
  EXPECT_TRUE(SetCrashAnnotation(longestKey.c_str(), ""));
  EXPECT_TRUE(SetCrashAnnotation("one.more", "x")) << "a removed key's room";
  for (size_t i = 1; i < kMaxCrashAnnotations; ++i)
    SetCrashAnnotation(("key" + std::to_string(i)).c_str(), "");
  SetCrashAnnotation("one.more", "");
}

// The child's trace hook faults inside the handler.
TEST(CrashHandler, SecondFailureInsideTheHandlerEndsTheProcessPromptly) {
  ScratchDir dir;
  const auto start = std::chrono::steady_clock::now();
  const ChildExit outcome = RunChild("divide", dir, "second");
  ASSERT_TRUE(outcome.finished);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
  EXPECT_EQ(outcome.code, kSecondFailureStatus);
  EXPECT_EQ(logtest::ParseFile(dir.PathOf("crash.log")).Texts(),
            std::vector<std::string>{"child ready"});
}

#ifdef _WIN32
LONG WINAPI PreviousFilter(EXCEPTION_POINTERS*) { return EXCEPTION_CONTINUE_SEARCH; }
#endif

TEST(CrashHandler, InstallRemembersAndRemoveRestoresWhatWasThere) {
#ifdef _WIN32
  SetUnhandledExceptionFilter(PreviousFilter);
#else
  struct sigaction mine = {}, seen = {};
  mine.sa_handler = [](int) {};
  sigaction(SIGBUS, &mine, nullptr);
#endif
  ASSERT_TRUE(InstallCrashHandler(nullptr));
  EXPECT_FALSE(InstallCrashHandler(nullptr)) << "one handler at a time";
  EXPECT_TRUE(RemoveCrashHandler());
  EXPECT_FALSE(RemoveCrashHandler());
#ifdef _WIN32
  EXPECT_EQ(SetUnhandledExceptionFilter(nullptr), &PreviousFilter);
#else
  sigaction(SIGBUS, nullptr, &seen);
  EXPECT_EQ(seen.sa_handler, mine.sa_handler);
  signal(SIGBUS, SIG_DFL);
#endif
}

#ifdef _WIN32
// The box shows the dump's path; Report reaches the host's callback with both paths.
TEST(CrashHandler, CrashBoxReportsToTheHostAndCloseEndsTheProcess) {
  ScratchDir dir;
  std::string text, report;
  bool openAfterReport = false;
  const ChildExit outcome = RunChild("access", dir, "box", [&] {
    HWND box = nullptr;  // shown means set up: the box handles its buttons once it is visible
    ASSERT_TRUE(WaitUntil(
        [&] {
          box = FindWindowA("#32770", "crash_child.exe");
          return box != nullptr && IsWindowVisible(box);
        },
        30000))
        << "no crash box";
    char buffer[1024] = {};
    GetDlgItemTextA(box, ID_FIRSTTEXT, buffer, sizeof buffer);
    text = buffer;
    SendMessageA(GetDlgItem(box, ID_REPORTBUTTON), BM_CLICK, 0, 0);
    WaitUntil([&] { return fs::exists(dir.PathOf("report.txt")); }, 5000);
    report = ReadFileBytes(dir.PathOf("report.txt"));
    openAfterReport = IsWindow(box) != FALSE;
    SendMessageA(GetDlgItem(box, IDCUSTOM1), BM_CLICK, 0, 0);
  });
  ASSERT_TRUE(outcome.finished);
  EXPECT_EQ(outcome.code, 0xC0000005u);
  EXPECT_TRUE(openAfterReport) << "Report leaves the box open";
  const size_t bar = report.find('|');
  ASSERT_NE(bar, std::string::npos) << report;
  const std::string dump = report.substr(0, bar), log = report.substr(bar + 1);
  EXPECT_TRUE(fs::exists(dump)) << dump;
  EXPECT_TRUE(fs::equivalent(log, dir.PathOf("crash.log"))) << log;
  EXPECT_THAT(text, AllOf(HasSubstr(dump), HasSubstr("EXCEPTION_ACCESS_VIOLATION")))
      << "the box shows the failure and the dump's path";
}
#endif

}  // namespace
