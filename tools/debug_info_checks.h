// Guards for LLVM's debug information readers, which trust some of the numbers in what they read
// and crash on a damaged file where those numbers lead outside their tables. Each check reads the
// records that hold those numbers once, before any look-up by address, so that a damaged file is
// turned away instead.
#pragma once

namespace llvm {
namespace object {
class ObjectFile;
}
namespace pdb {
class NativeSession;
}
}  // namespace llvm

// Whether every compile unit of the file's DWARF has a readable unit entry: the DWARF reader
// walks a unit's entries from that one without checking that it was read. True for a file without
// DWARF.
bool HasSoundDwarf(const llvm::object::ObjectFile& file);

// Whether every section number that a look-up by address hands to the PDB's section table, those
// of the section contributions and of the modules' line tables, lies within that table, and every
// module and module stream that they lead to exists. Reads each module's line tables.
bool HasSoundSectionNumbers(llvm::pdb::NativeSession& session);
