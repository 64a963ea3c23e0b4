// Little-endian writers for dialog templates, which the platform reads as packed 16- and 32-bit
// fields whatever the compiler's alignment.
#pragma once

#include <windows.h>

#include <cstring>
#include <memory>
#include <new>

namespace deskaid {

inline void PutU16(unsigned char* p, unsigned value) {
  p[0] = static_cast<unsigned char>(value);
  p[1] = static_cast<unsigned char>(value >> 8);
}

inline void PutU32(unsigned char* p, unsigned long value) {
  PutU16(p, static_cast<unsigned>(value & 0xFFFF));
  PutU16(p + 2, static_cast<unsigned>(value >> 16));
}

// Writes ANSI `text` as UTF-16 with its terminating zero, the form of every text in a template,
// through a byte copy so that no alignment is assumed. Returns the bytes written; 0 when the text
// does not convert (nothing is written), -1 when the conversion buffer cannot be allocated.
inline int PutWideText(unsigned char* p, const char* text) {
  const int n = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
  if (n <= 0) return 0;
  std::unique_ptr<WCHAR[]> wide(new (std::nothrow) WCHAR[n]);
  if (!wide) return -1;
  MultiByteToWideChar(CP_ACP, 0, text, -1, wide.get(), n);
  std::memcpy(p, wide.get(), static_cast<size_t>(n) * 2);
  return n * 2;
}

}  // namespace deskaid
