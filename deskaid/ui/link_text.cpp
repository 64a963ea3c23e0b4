#include "deskaid/ui/link_text.h"

#include <cstdlib>
#include <cstring>

#include "deskaid/common/internal/platform.h"

namespace deskaid {

namespace {

// Finds the next ',' from `p`, stepping over whole characters of the ANSI code page.
const char* FindComma(const char* p) {
  while (*p != '\0') {
    if (*p == ',') return p;
    const char* next = platform::NextChar(p);
    if (next == p) break;
    p = next;
  }
  return nullptr;
}

bool MatchesIgnoringCase(const char* at, int available, const char* tag, int length) {
  if (available < length) return false;
  return platform::EqualIgnoringCase(at, tag, length);
}

}  // namespace

uint32_t ParseColorText(const char* text) {
  const uint32_t kFailed = 0xFFFFFFFF;
  if (text == nullptr) return kFailed;
  int components[3] = {0, 0, 0};
  const char* piece = text;
  for (int i = 0; i < 2; ++i) {
    const char* comma = FindComma(piece);
    if (comma == nullptr) return kFailed;
    // atoi stops at the comma, so the piece needs no copy of its own.
    components[i] = std::atoi(piece);
    if (components[i] == -1) return kFailed;
    piece = comma + 1;
  }
  if (*piece == '\0') return kFailed;
  components[2] = std::atoi(piece);
  return static_cast<uint32_t>((components[0] & 255) | ((components[1] & 255) << 8) |
                               ((components[2] & 255) << 16));
}

LinkLabelParts ParseTaggedText(const char* text) {
  LinkLabelParts parts;
  if (text == nullptr) return parts;
  const int length = static_cast<int>(std::strlen(text));
  bool opened = false;
  for (int i = 0; i < length; ++i) {
    if (text[i] != '<') continue;
    if (!opened) {
      if (MatchesIgnoringCase(text + i, length - i, "<A>", 3)) {
        if (i > 0) {
          parts.pszBefore = text;
          parts.cchBefore = i;
        }
        parts.pszLink = text + i + 3;
        opened = true;
      }
    } else if (MatchesIgnoringCase(text + i, length - i, "</A>", 4)) {
      parts.cchLink = i - parts.cchBefore - 3;
      if (i + 4 < length) {
        parts.pszAfter = text + i + 4;
        parts.cchAfter = length - i - 4;
        break;
      }
    }
  }
  return parts;
}

}  // namespace deskaid
