// The real tray application on a private D-Bus with a StatusNotifier host of the test's own: the
// menu exported over com.canonical.dbusmenu is read with GetLayout and clicked with Event, the way
// a desktop's panel does.

#include "platform/paths.h"
#include "settings/keys.h"
#include "support/e2e_harness.h"
#include "support/run_command.h"
#include "support/temp_home.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QThread>

#include <gtest/gtest.h>

#include <chrono>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace velmora;
using velmora::test::BackgroundProcess;
using velmora::test::readFile;
using velmora::test::writeFile;

namespace {

const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");

// Runs Qt's event loop (the watcher answers on it) until `done` or `seconds` pass.
bool pumpUntil(const std::function<bool()>& done, double seconds = 20) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        QThread::msleep(10);
    }
    return true;
}

// A session bus of the test's own.
class PrivateBus {
public:
    PrivateBus() {
        int ready[2];
        if (::pipe2(ready, O_CLOEXEC) != 0) return;
        process_ = std::make_unique<BackgroundProcess>(
            std::vector<std::string>{"/usr/bin/dbus-daemon", "--session", "--nofork", "--print-address=3"},
            std::map<std::string, std::optional<std::string>>{}, "/dev/null", ready[1]);
        ::close(ready[1]);
        pollfd wait{ready[0], POLLIN, 0};
        char buffer[512];
        while (address_.find('\n') == std::string::npos && ::poll(&wait, 1, 10000) > 0) {
            ssize_t n = ::read(ready[0], buffer, sizeof buffer);
            if (n <= 0) break;
            address_.append(buffer, static_cast<std::size_t>(n));
        }
        ::close(ready[0]);
        while (!address_.empty() && address_.back() == '\n') address_.pop_back();
    }
    const std::string& address() const { return address_; }

private:
    std::unique_ptr<BackgroundProcess> process_;
    std::string address_;
};

// The panel's side: a StatusNotifierWatcher with a host registered, which records the items.
class Watcher final : public QDBusVirtualObject {
public:
    QString introspect(const QString&) const override {
        return QStringLiteral(
            "<interface name=\"org.kde.StatusNotifierWatcher\">"
            "<method name=\"RegisterStatusNotifierItem\"><arg name=\"service\" type=\"s\" direction=\"in\"/></method>"
            "<method name=\"RegisterStatusNotifierHost\"><arg name=\"service\" type=\"s\" direction=\"in\"/></method>"
            "<property name=\"RegisteredStatusNotifierItems\" type=\"as\" access=\"read\"/>"
            "<property name=\"IsStatusNotifierHostRegistered\" type=\"b\" access=\"read\"/>"
            "<property name=\"ProtocolVersion\" type=\"i\" access=\"read\"/>"
            "<signal name=\"StatusNotifierItemRegistered\"><arg type=\"s\"/></signal>"
            "</interface>");
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        const QString member = message.member();
        if (member == QLatin1String("RegisterStatusNotifierItem")) {
            // The item lives at the sender's unique name; the argument may be a path or a name.
            items.push_back(message.service());
            connection.send(message.createReply());
            return true;
        }
        if (member == QLatin1String("RegisterStatusNotifierHost")) {
            connection.send(message.createReply());
            return true;
        }
        if (message.interface() == QLatin1String("org.freedesktop.DBus.Properties")) {
            QVariantMap all{{QStringLiteral("RegisteredStatusNotifierItems"), QStringList(items)},
                            {QStringLiteral("IsStatusNotifierHostRegistered"), true},
                            {QStringLiteral("ProtocolVersion"), 0}};
            if (member == QLatin1String("GetAll")) {
                connection.send(message.createReply(QVariant::fromValue(all)));
                return true;
            }
            if (member == QLatin1String("Get")) {
                QString name = message.arguments().value(1).toString();
                connection.send(message.createReply(QVariant::fromValue(QDBusVariant(all.value(name)))));
                return true;
            }
        }
        return false;
    }

    QStringList items;
};

struct MenuNode {
    int id = 0;
    QVariantMap properties;
    std::vector<MenuNode> children;

