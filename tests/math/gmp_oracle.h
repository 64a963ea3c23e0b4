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

inline ::testing::AssertionResult Same(const CBigInt& got, const Mpz& want) {
  const Mpz g = ToMpz(got);
  if (mpz_cmp(g.v, want.v) == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "got " << g.Str(16) << "\nwant " << want.Str(16);
}

// Random values with runs of 0 and 1 words to reach carries.
class Operands {
 public:
  explicit Operands(uint32_t seed) : m_rng(seed) {}
  uint32_t Next() { return static_cast<uint32_t>(m_rng()); }
  uint32_t Word() {
    const uint32_t kind = Next() % 4;
    return kind == 0 ? 0xFFFFFFFFu : kind == 1 ? 0 : Next();
  }
  // A non-negative value of exactly `words` words below the sign word, its top bit at `top`, by
  // default one of the top eight places (so a divisor's normalising shift varies).
  CBigInt Words(int words, int top = -1) {
    std::vector<uint32_t> w(static_cast<size_t>(words) + 1, 0);
    for (int i = 0; i < words; ++i) w[i] = Word();
    if (top < 0) top = 31 - static_cast<int>(Next() % 8);
    w[words - 1] = (w[words - 1] & ((1u << top) - 1)) | (1u << top);
    CBigInt r(w.data(), words + 1);
    r.Normalize();
    return r;
  }
  // 1..maxBits bits, small sizes and the full range equally often; the top bit is set.
  CBigInt NonNegative(int maxBits) {
    const int bits = 1 + static_cast<int>(Next() % 2 ? Next() % 96 : Next() % maxBits);
    return Words((bits + 31) / 32, (bits - 1) % 32);
  }
  CBigInt Signed(int maxBits) {
    CBigInt r = NonNegative(maxBits);
    return Next() % 2 ? -r : r;
  }

 private:
  std::mt19937_64 m_rng;
};

// Asks for the wide (BMI2/ADX) multiply rows or the plain ones; false if the processor lacks the
// wide ones. Differential tests run once with each form.
inline bool UseRows(bool wide) {
  if (wide && !deskaid::limbs::WideRowsAvailable()) return false;
  deskaid::limbs::UseWideRows(wide);
  return true;
}

inline std::string RowsName(bool wide) { return wide ? "WideRows" : "PlainRows"; }

}  // namespace mathtest
