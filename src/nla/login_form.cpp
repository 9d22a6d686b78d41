#include "nla/login_form.h"

#include "nla/nla_login.h"
#include "platform/words.h"

namespace velmora::LoginForm {

std::string badNameOrKeyring() { return platform::say(platform::words::badNameOrKeyring); }

std::optional<std::string> apply(const std::string& userField, const std::string& password) {
    std::size_t first = userField.find_first_not_of(" \t");
    if (first == std::string::npos) {
        NLALogin::clear();
        return std::nullopt;
    }
    std::size_t last = userField.find_last_not_of(" \t");
    std::string user = userField.substr(first, last - first + 1);
    if (!password.empty()) {
        if (!NLALogin::save(user, password)) return badNameOrKeyring();
        return std::nullopt;
    }
    if (!NLALogin::load()) return std::string(passwordNeeded);
    if (!NLALogin::rename(user)) return std::string(badName);
    return std::nullopt;
}

}  // namespace velmora::LoginForm
