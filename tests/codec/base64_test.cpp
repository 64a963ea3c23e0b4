#include <deskaid/codec/base64.h>

#include <gtest/gtest.h>

#include "codec/base64_paths.h"

#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

std::string Encoded(const std::string& bytes) {
  Base64Coder coder;
  coder.Encode(reinterpret_cast<const unsigned char*>(bytes.data()), uint32_t(bytes.size()));
  EXPECT_EQ(coder.GetTextLength() % 4, 0u);
  return coder.GetText() ? std::string(coder.GetText(), coder.GetTextLength()) : std::string();
}

// The decoded bytes, as many as the data length says.
std::string Decoded(const std::string& text) {
  Base64Coder coder;
  coder.Decode(text.data(), uint32_t(text.size()));
  return std::string(reinterpret_cast<const char*>(coder.GetData()), coder.GetDataLength());
}

// Derives without replacing anything, so it runs every step through the virtual table.
struct StepwiseCoder : Base64Coder {
  uint32_t TextCapacity() const { return m_nTextCapacity; }
  uint32_t DataCapacity() const { return m_nDataCapacity; }
};

TEST(Base64Encode, Rfc4648Vectors) {
  const char* const cases[][2] = {{"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},
                                  {"foo", "Zm9v"},  {"foob", "Zm9vYg=="},  {"fooba", "Zm9vYmE="},
                                  {"foobar", "Zm9vYmFy"}};
  for (const auto& c : cases) EXPECT_EQ(Encoded(c[0]), c[1]);
  EXPECT_EQ(Encoded(std::string("\0\xff\xfe", 3)), "AP/+");
}

TEST(Base64Encode, LongInputIsOneTerminatedLine) {
  Base64Coder coder;
  const std::string data(10000, '\n');
  coder.EncodeString(data.c_str());
  EXPECT_EQ(coder.GetTextLength(), 13336u);
  EXPECT_EQ(std::strlen(coder.GetText()), 13336u);
  EXPECT_EQ(std::string(coder.GetText(), 13332).find_first_not_of("CgoK"), std::string::npos);
  EXPECT_STREQ(coder.GetText() + 13332, "Cg==");
  EXPECT_EQ(coder.GetDataLength(), 10000u);
  EXPECT_EQ(std::memcmp(coder.GetData(), data.data(), data.size()), 0);
}

TEST(Base64Encode, EmptyInputAllocatesNothingOrClears) {
  Base64Coder fresh, used;
  fresh.EncodeString("");
  EXPECT_EQ(fresh.GetText(), nullptr);
  EXPECT_EQ(fresh.GetTextLength(), 0u);
  used.EncodeString("foobar");
  used.EncodeString("");
  EXPECT_EQ(used.GetTextLength(), 0u);
  EXPECT_EQ(std::string(used.GetText(), 8), std::string(8, '\0'));
}

// White space is skipped anywhere; the final group counts as callers have always seen it; foreign
// characters decode without complaint.
TEST(Base64Decode, SkipsWhiteSpaceAndKeepsItsQuirks) {
  const std::pair<std::string, std::string> cases[] = {
      {"Zm9v", "foo"},
      {" Z\tm\r\n9\x0b\x0c v\x07\x08", "foo"},
      {"Zg==", std::string("f\0\0", 3)},  // padding still counts three bytes
      {"Zm8=", std::string("fo\0", 3)},
      {"Zg", std::string("f\0", 2)},  // an unpadded tail counts characters
      {"Zm8", std::string("fo\0", 3)},
      {"Zm9vZg", std::string("foof\0", 5)},
      {"Z", "d"},  // even a lone character makes a byte
      {"Zg=\n", std::string("f\0\0", 3)},
      {"\xDAm9v", "foo"},  // "Z" with the high bit set
      {"Zm9\xF6", "foo"},
      {"Zm8\xBD", std::string("fo\0", 3)},  // "=" with the high bit set
      {"Zm9*", "fo~"},  // "*" is not skipped: the value 254, whose low six bits end the group
      {"=AAA", std::string("\xFC\0\0", 3)},  // "=" in front is the value 255, not padding
  };
  for (const auto& c : cases) EXPECT_EQ(Decoded(c.first), c.second) << c.first;
  EXPECT_EQ(Decoded("Zm*v").size(), 3u);
  EXPECT_EQ(Decoded(std::string("Zm\0v", 4)).size(), 3u);  // NUL is not white space
  Base64Coder coder;
  coder.DecodeString("Zm9v\r\nYmFy\r\n");
  EXPECT_STREQ(coder.GetText(), "Zm9vYmFy");  // the text buffer keeps the filtered input
  EXPECT_EQ(coder.GetDataLength(), 6u);
}

TEST(Base64Coder, NullStringsChangeNothing) {
  Base64Coder coder;
  coder.EncodeString("foo");
  coder.EncodeString(nullptr);
  coder.DecodeString(nullptr);
  EXPECT_STREQ(coder.GetText(), "Zm9v");
  EXPECT_EQ(coder.GetTextLength(), 4u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(coder.GetData()), coder.GetDataLength()), "foo");
}

