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

// This platform's text, or that of the given column.
std::string say(const Words& words);
std::string say(const Words& words, Column column);

namespace words {

// The settings window.
inline constexpr Words mirrorTitle{"Mirror this Mac (recommended)", "Mirror this computer (recommended)"};
inline constexpr Words extendTitle{"Separate extra screen"};
inline constexpr Words realTitle{"This Mac's screen as is", "This computer's screen as is"};
inline constexpr Words remoteScreenTooltip{
    "When the remote screen has a different shape from the Mac's: mirror shows the Mac's own desktop at the "
    "remote's resolution; a separate screen leaves the Mac's desktop alone; as is shows the Mac's screen with black "
    "bars. A client that asks for Retina pixels (Windows App: Optimize for Retina displays) gets a 2x (HiDPI) "
    "desktop: sharp, with text and windows at their normal size.",
    "When the remote screen has a different shape from this computer's: mirror shows this computer's own desktop at "
    "the remote's resolution; a separate screen leaves this computer's desktop alone; as is shows this computer's "
    "screen with black bars. A client that asks for high-density pixels gets a 2x (HiDPI) desktop: sharp, with text "
    "and windows at their normal size."};
inline constexpr Words cursorTitle{"Draw the Mac cursor in the video", "Draw the mouse pointer in the video"};
inline constexpr Words authTitle{"Require the password of a Mac account (recommended)",
                                 "Require the password of an account on this computer (recommended)"};
inline constexpr Words loginTooltip{
    "Windows clients (Remote Desktop Connection, the Windows App) log in with Network Level Authentication, which "
    "needs a password Velmora keeps itself. Set a user name and password here and use them in those clients. The "
    "session is still this Mac's logged-in user.",
    "Windows clients (Remote Desktop Connection, the Windows App) log in with Network Level Authentication, which "
    "needs a password Velmora keeps itself. Set a user name and password here and use them in those clients. The "
    "session is still the desktop of the user logged in on this computer."};
inline constexpr Words ctrlTitle{"Treat Ctrl as Cmd (Windows shortcuts)"};
inline constexpr Words audioTitle{"Send the Mac's sound to the remote session",
                                  "Send this computer's sound to the remote session"};
inline constexpr Words clipboardTooltip{"Copy and paste both ways, for signed-in sessions that may control this Mac.",
                                        "Copy and paste text both ways, for signed-in sessions that may control "
                                        "this computer."};
inline constexpr Words hwencTitle{"Use the Mac's video encoder (VideoToolbox)"};
inline constexpr Words loginNotSet{"Not set: Windows clients get TLS only and must send a Mac account password.",
                                   "Not set: Windows clients get TLS only and must send the password of an account "
                                   "on this computer."};
inline constexpr Words badNameOrKeyring{
    "The Windows login user name must not be empty or contain : \\ or @ (and the Keychain must be available).",
    "The Windows login user name must not be empty or contain : \\ or @ (and the keyring must be available)."};
inline constexpr Words keyringError{"Keychain error", "keyring error"};
// Where this platform's server does not do what a setting asks (X11 only).
inline constexpr Words notHonoured{"", "The Linux server does not support this setting yet."};
inline constexpr Words notHonouredNote{"", "Settings shown greyed out take effect once the Linux server supports "
                                           "them."};
inline constexpr Words ignoredSettings{"Ignored by this server: "};

// What to mind after a restart, and the connection test.
inline constexpr Words afterRestart{
    "After this Mac restarts, log in at the Mac once before connecting: Velmora only runs while you are logged in. "
    "Once you are logged in, a locked screen is fine: you can unlock it from the Windows App.",
    "After this computer restarts, log in at the computer once before connecting: Velmora only runs while you are "
    "logged in. Once you are logged in, a locked screen is fine: you can unlock it from the Windows App."};
inline constexpr Words onThisMac{" on this Mac.", " on this computer."};
inline constexpr Words noNetworkAddress{"This Mac has no network address. Connect to Wi-Fi or Ethernet.",
                                        "This computer has no network address. Connect to Wi-Fi or Ethernet."};
inline constexpr Words forwardToThisMac{
    " to this Mac on your router to use it, which exposes the Mac to the internet, so a VPN is safer.",
    " to this computer on your router to use it, which exposes the computer to the internet, so a VPN is safer."};
inline constexpr Words checkFirewall{
    "If Windows App cannot connect: check the Mac firewall allows Velmora, and that both computers are on the same "
    "network.",
    "If Windows App cannot connect: check that no firewall on this computer blocks Velmora's port, and that both "
    "computers are on the same network."};

// The diagnostics report: the system line starts with "macOS " on a Mac, with the system's own name
// elsewhere.
inline constexpr Words systemPrefix{"macOS ", ""};
inline constexpr Words screenPermission{"Velmora Server Screen Recording", "Velmora Server screen (X display)"};
inline constexpr Words inputPermission{"Velmora Server Accessibility", "Velmora Server keyboard and mouse (XTEST)"};

// The server's start.
inline constexpr Words serverNotFound{"Velmora Server not found inside the app. Reinstall Velmora.",
                                      "Velmora Server is not installed beside Velmora. Reinstall Velmora."};

// The permissions window. On a Mac it leads the user through two lists in System Settings; on an
// X11 desktop nothing can be switched on, so it names what is missing and why.
inline constexpr Words permissionsTitle{"Velmora Server needs two permissions",
                                        "What Velmora Server needs from this desktop"};
inline constexpr Words permissionsIntro{
    "Velmora puts its server into these two lists in System Settings.  Switch it on in each; this window updates by "
    "itself.",
    "Velmora's server reads this computer's X display and sends it the remote keyboard and mouse through XTEST. "
    "Nothing needs switching on: when something is missing, this window says why and checks again by itself."};
inline constexpr Words screenHeading{"Screen Recording", "Screen"};
inline constexpr Words screenHint{"Switch on \"Velmora\": lets the server see your screen and sound.",
                                  "The server opens the X display and reads its screen."};
inline constexpr Words inputHeading{"Accessibility", "Keyboard and mouse"};
inline constexpr Words inputHint{"Switch on \"Velmora Server\": remote keyboard and mouse.",
                                 "The display's XTEST extension takes the remote keyboard and mouse."};
inline constexpr Words allowed{"\u2713 Allowed", "\u2713 Works"};
inline constexpr Words notAllowed{"\u2717 Not allowed yet", "\u2717 Does not work yet"};
inline constexpr Words repairAgain{"Repair Again", "Check Again"};
inline constexpr Words repairing{
    "Adding Velmora Server to the lists in System Settings\u2026  (macOS may show its own prompts: choose Open System "
    "Settings.)",
    "Checking again\u2026"};
inline constexpr Words notAsked{"Velmora Server could not be asked (is it missing from the app?).  Reinstall Velmora.",
                                "Velmora Server could not be asked (is it installed?).  Reinstall Velmora."};
inline constexpr Words everythingAllowed{"Everything is allowed.",
                                         "Everything works: the server can read the screen and take the remote "
                                         "keyboard and mouse."};
inline constexpr Words lacksPermission{"Velmora Server lacks permission",
                                       "Velmora Server cannot read the screen or take input here"};
inline constexpr Words notStarted{"the server was not started"};

// Why a permission is missing on an X11 desktop (the server's probe says; "%s" is the display).
inline constexpr Words causeNoDisplay{
    "DISPLAY is not set, so Velmora Server does not know which screen to share. Start Velmora from your desktop "
    "session (or with DISPLAY set, for example DISPLAY=:0)."};
inline constexpr Words causeDisplayRefused{
    "The display %s refused Velmora Server's connection. Start Velmora from the desktop session that owns this "
    "display, so that it has the session's XAUTHORITY."};
inline constexpr Words causeScreenUnreadable{
    "The display %s is open, but its screen cannot be read. Velmora shares X11 desktops whose screen may be read by "
    "their own user."};
inline constexpr Words causeNoXtest{
    "The display %s has no XTEST extension, so the remote keyboard and mouse cannot work. Turn XTEST on in the X "
    "server (Xorg has it on by default)."};
inline constexpr Words causeWayland{
    "Velmora shares X11 desktops, and this session is Wayland. Use the desktop's own remote desktop (GNOME: Settings "
    "\u203a System \u203a Remote Desktop; KDE Plasma: System Settings \u203a Remote Desktop), or log in to an X11 "
    "session."};
inline constexpr Words waylandStatus{"Not started: this is a Wayland session"};

}  // namespace words

}  // namespace velmora::platform
