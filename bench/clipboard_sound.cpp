// What sharing the clipboard and the desktop's sound costs velmora-server, each against the same
// run without it: Xvfb desktops, a private PulseAudio playing a tone into its default sink, and
// the real xfreerdp (+clipboard, /sound:sys:fake) on a second display.
//   ClipboardRoundTrip: text copied on the desktop until the client can paste it, then copied on
//         the client until the desktop can paste it, through the server; against LocalRoundTrip,
//         the same copies and pastes on the desktop alone. The text is 1 MiB less one byte, the
//         most xclip hands over in one piece (FreeRDP 2.11's client loses texts sent in pieces).
//   SoundCpu: the server's CPU seconds per minute (shown as the time) with a client listening to
//         the desktop's sound; against SilentCpu, the same session with sound off.
//   SharedIdleWakeups: the server's context switches (all threads) over an idle minute with both
//         shared and no client, shown as one millisecond each; against OffIdleWakeups, both off.
// Ratios near 1: sharing costs nothing more.

#include "ratio_reporter.h"
#include "support/e2e_harness.h"
#include "support/loopback.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace velmora::test;

namespace {

using Environment = std::map<std::string, std::optional<std::string>>;
using Clock = std::chrono::steady_clock;

constexpr auto settle = std::chrono::seconds(3);
constexpr auto cpuWindow = std::chrono::seconds(20);
constexpr auto idleWindow = std::chrono::seconds(60);
constexpr std::size_t textSize = (1u << 20) - 1;

struct World {
    World() {
        std::filesystem::copy_file(builtExecutable("libexec/velmora/velmora-server"), helper);
        ::mkdir((home.path() + "/pulse").c_str(), 0700);
        sound = std::make_unique<BackgroundProcess>(
            std::vector<std::string>{"/usr/bin/pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1",
                                     "-L", "module-native-protocol-unix auth-anonymous=1 socket=" + socket,
                                     "-L", "module-null-sink sink_name=desktop", "-L", "module-sine sink=desktop"},
            Environment{{"HOME", home.path() + "/pulse"}, {"XDG_RUNTIME_DIR", home.path() + "/pulse"}});
        eventually([&] { return runCommand({"/usr/bin/pactl", "info"}, {{"PULSE_SERVER", "unix:" + socket}}).exitCode == 0; },
                   30);
    }
    TempHome home;
    Xvfb desktop, clients;
    std::string helper = home.path() + "/velmora-server";
    std::string socket = home.path() + "/pulse.socket";
    std::unique_ptr<BackgroundProcess> sound;
    std::vector<std::unique_ptr<BackgroundProcess>> copies;
};

World& world() {
    static World shared;
    return shared;
}

struct Session {
    Session(bool shared, bool withClient) {
        World& w = world();
        server = std::make_unique<BackgroundProcess>(
            std::vector<std::string>{w.helper, "/port:" + std::to_string(port), "-auth", "/sec:tls"},
            Environment{{"DISPLAY", w.desktop.display()}, {"MAC_SHADOW_CLIPBOARD", shared ? "1" : "0"},
                        {"MAC_SHADOW_AUDIO", shared ? "1" : "0"}, {"PULSE_SERVER", "unix:" + w.socket},
                        {"WLOG_LEVEL", "ERROR"}},
            log);
        if (!waitForListening(port, 60, server.get())) return;
        if (withClient)
            client = std::make_unique<BackgroundProcess>(
                rdpSessionArguments(port, "bench", "bench", {"+clipboard", "/sound:sys:fake"}),
                Environment{{"DISPLAY", w.clients.display()}});
        ready = !withClient || eventually([&] { return readFile(log).find("client connected") != std::string::npos; }, 60);
    }
    ~Session() {
        for (auto* process : {&client, &server})
            if (*process) {
                (*process)->signal(SIGTERM);
                (*process)->waitForExit(20);
            }
        std::filesystem::remove(log);
    }
    int port = closedLoopbackPort();
    std::string log = world().home.path() + "/server-" + std::to_string(port) + ".log";
    std::unique_ptr<BackgroundProcess> server, client;
    bool ready = false;
};

void copy(const Xvfb& display, const std::string& text) {
    World& w = world();
    const std::string file = w.home.path() + "/copied";
    writeFile(file, text);
    w.copies.push_back(std::make_unique<BackgroundProcess>(
        std::vector<std::string>{"/usr/bin/xclip", "-quiet", "-selection", "clipboard", "-i", file},
        Environment{{"DISPLAY", display.display()}}));
}

bool pastes(const Xvfb& display, const std::string& text) {
    return runCommand({"/usr/bin/xclip", "-o", "-selection", "clipboard"}, {{"DISPLAY", display.display()}}).out == text;
}

// A text of `textSize` bytes, different for each `seed`: lines of several scripts.
std::string text(int seed) {
    const std::string line = "Gr\u00fc\u00dfe \u4e16\u754c \U0001F30D " + std::to_string(seed) + "\n";
    std::string out;
    while (out.size() + line.size() <= textSize) out += line;
    return out + std::string(textSize - out.size(), '.');
}

void roundTrip(benchmark::State& state, bool throughServer) {
    World& w = world();
    std::unique_ptr<Session> session;
    if (throughServer) {
        session = std::make_unique<Session>(true, true);
        if (!session->ready) return state.SkipWithError("the session did not start");
    }
    const Xvfb& far = throughServer ? w.clients : w.desktop;
    int seed = 0;
    double there = 0, back = 0;
    for (auto _ : state) {
        const std::string out = text(++seed), in = text(++seed);
        auto start = Clock::now();
        copy(w.desktop, out);
        if (!eventually([&] { return pastes(far, out); }, 60)) return state.SkipWithError("the text did not arrive");
        auto middle = Clock::now();
        copy(far, in);
        if (!eventually([&] { return pastes(w.desktop, in); }, 60)) return state.SkipWithError("the text did not come back");
        auto end = Clock::now();
        there += std::chrono::duration<double>(middle - start).count();
        back += std::chrono::duration<double>(end - middle).count();
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
    state.counters["there_ms"] = 1000 * there / static_cast<double>(state.iterations());
    state.counters["back_ms"] = 1000 * back / static_cast<double>(state.iterations());
    w.copies.clear();
}

void ClipboardRoundTrip(benchmark::State& state) { roundTrip(state, true); }
void LocalRoundTrip(benchmark::State& state) { roundTrip(state, false); }

// CPU time (user and system, all threads) in seconds.
double cpuSeconds(pid_t pid) {
    const std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    double ticks = 0;
    for (int index = 3; fields >> field; ++index)
        if (index == 14 || index == 15) ticks += std::stod(field);
    return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

// Voluntary and involuntary context switches, summed over the process's threads.
long contextSwitches(pid_t pid) {
    long total = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        std::istringstream lines(readFile(task.path().string() + "/status"));
        for (std::string line; std::getline(lines, line);)
            if (line.find("ctxt_switches:") != std::string::npos) total += std::stol(line.substr(line.find(':') + 1));
    }
    return total;
}

void cpu(benchmark::State& state, bool shared) {
    for (auto _ : state) {
        Session session(shared, true);
        if (!session.ready) return state.SkipWithError("the session did not start");
        std::this_thread::sleep_for(settle);
        const double before = cpuSeconds(session.server->pid());
        const auto start = Clock::now();
        std::this_thread::sleep_for(cpuWindow);
        const double used = cpuSeconds(session.server->pid()) - before;
        const double wall = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(used * 60 / wall);
        state.counters["cpu_percent"] = 100 * used / wall;
    }
}

void SoundCpu(benchmark::State& state) { cpu(state, true); }
void SilentCpu(benchmark::State& state) { cpu(state, false); }

void idleWakeups(benchmark::State& state, bool shared) {
    for (auto _ : state) {
        Session session(shared, false);
        if (!session.ready) return state.SkipWithError("the server did not start");
        std::this_thread::sleep_for(settle);
        const long before = contextSwitches(session.server->pid());
        std::this_thread::sleep_for(idleWindow);
        const long switches = contextSwitches(session.server->pid()) - before;
        state.SetIterationTime(static_cast<double>(switches) / 1000);
        state.counters["switches"] = static_cast<double>(switches);
    }
}

void SharedIdleWakeups(benchmark::State& state) { idleWakeups(state, true); }
void OffIdleWakeups(benchmark::State& state) { idleWakeups(state, false); }

}  // namespace

BENCHMARK(LocalRoundTrip)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(ClipboardRoundTrip)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(SilentCpu)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(SoundCpu)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(OffIdleWakeups)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(SharedIdleWakeups)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    std::string missing = missingE2ePrerequisite();
    for (const char* tool : {"/usr/bin/xclip", "/usr/bin/pulseaudio", "/usr/bin/pactl"})
        if (missing.empty() && ::access(tool, X_OK) != 0) missing = std::string(tool) + " is missing";
    if (!missing.empty()) {
        std::fprintf(stderr, "%s\n", missing.c_str());
        return 1;
    }
    return velmora::bench::runWithRatios(argc, argv, {{"ClipboardRoundTrip", "LocalRoundTrip"},
                                                      {"SoundCpu", "SilentCpu"},
                                                      {"SharedIdleWakeups", "OffIdleWakeups"}});
}
