#include "deskaid/codec/base64.h"

#include "deskaid/codec/internal/base64_vector.h"

#include <array>
#include <cstring>
#include <functional>
#include <typeinfo>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Decode table values outside the alphabet.
constexpr unsigned char kForeign = 254;  // any character that is not Base64
constexpr unsigned char kPad = 255;      // "="

#if defined(__BYTE_ORDER__) && defined(__ORDER_BIG_ENDIAN__) && \
    __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
constexpr bool kLittleEndian = false;
#else
constexpr bool kLittleEndian = true;
#endif

// The process-wide decode table: the six-bit value of every alphabet character, the same value
// for that character with the high bit set, 255 for "=" (with or without the high bit) and 254
// for everything else. It is a constant, so there is nothing to build and no race to lose.
constexpr std::array<unsigned char, 256> MakeDecodeTable() {
  std::array<unsigned char, 256> table{};
  for (auto& entry : table) entry = kForeign;
  for (int i = 0; i < 64; ++i) {
    const unsigned char c = static_cast<unsigned char>(kAlphabet[i]);
    table[c] = static_cast<unsigned char>(i);
    table[c | 0x80] = static_cast<unsigned char>(i);
  }
  table['='] = kPad;
  table['=' | 0x80] = kPad;
  return table;
}
constexpr std::array<unsigned char, 256> kDecodeTable = MakeDecodeTable();

// ---------------------------------------------------------------------------------------------
// The rules of the format, each written once. The group steps apply them one group at a time;
// the direct path's tables are built from them at compile time, so both coders give the same
// results by construction and a change to a rule reaches both.

// The characters decoding ignores: bytes 7 to 13 and the space.
constexpr bool Skipped(unsigned char c) { return (c >= 7 && c <= 13) || c == 32; }

// The value character `c` enters the arithmetic with at `position` of its group. In a whole
// group only positions 2 and 3 may hold padding, which counts as 0 there; positions 0 and 1 take
// the table value as it is. In the tail of one to three characters any "=" counts as 0.
constexpr unsigned char ValueAt(unsigned char c, int position, bool tail) {
  const unsigned char v = kDecodeTable[c];
  return v == kPad && (tail || position >= 2) ? 0 : v;
}

// Three bytes to four six-bit values.
constexpr void Split(const unsigned char* b, unsigned char* out) {
  const unsigned b0 = b[0], b1 = b[1], b2 = b[2];
  out[0] = static_cast<unsigned char>(b0 >> 2);
  out[1] = static_cast<unsigned char>(((b0 << 4) | (b1 >> 4)) & 63);
  out[2] = static_cast<unsigned char>(((b1 << 2) | (b2 >> 6)) & 63);
  out[3] = static_cast<unsigned char>(b2 & 63);
}

// Four six-bit values to three bytes, in 8-bit arithmetic. Each byte is the OR of one term per
// value, which the direct path's decode tables rely on.
constexpr void Join(const unsigned char* v, unsigned char* out) {
  const unsigned s0 = v[0], s1 = v[1], s2 = v[2], s3 = v[3];
  out[0] = static_cast<unsigned char>((s0 << 2) | ((s1 >> 4) & 3));
  out[1] = static_cast<unsigned char>((s1 << 4) | ((s2 >> 2) & 15));
  out[2] = static_cast<unsigned char>((s2 << 6) | (s3 & 63));
}

// The group of up to three bytes to encode.
Base64Group BytesGroup(const unsigned char* data, uint32_t count) {
  Base64Group group = {};
  std::memcpy(group.byValues, data, count);
  group.byCount = static_cast<unsigned char>(count);
  return group;
}

// The group of four characters of a whole group.
Base64Group WholeGroup(const char* chars) {
  Base64Group group = {};
  for (int k = 0; k < 4; ++k) {
    group.byValues[k] = ValueAt(static_cast<unsigned char>(chars[k]), k, false);
  }
  group.byCount = 4;
  return group;
}

