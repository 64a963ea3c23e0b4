#include "deskaid/codec/internal/base64_vector.h"

#include <cstring>

#if (defined(__GNUC__) && defined(__x86_64__)) || defined(_M_X64)
#define DESKAID_BASE64_VECTOR 1
#include <tmmintrin.h>
#if defined(_MSC_VER) && !defined(__clang__)
#include <intrin.h>
#endif
#endif

namespace deskaid {
namespace base64 {

#if defined(DESKAID_BASE64_VECTOR)

// GCC and Clang compile the kernels for SSSE3 only, so the rest of the module keeps running on
// any x86-64 processor; MSVC takes the intrinsics as they are.
#if defined(__GNUC__)
#define DESKAID_SSSE3 __attribute__((target("ssse3")))
#else
#define DESKAID_SSSE3
#endif

bool HaveVectorKernels() {
  static const bool have = [] {
#if defined(__GNUC__)
    __builtin_cpu_init();
    return __builtin_cpu_supports("ssse3") != 0;
#else
    int info[4];
    __cpuid(info, 1);
    return (info[2] & (1 << 9)) != 0;
#endif
  }();
  return have;
}

namespace {

// Twelve bytes to sixteen six-bit values, one per byte, in text order. Each 32-bit lane takes one
// group's bytes b0 b1 b2 arranged as the 16-bit words b0:b1 and b1:b2; the multiplications move
// the fields of each word to the byte they belong in.
DESKAID_SSSE3 inline __m128i SplitBlock(__m128i in) {
  in = _mm_shuffle_epi8(in, _mm_set_epi8(10, 11, 9, 10, 7, 8, 6, 7, 4, 5, 3, 4, 1, 2, 0, 1));
  const __m128i first = _mm_mulhi_epu16(_mm_and_si128(in, _mm_set1_epi32(0x0FC0FC00)),
                                        _mm_set1_epi32(0x04000040));
  const __m128i second = _mm_mullo_epi16(_mm_and_si128(in, _mm_set1_epi32(0x003F03F0)),
                                         _mm_set1_epi32(0x01000010));
  return _mm_or_si128(first, second);
}

// Six-bit values to alphabet characters: each value selects, by its range, the offset that
// turns it into its character ("A" for 0-25, "a" - 26, "0" - 52, then "+" and "/").
DESKAID_SSSE3 inline __m128i ValuesToText(__m128i values) {
  __m128i range = _mm_subs_epu8(values, _mm_set1_epi8(51));  // 0 up to 51, then 1 to 12
  const __m128i upper = _mm_cmpgt_epi8(_mm_set1_epi8(26), values);
  range = _mm_or_si128(range, _mm_and_si128(upper, _mm_set1_epi8(13)));
  const __m128i offsets = _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                        '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                        '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
  return _mm_add_epi8(values, _mm_shuffle_epi8(offsets, range));
}

inline __m128i InRange(__m128i c, char low, char high) {
  return _mm_and_si128(_mm_cmpgt_epi8(c, _mm_set1_epi8(char(low - 1))),
                       _mm_cmpgt_epi8(_mm_set1_epi8(char(high + 1)), c));
}

}  // namespace

DESKAID_SSSE3 uint32_t EncodeBlocks(const unsigned char* in, uint32_t length, char* out) {
  uint32_t i = 0;
  for (; i + 16 <= length; i += 12, out += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), ValuesToText(SplitBlock(block)));
  }
  return i;
}

namespace {

// Sixteen characters to their six-bit values, if all of them are alphabet characters without the
// high bit. Each character is classified by its two nibbles: a table per nibble gives a set of
// classes, and the character is in the alphabet when the two sets do not meet. The value is the
// character plus an offset chosen by the high nibble ("/" shares its nibble with "+" and is moved
// one entry down).
DESKAID_SSSE3 inline bool TextToValues(__m128i c, __m128i* values) {
  const __m128i nibble = _mm_set1_epi8(0x0F);
  const __m128i high = _mm_and_si128(_mm_srli_epi32(c, 4), nibble);
  const __m128i low = _mm_and_si128(c, nibble);
  // Classes: 0x01 for high nibble 2, 0x02 for 3, 0x04 for 4 and 6, 0x08 for 5 and 7, 0x10 for
  // the nibbles that hold no alphabet character. The low-nibble table lists, per low nibble, the
  // classes in which it is not an alphabet character.
  const __m128i highClass = _mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10,
                                          0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10);
  const __m128i lowClasses = _mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                           0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
  const __m128i clash =
      _mm_and_si128(_mm_shuffle_epi8(lowClasses, low), _mm_shuffle_epi8(highClass, high));
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(clash, _mm_setzero_si128())) != 0xFFFF) return false;
  const __m128i offsets = _mm_setr_epi8(0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a',
                                        26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0);
  const __m128i slash = _mm_cmpeq_epi8(c, _mm_set1_epi8('/'));
  *values = _mm_add_epi8(c, _mm_shuffle_epi8(offsets, _mm_add_epi8(high, slash)));
  return true;
}

