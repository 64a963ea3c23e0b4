// A host program that uses the portable half of deskaid the way an application would, and prints
// a short account of each step and where its output went.
//
//   tour [DIRECTORY]     (default: the current directory)
//
// It must load at its preferred base (0x00400000 for a Windows executable built without
// relocation, a non-PIE executable natively), so that the code addresses it logs resolve against
// its own image in the export step.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <deskaid/deskaid.h>

#ifdef _WIN32
#include <windows.h>
#endif

namespace fs = std::filesystem;

// The full path of this program, which the export resolves addresses against.
static std::string OwnPath() {
#ifdef _WIN32
  char path[MAX_PATH] = "";
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  return path;
#else
  std::error_code error;
  return fs::read_symlink("/proc/self/exe", error).string();
#endif
}

// Functions whose addresses the log mentions, standing in for a host's own code.
static void OpenCustomerFile() { std::puts("    (opening the customer file)"); }
static void ReconcileAccounts() { std::puts("    (reconciling)"); }

namespace {

uint32_t CodeAddress(void (*function)()) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(function));
}

uint32_t RecordCount(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  in.seekg(-static_cast<std::streamoff>(sizeof(LogTrailer)), std::ios::end);
  LogTrailer trailer{};
  if (!in.read(reinterpret_cast<char*>(&trailer), sizeof trailer) ||
      trailer.magic != kLogTrailerMagic) {
    return 0;
  }
  return trailer.recordCount;
}

void StepLog(const fs::path& dir, const std::string& logPath) {
  std::printf("\n1. Log: %s, enciphered, 8 KiB limit, oldest 20 %% dropped when full\n",
              logPath.c_str());
  fs::remove(logPath);
  g_LogWriter.Open(logPath.c_str(), 8192, 1, 20);
  int compactions = 0;
  uint32_t previous = 0;
  for (int i = 0; i < 400; ++i) {
    if (i % 50 == 7) {
      LogPrintf(LOG_LEVEL_2, "open [%08X] failed, retrying", CodeAddress(OpenCustomerFile));
    } else if (i % 50 == 31) {
      LogPrintf(LOG_LEVEL_4, "slow step in [%08X]: %d ms", CodeAddress(ReconcileAccounts), i);
    } else {
      LogPrintf(LOG_LEVEL_1, "order %d accepted, %d items", 1000 + i, i % 9 + 1);
    }
    if (g_LogWriter.GetSize() < previous) ++compactions;
    previous = g_LogWriter.GetSize();
  }
  g_LogWriter.Close();
  std::printf(
      "   400 records written through LogPrintf; the file compacted %d times and now holds "
      "%u records in %ju bytes\n",
      compactions, RecordCount(logPath), static_cast<uintmax_t>(fs::file_size(logPath)));
  (void)dir;
}

void StepExport(const std::string& logPath, const std::string& textPath) {
  const std::string self = OwnPath();
  std::printf("\n2. Export: %s -> %s, addresses resolved against %s\n", logPath.c_str(),
              textPath.c_str(), self.c_str());
  uint32_t month = 0, day = 0;
  if (ReadLogStamp(logPath.c_str(), month, day)) {
    std::printf("   trailer stamp (the executable's date): %02u-%02u\n", month, day);
  }
  if (!ConvertLogToText(logPath.c_str(), textPath.c_str(), self.c_str())) {
    std::printf("   conversion failed\n");
    return;
  }
  std::ifstream text(textPath);
  std::string line;
  int shown = 0, lines = 0;
  while (std::getline(text, line)) {
    ++lines;
    while (!line.empty() && line.back() == '\r') line.pop_back();
    if (shown < 3 &&
        (line.find("open ") != std::string::npos || line.find("slow step") != std::string::npos)) {
      std::printf("   | %s\n", line.c_str());
      ++shown;
    }
  }
  std::printf("   %d lines written\n", lines);
}

