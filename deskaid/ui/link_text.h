// Text handling of the hyperlink control that needs no window: the colour text of the browser
// settings, the anchor mark-up of a label, and reading a short string value from the registry.
#pragma once

#include <cstdint>

#ifdef _WIN32
#include <windows.h>
#endif

// A label split at its anchor mark-up: the text before "<A>", the link text, and the text after
// "</A>". Pointers point into the label; a missing part is null with length 0.
struct LinkLabelParts {
  const char* pszBefore = nullptr;
  int cchBefore = 0;
  const char* pszLink = nullptr;
  int cchLink = 0;
  const char* pszAfter = nullptr;
  int cchAfter = 0;
};

namespace deskaid {

// "r,g,b" in decimal to a COLORREF; 0xFFFFFFFF when the text is not three comma-separated
// numbers or a leading component reads as -1. Each component is cut to its low byte without a
// range check. Null reads as the empty text.
uint32_t ParseColorText(const char* text);

// Splits `text` (null for none) at "<A>" and "</A>", matched ignoring case. Without an opening
// tag all parts stay empty; with an opening tag but no closing one the link has length 0.
LinkLabelParts ParseTaggedText(const char* text);

#ifdef _WIN32
// Reads the string value `name` of `key` into `buffer` of `size` bytes. Only REG_SZ and
// REG_EXPAND_SZ values whose data ends in NUL and fits the buffer are accepted; an empty value
// reads as "". Returns ERROR_SUCCESS or the failure code (ERROR_INVALID_DATA, ERROR_MORE_DATA,
// ...).
LONG ReadRegistryString(HKEY key, const char* name, char* buffer, DWORD size);
#endif

}  // namespace deskaid
