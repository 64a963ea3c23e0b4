#include "deskaid/diag/log_writer.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "deskaid/common/internal/path.h"
#include "deskaid/common/internal/platform.h"
#include "deskaid/diag/internal/file_stamp.h"
#include "deskaid/diag/internal/log_block_reader.h"
#include "deskaid/diag/internal/log_writer_state.h"

namespace {

constexpr uint32_t kTrailerSize = sizeof(LogTrailer);
constexpr uint32_t kHeaderSize = sizeof(LogRecordHeader);
constexpr uint8_t kArchiveMode = 255;
// A write to a file may be cut at a boundary of this size (a multiple of every page size), when
// the process is killed in the middle of it: the system copies the data a page at a time and
// stops between pages for a fatal signal. A write within one such block is never cut.
constexpr uint64_t kPage = 4096;

bool SamePage(uint64_t first, uint64_t last) { return first / kPage == last / kPage; }
// Marks, in a trailer's keyCount, a trailer written for the time a record is being written across
// a boundary (see WriteRecord).
constexpr uint16_t kPendingMark = 0x8000;

// The rotations' temporary file beside the log: "<log>.n_".
struct TempPath {
  explicit TempPath(const char* log) { std::snprintf(text, sizeof text, "%s.n_", log); }
  char text[deskaid::kMaxPath + 4];
};

}  // namespace

// Holds the writer's lock for one operation; a nested call only counts a level more. A destroyed
// writer has no lock left: a static object's destructor that still logs through the global writer
// after its end finds it closed, with nothing to take.
class CLogWriter::Guard {
 public:
  explicit Guard(const CLogWriter& writer) : m_lock(State::LockOf(writer.m_state)) {
    if (m_lock != nullptr) m_lock->Lock();
  }
  ~Guard() {
    if (m_lock != nullptr) m_lock->Unlock();
  }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  deskaid::ReentrantLock* const m_lock;
};

CLogWriter g_LogWriter;

namespace {
// The global writer closes its file when the module is unloaded or the process ends. Registered
// right after the writer is constructed, so it runs before the writer is destroyed.
void CloseGlobalLog() { g_LogWriter.Close(); }
const int g_closeRegistered = std::atexit(CloseGlobalLog);
}  // namespace

CLogWriter::CLogWriter()
    : m_pStream(nullptr),
      m_tOpenedAt(0),
      m_nSize(0),
      m_nMaxSize(0xFFFFFFFFu),
      m_nDropPercent(20),
      m_bEncipher(0),
      m_trailer(),
      m_state(new State) {
  m_szPath[0] = '\0';
  // Room for any formatted record: a crash report writes without allocating.
  m_record.reserve(kHeaderSize + 1024 + kTrailerSize);
}

namespace {

// Formats a path into a buffer of kMaxPath bytes, cut as the messages are.
void PathCut(char* buffer, const char* format, ...) {
  va_list args;
  va_start(args, format);
  deskaid::platform::FormatText(buffer, deskaid::kMaxPath, format, args);
  va_end(args);
}

}  // namespace

CLogWriter::~CLogWriter() {
  Close();
  m_state.reset();
}

bool CLogWriter::Open(const char* name, uint32_t maxSize, uint8_t encipher, uint8_t dropPercent) {
  Guard guard(*this);
  CloseLocked();
  if (name == nullptr || name[0] == '\0') return false;
  if (std::strchr(name, deskaid::platform::kPathSeparator) == nullptr) {
    char exe[deskaid::kMaxPath];
    deskaid::platform::ExecutablePath(exe, sizeof exe);
    char* lastSeparator = std::strrchr(exe, deskaid::platform::kPathSeparator);
    if (lastSeparator != nullptr) lastSeparator[1] = '\0';
    PathCut(m_szPath, "%s%s", exe, name);
  } else {
    PathCut(m_szPath, "%s", name);
  }
  m_nMaxSize = maxSize;  // not clamped: 0 makes every write rotate the file
  m_bEncipher = encipher;
  m_nDropPercent = dropPercent;
  // A rotation's temporary file that a stopped process left behind goes.
  deskaid::platform::DeleteFilePath(TempPath(m_szPath).text);
  return OpenFileLocked();
}

bool CLogWriter::OpenFile() {
  Guard guard(*this);
  return OpenFileLocked();
}

