#include "server-linux/stats_file.h"

#include "platform/descriptors.h"

#include "server-linux/helper_log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace velmora::ServerHelper {

namespace {

std::int64_t monotonicNanoseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

}  // namespace

bool replaceFile(const std::string& path, const std::string& bytes) {
    std::string temporary = path + ".tmp-" + std::to_string(::getpid());
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) return false;
    bool complete = platform::writeAll(fd, bytes);
    bool written = ::close(fd) == 0 && complete;
    if (written && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
    ::unlink(temporary.c_str());
    return false;
}

StatsFile::StatsFile(std::string path, std::function<StatsSnapshot()> read, std::chrono::seconds interval)
    : path_(std::move(path)), read_(std::move(read)), interval_(interval),
      timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {}

StatsFile::~StatsFile() {
    if (timer_ >= 0) ::close(timer_);
}

void StatsFile::changed() {
    if (dirty_.exchange(true) || timer_ < 0) return;
    // Due one interval after the last write: at once after a quiet spell, never more often.
    std::int64_t last = lastWrite_.load();
    std::int64_t due = last == 0 ? 1 : std::max<std::int64_t>(last + interval_.count(), 1);
    itimerspec when{};
    when.it_value.tv_sec = static_cast<time_t>(due / 1000000000);
    when.it_value.tv_nsec = static_cast<long>(due % 1000000000);
    ::timerfd_settime(timer_, TFD_TIMER_ABSTIME, &when, nullptr);
}

void StatsFile::writeDue() {
    std::uint64_t expirations = 0;
    if (::read(timer_, &expirations, sizeof expirations) != static_cast<ssize_t>(sizeof expirations)) return;
    writeNow();
}

void StatsFile::writeNow() {
    // Noted before the counters are read: a change from here on arms the next write.
    lastWrite_.store(monotonicNanoseconds());
    dirty_.store(false);
    if (replaceFile(path_, statsJson(read_()))) return;
    if (!failureLogged_) logLine("cannot write the statistics file " + path_ + ": " + std::strerror(errno));
    failureLogged_ = true;
}

}  // namespace velmora::ServerHelper
