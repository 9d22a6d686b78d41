#pragma once
// The login handed to the shadow server as an NTLM SAM file (samFileText) that lives only in
// memory: an anonymous, sealed memfd the server inherits as descriptor samServerDescriptor and
// opens by its /dev/fd path. Nothing reaches the file system, so nothing outlives the processes
// holding it, however they end.

#include "server-linux/server_translation.h"

#include <string>

namespace velmora::ServerHelper {

// Where the server finds the login: the descriptor it inherits it as, and the path WinPR opens
// (afresh for every login, which reads the memfd from its start each time).
inline constexpr int samServerDescriptor = 3;
inline constexpr const char* samServerPath = "/dev/fd/3";

class SamFile {
public:
    // Fills and seals the in-memory file; check valid() afterwards.
    explicit SamFile(const SamLogin& login);
    ~SamFile();
    SamFile(const SamFile&) = delete;
    SamFile& operator=(const SamFile&) = delete;

    bool valid() const { return fd_ >= 0; }
    // Close-on-exec in this process; the runner hands it on as samServerDescriptor.
    int descriptor() const { return fd_; }

private:
    int fd_ = -1;
};

}  // namespace velmora::ServerHelper
