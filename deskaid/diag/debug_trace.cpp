#include "deskaid/diag/debug_trace.h"

#include <cstdarg>
#include <cstdio>

#include "deskaid/common/internal/platform.h"

namespace {
DebugTraceSink g_sink = nullptr;
void* g_sinkContext = nullptr;
}  // namespace

void DebugTrace(const char* format, ...) {
  char line[512];
  va_list args;
  va_start(args, format);
  // vsnprintf always terminates: a longer text is cut at 511 bytes, less a character split there.
  const int n = std::vsnprintf(line, sizeof line, format, args);
  if (n < 0)
    line[0] = '\0';
  else if (static_cast<size_t>(n) >= sizeof line)
    deskaid::platform::EndOnWholeCharacter(line, sizeof line - 1);
  va_end(args);
  deskaid::platform::DebuggerOutput(line);
  if (g_sink != nullptr) g_sink(line, g_sinkContext);
}

void SetDebugTraceSink(DebugTraceSink sink, void* context) {
  g_sink = sink;
  g_sinkContext = context;
}
