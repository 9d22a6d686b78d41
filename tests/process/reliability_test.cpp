// Many children, big outputs, stubborn children: nothing may be left behind.

#include "process/spawn.h"

#include "child_scripts.h"
#include "core/manual_queue.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fstream>
#include <unistd.h>

using namespace velmora;
using velmora::test::processExists;
using velmora::test::readFile;
using velmora::test::TempHome;

namespace {

std::size_t entriesIn(const char* folder) {
    std::size_t count = 0;
    DIR* dir = ::opendir(folder);
    while (dirent* entry = dir ? ::readdir(dir) : nullptr)
        if (entry->d_name[0] != '.') ++count;
    if (dir) ::closedir(dir);
    return count;
}

// Children of this process that still exist, zombies included.
std::vector<pid_t> ownChildren() {
    std::vector<pid_t> children;
    DIR* proc = ::opendir("/proc");
    while (dirent* entry = proc ? ::readdir(proc) : nullptr) {
        char* end = nullptr;
        long pid = std::strtol(entry->d_name, &end, 10);
        if (*end != '\0' || pid <= 0) continue;
        std::string stat = readFile("/proc/" + std::string(entry->d_name) + "/stat");
        auto close = stat.rfind(')');
        if (close == std::string::npos) continue;
        std::istringstream rest(stat.substr(close + 2));
        std::string state;
        long parent = 0;
        rest >> state >> parent;
        if (parent == ::getpid()) children.push_back(static_cast<pid_t>(pid));
    }
    if (proc) ::closedir(proc);
    return children;
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
    EXPECT_TRUE(ownChildren().empty());
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
