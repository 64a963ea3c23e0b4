// Modular powers of non-negative bases against GMP, including the base written back, and the
// Montgomery route against the plain route of the same computation.
#include <gtest/gtest.h>

#include "math/gmp_oracle.h"
#include <deskaid/math/internal/limb_kernels.h>
#include <deskaid/math/modpower.h>

namespace {

using mathtest::Mpz;
using mathtest::Operands;
using mathtest::ToMpz;

class ModPowerVersusGmp : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (!mathtest::UseRows(GetParam())) GTEST_SKIP() << "no BMI2 and ADX";
  }
  void TearDown() override { deskaid::limbs::UseWideRows(true); }
};
INSTANTIATE_TEST_SUITE_P(, ModPowerVersusGmp, ::testing::Bool(),
                         [](const auto& info) { return mathtest::RowsName(info.param); });

// Bit length of a positive value.
size_t BitLength(const CBigInt& x) { return mpz_sizeinbase(ToMpz(x).v, 2); }

// Each of the four entries that compute a power: PowMod and its second entry Raise, after the
// exponent and modulus were set; Transform and its second entry TransformBlock, which set them.
CBigInt PowerThrough(int entry, CModPower& power, CBigInt& base, const CBigInt& e,
                     const CBigInt& n) {
  if (entry >= 2) return entry == 2 ? power.Transform(base, e, n) : power.TransformBlock(base, e, n);
  power.SetExponent(e);
  power.SetModulus(n);
  return entry == 0 ? power.PowMod(base) : power.Raise(base);
}

void CheckAgainstGmp(const CBigInt& base0, const CBigInt& e, const CBigInt& n, int entry) {
  CModPower power;
  CBigInt base = base0;
  CBigInt result = PowerThrough(entry, power, base, e, n);
  EXPECT_EQ(mpz_cmp(ToMpz(power.m_Exponent).v, ToMpz(e).v), 0);
  EXPECT_EQ(mpz_cmp(ToMpz(power.m_Modulus).v, ToMpz(n).v), 0);
  Mpz want, wantBase, twoK;
  mpz_powm(want.v, ToMpz(base0).v, ToMpz(e).v, ToMpz(n).v);
  EXPECT_EQ(mpz_cmp(ToMpz(result).v, want.v), 0) << "n " << ToMpz(n).Str(16);
  // k squarings: one fewer than the exponent's bits; none for an exponent of 1.
  const size_t k = BitLength(e) - 1;
  if (k == 0) {
    EXPECT_EQ(mpz_cmp(ToMpz(base).v, ToMpz(base0).v), 0);
  } else {
    mpz_ui_pow_ui(twoK.v, 2, k);
    mpz_powm(wantBase.v, ToMpz(base0).v, twoK.v, ToMpz(n).v);
    EXPECT_EQ(mpz_cmp(ToMpz(base).v, wantBase.v), 0);
  }
}

TEST_P(ModPowerVersusGmp, NonNegativeBasesOddAndEvenModuli) {
  Operands gen(11);
  for (int i = 0; i < 300; ++i) {
    const int bits = i < 250 ? 1 + static_cast<int>(gen.Next() % 600) : 1024 * (1 + i % 4);
    CBigInt n = gen.NonNegative(bits);
    if (i % 3 == 0) n = n | CBigInt(1);  // odd moduli take the Montgomery route
    if (n < CBigInt(2)) n = CBigInt(3);
    CBigInt base = gen.NonNegative(bits + 40);  // not always below the modulus
    CBigInt e = gen.NonNegative(i < 250 ? 300 : bits);
    CheckAgainstGmp(base, e, n, i % 4);
  }
}

TEST_P(ModPowerVersusGmp, MontgomeryRouteMatchesThePlainRoute) {
  // A negative modulus takes the plain route; with a non-negative base its remainders are those
  // of the modulus's magnitude, so both routes must agree, write-back included.
  Operands gen(12);
  for (int i = 0; i < 60; ++i) {
    CBigInt n = gen.NonNegative(64 + static_cast<int>(gen.Next() % 1200)) | CBigInt(1);
    CBigInt e = gen.NonNegative(200);
    CBigInt b1 = gen.NonNegative(1300), b2 = b1;
    CModPower fast, plain;
    CBigInt r1 = fast.Transform(b1, e, n);
    CBigInt r2 = plain.Transform(b2, e, -n);
    EXPECT_EQ(std::string(r1.GetString(16)), r2.GetString(16));
    EXPECT_EQ(std::string(b1.GetString(16)), b2.GetString(16));
    EXPECT_EQ(r1.m_nLength, r2.m_nLength);
    EXPECT_EQ(b1.m_nLength, b2.m_nLength);
  }
}

TEST_P(ModPowerVersusGmp, ModulusLengthsAroundTheProductSplitsAndEveryWindowWidth) {
  // Odd moduli one limb either side of where products and squares split, so that the Montgomery
  // steps take both forms; exponent lengths either side of each change of window width.
  namespace limbs = deskaid::limbs;
  Operands gen(13);
  const int limbBits = limbs::kLimbBits;
  int i = 0;
  for (size_t t : {limbs::kKaratsubaThreshold, limbs::kKaratsubaSquareThreshold}) {
    for (int n : {static_cast<int>(t) - 1, static_cast<int>(t), static_cast<int>(t) + 1}) {
      for (int eBits : {24, 25, 96, 97, 384, 385}) {
        CBigInt modulus = gen.NonNegative(n * limbBits) | CBigInt(1);
        // The generator picks short values half the time; the top bit fixes the length.
        modulus = modulus | (CBigInt(1) << (n * limbBits - 1));
        CBigInt e = gen.NonNegative(eBits) | (CBigInt(1) << (eBits - 1));
        CheckAgainstGmp(gen.NonNegative(n * limbBits), e, modulus, i % 4);
        ++i;
      }
    }
  }
  // The widest windows, on a shorter modulus to keep the run short.
  for (int eBits : {1536, 1537}) {
    CBigInt modulus = gen.NonNegative(512) | CBigInt(1) | (CBigInt(1) << 511);
    CheckAgainstGmp(gen.NonNegative(512), gen.NonNegative(eBits) | (CBigInt(1) << (eBits - 1)),
                    modulus, i % 4);
    ++i;
  }
}

}  // namespace
