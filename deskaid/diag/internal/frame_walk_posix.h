// The stack walks behind CSymbolEngine::StackWalk on POSIX systems, frame by frame and without the
// heap, so that a signal handler can walk too.
#pragma once

#include <unwind.h>

#include "deskaid/diag/symbol_engine.h"

namespace deskaid {

// Takes one walked frame; returns false to end the walk.
using FrameVisitor = bool (*)(const StackFrameEntry& frame, void* context);

// Gives the frames the compiler's unwinder finds to a visitor, each with the return address its
// caller's frame gives it (0 for the outermost). Use as
//   UnwoundFrames frames(visit, context);
//   _Unwind_Backtrace(UnwoundFrames::Collect, &frames);
//   frames.Finish();
// from the function whose frame should come first.
class UnwoundFrames {
 public:
  UnwoundFrames(FrameVisitor visit, void* context) : m_visit(visit), m_context(context) {}

  static _Unwind_Reason_Code Collect(struct _Unwind_Context* unwind, void* frames);
  // Hands over the outermost frame.
  void Finish();

 private:
  // A frame is handed over once its caller's program counter, its return address, is known.
  bool Hand(uint64_t returnAddress);

  FrameVisitor m_visit;
  void* m_context;
  StackFrameEntry m_pending{};
  bool m_hasPending = false;
  bool m_stopped = false;
};

// Follows the frame-pointer chain from the registers of `context`: each frame holds its caller's
// frame pointer and, above it, the return address. Memory is read without faulting.
void WalkFramePointers(const SymContext& context, FrameVisitor visit, void* visitContext);

}  // namespace deskaid
