#pragma once
// How the remote desktop relates to this computer's own display.

#include <array>
#include <optional>
#include <string>

namespace velmora {

enum class RemoteScreen { mirror, extend, real };

inline constexpr std::array<RemoteScreen, 3> allRemoteScreens{RemoteScreen::mirror, RemoteScreen::extend,
                                                              RemoteScreen::real};

// "mirror", "extend", "real".
std::string rawValue(RemoteScreen screen);
std::optional<RemoteScreen> remoteScreenFromRaw(const std::string& raw);

// A valid stored "remoteScreen" wins; otherwise the legacy "virtualDisplays" decides
// ("never" -> real, "always" -> extend); otherwise mirror.
RemoteScreen remoteScreenFrom(const std::optional<std::string>& stored,
                              const std::optional<std::string>& legacyVirtual);

}  // namespace velmora
