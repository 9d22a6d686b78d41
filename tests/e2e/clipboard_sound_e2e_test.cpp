// The clipboard and the desktop's sound, end to end: velmora-server on one Xvfb display, the real
// xfreerdp (+clipboard, /sound:sys:fake) on another, xclip setting and reading each display's
// CLIPBOARD, and a private PulseAudio whose default sink plays a tone. Each test shares one
// feature and not the other, and uses the shared one's traffic to know that the other would have
// shown by then.

#include "support/e2e_harness.h"
#include "support/loopback.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace velmora::test;

namespace {

using Environment = std::map<std::string, std::optional<std::string>>;

std::size_t countOf(const std::string& text, const std::string& needle) {
    std::size_t count = 0;
    for (auto at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++count;
    return count;
}

class ClipboardSoundE2e : public ::testing::Test {
protected:
    void SetUp() override {
        std::string missing = missingE2ePrerequisite();
        for (const char* tool : {"/usr/bin/xclip", "/usr/bin/pulseaudio", "/usr/bin/pactl"})
            if (missing.empty() && ::access(tool, X_OK) != 0) missing = std::string(tool) + " is missing";
        if (!missing.empty()) GTEST_SKIP() << missing;
        ASSERT_TRUE(desktop_.running() && clients_.running());
        std::filesystem::copy_file(builtExecutable("libexec/velmora/velmora-server"), helper_);
    }

    // The server shares what `clipboard` and `audio` say ("1" or "0"); a client connects.
    void connect(const std::string& clipboard, const std::string& audio) {
        const int port = closedLoopbackPort();
        server_ = std::make_unique<BackgroundProcess>(
            std::vector<std::string>{helper_, "/port:" + std::to_string(port), "-auth", "/sec:tls"},
            Environment{{"DISPLAY", desktop_.display()}, {"MAC_SHADOW_CLIPBOARD", clipboard},
                        {"MAC_SHADOW_AUDIO", audio}, {"PULSE_SERVER", "unix:" + pulseSocket_}, {"WLOG_LEVEL", "INFO"}},
            serverLog_);
        ASSERT_TRUE(waitForListening(port, 60, server_.get())) << readFile(serverLog_);
        if (audio == "1") startSoundServer();  // after the server, which finds none at first
        EXPECT_EQ(recordings(), "") << "nothing is recorded while no client listens";
        // Its log is read as it is written: a line at a time rather than a buffer at a time.
        std::vector<std::string> client = rdpSessionArguments(port, "anna", "secret", {"+clipboard", "/sound:sys:fake"});
        client.insert(client.begin(), {"/usr/bin/stdbuf", "-oL"});
        client_ = std::make_unique<BackgroundProcess>(
            client,
            Environment{{"DISPLAY", clients_.display()},
                        {"WLOG_FILTER",
                         "com.freerdp.channels.rdpsnd.client:DEBUG,com.freerdp.channels.cliprdr.client:DEBUG"}},
            clientLog_);
        ASSERT_TRUE(eventually([&] { return countOf(readFile(serverLog_), "client connected from") > 0; }, 60))
            << readFile(serverLog_) << readFile(clientLog_);
    }

    void startSoundServer() {
        ::mkdir((home_.path() + "/pulse").c_str(), 0700);
        sound_ = std::make_unique<BackgroundProcess>(
            std::vector<std::string>{"/usr/bin/pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1",
                                     "-L", "module-native-protocol-unix auth-anonymous=1 socket=" + pulseSocket_,
                                     "-L", "module-null-sink sink_name=desktop", "-L", "module-sine sink=desktop"},
            Environment{{"HOME", home_.path() + "/pulse"}, {"XDG_RUNTIME_DIR", home_.path() + "/pulse"}});
        ASSERT_TRUE(eventually([&] { return pactl({"info"}).exitCode == 0; }, 30));
    }

    CommandResult pactl(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "/usr/bin/pactl");
        return runCommand(arguments, {{"PULSE_SERVER", "unix:" + pulseSocket_}});
    }
    // The sound server's recording streams, one line each.
    std::string recordings() const { return sound_ ? pactl({"list", "short", "source-outputs"}).out : ""; }

    // `text` copied on `display` by a program that stays until the next copy.
    void copy(const Xvfb& display, const std::string& text) {
        const std::string file = home_.path() + "/copied-" + std::to_string(copies_.size());
        writeFile(file, text);
        copies_.push_back(std::make_unique<BackgroundProcess>(
            std::vector<std::string>{"/usr/bin/xclip", "-quiet", "-selection", "clipboard", "-i", file},
            Environment{{"DISPLAY", display.display()}}));
    }
    static std::string pasted(const Xvfb& display) {
        return runCommand({"/usr/bin/timeout", "20", "/usr/bin/xclip", "-o", "-selection", "clipboard"},
                          {{"DISPLAY", display.display()}})
            .out;
    }

    TempHome home_;
    Xvfb desktop_, clients_;
    const std::string helper_ = home_.path() + "/velmora-server-under-test";
    const std::string serverLog_ = home_.path() + "/server.log", clientLog_ = home_.path() + "/client.log";
    const std::string pulseSocket_ = home_.path() + "/pulse.socket";
    std::unique_ptr<BackgroundProcess> sound_, server_, client_;
    std::vector<std::unique_ptr<BackgroundProcess>> copies_;
};

}  // namespace

