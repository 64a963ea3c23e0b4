// What the crash handlers of both platforms share: the log records of a failure.
#pragma once

#include <cstddef>
#include <cstdint>

#include "deskaid/diag/crash_handler.h"
#include "deskaid/diag/symbol_engine.h"

namespace deskaid {

// The most stack frames a crash puts into the log.
constexpr size_t kMaxCrashFrames = 64;

// Writes one record naming the failure, its code and the faulting address, then one record per
// frame (at most kMaxCrashFrames) with the frame's return address, then one per annotation, all
// at level 1 of the global log. Nothing is written when the log is closed, when its lock cannot be had within a second, or
// when the calling thread is itself inside a log operation. Addresses are given as eight hex
// digits, the form the log's address markers take, followed by a module reference; each module
// named gets a record describing it before the first record that names it. `logPath` receives the open log's path, or the
// empty text when nothing was written. Never waits for the log's lock longer than that second;
// once it has the lock, keeps it until the process ends. Uses neither the heap nor stdio.
void LogCrash(const char* name, uint32_t code, uint64_t address, const StackFrameEntry* frames,
              size_t count, char* logPath, size_t logPathSize);

// Sets the options' product and version, where given, as the annotations of those names.
void SetCrashAnnotationsFromOptions(const CrashHandlerOptions& options);

}  // namespace deskaid
