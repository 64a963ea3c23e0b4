// CBigInt: the module's signed arbitrary-precision integer.
//
// The value is a two's-complement number of any length, kept as a heap array of 32-bit words,
// least significant first; the top bit of the highest word is the sign. An operation whose
// allocation fails leaves the null state behind (no words at all), which later operations carry
// along and which prints as "Null". Division by zero raises the processor's integer divide fault,
// exactly as a native division would.
//
// Several operations keep long-standing quirks that hosts depend on, among them: addition keeps
// the carry of the unsigned words (-1 + -1 is 8589934590), `~` of a multi-word value stays
// non-negative, `>>` by a negative count still shifts right, `==` looks only at the left
// operand's words, zero prints as the empty text, and the hexadecimal parser keeps leading zero
// words. Word counts are therefore part of a value's behaviour and are kept exactly.
#pragma once

#include <climits>
#include <cstdint>

// Where `long` is a 32-bit type of its own (Windows, 32-bit POSIX systems), it gets forms of its
// own; where it is 64 bits wide it is int64_t or shares its width, and the 64-bit forms serve.
#if LONG_MAX == 2147483647L && INT_MAX == 2147483647
#define DESKAID_BIGINT_LONG_FORMS 1
#else
#define DESKAID_BIGINT_LONG_FORMS 0
#endif

class CBigInt {
 public:
  CBigInt();
  CBigInt(int32_t value);
  CBigInt(uint32_t value);
  CBigInt(int64_t value);
  CBigInt(uint64_t value);
#if DESKAID_BIGINT_LONG_FORMS
  // 32-bit `long` forms. The signed one is the plain one-word form; the unsigned one reserves two
  // words, with the high word 0.
  CBigInt(long value);
  CBigInt(unsigned long value);
#endif
  CBigInt(const CBigInt& other);
  CBigInt(CBigInt&& other) noexcept;
  // Copies exactly `count` words, not normalised. A count below 1 or no array gives the null state.
  CBigInt(const uint32_t* words, int count);
  // "0x"/"0X" prefix: hexadecimal; "0b"/"0B": binary; other leading "0": octal; else decimal.
  CBigInt(const char* text);
  virtual ~CBigInt();

  CBigInt& operator=(const CBigInt& other);
  CBigInt& operator=(CBigInt&& other) noexcept;

  // Tests and conversions.
  bool IsNegative() const;
  bool IsZero() const;
  bool IsNonZero() const;
  bool IsNull() const { return m_nLength == 0; }
  explicit operator int64_t() const;
  explicit operator uint64_t() const;
  bool operator&&(const CBigInt& other) const { return IsNonZero() && other.IsNonZero(); }
  bool operator||(const CBigInt& other) const { return IsNonZero() || other.IsNonZero(); }

  // Arithmetic.
  CBigInt operator+(const CBigInt& other) const;
  CBigInt operator-(const CBigInt& other) const;
  CBigInt operator*(const CBigInt& other) const;
  CBigInt operator*(uint32_t factor) const;
  CBigInt operator*(int32_t factor) const;
  CBigInt operator/(const CBigInt& divisor) const;
  CBigInt operator%(const CBigInt& divisor) const;
  CBigInt operator/(uint32_t divisor) const;
  CBigInt operator/(int32_t divisor) const;
  CBigInt operator%(uint32_t divisor) const;
  CBigInt operator%(int32_t divisor) const;
  CBigInt operator-() const;
  CBigInt operator~() const;
  CBigInt operator&(const CBigInt& other) const;
  CBigInt operator|(const CBigInt& other) const;
  CBigInt operator^(const CBigInt& other) const;
  CBigInt operator<<(int32_t count) const;
  CBigInt operator>>(int32_t count) const;
  CBigInt& operator++();
  CBigInt& operator--();
  CBigInt operator++(int);
  CBigInt operator--(int);

  bool operator==(const CBigInt& other) const;
  bool operator!=(const CBigInt& other) const;
  bool operator<(const CBigInt& other) const;
  bool operator>(const CBigInt& other) const;
  bool operator<=(const CBigInt& other) const;
  bool operator>=(const CBigInt& other) const;

  // Built-in operands of the forms that have no rule of their own are made a CBigInt first.
#define DESKAID_BIGINT_FORWARD(T)                                 \
  CBigInt operator+(T v) const { return *this + CBigInt(v); }     \
  CBigInt operator-(T v) const { return *this - CBigInt(v); }     \
  CBigInt operator&(T v) const { return *this & CBigInt(v); }     \
  CBigInt operator|(T v) const { return *this | CBigInt(v); }     \
  CBigInt operator^(T v) const { return *this ^ CBigInt(v); }     \
  bool operator==(T v) const { return *this == CBigInt(v); }      \
  bool operator!=(T v) const { return *this != CBigInt(v); }      \
  bool operator<(T v) const { return *this < CBigInt(v); }        \
  bool operator>(T v) const { return *this > CBigInt(v); }        \
  bool operator<=(T v) const { return *this <= CBigInt(v); }      \
  bool operator>=(T v) const { return *this >= CBigInt(v); }      \
  CBigInt& operator+=(T v) { return *this = *this + CBigInt(v); } \
  CBigInt& operator-=(T v) { return *this = *this - CBigInt(v); } \
  CBigInt& operator&=(T v) { return *this = *this & CBigInt(v); } \
  CBigInt& operator|=(T v) { return *this = *this | CBigInt(v); } \
  CBigInt& operator^=(T v) { return *this = *this ^ CBigInt(v); }
  DESKAID_BIGINT_FORWARD(int32_t)
  DESKAID_BIGINT_FORWARD(uint32_t)
  DESKAID_BIGINT_FORWARD(int64_t)
  DESKAID_BIGINT_FORWARD(uint64_t)
#if DESKAID_BIGINT_LONG_FORMS
  DESKAID_BIGINT_FORWARD(long)
  DESKAID_BIGINT_FORWARD(unsigned long)
#endif
#undef DESKAID_BIGINT_FORWARD

