// Loaded modules through the dynamic linker's lists: each module's segments give its span, and
// its note segment, mapped with it, the build id.
//
// A crash report asks from a signal handler, where the linker's own walk of its list
// (dl_iterate_phdr) could wait for ever: it takes the linker's lock, which another thread may
// hold while it waits for the one that failed. So the list is read as a debugger reads it,
// through the structure the linker keeps for debuggers, without the lock. Only where that cannot be
// done (the list is being changed, or a module's headers are not where they should be) does the
// linker's walk answer.
#include <link.h>
#include <sys/auxv.h>

#include <atomic>
#include <cstring>

#include "deskaid/common/internal/platform.h"
#include "deskaid/diag/internal/fixed_text.h"
#include "deskaid/diag/internal/module_identity.h"
#include "deskaid/diag/internal/own_memory.h"

namespace deskaid {
namespace {

// The identity of the module loaded `bias` bytes from its link addresses, with program headers
// `segments`, when one of its segments holds `address`. `path` is the linker's name for it,
// empty for the main program.
bool IdentifyIn(uint64_t address, uint64_t bias, const ElfW(Phdr) * segments, size_t count,
                const char* path, ModuleIdentity& identity) {
  uint64_t low = UINT64_MAX, high = 0;
  bool holds = false;
  for (size_t i = 0; i < count; ++i) {
    const ElfW(Phdr)& segment = segments[i];
    if (segment.p_type != PT_LOAD) continue;
    const uint64_t start = bias + segment.p_vaddr;
    if (address >= start && address - start < segment.p_memsz) holds = true;
    if (start < low) low = start;
    if (start + segment.p_memsz > high) high = start + segment.p_memsz;
  }
  if (!holds) return false;
  identity = ModuleIdentity();
  identity.base = low & ~uint64_t{4095};
  identity.size = high - identity.base;
  // The ELF header is mapped at the start of the first segment; the identity is read from it.
  MappedSpan span{identity.base, identity.size};
  ReadImageIdentity(ReadMappedSpan, &span, true, identity);
  if (path == nullptr || path[0] == '\0') {
    platform::ExecutablePath(identity.path, sizeof identity.path);
  } else {
    FixedText(identity.path, sizeof identity.path).Add(path);  // no stdio: a signal handler asks
  }
  SetNameFromPath(identity);
  return true;
}

struct Search {
  uint64_t address;
  ModuleIdentity* identity;
  bool found;
};

int Visit(dl_phdr_info* info, size_t, void* data) {
  Search* search = static_cast<Search*>(data);
  search->found = IdentifyIn(search->address, info->dlpi_addr, info->dlpi_phdr, info->dlpi_phnum,
                             info->dlpi_name, *search->identity);
  return search->found ? 1 : 0;
}

#if defined(__GLIBC__)
constexpr size_t kMaxSegments = 64;

// Copies `count` program headers from `at` into `segments`; returns the count, 0 when they cannot
// be read.
size_t CopyProgramHeaders(uint64_t at, uint64_t count, ElfW(Phdr) * segments) {
  if (count == 0 || count > kMaxSegments ||
      !ReadOwnMemory(at, segments, static_cast<size_t>(count) * sizeof(ElfW(Phdr)))) {
    return 0;
  }
  return static_cast<size_t>(count);
}

// Copies the program headers of a module on the linker's list into `segments` and returns their
// count; 0 when they cannot be found. The main program's are where the system told the process
// at its start; another module's ELF header is its first mapped byte. Either way the headers must
// place the module's dynamic section where the linker found it.
size_t ProgramHeadersOf(const link_map& module, bool mainProgram, ElfW(Phdr) * segments) {
  size_t count = 0;
  if (mainProgram) {
    count = CopyProgramHeaders(getauxval(AT_PHDR), getauxval(AT_PHNUM), segments);
  } else {
    ElfW(Ehdr) header;
    if (ReadOwnMemory(module.l_addr, &header, sizeof header) &&
        std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 &&
        header.e_phentsize == sizeof(ElfW(Phdr))) {
      count = CopyProgramHeaders(module.l_addr + header.e_phoff, header.e_phnum, segments);
    }
  }
  for (size_t i = 0; i < count; ++i) {
    if (segments[i].p_type == PT_DYNAMIC) {
      const bool placed =
          module.l_addr + segments[i].p_vaddr == reinterpret_cast<uintptr_t>(module.l_ld);
      return placed ? count : 0;
    }
  }
  return 0;
}

// The linker's structure for debuggers, found as a debugger finds it: through the DEBUG entry of
// the main program's dynamic section, which the linker fills in. (The symbol _r_debug is no
// substitute: a program linked at a fixed address holds a copy of it made at the start, which the
// linker never updates.) Null when there is none.
const r_debug* FindDebuggersStructure() {
  ElfW(Phdr) segments[kMaxSegments];
  const uint64_t at = getauxval(AT_PHDR);
  const size_t count = CopyProgramHeaders(at, getauxval(AT_PHNUM), segments);
  uint64_t bias = 0, dynamic = 0;
  bool placed = false;
  for (size_t i = 0; i < count; ++i) {
    if (segments[i].p_type == PT_PHDR) {
      bias = at - segments[i].p_vaddr;
      placed = true;
    }
    if (segments[i].p_type == PT_DYNAMIC) dynamic = segments[i].p_vaddr;
  }
  if (!placed || dynamic == 0) return nullptr;
  for (uint64_t entryAt = bias + dynamic;; entryAt += sizeof(ElfW(Dyn))) {
    ElfW(Dyn) entry;
    if (!ReadOwnMemory(entryAt, &entry, sizeof entry) || entry.d_tag == DT_NULL) return nullptr;
    if (entry.d_tag == DT_DEBUG) {
      return reinterpret_cast<const r_debug*>(static_cast<uintptr_t>(entry.d_un.d_ptr));
    }
  }
}

// The structure is placed once, before the program starts, so it is looked for once.
const r_debug* DebuggersStructure() {
  static std::atomic<const r_debug*> known{nullptr};
  const r_debug* structure = known.load(std::memory_order_relaxed);
  if (structure == nullptr) {
    structure = FindDebuggersStructure();
    known.store(structure, std::memory_order_relaxed);
  }
  return structure;
}

// Looks for `address` on the linker's lists, one per namespace (where the linker's own walk sees
// only its caller's). False when the lists could not be read; then `found` is left alone.
bool SearchDebuggersList(uint64_t address, ModuleIdentity& identity, bool& found) {
  const r_debug* list = DebuggersStructure();
  if (list == nullptr) return false;
  bool mainProgram = true;
  ElfW(Phdr) segments[kMaxSegments];
  while (list != nullptr) {
    if (list->r_state != r_debug::RT_CONSISTENT || list->r_map == nullptr) return false;
    for (const link_map* module = list->r_map; module != nullptr; module = module->l_next) {
      const size_t count = ProgramHeadersOf(*module, mainProgram, segments);
      mainProgram = false;
      if (count == 0) return false;
      if (IdentifyIn(address, module->l_addr, segments, count, module->l_name, identity)) {
        found = true;
        return true;
      }
    }
#if __GLIBC_PREREQ(2, 35)
    // From version 2 on, the list of the base namespace leads to those of the others.
    const r_debug_extended* next =
        list->r_version >= 2 ? reinterpret_cast<const r_debug_extended*>(list)->r_next : nullptr;
    list = next != nullptr ? &next->base : nullptr;
#else
    list = nullptr;
#endif
  }
  found = false;
  return true;
}
#endif

}  // namespace

bool IdentifyLoadedModule(uint64_t address, ModuleIdentity& identity) {
  bool found = false;
#if defined(__GLIBC__)
  if (SearchDebuggersList(address, identity, found)) return found;
#endif
  Search search{address, &identity, false};
  dl_iterate_phdr(Visit, &search);
  return search.found;
}

}  // namespace deskaid
