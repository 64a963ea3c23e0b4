// The shim's formatter takes a shortcut for the common shapes of a message (plain text, "%s",
// "%%"). Whatever the shape, cut or whole, its text must be the runtime formatter's own.
#include "deskaid/common/internal/platform.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <random>
#include <string>
#include <vector>

#include "support/runtime_format.h"

namespace {

std::string ThroughShim(size_t size, const char* format, ...) {
  std::vector<char> out(size + 1, '\x7f');
  va_list args;
  va_start(args, format);
  deskaid::platform::FormatText(out.data(), size, format, args);
  va_end(args);
  return out.data();
}

TEST(FormatText, EveryShapeGivesTheRuntimesText) {
  // Pieces whose conversions all take a string (or none), so any mix is a valid call.
  const char* const pieces[] = {"plain ", "%s",  "%%", "%5s", "%-4s", "%.2s", "\xc3\xa9t\xc3\xa9",
                                "%s%s",   "%%s", "x"};
  const char* const strings[] = {"", "abc", nullptr, "\xc3\xa9", "0123456789012345678901234567"};
  const size_t sizes[] = {1, 2, 7, 16, 40, 1024};
  std::mt19937 random(2026);
  for (int trial = 0; trial < 3000; ++trial) {
    std::string format;
    for (int n = static_cast<int>(random() % 5); n > 0; --n) format += pieces[random() % 10];
    const char* s[8];  // as many as four pieces can take
    for (const char*& one : s) one = strings[random() % 5];
    const size_t size = sizes[random() % 6];
    ASSERT_EQ(ThroughShim(size, format.c_str(), s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7]),
              RuntimeFormat(size, format.c_str(), s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7]))
        << "format \"" << format << "\", size " << size;
  }
}

}  // namespace
