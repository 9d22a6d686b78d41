// Spawn's costs against the bare system calls they wrap: start + wait of /bin/true, output
// throughput, and the leftover scan over 2,000 processes.

#include "process/spawn.h"
#include "ratio_reporter.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

using namespace velmora;

void SpawnStartWait(benchmark::State& state) {
    for (auto _ : state) {
        auto child = Spawn::start("/bin/true", {}, {}, std::nullopt, std::nullopt, true);
        child->wait(60);
    }
}

void BarePosixSpawnWaitpid(benchmark::State& state) {
    char arg0[] = "/bin/true";
    char* argv[] = {arg0, nullptr};
    char* envp[] = {nullptr};
    for (auto _ : state) {
        pid_t pid = 0;
        if (posix_spawn(&pid, "/bin/true", nullptr, nullptr, argv, envp) != 0) state.SkipWithError("spawn");
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }
}

std::string writerCommand(std::int64_t bytes) {
    return "head -c " + std::to_string(bytes) + " /dev/zero";
}

void SpawnOutput(benchmark::State& state) {
    for (auto _ : state) {
        auto text = Spawn::output("/bin/sh", {"-c", writerCommand(state.range(0))}, {{"PATH", "/usr/bin:/bin"}}, 60);
        if (!text || static_cast<std::int64_t>(text->size()) != state.range(0)) state.SkipWithError("short output");
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void DirectPipeRead(benchmark::State& state) {
    std::string command = writerCommand(state.range(0));
    char sh[] = "/bin/sh", dashC[] = "-c", path[] = "PATH=/usr/bin:/bin";
    char* envp[] = {path, nullptr};
    for (auto _ : state) {
        int ends[2];
        if (pipe(ends) != 0) state.SkipWithError("pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
        posix_spawn_file_actions_addclose(&actions, ends[0]);
        char* argv[] = {sh, dashC, command.data(), nullptr};
        pid_t pid = 0;
        posix_spawn(&pid, "/bin/sh", &actions, nullptr, argv, envp);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        std::string buffer;
        char chunk[65536];
        for (ssize_t n; (n = read(ends[0], chunk, sizeof chunk)) > 0;) buffer.append(chunk, static_cast<std::size_t>(n));
        close(ends[0]);
        waitpid(pid, nullptr, 0);
        benchmark::DoNotOptimize(buffer);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

// 2,000 sleeping children whose paths don't match: the scan reads every process's executable path.
// Started bare, so that 2,000 watcher threads don't weigh on the other measurements.
class Sleepers {
public:
    explicit Sleepers(int count) {
        char sleep[] = "/bin/sleep", seconds[] = "600";
        char* argv[] = {sleep, seconds, nullptr};
        char* envp[] = {nullptr};
        for (int i = 0; i < count; ++i) {
            pid_t pid = 0;
            if (posix_spawn(&pid, "/bin/sleep", nullptr, nullptr, argv, envp) == 0) pids_.push_back(pid);
        }
    }
    ~Sleepers() {
        for (pid_t pid : pids_) kill(pid, SIGKILL);
        for (pid_t pid : pids_) waitpid(pid, nullptr, 0);
    }

private:
    std::vector<pid_t> pids_;
};

void StopLeftoversScan(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(Spawn::stopLeftovers("/no-such-install/libexec/velmora/velmora-server"));
}

// The same walk over /proc without resolving any path: what the scan can't avoid.
void ProcListingOnly(benchmark::State& state) {
    for (auto _ : state) {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) count += entry.is_directory();
        benchmark::DoNotOptimize(count);
    }
}

}  // namespace

BENCHMARK(SpawnStartWait)->UseRealTime();
BENCHMARK(BarePosixSpawnWaitpid)->UseRealTime();
BENCHMARK(SpawnOutput)->Arg(1 << 20)->Arg(16 << 20)->UseRealTime();
BENCHMARK(DirectPipeRead)->Arg(1 << 20)->Arg(16 << 20)->UseRealTime();
BENCHMARK(StopLeftoversScan)->UseRealTime();
BENCHMARK(ProcListingOnly)->UseRealTime();

int main(int argc, char** argv) {
    Sleepers many(2000);
    return velmora::bench::runWithRatios(argc, argv,
                                         {{"SpawnStartWait", "BarePosixSpawnWaitpid"},
                                          {"SpawnOutput", "DirectPipeRead"},
                                          {"StopLeftoversScan", "ProcListingOnly"}});
}
