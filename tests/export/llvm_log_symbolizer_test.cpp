#include "llvm_log_symbolizer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "deskaid/diag/internal/module_identity.h"
#include "export/pe_probe.h"
#include "support/known_functions.h"
#include "support/scratch_dir.h"

namespace probe {
struct Gadget {
  static int Triple(int value);
};
}  // namespace probe

const int kTripleLine = __LINE__ + 1;
__attribute__((noinline)) int probe::Gadget::Triple(int value) { return value * 3; }

namespace {

using Location = LogSymbolizer::Location;
using testing::EndsWith;

// Code of this process as its file has it: the file, and the address as linked, whatever the load
// bias (the test program may be position-independent).
struct LinkedCode {
  std::string file;
  uint64_t address = 0;
};

LinkedCode LinkedCodeAt(uint64_t runtimeAddress) {
  deskaid::ModuleIdentity module;
  if (!deskaid::IdentifyLoadedModule(runtimeAddress, module)) return {};
  return {module.path, runtimeAddress - module.base + module.linkBase};
}

// An extern "C" function with its file and line; a C++ function with its scope and parameters,
// from its entry and from inside it; an address outside every function, not named.
TEST(LlvmLogSymbolizerElf, NamesFunctionsWithTheirFilesAndLines) {
  const LinkedCode c = LinkedCodeAt(ProbeAddress());
  const LinkedCode cpp = LinkedCodeAt(reinterpret_cast<uintptr_t>(&probe::Gadget::Triple));
  ASSERT_FALSE(c.file.empty());
  LlvmLogSymbolizer symbolizer;
  Location location;
  ASSERT_TRUE(symbolizer.Symbolize(c.file, c.address, {}, location));
  EXPECT_EQ(location.function, kProbeName);
  EXPECT_THAT(location.file, EndsWith("tests/support/known_functions.cpp"));
  EXPECT_EQ(location.line, static_cast<uint32_t>(kProbeLine));
  for (uint64_t offset : {1, 0}) {  // inside it, then at its entry
    ASSERT_TRUE(symbolizer.Symbolize(cpp.file, cpp.address + offset, {}, location));
    EXPECT_EQ(location.function, "probe::Gadget::Triple(int)");
  }
  EXPECT_THAT(location.file, EndsWith("tests/export/llvm_log_symbolizer_test.cpp"));
  EXPECT_EQ(location.line, static_cast<uint32_t>(kTripleLine));
  location = {"untouched", "", 7};
  EXPECT_FALSE(symbolizer.Symbolize(c.file, c.address + (uint64_t{1} << 40), {}, location));
  EXPECT_EQ(location.function + std::to_string(location.line), "untouched7");
}

// Unreadable files fail each look-up quietly, and leave the symbolizer able to read others.
TEST(LlvmLogSymbolizerFiles, UnreadableImagesAreNotNamed) {
  ScratchDir dir;
  const LinkedCode code = LinkedCodeAt(ProbeAddress());
  const std::string whole = ReadFileBytes(code.file);
  ASSERT_GT(whole.size(), 8192u);
  WriteFileBytes(dir.PathOf("truncated"), whole.substr(0, whole.size() / 3));

  LlvmLogSymbolizer symbolizer;
  Location location;
  for (const char* name : {"missing", "truncated"}) {
    EXPECT_FALSE(
        symbolizer.Symbolize(dir.PathOf(name), code.address, {dir.path().string()}, location))
        << name;
  }
  EXPECT_TRUE(symbolizer.Symbolize(code.file, code.address, {}, location));
}

#ifdef DESKAID_PE_PDB_PROBE
// The link-time address of a PE32+ image's entry point, from its headers.
uint64_t EntryPointOf(const std::string& image) {
  const std::string bytes = ReadFileBytes(image);
  auto field = [&bytes](size_t at, size_t size) {
    uint64_t value = 0;
    if (at + size <= bytes.size()) std::memcpy(&value, bytes.data() + at, size);
    return value;
  };
  const size_t optionalHeader = field(0x3c, 4) + 24;  // past "PE\0\0" and the file header
  return field(optionalHeader + 24, 8) + field(optionalHeader + 16, 4);
}

// The probe's PDB is found in a symbol folder when the folder it was linked in, which the image
// records, is gone; a PDB of another build beside the image is passed over.
TEST(LlvmLogSymbolizerPe, FindsThePdbOfTheImagesBuildInASymbolFolder) {
  ScratchDir dir;
  namespace fs = std::filesystem;
  const fs::path image = dir.path() / "image" / "pe_probe.exe";
  const fs::path pdb = fs::path(DESKAID_PE_PDB_PROBE).replace_extension(".pdb");
  fs::create_directories(image.parent_path());
  fs::create_directories(dir.path() / "symbols");
  fs::copy_file(DESKAID_PE_PDB_PROBE, image);
  fs::copy_file(pdb, dir.path() / "symbols" / "pe_probe.pdb");
  const uint64_t entry = EntryPointOf(image.string());

  LlvmLogSymbolizer symbolizer;
  Location location;
  EXPECT_FALSE(symbolizer.Symbolize(image.string(), entry, {}, location));
  // A PDB of another build beside the image is passed over for the one in the folder.
  fs::copy_file(DESKAID_PE_OTHER_PDB, image.parent_path() / "pe_probe.pdb");
  EXPECT_FALSE(symbolizer.Symbolize(image.string(), entry, {dir.PathOf("image")}, location));
  ASSERT_TRUE(symbolizer.Symbolize(image.string(), entry,
                                   {dir.PathOf("missing"), dir.PathOf("symbols")}, location));
  EXPECT_EQ(location.function, "probe::Widget::Twice(int)");
  EXPECT_THAT(location.file, EndsWith("tests/export/pe_probe.cpp"));
  EXPECT_EQ(location.line, static_cast<uint32_t>(kPeProbeLine));
}

// The CodeView record a minidump is given is rebuilt from the identity read out of the image: it
// must be the linker's own record byte for byte, and need exactly its own size.
TEST(ModuleIdentityPe, RebuildsTheLinkersCodeViewRecord) {
  std::ifstream file(DESKAID_PE_PDB_PROBE, std::ios::binary);
  const std::string image((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  const size_t at = image.find("RSDS");
  ASSERT_NE(at, std::string::npos);
  const size_t size = 24 + std::strlen(image.c_str() + at + 24) + 1;
  deskaid::ModuleIdentity identity;
  ASSERT_TRUE(deskaid::ReadImageFileIdentity(DESKAID_PE_PDB_PROBE, identity));
  std::string record(size, '\0');
  auto* out = reinterpret_cast<uint8_t*>(&record[0]);
  EXPECT_EQ(deskaid::WriteCodeViewRecord(identity, out, size - 1), 0u);
  ASSERT_EQ(deskaid::WriteCodeViewRecord(identity, out, size), size);
  EXPECT_EQ(record, image.substr(at, size));
}
#endif

}  // namespace
