// deskaid in a shipped build: MD5, Base64, modular powers of 1,024 and 2,048 bits and the other
// big-integer cases, timed by the harness shared with the peers. The Base64 coder runs on the
// kernel set the processor offers; each set it offers is also timed on its own, for information.
// The log writer is timed beside its floor in the same program, as the peers program cannot be:
// the floor writes the same bytes with one positioned write per record through the same system.
#include <windows.h>

#include <deskaid/codec/base64.h>
#include <deskaid/codec/internal/base64_vector.h>
#include <deskaid/codec/md5.h>
#include <deskaid/diag/log_writer.h>
#include <deskaid/math/bigint.h>
#include <deskaid/math/modpower.h>

#include <cstring>

#include "../log_floor.h"
#include "shipped_work.h"

namespace {

using namespace shipped;
using deskaid::base64::Path;

CBigInt Big(const std::string& hex) {
  CBigInt x;
  x.Parse(hex.c_str(), 16);
  x.Normalize();
  return x;
}

void Base64Cases(const std::vector<unsigned char>& data, const std::string& text,
                 const char* impl) {
  // The coder is reused, as a caller with a stream of messages would, and has grown to size
  // before timing, as the peer's buffers are allocated before it.
  Base64Coder coder;
  coder.Encode(data.data(), kCodecSize);
  const double encode = BestOf(1, [&] { coder.Encode(data.data(), kCodecSize); });
  Report("base64_encode_64MiB", impl, encode, Check(coder.GetText(), coder.GetTextLength()));
  coder.Decode(text.data(), uint32_t(text.size()));
  const double decode = BestOf(1, [&] { coder.Decode(text.data(), uint32_t(text.size())); });
  Report("base64_decode_64MiB", impl, decode, Check(coder.GetData(), coder.GetDataLength()));
}

void BigIntCases() {
  const CBigInt a = Big(MulOperand(0)), b = Big(MulOperand(1));
  CBigInt product;
  const double mul = BestOf(1000, [&] { product = a * b; });
  Report("mul_4096x4096", "deskaid", mul, HexCheck(product.GetString(16)));
  const CBigInt dividend = Big(DividendHex()), divisor = Big(DivisorHex());
  CBigInt quotient;
  const double div = BestOf(1000, [&] { quotient = dividend / divisor; });
  Report("div_8192by4096", "deskaid", div, HexCheck(quotient.GetString(16)));
  const std::string digits = RandomDecimal(kTextDigits);
  CBigInt parsed;
  const double parse = BestOf(3, [&] { parsed = CBigInt(digits.c_str()); });
  Report("parse_100000digits", "deskaid", parse, HexCheck(parsed.GetString(16)));
  const char* printed = nullptr;
  const double print = BestOf(3, [&] { printed = parsed.GetString(10); });
  Report("text_100000digits", "deskaid", print, Check(printed, std::strlen(printed)));
}

// 20,000 records of 100 characters into a new log, as the native log benchmark writes them; the
// check is the log's length.
constexpr int kLogRecords = 20000;

std::string LogPath() {
  char folder[MAX_PATH + 1];
  GetTempPathA(sizeof folder, folder);
  return std::string(folder) + "deskaid-shipped-bench.log";
}

std::string FileLengthCheck(const std::string& path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data);
  return std::to_string((uint64_t{data.nFileSizeHigh} << 32) | data.nFileSizeLow);
}

void LogCase(const char* name, uint8_t encipher) {
  const std::string path = LogPath(), message(100, 'm');
  const double seconds = BestOf(1, [&] {
    DeleteFileA(path.c_str());
    g_LogWriter.Open(path.c_str(), 0xFFFFFFFF, encipher, 20);
    for (int i = 0; i < kLogRecords; ++i) LogPrintf(LOG_LEVEL_1, "%s", message.c_str());
    g_LogWriter.Close();
  });
  Report(name, "deskaid", seconds, FileLengthCheck(path));
  DeleteFileA(path.c_str());
}

// The floor (see log_floor.h): each record in one write at its place. The place is set before the
// write rather than passed with it: Wine serves a write with an offset of its own through its
// server, several times slower.
double LogFloor(std::string& check) {
  const std::string path = LogPath();
  LogFloorRecords floor(std::string(100, 'm'));
  const double seconds = BestOf(1, [&] {
    const HANDLE file = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                                    nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    uint64_t at = 0;
    for (int i = 0; i < kLogRecords; ++i, at += floor.Advance()) {
      const std::vector<char>& record = floor.Record(i);
      LARGE_INTEGER position;
      position.QuadPart = static_cast<LONGLONG>(at);
      DWORD written = 0;
      SetFilePointerEx(file, position, nullptr, FILE_BEGIN);
      WriteFile(file, record.data(), static_cast<DWORD>(record.size()), &written, nullptr);
    }
    CloseHandle(file);
  });
  check = FileLengthCheck(path);
  DeleteFileA(path.c_str());
  return seconds;
}

}  // namespace

int main() {
  const std::vector<unsigned char> data = CodecData();

  std::string digest;
  const double md5 = BestOf(1, [&] {
    CMD5Checksum sum;
    sum.AddBytes(data.data(), kCodecSize);
    digest = sum.FinishHex();
  });
  Report("md5_64MiB", "deskaid", md5, digest);

  std::string text;
  {
    Base64Coder coder;
    coder.Encode(data.data(), kCodecSize);
    text.assign(coder.GetText(), coder.GetTextLength());
  }
  Base64Cases(data, text, "deskaid");
  const struct {
    Path path;
    const char* name;
  } paths[] = {{Path::kScalar, "deskaid_scalar"},
               {Path::kSsse3, "deskaid_ssse3"},
               {Path::kAvx2, "deskaid_avx2"}};
  for (const auto& p : paths) {
    if (deskaid::base64::UsePath(p.path)) Base64Cases(data, text, p.name);
  }
  deskaid::base64::UsePath(deskaid::base64::FastestPath());

  for (const int bits : kPowModBits) {
    CModPower power;
    power.SetExponent(Big(RandomHex(bits, 2, false)));
    power.SetModulus(Big(RandomHex(bits, 3, true)));
    const CBigInt base0 = Big(RandomHex(bits, 1, false)) % power.m_Modulus;
    CBigInt result;
    const double powmod = BestOf(10, [&] {
      CBigInt base = base0;
      result = power.PowMod(base);
    });
    Report(PowModCase(bits).c_str(), "deskaid", powmod, HexCheck(result.GetString(16)));
  }
  BigIntCases();

  std::string floorCheck;
  const double floor = LogFloor(floorCheck);
  for (const auto& [name, encipher] : {std::pair{"log_write_20k_plain", 0},
                                       std::pair{"log_write_20k_enciphered", 1}}) {
    LogCase(name, static_cast<uint8_t>(encipher));
    Report(name, "floor", floor, floorCheck);
  }
  return 0;
}
