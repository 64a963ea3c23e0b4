#include "deskaid/common/internal/platform.h"
#include "deskaid/common/internal/simple_format.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <share.h>

namespace deskaid {
namespace platform {

bool IsPathSeparator(char c) { return c == '\\' || c == '/'; }

size_t DriveLength(const char* path) { return path[0] != '\0' && path[1] == ':' ? 2 : 0; }

bool ExecutablePath(char* buffer, size_t size) {
  if (size == 0) return false;
  DWORD n = GetModuleFileNameA(nullptr, buffer, static_cast<DWORD>(size));
  if (n == 0) {
    buffer[0] = '\0';
    return false;
  }
  buffer[size - 1] = '\0';  // XP-era systems leave a cut path unterminated.
  return true;
}

bool ExecutableStamp(uint8_t& month, uint8_t& day) {
  month = day = 0;
  char path[kMaxPath];
  if (!ExecutablePath(path, sizeof path)) return false;
  HANDLE file = CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  FILETIME written, local;
  SYSTEMTIME st;
  if (GetFileTime(file, nullptr, nullptr, &written) && FileTimeToLocalFileTime(&written, &local) &&
      FileTimeToSystemTime(&local, &st)) {
    month = static_cast<uint8_t>(st.wMonth);
    day = static_cast<uint8_t>(st.wDay);
  }
  CloseHandle(file);
  return true;
}

uint32_t TickCount() { return GetTickCount(); }

uint32_t Time32() {
  // time(nullptr), read from the system clock itself: some runtimes (Wine's) look up the time
  // zone on every call, which costs a log record several times its write.
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  const uint64_t ticks = (uint64_t{now.dwHighDateTime} << 32) | now.dwLowDateTime;
  constexpr uint64_t kUnixEpoch = 116444736000000000ull;  // 1970-01-01 in 100 ns since 1601
  return static_cast<uint32_t>((ticks - kUnixEpoch) / 10000000u);
}

std::tm LocalTime(uint32_t seconds) {
  std::time_t t = static_cast<std::time_t>(seconds);
  std::tm result{};
  if (const std::tm* p = std::localtime(&t)) result = *p;
  return result;
}

void FormatText(char* buffer, size_t size, const char* format, va_list args) {
  if (size == 0) return;
  if (format == nullptr) {
    buffer[0] = '\0';
    return;
  }
  if (FormatSimpleText(buffer, size, format, args)) return;
  // The runtime's _vsnprintf leaves a text that fills the buffer unterminated and returns -1 for
  // one that does not fit: both are cut at the last byte.
  int n = _vsnprintf(buffer, size, format, args);
  if (n < 0 || static_cast<size_t>(n) >= size) EndOnWholeCharacter(buffer, size - 1);
}

uint64_t StreamLength(std::FILE* stream) {
  if (_fseeki64(stream, 0, SEEK_END) != 0) return 0;
  __int64 length = _ftelli64(stream);
  return length < 0 ? 0 : static_cast<uint64_t>(length);
}

bool SeekStream(std::FILE* stream, uint64_t offset) {
  return _fseeki64(stream, static_cast<__int64>(offset), SEEK_SET) == 0;
}

void DebuggerOutput(const char* text) { OutputDebugStringA(text); }

bool IsUsableMemory(const void* p, uint32_t length, bool write) {
  if (IsBadReadPtr(p, length)) return false;
  return !write || !IsBadWritePtr(const_cast<void*>(p), length);
}

std::FILE* OpenDenyWrite(const char* path, bool truncate) {
  return _fsopen(path, truncate ? "w+b" : "r+b", _SH_DENYWR);
}

namespace {
HANDLE HandleOf(std::FILE* stream) {
  return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
}
}  // namespace

size_t WriteAt(std::FILE* stream, uint64_t offset, const void* data, size_t length) {
  // Straight to the stream's handle, as natively: the runtime's buffer and lock are bypassed (what
  // the stream has read ahead is dropped by the seek before its next read). The place is set
  // before the write rather than passed with it, which Wine serves several times slower.
  const HANDLE file = HandleOf(stream);
  LARGE_INTEGER at;
  at.QuadPart = static_cast<LONGLONG>(offset);
  if (!SetFilePointerEx(file, at, nullptr, FILE_BEGIN)) return 0;
  const char* p = static_cast<const char*>(data);
  size_t done = 0;
  while (done < length) {
    const size_t left = length - done;
    const DWORD chunk = left > 0x40000000u ? 0x40000000u : static_cast<DWORD>(left);
    DWORD written = 0;
    if (!WriteFile(file, p + done, chunk, &written, nullptr) || written == 0) break;
    done += written;
  }
  return done;
}

size_t WholeCharacters(const char* text, size_t length) {
  if (GetACP() != CP_UTF8) return length;
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text);
  // Back from the end over at most three continuation bytes to the last sequence's lead byte.
  size_t start = length;
  while (start > 0 && length - start < 4 && (bytes[start - 1] & 0xC0) == 0x80) --start;
  if (start == 0) return length;
  const unsigned char lead = bytes[start - 1];
  const size_t needed = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
  return length - (start - 1) < needed ? start - 1 : length;
}

const char* NextChar(const char* text) { return CharNextA(text); }

bool EqualIgnoringCase(const char* a, const char* b, int length) {
  return CompareStringA(LOCALE_USER_DEFAULT, NORM_IGNORECASE, a, length, b, length) == CSTR_EQUAL;
}

bool DeleteFilePath(const char* path) { return DeleteFileA(path) != 0; }

bool MoveFilePath(const char* from, const char* to) { return MoveFileA(from, to) != 0; }

bool ReplaceFilePath(const char* from, const char* to) {
  return MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

bool FlushToDisk(std::FILE* stream) {
  return std::fflush(stream) == 0 && FlushFileBuffers(HandleOf(stream)) != 0;
}

bool TruncateStream(std::FILE* stream, uint64_t length) {
  // One call, where moving the file pointer and SetEndOfFile take two.
  FILE_END_OF_FILE_INFO end;
  end.EndOfFile.QuadPart = static_cast<LONGLONG>(length);
  return SetFileInformationByHandle(HandleOf(stream), FileEndOfFileInfo, &end, sizeof end) != 0;
}

bool CreateTemporaryFile(char* path, size_t size) {
  char dir[MAX_PATH + 1];
  if (size < MAX_PATH) return false;  // GetTempFileNameA writes up to MAX_PATH bytes
  const DWORD n = GetTempPathA(sizeof dir, dir);
  return n != 0 && n < sizeof dir && GetTempFileNameA(dir, "lgx", 0, path) != 0;
}

void SetBinaryMode(std::FILE* stream) { _setmode(_fileno(stream), _O_BINARY); }

}  // namespace platform
}  // namespace deskaid
