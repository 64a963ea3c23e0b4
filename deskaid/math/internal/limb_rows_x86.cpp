// The row functions of x86-64 and 32-bit x86 with GCC or Clang (see limb_rows.h): the assembly row
// with one carry chain or the processor's wide one, chosen on first use from what cpuid reports.
#include <cassert>

#include "deskaid/math/internal/limb_rows_x86.h"

namespace deskaid {
namespace limbs {
namespace {

constexpr Rows kPlainRows = RowsOf<AddMul1Plain, SubMul1Plain>();

// Chosen on first use rather than by a static initialiser, so that big integers built during
// other static initialisation already find their rows.
Rows& ActiveRows() {
  static Rows rows = WideRowsAvailable() ? WideRows() : kPlainRows;
  return rows;
}

}  // namespace

void ProductRows(Limb* r, const Limb* a, size_t na, const Limb* b, size_t nb) {
  ActiveRows().product(r, a, na, b, nb);
}

void SquareCrossRows(Limb* r, const Limb* a, size_t n) { ActiveRows().squareCross(r, a, n); }

Limb AddMul1(Limb* r, const Limb* a, size_t n, Limb m) { return ActiveRows().addMul1(r, a, n, m); }
Limb SubMul1(Limb* r, const Limb* a, size_t n, Limb m) { return ActiveRows().subMul1(r, a, n, m); }

void MontgomeryRows(Limb* t, const Limb* m, size_t n, Limb inverse) {
  assert(MontgomeryArgumentsValid(m, n, inverse));
  ActiveRows().montgomery(t, m, n, inverse);
}

bool UseWideRows(bool wanted) {
  const bool wide = wanted && WideRowsAvailable();
  ActiveRows() = wide ? WideRows() : kPlainRows;
  return wide;
}

}  // namespace limbs
}  // namespace deskaid
