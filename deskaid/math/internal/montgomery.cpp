#include "deskaid/math/internal/montgomery.h"

#include <atomic>
#include <cstring>

namespace deskaid {

using limbs::Limb;
using limbs::LimbVector;

namespace {

std::atomic<bool> g_digitProducts{true};

}  // namespace

bool UseDigitProducts(bool wanted) {
  const bool use = wanted && ifma::Available();
  g_digitProducts.store(use, std::memory_order_relaxed);
  return use;
}

MontgomeryField::MontgomeryField(const LimbVector& modulus) : m_n(modulus), m_size(modulus.size()) {
  const size_t n = m_n.size();
  // Newton's iteration for the inverse of n[0] modulo the limb base: each step doubles the bits.
  Limb inv = 1;
  for (int i = 0; i < 7; ++i) inv *= 2 - m_n[0] * inv;
  m_inverse = static_cast<Limb>(0) - inv;
#if DESKAID_LIMB_ASM
  // A one-limb modulus is faster in limbs: its product is a few instructions either way, and the
  // digits would take a whole vector.
  const size_t digits = ifma::DigitsFor(n);
  if (n >= 2 && g_digitProducts.load(std::memory_order_relaxed) && ifma::Available() &&
      ifma::ProductFor(ifma::WordsFor(digits)) != nullptr) {
    m_digitCount = digits;
    m_size = ifma::WordsFor(digits);
    m_digits = ifma::ProductFor(m_size);
    // R = 2^(52 * digits): R^2 mod n, in digits.
    LimbVector r2(2 * 52 * digits / 64 + 1, 0), rr;
    r2.back() = Limb(1) << (2 * 52 * digits % 64);
    limbs::DivMod(r2, m_n, nullptr, &rr);
    m_rr.assign(m_size, 0);
    ifma::ToDigits(rr.data(), rr.size(), m_rr.data(), m_size);
    m_nDigits.assign(m_size, 0);
    ifma::ToDigits(m_n.data(), n, m_nDigits.data(), m_size);
    return;
  }
#endif
  // R = base^n: R^2 mod n.
  LimbVector r2(2 * n + 1, 0);
  r2[2 * n] = 1;
  limbs::DivMod(r2, m_n, nullptr, &m_rr);
  m_rr.resize(n, 0);
  m_t.assign(2 * n + 1, 0);
}

void MontgomeryField::Reduce(Limb* r) {
  const size_t n = m_n.size();
  Limb* t = m_t.data();
  limbs::MontgomeryRows(t, m_n.data(), n, m_inverse);
  // The result t[n .. 2n] is below 2n; one subtraction brings it under n.
  if (t[2 * n] != 0 || limbs::CompareN(t + n, m_n.data(), n) >= 0) {
    limbs::SubN(r, t + n, m_n.data(), n);
  } else {
    std::memcpy(r, t + n, n * sizeof(Limb));
  }
}

void MontgomeryField::Multiply(Limb* r, const Limb* a, const Limb* b) {
#if DESKAID_LIMB_ASM
  if (m_digits != nullptr) {
    // -n^-1 modulo 2^52 is the low bits of the inverse modulo 2^64.
    m_digits(r, a, b, m_nDigits.data(), m_inverse & ((Limb(1) << 52) - 1), m_digitCount);
    return;
  }
#endif
  const size_t n = m_n.size();
  limbs::Multiply(m_t.data(), a, n, b, n);
  Reduce(r);
}

void MontgomeryField::Square(Limb* r, const Limb* a) {
  if (m_digits != nullptr) {
    Multiply(r, a, a);
    return;
  }
  limbs::Square(m_t.data(), a, m_n.size());
  Reduce(r);
}

LimbVector MontgomeryField::Enter(const LimbVector& x) {
  const size_t n = m_n.size();
  LimbVector reduced;
  limbs::DivMod(x, m_n, nullptr, &reduced);
  reduced.resize(n, 0);
  LimbVector out(m_size);
#if DESKAID_LIMB_ASM
  if (m_digits != nullptr) {
    LimbVector digits(m_size);
    ifma::ToDigits(reduced.data(), n, digits.data(), m_size);
    Multiply(out.data(), digits.data(), m_rr.data());
    return out;
  }
#endif
  Multiply(out.data(), reduced.data(), m_rr.data());
  return out;
}

LimbVector MontgomeryField::Leave(const LimbVector& x) {
  const size_t n = m_n.size();
  LimbVector out(n);
#if DESKAID_LIMB_ASM
  if (m_digits != nullptr) {
    // x / R modulo n, from x below 2n: x + q * n is below (R + 2) * n, so the quotient is at
    // most n, and n itself (from a multiple of n) becomes 0.
    LimbVector one(m_size, 0), digits(m_size);
    one[0] = 1;
    Multiply(digits.data(), x.data(), one.data());
    ifma::FromDigits(digits.data(), m_size, out.data(), n);
    if (limbs::CompareN(out.data(), m_n.data(), n) >= 0) {
      limbs::SubN(out.data(), out.data(), m_n.data(), n);
    }
    limbs::Trim(out);
    return out;
  }
#endif
  std::memset(m_t.data(), 0, m_t.size() * sizeof(Limb));
  std::memcpy(m_t.data(), x.data(), n * sizeof(Limb));
  Reduce(out.data());
  limbs::Trim(out);
  return out;
}

}  // namespace deskaid
