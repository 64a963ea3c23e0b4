// A LogSymbolizer that reads debug information through LLVM's symbolizer library, so that a
// machine without dbghelp names the code of Windows images as well as of ELF files: DWARF in ELF
// files and in PE images (MinGW-w64 GCC builds), and CodeView in a PDB file (clang and MSVC
// builds).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <deskaid/diag/log_export.h>

class LlvmLogSymbolizer : public LogSymbolizer {
 public:
  LlvmLogSymbolizer();
  ~LlvmLogSymbolizer() override;
  LlvmLogSymbolizer(const LlvmLogSymbolizer&) = delete;
  LlvmLogSymbolizer& operator=(const LlvmLogSymbolizer&) = delete;

  // Names the function whose code holds `address` (a link-time virtual address) by its demangled
  // linkage name: "CallerOfCrash" for an extern "C" function, "ns::Class::Method(int)" for a C++
  // one (a function with internal linkage may have its plain name only). Code inlined into a
  // function is named after that function, with the line of the inlined call. The file and line
  // stay empty and 0 where the line table has no entry for the address.
  //
  // A PE image that names a PDB is read from that PDB alone, looked for, by the file name the
  // image records, beside the image, at the path recorded (which may be a folder of another
  // machine), then in each of `symbolFolders`; only a PDB of the image's own build (the same
  // GUID and age) is taken. Other images are read from their DWARF. Neither symbol tables nor a
  // PDB's public symbols are used: code built without debug information is not named.
  //
  // False, and `location` untouched, when the image cannot be read or nothing names the address.
  // Images and PDB files stay open and parsed for later calls until the object is destroyed.
  bool Symbolize(const std::string& imagePath, uint64_t address,
                 const std::vector<std::string>& symbolFolders, Location& location) override;

 private:
  class Impl;  // keeps LLVM's headers out of the files that use this class
  std::unique_ptr<Impl> impl_;
};
