// CModPower's edges, sign rules and text forms.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include <deskaid/math/modpower.h>

namespace {

std::string Power(CBigInt base, CBigInt e, CBigInt n) {
  CModPower power;
  return power.Transform(base, e, n).GetString(10);
}

TEST(ModPower, EdgesSignsTextFormsAndSettings) {
  // Base, exponent, modulus and the result's text (0 prints as the empty text).
  const std::tuple<int, int, int, const char*> rows[] = {
      {7, 0, 13, "1"},  {7, 0, 1, ""},    {7, -3, 7, "1"}, {5, 3, -7, "6"},
      {-2, 1, 5, "-2"}, {-2, 3, 5, "-3"}, {-2, 2, 5, "4"}};
  for (auto [base, e, n, text] : rows) EXPECT_EQ(Power(base, e, n), text) << base << '^' << e;
  CModPower power;
  CBigInt base(4);
  EXPECT_EQ(power.TransformText(base, 13, 497), "445");
  EXPECT_STREQ(power.m_Exponent.GetString(), "13");
  EXPECT_STREQ(power.m_Modulus.GetString(), "497");
  // (value ^ exponent) % modulus: (1000 ^ 13) % 497 = 997 % 497.
  EXPECT_EQ(power.MaskText(1000), "3");
  EXPECT_EQ(power.MaskText(-1000, 17, 497), "-21");  // stores 17 first: -1015 % 497
  // PowMod takes the settings made apart; the squared base it writes back is checked against GMP.
  power.SetExponent(5);
  power.SetModulus(7);
  CBigInt three(3), big(100);
  EXPECT_STREQ(power.PowMod(three).GetString(), "5");
  // No squaring at all for an exponent of 1, so the base is left as it was (even unreduced).
  power.SetExponent(1);
  EXPECT_STREQ(power.PowMod(big).GetString(), "2");
  EXPECT_STREQ(big.GetString(), "100");
}

}  // namespace
