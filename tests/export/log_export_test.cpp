#include <deskaid/diag/log_export.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>

#include <deskaid/common/rc4.h>
#include <deskaid/diag/code_address.h>
#include <deskaid/diag/log_format.h>
#include <deskaid/diag/log_writer.h>
#include "diag/log_file.h"
#ifndef _WIN32
#include <elfutils/libdwelf.h>
#include <fcntl.h>
#include <unistd.h>
#endif
#include "support/known_functions.h"
#include "support/scratch_dir.h"

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

#ifdef _WIN32
const std::string kEol = "\r\r\n";  // the explicit 13 10 through a text-mode stream
#else
const std::string kEol = "\r\n";
#endif

// A time localtime cannot convert (past 2038 with a 32-bit time_t) prints from an all-zero date.
std::string Stamp(uint32_t seconds) {
  std::time_t t = static_cast<std::time_t>(seconds);
  char text[32] = "01-00 00:00:00";
  if (const std::tm* local = std::localtime(&t)) {
    std::strftime(text, sizeof text, "%m-%d %H:%M:%S", local);
  }
  return text;
}

// Makes `zone` the local zone, or with nullptr keeps the one in force; false where no zone can be
// set. Every expected stamp is computed in the zone in force, so none needs restoring.
bool UseZone(const char* zone) {
#ifdef _WIN32
  return zone == nullptr;
#else
  if (zone != nullptr) setenv("TZ", zone, 1);
  tzset();
  return true;
#endif
}

std::string Line(const std::string& message, uint8_t level = 2, uint32_t time = 1709647629) {
  return std::to_string(level) + " " + Stamp(time) + "\t" + message + kEol;
}

// A log file laid out byte by byte, as the writer lays it out.
struct LogBuilder {
  LogBuilder() {
    m_trailer = LogTrailer{kLogTrailerMagic, kLogKeyCount, 0, 3, 5, {}};
    for (uint32_t i = 0; i < kLogKeyCount; ++i) m_trailer.keys[i] = 0x9E3779B9u * (i + 1);
  }
  // Appends a record; keyIndex below 16 enciphers the body under that key.
  LogBuilder& Add(std::string body, uint16_t keyIndex = kLogPlainBody, uint8_t level = 2,
                  uint32_t time = 1709647629) {
    if (keyIndex < kLogKeyCount) logtest::TransformUnderKey(m_trailer.keys[keyIndex], body);
    LogRecordHeader header{level, kLogRecordKind, keyIndex, uint16_t(body.size()), time};
    m_data.append(reinterpret_cast<const char*>(&header), sizeof header) += body;
    ++m_trailer.recordCount;
    return *this;
  }
  LogBuilder& Raw(const std::string& bytes) {
    m_data += bytes;
    return *this;
  }
  LogBuilder& Count(uint32_t records) {
    m_trailer.recordCount = records;
    return *this;
  }
  LogBuilder& Magic(uint16_t magic) {
    m_trailer.magic = magic;
    return *this;
  }
  std::string Bytes() const {
    return m_data + std::string(reinterpret_cast<const char*>(&m_trailer), sizeof m_trailer);
  }
  std::string m_data;
  LogTrailer m_trailer;
};

class LogExport : public ::testing::Test {
 protected:
  std::string Convert(const std::string& bytes, bool succeeds = true, const char* image = nullptr) {
    WriteFileBytes(m_log, bytes);
    EXPECT_EQ(ConvertLogToText(m_log.c_str(), m_text.c_str(), image), succeeds);
    return ReadFileBytes(m_text);
  }

  ScratchDir m_dir;
  std::string m_log = m_dir.PathOf("in.log");
  std::string m_text = m_dir.PathOf("out.txt");
  std::string m_image = OwnExecutablePath();
};

TEST_F(LogExport, MarkersNeedEightCharactersFailedLookupsRepeatTheLastNameAndOptionsStay) {
  char hex[16];
  std::snprintf(hex, sizeof hex, "%08X", static_cast<unsigned>(ProbeAddress()));
  const std::string probe = hex, name = kProbeName;
  std::string bytes = LogBuilder()
                          .Add("x [00000010] before any success")
                          .Add("call [" + probe + "] ok")
                          .Add("[123] x")
                          .Add("miss [00000010] here")
                          .Add("two [" + probe + "] and [" + probe + "]")
                          .Add("open [" + probe + " unclosed")
                          // strtoul's own reading: a 0x prefix inside the eight characters
                          .Add("lower [0x" + probe.substr(2) + "]")
                          .Bytes();
  EXPECT_EQ(Convert(bytes, true, m_image.c_str()),
            Line("x  before any success") + Line("call " + name + " ok") + Line("[123] x") +
                Line("miss " + name + " here") + Line("two " + name + " and [" + probe + "]") +
                Line("open [" + probe + " unclosed") + Line("lower " + name));
  // Without an image no brackets are read and no symbol options set; with one they are left set.
  CSymbolEngine engine;
  const uint32_t saved = engine.GetOptions();
  engine.SetOptions(0x00000002);
  EXPECT_EQ(Convert(LogBuilder().Add("[" + probe + "]").Bytes()), Line("[" + probe + "]"));
  EXPECT_EQ(engine.GetOptions(), 0x00000002u);
  Convert(LogBuilder().Bytes(), true, m_image.c_str());
  EXPECT_EQ(engine.GetOptions(), 0x80000032u);
  engine.SetOptions(saved);
}

