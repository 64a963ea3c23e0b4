#include "deskaid/codec/md5.h"

#include <cstdio>
#include <cstring>

#include "deskaid/common/internal/platform.h"

namespace {

// One byte 0x80 and zeros: the message padding.
const unsigned char kPadding[64] = {0x80};

inline uint32_t RotateLeft(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

inline uint32_t LoadLE32(const unsigned char* p) {
  return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}

inline void StoreLE32(unsigned char* p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v);
  p[1] = static_cast<unsigned char>(v >> 8);
  p[2] = static_cast<unsigned char>(v >> 16);
  p[3] = static_cast<unsigned char>(v >> 24);
}

// The four step kinds. The round functions are written so that as much of each step as possible
// does not wait for b, the result of the step before:
//   F(b, c, d) = (b & c) | (~b & d)  is computed as  d ^ (b & (c ^ d));
//   G(b, c, d) = (b & d) | (c & ~d)  has disjoint terms, so their OR is their sum and the term
//                                    without b is added first.
#define MD5_F(a, b, c, d, x, s, k)                      \
  a += (x) + uint32_t(k) + ((d) ^ ((b) & ((c) ^ (d)))); \
  a = RotateLeft(a, s) + (b)
#define MD5_G(a, b, c, d, x, s, k)       \
  a += (x) + uint32_t(k) + ((c) & ~(d)); \
  a += (b) & (d);                        \
  a = RotateLeft(a, s) + (b)
#define MD5_H(a, b, c, d, x, s, k)            \
  a += (x) + uint32_t(k) + ((b) ^ (c) ^ (d)); \
  a = RotateLeft(a, s) + (b)
#define MD5_I(a, b, c, d, x, s, k)               \
  a += (x) + uint32_t(k) + ((c) ^ ((b) | ~(d))); \
  a = RotateLeft(a, s) + (b)

// Compresses `blocks` consecutive 64-byte blocks into `state`, keeping the chaining value in
// registers from one block to the next.
void CompressBlocks(uint32_t state[4], const unsigned char* p, size_t blocks) {
  uint32_t sa = state[0], sb = state[1], sc = state[2], sd = state[3];
  for (; blocks != 0; --blocks, p += 64) {
    const uint32_t x0 = LoadLE32(p), x1 = LoadLE32(p + 4), x2 = LoadLE32(p + 8),
                   x3 = LoadLE32(p + 12), x4 = LoadLE32(p + 16), x5 = LoadLE32(p + 20),
                   x6 = LoadLE32(p + 24), x7 = LoadLE32(p + 28), x8 = LoadLE32(p + 32),
                   x9 = LoadLE32(p + 36), x10 = LoadLE32(p + 40), x11 = LoadLE32(p + 44),
                   x12 = LoadLE32(p + 48), x13 = LoadLE32(p + 52), x14 = LoadLE32(p + 56),
                   x15 = LoadLE32(p + 60);
    uint32_t a = sa, b = sb, c = sc, d = sd;

    // Round 1.
    MD5_F(a, b, c, d, x0, 7, 0xd76aa478);
    MD5_F(d, a, b, c, x1, 12, 0xe8c7b756);
    MD5_F(c, d, a, b, x2, 17, 0x242070db);
    MD5_F(b, c, d, a, x3, 22, 0xc1bdceee);
    MD5_F(a, b, c, d, x4, 7, 0xf57c0faf);
    MD5_F(d, a, b, c, x5, 12, 0x4787c62a);
    MD5_F(c, d, a, b, x6, 17, 0xa8304613);
    MD5_F(b, c, d, a, x7, 22, 0xfd469501);
    MD5_F(a, b, c, d, x8, 7, 0x698098d8);
    MD5_F(d, a, b, c, x9, 12, 0x8b44f7af);
    MD5_F(c, d, a, b, x10, 17, 0xffff5bb1);
    MD5_F(b, c, d, a, x11, 22, 0x895cd7be);
    MD5_F(a, b, c, d, x12, 7, 0x6b901122);
    MD5_F(d, a, b, c, x13, 12, 0xfd987193);
    MD5_F(c, d, a, b, x14, 17, 0xa679438e);
    MD5_F(b, c, d, a, x15, 22, 0x49b40821);
    // Round 2.
    MD5_G(a, b, c, d, x1, 5, 0xf61e2562);
    MD5_G(d, a, b, c, x6, 9, 0xc040b340);
    MD5_G(c, d, a, b, x11, 14, 0x265e5a51);
    MD5_G(b, c, d, a, x0, 20, 0xe9b6c7aa);
    MD5_G(a, b, c, d, x5, 5, 0xd62f105d);
    MD5_G(d, a, b, c, x10, 9, 0x02441453);
    MD5_G(c, d, a, b, x15, 14, 0xd8a1e681);
    MD5_G(b, c, d, a, x4, 20, 0xe7d3fbc8);
    MD5_G(a, b, c, d, x9, 5, 0x21e1cde6);
    MD5_G(d, a, b, c, x14, 9, 0xc33707d6);
    MD5_G(c, d, a, b, x3, 14, 0xf4d50d87);
    MD5_G(b, c, d, a, x8, 20, 0x455a14ed);
    MD5_G(a, b, c, d, x13, 5, 0xa9e3e905);
    MD5_G(d, a, b, c, x2, 9, 0xfcefa3f8);
    MD5_G(c, d, a, b, x7, 14, 0x676f02d9);
    MD5_G(b, c, d, a, x12, 20, 0x8d2a4c8a);
    // Round 3.
    MD5_H(a, b, c, d, x5, 4, 0xfffa3942);
    MD5_H(d, a, b, c, x8, 11, 0x8771f681);
    MD5_H(c, d, a, b, x11, 16, 0x6d9d6122);
    MD5_H(b, c, d, a, x14, 23, 0xfde5380c);
    MD5_H(a, b, c, d, x1, 4, 0xa4beea44);
    MD5_H(d, a, b, c, x4, 11, 0x4bdecfa9);
    MD5_H(c, d, a, b, x7, 16, 0xf6bb4b60);
    MD5_H(b, c, d, a, x10, 23, 0xbebfbc70);
    MD5_H(a, b, c, d, x13, 4, 0x289b7ec6);
    MD5_H(d, a, b, c, x0, 11, 0xeaa127fa);
    MD5_H(c, d, a, b, x3, 16, 0xd4ef3085);
    MD5_H(b, c, d, a, x6, 23, 0x04881d05);
    MD5_H(a, b, c, d, x9, 4, 0xd9d4d039);
    MD5_H(d, a, b, c, x12, 11, 0xe6db99e5);
    MD5_H(c, d, a, b, x15, 16, 0x1fa27cf8);
    MD5_H(b, c, d, a, x2, 23, 0xc4ac5665);
    // Round 4.
    MD5_I(a, b, c, d, x0, 6, 0xf4292244);
    MD5_I(d, a, b, c, x7, 10, 0x432aff97);
    MD5_I(c, d, a, b, x14, 15, 0xab9423a7);
    MD5_I(b, c, d, a, x5, 21, 0xfc93a039);
    MD5_I(a, b, c, d, x12, 6, 0x655b59c3);
    MD5_I(d, a, b, c, x3, 10, 0x8f0ccc92);
    MD5_I(c, d, a, b, x10, 15, 0xffeff47d);
    MD5_I(b, c, d, a, x1, 21, 0x85845dd1);
    MD5_I(a, b, c, d, x8, 6, 0x6fa87e4f);
    MD5_I(d, a, b, c, x15, 10, 0xfe2ce6e0);
    MD5_I(c, d, a, b, x6, 15, 0xa3014314);
    MD5_I(b, c, d, a, x13, 21, 0x4e0811a1);
    MD5_I(a, b, c, d, x4, 6, 0xf7537e82);
    MD5_I(d, a, b, c, x11, 10, 0xbd3af235);
    MD5_I(c, d, a, b, x2, 15, 0x2ad7d2bb);
    MD5_I(b, c, d, a, x9, 21, 0xeb86d391);

    sa += a;
    sb += b;
    sc += c;
    sd += d;
  }
  state[0] = sa;
  state[1] = sb;
  state[2] = sc;
  state[3] = sd;
}

#undef MD5_F
#undef MD5_G
#undef MD5_H
#undef MD5_I

}  // namespace

