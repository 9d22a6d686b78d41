#pragma once
// What the application object needs from the screen, as small interfaces: the status item and its
// menu, windows, alerts, the clipboard, URL opening and the login item. The Qt binding implements
// them with widgets, --headless with lines on standard error, tests in memory. The windows get
// their presenters (SettingsForm, PermissionsController) from the application object through it.

#include "permissions/permissions_controller.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velmora {

class SettingsForm;

enum class MenuAction {
    none,  // the status line and separators
    toggleServer,
    openSettings,
    checkForUpdates,
    toggleAutoStart,
    toggleUsagePing,
    toggleLogin,
    checkPermissions,
    repairPermissions,
    testConnection,
    showLog,
    copyDiagnostics,
    quit,
};

// One entry of the status menu, as built once at start-up.
struct MenuItem {
    std::string title;          // empty for a separator
    MenuAction action = MenuAction::none;
    std::string shortcut;       // "Ctrl+," style, empty for none
    bool checkable = false;
    bool enabled = true;

    bool separator() const { return title.empty(); }
    bool operator==(const MenuItem&) const = default;
};

// What updateUI shows.
struct MenuState {
    std::string statusLine;
    std::string toggleTitle;
    bool autoStart = false;
    bool usagePing = false;
    bool opensAtLogin = false;
    bool running = false;      // the icon's green tint
    int serverPid = 0;         // the running server's pid, 0 when none

    bool operator==(const MenuState&) const = default;
};

// A modal alert: a message, an informative text and buttons, the first one the default.
struct Alert {
    std::string message;
    std::string informative;
    std::vector<std::string> buttons{"OK"};

    bool operator==(const Alert&) const = default;
};

// The status item, its menu and the windows.
class AppView {
public:
    virtual ~AppView() = default;

    // No Dock icon, no main window, and the application keeps running when a window closes.
    virtual void becomeAccessory() {}
    // The status item with Velmora's icon ("RDP" text when no image can be made).
    virtual void createStatusItem() {}
    virtual void buildMenu(const std::vector<MenuItem>& items) = 0;
    virtual void show(const MenuState& state) = 0;
    // Retitles only the status line (until the next show()).
    virtual void setStatusLine(const std::string& title) = 0;

    // Whether this view has windows at all (--headless has none).
    virtual bool showsWindows() const { return true; }
    // The settings window bound to `form`: built on first use, then filled and brought to the front.
    virtual void openSettings(SettingsForm& form) = 0;
    // The permissions window drawn for `controller`, made on its first showing.
    virtual std::unique_ptr<PermissionsWindowView> makePermissionsWindow(PermissionsController& controller) = 0;
    // A message for the user where no window says it (a notification, a console line).
    virtual void notify(const std::string& message) = 0;
};

// The desktop around the application.
class Desktop {
public:
    virtual ~Desktop() = default;

    // Brings the application to the front and runs the alert modally; the index of the button chosen.
    virtual int runAlert(const Alert& alert) = 0;
    // Replaces the clipboard's contents with plain text.
    virtual void copyText(const std::string& text) = 0;
    // Opens a URL (file:// included) with the desktop's default application.
    virtual void openURL(const std::string& url) = 0;

    // The login item.
    virtual bool opensAtLogin() = 0;
    // Returns the reason when the change failed.
    virtual std::optional<std::string> setOpensAtLogin(bool on) = 0;

    // Ends the event loop; the application then stops the server and exits.
    virtual void terminate() = 0;
};

}  // namespace velmora
