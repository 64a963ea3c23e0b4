// The algorithms over limb rows that every build shares; the rows themselves differ by processor
// (see limb_rows.h).
#include "deskaid/math/internal/limb_kernels.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <functional>
#include <utility>

#include "deskaid/math/internal/limb_rows.h"

namespace deskaid {
namespace limbs {
namespace {

// Whether a[0..an) and b[0..bn) share no limb; std::less orders pointers into different arrays.
[[maybe_unused]] bool Apart(const Limb* a, size_t an, const Limb* b, size_t bn) {
  const std::less<const Limb*> before;
  return !before(a, b + bn) || !before(b, a + an);
}

// Whether a[0..n) fits in `count` 32-bit words.
[[maybe_unused]] bool FitsInWords(const Limb* a, size_t n, size_t count) {
  for (size_t i = count; i < n * kWordsPerLimb; ++i) {
    if (static_cast<uint32_t>(a[i / kWordsPerLimb] >> (32 * (i % kWordsPerLimb))) != 0)
      return false;
  }
  return true;
}

int LeadingZeros(Limb x) {
  int n = 0;
  for (int step = kLimbBits / 2; step > 0; step /= 2) {
    if ((x >> (kLimbBits - step)) == 0) {
      n += step;
      x <<= step;
    }
  }
  return n;
}

void Schoolbook(Limb* r, const Limb* a, size_t na, const Limb* b, size_t nb) {
  // Longer operand in the inner loop.
  if (na < nb) {
    std::swap(a, b);
    std::swap(na, nb);
  }
  ProductRows(r, a, na, b, nb);
}

void SubFrom(Limb* r, size_t rn, const Limb* a, size_t n) {
  Limb borrow = SubN(r, r, a, n);
  for (size_t i = n; borrow && i < rn; ++i) {
    borrow = r[i] == 0;
    r[i] -= 1;
  }
}

void KaratsubaEqual(Limb* r, const Limb* a, const Limb* b, size_t n, bool square);

void MultiplyAny(Limb* r, const Limb* a, size_t na, const Limb* b, size_t nb) {
  if (na < nb) {
    std::swap(a, b);
    std::swap(na, nb);
  }
  if (nb < kKaratsubaThreshold) {
    Schoolbook(r, a, na, b, nb);
    return;
  }
  if (na == nb) {
    KaratsubaEqual(r, a, b, na, false);
    return;
  }
  // Unbalanced: slice the longer operand into pieces of the shorter one's size.
  std::memset(r, 0, (na + nb) * sizeof(Limb));
  LimbVector piece(2 * nb);
  for (size_t off = 0; off < na; off += nb) {
    size_t len = na - off < nb ? na - off : nb;
    MultiplyAny(piece.data(), a + off, len, b, nb);
    AddLimbs(r + off, na + nb - off, piece.data(), len + nb);
  }
}

// x[0..w) = x / 3 for an exact multiple of 3 in w-limb two's complement: each quotient limb is
// the limb times the inverse of 3 modulo the limb base, and what 3 * q spills above the limb is
// borrowed from the next one.
void DivideExactlyBy3(Limb* x, size_t w) {
  const Limb inverse = (~static_cast<Limb>(0) / 3) * 2 + 1;
  Limb borrow = 0;
  for (size_t i = 0; i < w; ++i) {
    const Limb u = x[i];
    const Limb q = (u - borrow) * inverse;
    x[i] = q;
    borrow = static_cast<Limb>((static_cast<DoubleLimb>(q) * 3) >> kLimbBits) + (u < borrow);
  }
}

// x[0..w) = x / 2 for an even number in w-limb two's complement.
void HalveSigned(Limb* x, size_t w) {
  for (size_t i = 0; i + 1 < w; ++i) x[i] = (x[i] >> 1) | (x[i + 1] << (kLimbBits - 1));
  x[w - 1] = (x[w - 1] >> 1) | (x[w - 1] & (static_cast<Limb>(1) << (kLimbBits - 1)));
}

// x[0..w) = -x in two's complement.
void NegateSigned(Limb* x, size_t w) {
  for (size_t i = 0; i < w; ++i) x[i] = ~x[i];
  AddLimb(x, w, 1);
}

// The values of x0 + x1 t + x2 t^2 (x of n limbs, pieces of k, k and n - 2k limbs) at t = 1, -1
// and -2, each as k+1 limbs of magnitude, with the signs of the last two.
void EvaluateToom3(const Limb* x, size_t n, size_t k, Limb* at1, Limb* atMinus1,
                   bool* minus1Negative, Limb* atMinus2, bool* minus2Negative) {
  const size_t p = k + 1;
  LimbVector even(p, 0), odd(p, 0), high(p, 0);
  std::copy(x, x + k, even.begin());
  AddLimbs(even.data(), p, x + 2 * k, n - 2 * k);  // x0 + x2
  std::copy(x + k, x + 2 * k, odd.begin());        // x1
  AddN(at1, even.data(), odd.data(), p);
  *minus1Negative = CompareN(even.data(), odd.data(), p) < 0;
  if (*minus1Negative) {
    SubN(atMinus1, odd.data(), even.data(), p);
  } else {
    SubN(atMinus1, even.data(), odd.data(), p);
  }
  // x0 + 4 x2 against 2 x1.
  std::copy(x + 2 * k, x + n, high.begin());
  AddN(high.data(), high.data(), high.data(), p);
  AddN(high.data(), high.data(), high.data(), p);
  AddLimbs(high.data(), p, x, k);
  AddN(odd.data(), odd.data(), odd.data(), p);
  *minus2Negative = CompareN(high.data(), odd.data(), p) < 0;
  if (*minus2Negative) {
    SubN(atMinus2, odd.data(), high.data(), p);
  } else {
    SubN(atMinus2, high.data(), odd.data(), p);
  }
}

// Toom-3: both operands in three pieces, the product polynomial from its values at 0, 1, -1, -2
// and infinity (five products of a third of the size), then interpolated in two's complement.
void Toom3(Limb* r, const Limb* a, const Limb* b, size_t n, bool square) {
  const size_t k = (n + 2) / 3, s = n - 2 * k, p = k + 1, w = 2 * k + 3;
  LimbVector pa(3 * p), pb(3 * p);
  bool aNeg1 = false, aNeg2 = false, bNeg1 = false, bNeg2 = false;
  EvaluateToom3(a, n, k, pa.data(), pa.data() + p, &aNeg1, pa.data() + 2 * p, &aNeg2);
  if (!square) EvaluateToom3(b, n, k, pb.data(), pb.data() + p, &bNeg1, pb.data() + 2 * p, &bNeg2);
  const Limb* qb = square ? pa.data() : pb.data();
  if (square) {
    bNeg1 = aNeg1;
    bNeg2 = aNeg2;
  }
  // v1, vm1, vm2 in w limbs each, signed.
  LimbVector v(3 * w, 0);
  Limb* v1 = v.data();
  Limb* vm1 = v1 + w;
  Limb* vm2 = vm1 + w;
  KaratsubaEqual(v1, pa.data(), qb, p, square);
  KaratsubaEqual(vm1, pa.data() + p, qb + p, p, square);
  if (aNeg1 != bNeg1) NegateSigned(vm1, w);
  KaratsubaEqual(vm2, pa.data() + 2 * p, qb + 2 * p, p, square);
  if (aNeg2 != bNeg2) NegateSigned(vm2, w);
  // v0 = a0 b0 into r[0..2k), vinf = a2 b2 into r[4k..2n).
  KaratsubaEqual(r, a, square ? a : b, k, square);
  KaratsubaEqual(r + 4 * k, a + 2 * k, square ? a + 2 * k : b + 2 * k, s, square);
  LimbVector v0(w, 0), vinf(w, 0);
  std::copy(r, r + 2 * k, v0.begin());
  std::copy(r + 4 * k, r + 2 * n, vinf.begin());
  std::fill(r + 2 * k, r + 4 * k, 0);
  // c3 = (vm2 - v1) / 3, c1 = (v1 - vm1) / 2, c2 = vm1 - v0, c3 = (c2 - c3) / 2 + 2 vinf,
  // c2 = c2 + c1 - vinf, c1 = c1 - c3.
  Limb* c3 = vm2;
  SubN(c3, vm2, v1, w);
  DivideExactlyBy3(c3, w);
  Limb* c1 = v1;
  SubN(c1, v1, vm1, w);
  HalveSigned(c1, w);
  Limb* c2 = vm1;
  SubN(c2, vm1, v0.data(), w);
  SubN(c3, c2, c3, w);
  HalveSigned(c3, w);
  AddN(c3, c3, vinf.data(), w);
  AddN(c3, c3, vinf.data(), w);
  AddN(c2, c2, c1, w);
  SubN(c2, c2, vinf.data(), w);
  SubN(c1, c1, c3, w);
  // r = v0 + c1 B^k + c2 B^2k + c3 B^3k + vinf B^4k; v0 and vinf are in place.
  const Limb* coefficients[3] = {c1, c2, c3};
  for (size_t i = 0; i < 3; ++i) {
    const size_t offset = (i + 1) * k;
    size_t len = w;
    while (len > 0 && coefficients[i][len - 1] == 0) --len;
    AddLimbs(r + offset, 2 * n - offset, coefficients[i], len);
  }
}

void KaratsubaEqual(Limb* r, const Limb* a, const Limb* b, size_t n, bool square) {
  if (n >= (square ? kToom3SquareThreshold : kToom3Threshold)) {
    Toom3(r, a, b, n, square);
    return;
  }
  if (n < (square ? kKaratsubaSquareThreshold : kKaratsubaThreshold)) {
    if (square) {
      Square(r, a, n);
    } else {
      Schoolbook(r, a, n, b, n);
    }
    return;
  }
  const size_t lo = n / 2, hi = n - lo;  // hi >= lo
  // z0 = a0*b0 into r[0..2lo), z2 = a1*b1 into r[2lo..2n)
  KaratsubaEqual(r, a, b, lo, square);
  KaratsubaEqual(r + 2 * lo, a + lo, b + lo, hi, square);
  // sa = a0 + a1, sb = b0 + b1 (hi+1 limbs each)
  LimbVector sa(hi + 1, 0), sb(hi + 1, 0), mid(2 * hi + 2, 0);
  std::copy(a + lo, a + n, sa.begin());
  AddLimbs(sa.data(), hi + 1, a, lo);
  if (!square) {
    std::copy(b + lo, b + n, sb.begin());
    AddLimbs(sb.data(), hi + 1, b, lo);
  }
  size_t sn = hi + 1;
  if (sa[hi] == 0 && (square || sb[hi] == 0)) sn = hi;
  if (square) {
    KaratsubaEqual(mid.data(), sa.data(), sa.data(), sn, true);
  } else {
    KaratsubaEqual(mid.data(), sa.data(), sb.data(), sn, false);
  }
  // mid -= z0 + z2
  SubFrom(mid.data(), 2 * hi + 2, r, 2 * lo);
  SubFrom(mid.data(), 2 * hi + 2, r + 2 * lo, 2 * hi);
  size_t mn = 2 * hi + 2;
  while (mn > 0 && mid[mn - 1] == 0) --mn;
  AddLimbs(r + lo, 2 * n - lo, mid.data(), mn);
}

}  // namespace

LimbVector PackWords(const uint32_t* words, size_t count) {
  LimbVector a((count + kWordsPerLimb - 1) / kWordsPerLimb, 0);
  if constexpr (kWordsPerLimb == 2) {
    const size_t pairs = count / 2;
    for (size_t i = 0; i < pairs; ++i)
      a[i] = words[2 * i] | (static_cast<Limb>(words[2 * i + 1]) << (kLimbBits / 2));
    if (count % 2) a[pairs] = words[count - 1];
  } else {
    for (size_t i = 0; i < count; ++i) a[i] = static_cast<Limb>(words[i]);
  }
  Trim(a);
  return a;
}

void UnpackWords(const Limb* a, size_t n, uint32_t* words, size_t count) {
  assert(FitsInWords(a, n, count));
  size_t i = 0;
  if constexpr (kWordsPerLimb == 2) {
    const size_t whole = n < count / 2 ? n : count / 2;
    for (size_t j = 0; j < whole; ++j) {
      words[2 * j] = static_cast<uint32_t>(a[j]);
      words[2 * j + 1] = static_cast<uint32_t>(a[j] >> (kLimbBits / 2));
    }
    i = 2 * whole;
  }
  for (; i < count && i / kWordsPerLimb < n; ++i)
    words[i] = static_cast<uint32_t>(a[i / kWordsPerLimb] >> (32 * (i % kWordsPerLimb)));
  for (; i < count; ++i) words[i] = 0;
}

void Trim(LimbVector& a) {
  while (!a.empty() && a.back() == 0) a.pop_back();
}

Limb AddLimbs(Limb* r, size_t rn, const Limb* a, size_t n) {
  assert(n <= rn);
  Limb carry = AddN(r, r, a, n);
  return AddLimb(r + n, rn - n, carry);
}

Limb AddLimb(Limb* r, size_t rn, Limb x) { return AddLimbInline(r, rn, x); }

Limb Mul1(Limb* r, const Limb* a, size_t n, Limb m, Limb carry) {
  return Mul1Inline(r, a, n, m, carry);
}

int CompareN(const Limb* a, const Limb* b, size_t n) {
  while (n-- > 0) {
    if (a[n] != b[n]) return a[n] < b[n] ? -1 : 1;
  }
  return 0;
}

void Multiply(Limb* r, const Limb* a, size_t na, const Limb* b, size_t nb) {
  assert(Apart(r, na + nb, a, na) && Apart(r, na + nb, b, nb));
  if (na == 0 || nb == 0) {
    std::memset(r, 0, (na + nb) * sizeof(Limb));
    return;
  }
  MultiplyAny(r, a, na, b, nb);
}

void Square(Limb* r, const Limb* a, size_t n) {
  if (n == 0) return;
  if (n >= kKaratsubaSquareThreshold) {
    KaratsubaEqual(r, a, a, n, true);
    return;
  }
  // Cross products a[i]*a[j], i < j, once; then doubled; then the squares on the diagonal.
  SquareCrossRows(r, a, n);
  Limb top = 0;
  for (size_t i = 0; i < 2 * n; ++i) {
    Limb next = r[i] >> (kLimbBits - 1);
    r[i] = (r[i] << 1) | top;
    top = next;
  }
  Limb carry = 0;
  for (size_t i = 0; i < n; ++i) {
    DoubleLimb sq = static_cast<DoubleLimb>(a[i]) * a[i];
    DoubleLimb lo = static_cast<DoubleLimb>(r[2 * i]) + static_cast<Limb>(sq) + carry;
    r[2 * i] = static_cast<Limb>(lo);
    DoubleLimb hi = static_cast<DoubleLimb>(r[2 * i + 1]) + static_cast<Limb>(sq >> kLimbBits) +
                    static_cast<Limb>(lo >> kLimbBits);
    r[2 * i + 1] = static_cast<Limb>(hi);
    carry = static_cast<Limb>(hi >> kLimbBits);
  }
}

namespace {

// The quotient limb of (u1, u0) by a divisor with its top bit set, given its reciprocal
// floor((base^2 - 1) / d) - base; requires u1 < d. Two products instead of a double-limb division.
inline Limb DivideTwoByOne(Limb u1, Limb u0, Limb d, Limb inverse, Limb* rem) {
  const DoubleLimb t =
      static_cast<DoubleLimb>(inverse) * u1 + ((static_cast<DoubleLimb>(u1) << kLimbBits) | u0);
  Limb q = static_cast<Limb>(t >> kLimbBits) + 1;
  Limb r = u0 - q * d;
  if (r > static_cast<Limb>(t)) {
    --q;
    r += d;
  }
  if (r >= d) {
    ++q;
    r -= d;
  }
  *rem = r;
  return q;
}

}  // namespace

Limb DivideSingle(Limb* q, const Limb* u, size_t n, Limb d) {
  assert(d != 0);
  if (n == 0) return 0;
  const int s = LeadingZeros(d);
  const Limb dn = d << s;
  const Limb inverse =
      static_cast<Limb>(((static_cast<DoubleLimb>(~dn) << kLimbBits) | ~static_cast<Limb>(0)) / dn);
  Limb rem = 0;
  if (s == 0) {
    for (size_t i = n; i-- > 0;) q[i] = DivideTwoByOne(rem, u[i], dn, inverse, &rem);
    return rem;
  }
  // The dividend shifted with the divisor, limb by limb; u[i-1] is read before q[i-1] is written.
  rem = u[n - 1] >> (kLimbBits - s);
  for (size_t i = n; i-- > 0;) {
    const Limb limb = (u[i] << s) | (i > 0 ? u[i - 1] >> (kLimbBits - s) : 0);
    q[i] = DivideTwoByOne(rem, limb, dn, inverse, &rem);
  }
  return rem >> s;
}

namespace {

// Divisor of two or more limbs with its top bit set, and the reciprocal of its top two limbs:
// floor((base^3 - 1) / (d1 * base + d0)) - base. With it each quotient limb costs two products
// instead of a double-limb division.
struct NormalDivisor {
  const Limb* v;
  size_t n;
  Limb d1, d0, inverse;

