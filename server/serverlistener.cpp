#include "server/serverlistener.h"

#include "common/webpaths.h"
#include "server/serverlog.h"

#include <QAbstractHttpServer>
#include <QCoreApplication>
#include <QFile>
#include <QFutureInterface>
#include <QPointer>
#include <QSocketNotifier>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslSocket>
#include <QThreadPool>
#include <QTimer>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr char kTlsHandshake = 0x16;
// After a refusal the rest of what the client sends is read and dropped for a moment, so that
// closing does not reset the connection before the client has read the answer.
constexpr qint64 kDrainBytes = 256 * 1024;
constexpr int kDrainMs = 2000;
// An answer the server takes longer than this for ends the connection.
constexpr int kAnswerMs = 5 * 60 * 1000;
// How much of a request the front copies at a time to find the end of its header.
constexpr qint64 kLookAt = 2048;

const QByteArrayView kProtocolPaths[] = {WebPaths::kPublish, WebPaths::kMetrics};

// Just past the blank line that ends a request header ("\r\n\r\n"; bare line feeds are read as
// the HTTP parser reads them), or -1.
qsizetype headerEnd(const QByteArray &data, qsizetype from)
{
    for (qsizetype i = data.indexOf('\n', from); i >= 0; i = data.indexOf('\n', i + 1)) {
        qsizetype next = i + 1;
        if (next < data.size() && data.at(next) == '\r')
            ++next;
        if (next < data.size() && data.at(next) == '\n')
            return next + 1;
    }
    return -1;
}

// What the front needs of a request header. Anything it cannot be sure of is bad: the HTTP
// server behind must never frame a request differently from the front.
struct RequestHead
{
    QByteArray path;
    qint64 contentLength = 0;
    bool transferCoding = false;
    QString bad; // why the header is refused
};

QByteArray targetPath(const QByteArray &target)
{
    QByteArray path = target;
    if (!path.startsWith('/')) {
        const qsizetype scheme = path.indexOf("://");
        if (scheme <= 0)
            return QByteArray();
        const qsizetype slash = path.indexOf('/', scheme + 3);
        path = slash < 0 ? QByteArray("/") : path.mid(slash);
    }
    const qsizetype end = path.indexOf('?');
    return end < 0 ? path : path.left(end);
}

RequestHead parseHead(const QByteArray &head)
{
    RequestHead result;
    QList<QByteArray> lines = head.split('\n');
    for (QByteArray &line : lines) {
        if (line.endsWith('\r'))
            line.chop(1);
    }
    const QList<QByteArray> request = lines.constFirst().split(' ');
    if (request.size() != 3 || !request.at(2).startsWith("HTTP/1.")) {
        result.bad = QStringLiteral("bad request line");
        return result;
    }
    if (request.at(0) == "CONNECT") {
        result.bad = QStringLiteral("CONNECT is not served");
        return result;
    }
    result.path = targetPath(request.at(1));
    if (result.path.isEmpty()) {
        result.bad = QStringLiteral("bad request target");
        return result;
    }
    bool haveLength = false;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray &line = lines.at(i);
        if (line.isEmpty())
            continue;
        // A folded line or a name with spaces is read differently by different parsers.
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0 || line.left(colon).contains(' ') || line.left(colon).contains('\t')) {
            result.bad = QStringLiteral("bad header field");
            return result;
        }
        const QByteArray name = line.left(colon).toLower();
        const QByteArray value = line.mid(colon + 1).trimmed();
        if (name == "transfer-encoding") {
            result.transferCoding = true;
        } else if (name == "content-length") {
            bool ok = value.size() <= 18 && !value.isEmpty();
            for (const char c : value)
                ok = ok && c >= '0' && c <= '9';
            const qint64 length = ok ? value.toLongLong(&ok) : -1;
            if (!ok || (haveLength && length != result.contentLength)) {
                result.bad = QStringLiteral("bad Content-Length");
                return result;
            }
            haveLength = true;
            result.contentLength = length;
        }
    }
    return result;
}

