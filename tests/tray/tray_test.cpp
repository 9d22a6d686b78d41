// The real tray application on a private D-Bus with a StatusNotifier host of the test's own: the
// menu exported over com.canonical.dbusmenu is read with GetLayout and clicked with Event, the way
// a desktop's panel does.

#include "platform/paths.h"
#include "support/e2e_harness.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <QCoreApplication>
#include <QtDBus>

#include <gtest/gtest.h>

#include <csignal>
#include <sstream>

using namespace velmora;
using velmora::test::BackgroundProcess;
using velmora::test::readFile;
using velmora::test::writeFile;

namespace {

const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");

// Runs Qt's event loop (the watcher answers on it) until `done` or `seconds` pass.
bool pumpUntil(const std::function<bool()>& done, double seconds = 20) {
    return test::eventually([&] {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        return done();
    }, seconds);
}

// The panel's side: a StatusNotifierWatcher with a host registered, which records the items. Qt
// asks whether a host is there (through the introspected property) before it makes a tray icon.
class Watcher final : public QDBusVirtualObject {
public:
    QString introspect(const QString&) const override {
        return QStringLiteral(
            "<interface name=\"org.kde.StatusNotifierWatcher\">"
            "<method name=\"RegisterStatusNotifierItem\"><arg name=\"service\" type=\"s\" direction=\"in\"/></method>"
            "<property name=\"IsStatusNotifierHostRegistered\" type=\"b\" access=\"read\"/>"
            "</interface>");
    }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.member() == QLatin1String("RegisterStatusNotifierItem")) {
            // The item lives at the sender's unique name; the argument may be a path or a name.
            items.push_back(message.service());
            connection.send(message.createReply());
            return true;
        }
        if (message.member() != QLatin1String("Get")) return false;
        connection.send(message.createReply(QVariant::fromValue(QDBusVariant(true))));
        return true;
    }

    QStringList items;
};

class TrayTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::string missing = test::missingE2ePrerequisite(); !missing.empty()) GTEST_SKIP() << missing;
        ASSERT_TRUE(xvfb.running());
        // A session bus of the test's own, ended with the test.
        std::istringstream started(
            test::runCommand({"/usr/bin/dbus-daemon", "--session", "--fork", "--print-address=1", "--print-pid=1"}).out);
        started >> busAddress >> busPid;
        ASSERT_GT(busPid, 0);
        connection = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(QString::fromStdString(busAddress), QStringLiteral("panel")));
        // The host must be there before the application makes its first tray icon.
        ASSERT_TRUE(connection->registerVirtualObject(watcherPath, &watcher));
        ASSERT_TRUE(connection->registerService(watcherService));
        test::writeScript(server, "if [ -n \"$MAC_SHADOW_PERMS\" ]; then echo screen=1 input=1; exit 0; fi\nexec sleep 1000\n");
        writeFile(platform::defaultsLocation(), "{\"usagePing\": false}");
    }
    void TearDown() override {
        if (connection) {
            connection->unregisterObject(watcherPath);
            QDBusConnection::disconnectFromBus(QStringLiteral("panel"));
        }
        if (busPid > 0) ::kill(busPid, SIGTERM);
    }

    std::unique_ptr<BackgroundProcess> startVelmora() {
        return std::make_unique<BackgroundProcess>(
            std::vector<std::string>{test::builtExecutable("bin/velmora")},
            std::map<std::string, std::optional<std::string>>{{"DISPLAY", xvfb.display()},
                                                              {"DBUS_SESSION_BUS_ADDRESS", busAddress},
                                                              {"KORVEN_CLI", server},
                                                              {"QT_QPA_PLATFORMTHEME", std::nullopt},
                                                              {"XDG_CURRENT_DESKTOP", std::nullopt}},
            home.path() + "/velmora.out");
    }

    QDBusMessage call(const QString& path, const QString& interface, const QString& method, const QVariantList& arguments) {
        QDBusMessage message = QDBusMessage::createMethodCall(item, path, interface, method);
        message.setArguments(arguments);
        return connection->call(message, QDBus::Block, 10000);
    }
    // The menu's visible entries as the panel shows them: "-" for a separator, the title with
    // " [x]" or " [ ]" when it is checkable and " (off)" when it is disabled.
    std::vector<std::string> entries() {
        QDBusMessage reply = call(menuPath, "com.canonical.dbusmenu", "GetLayout", {0, -1, QStringList()});
        if (reply.arguments().size() < 2) return {reply.errorMessage().toStdString()};
        // The layout and each entry are (id, properties, entries as variants); the entries have none.
        const QDBusArgument layout = reply.arguments().at(1).value<QDBusArgument>();
        int id = 0;
        QVariantMap properties;
        layout.beginStructure();
        layout >> id >> properties;
        layout.beginArray();
        std::vector<std::string> shown;
        ids.clear();
        while (!layout.atEnd()) {
            QDBusVariant variant;
            layout >> variant;
            const QDBusArgument entry = variant.variant().value<QDBusArgument>();
            entry.beginStructure();
            entry >> id >> properties;
            entry.endStructure();
            if (!properties.value("visible", true).toBool()) continue;
            std::string text = properties.value("type").toString() == "separator" ? std::string("-")
                                                                                    : properties.value("label").toString().toStdString();
            ids[text] = id;
            const int toggle = properties.value("toggle-state", -1).toInt();
            shown.push_back(text + (toggle == 1 ? " [x]" : toggle == 0 ? " [ ]" : "") +
                            (properties.value("enabled", true).toBool() ? "" : " (off)"));
        }
        layout.endArray();
        layout.endStructure();
        return shown;
    }
    void click(const std::string& title) {
        QDBusMessage reply = call(menuPath, "com.canonical.dbusmenu", "Event",
                                  {ids.at(title), QStringLiteral("clicked"), QVariant::fromValue(QDBusVariant(0)), 0u});
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    }

    test::TempHome home;
    test::Xvfb xvfb;
    std::string busAddress;
    pid_t busPid = -1;
    Watcher watcher;
    std::unique_ptr<QDBusConnection> connection;
    const std::string server = home.path() + "/server";
    QString item, menuPath;
    std::map<std::string, int> ids;
};

