#include "deskaid/math/bigint.h"

#include <cstring>
#include <utility>

#include "deskaid/math/internal/bigint_alloc.h"
#include "deskaid/math/internal/bigint_internal.h"
#include "deskaid/math/internal/divide_fault.h"

namespace deskaid {

limbs::LimbVector UnsignedWordsOf(const CBigInt& x) {
  return limbs::PackWords(x.m_pData, static_cast<size_t>(x.m_nLength));
}

limbs::LimbVector MagnitudeOf(const CBigInt& x) {
  if (!x.IsNegative()) return UnsignedWordsOf(x);
  // 2^(32n) - u, which fits in n words even for the most negative value.
  std::vector<uint32_t> w(x.m_pData, x.m_pData + x.m_nLength);
  uint32_t carry = 1;
  for (auto& v : w) {
    v = ~v + carry;
    carry = (carry && v == 0) ? 1 : 0;
  }
  return limbs::PackWords(w.data(), w.size());
}

CBigInt FromMagnitude(const limbs::LimbVector& mag) {
  size_t words = mag.size() * limbs::kWordsPerLimb;
  std::vector<uint32_t> w(words + 1, 0);
  limbs::UnpackWords(mag.data(), mag.size(), w.data(), words);
  while (words > 1 && w[words - 1] == 0) --words;
  if (words == 0) words = 1;
  if (w[words - 1] & 0x80000000u) ++words;
  return CBigInt(w.data(), static_cast<int>(words));
}

CBigInt NullBigInt() { return CBigInt(static_cast<const uint32_t*>(nullptr), 0); }

}  // namespace deskaid

using deskaid::BigIntAllocate;
using deskaid::BigIntRelease;
namespace limbs = deskaid::limbs;

namespace {

constexpr uint32_t kTopBit = 0x80000000u;

uint64_t ByteSize(int64_t count) { return static_cast<uint64_t>(count) * 4u; }
// The bytes of words that are held already, which fit in memory.
size_t HeldBytes(int count) { return static_cast<size_t>(count) * sizeof(uint32_t); }

}  // namespace

// ---------------------------------------------------------------------------------------------
// Storage

void CBigInt::Release() {
  if (m_pData) BigIntRelease(m_pData);
  m_pData = nullptr;
  m_nLength = 0;
}

bool CBigInt::Allocate(int count) {
  Release();
  if (count <= 0) return false;
  auto* p = static_cast<uint32_t*>(BigIntAllocate(ByteSize(count)));
  if (!p) return false;
  std::memset(p, 0, HeldBytes(count));
  m_pData = p;
  m_nLength = count;
  return true;
}

void CBigInt::Resize(int count, bool negative) {
  if (m_nLength == 0 || count <= m_nLength) return;
  auto* p = static_cast<uint32_t*>(BigIntAllocate(ByteSize(count)));
  if (!p) {
    Release();
    return;
  }
  std::memset(p, negative ? 0xFF : 0, HeldBytes(count));
  std::memcpy(p, m_pData, HeldBytes(m_nLength));
  BigIntRelease(m_pData);
  m_pData = p;
  m_nLength = count;
}

void CBigInt::AppendWord(uint32_t word) {
  if (m_nLength == 0) return;
  int n = m_nLength;
  Resize(n + 1, false);
  if (m_nLength == n + 1) m_pData[n] = word;
}

// ---------------------------------------------------------------------------------------------
// Construction

CBigInt::CBigInt(NullTag) : m_nLength(0), m_pData(nullptr), m_pszText(nullptr) {}

CBigInt::CBigInt() : m_nLength(0), m_pData(nullptr), m_pszText(nullptr) { Allocate(1); }

CBigInt::CBigInt(int32_t value) : CBigInt() {
  if (m_nLength) m_pData[0] = static_cast<uint32_t>(value);
}

CBigInt::CBigInt(uint32_t value) : CBigInt() {
  if (!m_nLength) return;
  m_pData[0] = value;
  if (value & kTopBit) AppendWord(0);
}

