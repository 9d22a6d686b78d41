#include "app/settings_form.h"

#include "nla/login_form.h"
#include "nla/nla_login.h"
#include "netcheck/net_info.h"
#include "platform/app_log.h"
#include "platform/words.h"
#include "process/server_supervisor.h"
#include "settings/keys.h"
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
                           std::shared_ptr<ServerSupervisor> supervisor, std::function<void()> refreshMenu,
                           platform::Column column)
    : store_(store),
      desktop_(desktop),
      supervisor_(std::move(supervisor)),
      refreshMenu_(std::move(refreshMenu)),
      column_(column) {}

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

namespace {

// The item a stored value selects.
int selectedChoice(const Setting& setting, const platform::DefaultsValue& value) {
    const auto& choices = setting.choices;
    if (setting.match == ChoiceMatch::atLeast) {
        auto* number = std::get_if<std::int64_t>(&value);
        int index = 0;
        for (std::size_t i = 0; i < choices.size(); ++i)
            if (number && *number >= choices[i].from) index = static_cast<int>(i);
        return index;
    }
    for (std::size_t i = 0; i < choices.size(); ++i)
        if (choices[i].value == value) return static_cast<int>(i);
    return setting.match == ChoiceMatch::exactOrNone ? -1 : 0;
}

// The value an item index saves: an index outside the list saves the nearest item, or the
// setting's default where the table says so.
platform::DefaultsValue chosenValue(const Setting& setting, int index) {
    const int last = static_cast<int>(setting.choices.size()) - 1;
    if ((index < 0 || index > last) && setting.unselectedSavesDefault) return setting.fallback;
    return setting.choices[static_cast<std::size_t>(std::clamp(index, 0, last))].value;
}

}  // namespace

std::vector<const Setting*> SettingsForm::rows() const {
    std::vector<const Setting*> rows;
    for (const Setting& setting : settingsTable())
        if (setting.control != SettingControl::none && supportIn(setting, column_) != Support::meaningless)
            rows.push_back(&setting);
    return rows;
}

bool SettingsForm::loginFollows(const Setting& setting) { return setting.key == std::string_view(Key::auth); }

bool SettingsForm::enabled(const Setting& setting) const { return supportIn(setting, column_) == Support::honoured; }

std::string SettingsForm::notHonoured() const { return platform::say(platform::words::notHonoured, column_); }

std::string SettingsForm::notHonouredNote() const {
    for (const Setting* setting : rows())
        if (!enabled(*setting)) return platform::say(platform::words::notHonouredNote, column_);
    return {};
}

std::string SettingsForm::note() { return NetInfo::afterRestartNote(true); }

SettingsFields SettingsForm::fill() const {
    SettingsFields fields;
    for (const Setting* setting : rows()) {
        ControlValue& value = fields.controls[setting->key];
        switch (setting->control) {
            case SettingControl::none: break;
            // The port as stored, even when it is out of range.
            case SettingControl::portField: value = std::to_string(store_.integer(setting->key)); break;
            case SettingControl::slider: {
                // The slider keeps its own range, whatever is stored.
                double percent = store_.real(setting->key) * 100;
                value = std::isnan(percent) ? sliderMinimum : std::clamp(percent, sliderMinimum, sliderMaximum);
                break;
            }
            case SettingControl::popUp: value = selectedChoice(*setting, readSetting(*setting, store_)); break;
            case SettingControl::checkBox: value = store_.boolean(setting->key); break;
        }
    }

    auto user = NLALogin::user(NLALogin::load());
    fields.nlaUser = user.value_or("");
    fields.nlaPass.clear();
    fields.nlaPassPlaceholder = user ? SettingsText::placeholderUnchanged : SettingsText::placeholderPassword;
    fields.nlaStatus = user ? SettingsText::loginSet : platform::say(platform::words::loginNotSet, column_);
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

    const std::string portText = fields.get<std::string>(Key::port);
    auto port = settingsPort(fieldInteger(portText));
    if (!port) {
        alert(SettingsText::portAlertTitle, "\"" + portText + "\"" + SettingsText::portAlertTail);
        return false;
    }
    std::int64_t oldPort = store_.integer(Key::port);
    if (*port != oldPort)
        platform::AppLog::write("port changed in Settings: " + std::to_string(oldPort) + " -> " +
                                std::to_string(*port));

    for (const Setting* setting : rows()) {
        if (!enabled(*setting)) continue;
        const std::string key = setting->key;
        switch (setting->control) {
            case SettingControl::none: break;
            case SettingControl::portField: store_.set(key, *port); break;
            case SettingControl::slider: {
                double percent = fields.get<double>(key);
                store_.set(key, percent >= sliderMaximum ? 1.0 : std::max(percent, sliderMinimum) / 100);
                break;
            }
            case SettingControl::popUp: store_.set(key, chosenValue(*setting, fields.get<int>(key))); break;
            case SettingControl::checkBox: store_.set(key, fields.get<bool>(key)); break;
        }
    }

    if (hideWindow) hideWindow();
    // A restart applies every setting; a stopped server picks them up at its next start.
    if (supervisor_->running()) supervisor_->restartServer();
    else if (refreshMenu_) refreshMenu_();
    return true;
}

}  // namespace velmora
