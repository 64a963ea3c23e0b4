// The one place where deskaid meets the operating system outside the Windows-only subsystems.
// Windows uses the Win32 calls the module is defined by; POSIX systems get the nearest
// equivalents, with '/' taking the backslash's role in paths.
#pragma once

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

// Hands a text to the system debugger output (OutputDebugStringA; standard error elsewhere).
void DebuggerOutput(const char* text);

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

// The length of the longest start of the `length` bytes at `text` that ends on a whole character
// of the ANSI code page: `length` itself in a single-byte code page, and one that leaves out a
// character split at the end in a double-byte or UTF-8 one. Where text is cut at a byte limit,
// the cut is made there, so that no half of a character is left at the end. Elsewhere text is
// taken as bytes and `length` comes back.
size_t WholeCharacters(const char* text, size_t length);

// Cuts a text that has been cut at byte `length` back to its whole characters, in place.
inline void EndOnWholeCharacter(char* text, size_t length) {
  text[WholeCharacters(text, length)] = '\0';
}

// Whether `length` characters at `a` and `b` are equal ignoring case, in the user's locale
// (CompareStringA with NORM_IGNORECASE; ASCII case folding elsewhere).
bool EqualIgnoringCase(const char* a, const char* b, int length);

// DeleteFileA / MoveFileA. The move fails when the destination exists on Windows; callers delete
// the destination first.
bool DeleteFilePath(const char* path);
bool MoveFilePath(const char* from, const char* to);

}  // namespace platform
}  // namespace deskaid
