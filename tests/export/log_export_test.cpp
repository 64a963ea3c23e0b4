#include <deskaid/diag/log_export.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include <deskaid/common/rc4.h>
#include <deskaid/diag/log_format.h>
#include <deskaid/diag/log_writer.h>
#include "support/known_functions.h"
#include "support/scratch_dir.h"

namespace {

#ifdef _WIN32
const std::string kEol = "\r\r\n";  // the explicit 13 10 through a text-mode stream
#else
const std::string kEol = "\r\n";
#endif

std::string ReadAll(const std::string& path) {
  std::string data;
  if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
    char chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) data.append(chunk, n);
    std::fclose(f);
  }
  return data;
}

void WriteAll(const std::string& path, const std::string& data) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  std::fwrite(data.data(), 1, data.size(), f);
  std::fclose(f);
}

// "MM-DD hh:mm:ss" of a record time, from the C library directly. A time it cannot convert
// (past 2038 with a 32-bit time_t) is printed from an all-zero date.
std::string Stamp(uint32_t seconds) {
  std::time_t t = static_cast<std::time_t>(seconds);
  char text[32] = "01-00 00:00:00";
  if (const std::tm* local = std::localtime(&t)) {
    std::strftime(text, sizeof text, "%m-%d %H:%M:%S", local);
  }
  return text;
}

std::string Hex8(uint64_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "%08X", static_cast<unsigned>(value));
  return text;
}

// Builds a log file byte by byte, the way the writer lays it out.
class LogBuilder {
 public:
  LogBuilder() {
    std::memset(&m_trailer, 0, sizeof m_trailer);
    m_trailer.magic = kLogTrailerMagic;
    m_trailer.keyCount = kLogKeyCount;
    m_trailer.stampMonth = 3;
    m_trailer.stampDay = 5;
    for (uint32_t i = 0; i < kLogKeyCount; ++i) m_trailer.keys[i] = 0x9E3779B9u * (i + 1);
  }

  // Appends a record; keyIndex below 16 enciphers the body under that key.
  LogBuilder& Add(const std::string& body, uint16_t keyIndex = kLogPlainBody, uint8_t level = 2,
                  uint32_t time = 1709647629) {
    std::string stored = body;
    if (keyIndex < kLogKeyCount) {
      uint32_t key = m_trailer.keys[keyIndex];
      uint8_t bytes[4] = {uint8_t(key), uint8_t(key >> 8), uint8_t(key >> 16), uint8_t(key >> 24)};
      Rc4Cipher::Transform(bytes, 4, reinterpret_cast<uint8_t*>(&stored[0]), stored.size());
    }
    LogRecordHeader header{level, kLogRecordKind, keyIndex, uint16_t(stored.size()), time};
    m_data.append(reinterpret_cast<const char*>(&header), sizeof header);
    m_data += stored;
    ++m_trailer.recordCount;
    return *this;
  }
  LogBuilder& Raw(const std::string& bytes) { m_data += bytes; return *this; }
  LogBuilder& Count(uint32_t records) { m_trailer.recordCount = records; return *this; }
  LogBuilder& Magic(uint16_t magic) { m_trailer.magic = magic; return *this; }
  std::string Bytes() const {
    return m_data + std::string(reinterpret_cast<const char*>(&m_trailer), sizeof m_trailer);
  }

 private:
  std::string m_data;
  LogTrailer m_trailer;
};

class LogExport : public ::testing::Test {
 protected:
  // Converts `bytes` and returns the text, with the conversion's result in `converted`.
  std::string Convert(const std::string& bytes, const char* image, bool& converted) {
    WriteAll(m_log, bytes);
    converted = ConvertLogToText(m_log.c_str(), m_text.c_str(), image);
    return ReadAll(m_text);
  }
  std::string ConvertOk(const std::string& bytes, const char* image = nullptr) {
    bool converted = false;
    std::string text = Convert(bytes, image, converted);
    EXPECT_TRUE(converted);
    return text;
  }
  std::string ConvertFails(const std::string& bytes, const char* image = nullptr) {
    bool converted = true;
    std::string text = Convert(bytes, image, converted);
    EXPECT_FALSE(converted);
    return text;
  }

  static std::string Line(const std::string& message, uint8_t level = 2,
                          uint32_t time = 1709647629) {
    return std::to_string(level) + " " + Stamp(time) + "\t" + message + kEol;
  }

  ScratchDir m_dir;
  std::string m_log = m_dir.PathOf("in.log");
  std::string m_text = m_dir.PathOf("out.txt");
  std::string m_image = OwnExecutablePath();
};

