#include "app/settings_form.h"

#include "nla/login_form.h"
#include "nla/nla_login.h"
#include "permissions/app_log.h"
#include "process/server_supervisor.h"
#include "settings/keys.h"
#include "settings/remote_screen.h"
#include "settings/settings_store.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace velmora {

void wipeMemory(void* data, std::size_t size) {
    if (data && size) OPENSSL_cleanse(data, size);
}

void wipeText(std::string& text) {
    if (!text.empty()) OPENSSL_cleanse(text.data(), text.size());
    text.clear();
}

SettingsForm::SettingsForm(platform::DefaultsStore& store, Desktop& desktop,
                           std::shared_ptr<ServerSupervisor> supervisor, std::function<void()> refreshMenu)
    : store_(store), desktop_(desktop), supervisor_(std::move(supervisor)), refreshMenu_(std::move(refreshMenu)) {}

std::string SettingsForm::scaleText(double value) {
    if (!std::isfinite(value)) value = 0;
    return std::to_string(static_cast<long long>(std::trunc(value))) + "%";
}

std::int64_t SettingsForm::fieldInteger(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r')) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    constexpr std::int64_t limit = std::numeric_limits<std::int64_t>::max();
    std::int64_t value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        int digit = text[i] - '0';
        value = value > (limit - digit) / 10 ? limit : value * 10 + digit;
    }
    return negative ? -value : value;
}

SettingsFields SettingsForm::fill() const {
    SettingsFields fields;
    fields.port = std::to_string(store_.integer(Key::port));
    // The slider keeps its own range, whatever is stored.
    double scale = store_.real(Key::scale) * 100;
    fields.scale = std::isnan(scale) ? 25.0 : std::clamp(scale, 25.0, 100.0);

    auto select = [](const auto& choices, const std::string& title) {
        for (std::size_t i = 0; i < choices.size(); ++i)
            if (title == choices[i].title) return static_cast<int>(i);
        return -1;
    };
    fields.fps = select(SettingsChoices::fps, std::to_string(store_.integer(Key::fps)));
    fields.bitrate = select(SettingsChoices::bitrate, std::to_string(store_.integer(Key::bitrate)) + " Mbit/s");

    switch (store_.integer(Key::maxWidth)) {
        case 4096: fields.maxWidth = 1; break;
        case 5120: fields.maxWidth = 2; break;
        case 7680: fields.maxWidth = 3; break;
        default: fields.maxWidth = 0;
    }
    std::int64_t pixels = store_.integer(Key::maxSize);
    fields.maxSize = pixels < 3000000 ? 0 : pixels < 6000000 ? 1 : 2;

    RemoteScreen screen = remoteScreenFrom(store_.string(Key::remoteScreen), store_.string(Key::virtualMode));
    auto found = std::find(allRemoteScreens.begin(), allRemoteScreens.end(), screen);
    fields.remoteScreen = found == allRemoteScreens.end() ? 0 : static_cast<int>(found - allRemoteScreens.begin());

    fields.cursor = store_.boolean(Key::cursor);
    fields.auth = store_.boolean(Key::auth);
    fields.ctrl = store_.boolean(Key::ctrlCmd);
    fields.avc = store_.boolean(Key::avc444);
    fields.audio = store_.boolean(Key::audio);
    fields.clipboard = store_.boolean(Key::clipboard);
    fields.hwenc = store_.boolean(Key::hwenc);

    auto user = NLALogin::user(NLALogin::load());
    fields.nlaUser = user.value_or("");
    fields.nlaPass.clear();
    fields.nlaPassPlaceholder = user ? SettingsText::placeholderUnchanged : SettingsText::placeholderPassword;
    fields.nlaStatus = user ? SettingsText::loginSet : SettingsText::loginNotSet;
    return fields;
}

void SettingsForm::alert(const std::string& title, const std::string& text) {
    desktop_.runAlert(Alert{title, text, {"OK"}});
}

bool SettingsForm::save(SettingsFields& fields, const std::function<void()>& hideWindow) {
    // The login first: once the hash is made the typed password has no reason to exist anywhere.
    auto loginMessage = LoginForm::apply(fields.nlaUser, fields.nlaPass);
    wipeText(fields.nlaPass);
    if (loginMessage) {
        alert(LoginForm::alertTitle, *loginMessage);
        return false;
    }

    auto port = settingsPort(fieldInteger(fields.port));
    if (!port) {
        alert(SettingsText::portAlertTitle, "\"" + fields.port + "\"" + SettingsText::portAlertTail);
        return false;
    }
    std::int64_t oldPort = store_.integer(Key::port);
    if (*port != oldPort)
        AppLog::write("port changed in Settings: " + std::to_string(oldPort) + " -> " + std::to_string(*port));
    store_.set(Key::port, *port);

    store_.set(Key::scale, fields.scale >= 100 ? 1.0 : std::max(fields.scale, 25.0) / 100);

    std::string fpsTitle = fields.fps >= 0 && fields.fps < static_cast<int>(SettingsChoices::fps.size())
                               ? SettingsChoices::fps[static_cast<std::size_t>(fields.fps)].title
                               : "30";
    std::int64_t fps = fieldInteger(fpsTitle);
    store_.set(Key::fps, fps > 0 ? fps : std::int64_t{30});

    auto pick = [](const auto& choices, int index) {
        return choices[static_cast<std::size_t>(std::clamp(index, 0, static_cast<int>(choices.size()) - 1))].value;
    };
    store_.set(Key::maxSize, pick(SettingsChoices::maxSize, fields.maxSize));
    int screen = std::clamp(fields.remoteScreen, 0, static_cast<int>(allRemoteScreens.size()) - 1);
    store_.set(Key::remoteScreen, rawValue(allRemoteScreens[static_cast<std::size_t>(screen)]));

    store_.set(Key::cursor, fields.cursor);
    store_.set(Key::auth, fields.auth);
    store_.set(Key::ctrlCmd, fields.ctrl);
    store_.set(Key::avc444, fields.avc);
    store_.set(Key::audio, fields.audio);
    store_.set(Key::clipboard, fields.clipboard);
    store_.set(Key::hwenc, fields.hwenc);

    store_.set(Key::bitrate, pick(SettingsChoices::bitrate, fields.bitrate));
    store_.set(Key::maxWidth, pick(SettingsChoices::maxWidth, fields.maxWidth));

    if (hideWindow) hideWindow();
    // A restart applies every setting; a stopped server picks them up at its next start.
    if (supervisor_->running()) supervisor_->restartServer();
    else if (refreshMenu_) refreshMenu_();
    return true;
}

}  // namespace velmora
