#include "qt/settings_window.h"

#include "app/app_delegate.h"
#include "core/manual_queue.h"
#include "platform/paths.h"
#include "qt/qt_desktop.h"
#include "qt/tray_view.h"
#include "support/e2e_harness.h"
#include "support/keyring.h"
#include "support/log_lines.h"
#include "support/scoped_env.h"
#include "support/temp_home.h"

#include <QTest>
#include <QtWidgets>

#include <gtest/gtest.h>

using namespace velmora;

namespace {

// Presses Return in `field` and answers the alert that comes up; what it said, or empty when none
// came within the time given.
QString returnAndAnswerAlert(QLineEdit* field) {
    QString seen;
    QTimer poll;
    poll.setInterval(20);
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            seen = box->text() + "|" + box->informativeText() + "|" + box->defaultButton()->text();
            box->defaultButton()->click();
        }
    });
    poll.start();
    QTest::keyClick(field, Qt::Key_Return);
    return seen;
}

}  // namespace

TEST(SettingsWindow, OpensBuiltOnceRefilledAndSavesThePortTypedWithReturn) {
    VELMORA_REQUIRE_KEYRING();  // a save removes the keyring's Windows login when the user name is empty
    test::TempHome home;
    test::Xvfb xvfb;
    ASSERT_TRUE(xvfb.running());
    test::ScopedEnv display("DISPLAY", xvfb.display());
    test::ScopedEnv platformName("QT_QPA_PLATFORM", "xcb");
    platform::makeDirectories(platform::logDirectory());
    test::writeFile(home.configHome() + "/velmora/defaults.json", R"({"port": 3390, "maxPixels": 3000000})");

    int argc = 1;
    char* argv[] = {const_cast<char*>("settings_window_test"), nullptr};
    QApplication qapp(argc, argv);
    TrayView view([](MenuAction) {});  // never shown: the window is opened directly
    QtDesktop desktop;
    ManualQueue queue;
    auto app = AppDelegate::create({.mainQueue = queue, .view = view, .desktop = desktop,
                                    .bundleRoot = home.path() + "/no-prefix", .stopLeftovers = [] { return 0; }});

    SettingsWindow settings(app->settingsForm());
    settings.open();
    QDialog* win = settings.window();
    ASSERT_NE(win, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(win));
    EXPECT_EQ(win->windowTitle(), "Velmora Settings");

    auto* port = win->findChild<QLineEdit*>("port");
    auto* pass = win->findChild<QLineEdit*>("nlaPass");
    auto* maxSize = win->findChild<QComboBox*>("maxPixels");
    auto* scaleLabel = win->findChild<QLabel*>("scaleLabel");
    ASSERT_TRUE(port && pass && maxSize && scaleLabel);
    // What this desktop's server ignores is shown disabled with its reason; what has no meaning
    // here (the Cmd key, VideoToolbox) is not shown at all.
    auto* remoteScreen = win->findChild<QComboBox*>("remoteScreen");
    EXPECT_FALSE(remoteScreen->isEnabled());
    EXPECT_EQ(remoteScreen->toolTip(), "The Linux server does not support this setting yet.");
    EXPECT_TRUE(win->findChild<QCheckBox*>("requireLogin")->isEnabled());
    EXPECT_EQ(win->findChild<QCheckBox*>("ctrlAsCmd"), nullptr);
    EXPECT_EQ(win->findChild<QCheckBox*>("hardwareEncoder"), nullptr);
    EXPECT_TRUE(win->findChild<QLabel*>("notHonouredNote")->isVisible());
    for (auto* widget : win->findChildren<QWidget*>()) {
        QString texts = widget->toolTip();
        if (auto* label = qobject_cast<QLabel*>(widget)) texts += label->text();
        if (auto* button = qobject_cast<QAbstractButton*>(widget)) texts += button->text();
        if (auto* box = qobject_cast<QComboBox*>(widget))
            for (int i = 0; i < box->count(); ++i) texts += box->itemText(i);
        EXPECT_FALSE(texts.contains(QRegularExpression("Mac|macOS|Keychain|System Settings|VideoToolbox")))
            << texts.toStdString();
    }
    auto shown = [&] { return (port->text() + " " + maxSize->currentText() + " " + scaleLabel->text()).toStdString(); };
    EXPECT_EQ(shown(), "3390 1440p 75%");
    EXPECT_TRUE(QTest::qWaitFor([win] { return win->isActiveWindow(); }, 5000));
    EXPECT_EQ(qobject_cast<QLineEdit*>(QApplication::focusWidget()), nullptr) << "no field starts focused";

    // Unsaved edits are gone at the next opening, which reuses the window.
    port->selectAll();
    QTest::keyClicks(port, "4000");
    maxSize->setCurrentIndex(2);
    win->findChild<QSlider*>("scale")->setValue(9000);
    EXPECT_EQ(shown(), "4000 4K 90%");
    QTest::keyClick(win, Qt::Key_Escape);
    EXPECT_TRUE(win->isVisible()) << "Escape closes nothing";
    QTest::mouseClick(win->findChild<QPushButton*>("cancel"), Qt::LeftButton);
    EXPECT_FALSE(win->isVisible());
    settings.open();
    EXPECT_EQ(settings.window(), win);
    EXPECT_EQ(shown(), "3390 1440p 75%");

    // A refused port: the alert, and the window stays open with the edit (nothing stored: the form's test).
    port->setFocus();
    port->selectAll();
    QTest::keyClicks(port, "80");
    QTest::keyClicks(pass, "typed");
    QString alert = returnAndAnswerAlert(port);
    EXPECT_EQ(alert.toStdString(),
              "Port|\"80\" is not a port Velmora can use: type 1024 to 65535 (the RDP port is 3389).|OK");
    EXPECT_TRUE(win->isVisible());
    EXPECT_EQ(port->text(), "80");
    EXPECT_EQ(pass->text(), "") << "a typed password never stays in the window";

    port->selectAll();
    QTest::keyClicks(port, "3392");
    EXPECT_EQ(returnAndAnswerAlert(port), "");
    EXPECT_FALSE(win->isVisible());
    EXPECT_EQ(test::logMessages(), std::vector<std::string>{"port changed in Settings: 3390 -> 3392"});
}
