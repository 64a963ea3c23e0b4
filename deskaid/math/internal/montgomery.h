// Montgomery arithmetic modulo an odd number, used by CModPower for non-negative bases and odd
// positive moduli. Each step is a product and a word-by-word reduction instead of a long
// division.
//
// An element is held in the field's own form, size() limbs: on processors with AVX-512 IFMA (see
// montgomery_ifma.h) as 52-bit digits, kept below twice the modulus, and elsewhere as limbs below
// the modulus. Callers only move elements between the field's operations, so the form does not
// show outside it: Enter and Leave convert, and Leave gives the value reduced in full.
#pragma once

#include "deskaid/math/internal/limb_kernels.h"
#include "deskaid/math/internal/montgomery_ifma.h"

namespace deskaid {

class MontgomeryField {
 public:
  // `modulus` must be odd and trimmed, with at least one limb.
  explicit MontgomeryField(const limbs::LimbVector& modulus);

  size_t size() const { return m_size; }
  // x (any size) into Montgomery form: x * R mod n, as size() limbs.
  limbs::LimbVector Enter(const limbs::LimbVector& x);
  // Out of Montgomery form, reduced below the modulus and trimmed.
  limbs::LimbVector Leave(const limbs::LimbVector& x);
  // r = a * b * R^-1 mod n; all size() limbs, r may alias a or b.
  void Multiply(limbs::Limb* r, const limbs::Limb* a, const limbs::Limb* b);
  void Square(limbs::Limb* r, const limbs::Limb* a);

 private:
  void Reduce(limbs::Limb* r);  // limb form: reduces m_t into r

  limbs::LimbVector m_n;
  limbs::Limb m_inverse;             // -n^-1 mod the limb base
  size_t m_size;                     // limbs of an element
  limbs::LimbVector m_rr;            // R^2 mod n, in the element form
  limbs::LimbVector m_t;             // limb form: scratch of 2n+1 limbs
  ifma::Product m_digits = nullptr;  // digit form: its product; null in the limb form
  size_t m_digitCount = 0;           // digit form: digits of an element
  limbs::LimbVector m_nDigits;       // digit form: the modulus
};

// Whether Montgomery products use the digit form where the processor offers it (the default);
// returns whether they now do. For tests and measurements, which run both forms; fields made
// before the call keep their form. Not for use while another thread computes.
bool UseDigitProducts(bool wanted);

}  // namespace deskaid
