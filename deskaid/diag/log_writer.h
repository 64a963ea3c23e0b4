// The binary log writer and the printf-style entry to the process-wide log.
//
// CLogWriter appends records to a log file (see diag/log_format.h) and keeps the file's trailer
// behind the last record. When the file reaches its size limit the writer either drops the oldest
// share of the records (compaction) or renames the whole file aside under a time-stamped name and
// starts a new one (archiving). It fails silently: writes on a closed writer are refused, and a
// file whose trailer is damaged is deleted and started afresh. The file is opened deny-write, so
// a second process cannot write the same log.
//
// Every operation may be called from any thread: an internal lock keeps each record, rotation and
// close whole, and a thread that already holds it (a nested call from a trace hook) may call in
// again. A single thread sees exactly the bytes and results it would see without the lock.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "deskaid/common/max_path.h"
#include "deskaid/diag/debug_trace.h"
#include "deskaid/diag/log_format.h"

class CLogWriter {
 public:
  CLogWriter();
  ~CLogWriter();
  CLogWriter(const CLogWriter&) = delete;
  CLogWriter& operator=(const CLogWriter&) = delete;

  // Closes any open file, then opens `name`: a name without a path separator is placed in the
  // directory of the host executable, any other name is used as the path. `maxSize` is stored as
  // given (0 makes every write rotate the file); `dropPercent` 255 selects archiving. A null or
  // empty name fails, leaving the writer closed.
  bool Open(const char* name, uint32_t maxSize, uint8_t encipher, uint8_t dropPercent);

  // Opens the file at the current path (creating it when missing) and checks its trailer; a file
  // of 74 bytes or more whose trailer lacks the magic is deleted and replaced by an empty one.
  // True when open; true at once when already open.
  bool OpenFile();

  // True when closed, or when closing the stream succeeded.
  bool Close();

  // Sets the path while closed (false, and no change, while open, or for a null path). The path
  // must fit 260 chars.
  bool SetPath(const char* path);
  // The path buffer. Its text changes only through Open and SetPath.
  const char* GetPath() const { return m_szPath; }

  // 0 means never rotate (stored as 0xFFFFFFFF); 1 to 65,535 is raised to 65,536.
  void SetMaxSize(uint32_t bytes);
  uint32_t GetMaxSize() const;
  // The file's length as the writer counts it: the length at open plus every header and body, in
  // 32 bits (a log that never rotates may grow past 4 GiB; records still go to its true end).
  uint32_t GetSize() const;
  bool IsOpen() const;

  // Appends one record with the given level byte and kind. False only when closed: I/O errors
  // are not reported. Rotates the file afterwards when it has reached the size limit.
  bool Write(uint8_t level, const void* data, uint32_t length, uint8_t kind);

  // What a record survives. Once Write returns, the record is in the system's hands: a killed or
  // crashed process loses none of the records it wrote. Surviving a power loss or a system crash
  // also needs the disk to have them, which SetFlushToDisk(true) asks for after every record, at
  // the price of a system call that waits for the disk. Off by default.
  void SetFlushToDisk(bool flush);

  // Formats into 1,024 bytes (cut at 1,023 characters) and writes it as a record of kind 2.
  // `reserved` is accepted and ignored. A null format writes nothing and returns false.
  bool WriteFormat(uint8_t level, uint32_t reserved, const char* format, ...)
      DESKAID_PRINTF_FORMAT(4, 5);

 private:
  friend class LogWriterTryLock;
  class Guard;
  struct State;

  // The bodies of the operations of the same names, run with the lock held.
  bool OpenFileLocked();
  bool CloseLocked();
  bool WriteLocked(uint8_t level, const void* data, uint32_t length, uint8_t kind);
  size_t WriteRecord(uint64_t offset);
  void MendPendingRecord(uint64_t trailerAt);
  void InitTrailer();
  void Archive();
  void Compact();

  std::FILE* m_pStream;
  uint32_t m_tOpenedAt;
  char m_szPath[deskaid::kMaxPath];
  uint32_t m_nSize;
  uint32_t m_nMaxSize;
  uint8_t m_nDropPercent;
  uint8_t m_bEncipher;
  LogTrailer m_trailer;
  // The file's real length, which the size above does not always match (a file that began empty
  // stays a trailer longer, and one past 4 GiB outgrows the 32-bit count): where the next record
  // goes.
  uint64_t m_nFileLength = 0;
  // Every record is flushed to the disk (SetFlushToDisk).
  bool m_bFlushToDisk = false;
  // Header, body and trailer of the record being written, kept to spare an allocation per record.
  std::vector<uint8_t> m_record;
  // The lock that every operation holds, and the key schedules (diag/internal/log_writer_state.h).
  std::unique_ptr<State> m_state;
};

// The process-wide writer. It starts closed; nothing is logged until a caller opens it.
extern CLogWriter g_LogWriter;

// Formats the message into 1,024 bytes and writes it to g_LogWriter as one record, with the level
// of the first of the bits LOG_LEVEL_1, _2, _4, _8 that is set. With LOG_TO_DEBUG_TRACE the
// message also goes to DebugTrace as "LOG: %s\n". Returns non-zero when a record was written.
// Windows formats with the runtime's _vsnprintf, other systems with vsnprintf. A null format
// writes and traces nothing and returns 0.
uint32_t LogPrintf(uint8_t levelMask, const char* format, ...) DESKAID_PRINTF_FORMAT(2, 3);
