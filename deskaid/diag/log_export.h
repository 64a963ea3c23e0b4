// Reading binary log files back (see diag/log_format.h): the trailer's stamp, and the conversion
// of a whole log into text, one line per record.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

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

// ----------------------------------------------------------------------------------------------
// Conversion against symbols: module-relative code addresses.
//
// Crash records and LogCodeAddress (diag/code_address.h) write a code address as a reference
// "<module+0xOFFSET>" after its "[XXXXXXXX]" marker, and describe each module they name once, in
// a record of its own ("Module: ..."): its name, where it was loaded, and what identifies its
// build (a PE image's time stamp, size and CodeView record; an ELF file's build id). Such logs
// convert with ConvertLogToText as before; ConvertLogToTextWithSymbols also names references in
// any module, loaded anywhere, from the images found on a symbol path.


// A source of function names and source lines for the code of image files.
class LogSymbolizer {
 public:
  struct Location {
    std::string function;
    std::string file;  // empty when no line is known
    uint32_t line = 0;
  };

  virtual ~LogSymbolizer() = default;

  // Names the code at `address`, a virtual address of the image at `imagePath` as it was linked
  // (the image's preferred base plus the offset). Separate symbol files (PDB) are looked for
  // beside the image, where the image says, and in `symbolFolders`. False when nothing names it.
  virtual bool Symbolize(const std::string& imagePath, uint64_t address,
                         const std::vector<std::string>& symbolFolders, Location& location) = 0;
};

struct LogExportOptions {
  // As for ConvertLogToText: the image whose "[XXXXXXXX]" markers are read as loaded at
  // 0x00400000, for records without a module reference. Null: such markers stay as they are.
  const char* imagePath = nullptr;
  // Folders that hold images and symbol files, separated by ';' (and on POSIX also by ':'). The
  // log's own folder is searched after them. Null or empty: the log's folder only.
  const char* symbolPath = nullptr;
  // The back end for images found; null: the platform's own (dbghelp on Windows, which reads PDB
  // files and the DWARF it knows; elfutils elsewhere, which reads ELF files), and behind it the
  // module's own reader of the DWARF in PE images, for what that leaves unnamed.
  LogSymbolizer* symbolizer = nullptr;
};

// ConvertLogToText, with every module reference resolved: the reference's "[XXXXXXXX]" marker
// becomes "Function (file:line)" (or just "Function" when no line is known) and the reference
// stays behind it. A module is used only when its image on the symbol path has the identity the
// log recorded; otherwise the marker becomes "?? (" + the reason + ")": the module has no record
// in the log, no image of that name was found, the image found is a different build, or nothing
// names the address in it. Same return value and failures as ConvertLogToText.
bool ConvertLogToTextWithSymbols(const char* logPath, const char* textPath,
                                 const LogExportOptions& options);
