#include "deskaid/math/internal/divide_fault.h"

#include <cstdint>

namespace deskaid {

#if defined(__clang__) || defined(__GNUC__)
// The sanitizer must not turn the fault into a report of its own: the fault is the behaviour.
__attribute__((noinline, no_sanitize("undefined")))
#endif
void RaiseDivideFault() {
  volatile int32_t zero = 0;
  volatile int32_t dividend = 0;
  dividend = dividend / zero;
  (void)dividend;
}

}  // namespace deskaid
