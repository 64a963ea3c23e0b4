// Uses one facility of each group through the installed headers and library, and checks the
// results it can know for certain.
#include <deskaid/deskaid.h>

#include <cstdio>
#include <cstring>

int main() {
  const uint8_t key[] = {1, 2, 3, 4, 5};
  uint8_t stream[16] = {};
  Rc4Cipher::Transform(key, sizeof key, stream, sizeof stream);
  const uint8_t expected[4] = {0xb2, 0x39, 0x63, 0x05};
  if (std::memcmp(stream, expected, 4) != 0) {
    std::puts("consumer: RC4 gave the wrong keystream");
    return 1;
  }
  CLogWriter writer;  // never opened: every write is refused
  if (writer.Write(1, "x", 1, 2) || LogPrintf(LOG_LEVEL_1, "nobody listens") != 0) {
    std::puts("consumer: a closed log accepted a record");
    return 1;
  }
  std::puts("consumer: deskaid found, linked and working");
  return 0;
}
