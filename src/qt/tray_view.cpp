#include "qt/tray_view.h"

#include "platform/app_log.h"
#include "qt/permissions_window.h"

#include <QApplication>
#include <QCursor>
#include <QFont>
#include <QPainter>
#include <QPixmap>

#include <cstdio>

namespace velmora {

namespace {

// The status colour of a running server (the system green of macOS).
const QColor runningGreen(0x34, 0xc7, 0x59);

QPixmap drawnRDP(int size) {
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QFont font = painter.font();
    font.setBold(true);
    font.setPixelSize(size * 3 / 8);
    painter.setFont(font);
    painter.setPen(QColor(0x2e, 0x34, 0x40));
    painter.drawText(pixmap.rect(), Qt::AlignCenter, QStringLiteral("RDP"));
    return pixmap;
}

QPixmap tinted(QPixmap pixmap) {
    QPainter painter(&pixmap);
    painter.setCompositionMode(QPainter::CompositionMode_SourceAtop);
    QColor tint = runningGreen;
    tint.setAlphaF(0.6);
    painter.fillRect(pixmap.rect(), tint);
    return pixmap;
}

}  // namespace

QIcon TrayView::statusIcon(bool running) {
    QIcon icon;
    const QIcon source(QStringLiteral(":/icons/velmora.svg"));
    for (int size : {16, 22, 24, 32, 48, 64}) {
        QPixmap pixmap = source.pixmap(size, size);
        if (pixmap.isNull()) pixmap = drawnRDP(size);
        icon.addPixmap(running ? tinted(pixmap) : pixmap);
    }
    return icon;
}

TrayView::TrayView(Perform perform) : perform_(std::move(perform)) {}

TrayView::~TrayView() {
    if (tray_) tray_->hide();
}

void TrayView::becomeAccessory() {
    // No window at start, and closing one (an alert, settings) never ends the application.
    QApplication::setQuitOnLastWindowClosed(false);
}

void TrayView::createStatusItem() {
    // GNOME without its AppIndicator extension shows no tray icons at all: say so rather than
    // running unseen.
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        const char* message = "this desktop shows no tray icons, so Velmora's menu cannot appear; add a tray "
                              "(for example GNOME's AppIndicator extension) or run \"velmora --headless\"";
        platform::AppLog::write(message);
        std::fprintf(stderr, "velmora: %s\n", message);
    }
    tray_ = std::make_unique<QSystemTrayIcon>();
    tray_->setIcon(statusIcon(false));
    tray_->setToolTip(QStringLiteral("Velmora"));
}

void TrayView::buildMenu(const std::vector<MenuItem>& items) {
    menu_ = std::make_unique<QMenu>();
    menu_->setAccessibleName(QStringLiteral("Velmora"));
    for (const MenuItem& item : items) {
        if (item.separator()) {
            menu_->addSeparator();
            continue;
        }
        QAction* action = menu_->addAction(QString::fromStdString(item.title));
        action->setEnabled(item.enabled);
        action->setCheckable(item.checkable);
        if (!item.shortcut.empty()) action->setShortcut(QKeySequence(QString::fromStdString(item.shortcut)));
        if (item.action == MenuAction::none) {
            if (!statusLine_) statusLine_ = action;
            continue;
        }
        if (item.action == MenuAction::toggleServer) toggle_ = action;
        if (item.checkable) checkable_[item.action] = action;
        QObject::connect(action, &QAction::triggered, action, [this, which = item.action] { perform_(which); });
    }
    tray_->setContextMenu(menu_.get());
    // A menu-bar item answers a plain click with its menu too (XEmbed trays only report the click).
    QObject::connect(tray_.get(), &QSystemTrayIcon::activated, menu_.get(), [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger && !menu_->isVisible()) menu_->popup(QCursor::pos());
    });
    tray_->show();
}

void TrayView::show(const MenuState& state) {
    setStatusLine(state.statusLine);
    if (toggle_) toggle_->setText(QString::fromStdString(state.toggleTitle));
    auto check = [this](MenuAction action, bool on) {
        if (auto found = checkable_.find(action); found != checkable_.end() && found->second->isChecked() != on)
            found->second->setChecked(on);
    };
    check(MenuAction::toggleAutoStart, state.autoStart);
    check(MenuAction::toggleUsagePing, state.usagePing);
    check(MenuAction::toggleLogin, state.opensAtLogin);
    if (tray_ && state.running != tinted_) {
        tinted_ = state.running;
        tray_->setIcon(statusIcon(state.running));
    }
}

void TrayView::setStatusLine(const std::string& title) {
    const QString text = QString::fromStdString(title);
    if (statusLine_ && statusLine_->text() != text) statusLine_->setText(text);
    if (tray_ && tray_->toolTip() != text) tray_->setToolTip(text);
}

void TrayView::openSettings(SettingsForm& form) {
    if (!settingsWindow_) settingsWindow_ = std::make_unique<SettingsWindow>(form);
    settingsWindow_->open();
}

std::unique_ptr<PermissionsWindowView> TrayView::makePermissionsWindow(PermissionsController& controller) {
    return std::make_unique<PermissionsWindow>(controller);
}

void TrayView::notify(const std::string& message) {
    if (tray_) tray_->showMessage(QStringLiteral("Velmora"), QString::fromStdString(message), QSystemTrayIcon::Warning);
}

}  // namespace velmora
