#include "deskaid/diag/crash_handler.h"

#include <signal.h>
#include <ucontext.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "deskaid/diag/debug_trace.h"
#include "deskaid/diag/internal/crash_report.h"
#include "deskaid/diag/symbol_engine.h"

namespace {

constexpr int kSignals[] = {SIGSEGV, SIGFPE, SIGILL, SIGBUS, SIGABRT};
constexpr size_t kSignalCount = sizeof kSignals / sizeof kSignals[0];
// Room for the handler on the alternate stack: the stack walk and the log's formatting.
constexpr size_t kAlternateStackSize = 256 * 1024;

struct Installed {
  bool active = false;
  CrashHandlerOptions options;
  struct sigaction previous[kSignalCount];
  stack_t previousStack;
  void* stack = nullptr;
};

Installed g_installed;

const char* SignalName(int signal) {
  switch (signal) {
    case SIGSEGV: return "SIGSEGV";
    case SIGFPE: return "SIGFPE";
    case SIGILL: return "SIGILL";
    case SIGBUS: return "SIGBUS";
    case SIGABRT: return "SIGABRT";
    default: return "signal";
  }
}

SymContext ContextOf(const void* ucontext) {
  SymContext context{0, 0, 0};
  const auto* uc = static_cast<const ucontext_t*>(ucontext);
#if defined(__x86_64__)
  context.pc = static_cast<uint64_t>(uc->uc_mcontext.gregs[REG_RIP]);
  context.framePointer = static_cast<uint64_t>(uc->uc_mcontext.gregs[REG_RBP]);
  context.stackPointer = static_cast<uint64_t>(uc->uc_mcontext.gregs[REG_RSP]);
#elif defined(__i386__)
  context.pc = static_cast<uint32_t>(uc->uc_mcontext.gregs[REG_EIP]);
  context.framePointer = static_cast<uint32_t>(uc->uc_mcontext.gregs[REG_EBP]);
  context.stackPointer = static_cast<uint32_t>(uc->uc_mcontext.gregs[REG_ESP]);
#elif defined(__aarch64__)
  context.pc = uc->uc_mcontext.pc;
  context.framePointer = uc->uc_mcontext.regs[29];
  context.stackPointer = uc->uc_mcontext.sp;
#else
  (void)uc;
#endif
  return context;
}

// Runs on the alternate stack with every handled signal blocked: a second failure inside it is a
// blocked synchronous signal, which the system answers by ending the process at once.
void OnSignal(int signal, siginfo_t*, void* ucontext) {
  DebugTrace("in crash handler: %s\n", SignalName(signal));
  SymContext context = ContextOf(ucontext);
  // The unwind tables lead through the signal frame into code built without frame pointers (the
  // C library's abort, for one); the frames before the failing one are the handler's own. Where
  // the tables do not reach it, the frame-pointer chain from the failing registers is followed.
  // Neither walk needs a symbol session.
  std::vector<StackFrameEntry> frames;
  CSymbolEngine engine;
  engine.StackWalk(frames, 0, nullptr, nullptr);
  size_t failing = 0;
  while (failing < frames.size() && frames[failing].pc != context.pc) ++failing;
  if (failing < frames.size()) {
    frames.erase(frames.begin(), frames.begin() + static_cast<std::ptrdiff_t>(failing));
  } else if (context.pc != 0) {
    engine.StackWalk(frames, 0, nullptr, &context);
  }
  char logPath[deskaid::kMaxPath];
  deskaid::LogCrash(SignalName(signal), static_cast<uint32_t>(signal), context.pc, frames.data(),
                    frames.size(), logPath, sizeof logPath);
  // The handler was reset to the default action on entry: raised again, the signal ends the
  // process as it would have without the handler once this returns and unblocks it.
  raise(signal);
}

}  // namespace

bool InstallCrashHandler(const CrashHandlerOptions* options) {
  if (g_installed.active) return false;
  void* stackMemory = std::malloc(kAlternateStackSize);
  if (stackMemory == nullptr) return false;
  stack_t stack{};
  stack.ss_sp = stackMemory;
  stack.ss_size = kAlternateStackSize;
  if (sigaltstack(&stack, &g_installed.previousStack) != 0) {
    std::free(stackMemory);
    return false;
  }
  struct sigaction action {};
  action.sa_sigaction = OnSignal;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESETHAND;
  sigemptyset(&action.sa_mask);
  for (int signal : kSignals) sigaddset(&action.sa_mask, signal);
  for (size_t i = 0; i < kSignalCount; ++i) {
    if (sigaction(kSignals[i], &action, &g_installed.previous[i]) != 0) {
      while (i-- > 0) sigaction(kSignals[i], &g_installed.previous[i], nullptr);
      sigaltstack(&g_installed.previousStack, nullptr);
      std::free(stackMemory);
      return false;
    }
  }
  g_installed.options = options != nullptr ? *options : CrashHandlerOptions();
  g_installed.stack = stackMemory;
  g_installed.active = true;
  return true;
}

bool RemoveCrashHandler() {
  if (!g_installed.active) return false;
  for (size_t i = 0; i < kSignalCount; ++i)
    sigaction(kSignals[i], &g_installed.previous[i], nullptr);
  // The alternate stack is released only when this thread no longer uses it for ours.
  stack_t current{};
  if (sigaltstack(&g_installed.previousStack, &current) == 0 &&
      current.ss_sp == g_installed.stack) {
    std::free(g_installed.stack);
  }
  g_installed.stack = nullptr;
  g_installed.active = false;
  return true;
}
