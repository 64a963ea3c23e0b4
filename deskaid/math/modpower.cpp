#include "deskaid/math/modpower.h"

#include <utility>
#include <vector>

#include "deskaid/math/internal/bigint_internal.h"
#include "deskaid/math/internal/montgomery.h"

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
// right-to-left walk in Montgomery form: the base is squared once per exponent bit, which is
// exactly what the write-back needs. The multiplications are grouped by window (Yao's method):
// base^(2^(w*i)) goes into the bucket of the exponent's i-th w-bit digit, and the buckets are
// combined at the end, so a window costs one multiplication instead of one per set bit.
CBigInt MontgomeryPowMod(CBigInt& base, const CBigInt& exponent, const CBigInt& n) {
  constexpr int kLimbBits = deskaid::limbs::kLimbBits;
  LimbVector e = deskaid::MagnitudeOf(exponent);
  deskaid::MontgomeryField field(deskaid::MagnitudeOf(n));
  const size_t size = field.size();
  LimbVector b = field.Enter(deskaid::MagnitudeOf(base));

  size_t bits = (e.size() - 1) * kLimbBits;
  for (Limb top = e.back(); top; top >>= 1) ++bits;
  const int w = bits <= 24 ? 1 : bits <= 96 ? 3 : bits <= 384 ? 4 : bits <= 1536 ? 5 : 6;
  auto digitAt = [&](size_t bit) {
    Limb d = 0;
    for (int k = w - 1; k >= 0; --k) {
      const size_t i = bit + static_cast<size_t>(k);
      d = (d << 1) | (i < bits ? (e[i / kLimbBits] >> (i % kLimbBits)) & 1 : 0);
    }
    return static_cast<size_t>(d);
  };

  std::vector<LimbVector> buckets(static_cast<size_t>(1) << w);
  for (size_t i = 0; i < bits; ++i) {
    if (i % w == 0) {
      const size_t d = digitAt(i);
      if (d != 0) {
        if (buckets[d].empty()) {
          buckets[d] = b;
        } else {
          field.Multiply(buckets[d].data(), buckets[d].data(), b.data());
        }
      }
    }
    if (i + 1 < bits) field.Square(b.data(), b.data());
  }
  // result = prod over d of bucket[d]^d, as a running product of running products.
  LimbVector running, result;
  for (size_t d = buckets.size() - 1; d >= 1; --d) {
    if (!buckets[d].empty()) {
      if (running.empty()) {
        running = buckets[d];
      } else {
        field.Multiply(running.data(), running.data(), buckets[d].data());
      }
    }
    if (running.empty()) continue;
    if (result.empty()) {
      result = running;
    } else {
      field.Multiply(result.data(), result.data(), running.data());
    }
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
