// CBigInt's text forms: the parsers for radix 2 to 36 and the chunked conversion to text.
#include <cstring>
#include <string>
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

// Accumulates the digits [p, end) of `radix` into `acc`, several digits per step.
void AccumulateDigits(LimbVector& acc, const char* p, const char* end, unsigned radix) {
  // The largest power of the radix that fits in a limb.
  Limb big = radix;
  int perChunk = 1;
  while (big <= static_cast<Limb>(~static_cast<Limb>(0)) / radix) {
    big *= radix;
    ++perChunk;
  }
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
}

char DigitChar(Limb d) {
  return d < 10 ? static_cast<char>('0' + d) : static_cast<char>('A' + (d - 10));
}

// Conversion of a magnitude to digits: divide and conquer over the squares of a limb-sized power
// of the radix, so the work is a few long divisions instead of one short division per chunk.
class DigitWriter {
 public:
  explicit DigitWriter(uint32_t radix) : m_radix(radix) {
    Limb big = radix;
    m_chunkDigits = 1;
    while (big <= static_cast<Limb>(~static_cast<Limb>(0)) / radix) {
      big *= radix;
      ++m_chunkDigits;
    }
    m_powers.push_back(LimbVector{big});
    m_powerDigits.push_back(m_chunkDigits);
  }

  // Appends the digits of `v`, least significant first, padded with zeros to `width` digits
  // (width 0: no padding, and nothing at all for zero).
  void Write(const LimbVector& v, size_t width, std::string& out) {
    if (v.empty()) {
      out.append(width, '0');
      return;
    }
    if (v.size() <= kDirectLimbs) {
      WriteDirect(v, width, out);
      return;
    }
    // Largest power with at most half the limbs of v.
    size_t i = 0;
    while (true) {
      if (i + 1 == m_powers.size()) {
        if (m_powers[i].size() * 2 > v.size()) break;
        m_powers.push_back(limbs::Product(m_powers[i], m_powers[i]));
        m_powerDigits.push_back(m_powerDigits[i] * 2);
      }
      if (m_powers[i + 1].size() * 2 > v.size() + 1) break;
      ++i;
    }
    LimbVector q, r;
    limbs::DivMod(v, m_powers[i], &q, &r);
    const size_t low = m_powerDigits[i];
    Write(r, low, out);
    Write(q, width > low ? width - low : 0, out);
  }

 private:
  static constexpr size_t kDirectLimbs = 24;

  void WriteDirect(LimbVector v, size_t width, std::string& out) {
    const size_t start = out.size();
    const Limb big = m_powers[0][0];
    while (!v.empty()) {
      Limb rem = limbs::DivideSingle(v.data(), v.data(), v.size(), big);
      limbs::Trim(v);
      for (int i = 0; i < m_chunkDigits; ++i) {
        if (v.empty() && rem == 0) break;
        out.push_back(DigitChar(rem % m_radix));
        rem /= m_radix;
      }
    }
    if (out.size() - start < width) out.append(width - (out.size() - start), '0');
  }

  uint32_t m_radix;
  int m_chunkDigits;
  std::vector<LimbVector> m_powers;
  std::vector<size_t> m_powerDigits;
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
    uint32_t d = (c >= '0' && c <= '9') ? static_cast<uint32_t>(c - '0')
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
    w[bit / 32] |= d << (bit % 32);
    if (bit % 32 + bitsPerDigit > 32) w[bit / 32 + 1] |= d >> (32 - bit % 32);
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
  const char* p = SkipBlanks(text);
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
  LimbVector acc;
  if (first) acc.push_back(first);
  AccumulateDigits(acc, p, end, 10);
  *this = deskaid::FromMagnitude(acc);
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
  if (radix >= 2) AccumulateDigits(acc, p, end, static_cast<unsigned>(radix));
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
  const size_t keep = reversed.size() < static_cast<size_t>(size) ? reversed.size()
                                                                   : static_cast<size_t>(size) - 1;
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
