// The null state left by a failed allocation, made to happen through the allocation hook.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

#include <deskaid/math/bigint.h>
#include <deskaid/math/internal/bigint_alloc.h>

namespace {

class BigIntNull : public ::testing::Test {
 protected:
  void TearDown() override { deskaid::SetBigIntAllocationFailure(0); }
};

TEST_F(BigIntNull, TestsAndComparisonsOfANullValue) {
  const CBigInt n(static_cast<const uint32_t*>(nullptr), 0), five(5);
  EXPECT_TRUE(n.IsZero() && !n.IsNonZero() && !n.IsNegative());
  // A null left operand equals anything, and orders as zero.
  EXPECT_TRUE(n == five && !(five == n) && !(n < five) && !(n > five) && n > CBigInt(-1));
  EXPECT_EQ(static_cast<int64_t>(n), 0);
  EXPECT_STREQ((n % five).GetString(), "");  // a null dividend divides as zero
  EXPECT_TRUE((5u % n).IsNull());
  // A word count whose byte size does not fit in 32 bits is refused, not wrapped.
  CBigInt big(1);
  big.Resize(0x40000000, false);
  EXPECT_TRUE(big.IsNull());
  // Numbers moved from, by construction or by assignment, are null: their storage went along.
  CBigInt from(5), to(7), taken(std::move(from));
  to = std::move(taken);
  EXPECT_TRUE(from.IsNull() && taken.IsNull() && to == five);
}

// Each allocation of a computation fails in turn: a null step must carry through every later
// operation, on either side, so the result is null, or else the right value.
TEST_F(BigIntNull, EveryFailingAllocationInAComputationEndsInNullOrTheRightValue) {
  const CBigInt a("123456789012345678901234567890123456789");
  const CBigInt b = -CBigInt("98765432109876543210987654321");
  const std::function<CBigInt()> computations[] = {
      [&] { return a * b + a; },
      [&] { return a + (a << 70) - b * b; },
      [&] { return a / b; },
      [&] { return a % b; },
      [&] { return ~(a ^ b) >> 3; },
      [&] { return (-(a & b) | a * 3u) * -3 + (a * b & 1u); },  // a * b is odd
      [&] {
        CBigInt x = a - b;
        ++x;
        --x;
        return b - x;
      },
      [&] {
        CBigInt x;
        x.Parse("1234567890123456789012345678901234567890", 10);
        return x;
      },
      [] { return CBigInt(5) - CBigInt(int64_t{1} << 40); },
  };
  for (const auto& compute : computations) {
    const std::string want = compute().GetString(16);
    int nulls = 0;
    for (int nth = 1; nth < 200; ++nth) {
      deskaid::SetBigIntAllocationFailure(nth);
      CBigInt got = compute();
      deskaid::SetBigIntAllocationFailure(0);
      nulls += got.IsNull();
      EXPECT_EQ(got.GetString(16), got.IsNull() ? "Null" : want) << "failing allocation " << nth;
    }
    EXPECT_GT(nulls, 0);
  }
}

}  // namespace
