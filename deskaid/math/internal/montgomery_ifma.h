// Montgomery products on 52-bit digits held in 512-bit vectors, for x86-64 processors with the
// 52-bit multiply-add instructions (AVX-512 IFMA). Eight digits of an operand share a register,
// and one instruction multiplies all of them by a digit of the other operand, so a product of
// 2,048-bit numbers takes 40 steps of a few vector instructions instead of 32 rows of 32
// multiplications. MontgomeryField uses them where they are available; the arithmetic is exact
// and its results are the same numbers as the limb rows give.
#pragma once

#include <cstddef>
#include <cstdint>

namespace deskaid {
namespace ifma {

// Whether this build has the digit products and this processor and system run them: AVX-512F and
// IFMA, with the system saving the 512-bit registers.
bool Available();

// The digits of an element for a modulus of `limbs` 64-bit limbs: enough for four times the
// modulus, which keeps every product below twice the modulus without a final subtraction.
size_t DigitsFor(size_t limbs);
// The 64-bit words that hold `digits` digits, a whole number of vectors; 0 when the kernels do
// not reach that size.
size_t WordsFor(size_t digits);

// r = a * b / 2^(52 * digits) modulo m, as a number below 2m when a and b are below 2m and 4m is
// below 2^(52 * digits). All operands are `words` words of digits below 2^52 (zero above
// `digits`); k0 = -m^-1 modulo 2^52. r may alias a or b.
using Product = void (*)(uint64_t* r, const uint64_t* a, const uint64_t* b, const uint64_t* m,
                         uint64_t k0, size_t digits);
// The product kernel for elements of `words` words (from WordsFor).
Product ProductFor(size_t words);

// Between 64-bit limbs and 52-bit digits; the digits fill `words` words, zero above the value.
void ToDigits(const uint64_t* limbs, size_t n, uint64_t* digits, size_t words);
// The value must fit in n limbs.
void FromDigits(const uint64_t* digits, size_t words, uint64_t* limbs, size_t n);

}  // namespace ifma
}  // namespace deskaid
