#include "platform/app_log.h"

#include "platform/descriptors.h"
#include "platform/paths.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velmora::platform::AppLog {

std::string path() { return logFilePath(); }

std::string timestamp(std::chrono::system_clock::time_point when) {
    using namespace std::chrono;
    auto sinceEpoch = when.time_since_epoch();
    auto wholeSeconds = floor<seconds>(sinceEpoch);
    auto millis = duration_cast<milliseconds>(sinceEpoch - wholeSeconds).count();
    std::time_t t = static_cast<std::time_t>(wholeSeconds.count());
    std::tm local{};
    localtime_r(&t, &local);
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%02d:%02d:%02d:%03d", local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(millis));
    return buffer;
}

std::string line(const std::string& message, std::chrono::system_clock::time_point when) {
    return "[" + timestamp(when) + "] [Velmora app] " + message + "\n";
}

void writeTo(const std::string& logPath, const std::string& message) {
    if (logPath.empty()) return;
    std::string text = line(message, std::chrono::system_clock::now());
    // O_APPEND makes the single write land at the end, whoever else appends meanwhile.
    int fd = openForAppend(logPath);
    if (fd < 0) return;
    writeAll(fd, text);
    ::close(fd);
}

void write(const std::string& message) { writeTo(path(), message); }

int openForAppend(const std::string& logPath) {
    int fd = ::open(logPath.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0644);
    if (fd < 0) return -1;
    struct stat info{};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        return -1;
    }
    // Blocking again: the server inherits this descriptor as its output.
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return fd;
}

}  // namespace velmora::platform::AppLog
