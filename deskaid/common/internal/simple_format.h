// Formatting of the shapes that most log messages take, without the runtime's formatter.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace deskaid {

// Formats `format` into `buffer` when it is made only of plain ASCII text, "%s" and "%%", every
// "%s" gets a string, and the whole text fits (at most `size` - 1 bytes): the result is then byte
// for byte the runtime formatter's, and true is returned. Anything else (another conversion, a flag
// or width, a null string, a text that would be cut) returns false and leaves it to the runtime
// formatter. `args` is read through a copy, so the caller can still pass it on.
bool FormatSimpleText(char* buffer, size_t size, const char* format, va_list args);

}  // namespace deskaid
