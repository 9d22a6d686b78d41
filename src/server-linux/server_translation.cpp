#include "server-linux/server_translation.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <sys/wait.h>

namespace velmora::ServerHelper {

namespace {

bool isPortArgument(const std::string& argument) {
    const std::string prefix = "/port:";
    if (argument.rfind(prefix, 0) != 0 || argument.size() == prefix.size()) return false;
    const char* first = argument.data() + prefix.size();
    const char* last = argument.data() + argument.size();
    unsigned value = 0;
    auto [end, error] = std::from_chars(first, last, value);
    return error == std::errc() && end == last && value >= 1 && value <= 65535;
}

bool isHexDigit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

}  // namespace

std::optional<std::string> probeMode(const Environment& environment) {
    auto found = environment.find("MAC_SHADOW_PERMS");
    if (found == environment.end() || found->second.empty()) return std::nullopt;
    return found->second;
}

std::string probeLine(bool screen, bool input) {
    return std::string("screen=") + (screen ? "1" : "0") + " input=" + (input ? "1" : "0") + "\n";
}

bool watchesParent(const Environment& environment) {
    auto found = environment.find("MAC_SHADOW_PARENT_WATCH");
    return found != environment.end() && found->second == "1";
}

std::optional<SamLogin> parseLoginEntry(const std::string& entry) {
    auto colon = entry.rfind(':');
    if (colon == std::string::npos || colon == 0) return std::nullopt;
    std::string user = entry.substr(0, colon);
    std::string hash = entry.substr(colon + 1);
    if (hash.size() != 32) return std::nullopt;
    for (char& c : hash) {
        if (!isHexDigit(c)) return std::nullopt;
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    // A colon would shift the SAM fields, a control character (a line feed above all) would start
    // a line of its own in the SAM file.
    bool onlySpaces = true;
    for (char c : user) {
        auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || c == ':') return std::nullopt;
        if (c != ' ') onlySpaces = false;
    }
    if (onlySpaces) return std::nullopt;
    return SamLogin{user, hash};
}

std::string samLine(const SamLogin& login) { return login.user + ":::" + login.ntHashHex + ":::\n"; }

std::string samFileText(const SamLogin& login) {
    auto mapped = [&](auto change) {
        std::string name = login.user;
        for (char& c : name) c = static_cast<char>(change(static_cast<unsigned char>(c)));
        return name;
    };
    std::string lower = mapped([](unsigned char c) { return c < 0x80 ? std::tolower(c) : c; });
    std::string upper = mapped([](unsigned char c) { return c < 0x80 ? std::toupper(c) : c; });
    std::string capitalised = lower;
    if (static_cast<unsigned char>(capitalised[0]) < 0x80)
        capitalised[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(capitalised[0])));

    std::vector<std::string> names;
    for (const std::string& name : {login.user, lower, upper, capitalised})
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    std::string text;
    for (const auto& name : names) text += samLine(SamLogin{name, login.ntHashHex});
    return text;
}

bool nlaCanMatch(const std::string& user) {
    for (char c : user)
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    return true;
}

bool asksForNla(const std::vector<std::string>& ours) {
    for (const auto& argument : ours)
        if (argument == "+sec-nla") return true;
    return false;
}

ShadowArguments shadowArguments(const std::vector<std::string>& ours,
                                const std::optional<std::string>& samFile) {
    ShadowArguments result;
    bool nla = false;
    for (const auto& argument : ours) {
        if (isPortArgument(argument) || argument == "+auth" || argument == "-auth" ||
            argument == "/sec:tls") {
            result.arguments.push_back(argument);
        } else if (argument == "+sec-nla" && samFile && !nla) {
            result.arguments.push_back(argument);
            nla = true;
        } else {
            result.dropped.push_back(argument);
        }
    }
    // Without a SAM file NLA would check clients against WinPR's system-wide file; with NLA left
    // off the server offers TLS only.
    if (nla) result.arguments.push_back("/sam-file:" + *samFile);
    return result;
}

Environment shadowEnvironment(const Environment& ours) {
    Environment result;
    for (const auto& [name, value] : ours)
        if (name.rfind("MAC_SHADOW_", 0) != 0) result.emplace(name, value);
    return result;
}

int exitCodeOf(int waitStatus) {
    if (WIFSIGNALED(waitStatus)) return 128 + WTERMSIG(waitStatus);
    if (WIFEXITED(waitStatus)) return WEXITSTATUS(waitStatus);
    return 1;
}

}  // namespace velmora::ServerHelper
