// Test-side reader of log files, written from the file layout alone so that it checks the writer
// rather than repeating it.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <deskaid/common/rc4.h>

namespace logtest {

inline uint16_t U16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
inline uint32_t U32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

inline std::vector<uint8_t> ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

struct Record {
  uint8_t level = 0;
  uint8_t kind = 0;
  uint16_t keyIndex = 0;
  uint32_t time = 0;
  std::string raw;   // the body as stored
  std::string text;  // the body deciphered
};

struct ParsedLog {
  bool valid = false;  // a trailer with the magic, and records that exactly fill the space before it
  uint32_t recordCount = 0;
  uint8_t month = 0, day = 0;
  uint32_t keys[16] = {};
  std::vector<Record> records;
};

inline std::string Decipher(uint32_t key, std::string body) {
  uint8_t k[4] = {static_cast<uint8_t>(key), static_cast<uint8_t>(key >> 8),
                  static_cast<uint8_t>(key >> 16), static_cast<uint8_t>(key >> 24)};
  Rc4Cipher::Transform(k, 4, reinterpret_cast<uint8_t*>(&body[0]), body.size());
  return body;
}

inline ParsedLog Parse(const std::vector<uint8_t>& bytes) {
  ParsedLog log;
  if (bytes.size() < 74) return log;
  const uint8_t* t = bytes.data() + bytes.size() - 74;
  if (U16(t) != 0x5156 || U16(t + 2) != 16) return log;
  log.recordCount = U32(t + 4);
  log.month = t[8];
  log.day = t[9];
  for (int i = 0; i < 16; ++i) log.keys[i] = U32(t + 10 + 4 * i);
  size_t pos = 0, end = bytes.size() - 74;
  while (pos + 10 <= end) {
    const uint8_t* h = bytes.data() + pos;
    Record r;
    r.level = h[0];
    r.kind = h[1];
    r.keyIndex = U16(h + 2);
    uint16_t length = U16(h + 4);
    r.time = U32(h + 6);
    if (pos + 10 + length > end) return log;
    r.raw.assign(reinterpret_cast<const char*>(h + 10), length);
    r.text = r.keyIndex < 16 ? Decipher(log.keys[r.keyIndex], r.raw) : r.raw;
    log.records.push_back(r);
    pos += 10 + length;
  }
  log.valid = pos == end && log.records.size() == log.recordCount;
  return log;
}

inline ParsedLog ParseFile(const std::string& path) { return Parse(ReadBytes(path)); }

}  // namespace logtest
