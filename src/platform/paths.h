#pragma once
// Where Velmora keeps its files on this platform. Every function reads the environment afresh, so
// tests can point HOME and the XDG folders at a temporary directory.

#include <string>

namespace velmora::platform {

// The user's home folder: $HOME, else the password database; empty when neither is known.
std::string homeDirectory();

// The application log shared with the server.
std::string logFilePath();
// Its folder, which the application creates once at start-up.
std::string logDirectory();

// The folder of the server statistics file.
std::string statsDirectory();

// The file or domain that backs the standard defaults store (macOS: the domain named by
// VELMORA_DEFAULTS_DOMAIN when set, so that tests use a throwaway one).
std::string defaultsLocation();

// The folder where the shadow server keeps shadow.crt and shadow.key.
std::string serverCertDirectory();

// The running executable's own absolute path; empty when unknown.
std::string executablePath();

// The install prefix (Linux) or the .app (macOS) that holds the running executable.
std::string bundleRoot();

// The end of the server executable's path in any installed copy of Velmora; processes whose
// executable ends so are Velmora servers (Linux: "/libexec/velmora/velmora-server").
std::string serverExecutableSuffix();

// A private folder for this user's running Velmora (its lock and socket): Linux
// $XDG_RUNTIME_DIR/velmora, else /tmp/velmora-<uid>; macOS the user's temporary folder + velmora.
std::string runtimeDirectory();

// Creates `path` and its missing parents (mode 0700 for new folders); true when it exists after.
bool makeDirectories(const std::string& path);

}  // namespace velmora::platform
