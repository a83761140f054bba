#include "ui/singleapplication.h"

#include "app/singlecopy.h"

#include <QLocalServer>
#include <QLocalSocket>

SingleApplication::SingleApplication(const QString &identifier, int &argc, char **argv)
    : QApplication(argc, argv)
    , _identifier(identifier)
    , _name(SingleCopy::serverName(identifier))
{
}

SingleApplication::~SingleApplication()
{
    SingleCopy::releaseLock(_lockFd);
}

bool SingleApplication::sendMessage(const QString &message, int timeoutMs)
{
    QLocalSocket socket;
    socket.connectToServer(_name);
    if (!socket.waitForConnected(timeoutMs))
        return false;
    socket.write(message.toUtf8() + '\n');
    if (!socket.waitForBytesWritten(timeoutMs))
        return false;
    // The running copy answers once it has the message.
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(timeoutMs))
            return false;
    }
    return socket.readLine().trimmed() == "ok";
}

bool SingleApplication::initialize()
{
    _lockFd = SingleCopy::acquireLock(_identifier, 100);
    if (_lockFd < 0)
        return false;
    QLocalServer::removeServer(_name); // a socket left by a copy that crashed
    _server = new QLocalServer(this);
    _server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(_server, &QLocalServer::newConnection, this, &SingleApplication::acceptConnection);
    return _server->listen(_name);
}

void SingleApplication::acceptConnection()
{
    while (QLocalSocket *socket = _server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            while (socket->canReadLine()) {
                const QString message = QString::fromUtf8(socket->readLine()).chopped(1);
                socket->write("ok\n");
                socket->flush();
                emit messageReceived(message);
            }
        });
    }
}
