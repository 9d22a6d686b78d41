#pragma once
// Small text helpers shared by the subsystems.

#include <string>
#include <string_view>
#include <vector>

namespace velmora::text {

// Splits at every occurrence of `separator`, keeping empty pieces.
std::vector<std::string> split(std::string_view text, char separator);

// Joins with `separator` between the pieces.
std::string join(const std::vector<std::string>& pieces, std::string_view separator);

// Trims ASCII white space (space, tab, line breaks, vertical tab, form feed) at both ends.
std::string trimmed(std::string_view text);

// Decodes UTF-8, replacing every invalid sequence by U+FFFD, so the result is valid UTF-8.
std::string repairedUtf8(std::string_view bytes);

// Decodes UTF-8 into Unicode scalars, invalid sequences becoming U+FFFD.
std::u32string utf32(std::string_view bytes);

// Encodes Unicode scalars as UTF-8.
std::string utf8(std::u32string_view scalars);

// True when `bytes` is valid UTF-8.
bool isValidUtf8(std::string_view bytes);

// Numbers as the system writes and reads them, whatever the user's locale (Qt sets the C locale
// from the environment, which would make printf write "0,75"):
// `value` with exactly `places` decimals ("0.75").
std::string fixedDecimal(double value, int places);
// The shortest text that reads back as the same double, always with a fraction or exponent
// ("1.0", "0.75").
std::string shortestDecimal(double value);
// The decimal number at the start of `text` after white space and an optional sign (" 12abc" is
// 12, "-.5e1x" is -5); 0 when there is none (hexadecimal, "inf" and "nan" are none) or it is
// beyond the normal range of a double.
double leadingNumber(std::string_view text);

// A file:// URL for an absolute path, everything but unreserved characters and "/" escaped.
std::string fileURL(std::string_view path);

// Lower-case hexadecimal, two digits a byte.
std::string hex(const unsigned char* bytes, std::size_t count);

}  // namespace velmora::text
