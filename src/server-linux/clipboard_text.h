#pragma once
// Text on the clipboard as each side keeps it: X11 programs exchange UTF-8 with line feeds
// (UTF8_STRING) or Latin-1 (STRING); RDP clients exchange CF_UNICODETEXT, UTF-16LE with CR LF
// line ends and a terminating NUL. Every conversion here gives valid text whatever it is handed.

#include <string>
#include <string_view>

namespace velmora::ServerHelper::ClipboardText {

// UTF-8 (invalid sequences become U+FFFD) to CF_UNICODETEXT's bytes: line feeds become CR LF
// (a CR LF already there stays one), and a NUL ends the text.
std::string toUnicodeText(std::string_view utf8);

// CF_UNICODETEXT's bytes to UTF-8, up to the first NUL: CR LF becomes a line feed, an unpaired
// surrogate U+FFFD, and an odd last byte is dropped.
std::string fromUnicodeText(std::string_view utf16le);

// A client's UTF-8 text (a format named "UTF8_STRING"), up to the first NUL, CR LF becoming a line
// feed.
std::string fromUtf8Text(std::string_view bytes);

// STRING, which ICCCM defines as Latin-1.
std::string fromLatin1(std::string_view latin1);
std::string toLatin1(std::string_view utf8);  // '?' for every character Latin-1 lacks

}  // namespace velmora::ServerHelper::ClipboardText
