// Differential tests against GMP wherever CBigInt's defined behaviour is exact arithmetic, each
// with the plain and the wide multiply rows.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include <deskaid/math/bigint.h>
#include <deskaid/math/internal/limb_kernels.h>
#include "math/gmp_oracle.h"

namespace {

using mathtest::Mpz;
using mathtest::Operands;
using mathtest::Same;
using mathtest::ToMpz;
namespace limbs = deskaid::limbs;

constexpr int kBits = 4096;

unsigned long Small(const Mpz& m) { return mpz_get_ui(m.v); }
int32_t Int(const CBigInt& b) { return static_cast<int32_t>(static_cast<int64_t>(b)); }
// A right shift below the bit length of |a|, so within a's words.
unsigned long Inside(const Mpz& a, const Mpz& b) { return Small(b) % mpz_sizeinbase(a.v, 2); }
// The outcomes of the comparisons as bits: `==`, `<=` and `>=` read the left operand's words only
// and are exact when it is not the shorter; `<` and `>` either way round.
int Order(int c) {
  return (c < 0) | (c > 0) << 1 | (c <= 0) << 2 | (c >= 0) << 3 | (c == 0) << 4 | (c > 0) << 5 |
         (c < 0) << 6;
}

// One operation of CBigInt beside its GMP form, on operands from the two generators.
struct Operation {
  const char* name;
  CBigInt (*a)(Operands&);
  CBigInt (*b)(Operands&, const CBigInt& a);
  CBigInt (*ours)(const CBigInt& a, const CBigInt& b);
  void (*gmp)(Mpz& r, const Mpz& a, const Mpz& b);
};

CBigInt NonNegative(Operands& g) { return g.NonNegative(kBits); }
CBigInt Signed(Operands& g) { return g.Signed(kBits); }
CBigInt Long(Operands& g) { return g.Signed(2 * kBits); }
CBigInt NonNegativeB(Operands& g, const CBigInt&) { return g.NonNegative(kBits); }
CBigInt SignedB(Operands& g, const CBigInt&) { return g.Signed(kBits); }
CBigInt Word(Operands& g, const CBigInt&) { return CBigInt(g.Next()); }
CBigInt Int31(Operands& g, const CBigInt&) { return CBigInt(static_cast<int32_t>(g.Next() | 1)); }
CBigInt Count(Operands& g, const CBigInt&) { return CBigInt(g.Next() % 4096); }
CBigInt Short(Operands& g) { return g.Signed(kBits / 8); }
CBigInt NoLonger(Operands& g, const CBigInt& a) {
  if (g.Next() % 4 == 0) return a;
  CBigInt b;
  do b = g.Signed(kBits / 8); while (b.m_nLength > a.m_nLength);
  return b;
}

const Operation kOperations[] = {
    {"Sum", NonNegative, NonNegativeB, [](auto& a, auto& b) { return a + b; },
     [](Mpz& r, auto& a, auto& b) { mpz_add(r.v, a.v, b.v); }},
    {"Difference", NonNegative, NonNegativeB, [](auto& a, auto& b) { return a - b; },
     [](Mpz& r, auto& a, auto& b) { mpz_sub(r.v, a.v, b.v); }},
    {"Product", Signed, SignedB, [](auto& a, auto& b) { return a * b; },
     [](Mpz& r, auto& a, auto& b) { mpz_mul(r.v, a.v, b.v); }},
    {"Square", Signed, SignedB, [](auto& a, auto&) { return a * a; },
     [](Mpz& r, auto& a, auto&) { mpz_mul(r.v, a.v, a.v); }},
    {"ProductByWord", Signed, Word, [](auto& a, auto& b) { return a * b.m_pData[0]; },
     [](Mpz& r, auto& a, auto& b) { mpz_mul(r.v, a.v, b.v); }},
    {"Quotient", Long, SignedB, [](auto& a, auto& b) { return a / b; },
     [](Mpz& r, auto& a, auto& b) { mpz_tdiv_q(r.v, a.v, b.v); }},
    {"Remainder", Long, SignedB, [](auto& a, auto& b) { return a % b; },
     [](Mpz& r, auto& a, auto& b) { mpz_tdiv_r(r.v, a.v, b.v); }},
    {"QuotientByInt", Long, Int31, [](auto& a, auto& b) { return a / Int(b); },
     [](Mpz& r, auto& a, auto& b) { mpz_tdiv_q(r.v, a.v, b.v); }},
    {"RemainderByInt", Long, Int31, [](auto& a, auto& b) { return a % Int(b); },
     [](Mpz& r, auto& a, auto& b) { mpz_tdiv_r(r.v, a.v, b.v); }},
    {"And", Signed, SignedB, [](auto& a, auto& b) { return a & b; },
     [](Mpz& r, auto& a, auto& b) { mpz_and(r.v, a.v, b.v); }},
    {"Or", Signed, SignedB, [](auto& a, auto& b) { return a | b; },
     [](Mpz& r, auto& a, auto& b) { mpz_ior(r.v, a.v, b.v); }},
    {"Xor", Signed, SignedB, [](auto& a, auto& b) { return a ^ b; },
     [](Mpz& r, auto& a, auto& b) { mpz_xor(r.v, a.v, b.v); }},
    {"LeftShift", Signed, Count, [](auto& a, auto& b) { return a << Int(b); },
     [](Mpz& r, auto& a, auto& b) { mpz_mul_2exp(r.v, a.v, Small(b)); }},
    {"RightShift", Signed, Count,
     [](auto& a, auto& b) { return a >> static_cast<int>(Inside(ToMpz(a), ToMpz(b))); },
     [](Mpz& r, auto& a, auto& b) { mpz_fdiv_q_2exp(r.v, a.v, Inside(a, b)); }},
    {"Comparisons", Short, NoLonger,
     [](auto& a, auto& b) {
       return CBigInt((a < b) | (a > b) << 1 | (a <= b) << 2 | (a >= b) << 3 | (a == b) << 4 |
                      (b < a) << 5 | (b > a) << 6);
     },
     [](Mpz& r, auto& a, auto& b) { mpz_set_ui(r.v, Order(mpz_cmp(a.v, b.v))); }},
    // Text of non-negative values in every radix, read back; zero prints empty.
    {"TextBothWays", NonNegative, Count,
     [](auto& a, auto& b) {
       const int radix = 2 + Int(b) % 35;
       const std::string text = CBigInt(a).GetString(radix);
       const Mpz m = ToMpz(a);
       CBigInt back;
       back.Parse(text.c_str(), radix);
       return text == (mpz_sgn(m.v) ? m.Str(-radix) : "") ? back : CBigInt(-1);
     },
     [](Mpz& r, auto& a, auto&) { mpz_set(r.v, a.v); }},
    {"NegativeDecimalText", NonNegative, NonNegativeB,
     [](auto& a, auto&) {
       CBigInt n = -a;
       return CBigInt(n.GetString(10) == ToMpz(n).Str(10) ? 1 : 0);
     },
     [](Mpz& r, auto&, auto&) { mpz_set_ui(r.v, 1); }},
};

class BigIntVersusGmp : public ::testing::TestWithParam<std::tuple<bool, const Operation*>> {
 protected:
  void SetUp() override {
    if (!mathtest::UseRows(std::get<0>(GetParam()))) GTEST_SKIP() << "no BMI2 and ADX";
  }
  void TearDown() override { limbs::UseWideRows(true); }
};

TEST_P(BigIntVersusGmp, RandomOperands) {
  const Operation& op = *std::get<1>(GetParam());
  Operands gen(static_cast<uint32_t>(&op - kOperations));
  for (int i = 0; i < 1500; ++i) {
    const CBigInt a = op.a(gen), b = op.b(gen, a);
    Mpz want;
    op.gmp(want, ToMpz(a), ToMpz(b));
    ASSERT_TRUE(Same(op.ours(a, b), want)) << "a " << ToMpz(a).Str(16) << "\nb " << ToMpz(b).Str(16);
  }
}

INSTANTIATE_TEST_SUITE_P(, BigIntVersusGmp,
                         ::testing::Combine(::testing::Bool(), ::testing::ValuesIn([] {
                                              std::vector<const Operation*> all;
                                              for (const auto& op : kOperations) all.push_back(&op);
                                              return all;
                                            }())),
                         [](const auto& info) {
                           return std::get<1>(info.param)->name +
                                  mathtest::RowsName(std::get<0>(info.param));
                         });

// ---------------------------------------------------------------------------------------------
// Sizes around the points where multiplication, division and text conversion change method.

class BigIntThresholdsVersusGmp : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (!mathtest::UseRows(GetParam())) GTEST_SKIP() << "no BMI2 and ADX";
  }
  void TearDown() override { limbs::UseWideRows(true); }
};

