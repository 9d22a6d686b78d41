#include "qt/instance_channel.h"

#include "platform/instance_lock.h"

#include <QLocalSocket>

namespace velmora {

namespace {

constexpr char request[] = "settings\n";
constexpr int timeoutMs = 3000;

}  // namespace

InstanceChannel::InstanceChannel(std::function<void()> openSettings)
    : openSettings_(std::move(openSettings)), server_(std::make_unique<QLocalServer>()) {
    const QString path = QString::fromStdString(platform::InstanceLock::socketPath());
    QLocalServer::removeServer(path);
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    server_->listen(path);
    QObject::connect(server_.get(), &QLocalServer::newConnection, [this] {
        while (QLocalSocket* socket = server_->nextPendingConnection()) {
            QObject::connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            QObject::connect(socket, &QLocalSocket::readyRead, socket, [this, socket] {
                if (!socket->canReadLine()) return;
                QByteArray line = socket->readLine().trimmed();
                socket->write("ok\n");
                socket->disconnectFromServer();
                if (line == "settings" && openSettings_) openSettings_();
            });
        }
    });
}

InstanceChannel::~InstanceChannel() {
    if (server_->isListening()) server_->close();
}

bool InstanceChannel::askToOpenSettings() {
    QLocalSocket socket;
    socket.connectToServer(QString::fromStdString(platform::InstanceLock::socketPath()));
    if (!socket.waitForConnected(timeoutMs)) return false;
    socket.write(request);
    if (!socket.waitForBytesWritten(timeoutMs)) return false;
    // The answer says the request was read before this process goes away.
    return socket.waitForReadyRead(timeoutMs) && socket.readAll().startsWith("ok");
}

}  // namespace velmora
