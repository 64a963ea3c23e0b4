// Helpers shared by the CBigInt source files: moving between CBigInt's two's-complement words and
// the unsigned limb magnitudes the fast kernels work on.
#pragma once

#include "deskaid/math/bigint.h"
#include "deskaid/math/internal/limb_kernels.h"

namespace deskaid {

// |x| of a non-null value, trimmed.
limbs::LimbVector MagnitudeOf(const CBigInt& x);
// The words of a non-null value read as an unsigned number (two's complement words, no sign).
limbs::LimbVector UnsignedWordsOf(const CBigInt& x);
// A non-negative CBigInt in normal form holding `mag` (a word 0 on top when the top bit is set);
// the null state if the allocation fails.
CBigInt FromMagnitude(const limbs::LimbVector& mag);
// The null state.
CBigInt NullBigInt();

}  // namespace deskaid
