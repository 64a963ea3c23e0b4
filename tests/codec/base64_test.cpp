#include <deskaid/codec/base64.h>
#include <deskaid/codec/internal/base64_vector.h>

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

namespace b64 = deskaid::base64;
const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string Str(const void* p, size_t n) {
  return p ? std::string(static_cast<const char*>(p), n) : "(none)";
}
// The first n bytes of two buffers, either of which may be missing.
bool SameBytes(const void* a, const void* b, size_t n) {
  return a && b ? std::memcmp(a, b, n) == 0 : a == b;
}
std::string Text(Base64Coder& c) { return Str(c.GetText(), c.GetTextLength()); }
std::string Data(Base64Coder& c) { return Str(c.GetData(), c.GetDataLength()); }

// Derives without replacing anything, so it runs every step through the virtual table.
struct StepwiseCoder : Base64Coder {
  uint32_t TextCapacity() const { return m_nTextCapacity; }
  uint32_t DataCapacity() const { return m_nDataCapacity; }
};

// Encoding: the published vectors. Decoding: white space is skipped anywhere,
// the final group counts as callers have always seen it, foreign characters pass silently.
TEST(Base64, VectorsWhiteSpaceAndDecodingQuirks) {
  const char* const vectors[] = {"Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
  for (uint32_t n = 1; n <= 6; ++n) {
    Base64Coder coder;
    coder.Encode(reinterpret_cast<const unsigned char*>("foobar"), n);
    EXPECT_EQ(Text(coder), vectors[n - 1]);
  }
  const std::pair<std::string, std::string> cases[] = {
      {" Z\tm\r\n9\x0b\x0c v\x07\x08", "foo"},
      {"Zg==", std::string("f\0\0", 3)},  // padding still counts three bytes
      {"Zg", std::string("f\0", 2)},      // an unpadded tail counts characters
      {"Zm8", std::string("fo\0", 3)},
      {"Zm9vZg", std::string("foof\0", 5)},
      {"Zg=\n", std::string("f\0\0", 3)},
      {"Z", "d"},  // even a lone character makes a byte
      {"\xDAm9v", "foo"},
      {"Zm8\xBD", std::string("fo\0", 3)},  // "Z", "=" with the high bit
      {"Zm9*", "fo~"},  // "*" is not skipped: the value 254, whose low six bits end the group
      {"=AAA", std::string("\xFC\0\0", 3)},  // "=" in front is the value 255, not padding
      {std::string("Zm\0v", 4), "fo\xAF"},   // NUL is foreign (254), not white space
  };
  for (const auto& [text, data] : cases) {
    Base64Coder coder;
    coder.Decode(text.data(), uint32_t(text.size()));
    EXPECT_EQ(Data(coder), data) << text;
  }
}

// The steps' buffers, which the direct route is held to below.
TEST(Base64Coder, BuffersGrowInPagesNeverShrinkAndAreClearedBehindTheData) {
  StepwiseCoder coder;
  coder.EncodeString("");  // nothing to hold: nothing allocated
  EXPECT_TRUE(coder.GetText() == nullptr && coder.GetData() == nullptr);
  coder.PrepareText(4096);  // and the NUL
  EXPECT_EQ(coder.TextCapacity(), 8192u);
  coder.Encode(std::vector<unsigned char>(6000, 0xAB).data(), 6000);  // text room 12288
  char* text = coder.GetText();
  unsigned char* data = coder.GetData();
  coder.DecodeString("Zm9v\nZm9v");  // now the data buffer holds the decoding
  coder.EncodeString(nullptr);       // a null string changes nothing
  coder.DecodeString(nullptr);
  EXPECT_EQ(Text(coder), "Zm9vZm9v");
  EXPECT_EQ(Data(coder), "foofoo");
  coder.EncodeString("abc");
  EXPECT_TRUE(coder.GetData() == data && coder.GetText() == text);
  EXPECT_EQ(std::string(text + 4, 12284), std::string(12284, '\0'));
  EXPECT_EQ(std::string(reinterpret_cast<char*>(data) + 3, 8189), std::string(8189, '\0'));
  coder.EncodeString("");  // empty text, and a cleared buffer
  EXPECT_EQ(coder.GetTextLength(), 0u);
  EXPECT_EQ(std::string(text, 8), std::string(8, '\0'));
}

// Skips commas too, and encodes with the URL alphabet's two last characters.
struct CustomCoder : Base64Coder {
  bool IsSkipped(char c) override { return c == ',' || Base64Coder::IsSkipped(c); }
  void EncodeGroup(const Base64Group& group, char* out) override {
    Base64Coder::EncodeGroup(group, out);
    for (int k = 0; k < 4; ++k) out[k] = out[k] == '+' ? '-' : out[k] == '/' ? '_' : out[k];
  }
};

TEST(Base64Coder, AReplacedStepIsUsedEverywhere) {
  CustomCoder coder;
  coder.DecodeString("Zm,9v, Ym,Fy");
  EXPECT_EQ(Data(coder), "foobar");
  EXPECT_STREQ(coder.GetText(), "Zm9vYmFy");
  coder.Encode(reinterpret_cast<const unsigned char*>("\xFB\xFF\xBF"), 3);  // "+/+/" in plain
  EXPECT_STREQ(coder.GetText(), "-_-_");
}

std::string PathName(b64::Path path) {
  const char* const names[] = {"Scalar", "Ssse3", "Avx2"};
  return names[static_cast<int>(path)];
}

// Runs once on each kernel set (a set this processor lacks is skipped), then restores the fastest.
class Base64DirectPath : public ::testing::TestWithParam<b64::Path> {
 protected:
  void SetUp() override {
    if (!b64::Supports(GetParam())) GTEST_SKIP() << "not offered by this processor";
    ASSERT_TRUE(b64::UsePath(GetParam()));
  }
  void TearDown() override { b64::UsePath(b64::FastestPath()); }
};
INSTANTIATE_TEST_SUITE_P(Paths, Base64DirectPath,
                         ::testing::Values(b64::Path::kScalar, b64::Path::kSsse3, b64::Path::kAvx2),
                         [](const auto& test) { return PathName(test.param); });

// The direct route, on each kernel set, against the steps, reusing both objects (and feeding them
// their own buffers) so that growth and clearing are compared too. Inputs: every length up to a
// few vector blocks with an odd character at each place, where the kernels hand over (around the
// 16- and 32-character blocks, every byte value: a kernel must take no block the steps would
// read otherwise); then random.
TEST_P(Base64DirectPath, AgreesWithTheStepsOnAnyInput) {
  std::mt19937 rng(1234);
  Base64Coder plain;
  StepwiseCoder stepwise;
  const std::string kOdd("+/=*\xDA\xBD \t\r\n\x07\x0e\x1f\x80\xff\x06!\0", 18);
  const std::string kMix = "ABCZaz09" + kOdd;
  // Operations: encode, decode, decode the own text (at times with its NUL), encode the own data.
  auto compare = [&](const std::string& input, int op) {
    const std::mt19937 saved = rng;
    for (Base64Coder* c : {&plain, static_cast<Base64Coder*>(&stepwise)}) {
      rng = saved;
      const uint32_t length = uint32_t(input.size());
      if (op == 0) c->Encode(reinterpret_cast<const unsigned char*>(input.data()), length);
      if (op == 1) c->Decode(input.data(), length);
      if (op == 2) c->Decode(c->GetText(), c->GetTextLength() + rng() % 2);
      if (op == 3) c->Encode(c->GetData(), c->GetDataLength());
    }
    ASSERT_TRUE(plain.GetDataLength() == stepwise.GetDataLength() &&
                plain.GetTextLength() == stepwise.GetTextLength() &&
                SameBytes(plain.GetData(), stepwise.GetData(), stepwise.DataCapacity()) &&
                SameBytes(plain.GetText(), stepwise.GetText(), stepwise.TextCapacity()))
        << "operation " << op << ", length " << input.size();
  };
  for (uint32_t length = 1; length <= 100; ++length) {
    std::string input(length, '\0');
    for (char& c : input) c = char(rng());
    ASSERT_NO_FATAL_FAILURE(compare(input, 0));
    for (char& c : input) c = kAlphabet[rng() % 64];
    ASSERT_NO_FATAL_FAILURE(compare(input, 1));
    const size_t odd =
        length == 15 || length == 16 || length == 31 || length == 48 ? 256 : kOdd.size();
    for (size_t at = 0; at < length * odd; ++at) {
      std::string one = input;
      one[at / odd] = odd == 256 ? char(at % odd) : kOdd[at % odd];
      ASSERT_NO_FATAL_FAILURE(compare(one, 1));
    }
  }
  for (int round = 0; round < 400; ++round) {
    const uint32_t length = static_cast<uint32_t>(round % 50 == 7  ? (1u << 20) + rng() % 9000
                                                  : rng() % 3 == 0 ? rng() % 9000
                                                                   : rng() % 40);
    // Random bytes, specials only, clean text with odd specials, or mail lines of 76 + CR LF.
    const int kind = rng() % 4;
    std::string input(length, '\0');
    for (char& c : input) {
      c = kind == 0                       ? char(rng())
          : kind == 1 || rng() % 200 == 0 ? kMix[rng() % kMix.size()]
                                          : kAlphabet[rng() % 64];
    }
    for (uint32_t at = 76; kind == 3 && at + 1 < length; at += 78) input.replace(at, 2, "\r\n");
    ASSERT_NO_FATAL_FAILURE(compare(input, "01123"[rng() % 5] - '0'));
  }
}

}  // namespace
