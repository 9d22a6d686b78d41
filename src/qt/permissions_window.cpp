#include "qt/permissions_window.h"

#include "platform/words.h"

#include <QApplication>
#include <QCloseEvent>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QKeySequence>
#include <QScreen>
#include <QShortcut>

namespace velmora {

namespace {

// Frames are laid out from the content's bottom-left corner, as on macOS; Qt counts from the top.
QRect frame(int x, int y, int width, int height) {
    return {x, PermissionsWindow::contentHeight - y - height, width, height};
}

QColor colour(PermColour which, const QPalette& palette) {
    switch (which) {
        case PermColour::label: return palette.color(QPalette::WindowText);
        case PermColour::secondaryLabel: {
            QColor c = palette.color(QPalette::WindowText);
            c.setAlphaF(0.5);
            return c;
        }
        case PermColour::green: return {0x34, 0xc7, 0x59};
        case PermColour::red: return {0xff, 0x3b, 0x30};
    }
    return palette.color(QPalette::WindowText);
}

// Desktop fonts run wider than the fonts these frames were drawn for: a wrapping label's text
// shrinks, half a point at a time, until it fits its frame.
void fitToFrame(QLabel* label) {
    constexpr double smallest = 7.0;
    QFont font = QApplication::font();
    double size = font.pointSizeF() > 0 ? font.pointSizeF() : 10.0;
    for (;; size -= 0.5) {
        font.setPointSizeF(size);
        QRect needed = QFontMetrics(font).boundingRect(QRect(0, 0, label->width() - 2, 10000),
                                                       Qt::AlignLeft | Qt::TextWordWrap, label->text());
        if (needed.height() <= label->height() || size <= smallest) break;
    }
    label->setFont(font);
}

void setLine(QLabel* label, const PermissionsLine& line) {
    label->setText(QString::fromStdString(line.text));
    fitToFrame(label);
    QPalette palette = label->parentWidget()->palette();
    palette.setColor(QPalette::WindowText, colour(line.colour, palette));
    label->setPalette(palette);
}

}  // namespace

PermissionsWindow::PermissionsWindow(PermissionsController& controller) : controller_(controller) {
    namespace words = platform::words;
    setWindowTitle(QString::fromStdString(platform::say(words::permissionsTitle)));
    setFixedSize(contentWidth, contentHeight);

    auto label = [this](const std::string& text, QRect rect, const char* name) {
        auto* l = new QLabel(QString::fromStdString(text), this);
        l->setObjectName(QString::fromLatin1(name));
        l->setTextFormat(Qt::PlainText);
        l->setWordWrap(true);
        l->setAlignment(Qt::AlignLeft | Qt::AlignTop);
        l->setGeometry(rect);
        fitToFrame(l);
        return l;
    };
    auto heading = [&](const std::string& text, QRect rect, const char* name) {
        QLabel* l = label(text, rect, name);
        QFont font = l->font();
        font.setBold(true);
        font.setPixelSize(13);  // 13 points of macOS, where a point is a pixel
        l->setFont(font);
        return l;
    };
    auto button = [this](const char* text, QRect rect, const char* name, std::function<void()> action) {
        auto* b = new QPushButton(QString::fromUtf8(text), this);
        b->setObjectName(QString::fromLatin1(name));
        b->setGeometry(rect);
        connect(b, &QPushButton::clicked, this, [action = std::move(action)] { action(); });
        return b;
    };

    label(platform::say(words::permissionsIntro), frame(20, 262, 500, 48), "intro");
    heading(platform::say(words::screenHeading), frame(20, 228, 200, 20), "screenHeading");
    screenHint_ = label(platform::say(words::screenHint), frame(20, 208, 350, 18), "screenHint");
    screenStatus_ = label("", frame(20, 186, 300, 18), "screenStatus");
    screenButton_ = button(PermissionsText::openSettings, frame(380, 206, 140, 30), "screenButton",
                           [this] { controller_.openScreen(); });
    heading(platform::say(words::inputHeading), frame(20, 148, 200, 20), "inputHeading");
    inputHint_ = label(platform::say(words::inputHint), frame(20, 128, 350, 18), "inputHint");
    inputStatus_ = label("", frame(20, 106, 300, 18), "inputStatus");
    inputButton_ = button(PermissionsText::openSettings, frame(380, 126, 140, 30), "inputButton",
                          [this] { controller_.openInput(); });
    summary_ = label("", frame(20, 52, 500, 44), "summary");
    repairButton_ = button(platform::say(words::repairAgain).c_str(), frame(20, 14, 140, 30), "repairButton",
                           [this] { controller_.repairAgain(); });
    startButton_ = button(PermissionsText::startServer, frame(380, 14, 140, 30), "startButton",
                          [this] { controller_.startNow(); });
    startButton_->setDefault(true);
    // Return starts the server, as the default button of a window that is no dialog does not by itself.
    for (auto key : {Qt::Key_Return, Qt::Key_Enter}) {
        auto* shortcut = new QShortcut(QKeySequence(key), this);
        connect(shortcut, &QShortcut::activated, this, [this] {
            if (startButton_->isEnabled()) startButton_->click();
        });
    }
}

void PermissionsWindow::render(const PermissionsModel& model) {
    // Without the "Open Settings…" buttons the hints and status lines take the whole width.
    for (QLabel* hint : {screenHint_, inputHint_}) hint->resize(model.paneButtonsShown ? 350 : 500, hint->height());
    for (QLabel* line : {screenStatus_, inputStatus_}) line->resize(model.paneButtonsShown ? 300 : 500, line->height());
    fitToFrame(screenHint_);
    fitToFrame(inputHint_);
    setLine(screenStatus_, model.screenStatus);
    setLine(inputStatus_, model.inputStatus);
    screenButton_->setEnabled(model.screenButtonEnabled);
    inputButton_->setEnabled(model.inputButtonEnabled);
    screenButton_->setVisible(model.paneButtonsShown);
    inputButton_->setVisible(model.paneButtonsShown);

    startButton_->setEnabled(model.startButtonEnabled);
    repairButton_->setEnabled(model.repairButtonEnabled);
    setLine(summary_, model.summary);
}

void PermissionsWindow::present() {
    if (!isVisible()) {
        if (QScreen* screen = QGuiApplication::primaryScreen()) {
            QRect area = screen->availableGeometry();
            move(area.center() - QPoint(contentWidth / 2, contentHeight / 2));
        }
    }
    show();
    raise();
    activateWindow();
}

void PermissionsWindow::orderOut() { hide(); }

bool PermissionsWindow::onScreen() const { return isVisible(); }

void PermissionsWindow::closeEvent(QCloseEvent* event) {
    controller_.windowWillClose();
    event->accept();  // hides; the window is kept
}

}  // namespace velmora
