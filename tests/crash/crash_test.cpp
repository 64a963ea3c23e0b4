// The crash handler in children that really fail: their exit status, the records they leave in
// the log, those records turned into function names, and on Windows the minidump and the box.
#include <deskaid/deskaid.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <deskaid/common/internal/platform.h>

#include "diag/log_file.h"
#include "support/scratch_dir.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace fs = std::filesystem;

namespace {

std::string ChildPath() {
  char own[deskaid::kMaxPath];
  deskaid::platform::ExecutablePath(own, sizeof own);
  fs::path self(own);
#ifdef _WIN32
  return (self.parent_path() / "crash_child.exe").string();
#else
  return (self.parent_path() / "crash_child").string();
#endif
}

struct Outcome {
  bool finished = false;  // within the time allowed
  unsigned long exitCode = 0;  // Windows: the exit code
  int signal = 0;              // POSIX: the signal that ended it, 0 for a normal exit
};

// Runs the child and waits up to `seconds`; `whileRunning` is called once it has started.
Outcome RunChild(const std::vector<std::string>& args, int seconds,
                 const std::function<void()>& whileRunning = nullptr) {
  Outcome outcome;
#ifdef _WIN32
  std::string line = "\"" + ChildPath() + "\"";
  for (const auto& a : args) line += " \"" + a + "\"";
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessA(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &process)) {
    ADD_FAILURE() << "CreateProcess failed: " << GetLastError();
    return outcome;
  }
  if (whileRunning) whileRunning();
  outcome.finished = WaitForSingleObject(process.hProcess, seconds * 1000) == WAIT_OBJECT_0;
  if (!outcome.finished) TerminateProcess(process.hProcess, 1);
  DWORD code = 0;
  GetExitCodeProcess(process.hProcess, &code);
  outcome.exitCode = code;
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
#else
  const std::string path = ChildPath();
  pid_t child = fork();
  if (child == 0) {
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(path.c_str(), argv.data());
    _exit(127);
  }
  if (whileRunning) whileRunning();
  int status = 0;
  for (int waited = 0; waited < seconds * 100; ++waited) {
    if (waitpid(child, &status, WNOHANG) == child) {
      outcome.finished = true;
      break;
    }
    usleep(10000);
  }
  if (!outcome.finished) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
  }
  outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
  outcome.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
#endif
  return outcome;
}

std::vector<std::string> LogTexts(const std::string& path) {
  std::vector<std::string> texts;
  for (const auto& record : logtest::ParseFile(path).records) texts.push_back(record.text);
  return texts;
}

// The log turned into text with the child's own image, one message per line.
std::vector<std::string> ExportedMessages(const ScratchDir& dir) {
  const std::string text = dir.PathOf("crash.txt");
  EXPECT_TRUE(ConvertLogToText(dir.PathOf("crash.log").c_str(), text.c_str(), ChildPath().c_str()));
  std::vector<std::string> messages;
  std::ifstream in(text);
  for (std::string line; std::getline(in, line);) {
    std::string message = line.substr(line.find('\t') + 1);
    while (!message.empty() && message.back() == '\r') message.pop_back();
    messages.push_back(message);
  }
  return messages;
}

struct Failure {
  const char* kind;
  const char* name;       // as the first crash record names it
  unsigned long code;     // Windows exit code
  int signal;             // POSIX signal
  const char* crashedIn;  // the function the first crash record resolves to, when known
};

#ifdef _WIN32
uint32_t AddressIn(const std::string& record) {
  size_t open = record.find('[');
  return open == std::string::npos ? 0 : std::stoul(record.substr(open + 1, 8), nullptr, 16);
}

std::vector<fs::path> DumpsIn(const fs::path& folder) {
  std::vector<fs::path> dumps;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (name.rfind("crash_child - ", 0) == 0 && entry.path().extension() == ".dmp") {
      dumps.push_back(entry.path());
    }
  }
  return dumps;
}

