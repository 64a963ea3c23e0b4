// The C runtime's own formatter, which the module's formatting must match.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

// At most size - 1 characters. Windows's _vsnprintf leaves a text that does not fit unterminated.
inline std::string RuntimeFormat(size_t size, const char* format, ...) {
  std::vector<char> buffer(size);
  va_list args;
  va_start(args, format);
#ifdef _WIN32
  _vsnprintf(buffer.data(), size, format, args);
  buffer[size - 1] = '\0';
#else
  std::vsnprintf(buffer.data(), size, format, args);
#endif
  va_end(args);
  return buffer.data();
}