bool CLogWriter::OpenFileLocked() {
  if (m_pStream != nullptr) return true;
  // A damaged file is deleted and opened again, which creates it afresh. If it cannot be deleted
  // (another process holds it open), it is truncated instead: the outcome is the same empty log.
  bool mustTruncate = false;
  for (;;) {
    m_pStream = mustTruncate ? nullptr : deskaid::platform::OpenDenyWrite(m_szPath, false);
    if (m_pStream == nullptr) m_pStream = deskaid::platform::OpenDenyWrite(m_szPath, true);
    if (m_pStream == nullptr) return false;

    m_tOpenedAt = deskaid::platform::Time32();
    m_nFileLength = deskaid::platform::StreamLength(m_pStream);
    m_nSize = static_cast<uint32_t>(m_nFileLength);  // the count is 32 bits wide
    deskaid::platform::SeekStream(m_pStream, 0);

    if (m_nFileLength == 0) {
      InitTrailer();  // reaches the file together with the first record
      return true;
    }
    if (m_nFileLength < kTrailerSize) return true;  // kept as it is, and not checked

    LogTrailer read{};
    const uint64_t trailerAt = m_nFileLength - kTrailerSize;
    bool complete = deskaid::platform::SeekStream(m_pStream, trailerAt) &&
                    std::fread(&read, 1, kTrailerSize, m_pStream) == kTrailerSize;
    if (complete && read.magic == kLogTrailerMagic) {
      m_trailer = read;
      m_state->keystreams.Reset(m_trailer);
      if (read.keyCount & kPendingMark) MendPendingRecord(trailerAt);
      deskaid::platform::SeekStream(m_pStream, m_nFileLength - kTrailerSize);
      return true;
    }
    std::fclose(m_pStream);
    m_pStream = nullptr;
    mustTruncate = !deskaid::platform::DeleteFilePath(m_szPath);
  }
}

// A trailer marked pending was left by a process stopped while it wrote a record across a
// boundary (see WriteRecord): the file reads whole as the records before that one, but behind
// them may lie what the stop left of it, so a record appended now would not follow them. The
// records are walked to their end and an unmarked trailer is put there, by the steps a record's
// own trailer across a boundary takes: a marked copy past the end, which then ends the file; the
// trailer behind the records; the cut of the file behind it. A stop in between leaves a log to
// mend again.
void CLogWriter::MendPendingRecord(uint64_t trailerAt) {
  m_trailer.keyCount = kLogKeyCount;
  uint64_t recordsEnd = 0;
  {
    deskaid::platform::SeekStream(m_pStream, 0);
    deskaid::LogBlockReader reader(m_pStream, trailerAt);
    LogRecordHeader header;
    for (uint32_t i = 0; i < m_trailer.recordCount; ++i) {
      if (!reader.Read(&header, kHeaderSize) || !reader.Skip(header.length)) return;
      recordsEnd += kHeaderSize + header.length;
    }
  }
  LogTrailer pending = m_trailer;
  pending.keyCount |= kPendingMark;
  const uint64_t copyAt = (trailerAt + kTrailerSize + kPage - 1) / kPage * kPage;
  deskaid::platform::WriteAt(m_pStream, copyAt, &pending, kTrailerSize);
  deskaid::platform::WriteAt(m_pStream, recordsEnd, &m_trailer, kTrailerSize);
  if (!deskaid::platform::TruncateStream(m_pStream, recordsEnd + kTrailerSize)) return;
  m_nFileLength = recordsEnd + kTrailerSize;
  m_nSize = static_cast<uint32_t>(m_nFileLength);
}

bool CLogWriter::Close() {
  Guard guard(*this);
  return CloseLocked();
}

bool CLogWriter::CloseLocked() {
  if (m_pStream == nullptr) return true;
  int result = std::fclose(m_pStream);
  m_pStream = nullptr;
  m_tOpenedAt = 0;
  m_nSize = 0;
  return result == 0;
}

bool CLogWriter::SetPath(const char* path) {
  Guard guard(*this);
  if (m_pStream != nullptr || path == nullptr) return false;
  PathCut(m_szPath, "%s", path);
  return true;
}

void CLogWriter::SetMaxSize(uint32_t bytes) {
  Guard guard(*this);
  if (bytes == 0) {
    m_nMaxSize = 0xFFFFFFFFu;
  } else if (bytes < 0x10000u) {
    m_nMaxSize = 0x10000u;
  } else {
    m_nMaxSize = bytes;
  }
}

uint32_t CLogWriter::GetMaxSize() const {
  Guard guard(*this);
  return m_nMaxSize;
}

uint32_t CLogWriter::GetSize() const {
  Guard guard(*this);
  return m_nSize;
}

bool CLogWriter::IsOpen() const {
  Guard guard(*this);
  return m_pStream != nullptr;
}

