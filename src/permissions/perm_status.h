#pragma once
// What the server reported about its two permissions. An absent PermStatus (std::optional) means
// the server could not be asked; it is never the same as both denied.

#include "permissions/perm_const.h"

#include <string>
#include <vector>

namespace velmora {

struct PermStatus {
    bool screen = false;  // may capture the screen
    bool input = false;   // may inject input

    bool allOK() const { return screen && input; }

    // The privacy services still missing, screen first.
    std::vector<std::string> missingServices() const {
        std::vector<std::string> missing;
        if (!screen) missing.emplace_back(PermConst::screenService);
        if (!input) missing.emplace_back(PermConst::inputService);
        return missing;
    }

    bool operator==(const PermStatus&) const = default;
};

}  // namespace velmora
