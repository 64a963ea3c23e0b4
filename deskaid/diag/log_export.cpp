#include "deskaid/diag/log_export.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "deskaid/common/internal/platform.h"
#include "deskaid/common/rc4.h"
#include "deskaid/diag/internal/log_block_reader.h"
#include "deskaid/diag/log_format.h"
#include "deskaid/diag/symbol_engine.h"

namespace {

// Where the converter maps the image whose addresses the messages carry: the usual base of an
// executable, so that addresses logged by a process that was not relocated resolve as they are.
constexpr uint64_t kImageBase = 0x00400000;
constexpr uint32_t kExportSymbolOptions = kSymOptDebug | kSymOptOmapFindNearest | kSymOptLoadLines;

// Length of the text inside an address marker: eight hexadecimal digits.
constexpr size_t kMarkerDigits = 8;

// Reads the trailer at the end of `file`, `length` bytes long; false when the file is too short
// or the magic is wrong.
bool ReadTrailer(std::FILE* file, uint64_t length, LogTrailer& trailer) {
  if (length < sizeof trailer) return false;
  if (!deskaid::platform::SeekStream(file, length - sizeof trailer)) return false;
  if (std::fread(&trailer, sizeof trailer, 1, file) != 1) return false;
  return trailer.magic == kLogTrailerMagic;
}

// localtime for a stream of record times. Within one minute of UTC the local time normally moves
// in step with it, so one conversion per minute serves every record in it. A minute that holds a
// change of the zone's offset, or whose local seconds do not start at 0, is converted per record.
class LocalTimeCache {
 public:
  std::tm Get(uint32_t seconds) {
    uint32_t minute = seconds - seconds % 60;
    if (!m_valid || minute != m_minute) Load(minute);
    if (!m_regular) return deskaid::platform::LocalTime(seconds);
    std::tm result = m_start;
    result.tm_sec = static_cast<int>(seconds - minute);
    return result;
  }

 private:
  void Load(uint32_t minute) {
    m_valid = true;
    m_minute = minute;
    m_regular = false;
    if (minute > UINT32_MAX - 59) return;  // the last minute of the 32-bit range
    m_start = deskaid::platform::LocalTime(minute);
    std::tm last = deskaid::platform::LocalTime(minute + 59);
    m_regular = m_start.tm_sec == 0 && last.tm_sec == 59 && last.tm_min == m_start.tm_min &&
                last.tm_hour == m_start.tm_hour && last.tm_mday == m_start.tm_mday &&
                last.tm_mon == m_start.tm_mon && last.tm_year == m_start.tm_year;
  }

  bool m_valid = false;
  bool m_regular = false;
  uint32_t m_minute = 0;
  std::tm m_start{};
};

// The text file's lines, gathered in a block and written in one call.
class LineWriter {
 public:
  explicit LineWriter(std::FILE* file) : m_file(file) { m_buffer.reserve(kBlock + 4096); }

  void Text(const char* text) { m_buffer.append(text); }
  void Char(char c) { m_buffer.push_back(c); }
  // The level: one byte, 0 to 255.
  void Number(uint8_t value) {
    if (value >= 100) m_buffer.push_back(static_cast<char>('0' + value / 100));
    if (value >= 10) m_buffer.push_back(static_cast<char>('0' + value / 10 % 10));
    m_buffer.push_back(static_cast<char>('0' + value % 10));
  }
  // "%02d" for the stamp fields, which lie in 0 to 99 for any time localtime gives.
  void TwoDigits(int value) {
    if (value < 0 || value > 99) {
      char digits[16];
      int n = std::snprintf(digits, sizeof digits, "%02d", value);
      m_buffer.append(digits, static_cast<size_t>(n));
      return;
    }
    m_buffer.push_back(static_cast<char>('0' + value / 10));
    m_buffer.push_back(static_cast<char>('0' + value % 10));
  }
  void EndLine() {
    m_buffer.push_back('\r');
    m_buffer.push_back('\n');
    if (m_buffer.size() >= kBlock) Flush();
  }
  bool Flush() {
    if (!m_buffer.empty() &&
        std::fwrite(m_buffer.data(), 1, m_buffer.size(), m_file) != m_buffer.size())
      m_failed = true;
    m_buffer.clear();
    return !m_failed;
  }

 private:
  static constexpr size_t kBlock = 256 * 1024;
  std::FILE* m_file;
  std::string m_buffer;
  bool m_failed = false;
};

// The symbol look-ups of one conversion.
class AddressResolver {
 public:
  // Without an image nothing is set up and no marker is ever looked for.
  explicit AddressResolver(const char* imagePath) : m_enabled(imagePath != nullptr) {
    if (!m_enabled) return;
    m_engine.AddOptions(kExportSymbolOptions);
    // Set-up failures are not checked: every look-up then fails and the name stays as it is.
    m_engine.Initialize(SymCurrentProcess(), nullptr, 0, 0);
    m_engine.LoadModule(std::string(imagePath), kImageBase, 0);
  }
  ~AddressResolver() { m_engine.Cleanup(); }

  bool Enabled() const { return m_enabled; }

  // The name for `address`; after a failed look-up, the last name found in this conversion.
  const std::string& Name(uint32_t address) {
    uint64_t displacement = 0;
    m_engine.SymbolFromAddress(address, m_name, displacement);
    return m_name;
  }

