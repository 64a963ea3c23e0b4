// deskaid in a shipped build: MD5, Base64 and modular powers of 1,024 and 2,048 bits, timed by
// the harness shared with the peers. The Base64 coder runs on the kernel set the processor
// offers; each set it offers is also timed on its own, for information.
#include <deskaid/codec/base64.h>
#include <deskaid/codec/internal/base64_vector.h>
#include <deskaid/codec/md5.h>
#include <deskaid/math/bigint.h>
#include <deskaid/math/modpower.h>

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
    const std::string hexResult = Lower(result.GetString(16));
    Report(PowModCase(bits).c_str(), "deskaid", powmod, Check(hexResult.data(), hexResult.size()));
  }
  return 0;
}
