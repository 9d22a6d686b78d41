#include "permissions/perm_probe.h"

#include "core/text.h"
#include "platform/words.h"

#include <string_view>
#include <vector>

namespace velmora {

namespace {

// The line break starting at `at`, as a byte length; 0 when there is none.
std::size_t lineBreakLength(std::string_view text, std::size_t at) {
    unsigned char c = static_cast<unsigned char>(text[at]);
    if (c == '\r') return at + 1 < text.size() && text[at + 1] == '\n' ? 2 : 1;
    if (c == '\n' || c == '\v' || c == '\f') return 1;
    std::string_view rest = text.substr(at);
    if (rest.starts_with("\xC2\x85")) return 2;
    if (rest.starts_with("\xE2\x80\xA8") || rest.starts_with("\xE2\x80\xA9")) return 3;
    return 0;
}

std::vector<std::string_view> nonEmptyLines(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (std::size_t length = lineBreakLength(text, i)) {
            if (i > start) lines.push_back(text.substr(start, i - start));
            i += length;
            start = i;
        } else {
            ++i;
        }
    }
    if (start < text.size()) lines.push_back(text.substr(start));
    return lines;
}

// "0" or "1" after `prefix`, else absent.
std::optional<bool> flag(std::string_view piece, std::string_view prefix) {
    if (!piece.starts_with(prefix)) return std::nullopt;
    std::string_view value = piece.substr(prefix.size());
    if (value == "1") return true;
    if (value == "0") return false;
    return std::nullopt;
}

std::optional<PermStatus> parseLine(std::string_view line) {
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= line.size(); ++i) {
        if (i == line.size() || line[i] == ' ') {
            if (i > start) pieces.push_back(line.substr(start, i - start));
            if (pieces.size() > 2) return std::nullopt;
            start = i + 1;
        }
    }
    if (pieces.size() != 2) return std::nullopt;
    auto screen = flag(pieces[0], Contract::Probe::screen);
    auto input = flag(pieces[1], Contract::Probe::input);
    if (!screen || !input) return std::nullopt;
    return PermStatus{*screen, *input};
}

}  // namespace

LaunchPlan permProbeLaunch(const std::string& mode, const Environment& baseEnvironment) {
    LaunchPlan plan;
    plan.arguments = {std::string(Contract::Switch::port) + std::to_string(PermConst::probePort)};
    plan.environment = baseEnvironment;
    plan.environment[std::string(Contract::Env::probe)] = mode;
    plan.environment[std::string(Contract::Env::logLevel)] = "ERROR";  // only the server's errors during a probe
    return plan;
}

std::optional<ProbeCause> parseProbeCause(const std::string& output) {
    auto lines = nonEmptyLines(output);
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        if (!line->starts_with(Contract::Probe::cause)) continue;
        std::string_view rest = line->substr(Contract::Probe::cause.size());
        auto space = rest.find(' ');
        ProbeCause cause{std::string(rest.substr(0, space)), ""};
        if (space != std::string_view::npos) cause.display = text::trimmed(rest.substr(space + 1));
        if (!cause.word.empty()) return cause;
    }
    return std::nullopt;
}

std::string missingPermissionText(const std::optional<PermStatus>& status, const std::optional<ProbeCause>& cause) {
    using namespace Contract::Probe;
    namespace words = platform::words;
    if (cause) {
        const platform::Words* said = cause->word == Cause::noDisplay          ? &words::causeNoDisplay
                                      : cause->word == Cause::displayRefused   ? &words::causeDisplayRefused
                                      : cause->word == Cause::screenUnreadable ? &words::causeScreenUnreadable
                                      : cause->word == Cause::noXtest          ? &words::causeNoXtest
                                      : cause->word == Cause::wayland          ? &words::causeWayland
                                                                               : nullptr;
        if (said) {
            std::string text = platform::say(*said);
            if (auto at = text.find("%s"); at != std::string::npos)
                text.replace(at, 2, cause->display.empty() ? std::string("named by DISPLAY") : cause->display);
            return text;
        }
    }
    std::string missing = status ? text::join(status->missingServices(), ", ") : "unknown";
    return platform::say(words::lacksPermission) + " (" + missing + ")";
}

std::optional<PermStatus> parsePermProbe(const std::string& output) {
    auto lines = nonEmptyLines(output);
    for (auto line = lines.rbegin(); line != lines.rend(); ++line)
        if (auto status = parseLine(*line)) return status;
    return std::nullopt;
}

}  // namespace velmora
