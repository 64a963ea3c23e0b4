#include "deskaid/common/internal/simple_format.h"

#include <cstring>

namespace deskaid {

namespace {

bool FormatFromCopy(char* buffer, size_t size, const char* format, va_list args) {
  char* out = buffer;
  size_t room = size - 1;
  const char* p = format;
  for (;;) {
    // The plain text up to the next conversion goes as it stands. A byte above 0x7F in the format
    // may open a double-byte character, which a Windows runtime in such a locale reads with the
    // byte behind it, even a '%': such formats are the runtime's.
    const char* percent = p;
    while (*percent != '\0' && *percent != '%') {
      if (static_cast<unsigned char>(*percent) > 0x7F) return false;
      ++percent;
    }
    const size_t plain = static_cast<size_t>(percent - p);
    if (plain > room) return false;
    std::memcpy(out, p, plain);
    out += plain;
    room -= plain;
    if (*percent == '\0') break;

    const char* text;
    size_t length;
    if (percent[1] == '%') {
      text = "%";
      length = 1;
    } else if (percent[1] == 's') {
      text = va_arg(args, const char*);
      if (text == nullptr) return false;  // each runtime spells a null string its own way
      length = std::strlen(text);
    } else {
      return false;
    }
    if (length > room) return false;
    std::memcpy(out, text, length);
    out += length;
    room -= length;
    p = percent + 2;
  }
  *out = '\0';
  return true;
}

}  // namespace

bool FormatSimpleText(char* buffer, size_t size, const char* format, va_list args) {
  if (size == 0 || format == nullptr) return false;
  va_list copy;
  va_copy(copy, args);
  const bool done = FormatFromCopy(buffer, size, format, copy);
  va_end(copy);
  return done;
}

}  // namespace deskaid
