#include "qt/settings_window.h"

#include "netcheck/net_info.h"
#include "settings/remote_screen.h"

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

const char* remoteScreenTooltip =
    "When the remote screen has a different shape from the Mac's: mirror shows the Mac's own desktop at the "
    "remote's resolution; a separate screen leaves the Mac's desktop alone; as is shows the Mac's screen with black "
    "bars. A client that asks for Retina pixels (Windows App: Optimize for Retina displays) gets a 2x (HiDPI) "
    "desktop: sharp, with text and windows at their normal size.";
const char* loginTooltip =
    "Windows clients (Remote Desktop Connection, the Windows App) log in with Network Level Authentication, which "
    "needs a password Velmora keeps itself. Set a user name and password here and use them in those clients. The "
    "session is still this Mac's logged-in user.";
const char* clipboardTooltip = "Copy and paste both ways, for signed-in sessions that may control this Mac.";

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

template <typename Choices>
QComboBox* popUp(QWidget* parent, const char* name, const Choices& choices) {
    auto* box = new QComboBox(parent);
    box->setObjectName(QString::fromLatin1(name));
    for (const auto& choice : choices) box->addItem(QString::fromUtf8(choice.title));
    return box;
}

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

    auto mkLabel = [win](const char* text, int y) {
        auto* label = place(new QLabel(QString::fromUtf8(text), win), 20, y, 150, 20);
        label->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        return label;
    };
    auto mkCheck = [win](const char* name, const char* title, int y) {
        auto* box = place(new QCheckBox(QString::fromUtf8(title), win), 180, y, 320, 20);
        box->setObjectName(QString::fromLatin1(name));
        fitCheckBox(box);
        return box;
    };

    mkLabel("Port", 662);
    portField_ = place(new QLineEdit(QStringLiteral("3389"), win), 180, 660, 80, 24);
    portField_->setObjectName(QStringLiteral("portField"));

    mkLabel("Resolution", 622);
    scale_ = place(new QSlider(Qt::Horizontal, win), 180, 622, 220, 20);
    scale_->setObjectName(QStringLiteral("scale"));
    scale_->setRange(25 * sliderUnits, 100 * sliderUnits);
    scale_->setSingleStep(sliderUnits);
    scale_->setPageStep(10 * sliderUnits);
    scale_->setTickPosition(QSlider::NoTicks);
    scale_->setValue(75 * sliderUnits);
    scaleLabel_ = place(new QLabel(QStringLiteral("75%"), win), 410, 622, 90, 20);
    scaleLabel_->setObjectName(QStringLiteral("scaleLabel"));
    QObject::connect(scale_, &QSlider::valueChanged, win, [this] { scaleChanged(); });

    mkLabel("Frame rate", 582);
    fps_ = place(popUp(win, "fps", SettingsChoices::fps), 180, 579, 100, 26);
    mkLabel("Video bitrate", 542);
    bitrate_ = place(popUp(win, "bitrate", SettingsChoices::bitrate), 180, 539, 140, 26);
    mkLabel("Size per monitor", 502);
    maxSize_ = place(popUp(win, "maxSize", SettingsChoices::maxSize), 180, 499, 260, 26);
    mkLabel("Widest desktop", 462);
    maxWidthPop_ = place(popUp(win, "maxWidthPop", SettingsChoices::maxWidth), 180, 459, 260, 26);
    mkLabel("Remote screen", 422);
    vmode_ = place(new QComboBox(win), 180, 419, 260, 26);
    vmode_->setObjectName(QStringLiteral("vmode"));
    for (RemoteScreen screen : allRemoteScreens) vmode_->addItem(QString::fromStdString(title(screen)));
    vmode_->setToolTip(QString::fromUtf8(remoteScreenTooltip));

    cursor_ = mkCheck("cursor", "Draw the Mac cursor in the video", 382);
    auth_ = mkCheck("auth", "Require the password of a Mac account (recommended)", 354);

    mkLabel("Windows login (NLA)", 322)->setToolTip(QString::fromUtf8(loginTooltip));
    nlaUser_ = place(new QLineEdit(win), 180, 320, 140, 24);
    nlaUser_->setObjectName(QStringLiteral("nlaUser"));
    nlaUser_->setPlaceholderText(QStringLiteral("user name"));
    nlaPass_ = place(new QLineEdit(win), 330, 320, 170, 24);
    nlaPass_->setObjectName(QStringLiteral("nlaPass"));
    nlaPass_->setEchoMode(QLineEdit::Password);
    nlaPass_->setPlaceholderText(QString::fromUtf8(SettingsText::placeholderPassword));
    nlaStatus_ = place(new QLabel(win), 180, 300, 330, 18);
    nlaStatus_->setObjectName(QStringLiteral("nlaStatus"));
    makeSecondary(nlaStatus_);
    statusFont_ = std::make_unique<QFont>(nlaStatus_->font());

    ctrl_ = mkCheck("ctrl", "Treat Ctrl as Cmd (Windows shortcuts)", 272);
    avc_ = mkCheck("avc", "Sharper 4:4:4 video (blank in the Windows App)", 244);
    audio_ = mkCheck("audio", "Send the Mac's sound to the remote session", 216);
    clipboard_ = mkCheck("clipboard", "Share the clipboard with the remote session", 188);
    clipboard_->setToolTip(QString::fromUtf8(clipboardTooltip));
    hwenc_ = mkCheck("hwenc", "Use the Mac's video encoder (VideoToolbox)", 160);

    auto* note = place(new QLabel(QString::fromStdString(NetInfo::afterRestartNote(true)), win), 20, 56, 480, 48);
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
    scaleLabel_->setText(QString::fromStdString(SettingsForm::scaleText(double(scale_->value()) / sliderUnits)));
}

