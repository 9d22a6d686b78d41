// The defaults store on Linux: one JSON object in a file, typed values, re-read on every read and
// replaced atomically (through a symbolic link, onto its target) when a value changes. A file that
// cannot be read (not JSON, not an object, empty, over 1 MiB, not a regular file) never makes
// Velmora guess: reads keep the values last read from it in this run (none at start-up, so the
// registered defaults apply), the application log says so once per problem, and the next change
// keeps the file aside under a new name before it writes.

#include "platform/app_log.h"
#include "platform/defaults_store.h"
#include "platform/descriptors.h"
#include "platform/paths.h"
#include "platform/system_log.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace velmora::platform {

namespace {

using nlohmann::json;

constexpr off_t maxFileSize = 1 << 20;

std::string parentOf(const std::string& path) {
    auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// What one read of the file found.
struct Reading {
    json object = json::object();  // the values to use
    bool exists = false;           // something is at the path
    bool fromFile = false;         // `object` was read from the file just now
    bool known = false;            // from the file, now or earlier in this run, or there is no file
    std::string problem;           // why the file could not be read
};

// Per file: the object last read from it in this run, and the problem last reported for it.
struct Memory {
    std::optional<json> lastGood;
    std::string reported;
};
std::mutex memoryLock;
std::map<std::string, Memory> memories;

// The file's text; a problem when it cannot be read. `identity` tells one version of it from another.
std::string readText(const std::string& path, std::string& text, std::string& identity, bool& exists) {
    // Non-blocking: a FIFO in its place must not hang the reader.
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    exists = fd >= 0 || errno != ENOENT;
    if (fd < 0) return exists ? "it cannot be opened: " + std::generic_category().message(errno) : "";
    struct stat info{};
    std::string problem;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) problem = "it is not a regular file";
    else if (info.st_size > maxFileSize) problem = "it is larger than 1 MiB";
    identity = std::to_string(info.st_ino) + "/" + std::to_string(info.st_size) + "/" +
               std::to_string(info.st_mtim.tv_sec) + "." + std::to_string(info.st_mtim.tv_nsec);
    char buffer[16384];
    while (problem.empty()) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) problem = "it cannot be read: " + std::generic_category().message(errno);
        if (n <= 0) break;
        text.append(buffer, static_cast<std::size_t>(n));
        if (text.size() > static_cast<std::size_t>(maxFileSize)) problem = "it is larger than 1 MiB";
    }
    ::close(fd);
    return problem;
}

Reading readFile(const std::string& path) {
    Reading reading;
    std::string text;
    std::string identity;
    reading.problem = readText(path, text, identity, reading.exists);
    json parsed = json::object();
    if (reading.exists && reading.problem.empty()) {
        parsed = json::parse(text, nullptr, false);
        if (text.find_first_not_of(" \t\r\n") == std::string::npos) reading.problem = "it is empty";
        else if (parsed.is_discarded()) reading.problem = "it is not valid JSON";
        else if (!parsed.is_object()) reading.problem = "it holds no JSON object";
    }
    std::lock_guard<std::mutex> lock(memoryLock);
    Memory& memory = memories[path];
    if (reading.problem.empty()) {
        memory.lastGood = parsed;
        memory.reported.clear();
        reading.object = std::move(parsed);
        reading.fromFile = reading.known = true;
        return reading;
    }
    reading.known = memory.lastGood.has_value();
    reading.object = memory.lastGood.value_or(json::object());
    if (memory.reported != reading.problem + identity) {
        memory.reported = reading.problem + identity;
        AppLog::write("the settings file " + path + " cannot be read (" + reading.problem + "): " +
                      (reading.known ? "using the values read from it before"
                                     : "using the defaults, and no usage pings, until it can be read") +
                      "; it is kept aside when a setting next changes");
    }
    return reading;
}

void remember(const std::string& path, const json& object) {
    std::lock_guard<std::mutex> lock(memoryLock);
    memories[path] = Memory{object, {}};
}

