#include "ui/singleapplication.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

SingleApplication::SingleApplication(const QString &identifier, int &argc, char **argv)
    : QApplication(argc, argv)
    , _name(serverName(identifier))
{
}

SingleApplication::~SingleApplication()
{
    if (_lockFd >= 0)
        ::close(_lockFd);
}

QString SingleApplication::serverName(const QString &identifier)
{
    QString login = qEnvironmentVariable("USER");
    if (login.isEmpty())
        login = QDir::homePath();
    // Socket names are paths with a short length limit: a digest keeps them short.
    const QByteArray digest =
        QCryptographicHash::hash((identifier + QLatin1Char('\n') + login).toUtf8(), QCryptographicHash::Sha1);
    return QStringLiteral("tarnwell-") + QString::fromLatin1(digest.toHex().left(20));
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
    // The kernel drops the lock when the process ends, however it ends: no stale lock to judge,
    // and nothing is written to disk on every start.
    const QByteArray path =
        QFile::encodeName(QDir::tempPath() + QLatin1Char('/') + _name + QStringLiteral(".lock"));
    _lockFd = ::open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (_lockFd < 0)
        return false;
    const QDeadlineTimer deadline(100);
    while (::flock(_lockFd, LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || deadline.hasExpired()) {
            ::close(_lockFd);
            _lockFd = -1;
            return false;
        }
        QThread::msleep(5);
    }
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