TEST_F(ClipboardSoundE2e, TextBothWaysWhenSharedAndNoSoundWhenNot) {
    startSoundServer();  // a tone plays, and must not be recorded
    connect("1", "0");
    std::string mebibyte;
    while (mebibyte.size() < (1u << 20))
        mebibyte += "Gr\u00fc\u00dfe, \u4e16\u754c \U0001F30D line " + std::to_string(mebibyte.size()) + "\n";
    for (const std::string& text : {std::string("plain ASCII"), std::string("caf\u00e9 d\u00e9j\u00e0 \u00d8rsted"),
                                    std::string("\u6f22\u5b57\u304b\u306a\u4ea4\u3058\u308a"),
                                    std::string("\U0001F44D\U0001F3FD \U0001F389"), std::string("two\nlines\n"), mebibyte}) {
        const std::string label = text.substr(0, 20);
        copy(desktop_, text);
        EXPECT_TRUE(eventually([&] { return pasted(clients_) == text; }, 60)) << "to the client: " << label;
        // FreeRDP 2.11's X11 client loses a text its desktop hands over in pieces (INCR, which
        // xclip uses above 1 MiB): the way back is a little shorter.
        const std::string back = "back: " + (text.size() > 1000000 ? text.substr(0, text.rfind('\n', 1000000) + 1) : text);
        copy(clients_, back);
        EXPECT_TRUE(eventually([&] { return pasted(desktop_) == back; }, 60)) << "from the client: " << label;
    }

    // A client that goes while its text is on the way leaves the clipboard as it was.
    const std::string before = pasted(desktop_);
    const std::size_t asked = countOf(readFile(clientLog_), "ServerFormatDataRequest");
    copies_.push_back(std::make_unique<BackgroundProcess>(
        std::vector<std::string>{builtExecutable("bin/velmora-stalled-copy")}, Environment{{"DISPLAY", clients_.display()}}));
    ASSERT_TRUE(eventually([&] { return countOf(readFile(clientLog_), "ServerFormatDataRequest") > asked; }, 30));
    client_->signal(SIGKILL);
    EXPECT_TRUE(eventually([&] { return readFile(serverLog_).find(" disconnected after ") != std::string::npos; }, 30));
    EXPECT_EQ(pasted(desktop_), before);

    EXPECT_EQ(readFile(clientLog_).find("Server Audio Formats"), std::string::npos) << "no audio channel";
    EXPECT_EQ(recordings(), "");
}

TEST_F(ClipboardSoundE2e, SoundWhileAClientListensAndNoClipboardWhenNotShared) {
    copy(desktop_, "a secret the client must not see");
    connect("0", "1");
    auto waves = [&] { return countOf(readFile(clientLog_), "Wave"); };
    ASSERT_TRUE(eventually([&] { return waves() > 10; }, 60)) << readFile(serverLog_) << readFile(clientLog_);
    EXPECT_EQ(countOf(recordings(), "\n"), 1u);
    // A copy now would reach the client within the next second of sound, if it ever could.
    copy(desktop_, "another secret");
    const std::size_t now = waves();
    ASSERT_TRUE(eventually([&] { return waves() > now + 20; }, 30));
    EXPECT_EQ(readFile(clientLog_).find("MonitorReady"), std::string::npos) << "no clipboard channel";
    EXPECT_EQ(pasted(clients_), "");

    client_->signal(SIGTERM);
    EXPECT_TRUE(eventually([&] { return recordings().empty(); }, 30)) << "recording stops with the last listener";
    const std::string log = readFile(serverLog_);
    EXPECT_EQ(countOf(log, "velmora-server: no sound server (PulseAudio or PipeWire) answers"), 1u) << log;
    EXPECT_NE(log.find("velmora-server: the sound server answers now\n"), std::string::npos) << log;
}