  NormalDivisor(const Limb* limbs, size_t count)
      : v(limbs), n(count), d1(limbs[count - 1]), d0(limbs[count - 2]) {
    const DoubleLimb num = (static_cast<DoubleLimb>(~d1) << kLimbBits) | ~static_cast<Limb>(0);
    Limb inv = static_cast<Limb>(num / d1);
    // From the reciprocal of d1 to that of (d1, d0).
    Limb p = d1 * inv + d0;
    if (p < d0) {
      --inv;
      if (p >= d1) {
        --inv;
        p -= d1;
      }
      p -= d1;
    }
    const DoubleLimb t = static_cast<DoubleLimb>(inv) * d0;
    const Limb t1 = static_cast<Limb>(t >> kLimbBits), t0 = static_cast<Limb>(t);
    p += t1;
    if (p < t1) {
      --inv;
      if (p > d1 || (p == d1 && t0 >= d0)) --inv;
    }
    inverse = inv;
  }

  // The quotient limb of (u2, u1, u0) by (d1, d0); requires (u2, u1) < (d1, d0).
  Limb QuotientOf(Limb u2, Limb u1, Limb u0) const {
    DoubleLimb q = static_cast<DoubleLimb>(inverse) * u2;
    q += (static_cast<DoubleLimb>(u2) << kLimbBits) | u1;
    Limb q1 = static_cast<Limb>(q >> kLimbBits);
    const Limb q0 = static_cast<Limb>(q);
    Limb r1 = u1 - q1 * d1;
    DoubleLimb r = (static_cast<DoubleLimb>(r1) << kLimbBits) | u0;
    const DoubleLimb d = (static_cast<DoubleLimb>(d1) << kLimbBits) | d0;
    r -= static_cast<DoubleLimb>(d0) * q1;
    r -= d;
    ++q1;
    r1 = static_cast<Limb>(r >> kLimbBits);
    if (r1 >= q0) {
      --q1;
      r += d;
    }
    if (r >= d) ++q1;
    return q1;
  }
};

// r[0..n) -= 1; returns the borrow.
Limb Decrement(Limb* r, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    if (r[i]-- != 0) return 0;
  }
  return 1;
}

// Long division of u[0 .. nq+n) by d, one quotient limb a step. Returns 1 when the top n limbs
// of u were at least d (they are reduced first and the quotient has that extra top unit).
// The remainder is left in u[0..n).
Limb DivideBasecase(Limb* q, Limb* u, size_t nq, const NormalDivisor& d) {
  const size_t n = d.n;
  Limb qh = 0;
  if (CompareN(u + nq, d.v, n) >= 0) {
    SubN(u + nq, u + nq, d.v, n);
    qh = 1;
  }
  for (size_t j = nq; j-- > 0;) {
    Limb* w = u + j;  // window of n+1 limbs
    const Limb u2 = w[n], u1 = w[n - 1], u0 = w[n - 2];
    Limb qd;
    if (u2 == d.d1 && u1 == d.d0) {
      qd = ~static_cast<Limb>(0);
    } else {
      qd = d.QuotientOf(u2, u1, u0);
    }
    const Limb borrow = SubMul1(w, d.v, n, qd);
    if (w[n] < borrow) {
      // One too large: add the divisor back.
      --qd;
      w[n] += AddN(w, w, d.v, n) - borrow;
    } else {
      w[n] -= borrow;
    }
    q[j] = qd;
  }
  return qh;
}

// Below this divisor size the divide-and-conquer split costs more than it saves.
constexpr size_t kDivideSplitLimbs = kDivideRecursionThreshold;

// Divides u[0..2n) by the normalised n-limb divisor v, quotient into q[0..n) plus the returned
// top unit, remainder into u[0..n). The high half of the quotient comes from the top halves of
// u and v, and is corrected by the product with the low half of v; then the same again for the
// low half. Each estimate is at most a few units too large.
Limb DivideRecursive(Limb* q, Limb* u, const Limb* v, size_t n) {
  if (n < kDivideSplitLimbs) return DivideBasecase(q, u, n, NormalDivisor(v, n));
  const size_t lo = n / 2, hi = n - lo;
  LimbVector t(n);
  // High half: u[2lo .. 2n) by v[lo .. n), then subtract the quotient times v[0 .. lo).
  Limb qh = DivideRecursive(q + lo, u + 2 * lo, v + lo, hi);
  Multiply(t.data(), q + lo, hi, v, lo);
  Limb borrow = SubN(u + lo, u + lo, t.data(), n);
  if (qh) borrow += SubN(u + n, u + n, v, lo);
  while (borrow) {
    qh -= Decrement(q + lo, hi);
    borrow -= AddN(u + lo, u + lo, v, n);
  }
  // Low half: the remainder u[lo .. lo+n) with u[0 .. lo) below it.
  Limb ql = DivideRecursive(q, u + hi, v + hi, lo);
  Multiply(t.data(), q, lo, v, hi);
  borrow = SubN(u, u, t.data(), n);
  if (ql) borrow += SubN(u + lo, u + lo, v, hi);
  while (borrow) {
    ql -= Decrement(q, lo);
    borrow -= AddN(u, u, v, n);
  }
  return qh;
}

// nq quotient limbs of u[0 .. nq+n) by the normalised n-limb divisor v, whose top n limbs are
// below v; remainder into u[0..n).
void DivideNormalised(Limb* q, Limb* u, size_t nq, const Limb* v, size_t n) {
  if (n < kDivideSplitLimbs || nq < kDivideSplitLimbs / 2) {
    DivideBasecase(q, u, nq, NormalDivisor(v, n));
    return;
  }
  if (nq >= n) {
    // Blocks of n quotient limbs from the top; a shorter block first if nq is not a multiple.
    size_t j = nq - nq % n;
    if (j < nq) DivideNormalised(q + j, u + j, nq - j, v, n);
    while (j > 0) {
      j -= n;
      DivideRecursive(q + j, u + j, v, n);
    }
    return;
  }
  // Fewer quotient limbs than divisor limbs: estimate from the top nq limbs of v, then correct
  // with the product by the rest of v.
  const size_t rest = n - nq;
  Limb qh = DivideRecursive(q, u + rest, v + rest, nq);
  LimbVector t(n);
  Multiply(t.data(), q, nq, v, rest);
  Limb borrow = SubN(u, u, t.data(), n);
  if (qh) borrow += SubN(u + nq, u + nq, v, rest);
  while (borrow) {
    qh -= Decrement(q, nq);
    borrow -= AddN(u, u, v, n);
  }
}

// r[0..n) = a << s (0 <= s < kLimbBits); returns the bits shifted out.
Limb ShiftLeft(Limb* r, const Limb* a, size_t n, int s) {
  if (s == 0) {
    std::memcpy(r, a, n * sizeof(Limb));
    return 0;
  }
  const Limb out = a[n - 1] >> (kLimbBits - s);
  for (size_t i = n - 1; i > 0; --i) r[i] = (a[i] << s) | (a[i - 1] >> (kLimbBits - s));
  r[0] = a[0] << s;
  return out;
}

}  // namespace

void DivideRemainder(Limb* q, Limb* r, const Limb* u, size_t nu, const Limb* v, size_t nv) {
  assert(nu >= nv && nv >= 1 && v[nv - 1] != 0);
  if (nv == 1) {
    LimbVector qq(nu);
    Limb rem = DivideSingle(qq.data(), u, nu, v[0]);
    if (q) std::memcpy(q, qq.data(), nu * sizeof(Limb));
    if (r) r[0] = rem;
    return;
  }
  // Shift both so that the divisor's top bit is set; the dividend gains a limb on top, which
  // keeps its top nv limbs below the divisor.
  const int s = LeadingZeros(v[nv - 1]);
  LimbVector vn(nv), un(nu + 1);
  ShiftLeft(vn.data(), v, nv, s);
  un[nu] = ShiftLeft(un.data(), u, nu, s);

  const size_t nq = nu - nv + 1;
  LimbVector qq(q ? 0 : nq);
  DivideNormalised(q ? q : qq.data(), un.data(), nq, vn.data(), nv);
  if (r) {
    if (s == 0) {
      std::memcpy(r, un.data(), nv * sizeof(Limb));
    } else {
      for (size_t i = 0; i < nv; ++i) r[i] = (un[i] >> s) | (un[i + 1] << (kLimbBits - s));
    }
  }
}

LimbVector Product(const LimbVector& a, const LimbVector& b) {
  if (a.empty() || b.empty()) return LimbVector();
  LimbVector r(a.size() + b.size());
  if (&a == &b) {
    Square(r.data(), a.data(), a.size());
  } else {
    Multiply(r.data(), a.data(), a.size(), b.data(), b.size());
  }
  Trim(r);
  return r;
}

void DivMod(const LimbVector& u, const LimbVector& v, LimbVector* q, LimbVector* r) {
  assert(!v.empty() && v.back() != 0);
  if (u.size() < v.size()) {
    if (q) q->clear();
    if (r) {
      *r = u;
      Trim(*r);
    }
    return;
  }
  LimbVector qq(u.size() - v.size() + 1), rr(v.size());
  DivideRemainder(q ? qq.data() : nullptr, r ? rr.data() : nullptr, u.data(), u.size(), v.data(),
                  v.size());
  if (q) {
    Trim(qq);
    *q = std::move(qq);
  }
  if (r) {
    Trim(rr);
    *r = std::move(rr);
  }
}

}  // namespace limbs
}  // namespace deskaid
