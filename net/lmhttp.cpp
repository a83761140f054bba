#include "net/lmhttp.h"

#include "app/lmsettings.h"
#include "app/webserver.h"
#include "brand/brandengine.h"
#include "common/lmconstants.h"
#include "net/netlog.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QHostAddress>
#include <QList>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTimer>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

#include <netdb.h>
#include <sys/socket.h>

namespace {

int g_setupWait = 8000;
int g_setupGeneration = 0; // moved on by abortSetups()
QList<QEventLoop *> g_setupLoops;
constexpr qsizetype kMaxConnectReply = 64 * 1024;

// Runs the event loop until ready() holds or ms have passed; false on time-out or abortSetups().
template <typename Ready>
bool waitFor(QObject *source, int ms, Ready ready, std::initializer_list<const char *> wakeUps)
{
    const int generation = g_setupGeneration;
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    for (const char *signal : wakeUps)
        QObject::connect(source, signal, &loop, SLOT(quit()));
    g_setupLoops.append(&loop);
    const auto unlist = qScopeGuard([&loop] { g_setupLoops.removeOne(&loop); });
    timer.start(ms);
    while (!ready()) {
        if (!timer.isActive() || generation != g_setupGeneration)
            return false;
        // Once the program is quitting a loop returns at once without running the timer: waiting
        // on would spin for ever.
        if (loop.exec() != 0)
            return false;
    }
    return true;
}

// A name lookup runs on a thread of its own that nobody waits for: Qt's lookups are joined when
// the program ends, so a slow resolver would keep a closed program alive for seconds.
struct Lookup
{
    std::mutex mutex;
    QList<QHostAddress> addresses;
    std::atomic<bool> finished = false;
};

std::shared_ptr<Lookup> startLookup(const QString &host)
{
    auto lookup = std::make_shared<Lookup>();
    std::thread([lookup, name = host.toUtf8()] {
        addrinfo hints{};
        hints.ai_family = AF_UNSPEC;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo *found = nullptr;
        if (getaddrinfo(name.constData(), nullptr, &hints, &found) == 0) {
            std::lock_guard lock(lookup->mutex);
            for (addrinfo *a = found; a; a = a->ai_next) {
                const QHostAddress address(a->ai_addr);
                if (!address.isNull() && !lookup->addresses.contains(address))
                    lookup->addresses.append(address);
            }
            freeaddrinfo(found);
        }
        lookup->finished = true;
    }).detach();
    return lookup;
}

QString proxyText(const ProxyInfo &proxy)
{
    return proxy.useProxy ? ProxyDiscovery::hostPort(proxy.host, proxy.port) : QStringLiteral("DIRECT");
}

} // namespace