CMD5Checksum::CMD5Checksum() : m_block{}, m_nCountLow(0), m_nCountHigh(0) {
  m_state[0] = 0x67452301;
  m_state[1] = 0xefcdab89;
  m_state[2] = 0x98badcfe;
  m_state[3] = 0x10325476;
}

void CMD5Checksum::CompressBlock(const unsigned char* block) { CompressBlocks(m_state, block, 1); }

void CMD5Checksum::AddBytes(const unsigned char* data, uint32_t length) {
  if (data == nullptr) return;  // nothing to read: as if the length were 0
  uint32_t index = (m_nCountLow >> 3) & 63;
  const uint32_t oldLow = m_nCountLow;
  m_nCountLow += length << 3;
  if (m_nCountLow < oldLow) ++m_nCountHigh;
  m_nCountHigh += length >> 29;

  const uint32_t part = 64 - index;
  uint32_t i = 0;
  if (length >= part) {
    std::memcpy(m_block + index, data, part);
    CompressBlock(m_block);
    // The whole blocks that follow are compressed where the caller keeps them.
    const uint32_t blocks = (length - part) / 64;
    CompressBlocks(m_state, data + part, blocks);
    i = part + blocks * 64;
    index = 0;
  }
  if (length > i) std::memcpy(m_block + index, data + i, length - i);
}