void StepCodecs(const fs::path& dir) {
  const std::string dataPath = (dir / "sample.bin").string();
  {
    std::ofstream out(dataPath, std::ios::binary);
    for (int i = 0; i < 100000; ++i) out.put(static_cast<char>((i * 7919) >> 3));
  }
  std::printf("\n3. Codecs on %s (100,000 bytes)\n", dataPath.c_str());
  std::optional<std::string> digest = HashFile(dataPath.c_str());
  std::printf("   MD5: %s\n", digest ? digest->c_str() : "(file could not be read)");

  std::ifstream in(dataPath, std::ios::binary);
  std::vector<unsigned char> data((std::istreambuf_iterator<char>(in)), {});
  Base64Coder coder;
  coder.Encode(data.data(), static_cast<uint32_t>(data.size()));
  std::string text(coder.GetText(), coder.GetTextLength());
  const std::string textPath = (dir / "sample.b64").string();
  std::ofstream(textPath, std::ios::binary) << text;
  std::printf("   Base64: %u characters -> %s, beginning %.40s...\n", coder.GetTextLength(),
              textPath.c_str(), text.c_str());
  Base64Coder decoder;
  decoder.Decode(text.c_str(), static_cast<uint32_t>(text.size()));
  // The decoder counts three bytes for every group, padded or not: the data is the file followed
  // by the zero bytes that complete the last group.
  bool same = decoder.GetDataLength() >= data.size() &&
              std::memcmp(decoder.GetData(), data.data(), data.size()) == 0;
  std::printf("   decoded back: %u bytes (whole groups), the first %zu %s\n",
              decoder.GetDataLength(), data.size(), same ? "identical to the file" : "DIFFERENT");
  std::printf("   network error 12002: \"%s\"\n", InternetErrorText(12002));
}

// A 2,048-bit number from a simple generator, in hexadecimal text.
std::string HexDigits(uint32_t seed, int digits, bool odd) {
  std::string text;
  uint32_t x = seed;
  for (int i = 0; i < digits; ++i) {
    x = x * 1664525u + 1013904223u;
    text += "0123456789ABCDEF"[(x >> 24) & 15];
  }
  if (text[0] < '8') text[0] = '9';  // top bit set: a full 2,048 bits
  if (odd && ((text.back() - '0') % 2 == 0)) text.back() = '7';
  return text;
}

void StepModularPower() {
  std::printf("\n4. Modular power with 2,048-bit base, exponent and odd modulus\n");
  CBigInt base, exponent, modulus;
  base.Parse(HexDigits(1, 512, false).c_str(), 16);
  exponent.Parse(HexDigits(2, 512, false).c_str(), 16);
  modulus.Parse(HexDigits(3, 512, true).c_str(), 16);
  const CBigInt original = base;  // the power writes base^(2^k) mod n back into its argument
  CModPower power;
  auto start = std::chrono::steady_clock::now();
  std::string result = power.TransformText(base, exponent, modulus);
  double ms =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  std::printf("   result: %zu decimal digits, %.20s...%s, in %.1f ms\n", result.size(),
              result.c_str(), result.substr(result.size() - 10).c_str(), ms);
  // Check with a second route: x^e mod n from the exponent's halves, (x^(e/2))^2 * x^(e%2).
  CModPower half;
  CBigInt b = original;
  half.SetExponent(CBigInt(exponent) >> 1);
  half.SetModulus(modulus);
  CBigInt h = half.PowMod(b);
  CBigInt check = (h * h) % modulus;
  if ((exponent % 2u) == 1u) check = (check * original) % modulus;
  std::printf("   checked by squaring the power of half the exponent: %s\n",
              std::string(check.GetString()) == result ? "equal" : "DIFFERENT");
}

}  // namespace

int main(int argc, char** argv) {
  const fs::path dir = fs::absolute(argc > 1 ? fs::path(argv[1]) : fs::current_path());
  fs::create_directories(dir);
  const std::string logPath = (dir / "tour.log").string();
  const std::string textPath = (dir / "tour.txt").string();
  std::printf("deskaid tour: output in %s\n", dir.string().c_str());
  StepLog(dir, logPath);
  StepExport(logPath, textPath);
  StepCodecs(dir);
  StepModularPower();
  return 0;
}
