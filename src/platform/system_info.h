#pragma once
// Facts about this machine and its system that reports and the usage ping mention.

#include <string>

namespace velmora::platform {

// The operating system's version as one line of text (Linux: PRETTY_NAME of /etc/os-release and
// the kernel release; macOS: the process information's version string).
std::string osVersionString();

// The hardware model (Linux: /sys/class/dmi/id/product_name; macOS: sysctl hw.model); empty when
// it cannot be read.
std::string modelName();

// The machine's stable identifier (Linux: /etc/machine-id; macOS: IOPlatformUUID), or "unknown".
std::string platformUUID();

// The program that lists open network connections (lsof).
std::string connectionListerPath();

}  // namespace velmora::platform
