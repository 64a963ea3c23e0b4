// What the processor offers to the module's vector and wide-multiply code, found out once with
// cpuid (and, for the vector registers, whether the system saves them on a switch). Every kernel
// that dispatches on the processor asks here, so there is one detector for the whole module.
#pragma once

namespace deskaid {

struct CpuFeatures {
  bool sse2 = false;
  bool ssse3 = false;       // with SSE2
  bool avx2 = false;        // with the system saving the 256-bit registers
  bool bmi2Adx = false;     // mulx, and the two carry chains of adcx and adox
  bool avx512Ifma = false;  // AVX-512F and IFMA, with the system saving the 512-bit registers
};

// The features of this processor. Detected on the first call, safely from any thread (a function-
// local constant), and the same ever after. All false where the module has no x86 code.
const CpuFeatures& Cpu();

}  // namespace deskaid
