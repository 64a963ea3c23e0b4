#include "deskaid/diag/internal/log_keystreams.h"

#include <algorithm>

namespace deskaid {

LogKeystreams::LogKeystreams(size_t limit)
    : m_limit(limit == 0 ? SIZE_MAX : limit),
      m_ciphers(kLogKeyCount, Rc4Cipher(nullptr, 0)),
      m_streams(kLogKeyCount) {
  if (limit != 0) {
    for (std::vector<uint8_t>& stream : m_streams) stream.reserve(limit);
  }
}

void LogKeystreams::Reset(const LogTrailer& trailer) {
  for (uint32_t i = 0; i < kLogKeyCount; ++i) {
    m_keys[i] = trailer.keys[i];  // by value: the packed trailer is not aligned
    m_streams[i].clear();         // keeps its room
  }
}

void LogKeystreams::Apply(uint16_t keyIndex, uint8_t* data, size_t length) {
  std::vector<uint8_t>& stream = m_streams[keyIndex];
  if (stream.size() < length && stream.size() < m_limit) {
    Extend(keyIndex, std::min(length, m_limit));
  }
  const size_t covered = std::min(length, stream.size());
  const uint8_t* key = stream.data();
  for (size_t i = 0; i < covered; ++i) data[i] ^= key[i];
  if (covered < length) {
    Rc4Cipher rest = m_ciphers[keyIndex];
    rest.Apply(data + covered, length - covered);
  }
}

void LogKeystreams::Extend(uint16_t keyIndex, size_t length) {
  std::vector<uint8_t>& stream = m_streams[keyIndex];
  const size_t old = stream.size();
  if (old == 0) {
    const uint32_t key = m_keys[keyIndex];
    const uint8_t bytes[4] = {static_cast<uint8_t>(key), static_cast<uint8_t>(key >> 8),
                              static_cast<uint8_t>(key >> 16), static_cast<uint8_t>(key >> 24)};
    m_ciphers[keyIndex] = Rc4Cipher(bytes, sizeof bytes);
  }
  // Doubling keeps the work for a run of ever longer bodies linear; with a limit, within it.
  const size_t grown = std::min(std::max({old * 2, length, size_t{256}}), m_limit);
  stream.resize(grown, 0);  // zeros XORed with the keystream give the keystream
  m_ciphers[keyIndex].Apply(stream.data() + old, grown - old);
}

}  // namespace deskaid
