// CBigInt's text forms: the parsers for radix 2 to 36 and the chunked conversion to text.
#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "deskaid/math/bigint.h"
#include "deskaid/math/internal/bigint_alloc.h"
#include "deskaid/math/internal/bigint_internal.h"
#include "deskaid/math/internal/divide_fault.h"

using deskaid::limbs::Limb;
using deskaid::limbs::LimbVector;
namespace limbs = deskaid::limbs;

namespace {

const char* SkipBlanks(const char* p) {
  while (*p == ' ' || *p == '\t') ++p;
  return p;
}

bool IsHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

// Value of a letter or digit in radix up to 36, or 99 for anything else.
unsigned DigitValue(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'z') return static_cast<unsigned>(c - 'a' + 10);
  if (c >= 'A' && c <= 'Z') return static_cast<unsigned>(c - 'A' + 10);
  return 99;
}

// acc = acc * m + c, in place.
void MulAddSmall(LimbVector& acc, Limb m, Limb c) {
  Limb carry = limbs::Mul1(acc.data(), acc.data(), acc.size(), m, c);
  if (carry) acc.push_back(carry);
}

// The largest power of the radix that fits in a limb, and its exponent.
Limb ChunkPower(unsigned radix, int* digits) {
  Limb big = radix;
  int k = 1;
  while (big <= static_cast<Limb>(~static_cast<Limb>(0)) / radix) {
    big *= radix;
    ++k;
  }
  *digits = k;
  return big;
}

// Powers big^(2^k) of the chunk power `big`, made on demand by squaring, with their digit counts.
// A power of an even radix ends in whole zero limbs; they are kept as a count instead, so that
// products and divisions by the power work on the shorter remaining part.
class RadixPowers {
 public:
  explicit RadixPowers(unsigned radix) {
    int digits = 0;
    const Limb big = ChunkPower(radix, &digits);
    m_powers.push_back(Power{LimbVector{big}, 0});
    m_digits = static_cast<size_t>(digits);
  }
  // Power k is Significant(k) * base^ZeroLimbs(k).
  const LimbVector& Significant(size_t k) { return Make(k).significant; }
  size_t ZeroLimbs(size_t k) { return Make(k).zeroLimbs; }
  size_t Limbs(size_t k) { return Make(k).significant.size() + Make(k).zeroLimbs; }
  // Digits of power k.
  size_t Digits(size_t k) const { return m_digits << k; }
  Limb Chunk() const { return m_powers[0].significant[0]; }

 private:
  struct Power {
    LimbVector significant;
    size_t zeroLimbs;
  };
  const Power& Make(size_t k) {
    while (m_powers.size() <= k) {
      const Power& last = m_powers.back();
      LimbVector sq = limbs::Product(last.significant, last.significant);
      size_t zeros = 0;
      while (sq[zeros] == 0) ++zeros;
      sq.erase(sq.begin(), sq.begin() + static_cast<std::ptrdiff_t>(zeros));
      m_powers.push_back(Power{std::move(sq), 2 * last.zeroLimbs + zeros});
    }
    return m_powers[k];
  }

  std::vector<Power> m_powers;
  size_t m_digits;
};

// The value of the digits [p, end) of `radix`, a limb's worth of digits a step.
LimbVector AccumulateDigits(const char* p, const char* end, unsigned radix) {
  int perChunk = 0;
  ChunkPower(radix, &perChunk);
  LimbVector acc;
  while (p < end) {
    Limb m = 1, c = 0;
    for (int i = 0; i < perChunk && p < end; ++i, ++p) {
      m *= radix;
      c = c * radix + DigitValue(*p);
    }
    if (acc.empty()) {
      if (c) acc.push_back(c);
    } else {
      MulAddSmall(acc, m, c);
    }
  }
  return acc;
}

