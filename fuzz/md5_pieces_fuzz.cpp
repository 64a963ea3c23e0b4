// MD5 fed in pieces of fuzzer-chosen sizes gives the digest of the whole message in one call.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <deskaid/codec/md5.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The first byte says how many piece sizes follow (two bytes each); the rest is the message,
  // which the sizes cut up, over and over, until it is used up.
  if (size == 0) return 0;
  size_t sizes = std::min<size_t>(data[0], (size - 1) / 2);
  const uint8_t* schedule = data + 1;
  const uint8_t* message = schedule + 2 * sizes;
  const size_t length = size - 1 - 2 * sizes;

  const std::string whole = HashBuffer(message, static_cast<uint32_t>(length));
  if (whole.size() != 32 || whole.find_first_not_of("0123456789abcdef") != std::string::npos) {
    std::abort();
  }

  CMD5Checksum md5;
  size_t at = 0;
  for (size_t k = 0; at < length; ++k) {
    size_t n =
        sizes == 0 ? length : (schedule[2 * (k % sizes)] | schedule[2 * (k % sizes) + 1] << 8);
    if (n == 0) {  // an empty piece is allowed; then move on by one byte
      md5.AddBytes(message + at, 0);
      n = 1;
    }
    if (n > length - at) n = length - at;
    md5.AddBytes(message + at, static_cast<uint32_t>(n));
    at += n;
  }
  if (whole != md5.FinishHex()) std::abort();
  return 0;
}
