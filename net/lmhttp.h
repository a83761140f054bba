#pragma once

// The one request object for all web traffic: QHttps with proxy discovery for every connection,
// TLS tunnelled through a proxy with CONNECT, the program's User-Agent and Host, Basic proxy
// authentication, form posts and error texts for the user. Requests go to port 80, or 443 with
// TLS, whatever port a URL names.

#include "net/proxydiscovery.h"
#include "net/qhttps.h"

#include <QObject>
#include <QUrl>

class QSslSocket;

class LmHttp : public QObject
{
    Q_OBJECT

public:
    // With TLS the connection (and any tunnel) is made now, waiting up to 8000 ms per step while
    // the event loop runs; a failure is told by errorString() and, 3000 ms later, connectError().
    LmHttp(bool useTls, const QUrl &url, quint16 port = 0, QObject *parent = nullptr);
    ~LmHttp() override;

    int post(const QUrl &url, const QString &body); // a form body, sent as UTF-8
    int get(const QUrl &url);
    QByteArray readAll() { return _https->readAll(); }
    void abort() { _https->abort(); }
    QHttps::Error error() const;
    bool setupFailed() const { return _setupFailed; } // the TLS connection or its tunnel
    void setRequestDeadline(int ms) { _https->setRequestDeadline(ms); }
    QString errorString() const;
    QHttps *https() const { return _https; }
    const QHttpsResponseHeader &lastResponse() const { return _https->lastResponse(); }

    // Which proxy serves a URL: the "proxySettings" setting, the environment, else none.
    static ProxyInfo discoverProxy(const QUrl &url, bool tls);
    // Downloads an http or https URL directly, without proxy, from the URL's own port, within
    // 8000 ms and up to maxBody bytes (auto-configuration scripts).
    static bool fetchDirect(const QUrl &url, QByteArray *body,
                            qint64 maxBody = ProxyDiscovery::kMaxScriptSize);
    static QString userAgent();
    static QByteArray base64(const QByteArray &data);
    // The wait for each set-up step; 8000 ms unless a test needs it shorter.
    static void setSetupWait(int ms);
    // Ends every connection set-up under way (TLS, tunnel, script download) as failed with
    // "Request aborted", at once; for a tool told to stop while it waits.
    static void abortSetups();

    enum class ConnectReply { Incomplete, Accepted, Refused, Unreadable };
    // The proxy's answer to CONNECT from the bytes received so far: complete at the first blank
    // line, accepted when the status line says 200; Unreadable when no blank line comes within
    // 64 KiB.
    static ConnectReply readConnectReply(const QByteArray &received);

signals:
    void certCheckFailed(int code, const QString &reason);
    void stateChanged(int state);
    void responseHeaderReceived(const QHttpsResponseHeader &response);
    void readyRead(const QHttpsResponseHeader &response);
    void dataSendProgress(int done, int total);
    void dataReadProgress(int done, int total);
    void requestStarted(int id);
    void requestFinished(int id, bool error);
    void done(bool error);
    void connectError();
    void proxyFound(const QString &proxy); // "host:port", or "DIRECT"
    void statusTextChanged(const QString &text);

private:
    // A socket connected to host:port, directly or through the proxy's tunnel, ready for TLS;
    // null with *error set when that fails.
    static QSslSocket *connectTls(const QString &host, quint16 port, const ProxyInfo &proxy, QString *error);
    int send(const QString &method, const QUrl &url, const QByteArray &body, const QString &contentType);

    bool _tls;
    QHttps *_https = nullptr;
    QString _errorText;
    bool _setupFailed = false;
};
