#pragma once

// The program's own event-driven HTTP/1.1 client: a queue of requests run one after another over
// one connection, plain or TLS. Bodies are read by content-length, as chunks, or until the server
// closes; HEAD responses have none. Requests never hang: a connection or response that stays
// silent for the idle timeout (60 s), or a request still unfinished at its deadline (10 minutes
// unless the owner sets another), ends with "Server closed connection unexpectedly"; a body over
// 64 MiB (or the owner's smaller limit) is refused.

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <deque>
#include <memory>

class QSslSocket;
class QTcpSocket;

class QHttpsHeader
{
public:
    virtual ~QHttpsHeader() = default;

    bool isValid() const { return _valid; }
    // Field names compare without regard to case; setValue replaces the first field of the name.
    bool hasKey(const QString &key) const;
    QString value(const QString &key) const;
    void setValue(const QString &key, const QString &value);
    void removeValue(const QString &key);
    const QList<QPair<QString, QString>> &values() const { return _values; }

    bool hasContentLength() const { return hasKey(QStringLiteral("content-length")); }
    qint64 contentLength() const; // -1 when absent or not a number
    void setContentLength(qint64 length);
    QString contentType() const { return value(QStringLiteral("content-type")); }
    void setContentType(const QString &type) { setValue(QStringLiteral("content-type"), type); }

    virtual int majorVersion() const = 0;
    virtual int minorVersion() const = 0;
    virtual QString toString() const;

protected:
    // Reads the first line with parseFirstLine, then "name: value" fields.
    bool parse(const QString &text);
    virtual bool parseFirstLine(const QString &line) = 0;
    QString fieldsText() const;

    bool _valid = true;

private:
    QList<QPair<QString, QString>> _values;
};

class QHttpsRequestHeader : public QHttpsHeader
{
public:
    QHttpsRequestHeader() = default;
    QHttpsRequestHeader(const QString &method, const QString &path, int major = 1, int minor = 1);

    QString method() const { return _method; }
    QString path() const { return _path; }
    int majorVersion() const override { return _major; }
    int minorVersion() const override { return _minor; }
    QString toString() const override;

protected:
    bool parseFirstLine(const QString &line) override;

private:
    QString _method;
    QString _path;
    int _major = 1;
    int _minor = 1;
};

class QHttpsResponseHeader : public QHttpsHeader
{
public:
    QHttpsResponseHeader() { _valid = false; }
    explicit QHttpsResponseHeader(const QString &text) { _valid = parse(text); }

    int statusCode() const { return _code; }
    QString reasonPhrase() const { return _reason; }
    int majorVersion() const override { return _major; }
    int minorVersion() const override { return _minor; }
    QString toString() const override;

protected:
    bool parseFirstLine(const QString &line) override;

private:
    int _code = 0;
    QString _reason;
    int _major = 0;
    int _minor = 0;
};

// Reads one response from the bytes of a connection: the header (after any interim 1xx ones),
// then the body by content-length, as chunks, or until the connection closes. Knows nothing of
// sockets, so that it can be driven by anything (and fuzzed).
class QHttpsResponseReader
{
public:
    enum Status { Incomplete, Complete, Failed };
    static constexpr qint64 kMaxBody = 64 * 1024 * 1024;

    // For a new response; a HEAD request's response has no body. A body longer than maxBody
    // fails with "Wrong content length".
    void start(bool headRequest, qint64 maxBody = kMaxBody);
    // Takes more bytes and reads as far as they go.
    Status feed(const QByteArray &data);
    // The connection closed: a body that runs to the close is complete, anything else failed.
    Status closed();

    bool headerDone() const { return _headerDone; }
    const QHttpsResponseHeader &header() const { return _header; }
    QByteArray takeBody();
    qint64 bodyRead() const { return _bodyRead; }
    // After Failed: QHttps::Error and its text.
    int error() const { return _error; }
    QString errorText() const { return _errorText; }

private:
    Status fail(int error, const QString &text);
    Status readBody();
    Status readChunks();