  // 64-bit factors and divisors go through the full forms.
  CBigInt operator*(int64_t v) const { return *this * CBigInt(v); }
  CBigInt operator*(uint64_t v) const { return *this * CBigInt(v); }
  CBigInt operator/(int64_t v) const { return *this / CBigInt(v); }
  CBigInt operator/(uint64_t v) const { return *this / CBigInt(v); }
  CBigInt operator%(int64_t v) const { return *this % CBigInt(v); }
  CBigInt operator%(uint64_t v) const { return *this % CBigInt(v); }
#if DESKAID_BIGINT_LONG_FORMS
  CBigInt operator*(long v) const { return *this * static_cast<int32_t>(v); }
  CBigInt operator*(unsigned long v) const { return *this * static_cast<uint32_t>(v); }
  CBigInt operator/(long v) const { return *this / static_cast<int32_t>(v); }
  CBigInt operator/(unsigned long v) const { return *this / static_cast<uint32_t>(v); }
  CBigInt operator%(long v) const { return *this % static_cast<int32_t>(v); }
  CBigInt operator%(unsigned long v) const { return *this % static_cast<uint32_t>(v); }
#endif

  template <typename T>
  CBigInt& operator*=(const T& v) {
    return *this = *this * v;
  }
  template <typename T>
  CBigInt& operator/=(const T& v) {
    return *this = *this / v;
  }
  template <typename T>
  CBigInt& operator%=(const T& v) {
    return *this = *this % v;
  }
  CBigInt& operator+=(const CBigInt& v) { return *this = *this + v; }
  CBigInt& operator-=(const CBigInt& v) { return *this = *this - v; }
  CBigInt& operator&=(const CBigInt& v) { return *this = *this & v; }
  CBigInt& operator|=(const CBigInt& v) { return *this = *this | v; }
  CBigInt& operator^=(const CBigInt& v) { return *this = *this ^ v; }
  CBigInt& operator<<=(int32_t count) { return *this = *this << count; }
  CBigInt& operator>>=(int32_t count) { return *this = *this >> count; }

  // Text. GetString's result is owned by this object and valid until its next GetString or its
  // destruction. Radix 0 raises the divide fault; radix 1 gives the empty text.
  const char* GetString(int radix = 10);
  void FormatText(char* buffer, int size, int radix) const;
  void Parse(const char* text, int radix);
  void ParseHex(const char* text);
  void ParseOctal(const char* text);
  void ParseBinary(const char* text);
  void ParseDecimal(const char* text);

  // Word-level building blocks, public for callers that work on the representation.
  // Grows to `count` words, the new ones filled with 0xFFFFFFFF when `negative`, else 0.
  void Resize(int count, bool negative);
  // Drops redundant top words.
  void Normalize();
  // Two's-complement negation in place (grows by a word for the most negative value).
  void Negate();
  // Truncating division by a 32-bit divisor; the remainder takes the dividend's sign.
  void DivideBySmall(uint32_t divisor, CBigInt* quotient, CBigInt* remainder) const;
  void DivideBySmall(int32_t divisor, CBigInt* quotient, CBigInt* remainder) const;
  // Truncating long division; either result may be null when not wanted.
  void Divide(const CBigInt& divisor, CBigInt* quotient, CBigInt* remainder) const;

  int32_t m_nLength;
  uint32_t* m_pData;
  char* m_pszText;

 private:
  struct NullTag {};
  explicit CBigInt(NullTag);
  void Release();
  // Octal and binary text: digits up to `maxDigit`, `bitsPerDigit` bits each.
  void ParseBits(const char* text, int bitsPerDigit, char maxDigit);
  bool Allocate(int count);  // fresh zeroed array of `count` words; null state on failure
  uint32_t SignFill() const { return IsNegative() ? 0xFFFFFFFFu : 0u; }
  void AppendWord(uint32_t word);
  void BumpUp();    // the carry loop of ++
  void BumpDown();  // the borrow loop of --
};

// Built-in left operands.
int32_t operator/(int32_t left, const CBigInt& right);
uint32_t operator/(uint32_t left, const CBigInt& right);
int64_t operator/(int64_t left, const CBigInt& right);
uint64_t operator/(uint64_t left, const CBigInt& right);
CBigInt operator%(uint32_t left, const CBigInt& right);
CBigInt operator%(int32_t left, const CBigInt& right);
CBigInt operator%(uint64_t left, const CBigInt& right);
CBigInt operator%(int64_t left, const CBigInt& right);
#if DESKAID_BIGINT_LONG_FORMS
long operator/(long left, const CBigInt& right);
unsigned long operator/(unsigned long left, const CBigInt& right);
CBigInt operator%(long left, const CBigInt& right);
CBigInt operator%(unsigned long left, const CBigInt& right);
#endif
