// The hyperlink control's two parsers of outside text: the browser's colour setting and the
// anchor mark-up of a label. Results must stay inside their stated ranges and inside the input.
#include <cstdint>
#include <cstdlib>
#include <string>

#include <deskaid/ui/link_text.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);  // cut at the first NUL below
  const char* label = text.c_str();

  uint32_t color = deskaid::ParseColorText(label);
  if (color != 0xFFFFFFFFu && color > 0x00FFFFFFu) std::abort();

  LinkLabelParts parts = deskaid::ParseTaggedText(label);
  const char* end = label + std::char_traits<char>::length(label);
  auto inside = [&](const char* p, int n) {
    return (p == nullptr && n == 0) || (p != nullptr && p >= label && n >= 0 && p + n <= end);
  };
  if (!inside(parts.pszBefore, parts.cchBefore) || !inside(parts.pszAfter, parts.cchAfter)) {
    std::abort();
  }
  if (parts.pszLink != nullptr && !inside(parts.pszLink, parts.cchLink)) std::abort();
  if (parts.pszLink == nullptr && (parts.pszBefore != nullptr || parts.pszAfter != nullptr)) {
    std::abort();  // without an opening tag the label has no parts
  }
  return 0;
}
