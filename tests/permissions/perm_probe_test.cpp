#include "permissions/perm_probe.h"
#include "permissions/perm_repair_plan.h"

#include <gtest/gtest.h>

using namespace velmora;

TEST(PermProbe, TheLastLineOfTheExactFormWinsAndEveryKindOfLineBreakEndsALine) {
    EXPECT_EQ(parsePermProbe("noise\nscreen=1 input=1\n"), (PermStatus{true, true}));
    EXPECT_EQ(parsePermProbe("screen=1 input=0\nscreen=yes input=1\n\n"), (PermStatus{true, false}));
    EXPECT_EQ(parsePermProbe("   screen=0    input=0 "), (PermStatus{false, false}));
    for (std::string separator : {"\n", "\r", "\r\n", "\v", "\f", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"})
        EXPECT_EQ(parsePermProbe("junk" + separator + "screen=1 input=0" + separator), (PermStatus{true, false}));
    // The last: "Ņ" is C5 85, which holds no line break.
    for (const char* rejected : {"", "\n\n", "screen=1\tinput=0", "screen=1 input=0 extra", "input=1 screen=1",
                                 "screen=1x input=0", "screens=1 input=0", "screen= input=1", "screen=1 input=",
                                 "screen=1 input=01", "screen=1", "Screen=1 input=1", "screen=1\xC2\xA0input=1",
                                 "screen=1\xC5\x85 input=1"})
        EXPECT_FALSE(parsePermProbe(rejected)) << rejected;
}

TEST(PermStatus, RepairPlansResetWhatIsMissingInOrder) {
    EXPECT_EQ(permRepairPlan({false, false}, true), (PermRepairPlan{{"ScreenCapture", "Accessibility"}, true, true}));
}
