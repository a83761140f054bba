#include "net/lmhttp.h"

#include "app/lmsettings.h"
#include "brand/brandengine.h"
#include "common/lmconstants.h"
#include "net/netlog.h"

#include <QEventLoop>
#include <QFile>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTimer>

namespace {

int g_setupWait = 8000;

// Runs the event loop until ready() holds or ms have passed; false on time-out.
template <typename Ready>
bool waitFor(QObject *source, int ms, Ready ready, std::initializer_list<const char *> wakeUps)
{
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    for (const char *signal : wakeUps)
        QObject::connect(source, signal, &loop, SLOT(quit()));
    timer.start(ms);
    while (!ready()) {
        if (!timer.isActive())
            return false;
        loop.exec();
    }
    return true;
}

} // namespace

LmHttp::LmHttp(bool useTls, const QUrl &url, quint16 port, QObject *parent)
    : QObject(parent)
    , _tls(useTls)
{
    if (useTls) {
        QSslSocket *socket = connectTls(url, port ? port : 443);
        _https = new QHttps(socket, url.host(), this);
        if (!socket)
            QTimer::singleShot(3000, this, &LmHttp::connectError);
        connect(_https, &QHttps::certCheckFailed, this, &LmHttp::certCheckFailed);
    } else {
        _https = new QHttps(this);
    }
    connect(_https, &QHttps::stateChanged, this, &LmHttp::stateChanged);
    connect(_https, &QHttps::responseHeaderReceived, this, &LmHttp::responseHeaderReceived);
    connect(_https, &QHttps::readyRead, this, &LmHttp::readyRead);
    connect(_https, &QHttps::dataSendProgress, this, &LmHttp::dataSendProgress);
    connect(_https, &QHttps::dataReadProgress, this, &LmHttp::dataReadProgress);
    connect(_https, &QHttps::requestStarted, this, &LmHttp::requestStarted);
    connect(_https, &QHttps::requestFinished, this, &LmHttp::requestFinished);
    connect(_https, &QHttps::done, this, &LmHttp::done);
}

LmHttp::~LmHttp() = default;

void LmHttp::setSetupWait(int ms)
{
    g_setupWait = ms;
}

QSslSocket *LmHttp::connectTls(const QUrl &url, quint16 port)
{
    const ProxyInfo proxy = discoverProxy(url, true);
    emit proxyFound(proxy.useProxy ? QStringLiteral("%1:%2").arg(proxy.host).arg(proxy.port)
                                   : QStringLiteral("DIRECT"));
    auto socket = std::make_unique<QSslSocket>();
    // The system's authorities, and ours from the resource folder.
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    const QString ours = LmSettings::resourcePath() + QStringLiteral("cert.pem");
    if (QFile::exists(ours)) {
        QList<QSslCertificate> authorities = configuration.caCertificates();
        authorities += QSslCertificate::fromPath(ours);
        configuration.setCaCertificates(authorities);
    }
    socket->setSslConfiguration(configuration);

    QSslSocket *s = socket.get();
    s->connectToHost(proxy.useProxy ? proxy.host : url.host(), proxy.useProxy ? proxy.port : port);
    const auto connected = [s] { return s->state() == QAbstractSocket::ConnectedState; };
    const auto closed = [s] { return s->state() == QAbstractSocket::UnconnectedState; };
    const bool ok = waitFor(s, g_setupWait, [&] { return connected() || closed(); },
                            {SIGNAL(connected()), SIGNAL(errorOccurred(QAbstractSocket::SocketError))});
    if (!ok || !connected()) {
        _errorText = proxy.useProxy ? QStringLiteral("Cannot connect via proxy server")
                                    : QStringLiteral("Cannot connect to server");
        _setupFailed = true;
        return nullptr;
    }
    if (proxy.useProxy) {
        // The slash after the port is what the server side has always been sent.
        s->write(QStringLiteral("CONNECT %1:%2/ HTTP/1.1\r\n\r\n").arg(url.host()).arg(port).toLatin1());
        s->flush();
        QByteArray reply;
        const bool complete = waitFor(s, g_setupWait,
                                      [&] {
                                          reply += s->readAll();
                                          return reply.endsWith("\r\n\r\n") || closed();
                                      },
                                      {SIGNAL(readyRead()), SIGNAL(disconnected())});
        if (!complete || !reply.endsWith("\r\n\r\n")) {
            _errorText = QStringLiteral("Cannot interpret reply from proxy server");
            _setupFailed = true;
            return nullptr;
        }
        static const QRegularExpression accepted(QStringLiteral("HTTP/1.[01] 200"));
        if (!accepted.match(QString::fromLatin1(reply)).hasMatch()) {
            _errorText = QStringLiteral("Proxy server does not support CONNECT");
            _setupFailed = true;
            return nullptr;
        }
    }
    return socket.release();
}

