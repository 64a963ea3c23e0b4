// Kernels of the plain Base64 coder's direct path. Three sets exist: plain C++ for any processor,
// and SSSE3 and AVX2 code for x86 processors (32- and 64-bit) that have them. The set is chosen
// once, by cpuid, on first use; the vector sets give the same bytes as the group steps for the
// input they accept and leave the rest to the scalar code.
//
// The library is compiled for its target's baseline (for 32-bit x86 that is a processor without
// SSE2); only the vector functions themselves are compiled for the instructions they use.
#pragma once

#include <cstddef>
#include <cstdint>

namespace deskaid {
namespace base64 {

enum class Path { kScalar, kSsse3, kAvx2 };

struct Kernels {
  Path path;

  // Encodes whole blocks of 12 bytes while 16 bytes of `in` remain readable, storing each
  // block's 16 characters at `out`. Returns the number of input bytes consumed.
  uint32_t (*encodeBlocks)(const unsigned char* in, uint32_t length, char* out);

  // Decodes blocks of 16 characters into 12 bytes each (storing 16) while a block consists of
  // alphabet characters only; stops at the first block of 16 holding anything else ("=", a
  // character with the high bit, a foreign one) or when fewer than 16 characters remain. Returns
  // the number of characters consumed.
  uint32_t (*decodeBlocks)(const unsigned char* in, uint32_t length, unsigned char* out);

  // decodeBlocks over characters taken from `in`, which are also copied to `copy`, block by
  // block. A block holding a character the decoder skips is refused like any other foreign one.
  uint32_t (*copyAndDecodeBlocks)(const char* in, uint32_t length, char* copy, unsigned char* out);

  // Copies blocks of 16 characters that hold no character the decoder skips (7 to 13, 32);
  // stops at the first block that does or when fewer than 16 remain. Returns the number copied.
  uint32_t (*copyUnskipped)(const char* in, uint32_t length, char* out);

  // memcpy for large results: the stores bypass the cache where the processor allows, so a
  // result much larger than the cache does not first read every line it overwrites. Call
  // streamFence once the streamed results are complete. streamZero is memset(0) the same way.
  void (*streamCopy)(void* to, const void* from, size_t size);
  void (*streamZero)(void* to, size_t size);
  void (*streamFence)();
};

// Whether this processor, and the system's saving of its registers, allow `path`. The scalar path
// is always allowed.
bool Supports(Path path);

// The fastest path this processor supports.
Path FastestPath();

// The kernels the plain coder uses now: those of FastestPath unless UsePath chose others.
const Kernels& ActiveKernels();

// Makes the plain coder use `path` from now on, if the processor supports it; returns whether it
// did. For tests and measurements, which run each path in turn; not meant to be called while
// another thread is coding.
bool UsePath(Path path);

}  // namespace base64
}  // namespace deskaid