TEST_F(TrayTest, ExportsTheStatusMenuAndCarriesOutClicks) {
    auto velmora = startVelmora();
    ASSERT_TRUE(pumpUntil([&] { return !watcher.items.isEmpty(); })) << readFile(home.path() + "/velmora.out");
    item = watcher.items.front();
    QDBusMessage menuProperty = call("/StatusNotifierItem", "org.freedesktop.DBus.Properties", "Get",
                                     {QStringLiteral("org.kde.StatusNotifierItem"), QStringLiteral("Menu")});
    menuPath = menuProperty.arguments().value(0).value<QDBusVariant>().variant().value<QDBusObjectPath>().path();
    ASSERT_FALSE(menuPath.isEmpty()) << menuProperty.errorMessage().toStdString();

    // A fresh user: the server starts by itself, and the first line says where to connect.
    std::vector<std::string> shown;
    ASSERT_TRUE(pumpUntil([&] { return (shown = entries()).size() > 1 && shown.front().rfind("Running ", 0) == 0; }))
        << (shown.empty() ? "" : shown.front());
    std::vector<std::string> expected{shown.front(), "Stop Server", "-", "Settings…",
                                      "Start Server When Velmora Opens [x]", "Send Usage Pings [ ]",
                                      "Open Velmora at Login [ ]", "-", "Check Permissions…", "Repair Permissions",
                                      "Test Connection…", "Show Log", "Copy Diagnostics", "-", "Quit Velmora"};
    EXPECT_EQ(shown, expected);  // the status line's " (off)" is checked once it says "Stopped"

    // Clicks: the toggles are shown as read back from the settings file and the autostart entry
    // (their contents are the defaults store's and the login item's tests); the server stops.
    for (const char* title : {"Start Server When Velmora Opens", "Open Velmora at Login", "Stop Server"}) click(title);
    expected[0] = "Stopped (off)";
    expected[1] = "Start Server";
    expected[4] = "Start Server When Velmora Opens [ ]";
    expected[6] = "Open Velmora at Login [x]";
    EXPECT_TRUE(pumpUntil([&] { return (shown = entries()) == expected; })) << ::testing::PrintToString(shown);

    // A second launch hands over to the first and exits at once; the first keeps running.
    EXPECT_EQ(startVelmora()->waitForExit(20), 0);
    EXPECT_FALSE(velmora->waitForExit(0.5).has_value());

    click("Quit Velmora");
    pumpUntil([&] { return velmora->waitForExit(0).has_value(); });
    EXPECT_EQ(velmora->waitForExit(10), 0) << readFile(home.path() + "/velmora.out");
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
