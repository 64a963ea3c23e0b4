#include "deskaid/codec/internal/base64_vector.h"

#include <atomic>
#include <cstring>

#include "deskaid/common/internal/cpu_features.h"

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#define DESKAID_BASE64_X86 1
#include <immintrin.h>
// GCC and Clang compile each vector function for the instructions it uses and nothing else, so
// the rest of the module keeps to the target's baseline and runs on any processor of it.
#define DESKAID_SSE2 __attribute__((target("sse2")))
#define DESKAID_SSSE3 __attribute__((target("ssse3")))
#define DESKAID_AVX2 __attribute__((target("avx2")))
#elif defined(_MSC_VER) && (defined(_M_X64) || defined(_M_IX86))
#define DESKAID_BASE64_X86 1
#include <immintrin.h>
// MSVC takes the intrinsics of any instruction set without a switch.
#define DESKAID_SSE2
#define DESKAID_SSSE3
#define DESKAID_AVX2
#endif

namespace deskaid {
namespace base64 {

namespace {

// ---------------------------------------------------------------------------------------------
// The scalar set: the direct path's own loops do all the work.

uint32_t EncodeBlocksScalar(const unsigned char*, uint32_t, char*) { return 0; }
uint32_t DecodeBlocksScalar(const unsigned char*, uint32_t, unsigned char*) { return 0; }
uint32_t CopyAndDecodeBlocksScalar(const char*, uint32_t, char*, unsigned char*) { return 0; }
uint32_t CopyUnskippedScalar(const char*, uint32_t, char*) { return 0; }
void StreamCopyScalar(void* to, const void* from, size_t size) { std::memcpy(to, from, size); }
void StreamZeroScalar(void* to, size_t size) { std::memset(to, 0, size); }
void StreamFenceScalar() {}

constexpr Kernels kScalarKernels = {
    Path::kScalar,       EncodeBlocksScalar, DecodeBlocksScalar, CopyAndDecodeBlocksScalar,
    CopyUnskippedScalar, StreamCopyScalar,   StreamZeroScalar,   StreamFenceScalar};

#if defined(DESKAID_BASE64_X86)

// ---------------------------------------------------------------------------------------------
// SSE2: copies and the skip test.

DESKAID_SSE2 inline __m128i InRange(__m128i c, char low, char high) {
  return _mm_and_si128(_mm_cmpgt_epi8(c, _mm_set1_epi8(char(low - 1))),
                       _mm_cmpgt_epi8(_mm_set1_epi8(char(high + 1)), c));
}

DESKAID_SSE2 uint32_t CopyUnskippedSse2(const char* in, uint32_t length, char* out) {
  uint32_t i = 0;
  for (; i + 16 <= length; i += 16) {
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    const __m128i skipped = _mm_or_si128(InRange(c, 7, 13), _mm_cmpeq_epi8(c, _mm_set1_epi8(' ')));
    if (_mm_movemask_epi8(skipped) != 0) break;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), c);
  }
  return i;
}

DESKAID_SSE2 void StreamCopySse2(void* to, const void* from, size_t size) {
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

DESKAID_SSE2 void StreamZeroSse2(void* to, size_t size) {
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

DESKAID_SSE2 void StreamFenceSse2() { _mm_sfence(); }

// ---------------------------------------------------------------------------------------------
// SSSE3: 16 characters at a time.

// Twelve bytes to sixteen six-bit values, one per byte, in text order. Each 32-bit lane takes one
// group's bytes b0 b1 b2 arranged as the 16-bit words b0:b1 and b1:b2; the multiplications move
// the fields of each word to the byte they belong in.
DESKAID_SSSE3 inline __m128i SplitBlock(__m128i in) {
  in = _mm_shuffle_epi8(in, _mm_set_epi8(10, 11, 9, 10, 7, 8, 6, 7, 4, 5, 3, 4, 1, 2, 0, 1));
  const __m128i first =
      _mm_mulhi_epu16(_mm_and_si128(in, _mm_set1_epi32(0x0FC0FC00)), _mm_set1_epi32(0x04000040));
  const __m128i second =
      _mm_mullo_epi16(_mm_and_si128(in, _mm_set1_epi32(0x003F03F0)), _mm_set1_epi32(0x01000010));
  return _mm_or_si128(first, second);
}

// Six-bit values to alphabet characters: each value selects, by its range, the offset that
// turns it into its character ("A" for 0-25, "a" - 26, "0" - 52, then "+" and "/").
DESKAID_SSSE3 inline __m128i ValuesToText(__m128i values) {
  __m128i range = _mm_subs_epu8(values, _mm_set1_epi8(51));  // 0 up to 51, then 1 to 12
  const __m128i upper = _mm_cmpgt_epi8(_mm_set1_epi8(26), values);
  range = _mm_or_si128(range, _mm_and_si128(upper, _mm_set1_epi8(13)));
  const __m128i offsets =
      _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                    '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
  return _mm_add_epi8(values, _mm_shuffle_epi8(offsets, range));
}

DESKAID_SSSE3 uint32_t EncodeBlocksSsse3(const unsigned char* in, uint32_t length, char* out) {
  uint32_t i = 0;
  for (; i + 16 <= length; i += 12, out += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), ValuesToText(SplitBlock(block)));
  }
  return i;
}

// The tables of the character classification below, one copy per 128-bit lane.
// Classes: 0x01 for high nibble 2, 0x02 for 3, 0x04 for 4 and 6, 0x08 for 5 and 7, 0x10 for
// the nibbles that hold no alphabet character. The low-nibble table lists, per low nibble, the
// classes in which it is not an alphabet character. The offsets turn a character into its value
// by its high nibble ("/" shares its nibble with "+" and is moved one entry down).
#define DESKAID_HIGH_CLASS \
  0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10
#define DESKAID_LOW_CLASSES \
  0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A
#define DESKAID_VALUE_OFFSETS \
  0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0
// Each lane's 12 bytes at its front, most significant byte of each 24-bit group first.
#define DESKAID_JOIN_ORDER 2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1

// Sixteen characters to their six-bit values, if all of them are alphabet characters without the
// high bit. Each character is classified by its two nibbles: a table per nibble gives a set of
// classes, and the character is in the alphabet when the two sets do not meet.
DESKAID_SSSE3 inline bool TextToValues(__m128i c, __m128i* values) {
  const __m128i nibble = _mm_set1_epi8(0x0F);
  const __m128i high = _mm_and_si128(_mm_srli_epi32(c, 4), nibble);
  const __m128i low = _mm_and_si128(c, nibble);
  const __m128i clash = _mm_and_si128(_mm_shuffle_epi8(_mm_setr_epi8(DESKAID_LOW_CLASSES), low),
                                      _mm_shuffle_epi8(_mm_setr_epi8(DESKAID_HIGH_CLASS), high));
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(clash, _mm_setzero_si128())) != 0xFFFF) return false;
  const __m128i slash = _mm_cmpeq_epi8(c, _mm_set1_epi8('/'));
  *values = _mm_add_epi8(
      c, _mm_shuffle_epi8(_mm_setr_epi8(DESKAID_VALUE_OFFSETS), _mm_add_epi8(high, slash)));
  return true;
}

