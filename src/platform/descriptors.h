#pragma once
// Pipes and sockets that are close-on-exec from the moment they exist, so that a child another
// thread spawns meanwhile never inherits them (Linux: pipe2 and SOCK_CLOEXEC; macOS has neither, but
// there every spawn closes all other descriptors itself).

#include <string_view>

namespace velmora::platform {

// pipe(2) with both ends close-on-exec (and non-blocking when asked); 0 or -1 with errno set.
int closeOnExecPipe(int ends[2], bool nonBlocking = false);

// socket(2) close-on-exec; the descriptor, or -1 with errno set.
int closeOnExecSocket(int domain, int type, int protocol);

// Writes all of `bytes`, again after an interruption; false when the descriptor takes no more.
bool writeAll(int fd, std::string_view bytes);

}  // namespace velmora::platform
