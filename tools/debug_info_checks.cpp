#include "debug_info_checks.h"

#include <cstdint>
#include <utility>

#include <llvm/DebugInfo/CodeView/DebugLinesSubsection.h>
#include <llvm/DebugInfo/CodeView/DebugSubsectionRecord.h>
#include <llvm/DebugInfo/DWARF/DWARFContext.h>
#include <llvm/DebugInfo/DWARF/DWARFDie.h>
#include <llvm/DebugInfo/DWARF/DWARFUnit.h>
#include <llvm/DebugInfo/PDB/Native/DbiModuleDescriptor.h>
#include <llvm/DebugInfo/PDB/Native/DbiModuleList.h>
#include <llvm/DebugInfo/PDB/Native/DbiStream.h>
#include <llvm/DebugInfo/PDB/Native/ISectionContribVisitor.h>
#include <llvm/DebugInfo/PDB/Native/ModuleDebugStream.h>
#include <llvm/DebugInfo/PDB/Native/NativeSession.h>
#include <llvm/DebugInfo/PDB/Native/PDBFile.h>
#include <llvm/DebugInfo/PDB/Native/RawConstants.h>
#include <llvm/DebugInfo/PDB/Native/RawTypes.h>
#include <llvm/Object/COFF.h>
#include <llvm/Object/ObjectFile.h>
#include <llvm/Support/BinaryStreamReader.h>
#include <llvm/Support/Error.h>

namespace {

class ContributionCheck : public llvm::pdb::ISectionContribVisitor {
 public:
  ContributionCheck(uint32_t sections, uint32_t modules) : sections_(sections), modules_(modules) {}

  void visit(const llvm::pdb::SectionContrib& contribution) override { Check(contribution); }
  void visit(const llvm::pdb::SectionContrib2& contribution) override { Check(contribution.Base); }
  bool sound() const { return sound_; }

 private:
  void Check(const llvm::pdb::SectionContrib& contribution) {
    if (contribution.ISect == 0 || contribution.ISect > sections_ ||
        contribution.Imod >= modules_) {
      sound_ = false;
    }
  }

  uint32_t sections_;
  uint32_t modules_;
  bool sound_ = true;
};

// Section 0 is safe: the reader maps it to address 0 without looking it up.
bool LineTablesAreSound(const llvm::pdb::PDBFile& pdb, const llvm::pdb::DbiModuleDescriptor& module,
                        uint32_t sections) {
  const uint16_t index = module.getModuleStreamIndex();
  if (index == llvm::pdb::kInvalidStreamIndex) return true;
  auto stream = pdb.safelyCreateIndexedStream(index);  // the reader's own look-up is unchecked
  if (!stream) {
    llvm::consumeError(stream.takeError());
    return false;
  }
  llvm::pdb::ModuleDebugStreamRef debug(module, std::move(*stream));
  if (llvm::Error error = debug.reload()) {
    llvm::consumeError(std::move(error));
    return false;
  }
  for (const llvm::codeview::DebugSubsectionRecord& subsection : debug.subsections()) {
    if (subsection.kind() != llvm::codeview::DebugSubsectionKind::Lines) continue;
    llvm::codeview::DebugLinesSubsectionRef lines;
    if (llvm::Error error =
            lines.initialize(llvm::BinaryStreamReader(subsection.getRecordData()))) {
      llvm::consumeError(std::move(error));
      return false;
    }
    if (lines.header()->RelocSegment > sections) return false;
  }
  return true;
}

}  // namespace

bool HasSoundDwarf(const llvm::object::ObjectFile& file) {
  // The reader reports what it cannot read through these; the answer below says enough.
  auto ignore = [](llvm::Error error) { llvm::consumeError(std::move(error)); };
  std::unique_ptr<llvm::DWARFContext> dwarf = llvm::DWARFContext::create(
      file, llvm::DWARFContext::ProcessDebugRelocations::Process, nullptr, "", ignore, ignore);
  for (const auto& unit : dwarf->compile_units()) {
    if (!unit->getUnitDIE()) return false;
  }
  return true;
}

bool HasSoundSectionNumbers(llvm::pdb::NativeSession& session) {
  llvm::pdb::PDBFile& pdb = session.getPDBFile();
  auto dbi = pdb.getPDBDbiStream();
  if (!dbi) {
    llvm::consumeError(dbi.takeError());
    return false;
  }
  const uint32_t sections = dbi->getSectionHeaders().size();
  const llvm::pdb::DbiModuleList& modules = dbi->modules();
  ContributionCheck contributions(sections, modules.getModuleCount());
  dbi->visitSectionContributions(contributions);
  if (!contributions.sound()) return false;
  for (uint32_t i = 0; i < modules.getModuleCount(); ++i) {
    if (!LineTablesAreSound(pdb, modules.getModuleDescriptor(i), sections)) return false;
  }
  return true;
}