// The group of the last one to three characters of a decode. It makes three bytes, of which
// only as many count as it has characters.
Base64Group TailGroup(const char* chars, uint32_t count) {
  Base64Group group = {};
  for (uint32_t j = 0; j < count; ++j) {
    group.byValues[j] = ValueAt(static_cast<unsigned char>(chars[j]), int(j), true);
  }
  group.byCount = static_cast<unsigned char>(count);
  return group;
}

// ---------------------------------------------------------------------------------------------
// Tables of the direct path, built from the rules above: the same results with fewer operations.

// Two characters for every 12-bit value, in memory order.
constexpr std::array<uint16_t, 4096> MakePairTable() {
  std::array<uint16_t, 4096> table{};
  for (int n = 0; n < 4096; ++n) {
    const unsigned char bytes[3] = {static_cast<unsigned char>(n >> 4),
                                    static_cast<unsigned char>((n & 15) << 4), 0};
    unsigned char values[4] = {};
    Split(bytes, values);
    const uint16_t first = static_cast<unsigned char>(kAlphabet[values[0]]);
    const uint16_t second = static_cast<unsigned char>(kAlphabet[values[1]]);
    table[n] = kLittleEndian ? uint16_t(first | (second << 8)) : uint16_t((first << 8) | second);
  }
  return table;
}
constexpr std::array<uint16_t, 4096> kPairTable = MakePairTable();

// Places the three bytes of a group in a word so that storing the word in memory order puts
// byte 0 first.
constexpr uint32_t PlaceBytes(const unsigned char* b) {
  return kLittleEndian ? (b[0] | (b[1] << 8) | (b[2] << 16))
                       : ((uint32_t(b[0]) << 24) | (b[1] << 16) | (b[2] << 8));
}

// The contribution of the character at position k of a whole group: the group's three bytes are
// the OR of one entry per character.
struct GroupTables {
  std::array<uint32_t, 256> position[4];
};
constexpr GroupTables MakeGroupTables() {
  GroupTables t{};
  for (int k = 0; k < 4; ++k) {
    for (int c = 0; c < 256; ++c) {
      unsigned char values[4] = {};
      unsigned char bytes[3] = {};
      values[k] = ValueAt(static_cast<unsigned char>(c), k, false);
      Join(values, bytes);
      t.position[k][c] = PlaceBytes(bytes);
    }
  }
  return t;
}
constexpr GroupTables kGroupTables = MakeGroupTables();

// 1 for the skipped characters.
constexpr std::array<unsigned char, 256> MakeSkipTable() {
  std::array<unsigned char, 256> table{};
  for (int c = 0; c < 256; ++c) table[c] = Skipped(static_cast<unsigned char>(c)) ? 1 : 0;
  return table;
}
constexpr std::array<unsigned char, 256> kSkipTable = MakeSkipTable();

// Makes room for `size` bytes the way the Prepare steps do, without clearing: the callers write
// the front of the buffer and clear the rest themselves.
template <typename T>
void Reserve(T*& buffer, uint32_t& capacity, uint32_t size) {
  if (capacity >= size) return;
  delete[] buffer;
  buffer = nullptr;  // consistent even if the allocation below throws
  capacity = 0;
  const uint32_t grown = ((size >> 12) + 1) << 12;
  buffer = new T[grown];
  capacity = grown;
}

template <typename T>
void Prepare(T*& buffer, uint32_t& capacity, uint32_t& length, uint32_t size) {
  if (size > Base64Coder::kMaxInput * 2) size = Base64Coder::kMaxInput * 2;
  Reserve(buffer, capacity, size);
  if (buffer != nullptr) std::memset(buffer, 0, capacity);
  length = 0;
}

// Clears a buffer behind what is in use. Large stretches are cleared past the cache.
template <typename T>
void ClearFrom(const deskaid::base64::Kernels& kernels, T* buffer, uint32_t capacity,
               uint32_t used) {
  if (buffer == nullptr || used >= capacity) return;
  if (capacity - used >= (1u << 20)) {
    kernels.streamZero(buffer + used, capacity - used);
    kernels.streamFence();
  } else {
    std::memset(buffer + used, 0, capacity - used);
  }
}

}  // namespace

