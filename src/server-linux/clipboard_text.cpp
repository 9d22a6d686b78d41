#include "server-linux/clipboard_text.h"

#include "core/text.h"

namespace velmora::ServerHelper::ClipboardText {

namespace {

std::string_view beforeNul(std::string_view bytes) { return bytes.substr(0, bytes.find('\0')); }

std::string withLineFeeds(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i)
        if (!(text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n')) out += text[i];
    return out;
}

void appendUnit(std::string& out, char32_t unit) {
    out += static_cast<char>(unit & 0xff);
    out += static_cast<char>(unit >> 8);
}

}  // namespace

std::string toUnicodeText(std::string_view utf8) {
    const std::u32string scalars = text::utf32(utf8);
    std::string out;
    out.reserve(2 * scalars.size() + 16);
    char32_t previous = 0;
    for (char32_t c : scalars) {
        if (c == U'\n' && previous != U'\r') appendUnit(out, U'\r');
        if (c >= 0x10000) {
            appendUnit(out, 0xd800 + ((c - 0x10000) >> 10));
            appendUnit(out, 0xdc00 + ((c - 0x10000) & 0x3ff));
        } else {
            appendUnit(out, c);
        }
        previous = c;
    }
    appendUnit(out, 0);
    return out;
}

std::string fromUnicodeText(std::string_view utf16le) {
    std::u32string scalars;
    scalars.reserve(utf16le.size() / 2);
    const std::size_t units = utf16le.size() / 2;
    auto unit = [&](std::size_t i) -> char32_t {
        return static_cast<unsigned char>(utf16le[2 * i]) | static_cast<unsigned char>(utf16le[2 * i + 1]) << 8;
    };
    for (std::size_t i = 0; i < units; ++i) {
        char32_t c = unit(i);
        if (c == 0) break;
        if (c >= 0xd800 && c < 0xdc00 && i + 1 < units && unit(i + 1) >= 0xdc00 && unit(i + 1) < 0xe000) {
            c = 0x10000 + ((c - 0xd800) << 10) + (unit(++i) - 0xdc00);
        } else if (c >= 0xd800 && c < 0xe000) {
            c = 0xfffd;
        }
        if (c == U'\n' && !scalars.empty() && scalars.back() == U'\r') scalars.pop_back();
        scalars.push_back(c);
    }
    return text::utf8(scalars);
}

std::string fromUtf8Text(std::string_view bytes) { return withLineFeeds(text::repairedUtf8(beforeNul(bytes))); }

std::string fromLatin1(std::string_view latin1) {
    std::u32string scalars(latin1.begin(), latin1.end());
    for (char32_t& c : scalars) c &= 0xff;  // char may be signed
    return text::utf8(scalars);
}

std::string toLatin1(std::string_view utf8) {
    std::string out;
    for (char32_t c : text::utf32(utf8)) out += c < 0x100 ? static_cast<char>(c) : '?';
    return out;
}

}  // namespace velmora::ServerHelper::ClipboardText
