#include "net/metrics.h"

#include "app/webserver.h"
#include "brand/brandengine.h"
#include "db/lmsqldb.h"
#include "db/synctriggers.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "net/netlog.h"
#include "net/publish.h"

#include <QSqlQuery>
#include <QTimer>

namespace {

constexpr int kRetryMs = 5000;

} // namespace

Metrics::Metrics(int user_id, QObject *parent)
    : QObject(parent)
    , _userId(user_id)
{
}

Metrics::~Metrics() = default;

QString Metrics::weightTrend(int user_id, const QString &day)
{
    LmSqlQueryPtr weighed =
        runBound(QStringLiteral("SELECT COUNT(*) FROM (SELECT weight FROM user_checkins WHERE user_id = ? "
                                "AND date <= ? AND WEIGHT NOT NULL LIMIT 2)"),
                 {user_id, day});
    if (weighed.isNull() || !weighed->next() || weighed->value(0).toInt() < 2)
        return QString();
    return UserDB::weightTrend(user_id, day);
}

QString Metrics::buildDocument() const
{
    const int device = deviceId(QStringLiteral("metrics"));
    QString document = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n");
    XmlWriter xml(&document);
    xml.startElement(QStringLiteral("metrics"));
    xml.attribute(QStringLiteral("protocol"), QStringLiteral("1.0"));
    LmSqlQueryPtr logins =
        runBound(QStringLiteral("SELECT date FROM metrics_startStats_sync WHERE user_id = ? AND state = ?"),
                 {_userId, 1});
    while (!logins.isNull() && logins->next()) {
        const QString day = logins->value(0).toString();
        LmSqlQueryPtr count =
            runBound(QStringLiteral("SELECT count FROM metrics_startStats where user_id = ? AND date == ?"),
                     {_userId, day});
        xml.startElement(QStringLiteral("login"));
        xml.attribute(QStringLiteral("date"), DateConversion::toWebDate(day));
        xml.attribute(QStringLiteral("count"),
                      !count.isNull() && count->next() ? count->value(0).toInt() : 0);
        xml.endElement();
    }
    LmSqlQueryPtr checkins = runBound(
        QStringLiteral("SELECT lastModified, date FROM user_checkins_sync WHERE user_id = ? AND state = "
                       "? AND device = ? "
                       "AND date in  (SELECT date from user_checkins where weight >= 0 and user_id = ?)"),
        {_userId, 1, device, _userId});
    while (!checkins.isNull() && checkins->next()) {
        const QString day = checkins->value(1).toString();
        xml.startElement(QStringLiteral("checkin"));
        xml.attribute(QStringLiteral("modified"), DateConversion::toWebDate(checkins->value(0).toString()));
        xml.attribute(QStringLiteral("date"), DateConversion::toWebDate(day));
        xml.attribute(QStringLiteral("trend"), weightTrend(_userId, day));
        xml.endElement();
    }
    // Counted by the database: a diary never sent before has a row for every entry of every day.
    LmSqlQueryPtr foods = runBound(
        QStringLiteral("SELECT lastModified, date, COUNT(*) FROM food_diary_sync JOIN food_diary "
                       "ON food_diary_sync.food_id = food_diary.food_id WHERE device = ? AND user_id = ? "
                       "AND state = ? GROUP BY lastModified, date ORDER BY lastModified, date"),
        {device, _userId, 1});
    while (!foods.isNull() && foods->next()) {
        xml.startElement(QStringLiteral("fooddiary"));
        xml.attribute(QStringLiteral("modified"), DateConversion::toWebDate(foods->value(0).toString()));
        xml.attribute(QStringLiteral("date"), DateConversion::toWebDate(foods->value(1).toString()));
        xml.attribute(QStringLiteral("count"), foods->value(2).toInt());
        xml.endElement();
    }
    xml.endElement();
    return document;
}

void Metrics::start()
{
    if (!send())
        QTimer::singleShot(kRetryMs, this, &Metrics::start);
}

