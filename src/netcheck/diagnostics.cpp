#include "netcheck/diagnostics.h"

#include "core/text.h"
#include "nla/nla_login.h"
#include "platform/system_info.h"
#include "platform/words.h"
#include "settings/settings_table.h"
#include "settings/remote_screen.h"

#include <charconv>
#include <fcntl.h>
#include <re2/re2.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velmora::Diagnostics {

namespace {

// The regular expressions follow the system's (ICU) definitions: \s is [\t\n\f\r\p{Z}] and a word
// character is a letter, mark, decimal digit or connector, not only ASCII.
const RE2& signedToken() {
    static const RE2 pattern("[A-Za-z0-9_-]{20,}\\.[A-Za-z0-9_-]{20,}");
    return pattern;
}
const RE2& loginEntry() {
    static const RE2 pattern("MAC_SHADOW_NLA=[^\\t\\n\\f\\r\\p{Z}]+");
    return pattern;
}
const RE2& hexWord() {
    // RE2's \b knows only ASCII word characters; the neighbours are checked for the rest below.
    static const RE2 pattern("\\b[0-9a-fA-F]{32}\\b");
    return pattern;
}
const RE2& unicodeWordCharacter() {
    static const RE2 pattern("[\\p{L}\\p{Nl}\\p{M}\\p{Nd}\\p{Pc}\\x{200C}\\x{200D}]");
    return pattern;
}

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

bool wordCharacterAt(std::string_view text, std::size_t start, std::size_t end) {
    return start < end && RE2::FullMatch(re2::StringPiece(text.data() + start, end - start), unicodeWordCharacter());
}

// Whether the scalar ending at `at` (exclusive) is a word character.
bool wordBefore(std::string_view text, std::size_t at) {
    if (at == 0) return false;
    std::size_t start = at - 1;
    while (start > 0 && at - start < 4 && isContinuation(text[start])) --start;
    return wordCharacterAt(text, start, at);
}

// Whether the scalar starting at `at` is a word character.
bool wordAfter(std::string_view text, std::size_t at) {
    if (at >= text.size()) return false;
    std::size_t end = at + 1;
    while (end < text.size() && end - at < 4 && isContinuation(text[end])) ++end;
    return wordCharacterAt(text, at, end);
}

std::string removeHexWords(const std::string& text) {
    std::string out;
    re2::StringPiece input(text);
    re2::StringPiece match;
    std::size_t position = 0;
    std::size_t copied = 0;
    while (position <= text.size() &&
           hexWord().Match(input, position, text.size(), RE2::UNANCHORED, &match, 1)) {
        std::size_t start = static_cast<std::size_t>(match.data() - text.data());
        std::size_t end = start + match.size();
        if (!wordBefore(text, start) && !wordAfter(text, end)) {
            out.append(text, copied, start - copied);
            out += "[removed]";
            copied = end;
        }
        position = end;
    }
    out.append(text, copied, std::string::npos);
    return out;
}

}  // namespace

