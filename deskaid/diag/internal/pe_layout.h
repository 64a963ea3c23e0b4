// Where a PE image keeps its headers and sections, read through an ImageReader so that one walk
// serves a module as loaded, an image file and an image held in memory.
#pragma once

#include <cstdint>

#include "deskaid/diag/internal/module_identity.h"

namespace deskaid {

struct PeLayout {
  uint32_t timeStamp = 0;
  uint64_t optionalHeader = 0;  // behind "PE\0\0" and the COFF file header
  uint16_t optionalSize = 0;
  uint64_t sectionTable = 0;
  uint16_t sectionCount = 0;
  uint64_t symbolTable = 0;  // the COFF symbol table, 0 when there is none
  uint32_t symbolCount = 0;
};

// Reads the DOS stub's pointer and the COFF file header. False when `source` does not begin with
// "MZ" or the pointer does not lead to "PE\0\0". The optional header is located, not checked.
bool ReadPeLayout(ImageReader read, void* source, PeLayout& layout);

struct PeSection {
  // As the header holds it: up to eight characters, or "/<decimal offset>" of a longer name in
  // the string table behind the COFF symbol table (see PeLongNameOffset).
  char name[9] = {};
  uint32_t virtualSize = 0;
  uint32_t virtualAddress = 0;
  uint32_t rawSize = 0;
  uint32_t rawOffset = 0;
  uint32_t characteristics = 0;
};

// Reads section header `index` (from 0); false when it is not all in the image.
bool ReadPeSection(ImageReader read, void* source, const PeLayout& layout, uint16_t index,
                   PeSection& section);

// The file offset of a long name's text for a section named "/<decimal offset>"; 0 for a short
// name.
uint64_t PeLongNameOffset(const PeLayout& layout, const PeSection& section);

}  // namespace deskaid
