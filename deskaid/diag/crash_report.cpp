#include "deskaid/diag/internal/crash_report.h"

#include <chrono>
#include <cstdio>

#include "deskaid/diag/internal/log_writer_lock.h"
#include "deskaid/diag/log_writer.h"

namespace deskaid {

void LogCrash(const char* name, uint32_t code, uint64_t address, const StackFrameEntry* frames,
              size_t count, char* logPath, size_t logPathSize) {
  if (logPathSize > 0) logPath[0] = '\0';
  LogWriterTryLock lock(g_LogWriter, std::chrono::seconds(1));
  if (!lock.OwnsLock() || !g_LogWriter.IsOpen()) return;
  std::snprintf(logPath, logPathSize, "%s", g_LogWriter.GetPath());
  g_LogWriter.WriteFormat(LOG_LEVEL_1, 0, "Crash: %s (0x%08X) at [%08X]", name,
                          static_cast<unsigned>(code), static_cast<unsigned>(address));
  if (count > kMaxCrashFrames) count = kMaxCrashFrames;
  for (size_t i = 0; i < count; ++i) {
    if (frames[i].returnAddress == 0) break;  // the outermost frame returns nowhere
    g_LogWriter.WriteFormat(LOG_LEVEL_1, 0, "Crash: frame %u returns to [%08X]",
                            static_cast<unsigned>(i),
                            static_cast<unsigned>(frames[i].returnAddress));
  }
}

}  // namespace deskaid
