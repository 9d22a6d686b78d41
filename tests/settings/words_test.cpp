// The wording table: its macOS column holds the texts macOS shows, exactly; what an X11 desktop
// shows names no Mac thing.

#include "platform/words.h"

#include <gtest/gtest.h>

#include <regex>

using namespace velmora::platform;

TEST(Words, TheMacColumnIsExactAndTheX11ColumnNamesNoMacThing) {
    const std::pair<Words, const char*> table[] = {
        {words::mirrorTitle, "Mirror this Mac (recommended)"},
        {words::realTitle, "This Mac's screen as is"},
        {words::cursorTitle, "Draw the Mac cursor in the video"},
        {words::authTitle, "Require the password of a Mac account (recommended)"},
        {words::audioTitle, "Send the Mac's sound to the remote session"},
        {words::clipboardTooltip, "Copy and paste both ways, for signed-in sessions that may control this Mac."},
        {words::loginNotSet, "Not set: Windows clients get TLS only and must send a Mac account password."},
        {words::badNameOrKeyring,
         "The Windows login user name must not be empty or contain : \\ or @ (and the Keychain must be available)."},
        {words::afterRestart,
         "After this Mac restarts, log in at the Mac once before connecting: Velmora only runs while you are logged "
         "in. Once you are logged in, a locked screen is fine: you can unlock it from the Windows App."},
        {words::noNetworkAddress, "This Mac has no network address. Connect to Wi-Fi or Ethernet."},
        {words::forwardToThisMac,
         " to this Mac on your router to use it, which exposes the Mac to the internet, so a VPN is safer."},
        {words::checkFirewall, "If Windows App cannot connect: check the Mac firewall allows Velmora, and that both "
                               "computers are on the same network."},
        {words::screenPermission, "Velmora Server Screen Recording"},
        {words::inputPermission, "Velmora Server Accessibility"},
        {words::serverNotFound, "Velmora Server not found inside the app. Reinstall Velmora."},
        {words::permissionsTitle, "Velmora Server needs two permissions"},
        {words::permissionsIntro, "Velmora puts its server into these two lists in System Settings.  Switch it on in "
                                  "each; this window updates by itself."},
        {words::screenHint, "Switch on \"Velmora\": lets the server see your screen and sound."},
        {words::inputHint, "Switch on \"Velmora Server\": remote keyboard and mouse."},
        {words::allowed, "\u2713 Allowed"},
        {words::notAllowed, "\u2717 Not allowed yet"},
        {words::repairing, "Adding Velmora Server to the lists in System Settings\u2026  (macOS may show its own "
                           "prompts: choose Open System Settings.)"},
        {words::notAsked, "Velmora Server could not be asked (is it missing from the app?).  Reinstall Velmora."},
        {words::everythingAllowed, "Everything is allowed."},
    };
    const std::regex mac("Mac|macOS|Keychain|System Settings|VideoToolbox|Retina|Cmd");
    for (const auto& [words, macText] : table) {
        EXPECT_EQ(say(words, Column::mac), macText);
        EXPECT_FALSE(std::regex_search(say(words, Column::x11), mac)) << say(words, Column::x11);
    }
    EXPECT_EQ(say(words::systemPrefix, Column::mac), "macOS ");
    EXPECT_EQ(say(words::systemPrefix, Column::x11), "");
}
