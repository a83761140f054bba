#pragma once

// The front door of the server: a QTcpServer that Qt HttpServer is bound to. It sees every byte
// of every request before the HTTP server does, and refuses (with "Connection: close") a request
// whose Content-Length is over the limit for its path (413), whose header is over the header
// limit (431), or whose body is sent with a transfer coding (411); the refusal comes as soon as
// the header says so, before the body is read, and the rest of the connection is never handed
// on. A connection that stays silent is dropped: its header must be complete within the idle time,
// and a body must keep coming.
//
// With a certificate and key, TLS and plain HTTP share the port: the first byte of a connection
// (0x16, a TLS handshake) decides, before anything is read from it. Without them a TLS client is
// disconnected.
//
// Requests on one connection are answered in turn; a client that sends the next request before
// the answer to the last one (pipelining) is disconnected.

#include <QFuture>
#include <QHttpServerResponse>
#include <QSslConfiguration>
#include <QTcpServer>

#include <functional>

class QAbstractHttpServer;
class QThreadPool;

class ServerListener : public QTcpServer
{
    Q_OBJECT

public:
    struct Limits
    {
        qint64 protocolBody = 8 * 1024 * 1024; // publish and metrics
        qint64 formBody = 64 * 1024;           // every other path
        qint64 header = 16 * 1024;
        int idleMs = 30 * 1000;
        int maxConnections = 512;
    };

    explicit ServerListener(QObject *parent = nullptr);
    ~ServerListener() override;

    void setLimits(const Limits &limits) { _limits = limits; }
    const Limits &limits() const { return _limits; }
    // The largest body a request for the path may have (the path as in the request line).
    qint64 bodyLimit(QByteArrayView path) const;

    // PEM files; false with the reason when they cannot be read or do not belong together.
    bool setTlsFiles(const QString &certificateFile, const QString &keyFile, QString *error);
    bool tlsEnabled() const { return _tls; }
    const QSslConfiguration &tlsConfiguration() const { return _tlsConfiguration; }

    // Binds the HTTP server: it is given each connection once it is ready for HTTP. Qt HttpServer
    // 6.4 makes a listener without a parent its child: give it one, or make it on the heap.
    void attach(QAbstractHttpServer *server);
    QAbstractHttpServer *httpServer() const { return _httpServer; }

    int connectionCount() const { return _connections; }
    // Connections whose request is being answered.
    int busyCount() const { return _busy; }

    // For route handlers: runs work on the pool and returns the future the HTTP server waits on.
    // When the request's connection has closed by the time the answer is ready, the future is
    // cancelled and nothing is written: the HTTP server's request and socket are gone by then.
    static QFuture<QHttpServerResponse> respond(QThreadPool *pool, std::function<QHttpServerResponse()> work);

signals:
    // A request refused at the front (status 0: the connection was just dropped); for the log.
    void refused(int status, const QString &why, const QString &peer);

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    friend class ServerConnection;
    void sniff(qintptr descriptor);

    Limits _limits;
    bool _tls = false;
    QSslConfiguration _tlsConfiguration;
    QAbstractHttpServer *_httpServer = nullptr;
    int _connections = 0;
    int _busy = 0;
};