constexpr int kLimbWords = limbs::kWordsPerLimb;

CBigInt FromMpz(const Mpz& m) {
  CBigInt r;
  r.Parse(m.Str(16).c_str(), 16);
  r.Normalize();
  return r;
}

void ExpectDivision(const CBigInt& a, const CBigInt& b) {
  Mpz q, r;
  mpz_tdiv_qr(q.v, r.v, ToMpz(a).v, ToMpz(b).v);
  EXPECT_TRUE(Same(a / b, q));
  EXPECT_TRUE(Same(a % b, r));
}

TEST_P(BigIntThresholdsVersusGmp, Division) {
  Operands gen(8);
  const int t = static_cast<int>(limbs::kDivideRecursionThreshold);
  // Divisor and quotient lengths in limbs: one limb a step, the split, several splits, quotients
  // shorter than, equal to and longer than the divisor (whole blocks and a partial one).
  for (int dl : {t - 1, t, t + 1, 2 * t - 1, 2 * t + 1, 3 * t + 5}) {
    for (int ql : {1, t / 2 - 1, t / 2, t - 1, dl - 1, dl, dl + 1, 2 * dl + t / 2 + 3}) {
      for (int k = 0; k < 2; ++k) {
        CBigInt b = gen.Words(dl * kLimbWords - k);
        CBigInt a = gen.Words((dl + ql) * kLimbWords - k);
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

TEST_P(BigIntThresholdsVersusGmp, ProductsAndSquares) {
  Operands gen(10);
  for (size_t threshold : {limbs::kKaratsubaThreshold, limbs::kKaratsubaSquareThreshold,
                           limbs::kToom3Threshold, limbs::kToom3SquareThreshold}) {
    const int t = static_cast<int>(threshold);
    for (int n : {t - 1, t, t + 1, 2 * t - 1, 2 * t + 1, 4 * t + 3}) {
      CBigInt a = gen.Words(n * kLimbWords), b = gen.Words(n * kLimbWords - 1);
      CBigInt c = gen.Words((3 * n + 1) * kLimbWords);  // unbalanced
      Mpz sq, ab, ac;
      mpz_mul(sq.v, ToMpz(a).v, ToMpz(a).v);
      mpz_mul(ab.v, ToMpz(a).v, ToMpz(b).v);
      mpz_mul(ac.v, ToMpz(a).v, ToMpz(c).v);
      mpz_neg(ac.v, ac.v);
      EXPECT_TRUE(Same(a * a, sq));
      EXPECT_TRUE(Same(a * b, ab));
      EXPECT_TRUE(Same(-a * c, ac));
    }
  }
}

// Text of `count` digits in runs of zeros, the highest digit or random digits, each run up to
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

TEST_P(BigIntThresholdsVersusGmp, TextInEveryRadix) {
  Operands gen(9);
  const int t = static_cast<int>(limbs::kTextSplitLimbs);
  for (int radix = 2; radix <= 36; ++radix) {
    // A limb holds one digit fewer than the largest limb value has: d digits make t limbs.
    Mpz max;
    mpz_ui_pow_ui(max.v, 2, limbs::kLimbBits);
    mpz_sub_ui(max.v, max.v, 1);
    const int d = static_cast<int>(max.Str(radix).size() - 1) * t;
    for (int count : {d - 1, d, d + 1, 2 * d - 1, 2 * d + 1, 4 * d + 3, 9 * d}) {
      const std::string text = RunText(gen, radix, count, 2 * d);
      CBigInt a;
      a.Parse(("0" + text).c_str(), radix);  // a leading zero digit changes nothing
      Mpz m;
      mpz_set_str(m.v, text.c_str(), radix);
      EXPECT_TRUE(Same(a, m));
      EXPECT_EQ(a.GetString(radix), text) << "radix " << radix << ", " << count << " digits";
    }
    for (int words : {t - 1, t, t + 1, 2 * t + 1, 4 * t + 1, 16 * t}) {
      CBigInt a = gen.Words(words * kLimbWords);
      EXPECT_EQ(a.GetString(radix), ToMpz(a).Str(-radix)) << "radix " << radix;
    }
  }
  // Long decimal text; a negative value's decimal text has its sign, the other radixes print the
  // words unsigned.
  const std::string text = RunText(gen, 10, 100000, 10);
  Mpz m;
  mpz_set_str(m.v, text.c_str(), 10);
  EXPECT_TRUE(Same(CBigInt(text.c_str()), m));
  EXPECT_EQ(CBigInt(text.c_str()).GetString(), text);
  const CBigInt n = -gen.Words(16 * t * kLimbWords);
  EXPECT_EQ(std::string(CBigInt(n).GetString(10)), ToMpz(n).Str(10));
  Mpz u;
  mpz_import(u.v, n.m_nLength, -1, 4, 0, 0, n.m_pData);
  EXPECT_EQ(std::string(CBigInt(n).GetString(7)), u.Str(-7));
}

INSTANTIATE_TEST_SUITE_P(, BigIntThresholdsVersusGmp, ::testing::Bool(),
                         [](const auto& info) { return mathtest::RowsName(info.param); });

}  // namespace
