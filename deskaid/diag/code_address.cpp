#include "deskaid/diag/code_address.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "deskaid/diag/internal/module_identity.h"
#include "deskaid/diag/log_writer.h"

namespace {

// The modules already described in the log at `logPath`. A module past the table's end is
// described again each time it is named, which costs a record and loses nothing.
struct DescribedModules {
  std::mutex lock;
  char logPath[deskaid::kMaxPath] = {};
  uint64_t bases[64] = {};
  size_t count = 0;

  // True the first time `base` is seen for the log at `path`.
  bool FirstTime(const char* path, uint64_t base) {
    std::lock_guard<std::mutex> guard(lock);
    if (std::strcmp(path, logPath) != 0) {
      std::snprintf(logPath, sizeof logPath, "%s", path);
      count = 0;
    }
    for (size_t i = 0; i < count; ++i)
      if (bases[i] == base) return false;
    if (count < sizeof bases / sizeof bases[0]) bases[count++] = base;
    return true;
  }
};

DescribedModules g_described;

}  // namespace

uint32_t LogCodeAddress(uint8_t levelMask, const char* text, const void* address) {
  const uint64_t at = reinterpret_cast<uintptr_t>(address);
  deskaid::ModuleIdentity module;
  char reference[deskaid::kMaxPath + 32] = "";
  if (deskaid::IdentifyLoadedModule(at, module)) {
    if (g_LogWriter.IsOpen() && g_described.FirstTime(g_LogWriter.GetPath(), module.base)) {
      char record[1024];
      deskaid::FormatModuleRecord(module, record, sizeof record);
      LogPrintf(levelMask, "%s", record);
    }
    deskaid::FormatModuleReference(module.name, at - module.base, reference, sizeof reference);
  }
  return LogPrintf(levelMask, "%s [%08X]%s", text != nullptr ? text : "",
                   static_cast<unsigned>(at), reference);
}
