#include "process/spawn.h"

#include "core/manual_queue.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
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

// The "SigXxx:" mask of a process, from /proc.
std::string statusField(pid_t pid, const std::string& field) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind(field + ":", 0) == 0) return line.substr(line.find_first_not_of(" \t", field.size() + 1));
    return {};
}

// Entries of a /proc folder (threads in task/, descriptors in fd/).
std::size_t entriesIn(const char* folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

// Threads and descriptors settle shortly after the last watcher has posted its end.
bool settlesAt(std::size_t threads, std::size_t descriptors) {
    for (int i = 0; i < 5000; ++i) {
        if (entriesIn("/proc/self/task") == threads && entriesIn("/proc/self/fd") == descriptors) return true;
        ::usleep(1000);
    }
    return false;
}

}  // namespace

TEST(Spawn, ExitCodesTellExitStatusFromSignalsAndWaitIsALatch) {
    auto three = shell("exit 3");
    auto child = shell("exec sleep 100");
    ASSERT_TRUE(three->wait(10));
    EXPECT_EQ(three->exitCode(), 3);
    EXPECT_FALSE(three->killedBySignal());
    EXPECT_FALSE(three->disclaimed());  // nothing on this system can disclaim
    EXPECT_FALSE(child->wait(0.05));
    ::kill(child->pid(), SIGKILL);
    std::atomic<int> passed{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 6; ++i)
        waiters.emplace_back([&] {
            if (child->wait(10) && child->wait(0)) ++passed;
        });
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(passed.load(), 6);
    EXPECT_EQ(child->exitCode(), 137);
    EXPECT_TRUE(child->killedBySignal());

    try {
        Spawn::start("/nonexistent/velmora-server", {}, {}, std::nullopt, std::nullopt, true);
        ADD_FAILURE() << "no failure";
    } catch (const Spawn::Failure& failure) {
        EXPECT_EQ(failure.description(), "Could not start the server: No such file or directory");
        EXPECT_EQ(failure.reason(), "No such file or directory");
    }
}

TEST(Spawn, TerminateEscalatesToKillOnlyForAChildThatIgnoresTerm) {
    int ready[2];
    ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
    auto stubborn = shell("trap '' TERM; echo ready; exec sleep 100", ready[1]);
    ::close(ready[1]);
    char buffer[8] = {};
    ASSERT_GT(::read(ready[0], buffer, 5), 0);  // the trap is in place
    ::close(ready[0]);
    stubborn->terminate(0.2);
    EXPECT_FALSE(stubborn->isRunning());
    EXPECT_EQ(stubborn->exitCode(), 137);

    auto polite = shell("exec sleep 100");
    polite->terminate(30);
    EXPECT_FALSE(polite->isRunning());
    EXPECT_EQ(polite->exitCode(), 143);
}

TEST(Spawn, ChildStartsCleanWithOnlyItsGivenEnvironmentAndNoInheritedDescriptors) {
    TempHome home;
    // A descriptor of ours without close-on-exec, and a signal ignored and one blocked here.
    int leaked = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(leaked, 0);
    ASSERT_GE(::dup2(leaked, 100), 0);
    auto oldInt = std::signal(SIGINT, SIG_IGN);
    sigset_t blocked, saved;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, &saved);

    std::string outPath = home.path() + "/out";
    int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    auto child = Spawn::start("/bin/sh",
                              {"-c", "readlink /proc/$$/fd/0 /proc/$$/fd/2; "
                                     // Last and without a pipe, so that the shell holds no pipe ends.
                                     "ls /proc/$$/fd"},
                              {}, out, std::nullopt, false);
    auto sleeper = Spawn::start("/bin/sleep", {"100"}, {}, std::nullopt, std::nullopt, false);
    // Wait for sleep to have exec'd before reading its masks.
    for (int i = 0; i < 1000 && readFile("/proc/" + std::to_string(sleeper->pid()) + "/comm") != "sleep\n"; ++i)
        ::usleep(1000);
    std::string sigIgn = statusField(sleeper->pid(), "SigIgn");
    std::string sigBlk = statusField(sleeper->pid(), "SigBlk");
    ASSERT_TRUE(child->wait(10));
    sleeper->terminate();

    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    std::signal(SIGINT, oldInt);
    ::close(out);
    ::close(100);
    ::close(leaked);

    // Signals 1 to 31; glibc keeps its two internal real-time signals (32, 33) to itself.
    auto standard = [](const std::string& mask) { return std::stoull(mask, nullptr, 16) & 0x7fffffffULL; };
    EXPECT_EQ(standard(sigIgn), 0u) << sigIgn;
    EXPECT_EQ(standard(sigBlk), 0u) << sigBlk;
    std::istringstream lines(readFile(outPath));
    std::string stdinTarget, stderrTarget, fds;
    std::getline(lines, stdinTarget);
    std::getline(lines, stderrTarget);
    for (std::string fd; std::getline(lines, fd);) fds += fd + " ";
    EXPECT_EQ(stdinTarget, "/dev/null");
    EXPECT_EQ(stderrTarget, "/dev/null");
    // 0, 1, 2 and at most the one that ls itself opened to read the folder.
    EXPECT_EQ(fds.rfind("0 1 2 ", 0), 0u) << fds;
    EXPECT_EQ(fds.find("100"), std::string::npos) << fds;
    EXPECT_LE(fds.size(), std::string("0 1 2 3 ").size()) << fds;
}

