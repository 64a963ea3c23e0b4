// Vector kernels of the plain Base64 coder's direct path, for processors that have them (SSE2 and
// SSSE3 on x86-64). They give the same bytes as the group steps for the input they accept and
// leave the rest to the scalar code; elsewhere they accept nothing.
#pragma once

#include <cstddef>
#include <cstdint>

namespace deskaid {
namespace base64 {

// Whether EncodeBlocks and DecodeBlocks may be called on this processor.
bool HaveVectorKernels();

// Encodes whole blocks of 12 bytes while 16 bytes of `in` remain readable, storing each block's
// 16 characters at `out`. Returns the number of input bytes consumed.
uint32_t EncodeBlocks(const unsigned char* in, uint32_t length, char* out);

// Decodes blocks of 16 characters into 12 bytes each (storing 16) while a block consists of
// alphabet characters only; stops at the first block holding anything else ("=", a character
// with the high bit, a foreign one) or when fewer than 16 characters remain. Returns the number
// of characters consumed.
uint32_t DecodeBlocks(const unsigned char* in, uint32_t length, unsigned char* out);

// DecodeBlocks over characters taken from `in`, which are also copied to `copy`, block by block.
// A block holding a character the decoder skips is refused like any other foreign character.
uint32_t CopyAndDecodeBlocks(const char* in, uint32_t length, char* copy, unsigned char* out);

// Copies blocks of 16 characters that hold no character the decoder skips (7 to 13, 32); stops
// at the first block that does or when fewer than 16 remain. Returns the number copied.
uint32_t CopyUnskipped(const char* in, uint32_t length, char* out);

// memcpy for large results: the stores bypass the cache where the processor allows, so a
// result much larger than the cache does not first read every line it overwrites. Call
// StreamFence once the streamed results are complete. StreamZero is memset(0) the same way.
void StreamCopy(void* to, const void* from, size_t size);
void StreamZero(void* to, size_t size);
void StreamFence();

}  // namespace base64
}  // namespace deskaid
