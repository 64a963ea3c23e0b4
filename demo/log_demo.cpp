// A small host of the log writer: opens the process-wide log enciphered with a small size limit,
// writes records through LogPrintf until the file compacts, then reopens it in archive mode and
// writes until the full file is moved aside. Prints what happened at each step.
//
//   log_demo [DIRECTORY]     (default: the current directory)
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include <deskaid/deskaid.h>

namespace fs = std::filesystem;

namespace {

// Record count of a log file, read from its trailer (0 for an empty file).
uint32_t RecordCount(const fs::path& path) {
  std::FILE* in = std::fopen(path.string().c_str(), "rb");
  if (in == nullptr) return 0;
  LogTrailer trailer{};
  uint32_t count = 0;
  if (std::fseek(in, -static_cast<long>(sizeof trailer), SEEK_END) == 0 &&
      std::fread(&trailer, sizeof trailer, 1, in) == 1 && trailer.magic == kLogTrailerMagic) {
    count = trailer.recordCount;
  }
  std::fclose(in);
  return count;
}

void Describe(const fs::path& dir) {
  for (const auto& entry : fs::directory_iterator(dir)) {
    if (entry.path().extension() != ".log") continue;
    std::printf("    %-40s %8ju bytes, %5u records\n", entry.path().filename().string().c_str(),
                static_cast<uintmax_t>(entry.file_size()), RecordCount(entry.path()));
  }
}

}  // namespace

int main(int argc, char** argv) {
  const fs::path dir = fs::absolute(argc > 1 ? fs::path(argv[1]) : fs::current_path());
  fs::create_directories(dir);
  for (const auto& entry : fs::directory_iterator(dir)) {
    if (entry.path().extension() == ".log") fs::remove(entry.path());
  }
  const std::string path = (dir / "demo.log").string();

  // Compaction: at 64 KiB the oldest 20 % of the records are dropped.
  std::printf("log: opening %s enciphered, limit 65536 bytes, dropping 20 %% when full\n",
              path.c_str());
  if (!g_LogWriter.Open(path.c_str(), 65536, 1, 20)) {
    std::printf("log: could not open the log\n");
    return 1;
  }
  uint32_t written = 0;
  uint32_t lastSize = 0;
  while (true) {
    LogPrintf(LOG_LEVEL_2, "record %u: payment %u accepted at [%08X]", written, written * 7,
              0x00401000u + written);
    ++written;
    if (g_LogWriter.GetSize() < lastSize) break;  // the file shrank: it was compacted
    lastSize = g_LogWriter.GetSize();
  }
  std::printf("log: %u records written; the last one reached the limit and the file compacted\n",
              written);
  Describe(dir);

  // Archiving: the full file is renamed with the time it was opened and a new one begins.
  g_LogWriter.Close();
  fs::remove(path);
  std::printf("log: reopening in archive mode (drop percent 255), limit 16384 bytes\n");
  g_LogWriter.Open(path.c_str(), 16384, 1, 255);
  written = 0;
  lastSize = 0;
  while (true) {
    LogPrintf(LOG_LEVEL_1, "archived record %u", written++);
    if (g_LogWriter.GetSize() < lastSize) break;
    lastSize = g_LogWriter.GetSize();
  }
  std::printf("log: %u records written; the full file was moved aside:\n", written);
  Describe(dir);
  g_LogWriter.Close();
  return 0;
}
