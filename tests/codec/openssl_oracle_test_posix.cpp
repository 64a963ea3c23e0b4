// MD5 and Base64 against OpenSSL over random data: every length up to 200 bytes, then longer ones
// up to past the size from which the Base64 coder streams its results.
#include <deskaid/codec/base64.h>
#include <deskaid/codec/internal/base64_vector.h>
#include <deskaid/codec/md5.h>

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

std::string Str(const void* p, size_t n) {
  return p ? std::string(static_cast<const char*>(p), n) : "";
}

template <typename Check>
void ForRandomData(Check check) {
  std::mt19937 rng(4648);
  for (uint32_t round = 0; round < 300 && !::testing::Test::HasFatalFailure(); ++round) {
    Bytes data(round <= 200 ? round : round == 201 ? (3u << 19) + 1 : rng() % 70000);
    for (auto& b : data) b = static_cast<unsigned char>(rng());
    check(data);
  }
}

TEST(Md5AgainstOpenSsl, RandomData) {
  ForRandomData([](const Bytes& d) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(d.data(), d.size(), digest, &size, EVP_md5(), nullptr);
    std::string hex;
    for (unsigned int i = 0; i < 2 * size; ++i)
      hex += "0123456789abcdef"[digest[i / 2] >> (i % 2 ? 0 : 4) & 15];
    ASSERT_EQ(HashBuffer(d.data(), uint32_t(d.size())), hex) << "length " << d.size();
  });
}

// The coder is reused across inputs, as callers do, on every kernel set the processor offers.
// OpenSSL keeps the padding's zero bytes too, so whole groups compare byte for byte.
TEST(Base64AgainstOpenSsl, RandomDataOnEveryKernelSet) {
  using deskaid::base64::Path;
  for (Path path : {Path::kScalar, Path::kSsse3, Path::kAvx2}) {
    if (!deskaid::base64::UsePath(path)) continue;
    SCOPED_TRACE(static_cast<int>(path));
    Base64Coder coder;
    ForRandomData([&](const Bytes& d) {
      Bytes text(4 * (d.size() / 3 + 1) + 1), back(d.size() + 3);
      const int length = EVP_EncodeBlock(text.data(), d.data(), int(d.size()));
      coder.Encode(d.data(), uint32_t(d.size()));
      ASSERT_EQ(Str(coder.GetText(), coder.GetTextLength()), Str(text.data(), length)) << d.size();
      coder.Decode(reinterpret_cast<const char*>(text.data()), uint32_t(length));
      const int size = EVP_DecodeBlock(back.data(), text.data(), length);
      ASSERT_EQ(Str(coder.GetData(), coder.GetDataLength()), Str(back.data(), size)) << d.size();
    });
  }
  deskaid::base64::UsePath(deskaid::base64::FastestPath());
}

}  // namespace
