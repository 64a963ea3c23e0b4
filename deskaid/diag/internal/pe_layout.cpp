#include "deskaid/diag/internal/pe_layout.h"

#include <cstdlib>
#include <cstring>

namespace deskaid {
namespace {

constexpr size_t kFileHeaderSize = 20;
constexpr size_t kSectionHeaderSize = 40;
constexpr size_t kSymbolSize = 18;

uint16_t U16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t U32(const uint8_t* p) { return U16(p) | static_cast<uint32_t>(U16(p + 2)) << 16; }

}  // namespace

bool ReadPeLayout(ImageReader read, void* source, PeLayout& layout) {
  uint8_t dos[64];
  if (!read(source, 0, dos, sizeof dos) || dos[0] != 'M' || dos[1] != 'Z') return false;
  const uint64_t signature = U32(dos + 0x3C);
  uint8_t file[4 + kFileHeaderSize];
  if (!read(source, signature, file, sizeof file) || std::memcmp(file, "PE\0\0", 4) != 0)
    return false;
  layout.sectionCount = U16(file + 6);
  layout.timeStamp = U32(file + 8);
  layout.symbolTable = U32(file + 12);
  layout.symbolCount = U32(file + 16);
  layout.optionalSize = U16(file + 20);
  layout.optionalHeader = signature + 4 + kFileHeaderSize;
  layout.sectionTable = layout.optionalHeader + layout.optionalSize;
  return true;
}

bool ReadPeSection(ImageReader read, void* source, const PeLayout& layout, uint16_t index,
                   PeSection& section) {
  uint8_t header[kSectionHeaderSize];
  if (!read(source, layout.sectionTable + index * kSectionHeaderSize, header, sizeof header))
    return false;
  std::memcpy(section.name, header, 8);
  section.name[8] = '\0';
  section.virtualSize = U32(header + 8);
  section.virtualAddress = U32(header + 12);
  section.rawSize = U32(header + 16);
  section.rawOffset = U32(header + 20);
  section.characteristics = U32(header + 36);
  return true;
}

uint64_t PeLongNameOffset(const PeLayout& layout, const PeSection& section) {
  if (section.name[0] != '/' || section.name[1] == '\0') return 0;
  return layout.symbolTable + uint64_t{layout.symbolCount} * kSymbolSize +
         std::strtoull(section.name + 1, nullptr, 10);
}

}  // namespace deskaid
