// velmora-server's parts that need no X display or RDP client: reading the contract, the probe's
// cause, the client account behind the log lines and statistics, the pointer drawn into frames.

#include "core/server_contract.h"
#include "server-linux/client_book.h"
#include "server-linux/clipboard_text.h"
#include "server-linux/cursor_overlay.h"
#include "server-linux/display_probe.h"
#include "server-linux/secret_environment.h"
#include "server-linux/server_options.h"
#include "server-linux/stats_file.h"
#include "support/temp_home.h"
#include "usage/server_stats.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

using namespace velmora;
using namespace velmora::ServerHelper;
using namespace std::chrono_literals;

TEST(ServerOptions, ReadsTheLaunchPlanAndLeavesOutWhatItCannotUse) {
    const std::vector<std::string> plan = {"/port:3390", "+auth", "/sec:tls", "+sec-nla", "+gfx-avc444",
                                           "/max-connections:2"};
    auto options = parseOptions(plan, {{"MAC_SHADOW_FPS", "5"}, {"MAC_SHADOW_BITRATE_MBPS", "40"},
                                       {"MAC_SHADOW_CURSOR", "1"}, {"MAC_SHADOW_ADAPTIVE_FPS", "0"},
                                       {"MAC_SHADOW_STATS_FILE", "/s.json"}, {"MAC_SHADOW_PARENT_WATCH", "1"}});
    EXPECT_EQ(options.port, 3390);
    EXPECT_TRUE(options.authentication && options.nla && options.avc444 && options.cursorInVideo);
    EXPECT_EQ(options.maxConnections, 2);
    EXPECT_EQ(options.fps, 5);
    EXPECT_EQ(options.bitrateMbps, 40);
    EXPECT_FALSE(options.adaptiveFps);
    EXPECT_EQ(options.statsFile, "/s.json");
    EXPECT_TRUE(options.watchParent && options.ignored.empty());
    EXPECT_FALSE(options.clipboard || options.audio);  // shared only when the plan says "1"
    auto shared = parseOptions({}, {{"MAC_SHADOW_CLIPBOARD", "1"}, {"MAC_SHADOW_AUDIO", "1"}});
    EXPECT_TRUE(shared.clipboard && shared.audio);

    // The default plan draws no pointer into the video; odd values keep the defaults or are clamped.
    auto odd = parseOptions({"-auth", "-gfx-avc444", "+server-side-cursor", "/port:65536", "/port:12a",
                             "/max-connections:0", "/sam-file:/etc/passwd", "/sec:rdp"},
                            {{"MAC_SHADOW_CURSOR", "1"}, {"MAC_SHADOW_FPS", "120"}, {"MAC_SHADOW_BITRATE_MBPS", "x"}});
    EXPECT_EQ(odd.port, 3389);
    EXPECT_FALSE(odd.authentication || odd.nla || odd.avc444 || odd.cursorInVideo || odd.statsFile || odd.watchParent);
    EXPECT_EQ(odd.maxConnections, Contract::maxConnections);
    EXPECT_EQ(odd.fps, 60);
    EXPECT_EQ(odd.bitrateMbps, 10);
    EXPECT_EQ(odd.ignored, (std::vector<std::string>{"/port:65536", "/port:12a", "/max-connections:0",
                                                      "/sam-file:/etc/passwd", "/sec:rdp"}));
}

TEST(ServerOptions, LoginEntries) {
    auto login = parseLoginEntry("Anna Berg:B39A61F16A4E11FA80580241F1D4AAE8");  // split at the last colon
    ASSERT_TRUE(login);
    EXPECT_EQ(login->user, "Anna Berg");
    EXPECT_EQ(login->ntHash[0], 0xb3);
    EXPECT_EQ(login->ntHash[15], 0xe8);
    const std::string hash = "b39a61f16a4e11fa80580241f1d4aae8";
    for (const std::string& entry : {std::string(), hash, ":" + hash, "anna" + hash, "anna:" + hash.substr(1),
                                     "anna:" + hash + "0", "anna:" + hash.substr(0, 31) + "g", "   :" + hash,
                                     "an:na:" + hash, "anna\nbob:" + hash, "anna\t:" + hash})
        EXPECT_FALSE(parseLoginEntry(entry)) << entry;
}