// Sixteen six-bit values, four per group, to the twelve bytes of the four groups (in the low 12
// bytes of the result): v0 v1 v2 v3 become the 12-bit words v0:v1 and v2:v3, then one 24-bit
// number per lane, whose bytes are put most significant first.
DESKAID_SSSE3 inline __m128i JoinBlock(__m128i values) {
  const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140));
  const __m128i groups = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
  return _mm_shuffle_epi8(groups,
                          _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
}

}  // namespace

DESKAID_SSSE3 uint32_t DecodeBlocks(const unsigned char* in, uint32_t length,
                                    unsigned char* out) {
  uint32_t i = 0;
  for (; i + 16 <= length; i += 16, out += 12) {
    __m128i values;
    if (!TextToValues(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i)), &values)) break;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), JoinBlock(values));
  }
  return i;
}

DESKAID_SSSE3 uint32_t CopyAndDecodeBlocks(const char* in, uint32_t length, char* copy,
                                           unsigned char* out) {
  uint32_t i = 0;
  for (; i + 16 <= length; i += 16, out += 12) {
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    __m128i values;
    if (!TextToValues(c, &values)) break;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(copy + i), c);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), JoinBlock(values));
  }
  return i;
}

uint32_t CopyUnskipped(const char* in, uint32_t length, char* out) {
  uint32_t i = 0;
  for (; i + 16 <= length; i += 16) {
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    const __m128i skipped = _mm_or_si128(InRange(c, 7, 13), _mm_cmpeq_epi8(c, _mm_set1_epi8(' ')));
    if (_mm_movemask_epi8(skipped) != 0) break;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), c);
  }
  return i;
}

void StreamCopy(void* to, const void* from, size_t size) {
  unsigned char* dst = static_cast<unsigned char*>(to);
  const unsigned char* src = static_cast<const unsigned char*>(from);
  const size_t head = (16 - (reinterpret_cast<uintptr_t>(dst) & 15)) & 15;
  if (size < head + 16) {
    std::memcpy(dst, src, size);
    return;
  }
  std::memcpy(dst, src, head);
  size_t i = head;
  for (; i + 16 <= size; i += 16) {
    _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i),
                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i)));
  }
  std::memcpy(dst + i, src + i, size - i);
}

void StreamZero(void* to, size_t size) {
  unsigned char* dst = static_cast<unsigned char*>(to);
  const size_t head = (16 - (reinterpret_cast<uintptr_t>(dst) & 15)) & 15;
  if (size < head + 16) {
    std::memset(dst, 0, size);
    return;
  }
  std::memset(dst, 0, head);
  size_t i = head;
  for (; i + 16 <= size; i += 16) {
    _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i), _mm_setzero_si128());
  }
  std::memset(dst + i, 0, size - i);
}

void StreamFence() { _mm_sfence(); }

#else  // no vector kernels on this target

bool HaveVectorKernels() { return false; }
uint32_t EncodeBlocks(const unsigned char*, uint32_t, char*) { return 0; }
uint32_t DecodeBlocks(const unsigned char*, uint32_t, unsigned char*) { return 0; }
uint32_t CopyAndDecodeBlocks(const char*, uint32_t, char*, unsigned char*) { return 0; }
uint32_t CopyUnskipped(const char*, uint32_t, char*) { return 0; }
void StreamCopy(void* to, const void* from, size_t size) { std::memcpy(to, from, size); }
void StreamZero(void* to, size_t size) { std::memset(to, 0, size); }
void StreamFence() {}

#endif

}  // namespace base64
}  // namespace deskaid
