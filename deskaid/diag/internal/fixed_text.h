// Text built in a caller's buffer without the heap and without stdio, for code that runs where
// neither may be used: a signal handler, or a crash report on a process whose heap may be damaged
// or whose allocator lock may be held by the thread that failed. What does not fit is cut.
#pragma once

#include <cstddef>
#include <cstdint>

namespace deskaid {

class FixedText {
 public:
  // `size` must be at least 1.
  FixedText(char* buffer, size_t size) : m_buffer(buffer), m_size(size) { m_buffer[0] = '\0'; }

  FixedText& Add(char c) {
    if (m_length + 1 < m_size) {
      m_buffer[m_length++] = c;
      m_buffer[m_length] = '\0';
    }
    return *this;
  }
  FixedText& Add(const char* text) {
    while (*text != '\0' && m_length + 1 < m_size) Add(*text++);
    return *this;
  }
  // Upper-case hexadecimal digits, at least `minDigits` of them.
  FixedText& Hex(uint64_t value, int minDigits = 1) {
    char digits[16];
    int count = 0;
    do {
      digits[count++] = "0123456789ABCDEF"[value & 15];
      value >>= 4;
    } while (value != 0 && count < 16);
    while (count < minDigits && count < 16) digits[count++] = '0';
    while (count > 0) Add(digits[--count]);
    return *this;
  }
  FixedText& Decimal(uint64_t value) {
    char digits[20];
    int count = 0;
    do {
      digits[count++] = static_cast<char>('0' + value % 10);
      value /= 10;
    } while (value != 0);
    while (count > 0) Add(digits[--count]);
    return *this;
  }

  const char* Text() const { return m_buffer; }
  size_t Length() const { return m_length; }

 private:
  char* m_buffer;
  size_t m_size;
  size_t m_length = 0;
};

}  // namespace deskaid
