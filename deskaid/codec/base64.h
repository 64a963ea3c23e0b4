// Base64 (RFC 4648, standard alphabet, "=" padding, no line breaks) between bytes and text, with
// a deliberately lenient decoder.
#pragma once

#include <cstdint>

// What the group steps pass between them. Encoding: up to three input bytes (the rest zero) and
// their number, 1 to 3. Decoding: four six-bit values from the decode table; the count is only
// informational there.
struct Base64Group {
  unsigned char byValues[4];
  unsigned char byCount;
};

// One object owns two growable buffers: the data buffer (the bytes) and the text buffer (the
// Base64 characters). Encode fills the data buffer with a copy of its input and the text buffer
// with the encoding; Decode fills the text buffer with its input less the skipped characters and
// the data buffer with the decoding. The results are read from the object afterwards and stay
// valid until the next operation that has to grow their buffer.
//
// Both buffers grow in steps of 4,096 bytes, always to more than was asked for, and never shrink.
// Every operation clears the buffers it prepares, so the text read through GetText is always
// NUL-terminated and everything beyond the data length reads as zero bytes.
//
// The decoder never fails: it skips white space (bytes 7 to 13 and the space), reads a character
// with the high bit set as its 7-bit twin, and lets any other foreign character take part in the
// arithmetic as the value 254. A final group counts the way callers of this coder have always
// seen it: a padded group still counts three bytes ("Zg==" gives "f", 0, 0 and length 3) and an
// unpadded tail counts its characters ("Zg" gives length 2, "Zm8" length 3). Callers that need the
// exact byte count know it in advance or stop at the first zero.
//
// Every step is virtual and every step reaches the others through the virtual table, so a derived
// class that replaces one step (the skipped set, say, or the group conversion) sees it used
// everywhere. A plain Base64Coder, which replaces nothing, runs the same steps on a faster path.
class Base64Coder {
 public:
  Base64Coder();
  virtual ~Base64Coder();

  Base64Coder(const Base64Coder&) = delete;
  Base64Coder& operator=(const Base64Coder&) = delete;

  // Encode over the characters of a NUL-terminated string, the NUL not included. A null string
  // changes nothing.
  virtual void EncodeString(const char* text);
  // Encodes `length` bytes; a null pointer counts as no bytes. Input beyond kMaxInput is cut.
  virtual void Encode(const unsigned char* data, uint32_t length);
  // Decode over the characters of a NUL-terminated string. A null string changes nothing.
  virtual void DecodeString(const char* text);
  // Decodes `length` characters; a null pointer counts as none. Input beyond kMaxInput is cut.
  virtual void Decode(const char* text, uint32_t length);

  virtual unsigned char* GetData();
  virtual char* GetText();

  // Make room for at least `size` characters (bytes), clear the whole buffer and set its length
  // to 0. A size of 0 never allocates.
  virtual void PrepareText(uint32_t size);
  virtual void PrepareData(uint32_t size);
  // Copies the characters for which IsSkipped is false into the text buffer.
  virtual void FilterText(const char* text, uint32_t length);
  // Copies `length` bytes into the data buffer.
  virtual void SetData(const unsigned char* data, uint32_t length);
  // Writes the four characters of one group, padding included.
  virtual void EncodeGroup(const Base64Group& group, char* out);
  // Writes the three bytes of four six-bit values; returns how many of them are not 255.
  virtual int32_t DecodeGroup(const Base64Group& group, unsigned char* out);
  // Three bytes (the group's values) to four six-bit values.
  virtual void SplitGroup(unsigned char* out, const Base64Group& group);
  // Four six-bit values to three bytes, in 8-bit arithmetic.
  virtual void JoinGroup(unsigned char* out, const Base64Group& group);
  // The characters decoding ignores: bytes 7 to 13 and 32.
  virtual bool IsSkipped(char c);

  // Bytes of the data buffer and characters of the text buffer in use after the last operation.
  uint32_t GetDataLength() const { return m_nDataLength; }
  uint32_t GetTextLength() const { return m_nTextLength; }

  // The longest input one call takes (just under 2 GiB); longer input is cut to it, as the
  // module cuts other over-long input, so that buffer sizes stay within 32 bits.
  static constexpr uint32_t kMaxInput = 0x7FFFE000;

 protected:
  unsigned char* m_pData;
  char* m_pszText;
  uint32_t m_nDataCapacity;
  uint32_t m_nTextCapacity;
  uint32_t m_nDataLength;
  uint32_t m_nTextLength;

 private:
  void EncodeDirect(const unsigned char* data, uint32_t length);
  void DecodeDirect(const char* text, uint32_t length);
  bool Overlaps(const void* p, uint32_t length) const;
};