bool Metrics::send()
{
    _errorText.clear();
    if (_userId < 0) {
        _errorText = QStringLiteral("No profile is open yet.");
        return false;
    }
    const BrandEngine &brand = BrandEngine::instance();
    if (!brand.idExists(QStringLiteral("metrics_auth_url"))) {
        _errorText = QStringLiteral("This product sends no usage metrics.");
        return false;
    }
    QString url = WebServer::address(QStringLiteral("metrics_auth_url"));
    const QString error = expandBrandUrl(url, _userId);
    if (!error.isEmpty()) {
        qCDebug(lcNet, "error creating metrics URL from brand string!");
        _errorText = error;
        return false;
    }
    _sentUserId = _userId;
    _aborted = false;
    const QString body = QString::fromLatin1(LmPublish::encodeBody(buildDocument()));
    _connecting = true;
    _http = std::make_unique<LmHttp>(true, QUrl(url), WebServer::port(QUrl(url), 443));
    _connecting = false;
    _http->setRequestDeadline(kDeadline);
    connect(_http.get(), &LmHttp::readyRead, this, &Metrics::readData);
    connect(_http.get(), &LmHttp::certCheckFailed, this, &Metrics::checkCertError);
    connect(_http.get(), &LmHttp::done, this, &Metrics::httpsDone);
    _mayProceed = true;
    _answered = false;
    if (_aborted || _http->error() != QHttps::NoError) {
        // Told from the event loop, as any other end of an upload.
        _errorText = _aborted ? QStringLiteral("Request aborted") : _http->errorString();
        _http->abort();
        QTimer::singleShot(0, this, [this] { emit done(true); });
        return true;
    }
    _http->post(QUrl(url), body);
    return true;
}

void Metrics::abort()
{
    // The connection is made inside send(): an abort from the event loop it runs meanwhile
    // lands here before _http is the new request.
    _aborted = true;
    if (_connecting)
        LmHttp::abortSetups();
    else if (_http)
        _http->abort();
}

void Metrics::checkCertError(int code, const QString &reason)
{
    qCWarning(lcNet, "metrics: certificate check failed (%d): %s", code, qUtf8Printable(reason));
    if (code != 1) {
        _mayProceed = false;
        fail(QStringLiteral("Certificate check failed: ") + reason);
    }
}

void Metrics::fail(const QString &text)
{
    _errorText = text;
    _http->abort();
}

void Metrics::readData(const QHttpsResponseHeader &header)
{
    if (_answered)
        return;
    if (!_mayProceed) {
        _http->abort();
        return;
    }
    if (header.statusCode() != 200) {
        _answered = true;
        fail(QStringLiteral("error - %1").arg(header.statusCode()));
    }
}

void Metrics::httpsDone(bool error)
{
    if (!error && !_answered) {
        const QByteArray body = _http->readAll();
        PublishResponse response;
        if (_http->lastResponse().statusCode() != 200) {
            // A reply without a body never reached readData().
            _errorText = QStringLiteral("error - %1").arg(_http->lastResponse().statusCode());
            error = true;
        } else if (body.isEmpty()) {
            _errorText = QStringLiteral("HTTPS error - No content");
            error = true;
        } else if (!response.parse(body)) {
            _errorText = QStringLiteral("HTTPS error - Cannot interpret content");
            error = true;
        } else if (response.errnum != 0) {
            _errorText = response.errstr;
            error = true;
        } else {
            emit uploadOk();
        }
    } else if (error && _errorText.isEmpty()) {
        _errorText = _http->errorString();
        // Nothing is shown to the user: the same data goes next time.
        const QHttps::Error code = _http->https()->error();
        qCWarning(lcNet, "%s",
                  code == QHttps::ConnectionRefused ? "Connection was refused"
                  : code == QHttps::HostNotFound    ? "Host was not found"
                  : _http->setupFailed()            ? "Cannot init SSL"
                                                    : "Cannot read from socket");
    }
    emit done(error || _answered);
}

void Metrics::resetUserMetrics(int user_id)
{
    // The three tables together or not at all.
    LmWriteTransaction write;
    const int device = deviceId(QStringLiteral("metrics"));
    const bool ok =
        write.isOpen() &&
        !runBound(QStringLiteral("UPDATE food_diary_sync SET state = ? WHERE device = ? AND food_id IN (SELECT food_id "
                                 "FROM food_diary WHERE user_id = ?) AND state = ?"),
                  {0, device, user_id, 1})
             .isNull() &&
        !runBound(QStringLiteral(
                      "UPDATE user_checkins_sync SET state = ? WHERE device = ? AND user_id = ? AND state = ?"),
                  {0, device, user_id, 1})
             .isNull() &&
        !runBound(QStringLiteral(
                      "UPDATE metrics_startStats_sync SET state = ? WHERE device = ? AND user_id = ? AND state = ?"),
                  {0, device, user_id, 1})
             .isNull();
    write.commit(ok);
}
