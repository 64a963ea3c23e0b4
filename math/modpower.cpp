#include "math/modpower.h"

#include <utility>

#include "math/bigint_internal.h"
#include "math/montgomery.h"

namespace {

using deskaid::limbs::Limb;
using deskaid::limbs::LimbVector;

// The plain route: every step reduced by CBigInt's remainder, which gives negative bases and
// moduli their signed results.
CBigInt PlainPowMod(CBigInt& base, const CBigInt& exponent, const CBigInt& n) {
  const CBigInt zero;
  CBigInt result(1);
  CBigInt e = exponent;
  if (e > zero) {
    do {
      if ((e & 1u).IsNonZero()) result = ((result % n) * (base % n)) % n;
      e = e >> 1;
      if (e > zero) base = ((base % n) * (base % n)) % n;
    } while (e > zero);
  }
  return result % n;
}

// Non-negative base, positive odd modulus of two or more words, positive exponent. The same
// right-to-left order in Montgomery form: the squarings of the base are the ones the write-back
// needs, so nothing is computed twice.
CBigInt MontgomeryPowMod(CBigInt& base, const CBigInt& exponent, const CBigInt& n) {
  LimbVector mod = deskaid::MagnitudeOf(n);
  LimbVector e = deskaid::MagnitudeOf(exponent);
  deskaid::MontgomeryField field(mod);
  const size_t size = field.size();
  LimbVector b = field.Enter(deskaid::MagnitudeOf(base));
  LimbVector result = field.One();
  bool resultIsOne = true;

  const size_t bits = (e.size() - 1) * deskaid::limbs::kLimbBits +
                      [](Limb top) {
                        int k = 0;
                        while (top) { ++k; top >>= 1; }
                        return static_cast<size_t>(k);
                      }(e.back());
  for (size_t i = 0; i < bits; ++i) {
    if ((e[i / deskaid::limbs::kLimbBits] >> (i % deskaid::limbs::kLimbBits)) & 1) {
      if (resultIsOne) {
        result = b;
        resultIsOne = false;
      } else {
        field.Multiply(result.data(), result.data(), b.data());
      }
    }
    if (i + 1 < bits) field.Square(b.data(), b.data());
  }
  (void)size;
  if (bits > 1) base = deskaid::FromMagnitude(field.Leave(b));
  return deskaid::FromMagnitude(field.Leave(result));
}

}  // namespace

void CModPower::SetExponent(CBigInt exponent) { m_Exponent = std::move(exponent); }

void CModPower::SetModulus(CBigInt modulus) { m_Modulus = std::move(modulus); }

CBigInt CModPower::PowMod(CBigInt& base) {
  const CBigInt& n = m_Modulus;
  const bool fast = !n.IsNull() && !n.IsNegative() && n.m_nLength >= 2 && (n.m_pData[0] & 1) &&
                    !base.IsNull() && !base.IsNegative() && !m_Exponent.IsNull() &&
                    !m_Exponent.IsNegative() && m_Exponent.IsNonZero();
  if (fast) {
    CBigInt copy = n;
    copy.Normalize();
    if (copy.m_nLength >= 2) return MontgomeryPowMod(base, m_Exponent, n);
  }
  return PlainPowMod(base, m_Exponent, n);
}

CBigInt CModPower::Transform(CBigInt& base, CBigInt exponent, CBigInt modulus) {
  SetExponent(std::move(exponent));
  SetModulus(std::move(modulus));
  return PowMod(base);
}

std::string CModPower::TransformText(CBigInt& base, CBigInt exponent, CBigInt modulus) {
  CBigInt result = Transform(base, std::move(exponent), std::move(modulus));
  return result.GetString(10);
}

std::string CModPower::MaskText(CBigInt value) {
  CBigInt t = value ^ m_Exponent;
  t = t % m_Modulus;
  return t.GetString(10);
}

std::string CModPower::MaskText(CBigInt value, CBigInt exponent, CBigInt modulus) {
  SetExponent(std::move(exponent));
  SetModulus(std::move(modulus));
  return MaskText(std::move(value));
}
