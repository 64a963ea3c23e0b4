// CBigInt's edge behaviour that hosts depend on and exact arithmetic does not give, by operation.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <deskaid/math/bigint.h>

namespace {

using W = std::vector<uint32_t>;

W Words(const CBigInt& x) { return W(x.m_pData, x.m_pData + x.m_nLength); }
CBigInt FromWords(W w) { return CBigInt(w.data(), static_cast<int>(w.size())); }
std::string Dec(CBigInt x) { return x.GetString(10); }
template <typename T>
std::string Dec(T builtIn) {
  return std::to_string(builtIn);
}
CBigInt Parsed(const char* text, int radix) {
  if (radix == 0) return CBigInt(text);
  CBigInt x(99);
  x.Parse(text, radix);
  return x;
}

TEST(BigIntConstruction, WordCountsOfEachFormAndDirectParser) {
  EXPECT_EQ(Words(CBigInt(0x80000000u)), (W{0x80000000u, 0}));
  // The signed 64-bit form keeps 2^31 .. 2^32-1 in one word, which reads as negative.
  EXPECT_EQ(Words(CBigInt(int64_t{0x80000000})), W{0x80000000u});
  EXPECT_EQ(Words(CBigInt(int64_t{-5})), W{0xFFFFFFFBu});
  EXPECT_EQ(Words(CBigInt(int64_t{-0x100000000})), (W{0, 0xFFFFFFFFu}));
  EXPECT_EQ(Words(CBigInt(uint64_t{0xFFFFFFFFFFFFFFFF})), (W{0xFFFFFFFFu, 0xFFFFFFFFu, 0}));
  EXPECT_EQ(Words(CBigInt(uint64_t{7})), W{7});
#if DESKAID_BIGINT_LONG_FORMS
  EXPECT_EQ(Words(CBigInt(5ul)), (W{5, 0}));  // the two-word unsigned form
  EXPECT_EQ(Words(CBigInt(-5l)), W{0xFFFFFFFBu});
#endif
  EXPECT_EQ(static_cast<int64_t>(CBigInt(int64_t{-0x123456789})), -0x123456789);
  EXPECT_EQ(static_cast<int64_t>(CBigInt(-1)), -1);
  EXPECT_EQ(static_cast<uint64_t>(CBigInt(-1)), 0xFFFFFFFFu);  // one word: zero-extended
  // The direct parsers of power-of-two radices; fifteen 0 digits and a 1 keep two words.
  EXPECT_EQ(Words(CBigInt("0x0000000000000001")), (W{1, 0}));
  EXPECT_EQ(CBigInt("0xFFFFFFFF").m_nLength, 2);
  EXPECT_EQ(Parsed("00000000000000000001", 8).m_nLength, 1);
  EXPECT_EQ(Parsed("0000000000000000000000000000000000000000001", 2).m_nLength, 1);
  EXPECT_EQ(Words(Parsed("11111111111111111111111111111111", 2)), (W{0xFFFFFFFFu, 0}));
  // Growing fills the new words as asked, never shrinks, and leaves the old words alone.
  CBigInt grown = FromWords({5, 0x80000000u});
  grown.Resize(3, false);
  grown.Resize(1, true);
  EXPECT_EQ(Words(grown), (W{5, 0x80000000u, 0}));
  grown.Resize(4, true);
  EXPECT_EQ(Words(grown), (W{5, 0x80000000u, 0, 0xFFFFFFFFu}));
}

TEST(BigIntArithmetic, CarriesBorrowsAndSigns) {
  // Sums carry as if the words were unsigned, and keep the carry of the longer operand's words.
  EXPECT_EQ(Dec(CBigInt(-1) + CBigInt(-1)), "8589934590");
  EXPECT_EQ(Dec(CBigInt(5) + CBigInt(-3)), "4294967298");
  EXPECT_EQ(Dec(CBigInt(-1) + 0), "4294967295");
  EXPECT_EQ(Dec(CBigInt(-3) - CBigInt(-5)), "2");
  EXPECT_EQ(Dec(FromWords({0xFFFFFFFFu, 0x7FFFFFFFu}) + 1), "9223372036854775808");
  // Increments and decrements carry through the words; a carry adds no word.
  CBigInt a(0x7FFFFFFF), b(int32_t{INT32_MIN}), c(-1), d = FromWords({0, 0});
  EXPECT_EQ(Words(++a), (W{0x80000000u, 0}));
  EXPECT_EQ(Words(b--), W{0x80000000u});
  EXPECT_EQ(Words(b), (W{0x7FFFFFFFu, 0xFFFFFFFFu}));
  EXPECT_EQ(Words(++c), W{0});
  EXPECT_EQ(Words(--d), (W{0xFFFFFFFFu, 0xFFFFFFFFu}));
  EXPECT_EQ(Words(-CBigInt(int32_t{INT32_MIN})), (W{0x80000000u, 0}));
  EXPECT_EQ(Dec(CBigInt(0) * CBigInt(-7)), "");
  EXPECT_EQ(Dec(CBigInt(-6) * -7), "42");
  // A negative product is negated after normalising, so it keeps the magnitude's words.
  EXPECT_EQ(Words(CBigInt(0x80000000u) * CBigInt(-1)), (W{0x80000000u, 0xFFFFFFFFu}));
  // A remainder by a 32-bit divisor comes from the unsigned 64-bit form before its sign.
  EXPECT_EQ(Words(CBigInt(-0x7FFFFFFF) % 0xFFFFFFFFu), W{0x80000001u});
  EXPECT_EQ(Words(CBigInt(int32_t{INT32_MIN}) % 0xFFFFFFF0u), (W{0x80000000u, 0xFFFFFFFFu}));
}

TEST(BigIntBitwise, ComplementMasksAndShifts) {
  EXPECT_EQ(Dec(~CBigInt(5)), "-6");
  EXPECT_EQ(Words(~FromWords({5, 1})), (W{0xFFFFFFFAu, 0xFFFFFFFEu, 0}));
  EXPECT_FALSE((~CBigInt(int64_t{-0x100000000})).IsNegative());
  EXPECT_EQ(Dec(CBigInt(-8) >> 64), "");  // beyond the words: 0, not -1
  EXPECT_EQ(Dec(CBigInt(-1) >> 31), "-1");
  EXPECT_EQ(Words(CBigInt(64) >> -3), W{8});  // a negative count shifts right either way
  EXPECT_EQ(Words(CBigInt(64) << -3), W{8});
  EXPECT_EQ(Words(CBigInt(0) << 32), (W{0, 0}));  // not normalised
  EXPECT_EQ(Words(FromWords({0xFFFFFFFFu, 0xFFFFFFFFu}) >> 32), W{0xFFFFFFFFu});
}

// `==` reads the left operand's words only, and `<=` and `>=` are `<` or `>` or that `==`.
TEST(BigIntComparison, LeftOperandDecidesEquality) {
  const CBigInt five(5), fiveAndOne = FromWords({5, 1}), fiveAndMinusOne = FromWords({5, ~0u});
  EXPECT_TRUE(five == fiveAndOne && !(fiveAndOne == five) && fiveAndOne != five);
  EXPECT_TRUE(five >= fiveAndOne && five <= fiveAndMinusOne);
  EXPECT_TRUE(FromWords({7, 0, 0}) == CBigInt(7));
  EXPECT_TRUE(CBigInt(-1) == FromWords({0xFFFFFFFFu, 0xFFFFFFFFu}));
}

// Division by a built-in left operand gives its type; modulo a multi-word value gives that
// value's magnitude with the left operand's sign, not a remainder.
TEST(BigIntMixed, BuiltInLeftOperands) {
  const CBigInt w31 = FromWords({3, 1}), w311 = FromWords({3, 1, 1});
  const std::pair<std::string, const char*> rows[] = {
      {Dec(-100 / CBigInt(7)), "-14"},
      {Dec(100u / FromWords({7, 0})), "14"},
      {Dec(100u / FromWords({7, 1})), "0"},
      {Dec(uint64_t{100} / w311), "0"},
      {Dec(int64_t{-100000000000} / CBigInt(10)), "-10000000000"},
      {Dec(uint64_t{100000000000} / FromWords({10, 0, 0})), "10000000000"},
      // Three words with a top word 0 divide as unsigned 64-bit numbers, a signed left one too.
      {Dec(int64_t{-1} / CBigInt(uint64_t{0x8000000000000005})), "1"},
      {Dec(~uint64_t{0} % CBigInt(uint64_t{0x8000000000000005})), "9223372036854775802"},
      {Dec(5u % w31), "4294967299"},
      {Dec(5u % -w31), "4294967299"},
      {Dec(17u % CBigInt(5)), "2"},
      {Dec(-5 % w31), "-4294967299"},
      {Dec(5 % w31), "4294967299"},
      {Dec(-17 % CBigInt(5)), "-2"},
      {Dec(uint64_t{0x500000000} % w31), "4294967284"},
      {Dec(uint64_t{5} % w311), "18446744078004518915"},
      {Dec(int64_t{-5} % w311), "-18446744078004518915"},
      {Dec(int64_t{-0x500000000} % CBigInt(int64_t{0x300000000})), "-8589934592"}};
  for (const auto& [got, want] : rows) EXPECT_EQ(got, want);
}

using Row = std::tuple<int, int, const char*>;  // a value, a radix or buffer size, the text

// Zero prints empty, negative values print their sign in decimal only, a null value prints
// "Null"; the text belongs to the object.
TEST(BigIntText, OutputForms) {
  const Row rows[] = {{0, 10, ""},
                      {-1, 10, "-1"},
                      {-1, 16, "FFFFFFFF"},
                      {-255, 8, "37777777401"},
                      {-255, 7, "211301421541"},
                      {12, 1, ""}};
  for (auto [value, radix, text] : rows) EXPECT_STREQ(CBigInt(value).GetString(radix), text);
  CBigInt m1(-1), null(static_cast<const uint32_t*>(nullptr), 0);
  EXPECT_STREQ(null.GetString(16), "Null");
  const char* own = m1.GetString();
  EXPECT_STREQ(CBigInt(m1).GetString(16), "FFFFFFFF");
  EXPECT_STREQ(own, "-1");
  // FormatText keeps the low digits that fit, or writes nothing at all.
  char buffer[16];
  const Row cuts[] = {{12345, 4, "345"}, {-12345, 7, "-12345"}, {-12345, 6, "12345"}};
  for (auto [value, size, text] : cuts)
    EXPECT_STREQ((CBigInt(value).FormatText(buffer, size, 10), buffer), text) << size;
  std::memset(buffer, 'x', sizeof buffer);
  null.FormatText(buffer, 4, 10);  // "Null" needs five bytes
  EXPECT_EQ(buffer[0], 'x');
  null.FormatText(buffer, 5, 10);
  EXPECT_STREQ(buffer, "Null");
  CBigInt(7).FormatText(buffer, 0, 10);
  EXPECT_STREQ(buffer, "Null");
}

// Radix 0 stands for the constructor, which reads a prefix; blanks before a prefix are not skipped.
TEST(BigIntParse, PrefixesBlanksSignsAndStops) {
  const std::tuple<const char*, int, const char*> rows[] = {
      {"  ff", 16, "255"}, {"0XFF", 0, "255"}, {"0b101", 0, "5"}, {"017", 0, "15"},
      {"0", 0, ""},        {"", 0, ""},        {" 0x12", 0, ""},  {"\t12abc", 0, "12"},
      {"zz", 36, "1295"},  {"12", 37, ""},     {"19", 9, "1"},    {"12", 1, ""}};
  for (auto [text, radix, dec] : rows) EXPECT_EQ(Dec(Parsed(text, radix)), dec) << text << radix;
  // The direct parsers of power-of-two radices and the general one take no sign.
  for (int radix : {2, 8, 10, 16, 36}) EXPECT_EQ(Dec(Parsed("-12", radix)), "") << radix;
  // Ten digits and a minus sign right behind them: the top-bit word is not extended.
  const std::pair<const char*, const char*> minus[] = {{"3000000000-", "-1294967296"},
                                                       {"3000000000 -", "3000000000"},
                                                       {"300000000-", "300000000"},
                                                       {"30000000000-", "30000000000"}};
  for (auto [text, dec] : minus) EXPECT_EQ(Dec(CBigInt(text)), dec) << text;
}

}  // namespace