#if DESKAID_BIGINT_LONG_FORMS
CBigInt::CBigInt(long value) : CBigInt(static_cast<int32_t>(value)) {}

CBigInt::CBigInt(unsigned long value) : m_nLength(0), m_pData(nullptr), m_pszText(nullptr) {
  // Two words reserved; the high one stays 0, so no further word is ever needed.
  if (Allocate(2)) m_pData[0] = static_cast<uint32_t>(value);
}
#endif

CBigInt::CBigInt(int64_t value) : m_nLength(0), m_pData(nullptr), m_pszText(nullptr) {
  const uint32_t lo = static_cast<uint32_t>(value);
  const uint32_t hi = static_cast<uint32_t>(static_cast<uint64_t>(value) >> 32);
  // A value from 2^31 to 2^32 - 1 ends up as one word that reads as negative; hosts rely on it.
  if (hi == 0 || (hi == 0xFFFFFFFFu && (lo & kTopBit))) {
    if (Allocate(1)) m_pData[0] = lo;
  } else if (Allocate(2)) {
    m_pData[0] = lo;
    m_pData[1] = hi;
  }
}

CBigInt::CBigInt(uint64_t value) : m_nLength(0), m_pData(nullptr), m_pszText(nullptr) {
  const uint32_t lo = static_cast<uint32_t>(value);
  const uint32_t hi = static_cast<uint32_t>(value >> 32);
  if (hi == 0) {
    if (Allocate(1)) m_pData[0] = lo;
  } else if (Allocate(2)) {
    m_pData[0] = lo;
    m_pData[1] = hi;
  }
  if (m_nLength && (m_pData[m_nLength - 1] & kTopBit)) AppendWord(0);
}

CBigInt::CBigInt(const CBigInt& other) : m_nLength(0), m_pData(nullptr), m_pszText(nullptr) {
  if (other.m_nLength && Allocate(other.m_nLength))
    std::memcpy(m_pData, other.m_pData, HeldBytes(other.m_nLength));
}

CBigInt::CBigInt(CBigInt&& other) noexcept
    : m_nLength(other.m_nLength), m_pData(other.m_pData), m_pszText(nullptr) {
  other.m_nLength = 0;
  other.m_pData = nullptr;
}

CBigInt::CBigInt(const uint32_t* words, int count)
    : m_nLength(0), m_pData(nullptr), m_pszText(nullptr) {
  if (words && count > 0 && Allocate(count)) std::memcpy(m_pData, words, HeldBytes(count));
}

CBigInt::CBigInt(const char* text) : CBigInt() {
  if (!text || !text[0]) return;
  if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    ParseHex(text + 2);
  } else if (text[0] == '0' && (text[1] == 'b' || text[1] == 'B')) {
    ParseBinary(text + 2);
  } else if (text[0] == '0') {
    ParseOctal(text + 1);
  } else {
    ParseDecimal(text);
  }
}

CBigInt::~CBigInt() {
  Release();
  if (m_pszText) BigIntRelease(m_pszText);
}

CBigInt& CBigInt::operator=(const CBigInt& other) {
  if (this == &other) return *this;
  Release();
  if (other.m_nLength && Allocate(other.m_nLength))
    std::memcpy(m_pData, other.m_pData, HeldBytes(other.m_nLength));
  return *this;
}

CBigInt& CBigInt::operator=(CBigInt&& other) noexcept {
  if (this == &other) return *this;
  Release();
  m_nLength = other.m_nLength;
  m_pData = other.m_pData;
  other.m_nLength = 0;
  other.m_pData = nullptr;
  return *this;
}

// ---------------------------------------------------------------------------------------------
// Tests and conversions

bool CBigInt::IsNegative() const {
  return m_nLength != 0 && (m_pData[m_nLength - 1] & kTopBit) != 0;
}

bool CBigInt::IsZero() const {
  for (int i = 0; i < m_nLength; ++i)
    if (m_pData[i]) return false;
  return true;
}

bool CBigInt::IsNonZero() const { return !IsZero(); }

