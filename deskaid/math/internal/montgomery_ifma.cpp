#include "deskaid/math/internal/montgomery_ifma.h"

#include <cstring>

#include "deskaid/common/internal/cpu_features.h"
#include "deskaid/math/internal/limb_kernels.h"

// The kernels are built where the limb rows are x86-64 assembly (GCC or Clang, 64-bit limbs);
// each is compiled for the instructions it uses, the rest of the module for the target's baseline.
#if DESKAID_LIMB_ASM
#define DESKAID_IFMA_KERNELS 1
#include <immintrin.h>
#define DESKAID_IFMA __attribute__((target("avx512f,avx512ifma")))
// The per-vector loops below run a compile-time number of times and are unrolled in full, so
// that each vector of the accumulator stays in a register.
#define DESKAID_EACH_VECTOR _Pragma("GCC unroll 16")
#endif

namespace deskaid {
namespace ifma {

namespace {

constexpr uint64_t kDigitMask = (uint64_t(1) << 52) - 1;
// Vectors of eight digits an element may take: 80 digits, moduli up to 4,096 bits.
constexpr size_t kMaxVectors = 10;

#if defined(DESKAID_IFMA_KERNELS)

// One digit of b a step, low digit first (word-by-word Montgomery multiplication in base 2^52):
//   A += a * b[i] + q * m, with q = -(A + a * b[i]) / m modulo 2^52 so that the low digit of the
//   sum becomes zero; then A is moved down one digit.
// A's digits are kept in 64-bit lanes and are not carried between steps: a lane gains less than
// 2^54 a step, so it stays below 2^61 for up to 80 steps. The low 52 bits of a product go to the
// digit's lane and the high bits to the next one, which after the move down is the same lane.
// The chain from one step's q to the next is the slow part, so the low digit that the next q
// needs is also followed in a scalar register: it is the second lane before the step plus the
// step's contributions to it, which are known as soon as q is.
template <int K>
DESKAID_IFMA void ProductOf(uint64_t* r, const uint64_t* a, const uint64_t* b, const uint64_t* m,
                            uint64_t k0, size_t digits) {
  __m512i acc[K], av[K], mv[K];
  DESKAID_EACH_VECTOR
  for (int j = 0; j < K; ++j) {
    acc[j] = _mm512_setzero_si512();
    av[j] = _mm512_loadu_si512(a + 8 * j);
    mv[j] = _mm512_loadu_si512(m + 8 * j);
  }
  const __m512i zero = _mm512_setzero_si512();
  const uint64_t a0 = a[0], a1 = a[1], m0 = m[0], m1 = m[1];
  uint64_t low = 0;  // the first lane of acc
  for (size_t i = 0; i < digits; ++i) {
    const uint64_t bi = b[i];
    const __m128i firstTwo = _mm512_mask_extracti32x4_epi32(_mm_setzero_si128(), 0xF, acc[0], 0);
    const uint64_t second = static_cast<uint64_t>(_mm_extract_epi64(firstTwo, 1));
    const uint64_t t = low + ((a0 * bi) & kDigitMask);
    const uint64_t q = (t * k0) & kDigitMask;
    const __m512i bv = _mm512_set1_epi64(static_cast<long long>(bi));
    const __m512i qv = _mm512_set1_epi64(static_cast<long long>(q));
    // The low halves of both products, the second one into a register of its own so that it does
    // not wait for the first.
    __m512i part[K];
    DESKAID_EACH_VECTOR
    for (int j = 0; j < K; ++j) {
      acc[j] = _mm512_madd52lo_epu64(acc[j], av[j], bv);
      part[j] = _mm512_madd52lo_epu64(zero, mv[j], qv);
    }
    DESKAID_EACH_VECTOR
    for (int j = 0; j < K; ++j) acc[j] = _mm512_add_epi64(acc[j], part[j]);
    DESKAID_EACH_VECTOR
    for (int j = 0; j < K; ++j) {
      part[j] = _mm512_madd52hi_epu64(_mm512_madd52hi_epu64(zero, av[j], bv), mv[j], qv);
    }
    // The low digit is now a multiple of 2^52; what lies above goes to the next digit.
    const uint64_t carry = (t + ((q * m0) & kDigitMask)) >> 52;
    const unsigned __int128 pa = static_cast<unsigned __int128>(a0) * bi;
    const unsigned __int128 pm = static_cast<unsigned __int128>(m0) * q;
    low = second + ((a1 * bi) & kDigitMask) + ((m1 * q) & kDigitMask) + carry +
          static_cast<uint64_t>(pa >> 52) + static_cast<uint64_t>(pm >> 52);
    DESKAID_EACH_VECTOR
    for (int j = 0; j + 1 < K; ++j) acc[j] = _mm512_maskz_alignr_epi64(0xFF, acc[j + 1], acc[j], 1);
    acc[K - 1] = _mm512_maskz_alignr_epi64(0xFF, zero, acc[K - 1], 1);
    acc[0] = _mm512_add_epi64(acc[0], _mm512_maskz_set1_epi64(1, static_cast<long long>(carry)));
    DESKAID_EACH_VECTOR
    for (int j = 0; j < K; ++j) acc[j] = _mm512_add_epi64(acc[j], part[j]);
  }
  // Carry the lanes into digits. The result is below 2m, which the digits hold.
  uint64_t lanes[8 * K];
  DESKAID_EACH_VECTOR
  for (int j = 0; j < K; ++j) _mm512_storeu_si512(lanes + 8 * j, acc[j]);
  uint64_t carry = 0;
  for (int j = 0; j < 8 * K; ++j) {
    const uint64_t v = lanes[j] + carry;
    r[j] = v & kDigitMask;
    carry = v >> 52;
  }
}

constexpr Product kProducts[kMaxVectors] = {ProductOf<1>, ProductOf<2>, ProductOf<3>, ProductOf<4>,
                                            ProductOf<5>, ProductOf<6>, ProductOf<7>, ProductOf<8>,
                                            ProductOf<9>, ProductOf<10>};

#endif

}  // namespace

bool Available() {
#if defined(DESKAID_IFMA_KERNELS)
  return Cpu().avx512Ifma;
#else
  return false;
#endif
}

size_t DigitsFor(size_t limbs) { return (64 * limbs + 2 + 51) / 52; }

size_t WordsFor(size_t digits) {
  const size_t vectors = (digits + 7) / 8;
  return vectors <= kMaxVectors ? 8 * vectors : 0;
}

Product ProductFor(size_t words) {
#if defined(DESKAID_IFMA_KERNELS)
  if (words != 0 && words % 8 == 0 && words / 8 <= kMaxVectors) return kProducts[words / 8 - 1];
#endif
  (void)words;
  return nullptr;
}

void ToDigits(const uint64_t* limbs, size_t n, uint64_t* digits, size_t words) {
  for (size_t j = 0; j < words; ++j) {
    const size_t bit = 52 * j, w = bit / 64;
    const unsigned s = bit % 64;
    uint64_t v = w < n ? limbs[w] >> s : 0;
    if (s > 12 && w + 1 < n) v |= limbs[w + 1] << (64 - s);  // the digit reaches the next limb
    digits[j] = v & kDigitMask;
  }
}

void FromDigits(const uint64_t* digits, size_t words, uint64_t* limbs, size_t n) {
  std::memset(limbs, 0, n * sizeof(uint64_t));
  for (size_t j = 0; j < words; ++j) {
    const size_t bit = 52 * j, w = bit / 64;
    const unsigned s = bit % 64;
    if (w < n) limbs[w] |= digits[j] << s;
    if (s > 12 && w + 1 < n) limbs[w + 1] |= digits[j] >> (64 - s);
  }
}

}  // namespace ifma
}  // namespace deskaid
