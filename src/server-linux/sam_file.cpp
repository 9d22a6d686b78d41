#include "server-linux/sam_file.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velmora::ServerHelper {

namespace {

bool isFolder(const std::string& path) {
    struct stat info{};
    return !path.empty() && path[0] == '/' && ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool writeAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

std::string samParentFolder(const Environment& environment) {
    for (const char* name : {"XDG_RUNTIME_DIR", "TMPDIR"}) {
        auto found = environment.find(name);
        if (found != environment.end() && isFolder(found->second)) return found->second;
    }
    return "/tmp";
}

SamFile::SamFile(const SamLogin& login, const std::string& parent) {
    std::string pattern = parent + "/velmora-server-XXXXXX";
    if (!::mkdtemp(pattern.data())) return;  // mkdtemp makes the folder 0700
    folder_ = pattern;
    std::string file = folder_ + "/login.sam";
    int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        remove();
        return;
    }
    path_ = file;  // set first, so that remove() also takes a half-written file away
    bool written = ::fchmod(fd, 0600) == 0 && writeAll(fd, samFileText(login));
    written = (::close(fd) == 0) && written;
    if (!written) remove();
}

SamFile::~SamFile() { remove(); }

void SamFile::remove() {
    if (!path_.empty()) ::unlink(path_.c_str());
    if (!folder_.empty()) ::rmdir(folder_.c_str());
    path_.clear();
    folder_.clear();
}

}  // namespace velmora::ServerHelper
