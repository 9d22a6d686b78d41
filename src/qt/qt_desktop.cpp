#include "qt/qt_desktop.h"

#include "platform/login_item.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>

namespace velmora {

int QtDesktop::runAlert(const Alert& alert) {
    QMessageBox box;
    box.setWindowTitle(QStringLiteral("Velmora"));
    box.setIcon(QMessageBox::Information);
    box.setText(QString::fromStdString(alert.message));
    // The message stands out above the explanation, as alerts do on the Mac.
    if (auto* label = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_label"))) {
        QFont bold = label->font();
        bold.setBold(true);
        label->setFont(bold);
    }
    box.setInformativeText(QString::fromStdString(alert.informative));
    std::vector<QPushButton*> buttons;
    for (const std::string& title : alert.buttons)
        buttons.push_back(box.addButton(QString::fromStdString(title), QMessageBox::AcceptRole));
    if (!buttons.empty()) box.setDefaultButton(buttons.front());
    // The first button also answers Escape and the close box, as the default choice.
    if (!buttons.empty()) box.setEscapeButton(buttons.front());
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    box.show();
    box.raise();
    box.activateWindow();
    box.exec();
    for (std::size_t i = 0; i < buttons.size(); ++i)
        if (box.clickedButton() == buttons[i]) return static_cast<int>(i);
    return 0;
}

void QtDesktop::copyText(const std::string& text) {
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(QString::fromStdString(text));
}

void QtDesktop::openURL(const std::string& url) {
    QUrl parsed(QString::fromStdString(url), QUrl::StrictMode);
    // Where nothing handles the URL (a System Settings pane on Linux) nothing happens.
    if (parsed.isValid()) QDesktopServices::openUrl(parsed);
}

bool QtDesktop::opensAtLogin() { return platform::opensAtLogin(); }

std::optional<std::string> QtDesktop::setOpensAtLogin(bool on) { return platform::setOpensAtLogin(on); }

void QtDesktop::terminate() { QCoreApplication::quit(); }

}  // namespace velmora
