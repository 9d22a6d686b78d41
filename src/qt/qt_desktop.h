#pragma once
// The desktop for the tray application: modal alerts, the clipboard, opening URLs and files with
// the default application, the login item, and quitting.

#include "app/app_view.h"

namespace velmora {

class QtDesktop final : public Desktop {
public:
    int runAlert(const Alert& alert) override;
    void copyText(const std::string& text) override;
    void openURL(const std::string& url) override;
    bool opensAtLogin() override;
    std::optional<std::string> setOpensAtLogin(bool on) override;
    void terminate() override;
};

}  // namespace velmora