// Bodies under one key share its keystream; each must still decipher from its own start.
TEST_F(LogExport, DeciphersBodiesAndPrintsThemUpToTheirFirstNul) {
  LogBuilder builder;
  builder.Add("under key 15", 15, 4).Add("plain", kLogPlainBody, 8).Add("no key 16", 16);
  builder.Add("no key FFFE", 0xFFFE, 200).Add(std::string("cut\0hidden", 10), 3, 255).Add("");
  std::string expected = Line("under key 15", 4) + Line("plain", 8) + Line("no key 16") +
                         Line("no key FFFE", 200) + Line("cut", 255) + Line("");
  for (size_t length : {1, 255, 256, 300, 5000, 17, 65535}) {
    std::string body;
    for (size_t i = 0; i < length; ++i)
      body.push_back(static_cast<char>('!' + (i * 7 + length) % 90));
    builder.Add(body, 9).Add(body, 2);
    expected += Line(body) + Line(body);
  }
  EXPECT_EQ(Convert(builder.Bytes()), expected);
}

// A damaged record area converts what lies whole before the trailer, and fails.
TEST_F(LogExport, RefusesFilesWithoutAValidTrailerAndStopsAtDamage) {
  EXPECT_EQ(Convert(LogBuilder().Add("record").Magic(0x5157).Bytes(), false), "");
  EXPECT_EQ(Convert(LogBuilder().Bytes().substr(1), false), "");  // 73 bytes
  EXPECT_EQ(Convert("", false), "");
  EXPECT_EQ(Convert(LogBuilder().Add("one").Add("two").Count(5).Bytes(), false),
            Line("one") + Line("two"));
  LogRecordHeader header{2, kLogRecordKind, kLogPlainBody, 0xFFFF, 1709647629};
  const std::string longer(reinterpret_cast<const char*>(&header), sizeof header);
  EXPECT_EQ(Convert(LogBuilder().Add("fine").Raw(longer + "short").Count(2).Bytes(), false),
            Line("fine"));
  EXPECT_EQ(Convert(LogBuilder().Add("only").Count(0xFFFFFFFF).Bytes(), false, m_image.c_str()),
            Line("only"));

  EXPECT_FALSE(
      ConvertLogToText(m_log.c_str(), m_dir.PathOf("no_such_dir/out.txt").c_str(), nullptr));
  for (const char* bad : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_FALSE(ConvertLogToText(bad, m_text.c_str(), nullptr));
    EXPECT_FALSE(ConvertLogToText(m_log.c_str(), bad, nullptr));
  }
  std::remove(m_log.c_str());
  EXPECT_FALSE(ConvertLogToText(m_log.c_str(), m_text.c_str(), nullptr));

  // A failure to read the stamp clears both (a stamp read is logexport_shell's --stamp).
  WriteFileBytes(m_log, LogBuilder().Add("x").Magic(0).Bytes());
  for (const char* path : {m_log.c_str(), "", static_cast<const char*>(nullptr)}) {
    uint32_t month = 99, day = 99;
    EXPECT_FALSE(ReadLogStamp(path, month, day));
    EXPECT_EQ(month + day, 0u);
  }
}

// The converter calls localtime once per minute; across offset changes and odd offsets too.
TEST_F(LogExport, StampsEqualLocaltimeInEveryZone) {
  std::mt19937 random(7);
  std::vector<uint32_t> times;
  for (uint32_t t = 1711846800u - 7200; t < 1711846800u + 7200; t += 37) times.push_back(t);
  for (uint32_t t = 63593070u - 86400; t < 63593070u + 86400; t += 611) times.push_back(t);
  for (int i = 0; i < 3000; ++i) times.push_back(static_cast<uint32_t>(random()));
  times.push_back(0xFFFFFFFFu);  // last: the range's final minute is converted record by record
  LogBuilder builder;
  for (uint32_t t : times) builder.Add("m", kLogPlainBody, 1, t);
  const std::string bytes = builder.Bytes();
  for (const char* zone : {static_cast<const char*>(nullptr), "Europe/Berlin", "Africa/Monrovia",
                           "Australia/Lord_Howe"}) {
    if (!UseZone(zone)) continue;
    SCOPED_TRACE(zone != nullptr ? zone : "the local zone");
    std::string expected;
    for (uint32_t t : times) expected += Line("m", 1, t);
    EXPECT_EQ(Convert(bytes), expected);
  }
}

