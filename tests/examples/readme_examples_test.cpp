// Each test holds one README example between the "README" markers, verbatim, followed by the
// checks that make it a test.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include <deskaid/deskaid.h>

#include "support/scratch_dir.h"

namespace {

// The export example converts the log the log example wrote.
TEST(ReadmeExamples, LogTraceAndExport) {
  ScratchDir dir;
  const std::string logPath = dir.PathOf("app.log"), textPath = dir.PathOf("app.txt");
  uint32_t address = 0x0040121A;
  // README: log
  g_LogWriter.Open(logPath.c_str(), 1 << 20, /*encipher=*/1, /*dropPercent=*/20);
  LogPrintf(LOG_LEVEL_2 | LOG_TO_DEBUG_TRACE, "open [%08X] failed", address);
  DebugTrace("in %s: %d items\n", "Reconcile", 12);  // the debugger output; no log record
  g_LogWriter.Close();
  // README: end
  // README: export
  uint32_t month = 0, day = 0;
  if (ReadLogStamp(logPath.c_str(), month, day)) {
    std::printf("log of a build from %02u-%02u\n", month, day);
  }
  // One line per record: "<level> MM-DD hh:mm:ss<TAB><message>". Pass the executable that wrote
  // the log instead of nullptr to turn "[XXXXXXXX]" addresses into function names.
  bool converted = ConvertLogToText(logPath.c_str(), textPath.c_str(), nullptr);
  // README: end
  ASSERT_TRUE(converted);
  EXPECT_NE(ReadFileBytes(textPath).find("\topen [0040121A] failed\r"), std::string::npos);
}

void OnEvent() {}

TEST(ReadmeExamples, CodeAddress) {
  ScratchDir dir;
  const std::string logPath = dir.PathOf("app.log");
  g_LogWriter.Open(logPath.c_str(), 1 << 20, /*encipher=*/0, /*dropPercent=*/20);
  // README: code address
  LogCodeAddress(LOG_LEVEL_2, "callback registered:", reinterpret_cast<const void*>(&OnEvent));
  // -> "callback registered: [4000A3F0] <app.exe+0xA3F0>", after a record describing app.exe
  // README: end
  g_LogWriter.Close();
  const std::string bytes = ReadFileBytes(logPath);
  const std::string self = std::filesystem::path(OwnExecutablePath()).filename().string();
  EXPECT_LT(bytes.find("Module: \"" + self + "\""), bytes.find("callback registered: ["));
  EXPECT_NE(bytes.find("] <" + self + "+0x"), std::string::npos);
}

TEST(ReadmeExamples, Symbols) {
  std::vector<std::string> names;
  // README: symbols
  CSymbolEngine engine;
  if (engine.Initialize(SymCurrentProcess(), nullptr, /*invadeProcess=*/1, 0)) {
    std::vector<StackFrameEntry> frames;
    engine.StackWalk(frames, /*skip=*/0, nullptr, nullptr);
    for (const StackFrameEntry& frame : frames) {
      std::string name;
      uint64_t displacement = 0;
      if (engine.SymbolFromAddress(frame.pc, name, displacement)) names.push_back(name);
    }
  }  // the engine cleans up when it goes out of scope
  // README: end
  EXPECT_FALSE(names.empty());
}

void UploadReport(const char* dumpPath, const char* logPath, void*) {
  std::printf("would upload %s and %s\n", dumpPath, logPath);
}

TEST(ReadmeExamples, CrashCapture) {
  // README: crash
  CrashHandlerOptions options;                 // all zero: a minidump beside the log, no box
  options.dwOptions = CRASH_SHOW_MESSAGE_BOX;  // Windows: ask the user, offering Report
  options.pfnReport = UploadReport;            // called with the dump's and the log's paths
  bool installed = InstallCrashHandler(&options);
  // ... the host's work; a crash is logged with its stack, dumped and reported ...
  RemoveCrashHandler();
  // README: end
  EXPECT_TRUE(installed);
}

TEST(ReadmeExamples, BigIntegers) {
  // README: bigint
  CBigInt a("123456789012345678901234567890");
  CBigInt b = a * a + 1u;
  std::string decimal = b.GetString();  // owned by b until its next GetString
  std::string hex = b.GetString(16);

  CModPower power;  // 4^13 mod 497 = 445
  CBigInt base(4);
  std::string text = power.TransformText(base, CBigInt(13), CBigInt(497));
  // base now holds 4^(2^3) mod 497: the power writes its last square back.
  // README: end
  EXPECT_EQ(std::string(base.GetString()), "429");  // 4^8 = 65536 = 131 * 497 + 429
}

TEST(ReadmeExamples, Md5AndBase64) {
  const std::string path = "hello.txt";
  // README: codecs
  std::string digest = HashString("abc");                    // "900150983cd24fb0d6963f7d28e17f72"
  std::optional<std::string> file = HashFile(path.c_str());  // empty if unreadable

  Base64Coder coder;
  coder.EncodeString("Many hands make light work.");
  std::string text(coder.GetText(), coder.GetTextLength());
  coder.DecodeString(text.c_str());
  std::string back(reinterpret_cast<const char*>(coder.GetData()), coder.GetDataLength());

  const char* timeout = InternetErrorText(12002);  // "The request has timed out."
  // README: end
  EXPECT_STREQ(timeout, "The request has timed out.");
}

}  // namespace
