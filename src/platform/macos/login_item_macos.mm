// The login item on macOS: the main application's own service in Service Management (macOS 13 and
// later). Registering needs the signed Velmora.app; the system may then ask the user to approve it
// in System Settings, which the status reports as "requires approval", not "enabled".

#include "platform/login_item.h"

#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>

namespace velmora::platform {

bool opensAtLogin() {
    @autoreleasepool {
        return [SMAppService mainAppService].status == SMAppServiceStatusEnabled;
    }
}

std::optional<std::string> setOpensAtLogin(bool on) {
    @autoreleasepool {
        SMAppService* service = [SMAppService mainAppService];
        NSError* error = nil;
        BOOL done = on ? [service registerAndReturnError:&error] : [service unregisterAndReturnError:&error];
        if (done) return std::nullopt;
        NSString* reason = error ? error.localizedDescription : nil;
        const char* text = reason ? reason.UTF8String : nullptr;
        // Copied before the pool drains: the error and its text are autoreleased.
        return std::string(text && text[0] ? text : "The login item could not be changed.");
    }
}

// The login item is kept by the system, not in a file of ours.
std::string loginItemPath() { return {}; }

}  // namespace velmora::platform
