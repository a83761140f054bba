// The engine that runs proxy auto-configuration scripts, in a module of its own: the JavaScript
// engine behind it is loaded only when a script is really used, not on every start of the
// programs.

#include <QDeadlineTimer>
#include <QHash>
#include <QHostAddress>
#include <QJSEngine>
#include <QLoggingCategory>
#include <QNetworkInterface>
#include <QSemaphore>
#include <QThread>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#ifdef Q_OS_WIN
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <netdb.h>
#include <sys/socket.h>
#endif

Q_LOGGING_CATEGORY(lcProxyScript, "tarnwell.net.proxy")

namespace {

constexpr int kScriptTimeLimitMs = 2000;

using HostLookup = QString (*)(const QString &host);

// The first IPv4 address of a name from the system's resolver; blocks as long as that takes.
QString systemLookup(const QString &host)
{
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(host.toUtf8().constData(), nullptr, &hints, &found) != 0 || !found)
        return QString();
    const QHostAddress address(found->ai_addr);
    freeaddrinfo(found);
    return address.toString();
}

// Name lookups within the script's time: each runs on a thread of its own that is waited for only
// until the time is up, and then left to finish alone (a resolver cannot be interrupted); the
// script ends there, as it would at the watchdog. Answers, failures included, are kept for the
// rest of the run.
class HostResolver
{
public:
    HostResolver(HostLookup lookup, QDeadlineTimer deadline)
        : _lookup(lookup ? lookup : systemLookup)
        , _deadline(deadline)
    {
    }
    void setEngine(QJSEngine *engine) { _engine = engine; }

    QString resolve(const QString &host)
    {
        const QHostAddress literal(host);
        if (literal.protocol() == QAbstractSocket::IPv4Protocol)
            return literal.toString();
        const auto known = _answers.constFind(host);
        if (known != _answers.constEnd())
            return *known;
        QString address;
        bool answered = false;
        if (!_deadline.hasExpired()) {
            auto pending = std::make_shared<Pending>();
            std::thread([pending, lookup = _lookup, host] {
                const QString found = lookup(host);
                const std::lock_guard<std::mutex> lock(pending->mutex);
                pending->address = found;
                pending->done = true;
                pending->ready.notify_all();
            }).detach();
            std::unique_lock<std::mutex> lock(pending->mutex);
            answered = pending->ready.wait_for(lock, std::chrono::milliseconds(_deadline.remainingTime()),
                                               [&] { return pending->done; });
            if (answered)
                address = pending->address;
        }
        if (!answered) {
            qCDebug(lcProxyScript, "No answer for %s within the proxy script's time", qUtf8Printable(host));
            if (_engine)
                _engine->setInterrupted(true);
            return QString();
        }
        _answers.insert(host, address);
        return address;
    }

private:
    struct Pending
    {
        std::mutex mutex;
        std::condition_variable ready;
        bool done = false;
        QString address;
    };

    HostLookup _lookup;
    QDeadlineTimer _deadline;
    QJSEngine *_engine = nullptr;
    QHash<QString, QString> _answers;
};

// The helper functions scripts expect. Only the ones that need the network stack call out to
// C++, through the object the engine knows as _native.
const char kPrelude[] = R"js(
var _days = ['SUN', 'MON', 'TUE', 'WED', 'THU', 'FRI', 'SAT'];
var _months = ['JAN', 'FEB', 'MAR', 'APR', 'MAY', 'JUN', 'JUL', 'AUG', 'SEP', 'OCT', 'NOV', 'DEC'];

function isPlainHostName(host) {
    return String(host).indexOf('.') < 0;
}
function dnsDomainIs(host, domain) {
    host = String(host);
    domain = String(domain);
    return host.length >= domain.length && host.substring(host.length - domain.length) === domain;
}
function localHostOrDomainIs(host, hostdom) {
    host = String(host);
    hostdom = String(hostdom);
    return host === hostdom || hostdom.indexOf(host + '.') === 0;
}
function dnsResolve(host) {
    var ip = _native.dnsResolve(String(host));
    return ip === '' ? null : ip;
}
function isResolvable(host) {
    return dnsResolve(host) !== null;
}
function myIpAddress() {
    return _native.myIpAddress();
}
function dnsDomainLevels(host) {
    return String(host).split('.').length - 1;
}
function shExpMatch(str, shexp) {
    var pattern = String(shexp).replace(/[.+^${}()|[\]\\\/]/g, '\\$&').replace(/\*/g, '.*').replace(/\?/g, '.');
    return new RegExp('^' + pattern + '$').test(String(str));
}

