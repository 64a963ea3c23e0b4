// Sequential reading of a log's record area in large blocks, for the compaction of the writer and
// for the converter: exact byte counts are handed out without a system call per record. It never
// hands out a byte past `limit`, so a damaged length cannot reach beyond the area it was given.
// Once copying has begun, every byte read or skipped also goes to the output, in one write per
// block rather than one per record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace deskaid {

class LogBlockReader {
 public:
  explicit LogBlockReader(std::FILE* in, uint64_t limit = UINT64_MAX)
      : m_in(in), m_remaining(limit), m_buffer(1 << 20) {}
  ~LogBlockReader() { FlushCopy(); }
  LogBlockReader(const LogBlockReader&) = delete;
  LogBlockReader& operator=(const LogBlockReader&) = delete;

  // Reads exactly `length` bytes; false when the area ends first.
  bool Read(void* out, size_t length) {
    uint8_t* target = static_cast<uint8_t*>(out);
    while (length > 0) {
      if (m_pos == m_end && !Fill()) return false;
      const size_t n = Take(length);
      std::memcpy(target, m_buffer.data() + m_pos - n, n);
      target += n;
      length -= n;
    }
    return true;
  }

  // Passes over `length` bytes; false when the area ends first.
  bool Skip(size_t length) {
    while (length > 0) {
      if (m_pos == m_end && !Fill()) return false;
      length -= Take(length);
    }
    return true;
  }

  // From here on, everything read or skipped is also written to `out`.
  void StartCopying(std::FILE* out) {
    m_out = out;
    m_copyFrom = m_pos;
  }

 private:
  void FlushCopy() {
    if (m_out != nullptr && m_pos > m_copyFrom) {
      std::fwrite(m_buffer.data() + m_copyFrom, 1, m_pos - m_copyFrom, m_out);
    }
    m_copyFrom = m_pos;
  }
  bool Fill() {
    FlushCopy();
    m_pos = m_copyFrom = m_end = 0;
    if (m_remaining == 0) return false;
    const size_t want =
        m_remaining < m_buffer.size() ? static_cast<size_t>(m_remaining) : m_buffer.size();
    m_end = std::fread(m_buffer.data(), 1, want, m_in);
    m_remaining -= m_end;
    return m_end > 0;
  }
  size_t Take(size_t wanted) {
    const size_t n = m_end - m_pos < wanted ? m_end - m_pos : wanted;
    m_pos += n;
    return n;
  }

  std::FILE* m_in;
  uint64_t m_remaining;
  std::vector<uint8_t> m_buffer;
  size_t m_pos = 0;
  size_t m_end = 0;
  std::FILE* m_out = nullptr;
  size_t m_copyFrom = 0;
};

}  // namespace deskaid