Base64Coder::Base64Coder()
    : m_pData(nullptr),
      m_pszText(nullptr),
      m_nDataCapacity(0),
      m_nTextCapacity(0),
      m_nDataLength(0),
      m_nTextLength(0) {}

Base64Coder::~Base64Coder() {
  delete[] m_pData;
  delete[] m_pszText;
}

void Base64Coder::EncodeString(const char* text) {
  if (text == nullptr) return;
  const size_t length = std::strlen(text);
  Encode(reinterpret_cast<const unsigned char*>(text),
         length > kMaxInput ? kMaxInput : static_cast<uint32_t>(length));
}

void Base64Coder::DecodeString(const char* text) {
  if (text == nullptr) return;
  const size_t length = std::strlen(text);
  Decode(text, length > kMaxInput ? kMaxInput : static_cast<uint32_t>(length));
}

unsigned char* Base64Coder::GetData() { return m_pData; }

char* Base64Coder::GetText() { return m_pszText; }

void Base64Coder::PrepareText(uint32_t size) {
  Prepare(m_pszText, m_nTextCapacity, m_nTextLength, size);
}

void Base64Coder::PrepareData(uint32_t size) {
  Prepare(m_pData, m_nDataCapacity, m_nDataLength, size);
}

void Base64Coder::FilterText(const char* text, uint32_t length) {
  PrepareText(length);
  for (uint32_t i = 0; i < length; ++i) {
    if (!IsSkipped(text[i])) m_pszText[m_nTextLength++] = text[i];
  }
}

void Base64Coder::SetData(const unsigned char* data, uint32_t length) {
  PrepareData(length);
  // The input may be the data buffer itself (as Encode(GetData(), GetDataLength()) has it), which
  // the preparation has just cleared.
  if (length != 0) std::memmove(m_pData, data, length);
  m_nDataLength = length;
}

void Base64Coder::EncodeGroup(const Base64Group& group, char* out) {
  unsigned char values[4];
  SplitGroup(values, group);
  for (int k = 0; k < 4; ++k) out[k] = kAlphabet[values[k] & 63];
  if (group.byCount == 1) out[2] = out[3] = '=';
  if (group.byCount == 2) out[3] = '=';
}

int32_t Base64Coder::DecodeGroup(const Base64Group& group, unsigned char* out) {
  unsigned char bytes[3];
  JoinGroup(bytes, group);
  int32_t count = 0;
  for (int k = 0; k < 3; ++k) {
    out[k] = bytes[k];
    if (bytes[k] != kPad) ++count;
  }
  return count;
}

void Base64Coder::SplitGroup(unsigned char* out, const Base64Group& group) {
  Split(group.byValues, out);
}

void Base64Coder::JoinGroup(unsigned char* out, const Base64Group& group) {
  Join(group.byValues, out);
}

bool Base64Coder::IsSkipped(char c) { return Skipped(static_cast<unsigned char>(c)); }

// ---------------------------------------------------------------------------------------------
// Encoding and decoding through the steps. A derived class may have replaced any of them, so
// each is reached through the virtual table.

void Base64Coder::Encode(const unsigned char* data, uint32_t length) {
  if (data == nullptr) length = 0;
  if (length > kMaxInput) length = kMaxInput;
  // A plain coder replaces no step and takes the direct path, unless the input lies in one of
  // its own buffers: the steps clear those before reading, and the direct path keeps to that.
  if (typeid(*this) == typeid(Base64Coder) && !Overlaps(data, length)) {
    EncodeDirect(data, length);
    return;
  }
  SetData(data, length);
  PrepareText(2 * length);  // at least 4096 and thus room for 4 characters per 3 bytes
  for (uint32_t i = 0; i < length; i += 3) {
    const uint32_t count = length - i < 3 ? length - i : 3;
    EncodeGroup(BytesGroup(m_pData + i, count), m_pszText + m_nTextLength);
    m_nTextLength += 4;
  }
}