// Dotted IPv4 text as a number, null for anything else.
function _ipv4(text) {
    var m = /^(\d{1,3})\.(\d{1,3})\.(\d{1,3})\.(\d{1,3})$/.exec(String(text));
    if (!m)
        return null;
    var value = 0;
    for (var i = 1; i <= 4; ++i) {
        var octet = Number(m[i]);
        if (octet > 255)
            return null;
        value = value * 256 + octet;
    }
    return value;
}
function isInNet(host, pattern, mask) {
    var address = _ipv4(host);
    if (address === null) {
        var resolved = dnsResolve(host);
        address = resolved === null ? null : _ipv4(resolved);
    }
    var net = _ipv4(pattern), bits = _ipv4(mask);
    if (address === null || net === null || bits === null)
        return false;
    return ((address & bits) >>> 0) === ((net & bits) >>> 0);
}

// The arguments without a trailing "GMT", and whether it was there.
function _timeArgs(args) {
    var list = Array.prototype.slice.call(args);
    var gmt = list.length > 0 && String(list[list.length - 1]).toUpperCase() === 'GMT';
    if (gmt)
        list.pop();
    return {list: list, gmt: gmt};
}
// Inclusive; a range whose end comes before its start wraps around.
function _inRange(value, first, last) {
    return first <= last ? value >= first && value <= last : value >= first || value <= last;
}
function weekdayRange() {
    var a = _timeArgs(arguments);
    if (a.list.length < 1 || a.list.length > 2)
        return false;
    var first = _days.indexOf(String(a.list[0]).toUpperCase());
    var last = a.list.length > 1 ? _days.indexOf(String(a.list[1]).toUpperCase()) : first;
    if (first < 0 || last < 0)
        return false;
    var now = new Date();
    return _inRange(a.gmt ? now.getUTCDay() : now.getDay(), first, last);
}
// Each argument is a day (1..31), a month name or a year; one point, or a start and an end
// made of the same fields.
function dateRange() {
    var a = _timeArgs(arguments), n = a.list.length;
    if (n < 1 || n > 6 || (n > 1 && n % 2 !== 0))
        return false;
    function point(values) {
        var fields = {};
        for (var i = 0; i < values.length; ++i) {
            var month = _months.indexOf(String(values[i]).toUpperCase());
            var number = Number(values[i]);
            var kind = month >= 0 ? 'm' : number > 31 ? 'y' : 'd';
            if (kind in fields || (month < 0 && !(number >= 1 && Math.floor(number) === number)))
                return null;
            fields[kind] = month >= 0 ? month : number;
        }
        return fields;
    }
    var start = point(n === 1 ? a.list : a.list.slice(0, n / 2));
    var end = n === 1 ? start : point(a.list.slice(n / 2));
    if (start === null || end === null || Object.keys(start).sort().join() !== Object.keys(end).sort().join())
        return false;
    var now = new Date();
    var today = {y: a.gmt ? now.getUTCFullYear() : now.getFullYear(), m: a.gmt ? now.getUTCMonth() : now.getMonth(),
                 d: a.gmt ? now.getUTCDate() : now.getDate()};
    function key(fields) {
        return (('y' in start ? fields.y : 0) * 12 + ('m' in start ? fields.m : 0)) * 32 + ('d' in start ? fields.d : 0);
    }
    if ('y' in start)
        return key(today) >= key(start) && key(today) <= key(end);
    return _inRange(key(today), key(start), key(end));
}
// (hour), (hour1, hour2), (h1, m1, h2, m2) or (h1, m1, s1, h2, m2, s2).
function timeRange() {
    var a = _timeArgs(arguments), v = a.list.map(Number);
    for (var i = 0; i < v.length; ++i) {
        if (!isFinite(v[i]))
            return false;
    }
    var now = new Date();
    var h = a.gmt ? now.getUTCHours() : now.getHours();
    var seconds = (h * 60 + (a.gmt ? now.getUTCMinutes() : now.getMinutes())) * 60 +
                  (a.gmt ? now.getUTCSeconds() : now.getSeconds());
    switch (v.length) {
    case 1:
        return h === v[0];
    case 2:
        if (v[0] === v[1])
            return h === v[0];
        return _inRange(seconds, v[0] * 3600, v[1] * 3600 - 1);
    case 4:
        return _inRange(seconds, (v[0] * 60 + v[1]) * 60, (v[2] * 60 + v[3]) * 60 + 59);
    case 6:
        return _inRange(seconds, (v[0] * 60 + v[1]) * 60 + v[2], (v[3] * 60 + v[4]) * 60 + v[5]);
    }
    return false;
}
)js";

// What the prelude cannot do in JavaScript.
class ScriptNative : public QObject
{
    Q_OBJECT

public:
    explicit ScriptNative(HostResolver *resolver)
        : _resolver(resolver)
    {
    }

