#include "llvm_log_symbolizer.h"

#include "debug_info_checks.h"

#include <cstring>
#include <map>
#include <utility>

#include <llvm/DebugInfo/CodeView/GUID.h>
#include <llvm/DebugInfo/DIContext.h>
#include <llvm/DebugInfo/PDB/IPDBLineNumber.h>
#include <llvm/DebugInfo/PDB/IPDBSession.h>
#include <llvm/DebugInfo/PDB/IPDBSourceFile.h>
#include <llvm/DebugInfo/PDB/Native/NativeSession.h>
#include <llvm/DebugInfo/PDB/PDBSymbolExe.h>
#include <llvm/DebugInfo/PDB/PDBSymbolFunc.h>
#include <llvm/DebugInfo/PDB/PDBSymbolPublicSymbol.h>
#include <llvm/DebugInfo/Symbolize/Symbolize.h>
#include <llvm/Object/Binary.h>
#include <llvm/Object/COFF.h>
#include <llvm/Object/CVDebugRecord.h>
#include <llvm/Object/ELFObjectFile.h>
#include <llvm/Object/ObjectFile.h>
#include <llvm/Support/Error.h>
#include <llvm/Support/FileSystem.h>
#include <llvm/Support/Path.h>

namespace {

using llvm::DILineInfo;
using llvm::DILineInfoSpecifier;
using llvm::object::SectionedAddress;
using llvm::symbolize::LLVMSymbolizer;
using FileKind = DILineInfoSpecifier::FileLineInfoKind;
using NameKind = DILineInfoSpecifier::FunctionNameKind;

// The linkage name, demangled, is the one kind of name that reads right for both languages: a C++
// function's carries its scope and parameters ("ns::Class::Method(int)", where the short name is
// just "Method"), and a function without one (extern "C") falls back to its plain name.
//
// Names come from the debug information alone. With the symbol table in use, its name wins over
// the debug information's, and a symbol table holds sizeless symbols that the linker defines:
// a PE image's ___crt_xt_end__ shares its address with a function and takes its name, and an ELF
// file's _end reaches over every address past the last function. Code of a translation unit built
// without debug information is then left unnamed, except in ELF files, whose function symbols
// carry their sizes (SymbolizeFromElfSymbols).
LLVMSymbolizer::Options SymbolizerOptions() {
  LLVMSymbolizer::Options options;
  options.PrintFunctions = NameKind::LinkageName;
  options.PathStyle = FileKind::AbsoluteFilePath;
  options.Demangle = true;
  options.UseSymbolTable = false;
  options.RelativeAddresses = false;
  return options;
}

bool IsKnown(const std::string& text) { return !text.empty() && text != DILineInfo::BadString; }

bool IsMangled(const std::string& name) {
  return name.compare(0, 2, "_Z") == 0 || (!name.empty() && name.front() == '?');
}

// The last component of a path written on any system: a PE image made on Windows records a path
// with backslashes.
std::string RecordedFileName(llvm::StringRef recordedPath) {
  const size_t separator = recordedPath.find_last_of("/\\");
  return (separator == llvm::StringRef::npos ? recordedPath : recordedPath.substr(separator + 1))
      .str();
}

using PdbSession = std::unique_ptr<llvm::pdb::IPDBSession>;

// The PDB at `path` when it is the one `image` was linked with (same GUID and age): a PDB of
// another build of the same program names the wrong functions.
PdbSession OpenMatchingPdb(const std::string& path, const llvm::object::COFFObjectFile& image,
                           const llvm::codeview::PDB70DebugInfo& record) {
  if (!llvm::sys::fs::is_regular_file(path)) return nullptr;
  PdbSession session;
  if (llvm::Error error = llvm::pdb::NativeSession::createFromPdbPath(path, session)) {
    llvm::consumeError(std::move(error));
    return nullptr;
  }
  std::unique_ptr<llvm::pdb::PDBSymbolExe> scope = session->getGlobalScope();
  if (!scope) return nullptr;
  const llvm::codeview::GUID guid = scope->getGuid();
  if (std::memcmp(guid.Guid, record.Signature, sizeof guid.Guid) != 0 ||
      scope->getAge() != record.Age) {
    return nullptr;
  }
  // createFromPdbPath makes native sessions only.
  if (!HasSoundSectionNumbers(static_cast<llvm::pdb::NativeSession&>(*session))) return nullptr;
  session->setLoadAddress(image.getImageBase());  // addresses are asked for as linked
  return session;
}

// The PDB of the image's build: by the file name the image records, beside the image, at the
// recorded path itself (useful only when built on this machine), then in each symbol folder.
PdbSession FindPdb(const std::string& imagePath, const llvm::object::COFFObjectFile& image,
                   const llvm::codeview::PDB70DebugInfo& record, llvm::StringRef recordedPath,
                   const std::vector<std::string>& symbolFolders) {
  const std::string name = RecordedFileName(recordedPath);
  if (name.empty()) return nullptr;
  llvm::SmallString<256> beside(imagePath);
  llvm::sys::path::remove_filename(beside);
  llvm::sys::path::append(beside, name);
  std::vector<std::string> candidates{beside.str().str(), recordedPath.str()};
  for (const std::string& folder : symbolFolders) {
    if (folder.empty()) continue;
    llvm::SmallString<256> inFolder(folder);
    llvm::sys::path::append(inFolder, name);
    candidates.push_back(inFolder.str().str());
  }
  for (const std::string& candidate : candidates) {
    if (PdbSession session = OpenMatchingPdb(candidate, image, record)) return session;
  }
  return nullptr;
}

// Where the names of one image's code are read from.
struct ImageReader {
  enum class Source { kNone, kDwarf, kPdb };
  Source source = Source::kNone;  // kNone: the file cannot be read, or safely
  PdbSession pdb;                 // with kPdb: null when no PDB of the image's build was found
  // The image, when it carries sound DWARF: read where the PDB names nothing (a GNU linker's PDB
  // holds public symbols only, and clang's none of the runtime's code that GCC built).
  llvm::object::OwningBinary<llvm::object::Binary> dwarf;
};

// A PE image whose CodeView record names a PDB (an RSDS record) is read from that PDB first, and
// from its own DWARF where the PDB names nothing; every other object file from its DWARF.
ImageReader OpenImageReader(const std::string& imagePath,
                            const std::vector<std::string>& symbolFolders) {
  ImageReader reader;
  auto binary = llvm::object::createBinary(imagePath);
  if (!binary) {
    llvm::consumeError(binary.takeError());
    return reader;
  }
  if (const auto* coff = llvm::dyn_cast<llvm::object::COFFObjectFile>(binary->getBinary())) {
    const llvm::codeview::DebugInfo* record = nullptr;
    llvm::StringRef recordedPath;
    if (llvm::Error error = coff->getDebugPDBInfo(record, recordedPath)) {
      llvm::consumeError(std::move(error));
      return reader;
    }
    if (record != nullptr && !recordedPath.empty() &&
        record->Signature.CVSignature == llvm::OMF::Signature::PDB70) {
      reader.source = ImageReader::Source::kPdb;
      reader.pdb = FindPdb(imagePath, *coff, record->PDB70, recordedPath, symbolFolders);
    }
  }
  const auto* object = llvm::dyn_cast<llvm::object::ObjectFile>(binary->getBinary());
  if (object != nullptr && HasSoundDwarf(*object)) {
    if (reader.source == ImageReader::Source::kNone) reader.source = ImageReader::Source::kDwarf;
    reader.dwarf = std::move(*binary);
  }
  return reader;
}

// Only code that has a function record is named, as from DWARF: the public symbols, which also
// cover code built without debug information, would name every address after the last of them,
// data and padding included.
bool SymbolizeFromPdb(llvm::pdb::IPDBSession& pdb, uint64_t address,
                      LogSymbolizer::Location& location) {
  using llvm::pdb::PDB_SymType;
  const auto symbol = pdb.findSymbolByAddress(address, PDB_SymType::Function);
  const auto* function = llvm::dyn_cast_or_null<llvm::pdb::PDBSymbolFunc>(symbol.get());
  if (function == nullptr || function->getName().empty()) return false;
  // The function record has the qualified name without parameters; the public symbol at the same
  // address, when it is a C++ linkage name, has them. An extern "C" function's public name may
  // carry a calling convention's decoration ("_Name@8"), so the record's name stands then.
  std::string name = function->getName();
  const uint64_t start = function->getVirtualAddress();
  const auto symbolAtStart = pdb.findSymbolByAddress(start, PDB_SymType::PublicSymbol);
  if (const auto* linkage =
          llvm::dyn_cast_or_null<llvm::pdb::PDBSymbolPublicSymbol>(symbolAtStart.get())) {
    if (linkage->getVirtualAddress() == start && IsMangled(linkage->getName())) {
      name = LLVMSymbolizer::DemangleName(linkage->getName(), nullptr);
    }
  }

  location = {name, std::string(), 0};
  if (auto lines = pdb.findLineNumbersByAddress(address, 1)) {
    if (lines->getChildCount() > 0) {
      const auto line = lines->getNext();
      const auto file = line ? pdb.getSourceFileById(line->getSourceFileId()) : nullptr;
      if (file && line->getLineNumber() != 0) {
        location.file = file->getFileName();
        location.line = line->getLineNumber();
      }
    }
  }
  return true;
}

// The outermost of the frames at the address: the function whose code holds it, as a PDB names
// it, with an inlined call's own line rather than the inlined function's.
// The image is handed over as an object, so that the symbolizer reads its DWARF and does not go
// looking for the PDB its CodeView record names.
bool SymbolizeFromDwarf(LLVMSymbolizer& symbolizer, const llvm::object::ObjectFile& image,
                        uint64_t address, LogSymbolizer::Location& location) {
  auto frames = symbolizer.symbolizeInlinedCode(image, {address, SectionedAddress::UndefSection});
  if (!frames) {
    llvm::consumeError(frames.takeError());
    return false;
  }
  if (frames->getNumberOfFrames() == 0) return false;
  const DILineInfo& outer = frames->getFrame(frames->getNumberOfFrames() - 1);
  if (!IsKnown(outer.FunctionName)) return false;
  const bool hasLine = outer.Line != 0 && IsKnown(outer.FileName);
  location = {outer.FunctionName, hasLine ? outer.FileName : std::string(),
              hasLine ? outer.Line : 0};
  return true;
}

// Code of an ELF file that no debug information describes (the C library's start code linked into
// every program, _start) is named from the function symbol that holds it, without a line: such
// symbols carry their sizes, so none reaches over what follows it.
bool SymbolizeFromElfSymbols(const llvm::object::ObjectFile& object, uint64_t address,
                             LogSymbolizer::Location& location) {
  const auto* elf = llvm::dyn_cast<llvm::object::ELFObjectFileBase>(&object);
  if (elf == nullptr) return false;
  for (const llvm::object::ELFSymbolRef symbol : elf->symbols()) {
    auto type = symbol.getType();
    auto start = symbol.getAddress();
    auto name = symbol.getName();
    const bool holds = type && start && name && *type == llvm::object::SymbolRef::ST_Function &&
                       address >= *start && address - *start < symbol.getSize();
    if (!type) llvm::consumeError(type.takeError());
    if (!start) llvm::consumeError(start.takeError());
    if (!name) llvm::consumeError(name.takeError());
    if (holds) {
      location = {LLVMSymbolizer::DemangleName(name->str(), nullptr), std::string(), 0};
      return true;
    }
  }
  return false;
}

}  // namespace

