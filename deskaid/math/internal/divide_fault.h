// The processor's integer divide fault, raised on purpose. Division by zero in the big-integer
// code behaves like a native division by zero: SIGFPE on POSIX systems, the integer-divide
// exception on Windows. The fault comes from a real division the compiler cannot remove.
#pragma once

namespace deskaid {

// Performs a native 0 / 0. Returns only on a processor that does not trap integer division.
void RaiseDivideFault();

}  // namespace deskaid
