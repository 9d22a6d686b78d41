#include "qt/settings_window.h"

#include "platform/words.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QFontMetrics>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QSlider>
#include <QStyle>
#include <QVBoxLayout>

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
    win->setSizeGripEnabled(false);
    const bool frames = form_.fixedFrames();

    // The controls, in the window's order; each row is a label (or none) and its control.
    struct Row {
        QLabel* label = nullptr;
        QWidget* control = nullptr;
        const Setting* setting = nullptr;
    };
    std::vector<Row> rows;
    for (const Setting* setting : form_.rows()) {
        Row row{nullptr, nullptr, setting};
        if (setting->labelY) {
            row.label = new QLabel(words(setting->label), win);
            row.label->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        }
        switch (setting->control) {
            case SettingControl::none: continue;
            case SettingControl::portField: row.control = new QLineEdit(QStringLiteral("3389"), win); break;
            case SettingControl::slider: {
                slider_ = new QSlider(Qt::Horizontal, win);
                slider_->setRange(int(SettingsForm::sliderMinimum) * sliderUnits, int(SettingsForm::sliderMaximum) * sliderUnits);
                slider_->setSingleStep(sliderUnits);
                slider_->setPageStep(10 * sliderUnits);
                slider_->setTickPosition(QSlider::NoTicks);
                QObject::connect(slider_, &QSlider::valueChanged, win, [this] { scaleChanged(); });
                scaleLabel_ = new QLabel(win);
                scaleLabel_->setObjectName(QStringLiteral("scaleLabel"));
                row.control = slider_;
                break;
            }
            case SettingControl::popUp: {
                auto* box = new QComboBox(win);
                for (const SettingChoice& choice : setting->choices) box->addItem(words(choice.title));
                row.control = box;
                break;
            }
            case SettingControl::checkBox: row.control = new QCheckBox(words(setting->label), win); break;
        }
        row.control->setObjectName(QString::fromLatin1(setting->key));
        if (!form_.enabled(*setting)) {
            row.control->setEnabled(false);
            if (row.label) row.label->setEnabled(false);
            row.control->setToolTip(QString::fromStdString(form_.notHonoured()));
        } else if (*setting->tooltip.mac) {
            row.control->setToolTip(words(setting->tooltip));
        }
        controls_[setting->key] = row.control;
        rows.push_back(row);
    }

    auto* loginLabel = new QLabel(QString::fromUtf8(SettingsText::loginLabel), win);
    loginLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    loginLabel->setToolTip(words(platform::words::loginTooltip));
    nlaUser_ = new QLineEdit(win);
    nlaUser_->setObjectName(QStringLiteral("nlaUser"));
    nlaUser_->setPlaceholderText(QString::fromUtf8(SettingsText::placeholderUser));
    nlaPass_ = new QLineEdit(win);
    nlaPass_->setObjectName(QStringLiteral("nlaPass"));
    nlaPass_->setEchoMode(QLineEdit::Password);
    nlaPass_->setPlaceholderText(QString::fromUtf8(SettingsText::placeholderPassword));
    nlaStatus_ = new QLabel(win);
    nlaStatus_->setObjectName(QStringLiteral("nlaStatus"));
    makeSecondary(nlaStatus_);
    statusFont_ = std::make_unique<QFont>(nlaStatus_->font());

    auto* note = new QLabel(QString::fromStdString(SettingsForm::note()), win);
    note->setObjectName(QStringLiteral("note"));
    note->setWordWrap(true);
    note->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    makeSecondary(note);

    auto* saveButton = new QPushButton(QStringLiteral("Save and Restart"), win);
    saveButton->setObjectName(QStringLiteral("save"));
    auto* cancelButton = new QPushButton(QStringLiteral("Cancel"), win);
    cancelButton->setObjectName(QStringLiteral("cancel"));
    // Return presses "Save and Restart" wherever the focus is; Cancel has no key of its own.
    cancelButton->setAutoDefault(false);
    saveButton->setAutoDefault(false);
    saveButton->setDefault(true);
    QObject::connect(saveButton, &QPushButton::clicked, win, [this] { save(); });
    QObject::connect(cancelButton, &QPushButton::clicked, win, [this] { close(); });

    if (frames) {
        // The macOS window: every control at its frame, from the content's bottom-left corner.
        win->setFixedSize(width, height);
        for (const Row& row : rows) {
            const Frame& f = row.setting->frame;
            if (row.label) place(row.label, 20, row.setting->labelY, 150, 20);
            place(row.control, f.x, f.y, f.width, f.height);
            if (row.control == slider_) place(scaleLabel_, f.x + f.width + 10, f.y, 90, f.height);
            if (auto* box = qobject_cast<QCheckBox*>(row.control)) fitCheckBox(box);
        }
        place(loginLabel, 20, 322, 150, 20);
        place(nlaUser_, 180, 320, 140, 24);
        place(nlaPass_, 330, 320, 170, 24);
        place(nlaStatus_, 180, 300, 330, 18);
        place(note, 20, 56, 480, 48);
        place(saveButton, 370, 16, 130, 30);
        place(cancelButton, 280, 16, 80, 30);
        return;
    }

    // Elsewhere a form that fits the desktop's font, with nothing where hidden controls would be.
    auto* form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    for (const Row& row : rows) {
        QWidget* field = row.control;
        if (row.control == slider_) {
            field = new QWidget(win);
            auto* line = new QHBoxLayout(field);
            line->setContentsMargins(0, 0, 0, 0);
            slider_->setMinimumWidth(220);
            line->addWidget(slider_);
            line->addWidget(scaleLabel_);
        }
        if (row.label) form->addRow(row.label, field);
        else form->addRow(QString(), field);
        if (SettingsForm::loginFollows(*row.setting)) {
            auto* login = new QWidget(win);
            auto* line = new QHBoxLayout(login);
            line->setContentsMargins(0, 0, 0, 0);
            line->addWidget(nlaUser_);
            line->addWidget(nlaPass_);
            form->addRow(loginLabel, login);
            form->addRow(QString(), nlaStatus_);
        }
    }
    auto* column = new QVBoxLayout(win);
    column->setSizeConstraint(QLayout::SetFixedSize);
    column->addLayout(form);
    if (std::string text = form_.notHonouredNote(); !text.empty()) {
        auto* honest = new QLabel(QString::fromStdString(text), win);
        honest->setObjectName(QStringLiteral("notHonouredNote"));
        honest->setWordWrap(true);
        makeSecondary(honest);
        column->addWidget(honest);
    }
    note->setMinimumWidth(480);
    column->addWidget(note);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cancelButton);
    buttons->addWidget(saveButton);
    column->addLayout(buttons);
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
    if (form_.fixedFrames()) fitFont(nlaStatus_, *statusFont_, nlaStatus_->text(), nlaStatus_->width());
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
        win->adjustSize();
        win->move(area.center() - QPoint(win->width() / 2, win->height() / 2));
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
