// The debug trace of a finished line, for code that may not format with the C library: a signal
// handler builds its line itself (diag/internal/fixed_text.h) and hands it over here.
#pragma once

namespace deskaid {

// What DebugTrace does with its formatted line: the debugger output, then the sink.
void DebugTraceText(const char* line);

}  // namespace deskaid
