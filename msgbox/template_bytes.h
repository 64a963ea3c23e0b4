// Little-endian writers for dialog templates, which the platform reads as packed 16- and 32-bit
// fields whatever the compiler's alignment.
#pragma once

namespace deskaid {

inline void PutU16(unsigned char* p, unsigned value) {
  p[0] = static_cast<unsigned char>(value);
  p[1] = static_cast<unsigned char>(value >> 8);
}

inline void PutU32(unsigned char* p, unsigned long value) {
  PutU16(p, static_cast<unsigned>(value & 0xFFFF));
  PutU16(p + 2, static_cast<unsigned>(value >> 16));
}

}  // namespace deskaid