// Sixteen six-bit values, four per group, to the twelve bytes of the four groups (in the low 12
// bytes of the result): v0 v1 v2 v3 become the 12-bit words v0:v1 and v2:v3, then one 24-bit
// number per lane, whose bytes are put most significant first.
DESKAID_SSSE3 inline __m128i JoinBlock(__m128i values) {
  const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140));
  const __m128i groups = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
  return _mm_shuffle_epi8(groups, _mm_setr_epi8(DESKAID_JOIN_ORDER));
}

DESKAID_SSSE3 uint32_t DecodeBlocksSsse3(const unsigned char* in, uint32_t length,
                                         unsigned char* out) {
  uint32_t i = 0;
  for (; i + 16 <= length; i += 16, out += 12) {
    __m128i values;
    if (!TextToValues(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i)), &values)) break;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), JoinBlock(values));
  }
  return i;
}

DESKAID_SSSE3 uint32_t CopyAndDecodeBlocksSsse3(const char* in, uint32_t length, char* copy,
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

constexpr Kernels kSsse3Kernels = {
    Path::kSsse3,      EncodeBlocksSsse3, DecodeBlocksSsse3, CopyAndDecodeBlocksSsse3,
    CopyUnskippedSse2, StreamCopySse2,    StreamZeroSse2,    StreamFenceSse2};

// ---------------------------------------------------------------------------------------------
// AVX2: the same steps on 32 characters at a time, one block of 16 per 128-bit lane. Each kernel
// leaves what remains (fewer than 32 characters, or a block of 32 it refuses) to its SSSE3 twin,
// so every set stops at the same block of 16.

DESKAID_AVX2 inline __m256i Broadcast(__m128i lane) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(lane), lane, 1);
}

DESKAID_AVX2 uint32_t EncodeBlocksAvx2(const unsigned char* in, uint32_t length, char* out) {
  const __m256i order = Broadcast(_mm_set_epi8(10, 11, 9, 10, 7, 8, 6, 7, 4, 5, 3, 4, 1, 2, 0, 1));
  const __m256i offsets = Broadcast(_mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                                  '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                                  '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0));
  uint32_t i = 0;
  // Two blocks of 12 bytes, each loaded as 16 into its lane: 28 bytes must be readable.
  for (; i + 28 <= length; i += 24, out += 32) {
    __m256i block = _mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i))),
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i + 12)), 1);
    block = _mm256_shuffle_epi8(block, order);
    const __m256i first = _mm256_mulhi_epu16(_mm256_and_si256(block, _mm256_set1_epi32(0x0FC0FC00)),
                                             _mm256_set1_epi32(0x04000040));
    const __m256i second = _mm256_mullo_epi16(
        _mm256_and_si256(block, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
    const __m256i values = _mm256_or_si256(first, second);
    __m256i range = _mm256_subs_epu8(values, _mm256_set1_epi8(51));
    const __m256i upper = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
    range = _mm256_or_si256(range, _mm256_and_si256(upper, _mm256_set1_epi8(13)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out),
                        _mm256_add_epi8(values, _mm256_shuffle_epi8(offsets, range)));
  }
  return i + EncodeBlocksSsse3(in + i, length - i, out);
}