// The file a chain of symbolic links at `path` ends in (`path` itself when it is no link).
std::string resolveLinks(std::string path) {
    for (int hop = 0; hop < 40; ++hop) {
        char target[PATH_MAX];
        ssize_t n = ::readlink(path.c_str(), target, sizeof target - 1);
        if (n <= 0) break;
        std::string next(target, static_cast<std::size_t>(n));
        path = next[0] == '/' ? next : parentOf(path) + "/" + next;
    }
    return path;
}

// Keeps an unreadable file as "<file>.corrupt-<date>-<time>[-n]" (a second name for it, so the file
// itself stays until the write replaces it); false when that failed and the write must not happen.
bool keepAside(const std::string& path) {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
    std::string base = path + ".corrupt-" + stamp;
    std::string target = base;
    for (int n = 2; ::access(target.c_str(), F_OK) == 0 && n < 1000; ++n) target = base + "-" + std::to_string(n);
    if (::link(path.c_str(), target.c_str()) != 0) return false;
    const std::string notice = "the settings file " + path + " could not be read; it was kept as " + target;
    AppLog::write(notice);
    systemLog("Velmora: " + notice);
    return true;
}

std::optional<DefaultsValue> fromJson(const json& value) {
    if (value.is_boolean()) return DefaultsValue(value.get<bool>());
    if (value.is_number_integer()) {
        if (value.is_number_unsigned() && value.get<std::uint64_t>() > static_cast<std::uint64_t>(INT64_MAX))
            return DefaultsValue(static_cast<double>(value.get<std::uint64_t>()));
        return DefaultsValue(value.get<std::int64_t>());
    }
    if (value.is_number_float()) return DefaultsValue(value.get<double>());
    if (value.is_string()) return DefaultsValue(value.get<std::string>());
    return std::nullopt;  // null, arrays and objects are not values of this store
}

json toJson(const DefaultsValue& value) {
    return std::visit([](const auto& v) { return json(v); }, value);
}

// Serialises writers (also across processes) for the read-modify-write of one change.
class FileLock {
public:
    explicit FileLock(const std::string& path) {
        fd_ = ::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (fd_ >= 0) {
            while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {}
        }
    }
    ~FileLock() {
        if (fd_ >= 0) ::close(fd_);  // closing releases the lock
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    int fd_ = -1;
};

// A temporary file beside `path`, renamed over it: readers see the old file or the new one.
bool writeAtomically(const std::string& path, const std::string& contents) {
    std::string temporary = path + ".tmp-" + std::to_string(::getpid());
    ::unlink(temporary.c_str());
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    bool written = writeAll(fd, contents);
    bool synced = written && ::fsync(fd) == 0;
    bool closed = ::close(fd) == 0;
    if (!synced || !closed || ::rename(temporary.c_str(), path.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

bool change(const std::string& path, const std::string& key, const std::optional<DefaultsValue>& value) {
    if (!makeDirectories(parentOf(path))) return false;
    FileLock lock(path);
    Reading current = readFile(path);
    json object = current.object;
    auto it = object.find(key);
    if (value) {
        // Nothing changes: nothing is written (an unreadable file stays where it is, too).
        if (it != object.end() && fromJson(*it) == value) return true;
        object[key] = toJson(*value);
    } else {
        if (it == object.end()) return true;
        object.erase(it);
    }
    // A symbolic link stays; the file it names is replaced.
    const std::string target = resolveLinks(path);
    if (current.exists && !current.fromFile && !keepAside(target)) return false;  // never lose a file unread
    if (!writeAtomically(target, object.dump(2) + "\n")) return false;
    remember(path, object);
    return true;
}

}  // namespace

std::optional<DefaultsValue> DefaultsStore::storedObject(const std::string& key) const {
    json object = readFile(location_).object;
    auto it = object.find(key);
    if (it == object.end()) return std::nullopt;
    return fromJson(*it);
}

bool DefaultsStore::storedValuesKnown() const { return readFile(location_).known; }

bool DefaultsStore::set(const std::string& key, const DefaultsValue& value) {
    return change(location_, key, value);
}

bool DefaultsStore::remove(const std::string& key) {
    return change(location_, key, std::nullopt);
}

void discardStoredDefaults(const std::string& location) {
    std::remove(location.c_str());
    std::remove((location + ".lock").c_str());
    std::lock_guard<std::mutex> lock(memoryLock);
    memories.erase(location);
}

}  // namespace velmora::platform
