#include "server-linux/server_options.h"

#include "core/server_contract.h"

#include <algorithm>
#include <charconv>

namespace velmora::ServerHelper {

namespace {

namespace Env = Contract::Env;
namespace Switch = Contract::Switch;

std::optional<std::string> valueOf(const Environment& environment, std::string_view name) {
    auto found = environment.find(std::string(name));
    if (found == environment.end()) return std::nullopt;
    return found->second;
}

// The whole of `text` as a decimal integer.
std::optional<long> integer(std::string_view text) {
    long value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return value;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// `fallback` when the variable is unset or not a number; otherwise its value within [low, high].
int rangedInteger(const Environment& environment, std::string_view name, int fallback, int low, int high) {
    auto text = valueOf(environment, name);
    auto value = text ? integer(*text) : std::nullopt;
    if (!value) return fallback;
    return static_cast<int>(std::clamp<long>(*value, low, high));
}

}  // namespace

std::optional<std::string> probeMode(const Environment& environment) {
    auto mode = valueOf(environment, Env::probe);
    if (!mode || mode->empty()) return std::nullopt;
    return mode;
}

std::string probeLine(bool screen, bool input) {
    return std::string(Contract::Probe::screen) + (screen ? "1" : "0") + " " + std::string(Contract::Probe::input) +
           (input ? "1" : "0") + "\n";
}

std::string causeLine(std::string_view cause, const std::string& display) {
    if (cause.empty()) return {};
    std::string line = std::string(Contract::Probe::cause) + std::string(cause);
    if (!display.empty()) line += " " + display;
    return line + "\n";
}

std::optional<Login> parseLoginEntry(const std::string& entry) {
    auto colon = entry.rfind(':');
    if (colon == std::string::npos || colon == 0 || entry.size() - colon - 1 != 32) return std::nullopt;
    // Built in place and returned as it is: no copy of the hash is left behind on the stack.
    std::optional<Login> login(std::in_place);
    login->user = entry.substr(0, colon);
    for (std::size_t i = 0; i < 16; ++i) {
        int high = hexValue(entry[colon + 1 + 2 * i]);
        int low = hexValue(entry[colon + 2 + 2 * i]);
        if (high < 0 || low < 0) return std::nullopt;
        login->ntHash[i] = static_cast<unsigned char>(high * 16 + low);
    }
    // A name no client can type is a malformed entry, not a login.
    bool onlySpaces = true;
    for (char c : login->user) {
        if (static_cast<unsigned char>(c) < 0x20 || c == ':' || c == 0x7f) return std::nullopt;
        if (c != ' ') onlySpaces = false;
    }
    if (onlySpaces) return std::nullopt;
    return login;
}

ServerOptions parseOptions(const std::vector<std::string>& arguments, const Environment& environment) {
    ServerOptions options;
    bool serverSideCursor = false;
    auto suffix = [](const std::string& argument, std::string_view prefix) -> std::optional<long> {
        if (argument.rfind(prefix, 0) != 0) return std::nullopt;
        return integer(std::string_view(argument).substr(prefix.size()));
    };
    for (const auto& argument : arguments) {
        if (argument.rfind(Switch::port, 0) == 0) {
            auto port = suffix(argument, Switch::port);
            if (port && *port >= 1 && *port <= 65535)
                options.port = static_cast<int>(*port);
            else
                options.ignored.push_back(argument);
        } else if (argument.rfind(Switch::maxConnections, 0) == 0) {
            auto limit = suffix(argument, Switch::maxConnections);
            if (limit && *limit >= 1 && *limit <= 1000)
                options.maxConnections = static_cast<int>(*limit);
            else
                options.ignored.push_back(argument);
        } else if (argument == Switch::authOn || argument == Switch::authOff) {
            options.authentication = argument == Switch::authOn;
        } else if (argument == Switch::nla) {
            options.nla = true;
        } else if (argument == Switch::avc444On || argument == Switch::avc444Off) {
            options.avc444 = argument == Switch::avc444On;
        } else if (argument == Switch::serverSideCursor) {
            serverSideCursor = true;
        } else if (argument != Switch::tls) {  // TLS is the only security layer this server offers
            options.ignored.push_back(argument);
        }
    }
    options.cursorInVideo = valueOf(environment, Env::cursor) == "1" && !serverSideCursor;
    options.fps = rangedInteger(environment, Env::fps, 30, 1, 60);
    options.adaptiveFps = valueOf(environment, Env::adaptiveFps) != "0";
    options.bitrateMbps = rangedInteger(environment, Env::bitrateMbps, 10, 1, 100);
    options.statsFile = valueOf(environment, Env::statsFile);
    if (options.statsFile && options.statsFile->empty()) options.statsFile.reset();
    options.watchParent = valueOf(environment, Env::parentWatch) == "1";
    options.clipboard = valueOf(environment, Env::clipboard) == "1";
    options.audio = valueOf(environment, Env::audio) == "1";
    return options;
}

}  // namespace velmora::ServerHelper
