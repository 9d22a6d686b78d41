#pragma once
// The settings window: built once on first use, refilled from the stores at every opening, hidden
// on close. Its controls only mirror SettingsFields; SettingsForm decides what is shown and saved.
// Controls carry object names (portField, scale, fps, ...) so that tests can find them.

#include "app/settings_form.h"

#include <memory>

class QCheckBox;
class QComboBox;
class QDialog;
class QFont;
class QLabel;
class QLineEdit;
class QPushButton;
class QSlider;

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

    // The content size; frames below are given from the content's bottom-left corner.
    static constexpr int width = 520;
    static constexpr int height = 712;

private:
    void build();
    void fill(const SettingsFields& fields);
    SettingsFields read() const;
    void scaleChanged();

    SettingsForm& form_;
    std::unique_ptr<QDialog> win_;
    QLineEdit* portField_ = nullptr;
    QLabel* scaleLabel_ = nullptr;
    QSlider* scale_ = nullptr;
    QComboBox* fps_ = nullptr;
    QCheckBox* cursor_ = nullptr;
    QCheckBox* auth_ = nullptr;
    QCheckBox* ctrl_ = nullptr;
    QCheckBox* avc_ = nullptr;
    QCheckBox* audio_ = nullptr;
    QCheckBox* clipboard_ = nullptr;
    QCheckBox* hwenc_ = nullptr;
    QLineEdit* nlaUser_ = nullptr;
    QLineEdit* nlaPass_ = nullptr;
    QLabel* nlaStatus_ = nullptr;
    std::unique_ptr<QFont> statusFont_;  // before fitting its text
    QComboBox* bitrate_ = nullptr;
    QComboBox* maxWidthPop_ = nullptr;
    QComboBox* maxSize_ = nullptr;
    QComboBox* vmode_ = nullptr;
};

}  // namespace velmora
