#include "deskaid/diag/log_writer.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "deskaid/common/internal/path.h"
#include "deskaid/common/internal/platform.h"
#include "deskaid/common/rc4.h"
#include "deskaid/diag/internal/file_stamp.h"
#include "deskaid/diag/internal/log_block_reader.h"

namespace {

constexpr uint32_t kTrailerSize = sizeof(LogTrailer);
constexpr uint32_t kHeaderSize = sizeof(LogRecordHeader);
constexpr uint8_t kArchiveMode = 255;

}  // namespace

// Holds the writer's lock for one operation. A thread that holds it already (a nested call)
// only counts the depth: the owner is written only by the thread that holds the lock, so a
// thread that reads its own id there is the holder.
class CLogWriter::Guard {
 public:
  explicit Guard(const CLogWriter& writer) : m_writer(writer) {
    const std::thread::id self = std::this_thread::get_id();
    if (m_writer.m_owner.load(std::memory_order_relaxed) == self) {
      ++m_writer.m_nLockDepth;
      return;
    }
    m_writer.m_lock.lock();
    m_writer.m_owner.store(self, std::memory_order_relaxed);
    m_writer.m_nLockDepth = 1;
  }
  ~Guard() {
    if (--m_writer.m_nLockDepth > 0) return;
    m_writer.m_owner.store(std::thread::id(), std::memory_order_relaxed);
    m_writer.m_lock.unlock();
  }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  const CLogWriter& m_writer;
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
      m_trailer() {
  m_szPath[0] = '\0';
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

CLogWriter::~CLogWriter() { Close(); }

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
      m_keySchedules.clear();
      deskaid::platform::SeekStream(m_pStream, trailerAt);
      return true;
    }
    std::fclose(m_pStream);
    m_pStream = nullptr;
    mustTruncate = !deskaid::platform::DeleteFilePath(m_szPath);
  }
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
  m_keySchedules.clear();
  m_trailer.keyCount = kLogKeyCount;
  m_trailer.magic = kLogTrailerMagic;
  m_trailer.stampMonth = month;
  m_trailer.stampDay = day;
  for (int i = 0; i < kLogKeyCount; ++i) {
    uint32_t lo = static_cast<uint32_t>(std::rand()) & 0xFFFFu;
    uint32_t hi = static_cast<uint32_t>(std::rand()) & 0xFFFFu;
    m_trailer.keys[i] = lo | (hi << 16);
  }
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
  header.keyIndex = static_cast<uint16_t>(deskaid::platform::TickCount() & 15);
  header.length = static_cast<uint16_t>(length);
  header.time = deskaid::platform::Time32();

  // Header, body and trailer reach the file in one write.
  m_record.resize(kHeaderSize + static_cast<size_t>(length) + kTrailerSize);
  uint8_t* body = m_record.data() + kHeaderSize;
  if (length > 0) std::memcpy(body, data, length);
  if (m_bEncipher) {
    if (m_keySchedules.empty()) {
      for (int k = 0; k < kLogKeyCount; ++k) {
        uint8_t key[4];
        const uint32_t value = m_trailer.keys[k];
        for (int i = 0; i < 4; ++i) key[i] = static_cast<uint8_t>(value >> (8 * i));
        m_keySchedules.emplace_back(key, sizeof key);
      }
    }
    Rc4Cipher cipher = m_keySchedules[header.keyIndex];
    cipher.Apply(body, length);
  } else {
    header.keyIndex = kLogPlainBody;
  }
  std::memcpy(m_record.data(), &header, kHeaderSize);
  m_trailer.recordCount += 1;
  std::memcpy(body + length, &m_trailer, kTrailerSize);

  size_t written = deskaid::platform::WriteAt(m_pStream, offset, m_record.data(), m_record.size());
  // Only header and body count towards the size: for a file that already had a trailer the size
  // thus equals the file's length, for one that began empty it stays a trailer below it.
  size_t recordBytes = kHeaderSize + static_cast<size_t>(length);
  m_nSize += static_cast<uint32_t>(written < recordBytes ? written : recordBytes);
  const uint64_t end = offset + written;
  if (end > m_nFileLength) m_nFileLength = end;

  if (m_nSize >= m_nMaxSize) {
    if (m_nDropPercent == kArchiveMode) {
      Archive();
    } else {
      Compact();
    }
  }
  return true;
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
  // at the price of the current file.
  if (!deskaid::platform::MoveFilePath(m_szPath, archived.c_str())) {
    deskaid::platform::DeleteFilePath(m_szPath);
  }
  OpenFileLocked();
}

void CLogWriter::Compact() {
  CloseLocked();

  char tempPath[deskaid::kMaxPath + 4];
  std::snprintf(tempPath, sizeof tempPath, "%s.n_", m_szPath);

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

  std::fclose(log);
  std::fclose(temp);
  deskaid::platform::DeleteFilePath(m_szPath);
  deskaid::platform::MoveFilePath(tempPath, m_szPath);
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