void Base64Coder::Decode(const char* text, uint32_t length) {
  if (text == nullptr) length = 0;
  if (length > kMaxInput) length = kMaxInput;
  if (typeid(*this) == typeid(Base64Coder) && !Overlaps(text, length)) {
    DecodeDirect(text, length);
    return;
  }
  FilterText(text, length);
  PrepareData(length);  // the unfiltered length: never less than the filtered one
  uint32_t i = 0;
  for (; i + 4 <= m_nTextLength; i += 4) {
    DecodeGroup(WholeGroup(m_pszText + i), m_pData + m_nDataLength);
    m_nDataLength += 3;
  }
  if (i < m_nTextLength) {
    DecodeGroup(TailGroup(m_pszText + i, m_nTextLength - i), m_pData + m_nDataLength);
    m_nDataLength += m_nTextLength - i;
  }
}

// ---------------------------------------------------------------------------------------------
// The direct path of a plain Base64Coder: the same results, buffers and lengths as the steps
// above, reached with table look-ups over whole groups. Each buffer is written at the front and
// cleared behind, rather than cleared whole and then written.

bool Base64Coder::Overlaps(const void* p, uint32_t length) const {
  if (p == nullptr || length == 0) return false;
  const std::less<const void*> before;
  auto inside = [&](const void* buffer, uint32_t capacity) {
    if (buffer == nullptr) return false;
    const char* begin = static_cast<const char*>(buffer);
    const char* first = static_cast<const char*>(p);
    return before(first, begin + capacity) && before(begin, first + length);
  };
  return inside(m_pData, m_nDataCapacity) || inside(m_pszText, m_nTextCapacity);
}

namespace {

// A copy of the input from this size on is written with stores that bypass the cache; smaller
// ones are likely to be read soon and stay in it.
constexpr uint32_t kStreamFrom = 1u << 20;
// The direct paths work in pieces of this many input bytes (a multiple of 3 and of 4), which stay
// in the cache between the two passes over them.
constexpr uint32_t kPiece = 3 * 32 * 1024;

inline void Put(const deskaid::base64::Kernels& kernels, bool stream, void* to, const void* from,
                size_t size) {
  if (stream) {
    kernels.streamCopy(to, from, size);
  } else {
    std::memcpy(to, from, size);
  }
}

// One group of scalar encoding: three bytes to four characters.
inline void EncodeGroupFast(const unsigned char* in, char* out) {
  const uint32_t n = (uint32_t(in[0]) << 16) | (uint32_t(in[1]) << 8) | in[2];
  const uint16_t pairs[2] = {kPairTable[n >> 12], kPairTable[n & 0xFFF]};
  std::memcpy(out, pairs, 4);
}

// One full group of scalar decoding. It stores a fourth, zero byte, which the next group
// overwrites or the final clearing covers; callers leave room for it.
inline void DecodeGroupFast(const unsigned char* in, unsigned char* out) {
  const uint32_t word = kGroupTables.position[0][in[0]] | kGroupTables.position[1][in[1]] |
                        kGroupTables.position[2][in[2]] | kGroupTables.position[3][in[3]];
  std::memcpy(out, &word, 4);
}

}  // namespace

