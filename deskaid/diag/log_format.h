// The binary log file: records (a 10-byte header and the body) followed by one 74-byte trailer.
// All integers are little-endian; a file of length 0 is a valid log with no records.
#pragma once

#include <cstdint>

// Level bits of LogPrintf's mask. The first set bit of 1, 2, 4, 8 gives the record's level.
enum : uint8_t {
  LOG_LEVEL_1 = 0x01,
  LOG_LEVEL_2 = 0x02,
  LOG_LEVEL_4 = 0x04,
  LOG_LEVEL_8 = 0x08,
  LOG_TO_DEBUG_TRACE = 0x10,  // also send the message to DebugTrace as "LOG: %s\n"
};

constexpr uint16_t kLogTrailerMagic = 0x5156;
constexpr uint16_t kLogKeyCount = 16;
constexpr uint16_t kLogPlainBody = 0xFFFF;  // keyIndex of a body that is not enciphered
constexpr uint8_t kLogRecordKind = 2;       // the kind every writer of this module uses

#pragma pack(push, 1)
struct LogRecordHeader {
  uint8_t level;      // the level the record was written with
  uint8_t kind;       // kLogRecordKind
  uint16_t keyIndex;  // 0-15: trailer key that enciphered the body; kLogPlainBody: plain
  uint16_t length;    // body length in bytes; the body has no terminator
  uint32_t time;      // seconds since 1970 (UTC) when written
};

struct LogTrailer {
  uint16_t magic;               // kLogTrailerMagic
  uint16_t keyCount;            // kLogKeyCount
  uint32_t recordCount;         // number of records in the file
  uint8_t stampMonth;           // host executable's last-write month (local time) when created
  uint8_t stampDay;             // and its day of month
  uint32_t keys[kLogKeyCount];  // RC4 keys, each used as its 4 little-endian bytes
};
#pragma pack(pop)

static_assert(sizeof(LogRecordHeader) == 10, "record header is 10 bytes");
static_assert(sizeof(LogTrailer) == 74, "trailer is 74 bytes");