void CLogWriter::InitTrailer() {
  uint8_t month = 0, day = 0;
  deskaid::platform::ExecutableStamp(month, day);
  // Reseeds the generator of the whole process, as every new trailer does.
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  std::memset(&m_trailer, 0, sizeof m_trailer);
  m_trailer.keyCount = kLogKeyCount;
  m_trailer.magic = kLogTrailerMagic;
  m_trailer.stampMonth = month;
  m_trailer.stampDay = day;
  for (int i = 0; i < kLogKeyCount; ++i) {
    uint32_t lo = static_cast<uint32_t>(std::rand()) & 0xFFFFu;
    uint32_t hi = static_cast<uint32_t>(std::rand()) & 0xFFFFu;
    m_trailer.keys[i] = lo | (hi << 16);
  }
  m_state->keystreams.Reset(m_trailer);
}

bool CLogWriter::Write(uint8_t level, const void* data, uint32_t length, uint8_t kind) {
  Guard guard(*this);
  return WriteLocked(level, data, length, kind);
}

bool CLogWriter::WriteLocked(uint8_t level, const void* data, uint32_t length, uint8_t kind) {
  if (m_pStream == nullptr) return false;

  // The record goes over the old trailer, which is written again behind it. In a file shorter
  // than a trailer there is nothing to overwrite and the record starts at the beginning.
  const uint64_t offset = m_nFileLength >= kTrailerSize ? m_nFileLength - kTrailerSize : 0;

  LogRecordHeader header;
  header.level = level;
  header.kind = kind;
  // The clock picks the key of an enciphered body; a plain one does without it.
  header.keyIndex =
      m_bEncipher ? static_cast<uint16_t>(deskaid::platform::TickCount() & 15) : kLogPlainBody;
  header.length = static_cast<uint16_t>(length);
  header.time = deskaid::platform::Time32();

  // Header, body and trailer reach the file in one write.
  m_record.resize(kHeaderSize + static_cast<size_t>(length) + kTrailerSize);
  uint8_t* body = m_record.data() + kHeaderSize;
  if (length > 0) std::memcpy(body, data, length);
  if (m_bEncipher) m_state->keystreams.Apply(header.keyIndex, body, length);
  std::memcpy(m_record.data(), &header, kHeaderSize);
  m_trailer.recordCount += 1;
  std::memcpy(body + length, &m_trailer, kTrailerSize);

  size_t written = WriteRecord(offset);
  // Only header and body count towards the size: for a file that already had a trailer the size
  // thus equals the file's length, for one that began empty it stays a trailer below it.
  size_t recordBytes = kHeaderSize + static_cast<size_t>(length);
  m_nSize += static_cast<uint32_t>(written < recordBytes ? written : recordBytes);
  const uint64_t end = offset + written;
  if (end > m_nFileLength) m_nFileLength = end;

  if (m_nSize >= m_nMaxSize && !m_state->rotationDeferred) {
    if (m_nDropPercent == kArchiveMode) {
      Archive();
    } else {
      Compact();
    }
  }
  return true;
}

// The record in m_record (header, body and the new trailer) goes over the old trailer at `offset`
// (or at the start of a file that has none yet). A stop at any moment, a killed process included,
// must leave a log that reads whole, with every record before this one. A write within one block
// does. One across a boundary could be cut there, leaving the file to end in half a record; the
// system writes the blocks in order, so a cut write leaves its first blocks new and the rest as
// they were. Such a record therefore goes in steps, each of which leaves a log that the converter
// reads whole, ended by a trailer with the old count and the pending mark (kPendingMark in
// keyCount, which no reader uses); OpenFile mends a log left with one (see MendPendingRecord).
//  - The new trailer within the record's last block: that block's part is written first, with
//    the trailer marked and holding the old count; then the whole record and trailer, which a
//    cut leaves with the marked last block as it was.
//  - The new trailer across a boundary itself: a marked copy of the old trailer right behind the
//    new one first (within one block), which then ends the file; then the record and its trailer
//    in place; then the file is cut behind them.
size_t CLogWriter::WriteRecord(uint64_t offset) {
  const size_t size = m_record.size();
  const uint64_t end = offset + size;
  if (!SamePage(offset, end - 1)) {
    if (SamePage(end - kTrailerSize, end - 1)) {
      LogTrailer* trailer = reinterpret_cast<LogTrailer*>(m_record.data() + size - kTrailerSize);
      const LogTrailer final = *trailer;
      trailer->keyCount |= kPendingMark;
      trailer->recordCount -= 1;
      const size_t last = static_cast<size_t>((end - 1) / kPage * kPage - offset);
      deskaid::platform::WriteAt(m_pStream, offset + last, m_record.data() + last, size - last);
      *trailer = final;
    } else {
      LogTrailer previous = m_trailer;
      previous.keyCount |= kPendingMark;
      previous.recordCount -= 1;
      deskaid::platform::WriteAt(m_pStream, end, &previous, kTrailerSize);
    }
  }
  const size_t written = deskaid::platform::WriteAt(m_pStream, offset, m_record.data(), size);
  if (!SamePage(end - kTrailerSize, end - 1) && written == size) {
    deskaid::platform::TruncateStream(m_pStream, end);
  }
  if (m_bFlushToDisk) deskaid::platform::FlushToDisk(m_pStream);
  return written;
}

