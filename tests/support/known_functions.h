// Functions of the test executable whose names, lines and call chain the tests know, so that
// addresses inside this very program can be resolved and checked.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <deskaid/diag/symbol_engine.h>

extern "C" int ExportProbeTarget(int value);

constexpr const char* kProbeName = "ExportProbeTarget";
extern const int kProbeLine;  // the source line of ExportProbeTarget's body

inline uint64_t ProbeAddress() {
  return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(&ExportProbeTarget));
}

// Full path of the running test executable.
std::string OwnExecutablePath();

// Three walks made from WalkChainInner, called by WalkChainMiddle, called by WalkChainOuter.
struct WalkResults {
  std::vector<StackFrameEntry> skip0;
  std::vector<StackFrameEntry> skip2;
  std::vector<StackFrameEntry> skipNegative;
};
WalkResults WalkThroughKnownChain(CSymbolEngine& engine);

#ifndef _WIN32
// A walk from registers given by the caller: ContextChainInner's own frame, reached through
// ContextChainOuter. These functions keep frame pointers.
std::vector<StackFrameEntry> WalkFromOwnContext(CSymbolEngine& engine);
#endif