LmHttp::LmHttp(bool useTls, const QUrl &url, quint16 port, QObject *parent)
    : QObject(parent)
    , _tls(useTls)
{
    if (useTls) {
        const ProxyInfo proxy = discoverProxy(url, true);
        emit proxyFound(proxyText(proxy));
        QSslSocket *socket = connectTls(url.host(), port ? port : 443, proxy, &_errorText);
        _setupFailed = !socket;
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
    connect(_https, &QHttps::statusTextChanged, this, &LmHttp::statusTextChanged);
}

LmHttp::~LmHttp() = default;

void LmHttp::setSetupWait(int ms)
{
    g_setupWait = ms;
}

void LmHttp::abortSetups()
{
    ++g_setupGeneration;
    for (QEventLoop *loop : std::as_const(g_setupLoops))
        loop->quit();
}

LmHttp::ConnectReply LmHttp::readConnectReply(const QByteArray &received)
{
    // The header ends at the first blank line; a refusal may well bring a page after it.
    if (received.indexOf("\r\n\r\n") < 0)
        return received.size() > kMaxConnectReply ? ConnectReply::Unreadable : ConnectReply::Incomplete;
    static const QRegularExpression accepted(QStringLiteral("^HTTP/1.[01] 200"));
    const QByteArray statusLine = received.left(received.indexOf("\r\n"));
    return accepted.match(QString::fromLatin1(statusLine)).hasMatch() ? ConnectReply::Accepted
                                                                      : ConnectReply::Refused;
}

QSslSocket *LmHttp::connectTls(const QString &host, quint16 port, const ProxyInfo &proxy, QString *error)
{
    const int generation = g_setupGeneration;
    const auto aborted = [&] {
        if (generation == g_setupGeneration)
            return false;
        *error = QStringLiteral("Request aborted");
        return true;
    };
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
    const QString target = proxy.useProxy ? proxy.host : host;
    QList<QHostAddress> addresses;
    if (const QHostAddress literal(target); !literal.isNull()) {
        addresses.append(literal);
    } else {
        const auto lookup = startLookup(target);
        QTimer poll;
        poll.start(5);
        waitFor(&poll, g_setupWait, [&] { return lookup->finished.load(); }, {SIGNAL(timeout())});
        std::lock_guard lock(lookup->mutex);
        addresses = lookup->addresses;
    }
    const auto connected = [s] { return s->state() == QAbstractSocket::ConnectedState; };
    const auto closed = [s] { return s->state() == QAbstractSocket::UnconnectedState; };
    for (const QHostAddress &address : std::as_const(addresses)) {
        if (aborted() || QCoreApplication::closingDown())
            return nullptr;
        s->connectToHost(address, proxy.useProxy ? proxy.port : port);
        waitFor(s, g_setupWait, [&] { return connected() || closed(); },
                {SIGNAL(connected()), SIGNAL(errorOccurred(QAbstractSocket::SocketError))});
        if (connected())
            break;
        s->abort();
    }
    if (aborted())
        return nullptr;
    if (!connected()) {
        *error = proxy.useProxy ? QStringLiteral("Cannot connect via proxy server")
                                : QStringLiteral("Cannot connect to server");
        return nullptr;
    }
    if (proxy.useProxy) {
        // The slash after the port is what the server side has always been sent.
        s->write(QStringLiteral("CONNECT %1/ HTTP/1.1\r\n\r\n")
                     .arg(ProxyDiscovery::hostPort(host, port))
                     .toLatin1());
        s->flush();
        QByteArray reply;
        ConnectReply verdict = ConnectReply::Incomplete;
        waitFor(s, g_setupWait,
                [&] {
                    reply += s->readAll();
                    verdict = readConnectReply(reply);
                    return verdict != ConnectReply::Incomplete || closed();
                },
                {SIGNAL(readyRead()), SIGNAL(disconnected())});
        if (aborted())
            return nullptr;
        if (verdict == ConnectReply::Refused) {
            *error = QStringLiteral("Proxy server does not support CONNECT");
            return nullptr;
        }
        if (verdict != ConnectReply::Accepted) {
            *error = QStringLiteral("Cannot interpret reply from proxy server");
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
        emit proxyFound(proxyText(proxy));
        _https->setHost(proxy.useProxy ? proxy.host : url.host(),
                        proxy.useProxy ? proxy.port : WebServer::port(url, 80));
        if (proxy.useProxy && proxy.needsAuth) {
            header.setValue(
                QStringLiteral("Proxy-Authorization"),
                QStringLiteral("Basic ") +
                    QString::fromLatin1(base64((proxy.user + QLatin1Char(':') + proxy.password).toUtf8())));
        }
    }
    header.setValue(QStringLiteral("User-Agent"), userAgent());
    // A household server on its own port needs it in the Host field to name itself in links.
    const quint16 port = WebServer::port(url, _tls ? 443 : 80);
    header.setValue(QStringLiteral("Host"),
                    port == (_tls ? 443 : 80) ? url.host() : ProxyDiscovery::hostPort(url.host(), port));
    if (!contentType.isEmpty())
        header.setContentType(contentType);
    return _https->request(header, body);
}

ProxyInfo LmHttp::discoverProxy(const QUrl &url, bool tls)
{
    return ProxyDiscovery::discover(
        url, tls, LmSettings::readValue(QStringLiteral("proxySettings")).toString(),
        QProcessEnvironment::systemEnvironment(),
        [](const QUrl &script, QByteArray *body) { return fetchDirect(script, body); });
}

bool LmHttp::fetchDirect(const QUrl &url, QByteArray *body, qint64 maxBody)
{
    const bool tls = url.scheme() == QLatin1String("https");
    if ((!tls && url.scheme() != QLatin1String("http")) || url.host().isEmpty())
        return false;
    const int port = url.port(tls ? 443 : 80);
    std::unique_ptr<QHttps> client;
    if (tls) {
        QString error;
        QSslSocket *socket = connectTls(url.host(), quint16(port), ProxyInfo(), &error);
        if (!socket) {
            qCDebug(lcNet, "%s: %s", qUtf8Printable(url.toDisplayString()), qUtf8Printable(error));
            return false;
        }
        client = std::make_unique<QHttps>(socket, url.host());
        // Nobody is asked: a script from a server that cannot prove who it is is not run.
        QObject::connect(client.get(), &QHttps::certCheckFailed, client.get(), &QHttps::abort);
    } else {
        client = std::make_unique<QHttps>();
        client->setHost(url.host(), quint16(port));
    }
    client->setMaxBodySize(maxBody);
    client->setRequestDeadline(g_setupWait);
    // The origin form: a plain web server takes a full URL only when it is a proxy.
    QString target = url.path(QUrl::FullyEncoded);
    if (target.isEmpty())
        target = QStringLiteral("/");
    if (url.hasQuery())
        target += QLatin1Char('?') + url.query(QUrl::FullyEncoded);
    QHttpsRequestHeader header(QStringLiteral("GET"), target);
    header.setValue(QStringLiteral("User-Agent"), userAgent());
    header.setValue(QStringLiteral("Host"), url.adjusted(QUrl::RemoveUserInfo).authority(QUrl::FullyEncoded));
    client->request(header);
    bool finished = false;
    bool failed = true;
    QObject::connect(client.get(), &QHttps::done, client.get(), [&](bool error) {
        finished = true;
        failed = error;
    });
    waitFor(client.get(), g_setupWait, [&] { return finished; }, {SIGNAL(done(bool))});
    if (!finished || failed || client->lastResponse().statusCode() != 200)
        return false;
    *body = client->readAll();
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
