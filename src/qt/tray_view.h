#pragma once
// The status item on Linux desktops: a QSystemTrayIcon (a StatusNotifierItem with its menu over
// com.canonical.dbusmenu where a host runs, XEmbed otherwise) with Velmora's icon and the status
// menu. It draws what the application object says and forwards the clicks.

#include "app/app_view.h"
#include "qt/settings_window.h"

#include <QAction>
#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>

#include <functional>
#include <map>
#include <memory>

namespace velmora {

class TrayView final : public AppView {
public:
    using Perform = std::function<void(MenuAction)>;
    explicit TrayView(Perform perform);
    ~TrayView() override;

    void becomeAccessory() override;
    void createStatusItem() override;
    void buildMenu(const std::vector<MenuItem>& items) override;
    void show(const MenuState& state) override;
    void setStatusLine(const std::string& title) override;
    void openSettings(SettingsForm& form) override;
    std::unique_ptr<PermissionsWindowView> makePermissionsWindow(PermissionsController& controller) override;
    void notify(const std::string& message) override;

    QSystemTrayIcon* trayIcon() const { return tray_.get(); }

    // Velmora's icon, tinted green while the server runs; a drawn "RDP" when the image cannot be made.
    static QIcon statusIcon(bool running);

private:
    Perform perform_;
    std::unique_ptr<QMenu> menu_;
    std::unique_ptr<QSystemTrayIcon> tray_;
    QAction* statusLine_ = nullptr;
    QAction* toggle_ = nullptr;
    std::map<MenuAction, QAction*> checkable_;
    std::unique_ptr<SettingsWindow> settingsWindow_;  // made on first use, kept hidden
    bool tinted_ = false;
};

}  // namespace velmora
