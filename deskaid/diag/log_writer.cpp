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

namespace {

constexpr uint32_t kTrailerSize = sizeof(LogTrailer);
constexpr uint32_t kHeaderSize = sizeof(LogRecordHeader);
constexpr uint8_t kArchiveMode = 255;

uint32_t StreamLength(std::FILE* stream) {
  if (std::fseek(stream, 0, SEEK_END) != 0) return 0;
  long length = std::ftell(stream);
  return length < 0 ? 0 : static_cast<uint32_t>(length);
}

// Reads the log sequentially in large blocks and hands out exact byte counts, so that compaction
// walks record headers without a system call per record. Once copying has begun, every byte read
// also goes to the output, in one write per block rather than one per record.
class BlockReader {
 public:
  explicit BlockReader(std::FILE* in) : m_in(in), m_buffer(1 << 20) {}
  ~BlockReader() { FlushCopy(); }

  // Reads exactly `length` bytes; false at the end of the file.
  bool Read(void* out, size_t length) {
    uint8_t* dst = static_cast<uint8_t*>(out);
    while (length > 0) {
      if (m_pos == m_end && !Fill()) return false;
      size_t n = Take(length);
      std::memcpy(dst, m_buffer.data() + m_pos - n, n);
      dst += n;
      length -= n;
    }
    return true;
  }

  // Passes over `length` bytes; false when the file ends first.
  bool Skip(size_t length) {
    while (length > 0) {
      if (m_pos == m_end && !Fill()) return false;
      length -= Take(length);
    }
    return true;
  }

  // From here on, everything read is also written to `out`.
  void StartCopying(std::FILE* out) {
    m_out = out;
    m_copyFrom = m_pos;
  }

 private:
  void FlushCopy() {
    if (m_out != nullptr && m_pos > m_copyFrom) {
      std::fwrite(m_buffer.data() + m_copyFrom, 1, m_pos - m_copyFrom, m_out);
    }
    m_copyFrom = m_pos;
  }
  bool Fill() {
    FlushCopy();
    m_pos = m_copyFrom = 0;
    m_end = std::fread(m_buffer.data(), 1, m_buffer.size(), m_in);
    return m_end > 0;
  }
  size_t Take(size_t wanted) {
    size_t n = m_end - m_pos < wanted ? m_end - m_pos : wanted;
    m_pos += n;
    return n;
  }

  std::FILE* m_in;
  std::vector<uint8_t> m_buffer;
  size_t m_pos = 0;
  size_t m_end = 0;
  std::FILE* m_out = nullptr;
  size_t m_copyFrom = 0;
};

}  // namespace

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

// vsnprintf into `buffer`: a longer text is cut at its size less one byte, less a character split
// there; a failed format leaves the empty text.
void FormatCut(char* buffer, size_t size, const char* format, va_list args) {
  const int n = std::vsnprintf(buffer, size, format, args);
  if (n < 0)
    buffer[0] = '\0';
  else if (static_cast<size_t>(n) >= size)
    deskaid::platform::EndOnWholeCharacter(buffer, size - 1);
}

// snprintf of a path into a buffer of kMaxPath bytes, cut like FormatCut.
void PathCut(char* buffer, const char* format, ...) {
  va_list args;
  va_start(args, format);
  FormatCut(buffer, deskaid::kMaxPath, format, args);
  va_end(args);
}

}  // namespace

CLogWriter::~CLogWriter() { Close(); }

bool CLogWriter::Open(const char* name, uint32_t maxSize, uint8_t encipher, uint8_t dropPercent) {
  Close();
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
  return OpenFile();
}

bool CLogWriter::OpenFile() {
  if (m_pStream != nullptr) return true;
  // A damaged file is deleted and opened again, which creates it afresh. If it cannot be deleted
  // (another process holds it open), it is truncated instead: the outcome is the same empty log.
  bool mustTruncate = false;
  for (;;) {
    m_pStream = mustTruncate ? nullptr : deskaid::platform::OpenDenyWrite(m_szPath, false);
    if (m_pStream == nullptr) m_pStream = deskaid::platform::OpenDenyWrite(m_szPath, true);
    if (m_pStream == nullptr) return false;

    m_tOpenedAt = deskaid::platform::Time32();
    m_nSize = StreamLength(m_pStream);
    std::fseek(m_pStream, 0, SEEK_SET);
    m_nFileLength = m_nSize;

    if (m_nSize == 0) {
      InitTrailer();  // reaches the file together with the first record
      return true;
    }
    if (m_nSize < kTrailerSize) return true;  // kept as it is, and not checked

    LogTrailer read{};
    std::fseek(m_pStream, static_cast<long>(m_nSize - kTrailerSize), SEEK_SET);
    bool complete = std::fread(&read, 1, kTrailerSize, m_pStream) == kTrailerSize;
    if (complete && read.magic == kLogTrailerMagic) {
      m_trailer = read;
      m_keySchedules.clear();
      std::fseek(m_pStream, static_cast<long>(m_nSize - kTrailerSize), SEEK_SET);
      return true;
    }
    std::fclose(m_pStream);
    m_pStream = nullptr;
    mustTruncate = !deskaid::platform::DeleteFilePath(m_szPath);
  }
}

