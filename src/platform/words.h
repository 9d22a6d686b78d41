#pragma once
// Every text the user sees that names the Mac, its System Settings, the Keychain or VideoToolbox,
// with the words of an X11 desktop beside it. macOS shows the first column exactly; other
// platforms the second (the first when the second is absent). Nothing else chooses wording by
// platform: code writes say(words::...).

#include <string>

namespace velmora::platform {

struct Words {
    const char* mac;
    const char* x11 = nullptr;  // absent: the same text
};

// Which column of a table that has one for macOS and one for X11 desktops this platform reads.
enum class Column { mac, x11 };
Column column();

// This platform's text.
std::string say(const Words& words);

namespace words {

// The settings window.
inline constexpr Words mirrorTitle{"Mirror this Mac (recommended)"};
inline constexpr Words extendTitle{"Separate extra screen"};
inline constexpr Words realTitle{"This Mac's screen as is"};
inline constexpr Words remoteScreenTooltip{
    "When the remote screen has a different shape from the Mac's: mirror shows the Mac's own desktop at the "
    "remote's resolution; a separate screen leaves the Mac's desktop alone; as is shows the Mac's screen with black "
    "bars. A client that asks for Retina pixels (Windows App: Optimize for Retina displays) gets a 2x (HiDPI) "
    "desktop: sharp, with text and windows at their normal size."};
inline constexpr Words cursorTitle{"Draw the Mac cursor in the video"};
inline constexpr Words authTitle{"Require the password of a Mac account (recommended)"};
inline constexpr Words loginTooltip{
    "Windows clients (Remote Desktop Connection, the Windows App) log in with Network Level Authentication, which "
    "needs a password Velmora keeps itself. Set a user name and password here and use them in those clients. The "
    "session is still this Mac's logged-in user."};
inline constexpr Words ctrlTitle{"Treat Ctrl as Cmd (Windows shortcuts)"};
inline constexpr Words audioTitle{"Send the Mac's sound to the remote session"};
inline constexpr Words clipboardTooltip{"Copy and paste both ways, for signed-in sessions that may control this Mac."};
inline constexpr Words hwencTitle{"Use the Mac's video encoder (VideoToolbox)"};
inline constexpr Words loginNotSet{"Not set: Windows clients get TLS only and must send a Mac account password."};

}  // namespace words

}  // namespace velmora::platform
