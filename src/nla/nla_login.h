#pragma once
// The Windows login (NLA): the entry "user:<32 lower-case hex digits of the NT hash>" that the
// server checks clients against, and its one item in the user's keyring. The password itself is
// never kept.

#include <optional>
#include <string>

namespace velmora::NLALogin {

inline constexpr const char* service = "com.velmora.app";
inline constexpr const char* account = "windows-login";

// The NT hash of `password` (UTF-8 text) as 32 lower-case hexadecimal digits.
std::string ntHashHex(const std::string& password);

// The entry for `user` (trimmed of spaces and tabs) and `hashHex`, or absent when the name is
// empty, 128 characters or longer, holds ':', '\\', '@' or a control character, or the hash is not
// 32 hexadecimal digits.
std::optional<std::string> entry(const std::string& user, const std::string& hashHex);

// The stored entry; absent when there is none, it is unreadable, or the keyring is unavailable.
std::optional<std::string> load();
// Builds and stores the entry; false when the name is refused or the keyring failed.
bool save(const std::string& user, const std::string& password);
// Rewrites the stored entry with a new name and the same hash; false when nothing is stored, the
// name is refused or the stored hash is malformed (the item is then left as it was).
bool rename(const std::string& user);
// Deletes the item; a missing item is no error.
void clear();

// The user-name part of an entry, or absent.
std::optional<std::string> user(const std::optional<std::string>& entry);

}  // namespace velmora::NLALogin
