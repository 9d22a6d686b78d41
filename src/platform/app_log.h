#pragma once
// The application log shared with the server: every line the application writes is
// "[HH:mm:ss:SSS] [Velmora app] " plus the message. Each call opens, appends and closes on its own,
// so whole lines land at the end even while the server appends to the same file.

#include <chrono>
#include <string>

namespace velmora::platform::AppLog {

// The log file's path for this user.
std::string path();

// "HH:mm:ss:SSS" in local time.
std::string timestamp(std::chrono::system_clock::time_point when);

// The whole line for `message`, ending in a line feed.
std::string line(const std::string& message, std::chrono::system_clock::time_point when);

// Appends one line to the log at path(). Never fails visibly: a missing folder, an unwritable file
// or a write error drops the line. The folder is never created here.
void write(const std::string& message);

// The same, for a log at another path.
void writeTo(const std::string& logPath, const std::string& message);

// Opens (creating it when missing) a log for appending, close-on-exec: the descriptor, or -1. Only
// a regular file is kept open; a FIFO or a device in its place is refused, and opening never waits
// (a FIFO without a reader would block the caller for good).
int openForAppend(const std::string& logPath);

}  // namespace velmora::platform::AppLog