// The value of the digits [p, end): long text as (high digits) * radix^(low digit count) + (low
// digits), the low part a power-of-two number of chunks so that its power comes from the table.
LimbVector ReadDigits(const char* p, const char* end, unsigned radix, RadixPowers& powers) {
  const size_t count = static_cast<size_t>(end - p);
  if (count <= powers.Digits(0) * limbs::kTextSplitLimbs) return AccumulateDigits(p, end, radix);
  size_t k = 0;
  while (powers.Digits(k + 1) < count) ++k;
  const char* split = end - powers.Digits(k);
  LimbVector high = ReadDigits(p, split, radix, powers);
  LimbVector low = ReadDigits(split, end, radix, powers);
  if (high.empty()) return low;
  const LimbVector& power = powers.Significant(k);
  const size_t zeros = powers.ZeroLimbs(k);
  LimbVector r(zeros + high.size() + power.size() + 1, 0);
  limbs::Multiply(r.data() + zeros, high.data(), high.size(), power.data(), power.size());
  if (!low.empty()) limbs::AddLimbs(r.data(), r.size(), low.data(), low.size());
  limbs::Trim(r);
  return r;
}

LimbVector ValueOfDigits(const char* p, const char* end, unsigned radix) {
  RadixPowers powers(radix);
  return ReadDigits(p, end, radix, powers);
}

char DigitChar(Limb d) {
  return d < 10 ? static_cast<char>('0' + d) : static_cast<char>('A' + (d - 10));
}

// Conversion of a magnitude to digits: divide and conquer over the squares of a limb-sized power
// of the radix, so the work is a few long divisions instead of one short division per chunk.
class DigitWriter {
 public:
  explicit DigitWriter(uint32_t radix) : m_radix(radix), m_powers(radix) {
    m_chunkDigits = static_cast<int>(m_powers.Digits(0));
  }

  // Appends the digits of `v`, least significant first, padded with zeros to `width` digits
  // (width 0: no padding, and nothing at all for zero).
  void Write(const LimbVector& v, size_t width, std::string& out) {
    if (v.empty()) {
      out.append(width, '0');
      return;
    }
    if (v.size() <= limbs::kTextSplitLimbs) {
      WriteDirect(v, width, out);
      return;
    }
    // Largest power with at most about half the limbs of v (the next power has about twice the
    // limbs of this one; it is only made when it is taken). Its zero limbs pass straight into
    // the remainder.
    size_t i = 0;
    while (m_powers.Limbs(i) * 4 <= v.size() + 1) ++i;
    const size_t zeros = m_powers.ZeroLimbs(i);
    LimbVector q, r;
    if (zeros == 0) {
      limbs::DivMod(v, m_powers.Significant(i), &q, &r);
    } else {
      const LimbVector top(v.begin() + static_cast<std::ptrdiff_t>(zeros), v.end());
      limbs::DivMod(top, m_powers.Significant(i), &q, &r);
      r.insert(r.begin(), v.begin(), v.begin() + static_cast<std::ptrdiff_t>(zeros));
      limbs::Trim(r);
    }
    const size_t low = m_powers.Digits(i);
    Write(r, low, out);
    Write(q, width > low ? width - low : 0, out);
  }

 private:
  void WriteDirect(LimbVector v, size_t width, std::string& out) {
    const size_t start = out.size();
    // Radix 10, the common case, with a constant divisor the compiler turns into a product.
    if (m_radix == 10) {
      WriteChunks(v, std::integral_constant<Limb, 10>(), out);
    } else {
      WriteChunks(v, static_cast<Limb>(m_radix), out);
    }
    const size_t written = out.size() - start;
    if (written < width) out.append(width - written, '0');
  }

  template <typename Radix>
  void WriteChunks(LimbVector& v, Radix radix, std::string& out) {
    const Limb big = m_powers.Chunk();
    while (!v.empty()) {
      Limb rem = limbs::DivideSingle(v.data(), v.data(), v.size(), big);
      limbs::Trim(v);
      for (int i = 0; i < m_chunkDigits; ++i) {
        if (v.empty() && rem == 0) break;
        out.push_back(DigitChar(rem % radix));
        rem /= radix;
      }
    }
  }

  uint32_t m_radix;
  int m_chunkDigits;
  RadixPowers m_powers;
};

