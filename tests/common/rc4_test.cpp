#include <deskaid/common/rc4.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string Hex(const std::vector<uint8_t>& bytes, size_t from, size_t count) {
  std::string s;
  for (size_t i = from; i < from + count; ++i)
    s += {"0123456789abcdef"[bytes[i] >> 4], "0123456789abcdef"[bytes[i] & 15]};
  return s;
}

// Published keystream vectors: keys 01 02 03 ... of 40 and 128 bits far on, another from its start.
TEST(Rc4Cipher, PublishedKeystreamVectorsAcrossCallsAndBack) {
  const struct {
    std::vector<uint8_t> key;
    size_t offset;
    const char* hex;
  } vectors[] = {
      {{1, 2, 3, 4, 5}, 4080, "068326a2118416d21f9d04b2cd1ca050"},
      {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16},
       4080,
       "ff38265c1642c1abe8d3c2fe5e572bf8"},
      {{0x83, 0x32, 0x22, 0x77, 0x2a}, 0, "80ad97bdc973df8a2e879e92a497efda"},
  };
  for (const auto& v : vectors) {
    // In two calls, the keystream going on from the first; run again from the key, it cancels out.
    std::vector<uint8_t> stream(v.offset + 16, 0);
    Rc4Cipher cipher(v.key.data(), v.key.size());
    cipher.Apply(stream.data(), 5);
    cipher.Apply(stream.data() + 5, stream.size() - 5);
    EXPECT_EQ(Hex(stream, v.offset, 16), v.hex) << v.key.size() << " bytes, offset " << v.offset;
    Rc4Cipher::Transform(v.key.data(), v.key.size(), stream.data(), stream.size());
    EXPECT_EQ(stream, std::vector<uint8_t>(v.offset + 16, 0));
  }
}

}  // namespace
