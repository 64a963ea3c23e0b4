// ConvertLogToText over arbitrary file contents, without and with an image to resolve addresses
// against (this very program). It must never crash or read outside the file, and resolving
// addresses must not change how many lines come out.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <deskaid/diag/log_export.h>

namespace {

std::string Path(const char* leaf) {
  const char* dir = std::getenv("TMPDIR");
  return std::string(dir != nullptr ? dir : "/tmp") + "/deskaid_fuzz_" + std::to_string(getpid()) +
         "_" + leaf;
}

const std::string g_log = Path("in.log");
const std::string g_plain = Path("plain.txt");
const std::string g_resolved = Path("resolved.txt");

size_t CountLines(const std::string& path, bool& ok) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) {
    ok = false;
    return 0;
  }
  size_t lines = 0;
  int c;
  while ((c = std::fgetc(f)) != EOF) lines += c == '\n';
  std::fclose(f);
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::FILE* f = std::fopen(g_log.c_str(), "wb");
  if (f == nullptr) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);

  bool plain = ConvertLogToText(g_log.c_str(), g_plain.c_str(), nullptr);
  // Image look-ups cost a module load each; every other input takes that route.
  if (size > 0 && (data[0] & 1) != 0) {
    bool resolved = ConvertLogToText(g_log.c_str(), g_resolved.c_str(), "/proc/self/exe");
    bool ok = true;
    if (resolved != plain || CountLines(g_plain, ok) != CountLines(g_resolved, ok) || !ok) {
      std::abort();
    }
  }
  return 0;
}
