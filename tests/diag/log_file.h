// A log reader written from the file layout alone, so that it checks the writer, not repeats it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include <deskaid/common/rc4.h>
#include <deskaid/diag/log_export.h>

#include "support/scratch_dir.h"

namespace logtest {

// Little-endian.
inline uint32_t U32(const std::string& b, size_t at, int bytes = 4) {
  uint32_t v = 0;
  for (int i = bytes - 1; i >= 0; --i) v = (v << 8) | static_cast<uint8_t>(b[at + i]);
  return v;
}

// Enciphers or deciphers a record's body under its key.
inline void TransformUnderKey(uint32_t key, std::string& body) {
  const uint8_t k[4] = {uint8_t(key), uint8_t(key >> 8), uint8_t(key >> 16), uint8_t(key >> 24)};
  Rc4Cipher::Transform(k, 4, reinterpret_cast<uint8_t*>(&body[0]), body.size());
}

struct Record {
  uint32_t level, kind, keyIndex, time;
  std::string raw, text;  // the body as stored and deciphered
};

struct ParsedLog {
  // A trailer with the magic, and records that exactly fill the space before it.
  bool valid = false;
  uint32_t recordCount = 0, month = 0, day = 0, keys[16] = {};
  std::vector<Record> records;
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const auto& r : records) texts.push_back(r.text);
    return texts;
  }
};

inline ParsedLog Parse(const std::string& b) {
  ParsedLog log;
  const size_t end = b.size() - 74;
  if (b.size() < 74 || U32(b, end, 2) != 0x5156 || U32(b, end + 2, 2) != 16) return log;
  log.recordCount = U32(b, end + 4);
  log.month = U32(b, end + 8, 1);
  log.day = U32(b, end + 9, 1);
  for (int i = 0; i < 16; ++i) log.keys[i] = U32(b, end + 10 + 4 * i);
  size_t pos = 0;
  for (size_t length; pos + 10 <= end && pos + 10 + (length = U32(b, pos + 4, 2)) <= end;
       pos += 10 + length) {
    Record r{U32(b, pos, 1),  U32(b, pos + 1, 1),         U32(b, pos + 2, 2),
             U32(b, pos + 6), b.substr(pos + 10, length), ""};
    r.text = r.raw;
    if (r.keyIndex < 16) TransformUnderKey(log.keys[r.keyIndex], r.text);
    log.records.push_back(r);
  }
  log.valid = pos == end && log.records.size() == log.recordCount;
  return log;
}

inline ParsedLog ParseFile(const std::string& path) { return Parse(ReadFileBytes(path)); }

// The archives of the log at `path` ("<name> - <stamp><extension>" beside it), in the order of
// their names, which is the order of their stamps.
inline std::vector<std::string> ArchivesBeside(const std::string& path) {
  const std::filesystem::path log(path);
  const std::string prefix = log.stem().string() + " - ";
  std::vector<std::string> found;
  for (const auto& entry : std::filesystem::directory_iterator(log.parent_path())) {
    if (entry.path().filename().string().compare(0, prefix.size(), prefix) == 0)
      found.push_back(entry.path().string());
  }
  std::sort(found.begin(), found.end());
  return found;
}

// The messages of the text file that a conversion wrote, one a line.
inline std::vector<std::string> MessagesOf(const std::string& text) {
  std::vector<std::string> messages;
  std::ifstream in(text);
  for (std::string line; std::getline(in, line);)
    messages.push_back(
        line.substr(line.find('\t') + 1, line.find_last_not_of('\r') - line.find('\t')));
  return messages;
}

// The log exported to `text` (with `image` to resolve addresses).
inline std::vector<std::string> ExportedMessages(const std::string& log, const std::string& text,
                                                 const char* image = nullptr) {
  if (!ConvertLogToText(log.c_str(), text.c_str(), image)) return {"(not converted)"};
  return MessagesOf(text);
}

// The messages converted against the images and symbols in the folders of `symbolPath`.
inline std::vector<std::string> MessagesNamedFrom(const std::string& log, const std::string& text,
                                                  const std::string& symbolPath) {
  LogExportOptions options;
  options.symbolPath = symbolPath.c_str();
  if (!ConvertLogToTextWithSymbols(log.c_str(), text.c_str(), options)) return {"(not converted)"};
  return MessagesOf(text);
}

// Leaves out the records that describe modules.
inline std::vector<std::string> WithoutModuleRecords(std::vector<std::string> messages) {
  messages.erase(std::remove_if(messages.begin(), messages.end(),
                                [](const std::string& m) { return m.rfind("Module: ", 0) == 0; }),
                 messages.end());
  return messages;
}

}  // namespace logtest