// A message written through LogPrintf with the address of one of this program's functions
// comes out with the function's name in place of the marker. Addresses are logged as eight hex
// digits, also by a 64-bit host, which therefore loads its image below 4 GiB.
TEST_F(LogExport, ResolvesAnAddressWrittenThroughTheLogWriter) {
  ASSERT_EQ(ProbeAddress() >> 32, 0u)
      << "the image must lie below 4 GiB for its addresses to fit eight hex digits";
  std::remove(m_log.c_str());
  ASSERT_TRUE(g_LogWriter.Open(m_log.c_str(), 0xFFFFFFFF, 1, 20));
  ASSERT_NE(LogPrintf(LOG_LEVEL_2, "open [%08X] failed", unsigned(ProbeAddress())), 0u);
  g_LogWriter.Close();

  std::string stored = ReadAll(m_log);
  ASSERT_GE(stored.size(), sizeof(LogRecordHeader) + sizeof(LogTrailer));
  LogRecordHeader header;
  std::memcpy(&header, stored.data(), sizeof header);
  ASSERT_LT(header.keyIndex, kLogKeyCount);  // enciphered on disk

  ASSERT_TRUE(ConvertLogToText(m_log.c_str(), m_text.c_str(), m_image.c_str()));
  std::string text = ReadAll(m_text);
  EXPECT_EQ(text, Line(std::string("open ") + kProbeName + " failed", 2, header.time));
  std::printf("resolved line from a %d-bit host: %s\n", int(sizeof(void*) * 8),
              text.substr(0, text.find('\r')).c_str());
}

TEST_F(LogExport, MarkersNeedExactlyEightCharactersAndFailedLookupsRepeatTheLastName) {
  const std::string probe = Hex8(ProbeAddress());
  std::string bytes = LogBuilder()
                          .Add("x [00000010] before any success")
                          .Add("call [" + probe + "] ok")
                          .Add("[123] x")
                          .Add("miss [00000010] here")
                          .Add("two [" + probe + "] and [" + probe + "]")
                          .Add("open [" + probe + " unclosed")
                          // strtoul's own reading: a 0x prefix inside the eight characters
                          .Add("lower [0x" + Hex8(ProbeAddress()).substr(2) + "]")
                          .Bytes();
  std::string text = ConvertOk(bytes, m_image.c_str());
  std::string name = kProbeName;
  EXPECT_EQ(text, Line("x  before any success") + Line("call " + name + " ok") +
                      Line("[123] x") + Line("miss " + name + " here") +
                      Line("two " + name + " and [" + probe + "]") +
                      Line("open [" + probe + " unclosed") + Line("lower " + name));

  // Without an image the brackets are never looked at.
  EXPECT_EQ(ConvertOk(LogBuilder().Add("call [" + probe + "] ok").Bytes()),
            Line("call [" + probe + "] ok"));
}

TEST_F(LogExport, DeciphersBodiesAndPrintsThemUpToTheirFirstNul) {
  std::string bytes = LogBuilder()
                          .Add("enciphered under key 5", 5, 1)
                          .Add("enciphered under key 15", 15, 4)
                          .Add("stored plain", kLogPlainBody, 8)
                          .Add("no such key 16", 16)
                          .Add("no such key FFFE", 0xFFFE)
                          .Add(std::string("cut\0hidden", 10), 3, 255)
                          .Add("")
                          .Bytes();
  EXPECT_EQ(ConvertOk(bytes),
            Line("enciphered under key 5", 1) + Line("enciphered under key 15", 4) +
                Line("stored plain", 8) + Line("no such key 16") + Line("no such key FFFE") +
                Line("cut", 255) + Line(""));
}

// Bodies under one key share its keystream; ever longer bodies must still decipher exactly.
TEST_F(LogExport, DeciphersBodiesOfEveryLengthUnderOneKey) {
  LogBuilder builder;
  std::string expected;
  for (size_t length : {size_t(1), size_t(255), size_t(256), size_t(300), size_t(5000),
                        size_t(17), size_t(65535)}) {
    std::string body;
    for (size_t i = 0; i < length; ++i) body.push_back(static_cast<char>('!' + (i * 7 + length) % 90));
    builder.Add(body, 9);
    builder.Add(body, 2);
    expected += Line(body) + Line(body);
  }
  EXPECT_EQ(ConvertOk(builder.Bytes()), expected);
}

