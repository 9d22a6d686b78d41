#pragma once
// One snapshot of every server setting, read afresh for each start and then dropped.

#include "settings/remote_screen.h"

#include <cstdint>
#include <optional>
#include <string>

namespace velmora {

struct ServerSettings {
    std::int64_t port = 3389;
    double scale = 0.75;
    std::int64_t fps = 30;
    bool adaptiveFps = true;
    bool cursor = false;
    bool requireLogin = true;
    std::optional<std::string> nlaLogin;
    bool avc444 = false;
    bool ctrlAsCmd = true;
    bool audio = true;
    bool clipboard = true;
    std::int64_t maxPixels = 2073600;
    RemoteScreen remoteScreen = RemoteScreen::mirror;
    bool videoEncoder = true;
    std::int64_t bitrateMbps = 10;
    std::int64_t maxWidth = 0;
    std::optional<std::string> statsFile;
    std::string h264Profile = "baseline";
    std::int64_t h264GopSec = 0;
    std::int64_t sizeAlign = 2;

    bool operator==(const ServerSettings&) const = default;
};

}  // namespace velmora
