#include "process/spawn.h"

#include "core/manual_queue.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <thread>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace velmora;
using namespace velmora::test;

namespace {

std::shared_ptr<SpawnedProcess> shell(const std::string& command, std::optional<int> out = std::nullopt) {
    return Spawn::start("/bin/sh", {"-c", command}, {{"PATH", "/usr/bin:/bin"}}, out, std::nullopt, false);
}

// Entries of a /proc folder (threads in task/, descriptors in fd/).
std::size_t entriesIn(const char* folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

}  // namespace

TEST(Spawn, ExitCodesTellExitStatusFromSignalsWaitIsALatchAndTerminateEscalatesOnlyWhenIgnored) {
    auto three = shell("exit 3");
    auto child = shell("exec sleep 100");
    ASSERT_TRUE(three->wait(10));
    EXPECT_EQ(three->exitCode(), 3);
    EXPECT_FALSE(child->wait(0.05));
    ::kill(child->pid(), SIGKILL);
    std::atomic<int> passed{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 6; ++i) waiters.emplace_back([&] { passed += child->wait(10) && child->wait(0); });
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(passed.load(), 6);
    EXPECT_EQ(child->exitCode(), 137);

    // Terminating escalates to SIGKILL only for a child that ignores SIGTERM.
    int ready[2];
    ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
    auto stubborn = shell("trap '' TERM; echo ready; exec sleep 100", ready[1]);
    ::close(ready[1]);
    char buffer[8] = {};
    ASSERT_GT(::read(ready[0], buffer, 5), 0);  // the trap is in place
    ::close(ready[0]);
    stubborn->terminate(0.2);
    EXPECT_EQ(stubborn->exitCode(), 137);

    auto polite = shell("exec sleep 100");
    polite->terminate(30);
    EXPECT_EQ(polite->exitCode(), 143);
}

TEST(Spawn, ChildStartsWithDefaultSignalsNullStdioAndNoInheritedDescriptors) {
    // A descriptor of ours without close-on-exec, and a signal ignored and one blocked on this thread.
    int leaked = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(::dup2(leaked, 100), 0);
    auto oldInt = std::signal(SIGINT, SIG_IGN);
    sigset_t blocked, saved;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, &saved);
    auto masks = Spawn::output("/bin/grep", {"-E", "^Sig(Ign|Blk)", "/proc/self/status"}, {}, 10);
    // ls last, exec'd in the shell's place: it lists its own descriptors, 3 being the folder it reads.
    auto stdio = Spawn::output("/bin/sh", {"-c", "readlink /proc/$$/fd/0 /proc/$$/fd/2; exec ls /proc/self/fd"},
                               {{"PATH", "/usr/bin:/bin"}}, 10);
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    std::signal(SIGINT, oldInt);
    ::close(100);
    ::close(leaked);
    // Signals 1 to 31; glibc keeps its two internal real-time signals (32, 33) to itself.
    ASSERT_TRUE(masks);
    for (const char* field : {"SigBlk:\t", "SigIgn:\t"})
        EXPECT_EQ(std::stoull(masks->substr(masks->find(field) + 8, 16), nullptr, 16) & 0x7fffffffULL, 0u) << *masks;
    EXPECT_EQ(stdio, "/dev/null\n/dev/null\n0\n1\n2\n3\n");
}

