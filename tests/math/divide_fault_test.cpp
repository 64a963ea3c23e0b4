// Division by zero and radix 0 raise the processor's integer divide fault, as a native division
// does; checked in a child process.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>

#include <deskaid/math/bigint.h>
#include <deskaid/math/modpower.h>

#ifdef _WIN32
#include <windows.h>
#endif

#if defined(__SANITIZE_ADDRESS__)
// Let the fault end the child as it would without the sanitizer, instead of as a report.
extern "C" const char* __asan_default_options() { return "handle_sigfpe=0"; }
#endif

namespace {

#ifdef _WIN32
// A faulting child ends with the exception code at once instead of waiting on a crash debugger.
LONG WINAPI ExitWithExceptionCode(EXCEPTION_POINTERS* info) {
  TerminateProcess(GetCurrentProcess(), info->ExceptionRecord->ExceptionCode);
  return EXCEPTION_EXECUTE_HANDLER;
}
[[maybe_unused]] const auto g_previousFilter = SetUnhandledExceptionFilter(ExitWithExceptionCode);

const auto kDivideFault = ::testing::ExitedWithCode(static_cast<int>(0xC0000094u));
#else
const auto kDivideFault = ::testing::KilledBySignal(SIGFPE);
#endif

volatile int64_t g_sink;

TEST(BigIntDivideFaultDeathTest, ZeroDivisorsInEveryFormRadixZeroAndZeroModulus) {
  CBigInt zero, five(5), big("123456789012345678901234567890");
  EXPECT_EXIT(g_sink = static_cast<int64_t>(big / zero), kDivideFault, "");
  EXPECT_EXIT(g_sink = static_cast<int64_t>(big % zero), kDivideFault, "");
  EXPECT_EXIT(g_sink = static_cast<int64_t>(zero / zero), kDivideFault, "");
  EXPECT_EXIT(g_sink = static_cast<int64_t>(five / 0u), kDivideFault, "");
  EXPECT_EXIT(g_sink = static_cast<int64_t>(five % 0), kDivideFault, "");
  EXPECT_EXIT(g_sink = 7 / zero, kDivideFault, "");
  EXPECT_EXIT(g_sink = static_cast<int64_t>(7u % zero), kDivideFault, "");
  EXPECT_EXIT(g_sink = static_cast<int64_t>(int64_t{7}) / zero, kDivideFault, "");
  EXPECT_EXIT(g_sink = INT32_MIN / CBigInt(-1), kDivideFault, "");
  CBigInt null(static_cast<const uint32_t*>(nullptr), 0);
  EXPECT_EXIT(g_sink = static_cast<int64_t>(five / null), kDivideFault, "");
  EXPECT_EXIT(g_sink = five.GetString(0)[0], kDivideFault, "");
  char buffer[8];
  EXPECT_EXIT(five.FormatText(buffer, 8, 0), kDivideFault, "");
  CModPower power;
  CBigInt base(3);
  EXPECT_EXIT(g_sink = static_cast<int64_t>(power.Transform(base, five, zero)), kDivideFault, "");
}

}  // namespace