// A host's own code addresses: its module is described once per log, and the symbol path's image
// of the same build names them, whatever the address the module was loaded at.
TEST(LogExportWithSymbols, NamesCodeAddressesFromTheImagesOnTheSymbolPath) {
  ScratchDir dir;
  const std::string log = dir.PathOf("code.log");
  ASSERT_TRUE(g_LogWriter.Open(log.c_str(), 0xFFFFFFFF, 1, 20));  // enciphered
  const auto* probe = reinterpret_cast<const void*>(ProbeAddress());
  int onTheStack = 0;
  EXPECT_EQ(LogCodeAddress(LOG_LEVEL_2, "probe", probe), 1u);
  EXPECT_EQ(LogCodeAddress(LOG_LEVEL_2, "again", probe), 1u);
  EXPECT_EQ(LogCodeAddress(LOG_LEVEL_2, "data", &onTheStack), 1u);
  g_LogWriter.Close();

  const std::string image = fs::path(OwnExecutablePath()).filename().string();
  const std::string folder = fs::path(OwnExecutablePath()).parent_path().string();
  const auto named = logtest::MessagesNamedFrom(log, dir.PathOf("named.txt"), folder);
  ASSERT_EQ(named.size(), 4u);
  EXPECT_THAT(named[0], StartsWith("Module: \"" + image + "\" base=0x"));
#ifndef _WIN32
  // The build id described is the image's own, as elfutils reads it from the note.
  elf_version(EV_CURRENT);
  const int fd = open(OwnExecutablePath().c_str(), O_RDONLY);
  Elf* elf = elf_begin(fd, ELF_C_READ, nullptr);
  const void* id = nullptr;
  const ssize_t idSize = dwelf_elf_gnu_build_id(elf, &id);
  std::string buildId;
  for (ssize_t i = 0; i < idSize; ++i) {
    char two[3];
    std::snprintf(two, sizeof two, "%02X", static_cast<const unsigned char*>(id)[i]);
    buildId += two;
  }
  elf_end(elf);
  close(fd);
  ASSERT_GT(idSize, 0);
  EXPECT_THAT(named[0], HasSubstr(" elf buildid=" + buildId + " "));
#endif
  const std::string line = ":" + std::to_string(kProbeLine) + ") <" + image + "+0x";
  for (const char* label : {"probe ", "again "})
    EXPECT_THAT(named[label[0] == 'p' ? 1 : 2],
                AllOf(StartsWith(label + std::string(kProbeName) + " ("), HasSubstr(line)));
  EXPECT_THAT(named[3], AllOf(StartsWith("data ["), Not(HasSubstr("<"))))
      << "no module holds the stack";

  // The log's folder alone holds no image; the plain conversion leaves references as they are.
  const auto unnamed = logtest::MessagesNamedFrom(log, dir.PathOf("unnamed.txt"), "");
  ASSERT_EQ(unnamed.size(), 4u);
  for (size_t i : {1, 2})
    EXPECT_THAT(unnamed[i], HasSubstr(" ?? (" + image + " is not on the symbol path) <"));
  const auto plain = logtest::ExportedMessages(log, dir.PathOf("plain.txt"));
  ASSERT_EQ(plain.size(), 4u);
  EXPECT_THAT(plain[1], AllOf(StartsWith("probe ["), HasSubstr("] <" + image + "+0x")));

  // A log that spans two builds of the module (the host was updated between two runs): each
  // record of its name describes the build of the references after it.
  const auto texts = logtest::ParseFile(log).Texts();
  std::string otherBuild = texts[0];
  size_t field = otherBuild.find(" image=0x");
  if (field == std::string::npos) field = otherBuild.find(" size=0x");
  char& digit = otherBuild[otherBuild.find(' ', field + 1) - 1];
  digit = digit == '0' ? '1' : '0';
  const std::string spanning = dir.PathOf("spanning.log");
  CLogWriter writer;
  ASSERT_TRUE(writer.Open(spanning.c_str(), 0xFFFFFFFF, 0, 20));
  for (const std::string& text : {otherBuild, texts[1], texts[0], texts[1]})
    writer.Write(2, text.data(), static_cast<uint32_t>(text.size()), kLogRecordKind);
  writer.Close();
  const auto builds = logtest::MessagesNamedFrom(spanning, dir.PathOf("spanning.txt"), folder);
  ASSERT_EQ(builds.size(), 4u);
  EXPECT_THAT(builds[1], HasSubstr(" is a different build: its "));
  EXPECT_THAT(builds[3], StartsWith("probe " + std::string(kProbeName) + " ("));
}

}  // namespace
