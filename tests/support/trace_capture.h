// Collects every DebugTrace line while alive.
#pragma once

#include <string>
#include <vector>

#include <deskaid/diag/debug_trace.h>

struct TraceCapture {
  TraceCapture() {
    SetDebugTraceSink([](const char* line,
                         void* self) { static_cast<TraceCapture*>(self)->lines.push_back(line); },
                      this);
  }
  ~TraceCapture() { SetDebugTraceSink(nullptr, nullptr); }
  TraceCapture(const TraceCapture&) = delete;

  std::vector<std::string> lines;
};
