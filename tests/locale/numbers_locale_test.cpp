// Numbers the system writes and reads under a German locale, with the Qt application object
// alive (it sets the C locale from the environment, as the application does at start-up).

#include "netcheck/diagnostics.h"
#include "platform/defaults_store.h"
#include "settings/launch_plan.h"
#include "support/temp_home.h"

#include <QCoreApplication>
#include <clocale>
#include <cstdlib>
#include <gtest/gtest.h>

using namespace velmora;

TEST(NumbersUnderAGermanLocale, PlanSettingsAndReportsKeepTheDecimalPoint) {
    ::setenv("LC_ALL", "de_DE.UTF-8", 1);
    int argc = 1;
    char name[] = "locale_tests";
    char* argv[] = {name, nullptr};
    QCoreApplication app(argc, argv);
    if (std::string(std::localeconv()->decimal_point) != ",")
        GTEST_SKIP() << "the de_DE.UTF-8 locale is not installed (scripts/setup.sh makes it)";

    ServerSettings settings;
    settings.scale = 0.75;
    EXPECT_EQ(buildLaunchPlan({}, settings).environment.at("MAC_SHADOW_SCALE"), "0.75");

    test::TempHome home;
    platform::DefaultsStore store(home.path() + "/defaults.json");
    ASSERT_TRUE(store.set("scale", 0.5));
    EXPECT_NE(test::readFile(home.path() + "/defaults.json").find("0.5"), std::string::npos);
    test::writeFile(home.path() + "/defaults.json", R"({"scale": 0.25, "text": " 1.5x"})");
    EXPECT_EQ(store.real("scale"), 0.25);
    EXPECT_EQ(store.real("text"), 1.5);

    std::string report = Diagnostics::build("1.0", "Linux", "", settings, false, {}, {}, "");
    EXPECT_NE(report.find("scale 0.75"), std::string::npos) << report;
}
