// Algebraic identities on large operands, on every platform: they drive the Karatsuba, square,
// long division and text conversion paths of whichever limb size the build uses, without GMP.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include <deskaid/math/bigint.h>
#include <deskaid/math/modpower.h>

namespace {

// A positive value of 32 * words + 1 bits.
CBigInt Random(uint64_t& state, int words) {
  std::string hex = "0x1";
  for (int i = 0; i < 8 * words; ++i)
    hex += "0123456789ABCDEF"[(state = state * 6364136223846793005ull + 1) >> 60];
  return CBigInt(hex.c_str());
}

std::string Text(CBigInt x) { return x.GetString(16); }
CBigInt Abs(const CBigInt& x) { return x.IsNegative() ? -x : x; }

TEST(BigIntIdentities, ProductsQuotientsAndTextAgree) {
  uint64_t state = 42;
  for (int round = 0; round < 40; ++round) {
    const int wa = 1 + (round * 37) % 400, wb = 1 + (round * 53) % 300;
    CBigInt a = Random(state, wa), b = Random(state, wb);
    if (round % 3 == 1) a = -a;
    if (round % 4 == 2) b = -b;
    // (a + b)^2 = a^2 + 2ab + b^2 for non-negative operands (the unsigned carry rule otherwise).
    const CBigInt pa = Abs(a), pb = Abs(b), s = pa + pb, q = a / b, r = a % b;
    EXPECT_EQ(Text(s * s), Text(pa * pa + pa * pb * 2u + pb * pb));
    // Truncating division: |a| = |q|*|b| + |r|, |r| < |b|; q takes the sign of a * b, r that of a.
    EXPECT_EQ(Text(Abs(q) * pb + Abs(r)), Text(pa));
    EXPECT_TRUE(Abs(r) < pb && (r.IsZero() || r.IsNegative() == a.IsNegative()));
    EXPECT_TRUE(q.IsZero() || q.IsNegative() == (a.IsNegative() != b.IsNegative()));
    EXPECT_EQ(Text((a * b) / b), Text(a));
    // Decimal text reads back to the same value.
    EXPECT_EQ(Text(CBigInt(CBigInt(pa).GetString(10))), Text(pa));
  }
}

TEST(BigIntIdentities, FermatPowersModuloAPrime) {
  // 2^127 - 1 is prime: a^(p-1) = 1 and a^p = a for any a not divisible by p.
  const CBigInt p = (CBigInt(1) << 127) - CBigInt(1);
  uint64_t state = 7;
  for (int i = 0; i < 5; ++i) {
    CBigInt a = Random(state, 3), base = a, again = a;
    CModPower power;
    EXPECT_STREQ(power.Transform(base, p - CBigInt(1), p).GetString(), "1");
    EXPECT_EQ(Text(power.Transform(again, p, p)), Text(a % p));
  }
}

}  // namespace
