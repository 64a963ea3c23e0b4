// The RC4 keystreams of a log trailer's sixteen keys, shared by the writer and the converter.
// Every record body starts a fresh cipher under its key, so all bodies under one key are XORed
// with the same keystream: it is generated once, as far as the longest body needs, and
// enciphering or deciphering a body becomes a plain XOR.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "deskaid/common/rc4.h"
#include "deskaid/diag/log_format.h"

namespace deskaid {

class LogKeystreams {
 public:
  // Without a limit every keystream grows as far as a body needs. With one, each keystream is
  // kept to `limit` bytes, whose room is taken now: bodies that long or shorter never allocate,
  // and a longer body's remainder comes from the cipher positioned at the keystream's end.
  explicit LogKeystreams(size_t limit = 0);

  // Starts over under the keys of `trailer`; each key's schedule is run when first needed.
  void Reset(const LogTrailer& trailer);

  // XORs `data` with the keystream of the key at `keyIndex` (below kLogKeyCount).
  void Apply(uint16_t keyIndex, uint8_t* data, size_t length);

 private:
  void Extend(uint16_t keyIndex, size_t length);

  size_t m_limit;
  uint32_t m_keys[kLogKeyCount] = {};
  std::vector<Rc4Cipher> m_ciphers;  // each one positioned at the end of its keystream
  std::vector<std::vector<uint8_t>> m_streams;
};

}  // namespace deskaid