void Base64Coder::EncodeDirect(const unsigned char* data, uint32_t length) {
  Reserve(m_pData, m_nDataCapacity, length);
  Reserve(m_pszText, m_nTextCapacity, 2 * length);
  const deskaid::base64::Kernels& kernels = deskaid::base64::ActiveKernels();
  const bool vector = kernels.path != deskaid::base64::Path::kScalar;
  const bool stream = length >= kStreamFrom;

  // Piece by piece, the copy of the input is put in place and the piece, which that brought into
  // the cache, is encoded straight into the text buffer.
  const uint32_t whole = length / 3 * 3;
  for (uint32_t start = 0; start < whole;) {
    const uint32_t size = whole - start < kPiece ? whole - start : kPiece;
    const unsigned char* in = data + start;
    char* out = m_pszText + start / 3 * 4;
    Put(kernels, stream, m_pData + start, in, size);
    // The vector kernel reads 16 bytes for 12, so it may look past the piece but not the input;
    // it never encodes past the piece.
    const uint32_t readable = length - start;
    uint32_t i = vector ? kernels.encodeBlocks(in, size + 4 <= readable ? size + 4 : size, out) : 0;
    for (; i < size; i += 3) EncodeGroupFast(in + i, out + i / 3 * 4);
    start += size;
  }
  uint32_t textLength = whole / 3 * 4;
  if (whole < length) {
    std::memcpy(m_pData + whole, data + whole, length - whole);
    Base64Coder::EncodeGroup(BytesGroup(data + whole, length - whole), m_pszText + textLength);
    textLength += 4;
  }
  if (stream) kernels.streamFence();
  m_nDataLength = length;
  m_nTextLength = textLength;
  ClearFrom(kernels, m_pData, m_nDataCapacity, m_nDataLength);
  ClearFrom(kernels, m_pszText, m_nTextCapacity, m_nTextLength);
}

void Base64Coder::DecodeDirect(const char* text, uint32_t length) {
  Reserve(m_pszText, m_nTextCapacity, length);
  Reserve(m_pData, m_nDataCapacity, length);
  const deskaid::base64::Kernels& kernels = deskaid::base64::ActiveKernels();
  const bool vector = kernels.path != deskaid::base64::Path::kScalar;

  // Piece by piece, the input goes through the filter straight into the text buffer, and the
  // whole groups filtered so far are decoded from there, while they are in the cache, into the
  // data buffer. Up to three characters of an unfinished group wait for the next piece.
  char* const filtered = m_pszText;
  const unsigned char* const in = reinterpret_cast<const unsigned char*>(filtered);
  uint32_t textLength = 0;  // characters filtered so far
  uint32_t k = 0;           // characters decoded so far, always whole groups
  unsigned char* b = m_pData;
  for (uint32_t i = 0; i < length;) {
    const uint32_t end = length - i < kPiece ? length : i + kPiece;
    while (i < end) {
      if (vector) {
        // While no character waits for its group, blocks of plain text are copied and decoded
        // in one go; then blocks without skipped characters are copied.
        if (k == textLength) {
          const uint32_t n = kernels.copyAndDecodeBlocks(text + i, end - i, filtered + k, b);
          i += n;
          textLength += n;
          k += n;
          b += n / 4 * 3;
        }
        const uint32_t n = kernels.copyUnskipped(text + i, end - i, filtered + textLength);
        i += n;
        textLength += n;
      }
      // The block the kernels refused, or what is left, character by character. A skipped
      // character is stored and then overwritten (or cleared at the end), never counted.
      const uint32_t until = vector && end - i > 16 ? i + 16 : end;
      for (; i < until; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        filtered[textLength] = static_cast<char>(c);
        textLength += 1 - kSkipTable[c];
      }
      // The whole groups filtered so far.
      const uint32_t groups = textLength / 4 * 4;
      while (k < groups) {
        if (vector) {
          const uint32_t n = kernels.decodeBlocks(in + k, groups - k, b);
          k += n;
          b += n / 4 * 3;
        }
        // The block the kernel refused, or the groups behind the last block, one by one.
        const uint32_t last = vector && groups - k > 16 ? k + 16 : groups;
        for (; k < last; k += 4, b += 3) DecodeGroupFast(in + k, b);
      }
    }
  }
  m_nTextLength = textLength;
  m_nDataLength = k / 4 * 3;
  if (k < textLength) {
    // The data buffer, larger than the unfiltered input, has room for all three bytes; the
    // uncounted ones are zero.
    Base64Coder::DecodeGroup(TailGroup(filtered + k, textLength - k), m_pData + m_nDataLength);
    m_nDataLength += textLength - k;
  }
  ClearFrom(kernels, m_pszText, m_nTextCapacity, m_nTextLength);
  ClearFrom(kernels, m_pData, m_nDataCapacity, m_nDataLength);
}
