// What the x86-64 and the 32-bit x86 rows share (see limb_rows.h): the assembly row with one carry
// chain, the loops made of rows, and the table of row functions that limb_rows_x86.cpp chooses from
// on first use. The rows with two carry chains are in each processor's own file.
#pragma once

#include <cstddef>

#include "deskaid/math/internal/limb_rows.h"

#if !DESKAID_LIMB_ROWS_ASM
#error "the x86 rows are assembly for GCC or Clang: other builds take limb_rows_portable.cpp"
#endif

namespace deskaid {
namespace limbs {

// The assembly keeps one instruction a line, as written, out of the formatter's reach.
// clang-format off
// Two limbs a pass: load, multiply, add the carry, then add the product's low limb to the limb
// of r (op add) or take it away (op sub), carrying or borrowing into the next product's high
// limb, with one chain through the flags. The same loop serves x86-64 and 32-bit x86: S is the
// size suffix, A and D the product's registers, W and W2 one and two limbs in bytes, and N and M
// say where the count and the multiplier are kept (in memory on 32-bit x86, which leaves the
// registers the loop needs).
#define DESKAID_ROW_LOOP_FOR(S, A, D, W, W2, N, M, op, acc)                    \
  __asm__(                                                                   \
      "1:\n\t"                                                                \
      "mov" S " (%[a]), %%" A "\n\t"                                           \
      "mul" S " %[m]\n\t"                                                     \
      "add" S " %[c], %%" A "\n\t"                                             \
      "mov" S " " W "(%[a]), %[c]\n\t"                                         \
      "adc" S " $0, %%" D "\n\t" op S " %%" A ", (%[r])\n\t"                   \
      "mov" S " %%" D ", %[t]\n\t"                                             \
      "adc" S " $0, %[t]\n\t"                                                 \
      "mov" S " %[c], %%" A "\n\t"                                             \
      "mul" S " %[m]\n\t"                                                     \
      "add" S " %[t], %%" A "\n\t"                                             \
      "adc" S " $0, %%" D "\n\t" op S " %%" A ", " W "(%[r])\n\t"              \
      "adc" S " $0, %%" D "\n\t"                                               \
      "mov" S " %%" D ", %[c]\n\t"                                             \
      "lea" S " " W2 "(%[a]), %[a]\n\t"                                        \
      "lea" S " " W2 "(%[r]), %[r]\n\t"                                        \
      "dec" S " %[n]\n\t"                                                     \
      "jnz 1b\n\t"                                                            \
      : [r] "+r"(r), [a] "+r"(a), [n] N(n), [c] "+r"(acc), [t] "=&r"(next)     \
      : [m] M(m)                                                             \
      : A, D, "cc", "memory")
#if DESKAID_LIMB_ASM
#define DESKAID_ROW_LOOP(op, acc) \
  DESKAID_ROW_LOOP_FOR("q", "rax", "rdx", "8", "16", "+r", "r", op, acc)
#else
#define DESKAID_ROW_LOOP(op, acc) \
  DESKAID_ROW_LOOP_FOR("l", "eax", "edx", "4", "8", "+m", "m", op, acc)
#endif

// r[0] += a[0] * m, for the odd limb in front of a row that goes two limbs at a time; returns
// the carry and moves both pointers on.
inline Limb AddMulFirstLimb(Limb*& r, const Limb*& a, Limb m) {
  const DoubleLimb t = static_cast<DoubleLimb>(*a++) * m + *r;
  *r++ = static_cast<Limb>(t);
  return static_cast<Limb>(t >> kLimbBits);
}

inline Limb AddMul1Plain(Limb* r, const Limb* a, size_t n, Limb m) {
  Limb carry = n & 1 ? AddMulFirstLimb(r, a, m) : 0;
  n /= 2;
  if (n == 0) return carry;
  Limb next;
  DESKAID_ROW_LOOP("add", carry);
  return carry;
}

inline Limb SubMul1Plain(Limb* r, const Limb* a, size_t n, Limb m) {
  Limb borrow = 0;
  if (n & 1) {
    const DoubleLimb p = static_cast<DoubleLimb>(a[0]) * m;
    const Limb pl = static_cast<Limb>(p);
    borrow = static_cast<Limb>(p >> kLimbBits) + (r[0] < pl);
    r[0] -= pl;
    ++r;
    ++a;
  }
  n /= 2;
  if (n == 0) return borrow;
  Limb next;
  DESKAID_ROW_LOOP("sub", borrow);
  return borrow;
}

#undef DESKAID_ROW_LOOP
#undef DESKAID_ROW_LOOP_FOR
// clang-format on

using RowFunction = Limb (*)(Limb*, const Limb*, size_t, Limb);

// The loops made of rows are written once over rows known at compile time, so that a row is
// inlined into its loop where the compiler can: a product, a square or a reduction then costs one
// call rather than one a row.

// r[0 .. na+nb) = a * b, nb >= 1.
template <RowFunction AddRow>
void ProductRowsOf(Limb* r, const Limb* a, size_t na, const Limb* b, size_t nb) {
  r[na] = Mul1Inline(r, a, na, b[0], 0);
  for (size_t j = 1; j < nb; ++j) r[na + j] = AddRow(r + j, a, na, b[j]);
}

// The cross products a[i]*a[j], i < j, once, into r[0 .. 2n): row i covers r[2i+1 .. n+i) and
// its carry is the first write of r[n+i].
template <RowFunction AddRow>
void SquareCrossRowsOf(Limb* r, const Limb* a, size_t n) {
  r[0] = 0;
  r[2 * n - 1] = 0;
  if (n > 1) {
    r[n] = Mul1Inline(r + 1, a + 1, n - 1, a[0], 0);
    for (size_t i = 1; i + 1 < n; ++i) r[n + i] = AddRow(r + 2 * i + 1, a + i + 1, n - i - 1, a[i]);
  }
}

// Row i clears t[i]; its carry belongs at t[i+n], which no later row's multiplier depends on, so
// it is kept in t[i] and the carries are added in one pass at the end.
template <RowFunction AddRow>
void MontgomeryRowsOf(Limb* t, const Limb* m, size_t n, Limb inverse) {
  for (size_t i = 0; i < n; ++i) t[i] = AddRow(t + i, m, n, t[i] * inverse);
  t[2 * n] = AddN(t + n, t + n, t, n);
}

struct Rows {
  RowFunction addMul1;
  RowFunction subMul1;
  void (*product)(Limb*, const Limb*, size_t, const Limb*, size_t);
  void (*squareCross)(Limb*, const Limb*, size_t);
  void (*montgomery)(Limb*, const Limb*, size_t, Limb);
};

template <RowFunction AddRow, RowFunction SubRow>
constexpr Rows RowsOf() {
  return Rows{AddRow, SubRow, ProductRowsOf<AddRow>, SquareCrossRowsOf<AddRow>,
              MontgomeryRowsOf<AddRow>};
}

// The rows with two carry chains, from the processor's own file.
Rows WideRows();

}  // namespace limbs
}  // namespace deskaid