TEST(Spawn, OutputReturnsStdoutOnlyAndNothingOnFailureOrTimeOutAndNeverWaitsForDescendants) {
    TempHome home;
    auto both = Spawn::output("/bin/sh", {"-c", "echo out; echo err >&2; printf 'bad \\377 byte'"}, {}, 10);
    ASSERT_TRUE(both);
    EXPECT_EQ(*both, "out\nbad \xEF\xBF\xBD byte");
    // Exactly the environment given.
    EXPECT_EQ(Spawn::output("/usr/bin/env", {}, {{"A", "1"}, {"B", "two words"}}, 10), "A=1\nB=two words\n");
    EXPECT_FALSE(Spawn::output("/nonexistent", {}, {}, 10));

    std::string pidFile = home.path() + "/pid";
    // It ignores SIGTERM too, so the end needs the SIGKILL after the grace.
    auto late = Spawn::output("/bin/sh", {"-c", "trap '' TERM; echo $$ > " + pidFile + "; echo partial; exec sleep 100"},
                              {}, 0.3);
    EXPECT_FALSE(late);
    EXPECT_NE(::kill(std::stoi(readFile(pidFile)), 0), 0);

    // A descendant that keeps the pipe open does not hold the answer back.
    auto text = Spawn::output("/bin/sh", {"-c", "sleep 100 & echo $! > " + pidFile + "; echo done"}, {}, 30);
    pid_t orphan = std::stoi(readFile(pidFile));
    ::kill(orphan, SIGKILL);
    ASSERT_TRUE(text);
    EXPECT_EQ(*text, "done\n");
}

TEST(Spawn, StopLeftoversEndsOnlyProcessesWhosePathEndsWithTheSuffix) {
    TempHome home;
    // Copies of sleep whose paths end in a suffix that no other process on the machine can have.
    std::string unique = "/leftover-" + std::to_string(::getpid());
    std::string matchingDir = home.path() + "/a" + unique;
    std::string otherDir = home.path() + "/b" + unique + "-not";
    std::filesystem::create_directories(matchingDir);
    std::filesystem::create_directories(otherDir);
    std::filesystem::copy_file("/bin/sleep", matchingDir + "/velmora-server");
    std::filesystem::copy_file("/bin/sleep", otherDir + "/velmora-server");

    std::string suffix = unique + "/velmora-server";
    EXPECT_EQ(Spawn::stopLeftovers(suffix), 0);

    auto first = Spawn::start(matchingDir + "/velmora-server", {"100"}, {}, std::nullopt, std::nullopt, false);
    auto second = Spawn::start(matchingDir + "/velmora-server", {"100"}, {}, std::nullopt, std::nullopt, false);
    auto other = Spawn::start(otherDir + "/velmora-server", {"100"}, {}, std::nullopt, std::nullopt, false);
    EXPECT_EQ(Spawn::stopLeftovers(suffix), 2);
    ASSERT_TRUE(first->wait(10));
    ASSERT_TRUE(second->wait(10));
    EXPECT_EQ(first->exitCode(), 143);  // SIGTERM sufficed: no SIGKILL
    EXPECT_EQ(second->exitCode(), 143);
    EXPECT_TRUE(other->isRunning());
    other->terminate();
    EXPECT_EQ(Spawn::stopLeftovers(suffix), 0);
}

// Many children and big outputs: nothing may be left behind or lost.
TEST(Reliability, TwoHundredStartStopCyclesLeaveNoDescriptorThreadOrZombie) {
    auto queue = std::make_shared<ManualQueue>();
    const std::size_t threads = entriesIn("/proc/self/task");
    const std::size_t descriptors = entriesIn("/proc/self/fd");
    int ended = 0;
    for (int cycle = 0; cycle < 200; ++cycle) {
        std::shared_ptr<SpawnedProcess> child;
        // Half short-lived children that end by themselves, half stopped while running.
        if (cycle % 2 == 0) child = Spawn::start("/bin/true", {}, {}, std::nullopt, std::nullopt, true, queue->link());
        else child = Spawn::start("/bin/sleep", {"100"}, {}, std::nullopt, std::nullopt, true, queue->link());
        child->onExit = [&](SpawnedProcess&) { ++ended; };
        if (cycle % 2 == 0) ASSERT_TRUE(child->wait(30));
        else child->terminate(5);
        EXPECT_FALSE(child->isRunning());
        queue->runPending();
    }
    ASSERT_TRUE(queue->runUntil([&] { return ended == 200; }, 30));
    EXPECT_TRUE(settlesAt(threads, descriptors))
        << entriesIn("/proc/self/task") << " threads, " << entriesIn("/proc/self/fd") << " descriptors";
    // No child is left, not even a zombie: waiting for any finds none.
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(Reliability, OutputReturnsAllOfSixtyFourMebibytes) {
    const std::size_t size = 64u << 20;
    auto text = Spawn::output("/bin/sh", {"-c", "yes 0123456789abcdef | head -c " + std::to_string(size)},
                              {{"PATH", "/usr/bin:/bin"}}, 120);
    ASSERT_TRUE(text);
    ASSERT_EQ(text->size(), size);
    // Every byte in its place: nothing lost, doubled or reordered between reads.
    const std::string line = "0123456789abcdef\n";
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < size; ++i) wrong += (*text)[i] != line[i % line.size()];
    EXPECT_EQ(wrong, 0u);
}
