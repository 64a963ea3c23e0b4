#include <deskaid/common/rc4.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

std::vector<uint8_t> Keystream(const std::vector<uint8_t>& key, size_t length) {
  std::vector<uint8_t> out(length, 0);
  Rc4Cipher cipher(key.data(), key.size());
  cipher.Apply(out.data(), out.size());
  return out;
}

std::string Hex(const uint8_t* p, size_t n) {
  static const char* digits = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < n; ++i) {
    s += digits[p[i] >> 4];
    s += digits[p[i] & 15];
  }
  return s;
}

// Keystream test vectors for 40-bit, 56-bit, 64-bit and 128-bit keys (offsets 0, 16, 240, 4080).
struct Vector {
  std::vector<uint8_t> key;
  size_t offset;
  const char* hex;
};

TEST(Rc4Cipher, PublishedKeystreamVectors) {
  const std::vector<uint8_t> k40 = {0x01, 0x02, 0x03, 0x04, 0x05};
  const std::vector<uint8_t> k56 = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07};
  const std::vector<uint8_t> k64 = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
  const std::vector<uint8_t> k128 = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,
                                     0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x0f, 0x10};
  const std::vector<uint8_t> kOther = {0x83, 0x32, 0x22, 0x77, 0x2a};
  const Vector vectors[] = {
      {k40, 0, "b2396305f03dc027ccc3524a0a1118a8"},
      {k40, 16, "6982944f18fc82d589c403a47a0d0919"},
      {k40, 240, "28cb1132c96ce286421dcaadb8b69eae"},
      {k40, 4080, "068326a2118416d21f9d04b2cd1ca050"},
      {k56, 0, "293f02d47f37c9b633f2af5285feb46b"},
      {k64, 0, "97ab8a1bf0afb96132f2f67258da15a8"},
      {k128, 0, "9ac7cc9a609d1ef7b2932899cde41b97"},
      {k128, 4080, "ff38265c1642c1abe8d3c2fe5e572bf8"},
      {kOther, 0, "80ad97bdc973df8a2e879e92a497efda"},
  };
  for (const Vector& v : vectors) {
    std::vector<uint8_t> stream = Keystream(v.key, v.offset + 16);
    EXPECT_EQ(Hex(stream.data() + v.offset, 16), v.hex) << "offset " << v.offset;
  }
}

TEST(Rc4Cipher, IsItsOwnInverseAndStreamsAcrossCalls) {
  const uint8_t key[4] = {0x78, 0x56, 0x34, 0x12};
  std::string text = "open [0040121A] failed: the quick brown fox";
  std::vector<uint8_t> data(text.begin(), text.end());

  std::vector<uint8_t> whole = data;
  Rc4Cipher::Transform(key, 4, whole.data(), whole.size());
  EXPECT_NE(std::memcmp(whole.data(), data.data(), data.size()), 0);

  // The same keystream continues from one call to the next.
  std::vector<uint8_t> pieces = data;
  Rc4Cipher cipher(key, 4);
  cipher.Apply(pieces.data(), 5);
  cipher.Apply(pieces.data() + 5, pieces.size() - 5);
  EXPECT_EQ(pieces, whole);

  Rc4Cipher::Transform(key, 4, whole.data(), whole.size());
  EXPECT_EQ(whole, data);
}

}  // namespace
