#include "app/status_menu.h"

namespace velmora::StatusMenu {

std::vector<MenuItem> items(bool updaterAvailable) {
    auto item = [](const char* title, MenuAction action, const char* shortcut = "", bool checkable = false) {
        return MenuItem{title, action, shortcut, checkable, true};
    };
    const MenuItem separator{};
    MenuItem status = item("Stopped", MenuAction::none);
    status.enabled = false;
    std::vector<MenuItem> menu{status, item("Start Server", MenuAction::toggleServer), separator,
                               item("Settings…", MenuAction::openSettings, "Ctrl+,")};
    if (updaterAvailable) menu.push_back(item("Check for Updates…", MenuAction::checkForUpdates));
    for (MenuItem rest : {
             item("Start Server When Velmora Opens", MenuAction::toggleAutoStart, "", true),
             item("Send Usage Pings", MenuAction::toggleUsagePing, "", true),
             item("Open Velmora at Login", MenuAction::toggleLogin, "", true),
             separator,
             item("Check Permissions…", MenuAction::checkPermissions),
             item("Repair Permissions", MenuAction::repairPermissions),
             item("Test Connection…", MenuAction::testConnection),
             item("Show Log", MenuAction::showLog),
             item("Copy Diagnostics", MenuAction::copyDiagnostics),
             separator,
             item("Quit Velmora", MenuAction::quit, "Ctrl+Q"),
         })
        menu.push_back(std::move(rest));
    return menu;
}

std::string statusLine(bool running, const std::string& idle, std::int64_t port,
                       const std::vector<NetInfo::Address>& addresses) {
    if (running) {
        if (!addresses.empty()) return "Running · " + addresses.front().ip + ":" + std::to_string(port);
        return "Running on port " + std::to_string(port) + " (no network)";
    }
    return idle;
}

}  // namespace velmora::StatusMenu
