// Differential tests against GMP wherever CBigInt's and CModPower's defined behaviour is exact
// arithmetic, each run with the plain and with the wide (BMI2/ADX) multiply rows, and the modular
// powers also with the Montgomery products on 52-bit digits (AVX-512 IFMA).
#include <gmp.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include <deskaid/math/bigint.h>
#include <deskaid/math/internal/limb_kernels.h>
#include <deskaid/math/internal/montgomery.h>
#include <deskaid/math/modpower.h>

namespace {

namespace limbs = deskaid::limbs;

struct Mpz {
  mpz_t v;
  Mpz() { mpz_init(v); }
  Mpz(const Mpz& o) { mpz_init_set(v, o.v); }
  ~Mpz() { mpz_clear(v); }
  std::string Str(int base = 10) const {
    std::vector<char> b(mpz_sizeinbase(v, base < 0 ? -base : base) + 2);
    return mpz_get_str(b.data(), base, v);
  }
};

// The two's-complement value of a CBigInt's words, read without any of CBigInt's own arithmetic.
Mpz ToMpz(const CBigInt& x) {
  Mpz r, wrap;
  mpz_import(r.v, x.m_nLength, -1, 4, 0, 0, x.m_pData);
  if (x.IsNegative()) mpz_setbit(wrap.v, 32u * x.m_nLength);
  mpz_sub(r.v, r.v, wrap.v);
  return r;
}

using MpzOp = void (*)(mpz_ptr r, mpz_srcptr a, mpz_srcptr b);
::testing::AssertionResult Same(const CBigInt& got, MpzOp op, const CBigInt& a, const CBigInt& b) {
  Mpz want, g = ToMpz(got);
  op(want.v, ToMpz(a).v, ToMpz(b).v);
  if (mpz_cmp(g.v, want.v) == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "got " << g.Str(16) << "\nwant " << want.Str(16) << "\na "
                                       << ToMpz(a).Str(16) << "\nb " << ToMpz(b).Str(16);
}

// Random values with runs of 0 and 1 words to reach carries.
struct Operands {
  explicit Operands(uint32_t seed) : m_rng(seed) {}
  uint32_t Next() { return static_cast<uint32_t>(m_rng()); }
  // A non-negative value of exactly `words` words below the sign word, its top bit at `top`, by
  // default one of the top eight places (so a divisor's normalising shift varies).
  CBigInt Words(int words, int top = -1) {
    std::vector<uint32_t> w(static_cast<size_t>(words) + 1, 0);
    for (int i = 0; i < words; ++i) w[i] = Next() % 2 ? Next() : 0u - Next() % 2;
    if (top < 0) top = 31 - static_cast<int>(Next() % 8);
    w[words - 1] = (w[words - 1] & ((1u << top) - 1)) | (1u << top);
    CBigInt r(w.data(), words + 1);
    r.Normalize();
    return r;
  }
  // 1..maxBits bits, small sizes as often as any; magnitude's top bit set, sign random or +.
  CBigInt Random(int maxBits, bool positive = false) {
    const int bits = 1 + static_cast<int>(Next() % 2 ? Next() % 96 : Next() % maxBits);
    const CBigInt r = Words((bits + 31) / 32, (bits - 1) % 32);
    return positive || Next() % 2 ? r : -r;
  }
  std::mt19937_64 m_rng;
};

// The arithmetic the operations run on: limb rows, plain or wide, or for the modular powers also
// the Montgomery products on 52-bit digits.
enum class Form { kPlainRows, kWideRows, kDigits };
class VersusGmp : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override {
    const bool wide = GetParam() != Form::kPlainRows, digits = GetParam() == Form::kDigits;
    if (limbs::UseWideRows(wide) != wide) GTEST_SKIP() << "no BMI2 and ADX";
    if (deskaid::UseDigitProducts(digits) != digits) GTEST_SKIP() << "no AVX-512 IFMA";
  }
  void TearDown() override {
    limbs::UseWideRows(true);
    deskaid::UseDigitProducts(true);
  }
};
class PowersVersusGmp : public VersusGmp {};
std::string FormName(const ::testing::TestParamInfo<Form>& test) {
  return std::vector<std::string>{"PlainRows", "WideRows", "Digits"}[int(test.param)];
}
INSTANTIATE_TEST_SUITE_P(, VersusGmp, ::testing::Values(Form::kPlainRows, Form::kWideRows),
                         FormName);
INSTANTIATE_TEST_SUITE_P(, PowersVersusGmp,
                         ::testing::Values(Form::kPlainRows, Form::kWideRows, Form::kDigits),
                         FormName);

constexpr int kBits = 4096;
constexpr int kLimbWords = limbs::kWordsPerLimb;

int32_t Int(const CBigInt& b) { return static_cast<int32_t>(static_cast<int64_t>(b)); }
// A right shift below the bit length of |a|, so within a's words.
unsigned long Inside(mpz_srcptr a, mpz_srcptr b) { return mpz_get_ui(b) % mpz_sizeinbase(a, 2); }
// The comparisons' outcomes as bits, from c = cmp(a, b) as Order(c, 0). `==`, `<=` and `>=` read
// the left operand's words only and are exact when it is not the shorter; `<` and `>` either way.
template <typename T, typename U>
int Order(const T& a, const U& b) {
  return (a < b) | (a > b) << 1 | (a <= b) << 2 | (a >= b) << 3 | (a == b) << 4 | (b < a) << 5 |
         (b > a) << 6;
}

// Operand generators; the second operand's sees the first.
using Generator = CBigInt (*)(Operands&, const CBigInt&);
CBigInt NonNegative(Operands& g, const CBigInt&) { return g.Random(kBits, true); }
CBigInt Signed(Operands& g, const CBigInt&) { return g.Random(kBits); }
CBigInt Long(Operands& g, const CBigInt&) { return g.Random(2 * kBits); }
CBigInt Short(Operands& g, const CBigInt&) { return g.Random(kBits / 8); }
CBigInt Word(Operands& g, const CBigInt&) { return CBigInt(g.Next()); }
CBigInt Int31(Operands& g, const CBigInt&) { return CBigInt(static_cast<int32_t>(g.Next() | 1)); }
CBigInt Count(Operands& g, const CBigInt&) { return CBigInt(g.Next() % 4096); }
CBigInt NoLonger(Operands& g, const CBigInt& a) {
  CBigInt b = a;
  if (g.Next() % 4) do
      b = g.Random(kBits / 8);
    while (b.m_nLength > a.m_nLength);
  return b;
}

#define OURS(...)                                                            \
  []([[maybe_unused]] const CBigInt& a, [[maybe_unused]] const CBigInt& b) { \
    return CBigInt(__VA_ARGS__);                                             \
  }
#define GMP(...) [](mpz_ptr r, mpz_srcptr a, [[maybe_unused]] mpz_srcptr b) { __VA_ARGS__; }

const struct Operation {
  const char* name;
  Generator a, b;
  CBigInt (*ours)(const CBigInt& a, const CBigInt& b);
  MpzOp gmp;
} kOperations[] = {
    {"Sum", NonNegative, NonNegative, OURS(a + b), mpz_add},
    {"Difference", NonNegative, NonNegative, OURS(a - b), mpz_sub},
    {"Product", Signed, Signed, OURS(a* b), mpz_mul},
    {"Square", Signed, Signed, OURS(a* a), GMP(mpz_mul(r, a, a))},
    {"ProductByWord", Signed, Word, OURS(a* b.m_pData[0]), mpz_mul},
    {"Quotient", Long, Signed, OURS(a / b), mpz_tdiv_q},
    {"Remainder", Long, Signed, OURS(a % b), mpz_tdiv_r},
    {"QuotientByInt", Long, Int31, OURS(a / Int(b)), mpz_tdiv_q},
    {"RemainderByInt", Long, Int31, OURS(a % Int(b)), mpz_tdiv_r},
    {"And", Signed, Signed, OURS(a& b), mpz_and},
    {"Or", Signed, Signed, OURS(a | b), mpz_ior},
    {"Xor", Signed, Signed, OURS(a ^ b), mpz_xor},
    {"LeftShift", Signed, Count, OURS(a << Int(b)), GMP(mpz_mul_2exp(r, a, mpz_get_ui(b)))},
    {"RightShift", Signed, Count, OURS(a >> int(Inside(ToMpz(a).v, ToMpz(b).v))),
     GMP(mpz_fdiv_q_2exp(r, a, Inside(a, b)))},
    {"Comparisons", Short, NoLonger, OURS(Order(a, b)),
     GMP(mpz_set_ui(r, Order(mpz_cmp(a, b), 0)))},
};

TEST_P(VersusGmp, EachOperationOnRandomOperands) {
  for (const Operation& op : kOperations) {
    Operands gen(static_cast<uint32_t>(&op - kOperations));
    for (int i = 0; i < 1500; ++i) {
      const CBigInt a = op.a(gen, CBigInt()), b = op.b(gen, a);
      ASSERT_TRUE(Same(op.ours(a, b), op.gmp, a, b)) << op.name;
    }
  }
}

// Sizes around the points where multiplication, division and text conversion change method.

TEST_P(VersusGmp, Division) {
  Operands gen(8);
  const int t = static_cast<int>(limbs::kDivideRecursionThreshold);
  // Divisor and quotient limbs: around one split and several; quotients shorter or longer than b.
  for (int dl : {t - 1, t, t + 1, 2 * t - 1, 2 * t + 1, 3 * t + 5}) {
    for (int ql : {1, t / 2 - 1, t / 2, t - 1, dl - 1, dl, dl + 1, 2 * dl + t / 2 + 3}) {
      for (int k = 0; k < 2; ++k) {
        const CBigInt b = gen.Words(dl * kLimbWords - k);
        const CBigInt a = gen.Words((dl + ql) * kLimbWords - k);
        // Each sign; the correction steps' limits (a multiple of b, the largest remainder); top
        // words equal to b's, and b * 2^k - 1 (remainders all b - 1), where estimates overflow.
        const CBigInt m = a / b * b, top = b << (32 * ql * kLimbWords), one(1);
        for (const CBigInt& x : {a, -a, m, m + b - one, top + a, top - one}) {
          for (const CBigInt& y : {b, -b}) {
            EXPECT_TRUE(Same(x / y, mpz_tdiv_q, x, y));
            EXPECT_TRUE(Same(x % y, mpz_tdiv_r, x, y));
          }
        }
      }
    }
  }
}

TEST_P(VersusGmp, ProductsAndSquares) {
  Operands gen(10);
  for (size_t threshold : {limbs::kKaratsubaThreshold, limbs::kKaratsubaSquareThreshold,
                           limbs::kToom3Threshold, limbs::kToom3SquareThreshold}) {
    const int t = static_cast<int>(threshold);
    for (int n : {t - 1, t, t + 1, 2 * t - 1, 2 * t + 1, 4 * t + 3}) {
      const CBigInt a = gen.Words(n * kLimbWords), b = gen.Words(n * kLimbWords - 1);
      const CBigInt c = -gen.Words((3 * n + 1) * kLimbWords);  // unbalanced; a * a squares
      for (const CBigInt* x : {&a, &b, &c}) EXPECT_TRUE(Same(a * *x, mpz_mul, a, *x));
    }
  }
}

// Digits in runs (of zeros, the highest digit, random) up to maxRun long: borders fall in runs.
std::string RunText(Operands& gen, int radix, int count, int maxRun) {
  const char* digits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  std::string s(1, digits[1 + gen.Next() % (radix - 1)]);
  while (s.size() < size_t(count)) {
    const uint32_t kind = gen.Next() % 3;
    for (uint32_t run = 1 + gen.Next() % maxRun; run > 0 && s.size() < size_t(count); --run)
      s += kind == 0 ? '0' : kind == 1 ? digits[radix - 1] : digits[gen.Next() % radix];
  }
  return s;
}

TEST_P(VersusGmp, TextInEveryRadix) {
  Operands gen(9);
  const int t = static_cast<int>(limbs::kTextSplitLimbs);
  for (int radix = 2; radix <= 36; ++radix) {
    // A limb holds one digit fewer than the largest limb value has: d digits make t limbs.
    const Mpz max = ToMpz((CBigInt(1) << limbs::kLimbBits) - CBigInt(1));
    const int d = static_cast<int>(max.Str(radix).size() - 1) * t;
    for (int count : {1, 2, d / 3, d - 1, d, d + 1, 2 * d - 1, 2 * d + 1, 4 * d + 3, 9 * d}) {
      const std::string text = RunText(gen, radix, count, 2 * d);
      CBigInt a;
      a.Parse(("0" + text).c_str(), radix);  // a leading zero digit changes nothing
      EXPECT_EQ(ToMpz(a).Str(-radix), text);
      EXPECT_EQ(a.GetString(radix), text) << "radix " << radix << ", " << count << " digits";
    }
  }
  const std::string text = RunText(gen, 10, 100000, 10);
  CBigInt n = -gen.Words(16 * t * kLimbWords);
  EXPECT_EQ(CBigInt(text.c_str()).GetString(), text);
  EXPECT_EQ(n.GetString(10), ToMpz(n).Str(10));
}

std::vector<uint32_t> WordsOf(const CBigInt& x) { return {x.m_pData, x.m_pData + x.m_nLength}; }

// The base comes back squared for each exponent bit but the top one (1 leaves it alone). An odd
// modulus takes the Montgomery route; the plain one of its negation must leave the same words.
TEST_P(PowersVersusGmp, ModularPowersOfNonNegativeBases) {
  Operands gen(11);
  for (int i = 0; i < 300; ++i) {
    const int bits = i < 250 ? 1 + static_cast<int>(gen.Next() % 1300) : 1024 * (1 + i % 5);
    CBigInt n = gen.Random(bits, true) | CBigInt(1 - i % 2);
    if (n < CBigInt(2)) n = CBigInt(3);
    const CBigInt base0 = gen.Random(bits + 40, true), e = gen.Random(i < 250 ? 300 : bits, true);
    CModPower power, plain;
    CBigInt base = base0, plainBase = base0;
    const CBigInt result = power.Transform(base, e, n);
    Mpz want, squarings;
    mpz_powm(want.v, ToMpz(base0).v, ToMpz(e).v, ToMpz(n).v);
    EXPECT_EQ(ToMpz(result).Str(16), want.Str(16)) << "n " << ToMpz(n).Str(16);
    mpz_setbit(squarings.v, mpz_sizeinbase(ToMpz(e).v, 2) - 1);
    mpz_powm(want.v, ToMpz(base0).v, squarings.v, ToMpz(n).v);
    EXPECT_EQ(ToMpz(base).Str(16), (mpz_cmp_ui(squarings.v, 1) ? want : ToMpz(base0)).Str(16));
    if (n.m_pData[0] % 2 && bits <= 1300) {
      EXPECT_EQ(WordsOf(plain.Transform(plainBase, e, -n)), WordsOf(result));
      EXPECT_EQ(WordsOf(plainBase), WordsOf(base));
    }
  }
}

// Powers that become multiples of the modulus on the way: n = 3^k, and a base with a factor 3
// reaches 0 once the exponent is large enough, passing through products that are multiples of n.
TEST_P(PowersVersusGmp, PowersThatReachZero) {
  for (int k = 41; k < 1400; k += 37) {
    Mpz n, base, e, want;
    mpz_ui_pow_ui(n.v, 3, k);
    mpz_ui_pow_ui(base.v, 3, 1 + k % 5);
    mpz_mul_ui(base.v, base.v, 1000003);
    mpz_set_ui(e.v, k / 2 + 3 * k % 7);
    CBigInt b(base.Str().c_str()), bigN(n.Str().c_str()), bigE(e.Str().c_str());
    CModPower power;
    mpz_powm(want.v, base.v, e.v, n.v);
    EXPECT_EQ(ToMpz(power.Transform(b, bigE, bigN)).Str(16), want.Str(16)) << "3^" << k;
  }
}

}  // namespace
