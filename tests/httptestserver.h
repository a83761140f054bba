#pragma once

// A web server of our own on the loopback address for the network suites. It answers each
// request with the next scripted reply (any bytes: content-length, chunked or close-delimited
// bodies, broken headers), can stall, trickle or close early, acts as a CONNECT proxy (accepting
// and then speaking TLS itself with a certificate made for the run, refusing, or never ending its
// reply), and records every request it receives, byte for byte.
//
// ForwardProxy runs a real forward proxy (Debian's tinyproxy) in front of it.

#include <QByteArray>
#include <QDir>
#include <QElapsedTimer>
#include <QList>
#include <QProcess>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <memory>

class HttpTestServer : public QTcpServer
{
public:
    struct Reply
    {
        QByteArray bytes;
        bool close = false; // close the connection after writing
        bool stall = false; // write nothing and keep the connection open
        int trickleMs = 0;  // write one byte every so many milliseconds
    };

    // Listens on 127.0.0.1, on port (0: any free port); false when that is not possible.
    bool start(quint16 port = 0) { return listen(QHostAddress::LocalHost, port); }

    QList<Reply> replies;         // consumed one per request
    QByteArray connectReply;      // answer to CONNECT; empty: the proxy role is off
    bool tlsAfterConnect = false; // after a 200 to CONNECT, speak TLS on the same connection
    bool tlsFromStart = false;    // a TLS server from the first byte (listening on 443)

    QList<QByteArray> requests; // every request as received: header and body
    int connections = 0;

    static Reply reply(const QByteArray &bytes, bool close = false) { return Reply{bytes, close, false}; }
    static Reply stall() { return Reply{QByteArray(), false, true}; }
    static Reply trickle(const QByteArray &bytes, int ms) { return Reply{bytes, false, false, ms}; }
    static Reply ok(const QByteArray &body, const QByteArray &extraFields = QByteArray())
    {
        return reply("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n" +
                     extraFields + "\r\n" + body);
    }

    // A certificate and key for "localhost" and 127.0.0.1, made with the openssl tool; the
    // certificate's path for the client to trust. Empty when openssl is missing.
    QString makeCertificate()
    {
        _certDir = std::make_unique<QTemporaryDir>();
        const QString cert = _certDir->filePath(QStringLiteral("cert.pem"));
        const QString key = _certDir->filePath(QStringLiteral("key.pem"));
        QProcess openssl;
        openssl.start(QStringLiteral("openssl"),
                      {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                       QStringLiteral("rsa:2048"), QStringLiteral("-nodes"), QStringLiteral("-keyout"), key,
                       QStringLiteral("-out"), cert, QStringLiteral("-days"), QStringLiteral("2"),
                       QStringLiteral("-subj"), QStringLiteral("/CN=localhost"), QStringLiteral("-addext"),
                       QStringLiteral("subjectAltName=DNS:localhost,IP:127.0.0.1")});
        if (!openssl.waitForFinished(60000) || openssl.exitCode() != 0)
            return QString();
        QFile certFile(cert), keyFile(key);
        if (!certFile.open(QIODevice::ReadOnly) || !keyFile.open(QIODevice::ReadOnly))
            return QString();
        _certificate = QSslCertificate(certFile.readAll());
        _key = QSslKey(keyFile.readAll(), QSsl::Rsa);
        return cert;
    }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        auto *socket = new QSslSocket(this);
        socket->setSocketDescriptor(descriptor);
        ++connections;
        auto buffer = std::make_shared<QByteArray>();
        connect(socket, &QSslSocket::readyRead, this, [this, socket, buffer] {
            *buffer += socket->readAll();
            serve(socket, *buffer);
        });
        connect(socket, &QSslSocket::disconnected, socket, &QObject::deleteLater);
        if (tlsFromStart)
            startTls(socket);
    }

