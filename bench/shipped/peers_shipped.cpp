// The peers in a shipped build's processor mode: OpenSSL (MD5() and the EVP block coder) and GMP,
// built with g++ -m32 against the i386 libraries or natively for x86-64, doing the work
// deskaid_shipped does, timed the same way.
#define OPENSSL_SUPPRESS_DEPRECATED  // MD5() is the one-shot peer being measured
#include <gmp.h>
#include <openssl/evp.h>
#include <openssl/md5.h>

#include <cstring>

#include "shipped_work.h"

namespace {

using namespace shipped;

struct Mpz {
  mpz_t v;
  explicit Mpz(const std::string& hex) { mpz_init_set_str(v, hex.c_str(), 16); }
  Mpz() { mpz_init(v); }
  ~Mpz() { mpz_clear(v); }
};

// The value's digits in `base`, in GMP's own allocation, released again.
std::string Digits(const Mpz& x, int base) {
  char* digits = mpz_get_str(nullptr, base, x.v);
  const std::string text = digits;
  void (*release)(void*, size_t);
  mp_get_memory_functions(nullptr, nullptr, &release);
  release(digits, text.size() + 1);
  return text;
}

}  // namespace

int main() {
  const std::vector<unsigned char> data = CodecData();

  unsigned char digest[MD5_DIGEST_LENGTH];
  const double md5 = BestOf(1, [&] { MD5(data.data(), kCodecSize, digest); });
  std::string hex;
  for (unsigned char b : digest) {
    char two[3];
    std::snprintf(two, sizeof two, "%02x", b);
    hex += two;
  }
  Report("md5_64MiB", "openssl", md5, hex);

  std::vector<unsigned char> text(4 * (kCodecSize / 3 + 1) + 1);
  int textLength = 0;
  const double encode =
      BestOf(1, [&] { textLength = EVP_EncodeBlock(text.data(), data.data(), int(kCodecSize)); });
  Report("base64_encode_64MiB", "openssl", encode, Check(text.data(), size_t(textLength)));

  std::vector<unsigned char> bytes(kCodecSize + 3);
  int byteCount = 0;
  const double decode =
      BestOf(1, [&] { byteCount = EVP_DecodeBlock(bytes.data(), text.data(), textLength); });
  Report("base64_decode_64MiB", "openssl", decode, Check(bytes.data(), size_t(byteCount)));

  for (const int bits : kPowModBits) {
    Mpz b(RandomHex(bits, 1, false)), e(RandomHex(bits, 2, false)), n(RandomHex(bits, 3, true)), r;
    mpz_mod(b.v, b.v, n.v);
    const double powmod = BestOf(10, [&] { mpz_powm(r.v, b.v, e.v, n.v); });
    Report(PowModCase(bits).c_str(), "gmp", powmod, HexCheck(Digits(r, 16)));
  }

  Mpz a(MulOperand(0)), b(MulOperand(1)), product;
  const double mul = BestOf(1000, [&] { mpz_mul(product.v, a.v, b.v); });
  Report("mul_4096x4096", "gmp", mul, HexCheck(Digits(product, 16)));
  Mpz dividend(DividendHex()), divisor(DivisorHex()), quotient;
  const double div = BestOf(1000, [&] { mpz_tdiv_q(quotient.v, dividend.v, divisor.v); });
  Report("div_8192by4096", "gmp", div, HexCheck(Digits(quotient, 16)));
  const std::string digits = RandomDecimal(kTextDigits);
  Mpz parsed;
  const double parse = BestOf(3, [&] { mpz_set_str(parsed.v, digits.c_str(), 10); });
  Report("parse_100000digits", "gmp", parse, HexCheck(Digits(parsed, 16)));
  std::string printed(kTextDigits + 2, '\0');
  const double print = BestOf(3, [&] { mpz_get_str(&printed[0], 10, parsed.v); });
  Report("text_100000digits", "gmp", print, Check(printed.c_str(), std::strlen(printed.c_str())));
  return 0;
}
