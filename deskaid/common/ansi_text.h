// Drawing 8-bit text of the process's ANSI code page. Windows only.
#pragma once

#ifdef _WIN32
#include <windows.h>

namespace deskaid {

// DrawTextA for text in the ANSI code page: measures (DT_CALCRECT) or draws `count` bytes of
// `text` (-1: up to its NUL) with the same formats and result. DrawTextA reads its bytes in the
// code page of the selected font's character set, which for the usual Western fonts is 1252; in a
// host whose ANSI code page is UTF-8 that would cut every multi-byte character into Western
// ones, so there the text is converted from UTF-8 and drawn as UTF-16. Any other host gets
// DrawTextA itself, unchanged.
int DrawAnsiText(HDC dc, const char* text, int count, RECT* rect, UINT format);

}  // namespace deskaid
#endif
