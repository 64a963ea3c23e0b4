// CBigInt's text forms: the parsers with their prefixes and quirks, and the output rules.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <deskaid/math/bigint.h>

namespace {

CBigInt Parsed(const char* text, int radix) {
  CBigInt x(99);
  x.Parse(text, radix);
  return x;
}

std::string Dec(CBigInt x) { return x.GetString(10); }

TEST(BigIntText, ZeroMinusOneAndRadixForms) {
  CBigInt zero, m1(-1);
  EXPECT_STREQ(zero.GetString(), "");
  EXPECT_STREQ(m1.GetString(10), "-1");
  EXPECT_STREQ(m1.GetString(16), "FFFFFFFF");
  EXPECT_EQ(std::string(m1.GetString(2)), std::string(32, '1'));
  EXPECT_STREQ(CBigInt(255).GetString(36), "73");
  EXPECT_STREQ(CBigInt(35).GetString(36), "Z");
  EXPECT_STREQ(CBigInt(-255).GetString(8), "37777777401");
  EXPECT_STREQ(CBigInt(100).GetString(10), "100");
  EXPECT_STREQ(CBigInt(1000000000).GetString(10), "1000000000");
  EXPECT_STREQ(CBigInt(12).GetString(1), "");
  CBigInt null(static_cast<const uint32_t*>(nullptr), 0);
  EXPECT_STREQ(null.GetString(), "Null");
  EXPECT_STREQ(null.GetString(16), "Null");
}

TEST(BigIntText, FormatTextKeepsTheLowDigits) {
  char buffer[16];
  CBigInt(12345).FormatText(buffer, 4, 10);
  EXPECT_STREQ(buffer, "345");
  CBigInt(-12345).FormatText(buffer, 7, 10);
  EXPECT_STREQ(buffer, "-12345");
  CBigInt(-12345).FormatText(buffer, 6, 10);
  EXPECT_STREQ(buffer, "12345");
  std::memset(buffer, 'x', sizeof buffer);
  CBigInt null(static_cast<const uint32_t*>(nullptr), 0);
  null.FormatText(buffer, 4, 10);  // "Null" needs five bytes: nothing is written
  EXPECT_EQ(buffer[0], 'x');
  null.FormatText(buffer, 5, 10);
  EXPECT_STREQ(buffer, "Null");
  CBigInt(7).FormatText(buffer, 0, 10);  // no room at all: nothing happens
  EXPECT_STREQ(buffer, "Null");
}

TEST(BigIntText, GetStringBelongsToTheObject) {
  CBigInt a(42);
  EXPECT_STREQ(a.GetString(), "42");
  CBigInt copy(a);
  EXPECT_STREQ(copy.GetString(16), "2A");
  EXPECT_STREQ(a.GetString(2), "101010");
}

TEST(BigIntParse, PrefixesBlanksAndSigns) {
  EXPECT_EQ(Dec(Parsed("  ff", 16)), "255");
  EXPECT_EQ(Dec(CBigInt("0xff")), "255");
  EXPECT_EQ(Dec(CBigInt("0XFF")), "255");
  EXPECT_EQ(Dec(CBigInt("0b101")), "5");
  EXPECT_EQ(Dec(CBigInt("017")), "15");
  EXPECT_EQ(Dec(CBigInt("0")), "");
  EXPECT_EQ(Dec(CBigInt("")), "");
  EXPECT_EQ(Dec(CBigInt(" 12")), "12");
  EXPECT_EQ(Dec(CBigInt(" 0x12")), "");  // blanks before a prefix are not skipped
  EXPECT_EQ(Dec(CBigInt("\t12abc")), "12");
  for (int radix : {2, 8, 10, 16, 36}) EXPECT_EQ(Dec(Parsed("-12", radix)), "") << radix;
  EXPECT_EQ(Dec(Parsed("zz", 36)), "1295");
  EXPECT_EQ(Dec(Parsed("ZZ", 36)), "1295");
  EXPECT_EQ(Dec(Parsed("12", 37)), "");
  EXPECT_EQ(Dec(Parsed("19", 9)), "1");
  EXPECT_EQ(Dec(Parsed("777", 8)), "511");
  EXPECT_EQ(Dec(Parsed("1012", 2)), "5");
  EXPECT_EQ(Dec(Parsed("xyz", 10)), "");
  EXPECT_EQ(Dec(Parsed("12", 1)), "");
}

TEST(BigIntParse, WordCountsOfTheDirectParsers) {
  CBigInt hex("0x0000000000000001");  // fifteen 0 digits and a 1: two words kept
  EXPECT_EQ(hex.m_nLength, 2);
  EXPECT_EQ(Dec(hex), "1");
  EXPECT_EQ(CBigInt("0xFFFFFFFF").m_nLength, 2);
  EXPECT_EQ(Parsed("00000000000000000001", 8).m_nLength, 1);
  EXPECT_EQ(Parsed("0000000000000000000000000000000000000000001", 2).m_nLength, 1);
  EXPECT_STREQ(Parsed("11111111111111111111111111111111", 2).GetString(16), "FFFFFFFF");
  EXPECT_EQ(Parsed("11111111111111111111111111111111", 2).m_nLength, 2);
}

TEST(BigIntParse, DecimalMinusSignQuirk) {
  EXPECT_EQ(Dec(CBigInt("3000000000")), "3000000000");
  // Ten digits and a minus sign right behind them: the top-bit word is not extended.
  EXPECT_EQ(Dec(CBigInt("3000000000-")), "-1294967296");
  EXPECT_EQ(Dec(CBigInt("3000000000 -")), "3000000000");
  EXPECT_EQ(Dec(CBigInt("300000000-")), "300000000");
  EXPECT_EQ(Dec(CBigInt("30000000000-")), "30000000000");
  EXPECT_EQ(Dec(CBigInt("4294967295")), "4294967295");
  EXPECT_EQ(Dec(CBigInt("18446744073709551616")), "18446744073709551616");
}

}  // namespace
