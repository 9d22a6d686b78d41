#include "settings/remote_screen.h"

namespace velmora {

std::string rawValue(RemoteScreen screen) {
    switch (screen) {
        case RemoteScreen::mirror: return "mirror";
        case RemoteScreen::extend: return "extend";
        case RemoteScreen::real: return "real";
    }
    return "mirror";
}

std::optional<RemoteScreen> remoteScreenFromRaw(const std::string& raw) {
    for (RemoteScreen screen : allRemoteScreens)
        if (rawValue(screen) == raw) return screen;
    return std::nullopt;
}

RemoteScreen remoteScreenFrom(const std::optional<std::string>& stored,
                              const std::optional<std::string>& legacyVirtual) {
    if (stored)
        if (auto screen = remoteScreenFromRaw(*stored)) return *screen;
    if (!legacyVirtual) return RemoteScreen::mirror;
    if (*legacyVirtual == "never") return RemoteScreen::real;
    if (*legacyVirtual == "always") return RemoteScreen::extend;
    return RemoteScreen::mirror;
}

}  // namespace velmora
