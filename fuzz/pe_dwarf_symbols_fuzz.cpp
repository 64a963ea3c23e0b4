// The DWARF reader over arbitrary debug sections: the input is cut into the sections of a PE
// image built around them, then addresses the input names are looked up. Nothing may read outside
// the image or fail to end.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "deskaid/diag/internal/pe_dwarf_symbols.h"

namespace {

const char* const kSections[] = {".debug_info",     ".debug_abbrev",   ".debug_line",
                                 ".debug_str",      ".debug_line_str", ".debug_ranges",
                                 ".debug_rnglists", ".debug_addr",     ".debug_str_offsets"};
constexpr size_t kCount = sizeof kSections / sizeof kSections[0];

void Put(std::vector<uint8_t>& image, size_t at, uint64_t value, size_t size) {
  for (size_t i = 0; i < size; ++i) image[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The first byte of each pair gives a section's share of the rest; eight addresses follow.
  constexpr size_t kHeader = 2 * kCount + 8 * 8;
  if (size < kHeader) return 0;
  const uint8_t* body = data + kHeader;
  const size_t bodySize = size - kHeader;

  constexpr size_t kHeaders = 0x40 + 24, kTable = kHeaders + 40 * kCount;
  std::vector<uint8_t> image(kTable);
  image[0] = 'M';
  image[1] = 'Z';
  Put(image, 0x3c, 0x40, 4);
  Put(image, 0x40, 0x00004550, 4);
  Put(image, 0x44, 0x8664, 2);
  Put(image, 0x46, kCount, 2);
  // The string table of the long section names, right behind the section headers.
  std::string strings(4, '\0');
  std::vector<size_t> nameAt;
  for (const char* name : kSections) {
    nameAt.push_back(strings.size());
    strings += name;
    strings += '\0';
  }
  Put(image, 0x4c, kTable, 4);  // the symbol table (of no symbols), then the strings
  image.insert(image.end(), strings.begin(), strings.end());
  size_t used = 0;
  for (size_t i = 0; i < kCount; ++i) {
    const size_t share = i + 1 == kCount ? bodySize - used : bodySize * data[2 * i] / 2550;
    const size_t length = share <= bodySize - used ? share : bodySize - used;
    const size_t header = kHeaders + 40 * i;
    const std::string name = "/" + std::to_string(nameAt[i]);
    std::memcpy(&image[header], name.data(), name.size());
    Put(image, header + 8, data[2 * i + 1] & 1 ? length / 2 : 0, 4);  // virtual size
    Put(image, header + 16, length, 4);
    Put(image, header + 20, image.size(), 4);
    image.insert(image.end(), body + used, body + used + length);
    used += length;
  }

  deskaid::PeDwarfSymbols reader;
  if (!reader.Open(std::move(image))) return 0;
  for (size_t i = 0; i < 8; ++i) {
    uint64_t address = 0;
    std::memcpy(&address, data + 2 * kCount + 8 * i, 8);
    deskaid::PeDwarfSymbols::Location location;
    reader.Symbolize(address, location);
  }
  return 0;
}
