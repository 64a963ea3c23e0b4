// MD5 and Base64 against OpenSSL over random data: every length up to 200 bytes, then longer ones
// up to past the size from which the Base64 coder streams its results. Base64 runs on every
// kernel set.
#include <deskaid/codec/base64.h>
#include <deskaid/codec/md5.h>

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "codec/base64_paths.h"

#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

std::string Str(const unsigned char* p, size_t n) { return std::string(reinterpret_cast<const char*>(p), n); }

std::string OpenSslText(const Bytes& data) {
  Bytes text(4 * (data.size() / 3 + 1) + 1);
  return Str(text.data(), EVP_EncodeBlock(text.data(), data.data(), int(data.size())));
}

// One codec function of ours beside OpenSSL's. The coder is reused across inputs, as callers do.
struct Codec {
  const char* name;
  std::string (*ours)(Base64Coder& coder, const Bytes& data, std::mt19937& rng);
  std::string (*openssl)(const Bytes& data);
};

const Codec kCodecs[] = {
    {"Md5",
     [](Base64Coder&, const Bytes& d, std::mt19937&) { return HashBuffer(d.data(), uint32_t(d.size())); },
     [](const Bytes& d) {
       unsigned char digest[EVP_MAX_MD_SIZE];
       unsigned int size = 0;
       EVP_Digest(d.data(), d.size(), digest, &size, EVP_md5(), nullptr);
       std::string hex;
       for (unsigned int i = 0; i < size; ++i) {
         hex += "0123456789abcdef"[digest[i] >> 4];
         hex += "0123456789abcdef"[digest[i] & 15];
       }
       return hex;
     }},
    {"Md5InPieces",
     [](Base64Coder&, const Bytes& d, std::mt19937& rng) {
       CMD5Checksum md5;
       for (size_t at = 0, n = 0; at < d.size(); at += n) {
         n = std::min<size_t>(d.size() - at, rng() % 3 ? rng() % 80 : rng() % 5000);
         md5.AddBytes(d.data() + at, uint32_t(n));
       }
       return std::string(md5.FinishHex());
     },
     nullptr},
    {"Base64Encode",
     [](Base64Coder& c, const Bytes& d, std::mt19937&) {
       c.Encode(d.data(), uint32_t(d.size()));
       return c.GetText() ? std::string(c.GetText(), c.GetTextLength()) : std::string();
     },
     OpenSslText},
    // OpenSSL keeps the padding's zero bytes too, so whole groups compare byte for byte.
    {"Base64Decode",
     [](Base64Coder& c, const Bytes& d, std::mt19937&) {
       const std::string text = OpenSslText(d);
       c.Decode(text.data(), uint32_t(text.size()));
       return c.GetData() ? Str(c.GetData(), c.GetDataLength()) : std::string();
     },
     [](const Bytes& d) {
       const std::string text = OpenSslText(d);
       Bytes bytes(text.size() / 4 * 3 + 1);
       const int n = EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                     int(text.size()));
       return Str(bytes.data(), n);
     }},
};

class AgainstOpenSsl : public ::testing::TestWithParam<std::tuple<deskaid::base64::Path, const Codec*>> {
 protected:
  void SetUp() override {
    if (!deskaid::base64::Supports(std::get<0>(GetParam()))) GTEST_SKIP() << "not offered";
    ASSERT_TRUE(deskaid::base64::UsePath(std::get<0>(GetParam())));
  }
  void TearDown() override { deskaid::base64::UsePath(deskaid::base64::FastestPath()); }
};

TEST_P(AgainstOpenSsl, RandomData) {
  const Codec& codec = *std::get<1>(GetParam());
  std::mt19937 rng(4648);
  Base64Coder coder;
  for (uint32_t round = 0; round < 300; ++round) {
    const size_t length = round <= 200 ? round : round == 201 ? (3u << 19) + 1 : rng() % 70000;
    Bytes data(length);
    for (auto& b : data) b = static_cast<unsigned char>(rng());
    const std::string want = (codec.openssl ? codec.openssl : kCodecs[0].openssl)(data);
    ASSERT_EQ(codec.ours(coder, data, rng), want) << "length " << length;
  }
}

std::string Name(const ::testing::TestParamInfo<AgainstOpenSsl::ParamType>& info) {
  return std::get<1>(info.param)->name + Base64PathName({std::get<0>(info.param), info.index});
}

INSTANTIATE_TEST_SUITE_P(Md5, AgainstOpenSsl,
                         ::testing::Combine(::testing::Values(deskaid::base64::Path::kScalar),
                                            ::testing::Values(&kCodecs[0], &kCodecs[1])),
                         Name);
INSTANTIATE_TEST_SUITE_P(Base64, AgainstOpenSsl,
                         ::testing::Combine(::testing::Values(deskaid::base64::Path::kScalar,
                                                              deskaid::base64::Path::kSsse3,
                                                              deskaid::base64::Path::kAvx2),
                                            ::testing::Values(&kCodecs[2], &kCodecs[3])),
                         Name);

}  // namespace