CBigInt::operator int64_t() const {
  if (m_nLength == 0) return 0;
  if (m_nLength == 1) return static_cast<int32_t>(m_pData[0]);
  return static_cast<int64_t>((static_cast<uint64_t>(m_pData[1]) << 32) | m_pData[0]);
}

CBigInt::operator uint64_t() const {
  if (m_nLength == 0) return 0;
  if (m_nLength == 1) return m_pData[0];
  return (static_cast<uint64_t>(m_pData[1]) << 32) | m_pData[0];
}

// ---------------------------------------------------------------------------------------------
// Word-level building blocks

void CBigInt::Normalize() {
  if (m_nLength == 0) return;
  int n = m_nLength;
  if (m_pData[n - 1] & kTopBit) {
    while (n > 1 && m_pData[n - 1] == 0xFFFFFFFFu) --n;
    if (n < m_nLength && !(m_pData[n - 1] & kTopBit)) ++n;
  } else {
    while (n > 1 && m_pData[n - 1] == 0) --n;
    if (n < m_nLength && (m_pData[n - 1] & kTopBit)) ++n;
  }
  // The array keeps its size; only the count of words in use shrinks.
  m_nLength = n;
}

void CBigInt::BumpUp() {
  for (int i = 0; i < m_nLength; ++i)
    if (++m_pData[i] != 0) break;
}

void CBigInt::BumpDown() {
  for (int i = 0; i < m_nLength; ++i)
    if (m_pData[i]-- != 0) break;
}

CBigInt& CBigInt::operator++() {
  if (m_nLength == 0) return *this;
  const bool wasNegative = IsNegative();
  BumpUp();
  if (!wasNegative && IsNegative()) AppendWord(0);
  return *this;
}

CBigInt& CBigInt::operator--() {
  if (m_nLength == 0) return *this;
  const bool wasNegative = IsNegative();
  BumpDown();
  if (wasNegative && !IsNegative()) AppendWord(0xFFFFFFFFu);
  return *this;
}

CBigInt CBigInt::operator++(int) {
  CBigInt old(*this);
  ++*this;
  return old;
}

CBigInt CBigInt::operator--(int) {
  CBigInt old(*this);
  --*this;
  return old;
}

void CBigInt::Negate() {
  if (m_nLength == 0) return;
  if (IsNegative()) {
    --*this;
    for (int i = 0; i < m_nLength; ++i) m_pData[i] = ~m_pData[i];
    if (IsNegative()) AppendWord(0);
  } else {
    for (int i = 0; i < m_nLength; ++i) m_pData[i] = ~m_pData[i];
    ++*this;
  }
}

// ---------------------------------------------------------------------------------------------
// Additive and bitwise operations

namespace {

// Word i of `x` with the sign fill beyond its length.
inline uint32_t WordAt(const CBigInt& x, int i, uint32_t fill) {
  return i < x.m_nLength ? x.m_pData[i] : fill;
}

enum class BitOp { kAnd, kOr, kXor };

CBigInt Bitwise(const CBigInt& a, const CBigInt& b, BitOp op) {
  if (a.m_nLength == 0 || b.m_nLength == 0) return deskaid::NullBigInt();
  const int n = a.m_nLength > b.m_nLength ? a.m_nLength : b.m_nLength;
  const uint32_t fa = a.IsNegative() ? 0xFFFFFFFFu : 0, fb = b.IsNegative() ? 0xFFFFFFFFu : 0;
  std::vector<uint32_t> w(n);
  for (int i = 0; i < n; ++i) {
    uint32_t x = WordAt(a, i, fa), y = WordAt(b, i, fb);
    w[i] = op == BitOp::kAnd ? (x & y) : op == BitOp::kOr ? (x | y) : (x ^ y);
  }
  CBigInt r(w.data(), n);
  r.Normalize();
  return r;
}

}  // namespace