// Whether the private key is the one of the certificate (a mistake Qt would only show as a
// failing handshake).
bool keyMatches(const QByteArray &certificatePem, const QByteArray &keyPem)
{
    BIO *certificateBio = BIO_new_mem_buf(certificatePem.constData(), int(certificatePem.size()));
    BIO *keyBio = BIO_new_mem_buf(keyPem.constData(), int(keyPem.size()));
    X509 *certificate = PEM_read_bio_X509(certificateBio, nullptr, nullptr, nullptr);
    EVP_PKEY *key = PEM_read_bio_PrivateKey(keyBio, nullptr, nullptr, nullptr);
    const bool matches = certificate && key && EVP_PKEY_eq(X509_get0_pubkey(certificate), key) == 1;
    EVP_PKEY_free(key);
    X509_free(certificate);
    BIO_free(keyBio);
    BIO_free(certificateBio);
    return matches;
}

QByteArray errorReply(int status, const QString &why)
{
    const QByteArray body = why.toUtf8() + '\n';
    const char *reason = status == 411   ? "Length Required"
                         : status == 413 ? "Payload Too Large"
                         : status == 431 ? "Request Header Fields Too Large"
                                         : "Bad Request";
    return "HTTP/1.1 " + QByteArray::number(status) + ' ' + reason +
           "\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: " +
           QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
}

} // namespace

// One accepted connection: frames its requests as they arrive, hands the socket to the HTTP
// server and keeps watch. A child of its socket, so it goes with it.
class ServerConnection : public QObject
{
public:
    ServerConnection(ServerListener *listener, QTcpSocket *socket)
        : QObject(socket)
        , _listener(listener)
        , _socket(socket)
        , _peer(socket->peerAddress().toString())
    {
        ++_listener->_connections;
        _idle.setSingleShot(true);
        connect(&_idle, &QTimer::timeout, this, [this] { drop(QStringLiteral("idle")); });
        // Connected before the HTTP server's own slots, so these see each event first.
        connect(_socket, &QIODevice::readyRead, this, &ServerConnection::onReadyRead);
        connect(_socket, &QIODevice::bytesWritten, this, &ServerConnection::onBytesWritten);
        connect(_socket, &QAbstractSocket::disconnected, this, &ServerConnection::onDisconnected);
        restartIdle();
    }

    ~ServerConnection() override
    {
        if (_listener) {
            --_listener->_connections;
            if (_busy)
                --_listener->_busy;
        }
    }

    // The connection whose request the HTTP server is handling now, if any.
    static inline QPointer<ServerConnection> current;

    void startPlain() { handOver(); }

    // A plain connection taken without a look at its first byte: a TLS client is told apart by
    // the first byte it sends.
    void startUnsniffed()
    {
        _unsniffed = true;
        handOver();
    }

    void startTls(const QSslConfiguration &configuration)
    {
        auto *socket = static_cast<QSslSocket *>(_socket);
        socket->setSslConfiguration(configuration);
        connect(socket, &QSslSocket::encrypted, this, &ServerConnection::handOver);
        connect(socket, &QAbstractSocket::errorOccurred, this, [this] {
            if (!_handedOver)
                drop(QStringLiteral("TLS: ") + _socket->errorString());
        });
        socket->startServerEncryption();
    }

