#pragma once
// What happens when the user submits a Windows login (user name and password fields), shared by
// the settings window and the command line so that both say the same.

#include <optional>
#include <string>

namespace velmora::LoginForm {

inline constexpr const char* alertTitle = "Windows login";
// The store's refusal, naming this platform's keyring.
std::string badNameOrKeyring();
inline constexpr const char* passwordNeeded =
    "Type a password for the Windows login (or clear the user name to leave it off).";
inline constexpr const char* badName = "The Windows login user name must not contain : \\ or @.";

// An empty name (after trimming spaces and tabs) removes the login; a name with a password saves
// it; a name without one renames the stored login. Returns the message to show on refusal.
std::optional<std::string> apply(const std::string& userField, const std::string& password);

}  // namespace velmora::LoginForm
