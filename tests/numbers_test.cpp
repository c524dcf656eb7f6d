#include <gtest/gtest.h>

#include "base/numbers.h"

namespace arven {

TEST(Numbers, RoundHalfEvenDecidesOnTheExactBinaryValue) {
  EXPECT_EQ(round_half_even(0.125, 2), 0.12);  // exact tie, to even
  EXPECT_EQ(round_half_even(0.375, 2), 0.38);
  EXPECT_EQ(round_half_even(2.675, 2), 2.67);  // held below the tie
  EXPECT_EQ(round_half_even(3.15, 1), 3.1);
  EXPECT_EQ(round_half_even(2.5, 0), 2.0);
  EXPECT_EQ(round_half_even(3.5, 0), 4.0);
  EXPECT_EQ(round_half_even(-2.5, 0), -2.0);
  EXPECT_EQ(round_half_even(-0.125, 2), -0.12);
  EXPECT_EQ(round_half_even(1234.5678, 3), 1234.568);
  EXPECT_EQ(round_half_even(1e300, 3), 1e300);
  EXPECT_EQ(round_half_even(0.3, 0), 0.0);
}

TEST(Numbers, FormatFixedRoundsExactTiesAwayAndNeverPrintsMinusZero) {
  EXPECT_EQ(format_fixed(0.0625, 3), "0.063");
  EXPECT_EQ(format_fixed(-0.0625, 3), "-0.063");
  EXPECT_EQ(format_fixed(2.675, 2), "2.67");
  EXPECT_EQ(format_fixed(0.0004, 3), "0.000");
  EXPECT_EQ(format_fixed(-0.0004, 3), "0.000");
  EXPECT_EQ(format_fixed(-0.0, 3), "0.000");
  EXPECT_EQ(format_fixed(1.9995, 3), "2.000");  // 1.99949999... below the tie
  EXPECT_EQ(format_fixed(9.9996, 3), "10.000");
  EXPECT_EQ(format_fixed(123456.5, 0), "123457");
  EXPECT_EQ(format_fixed(1e20, 3), "100000000000000000000.000");
}

TEST(Numbers, CellTextRoundTripsWithTheLocaleSeparator) {
  for (double x : {0.1, 1.0 / 3, -2.5e-7, 123456789.125, 1e21, 5.0}) {
    EXPECT_EQ(cell_to_number(number_to_cell(x)), x) << number_to_cell(x);
  }
  EXPECT_EQ(number_to_cell(0.1), "0.1");
  EXPECT_EQ(number_to_cell(-3.0), "-3");
  set_decimal_separator(",");
  EXPECT_EQ(number_to_cell(2.5), "2,5");
  EXPECT_EQ(cell_to_number("2,5"), 2.5);
  EXPECT_EQ(format_fixed_cell(0.0625, 3), "0,063");
  set_decimal_separator(".");
  EXPECT_EQ(cell_to_number(""), 0);
  EXPECT_EQ(cell_to_number("  7 "), 7);
  EXPECT_FALSE(parse_number("abc"));
  EXPECT_FALSE(parse_number("1.2.3"));
  EXPECT_FALSE(parse_number("inf"));
  EXPECT_FALSE(parse_number(""));
  EXPECT_THROW(cell_to_number("Multi"), NumberError);
}

TEST(Numbers, DisplayTextGroupsThousandsAndPutsTheSignBeforeTheCurrency) {
  set_decimal_separator(".");
  EXPECT_EQ(format_display(-488578391, 0), "-488,578,391");
  EXPECT_EQ(format_display(32.268022495309246, 3), "32.268");
  EXPECT_EQ(format_display(-315.00000057200504, 0), "-315");
  EXPECT_EQ(format_display(999.9996, 3), "1,000.000");
  EXPECT_EQ(format_display(100000, 0), "100,000");
  EXPECT_EQ(format_display(-0.0004, 3), "0.000");
  EXPECT_EQ(format_money(-5559857, 0), "-€5,559,857");
  EXPECT_EQ(format_money(-0.056, 3), "-€0.056");
  EXPECT_EQ(format_money(12, 0), "€12");
  set_decimal_separator(",");
  EXPECT_EQ(format_display(1234567.25, 2), "1.234.567,25");
  set_decimal_separator(".");
}

}  // namespace arven