TEST(Probe, NamesTheCauseBeforeTheAnswer) {
    namespace Cause = Contract::Probe::Cause;
    struct Case {
        bool hasDisplay, opened, screen, input, wayland;
        std::string_view cause;
    };
    for (const Case& c : {Case{false, false, false, false, false, Cause::noDisplay},
                          Case{true, false, false, false, false, Cause::displayRefused},
                          Case{true, true, false, true, false, Cause::screenUnreadable},
                          Case{true, true, true, false, false, Cause::noXtest},
                          Case{true, true, false, true, true, Cause::wayland},    // XWayland
                          Case{false, false, false, false, true, Cause::wayland},  // no XWayland at all
                          Case{true, true, true, true, true, {}}}) {
        DisplayAccess access{c.screen, c.input, {}};
        EXPECT_EQ(probeCause(c.hasDisplay, c.opened, access, c.wayland), c.cause) << c.hasDisplay << c.opened << c.screen;
    }
    EXPECT_TRUE(waylandSession({{"XDG_SESSION_TYPE", "wayland"}}));
    EXPECT_TRUE(waylandSession({{"WAYLAND_DISPLAY", "wayland-0"}}));
    EXPECT_FALSE(waylandSession({{"XDG_SESSION_TYPE", "x11"}, {"WAYLAND_DISPLAY", ""}}));
    EXPECT_EQ(causeLine(Cause::displayRefused, ":0") + probeLine(false, false), "cause=display-refused :0\nscreen=0 input=0\n");
    EXPECT_EQ(causeLine(Cause::noDisplay, ""), "cause=no-display\n");
    EXPECT_EQ(causeLine({}, ":0"), "");
}

TEST(ClientBook, LimitLoginsAndTheStatisticsVelmoraReads) {
    std::vector<std::string> lines;
    int changes = 0;
    ClientBook book(1, [&](const std::string& line) { lines.push_back(line); }, [&] { ++changes; });
    int a = 0, b = 0, c = 0, d = 0;
    const auto start = ClientBook::Clock::time_point{};

    book.loginAttempted(&a, "192.168.1.20", "anna");
    EXPECT_TRUE(book.admit(&a, "192.168.1.20", "anna", "Windows", start));
    EXPECT_FALSE(book.admit(&b, "10.0.0.7", "WORKGROUP\\bob", "Unix", start));  // the limit is one
    book.frameSent(&a, "avc420");
    book.frameSent(&a, "avc420");
    book.resized();
    book.stalled(3);
    book.loginAttempted(&c, "10.0.0.8", "anna");
    book.gone(&c, false);  // named a user over NLA and never got through: a wrong password
    book.loginAttempted(&d, "10.0.0.9", "anna");
    book.gone(&d, true);   // logged in and left before asking for the desktop
    book.gone(&b, true);   // refused above: counted and logged once
    EXPECT_EQ(book.connected(), 1);

    auto during = ServerStats::fromJSON(statsJson(book.snapshot()));
    ASSERT_TRUE(during);
    EXPECT_EQ(*during, (ServerStats{1, 2, 1, 2, 3, "Windows avc420"}));
    book.gone(&a, true, start + 3723s);
    EXPECT_EQ(book.snapshot().clients, "");
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "client connected from 192.168.1.20 as anna",
                         "refused a client from 10.0.0.7: 1 of 1 allowed clients are connected",
                         "login refused for anna from 10.0.0.8",
                         "client 192.168.1.20 as anna disconnected after 1:02:03"}));
    EXPECT_GE(changes, 8);
}

TEST(StatsFile, WritesAtOnceThenWaitsForTheIntervalAndReplacesWhole) {
    test::TempHome home;
    const std::string path = home.path() + "/stats.json";
    StatsSnapshot stats;
    StatsFile file(path, [&] { return stats; }, 3600s);
    pollfd due{file.descriptor(), POLLIN, 0};

    stats.sessions = 1;
    file.changed();
    ASSERT_EQ(::poll(&due, 1, 5000), 1);  // the first change is written at once
    file.writeDue();
    EXPECT_EQ(ServerStats::fromJSON(test::readFile(path))->sessions, 1);
    stats.sessions = 2;
    file.changed();
    EXPECT_EQ(::poll(&due, 1, 0), 0);  // the next not before the interval
    file.writeNow();                   // but always at the end
    EXPECT_EQ(ServerStats::fromJSON(test::readFile(path))->sessions, 2);
    EXPECT_FALSE(test::fileExists(path + ".tmp-" + std::to_string(::getpid())));
    EXPECT_FALSE(replaceFile(home.path() + "/missing/stats.json", "{}"));
}

