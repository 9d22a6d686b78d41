#pragma once
// The settings window: built once on first use from the settings form's rows, refilled from the
// stores at every opening, hidden on close. Its controls only mirror SettingsFields; SettingsForm
// decides what is shown and saved. Each control carries its setting's key as object name (the
// login fields: nlaUser, nlaPass, nlaStatus) so that tests can find it.

#include "app/settings_form.h"

#include <map>
#include <memory>
#include <string>

class QDialog;
class QFont;
class QLabel;
class QLineEdit;
class QSlider;
class QWidget;

namespace velmora {

class SettingsWindow {
public:
    explicit SettingsWindow(SettingsForm& form);
    ~SettingsWindow();
    SettingsWindow(const SettingsWindow&) = delete;
    SettingsWindow& operator=(const SettingsWindow&) = delete;

    // Builds the window if needed, fills it and brings it to the front with no field focused.
    void open();
    // "Save and Restart" and Return.
    void save();
    // "Cancel": hides; the next open() refills every control.
    void close();

    // Absent until the first open().
    QDialog* window() const { return win_.get(); }

    // The content size; frames are given from the content's bottom-left corner.
    static constexpr int width = 520;
    static constexpr int height = 712;

private:
    void build();
    void fill(const SettingsFields& fields);
    SettingsFields read() const;
    void scaleChanged();

    SettingsForm& form_;
    std::unique_ptr<QDialog> win_;
    std::map<std::string, QWidget*> controls_;  // by setting key
    QSlider* slider_ = nullptr;  // the one slider (resolution) and its label
    QLabel* scaleLabel_ = nullptr;
    QLineEdit* nlaUser_ = nullptr;
    QLineEdit* nlaPass_ = nullptr;
    QLabel* nlaStatus_ = nullptr;
    std::unique_ptr<QFont> statusFont_;  // before fitting its text
};

}  // namespace velmora
