#include "core/text.h"

#include <charconv>
#include <cmath>
#include <locale>
#include <sstream>

namespace velmora::text {

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (;;) {
        std::size_t at = text.find(separator, start);
        if (at == std::string_view::npos) {
            pieces.emplace_back(text.substr(start));
            return pieces;
        }
        pieces.emplace_back(text.substr(start, at - start));
        start = at + 1;
    }
}

std::string join(const std::vector<std::string>& pieces, std::string_view separator) {
    std::string result;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (i) result.append(separator);
        result.append(pieces[i]);
    }
    return result;
}

std::string trimmed(std::string_view text) {
    constexpr std::string_view space = " \t\r\n\v\f";
    std::size_t first = text.find_first_not_of(space);
    if (first == std::string_view::npos) return {};
    std::size_t last = text.find_last_not_of(space);
    return std::string(text.substr(first, last - first + 1));
}

namespace {

constexpr char32_t replacement = 0xFFFD;

// Decodes one scalar at `i`, advancing `i`; invalid input yields U+FFFD and skips one byte.
char32_t decodeOne(std::string_view s, std::size_t& i, bool& valid) {
    auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
    unsigned char lead = byte(i);
    valid = true;
    if (lead < 0x80) {
        ++i;
        return lead;
    }
    std::size_t length;
    char32_t value;
    char32_t minimum;
    if ((lead & 0xE0) == 0xC0) { length = 2; value = lead & 0x1F; minimum = 0x80; }
    else if ((lead & 0xF0) == 0xE0) { length = 3; value = lead & 0x0F; minimum = 0x800; }
    else if ((lead & 0xF8) == 0xF0) { length = 4; value = lead & 0x07; minimum = 0x10000; }
    else { valid = false; ++i; return replacement; }
    if (i + length > s.size()) { valid = false; ++i; return replacement; }
    for (std::size_t k = 1; k < length; ++k) {
        unsigned char next = byte(i + k);
        if ((next & 0xC0) != 0x80) { valid = false; ++i; return replacement; }
        value = (value << 6) | (next & 0x3F);
    }
    if (value < minimum || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        valid = false;
        ++i;
        return replacement;
    }
    i += length;
    return value;
}

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

}  // namespace

std::u32string utf32(std::string_view bytes) {
    std::u32string out;
    out.reserve(bytes.size());
    bool valid;
    for (std::size_t i = 0; i < bytes.size();) out.push_back(decodeOne(bytes, i, valid));
    return out;
}

std::string utf8(std::u32string_view scalars) {
    std::string out;
    out.reserve(scalars.size());
    for (char32_t c : scalars) appendUtf8(out, c);
    return out;
}

std::string repairedUtf8(std::string_view bytes) {
    if (isValidUtf8(bytes)) return std::string(bytes);
    std::string out;
    out.reserve(bytes.size() + 16);
    bool valid;
    for (std::size_t i = 0; i < bytes.size();) appendUtf8(out, decodeOne(bytes, i, valid));
    return out;
}

bool isValidUtf8(std::string_view bytes) {
    bool valid = true;
    for (std::size_t i = 0; i < bytes.size();) {
        if (static_cast<unsigned char>(bytes[i]) < 0x80) {
            ++i;
            continue;
        }
        decodeOne(bytes, i, valid);
        if (!valid) return false;
    }
    return true;
}

std::string hex(const unsigned char* bytes, std::size_t count) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(count * 2);
    for (std::size_t i = 0; i < count; ++i) {
        out += digits[bytes[i] >> 4];
        out += digits[bytes[i] & 0x0F];
    }
    return out;
}

std::string fixedDecimal(double value, int places) {
    char buffer[400];
    auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, places);
    return error == std::errc() ? std::string(buffer, end) : "0";
}

std::string shortestDecimal(double value) {
    char buffer[64];
    auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    if (error != std::errc()) return "0.0";
    std::string text(buffer, end);
    if (text.find_first_of(".eni") == std::string::npos) text += ".0";
    return text;
}

double leadingNumber(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size() && (text[at] == ' ' || (text[at] >= '\t' && text[at] <= '\r'))) ++at;
    std::size_t start = at;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
    // Only plain decimals: digits, a point, digits, an exponent with digits. The conversion below
    // would take hexadecimal, "inf" and "nan" on some libraries, and those read as no number.
    auto digits = [&] {
        std::size_t first = at;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') ++at;
        return at - first;
    };
    std::size_t mantissa = digits();
    if (at < text.size() && text[at] == '.') {
        ++at;
        mantissa += digits();
    }
    if (mantissa == 0) return 0.0;
    std::size_t end = at;
    if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
        ++at;
        if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
        if (digits() > 0) end = at;
    }
    // A stream in the classic locale reads the decimal point whatever the C locale says, and it is
    // in every C++ library: floating-point from_chars is not in Apple's before macOS 26.
    std::istringstream stream(std::string(text.substr(start, end - start)));
    stream.imbue(std::locale::classic());
    double value = 0.0;
    stream >> value;
    // Out of range either way reads as none, subnormals too: the libraries differ in which of
    // those they call a failure.
    if (stream.fail() || !std::isnormal(value)) return 0.0;
    return value;
}

std::string fileURL(std::string_view path) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string url = "file://";
    for (unsigned char c : path) {
        bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
                     c == '.' || c == '_' || c == '~' || c == '/';
        if (plain) {
            url += static_cast<char>(c);
        } else {
            url += '%';
            url += digits[c >> 4];
            url += digits[c & 15];
        }
    }
    return url;
}

}  // namespace velmora::text
