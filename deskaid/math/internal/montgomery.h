// Montgomery arithmetic modulo an odd number, used by CModPower for non-negative bases and odd
// positive moduli. Each step is a product and a word-by-word reduction instead of a long
// division.
#pragma once

#include "deskaid/math/internal/limb_kernels.h"

namespace deskaid {

class MontgomeryField {
 public:
  // `modulus` must be odd and trimmed, with at least one limb.
  explicit MontgomeryField(const limbs::LimbVector& modulus);

  size_t size() const { return m_n.size(); }
  // x (any size) into Montgomery form: x * R mod n, as size() limbs.
  limbs::LimbVector Enter(const limbs::LimbVector& x);
  // Out of Montgomery form, trimmed.
  limbs::LimbVector Leave(const limbs::LimbVector& x);
  // r = a * b * R^-1 mod n; all size() limbs, r may alias a or b.
  void Multiply(limbs::Limb* r, const limbs::Limb* a, const limbs::Limb* b);
  void Square(limbs::Limb* r, const limbs::Limb* a);
  // One in Montgomery form.
  limbs::LimbVector One();

 private:
  void Reduce(limbs::Limb* r);  // reduces m_t (2n+1 limbs) into r

  limbs::LimbVector m_n;
  limbs::Limb m_inverse;     // -n^-1 mod the limb base
  limbs::LimbVector m_rr;    // R^2 mod n
  limbs::LimbVector m_t;     // scratch, 2n+1 limbs
};

}  // namespace deskaid
