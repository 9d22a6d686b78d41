#include "permissions/app_log.h"
#include "platform/paths.h"
#include "support/scoped_env.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

using namespace velmora;

namespace {

std::chrono::system_clock::time_point utc(int hour, int minute, int second, int millis) {
    using namespace std::chrono;
    return sys_days{year{2026} / 11 / 22} + hours{hour} + minutes{minute} + seconds{second} + milliseconds{millis};
}

}  // namespace

TEST(AppLog, LinesCarryALocalTimeStampWithMillisecondsAfterAColon) {
    test::ScopedEnv zone("TZ", "UTC");
    ::tzset();
    EXPECT_EQ(AppLog::line("permission check: screen=1 input=0", utc(9, 5, 7, 4)),
              "[09:05:07:004] [Velmora app] permission check: screen=1 input=0\n");
    EXPECT_EQ(AppLog::timestamp(utc(23, 59, 59, 999)), "23:59:59:999");
    {
        test::ScopedEnv berlin("TZ", "CET-1");
        ::tzset();
        EXPECT_EQ(AppLog::timestamp(utc(23, 0, 0, 0)), "00:00:00:000") << "local time, not UTC";
    }
    ::tzset();
}

TEST(AppLog, AppendsWholeLinesInCallOrderWithoutEscapingLineBreaks) {
    test::TempHome home;
    EXPECT_EQ(AppLog::path(), home.stateHome() + "/velmora/Velmora.log");
    platform::makeDirectories(platform::logDirectory());
    test::writeFile(AppLog::path(), "server output\n");
    AppLog::write("first");
    AppLog::write("two\nlines");
    std::string log = test::readFile(AppLog::path());
    ASSERT_EQ(std::count(log.begin(), log.end(), '\n'), 4) << log;
    EXPECT_EQ(log.rfind("server output\n[", 0), 0u);
    EXPECT_NE(log.find("] [Velmora app] first\n["), std::string::npos);
    EXPECT_NE(log.find("] [Velmora app] two\nlines\n"), std::string::npos) << "the second line has no prefix";
}

TEST(AppLog, AMissingFolderDropsTheLineSilentlyAndIsNotCreated) {
    test::TempHome home;
    AppLog::write("nobody will see this");
    EXPECT_FALSE(test::fileExists(platform::logDirectory()));
}