QHttps::Error LmHttp::error() const
{
    return _setupFailed ? QHttps::UnknownError : _https->error();
}

QString LmHttp::errorString() const
{
    if (_setupFailed)
        return _errorText;
    QString text = _https->errorString();
    if (_https->error() == QHttps::ConnectionRefused) {
        text += QStringLiteral(
            ".\n\nThis is most likely due to a problem with your proxy,\nor proxy configuration. It "
            "could also be caused by any\nproblem with your Internet connection.");
    } else if (_https->error() != QHttps::NoError) {
        text += QStringLiteral(
            ".\n\nThis could be caused by a problem with your Internet connection.\nPlease make "
            "sure that your connection is working, and your proxy\nsettings are correct.");
    }
    return text;
}

int LmHttp::post(const QUrl &url, const QString &body)
{
    return send(QStringLiteral("POST"), url, body.toUtf8(),
                QStringLiteral("application/x-www-form-urlencoded"));
}

int LmHttp::get(const QUrl &url)
{
    return send(QStringLiteral("GET"), url, QByteArray(), QString());
}

int LmHttp::send(const QString &method, const QUrl &url, const QByteArray &body, const QString &contentType)
{
    QHttpsRequestHeader header(method, QString::fromLatin1(url.toEncoded()));
    if (!_tls) {
        const ProxyInfo proxy = discoverProxy(url, false);
        emit proxyFound(proxy.useProxy ? QStringLiteral("%1:%2").arg(proxy.host).arg(proxy.port)
                                       : QStringLiteral("DIRECT"));
        _https->setHost(proxy.useProxy ? proxy.host : url.host(), proxy.useProxy ? proxy.port : 80);
        if (proxy.useProxy && proxy.needsAuth) {
            header.setValue(
                QStringLiteral("Proxy-Authorization"),
                QStringLiteral("Basic ") +
                    QString::fromLatin1(base64((proxy.user + QLatin1Char(':') + proxy.password).toUtf8())));
        }
    }
    header.setValue(QStringLiteral("User-Agent"), userAgent());
    header.setValue(QStringLiteral("Host"), url.host());
    if (!contentType.isEmpty())
        header.setContentType(contentType);
    return _https->request(header, body);
}

ProxyInfo LmHttp::discoverProxy(const QUrl &url, bool tls)
{
    return ProxyDiscovery::discover(url, tls,
                                    LmSettings::readValue(QStringLiteral("proxySettings")).toString(),
                                    QProcessEnvironment::systemEnvironment(), &LmHttp::fetchDirect);
}

bool LmHttp::fetchDirect(const QUrl &url, QByteArray *body)
{
    QHttps client;
    client.setHost(url.host(), 80);
    QHttpsRequestHeader header(QStringLiteral("GET"), QString::fromLatin1(url.toEncoded()));
    header.setValue(QStringLiteral("User-Agent"), userAgent());
    header.setValue(QStringLiteral("Host"), url.host());
    client.request(header);
    bool finished = false;
    bool failed = true;
    QObject::connect(&client, &QHttps::done, &client, [&](bool error) {
        finished = true;
        failed = error;
    });
    waitFor(&client, g_setupWait, [&] { return finished; }, {SIGNAL(done(bool))});
    if (!finished || failed || client.lastResponse().statusCode() != 200)
        return false;
    *body = client.readAll();
    return true;
}

QString LmHttp::userAgent()
{
    return BrandEngine::instance().getString(QStringLiteral("app_name_short")) + QStringLiteral(" ") +
           QLatin1String(Lm::kVendorFolder) + QStringLiteral(" (") + QLatin1String(Lm::kDocumentOs) +
           QStringLiteral("; ") + QLatin1String(Lm::kVersion) + QStringLiteral(")");
}

QByteArray LmHttp::base64(const QByteArray &data)
{
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    QByteArray out;
    out.reserve((data.size() + 2) / 3 * 4);
    qsizetype i = 0;
    for (; i + 2 < data.size(); i += 3) {
        const quint32 group =
            quint32(uchar(data[i])) << 16 | quint32(uchar(data[i + 1])) << 8 | uchar(data[i + 2]);
        for (const int shift : {18, 12, 6, 0})
            out += alphabet[(group >> shift) & 0x3F];
    }
    if (data.size() - i == 1) {
        const quint32 group = quint32(uchar(data[i])) << 16;
        out += alphabet[(group >> 18) & 0x3F];
        out += alphabet[(group >> 12) & 0x3F];
        out += "==";
    } else if (data.size() - i == 2) {
        const quint32 group = quint32(uchar(data[i])) << 16 | quint32(uchar(data[i + 1])) << 8;
        out += alphabet[(group >> 18) & 0x3F];
        out += alphabet[(group >> 12) & 0x3F];
        out += alphabet[(group >> 6) & 0x3F];
        out += '=';
    }
    return out;
}
