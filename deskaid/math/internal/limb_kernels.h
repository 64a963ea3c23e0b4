// Arithmetic on unsigned magnitudes held as little-endian limb arrays. These are the fast inner
// loops behind CBigInt's multiplication, division and text conversion and behind the Montgomery
// route of CModPower. A limb is 64 bits where the compiler offers a 128-bit product and 32 bits
// otherwise (the 32-bit Windows build); CBigInt's own words are always 32 bits and are packed into
// limbs on the way in (see PackWords / UnpackWords).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace deskaid {
namespace limbs {

// DESKAID_NARROW_LIMBS asks for 32-bit limbs everywhere, so that the limb arithmetic of the 32-bit
// build can be tried natively.
#if defined(__SIZEOF_INT128__) && !defined(DESKAID_NARROW_LIMBS)
using Limb = uint64_t;
using DoubleLimb = unsigned __int128;
#else
using Limb = uint32_t;
using DoubleLimb = uint64_t;
#endif
constexpr int kLimbBits = static_cast<int>(sizeof(Limb) * 8);
constexpr int kWordsPerLimb = static_cast<int>(sizeof(Limb) / sizeof(uint32_t));

using LimbVector = std::vector<Limb>;

// x86-64 with GCC or Clang: the multiply-and-add rows are written in assembly (see AddMul1);
// DESKAID_PORTABLE_LIMBS keeps the portable loops there too. The build compiles the rows' files to
// match these two switches (see limb_rows.h).
#if defined(__GNUC__) && defined(__x86_64__) && defined(__SIZEOF_INT128__) && \
    !defined(DESKAID_NARROW_LIMBS) && !defined(DESKAID_PORTABLE_LIMBS)
#define DESKAID_LIMB_ASM 1
#else
#define DESKAID_LIMB_ASM 0
#endif

// Where the multiply-and-add rows are assembly (x86-64 above, and 32-bit x86 with GCC or Clang),
// products and reductions go row by row: one assembly row beats the two-row loops in C.
#if DESKAID_LIMB_ASM || (defined(__GNUC__) && defined(__i386__) && !defined(DESKAID_PORTABLE_LIMBS))
#define DESKAID_LIMB_ROWS_ASM 1
#else
#define DESKAID_LIMB_ROWS_ASM 0
#endif

// Operand size (limbs) from which multiplication splits into three half-size products.
constexpr size_t kKaratsubaThreshold = kLimbBits == 64 ? 44 : 96;
// The same for squares, whose plain form does half the products.
constexpr size_t kKaratsubaSquareThreshold = kLimbBits == 64 ? 64 : 96;
// Operand size (limbs) from which products and squares split into three pieces (Toom-3).
constexpr size_t kToom3Threshold = kLimbBits == 64 ? 160 : 256;
constexpr size_t kToom3SquareThreshold = kLimbBits == 64 ? 500 : 400;
// Divisor size (limbs) from which division works in halves, with the quotient of each half
// estimated from the top of the divisor and corrected by a product.
constexpr size_t kDivideRecursionThreshold = kLimbBits == 64 ? 70 : 80;
// Text longer than this many limbs' worth of digits is converted in halves, both ways: to a
// number as high half times a power of the radix plus low half, and to text by division by a
// power of the radix.
constexpr size_t kTextSplitLimbs = 24;

// Packs `count` 32-bit words into limbs; the result has no zero limbs at the top (may be empty).
LimbVector PackWords(const uint32_t* words, size_t count);
// Writes the magnitude into `count` 32-bit words, zero-filled above it (the magnitude must fit).
void UnpackWords(const Limb* a, size_t n, uint32_t* words, size_t count);

// Drops zero limbs from the top.
void Trim(LimbVector& a);

// r = a + b, r = a - b over n limbs; the carry or borrow comes back. r may alias a or b.
Limb AddN(Limb* r, const Limb* a, const Limb* b, size_t n);
Limb SubN(Limb* r, const Limb* a, const Limb* b, size_t n);
// r[0..n) += m * a[0..n); returns the carry limb.
Limb AddMul1(Limb* r, const Limb* a, size_t n, Limb m);
// r[0..n) -= m * a[0..n); returns the borrow limb.
Limb SubMul1(Limb* r, const Limb* a, size_t n, Limb m);
// The rows above come in three forms: portable loops; assembly with one carry chain (x86-64, and
// 32-bit x86); and the wide form with two carry chains, chosen by cpuid on first use: on x86-64
// processors with BMI2 and ADX, mulx with the carry and overflow flags; on 32-bit x86 processors
// with SSE2, the two halves of the row in the two lanes of a register (AddMul1 only).
bool WideRowsAvailable();
// Chooses between the assembly form and the wide one (tests run both); returns whether the wide
// rows are now in use. Not for use while another thread computes.
bool UseWideRows(bool wanted);
// The rows of a Montgomery reduction modulo the odd m[0..n), with inverse = -m^-1 mod the limb
// base: adds q * m to t[0 .. 2n), where q is chosen limb by limb so that t[0..n) becomes zero, and
// writes the carry out of the top into t[2n] (t holds 2n + 1 limbs). t[n .. 2n] is then the
// reduced value, below 2m when t was below m times the limb base to the n; t[0..n) is left as
// scratch.
void MontgomeryRows(Limb* t, const Limb* m, size_t n, Limb inverse);
// r[0..rn) += a[0..n), n <= rn, carrying upward; returns the carry out of r[rn-1].
Limb AddLimbs(Limb* r, size_t rn, const Limb* a, size_t n);
// r[0..rn) += x, carrying upward; returns the carry out of r[rn-1].
Limb AddLimb(Limb* r, size_t rn, Limb x);
// r[0..n) = m * a[0..n) + carryIn; returns the carry limb.
Limb Mul1(Limb* r, const Limb* a, size_t n, Limb m, Limb carryIn);
// Compares two n-limb numbers.
int CompareN(const Limb* a, const Limb* b, size_t n);

// r[0 .. na+nb) = a * b. r must not overlap a or b. Schoolbook below a threshold, Karatsuba above.
void Multiply(Limb* r, const Limb* a, size_t na, const Limb* b, size_t nb);
// r[0 .. 2n) = a * a, using the symmetry of the cross products.
void Square(Limb* r, const Limb* a, size_t n);

// q[0 .. nu-nv+1) = u / v and r[0 .. nv) = u mod v. Requires nu >= nv >= 1 and v[nv-1] != 0.
// Either output may be null when not wanted. Long division a limb at a time for short divisors,
// divide and conquer from kDivideRecursionThreshold limbs.
void DivideRemainder(Limb* q, Limb* r, const Limb* u, size_t nu, const Limb* v, size_t nv);
// q[0..n) = u / d in place allowed (q may equal u); returns u mod d. d != 0.
Limb DivideSingle(Limb* q, const Limb* u, size_t n, Limb d);

// Convenience forms on vectors, results trimmed. v must be trimmed and non-empty.
LimbVector Product(const LimbVector& a, const LimbVector& b);
void DivMod(const LimbVector& u, const LimbVector& v, LimbVector* q, LimbVector* r);

}  // namespace limbs
}  // namespace deskaid
