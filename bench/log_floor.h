// The log benchmarks' floor: each record as the writer leaves it, header and body over the old
// trailer and the trailer behind them with the count raised, so that one write per record puts
// the writer's bytes in the file with nothing else (no formatting, time stamp or cipher). Shared
// by the native benchmark and the shipped build's.
#pragma once

#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include <deskaid/diag/log_format.h>

class LogFloorRecords {
 public:
  explicit LogFloorRecords(const std::string& message)
      : m_advance(sizeof(LogRecordHeader) + message.size()), m_bytes(m_advance + sizeof m_trailer) {
    LogRecordHeader header = {};
    header.level = LOG_LEVEL_1;
    header.kind = kLogRecordKind;
    header.keyIndex = kLogPlainBody;
    header.length = static_cast<uint16_t>(message.size());
    header.time = static_cast<uint32_t>(std::time(nullptr));
    std::memcpy(m_bytes.data(), &header, sizeof header);
    std::memcpy(m_bytes.data() + sizeof header, message.data(), message.size());
    m_trailer.magic = kLogTrailerMagic;
    m_trailer.keyCount = kLogKeyCount;
  }

  // The trailer of a log of no records.
  LogTrailer EmptyTrailer() const {
    LogTrailer empty = m_trailer;
    empty.recordCount = 0;
    return empty;
  }
  // Record `index` (from 0) with the trailer behind it, at index * Advance().
  const std::vector<char>& Record(int index) {
    m_trailer.recordCount = static_cast<uint32_t>(index + 1);
    std::memcpy(m_bytes.data() + m_advance, &m_trailer, sizeof m_trailer);
    return m_bytes;
  }
  size_t Advance() const { return m_advance; }

 private:
  size_t m_advance;
  LogTrailer m_trailer = {};
  std::vector<char> m_bytes;
};
