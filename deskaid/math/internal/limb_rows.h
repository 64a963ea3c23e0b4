// Between the shared algorithms of limb_kernels.cpp and the rows, which differ by processor. The
// build compiles one set of rows, chosen by deskaid_limb_rows (cmake/deskaid.cmake) to agree with
// DESKAID_LIMB_ASM and DESKAID_LIMB_ROWS_ASM: on x86-64 with GCC or Clang, limb_rows_x86.cpp and
// limb_rows_x86_64.cpp; on 32-bit x86 with GCC or Clang, limb_rows_x86.cpp, limb_rows_i386.cpp and
// limb_addsub_portable.cpp; everywhere else (MSVC among them) limb_rows_portable.cpp and
// limb_addsub_portable.cpp. Besides what is declared here, a set defines AddN, SubN, AddMul1,
// SubMul1, MontgomeryRows, WideRowsAvailable and UseWideRows of limb_kernels.h.
#pragma once

#include <cstddef>

#include "deskaid/math/internal/limb_kernels.h"

namespace deskaid {
namespace limbs {

// r[0 .. na+nb) = a * b, row by row; na >= nb >= 1, and r overlaps neither a nor b.
void ProductRows(Limb* r, const Limb* a, size_t na, const Limb* b, size_t nb);
// The cross products a[i]*a[j], i < j, once, into r[0 .. 2n); n >= 1.
void SquareCrossRows(Limb* r, const Limb* a, size_t n);

// The loops of Mul1 and AddLimb, for the rows' files: the loops there that start or end with them
// would otherwise pay a call for what was inlined when rows and algorithms shared one file.
inline Limb Mul1Inline(Limb* r, const Limb* a, size_t n, Limb m, Limb carry) {
  for (size_t i = 0; i < n; ++i) {
    DoubleLimb t = static_cast<DoubleLimb>(a[i]) * m + carry;
    r[i] = static_cast<Limb>(t);
    carry = static_cast<Limb>(t >> kLimbBits);
  }
  return carry;
}

inline Limb AddLimbInline(Limb* r, size_t rn, Limb x) {
  for (size_t i = 0; i < rn && x; ++i) {
    r[i] += x;
    x = r[i] < x ? 1 : 0;
  }
  return x;
}

// What MontgomeryRows requires of its arguments, checked by every form of it: a modulus of at
// least one limb, and an inverse with m[0] * inverse = -1 modulo the limb base (so m is odd).
inline bool MontgomeryArgumentsValid(const Limb* m, size_t n, Limb inverse) {
  return n >= 1 && static_cast<Limb>(m[0] * inverse) == ~static_cast<Limb>(0);
}

}  // namespace limbs
}  // namespace deskaid
