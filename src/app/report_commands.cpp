#include "app/report_commands.h"

#include "core/app_version.h"
#include "core/manual_queue.h"
#include "netcheck/connection_test.h"
#include "netcheck/diagnostics.h"
#include "netcheck/net_info.h"
#include "permissions/helper_perms.h"
#include "process/spawn.h"
#include "platform/defaults_store.h"
#include "platform/paths.h"
#include "platform/processes.h"
#include "platform/login_item.h"
#include "platform/system_info.h"
#include "settings/keys.h"
#include "settings/settings_store.h"

#include <cstdio>
#include <unistd.h>

namespace velmora {

namespace {

// The settings as the application would read them; registering defaults writes nothing.
platform::DefaultsStore readOnlyStore() {
    platform::DefaultsStore store;
    store.registerDefaults(registeredSettingsDefaults());
    return store;
}

// The server's own answer about its permissions, as "Copy Diagnostics" asks for it; empty when the
// server cannot be asked.
std::vector<Diagnostics::Permission> probedPermissions(platform::DefaultsStore& store) {
    ManualQueue queue;
    auto perms = HelperPerms::create(queue, store, {});
    bool answered = false;
    std::optional<PermStatus> status;
    perms->check([&](std::optional<PermStatus> result) {
        status = result;
        answered = true;
    });
    queue.runUntil([&] { return answered; }, 30.0);
    perms->drainQueue();
    if (!status) return {};
    return Diagnostics::permissionEntries(status->screen, status->input);
}

}  // namespace

bool serverProcessRunning() { return !Spawn::findServers().empty(); }

int printDiagnostics() {
    platform::DefaultsStore store = readOnlyStore();
    bool running = serverProcessRunning();
    auto permissions = probedPermissions(store);
    std::string report =
        Diagnostics::gather(appVersion(), currentSettings(store), running, permissions, platform::logFilePath());
    std::printf("%s\n", report.c_str());
    return 0;
}

int printConnectionTest() {
    platform::DefaultsStore store = readOnlyStore();
    auto servers = Spawn::findServers();
    ConnectionTest test = runConnectionTest(store.integer(Key::port), !servers.empty(), NetInfo::localAddresses(),
                                            std::vector<int>(servers.begin(), servers.end()));
    std::printf("%s\n", test.report(platform::opensAtLogin()).c_str());
    return 0;
}

}  // namespace velmora
