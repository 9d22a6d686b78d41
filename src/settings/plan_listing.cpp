#include "settings/plan_listing.h"

#include "core/server_contract.h"
#include "settings/settings_table.h"

#include <set>

namespace velmora {

std::string planListing(const LaunchPlan& plan, const Environment& own) {
    std::string out;
    for (const auto& argument : plan.arguments) out += argument + "\n";
    out += "\n";
    std::set<std::string> names;
    for (const auto& [name, value] : plan.environment) names.insert(name);
    for (const auto& [name, value] : own) names.insert(name);
    for (const auto& name : names) {
        auto planned = plan.environment.find(name);
        auto inherited = own.find(name);
        if (planned == plan.environment.end()) {
            out += "-" + name + "\n";
        } else if (inherited == own.end() || inherited->second != planned->second) {
            out += name + "=" + (name == Contract::Env::nlaLogin ? std::string("[removed]") : planned->second) + "\n";
        }
    }
    if (std::string ignored = ignoredSettingsLine(); !ignored.empty()) out += "\n" + ignored + "\n";
    return out;
}

}  // namespace velmora
