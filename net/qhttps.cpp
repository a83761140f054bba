#include "net/qhttps.h"

#include "net/netlog.h"

#include <QSslSocket>
#include <QTcpSocket>

namespace {

int g_idleTimeout = 60000;
constexpr qsizetype kMaxHeader = 64 * 1024;

} // namespace

// --- headers ---

bool QHttpsHeader::hasKey(const QString &key) const
{
    for (const auto &field : _values) {
        if (field.first.compare(key, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

QString QHttpsHeader::value(const QString &key) const
{
    for (const auto &field : _values) {
        if (field.first.compare(key, Qt::CaseInsensitive) == 0)
            return field.second;
    }
    return QString();
}

void QHttpsHeader::setValue(const QString &key, const QString &value)
{
    for (auto &field : _values) {
        if (field.first.compare(key, Qt::CaseInsensitive) == 0) {
            field.second = value;
            return;
        }
    }
    _values.append({key, value});
}

void QHttpsHeader::removeValue(const QString &key)
{
    _values.removeIf([&key](const QPair<QString, QString> &field) {
        return field.first.compare(key, Qt::CaseInsensitive) == 0;
    });
}

qint64 QHttpsHeader::contentLength() const
{
    bool ok = false;
    const qint64 length = value(QStringLiteral("content-length")).trimmed().toLongLong(&ok);
    return ok && length >= 0 ? length : -1;
}

void QHttpsHeader::setContentLength(qint64 length)
{
    setValue(QStringLiteral("content-length"), QString::number(length));
}

QString QHttpsHeader::fieldsText() const
{
    QString text;
    for (const auto &field : _values)
        text += field.first + QStringLiteral(": ") + field.second + QStringLiteral("\r\n");
    return text;
}

QString QHttpsHeader::toString() const
{
    return fieldsText();
}

bool QHttpsHeader::parse(const QString &text)
{
    QStringList lines = text.split(QStringLiteral("\r\n"));
    while (!lines.isEmpty() && lines.constLast().isEmpty())
        lines.removeLast();
    if (lines.isEmpty() || !parseFirstLine(lines.takeFirst()))
        return false;
    for (const QString &line : lines) {
        // A line starting with white space continues the previous field.
        if (!line.isEmpty() && (line.at(0) == QLatin1Char(' ') || line.at(0) == QLatin1Char('\t')) &&
            !_values.isEmpty()) {
            _values.last().second += QLatin1Char(' ') + line.trimmed();
            continue;
        }
        const qsizetype colon = line.indexOf(QLatin1Char(':'));
        if (colon <= 0)
            return false;
        _values.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
    }
    return true;
}

QHttpsRequestHeader::QHttpsRequestHeader(const QString &method, const QString &path, int major, int minor)
    : _method(method)
    , _path(path)
    , _major(major)
    , _minor(minor)
{
}

QString QHttpsRequestHeader::toString() const
{
    return QStringLiteral("%1 %2 HTTP/%3.%4\r\n").arg(_method, _path).arg(_major).arg(_minor) + fieldsText() +
           QStringLiteral("\r\n");
}

bool QHttpsRequestHeader::parseFirstLine(const QString &line)
{
    const QStringList parts = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (parts.size() != 3 || !parts.at(2).startsWith(QLatin1String("HTTP/")) || parts.at(2).size() != 8)
        return false;
    _method = parts.at(0);
    _path = parts.at(1);
    _major = parts.at(2).at(5).digitValue();
    _minor = parts.at(2).at(7).digitValue();
    return _major >= 0 && _minor >= 0;
}

QString QHttpsResponseHeader::toString() const
{
    return QStringLiteral("HTTP/%1.%2 %3 %4\r\n%5\r\n")
        .arg(_major)
        .arg(_minor)
        .arg(_code)
        .arg(_reason, fieldsText());
}

bool QHttpsResponseHeader::parseFirstLine(const QString &line)
{
    // "HTTP/" major "." minor, the code, then the reason (which may hold spaces or be empty).
    if (line.size() < 12 || !line.startsWith(QLatin1String("HTTP/")) || line.at(6) != QLatin1Char('.') ||
        line.at(8) != QLatin1Char(' '))
        return false;
    _major = line.at(5).digitValue();
    _minor = line.at(7).digitValue();
    bool ok = false;
    _code = line.mid(9, 3).toInt(&ok);
    if (!ok || _major < 0 || _minor < 0 || _code < 100 || _code > 999 ||
        (line.size() > 12 && line.at(12) != QLatin1Char(' ')))
        return false;
    _reason = line.mid(13).trimmed();
    return true;
}

// --- the response reader ---

void QHttpsResponseReader::start(bool headRequest, qint64 maxBody)
{
    *this = QHttpsResponseReader();
    _head = headRequest;
    _maxBody = std::min(maxBody, kMaxBody);
}

QByteArray QHttpsResponseReader::takeBody()
{
    QByteArray body;
    body.swap(_body);
    return body;
}

QHttpsResponseReader::Status QHttpsResponseReader::fail(int error, const QString &text)
{
    _error = error;
    _errorText = text;
    _incoming.clear();
    return Failed;
}

QHttpsResponseReader::Status QHttpsResponseReader::feed(const QByteArray &data)
{
    if (_error)
        return Failed;
    _incoming += data;
    while (!_headerDone) {
        const qsizetype end = _incoming.indexOf("\r\n\r\n");
        if (end < 0) {
            return _incoming.size() > kMaxHeader
                       ? fail(QHttps::InvalidResponseHeader, QStringLiteral("Invalid HTTP response header"))
                       : Incomplete;
        }
        _header = QHttpsResponseHeader(QString::fromLatin1(_incoming.left(end + 2)));
        _incoming.remove(0, end + 4);
        if (!_header.isValid())
            return fail(QHttps::InvalidResponseHeader, QStringLiteral("Invalid HTTP response header"));
        const int code = _header.statusCode();
        if (code >= 100 && code < 200)
            continue; // interim: the real response follows
        _headerDone = true;
        if (_head || code == 204 || code == 304)
            return Complete;
        if (_header.value(QStringLiteral("transfer-encoding"))
                .contains(QLatin1String("chunked"), Qt::CaseInsensitive)) {
            _chunked = true;
        } else if (_header.hasContentLength()) {
            _remaining = _header.contentLength();
            if (_remaining < 0)
                return fail(QHttps::InvalidResponseHeader, QStringLiteral("Invalid HTTP response header"));
            if (_remaining > _maxBody)
                return fail(QHttps::WrongContentLength, QStringLiteral("Wrong content length"));
            if (_remaining == 0)
                return Complete;
        }
    }
    return _chunked ? readChunks() : readBody();
}

QHttpsResponseReader::Status QHttpsResponseReader::readBody()
{
    if (_remaining >= 0) {
        const QByteArray piece = _incoming.left(_remaining);
        _incoming.clear(); // bytes beyond the announced length are not ours
        _remaining -= piece.size();
        _body += piece;
        _bodyRead += piece.size();
        return _remaining == 0 ? Complete : Incomplete;
    }
    if (_bodyRead + _incoming.size() > _maxBody)
        return fail(QHttps::WrongContentLength, QStringLiteral("Wrong content length"));
    _bodyRead += _incoming.size();
    _body += _incoming;
    _incoming.clear();
    return Incomplete; // until the connection closes
}

QHttpsResponseReader::Status QHttpsResponseReader::readChunks()
{
    const auto bad = [this] {
        return fail(QHttps::InvalidResponseHeader, QStringLiteral("Invalid HTTP chunked body"));
    };
    for (;;) {
        if (_inTrailers) {
            const qsizetype end = _incoming.indexOf("\r\n");
            if (end < 0)
                return _incoming.size() > kMaxHeader ? bad() : Incomplete;
            _incoming.remove(0, end + 2);
            if (end == 0)
                return Complete;
            continue;
        }
        if (_remaining > 0) {
            const QByteArray piece = _incoming.left(_remaining);
            _incoming.remove(0, piece.size());
            _remaining -= piece.size();
            _body += piece;
            _bodyRead += piece.size();
            if (_remaining > 0)
                return Incomplete;
            _remaining = -2; // the CR LF after the data
        }
        if (_remaining == -2) {
            if (_incoming.size() < 2)
                return Incomplete;
            if (!_incoming.startsWith("\r\n"))
                return bad();
            _incoming.remove(0, 2);
            _remaining = -1;
        }
        const qsizetype end = _incoming.indexOf("\r\n");
        if (end < 0)
            return _incoming.size() > 1024 ? bad() : Incomplete;
        const QByteArray sizeText = _incoming.left(end).split(';').constFirst().trimmed();
        _incoming.remove(0, end + 2);
        bool ok = false;
        const qint64 size = sizeText.toLongLong(&ok, 16);
        if (!ok || size < 0 || sizeText.size() > 15)
            return bad();
        if (_bodyRead + size > _maxBody)
            return fail(QHttps::WrongContentLength, QStringLiteral("Wrong content length"));
        if (size == 0)
            _inTrailers = true;
        else
            _remaining = size;
    }
}

QHttpsResponseReader::Status QHttpsResponseReader::closed()
{
    if (_error)
        return Failed;
    if (_headerDone && !_chunked && _remaining == -1)
        return Complete;
    if (_headerDone && !_chunked)
        return fail(QHttps::WrongContentLength, QStringLiteral("Wrong content length"));
    if (_headerDone)
        return fail(QHttps::InvalidResponseHeader, QStringLiteral("Invalid HTTP chunked body"));
    return fail(QHttps::UnexpectedClose, QStringLiteral("Server closed connection unexpectedly"));
}

// --- the client ---

QHttps::QHttps(QObject *parent)
    : QObject(parent)
{
    _idle.setSingleShot(true);
    connect(&_idle, &QTimer::timeout, this, &QHttps::onIdle);
    _deadline.setSingleShot(true);
    connect(&_deadline, &QTimer::timeout, this, &QHttps::onDeadline);
}

QHttps::QHttps(QSslSocket *socket, const QString &peerName, QObject *parent)
    : QHttps(parent)
{
    _tls = true;
    _port = 443;
    _host = peerName;
    if (!socket) {
        _tlsSetupFailed = true;
        return;
    }
    socket->setParent(this);
    connectSocket(socket);
    connect(socket, &QSslSocket::sslErrors, this, [this, socket](const QList<QSslError> &errors) {
        for (const QSslError &e : errors) {
            emit certCheckFailed(int(e.error()), e.errorString());
            if (_socket != socket)
                return; // the owner aborted
        }
        // The owner decides: without an abort in its slot the connection goes on.
        socket->ignoreSslErrors();
    });
    socket->setPeerVerifyName(peerName);
    socket->startClientEncryption();
    setState(Connected);
}

QHttps::~QHttps() = default;

void QHttps::setIdleTimeout(int ms)
{
    g_idleTimeout = ms;
}

int QHttps::currentId() const
{
    return _queue.empty() ? 0 : _queue.front().id;
}

int QHttps::setHost(const QString &host, quint16 port)
{
    Request r;
    r.kind = Request::SetHost;
    r.host = host;
    r.port = port;
    _headerHost = host; // for the Host field of requests queued after this one
    return enqueue(std::move(r));
}

int QHttps::request(const QHttpsRequestHeader &header, const QByteArray &body)
{
    Request r;
    r.header = header;
    r.body = body;
    if (!body.isEmpty() || header.method() == QLatin1String("POST"))
        r.header.setContentLength(body.size());
    return enqueue(std::move(r));
}

int QHttps::head(const QString &path)
{
    QHttpsRequestHeader header(QStringLiteral("HEAD"), path);
    header.setValue(QStringLiteral("Host"), _headerHost.isEmpty() ? _host : _headerHost);
    return request(header);
}

int QHttps::close()
{
    Request r;
    r.kind = Request::Close;
    return enqueue(std::move(r));
}

int QHttps::enqueue(Request request)
{
    request.id = _nextId++;
    _queue.push_back(std::move(request));
    if (_queue.size() == 1)
        QTimer::singleShot(0, this, &QHttps::startNextRequest);
    return _queue.back().id;
}

QByteArray QHttps::readAll()
{
    QByteArray body;
    body.swap(_body);
    return body;
}

void QHttps::setState(State state)
{
    if (_state == state)
        return;
    _state = state;
    emit stateChanged(int(state));
}

void QHttps::connectSocket(QTcpSocket *socket)
{
    _socket = socket;
    connect(socket, &QTcpSocket::hostFound, this, [this] {
        setState(Connecting);
        emit statusTextChanged(statusText("Host %1 found", "Host found"));
    });
    connect(socket, &QTcpSocket::connected, this, &QHttps::onConnected);
    connect(socket, &QTcpSocket::readyRead, this, &QHttps::onReadyRead);
    connect(socket, &QTcpSocket::bytesWritten, this, &QHttps::onBytesWritten);
    connect(socket, &QTcpSocket::disconnected, this, &QHttps::onDisconnected);
    connect(socket, &QTcpSocket::errorOccurred, this, &QHttps::onSocketError);
}

void QHttps::startNextRequest()
{
    if (_queue.empty() || _state == Sending || _state == Reading)
        return;
    _error = NoError;
    _errorText.clear();
    Request &r = _queue.front();
    emit requestStarted(r.id);
    if (_queue.empty() || _queue.front().id != r.id)
        return; // aborted from a slot
    switch (r.kind) {
    case Request::SetHost:
        if (!_tls && (_host != r.host || _port != r.port) && _socket)
            dropSocket();
        if (!_tls) {
            _host = r.host;
            _port = r.port;
        }
        finishCurrent(NoError);
        return;
    case Request::Close:
        if (_socket && _socket->state() == QAbstractSocket::ConnectedState) {
            setState(Closing);
            _socket->disconnectFromHost();
            if (_socket && _socket->state() != QAbstractSocket::UnconnectedState)
                return; // finished when the socket is closed
        }
        finishCurrent(NoError);
        return;
    case Request::Normal:
        break;
    }
    _deadline.start(_deadlineMs);
    if (_tlsSetupFailed || _host.isEmpty()) {
        finishCurrent(UnknownError, QStringLiteral("No server set to connect to"));
        return;
    }
    if (_socket && _socket->state() == QAbstractSocket::ConnectedState) {
        sendCurrent();
        return;
    }
    if (_tls) {
        // The tunnel or the direct TLS connection was made once; it cannot be made again here.
        finishCurrent(UnexpectedClose, QStringLiteral("Server closed connection unexpectedly"));
        return;
    }
    if (_socket)
        dropSocket();
    auto *socket = new QTcpSocket(this);
    connectSocket(socket);
    setState(HostLookup);
    _idle.start(g_idleTimeout);
    socket->connectToHost(_host, _port);
}

void QHttps::onConnected()
{
    setState(Connected);
    emit statusTextChanged(statusText("Connected to host %1", "Connected to host"));
    if (!_queue.empty() && _queue.front().kind == Request::Normal && !_tls)
        sendCurrent();
}

void QHttps::sendCurrent()
{
    const Request &r = _queue.front();
    _reader.start(r.header.method() == QLatin1String("HEAD"), _maxBody);
    _body.clear();
    const QByteArray data = r.header.toString().toLatin1() + r.body;
    _toSend = data.size();
    _sent = 0;
    setState(Sending);
    _idle.start(g_idleTimeout);
    _socket->write(data);
}

void QHttps::onBytesWritten(qint64 bytes)
{
    if (_state != Sending)
        return;
    _idle.start(g_idleTimeout);
    _sent = std::min(_sent + bytes, _toSend);
    emit dataSendProgress(int(_sent), int(_toSend));
    if (_sent >= _toSend)
        setState(Reading);
}

void QHttps::onReadyRead()
{
    if (!_socket)
        return;
    const QByteArray data = _socket->readAll();
    if (_queue.empty() || _queue.front().kind != Request::Normal || (_state != Sending && _state != Reading))
        return; // nothing asked for it
    _idle.start(g_idleTimeout);
    if (_state == Sending)
        setState(Reading);
    const bool hadHeader = _reader.headerDone();
    const qint64 hadBody = _reader.bodyRead();
    const QHttpsResponseReader::Status status = _reader.feed(data);
    handleProgress(hadHeader, hadBody, status);
}

void QHttps::handleProgress(bool hadHeader, qint64 hadBody, QHttpsResponseReader::Status status)
{
    const int id = currentId();
    if (!hadHeader && _reader.headerDone()) {
        emit responseHeaderReceived(_reader.header());
        if (currentId() != id)
            return; // aborted from a slot
    }
    if (_reader.bodyRead() > hadBody) {
        _body += _reader.takeBody();
        const QHttpsResponseHeader &header = _reader.header();
        emit dataReadProgress(int(_reader.bodyRead()),
                              int(header.hasContentLength() ? header.contentLength() : 0));
        emit readyRead(header);
        if (currentId() != id)
            return;
    }
    if (status == QHttpsResponseReader::Failed) {
        finishCurrent(Error(_reader.error()), _reader.errorText());
    } else if (status == QHttpsResponseReader::Complete) {
        if (_socket && _reader.header()
                               .value(QStringLiteral("connection"))
                               .compare(QLatin1String("close"), Qt::CaseInsensitive) == 0)
            _socket->disconnectFromHost();
        finishCurrent(NoError);
    }
}

void QHttps::onDisconnected()
{
    if (_socket && _socket->bytesAvailable() > 0)
        onReadyRead();
    emit statusTextChanged(statusText("Connection to %1 closed", "Connection closed"));
    if (_queue.empty()) {
        setState(Unconnected);
        return;
    }
    const Request &r = _queue.front();
    if (r.kind == Request::Close) {
        setState(Unconnected);
        finishCurrent(NoError);
        return;
    }
    if (r.kind != Request::Normal || (_state != Sending && _state != Reading))
        return;
    const bool hadHeader = _reader.headerDone();
    const qint64 hadBody = _reader.bodyRead();
    handleProgress(hadHeader, hadBody, _reader.closed());
    setState(Unconnected);
}

void QHttps::onSocketError()
{
    if (!_socket || _queue.empty() || _queue.front().kind != Request::Normal)
        return;
    switch (_socket->error()) {
    case QAbstractSocket::RemoteHostClosedError:
        return; // disconnected() tells
    case QAbstractSocket::HostNotFoundError:
        finishCurrent(HostNotFound, QStringLiteral("Host %1 not found").arg(_host));
        break;
    case QAbstractSocket::ConnectionRefusedError:
        finishCurrent(ConnectionRefused, QStringLiteral("Connection refused"));
        break;
    case QAbstractSocket::SslHandshakeFailedError:
    case QAbstractSocket::SslInternalError:
    case QAbstractSocket::SslInvalidUserDataError:
        finishCurrent(UnknownError, QStringLiteral("SSL error: ") + _socket->errorString());
        break;
    default:
        if (_state == Sending || _state == Reading || _state == HostLookup || _state == Connecting)
            finishCurrent(UnknownError, QStringLiteral("HTTP request failed"));
        break;
    }
}

void QHttps::onIdle()
{
    if (_queue.empty() || _queue.front().kind != Request::Normal)
        return;
    qCDebug(lcNet, "no reply from %s for %d ms", qUtf8Printable(_host), g_idleTimeout);
    finishCurrent(UnexpectedClose, QStringLiteral("Server closed connection unexpectedly"));
}

void QHttps::onDeadline()
{
    if (_queue.empty() || _queue.front().kind != Request::Normal)
        return;
    qCDebug(lcNet, "request to %s not finished after %d ms", qUtf8Printable(_host), _deadlineMs);
    finishCurrent(UnexpectedClose, QStringLiteral("Server closed connection unexpectedly"));
}

QString QHttps::statusText(const char *withHost, const char *withoutHost) const
{
    return _host.isEmpty() ? QString::fromLatin1(withoutHost) : QString::fromLatin1(withHost).arg(_host);
}

void QHttps::finishCurrent(Error error, const QString &text)
{
    _idle.stop();
    _deadline.stop();
    if (_queue.empty())
        return;
    const int id = _queue.front().id;
    if (error != NoError) {
        _error = error;
        _errorText = text;
        _queue.clear();
        // The connection is in an unknown state after a failure: start afresh. A TLS connection
        // cannot be made again, so it is kept unless it broke.
        if (_socket && (!_tls || error == UnexpectedClose || error == Aborted))
            dropSocket();
        setState(_socket ? Connected : Unconnected);
        emit requestFinished(id, true);
        emit done(true);
        return;
    }
    _queue.pop_front();
    setState(_socket && _socket->state() == QAbstractSocket::ConnectedState ? Connected : Unconnected);
    emit requestFinished(id, false);
    if (_queue.empty())
        emit done(false);
    else
        QTimer::singleShot(0, this, &QHttps::startNextRequest);
}

void QHttps::dropSocket()
{
    QTcpSocket *socket = _socket;
    _socket = nullptr;
    // Signals of a socket on its way out would re-enter the request handling.
    disconnect(socket, nullptr, this, nullptr);
    socket->abort();
    socket->deleteLater();
}

void QHttps::abort()
{
    if (_queue.empty())
        return;
    finishCurrent(Aborted, QStringLiteral("Request aborted"));
}
