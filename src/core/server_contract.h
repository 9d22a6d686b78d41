#pragma once
// The contract between Velmora and its server executable, written once: the switches of the
// server's command line, the MAC_SHADOW_* environment that carries everything else, and the probe
// mode with its answer line "screen=<0|1> input=<0|1>". The launch plan writes it, the permission
// probe and the plan listing read it, and the Linux server implements it.

#include <string_view>

namespace velmora::Contract {

// Command-line switches, in the server's own syntax.
namespace Switch {
inline constexpr std::string_view port = "/port:";  // followed by the port in decimal
inline constexpr std::string_view authOn = "+auth";
inline constexpr std::string_view authOff = "-auth";
inline constexpr std::string_view tls = "/sec:tls";
inline constexpr std::string_view nla = "+sec-nla";
inline constexpr std::string_view avc444On = "+gfx-avc444";
inline constexpr std::string_view avc444Off = "-gfx-avc444";
inline constexpr std::string_view serverSideCursor = "+server-side-cursor";
inline constexpr std::string_view maxConnections = "/max-connections:";  // followed by the limit
}  // namespace Switch

// Environment variables. Booleans are "1" and "0", integers plain decimal.
namespace Env {
inline constexpr std::string_view logLevel = "WLOG_LEVEL";
inline constexpr std::string_view scale = "MAC_SHADOW_SCALE";
inline constexpr std::string_view fps = "MAC_SHADOW_FPS";
inline constexpr std::string_view adaptiveFps = "MAC_SHADOW_ADAPTIVE_FPS";
inline constexpr std::string_view cursor = "MAC_SHADOW_CURSOR";
inline constexpr std::string_view maxPixels = "MAC_SHADOW_MAX_PIXELS";
inline constexpr std::string_view virtualDisplay = "MAC_SHADOW_VIRTUAL";
inline constexpr std::string_view mirror = "MAC_SHADOW_MIRROR";
inline constexpr std::string_view audio = "MAC_SHADOW_AUDIO";
inline constexpr std::string_view clipboard = "MAC_SHADOW_CLIPBOARD";
inline constexpr std::string_view videoToolbox = "FREERDP_VIDEOTOOLBOX_ENCODER";
inline constexpr std::string_view bitrateMbps = "MAC_SHADOW_BITRATE_MBPS";
inline constexpr std::string_view maxWidth = "MAC_SHADOW_MAX_WIDTH";
inline constexpr std::string_view ctrlAsCmd = "MAC_SHADOW_CTRL_AS_CMD";
inline constexpr std::string_view statsFile = "MAC_SHADOW_STATS_FILE";
inline constexpr std::string_view h264Profile = "MAC_SHADOW_H264_PROFILE";
inline constexpr std::string_view h264GopSec = "MAC_SHADOW_H264_GOP_SEC";
inline constexpr std::string_view sizeAlign = "MAC_SHADOW_SIZE_ALIGN";
// The Windows login entry "user:<32 hex digits>"; never on a command line, never logged.
inline constexpr std::string_view nlaLogin = "MAC_SHADOW_NLA";
// "1": the server ends by itself once Velmora is gone.
inline constexpr std::string_view parentWatch = "MAC_SHADOW_PARENT_WATCH";
// Set: the server only answers the probe (its value is the mode) and exits.
inline constexpr std::string_view probe = "MAC_SHADOW_PERMS";
// Every variable of the contract but WLOG_LEVEL starts so (FREERDP_VIDEOTOOLBOX_ENCODER excepted).
inline constexpr std::string_view prefix = "MAC_SHADOW_";
}  // namespace Env

// The probe mode.
namespace Probe {
inline constexpr std::string_view check = "check";      // only report
inline constexpr std::string_view request = "request";  // report, and let the system ask the user
// Passed as "/port:" to a probe, so that it never collides with the real server's port.
inline constexpr int port = 33895;
// The answer: one line of exactly these two pieces, separated by a space, each followed by 0 or 1.
inline constexpr std::string_view screen = "screen=";
inline constexpr std::string_view input = "input=";
// Where nothing can be switched on in a list (Linux), a line before the answer may say why a
// permission is missing: "cause=" and one of the words below, then a space and the display name
// where one is involved ("cause=display-refused :0").
inline constexpr std::string_view cause = "cause=";
namespace Cause {
inline constexpr std::string_view noDisplay = "no-display";                // DISPLAY is not set
inline constexpr std::string_view displayRefused = "display-refused";      // the display would not let us in
inline constexpr std::string_view screenUnreadable = "screen-unreadable";  // the root window cannot be read
inline constexpr std::string_view noXtest = "no-xtest";                    // no XTEST: no remote keyboard and mouse
inline constexpr std::string_view wayland = "wayland";                     // a Wayland session (XWayland shows nothing)
}  // namespace Cause
}  // namespace Probe

// The most RDP clients the server accepts at once.
inline constexpr int maxConnections = 5;

}  // namespace velmora::Contract
