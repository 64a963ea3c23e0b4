// logexport: turns a binary log into text, resolving code addresses against an executable, or
// against the images and symbol files on a symbol path.
//
//   logexport LOG [-o TEXT] [--image EXE] [--symbols PATH] [--stamp]
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <deskaid/diag/log_export.h>
#include "deskaid/common/internal/platform.h"

#ifdef DESKAID_WITH_LLVM_SYMBOLIZER
#include "llvm_log_symbolizer.h"
#endif

namespace {

const char kUsage[] =
    "usage: logexport LOG [-o TEXT] [--image EXE] [--symbols PATH] [--stamp]\n"
    "\n"
    "Converts the binary log file LOG into text, one line per record:\n"
    "  <level> <MM>-<DD> <hh>:<mm>:<ss> TAB <message> CR LF   (local time)\n"
    "Enciphered records are deciphered with the keys kept in the file.\n"
    "\n"
    "options:\n"
    "  -o TEXT       write the text to the file TEXT instead of standard output\n"
    "  --image EXE   resolve the first [XXXXXXXX] code address of each message to the name\n"
    "                of the symbol holding it, with EXE taken as loaded at 0x00400000\n"
    "  --symbols PATH\n"
    "                resolve each code reference <module+0xOFFSET> to function (file:line)\n"
#ifdef _WIN32
    "                from the module's image in the folders of PATH (separated by ';'),\n"
#else
    "                from the module's image in the folders of PATH (separated by ';' or ':'),\n"
#endif
    "                then in LOG's folder, and from its PDB file beside it or in those\n"
    "                folders; an image of another build than the log recorded is not used\n"
#if !defined(_WIN32) && !defined(DESKAID_WITH_LLVM_SYMBOLIZER)
    "                (this build has no LLVM: it names code in ELF files, not in PE images)\n"
#endif
    "  --stamp       print only the log's date stamp (MM-DD, the writing program's date)\n"
    "  -h, --help    show this text\n"
    "\n"
    "Exit status: 0 on success, 1 when LOG is missing, is not a log file or is damaged,\n"
    "or the text cannot be written, 2 for a usage error.\n";

int UsageError(const char* message, const char* argument) {
  std::fprintf(stderr, "logexport: %s%s\nTry 'logexport --help'.\n", message,
               argument != nullptr ? argument : "");
  return 2;
}

// A fresh temporary file for the text when it goes to standard output.
std::string TemporaryPath() {
  char path[4096];  // a long $TMPDIR elsewhere; Windows stops at MAX_PATH
  return deskaid::platform::CreateTemporaryFile(path, sizeof path) ? path : "";
}

bool CopyToStdout(const std::string& path) {
  std::FILE* in = std::fopen(path.c_str(), "rb");
  if (in == nullptr) return false;
  deskaid::platform::SetBinaryMode(stdout);  // the text file already holds its line ends
  char buffer[65536];
  size_t n;
  bool ok = true;
  while ((n = std::fread(buffer, 1, sizeof buffer, in)) > 0) {
    if (std::fwrite(buffer, 1, n, stdout) != n) ok = false;
  }
  std::fclose(in);
  return std::fflush(stdout) == 0 && ok;
}

bool ConvertWithSymbols(const char* logPath, const char* textPath, const char* imagePath,
                        const char* symbolPath) {
  LogExportOptions options;
  options.imagePath = imagePath;
  options.symbolPath = symbolPath;
#ifdef DESKAID_WITH_LLVM_SYMBOLIZER
  LlvmLogSymbolizer symbolizer;  // elfutils alone would name no PE image
  options.symbolizer = &symbolizer;
#endif
  return ConvertLogToTextWithSymbols(logPath, textPath, options);
}

}  // namespace

int main(int argc, char** argv) {
  const char* logPath = nullptr;
  const char* textPath = nullptr;
  const char* imagePath = nullptr;
  const char* symbolPath = nullptr;
  bool stampOnly = false;
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    if (std::strcmp(arg, "-h") == 0 || std::strcmp(arg, "--help") == 0) {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (std::strcmp(arg, "-o") == 0 || std::strcmp(arg, "--image") == 0) {
      if (i + 1 >= argc) return UsageError("missing value after ", arg);
      (arg[1] == 'o' ? textPath : imagePath) = argv[++i];
    } else if (std::strcmp(arg, "--symbols") == 0) {
      if (i + 1 >= argc) return UsageError("missing value after ", arg);
      symbolPath = argv[++i];
    } else if (std::strcmp(arg, "--stamp") == 0) {
      stampOnly = true;
    } else if (arg[0] == '-' && arg[1] != '\0') {
      return UsageError("unknown option ", arg);
    } else if (logPath != nullptr) {
      return UsageError("more than one log file given: ", arg);
    } else {
      logPath = arg;
    }
  }
  if (logPath == nullptr) return UsageError("no log file given", nullptr);

  // Tell a missing file from one that is not a log before converting anything.
  std::FILE* probe = std::fopen(logPath, "rb");
  if (probe == nullptr) {
    std::fprintf(stderr, "logexport: cannot open %s: %s\n", logPath, std::strerror(errno));
    return 1;
  }
  std::fclose(probe);
  uint32_t month = 0, day = 0;
  if (!ReadLogStamp(logPath, month, day)) {
    std::fprintf(stderr, "logexport: %s is not a log file (no valid trailer)\n", logPath);
    return 1;
  }
  if (stampOnly) {
    std::printf("%02u-%02u\n", static_cast<unsigned>(month), static_cast<unsigned>(day));
    return 0;
  }

  std::string target = textPath != nullptr ? textPath : TemporaryPath();
  if (target.empty()) {
    std::fprintf(stderr, "logexport: cannot create a temporary file\n");
    return 1;
  }
  bool converted = symbolPath != nullptr
                       ? ConvertWithSymbols(logPath, target.c_str(), imagePath, symbolPath)
                       : ConvertLogToText(logPath, target.c_str(), imagePath);
  bool copied = textPath != nullptr || CopyToStdout(target);
  if (textPath == nullptr) std::remove(target.c_str());
  if (!converted) {
    std::FILE* out = textPath != nullptr ? std::fopen(textPath, "ab") : nullptr;
    if (textPath != nullptr && out == nullptr) {
      std::fprintf(stderr, "logexport: cannot write %s: %s\n", textPath, std::strerror(errno));
    } else {
      std::fprintf(stderr, "logexport: %s is damaged: it holds fewer records than it announces\n",
                   logPath);
    }
    if (out != nullptr) std::fclose(out);
    return 1;
  }
  if (!copied) {
    std::fprintf(stderr, "logexport: cannot write the text to standard output\n");
    return 1;
  }
  return 0;
}
