// Test-side helpers for logs: a reader of log files written from the file layout alone, so that
// it checks the writer rather than repeating it, the messages of a log exported as text, and a
// capture of trace lines.
#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <deskaid/common/rc4.h>
#include <deskaid/diag/debug_trace.h>
#include <deskaid/diag/log_export.h>

#include "support/scratch_dir.h"

namespace logtest {

inline uint32_t U32(const std::string& b, size_t at, int bytes = 4) {
  uint32_t v = 0;
  for (int i = bytes - 1; i >= 0; --i) v = (v << 8) | static_cast<uint8_t>(b[at + i]);
  return v;
}

struct Record {
  uint8_t level = 0, kind = 0;
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
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const auto& r : records) texts.push_back(r.text);
    return texts;
  }
};

inline ParsedLog Parse(const std::string& bytes) {
  ParsedLog log;
  if (bytes.size() < 74) return log;
  const size_t end = bytes.size() - 74;
  if (U32(bytes, end, 2) != 0x5156 || U32(bytes, end + 2, 2) != 16) return log;
  log.recordCount = U32(bytes, end + 4);
  log.month = static_cast<uint8_t>(bytes[end + 8]);
  log.day = static_cast<uint8_t>(bytes[end + 9]);
  for (int i = 0; i < 16; ++i) log.keys[i] = U32(bytes, end + 10 + 4 * i);
  size_t pos = 0;
  while (pos + 10 <= end) {
    Record r;
    r.level = static_cast<uint8_t>(bytes[pos]);
    r.kind = static_cast<uint8_t>(bytes[pos + 1]);
    r.keyIndex = static_cast<uint16_t>(U32(bytes, pos + 2, 2));
    const size_t length = U32(bytes, pos + 4, 2);
    r.time = U32(bytes, pos + 6);
    if (pos + 10 + length > end) return log;
    r.raw = r.text = bytes.substr(pos + 10, length);
    if (r.keyIndex < 16) {
      const uint32_t key = log.keys[r.keyIndex];
      const uint8_t k[4] = {uint8_t(key), uint8_t(key >> 8), uint8_t(key >> 16), uint8_t(key >> 24)};
      Rc4Cipher::Transform(k, 4, reinterpret_cast<uint8_t*>(&r.text[0]), r.text.size());
    }
    log.records.push_back(r);
    pos += 10 + length;
  }
  log.valid = pos == end && log.records.size() == log.recordCount;
  return log;
}

inline ParsedLog ParseFile(const std::string& path) { return Parse(ReadFileBytes(path)); }

// The other files of the folder that holds `path`, its archives, in the order of their names.
inline std::vector<std::string> ArchivesBeside(const std::string& path) {
  std::vector<std::string> found;
  const std::filesystem::path live(path);
  for (const auto& entry : std::filesystem::directory_iterator(live.parent_path())) {
    if (entry.path().filename() != live.filename()) found.push_back(entry.path().string());
  }
  std::sort(found.begin(), found.end());
  return found;
}

// The log exported to `text` (with `image` to resolve addresses), one message per line.
inline std::vector<std::string> ExportedMessages(const std::string& log, const std::string& text,
                                                 const char* image = nullptr) {
  std::vector<std::string> messages;
  if (!ConvertLogToText(log.c_str(), text.c_str(), image)) return {"(not converted)"};
  std::ifstream in(text);
  for (std::string line; std::getline(in, line);) {
    std::string message = line.substr(line.find('\t') + 1);
    while (!message.empty() && message.back() == '\r') message.pop_back();
    messages.push_back(message);
  }
  return messages;
}

}  // namespace logtest

// Collects the trace lines while it lives.
struct TraceCapture {
  TraceCapture() {
    SetDebugTraceSink([](const char* line, void* self) {
      static_cast<TraceCapture*>(self)->lines.push_back(line);
    }, this);
  }
  ~TraceCapture() { SetDebugTraceSink(nullptr, nullptr); }
  std::vector<std::string> lines;
};
