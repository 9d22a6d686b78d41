// The diagnostics report (which reads only the end of the log) beside `tail -n 80` of the same log,
// for logs of 10 MiB, 100 MiB and 1 GiB: both should stay flat as the log grows.

#include "netcheck/diagnostics.h"

#include <benchmark/benchmark.h>

#include "ratio_reporter.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

std::string folder;
std::map<std::int64_t, std::string> logs;

// A log of `mebibytes` MiB made of ordinary application lines, written once per size.
const std::string& logOf(std::int64_t mebibytes) {
    auto found = logs.find(mebibytes);
    if (found != logs.end()) return found->second;
    if (folder.empty()) {
        std::string pattern = (std::filesystem::temp_directory_path() / "velmora-bench-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) std::abort();
        folder = pattern;
    }
    std::string block;
    for (int i = 0; block.size() < (1u << 20); ++i)
        block += "[12:34:56:789] [Velmora app] starting Velmora Server: /port:3389 /bitrate:10 line " +
                 std::to_string(i) + "\n";
    block.resize(1u << 20);
    block.back() = '\n';
    std::string path = folder + "/Velmora-" + std::to_string(mebibytes) + ".log";
    std::ofstream out(path, std::ios::binary);
    for (std::int64_t i = 0; i < mebibytes; ++i) out.write(block.data(), static_cast<std::streamsize>(block.size()));
    out.close();
    return logs[mebibytes] = path;
}

void Report(benchmark::State& state) {
    const std::string& path = logOf(state.range(0));
    velmora::ServerSettings settings;
    for (auto _ : state) {
        std::string report = velmora::Diagnostics::gather("1.0", settings, false, {}, path);
        benchmark::DoNotOptimize(report);
    }
}

void TailCommand(benchmark::State& state) {
    std::string path = logOf(state.range(0));
    for (auto _ : state) {
        int ends[2];
        if (::pipe(ends) != 0) std::abort();
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, ends[0]);
        char* argv[] = {const_cast<char*>("/usr/bin/tail"), const_cast<char*>("-n"), const_cast<char*>("80"),
                        path.data(), nullptr};
        pid_t pid = 0;
        if (posix_spawn(&pid, argv[0], &actions, nullptr, argv, environ) != 0) std::abort();
        posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
        std::string output;
        char buffer[65536];
        for (ssize_t n; (n = ::read(ends[0], buffer, sizeof buffer)) > 0;) output.append(buffer, static_cast<std::size_t>(n));
        ::close(ends[0]);
        ::waitpid(pid, nullptr, 0);
        benchmark::DoNotOptimize(output);
    }
}

}  // namespace

BENCHMARK(Report)->Arg(10)->Arg(100)->Arg(1024)->Unit(benchmark::kMicrosecond);
BENCHMARK(TailCommand)->Arg(10)->Arg(100)->Arg(1024)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv) {
    int status = velmora::bench::runWithRatios(argc, argv, {{"Report", "TailCommand"}});
    if (!folder.empty()) std::filesystem::remove_all(folder);
    return status;
}
