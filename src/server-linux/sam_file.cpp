#include "server-linux/sam_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace velmora::ServerHelper {

namespace {

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

SamFile::SamFile(const SamLogin& login) {
    int fd = ::memfd_create("velmora-login", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) return;
    // Sealed, so that the server (or anything it runs) can read the login but never change it.
    if (!writeAll(fd, samFileText(login)) ||
        ::fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL) != 0) {
        ::close(fd);
        return;
    }
    fd_ = fd;
}

SamFile::~SamFile() {
    if (fd_ >= 0) ::close(fd_);
}

}  // namespace velmora::ServerHelper