CBigInt CBigInt::operator+(const CBigInt& other) const {
  if (m_nLength == 0 || other.m_nLength == 0) return deskaid::NullBigInt();
  const int n = m_nLength > other.m_nLength ? m_nLength : other.m_nLength;
  const uint32_t fa = SignFill(), fb = other.SignFill();
  std::vector<uint32_t> w(static_cast<size_t>(n) + 1);
  uint64_t carry = 0;
  for (int i = 0; i < n; ++i) {
    uint64_t s = static_cast<uint64_t>(WordAt(*this, i, fa)) + WordAt(other, i, fb) + carry;
    w[i] = static_cast<uint32_t>(s);
    carry = s >> 32;
  }
  int len = n;
  // The carry of the unsigned words is kept, whatever the signs were.
  if (carry) {
    w[len++] = 1;
  } else if (w[n - 1] & kTopBit) {
    w[len++] = 0;
  }
  CBigInt r(w.data(), len);
  r.Normalize();
  return r;
}

CBigInt CBigInt::operator-(const CBigInt& other) const {
  if (m_nLength == 0 || other.m_nLength == 0) return deskaid::NullBigInt();
  const int n = m_nLength > other.m_nLength ? m_nLength : other.m_nLength;
  const uint32_t fa = SignFill(), fb = other.SignFill();
  std::vector<uint32_t> w(static_cast<size_t>(n) + 1);
  uint32_t borrow = 0;
  for (int i = 0; i < n; ++i) {
    uint32_t x = WordAt(*this, i, fa), y = WordAt(other, i, fb);
    uint64_t d = static_cast<uint64_t>(x) - y - borrow;
    w[i] = static_cast<uint32_t>(d);
    borrow = (d >> 63) ? 1 : 0;
  }
  int len = n;
  if (borrow) {
    w[len++] = 0xFFFFFFFFu;
  } else if (w[n - 1] & kTopBit) {
    w[len++] = 0;
  }
  CBigInt r(w.data(), len);
  r.Normalize();
  return r;
}

CBigInt CBigInt::operator&(const CBigInt& other) const {
  return Bitwise(*this, other, BitOp::kAnd);
}
CBigInt CBigInt::operator|(const CBigInt& other) const { return Bitwise(*this, other, BitOp::kOr); }
CBigInt CBigInt::operator^(const CBigInt& other) const {
  return Bitwise(*this, other, BitOp::kXor);
}

CBigInt CBigInt::operator-() const {
  CBigInt r(*this);
  r.Negate();
  r.Normalize();
  return r;
}

CBigInt CBigInt::operator~() const {
  if (m_nLength == 0) return deskaid::NullBigInt();
  // Room for 2n - 1 words; only the operand's own n words are complemented, so for two or more
  // words the zero words above keep the result non-negative.
  const int n = m_nLength;
  std::vector<uint32_t> w(static_cast<size_t>(2 * n - 1), 0);
  for (int i = 0; i < n; ++i) w[i] = ~m_pData[i];
  CBigInt r(w.data(), 2 * n - 1);
  r.Normalize();
  return r;
}

// ---------------------------------------------------------------------------------------------
// Shifts

CBigInt CBigInt::operator<<(int32_t count) const {
  if (m_nLength == 0) return *this;
  if (count < 0) return *this >> count;  // a negative count shifts right by its magnitude
  const int64_t w = count / 32;
  const int b = count % 32;
  const bool wasNegative = IsNegative();
  const uint32_t fill = SignFill();
  const int64_t n = m_nLength + w;
  if (ByteSize(n + 2) >= 0xFFFFFFFFull) return deskaid::NullBigInt();
  std::vector<uint32_t> out;
  out.reserve(static_cast<size_t>(n) + 2);
  out.assign(static_cast<size_t>(w), 0);
  out.insert(out.end(), m_pData, m_pData + m_nLength);
  if (b > 0) {
    uint32_t carry = 0;
    for (size_t i = static_cast<size_t>(w); i < out.size(); ++i) {
      uint32_t v = out[i];
      out[i] = (v << b) | carry;
      carry = v >> (32 - b);
    }
    if (carry) out.push_back((fill << b) | carry);
  }
  if (!wasNegative && (out.back() & kTopBit)) out.push_back(0);
  CBigInt r(out.data(), static_cast<int>(out.size()));
  if (wasNegative) {
    r.Normalize();
    if (r.m_nLength) r.m_pData[r.m_nLength - 1] |= kTopBit;
  }
  return r;
}

