#include "deskaid/math/internal/montgomery.h"

#include <cstring>

namespace deskaid {

using limbs::Limb;
using limbs::LimbVector;

MontgomeryField::MontgomeryField(const LimbVector& modulus) : m_n(modulus) {
  const size_t n = m_n.size();
  // Newton's iteration for the inverse of n[0] modulo the limb base: each step doubles the bits.
  Limb inv = 1;
  for (int i = 0; i < 7; ++i) inv *= 2 - m_n[0] * inv;
  m_inverse = static_cast<Limb>(0) - inv;
  // R^2 mod n, R = base^n.
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
  const size_t n = m_n.size();
  limbs::Multiply(m_t.data(), a, n, b, n);
  Reduce(r);
}

void MontgomeryField::Square(Limb* r, const Limb* a) {
  limbs::Square(m_t.data(), a, m_n.size());
  Reduce(r);
}

LimbVector MontgomeryField::Enter(const LimbVector& x) {
  const size_t n = m_n.size();
  LimbVector reduced;
  limbs::DivMod(x, m_n, nullptr, &reduced);
  reduced.resize(n, 0);
  LimbVector out(n);
  Multiply(out.data(), reduced.data(), m_rr.data());
  return out;
}

LimbVector MontgomeryField::Leave(const LimbVector& x) {
  const size_t n = m_n.size();
  std::memset(m_t.data(), 0, m_t.size() * sizeof(Limb));
  std::memcpy(m_t.data(), x.data(), n * sizeof(Limb));
  LimbVector out(n);
  Reduce(out.data());
  limbs::Trim(out);
  return out;
}

LimbVector MontgomeryField::One() {
  LimbVector one{1};
  return Enter(one);
}

}  // namespace deskaid