// Digits of a power-of-two radix straight from the bits.
void WriteBits(const LimbVector& v, int bitsPerDigit, std::string& out) {
  if (v.empty()) return;
  size_t totalBits = v.size() * limbs::kLimbBits;
  const Limb mask = (static_cast<Limb>(1) << bitsPerDigit) - 1;
  std::string digits;
  for (size_t bit = 0; bit < totalBits; bit += bitsPerDigit) {
    size_t li = bit / limbs::kLimbBits, off = bit % limbs::kLimbBits;
    Limb d = v[li] >> off;
    if (off + bitsPerDigit > static_cast<size_t>(limbs::kLimbBits) && li + 1 < v.size())
      d |= v[li + 1] << (limbs::kLimbBits - off);
    out.push_back(DigitChar(d & mask));
  }
  while (!out.empty() && out.back() == '0') out.pop_back();
}

// The full text of `x` in `radix` (not reversed yet: least significant digit first).
std::string ReversedText(const CBigInt& x, uint32_t radix) {
  std::string out;
  if (radix == 1) return out;  // no digit can be written in radix 1
  bool minus = false;
  LimbVector v;
  if (x.IsNegative() && radix == 10) {
    minus = true;
    v = deskaid::MagnitudeOf(x);
  } else {
    // Any other radix shows a negative value's words as an unsigned number.
    v = deskaid::UnsignedWordsOf(x);
  }
  int bits = 0;
  for (int b = 1; b <= 5; ++b)
    if (radix == (1u << b)) bits = b;
  if (bits) {
    WriteBits(v, bits, out);
  } else {
    DigitWriter(radix).Write(v, 0, out);
  }
  if (minus) out.push_back('-');
  return out;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Parsing

void CBigInt::ParseHex(const char* text) {
  const char* p = SkipBlanks(text);
  size_t count = 0;
  while (IsHexDigit(p[count])) ++count;
  if (count == 0) {
    *this = CBigInt();
    return;
  }
  const int64_t words = (static_cast<int64_t>(count) + 7) / 8;
  if (words > 0x3FFFFFFF) {
    *this = CBigInt(static_cast<const uint32_t*>(nullptr), 0);
    return;
  }
  if (words != m_nLength) {
    if (!Allocate(static_cast<int>(words))) return;
  } else {
    std::memset(m_pData, 0, static_cast<size_t>(words) * 4);
  }
  for (size_t i = 0; i < count; ++i) {
    const char c = p[count - 1 - i];
    uint32_t d = (c >= '0' && c <= '9')   ? static_cast<uint32_t>(c - '0')
                 : (c >= 'A' && c <= 'F') ? static_cast<uint32_t>(c - 'A' + 10)
                                          : static_cast<uint32_t>(c - 'a' + 10);
    m_pData[i / 8] |= d << (4 * (i % 8));
  }
  // Leading zero digits keep their words: no normalising here.
  if (m_pData[m_nLength - 1] & 0x80000000u) AppendWord(0);
}

namespace {

// Fills words from digits of `bitsPerDigit` bits, last digit lowest; returns the word array.
std::vector<uint32_t> FillBits(const char* p, size_t count, int bitsPerDigit, size_t words) {
  std::vector<uint32_t> w(words + 1, 0);
  for (size_t i = 0; i < count; ++i) {
    const uint32_t d = static_cast<uint32_t>(p[count - 1 - i] - '0');
    const uint64_t bit = static_cast<uint64_t>(i) * bitsPerDigit;
    const size_t word = static_cast<size_t>(bit / 32);
    w[word] |= d << (bit % 32);
    if (bit % 32 + bitsPerDigit > 32) w[word + 1] |= d >> (32 - bit % 32);
  }
  return w;
}

}  // namespace

void CBigInt::ParseOctal(const char* text) { ParseBits(text, 3, '7'); }

// Binary text also gets three bits of room per digit; normalising drops the excess words.
void CBigInt::ParseBinary(const char* text) { ParseBits(text, 1, '1'); }

void CBigInt::ParseBits(const char* text, int bitsPerDigit, char maxDigit) {
  const char* p = SkipBlanks(text);
  size_t count = 0;
  while (p[count] >= '0' && p[count] <= maxDigit) ++count;
  const int64_t words = (3 * static_cast<int64_t>(count) + 31) / 32;
  if (words == 0) {
    *this = CBigInt();
    return;
  }
  if (words > 0x3FFFFFFF) {
    *this = CBigInt(static_cast<const uint32_t*>(nullptr), 0);
    return;
  }
  std::vector<uint32_t> w = FillBits(p, count, bitsPerDigit, static_cast<size_t>(words));
  int len = static_cast<int>(words);
  if (w[len - 1] & 0x80000000u) w[len++] = 0;
  *this = CBigInt(w.data(), len);
  Normalize();
}

void CBigInt::ParseDecimal(const char* text) {
  const char* const start = SkipBlanks(text);
  const char* p = start;
  // Straight into the first word while it cannot overflow.
  uint32_t first = 0;
  while (*p >= '0' && *p <= '9' && first <= 429496728u) first = first * 10 + (*p++ - '0');
  const char* end = p;
  while (*end >= '0' && *end <= '9') ++end;
  if (end == p) {
    // No further digits. A minus sign right here keeps a top-bit word unextended, so the text
    // reads as negative.
    *this = CBigInt(&first, 1);
    if (*p != '-' && (first & 0x80000000u)) AppendWord(0);
    return;
  }
  // The digits already in `first` are the leading digits of the same number.
  *this = deskaid::FromMagnitude(ValueOfDigits(start, end, 10));
}

void CBigInt::Parse(const char* text, int radix) {
  if (!text) text = "";
  switch (radix) {
    case 2: ParseBinary(text); return;
    case 8: ParseOctal(text); return;
    case 10: ParseDecimal(text); return;
    case 16: ParseHex(text); return;
    default: break;
  }
  if (radix > 36) {
    *this = CBigInt();
    return;
  }
  const char* p = SkipBlanks(text);
  const char* end = p;
  while (radix > 0 && DigitValue(*end) < static_cast<unsigned>(radix)) ++end;
  LimbVector acc;
  if (radix >= 2) acc = ValueOfDigits(p, end, static_cast<unsigned>(radix));
  *this = deskaid::FromMagnitude(acc);
}

// ---------------------------------------------------------------------------------------------
// Text output

void CBigInt::FormatText(char* buffer, int size, int radix) const {
  if (radix == 0) {
    deskaid::RaiseDivideFault();
    return;
  }
  if (!buffer || size <= 0) return;
  if (m_nLength == 0) {
    if (size >= 5) std::memcpy(buffer, "Null", 5);
    return;
  }
  std::string reversed = ReversedText(*this, static_cast<uint32_t>(radix));
  // Written from the least significant digit on, so a short buffer keeps the low-order digits.
  const size_t keep =
      reversed.size() < static_cast<size_t>(size) ? reversed.size() : static_cast<size_t>(size) - 1;
  for (size_t i = 0; i < keep; ++i) buffer[i] = reversed[keep - 1 - i];
  buffer[keep] = '\0';
}

const char* CBigInt::GetString(int radix) {
  if (m_pszText) {
    deskaid::BigIntRelease(m_pszText);
    m_pszText = nullptr;
  }
  if (radix == 0) {
    deskaid::RaiseDivideFault();
    return "";
  }
  size_t size = 5;  // "Null"
  std::string reversed;
  if (m_nLength != 0) {
    reversed = ReversedText(*this, static_cast<uint32_t>(radix));
    size = reversed.size() + 1;
  }
  m_pszText = static_cast<char*>(deskaid::BigIntAllocate(size));
  if (!m_pszText) return "";
  if (m_nLength == 0) {
    std::memcpy(m_pszText, "Null", 5);
  } else {
    for (size_t i = 0; i < reversed.size(); ++i) m_pszText[i] = reversed[reversed.size() - 1 - i];
    m_pszText[reversed.size()] = '\0';
  }
  return m_pszText;
}
