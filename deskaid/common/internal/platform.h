// The one place where deskaid meets the operating system outside the Windows-only subsystems.
// Windows uses the Win32 calls the module is defined by; POSIX systems get the nearest
// equivalents, with '/' taking the backslash's role in paths.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "deskaid/common/max_path.h"

namespace deskaid {
namespace platform {

#ifdef _WIN32
constexpr char kPathSeparator = '\\';
#else
constexpr char kPathSeparator = '/';
#endif

// Whether `c` separates the folders of a path: '\\' and '/' on Windows, '/' elsewhere.
bool IsPathSeparator(char c);
// The length of the drive that starts `path` ("C:" on Windows), 0 when it has none.
size_t DriveLength(const char* path);

// Full path of the running executable (GetModuleFileNameA of the null module). Writes at most
// `size` bytes including the terminator, cutting a longer path. Returns false when unknown, in
// which case `buffer` holds the empty text.
bool ExecutablePath(char* buffer, size_t size);

// Month (1-12) and day (1-31) of the executable's last-write time in local time.
// Returns false, with both 0, when the executable cannot be opened.
bool ExecutableStamp(uint8_t& month, uint8_t& day);

// Milliseconds from a fixed point in the past (GetTickCount; a monotonic clock elsewhere).
uint32_t TickCount();

// Seconds since 1970 (UTC), cut to 32 bits as the module's file formats store it.
uint32_t Time32();

// Broken-down local time of a 32-bit time stamp.
std::tm LocalTime(uint32_t seconds);

// Formats with the platform's own runtime formatter: _vsnprintf of the Windows runtime (which
// differs from C99 in %e exponents, %p case, rounding and length modifiers), vsnprintf elsewhere.
// The result is always terminated: a text that does not fit is cut at `size` - 1 bytes (less a
// character split there, in a UTF-8 host; see WholeCharacters).
// A null format gives the empty text.
void FormatText(char* buffer, size_t size, const char* format, va_list args);

// The length of an open file and positioning in it, with 64-bit offsets on every platform (the
// runtime's long-based fseek and ftell stop at 2 GiB on Windows). StreamLength leaves the stream
// at the end and gives 0 when the length cannot be told.
uint64_t StreamLength(std::FILE* stream);
bool SeekStream(std::FILE* stream, uint64_t offset);

// Hands a text to the system debugger output (OutputDebugStringA; standard error elsewhere).
void DebuggerOutput(const char* text);

// Whether the `length` bytes at the non-null `p` may be read (and, with `write`, written):
// IsBadReadPtr and IsBadWritePtr on Windows. Other systems have no cheap probe and answer true.
bool IsUsableMemory(const void* p, uint32_t length, bool write);

// Opens a file for binary update while refusing writers in other processes and other open
// handles: other readers are still allowed. `truncate` selects "w+b" (create or truncate) over
// "r+b" (must exist). The refusal is settled before anything is truncated, so a refused caller
// never alters the file. Returns null on failure.
std::FILE* OpenDenyWrite(const char* path, bool truncate);

// Writes `length` bytes at `offset` of an open stream and hands them to the operating system at
// once (the effect of fseek, fwrite and fflush). The stream must not hold unwritten data. Returns
// the number of bytes written.
size_t WriteAt(std::FILE* stream, uint64_t offset, const void* data, size_t length);

// The next character of ANSI text: CharNextA, which steps over both bytes of a double-byte
// character; one byte elsewhere. Stays at the terminating NUL.
const char* NextChar(const char* text);

// The length of the longest start of the `length` bytes at `text` that ends on a whole character,
// in a host whose ANSI code page is UTF-8: a character that a cut at a byte limit splits is left
// out, so that no half of one remains. Every other code page keeps the cut exactly at the limit,
// as the module has always made it (double-byte ones included), and so does every other platform:
// `length` comes back.
size_t WholeCharacters(const char* text, size_t length);

// Cuts a text that has been cut at byte `length` back to its whole characters, in place.
inline void EndOnWholeCharacter(char* text, size_t length) {
  text[WholeCharacters(text, length)] = '\0';
}

// Whether `length` characters at `a` and `b` are equal ignoring case, in the user's locale
// (CompareStringA with NORM_IGNORECASE; ASCII case folding elsewhere).
bool EqualIgnoringCase(const char* a, const char* b, int length);

// DeleteFileA / MoveFileA. The move never replaces an existing destination, on any platform;
// callers that mean to replace one delete it first, or replace it with ReplaceFilePath.
bool DeleteFilePath(const char* path);
bool MoveFilePath(const char* from, const char* to);
// Puts `from` in the place of `to` in one step, replacing it (MoveFileExA with
// MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH; rename elsewhere): at every moment one of
// the two files is there, whenever the process is stopped.
bool ReplaceFilePath(const char* from, const char* to);

// Hands what the stream holds to the system and then has the system write it to the disk
// (fflush, then FlushFileBuffers; fsync elsewhere), so that it survives a power loss.
bool FlushToDisk(std::FILE* stream);
// Cuts an open file to `length` bytes (SetEndOfFile; ftruncate elsewhere). The stream must hold
// no unwritten data, and is positioned anew before its next use.
bool TruncateStream(std::FILE* stream, uint64_t length);

// Creates a new, empty file in the user's temporary folder (GetTempFileNameA in GetTempPathA;
// mkstemp in $TMPDIR or /tmp elsewhere) and puts its path into `path`. False when none could be
// made; the caller removes the file.
bool CreateTemporaryFile(char* path, size_t size);
// Makes a stream pass its bytes through as they are: Windows text streams turn "\n" into "\r\n".
void SetBinaryMode(std::FILE* stream);

}  // namespace platform
}  // namespace deskaid