CBigInt CBigInt::operator>>(int32_t count) const {
  if (m_nLength == 0) return *this;
  // Deliberately, a negative count shifts right as well.
  const int64_t n = count < 0 ? -static_cast<int64_t>(count) : count;
  const int64_t w = n / 32;
  const int b = static_cast<int>(n % 32);
  if (w >= m_nLength) return CBigInt();  // 0, also for a negative value
  const int len = m_nLength - static_cast<int>(w);
  std::vector<uint32_t> out(m_pData + w, m_pData + m_nLength);
  if (b > 0) {
    uint32_t fill = IsNegative() ? (0xFFFFFFFFu << (32 - b)) : 0;
    for (int i = len - 1; i >= 0; --i) {
      uint32_t v = out[i];
      out[i] = (v >> b) | fill;
      fill = v << (32 - b);
    }
  }
  CBigInt r(out.data(), len);
  r.Normalize();
  return r;
}

// ---------------------------------------------------------------------------------------------
// Comparison

bool CBigInt::operator==(const CBigInt& other) const {
  // Only the left operand's words are looked at.
  const uint32_t fill = other.SignFill();
  for (int i = 0; i < m_nLength; ++i)
    if (m_pData[i] != WordAt(other, i, fill)) return false;
  return true;
}

bool CBigInt::operator!=(const CBigInt& other) const { return !(*this == other); }

namespace {

// Ordering of two non-null values of the same sign: their difference is exact then.
int CompareSameSign(const CBigInt& a, const CBigInt& b) {
  const int n = a.m_nLength > b.m_nLength ? a.m_nLength : b.m_nLength;
  const uint32_t fill = a.IsNegative() ? 0xFFFFFFFFu : 0;
  for (int i = n - 1; i >= 0; --i) {
    uint32_t x = WordAt(a, i, fill), y = WordAt(b, i, fill);
    if (x != y) return x < y ? -1 : 1;
  }
  return 0;
}

}  // namespace

bool CBigInt::operator<(const CBigInt& other) const {
  if (IsNegative() != other.IsNegative()) return IsNegative();
  if (m_nLength == 0 || other.m_nLength == 0) return false;  // the difference is null
  return CompareSameSign(*this, other) < 0;
}

bool CBigInt::operator>(const CBigInt& other) const {
  if (IsNegative() != other.IsNegative()) return other.IsNegative();
  if (m_nLength == 0 || other.m_nLength == 0) return false;
  return CompareSameSign(*this, other) > 0;
}

bool CBigInt::operator<=(const CBigInt& other) const { return *this < other || *this == other; }
bool CBigInt::operator>=(const CBigInt& other) const { return *this > other || *this == other; }

// ---------------------------------------------------------------------------------------------
// Multiplication

CBigInt CBigInt::operator*(const CBigInt& other) const {
  if (m_nLength == 0 || other.m_nLength == 0) return deskaid::NullBigInt();
  const bool negative = IsNegative() != other.IsNegative();
  limbs::LimbVector a = deskaid::MagnitudeOf(*this);
  limbs::LimbVector b = &other == this ? a : deskaid::MagnitudeOf(other);
  CBigInt r = deskaid::FromMagnitude(limbs::Product(a, &other == this ? a : b));
  // Negated after normalising, so a negative product keeps the magnitude's word count.
  if (negative) r.Negate();
  return r;
}

CBigInt CBigInt::operator*(uint32_t factor) const {
  if (m_nLength == 0) return deskaid::NullBigInt();
  const bool negative = IsNegative();
  limbs::LimbVector a = deskaid::MagnitudeOf(*this);
  limbs::LimbVector out(a.size() + 1, 0);
  out[a.size()] = limbs::Mul1(out.data(), a.data(), a.size(), factor, 0);
  limbs::Trim(out);
  CBigInt r = deskaid::FromMagnitude(out);
  if (negative) r.Negate();
  return r;
}

