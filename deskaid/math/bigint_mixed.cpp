// Operations with a built-in integer on the left. These follow the native integer division where
// the big value is small enough, and keep their historical answers where it is not (for
// instance an unsigned 32-bit value modulo a multi-word CBigInt is that CBigInt's magnitude).
#include <cstdint>
#include <limits>

#include "deskaid/math/bigint.h"
#include "deskaid/math/internal/divide_fault.h"

namespace {

// The CBigInt's value as the divisor of a 32-bit division, when it has one word or two with a
// high word 0.
bool SmallWord(const CBigInt& x, uint32_t* word) {
  if (x.m_nLength == 1 || (x.m_nLength == 2 && x.m_pData[1] == 0)) {
    *word = x.m_pData[0];
    return true;
  }
  return false;
}

// At most two words, or three with a top word 0 (the latter divided as unsigned).
int SixtyFourBitForm(const CBigInt& x) {
  if (x.m_nLength <= 2) return 1;
  if (x.m_nLength == 3 && x.m_pData[2] == 0) return 2;
  return 0;
}

CBigInt MagnitudeCopy(const CBigInt& x) { return x.IsNegative() ? -x : x; }

template <typename T>
T SignedDivide(T left, T right) {
  if (right == 0 || (left == std::numeric_limits<T>::min() && right == -1)) {
    deskaid::RaiseDivideFault();
    return 0;
  }
  return left / right;
}

template <typename T>
T SignedRemainder(T left, T right) {
  if (right == 0 || (left == std::numeric_limits<T>::min() && right == -1)) {
    deskaid::RaiseDivideFault();
    return 0;
  }
  return left % right;
}

template <typename T>
T UnsignedDivide(T left, T right, bool remainder) {
  if (right == 0) {
    deskaid::RaiseDivideFault();
    return 0;
  }
  return remainder ? left % right : left / right;
}

// An exact CBigInt of a signed 64-bit number (the plain 64-bit constructor is not exact from 2^31
// to 2^32 - 1).
CBigInt Exact(int64_t v) {
  if (v >= 0) return CBigInt(static_cast<uint64_t>(v));
  return -CBigInt(static_cast<uint64_t>(0) - static_cast<uint64_t>(v));
}

}  // namespace

int32_t operator/(int32_t left, const CBigInt& right) {
  uint32_t w;
  if (!SmallWord(right, &w)) return 0;
  return SignedDivide<int32_t>(left, static_cast<int32_t>(w));
}

uint32_t operator/(uint32_t left, const CBigInt& right) {
  uint32_t w;
  if (!SmallWord(right, &w)) return 0;
  return UnsignedDivide<uint32_t>(left, w, false);
}

int64_t operator/(int64_t left, const CBigInt& right) {
  switch (SixtyFourBitForm(right)) {
    case 1: return SignedDivide<int64_t>(left, static_cast<int64_t>(right));
    case 2:
      return static_cast<int64_t>(UnsignedDivide<uint64_t>(static_cast<uint64_t>(left),
                                                           static_cast<uint64_t>(right), false));
    default: return 0;
  }
}

uint64_t operator/(uint64_t left, const CBigInt& right) {
  if (!SixtyFourBitForm(right)) return 0;
  return UnsignedDivide<uint64_t>(left, static_cast<uint64_t>(right), false);
}

CBigInt operator%(uint32_t left, const CBigInt& right) {
  if (right.m_nLength == 1) return CBigInt(UnsignedDivide<uint32_t>(left, right.m_pData[0], true));
  // Deliberately the magnitude of the right operand, not a remainder.
  return MagnitudeCopy(right);
}

CBigInt operator%(int32_t left, const CBigInt& right) {
  if (right.m_nLength == 1)
    return CBigInt(SignedRemainder<int32_t>(left, static_cast<int32_t>(right.m_pData[0])));
  if (right.m_nLength == 0) return right;
  return (left < 0) == right.IsNegative() ? right : -right;
}

CBigInt operator%(uint64_t left, const CBigInt& right) {
  if (SixtyFourBitForm(right))
    return CBigInt(UnsignedDivide<uint64_t>(left, static_cast<uint64_t>(right), true));
  return MagnitudeCopy(right);
}

CBigInt operator%(int64_t left, const CBigInt& right) {
  if (right.m_nLength <= 2)
    return Exact(SignedRemainder<int64_t>(left, static_cast<int64_t>(right)));
  return (left < 0) == right.IsNegative() ? right : -right;
}

#if DESKAID_BIGINT_LONG_FORMS
long operator/(long left, const CBigInt& right) { return static_cast<int32_t>(left) / right; }
unsigned long operator/(unsigned long left, const CBigInt& right) {
  return static_cast<uint32_t>(left) / right;
}
CBigInt operator%(long left, const CBigInt& right) { return static_cast<int32_t>(left) % right; }
CBigInt operator%(unsigned long left, const CBigInt& right) {
  return static_cast<uint32_t>(left) % right;
}
#endif
