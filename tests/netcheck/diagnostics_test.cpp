#include "core/text.h"
#include "netcheck/diagnostics.h"

#include "platform/words.h"
#include "settings/settings_table.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <tuple>

namespace velmora {
namespace {

using platform::say;
namespace words = platform::words;

TEST(Diagnostics, BuildWritesEveryLineInOrder) {
    // Values other than the defaults, which the diagnostics command's test shows.
    ServerSettings settings;
    std::tie(settings.port, settings.scale, settings.fps, settings.adaptiveFps, settings.maxPixels) =
        std::tuple(3390, 1.0, 60, false, 8294400);
    std::tie(settings.videoEncoder, settings.audio, settings.remoteScreen) = std::tuple(false, false, RemoteScreen::extend);
    settings.nlaLogin = "anna:0123456789abcdef0123456789abcdef";
    std::string report = Diagnostics::build(
        "1.4.2", "Version 14.2 (Build 23C64)", "Mac14,2", settings, true,
        Diagnostics::permissionEntries(true, false), {{"en0", "192.168.1.20"}, {"utun3", "10.8.0.2"}},
        "started\nMAC_SHADOW_NLA=anna:0123456789abcdef0123456789abcdef HOME=/Users/anna\ndone\n");
    // The words that differ by platform come from its column; the macOS one is pinned elsewhere.
    const std::string system = say(words::systemPrefix), ignored = ignoredSettingsLine();
    const std::string ignoredLine = ignored.empty() ? "" : ignored + "\n";
    EXPECT_EQ(report,
              "Velmora 1.4.2\n" + system + "Version 14.2 (Build 23C64), Mac14,2\n"
              "Server: running, port 3390, scale 1.0, max 60 fps (adaptive: off)\n"
              "Max pixels 8294400, encoder: software, audio off, login required: yes, remote screen: extend\n" +
                  ignoredLine + "Windows login (NLA): set, user 'anna'\n"
              "Permission " + say(words::screenPermission) + ": granted\n"
              "Permission " + say(words::inputPermission) + ": missing\n"
              "Addresses: 192.168.1.20 (en0), 10.8.0.2 (utun3)\n"
              "\n"
              "Last log lines:\n"
              "started\n"
              "[removed] HOME=/Users/anna\n"
              "done\n");

    // No dangling comma without a model; no login.
    std::string plain = Diagnostics::build("0", "os", "", ServerSettings{}, false, {}, {}, "");
    EXPECT_NE(plain.find("\n" + system + "os\nServer: stopped, port 3389,"), std::string::npos) << plain;
    EXPECT_NE(plain.find("\nWindows login (NLA): not set\n"), std::string::npos) << plain;
}

TEST(Diagnostics, TailKeepsTheLastLinesWithEmptyOnes) {
    // A trailing line feed is one empty last line.
    EXPECT_EQ(Diagnostics::tail("a\nb\nc\n", 2), "c\n");
    EXPECT_EQ(Diagnostics::tail("a\n\n\nb", 3), "\n\nb");
    EXPECT_EQ(Diagnostics::tail("a\nb", -5), "");
}

TEST(Diagnostics, RedactRemovesTokensLoginEntriesAndHashWords) {
    const std::string hash = "0123456789ABCDEF0123456789abcdef";
    const std::string token = "eyJhbGciOiJIUzI1NiJ9abc.eyJzdWIiOiIxMjM0NTY3ODkwIn0";
    EXPECT_EQ(Diagnostics::redact("Bearer " + token + " end"), "Bearer [removed] end");
    EXPECT_EQ(Diagnostics::redact("MAC_SHADOW_NLA=anna:" + hash + "\tnext"), "[removed]\tnext");
    EXPECT_EQ(Diagnostics::redact("MAC_SHADOW_NLA= empty"), "MAC_SHADOW_NLA= empty");
    // A no-break space ends the entry as any blank does; other non-ASCII text does not.
    EXPECT_EQ(Diagnostics::redact("MAC_SHADOW_NLA=jörg:x\u00a0after"), "[removed]\u00a0after");
    EXPECT_EQ(Diagnostics::redact(hash + "," + hash + "\n(" + hash + ")"), "[removed],[removed]\n([removed])");
    // Inside a longer word it stays: letters, digits, an underscore, or a non-ASCII letter next to it.
    for (const std::string& kept : {"user" + hash, hash + "s", "_" + hash, hash + "0", "\u00e9" + hash,
                                    hash + "\u4e2d", "0" + hash})
        EXPECT_EQ(Diagnostics::redact(kept), kept) << kept;
    // Thirty-one digits are no hash.
    EXPECT_EQ(Diagnostics::redact(hash.substr(1)), hash.substr(1));
    // Invalid UTF-8 is repaired, not dropped.
    EXPECT_EQ(Diagnostics::redact("a\xff " + hash), "a\uFFFD [removed]");
}

TEST(Diagnostics, FileTailReadsTheEndExactlyAsTheWholeFileWouldGive) {
    test::TempHome home;
    const std::string path = home.path() + "/Velmora.log";
    auto expectSameAsWhole = [&](const std::string& contents) {
        test::writeFile(path, contents);
        for (std::int64_t lines : {0, 1, 2, 3, 80, 81, 5000})
            EXPECT_EQ(Diagnostics::fileTail(path, lines), Diagnostics::tail(text::repairedUtf8(contents), lines))
                << "lines " << lines << ", size " << contents.size();
    };
    expectSameAsWhole("");
    expectSameAsWhole("\n");
    std::string numbered;
    for (int i = 1; i <= 100; ++i) numbered += "line " + std::to_string(i) + "\n";
    expectSameAsWhole(numbered);

    // Invalid UTF-8 everywhere, including cut sequences right before line feeds.
    std::string broken;
    for (int i = 0; i < 200; ++i) broken += "caf\xc3\xa9 \xe2\x82\n\xff\xfe bad \xf0\x9f\x98\n\x80";
    expectSameAsWhole(broken);

    // Lines longer than the read chunk, so the search crosses chunk borders.
    std::string longLines;
    for (int i = 0; i < 90; ++i) longLines += std::string(70000 + i * 1000, static_cast<char>('a' + i % 26)) + "\n";
    expectSameAsWhole(longLines);

    // No log, or a folder in its place: an empty excerpt (what the report commands show is tested with them).
    EXPECT_EQ(Diagnostics::fileTail(home.path() + "/none", 80), "");
    EXPECT_EQ(Diagnostics::fileTail(home.path(), 80), "");
}

}  // namespace
}  // namespace velmora