    QString label() const { return properties.value(QStringLiteral("label")).toString(); }
    bool separator() const { return properties.value(QStringLiteral("type")).toString() == QLatin1String("separator"); }
    bool enabled() const { return properties.value(QStringLiteral("enabled"), true).toBool(); }
    bool visible() const { return properties.value(QStringLiteral("visible"), true).toBool(); }
    int toggleState() const { return properties.value(QStringLiteral("toggle-state"), -1).toInt(); }
};

void readNode(const QDBusArgument& argument, MenuNode& node) {
    argument.beginStructure();
    argument >> node.id >> node.properties;
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
        MenuNode childNode;
        readNode(child.variant().value<QDBusArgument>(), childNode);
        node.children.push_back(std::move(childNode));
    }
    argument.endArray();
    argument.endStructure();
}

class TrayTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::string missing = test::missingE2ePrerequisite(); !missing.empty()) GTEST_SKIP() << missing;
        ASSERT_TRUE(xvfb.running());
        ASSERT_FALSE(bus.address().empty());
        connection = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(QString::fromStdString(bus.address()), QStringLiteral("panel")));
        ASSERT_TRUE(connection->isConnected());
        // The host must be there before the application makes its first tray icon.
        ASSERT_TRUE(connection->registerVirtualObject(watcherPath, &watcher));
        ASSERT_TRUE(connection->registerService(watcherService));

        writeFile(home.path() + "/answer", "screen=1 input=1\n");
        server = home.path() + "/server";
        writeFile(server, "#!/bin/sh\nif [ -n \"$MAC_SHADOW_PERMS\" ]; then cat '" + home.path() +
                              "/answer'; exit 0; fi\nexec sleep 1000\n");
        ::chmod(server.c_str(), 0755);
        writeFile(platform::defaultsLocation(), "{\"usagePing\": false}");
    }

    void TearDown() override {
        if (connection) {
            connection->unregisterObject(watcherPath);
            QDBusConnection::disconnectFromBus(QStringLiteral("panel"));
        }
    }

    std::unique_ptr<BackgroundProcess> startVelmora() {
        return std::make_unique<BackgroundProcess>(
            std::vector<std::string>{test::builtExecutable("bin/velmora")},
            std::map<std::string, std::optional<std::string>>{
                {"DISPLAY", xvfb.display()},
                {"DBUS_SESSION_BUS_ADDRESS", bus.address()},
                {"KORVEN_CLI", server},
                {"QT_QPA_PLATFORMTHEME", std::nullopt},
                {"XDG_CURRENT_DESKTOP", std::nullopt}},
            home.path() + "/velmora.out");
    }

    QDBusMessage call(const QString& service, const QString& path, const QString& interface, const QString& method,
                      const QVariantList& arguments) {
        QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
        message.setArguments(arguments);
        return connection->call(message, QDBus::Block, 10000);
    }

    MenuNode layout(const QString& service, const QString& menuPath) {
        QDBusMessage reply = call(service, menuPath, QStringLiteral("com.canonical.dbusmenu"), QStringLiteral("GetLayout"),
                                  {0, -1, QStringList()});
        MenuNode root;
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() < 2) {
            ADD_FAILURE() << reply.errorMessage().toStdString();
            return root;
        }
        readNode(reply.arguments().at(1).value<QDBusArgument>(), root);
        return root;
    }

    static const MenuNode* find(const MenuNode& root, const QString& label) {
        for (const MenuNode& child : root.children)
            if (child.label() == label) return &child;
        return nullptr;
    }

    void click(const QString& service, const QString& menuPath, int id) {
        QDBusMessage reply = call(service, menuPath, QStringLiteral("com.canonical.dbusmenu"), QStringLiteral("Event"),
                                  {id, QStringLiteral("clicked"), QVariant::fromValue(QDBusVariant(0)), 0u});
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    }

    test::TempHome home;
    test::Xvfb xvfb;
    PrivateBus bus;
    Watcher watcher;
    std::unique_ptr<QDBusConnection> connection;
    std::string server;
};