void CLogWriter::SetFlushToDisk(bool flush) {
  Guard guard(*this);
  m_bFlushToDisk = flush;
}

bool CLogWriter::WriteFormat(uint8_t level, uint32_t /*reserved*/, const char* format, ...) {
  Guard guard(*this);
  if (m_pStream == nullptr || format == nullptr) return false;
  char text[1024];  // a longer text is cut at 1,023 characters
  va_list args;
  va_start(args, format);
  deskaid::platform::FormatText(text, sizeof text, format, args);
  va_end(args);
  return WriteLocked(level, text, static_cast<uint32_t>(std::strlen(text)), kLogRecordKind);
}

void CLogWriter::Archive() {
  const uint32_t openedAt = m_tOpenedAt;
  CloseLocked();

  const std::string stamp = deskaid::FileStamp(openedAt);
  deskaid::SplitPath parts(m_szPath);
  char name[deskaid::kMaxPath];
  PathCut(name, "%s - %s", parts.name.c_str(), stamp.c_str());
  std::string archived = deskaid::MakePath(parts.drive, parts.directory, name, parts.extension);

  // The move never replaces an older archive of the same second: it fails, and logging goes on
  // at the price of the current file. A move renames in one step, so a stop at any moment leaves
  // the log or its archive.
  if (!deskaid::platform::MoveFilePath(m_szPath, archived.c_str())) {
    deskaid::platform::DeleteFilePath(m_szPath);
  }
  OpenFileLocked();
}

void CLogWriter::Compact() {
  CloseLocked();

  const TempPath tempFile(m_szPath);
  const char* tempPath = tempFile.text;

  std::FILE* log = std::fopen(m_szPath, "r+b");
  std::FILE* temp = log != nullptr ? std::fopen(tempPath, "wb") : nullptr;
  if (log == nullptr || temp == nullptr) {
    // Nothing was changed: go on with the old file.
    if (log != nullptr) std::fclose(log);
    OpenFileLocked();
    return;
  }

  const uint32_t count = m_trailer.recordCount;
  const uint32_t drop = static_cast<uint32_t>(m_nDropPercent * count) / 100u;

  {
    // The oldest `drop` records are skipped, the next `count - drop` copied as they stand.
    deskaid::LogBlockReader reader(log);
    LogRecordHeader header;
    bool more = true;
    for (uint32_t i = 0; more && i < drop; ++i) {
      more = reader.Read(&header, kHeaderSize) && reader.Skip(header.length);
    }
    reader.StartCopying(temp);
    const uint32_t keep = count - drop;
    for (uint32_t i = 0; more && i < keep; ++i) {
      more = reader.Read(&header, kHeaderSize) && reader.Skip(header.length);
    }
  }
  m_trailer.recordCount -= drop;  // keys and stamp stay, so enciphered records remain readable
  std::fwrite(&m_trailer, 1, kTrailerSize, temp);

  // The new file reaches the disk in full, and then takes the log's place in one step: a stop at
  // any moment leaves the old log or the new one, never neither. A new file that could not be
  // written whole is dropped, and the old log goes on.
  std::fclose(log);
  const bool whole = std::ferror(temp) == 0 && deskaid::platform::FlushToDisk(temp);
  std::fclose(temp);
  if (!whole || !deskaid::platform::ReplaceFilePath(tempPath, m_szPath)) {
    deskaid::platform::DeleteFilePath(tempPath);
  }
  OpenFileLocked();
}

uint32_t LogPrintf(uint8_t levelMask, const char* format, ...) {
  if (format == nullptr) return 0;
  char message[1024];  // a longer text is cut at 1,023 characters
  va_list args;
  va_start(args, format);
  deskaid::platform::FormatText(message, sizeof message, format, args);
  va_end(args);
  const uint32_t length = static_cast<uint32_t>(std::strlen(message));

  if (levelMask & LOG_TO_DEBUG_TRACE) DebugTrace("LOG: %s\n", message);

  // Exactly one record, under the lowest level bit that is set.
  for (uint8_t level : {LOG_LEVEL_1, LOG_LEVEL_2, LOG_LEVEL_4, LOG_LEVEL_8}) {
    if (levelMask & level) return g_LogWriter.Write(level, message, length, kLogRecordKind) ? 1 : 0;
  }
  return 0;
}
