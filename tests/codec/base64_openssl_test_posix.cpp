// Base64 against OpenSSL's block coder, on every kernel set: encoding of random data, decoding of
// valid text.
#include <deskaid/codec/base64.h>

#include "codec/base64_paths.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using Base64AgainstOpenSsl = Base64PathTest;

TEST_P(Base64AgainstOpenSsl, RandomDataBothWays) {
  std::mt19937 rng(4648);
  Base64Coder plain;  // reused, as callers do
  for (int round = 0; round < 500; ++round) {
    const size_t length = round == 0 ? (3u << 19) + 1 : round < 250 ? rng() % 100 : rng() % 20000;
    std::vector<unsigned char> data(length);
    for (auto& b : data) b = static_cast<unsigned char>(rng());

    std::vector<unsigned char> text(4 * (length / 3 + 1) + 1);
    const int textLength = EVP_EncodeBlock(text.data(), data.data(), int(length));
    const std::string expectedText(reinterpret_cast<char*>(text.data()), textLength);

    plain.Encode(data.data(), uint32_t(length));
    ASSERT_EQ(std::string(plain.GetText() ? plain.GetText() : "", plain.GetTextLength()),
              expectedText);

    // OpenSSL keeps the padding's zero bytes too, so whole groups compare byte for byte.
    std::vector<unsigned char> bytes(textLength / 4 * 3 + 1);
    const int byteCount = EVP_DecodeBlock(bytes.data(), text.data(), textLength);
    plain.Decode(expectedText.data(), uint32_t(textLength));
    ASSERT_EQ(int(plain.GetDataLength()), byteCount);
    if (byteCount > 0) {
      ASSERT_EQ(std::memcmp(plain.GetData(), bytes.data(), byteCount), 0);
    }
  }
}

DESKAID_EVERY_BASE64_PATH(Base64AgainstOpenSsl);

}  // namespace
