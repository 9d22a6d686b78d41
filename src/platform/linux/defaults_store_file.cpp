// The defaults store on Linux: one JSON object in a file, typed values, re-read on every read and
// replaced atomically on every write. A file that does not parse as an object is kept aside under a
// new name (never overwritten) and reads as empty.

#include "platform/defaults_store.h"
#include "platform/paths.h"
#include "platform/system_log.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velmora::platform {

namespace {

using nlohmann::json;

std::string parentOf(const std::string& path) {
    auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool readWhole(const std::string& path, std::string& out, bool& exists) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        exists = errno != ENOENT;
        return !exists;  // a missing file is an empty store, not an error
    }
    exists = true;
    out.clear();
    char buffer[16384];
    for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            ::close(fd);
            return false;
        }
        if (n == 0) break;
        out.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return true;
}

// Keeps an unparsable file as "<file>.corrupt-<date>-<time>[-n]" (a second name for it, so the file
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
    systemLog("Velmora: the settings file " + path + " could not be read; it was kept as " + target);
    return true;
}

// The file's object; an empty object for a missing, empty or unparsable file. A read never moves or
// changes the file (an editor may be half-way through saving it); only a write about to replace an
// unparsable file (`keepUnparsable`, under the lock) keeps it aside first. `ok` is false when the
// file exists but could not be read, or could not be kept aside.
json loadObject(const std::string& path, bool keepUnparsable, bool* ok = nullptr) {
    std::string text;
    bool exists = false;
    bool readable = readWhole(path, text, exists);
    if (ok) *ok = readable;
    if (!readable || text.find_first_not_of(" \t\r\n") == std::string::npos) return json::object();
    json parsed = json::parse(text, nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object()) {
        if (keepUnparsable && !keepAside(path) && ok) *ok = false;
        return json::object();
    }
    return parsed;
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

bool writeAtomically(const std::string& path, const std::string& contents) {
    std::string temporary = path + ".tmp-" + std::to_string(::getpid());
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    std::size_t written = 0;
    while (written < contents.size()) {
        ssize_t n = ::write(fd, contents.data() + written, contents.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ::close(fd);
            ::unlink(temporary.c_str());
            return false;
        }
        written += static_cast<std::size_t>(n);
    }
    bool synced = ::fsync(fd) == 0;
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
    bool readable = true;
    json object = loadObject(path, true, &readable);
    if (!readable) return false;  // never replace a file we could not read or keep
    if (value) {
        object[key] = toJson(*value);
    } else {
        if (!object.contains(key)) return true;
        object.erase(key);
    }
    return writeAtomically(path, object.dump(2) + "\n");
}

}  // namespace

std::optional<DefaultsValue> DefaultsStore::storedObject(const std::string& key) const {
    json object = loadObject(location_, false);
    auto it = object.find(key);
    if (it == object.end()) return std::nullopt;
    return fromJson(*it);
}

bool DefaultsStore::set(const std::string& key, const DefaultsValue& value) {
    return change(location_, key, value);
}

bool DefaultsStore::remove(const std::string& key) {
    return change(location_, key, std::nullopt);
}

void discardStoredDefaults(const std::string& location) {
    std::remove(location.c_str());
    std::remove((location + ".lock").c_str());
}

}  // namespace velmora::platform
