// Many children, big outputs, stubborn children: nothing may be left behind.

#include "process/spawn.h"

#include "core/manual_queue.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <cerrno>
#include <sys/wait.h>
#include <unistd.h>

using namespace velmora;

namespace {

std::size_t entriesIn(const char* folder) {
    std::size_t count = 0;
    DIR* dir = ::opendir(folder);
    while (dirent* entry = dir ? ::readdir(dir) : nullptr)
        if (entry->d_name[0] != '.') ++count;
    if (dir) ::closedir(dir);
    return count;
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

TEST(Reliability, TwoHundredStartStopCyclesLeaveNoDescriptorThreadOrZombie) {
    auto queue = std::make_shared<ManualQueue>();
    const std::size_t threads = entriesIn("/proc/self/task");
    const std::size_t descriptors = entriesIn("/proc/self/fd");
    int ended = 0;
    for (int cycle = 0; cycle < 200; ++cycle) {
        std::shared_ptr<SpawnedProcess> child;
        // Half short-lived children that end by themselves, half stopped while running.
        if (cycle % 2 == 0) child = Spawn::start("/bin/true", {}, {}, std::nullopt, std::nullopt, true, queue);
        else child = Spawn::start("/bin/sleep", {"100"}, {}, std::nullopt, std::nullopt, true, queue);
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