// Reads a minidump's header and exception stream: signature, exception code and address.
struct DumpFacts {
  bool valid = false;
  uint32_t code = 0;
  uint64_t address = 0;
};
DumpFacts ReadDump(const fs::path& path) {
  DumpFacts facts;
  std::ifstream in(path, std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
  auto u32 = [&](size_t at) {
    uint32_t v = 0;
    if (at + 4 <= bytes.size()) std::memcpy(&v, &bytes[at], 4);
    return v;
  };
  if (bytes.size() < 32 || std::memcmp(bytes.data(), "MDMP", 4) != 0) return facts;
  const uint32_t streams = u32(8), directory = u32(12);
  for (uint32_t i = 0; i < streams; ++i) {
    const size_t entry = directory + 12u * i;
    if (u32(entry) != 6) continue;  // ExceptionStream
    const size_t at = u32(entry + 8);
    // ThreadId, alignment, then ExceptionCode, ExceptionFlags, ExceptionRecord (8), Address (8).
    facts.code = u32(at + 8);
    facts.address = u32(at + 24) | (static_cast<uint64_t>(u32(at + 28)) << 32);
    facts.valid = true;
  }
  return facts;
}
#endif

const Failure kFailures[] = {
#ifdef _WIN32
    {"access", "EXCEPTION_ACCESS_VIOLATION", 0xC0000005, 0, "CrashingFunction"},
    {"divide", "EXCEPTION_INT_DIVIDE_BY_ZERO", 0xC0000094, 0, "CrashingFunction"},
    {"illegal", "EXCEPTION_ILLEGAL_INSTRUCTION", 0xC000001D, 0, "CrashingFunction"},
    {"stack", "EXCEPTION_STACK_OVERFLOW", 0xC00000FD, 0, "Recurse"},
    {"abort", "abort", 0x40000015, 0, nullptr},
    {"terminate", "std::terminate", 0x40000015, 0, nullptr},
    {"purecall", "std::terminate", 0x40000015, 0, nullptr},
    {"parameter", "invalid parameter", 0xC0000417, 0, nullptr},
#else
    {"access", "SIGSEGV", 0, SIGSEGV, "CrashingFunction"},
    {"divide", "SIGFPE", 0, SIGFPE, "CrashingFunction"},
    {"illegal", "SIGILL", 0, SIGILL, "CrashingFunction"},
    {"bus", "SIGBUS", 0, SIGBUS, "CrashingFunction"},
    {"abort", "SIGABRT", 0, SIGABRT, nullptr},
#endif
};

// Each kind of failure: the exit status, the records, their function names and the dump.
TEST(CrashHandler, EveryKindOfFailureIsLoggedResolvedAndEndsTheProcessWithItsCode) {
  for (const Failure& failure : kFailures) {
    SCOPED_TRACE(failure.kind);
#ifdef _WIN32
    // 64-bit Wine (8.0) ends a thread whose stack overflowed inside its own exception dispatch,
    // before any handler of the program runs; the 32-bit build is tested for it.
    if (sizeof(void*) == 8 && std::string(failure.kind) == "stack" &&
        GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr) {
      continue;
    }
#endif
    ScratchDir dir;
    const Outcome outcome = RunChild({failure.kind, dir.path().string()}, 60);
    ASSERT_TRUE(outcome.finished);
#ifdef _WIN32
    EXPECT_EQ(outcome.exitCode, failure.code);
#else
    EXPECT_EQ(outcome.signal, failure.signal);
#endif
    const std::vector<std::string> records = LogTexts(dir.PathOf("crash.log"));
    ASSERT_GE(records.size(), 3u);
    EXPECT_EQ(records[0], "child ready");
    char code[16];
    std::snprintf(code, sizeof code, "0x%08lX",
                  static_cast<unsigned long>(failure.code != 0 ? failure.code : failure.signal));
    EXPECT_EQ(records[1].rfind(std::string("Crash: ") + failure.name + " (" + code + ") at [", 0),
              0u) << records[1];
    EXPECT_LE(records.size(), 2u + 64u);
    for (size_t i = 2; i < records.size(); ++i) {
      EXPECT_EQ(records[i].rfind("Crash: frame " + std::to_string(i - 2) + " returns to [", 0), 0u);
    }

    // Turned into names: the failing function, and the chain that called it.
    const std::vector<std::string> messages = ExportedMessages(dir);
    ASSERT_EQ(messages.size(), records.size());
    if (failure.crashedIn != nullptr) {
      EXPECT_NE(messages[1].find(std::string(" at ") + failure.crashedIn), std::string::npos)
          << messages[1];
    }
    bool callerNamed = false;
    for (size_t i = 2; i < messages.size(); ++i) {
      callerNamed = callerNamed || messages[i].find("returns to CallerOfCrash") != std::string::npos;
    }
    EXPECT_TRUE(callerNamed || std::string(failure.kind) == "stack")
        << "no frame returns to CallerOfCrash";
#ifdef _WIN32
    const auto dumps = DumpsIn(dir.path());
    ASSERT_EQ(dumps.size(), 1u) << "the dump goes beside the log";
    const DumpFacts facts = ReadDump(dumps[0]);
    ASSERT_TRUE(facts.valid);
    EXPECT_EQ(facts.code, failure.code);
    EXPECT_EQ(static_cast<uint32_t>(facts.address), AddressIn(records[1]));
#endif
  }
}

// A failure inside the handler (here a trace hook that faults) ends the process at once, before
// anything reaches the log.
TEST(CrashHandler, SecondFailureInsideTheHandlerEndsTheProcessPromptly) {
  ScratchDir dir;
  const auto start = std::chrono::steady_clock::now();
  const Outcome outcome = RunChild({"divide", dir.path().string(), "second"}, 30);
  ASSERT_TRUE(outcome.finished);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
#ifdef _WIN32
  EXPECT_EQ(outcome.exitCode, 0xC0000094u) << "the first failure's code";
#else
  EXPECT_EQ(outcome.signal, SIGSEGV) << "the second failure, blocked in the handler, ends it";
#endif
  EXPECT_EQ(LogTexts(dir.PathOf("crash.log")), std::vector<std::string>{"child ready"});
}

#ifdef _WIN32
LONG WINAPI PreviousFilter(EXCEPTION_POINTERS*) { return EXCEPTION_CONTINUE_SEARCH; }
#endif

TEST(CrashHandler, InstallRemembersAndRemoveRestoresWhatWasThere) {
#ifdef _WIN32
  SetUnhandledExceptionFilter(PreviousFilter);
  ASSERT_TRUE(InstallCrashHandler(nullptr));
  EXPECT_FALSE(InstallCrashHandler(nullptr)) << "one handler at a time";
  EXPECT_TRUE(RemoveCrashHandler());
  EXPECT_EQ(SetUnhandledExceptionFilter(nullptr), &PreviousFilter);
#else
  struct sigaction mine {}, seen {};
  mine.sa_handler = [](int) {};
  sigaction(SIGBUS, &mine, nullptr);
  ASSERT_TRUE(InstallCrashHandler(nullptr));
  EXPECT_FALSE(InstallCrashHandler(nullptr)) << "one handler at a time";
  EXPECT_TRUE(RemoveCrashHandler());
  sigaction(SIGBUS, nullptr, &seen);
  EXPECT_EQ(seen.sa_handler, mine.sa_handler);
  signal(SIGBUS, SIG_DFL);
#endif
  EXPECT_FALSE(RemoveCrashHandler());
}

#ifdef _WIN32
// With no log open the dump goes beside the executable.
TEST(CrashHandler, WithoutALogTheDumpGoesBesideTheExecutable) {
  ScratchDir dir;
  const fs::path folder = fs::path(ChildPath()).parent_path();
  for (const auto& old : DumpsIn(folder)) fs::remove(old);
  const Outcome outcome = RunChild({"access", dir.path().string(), "nolog"}, 60);
  ASSERT_TRUE(outcome.finished);
  EXPECT_EQ(outcome.exitCode, 0xC0000005u);
  EXPECT_FALSE(fs::exists(dir.PathOf("crash.log")));
  const auto dumps = DumpsIn(folder);
  ASSERT_EQ(dumps.size(), 1u);
  const DumpFacts facts = ReadDump(dumps[0]);
  EXPECT_TRUE(facts.valid);
  EXPECT_EQ(facts.code, 0xC0000005u);
  for (const auto& dump : dumps) fs::remove(dump);
}

// The box: shown with the dump's path, Report reaches the host's callback with both paths and
// leaves it open, Close ends the process.
TEST(CrashHandler, CrashBoxReportsToTheHostAndCloseEndsTheProcess) {
  ScratchDir dir;
  HWND box = nullptr;
  std::string text, report;
  bool openAfterReport = false;
  const Outcome outcome = RunChild({"access", dir.path().string(), "box"}, 60, [&] {
    // Shown means set up: the box handles its buttons once it is visible.
    for (int i = 0; i < 3000; ++i) {
      box = FindWindowA("#32770", "crash_child.exe");
      if (box != nullptr && IsWindowVisible(box)) break;
      Sleep(10);
    }
    ASSERT_TRUE(box != nullptr && IsWindowVisible(box)) << "no crash box";
    char buffer[1024] = {};
    GetDlgItemTextA(box, ID_FIRSTTEXT, buffer, sizeof buffer);
    text = buffer;
    SendMessageA(GetDlgItem(box, ID_REPORTBUTTON), BM_CLICK, 0, 0);
    for (int i = 0; i < 500 && !fs::exists(dir.PathOf("report.txt")); ++i) Sleep(10);
    std::ifstream in(dir.PathOf("report.txt"));
    std::getline(in, report);
    openAfterReport = IsWindow(box) != FALSE;
    SendMessageA(GetDlgItem(box, IDCUSTOM1), BM_CLICK, 0, 0);
  });
  ASSERT_TRUE(outcome.finished);
  EXPECT_EQ(outcome.exitCode, 0xC0000005u);
  EXPECT_TRUE(openAfterReport) << "Report leaves the box open";
  const size_t bar = report.find('|');
  ASSERT_NE(bar, std::string::npos) << report;
  const std::string dump = report.substr(0, bar), log = report.substr(bar + 1);
  EXPECT_TRUE(fs::exists(dump)) << dump;
  EXPECT_TRUE(fs::equivalent(log, dir.PathOf("crash.log"))) << log;
  EXPECT_NE(text.find(dump), std::string::npos) << "the box shows the dump's path: " << text;
  EXPECT_NE(text.find("EXCEPTION_ACCESS_VIOLATION"), std::string::npos) << text;
}
#endif

}  // namespace
