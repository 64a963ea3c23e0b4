// The MD5 message digest of RFC 1321 over buffers, strings and files, rendered as 32 lowercase
// hexadecimal digits.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

// The running state of one digest. Meant for one message: construct, feed any number of pieces
// with AddBytes, then call FinishHex once. FinishHex pads the object in place, so a second call
// would digest the padding too; use a fresh object for every message.
class CMD5Checksum {
 public:
  CMD5Checksum();
  virtual ~CMD5Checksum() = default;

  // Feeds `length` bytes; 0 reads nothing, and so does a null pointer. Whole 64-byte blocks are
  // compressed straight from the caller's memory; only a block's head and a short tail are
  // copied into the object.
  void AddBytes(const unsigned char* data, uint32_t length);

  // Pads the message, finishes the digest and returns it as 32 lowercase hexadecimal digits.
  // The text lives in the object and stays valid until the object goes away.
  const char* FinishHex();

 private:
  // The compression function of one 64-byte block into the chaining value.
  void CompressBlock(const unsigned char* block);

  unsigned char m_block[64];  // the waiting bytes of the current incomplete block
  uint32_t m_nCountLow;       // message length in bits, modulo 2^64: low word
  uint32_t m_nCountHigh;      // ... and high word
  uint32_t m_state[4];        // chaining value A, B, C, D
  char m_szText[256];         // the finished digest text
};

// Whether `length` bytes at `p` can be read, and written too when `write` is set. False for a null
// pointer. Windows asks the memory manager; elsewhere any non-null pointer counts as usable.
bool CheckMemory(const void* p, uint32_t length, bool write);

// The digest text of `length` bytes at `data`. The bytes are read whatever CheckMemory says of
// them; with length 0, or a null pointer, nothing is read (the digest of the empty message).
std::string HashBuffer(const unsigned char* data, uint32_t length);

// The digest text of a file's contents, read 1,024 bytes at a time; empty when the file cannot be
// opened. A read error ends the input as if the file ended there.
std::optional<std::string> HashFile(const char* path);

// The digest text of a NUL-terminated string, the NUL not included; a null string counts as empty.
// The result lives in one process-wide buffer that the next call, from any thread, overwrites.
const char* HashString(const char* text);
