// GMP as the independent oracle of the differential tests (native builds only).
#pragma once

#include <gmp.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <deskaid/math/bigint.h>
#include <deskaid/math/internal/limb_kernels.h>

namespace mathtest {

// RAII holder of an mpz_t.
struct Mpz {
  mpz_t v;
  Mpz() { mpz_init(v); }
  Mpz(const Mpz& o) { mpz_init_set(v, o.v); }
  ~Mpz() { mpz_clear(v); }
  Mpz& operator=(const Mpz& o) { mpz_set(v, o.v); return *this; }
  std::string Str(int base = 10) const {
    std::vector<char> b(mpz_sizeinbase(v, base < 0 ? -base : base) + 2);
    mpz_get_str(b.data(), base, v);
    return b.data();
  }
};

// The two's-complement value of a CBigInt's words, read without any of CBigInt's own arithmetic.
inline Mpz ToMpz(const CBigInt& x) {
  Mpz r;
  mpz_import(r.v, x.m_nLength, -1, 4, 0, 0, x.m_pData);
  if (x.IsNegative()) {
    Mpz m;
    mpz_ui_pow_ui(m.v, 2, 32u * x.m_nLength);
    mpz_sub(r.v, r.v, m.v);
  }
  return r;
}

// Random non-negative value of 1..maxBits bits, with runs of 0 and 1 bits to reach carries.
class Operands {
 public:
  explicit Operands(uint32_t seed) : m_rng(seed) {}
  uint32_t Word() {
    const uint64_t kind = m_rng() % 4;
    return kind == 0 ? 0xFFFFFFFFu : kind == 1 ? 0 : static_cast<uint32_t>(m_rng());
  }
  // Small sizes and the full range equally often; the top bit of the value is set.
  CBigInt NonNegative(int maxBits) {
    const int bits = 1 + static_cast<int>(m_rng() % 2 ? m_rng() % 96 : m_rng() % maxBits);
    std::vector<uint32_t> w((bits + 31) / 32 + 1, 0);
    for (size_t i = 0; i + 1 < w.size(); ++i) w[i] = Word();
    const int top = (bits - 1) % 32;
    uint32_t& hi = w[w.size() - 2];
    hi &= top == 31 ? 0xFFFFFFFFu : ((1u << (top + 1)) - 1);
    hi |= 1u << top;
    CBigInt r(w.data(), static_cast<int>(w.size()));
    r.Normalize();
    return r;
  }
  CBigInt Signed(int maxBits) {
    CBigInt r = NonNegative(maxBits);
    return m_rng() % 2 ? -r : r;
  }
  uint32_t Next() { return static_cast<uint32_t>(m_rng()); }

 private:
  std::mt19937_64 m_rng;
};

// Differential tests run once with each form of the multiply rows the processor offers: the
// parameter asks for the wide (BMI2/ADX) rows.
class RowsTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (GetParam() && !deskaid::limbs::WideRowsAvailable()) GTEST_SKIP() << "no BMI2 and ADX";
    deskaid::limbs::UseWideRows(GetParam());
  }
  void TearDown() override { deskaid::limbs::UseWideRows(true); }
};

inline std::string RowsName(const ::testing::TestParamInfo<bool>& info) {
  return info.param ? "WideRows" : "PlainRows";
}

}  // namespace mathtest

#define DESKAID_ROWS_SUITE(suite)                 \
  class suite : public mathtest::RowsTest {};     \
  INSTANTIATE_TEST_SUITE_P(, suite, ::testing::Bool(), mathtest::RowsName)