TEST_F(LogExport, RefusesFilesWithoutAValidTrailer) {
  EXPECT_EQ(ConvertOk(LogBuilder().Bytes()), "");  // a valid trailer, no records
  EXPECT_EQ(ConvertFails(LogBuilder().Add("record").Magic(0x5157).Bytes()), "");
  EXPECT_EQ(ConvertFails(LogBuilder().Bytes().substr(1)), "");  // 73 bytes
  EXPECT_EQ(ConvertFails(""), "");

  std::remove(m_log.c_str());
  EXPECT_FALSE(ConvertLogToText(m_log.c_str(), m_text.c_str(), nullptr));
  WriteAll(m_log, LogBuilder().Add("x").Bytes());
  EXPECT_FALSE(ConvertLogToText(m_log.c_str(), m_dir.PathOf("no_such_dir/x/out.txt").c_str(), nullptr));
  EXPECT_FALSE(ConvertLogToText(nullptr, m_text.c_str(), nullptr));
}

TEST_F(LogExport, DamagedRecordAreasStopAtTheTrailerWithoutReadingBeyondIt) {
  // More records announced than present: the present ones are converted.
  EXPECT_EQ(ConvertFails(LogBuilder().Add("one").Add("two").Count(5).Bytes()),
            Line("one") + Line("two"));

  // A length that runs into the trailer and past the end of the file.
  LogRecordHeader header{2, kLogRecordKind, kLogPlainBody, 0xFFFF, 1709647629};
  std::string bytes = LogBuilder()
                          .Add("fine")
                          .Raw(std::string(reinterpret_cast<const char*>(&header), sizeof header) +
                               "short")
                          .Count(2)
                          .Bytes();
  EXPECT_EQ(ConvertFails(bytes), Line("fine"));
  EXPECT_EQ(ConvertFails(LogBuilder().Add("only").Count(0xFFFFFFFF).Bytes(), m_image.c_str()),
            Line("only"));
}

TEST_F(LogExport, ConversionAddsTheSymbolOptionsAndKeepsThem) {
  CSymbolEngine engine;
  const uint32_t saved = engine.SetOptions(0x00000002);
  ConvertOk(LogBuilder().Bytes());
  EXPECT_EQ(engine.GetOptions(), 0x00000002u);  // no image: nothing set up
  ConvertOk(LogBuilder().Bytes(), m_image.c_str());
  EXPECT_EQ(engine.GetOptions(), 0x80000032u);
  engine.SetOptions(saved);
}

TEST_F(LogExport, ReadLogStampReturnsTheTrailerDate) {
  uint32_t month = 99, day = 99;
  WriteAll(m_log, LogBuilder().Add("x").Bytes());
  EXPECT_TRUE(ReadLogStamp(m_log.c_str(), month, day));
  EXPECT_EQ(month * 100 + day, 305u);
  // A bad trailer or a short file gives false and clears both.
  for (const std::string& bytes : {LogBuilder().Add("x").Magic(0).Bytes(), std::string("short")}) {
    month = day = 99;
    WriteAll(m_log, bytes);
    EXPECT_FALSE(ReadLogStamp(m_log.c_str(), month, day));
    EXPECT_EQ(month + day, 0u);
  }
  std::remove(m_log.c_str());
  EXPECT_FALSE(ReadLogStamp(m_log.c_str(), month, day));
}

// The converter converts local time once per minute; every stamp must still equal localtime's,
// also across offset changes and in zones with odd offsets.
void ExpectStampsMatchLocaltime(const std::string& log, const std::string& out) {
  std::mt19937 random(7);
  std::vector<uint32_t> times;
  for (uint32_t t = 1711846800u - 7200; t < 1711846800u + 7200; t += 37) times.push_back(t);
  for (uint32_t t = 63593070u - 86400; t < 63593070u + 86400; t += 611) times.push_back(t);
  for (int i = 0; i < 3000; ++i) times.push_back(static_cast<uint32_t>(random()));
  times.push_back(0xFFFFFFFFu);
  LogBuilder builder;
  std::string expected;
  for (uint32_t t : times) {
    builder.Add("m", kLogPlainBody, 1, t);
    expected += "1 " + Stamp(t) + "\tm" + kEol;
  }
  WriteAll(log, builder.Bytes());
  ASSERT_TRUE(ConvertLogToText(log.c_str(), out.c_str(), nullptr));
  EXPECT_EQ(ReadAll(out), expected);
}

TEST_F(LogExport, StampsEqualLocaltimeInEveryZone) {
  ExpectStampsMatchLocaltime(m_log, m_text);
#ifndef _WIN32
  const char* saved = std::getenv("TZ");
  std::string restore = saved != nullptr ? saved : "";
  for (const char* zone : {"Europe/Berlin", "Africa/Monrovia", "Australia/Lord_Howe"}) {
    setenv("TZ", zone, 1);
    tzset();
    SCOPED_TRACE(zone);
    ExpectStampsMatchLocaltime(m_log, m_text);
  }
  if (saved != nullptr) setenv("TZ", restore.c_str(), 1); else unsetenv("TZ");
  tzset();
#endif
}

}  // namespace
