// The multiply-and-add rows in C, for the builds without assembly rows: MSVC's, other processors',
// and those asked for with DESKAID_PORTABLE_LIMBS or DESKAID_NARROW_LIMBS (see limb_rows.h).
// Without a second carry chain in the processor, two multiplier limbs a pass halve the loads and
// stores.
#include <cassert>
#include <cstring>

#include "deskaid/math/internal/limb_rows.h"

#if DESKAID_LIMB_ROWS_ASM
#error "this build has assembly rows: limb_rows_x86.cpp and its processor's file belong to it"
#endif

namespace deskaid {
namespace limbs {
namespace {

// r[0..n) += a[0..n) * (m0 + m1 * base); the two limbs above (for r[n] and r[n+1]) come back in
// hi[0] and hi[1].
void AddMul2(Limb* r, const Limb* a, size_t n, Limb m0, Limb m1, Limb hi[2]) {
  // lo carries into the next position, high into the one after it.
  Limb lo = 0, high = 0;
  for (size_t i = 0; i < n; ++i) {
    const DoubleLimb t = static_cast<DoubleLimb>(a[i]) * m0 + r[i] + lo;
    r[i] = static_cast<Limb>(t);
    const DoubleLimb u =
        static_cast<DoubleLimb>(a[i]) * m1 + static_cast<Limb>(t >> kLimbBits) + high;
    lo = static_cast<Limb>(u);
    high = static_cast<Limb>(u >> kLimbBits);
  }
  hi[0] = lo;
  hi[1] = high;
}

}  // namespace

Limb AddMul1(Limb* r, const Limb* a, size_t n, Limb m) {
  Limb carry = 0;
  for (size_t i = 0; i < n; ++i) {
    DoubleLimb t = static_cast<DoubleLimb>(a[i]) * m + r[i] + carry;
    r[i] = static_cast<Limb>(t);
    carry = static_cast<Limb>(t >> kLimbBits);
  }
  return carry;
}

Limb SubMul1(Limb* r, const Limb* a, size_t n, Limb m) {
  Limb carry = 0;
  for (size_t i = 0; i < n; ++i) {
    const DoubleLimb p = static_cast<DoubleLimb>(a[i]) * m + carry;
    const Limb pl = static_cast<Limb>(p);
    const Limb ri = r[i];
    carry = static_cast<Limb>(p >> kLimbBits) + (ri < pl);
    r[i] = ri - pl;
  }
  return carry;
}
bool WideRowsAvailable() { return false; }
bool UseWideRows(bool) { return false; }

void MontgomeryRows(Limb* t, const Limb* m, size_t n, Limb inverse) {
  assert(MontgomeryArgumentsValid(m, n, inverse));
  t[2 * n] = 0;
  size_t i = 0;
  // Two limbs a pass: m0 clears t[i]; m1 is chosen for what t[i+1] will be after m0's row.
  for (; i + 1 < n; i += 2) {
    const Limb m0 = t[i] * inverse;
    const DoubleLimb x = static_cast<DoubleLimb>(m0) * m[0] + t[i];
    const Limb next = t[i + 1] + static_cast<Limb>(static_cast<DoubleLimb>(m0) * m[1]) +
                      static_cast<Limb>(x >> kLimbBits);
    const Limb m1 = next * inverse;
    Limb hi[2];
    AddMul2(t + i, m, n, m0, m1, hi);
    AddLimbInline(t + i + n, n + 1 - i, hi[0]);
    AddLimbInline(t + i + n + 1, n - i, hi[1]);
  }
  for (; i < n; ++i) {
    const Limb c = AddMul1(t + i, m, n, t[i] * inverse);
    AddLimbInline(t + i + n, 2 * n + 1 - (i + n), c);
  }
}

void ProductRows(Limb* r, const Limb* a, size_t na, const Limb* b, size_t nb) {
  size_t j = 0;
  if (nb % 2) {
    r[na] = Mul1Inline(r, a, na, b[0], 0);
    j = 1;
  } else {
    std::memset(r, 0, na * sizeof(Limb));
  }
  for (; j < nb; j += 2) {
    Limb hi[2];
    AddMul2(r + j, a, na, b[j], b[j + 1], hi);
    r[na + j] = hi[0];
    r[na + j + 1] = hi[1];
  }
}

void SquareCrossRows(Limb* r, const Limb* a, size_t n) {
  // Two rows a pass.
  std::memset(r, 0, 2 * n * sizeof(Limb));
  size_t i = 0;
  for (; i + 2 < n; i += 2) {
    // a[i+1]*a[i] on its own, then a[j]*a[i] and a[j]*a[i+1] for j >= i+2 together.
    DoubleLimb p = static_cast<DoubleLimb>(a[i + 1]) * a[i];
    AddLimbInline(r + 2 * i + 1, 2 * n - 2 * i - 1, static_cast<Limb>(p));
    AddLimbInline(r + 2 * i + 2, 2 * n - 2 * i - 2, static_cast<Limb>(p >> kLimbBits));
    Limb hi[2];
    AddMul2(r + 2 * i + 2, a + i + 2, n - i - 2, a[i], a[i + 1], hi);
    AddLimbInline(r + i + n, n - i, hi[0]);
    AddLimbInline(r + i + n + 1, n - i - 1, hi[1]);
  }
  for (; i + 1 < n; ++i) {
    Limb c = AddMul1(r + 2 * i + 1, a + i + 1, n - i - 1, a[i]);
    AddLimbInline(r + n + i, n - i, c);
  }
}

}  // namespace limbs
}  // namespace deskaid
