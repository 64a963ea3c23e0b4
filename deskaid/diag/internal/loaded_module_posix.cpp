// Loaded modules through the dynamic linker's list: each module's segments give its span, and
// its note segment, mapped with it, the build id.
#include <link.h>

#include "deskaid/common/internal/platform.h"
#include "deskaid/diag/internal/fixed_text.h"
#include "deskaid/diag/internal/module_identity.h"

namespace deskaid {
namespace {

struct Search {
  uint64_t address;
  ModuleIdentity* identity;
  bool found;
};

int Visit(dl_phdr_info* info, size_t, void* data) {
  Search* search = static_cast<Search*>(data);
  uint64_t low = UINT64_MAX, high = 0;
  bool holds = false;
  for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& segment = info->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD) continue;
    const uint64_t start = info->dlpi_addr + segment.p_vaddr;
    if (search->address >= start && search->address - start < segment.p_memsz) holds = true;
    if (start < low) low = start;
    if (start + segment.p_memsz > high) high = start + segment.p_memsz;
  }
  if (!holds) return 0;
  ModuleIdentity& identity = *search->identity;
  identity = ModuleIdentity();
  identity.base = low & ~uint64_t{4095};
  identity.size = high - identity.base;
  // The ELF header is mapped at the start of the first segment; the identity is read from it.
  MappedSpan span{identity.base, identity.size};
  ReadImageIdentity(ReadMappedSpan, &span, true, identity);
  const char* path = info->dlpi_name;
  if (path == nullptr || path[0] == '\0') {
    platform::ExecutablePath(identity.path, sizeof identity.path);
  } else {
    FixedText(identity.path, sizeof identity.path).Add(path);  // no stdio: a signal handler asks
  }
  SetNameFromPath(identity);
  search->found = true;
  return 1;
}

}  // namespace

bool IdentifyLoadedModule(uint64_t address, ModuleIdentity& identity) {
  Search search{address, &identity, false};
  dl_iterate_phdr(Visit, &search);
  return search.found;
}

}  // namespace deskaid