    // Whether an answer may still be written: the HTTP server's request and socket are there.
    bool open() const { return !_refusing && !_closed; }

private:
    void handOver()
    {
        if (_handedOver || !_listener || !_listener->_httpServer)
            return;
        _handedOver = true;
        current = this;
        _listener->addPendingConnection(_socket);
        emit _listener->newConnection();
        current = nullptr;
        _inspected = std::min(_inspected, _socket->bytesAvailable()); // whatever the server took
        // After the HTTP server's slots: what it left unread is what the front has seen already.
        connect(_socket, &QIODevice::readyRead, this, [this] {
            _inspected = _socket->bytesAvailable();
            current = nullptr;
        });
        // Qt HttpServer 6.4 reads only on readyRead: bytes that came with the TLS handshake (or
        // before the hand-over) would wait for the next packet. A second readyRead is harmless
        // to a server that read them already: it finds nothing new.
        if (_socket->bytesAvailable() > 0)
            QMetaObject::invokeMethod(_socket, &QIODevice::readyRead, Qt::QueuedConnection);
    }

    void onReadyRead()
    {
        if (_refusing) {
            _drained += _socket->skip(_socket->bytesAvailable());
            if (_drained > kDrainBytes)
                _socket->abort();
            return;
        }
        // A body is counted, not looked at; a header is looked at a piece at a time, so that a
        // request that came whole is not copied whole.
        const qint64 available = _socket->bytesAvailable();
        qint64 seen = _inspected;
        while (seen < available && !_refusing) {
            if (_bodyLeft > 0) {
                const qint64 take = std::min(_bodyLeft, available - seen);
                countBody(take);
                seen += take;
                continue;
            }
            const qint64 upTo = std::min(available, seen + kLookAt);
            const QByteArray bytes = _socket->peek(upTo);
            inspect(QByteArrayView(bytes).sliced(seen));
            seen = upTo;
        }
        _inspected = available;
        current = _refusing ? nullptr : this;
    }

    void inspect(QByteArrayView data)
    {
        if (_unsniffed && !data.isEmpty()) {
            _unsniffed = false;
            if (data.front() == kTlsHandshake)
                return refuse(0, QStringLiteral("a TLS connection, and this server has no certificate "
                                                "(serve --tls-cert FILE --tls-key FILE)"));
        }
        const ServerListener::Limits &limits = _listener->limits();
        qsizetype i = 0;
        while (i < data.size() && !_refusing) {
            if (_bodyLeft > 0) {
                const qint64 take = std::min<qint64>(_bodyLeft, data.size() - i);
                countBody(take);
                i += take;
                continue;
            }
            if (_head.isEmpty()) {
                while (i < data.size() && (data.at(i) == '\r' || data.at(i) == '\n'))
                    ++i; // blank lines between requests are allowed
                if (i == data.size())
                    break;
                if (_busy)
                    return refuse(0, QStringLiteral("request before the last answer"));
            }
            const qsizetype before = _head.size();
            const qsizetype take = std::min<qsizetype>(data.size() - i, limits.header + 4 - before);
            _head.append(data.sliced(i, take));
            const qsizetype end = headerEnd(_head, std::max<qsizetype>(0, before - 2));
            if (end < 0 || end > limits.header) {
                if (_head.size() > limits.header)
                    return refuse(431, QStringLiteral("request header too large"));
                i += take;
                continue;
            }
            i += end - before;
            const RequestHead head = parseHead(_head.left(end));
            _head.clear();
            if (!head.bad.isEmpty())
                return refuse(400, head.bad);
            if (head.transferCoding)
                return refuse(411, QStringLiteral("send the body with a Content-Length"));
            if (head.contentLength > _listener->bodyLimit(head.path))
                return refuse(413, QStringLiteral("request body too large"));
            _bodyLeft = head.contentLength;
            if (_bodyLeft == 0)
                setBusy(true);
        }
    }

    void countBody(qint64 bytes)
    {
        _bodyLeft -= bytes;
        restartIdle();
        if (_bodyLeft == 0)
            setBusy(true);
    }

