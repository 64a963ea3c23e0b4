// Parse of arbitrary text in every radix from 2 to 37, then GetString in the same radix. Where
// the text is a plain digit string of the radix, the value is checked against GMP when the
// fuzzer is linked with it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <deskaid/math/bigint.h>

#if __has_include(<gmp.h>)
#include <gmp.h>
#define DESKAID_FUZZ_GMP 1
#endif

namespace {

int DigitOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'z') return c - 'a' + 10;
  if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
  return 99;
}

bool PlainDigits(const std::string& s, int radix) {
  if (s.empty() || radix > 36) return false;
  for (char c : s)
    if (DigitOf(c) >= radix) return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 4096) return 0;
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string cText(text.c_str());  // the parsers read up to the first NUL
  for (int radix = 2; radix <= 37; ++radix) {
    CBigInt value;
    value.Parse(cText.c_str(), radix);
    const std::string printed = value.GetString(radix == 37 ? 10 : radix);
    if (radix == 37 && !printed.empty()) std::abort();  // any text in radix 37 is 0
    // The printed form reads back to the same value (a minus sign only from the decimal quirk).
    if (radix != 37 && (printed.empty() || printed[0] != '-') && !value.IsNegative()) {
      CBigInt back;
      back.Parse(printed.c_str(), radix);
      if (!(back == value) || !(value == back)) std::abort();
    }
#ifdef DESKAID_FUZZ_GMP
    if (PlainDigits(cText, radix)) {
      mpz_t m;
      mpz_init(m);
      if (mpz_set_str(m, cText.c_str(), radix) == 0) {
        std::string want(mpz_sizeinbase(m, radix) + 2, '\0');
        mpz_get_str(&want[0], -radix, m);
        want.resize(std::strlen(want.c_str()));
        if (want == "0") want.clear();
        // ParseHex keeps leading zero words, which do not change the text.
        if (printed != want) std::abort();
      }
      mpz_clear(m);
    }
#endif
    CBigInt copy(cText.c_str());
    (void)copy.GetString(16);
  }
  return 0;
}