void SettingsWindow::fill(const SettingsFields& fields) {
    portField_->setText(QString::fromStdString(fields.port));
    scale_->setValue(static_cast<int>(std::lround(fields.scale * sliderUnits)));
    scaleChanged();
    fps_->setCurrentIndex(fields.fps);
    bitrate_->setCurrentIndex(fields.bitrate);
    maxWidthPop_->setCurrentIndex(fields.maxWidth);
    maxSize_->setCurrentIndex(fields.maxSize);
    vmode_->setCurrentIndex(fields.remoteScreen);
    cursor_->setChecked(fields.cursor);
    auth_->setChecked(fields.auth);
    ctrl_->setChecked(fields.ctrl);
    avc_->setChecked(fields.avc);
    audio_->setChecked(fields.audio);
    clipboard_->setChecked(fields.clipboard);
    hwenc_->setChecked(fields.hwenc);
    nlaUser_->setText(QString::fromStdString(fields.nlaUser));
    nlaPass_->clear();
    nlaPass_->setPlaceholderText(QString::fromStdString(fields.nlaPassPlaceholder));
    nlaStatus_->setText(QString::fromStdString(fields.nlaStatus));
    fitFont(nlaStatus_, *statusFont_, nlaStatus_->text(), nlaStatus_->width());
}

SettingsFields SettingsWindow::read() const {
    SettingsFields fields;
    fields.port = utf8(portField_->text());
    fields.scale = double(scale_->value()) / sliderUnits;
    fields.fps = fps_->currentIndex();
    fields.bitrate = bitrate_->currentIndex();
    fields.maxSize = maxSize_->currentIndex();
    fields.maxWidth = maxWidthPop_->currentIndex();
    fields.remoteScreen = vmode_->currentIndex();
    fields.cursor = cursor_->isChecked();
    fields.auth = auth_->isChecked();
    fields.ctrl = ctrl_->isChecked();
    fields.avc = avc_->isChecked();
    fields.audio = audio_->isChecked();
    fields.clipboard = clipboard_->isChecked();
    fields.hwenc = hwenc_->isChecked();
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