    // Answers (status 0: does not) and closes; the HTTP server sees nothing more of the connection.
    void refuse(int status, const QString &why)
    {
        _refusing = true;
        current = nullptr;
        emit _listener->refused(status, why, _peer);
        if (_listener->_httpServer)
            disconnect(_socket, &QIODevice::readyRead, _listener->_httpServer, nullptr);
        if (_socket->isTransactionStarted())
            _socket->commitTransaction();
        _socket->skip(_socket->bytesAvailable());
        setBusy(false);
        if (status == 0) {
            drop(why);
            return;
        }
        _socket->write(errorReply(status, why));
        _socket->flush();
        _idle.start(kDrainMs); // then dropped, whatever the client does
        onBytesWritten();
    }

    void onBytesWritten()
    {
        if (_refusing) {
            const auto *ssl = qobject_cast<QSslSocket *>(_socket);
            if (_socket->bytesToWrite() == 0 && (!ssl || ssl->encryptedBytesToWrite() == 0) &&
                _socket->state() == QAbstractSocket::ConnectedState)
                ::shutdown(int(_socket->socketDescriptor()), SHUT_WR);
            return;
        }
        setBusy(false);
        restartIdle(); // an answer still going out is no silence
    }

    void onDisconnected()
    {
        _closed = true; // before the HTTP server's own slot, which deletes the socket later
        setBusy(false);
        _idle.stop();
    }

    void drop(const QString &why)
    {
        if (!_refusing)
            emit _listener->refused(0, why, _peer);
        _refusing = true;
        _socket->abort();
        if (!_handedOver)
            _socket->deleteLater(); // nobody else knows of it
    }

    void setBusy(bool busy)
    {
        if (busy == _busy)
            return;
        _busy = busy;
        if (_listener)
            _listener->_busy += busy ? 1 : -1;
        if (busy)
            _idle.start(kAnswerMs);
    }

    void restartIdle() { _idle.start(_listener->limits().idleMs); }

    QPointer<ServerListener> _listener;
    QTcpSocket *_socket;
    QString _peer;
    QTimer _idle;
    bool _handedOver = false;
    bool _refusing = false;
    bool _busy = false; // a complete request waits for its answer
    bool _closed = false;
    bool _unsniffed = false;
    qint64 _inspected = 0; // unread bytes at the front of the socket the front has framed
    QByteArray _head;      // the request header so far
    qint64 _bodyLeft = 0;
    qint64 _drained = 0;
};

ServerListener::ServerListener(QObject *parent)
    : QTcpServer(parent)
{
}

ServerListener::~ServerListener()
{
    close();
}

qint64 ServerListener::bodyLimit(QByteArrayView path) const
{
    for (const QByteArrayView protocolPath : kProtocolPaths) {
        if (path == protocolPath)
            return _limits.protocolBody;
    }
    return _limits.formBody;
}

bool ServerListener::setTlsFiles(const QString &certificateFile, const QString &keyFile, QString *error)
{
    const QList<QSslCertificate> chain = QSslCertificate::fromPath(certificateFile);
    if (chain.isEmpty()) {
        *error = QStringLiteral("%1: no PEM certificate").arg(certificateFile);
        return false;
    }
    QFile file(keyFile);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: %2").arg(keyFile, file.errorString());
        return false;
    }
    const QByteArray pem = file.readAll();
    QSslKey key;
    for (const QSsl::KeyAlgorithm algorithm : {QSsl::Rsa, QSsl::Ec, QSsl::Dsa}) {
        key = QSslKey(pem, algorithm);
        if (!key.isNull())
            break;
    }
    if (key.isNull()) {
        *error = QStringLiteral("%1: no unencrypted PEM private key").arg(keyFile);
        return false;
    }
    if (!keyMatches(chain.constFirst().toPem(), pem)) {
        *error = QStringLiteral("%1 is not the key of the certificate %2").arg(keyFile, certificateFile);
        return false;
    }
    _tlsConfiguration = QSslConfiguration::defaultConfiguration();
    _tlsConfiguration.setLocalCertificateChain(chain);
    _tlsConfiguration.setPrivateKey(key);
    _tlsConfiguration.setPeerVerifyMode(QSslSocket::VerifyNone);
    _tlsConfiguration.setProtocol(QSsl::TlsV1_2OrLater);
    _tls = true;
    return true;
}

