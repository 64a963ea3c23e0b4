#include "support/known_functions.h"

#define PROBE_NOINLINE __attribute__((noinline))

const int kProbeLine = __LINE__ + 1;
extern "C" PROBE_NOINLINE int ExportProbeTarget(int value) { return value * 3 + 1; }

#ifdef _WIN32
#define PROBE_THREAD GetCurrentThread()
#else
#define PROBE_THREAD nullptr
#endif

static volatile int g_depth = 0;  // work after each call keeps the calls from becoming jumps

extern "C" PROBE_NOINLINE void WalkChainInner(CSymbolEngine* engine, WalkResults* out) {
  engine->StackWalk(out->skip0, 0, PROBE_THREAD, nullptr);
  engine->StackWalk(out->skip2, 2, PROBE_THREAD, nullptr);
  engine->StackWalk(out->skipNegative, -5, PROBE_THREAD, nullptr);
  g_depth = g_depth + 1;
}

extern "C" PROBE_NOINLINE void WalkChainMiddle(CSymbolEngine* engine, WalkResults* out) {
  WalkChainInner(engine, out);
  g_depth = g_depth + 1;
}

extern "C" PROBE_NOINLINE void WalkChainOuter(CSymbolEngine* engine, WalkResults* out) {
  WalkChainMiddle(engine, out);
  g_depth = g_depth + 1;
}

WalkResults WalkThroughKnownChain(CSymbolEngine& engine) {
  WalkResults results;
  WalkChainOuter(&engine, &results);
  return results;
}

#ifndef _WIN32
extern "C" PROBE_NOINLINE void ContextChainInner(CSymbolEngine* engine,
                                                 std::vector<StackFrameEntry>* frames) {
  SymContext context{reinterpret_cast<uintptr_t>(&ContextChainInner),
                     reinterpret_cast<uintptr_t>(__builtin_frame_address(0)), 0};
  engine->StackWalk(*frames, 0, nullptr, &context);
  g_depth = g_depth + 1;
}

extern "C" PROBE_NOINLINE void ContextChainOuter(CSymbolEngine* engine,
                                                 std::vector<StackFrameEntry>* frames) {
  ContextChainInner(engine, frames);
  g_depth = g_depth + 1;
}

std::vector<StackFrameEntry> WalkFromOwnContext(CSymbolEngine& engine) {
  std::vector<StackFrameEntry> frames;
  ContextChainOuter(&engine, &frames);
  return frames;
}
#endif