TEST_F(TrayTest, ExportsTheStatusMenuAndCarriesOutClicks) {
    auto velmora = startVelmora();
    ASSERT_TRUE(pumpUntil([&] { return !watcher.items.isEmpty(); })) << readFile(home.path() + "/velmora.out");
    const QString item = watcher.items.front();
    QDBusMessage menuProperty =
        call(item, QStringLiteral("/StatusNotifierItem"), QStringLiteral("org.freedesktop.DBus.Properties"),
             QStringLiteral("Get"), {QStringLiteral("org.kde.StatusNotifierItem"), QStringLiteral("Menu")});
    ASSERT_EQ(menuProperty.type(), QDBusMessage::ReplyMessage) << menuProperty.errorMessage().toStdString();
    const QString menuPath =
        menuProperty.arguments().at(0).value<QDBusVariant>().variant().value<QDBusObjectPath>().path();
    ASSERT_FALSE(menuPath.isEmpty());

    // A fresh user: the server starts by itself, and the first line says where to connect.
    MenuNode root;
    ASSERT_TRUE(pumpUntil([&] {
        root = layout(item, menuPath);
        return !root.children.empty() && root.children.front().label().startsWith(QStringLiteral("Running "));
    })) << (root.children.empty() ? std::string() : root.children.front().label().toStdString());

    std::vector<std::string> labels;
    for (const MenuNode& child : root.children)
        if (child.visible()) labels.push_back(child.separator() ? "-" : child.label().toStdString());
    std::vector<std::string> expected{labels.front(), "Stop Server", "-", "Settings…",
                                      "Start Server When Velmora Opens", "Send Usage Pings", "Open Velmora at Login",
                                      "-", "Check Permissions…", "Repair Permissions", "Test Connection…", "Show Log",
                                      "Copy Diagnostics", "-", "Quit Velmora"};
    EXPECT_EQ(labels, expected);
    EXPECT_FALSE(root.children.front().enabled());
    EXPECT_TRUE(find(root, QStringLiteral("Stop Server"))->enabled());
    EXPECT_EQ(find(root, QStringLiteral("Start Server When Velmora Opens"))->toggleState(), 1);
    EXPECT_EQ(find(root, QStringLiteral("Send Usage Pings"))->toggleState(), 0);
    EXPECT_EQ(find(root, QStringLiteral("Open Velmora at Login"))->toggleState(), 0);
    EXPECT_TRUE(find(root, QStringLiteral("Quit Velmora"))->properties.contains(QStringLiteral("shortcut")));

    // Clicks: the toggle is written to the store and shown; the server stops.
    click(item, menuPath, find(root, QStringLiteral("Start Server When Velmora Opens"))->id);
    click(item, menuPath, find(root, QStringLiteral("Open Velmora at Login"))->id);
    click(item, menuPath, find(root, QStringLiteral("Stop Server"))->id);
    ASSERT_TRUE(pumpUntil([&] {
        root = layout(item, menuPath);
        const MenuNode* start = find(root, QStringLiteral("Start Server"));
        return start && root.children.front().label() == QLatin1String("Stopped") &&
               find(root, QStringLiteral("Start Server When Velmora Opens"))->toggleState() == 0 &&
               find(root, QStringLiteral("Open Velmora at Login"))->toggleState() == 1;
    }));
    EXPECT_NE(readFile(platform::defaultsLocation()).find("\"autoStart\": false"), std::string::npos)
        << readFile(platform::defaultsLocation());
    EXPECT_NE(readFile(home.configHome() + "/autostart/velmora.desktop").find("Exec="), std::string::npos);

    // A second launch leaves the first one's server alone and exits at once.
    auto second = startVelmora();
    EXPECT_EQ(second->waitForExit(20), 0);
    EXPECT_FALSE(velmora->waitForExit(0.5).has_value());

    click(item, menuPath, find(root, QStringLiteral("Quit Velmora"))->id);
    pumpUntil([&] { return velmora->waitForExit(0).has_value(); });
    EXPECT_EQ(velmora->waitForExit(10), 0) << readFile(home.path() + "/velmora.out");
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
