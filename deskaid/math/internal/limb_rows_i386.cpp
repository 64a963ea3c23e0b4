// The wide rows of 32-bit x86 with GCC or Clang, for processors with SSE2 (see limb_rows.h).
#include <emmintrin.h>

#include "deskaid/common/internal/cpu_features.h"
#include "deskaid/math/internal/limb_rows_x86.h"

#if DESKAID_LIMB_ASM
#error "the 32-bit x86 rows are for 32-bit limbs on 32-bit x86"
#endif

namespace deskaid {
namespace limbs {
namespace {

// With SSE2 a row is split in halves, one in each 64-bit lane of a register, so that two carry
// chains run side by side; at the end the low half's carry enters the high half. A lane adds
// a[i] * m + r[i] + carry, which stays below 2^64, and keeps the upper 32 bits as its carry.
constexpr size_t kSplitRowFrom = 8;

__attribute__((target("sse2"))) Limb AddMul1Split(Limb* r, const Limb* a, size_t n, Limb m) {
  if (n < kSplitRowFrom) return AddMul1Plain(r, a, n, m);
  const Limb carry = n & 1 ? AddMulFirstLimb(r, a, m) : 0;
  const size_t h = n / 2;
  const __m128i mm = _mm_set_epi32(0, static_cast<int>(m), 0, static_cast<int>(m));
  __m128i acc = _mm_cvtsi32_si128(static_cast<int>(carry));
  for (size_t k = 0; k < h; ++k) {
    const __m128i av = _mm_unpacklo_epi64(_mm_cvtsi32_si128(static_cast<int>(a[k])),
                                          _mm_cvtsi32_si128(static_cast<int>(a[h + k])));
    const __m128i rv = _mm_unpacklo_epi64(_mm_cvtsi32_si128(static_cast<int>(r[k])),
                                          _mm_cvtsi32_si128(static_cast<int>(r[h + k])));
    acc = _mm_add_epi64(acc, _mm_add_epi64(_mm_mul_epu32(av, mm), rv));
    r[k] = static_cast<Limb>(_mm_cvtsi128_si32(acc));
    r[h + k] = static_cast<Limb>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(acc, acc)));
    acc = _mm_srli_epi64(acc, 32);
  }
  const Limb lowCarry = static_cast<Limb>(_mm_cvtsi128_si32(acc));
  const Limb highCarry = static_cast<Limb>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(acc, acc)));
  return highCarry + AddLimbInline(r + h, h, lowCarry);
}

// The second form of the 32-bit x86 rows: the split row for adding, the plain one for taking
// away (which two lanes do not help).
Limb SubMul1Split(Limb* r, const Limb* a, size_t n, Limb m) { return SubMul1Plain(r, a, n, m); }

}  // namespace

Rows WideRows() { return RowsOf<AddMul1Split, SubMul1Split>(); }

bool WideRowsAvailable() { return Cpu().sse2; }

}  // namespace limbs
}  // namespace deskaid
