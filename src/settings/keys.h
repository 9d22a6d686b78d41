#pragma once
// The names of the defaults keys.

namespace velmora::Key {

inline constexpr const char* adaptiveFps = "adaptiveFps";
inline constexpr const char* usagePing = "usagePing";
inline constexpr const char* port = "port";
inline constexpr const char* scale = "scale";
inline constexpr const char* fps = "fps";
inline constexpr const char* cursor = "cursorInVideo";
inline constexpr const char* auth = "requireLogin";
inline constexpr const char* sec = "security";  // legacy; removed at start-up
inline constexpr const char* avc444 = "avc444";
inline constexpr const char* ctrlCmd = "ctrlAsCmd";
inline constexpr const char* audio = "audio";
inline constexpr const char* clipboard = "clipboard";
inline constexpr const char* maxSize = "maxPixels";
inline constexpr const char* virtualMode = "virtualDisplays";  // legacy; read only
inline constexpr const char* remoteScreen = "remoteScreen";
inline constexpr const char* autoStart = "autoStart";
inline constexpr const char* hwenc = "hardwareEncoder";
inline constexpr const char* bitrate = "bitrateMbps";
inline constexpr const char* maxWidth = "maxWidth";
inline constexpr const char* h264Profile = "h264Profile";
inline constexpr const char* h264GopSec = "h264GopSec";
inline constexpr const char* sizeAlign = "sizeAlign";

// Owned by the permission service.
inline constexpr const char* helperPermsGrantedOnce = "helperPermsGrantedOnce";
inline constexpr const char* legacyAppPermsReset = "legacyAppPermsReset";

}  // namespace velmora::Key
