#include "platform/descriptors.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace velmora::platform {

int closeOnExecPipe(int ends[2], bool nonBlocking) { return ::pipe2(ends, O_CLOEXEC | (nonBlocking ? O_NONBLOCK : 0)); }

int closeOnExecSocket(int domain, int type, int protocol) { return ::socket(domain, type | SOCK_CLOEXEC, protocol); }

}  // namespace velmora::platform
