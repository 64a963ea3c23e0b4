// CModPower: base^exponent mod modulus over CBigInt, one block at a time.
//
// The exponent and modulus are held in the object and persist between calls. PowMod works
// right to left through the exponent's bits and writes the squared base back into its argument:
// afterwards the argument holds base^(2^k) mod n, k being the number of squarings (one less than
// the exponent's bit length). Callers rely on that write-back, so it is kept.
#pragma once

#include <string>
#include <utility>

#include "deskaid/math/bigint.h"

class CModPower {
 public:
  void SetExponent(CBigInt exponent);
  void SetModulus(CBigInt modulus);

  // base^m_Exponent mod m_Modulus, with the remainder rules of CBigInt (the remainder takes the
  // dividend's sign). An exponent that is not above 0 gives 1 % n. A zero or null modulus
  // raises the divide fault.
  CBigInt PowMod(CBigInt& base);
  // The second entry of PowMod, with the same behaviour, write-back included.
  CBigInt Raise(CBigInt& base) { return PowMod(base); }
  // Stores the exponent, then the modulus, then computes PowMod(base).
  CBigInt Transform(CBigInt& base, CBigInt exponent, CBigInt modulus);
  // The second entry of Transform, with the same behaviour.
  CBigInt TransformBlock(CBigInt& base, CBigInt exponent, CBigInt modulus) {
    return Transform(base, std::move(exponent), std::move(modulus));
  }
  // Transform, then the decimal text of the result.
  std::string TransformText(CBigInt& base, CBigInt exponent, CBigInt modulus);
  // The decimal text of (value ^ m_Exponent) % m_Modulus.
  std::string MaskText(CBigInt value);
  // Stores the exponent, then the modulus, then MaskText(value).
  std::string MaskText(CBigInt value, CBigInt exponent, CBigInt modulus);

  CBigInt m_Modulus;
  CBigInt m_Exponent;
};
