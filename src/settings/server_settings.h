#pragma once
// One snapshot of every server setting, read afresh for each start and then dropped. A new
// snapshot holds every setting's default (the settings table's).

#include "settings/remote_screen.h"

#include <cstdint>
#include <optional>
#include <string>

namespace velmora {

struct ServerSettings {
    ServerSettings();

    std::int64_t port;
    double scale;
    std::int64_t fps;
    bool adaptiveFps;
    bool cursor;
    bool requireLogin;
    std::optional<std::string> nlaLogin;
    bool avc444;
    bool ctrlAsCmd;
    bool audio;
    bool clipboard;
    std::int64_t maxPixels;
    RemoteScreen remoteScreen;
    bool videoEncoder;
    std::int64_t bitrateMbps;
    std::int64_t maxWidth;
    std::optional<std::string> statsFile;
    std::string h264Profile;
    std::int64_t h264GopSec;
    std::int64_t sizeAlign;

    bool operator==(const ServerSettings&) const = default;
};

}  // namespace velmora
