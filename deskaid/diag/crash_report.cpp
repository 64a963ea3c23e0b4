#include "deskaid/diag/internal/crash_report.h"

#include <chrono>
#include <cstdio>

#include "deskaid/diag/internal/log_writer_lock.h"
#include "deskaid/diag/internal/module_identity.h"
#include "deskaid/diag/log_writer.h"

namespace deskaid {
namespace {

// The most modules one crash names: more distinct modules than this leave the rest unreferenced.
constexpr size_t kMaxCrashModules = 16;

// The modules of one crash and, for each address, which of them holds it. Static: a crash is
// reported once, under the log's lock, and the handler's stack is better kept for the walk.
struct CrashModules {
  ModuleIdentity modules[kMaxCrashModules];
  size_t count = 0;

  // The module holding `address`, described in the log the first time; null when none holds it.
  const ModuleIdentity* Find(uint64_t address) {
    for (size_t i = 0; i < count; ++i)
      if (address - modules[i].base < modules[i].size) return &modules[i];
    if (count == kMaxCrashModules || !IdentifyLoadedModule(address, modules[count])) return nullptr;
    static char record[1024];
    FormatModuleRecord(modules[count], record, sizeof record);
    g_LogWriter.WriteFormat(LOG_LEVEL_1, 0, "%s", record);
    return &modules[count++];
  }

  // " <module+0xOFFSET>" for `address`, or the empty text.
  const char* Reference(uint64_t address) {
    static char reference[kMaxPath + 32];
    reference[0] = '\0';
    if (const ModuleIdentity* module = Find(address))
      FormatModuleReference(module->name, address - module->base, reference, sizeof reference);
    return reference;
  }
};

CrashModules g_crashModules;

}  // namespace

void LogCrash(const char* name, uint32_t code, uint64_t address, const StackFrameEntry* frames,
              size_t count, char* logPath, size_t logPathSize) {
  if (logPathSize > 0) logPath[0] = '\0';
  LogWriterTryLock lock(g_LogWriter, std::chrono::seconds(1));
  if (!lock.OwnsLock() || !g_LogWriter.IsOpen()) return;
  std::snprintf(logPath, logPathSize, "%s", g_LogWriter.GetPath());
  CrashModules& modules = g_crashModules;
  modules.count = 0;
  // Each module's record goes before the first record that names it.
  const char* reference = modules.Reference(address);
  g_LogWriter.WriteFormat(LOG_LEVEL_1, 0, "Crash: %s (0x%08X) at [%08X]%s", name,
                          static_cast<unsigned>(code), static_cast<unsigned>(address), reference);
  if (count > kMaxCrashFrames) count = kMaxCrashFrames;
  for (size_t i = 0; i < count; ++i) {
    if (frames[i].returnAddress == 0) break;  // the outermost frame returns nowhere
    reference = modules.Reference(frames[i].returnAddress);
    g_LogWriter.WriteFormat(LOG_LEVEL_1, 0, "Crash: frame %u returns to [%08X]%s",
                            static_cast<unsigned>(i),
                            static_cast<unsigned>(frames[i].returnAddress), reference);
  }
}

}  // namespace deskaid