    bool _head = false;
    qint64 _maxBody = kMaxBody;
    QByteArray _incoming;
    QHttpsResponseHeader _header;
    bool _headerDone = false;
    qint64 _remaining = -1; // content-length bytes still to read, or the current chunk's
    bool _chunked = false;
    bool _inTrailers = false;
    QByteArray _body;
    qint64 _bodyRead = 0;
    int _error = 0;
    QString _errorText;
};

class QHttps : public QObject
{
    Q_OBJECT

public:
    enum State { Unconnected, HostLookup, Connecting, Sending, Reading, Connected, Closing };
    enum Error {
        NoError,
        UnknownError,
        HostNotFound,
        ConnectionRefused,
        UnexpectedClose,
        InvalidResponseHeader,
        WrongContentLength,
        Aborted
    };

    explicit QHttps(QObject *parent = nullptr);
    // TLS: the socket is connected already (directly or through a proxy tunnel) and encryption
    // starts on it now; the client keeps it for every request. A null socket means the set-up
    // failed: requests then end with "No server set to connect to".
    QHttps(QSslSocket *socket, const QString &peerName, QObject *parent = nullptr);
    ~QHttps() override;

    int setHost(const QString &host, quint16 port = 80);
    int request(const QHttpsRequestHeader &header, const QByteArray &body = QByteArray());
    int head(const QString &path);
    int close();

    State state() const { return _state; }
    Error error() const { return _error; }
    QString errorString() const { return _errorText; }
    int currentId() const;
    bool hasPendingRequests() const { return _queue.size() > 1; }
    QByteArray readAll();
    qint64 bytesAvailable() const { return _body.size(); }
    const QHttpsResponseHeader &lastResponse() const { return _reader.header(); }

    // Aborts the current request and drops the queued ones (error Aborted).
    void abort();

    // The silence after which a connection or response counts as closed; 60 s unless a test
    // needs it shorter.
    static void setIdleTimeout(int ms);
    static constexpr int kDefaultDeadline = 10 * 60 * 1000;
    // The longest a request may take from its start, however steadily bytes trickle in.
    void setRequestDeadline(int ms) { _deadlineMs = ms; }
    // The longest body a response of this client may have.
    void setMaxBodySize(qint64 bytes) { _maxBody = bytes; }

signals:
    void stateChanged(int state);
    void responseHeaderReceived(const QHttpsResponseHeader &response);
    void readyRead(const QHttpsResponseHeader &response);
    void dataSendProgress(int done, int total);
    void dataReadProgress(int done, int total);
    void requestStarted(int id);
    void requestFinished(int id, bool error);
    void done(bool error);
    void certCheckFailed(int code, const QString &reason);
    // "Host %1 found", "Connected to host %1", "Connection to %1 closed", for progress displays.
    void statusTextChanged(const QString &text);

private:
    struct Request
    {
        enum Kind { Normal, SetHost, Close } kind = Normal;
        int id = 0;
        QHttpsRequestHeader header;
        QByteArray body;
        QString host;
        quint16 port = 0;
    };

    int enqueue(Request request);
    void startNextRequest();
    void sendCurrent();
    void finishCurrent(Error error, const QString &text = QString());
    void setState(State state);
    void connectSocket(QTcpSocket *socket);
    void dropSocket();

    void onConnected();
    void onReadyRead();
    void onBytesWritten(qint64 bytes);
    void onDisconnected();
    void onSocketError();
    void onIdle();
    void onDeadline();
    QString statusText(const char *withHost, const char *withoutHost) const;
    void handleProgress(bool hadHeader, qint64 hadBody, QHttpsResponseReader::Status status);

    QPointer<QTcpSocket> _socket;
    bool _tls = false;
    bool _tlsSetupFailed = false;
    QString _host;
    QString _headerHost;
    quint16 _port = 80;
    std::deque<Request> _queue;
    int _nextId = 1;
    State _state = Unconnected;
    Error _error = NoError;
    QString _errorText;
    QTimer _idle;
    QTimer _deadline;
    int _deadlineMs = kDefaultDeadline;
    qint64 _maxBody = QHttpsResponseReader::kMaxBody;

    QHttpsResponseReader _reader; // the response of the current request
    QByteArray _body;             // what readAll() has not taken yet
    qint64 _toSend = 0;
    qint64 _sent = 0;
};
