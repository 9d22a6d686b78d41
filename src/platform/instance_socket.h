#pragma once
// The local socket beside the instance lock: the running Velmora listens, a second launch or a
// command sends one short request line and reads one answer line.

#include <cstddef>
#include <optional>
#include <string>

namespace velmora::platform {

// The requests the running Velmora answers.
namespace InstanceRequest {
// Open the settings window; answered "ok".
inline constexpr const char* settings = "settings";
// The stored Windows login changed; answered "restarted" when a running server was restarted for
// it, else "unchanged".
inline constexpr const char* loginChanged = "login-changed";
}  // namespace InstanceRequest

// A request longer than this (without its line feed) is not one of ours.
inline constexpr std::size_t maxRequestLength = 256;

// Where the running Velmora listens for requests.
std::string socketPath();

// Sends `request` to the running Velmora of this user and returns its answer line; absent when none
// listens, the runtime folder is not safe to use, or no answer came within `timeoutSeconds`.
std::optional<std::string> askRunningVelmora(const std::string& request, double timeoutSeconds);

// The running Velmora's listening socket at socketPath() (replacing one left by a crashed run: the
// caller holds the instance lock), non-blocking and close-on-exec; -1 when it cannot be made.
int listenForRequests();
// The next waiting connection, non-blocking; -1 with errno set when there is none or accept failed.
int acceptRequest(int listener);
// Writes the answer line (without SIGPIPE when the asker has gone); false when it did not fit.
bool sendAnswer(int connection, const std::string& answer);

}  // namespace velmora::platform
