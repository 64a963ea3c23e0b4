// The addition and subtraction rows in C, for every build without the x86-64 assembly ones (see
// limb_rows.h).
#include "deskaid/math/internal/limb_kernels.h"

#if DESKAID_LIMB_ASM
#error "this build has the x86-64 assembly rows: limb_rows_x86_64.cpp defines AddN and SubN"
#endif

namespace deskaid {
namespace limbs {

Limb AddN(Limb* r, const Limb* a, const Limb* b, size_t n) {
  Limb carry = 0;
  for (size_t i = 0; i < n; ++i) {
    Limb s = a[i] + carry;
    Limb c1 = s < carry;
    Limb t = s + b[i];
    carry = c1 + (t < s);
    r[i] = t;
  }
  return carry;
}

Limb SubN(Limb* r, const Limb* a, const Limb* b, size_t n) {
  Limb borrow = 0;
  for (size_t i = 0; i < n; ++i) {
    Limb ai = a[i], bi = b[i];
    Limb t = ai - bi;
    Limb b1 = ai < bi;
    Limb t2 = t - borrow;
    borrow = b1 + (t < borrow);
    r[i] = t2;
  }
  return borrow;
}

}  // namespace limbs
}  // namespace deskaid
