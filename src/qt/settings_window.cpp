#include "qt/settings_window.h"

#include "platform/words.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QFontMetrics>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QSlider>
#include <QStyle>

#include <cmath>

namespace velmora {

namespace {

// The slider works in hundredths of a percent so that a stored scale such as 0.879 survives an
// opening and a save unchanged.
constexpr int sliderUnits = 100;

// Places `widget` at a frame given from the content's bottom-left corner.
template <typename W>
W* place(W* widget, int x, int y, int w, int h) {
    widget->setGeometry(x, SettingsWindow::height - y - h, w, h);
    return widget;
}

// The small system font and the secondary label colour.
void makeSecondary(QLabel* label) {
    QFont font = label->font();
    if (font.pointSizeF() > 0) font.setPointSizeF(font.pointSizeF() * 11.0 / 13.0);
    label->setFont(font);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, palette.color(QPalette::PlaceholderText));
    label->setPalette(palette);
}

// Only the close box and "Cancel" close the window: Escape is no shortcut for either.
class SettingsDialog final : public QDialog {
public:
    using QDialog::QDialog;

protected:
    void keyPressEvent(QKeyEvent* event) override {
        if (event->key() == Qt::Key_Escape && event->modifiers() == Qt::NoModifier) return event->accept();
        QDialog::keyPressEvent(event);
    }
};

// The frames are kept whatever the font: a text wider than its frame is drawn in a smaller size
// of the same font instead of being cut off.
void fitFont(QWidget* widget, const QFont& base, const QString& text, int room) {
    QFont font = base;
    while (font.pointSizeF() > 6.5 && QFontMetrics(font).horizontalAdvance(text) > room)
        font.setPointSizeF(font.pointSizeF() - 0.5);
    widget->setFont(font);
}

void fitCheckBox(QCheckBox* box) {
    QStyle* style = box->style();
    int indicator = style->pixelMetric(QStyle::PM_IndicatorWidth, nullptr, box) +
                    style->pixelMetric(QStyle::PM_CheckBoxLabelSpacing, nullptr, box);
    fitFont(box, box->font(), box->text(), box->width() - indicator - 2);
}

QString words(const platform::Words& words) { return QString::fromStdString(platform::say(words)); }

std::string utf8(const QString& text) { return text.toStdString(); }

}  // namespace

SettingsWindow::SettingsWindow(SettingsForm& form) : form_(form) {}

SettingsWindow::~SettingsWindow() = default;

void SettingsWindow::build() {
    win_ = std::make_unique<SettingsDialog>(nullptr, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                                                  Qt::WindowCloseButtonHint);
    QDialog* win = win_.get();
    win->setObjectName(QStringLiteral("settingsWindow"));
    win->setWindowTitle(QString::fromUtf8(SettingsText::windowTitle));
    win->setFixedSize(width, height);
    win->setSizeGripEnabled(false);

    auto mkLabel = [win](const QString& text, int y) {
        auto* label = place(new QLabel(text, win), 20, y, 150, 20);
        label->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        return label;
    };

    for (const Setting* setting : SettingsForm::rows()) {
        const Frame& f = setting->frame;
        if (setting->labelY) mkLabel(words(setting->label), setting->labelY);
        QWidget* control = nullptr;
        switch (setting->control) {
            case SettingControl::none: continue;
            case SettingControl::portField: control = new QLineEdit(QStringLiteral("3389"), win); break;
            case SettingControl::slider: {
                auto* slider = new QSlider(Qt::Horizontal, win);
                slider->setRange(int(SettingsForm::sliderMinimum) * sliderUnits, int(SettingsForm::sliderMaximum) * sliderUnits);
                slider->setSingleStep(sliderUnits);
                slider->setPageStep(10 * sliderUnits);
                slider->setTickPosition(QSlider::NoTicks);
                QObject::connect(slider, &QSlider::valueChanged, win, [this] { scaleChanged(); });
                slider_ = slider;
                scaleLabel_ = place(new QLabel(win), f.x + f.width + 10, f.y, 90, f.height);
                scaleLabel_->setObjectName(QStringLiteral("scaleLabel"));
                control = slider;
                break;
            }
            case SettingControl::popUp: {
                auto* box = new QComboBox(win);
                for (const SettingChoice& choice : setting->choices) box->addItem(words(choice.title));
                control = box;
                break;
            }
            case SettingControl::checkBox: control = new QCheckBox(words(setting->label), win); break;
        }
        place(control, f.x, f.y, f.width, f.height);
        control->setObjectName(QString::fromLatin1(setting->key));
        if (*setting->tooltip.mac) control->setToolTip(words(setting->tooltip));
        if (auto* box = qobject_cast<QCheckBox*>(control)) fitCheckBox(box);
        controls_[setting->key] = control;
    }

    mkLabel(QString::fromUtf8(SettingsText::loginLabel), 322)->setToolTip(words(platform::words::loginTooltip));
    nlaUser_ = place(new QLineEdit(win), 180, 320, 140, 24);
    nlaUser_->setObjectName(QStringLiteral("nlaUser"));
    nlaUser_->setPlaceholderText(QString::fromUtf8(SettingsText::placeholderUser));
    nlaPass_ = place(new QLineEdit(win), 330, 320, 170, 24);
    nlaPass_->setObjectName(QStringLiteral("nlaPass"));
    nlaPass_->setEchoMode(QLineEdit::Password);
    nlaPass_->setPlaceholderText(QString::fromUtf8(SettingsText::placeholderPassword));
    nlaStatus_ = place(new QLabel(win), 180, 300, 330, 18);
    nlaStatus_->setObjectName(QStringLiteral("nlaStatus"));
    makeSecondary(nlaStatus_);
    statusFont_ = std::make_unique<QFont>(nlaStatus_->font());

    auto* note = place(new QLabel(QString::fromStdString(SettingsForm::note()), win), 20, 56, 480, 48);
    note->setObjectName(QStringLiteral("note"));
    note->setWordWrap(true);
    note->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    makeSecondary(note);

    auto* saveButton = place(new QPushButton(QStringLiteral("Save and Restart"), win), 370, 16, 130, 30);
    saveButton->setObjectName(QStringLiteral("save"));
    auto* cancelButton = place(new QPushButton(QStringLiteral("Cancel"), win), 280, 16, 80, 30);
    cancelButton->setObjectName(QStringLiteral("cancel"));
    // Return presses "Save and Restart" wherever the focus is; Cancel has no key of its own.
    cancelButton->setAutoDefault(false);
    saveButton->setAutoDefault(false);
    saveButton->setDefault(true);
    QObject::connect(saveButton, &QPushButton::clicked, win, [this] { save(); });
    QObject::connect(cancelButton, &QPushButton::clicked, win, [this] { close(); });
}