std::string build(const std::string& appVersion, const std::string& os, const std::string& model,
                  const ServerSettings& settings, bool running, const std::vector<Permission>& permissions,
                  const std::vector<NetInfo::Address>& addresses, std::string_view log) {
    std::vector<std::string> lines;
    lines.push_back("Velmora " + appVersion);
    // No dangling comma where the model cannot be read (it always can on a Mac).
    lines.push_back(platform::say(platform::words::systemPrefix) + os + (model.empty() ? "" : ", " + model));
    lines.push_back(std::string("Server: ") + (running ? "running" : "stopped") + ", port " +
                    std::to_string(settings.port) + ", scale " + text::shortestDecimal(settings.scale) + ", max " +
                    std::to_string(settings.fps) + " fps (adaptive: " + (settings.adaptiveFps ? "on" : "off") + ")");
    lines.push_back("Max pixels " + std::to_string(settings.maxPixels) + ", encoder: " +
                    (settings.videoEncoder ? "hardware" : "software") + ", audio " + (settings.audio ? "on" : "off") +
                    ", login required: " + (settings.requireLogin ? "yes" : "no") +
                    ", remote screen: " + rawValue(settings.remoteScreen));
    if (std::string ignored = ignoredSettingsLine(); !ignored.empty()) lines.push_back(ignored);
    auto user = NLALogin::user(settings.nlaLogin);
    lines.push_back("Windows login (NLA): " + (user ? "set, user '" + *user + "'" : std::string("not set")));
    for (const auto& [name, granted] : permissions)
        lines.push_back("Permission " + name + ": " + (granted ? "granted" : "missing"));
    std::vector<std::string> listed;
    for (const auto& address : addresses) listed.push_back(address.ip + " (" + address.interface + ")");
    lines.push_back("Addresses: " + (listed.empty() ? std::string("none") : text::join(listed, ", ")));
    lines.push_back("");
    lines.push_back("Last log lines:");
    lines.push_back(redact(tail(log, logLines)));
    return text::join(lines, "\n");
}

std::string redact(std::string_view input) {
    std::string text = text::isValidUtf8(input) ? std::string(input) : text::repairedUtf8(input);
    RE2::GlobalReplace(&text, signedToken(), "[removed]");
    RE2::GlobalReplace(&text, loginEntry(), "[removed]");
    return removeHexWords(text);
}

std::string tail(std::string_view text, std::int64_t maxLines) {
    if (maxLines <= 0) return {};
    // The last maxLines pieces start after the maxLines-th line feed counted from the end.
    std::size_t start = text.size();
    for (std::int64_t found = 0; found < maxLines; ++found) {
        std::size_t at = start == 0 ? std::string_view::npos : text.rfind('\n', start - 1);
        if (at == std::string_view::npos) return std::string(text);
        start = at;
    }
    return std::string(text.substr(start + 1));
}

std::string fileTail(const std::string& path, std::int64_t maxLines) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return {};
    struct stat info{};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || maxLines <= 0) {
        ::close(fd);
        return {};
    }
    const off_t size = info.st_size;
    // Walk back in chunks until maxLines line feeds are behind us; a line feed is never part of a
    // multi-byte sequence, so repairing the end alone gives what repairing the whole file would.
    constexpr off_t chunk = 64 * 1024;
    char buffer[chunk];
    off_t position = size;
    off_t start = 0;
    std::int64_t found = 0;
    bool failed = false;
    while (position > 0) {
        off_t length = std::min(chunk, position);
        position -= length;
        ssize_t got = ::pread(fd, buffer, static_cast<std::size_t>(length), position);
        if (got != length) {
            failed = true;
            break;
        }
        bool done = false;
        for (off_t i = length; i-- > 0;) {
            if (buffer[i] == '\n' && ++found == maxLines) {
                start = position + i + 1;
                done = true;
                break;
            }
        }
        if (done) break;
    }
    std::string bytes;
    if (!failed) {
        bytes.resize(static_cast<std::size_t>(size - start));
        std::size_t read = 0;
        while (read < bytes.size()) {
            ssize_t got = ::pread(fd, bytes.data() + read, bytes.size() - read, start + static_cast<off_t>(read));
            if (got <= 0) {
                failed = true;
                break;
            }
            read += static_cast<std::size_t>(got);
        }
    }
    ::close(fd);
    return failed ? std::string() : text::repairedUtf8(bytes);
}

std::vector<Permission> permissionEntries(bool screen, bool input) {
    return {{platform::say(platform::words::screenPermission), screen},
            {platform::say(platform::words::inputPermission), input}};
}

std::string gather(const std::string& appVersion, const ServerSettings& settings, bool running,
                   const std::vector<Permission>& permissions, const std::string& logPath) {
    return build(appVersion, platform::osVersionString(), platform::modelName(), settings, running, permissions,
                 NetInfo::localAddresses(), fileTail(logPath, logLines));
}

}  // namespace velmora::Diagnostics
