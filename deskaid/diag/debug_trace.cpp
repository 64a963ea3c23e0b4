#include "deskaid/diag/debug_trace.h"

#include <cstdarg>
#include <cstdio>

#include "deskaid/common/internal/platform.h"
#include "deskaid/diag/internal/debug_trace_text.h"

namespace {
DebugTraceSink g_sink = nullptr;
void* g_sinkContext = nullptr;
}  // namespace

void DebugTrace(const char* format, ...) {
  if (format == nullptr) return;
  char line[512];  // a longer text is cut at 511 characters
  va_list args;
  va_start(args, format);
  deskaid::platform::FormatText(line, sizeof line, format, args);
  va_end(args);
  deskaid::DebugTraceText(line);
}

void deskaid::DebugTraceText(const char* line) {
  platform::DebuggerOutput(line);
  if (g_sink != nullptr) g_sink(line, g_sinkContext);
}

void SetDebugTraceSink(DebugTraceSink sink, void* context) {
  g_sink = sink;
  g_sinkContext = context;
}
