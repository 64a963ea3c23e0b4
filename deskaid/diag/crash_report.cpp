#include "deskaid/diag/internal/crash_report.h"

#include <chrono>
#include <new>

#include "deskaid/diag/internal/crash_annotations.h"
#include "deskaid/diag/internal/fixed_text.h"
#include "deskaid/diag/internal/log_writer_lock.h"
#include "deskaid/diag/internal/module_identity.h"
#include "deskaid/diag/log_writer.h"

namespace deskaid {
namespace {

// The most modules one crash names: more distinct modules than this leave the rest unreferenced.
constexpr size_t kMaxCrashModules = 16;

// A record of a crash is formatted in here; nothing on the crash path allocates. Static: a crash
// is reported once, and the handler's stack is better kept for the walk.
char g_record[1024];

void WriteRecord(const FixedText& text) {
  g_LogWriter.Write(LOG_LEVEL_1, text.Text(), static_cast<uint32_t>(text.Length()),
                    kLogRecordKind);
}

// The modules of one crash, each described in the log before the first record that names it.
struct CrashModules {
  ModuleIdentity modules[kMaxCrashModules];
  size_t count = 0;

  // The module holding `address`; null when none does.
  const ModuleIdentity* Find(uint64_t address) {
    for (size_t i = 0; i < count; ++i)
      if (address - modules[i].base < modules[i].size) return &modules[i];
    if (count == kMaxCrashModules || !IdentifyLoadedModule(address, modules[count])) return nullptr;
    const size_t length = FormatModuleRecord(modules[count], g_record, sizeof g_record);
    g_LogWriter.Write(LOG_LEVEL_1, g_record, static_cast<uint32_t>(length), kLogRecordKind);
    return &modules[count++];
  }

  // "[XXXXXXXX] <module+0xOFFSET>" for `address` (without the reference outside every module).
  void AddAddress(FixedText& text, uint64_t address) {
    static char reference[kMaxPath + 32];
    reference[0] = '\0';
    if (const ModuleIdentity* module = Find(address))
      FormatModuleReference(module->name, address - module->base, reference, sizeof reference);
    text.Add('[').Hex(address & 0xFFFFFFFFu, 8).Add(']').Add(reference);
  }
};

CrashModules g_crashModules;

// The log's lock, once a crash report has it, is held until the process ends: records that other
// threads write after the crash must not rotate the crash's records out of the log. The report's
// own records do not rotate it either: a rotation takes the heap.
alignas(LogWriterTryLock) unsigned char g_heldLock[sizeof(LogWriterTryLock)];

void WriteAnnotation(const char* key, const char* value, void*) {
  FixedText record(g_record, sizeof g_record);
  record.Add("Annotation: ").Add(key).Add('=').Add(value);
  WriteRecord(record);
}

}  // namespace

void SetCrashAnnotationsFromOptions(const CrashHandlerOptions& options) {
  if (options.szProduct[0] != '\0') SetCrashAnnotation("product", options.szProduct);
  if (options.szVersion[0] != '\0') SetCrashAnnotation("version", options.szVersion);
}

void LogCrash(const char* name, uint32_t code, uint64_t address, const StackFrameEntry* frames,
              size_t count, char* logPath, size_t logPathSize) {
  if (logPathSize > 0) logPath[0] = '\0';
  LogWriterTryLock* lock =
      new (g_heldLock) LogWriterTryLock(g_LogWriter, std::chrono::seconds(1));  // never released
  if (!lock->OwnsLock() || !g_LogWriter.IsOpen()) return;
  lock->DeferRotation();
  if (logPathSize > 0) FixedText(logPath, logPathSize).Add(g_LogWriter.GetPath());
  CrashModules& modules = g_crashModules;
  modules.count = 0;
  // The module records go out while the address is placed, before the record that holds it.
  static char placed[kMaxPath + 64];
  FixedText at(placed, sizeof placed);
  modules.AddAddress(at, address);
  FixedText record(g_record, sizeof g_record);
  record.Add("Crash: ").Add(name).Add(" (0x").Hex(code, 8).Add(") at ").Add(placed);
  WriteRecord(record);
  if (count > kMaxCrashFrames) count = kMaxCrashFrames;
  for (size_t i = 0; i < count; ++i) {
    if (frames[i].returnAddress == 0) break;  // the outermost frame returns nowhere
    FixedText returns(placed, sizeof placed);
    modules.AddAddress(returns, frames[i].returnAddress);
    FixedText frame(g_record, sizeof g_record);
    frame.Add("Crash: frame ").Decimal(i).Add(" returns to ").Add(placed);
    WriteRecord(frame);
  }
  VisitCrashAnnotations(WriteAnnotation, nullptr);
}

}  // namespace deskaid