DESKAID_AVX2 inline bool TextToValues(__m256i c, __m256i* values) {
  const __m256i nibble = _mm256_set1_epi8(0x0F);
  const __m256i high = _mm256_and_si256(_mm256_srli_epi32(c, 4), nibble);
  const __m256i low = _mm256_and_si256(c, nibble);
  const __m256i clash =
      _mm256_and_si256(_mm256_shuffle_epi8(Broadcast(_mm_setr_epi8(DESKAID_LOW_CLASSES)), low),
                       _mm256_shuffle_epi8(Broadcast(_mm_setr_epi8(DESKAID_HIGH_CLASS)), high));
  if (_mm256_movemask_epi8(_mm256_cmpeq_epi8(clash, _mm256_setzero_si256())) != -1) return false;
  const __m256i slash = _mm256_cmpeq_epi8(c, _mm256_set1_epi8('/'));
  *values = _mm256_add_epi8(c, _mm256_shuffle_epi8(Broadcast(_mm_setr_epi8(DESKAID_VALUE_OFFSETS)),
                                                   _mm256_add_epi8(high, slash)));
  return true;
}

// Stores the 24 bytes of two blocks (12 per lane) and 4 bytes behind them.
DESKAID_AVX2 inline void StoreJoined(__m256i values, unsigned char* out) {
  const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
  const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
  const __m256i bytes = _mm256_shuffle_epi8(groups, Broadcast(_mm_setr_epi8(DESKAID_JOIN_ORDER)));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(bytes));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 12), _mm256_extracti128_si256(bytes, 1));
}

DESKAID_AVX2 uint32_t DecodeBlocksAvx2(const unsigned char* in, uint32_t length,
                                       unsigned char* out) {
  uint32_t i = 0;
  for (; i + 32 <= length; i += 32, out += 24) {
    __m256i values;
    if (!TextToValues(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i)), &values)) {
      break;
    }
    StoreJoined(values, out);
  }
  return i + DecodeBlocksSsse3(in + i, length - i, out);
}

DESKAID_AVX2 uint32_t CopyAndDecodeBlocksAvx2(const char* in, uint32_t length, char* copy,
                                              unsigned char* out) {
  uint32_t i = 0;
  for (; i + 32 <= length; i += 32, out += 24) {
    const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    __m256i values;
    if (!TextToValues(c, &values)) break;
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(copy + i), c);
    StoreJoined(values, out);
  }
  return i + CopyAndDecodeBlocksSsse3(in + i, length - i, copy + i, out);
}

DESKAID_AVX2 uint32_t CopyUnskippedAvx2(const char* in, uint32_t length, char* out) {
  uint32_t i = 0;
  for (; i + 32 <= length; i += 32) {
    const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    const __m256i control = _mm256_and_si256(_mm256_cmpgt_epi8(c, _mm256_set1_epi8(6)),
                                             _mm256_cmpgt_epi8(_mm256_set1_epi8(14), c));
    const __m256i skipped = _mm256_or_si256(control, _mm256_cmpeq_epi8(c, _mm256_set1_epi8(' ')));
    if (_mm256_movemask_epi8(skipped) != 0) break;
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), c);
  }
  return i + CopyUnskippedSse2(in + i, length - i, out + i);
}

constexpr Kernels kAvx2Kernels = {
    Path::kAvx2,       EncodeBlocksAvx2, DecodeBlocksAvx2, CopyAndDecodeBlocksAvx2,
    CopyUnskippedAvx2, StreamCopySse2,   StreamZeroSse2,   StreamFenceSse2};

#endif  // DESKAID_BASE64_X86

const Kernels& KernelsOf(Path path) {
#if defined(DESKAID_BASE64_X86)
  if (path == Path::kAvx2) return kAvx2Kernels;
  if (path == Path::kSsse3) return kSsse3Kernels;
#endif
  (void)path;
  return kScalarKernels;
}

std::atomic<const Kernels*> g_active{nullptr};

}  // namespace

bool Supports(Path path) {
  switch (path) {
    case Path::kScalar: return true;
#if defined(DESKAID_BASE64_X86)
    case Path::kSsse3: return Cpu().ssse3;
    case Path::kAvx2: return Cpu().avx2;
#endif
    default: return false;
  }
}

Path FastestPath() {
  if (Supports(Path::kAvx2)) return Path::kAvx2;
  if (Supports(Path::kSsse3)) return Path::kSsse3;
  return Path::kScalar;
}

const Kernels& ActiveKernels() {
  const Kernels* kernels = g_active.load(std::memory_order_acquire);
  if (kernels == nullptr) {
    // Two threads may both get here; they store the same set.
    kernels = &KernelsOf(FastestPath());
    g_active.store(kernels, std::memory_order_release);
  }
  return *kernels;
}

bool UsePath(Path path) {
  if (!Supports(path)) return false;
  g_active.store(&KernelsOf(path), std::memory_order_release);
  return true;
}

}  // namespace base64
}  // namespace deskaid
