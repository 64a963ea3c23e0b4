#include "deskaid/diag/internal/frame_walk_posix.h"

#include "deskaid/diag/internal/own_memory.h"

namespace deskaid {
namespace {

bool ReadWord(uint64_t address, uint64_t& value) {
  uintptr_t word = 0;
  if (!ReadOwnMemory(address, &word, sizeof word)) return false;
  value = word;
  return true;
}

}  // namespace

_Unwind_Reason_Code UnwoundFrames::Collect(struct _Unwind_Context* unwind, void* frames) {
  UnwoundFrames& self = *static_cast<UnwoundFrames*>(frames);
  const uint64_t pc = static_cast<uint64_t>(_Unwind_GetIP(unwind));
  if (self.m_hasPending && !self.Hand(pc)) return _URC_END_OF_STACK;
  self.m_pending = StackFrameEntry{pc, 0, static_cast<uint64_t>(_Unwind_GetCFA(unwind))};
  self.m_hasPending = true;
  return _URC_NO_REASON;
}

void UnwoundFrames::Finish() {
  if (m_hasPending) Hand(0);
}

bool UnwoundFrames::Hand(uint64_t returnAddress) {
  m_hasPending = false;
  if (m_stopped) return false;
  m_pending.returnAddress = returnAddress;
  m_stopped = !m_visit(m_pending, m_context);
  return !m_stopped;
}

void WalkFramePointers(const SymContext& context, FrameVisitor visit, void* visitContext) {
  uint64_t pc = context.pc;
  uint64_t frame = context.framePointer;
  while (pc != 0) {
    uint64_t callerFrame = 0, returnAddress = 0;
    const bool linked = frame != 0 && ReadWord(frame, callerFrame) &&
                        ReadWord(frame + sizeof(uintptr_t), returnAddress);
    if (!visit(StackFrameEntry{pc, linked ? returnAddress : 0, frame}, visitContext)) return;
    if (!linked || callerFrame <= frame) return;
    pc = returnAddress;
    frame = callerFrame;
  }
}

}  // namespace deskaid
