#include "deskaid/math/internal/limb_kernels.h"

#if defined(__GNUC__) && !defined(__clang__)
// The carry chains of the inner loops gain from unrolling; GCC does not unroll by default.
#pragma GCC optimize("unroll-loops")
#endif

#include <cstring>

namespace deskaid {
namespace limbs {
namespace {

// Below this many limbs the schoolbook product beats Karatsuba's extra additions.
constexpr size_t kKaratsubaThreshold = kLimbBits == 64 ? 48 : 96;

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
    const Limb* t = a; a = b; b = t;
    size_t tn = na; na = nb; nb = tn;
  }
  size_t j = 0;
  if (nb % 2) {
    r[na] = Mul1(r, a, na, b[0], 0);
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

// r += a (a of n limbs) at r[0..rn), carrying upward.
void AddInto(Limb* r, size_t rn, const Limb* a, size_t n) {
  Limb carry = AddN(r, r, a, n);
  for (size_t i = n; carry && i < rn; ++i) {
    r[i] += 1;
    carry = r[i] == 0;
  }
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
    const Limb* t = a; a = b; b = t;
    size_t tn = na; na = nb; nb = tn;
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
    AddInto(r + off, na + nb - off, piece.data(), len + nb);
  }
}

void KaratsubaEqual(Limb* r, const Limb* a, const Limb* b, size_t n, bool square) {
  if (n < kKaratsubaThreshold) {
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
  std::memcpy(sa.data(), a + lo, hi * sizeof(Limb));
  AddInto(sa.data(), hi + 1, a, lo);
  if (!square) {
    std::memcpy(sb.data(), b + lo, hi * sizeof(Limb));
    AddInto(sb.data(), hi + 1, b, lo);
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
  AddInto(r + lo, 2 * n - lo, mid.data(), mn);
}

}  // namespace

LimbVector PackWords(const uint32_t* words, size_t count) {
  LimbVector a((count + kWordsPerLimb - 1) / kWordsPerLimb, 0);
  for (size_t i = 0; i < count; ++i)
    a[i / kWordsPerLimb] |= static_cast<Limb>(words[i]) << (32 * (i % kWordsPerLimb));
  Trim(a);
  return a;
}

void UnpackWords(const Limb* a, size_t n, uint32_t* words, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    size_t li = i / kWordsPerLimb;
    words[i] = li < n ? static_cast<uint32_t>(a[li] >> (32 * (i % kWordsPerLimb))) : 0;
  }
}

void Trim(LimbVector& a) {
  while (!a.empty() && a.back() == 0) a.pop_back();
}

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

Limb AddMul1(Limb* r, const Limb* a, size_t n, Limb m) {
  Limb carry = 0;
  for (size_t i = 0; i < n; ++i) {
    DoubleLimb t = static_cast<DoubleLimb>(a[i]) * m + r[i] + carry;
    r[i] = static_cast<Limb>(t);
    carry = static_cast<Limb>(t >> kLimbBits);
  }
  return carry;
}

void AddMul2(Limb* r, const Limb* a, size_t n, Limb m0, Limb m1, Limb hi[2]) {
  // lo carries into the next position, high into the one after it.
  Limb lo = 0, high = 0;
  for (size_t i = 0; i < n; ++i) {
    const DoubleLimb t = static_cast<DoubleLimb>(a[i]) * m0 + r[i] + lo;
    r[i] = static_cast<Limb>(t);
    const DoubleLimb u = static_cast<DoubleLimb>(a[i]) * m1 + static_cast<Limb>(t >> kLimbBits) + high;
    lo = static_cast<Limb>(u);
    high = static_cast<Limb>(u >> kLimbBits);
  }
  hi[0] = lo;
  hi[1] = high;
}

Limb AddLimb(Limb* r, size_t rn, Limb x) {
  for (size_t i = 0; i < rn && x; ++i) {
    r[i] += x;
    x = r[i] < x ? 1 : 0;
  }
  return x;
}

Limb Mul1(Limb* r, const Limb* a, size_t n, Limb m, Limb carry) {
  for (size_t i = 0; i < n; ++i) {
    DoubleLimb t = static_cast<DoubleLimb>(a[i]) * m + carry;
    r[i] = static_cast<Limb>(t);
    carry = static_cast<Limb>(t >> kLimbBits);
  }
  return carry;
}

int CompareN(const Limb* a, const Limb* b, size_t n) {
  while (n-- > 0) {
    if (a[n] != b[n]) return a[n] < b[n] ? -1 : 1;
  }
  return 0;
}

void Multiply(Limb* r, const Limb* a, size_t na, const Limb* b, size_t nb) {
  if (na == 0 || nb == 0) {
    std::memset(r, 0, (na + nb) * sizeof(Limb));
    return;
  }
  MultiplyAny(r, a, na, b, nb);
}

void Square(Limb* r, const Limb* a, size_t n) {
  if (n == 0) return;
  if (n >= kKaratsubaThreshold) {
    KaratsubaEqual(r, a, a, n, true);
    return;
  }
  // Cross products a[i]*a[j], i < j, once (two rows a pass); then doubled; then the squares on
  // the diagonal.
  std::memset(r, 0, 2 * n * sizeof(Limb));
  size_t i = 0;
  for (; i + 2 < n; i += 2) {
    // a[i+1]*a[i] on its own, then a[j]*a[i] and a[j]*a[i+1] for j >= i+2 together.
    DoubleLimb p = static_cast<DoubleLimb>(a[i + 1]) * a[i];
    AddLimb(r + 2 * i + 1, 2 * n - 2 * i - 1, static_cast<Limb>(p));
    AddLimb(r + 2 * i + 2, 2 * n - 2 * i - 2, static_cast<Limb>(p >> kLimbBits));
    Limb hi[2];
    AddMul2(r + 2 * i + 2, a + i + 2, n - i - 2, a[i], a[i + 1], hi);
    AddLimb(r + i + n, n - i, hi[0]);
    AddLimb(r + i + n + 1, n - i - 1, hi[1]);
  }
  for (; i + 1 < n; ++i) {
    Limb c = AddMul1(r + 2 * i + 1, a + i + 1, n - i - 1, a[i]);
    AddLimb(r + n + i, n - i, c);
  }
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

Limb DivideSingle(Limb* q, const Limb* u, size_t n, Limb d) {
  Limb rem = 0;
  for (size_t i = n; i-- > 0;) {
    DoubleLimb num = (static_cast<DoubleLimb>(rem) << kLimbBits) | u[i];
    q[i] = static_cast<Limb>(num / d);
    rem = static_cast<Limb>(num % d);
  }
  return rem;
}

void DivideRemainder(Limb* q, Limb* r, const Limb* u, size_t nu, const Limb* v, size_t nv) {
  if (nv == 1) {
    LimbVector qq(nu);
    Limb rem = DivideSingle(qq.data(), u, nu, v[0]);
    if (q) std::memcpy(q, qq.data(), nu * sizeof(Limb));
    if (r) r[0] = rem;
    return;
  }
  const int s = LeadingZeros(v[nv - 1]);
  LimbVector vn(nv), un(nu + 1);
  for (size_t i = nv; i-- > 0;)
    vn[i] = (v[i] << s) | (s && i > 0 ? v[i - 1] >> (kLimbBits - s) : 0);
  un[nu] = s ? u[nu - 1] >> (kLimbBits - s) : 0;
  for (size_t i = nu; i-- > 0;) un[i] = (u[i] << s) | (s && i > 0 ? u[i - 1] >> (kLimbBits - s) : 0);

  const Limb vTop = vn[nv - 1], vNext = vn[nv - 2];
  const DoubleLimb base = static_cast<DoubleLimb>(1) << kLimbBits;
  for (size_t j = nu - nv + 1; j-- > 0;) {
    DoubleLimb num = (static_cast<DoubleLimb>(un[j + nv]) << kLimbBits) | un[j + nv - 1];
    DoubleLimb qhat = num / vTop;
    DoubleLimb rhat = num - qhat * vTop;
    while (qhat >= base ||
           qhat * vNext > ((rhat << kLimbBits) | un[j + nv - 2])) {
      --qhat;
      rhat += vTop;
      if (rhat >= base) break;
    }
    // un[j .. j+nv] -= qhat * vn
    Limb qd = static_cast<Limb>(qhat);
    Limb borrow = 0;
    for (size_t i = 0; i < nv; ++i) {
      DoubleLimb p = static_cast<DoubleLimb>(qd) * vn[i] + borrow;
      Limb pl = static_cast<Limb>(p);
      Limb ui = un[i + j];
      borrow = static_cast<Limb>(p >> kLimbBits) + (ui < pl);
      un[i + j] = ui - pl;
    }
    Limb top = un[j + nv];
    Limb finalBorrow = top < borrow;
    un[j + nv] = top - borrow;
    if (finalBorrow) {
      --qd;
      Limb c = AddN(un.data() + j, un.data() + j, vn.data(), nv);
      un[j + nv] += c;
    }
    if (q) q[j] = qd;
  }
  if (r) {
    for (size_t i = 0; i < nv; ++i)
      r[i] = (un[i] >> s) | (s ? un[i + 1] << (kLimbBits - s) : 0);
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
  // v must be trimmed and non-empty.
  if (u.size() < v.size()) {
    if (q) q->clear();
    if (r) { *r = u; Trim(*r); }
    return;
  }
  LimbVector qq(u.size() - v.size() + 1), rr(v.size());
  DivideRemainder(q ? qq.data() : nullptr, r ? rr.data() : nullptr, u.data(), u.size(), v.data(),
                  v.size());
  if (q) { Trim(qq); *q = std::move(qq); }
  if (r) { Trim(rr); *r = std::move(rr); }
}

}  // namespace limbs
}  // namespace deskaid
