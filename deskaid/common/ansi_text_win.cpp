#include "deskaid/common/ansi_text.h"

#include <cstring>
#include <string>

namespace deskaid {

int DrawAnsiText(HDC dc, const char* text, int count, RECT* rect, UINT format) {
  if (text == nullptr || GetACP() != CP_UTF8) return DrawTextA(dc, text, count, rect, format);
  const int bytes = count < 0 ? static_cast<int>(std::strlen(text)) : count;
  const int n = bytes > 0 ? MultiByteToWideChar(CP_UTF8, 0, text, bytes, nullptr, 0) : 0;
  if (n <= 0) return DrawTextA(dc, text, count, rect, format);
  std::wstring wide(static_cast<size_t>(n), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text, bytes, &wide[0], n);
  return DrawTextW(dc, wide.c_str(), n, rect, format);
}

}  // namespace deskaid
