// Reading binary log files back (see diag/log_format.h): the trailer's stamp, and the conversion
// of a whole log into text, one line per record.
#pragma once

#include <cstdint>

// Month and day kept in the trailer of the log at `path` (the host executable's date when the
// trailer was made). False, with both 0, when the file cannot be read or has no valid trailer.
bool ReadLogStamp(const char* path, uint32_t& month, uint32_t& day);

// Writes one text line per record of the log at `logPath` to `textPath`:
//
//   <level> <MM>-<DD> <hh>:<mm>:<ss> TAB <message> 13 10
//
// in local time (a time the C library cannot convert prints as 01-00 00:00:00), with enciphered
// bodies deciphered and each body printed up to its first NUL. The
// 13 10 is written explicitly to a text-mode stream, so on Windows every line ends in 13 13 10.
//
// With `imagePath`, the first "[XXXXXXXX]" of a message (exactly eight characters between the
// first '[' and the next ']') is read as a hexadecimal code address of that executable, loaded
// at 0x00400000, and replaced by the name of the symbol holding it. A failed look-up prints the
// name of the previous successful one in the same conversion (empty before the first). Setting
// up the look-ups adds SYMOPT_DEBUG, SYMOPT_OMAP_FIND_NEAREST and SYMOPT_LOAD_LINES to the
// process-wide symbol options, which stay set.
//
// Returns true when the whole file was converted. Unopenable files and a missing or damaged
// trailer give false before any line is written (the text file is then left empty); a file that
// announces more records than it holds gives the lines of those present and false.
bool ConvertLogToText(const char* logPath, const char* textPath, const char* imagePath);