TEST(PointerOverlay, DrawsClippedAndPutsBackExactly) {
    const int width = 6, height = 4, stride = width * 4 + 8;  // rows padded, as X images may be
    std::vector<std::uint8_t> image(static_cast<std::size_t>(stride) * height);
    for (std::size_t i = 0; i < image.size(); ++i) image[i] = static_cast<std::uint8_t>(i * 7);
    const auto original = image;
    // A 3x3 pointer hanging over the top-left corner: transparent, half-covering and opaque pixels.
    PointerImage pointer{-1, -1, 3, 3,
                         {0xffffffff, 0xffffffff, 0xffffffff, 0xffffffff, 0x00000000, 0x80404040, 0xffffffff,
                          0xff102030, 0x80000000},
                         1};
    PointerOverlay overlay;
    EXPECT_EQ(overlay.draw(image.data(), stride, width, height, pointer), (PixelRect{0, 0, 2, 2}));
    EXPECT_EQ(image[0], original[0]);                             // transparent: unchanged
    EXPECT_EQ(image[4], 0x40 + (original[4] * 127 + 127) / 255);  // half: source plus what shows through
    EXPECT_EQ(image[stride + 0], 0x30);                           // opaque: B, G, R of 0x102030
    EXPECT_EQ(image[stride + 2], 0x10);
    EXPECT_EQ(overlay.restore(image.data(), stride), (PixelRect{0, 0, 2, 2}));
    EXPECT_EQ(image, original);
    EXPECT_TRUE(overlay.restore(image.data(), stride).empty());
    // Beyond the bottom-right edge nothing is drawn.
    pointer.left = width;
    EXPECT_TRUE(overlay.draw(image.data(), stride, width, height, pointer).empty());
    EXPECT_EQ(image, original);
}

TEST(SecretEnvironment, TakenOutAndTheProcessNotDumpable) {
    pid_t child = ::fork();
    if (child == 0) {
        ::setenv("VELMORA_TEST_SECRET", "anna:hash", 1);
        auto value = takeSecretVariable("VELMORA_TEST_SECRET");
        bool ok = value == "anna:hash" && !std::getenv("VELMORA_TEST_SECRET") &&
                  ::prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) == 0 && !takeSecretVariable("VELMORA_TEST_SECRET");
        ::_exit(ok ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// Clients speak UTF-16LE with CR LF and a final NUL; X11 programs UTF-8 with line feeds.
TEST(ClipboardText, RoundTripsEveryScriptAndRepairsWhatIsBroken) {
    using namespace ClipboardText;
    const std::u16string wire = u"caf\u00e9\r\n\u6f22\u5b57 \U0001F44D";
    const std::string wireBytes(reinterpret_cast<const char*>(wire.data()), wire.size() * 2);
    EXPECT_EQ(toUnicodeText("caf\u00e9\n\u6f22\u5b57 \U0001F44D"), wireBytes + std::string(2, '\0'));
    EXPECT_EQ(toUnicodeText("a\r\nb"), toUnicodeText("a\nb")) << "a CR LF stays one";
    for (const std::string text : {"", "plain\n", "caf\u00e9 d\u00e9j\u00e0", "\u6f22\u5b57\u304b\u306a",
                                   "\U0001F44D\U0001F3FD\U0001F389", "lone\r", "\n\n"})
        EXPECT_EQ(fromUnicodeText(toUnicodeText(text)), text);
    EXPECT_EQ(fromUnicodeText(std::string("a\0\0\xd8" "b\0", 6)), "a\ufffdb") << "an unpaired surrogate";
    EXPECT_EQ(fromUnicodeText(std::string("a\0\0\0b\0", 6)), "a") << "up to the NUL";
    EXPECT_EQ(fromUtf8Text(std::string("x\r\ny\xff\0z", 7)), "x\ny\ufffd");
    EXPECT_EQ(fromLatin1("caf\xe9"), "caf\u00e9");
    EXPECT_EQ(toLatin1("caf\u00e9 \u6f22"), "caf\xe9 ?");
}
