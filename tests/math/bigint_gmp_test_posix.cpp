// Differential tests against GMP wherever CBigInt's defined behaviour is exact arithmetic.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include <deskaid/math/bigint.h>
#include <deskaid/math/internal/limb_kernels.h>
#include "math/gmp_oracle.h"

namespace {

using mathtest::Mpz;
using mathtest::Operands;
using mathtest::ToMpz;
namespace limbs = deskaid::limbs;

DESKAID_ROWS_SUITE(BigIntVersusGmp);

constexpr int kMaxBits = 4096;
constexpr int kRounds = 1500;

#define EXPECT_SAME(big, oracle)                                              \
  do {                                                                        \
    Mpz got_ = ToMpz(big);                                                    \
    EXPECT_EQ(mpz_cmp(got_.v, (oracle).v), 0)                                \
        << "got " << got_.Str(16) << "\nwant " << (oracle).Str(16);           \
  } while (0)

int g_cases = 0;

struct Report {
  ~Report() { std::printf("differential cases run: %d\n", g_cases); }
} g_report;

TEST_P(BigIntVersusGmp, SumsAndDifferencesOfNonNegativeValues) {
  Operands gen(1);
  for (int i = 0; i < kRounds; ++i, g_cases += 2) {
    CBigInt a = gen.NonNegative(kMaxBits), b = gen.NonNegative(kMaxBits);
    Mpz s, d;
    mpz_add(s.v, ToMpz(a).v, ToMpz(b).v);
    mpz_sub(d.v, ToMpz(a).v, ToMpz(b).v);
    EXPECT_SAME(a + b, s);
    EXPECT_SAME(a - b, d);
  }
}

TEST_P(BigIntVersusGmp, ProductsOfAnySign) {
  Operands gen(2);
  for (int i = 0; i < kRounds; ++i, g_cases += 3) {
    CBigInt a = gen.Signed(kMaxBits), b = gen.Signed(kMaxBits);
    const uint32_t f = gen.Next();
    Mpz p, q, sq;
    mpz_mul(p.v, ToMpz(a).v, ToMpz(b).v);
    mpz_mul_ui(q.v, ToMpz(a).v, f);
    mpz_mul(sq.v, ToMpz(a).v, ToMpz(a).v);
    EXPECT_SAME(a * b, p);
    EXPECT_SAME(a * f, q);
    EXPECT_SAME(a * a, sq);
  }
}

TEST_P(BigIntVersusGmp, TruncatingDivisionOfAnySign) {
  Operands gen(3);
  for (int i = 0; i < kRounds; ++i, g_cases += 4) {
    CBigInt a = gen.Signed(2 * kMaxBits), b = gen.Signed(kMaxBits);
    Mpz q, r;
    mpz_tdiv_qr(q.v, r.v, ToMpz(a).v, ToMpz(b).v);
    EXPECT_SAME(a / b, q);
    EXPECT_SAME(a % b, r);
    const int32_t s = static_cast<int32_t>(gen.Next() | 1);
    Mpz qs, rs, ds;
    mpz_set_si(ds.v, s);
    mpz_tdiv_qr(qs.v, rs.v, ToMpz(a).v, ds.v);
    EXPECT_SAME(a / s, qs);
    EXPECT_SAME(a % s, rs);
  }
}

TEST_P(BigIntVersusGmp, BitwiseOperationsAndShifts) {
  Operands gen(4);
  for (int i = 0; i < kRounds; ++i, g_cases += 5) {
    CBigInt a = gen.Signed(kMaxBits), b = gen.Signed(kMaxBits);
    Mpz x, y, z;
    mpz_and(x.v, ToMpz(a).v, ToMpz(b).v);
    mpz_ior(y.v, ToMpz(a).v, ToMpz(b).v);
    mpz_xor(z.v, ToMpz(a).v, ToMpz(b).v);
    EXPECT_SAME(a & b, x);
    EXPECT_SAME(a | b, y);
    EXPECT_SAME(a ^ b, z);
    const int left = static_cast<int>(gen.Next() % 300);
    const int right = static_cast<int>(gen.Next() % (32 * a.m_nLength));
    Mpz l, r;
    mpz_mul_2exp(l.v, ToMpz(a).v, left);
    mpz_fdiv_q_2exp(r.v, ToMpz(a).v, right);
    EXPECT_SAME(a << left, l);
    EXPECT_SAME(a >> right, r);
  }
}

TEST_P(BigIntVersusGmp, Comparisons) {
  Operands gen(5);
  for (int i = 0; i < kRounds; ++i, g_cases += 5) {
    CBigInt a = gen.Signed(kMaxBits / 8);
    CBigInt b = gen.Next() % 4 ? gen.Signed(kMaxBits / 8) : a;
    const int c = mpz_cmp(ToMpz(a).v, ToMpz(b).v);
    EXPECT_EQ(a < b, c < 0);
    EXPECT_EQ(a > b, c > 0);
    EXPECT_EQ(a <= b, c <= 0);
    EXPECT_EQ(a >= b, c >= 0);
    // `==` reads the left operand's words only, exact when it is not the shorter one.
    const CBigInt& longer = a.m_nLength >= b.m_nLength ? a : b;
    const CBigInt& other = &longer == &a ? b : a;
    EXPECT_EQ(longer == other, c == 0);
  }
}

TEST_P(BigIntVersusGmp, TextInEveryRadixBothWays) {
  Operands gen(6);
  for (int i = 0; i < kRounds; ++i, g_cases += 2) {
    CBigInt a = gen.NonNegative(kMaxBits);
    const int radix = 2 + i % 35;
    const Mpz m = ToMpz(a);
    const std::string want = mpz_sgn(m.v) ? m.Str(-radix) : "";  // upper case; zero prints empty
    EXPECT_EQ(a.GetString(radix), want) << "radix " << radix;
    CBigInt back;
    back.Parse(want.c_str(), radix);
    EXPECT_SAME(back, m);
  }
  for (int i = 0; i < 200; ++i, ++g_cases) {
    CBigInt a = -gen.NonNegative(kMaxBits);
    EXPECT_EQ(a.GetString(10), ToMpz(a).Str(10));
  }
}

TEST_P(BigIntVersusGmp, LongDecimalText) {
  Operands gen(7);
  for (int digits : {1000, 20000, 100000}) {
    ++g_cases;
    std::string text(digits, '0');
    for (auto& c : text) c = static_cast<char>('0' + gen.Next() % 10);
    text[0] = '7';
    CBigInt a(text.c_str());
    Mpz m;
    mpz_set_str(m.v, text.c_str(), 10);
    EXPECT_SAME(a, m);
    EXPECT_EQ(a.GetString(), text);
  }
}

// ---------------------------------------------------------------------------------------------
// Sizes around the points where division and text conversion change method.

constexpr int kLimbWords = limbs::kWordsPerLimb;

// A non-negative value of exactly `words` words below the sign word, its top bit at one of the
// top eight places (so the divisor's normalising shift varies), with runs of 0 and 1 words.
CBigInt ExactWords(Operands& gen, int words) {
  std::vector<uint32_t> w(static_cast<size_t>(words) + 1, 0);
  for (int i = 0; i < words; ++i) w[i] = gen.Word();
  const int top = 31 - static_cast<int>(gen.Next() % 8);
  w[words - 1] = (w[words - 1] & ((1u << top) - 1)) | (1u << top);
  CBigInt r(w.data(), words + 1);
  r.Normalize();
  return r;
}

CBigInt FromMpz(const Mpz& m) {
  CBigInt r;
  r.Parse(m.Str(16).c_str(), 16);
  r.Normalize();
  return r;
}

void ExpectDivision(const CBigInt& a, const CBigInt& b) {
  Mpz q, r;
  mpz_tdiv_qr(q.v, r.v, ToMpz(a).v, ToMpz(b).v);
  EXPECT_SAME(a / b, q);
  EXPECT_SAME(a % b, r);
  g_cases += 2;
}

TEST_P(BigIntVersusGmp, DivisionAroundTheSplitThreshold) {
  Operands gen(8);
  const int t = static_cast<int>(limbs::kDivideRecursionThreshold);
  // Divisor and quotient lengths in limbs: one limb a step, the split, several splits, quotients
  // shorter than, equal to and longer than the divisor (whole blocks and a partial one).
  for (int dl : {t - 1, t, t + 1, 2 * t - 1, 2 * t + 1, 3 * t + 5}) {
    for (int ql : {1, t / 2 - 1, t / 2, t - 1, dl - 1, dl, dl + 1, 2 * dl + t / 2 + 3}) {
      for (int k = 0; k < 2; ++k) {
        CBigInt b = ExactWords(gen, dl * kLimbWords - k);
        CBigInt a = ExactWords(gen, (dl + ql) * kLimbWords - k);
        ExpectDivision(gen.Next() % 2 ? -a : a, gen.Next() % 2 ? -b : b);
        // Largest remainder and an exact multiple: every correction step at its limit.
        Mpz m, q;
        mpz_tdiv_q(q.v, ToMpz(a).v, ToMpz(b).v);
        mpz_mul(m.v, q.v, ToMpz(b).v);
        ExpectDivision(FromMpz(m), b);
        mpz_add(m.v, m.v, ToMpz(b).v);
        mpz_sub_ui(m.v, m.v, 1);
        ExpectDivision(FromMpz(m), b);
        // Dividends whose top words equal the divisor's, and b * 2^k - 1, whose partial
        // remainders are all b - 1: estimates from the divisor's top words overflow.
        Mpz top;
        mpz_mul_2exp(top.v, ToMpz(b).v, 32 * ql * kLimbWords);
        mpz_add(m.v, top.v, ToMpz(a).v);
        ExpectDivision(FromMpz(m), b);
        mpz_sub_ui(top.v, top.v, 1);
        ExpectDivision(FromMpz(top), b);
      }
    }
  }
}

TEST_P(BigIntVersusGmp, ProductsAndSquaresAroundTheSplitThresholds) {
  Operands gen(10);
  for (size_t threshold : {limbs::kKaratsubaThreshold, limbs::kKaratsubaSquareThreshold,
                           limbs::kToom3Threshold, limbs::kToom3SquareThreshold}) {
    const int t = static_cast<int>(threshold);
    for (int n : {t - 1, t, t + 1, 2 * t - 1, 2 * t + 1, 4 * t + 3}) {
      CBigInt a = ExactWords(gen, n * kLimbWords), b = ExactWords(gen, n * kLimbWords - 1);
      CBigInt c = ExactWords(gen, (3 * n + 1) * kLimbWords);  // unbalanced
      Mpz sq, ab, ac;
      mpz_mul(sq.v, ToMpz(a).v, ToMpz(a).v);
      mpz_mul(ab.v, ToMpz(a).v, ToMpz(b).v);
      mpz_mul(ac.v, ToMpz(a).v, ToMpz(c).v);
      EXPECT_SAME(a * a, sq);
      EXPECT_SAME(a * b, ab);
      mpz_neg(ac.v, ac.v);
      EXPECT_SAME(-a * c, ac);
      g_cases += 3;
    }
  }
}

// Digits of `radix` in one limb of the fast kernels.
int DigitsPerLimb(int radix) {
  const limbs::Limb max = ~static_cast<limbs::Limb>(0);
  limbs::Limb big = static_cast<limbs::Limb>(radix);
  int k = 1;
  for (; big <= max / radix; ++k) big *= radix;
  return k;
}

// Text of `count` digits in runs: zeros, the highest digit, or random digits, each run up to
// `maxRun` long, so that chunk and split borders fall inside runs of zeros.
std::string RunText(Operands& gen, int radix, int count, int maxRun) {
  const char* digits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  std::string s;
  while (static_cast<int>(s.size()) < count) {
    const uint32_t kind = gen.Next() % 3;
    const int run = 1 + static_cast<int>(gen.Next() % maxRun);
    for (int i = 0; i < run && static_cast<int>(s.size()) < count; ++i)
      s += kind == 0 ? '0' : kind == 1 ? digits[radix - 1] : digits[gen.Next() % radix];
  }
  s[0] = digits[1 + gen.Next() % (radix - 1)];
  return s;
}

TEST_P(BigIntVersusGmp, TextAroundTheSplitThresholdInEveryRadix) {
  Operands gen(9);
  const int t = static_cast<int>(limbs::kTextSplitLimbs);
  for (int radix = 2; radix <= 36; ++radix) {
    const int d = DigitsPerLimb(radix) * t;
    for (int count : {d - 1, d, d + 1, 2 * d - 1, 2 * d + 1, 4 * d + 3, 9 * d}) {
      const std::string text = RunText(gen, radix, count, 2 * d);
      CBigInt a;
      a.Parse(("0" + text).c_str(), radix);  // a leading zero digit changes nothing
      Mpz m;
      mpz_set_str(m.v, text.c_str(), radix);
      EXPECT_SAME(a, m);
      EXPECT_EQ(a.GetString(radix), text) << "radix " << radix << ", " << count << " digits";
      g_cases += 2;
    }
    for (int words : {t - 1, t, t + 1, 2 * t + 1, 4 * t + 1, 16 * t}) {
      CBigInt a = ExactWords(gen, words * kLimbWords);
      EXPECT_EQ(a.GetString(radix), ToMpz(a).Str(-radix)) << "radix " << radix;
      ++g_cases;
    }
  }
  // A negative value's decimal text has its sign; the other radixes print the words unsigned.
  const CBigInt n = -ExactWords(gen, 16 * t * kLimbWords);
  EXPECT_EQ(std::string(CBigInt(n).GetString(10)), ToMpz(n).Str(10));
  Mpz u;
  mpz_import(u.v, n.m_nLength, -1, 4, 0, 0, n.m_pData);
  EXPECT_EQ(std::string(CBigInt(n).GetString(7)), u.Str(-7));
  g_cases += 2;
}

}  // namespace