TEST(Base64Coder, BuffersGrowInPagesNeverShrinkAndAreClearedBehindTheData) {
  StepwiseCoder coder;
  coder.PrepareText(4096);
  EXPECT_EQ(coder.TextCapacity(), 8192u);
  char* text = coder.GetText();
  coder.PrepareText(1);
  EXPECT_EQ(coder.TextCapacity(), 8192u);
  EXPECT_EQ(coder.GetText(), text);
  coder.PrepareData(0);
  EXPECT_EQ(coder.GetData(), nullptr);

  Base64Coder plain;
  plain.Encode(std::vector<unsigned char>(6000, 0xAB).data(), 6000);  // text room 12288
  unsigned char* data = plain.GetData();
  text = plain.GetText();
  plain.DecodeString("Zm9v\nZm9v");  // now the data buffer holds the decoding
  plain.EncodeString("abc");
  EXPECT_EQ(plain.GetData(), data);
  EXPECT_EQ(plain.GetText(), text);
  EXPECT_EQ(std::string(plain.GetText(), 4), "YWJj");
  EXPECT_EQ(std::string(plain.GetText() + 4, 12284), std::string(12284, '\0'));
  EXPECT_EQ(std::string(reinterpret_cast<char*>(data) + 3, 8189), std::string(8189, '\0'));
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
  EXPECT_EQ(std::string(reinterpret_cast<char*>(coder.GetData()), 6), "foobar");
  EXPECT_STREQ(coder.GetText(), "Zm9vYmFy");
  const unsigned char bytes[] = {0xFB, 0xFF, 0xBF};
  coder.Encode(bytes, 3);
  EXPECT_STREQ(coder.GetText(), "-_-_");
  EXPECT_EQ(Encoded(std::string(reinterpret_cast<const char*>(bytes), 3)), "+/+/");
}

// The plain coder's direct route, on each kernel set, against the step-by-step one over random
// input, reusing both objects (and feeding them their own buffers) so that growth and clearing
// are compared too.
using Base64DirectPath = Base64PathTest;

TEST_P(Base64DirectPath, AgreesWithTheStepsOnAnyInput) {
  std::mt19937 rng(1234);
  Base64Coder plain;
  StepwiseCoder stepwise;
  const char kMix[] = "ABCZaz09+/=*\xDA\xBD \t\r\n\x07\x0e\x1f\x80\xff";
  for (int round = 0; round < 400; ++round) {
    const uint32_t length = round % 50 == 7 ? (1u << 20) + rng() % 9000
                            : rng() % 3 == 0 ? rng() % 9000
                                             : rng() % 40;
    std::string input(length, '\0');
    // Random bytes, specials only, clean text with odd specials, or mail lines of 76 + CR LF.
    const int kind = rng() % 4;
    for (char& c : input) {
      c = kind == 0   ? char(rng())
          : kind == 1 ? kMix[rng() % (sizeof kMix - 1)]
          : rng() % 200 ? "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"[rng() % 64]
                        : kMix[rng() % (sizeof kMix - 1)];
    }
    for (uint32_t at = 76; kind == 3 && at + 1 < length; at += 78) input.replace(at, 2, "\r\n");
    const int op = rng() % 5;
    auto apply = [&](Base64Coder& c) {
      if (op == 0) c.Encode(reinterpret_cast<const unsigned char*>(input.data()), length);
      if (op == 1 || op == 2) c.Decode(input.data(), length);
      if (op == 3) c.Decode(c.GetText(), c.GetTextLength() + rng() % 2);
      if (op == 4) c.Encode(c.GetData(), c.GetDataLength());
    };
    const std::mt19937 saved = rng;
    apply(plain);
    rng = saved;
    apply(stepwise);
    ASSERT_EQ(plain.GetDataLength(), stepwise.GetDataLength()) << round;
    ASSERT_EQ(plain.GetTextLength(), stepwise.GetTextLength()) << round;
    ASSERT_EQ(plain.GetData() == nullptr, stepwise.GetData() == nullptr);
    ASSERT_EQ(plain.GetText() == nullptr, stepwise.GetText() == nullptr);
    if (plain.GetData()) {
      ASSERT_EQ(std::memcmp(plain.GetData(), stepwise.GetData(), stepwise.DataCapacity()), 0)
          << round;
    }
    if (plain.GetText()) {
      ASSERT_EQ(std::memcmp(plain.GetText(), stepwise.GetText(), stepwise.TextCapacity()), 0)
          << round;
    }
  }
}