const char* CMD5Checksum::FinishHex() {
  // The length of the message proper, taken before the padding changes the count.
  unsigned char bits[8];
  StoreLE32(bits, m_nCountLow);
  StoreLE32(bits + 4, m_nCountHigh);

  const uint32_t index = (m_nCountLow >> 3) & 63;
  const uint32_t padLength = index < 56 ? 56 - index : 120 - index;
  AddBytes(kPadding, padLength);
  AddBytes(bits, 8);

  unsigned char digest[16];
  for (int k = 0; k < 4; ++k) StoreLE32(digest + 4 * k, m_state[k]);

  static const char kDigits[] = "0123456789abcdef";
  std::memset(m_szText, 0, sizeof m_szText);
  for (int k = 0; k < 16; ++k) {
    m_szText[2 * k] = kDigits[digest[k] >> 4];
    m_szText[2 * k + 1] = kDigits[digest[k] & 15];
  }
  return m_szText;
}

bool CheckMemory(const void* p, uint32_t length, bool write) {
  return p != nullptr && deskaid::platform::IsUsableMemory(p, length, write);
}

std::string HashBuffer(const unsigned char* data, uint32_t length) {
  // Only a diagnostic aid: the digest is computed whatever the probe says.
  (void)CheckMemory(data, length, false);
  CMD5Checksum md5;
  md5.AddBytes(data, length);
  return md5.FinishHex();
}

std::optional<std::string> HashFile(const char* path) {
  if (path == nullptr) return std::nullopt;
  CMD5Checksum md5;
  std::FILE* file = std::fopen(path, "rb");
  if (file == nullptr) return std::nullopt;
  unsigned char chunk[1024];
  if (!std::feof(file)) {
    for (;;) {
      const size_t got = std::fread(chunk, 1, sizeof chunk, file);
      if (got == 0) break;
      md5.AddBytes(chunk, static_cast<uint32_t>(got));
      if (std::feof(file)) break;
    }
  }
  std::fclose(file);
  return std::string(md5.FinishHex());
}

const char* HashString(const char* text) {
  static char result[1024];
  std::memset(result, 0, sizeof result);
  if (text == nullptr) text = "";
  const std::string hex = HashBuffer(reinterpret_cast<const unsigned char*>(text),
                                     static_cast<uint32_t>(std::strlen(text)));
  std::memcpy(result, hex.c_str(), hex.size() + 1);
  return result;
}