TEST(Spawn, OutputReturnsStdoutOnlyAndNothingOnFailureOrTimeOutAndNeverWaitsForDescendants) {
    TempHome home;
    EXPECT_EQ(Spawn::output("/bin/sh", {"-c", "echo out; echo err >&2; printf 'bad \\377 byte'"}, {}, 10),
              "out\nbad \xEF\xBF\xBD byte");
    // Far more than a pipe holds: nothing lost, doubled or reordered between reads.
    std::string lines;
    for (int i = 0; i < 20000; ++i) lines += "0123456789abcdef\n";
    EXPECT_EQ(Spawn::output("/bin/sh", {"-c", "yes 0123456789abcdef | head -n 20000"}, {{"PATH", "/usr/bin:/bin"}}, 30), lines);
    EXPECT_EQ(Spawn::output("/usr/bin/env", {}, {{"A", "1"}, {"B", "two words"}}, 10), "A=1\nB=two words\n");
    EXPECT_FALSE(Spawn::output("/nonexistent", {}, {}, 10));

    std::string pidFile = home.path() + "/pid";
    // It ignores SIGTERM too, so the end needs the SIGKILL after the grace.
    EXPECT_FALSE(Spawn::output(
        "/bin/sh", {"-c", "trap '' TERM; echo $$ > " + pidFile + "; echo partial; exec sleep 100"}, {}, 0.3));
    EXPECT_NE(::kill(std::stoi(readFile(pidFile)), 0), 0);

    // A descendant that keeps the pipe open does not hold the answer back.
    auto text = Spawn::output("/bin/sh", {"-c", "sleep 100 & echo $! > " + pidFile + "; echo done"}, {}, 30);
    ::kill(std::stoi(readFile(pidFile)), SIGKILL);
    EXPECT_EQ(text, "done\n");
}

TEST(Spawn, StopLeftoversEndsOnlyProcessesWhosePathEndsWithTheSuffix) {
    TempHome home;
    // Copies of sleep whose paths end in a suffix that no other process on the machine can have.
    const std::string unique = "/leftover-" + std::to_string(::getpid()), suffix = unique + "/velmora-server";
    for (const std::string& folder : {"/a" + unique, "/b" + unique + "-not"}) {
        std::filesystem::create_directories(home.path() + folder);
        std::filesystem::copy_file("/bin/sleep", home.path() + folder + "/velmora-server");
    }
    EXPECT_EQ(Spawn::stopLeftovers(suffix), 0);
    auto sleeper = [&](const std::string& folder) {
        return Spawn::start(home.path() + folder + "/velmora-server", {"100"}, {}, std::nullopt, std::nullopt, false);
    };
    auto first = sleeper("/a" + unique), second = sleeper("/a" + unique), other = sleeper("/b" + unique + "-not");
    EXPECT_EQ(Spawn::stopLeftovers(suffix), 2);
    ASSERT_TRUE(first->wait(10) && second->wait(10));
    EXPECT_EQ(std::pair(first->exitCode(), second->exitCode()), std::pair(143, 143));  // SIGTERM sufficed
    EXPECT_TRUE(other->isRunning());
    other->terminate();
}

TEST(Reliability, TwoHundredStartStopCyclesLeaveNoDescriptorThreadOrZombie) {
    auto queue = std::make_shared<ManualQueue>();
    const std::size_t threads = entriesIn("/proc/self/task");
    const std::size_t descriptors = entriesIn("/proc/self/fd");
    int ended = 0;
    for (int cycle = 0; cycle < 200; ++cycle) {
        // Half short-lived children that end by themselves, half stopped while running.
        auto child = cycle % 2 == 0 ? Spawn::start("/bin/true", {}, {}, std::nullopt, std::nullopt, true, queue->link())
                                    : Spawn::start("/bin/sleep", {"100"}, {}, std::nullopt, std::nullopt, true, queue->link());
        child->onExit = [&](SpawnedProcess&) { ++ended; };
        if (cycle % 2 == 0) ASSERT_TRUE(child->wait(30));
        else child->terminate(5);
        queue->runPending();
    }
    ASSERT_TRUE(queue->runUntil([&] { return ended == 200; }, 30));
    // Threads and descriptors settle shortly after the last watcher has posted its end.
    for (int i = 0; i < 5000 && (entriesIn("/proc/self/task") != threads || entriesIn("/proc/self/fd") != descriptors); ++i)
        ::usleep(1000);
    EXPECT_EQ(entriesIn("/proc/self/task"), threads);
    EXPECT_EQ(entriesIn("/proc/self/fd"), descriptors);
    // No child is left, not even a zombie: waiting for any finds none.
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}
