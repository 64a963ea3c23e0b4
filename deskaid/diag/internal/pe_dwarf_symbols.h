// Function names and source lines from the DWARF inside a PE image, for the log converter on
// Windows. Microsoft's debug-help library reads PDB files only, and Wine's reads DWARF up to
// version 4, while MinGW GCC writes DWARF 5 by default and its runtime carries DWARF 5 even in
// images whose own code is described by a PDB. This reader names what those leave unnamed, the
// same way the native converter does: the function whose code holds the address (its linkage name
// demangled where the platform can, else its plain name), and the line of that function's own
// code there (for code inlined into it, the line of the inlined call).
//
// It reads whatever bytes it is given: a damaged or hostile image gives fewer names, never a read
// out of bounds.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "deskaid/diag/log_export.h"

namespace deskaid {

class PeDwarfSymbols {
 public:
  using Location = LogSymbolizer::Location;

  PeDwarfSymbols();
  ~PeDwarfSymbols();
  PeDwarfSymbols(const PeDwarfSymbols&) = delete;
  PeDwarfSymbols& operator=(const PeDwarfSymbols&) = delete;

  // Takes the whole image file. False when it is not a PE image with DWARF that describes
  // functions.
  bool Open(std::vector<uint8_t> image);
  bool OpenFile(const char* path);

  // Names the code at `address`, a virtual address as the image was linked (its ImageBase plus
  // the offset). False when no function described by the image's DWARF holds it.
  bool Symbolize(uint64_t address, Location& location);

 private:
  struct Image;
  std::unique_ptr<Image> m_image;
};

}  // namespace deskaid
