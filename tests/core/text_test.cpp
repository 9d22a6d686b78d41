#include "core/text.h"

#include <gtest/gtest.h>

// Numbers typed into the defaults as text; the German locale's reading is in tests/locale.
TEST(LeadingNumber, ReadsPlainDecimalsOnlyAndRoundsCorrectly) {
    const std::pair<const char*, double> cases[] = {
        {" \t12abc", 12}, {"-.5e1x", -5}, {"+7.", 7}, {"1E-2", 0.01}, {"2.5e+", 2.5}, {"3e", 3}, {"1,5", 1},
        // A digit-by-digit reader is off by an ulp here.
        {"123456789012345678901234567890", 123456789012345678901234567890.0}, {"0.1", 0.1},
        {"", 0}, {".", 0}, {"-", 0}, {"+-1", 0}, {"e5", 0}, {"0x1A", 0}, {"inf", 0}, {"-nan", 0},
        {"1e400", 0}, {"-1e400", 0}, {"1e-400", 0}, {"1e-310", 0}};
    for (const auto& [text, number] : cases) EXPECT_EQ(velmora::text::leadingNumber(text), number) << text;
}
