// The shim's formatter gives the C library's own text for any format whose conversions all take
// a string, and any buffer size: its shortcut for plain text and "%s" never shows.
#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "deskaid/common/internal/platform.h"

namespace {

void Compare(size_t size, const char* format, ...) {
  char shim[300], runtime[300];
  std::memset(shim, 0x7f, sizeof shim);
  va_list args, again;
  va_start(args, format);
  va_copy(again, args);
  deskaid::platform::FormatText(shim, size, format, args);
  if (std::vsnprintf(runtime, size, format, again) < 0) runtime[0] = '\0';
  va_end(again);
  va_end(args);
  if (std::strcmp(shim, runtime) != 0) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The first byte gives the buffer size, the next eight pick the strings; the rest is the format,
  // where the byte after each '%' picks a conversion that takes a string, or none.
  if (size < 9) return 0;
  static const char* const strings[] = {"", "abc", nullptr, "\xc3\xa9",
                                        "a longer text of some 30 bytes"};
  static const char* const conversions[] = {"s", "%", "5s", "-4s", ".2s", "s%s"};
  const char* s[8];
  for (int i = 0; i < 8; ++i) s[i] = strings[data[1 + i] % 5];
  std::string format;
  int taken = 0;
  for (size_t i = 9; i < size; ++i) {
    if (data[i] == '\0') continue;
    format += static_cast<char>(data[i]);
    if (data[i] != '%') continue;
    const char* conversion = i + 1 < size ? conversions[data[++i] % 6] : "%";
    taken += static_cast<int>(std::count(conversion, conversion + std::strlen(conversion), 's'));
    if (taken > 8) return 0;
    format += conversion;
  }
  Compare(1 + data[0] % 256, format.c_str(), s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7]);
  return 0;
}