 private:
  bool m_enabled;
  CSymbolEngine m_engine;
  std::string m_name;  // shared by all records
};

// The RC4 keystreams of the trailer's sixteen keys. Every body starts a fresh cipher under its
// key, so all bodies under one key are XORed with the same keystream; it is generated once, as
// far as the longest body needs, and deciphering becomes a plain XOR.
class KeystreamTable {
 public:
  explicit KeystreamTable(const LogTrailer& trailer) {
    m_ciphers.reserve(kLogKeyCount);
    for (uint32_t i = 0; i < kLogKeyCount; ++i) {
      const uint32_t key = trailer.keys[i];  // by value: the packed trailer is not aligned
      uint8_t bytes[4] = {static_cast<uint8_t>(key), static_cast<uint8_t>(key >> 8),
                          static_cast<uint8_t>(key >> 16), static_cast<uint8_t>(key >> 24)};
      m_ciphers.emplace_back(bytes, sizeof bytes);
    }
    m_streams.resize(kLogKeyCount);
  }

  void Decipher(uint16_t keyIndex, uint8_t* data, size_t length) {
    std::vector<uint8_t>& stream = m_streams[keyIndex];
    if (stream.size() < length) Extend(keyIndex, length);
    const uint8_t* key = stream.data();
    for (size_t i = 0; i < length; ++i) data[i] ^= key[i];
  }

 private:
  void Extend(uint16_t keyIndex, size_t length) {
    std::vector<uint8_t>& stream = m_streams[keyIndex];
    size_t old = stream.size();
    size_t grown = old * 2 > length ? old * 2 : length;
    if (grown < 256) grown = 256;
    stream.resize(grown, 0);  // zeros XORed with the keystream give the keystream
    m_ciphers[keyIndex].Apply(stream.data() + old, grown - old);
  }

  std::vector<Rc4Cipher> m_ciphers;  // each one positioned at the end of its stream
  std::vector<std::vector<uint8_t>> m_streams;
};

// One record per call: deciphers, resolves the marker and writes the line.
class Converter {
 public:
  Converter(const LogTrailer& trailer, AddressResolver& resolver, std::FILE* text)
      : m_lines(text), m_resolver(resolver), m_keys(trailer) {}

  // `body` holds the record's bytes followed by two NULs.
  void Record(const LogRecordHeader& header, char* body) {
    if (header.keyIndex < kLogKeyCount) {
      // Keys 16 to 0xFFFE do not exist; such bodies are taken as plain.
      m_keys.Decipher(header.keyIndex, reinterpret_cast<uint8_t*>(body), header.length);
    }
    std::tm when = m_times.Get(header.time);
    m_lines.Number(header.level);
    m_lines.Char(' ');
    m_lines.TwoDigits(when.tm_mon + 1);
    m_lines.Char('-');
    m_lines.TwoDigits(when.tm_mday);
    m_lines.Char(' ');
    m_lines.TwoDigits(when.tm_hour);
    m_lines.Char(':');
    m_lines.TwoDigits(when.tm_min);
    m_lines.Char(':');
    m_lines.TwoDigits(when.tm_sec);
    m_lines.Char('\t');

    char* open = m_resolver.Enabled() ? std::strchr(body, '[') : nullptr;
    char* close = open != nullptr ? std::strchr(open, ']') : nullptr;
    if (close != nullptr && static_cast<size_t>(close - open - 1) == kMarkerDigits) {
      *open = '\0';
      *close = '\0';
      // strtoul's own reading (prefixes, signs and all), cut to the 32 bits of an address.
      uint32_t address = static_cast<uint32_t>(std::strtoul(open + 1, nullptr, 16));
      m_lines.Text(body);
      m_lines.Text(m_resolver.Name(address).c_str());
      m_lines.Text(close + 1);
    } else {
      m_lines.Text(body);
    }
    m_lines.EndLine();
  }

  bool Finish() { return m_lines.Flush(); }

 private:
  LineWriter m_lines;
  AddressResolver& m_resolver;
  KeystreamTable m_keys;
  LocalTimeCache m_times;
};

}  // namespace

bool ReadLogStamp(const char* path, uint32_t& month, uint32_t& day) {
  month = 0;
  day = 0;
  if (path == nullptr) return false;
  std::FILE* file = std::fopen(path, "rb");
  if (file == nullptr) return false;
  LogTrailer trailer;
  bool valid = ReadTrailer(file, deskaid::platform::StreamLength(file), trailer);
  std::fclose(file);
  if (!valid) return false;
  month = trailer.stampMonth;
  day = trailer.stampDay;
  return true;
}

bool ConvertLogToText(const char* logPath, const char* textPath, const char* imagePath) {
  AddressResolver resolver(imagePath);
  if (logPath == nullptr || textPath == nullptr || logPath[0] == '\0' || textPath[0] == '\0') {
    return false;
  }
  std::FILE* log = std::fopen(logPath, "rb");
  std::FILE* text = std::fopen(textPath, "w");
  if (log == nullptr || text == nullptr) {
    if (log != nullptr) std::fclose(log);
    if (text != nullptr) std::fclose(text);
    return false;
  }

  const uint64_t length = deskaid::platform::StreamLength(log);
  LogTrailer trailer;
  if (!ReadTrailer(log, length, trailer) || !deskaid::platform::SeekStream(log, 0)) {
    std::fclose(log);
    std::fclose(text);
    return false;
  }

  bool complete = true;
  {
    Converter converter(trailer, resolver, text);
    deskaid::LogBlockReader reader(log, length - sizeof(LogTrailer));
    // Room for the longest body and the two NULs behind it.
    std::vector<char> body(0x10000 + 2);
    for (uint32_t i = 0; i < trailer.recordCount; ++i) {
      LogRecordHeader header;
      if (!reader.Read(&header, sizeof header) || !reader.Read(body.data(), header.length)) {
        complete = false;  // the file holds fewer records than its trailer announces
        break;
      }
      body[header.length] = '\0';
      body[header.length + 1] = '\0';
      converter.Record(header, body.data());
    }
    if (!converter.Finish()) complete = false;
  }
  std::fclose(log);
  if (std::fclose(text) != 0) complete = false;
  return complete;
}
