// The rows of x86-64 with GCC or Clang (see limb_rows.h): addition and subtraction with the carry
// chain in the carry flag, and the wide multiply-and-add rows for processors with BMI2 and ADX.
#include "deskaid/common/internal/cpu_features.h"
#include "deskaid/math/internal/limb_rows_x86.h"

#if !DESKAID_LIMB_ASM
#error "the x86-64 rows need GCC or Clang on x86-64 with 64-bit limbs"
#endif

namespace deskaid {
namespace limbs {
namespace {

// The assembly keeps one instruction a line, as written, out of the formatter's reach.
// clang-format off
// The carry (or borrow) chain of four limbs a pass in the carry flag; lea and dec leave it alone.
#define DESKAID_ADD_SUB_LOOP(op)                                                        \
  __asm__(                                                                              \
      "addq $-1, %[c]\n\t" /* carry flag = c */                                         \
      "1:\n\t"                                                                          \
      "movq (%[a]), %[t]\n\t" op " (%[b]), %[t]\n\t" "movq %[t], (%[r])\n\t"           \
      "movq 8(%[a]), %[t]\n\t" op " 8(%[b]), %[t]\n\t" "movq %[t], 8(%[r])\n\t"        \
      "movq 16(%[a]), %[t]\n\t" op " 16(%[b]), %[t]\n\t" "movq %[t], 16(%[r])\n\t"     \
      "movq 24(%[a]), %[t]\n\t" op " 24(%[b]), %[t]\n\t" "movq %[t], 24(%[r])\n\t"     \
      "leaq 32(%[a]), %[a]\n\t"                                                         \
      "leaq 32(%[b]), %[b]\n\t"                                                         \
      "leaq 32(%[r]), %[r]\n\t"                                                         \
      "decq %[n]\n\t"                                                                   \
      "jnz 1b\n\t"                                                                      \
      "movl $0, %k[c]\n\t"                                                              \
      "setc %b[c]\n\t"                                                                  \
      : [r] "+r"(r), [a] "+r"(a), [b] "+r"(b), [n] "+r"(n), [c] "+r"(carry), [t] "=&r"(t) \
      :                                                                                 \
      : "cc", "memory")

}  // namespace

Limb AddN(Limb* r, const Limb* a, const Limb* b, size_t n) {
  Limb carry = 0;
  for (; n % 4; --n, ++r, ++a, ++b) {
    const Limb s = a[0] + carry;
    const Limb c1 = s < carry;
    const Limb t = s + b[0];
    carry = c1 + (t < s);
    r[0] = t;
  }
  if (n == 0) return carry;
  n /= 4;
  Limb t;
  DESKAID_ADD_SUB_LOOP("adcq");
  return carry;
}

Limb SubN(Limb* r, const Limb* a, const Limb* b, size_t n) {
  Limb carry = 0;
  for (; n % 4; --n, ++r, ++a, ++b) {
    const Limb ai = a[0], bi = b[0];
    const Limb t = ai - bi;
    const Limb b1 = ai < bi;
    r[0] = t - carry;
    carry = b1 + (t < carry);
  }
  if (n == 0) return carry;
  n /= 4;
  Limb t;
  DESKAID_ADD_SUB_LOOP("sbbq");
  return carry;
}
#undef DESKAID_ADD_SUB_LOOP

namespace {

// The same rows with BMI2 and ADX: mulx leaves the flags alone, so the carries of the products
// (adcx, carry flag) and of the additions into r (adox, overflow flag) run as two chains side by
// side. The loop counter moves by lea and is tested by jrcxz, which touch no flag.
// Four limbs a pass; the subtracting row complements each low limb before adding it to r
// (flip_lo, flip_lo2), the adding row leaves them as they are.
#define DESKAID_WIDE_ROW_LOOP(flip_lo, flip_lo2)                             \
  "1:\n\t"                                                                   \
  "jrcxz 2f\n\t"                                                             \
  "mulx (%[a]), %[lo], %[hi]\n\t"                                            \
  "mulx 8(%[a]), %[lo2], %[hi2]\n\t"                                         \
  "adcx %[c], %[lo]\n\t" flip_lo "adox (%[r]), %[lo]\n\t"                     \
  "movq %[lo], (%[r])\n\t"                                                   \
  "adcx %[hi], %[lo2]\n\t" flip_lo2 "adox 8(%[r]), %[lo2]\n\t"                \
  "movq %[lo2], 8(%[r])\n\t"                                                 \
  "mulx 16(%[a]), %[lo], %[hi]\n\t"                                          \
  "mulx 24(%[a]), %[lo2], %[c]\n\t"                                          \
  "adcx %[hi2], %[lo]\n\t" flip_lo "adox 16(%[r]), %[lo]\n\t"                 \
  "movq %[lo], 16(%[r])\n\t"                                                 \
  "adcx %[hi], %[lo2]\n\t" flip_lo2 "adox 24(%[r]), %[lo2]\n\t"               \
  "movq %[lo2], 24(%[r])\n\t"                                                \
  "leaq 32(%[a]), %[a]\n\t"                                                  \
  "leaq 32(%[r]), %[r]\n\t"                                                  \
  "leaq -1(%%rcx), %%rcx\n\t"                                                \
  "jmp 1b\n\t"

inline Limb AddMul1Wide(Limb* r, const Limb* a, size_t n, Limb m) {
  Limb carry = 0;
  for (; n % 4; --n, ++r, ++a) {
    const DoubleLimb t = static_cast<DoubleLimb>(a[0]) * m + r[0] + carry;
    r[0] = static_cast<Limb>(t);
    carry = static_cast<Limb>(t >> kLimbBits);
  }
  n /= 4;
  Limb lo, hi, lo2, hi2;
  __asm__(
      "xorl %k[lo], %k[lo]\n\t"
      DESKAID_WIDE_ROW_LOOP("", "")
      "2:\n\t"
      "movl $0, %k[lo]\n\t"
      "adcx %[lo], %[c]\n\t"
      "adox %[lo], %[c]\n\t"
      : [r] "+r"(r), [a] "+r"(a), "+c"(n), [c] "+r"(carry), [lo] "=&r"(lo), [hi] "=&r"(hi),
        [lo2] "=&r"(lo2), [hi2] "=&r"(hi2)
      : "d"(m)
      : "cc", "memory");
  return carry;
}

// r - p is r + ~p + 1 less one unit above the top: the additions run on the overflow flag, set
// to 1 at the start, and a clear flag at the end is the borrow.
inline Limb SubMul1Wide(Limb* r, const Limb* a, size_t n, Limb m) {
  Limb borrow = 0;
  for (; n % 4; --n, ++r, ++a) {
    const DoubleLimb p = static_cast<DoubleLimb>(a[0]) * m + borrow;
    const Limb pl = static_cast<Limb>(p);
    borrow = static_cast<Limb>(p >> kLimbBits) + (r[0] < pl);
    r[0] -= pl;
  }
  n /= 4;
  Limb lo, hi, lo2, hi2;
  __asm__(
      "movabsq $0x7fffffffffffffff, %[lo]\n\t"
      "addq $1, %[lo]\n\t"  // overflow flag 1, carry flag 0
      DESKAID_WIDE_ROW_LOOP("notq %[lo]\n\t", "notq %[lo2]\n\t")
      "2:\n\t"
      "seto %b[lo]\n\t"
      "movl $0, %k[hi]\n\t"
      "adcx %[hi], %[c]\n\t"
      "movzbl %b[lo], %k[lo]\n\t"
      "subq %[lo], %[c]\n\t"
      "addq $1, %[c]\n\t"
      : [r] "+r"(r), [a] "+r"(a), "+c"(n), [c] "+r"(borrow), [lo] "=&r"(lo), [hi] "=&r"(hi),
        [lo2] "=&r"(lo2), [hi2] "=&r"(hi2)
      : "d"(m)
      : "cc", "memory");
  return borrow;
}

#undef DESKAID_WIDE_ROW_LOOP
// clang-format on

}  // namespace

Rows WideRows() { return RowsOf<AddMul1Wide, SubMul1Wide>(); }

bool WideRowsAvailable() { return Cpu().bmi2Adx; }

}  // namespace limbs
}  // namespace deskaid