    // First IPv4 address of host, empty when it does not resolve in the script's time.
    Q_INVOKABLE QString dnsResolve(const QString &host) const { return _resolver->resolve(host); }
    Q_INVOKABLE QString myIpAddress() const
    {
        const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
        for (const QNetworkInterface &netif : interfaces) {
            const QNetworkInterface::InterfaceFlags flags = netif.flags();
            if (!flags.testFlag(QNetworkInterface::IsUp) || !flags.testFlag(QNetworkInterface::IsRunning) ||
                flags.testFlag(QNetworkInterface::IsLoopBack))
                continue;
            const QList<QNetworkAddressEntry> entries = netif.addressEntries();
            for (const QNetworkAddressEntry &entry : entries) {
                if (entry.ip().protocol() == QAbstractSocket::IPv4Protocol)
                    return entry.ip().toString();
            }
        }
        return QStringLiteral("127.0.0.1");
    }

private:
    HostResolver *_resolver;
};

// Interrupts the engine from its own thread when the script is not done in time: the thread
// running an endless loop never gets to look at a timer.
class ScriptWatchdog
{
public:
    ScriptWatchdog(QJSEngine *engine, int milliseconds)
        : _thread(QThread::create([this, engine, milliseconds] {
            if (!_done.tryAcquire(1, milliseconds))
                engine->setInterrupted(true);
        }))
    {
        _thread->start();
    }
    ~ScriptWatchdog() { stop(); }

    void stop()
    {
        if (!_thread)
            return;
        _done.release();
        _thread->wait();
        _thread.reset();
    }

private:
    QSemaphore _done;
    std::unique_ptr<QThread> _thread;
};

// Text as the inside of a single-quoted JavaScript string.
QString quoted(QString text)
{
    text.replace(u'\\', QLatin1String("\\\\"));
    text.replace(u'\'', QLatin1String("\\'"));
    text.replace(u'\n', QLatin1String("\\n"));
    text.replace(u'\r', QLatin1String("\\r"));
    text.replace(QChar(0x2028), QLatin1String("\\u2028"));
    return text.replace(QChar(0x2029), QLatin1String("\\u2029"));
}

} // namespace

// FindProxyForURL(url, host) of the script; false when it fails, runs out of time or answers
// anything but a text of at most maxResult characters. Name lookups go to lookup, or to the
// system's resolver when it is null.
extern "C" Q_DECL_EXPORT bool tarnwellRunProxyScript(const QString &script, const QString &url,
                                                     const QString &host, QString *answer, HostLookup lookup,
                                                     qsizetype maxResult)
{
    HostResolver resolver(lookup, QDeadlineTimer(kScriptTimeLimitMs));
    ScriptNative native(&resolver); // outlives the engine
    QJSEngine engine;
    resolver.setEngine(&engine);
    QJSEngine::setObjectOwnership(&native, QJSEngine::CppOwnership);
    engine.globalObject().setProperty(QStringLiteral("_native"), engine.newQObject(&native));

    // The length is looked at before the text is ever copied out of the engine.
    const QString call =
        QStringLiteral("(function () { var r = FindProxyForURL('") + quoted(url) + QStringLiteral("', '") +
        quoted(host) +
        QStringLiteral("'); return (typeof r === 'string' || r instanceof String) && r.length <= %1 ? "
                       "String(r) : null; })()")
            .arg(maxResult);
    const std::pair<QString, QString> steps[] = {
        {QString::fromUtf8(kPrelude), QStringLiteral("prelude")},
        {script, QStringLiteral("proxy script")},
        {call, QStringLiteral("FindProxyForURL")},
    };
    QJSValue result;
    QStringList trace;
    bool failed = false;
    ScriptWatchdog watchdog(&engine, kScriptTimeLimitMs);
    for (const auto &[code, name] : steps) {
        result = engine.evaluate(code, name, 1, &trace);
        // A thrown value that is no Error object only shows in the stack trace.
        failed = result.isError() || !trace.isEmpty() || engine.isInterrupted();
        if (failed)
            break;
    }
    watchdog.stop();

    if (engine.isInterrupted()) {
        qCDebug(lcProxyScript, "Proxy script stopped after %d ms", kScriptTimeLimitMs);
        return false;
    }
    if (failed) {
        qCDebug(lcProxyScript, "Proxy script failed: %s", qUtf8Printable(result.toString()));
        return false;
    }
    if (!result.isString()) {
        qCDebug(lcProxyScript, "Proxy script answered no text, or more than %lld characters",
                qlonglong(maxResult));
        return false;
    }
    *answer = result.toString();
    return true;
}

#include "proxyscript.moc"
