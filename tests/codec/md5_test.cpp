#include <deskaid/codec/md5.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "support/scratch_dir.h"

namespace {

std::vector<unsigned char> Pattern(size_t n) {
  std::vector<unsigned char> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 7 + 3);
  return v;
}

// RFC 1321's vectors of one block (and digest bytes 0x00 and below 0x10 keeping both their
// digits), and of one whose padding needs a second block (62 bytes). OpenSSL checks the others.
TEST(Md5, Rfc1321Vectors) {
  const char* const cases[][2] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
  };
  for (const auto& c : cases) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(c[0]);
    EXPECT_EQ(HashBuffer(bytes, uint32_t(std::strlen(c[0]))), c[1]) << '"' << c[0] << '"';
    EXPECT_STREQ(HashString(c[0]), c[1]);
  }
}

TEST(Md5, PiecesOfAnySizeGiveTheDigestOfTheWhole) {
  const std::vector<unsigned char> data = Pattern(3000);
  const std::string whole = HashBuffer(data.data(), 3000);
  // Repeating piece sizes; in {5, 200} a piece completes a waiting block and carries whole ones.
  for (const std::vector<uint32_t>& schedule :
       std::vector<std::vector<uint32_t>>{{1}, {63}, {64}, {65}, {5, 200}, {0, 7, 0, 129}}) {
    CMD5Checksum md5;
    for (size_t at = 0, k = 0; at < data.size(); at += schedule[k++ % schedule.size()]) {
      const size_t n = std::min<size_t>(schedule[k % schedule.size()], data.size() - at);
      md5.AddBytes(data.data() + at, uint32_t(n));
    }
    EXPECT_EQ(md5.FinishHex(), whole) << "first piece " << schedule[0];
  }
}

// Finishing leaves the padding in the state: a second finish digests message, padding and length.
TEST(Md5, SecondFinishDigestsThePaddedMessage) {
  CMD5Checksum md5;
  md5.AddBytes(reinterpret_cast<const unsigned char*>("abc"), 3);
  EXPECT_STREQ(md5.FinishHex(), "900150983cd24fb0d6963f7d28e17f72");
  std::vector<unsigned char> padded = {'a', 'b', 'c', 0x80};
  padded.resize(56, 0);
  padded.insert(padded.end(), {24, 0, 0, 0, 0, 0, 0, 0});  // the length in bits
  EXPECT_EQ(md5.FinishHex(), HashBuffer(padded.data(), uint32_t(padded.size())));
}

TEST(Md5, HashStringSharesOneBufferAndIgnoresTheTerminator) {
  EXPECT_EQ(HashString("a"), HashString("abc"));
  EXPECT_EQ(HashBuffer(nullptr, 5), HashBuffer(nullptr, 0));  // nothing to read
  EXPECT_EQ(HashString(nullptr), HashBuffer(nullptr, 0));
}

// Files: missing, empty, one read of 1,024 bytes, one byte more, and several reads.
TEST(Md5, HashFileReadsTheWholeFile) {
  ScratchDir dir;
  const std::string path = dir.PathOf("pattern.bin");
  EXPECT_FALSE(HashFile(path.c_str()));
  EXPECT_FALSE(HashFile(nullptr));
  for (size_t n : {0u, 1024u, 1025u, 3000u}) {
    const std::vector<unsigned char> data = Pattern(n);
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data.data()), n);
    EXPECT_EQ(HashFile(path.c_str()), HashBuffer(data.data(), uint32_t(n))) << n;
  }
}

}  // namespace
