#pragma once
// The human-readable name of an X.509 certificate's subject, as the platform shows it.

#include <optional>
#include <string>
#include <vector>

namespace velmora::platform {

// Absent when `der` is not a certificate or its subject carries no name (or an empty one).
// Linux: the first non-empty of commonName, organizationName, organizationalUnitName, emailAddress.
// macOS: the Security framework's subject summary.
std::optional<std::string> certificateSubjectName(const std::vector<unsigned char>& der);

}  // namespace velmora::platform
