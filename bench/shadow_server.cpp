// The Linux server's cost, against Debian's own freerdp-shadow-cli in the same run and under the
// same conditions: Xvfb desktops, a 256x256 window repainting 60 times a second, and one real
// client (xfreerdp, its own default codecs) on a second display.
//   *Cpu: the server process's CPU seconds per minute (shown as the time) with the client
//         connected; velmora-server at 30 and 5 frames a second, with H.264 4:4:4 offered as the
//         stock server always does, and once with the default plan's 4:2:0.
//   *FirstFrame: from starting the client to its window showing the repainting window.
// Ratios above 1: velmora-server costs less (or is quicker) than the stock server.

#include "ratio_reporter.h"
#include "support/e2e_harness.h"
#include "support/loopback.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <thread>
#include <unistd.h>

using namespace velmora::test;

namespace {

using Environment = std::map<std::string, std::optional<std::string>>;
using Clock = std::chrono::steady_clock;

constexpr auto settle = std::chrono::seconds(3);
constexpr auto window = std::chrono::seconds(20);

enum class Server { stock, velmora, velmoraAvc420 };

struct Desktop {
    Desktop() {
        // A copy away from the installed layout: a velmora --headless on this machine stops every
        // ".../libexec/velmora/velmora-server" it finds.
        std::filesystem::copy_file(builtExecutable("libexec/velmora/velmora-server"), helper);
        repaint = std::make_unique<BackgroundProcess>(std::vector<std::string>{builtExecutable("bin/velmora-repaint"), "60"},
                                                      Environment{{"DISPLAY", server.display()}});
        clientDisplay = XOpenDisplay(client.display().c_str());
    }
    TempHome home;  // the servers' certificates go here
    Xvfb server, client;
    std::string helper = home.path() + "/velmora-server";
    std::unique_ptr<BackgroundProcess> repaint;
    Display* clientDisplay = nullptr;
};

Desktop& desktop() {
    static Desktop shared;
    return shared;
}

std::unique_ptr<BackgroundProcess> startServer(Server kind, int fps, int port) {
    Desktop& d = desktop();
    std::vector<std::string> argv{kind == Server::stock ? "/usr/bin/freerdp-shadow-cli" : d.helper,
                                  "/port:" + std::to_string(port), "-auth", "/sec:tls"};
    if (kind != Server::stock)
        for (std::string rest : {kind == Server::velmora ? "+gfx-avc444" : "-gfx-avc444", "+server-side-cursor",
                                 "/max-connections:5"})
            argv.push_back(rest);
    auto process = std::make_unique<BackgroundProcess>(
        argv, Environment{{"DISPLAY", d.server.display()}, {"WLOG_LEVEL", "ERROR"}, {"MAC_SHADOW_FPS", std::to_string(fps)}});
    if (!waitForListening(port, 60, process.get())) return nullptr;
    return process;
}

std::unique_ptr<BackgroundProcess> startClient(int port) {
    return std::make_unique<BackgroundProcess>(rdpSessionArguments(port, "bench", "bench"),
                                               Environment{{"DISPLAY", desktop().client.display()}});
}

// Whether the client's window shows the repainting window (either of its colours, approximately:
// the video is lossy) where the server's desktop has it; the client's display is black elsewhere.
bool frameShown() {
    Display* display = desktop().clientDisplay;
    XImage* image = XGetImage(display, DefaultRootWindow(display), 64, 64, 4, 4, AllPlanes, ZPixmap);
    if (!image) return false;
    unsigned long pixel = XGetPixel(image, 2, 2);
    XDestroyImage(image);
    return ((pixel >> 16) & 0xff) + ((pixel >> 8) & 0xff) + (pixel & 0xff) > 150;
}

// The process's CPU time (user and system, all threads) in seconds.
double cpuSeconds(pid_t pid) {
    const std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    double ticks = 0;
    for (int index = 3; fields >> field; ++index)
        if (index == 14 || index == 15) ticks += std::stod(field);
    return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

void stop(std::unique_ptr<BackgroundProcess>& process) {
    process->signal(SIGTERM);
    if (!process->waitForExit(20)) process.reset();  // SIGKILL
}

void serverCpu(benchmark::State& state, Server kind) {
    for (auto _ : state) {
        const int port = closedLoopbackPort();
        auto server = startServer(kind, static_cast<int>(state.range(0)), port);
        if (!server) return state.SkipWithError("the server did not start");
        auto client = startClient(port);
        if (!eventually(frameShown, 60)) return state.SkipWithError("the client showed no frame");
        std::this_thread::sleep_for(settle);
        const double before = cpuSeconds(server->pid());
        const auto start = Clock::now();
        std::this_thread::sleep_for(window);
        const double used = cpuSeconds(server->pid()) - before;
        const double wall = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(used * 60 / wall);
        state.counters["cpu_percent"] = 100 * used / wall;
        stop(client);
        stop(server);
        eventually([] { return !frameShown(); }, 30);
    }
}

void StockCpu(benchmark::State& state) { serverCpu(state, Server::stock); }
void VelmoraCpu(benchmark::State& state) { serverCpu(state, Server::velmora); }
void VelmoraAvc420Cpu(benchmark::State& state) { serverCpu(state, Server::velmoraAvc420); }

void firstFrame(benchmark::State& state, Server kind) {
    const int port = closedLoopbackPort();
    auto server = startServer(kind, 30, port);
    if (!server) return state.SkipWithError("the server did not start");
    for (auto _ : state) {
        const auto start = Clock::now();
        auto client = startClient(port);
        if (!eventually(frameShown, 60)) return state.SkipWithError("the client showed no frame");
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        stop(client);
        eventually([] { return !frameShown(); }, 30);
        // The server drops its side of the session before the next client comes.
        std::this_thread::sleep_for(std::chrono::seconds(2));
    }
    stop(server);
}

void StockFirstFrame(benchmark::State& state) { firstFrame(state, Server::stock); }
void VelmoraFirstFrame(benchmark::State& state) { firstFrame(state, Server::velmora); }

}  // namespace

// The stock server has no frame rate setting: its runs are labelled with the rates they are
// compared with, and run once for each.
BENCHMARK(StockCpu)->Arg(30)->Arg(5)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(VelmoraCpu)->Arg(30)->Arg(5)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(VelmoraAvc420Cpu)->Arg(30)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(StockFirstFrame)->Iterations(8)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(VelmoraFirstFrame)->Iterations(8)->UseManualTime()->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    if (!missingE2ePrerequisite().empty()) {
        std::fprintf(stderr, "%s\n", missingE2ePrerequisite().c_str());
        return 1;
    }
    return velmora::bench::runWithRatios(argc, argv, {{"VelmoraCpu", "StockCpu"}, {"VelmoraAvc420Cpu", "StockCpu"},
                                                      {"VelmoraFirstFrame", "StockFirstFrame"}});
}
