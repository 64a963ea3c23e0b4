// Functions whose names, lines and call chain the tests know, to resolve addresses against.
#pragma once

#include <deskaid/diag/symbol_engine.h>

extern "C" int ExportProbeTarget(int value);
constexpr const char* kProbeName = "ExportProbeTarget";
extern const int kProbeLine;  // the source line of ExportProbeTarget's body

inline uint64_t ProbeAddress() { return reinterpret_cast<uintptr_t>(&ExportProbeTarget); }

// Walks from WalkChainInner (via Middle and Outer), skipping 0, 2 and -5 frames.
struct WalkResults {
  std::vector<StackFrameEntry> skip0, skip2, skipNegative;
};
WalkResults WalkThroughKnownChain(CSymbolEngine& engine);

#ifndef _WIN32
// A walk from ContextChainInner's own registers, reached through ContextChainOuter.
std::vector<StackFrameEntry> WalkFromOwnContext(CSymbolEngine& engine);
#endif