void ServerListener::attach(QAbstractHttpServer *server)
{
    _httpServer = server;
    server->bind(this);
}

QFuture<QHttpServerResponse> ServerListener::respond(QThreadPool *pool,
                                                     std::function<QHttpServerResponse()> work)
{
    // Qt HttpServer 6.4 writes the answer through the request and socket it had when the
    // handler returned; both are gone once the connection closes. So the answer is handed over
    // on this thread, and only while the connection is open: otherwise the future is cancelled,
    // which keeps the HTTP server's continuation from running. Qt 6.4 gets two things wrong with
    // a move-only result such as QHttpServerResponse: a QPromise runs the continuation again
    // when destroyed after it took the result, and cancelling a future whose continuation has
    // run touches freed memory. Hence a bare QFutureInterface, cancelled only before delivery.
    auto answer = std::make_shared<QFutureInterface<QHttpServerResponse>>();
    answer->reportStarted();
    const QPointer<ServerConnection> connection = ServerConnection::current;
    const bool tied = connection;
    QThreadPool *threads = pool ? pool : QThreadPool::globalInstance();
    threads->start([work = std::move(work), answer, connection, tied] {
        auto response = std::make_shared<QHttpServerResponse>(work());
        QMetaObject::invokeMethod(QCoreApplication::instance(), [answer, response, connection, tied] {
            if (tied && (!connection || !connection->open()))
                answer->cancel();
            else
                answer->reportAndMoveResult(std::move(*response));
            answer->reportFinished();
        });
    });
    return answer->future();
}

namespace {

// Makes the socket of an accepted connection and starts it: as TLS, as plain HTTP whose first
// byte was looked at, or as plain HTTP whose first byte is looked at as it comes.
void takeConnection(ServerListener *listener, qintptr descriptor, bool tls, bool sniffed)
{
    QTcpSocket *socket = tls ? new QSslSocket(listener) : new QTcpSocket(listener);
    if (!socket->setSocketDescriptor(descriptor)) {
        qCWarning(lcServer, "cannot take a connection: %s", qUtf8Printable(socket->errorString()));
        ::close(int(descriptor));
        delete socket;
        return;
    }
    auto *connection = new ServerConnection(listener, socket);
    if (tls)
        connection->startTls(listener->tlsConfiguration());
    else if (sniffed)
        connection->startPlain();
    else
        connection->startUnsniffed();
}

} // namespace

void ServerListener::incomingConnection(qintptr descriptor)
{
    if (_connections >= _limits.maxConnections) {
        ::close(int(descriptor));
        emit refused(0, QStringLiteral("too many connections"), QString());
        return;
    }
    if (!_tls) {
        takeConnection(this, descriptor, false, false); // nothing to choose between
        return;
    }
    // The first byte decides between TLS and HTTP; it is looked at, not read, so that whichever
    // socket takes the connection finds it still there.
    ++_connections;
    auto *notifier = new QSocketNotifier(descriptor, QSocketNotifier::Read, this);
    auto *timer = new QTimer(notifier);
    const auto finish = [this, notifier, timer, descriptor](bool keep) {
        --_connections;
        timer->stop();
        notifier->setEnabled(false);
        notifier->deleteLater();
        if (!keep)
            ::close(int(descriptor));
    };
    connect(timer, &QTimer::timeout, notifier, [finish] { finish(false); });
    timer->setSingleShot(true);
    timer->start(_limits.idleMs);
    connect(notifier, &QSocketNotifier::activated, this, [this, descriptor, finish] {
        char first = 0;
        const ssize_t peeked = ::recv(int(descriptor), &first, 1, MSG_PEEK | MSG_DONTWAIT);
        if (peeked < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
            return;
        finish(peeked == 1);
        if (peeked == 1)
            takeConnection(this, descriptor, first == kTlsHandshake, true);
    });
}
