// The RC4 stream cipher as published: the standard key schedule and keystream, with no keystream
// bytes dropped. The log writer enciphers record bodies with it under 4-byte keys. RC4 is its own
// inverse, so one operation both enciphers and deciphers. It is obfuscation here, not secrecy:
// the keys travel in the same file as the data.
#pragma once

#include <cstddef>
#include <cstdint>

class Rc4Cipher {
 public:
  // Runs the key schedule. Keys of 1 to 256 bytes are meaningful; a longer key is used up to its
  // first 256 bytes, and an empty key leaves the identity permutation.
  Rc4Cipher(const uint8_t* key, size_t keyLength);

  // XORs `length` bytes in place with the next bytes of the keystream.
  void Apply(uint8_t* data, size_t length);

  // One-shot: a fresh cipher under `key` applied to `data`.
  static void Transform(const uint8_t* key, size_t keyLength, uint8_t* data, size_t length);

 private:
  uint8_t m_state[256];
  uint8_t m_i = 0;
  uint8_t m_j = 0;
};
