#include "deskaid/diag/internal/pe_dwarf_symbols.h"

#include <cxxabi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "deskaid/diag/internal/module_identity.h"
#include "llvm_log_symbolizer.h"
#include "support/scratch_dir.h"

namespace {

using deskaid::PeDwarfSymbols;

#ifdef DESKAID_DWARF_PROBES
// Whether LLVM's name for a function is the reader's. Two habits of LLVM's stand in the way:
// a C++ name its demangler cannot read stays mangled (GCC's runtime reads it), and in a 32-bit
// image it takes every other name for a C symbol's decorated one, and drops a leading '_' or '@'
// and a trailing "@<bytes>", though names in DWARF carry no decoration.
bool SameName(const std::string& llvm, const std::string& reader, bool pe32) {
  if (llvm == reader) return true;
  const std::string mangled = pe32 && llvm.compare(0, 1, "Z") == 0 ? "_" + llvm : llvm;
  if (mangled.compare(0, 2, "_Z") == 0) {
    int status = 0;
    char* plain = abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status);
    const bool same = plain != nullptr && reader == plain;
    std::free(plain);
    return same;
  }
  if (!pe32 || reader.empty() || (reader[0] != '_' && reader[0] != '@')) return false;
  std::string undecorated = reader.substr(1);
  const size_t at = undecorated.rfind('@');
  if (at != std::string::npos && at + 1 < undecorated.size() &&
      undecorated.find_first_not_of("0123456789", at + 1) == std::string::npos)
    undecorated.resize(at);
  return undecorated == llvm;
}

// Every address of each image, code, data and headers alike: the reader names what LLVM's
// symbolizer names, as the native converter prints it, and nothing else.
TEST(PeDwarfSymbols, NamesEveryAddressAsLlvmDoes) {
  std::istringstream list(DESKAID_DWARF_PROBES);
  for (std::string image; std::getline(list, image, '|');) {
    SCOPED_TRACE(image);
    deskaid::ModuleIdentity identity;
    ASSERT_TRUE(deskaid::ReadImageFileIdentity(image.c_str(), identity));
    PeDwarfSymbols reader;
    ASSERT_TRUE(reader.OpenFile(image.c_str()));
    const bool pe32 = image.find("dwarf_probe_i686") != std::string::npos;  // as CMake names it
    LlvmLogSymbolizer oracle;
    const auto text = [](bool named, const PeDwarfSymbols::Location& l) {
      return named ? l.function + " " + l.file + ":" + std::to_string(l.line) : "nothing";
    };
    size_t differing = 0, withLine = 0;
    for (uint64_t at = identity.linkBase; at < identity.linkBase + identity.size; ++at) {
      PeDwarfSymbols::Location expected, got;
      const bool known = oracle.Symbolize(image, at, {}, expected);
      const bool found = reader.Symbolize(at, got);
      withLine += known && expected.line != 0;
      if (known == found && (!known || (SameName(expected.function, got.function, pe32) &&
                                        expected.file == got.file && expected.line == got.line)))
        continue;
      if (++differing <= 5) {
        ADD_FAILURE() << std::hex << at << ": LLVM " << text(known, expected) << ", the reader "
                      << text(found, got);
      }
    }
    EXPECT_EQ(differing, 0u);
    EXPECT_GT(withLine, 10000u) << "the image's code is described";
  }
}
#endif

// What is not a PE image with DWARF gives no reader and no names (damaged images in every other
// way are the fuzz target's).
TEST(PeDwarfSymbols, DamagedImagesAreNotNamed) {
  PeDwarfSymbols reader;
  EXPECT_FALSE(reader.Open({}));
  EXPECT_FALSE(reader.Open(std::vector<uint8_t>(4096, 0x5a)));
  std::vector<uint8_t> fake(4096, 0xff);
  fake[0] = 'M';
  fake[1] = 'Z';
  EXPECT_FALSE(reader.Open(fake));
  PeDwarfSymbols::Location location;
  EXPECT_FALSE(reader.Symbolize(0x140001000, location));
  EXPECT_FALSE(PeDwarfSymbols().OpenFile(ScratchDir().PathOf("missing.exe").c_str()));
}

}  // namespace
