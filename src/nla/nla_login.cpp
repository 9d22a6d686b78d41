#include "nla/nla_login.h"

#include "core/text.h"
#include "nla/md4.h"
#include "platform/characters.h"
#include "platform/credential_store.h"
#include "platform/system_log.h"
#include "platform/words.h"

#include <cctype>
#include <openssl/crypto.h>
#include <vector>

namespace velmora::NLALogin {

namespace {

// Space separators (Unicode category Zs) and the tab: what a user name is trimmed of.
bool isSpaceLike(char32_t c) {
    return c == U'\t' || c == U' ' || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x202F ||
           c == 0x205F || c == 0x3000;
}

bool isHexDigit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

std::optional<std::string> keychainLoad() {
    platform::SecretReading reading = platform::readSecret(service, account);
    if (reading.status != platform::secretSuccess) return std::nullopt;
    if (!text::isValidUtf8(reading.data)) return std::nullopt;
    auto colon = reading.data.rfind(':');
    if (colon == std::string::npos || colon == 0) return std::nullopt;
    return reading.data;
}

bool keychainStore(const std::string& entryText) {
    int status = platform::updateSecret(service, account, entryText);
    if (status == platform::secretItemNotFound) status = platform::addSecret(service, account, entryText);
    if (status != platform::secretSuccess) {
        platform::systemLog("[Velmora app] Windows login: " + platform::say(platform::words::keyringError) + " " +
                            std::to_string(status));
        return false;
    }
    return true;
}

}  // namespace

std::string ntHashHex(const std::string& password) {
    // Both copies of the password are wiped once hashed; reserving up front keeps the vector from
    // leaving copies behind in buffers it outgrew.
    std::u32string scalars = text::utf32(password);
    std::vector<std::uint8_t> bytes;
    bytes.reserve(scalars.size() * 4);
    for (char32_t c : scalars) {
        auto put = [&](std::uint32_t unit) {
            bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
            bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
        };
        if (c <= 0xFFFF) {
            put(c);
        } else {
            std::uint32_t v = c - 0x10000;
            put(0xD800 + (v >> 10));
            put(0xDC00 + (v & 0x3FF));
        }
    }
    std::uint8_t digest[16] = {};
    velmora_nt_hash(bytes.data(), bytes.size(), digest);
    if (!bytes.empty()) OPENSSL_cleanse(bytes.data(), bytes.size());
    if (!scalars.empty()) OPENSSL_cleanse(scalars.data(), scalars.size() * sizeof(char32_t));
    return text::hex(digest, sizeof digest);
}

std::optional<std::string> entry(const std::string& user, const std::string& hashHex) {
    std::u32string name = text::utf32(user);
    std::size_t first = 0;
    std::size_t last = name.size();
    while (first < last && isSpaceLike(name[first])) ++first;
    while (last > first && isSpaceLike(name[last - 1])) --last;
    name = name.substr(first, last - first);

    std::size_t characters = platform::characterCount(text::utf8(name));
    if (characters == 0 || characters >= 128) return std::nullopt;
    for (char32_t c : name)
        if (c == U':' || c == U'\\' || c == U'@' || c < 0x20) return std::nullopt;
    if (hashHex.size() != 32) return std::nullopt;
    std::string lower;
    for (char c : hashHex) {
        if (!isHexDigit(c)) return std::nullopt;
        lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text::utf8(name) + ":" + lower;
}

std::optional<std::string> load() { return keychainLoad(); }

bool save(const std::string& userName, const std::string& password) {
    auto made = entry(userName, ntHashHex(password));
    if (!made) return false;
    return keychainStore(*made);
}

bool rename(const std::string& userName) {
    auto stored = keychainLoad();
    if (!stored) return false;
    std::string hash = stored->substr(stored->rfind(':') + 1);
    auto made = entry(userName, hash);
    if (!made) return false;
    return keychainStore(*made);
}

void clear() { platform::deleteSecret(service, account); }

std::optional<std::string> user(const std::optional<std::string>& entryText) {
    if (!entryText) return std::nullopt;
    auto colon = entryText->rfind(':');
    if (colon == std::string::npos || colon == 0) return std::nullopt;
    return entryText->substr(0, colon);
}

}  // namespace velmora::NLALogin
