#pragma once
// The login handed to the shadow server as an NTLM SAM file (samFileText), mode 0600, in a
// private 0700 folder of its own; both are removed when the SamFile ends.

#include "server-linux/server_translation.h"

#include <optional>
#include <string>

namespace velmora::ServerHelper {

class SamFile {
public:
    // Writes the file under `parent` (a folder that must exist); check valid() afterwards.
    SamFile(const SamLogin& login, const std::string& parent);
    ~SamFile();
    SamFile(const SamFile&) = delete;
    SamFile& operator=(const SamFile&) = delete;

    bool valid() const { return !path_.empty(); }
    const std::string& path() const { return path_; }
    const std::string& folder() const { return folder_; }
    // Removes the file and its folder now (also done by the destructor).
    void remove();

private:
    std::string folder_;
    std::string path_;
};

// Where the private folder goes: $XDG_RUNTIME_DIR (a per-user tmpfs) when it names a folder, else
// $TMPDIR, else /tmp.
std::string samParentFolder(const Environment& environment);

}  // namespace velmora::ServerHelper
