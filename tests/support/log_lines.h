#pragma once
// The application log as a test reads it.

#include <string>
#include <vector>

namespace velmora::test {

// The lines of the application log (at its usual path), each without the "[time] [Velmora app] "
// prefix that the application's own lines carry; the server's lines come as they are.
std::vector<std::string> logMessages();

}  // namespace velmora::test