// Each kernel set against the scalar one where the kernels stop and hand over: every length up to
// a few vector blocks, clean text with one odd character at each position in turn.
TEST_P(Base64DirectPath, AgreesWithTheScalarSetAtEveryBlockEdge) {
  const deskaid::base64::Path path = GetParam();
  std::mt19937 rng(77);
  Base64Coder scalar, vector;
  auto same = [&](const char* what, uint32_t length) {
    ASSERT_EQ(vector.GetDataLength(), scalar.GetDataLength()) << what << " " << length;
    ASSERT_EQ(vector.GetTextLength(), scalar.GetTextLength()) << what << " " << length;
    ASSERT_EQ(std::memcmp(vector.GetData(), scalar.GetData(), scalar.GetDataLength() + 1), 0)
        << what << " " << length;
    ASSERT_EQ(std::memcmp(vector.GetText(), scalar.GetText(), scalar.GetTextLength() + 1), 0)
        << what << " " << length;
  };
  // Padding, foreign characters, high-bit twins, and either side of every skipped range.
  const char kOdd[] = {'=', '*', '\xDA', '\xBD', '\x80', ' ', '!', '\x1f', '\x06',
                       '\x07', '\n', '\x0d', '\x0e', '\0', '/', '+'};
  for (uint32_t length = 1; length <= 100; ++length) {
    std::string bytes(length, '\0');
    for (char& c : bytes) c = char(rng());
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    deskaid::base64::UsePath(deskaid::base64::Path::kScalar);
    scalar.Encode(data, length);
    deskaid::base64::UsePath(path);
    vector.Encode(data, length);
    ASSERT_NO_FATAL_FAILURE(same("encode", length));

    std::string text(length, 'A');
    const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (char& c : text) c = kAlphabet[rng() % 64];
    for (uint32_t at = 0; at <= length; ++at) {
      for (char odd : kOdd) {
        std::string input = text;
        if (at < length) input[at] = odd;
        deskaid::base64::UsePath(deskaid::base64::Path::kScalar);
        scalar.Decode(input.data(), length);
        deskaid::base64::UsePath(path);
        vector.Decode(input.data(), length);
        ASSERT_NO_FATAL_FAILURE(same("decode", length));
        if (at == length) break;
      }
    }
  }
}

DESKAID_EVERY_BASE64_PATH(Base64DirectPath);

#if defined(__GNUC__) && (defined(__i386__) || defined(__x86_64__))
// The coder's own reading of cpuid against the compiler runtime's.
TEST(Base64Dispatch, OffersWhatTheProcessorHas) {
  __builtin_cpu_init();
  EXPECT_TRUE(deskaid::base64::Supports(deskaid::base64::Path::kScalar));
  EXPECT_EQ(deskaid::base64::Supports(deskaid::base64::Path::kSsse3),
            __builtin_cpu_supports("ssse3") != 0);
  EXPECT_EQ(deskaid::base64::Supports(deskaid::base64::Path::kAvx2),
            __builtin_cpu_supports("avx2") != 0);
}
#endif

}  // namespace
