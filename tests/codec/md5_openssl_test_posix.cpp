// MD5 against OpenSSL's digest over random data fed in random pieces.
#include <deskaid/codec/md5.h>

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <random>
#include <string>
#include <vector>

namespace {

std::string OpenSslMd5(const std::vector<unsigned char>& data) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_Digest(data.data(), data.size(), digest, &size, EVP_md5(), nullptr);
  static const char* digits = "0123456789abcdef";
  std::string hex;
  for (unsigned int i = 0; i < size; ++i) {
    hex += digits[digest[i] >> 4];
    hex += digits[digest[i] & 15];
  }
  return hex;
}

TEST(Md5AgainstOpenSsl, RandomBuffersInRandomPieces) {
  std::mt19937 rng(20261121);
  for (int round = 0; round < 300; ++round) {
    const size_t length = round < 150 ? rng() % 300 : rng() % 70000;
    std::vector<unsigned char> data(length);
    for (auto& b : data) b = static_cast<unsigned char>(rng());
    const std::string expected = OpenSslMd5(data);
    ASSERT_EQ(HashBuffer(data.data(), uint32_t(length)), expected) << length;

    CMD5Checksum md5;
    for (size_t at = 0; at < length;) {
      const size_t n = std::min<size_t>(length - at, rng() % 3 ? rng() % 80 : rng() % 5000);
      md5.AddBytes(data.data() + at, uint32_t(n));
      at += n;
    }
    ASSERT_EQ(md5.FinishHex(), expected) << length;
  }
}

}  // namespace
