#include "deskaid/common/internal/platform.h"
#include "deskaid/common/internal/simple_format.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace deskaid {
namespace platform {

bool IsPathSeparator(char c) { return c == '/'; }

size_t DriveLength(const char*) { return 0; }

bool ExecutablePath(char* buffer, size_t size) {
  if (size == 0) return false;
  char full[4096];
  ssize_t n = readlink("/proc/self/exe", full, sizeof full - 1);
  if (n <= 0) {
    buffer[0] = '\0';
    return false;
  }
  full[n] = '\0';
  size_t length = static_cast<size_t>(n) < size - 1 ? static_cast<size_t>(n) : size - 1;
  std::memcpy(buffer, full, length);
  buffer[length] = '\0';
  return true;
}

bool ExecutableStamp(uint8_t& month, uint8_t& day) {
  month = day = 0;
  char path[kMaxPath];
  struct stat st;
  if (!ExecutablePath(path, sizeof path) || stat(path, &st) != 0) return false;
  std::tm local{};
  std::time_t written = st.st_mtime;
  if (localtime_r(&written, &local) != nullptr) {
    month = static_cast<uint8_t>(local.tm_mon + 1);
    day = static_cast<uint8_t>(local.tm_mday);
  }
  return true;
}

uint32_t TickCount() {
  // GetTickCount advances in steps of a timer interrupt; the coarse clock is its equivalent and
  // costs a fraction of the precise one.
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
  return static_cast<uint32_t>(static_cast<uint64_t>(ts.tv_sec) * 1000u +
                               static_cast<uint64_t>(ts.tv_nsec) / 1000000u);
}

uint32_t Time32() { return static_cast<uint32_t>(std::time(nullptr)); }

std::tm LocalTime(uint32_t seconds) {
  std::time_t t = static_cast<std::time_t>(seconds);
  std::tm result{};
  localtime_r(&t, &result);
  return result;
}

void FormatText(char* buffer, size_t size, const char* format, va_list args) {
  if (size == 0) return;
  if (FormatSimpleText(buffer, size, format, args)) return;
  // vsnprintf always terminates: a longer text is cut at size - 1 characters.
  if (format == nullptr || std::vsnprintf(buffer, size, format, args) < 0) buffer[0] = '\0';
}

uint64_t StreamLength(std::FILE* stream) {
  if (fseeko(stream, 0, SEEK_END) != 0) return 0;
  off_t length = ftello(stream);
  return length < 0 ? 0 : static_cast<uint64_t>(length);
}

bool SeekStream(std::FILE* stream, uint64_t offset) {
  return fseeko(stream, static_cast<off_t>(offset), SEEK_SET) == 0;
}

// Standard error stands for the debugger output. Written with the system call itself, as an
// unbuffered stream would: a signal handler traces through here too.
void DebuggerOutput(const char* text) {
  size_t length = std::strlen(text);
  while (length > 0) {
    const ssize_t n = write(STDERR_FILENO, text, length);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    text += n;
    length -= static_cast<size_t>(n);
  }
}

bool IsUsableMemory(const void*, uint32_t, bool) { return true; }

// Deny-write is an exclusive advisory lock on the open file description. It is taken before the
// file is truncated, so a second writer that is refused leaves the live file exactly as it was.
std::FILE* OpenDenyWrite(const char* path, bool truncate) {
  int fd = open(path, truncate ? (O_RDWR | O_CREAT | O_CLOEXEC) : (O_RDWR | O_CLOEXEC), 0666);
  if (fd < 0) return nullptr;
  if (flock(fd, LOCK_EX | LOCK_NB) != 0 || (truncate && ftruncate(fd, 0) != 0)) {
    int saved = errno;
    close(fd);
    errno = saved;
    return nullptr;
  }
  std::FILE* stream = fdopen(fd, truncate ? "w+b" : "r+b");
  if (stream == nullptr) close(fd);
  return stream;
}

size_t WriteAt(std::FILE* stream, uint64_t offset, const void* data, size_t length) {
  // One system call at the right offset: the stream's own buffer is bypassed.
  int fd = fileno(stream);
  const char* p = static_cast<const char*>(data);
  size_t done = 0;
  while (done < length) {
    ssize_t n = pwrite(fd, p + done, length - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  return done;
}

size_t WholeCharacters(const char*, size_t length) { return length; }

const char* NextChar(const char* text) { return *text != '\0' ? text + 1 : text; }

bool EqualIgnoringCase(const char* a, const char* b, int length) {
  for (int i = 0; i < length; ++i) {
    unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
    if (x >= 'A' && x <= 'Z') x = static_cast<unsigned char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<unsigned char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

bool DeleteFilePath(const char* path) { return unlink(path) == 0; }

bool MoveFilePath(const char* from, const char* to) {
  // MoveFileA never replaces an existing file. Where the kernel and file system can refuse the
  // replacement themselves the move is atomic; elsewhere the check comes just before the rename.
#ifdef RENAME_NOREPLACE
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) return false;
#endif
  struct stat st;
  if (lstat(to, &st) == 0) return false;
  return std::rename(from, to) == 0;
}

bool ReplaceFilePath(const char* from, const char* to) { return std::rename(from, to) == 0; }

bool FlushToDisk(std::FILE* stream) {
  return std::fflush(stream) == 0 && fsync(fileno(stream)) == 0;
}

bool TruncateStream(std::FILE* stream, uint64_t length) {
  return ftruncate(fileno(stream), static_cast<off_t>(length)) == 0;
}

bool CreateTemporaryFile(char* path, size_t size) {
  const char* dir = std::getenv("TMPDIR");
  if (dir == nullptr || *dir == '\0') dir = "/tmp";
  const int n = std::snprintf(path, size, "%s/deskaid.XXXXXX", dir);
  if (n < 0 || static_cast<size_t>(n) >= size) return false;
  const int fd = mkstemp(path);
  if (fd < 0) return false;
  close(fd);
  return true;
}

void SetBinaryMode(std::FILE*) {}

}  // namespace platform
}  // namespace deskaid