CBigInt CBigInt::operator*(int32_t factor) const {
  if (factor >= 0) return *this * static_cast<uint32_t>(factor);
  // The negated value times the negated factor.
  return (-*this) * static_cast<uint32_t>(-static_cast<int64_t>(factor));
}

// ---------------------------------------------------------------------------------------------
// Division

namespace {

// Quotient and remainder 0, each if requested.
void SetZero(CBigInt* quotient, CBigInt* remainder) {
  if (quotient) *quotient = CBigInt();
  if (remainder) *remainder = CBigInt();
}

}  // namespace

void CBigInt::DivideBySmall(uint32_t divisor, CBigInt* quotient, CBigInt* remainder) const {
  if (divisor == 0) deskaid::RaiseDivideFault();
  if (divisor == 0 || IsZero()) {
    SetZero(quotient, remainder);
    return;
  }
  const bool negative = IsNegative();
  limbs::LimbVector mag = deskaid::MagnitudeOf(*this);
  limbs::LimbVector q(mag.size());
  limbs::Limb rem = limbs::DivideSingle(q.data(), mag.data(), mag.size(), divisor);
  if (quotient) {
    limbs::Trim(q);
    *quotient = deskaid::FromMagnitude(q);
    if (negative) quotient->Negate();
  }
  if (remainder) {
    *remainder = CBigInt(static_cast<uint64_t>(rem));
    if (negative) remainder->Negate();
  }
}

void CBigInt::DivideBySmall(int32_t divisor, CBigInt* quotient, CBigInt* remainder) const {
  if (divisor >= 0) {
    DivideBySmall(static_cast<uint32_t>(divisor), quotient, remainder);
    return;
  }
  DivideBySmall(static_cast<uint32_t>(-static_cast<int64_t>(divisor)), quotient, remainder);
  if (quotient) quotient->Negate();
}

void CBigInt::Divide(const CBigInt& divisor, CBigInt* quotient, CBigInt* remainder) const {
  if (divisor.IsZero()) deskaid::RaiseDivideFault();  // all words 0, or null
  if (divisor.IsZero() || IsZero()) {
    SetZero(quotient, remainder);
    return;
  }
  if (divisor.m_nLength == 1) {
    const uint32_t d = divisor.m_pData[0];
    if (d & kTopBit) {
      DivideBySmall(static_cast<int32_t>(d), quotient, remainder);
    } else {
      DivideBySmall(d, quotient, remainder);
    }
    return;
  }
  const bool negativeQuotient = IsNegative() != divisor.IsNegative();
  const bool negativeDividend = IsNegative();
  limbs::LimbVector d = deskaid::MagnitudeOf(*this), v = deskaid::MagnitudeOf(divisor);
  limbs::LimbVector q, r;
  limbs::DivMod(d, v, quotient ? &q : nullptr, remainder ? &r : nullptr);
  if (quotient) {
    *quotient = deskaid::FromMagnitude(q);
    if (negativeQuotient) quotient->Negate();
  }
  if (remainder) {
    *remainder = deskaid::FromMagnitude(r);
    if (negativeDividend) remainder->Negate();
    remainder->Normalize();
  }
}

CBigInt CBigInt::operator/(const CBigInt& divisor) const {
  CBigInt q(NullTag{});
  Divide(divisor, &q, nullptr);
  return q;
}

CBigInt CBigInt::operator%(const CBigInt& divisor) const {
  CBigInt r(NullTag{});
  Divide(divisor, nullptr, &r);
  return r;
}

CBigInt CBigInt::operator/(uint32_t divisor) const {
  CBigInt q(NullTag{});
  DivideBySmall(divisor, &q, nullptr);
  return q;
}

CBigInt CBigInt::operator/(int32_t divisor) const {
  CBigInt q(NullTag{});
  DivideBySmall(divisor, &q, nullptr);
  return q;
}

CBigInt CBigInt::operator%(uint32_t divisor) const {
  CBigInt r(NullTag{});
  DivideBySmall(divisor, nullptr, &r);
  return r;
}

CBigInt CBigInt::operator%(int32_t divisor) const {
  CBigInt r(NullTag{});
  DivideBySmall(divisor, nullptr, &r);
  return r;
}
