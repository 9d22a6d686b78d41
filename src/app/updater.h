#pragma once
// The update check: there is none yet, so the menu shows no "Check for Updates…" item.

namespace velmora {

struct Updater {
    static constexpr bool available = false;
    void checkForUpdates() {}
};

}  // namespace velmora