private:
    void startTls(QSslSocket *socket)
    {
        socket->setLocalCertificate(_certificate);
        socket->setPrivateKey(_key);
        socket->startServerEncryption();
    }

    void serve(QSslSocket *socket, QByteArray &buffer)
    {
        for (;;) {
            const qsizetype end = buffer.indexOf("\r\n\r\n");
            if (end < 0)
                return;
            const QByteArray head = buffer.left(end + 4);
            qsizetype length = 0;
            for (const QByteArray &line : head.split('\n')) {
                if (line.toLower().startsWith("content-length:"))
                    length = line.mid(15).trimmed().toLongLong();
            }
            if (buffer.size() < end + 4 + length)
                return;
            const QByteArray request = buffer.left(end + 4 + length);
            buffer.remove(0, request.size());
            requests.append(request);
            if (request.startsWith("CONNECT ") && !connectReply.isEmpty()) {
                socket->write(connectReply);
                socket->flush();
                if (tlsAfterConnect && connectReply.contains(" 200 "))
                    startTls(socket);
                continue;
            }
            const Reply r = replies.isEmpty()
                                ? Reply{QByteArray("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n")}
                                : replies.takeFirst();
            if (r.stall)
                continue;
            if (r.trickleMs > 0) {
                auto *timer = new QTimer(socket);
                auto left = std::make_shared<QByteArray>(r.bytes);
                connect(timer, &QTimer::timeout, socket, [socket, timer, left] {
                    if (left->isEmpty()) {
                        timer->stop();
                        return;
                    }
                    socket->write(left->left(1));
                    left->remove(0, 1);
                });
                timer->start(r.trickleMs);
                continue;
            }
            socket->write(r.bytes);
            socket->flush();
            if (r.close) {
                socket->disconnectFromHost();
                return;
            }
        }
    }

    std::unique_ptr<QTemporaryDir> _certDir;
    QSslCertificate _certificate;
    QSslKey _key;
};

Q_DECLARE_METATYPE(HttpTestServer::Reply)

// Debian's tinyproxy as a child process on a free loopback port, its configuration and log in a
// folder of its own, sending everything on to an upstream proxy (our server) on the loopback
// address. Stopped when destroyed.
class ForwardProxy
{
public:
    ~ForwardProxy() { stop(); }

    // False, with why(), when tinyproxy is not installed or does not come up. With a user name,
    // the proxy asks for Basic credentials (407 without them).
    bool start(quint16 upstreamPort, const QString &user = QString(), const QString &password = QString())
    {
        const QString program = QStandardPaths::findExecutable(
            QStringLiteral("tinyproxy"), {QStringLiteral("/usr/bin"), QStringLiteral("/usr/sbin")});
        if (program.isEmpty()) {
            _why = QStringLiteral("tinyproxy is not installed (Debian package tinyproxy)");
            return false;
        }
        QTcpServer probe; // a port that is free now
        if (!probe.listen(QHostAddress::LocalHost, 0)) {
            _why = QStringLiteral("no free port");
            return false;
        }
        _port = probe.serverPort();
        probe.close();
        QByteArray config = "Port " + QByteArray::number(_port) +
                            "\nListen 127.0.0.1\nTimeout 30\nMaxClients 20\nAllow 127.0.0.1\n"
                            "ConnectPort 443\nLogLevel Info\nLogFile \"" +
                            QFile::encodeName(_dir.filePath(QStringLiteral("tinyproxy.log"))) +
                            "\"\nUpstream http 127.0.0.1:" + QByteArray::number(upstreamPort) + "\n";
        if (!user.isEmpty())
            config += "BasicAuth " + user.toUtf8() + ' ' + password.toUtf8() + '\n';
        QFile file(_dir.filePath(QStringLiteral("tinyproxy.conf")));
        if (!file.open(QIODevice::WriteOnly) || file.write(config) != config.size()) {
            _why = QStringLiteral("cannot write the configuration");
            return false;
        }
        file.close();
        _process.setProcessChannelMode(QProcess::MergedChannels);
        _process.start(program, {QStringLiteral("-d"), QStringLiteral("-c"), file.fileName()});
        QElapsedTimer waited;
        waited.start();
        while (waited.elapsed() < 10000) {
            QTcpSocket socket;
            socket.connectToHost(QHostAddress::LocalHost, _port);
            if (socket.waitForConnected(200))
                return true;
            if (_process.state() == QProcess::NotRunning)
                break;
            QThread::msleep(50);
        }
        _why = QStringLiteral("tinyproxy did not come up: ") + QString::fromLocal8Bit(_process.readAll()) +
               log();
        stop();
        return false;
    }

    void stop()
    {
        if (_process.state() == QProcess::NotRunning)
            return;
        _process.terminate();
        if (!_process.waitForFinished(3000)) {
            _process.kill();
            _process.waitForFinished(3000);
        }
    }

    quint16 port() const { return _port; }
    QString why() const { return _why; }
    QString log() const
    {
        QFile file(_dir.filePath(QStringLiteral("tinyproxy.log")));
        return file.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(file.readAll()) : QString();
    }

private:
    QTemporaryDir _dir;
    QProcess _process;
    quint16 _port = 0;
    QString _why;
};