void SettingsWindow::scaleChanged() {
    scaleLabel_->setText(QString::fromStdString(SettingsForm::scaleText(double(slider_->value()) / sliderUnits)));
}

void SettingsWindow::fill(const SettingsFields& fields) {
    for (const auto& [key, widget] : controls_) {
        if (auto* field = qobject_cast<QLineEdit*>(widget)) field->setText(QString::fromStdString(fields.get<std::string>(key)));
        else if (auto* slider = qobject_cast<QSlider*>(widget)) slider->setValue(int(std::lround(fields.get<double>(key) * sliderUnits)));
        else if (auto* box = qobject_cast<QComboBox*>(widget)) box->setCurrentIndex(fields.get<int>(key));
        else if (auto* check = qobject_cast<QCheckBox*>(widget)) check->setChecked(fields.get<bool>(key));
    }
    if (scaleLabel_) scaleChanged();
    nlaUser_->setText(QString::fromStdString(fields.nlaUser));
    nlaPass_->clear();
    nlaPass_->setPlaceholderText(QString::fromStdString(fields.nlaPassPlaceholder));
    nlaStatus_->setText(QString::fromStdString(fields.nlaStatus));
    fitFont(nlaStatus_, *statusFont_, nlaStatus_->text(), nlaStatus_->width());
}

SettingsFields SettingsWindow::read() const {
    SettingsFields fields;
    for (const auto& [key, widget] : controls_) {
        ControlValue& value = fields.controls[key];
        if (auto* field = qobject_cast<QLineEdit*>(widget)) value = utf8(field->text());
        else if (auto* slider = qobject_cast<QSlider*>(widget)) value = double(slider->value()) / sliderUnits;
        else if (auto* box = qobject_cast<QComboBox*>(widget)) value = box->currentIndex();
        else if (auto* check = qobject_cast<QCheckBox*>(widget)) value = check->isChecked();
    }
    fields.nlaUser = utf8(nlaUser_->text());

    // The password leaves the field at once, and the copies made on the way are wiped.
    QString password = nlaPass_->text();
    nlaPass_->clear();
    QByteArray bytes = password.toUtf8();
    fields.nlaPass.assign(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    wipeMemory(bytes.data(), static_cast<std::size_t>(bytes.size()));
    wipeMemory(password.data(), static_cast<std::size_t>(password.size()) * sizeof(QChar));
    return fields;
}

void SettingsWindow::open() {
    if (!win_) build();
    fill(form_.fill());

    QDialog* win = win_.get();
    if (QScreen* screen = QGuiApplication::primaryScreen()) {
        QRect area = screen->availableGeometry();
        win->move(area.center() - QPoint(width / 2, height / 2));
    }
    // No field starts focused: the window itself takes the focus.
    if (QWidget* focused = win->focusWidget()) focused->clearFocus();
    win->setFocus(Qt::OtherFocusReason);
    win->show();
    win->raise();
    win->activateWindow();
}

void SettingsWindow::save() {
    if (!win_) return;
    SettingsFields fields = read();
    form_.save(fields, [this] { win_->hide(); });
    wipeText(fields.nlaPass);
}

void SettingsWindow::close() {
    if (win_) win_->hide();
}

}  // namespace velmora
