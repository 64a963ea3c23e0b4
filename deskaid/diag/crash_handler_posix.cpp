#include "deskaid/diag/crash_handler.h"

#include <signal.h>
#include <ucontext.h>
#include <unistd.h>
#include <unwind.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "deskaid/diag/internal/crash_report.h"
#include "deskaid/diag/internal/debug_trace_text.h"
#include "deskaid/diag/internal/fixed_text.h"
#include "deskaid/diag/internal/frame_walk_posix.h"

namespace {

constexpr int kSignals[] = {SIGSEGV, SIGFPE, SIGILL, SIGBUS, SIGABRT};
constexpr size_t kSignalCount = sizeof kSignals / sizeof kSignals[0];
// Room for the handler on an alternate stack: the stack walk and the log's writing.
constexpr size_t kAlternateStackSize = 256 * 1024;
// The frames the handler walks: its own and the signal frame before the failing one, then as many
// as a crash report holds.
constexpr size_t kMaxWalkedFrames = deskaid::kMaxCrashFrames + 64;

struct Installed {
  bool active = false;
  CrashHandlerOptions options;
  struct sigaction previous[kSignalCount];
  stack_t previousStack;
  void* stack = nullptr;
};

Installed g_installed;

// Set by the first failing thread: its report is written whole, and the others wait for it.
std::atomic<bool> g_reporting{false};

// The handler's frames, reserved beforehand: the heap may be damaged, or its lock held by the
// thread that failed.
struct WalkedFrames {
  StackFrameEntry entries[kMaxWalkedFrames];
  size_t count = 0;
};
WalkedFrames g_walked;

// Keeps what CSymbolEngine::StackWalk keeps: frames with a program counter that is not their own
// return address.
bool KeepWalkedFrame(const StackFrameEntry& frame, void*) {
  if (frame.pc != 0 && frame.pc != frame.returnAddress)
    g_walked.entries[g_walked.count++] = frame;
  return g_walked.count < kMaxWalkedFrames;
}

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

// The unwind tables lead through the signal frame into code built without frame pointers (the C
// library's abort, for one); the frames before the failing one are the handler's own. Where the
// tables do not reach it, the frame-pointer chain from the failing registers is followed.
void WalkFromTheFailure(const SymContext& context) {
  g_walked.count = 0;
  deskaid::UnwoundFrames unwound(KeepWalkedFrame, nullptr);
  _Unwind_Backtrace(deskaid::UnwoundFrames::Collect, &unwound);
  unwound.Finish();
  size_t failing = 0;
  while (failing < g_walked.count && g_walked.entries[failing].pc != context.pc) ++failing;
  if (failing < g_walked.count) {
    std::memmove(g_walked.entries, g_walked.entries + failing,
                 (g_walked.count - failing) * sizeof(StackFrameEntry));
    g_walked.count -= failing;
  } else if (context.pc != 0) {
    g_walked.count = 0;
    deskaid::WalkFramePointers(context, KeepWalkedFrame, nullptr);
  }
}

// What was installed for `signal` before the handler.
const struct sigaction& PreviousAction(int signal) {
  size_t i = 0;
  while (i + 1 < kSignalCount && kSignals[i] != signal) ++i;
  return g_installed.previous[i];
}

// Runs on an alternate stack where the thread has one, with every handled signal blocked: a second
// failure inside it is a blocked synchronous signal, which the system answers by ending the
// process at once. Nothing here allocates or uses stdio: records are formatted into reserved
// memory, and the log's lock is waited for a second at most.
void OnSignal(int signal, siginfo_t* info, void* ucontext) {
  if (g_reporting.exchange(true)) {
    // Another thread is reporting its failure and ends the process when done; ending it first
    // with this signal would cut that report short.
    for (;;) pause();
  }
  char trace[64];
  deskaid::FixedText line(trace, sizeof trace);
  deskaid::DebugTraceText(line.Add("in crash handler: ").Add(SignalName(signal)).Add('\n').Text());
  const SymContext context = ContextOf(ucontext);
  WalkFromTheFailure(context);
  char logPath[deskaid::kMaxPath];
  deskaid::LogCrash(SignalName(signal), static_cast<uint32_t>(signal), context.pc,
                    g_walked.entries, g_walked.count, logPath, sizeof logPath);
  // A handler that was there before ours gets the failure too.
  const struct sigaction& previous = PreviousAction(signal);
  if ((previous.sa_flags & SA_SIGINFO) != 0 && previous.sa_sigaction != nullptr) {
    previous.sa_sigaction(signal, info, ucontext);
  } else if ((previous.sa_flags & SA_SIGINFO) == 0 && previous.sa_handler != SIG_DFL &&
             previous.sa_handler != SIG_IGN) {
    previous.sa_handler(signal);
  }
  // Raised again with the default action, the signal ends the process as it would have without
  // the handler once this returns and unblocks it.
  struct sigaction fallback {};
  fallback.sa_handler = SIG_DFL;
  sigemptyset(&fallback.sa_mask);
  sigaction(signal, &fallback, nullptr);
  raise(signal);
}

// The alternate stack a thread was given by PrepareThreadForCrashHandler, released when the
// thread ends.
struct ThreadStack {
  void* memory = nullptr;
  ~ThreadStack() {
    if (memory == nullptr) return;
    stack_t current{};
    if (sigaltstack(nullptr, &current) == 0 && current.ss_sp == memory) {
      stack_t disable{};
      disable.ss_flags = SS_DISABLE;
      sigaltstack(&disable, nullptr);
    }
    std::free(memory);
  }
};
thread_local ThreadStack t_stack;

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
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
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
  deskaid::SetCrashAnnotationsFromOptions(g_installed.options);
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

bool PrepareThreadForCrashHandler() {
  stack_t current{};
  if (sigaltstack(nullptr, &current) != 0) return false;
  if ((current.ss_flags & SS_DISABLE) == 0) return true;  // it has one already
  void* memory = std::malloc(kAlternateStackSize);
  if (memory == nullptr) return false;
  stack_t stack{};
  stack.ss_sp = memory;
  stack.ss_size = kAlternateStackSize;
  if (sigaltstack(&stack, nullptr) != 0) {
    std::free(memory);
    return false;
  }
  t_stack.memory = memory;
  return true;
}