bool CLogWriter::Close() {
  if (m_pStream == nullptr) return true;
  int result = std::fclose(m_pStream);
  m_pStream = nullptr;
  m_tOpenedAt = 0;
  m_nSize = 0;
  return result == 0;
}

bool CLogWriter::SetPath(const char* path) {
  if (m_pStream != nullptr) return false;
  PathCut(m_szPath, "%s", path);
  return true;
}

void CLogWriter::SetMaxSize(uint32_t bytes) {
  if (bytes == 0) {
    m_nMaxSize = 0xFFFFFFFFu;
  } else if (bytes < 0x10000u) {
    m_nMaxSize = 0x10000u;
  } else {
    m_nMaxSize = bytes;
  }
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
  if (m_pStream == nullptr) return false;

  // The record goes over the old trailer, which is written again behind it. In a file shorter
  // than a trailer there is nothing to overwrite and the record starts at the beginning.
  const uint32_t offset = m_nFileLength >= kTrailerSize ? m_nFileLength - kTrailerSize : 0;

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
  uint32_t end = offset + static_cast<uint32_t>(written);
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
  if (m_pStream == nullptr) return false;
  char text[1024];
  va_list args;
  va_start(args, format);
  FormatCut(text, sizeof text, format, args);
  va_end(args);
  return Write(level, text, static_cast<uint32_t>(std::strlen(text)), kLogRecordKind);
}

void CLogWriter::Archive() {
  const uint32_t openedAt = m_tOpenedAt;
  Close();

  char stamp[40];
  std::tm local = deskaid::platform::LocalTime(openedAt);
  std::strftime(stamp, sizeof stamp, "%Y.%m.%d %H.%M.%S", &local);

  deskaid::SplitPath parts(m_szPath);
  char name[deskaid::kMaxPath];
  PathCut(name, "%s - %s", parts.name.c_str(), stamp);
  std::string archived = deskaid::MakePath(parts.drive, parts.directory, name, parts.extension);

  if (std::rename(m_szPath, archived.c_str()) != 0) {
    std::remove(m_szPath);  // logging goes on, at the price of the old file
  }
  OpenFile();
}

void CLogWriter::Compact() {
  Close();

  char tempPath[deskaid::kMaxPath + 4];
  std::snprintf(tempPath, sizeof tempPath, "%s.n_", m_szPath);

  std::FILE* log = std::fopen(m_szPath, "r+b");
  std::FILE* temp = log != nullptr ? std::fopen(tempPath, "wb") : nullptr;
  if (log == nullptr || temp == nullptr) {
    // Nothing was changed: go on with the old file.
    if (log != nullptr) std::fclose(log);
    OpenFile();
    return;
  }

  const uint32_t count = m_trailer.recordCount;
  const uint32_t drop = static_cast<uint32_t>(m_nDropPercent * count) / 100u;

  {
    // The oldest `drop` records are skipped, the next `count - drop` copied as they stand.
    BlockReader reader(log);
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
  OpenFile();
}

uint32_t LogPrintf(uint8_t levelMask, const char* format, ...) {
  char message[1024];
  va_list args;
  va_start(args, format);
  FormatCut(message, sizeof message, format, args);
  va_end(args);
  const uint32_t length = static_cast<uint32_t>(std::strlen(message));

  if (levelMask & LOG_TO_DEBUG_TRACE) DebugTrace("LOG: %s\n", message);

  // Exactly one record, under the lowest level bit that is set.
  for (uint8_t level : {LOG_LEVEL_1, LOG_LEVEL_2, LOG_LEVEL_4, LOG_LEVEL_8}) {
    if (levelMask & level) return g_LogWriter.Write(level, message, length, kLogRecordKind) ? 1 : 0;
  }
  return 0;
}
