#include "deskaid/common/rc4.h"

#include <utility>

Rc4Cipher::Rc4Cipher(const uint8_t* key, size_t keyLength) {
  for (int i = 0; i < 256; ++i) m_state[i] = static_cast<uint8_t>(i);
  if (keyLength == 0) return;
  if (keyLength > 256) keyLength = 256;
  uint8_t j = 0;
  for (int i = 0; i < 256; ++i) {
    j = static_cast<uint8_t>(j + m_state[i] + key[i % keyLength]);
    std::swap(m_state[i], m_state[j]);
  }
}

void Rc4Cipher::Apply(uint8_t* data, size_t length) {
  uint8_t i = m_i, j = m_j;
  for (size_t n = 0; n < length; ++n) {
    i = static_cast<uint8_t>(i + 1);
    uint8_t si = m_state[i];
    j = static_cast<uint8_t>(j + si);
    uint8_t sj = m_state[j];
    m_state[i] = sj;
    m_state[j] = si;
    data[n] ^= m_state[static_cast<uint8_t>(si + sj)];
  }
  m_i = i;
  m_j = j;
}

void Rc4Cipher::Transform(const uint8_t* key, size_t keyLength, uint8_t* data, size_t length) {
  Rc4Cipher cipher(key, keyLength);
  cipher.Apply(data, length);
}