class LlvmLogSymbolizer::Impl {
 public:
  bool Symbolize(const std::string& imagePath, uint64_t address,
                 const std::vector<std::string>& symbolFolders, Location& location) {
    // The PDB found depends on the folders searched, so each list gets a reader of its own.
    std::string key = imagePath;
    for (const std::string& folder : symbolFolders) key.append(1, '\0').append(folder);
    auto found = readers_.find(key);
    if (found == readers_.end()) {
      found = readers_.emplace(key, OpenImageReader(imagePath, symbolFolders)).first;
    }
    const ImageReader& reader = found->second;
    if (reader.source == ImageReader::Source::kPdb && reader.pdb != nullptr &&
        SymbolizeFromPdb(*reader.pdb, address, location)) {
      return true;
    }
    const auto* dwarf = llvm::dyn_cast_or_null<llvm::object::ObjectFile>(reader.dwarf.getBinary());
    return dwarf != nullptr && (SymbolizeFromDwarf(symbolizer_, *dwarf, address, location) ||
                                SymbolizeFromElfSymbols(*dwarf, address, location));
  }

 private:
  LLVMSymbolizer symbolizer_{SymbolizerOptions()};  // keeps every image it read open and parsed
  std::map<std::string, ImageReader> readers_;
};

LlvmLogSymbolizer::LlvmLogSymbolizer() : impl_(std::make_unique<Impl>()) {}
LlvmLogSymbolizer::~LlvmLogSymbolizer() = default;

bool LlvmLogSymbolizer::Symbolize(const std::string& imagePath, uint64_t address,
                                  const std::vector<std::string>& symbolFolders,
                                  Location& location) {
  return impl_->Symbolize(imagePath, address, symbolFolders, location);
}
