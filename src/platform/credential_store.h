#pragma once
// One secret per (service, account) in the user's keyring: the Keychain on macOS, the Secret
// Service (libsecret) on Linux. Results carry a status number for the log: 0 for success and
// secretItemNotFound when no item matches; other numbers are the platform's own codes.

#include <string>

namespace velmora::platform {

inline constexpr int secretSuccess = 0;
inline constexpr int secretItemNotFound = -25300;  // the Keychain's "item not found"
inline constexpr int secretUnavailable = -25308;   // no keyring reachable, locked, or timed out

struct SecretReading {
    int status = secretItemNotFound;
    std::string data;  // the item's bytes, when status is secretSuccess
};

SecretReading readSecret(const std::string& service, const std::string& account);
// Replaces the data of the existing item; secretItemNotFound when there is none.
int updateSecret(const std::string& service, const std::string& account, const std::string& data);
// Creates the item (accessible after first unlock, where the platform has that notion).
int addSecret(const std::string& service, const std::string& account, const std::string& data);
// Deletes every matching item; deleting a missing item is success.
int deleteSecret(const std::string& service, const std::string& account);

}  // namespace velmora::platform
