// The edge behaviour of CBigInt that hosts depend on, grouped by operation.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <deskaid/math/bigint.h>

namespace {

std::vector<uint32_t> Words(const CBigInt& x) {
  return std::vector<uint32_t>(x.m_pData, x.m_pData + x.m_nLength);
}

CBigInt FromWords(std::vector<uint32_t> w) { return CBigInt(w.data(), static_cast<int>(w.size())); }

std::string Dec(CBigInt x) { return x.GetString(10); }
std::string Hex(CBigInt x) { return x.GetString(16); }

using W = std::vector<uint32_t>;

TEST(BigIntConstruction, WordCountsOfEachForm) {
  EXPECT_EQ(Words(CBigInt()), W{0});
  EXPECT_EQ(Words(CBigInt(int32_t{-5})), W{0xFFFFFFFBu});
  EXPECT_EQ(Words(CBigInt(0x80000000u)), (W{0x80000000u, 0}));
  EXPECT_EQ(Dec(CBigInt(0x80000000u)), "2147483648");
  // The signed 64-bit form keeps 2^31 .. 2^32-1 in one word, which reads as negative.
  EXPECT_EQ(Words(CBigInt(int64_t{0x80000000})), W{0x80000000u});
  EXPECT_EQ(Dec(CBigInt(int64_t{0x80000000})), "-2147483648");
  EXPECT_EQ(Words(CBigInt(int64_t{-5})), W{0xFFFFFFFBu});
  EXPECT_EQ(Words(CBigInt(int64_t{-0x100000000})), (W{0, 0xFFFFFFFFu}));
  EXPECT_EQ(Words(CBigInt(uint64_t{0xFFFFFFFFFFFFFFFF})), (W{0xFFFFFFFFu, 0xFFFFFFFFu, 0}));
  EXPECT_EQ(Words(CBigInt(uint64_t{7})), W{7});
  EXPECT_EQ(Words(FromWords({5, 0, 0})), (W{5, 0, 0}));  // not normalised
#if DESKAID_BIGINT_LONG_FORMS
  EXPECT_EQ(Words(CBigInt(5ul)), (W{5, 0}));  // the two-word unsigned form
  EXPECT_EQ(Words(CBigInt(-5l)), W{0xFFFFFFFBu});
#endif
  EXPECT_EQ(static_cast<int64_t>(CBigInt(int64_t{-0x123456789})), -0x123456789);
  EXPECT_EQ(static_cast<int64_t>(CBigInt(-1)), -1);
  EXPECT_EQ(static_cast<uint64_t>(CBigInt(-1)), 0xFFFFFFFFu);  // one word: zero-extended
}

TEST(BigIntArithmetic, UnsignedCarryAndBorrow) {
  EXPECT_EQ(Dec(CBigInt(-1) + CBigInt(-1)), "8589934590");
  EXPECT_EQ(Dec(CBigInt(5) + CBigInt(-3)), "4294967298");
  EXPECT_EQ(Dec(CBigInt(-1) + 0), "4294967295");
  EXPECT_EQ(Dec(CBigInt(3) - CBigInt(5)), "-2");
  EXPECT_EQ(Dec(CBigInt(-3) - CBigInt(-5)), "2");
  // The sum keeps the carry of the longer operand's words.
  EXPECT_EQ(Hex(FromWords({0xFFFFFFFFu, 0x7FFFFFFFu}) + 1), "80000000" "00000000");
}

TEST(BigIntArithmetic, IncrementAndDecrementCarryThroughTheWords) {
  CBigInt a(0x7FFFFFFF);
  ++a;
  EXPECT_EQ(Words(a), (W{0x80000000u, 0}));
  CBigInt b(int32_t{INT32_MIN});
  EXPECT_EQ(Words(b--), W{0x80000000u});
  EXPECT_EQ(Words(b), (W{0x7FFFFFFFu, 0xFFFFFFFFu}));
  CBigInt c(-1);
  ++c;  // no word is added by the carry
  EXPECT_EQ(Words(c), W{0});
  CBigInt d = FromWords({0, 0});
  --d;
  EXPECT_EQ(Words(d), (W{0xFFFFFFFFu, 0xFFFFFFFFu}));
}

TEST(BigIntArithmetic, NegationAndSignsOfProductsAndQuotients) {
  EXPECT_EQ(Words(-CBigInt(int32_t{INT32_MIN})), (W{0x80000000u, 0}));
  EXPECT_EQ(Dec(CBigInt(-6) * CBigInt(7)), "-42");
  EXPECT_EQ(Dec(CBigInt(-6) * -7), "42");
  EXPECT_EQ(Dec(CBigInt(0) * CBigInt(-7)), "");
  EXPECT_EQ(Dec(CBigInt(-7) / CBigInt(2)), "-3");
  EXPECT_EQ(Dec(CBigInt(-7) % CBigInt(2)), "-1");
  EXPECT_EQ(Dec(CBigInt(7) / CBigInt(-2)), "-3");
  EXPECT_EQ(Dec(CBigInt(7) % CBigInt(-2)), "1");
  EXPECT_EQ(Dec(CBigInt(-7) / -2), "3");
  // A negative product is negated after normalising, so it keeps the magnitude's words.
  EXPECT_EQ(Words(CBigInt(0x80000000u) * CBigInt(-1)), (W{0x80000000u, 0xFFFFFFFFu}));
  EXPECT_EQ(Hex(CBigInt(0x80000000u) * CBigInt(-1)), "FFFFFFFF80000000");
  // A remainder by a 32-bit divisor comes from the unsigned 64-bit form before its sign.
  EXPECT_EQ(Words(CBigInt(-0x7FFFFFFF) % 0xFFFFFFFFu), W{0x80000001u});
  EXPECT_EQ(Words(CBigInt(int32_t{INT32_MIN}) % 0xFFFFFFF0u), (W{0x80000000u, 0xFFFFFFFFu}));
}

TEST(BigIntBitwise, ComplementAndSignExtension) {
  EXPECT_EQ(Dec(~CBigInt(5)), "-6");
  EXPECT_EQ(Words(~FromWords({5, 1})), (W{0xFFFFFFFAu, 0xFFFFFFFEu, 0}));
  EXPECT_FALSE((~CBigInt(int64_t{-0x100000000})).IsNegative());
  EXPECT_EQ(Words(CBigInt(-1) & CBigInt(0x1234)), W{0x1234});
  EXPECT_EQ(Words(CBigInt(-2) & 0x80000001u), (W{0x80000000u, 0}));
  EXPECT_EQ(Dec(CBigInt(-16) | CBigInt(3)), "-13");
  EXPECT_EQ(Dec(CBigInt(-1) ^ FromWords({0, 1})), "-4294967297");
  EXPECT_TRUE(CBigInt(2) && CBigInt(-1));
  EXPECT_FALSE(CBigInt(2) && CBigInt(0));
  EXPECT_TRUE(CBigInt(0) || FromWords({0, 3}));
}

TEST(BigIntShifts, CountsAndSigns) {
  EXPECT_EQ(Dec(CBigInt(-8) >> 2), "-2");
  EXPECT_EQ(Dec(CBigInt(-8) >> 64), "");  // beyond the words: 0, not -1
  EXPECT_EQ(Dec(CBigInt(-1) >> 31), "-1");
  EXPECT_EQ(Words(CBigInt(1) >> -3), Words(CBigInt(1) >> 3));
  EXPECT_EQ(Words(CBigInt(64) >> -3), W{8});
  EXPECT_EQ(Words(CBigInt(64) << -3), W{8});
  EXPECT_EQ(Words(CBigInt(0) << 32), (W{0, 0}));  // not normalised
  EXPECT_EQ(Words(CBigInt(1) << 31), (W{0x80000000u, 0}));
  EXPECT_EQ(Words(CBigInt(-1) << 33), (W{0, 0xFFFFFFFEu}));
  EXPECT_EQ(Words(FromWords({0xFFFFFFFFu, 0xFFFFFFFFu}) >> 32), W{0xFFFFFFFFu});
  CBigInt x(3);
  x <<= 40;
  EXPECT_EQ(Dec(x), "3298534883328");
}

TEST(BigIntComparison, LeftOperandDecidesEquality) {
  CBigInt five(5), fiveAndOne = FromWords({5, 1});
  EXPECT_TRUE(five == fiveAndOne);
  EXPECT_FALSE(fiveAndOne == five);
  EXPECT_TRUE(fiveAndOne != five);
  EXPECT_TRUE(FromWords({7, 0, 0}) == CBigInt(7));
  EXPECT_TRUE(CBigInt(-1) == FromWords({0xFFFFFFFFu, 0xFFFFFFFFu}));
  EXPECT_TRUE(CBigInt(-3) < CBigInt(2));
  EXPECT_TRUE(CBigInt(-3) < CBigInt(-2));
  EXPECT_TRUE(five <= fiveAndOne);
  EXPECT_TRUE(fiveAndOne > five);
  EXPECT_TRUE(fiveAndOne >= five);
  EXPECT_TRUE(CBigInt(-1) < 0);
}

TEST(BigIntMixed, BuiltInLeftOperands) {
  EXPECT_EQ(100 / CBigInt(7), 14);
  EXPECT_EQ(-100 / CBigInt(7), -14);
  EXPECT_EQ(100u / FromWords({7, 0}), 14u);
  EXPECT_EQ(100u / FromWords({7, 1}), 0u);
  EXPECT_EQ(int64_t{-100000000000} / CBigInt(10), -10000000000);
  EXPECT_EQ(uint64_t{100000000000} / FromWords({10, 0, 0}), 10000000000u);
  EXPECT_EQ(uint64_t{100} / FromWords({1, 2, 3}), 0u);
  // Modulo a multi-word value: the value's magnitude, not a remainder.
  EXPECT_EQ(Dec(5u % FromWords({3, 1})), "4294967299");
  EXPECT_EQ(Dec(5u % -FromWords({3, 1})), "4294967299");
  EXPECT_EQ(Dec(17u % CBigInt(5)), "2");
  EXPECT_EQ(Dec(-5 % FromWords({3, 1})), "-4294967299");
  EXPECT_EQ(Dec(5 % FromWords({3, 1})), "4294967299");
  EXPECT_EQ(Dec(-17 % CBigInt(5)), "-2");
  EXPECT_EQ(Dec(uint64_t{0x500000000} % FromWords({3, 1})), "4294967284");
  EXPECT_EQ(Dec(uint64_t{5} % FromWords({3, 1, 1})), "18446744078004518915");
  EXPECT_EQ(Dec(int64_t{-5} % FromWords({3, 1, 1})), "-18446744078004518915");
  EXPECT_EQ(Dec(int64_t{-0x500000000} % CBigInt(int64_t{0x300000000})), "-8589934592");
}

}  // namespace
