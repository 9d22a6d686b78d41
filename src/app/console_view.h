#pragma once
// The application's screen in --headless: no menu and no windows; each change of the server's
// state is one line on standard error, and so is what a window or notification would say.

#include "app/app_view.h"

#include <cstdio>
#include <functional>
#include <string>

namespace velmora {

class ConsoleView final : public AppView, public Desktop {
public:
    // `terminate` ends the event loop.
    ConsoleView(std::function<void()> terminate, std::FILE* out = stderr)
        : terminate_(std::move(terminate)), out_(out) {}

    void buildMenu(const std::vector<MenuItem>&) override {}
    void show(const MenuState& state) override;
    void setStatusLine(const std::string&) override {}
    bool showsWindows() const override { return false; }
    void openSettings(SettingsForm&) override;
    std::unique_ptr<PermissionsWindowView> makePermissionsWindow(PermissionsController&) override { return nullptr; }
    void notify(const std::string& message) override { say(message); }

    int runAlert(const Alert& alert) override;
    void copyText(const std::string&) override {}
    void openURL(const std::string&) override {}
    bool opensAtLogin() override;
    std::optional<std::string> setOpensAtLogin(bool on) override;
    void terminate() override { terminate_(); }

private:
    void say(const std::string& line);

    std::function<void()> terminate_;
    std::FILE* out_;
    std::string shown_;
};

}  // namespace velmora
