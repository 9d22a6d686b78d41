#include "permissions/perm_probe.h"
#include "permissions/perm_repair_plan.h"

#include <gtest/gtest.h>

using namespace velmora;

namespace {
std::optional<PermStatus> status(bool screen, bool input) { return PermStatus{screen, input}; }
}  // namespace

TEST(PermProbe, TheLastLineOfTheExactFormWins) {
    EXPECT_EQ(parsePermProbe("noise\nscreen=1 input=1\n"), status(true, true));
    EXPECT_EQ(parsePermProbe("screen=1 input=0\nscreen=yes input=1\n\n"), status(true, false));
    EXPECT_EQ(parsePermProbe("   screen=0    input=0 "), status(false, false));
    for (const char* rejected : {"", "\n\n", "screen=1\tinput=0", "screen=1 input=0 extra", "input=1 screen=1",
                                 "screen=1x input=0", "screens=1 input=0", "screen= input=1", "screen=1 input=",
                                 "screen=1 input=01", "screen=1", "Screen=1 input=1", "screen=1\xC2\xA0input=1"})
        EXPECT_FALSE(parsePermProbe(rejected)) << rejected;
}

TEST(PermProbe, EveryKindOfLineBreakEndsALine) {
    for (const char* separator : {"\n", "\r", "\r\n", "\v", "\f", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"})
        EXPECT_EQ(parsePermProbe(std::string("junk") + separator + "screen=1 input=0" + separator), status(true, false));
    EXPECT_FALSE(parsePermProbe("screen=1\xC5\x85 input=1"));  // "Ņ" is C5 85: no line break inside a character
}

TEST(PermStatus, RepairPlansResetWhatIsMissingInOrder) {
    EXPECT_EQ(permRepairPlan({false, false}, true), (PermRepairPlan{{"ScreenCapture", "Accessibility"}, true, true}));
}
