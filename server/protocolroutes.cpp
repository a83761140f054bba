#include "server/protocolroutes.h"

#include "common/lmconstants.h"
#include "common/webpaths.h"
#include "server/accountdb.h"
#include "server/mealplandb.h"
#include "server/metricsdb.h"
#include "server/protocolxml.h"
#include "server/publishreader.h"
#include "server/serverdiarydb.h"
#include "server/serverlistener.h"
#include "server/serverlog.h"
#include "server/updatefeed.h"
#include "server/webrequest.h"

#include <QHttpServer>
#include <QUrlQuery>

namespace {

using Method = QHttpServerRequest::Method;
using Status = QHttpServerResponse::StatusCode;

const QByteArray kXml = "text/xml";

// Who asks, as the program tells it in the query of every request.
struct Caller
{
    QString name;
    QString pwhash;
    QString address;
};

Caller callerOf(const QHttpServerRequest &request)
{
    const QUrlQuery query = request.query();
    return {query.queryItemValue(QStringLiteral("username"), QUrl::FullyDecoded),
            query.queryItemValue(QStringLiteral("pwhash"), QUrl::FullyDecoded),
            request.remoteAddress().toString()};
}

// The member's id, or the protocol error that refuses the caller.
ProtocolError login(ServerDB &db, const Caller &caller, qint64 *memberId)
{
    if (caller.name.isEmpty() || caller.pwhash.isEmpty())
        return ProtocolError::BadLogin;
    switch (AccountDB(db).checkPwHash(caller.name, caller.pwhash, caller.address, memberId)) {
    case AccountDB::Login::Ok:
        return ProtocolError::Ok;
    case AccountDB::Login::Throttled:
        qCInfo(lcServer, "login of %s from %s refused: too many failures", qUtf8Printable(caller.name),
               qUtf8Printable(caller.address));
        return ProtocolError::Throttled;
    case AccountDB::Login::Wrong:
        break;
    }
    qCInfo(lcServer, "bad login of %s from %s", qUtf8Printable(caller.name), qUtf8Printable(caller.address));
    return ProtocolError::BadLogin;
}

// The decoded value of a field of an application/x-www-form-urlencoded body.
std::optional<QByteArray> formField(const QByteArray &body, QByteArrayView name)
{
    const QByteArrayView fields(body);
    for (qsizetype start = 0; start <= fields.size();) {
        qsizetype end = fields.indexOf('&', start);
        if (end < 0)
            end = fields.size();
        const QByteArrayView field = fields.sliced(start, end - start);
        start = end + 1;
        const qsizetype equals = field.indexOf('=');
        if (equals < 0 || formDecoded(field.first(equals)) != name)
            continue;
        return formDecoded(field.sliced(equals + 1));
    }
    return std::nullopt;
}

QHttpServerResponse xmlReply(const QByteArray &xml)
{
    return QHttpServerResponse(kXml, xml);
}

QHttpServerResponse protocolReply(ProtocolError error)
{
    return xmlReply(ProtocolXml::response(error));
}

// The site's address as the caller named it (absolute request target or Host field).
QUrl siteUrl(const QHttpServerRequest &request)
{
    QUrl url;
    url.setScheme(request.url().scheme().isEmpty() ? QStringLiteral("http") : request.url().scheme());
    url.setHost(request.url().host());
    if (request.url().port() > 0)
        url.setPort(request.url().port());
    url.setPath(QStringLiteral("/"));
    return url;
}

QFuture<QHttpServerResponse> status(QThreadPool *pool, Status code)
{
    return ServerListener::respond(pool, [code] { return QHttpServerResponse(code); });
}

} // namespace

ProtocolRoutes::ProtocolRoutes(ServerDB &db, QThreadPool *pool, const Options &options)
    : _db(db)
    , _pool(pool)
    , _options(options)
{
}

void ProtocolRoutes::install(QHttpServer &server)
{
    server.route(QLatin1String(WebPaths::kPublish), [this](const QHttpServerRequest &request) {
        if (request.method() != Method::Post)
            return status(_pool, Status::MethodNotAllowed);
        return ServerListener::respond(_pool, [this, caller = callerOf(request), body = request.body()] {
            qint64 memberId = -1;
            if (const ProtocolError refused = login(_db, caller, &memberId); refused != ProtocolError::Ok)
                return protocolReply(refused);
            const std::optional<QByteArray> document = formField(body, "xml");
            if (document && document->size() > _options.maxDocument)
                return protocolReply(ProtocolError::TooLarge);
            DiaryUpdate update;
            QString why;
            ProtocolError error = ProtocolError::BadDocument;
            if (!document || !readDiaryUpdate(*document, &update, &why, &error)) {
                qCInfo(lcServer, "publish of %s refused: %s", qUtf8Printable(caller.name),
                       document ? qUtf8Printable(why) : "no xml field");
                return protocolReply(error);
            }
            if (!ServerDiaryDB(_db).apply(memberId, update, &why)) {
                qCWarning(lcServer, "publish of %s not stored: %s", qUtf8Printable(caller.name),
                          qUtf8Printable(why));
                return protocolReply(ProtocolError::ServerError);
            }
            qCInfo(lcServer, "%s published %lld days, %d items", qUtf8Printable(caller.name),
                   qlonglong(update.days.size()), update.itemCount());
            return protocolReply(ProtocolError::Ok);
        });
    });

    server.route(QLatin1String(WebPaths::kMealPlan), [this](const QHttpServerRequest &request) {
        if (request.method() != Method::Get)
            return status(_pool, Status::MethodNotAllowed);
        const QUrlQuery query = request.query();
        const QDate from = QDate::fromString(query.queryItemValue(QStringLiteral("begindate")), Qt::ISODate);
        const QDate to = QDate::fromString(query.queryItemValue(QStringLiteral("enddate")), Qt::ISODate);
        return ServerListener::respond(_pool, [this, caller = callerOf(request), from, to] {
            qint64 memberId = -1;
            if (const ProtocolError refused = login(_db, caller, &memberId); refused != ProtocolError::Ok)
                return xmlReply(ProtocolXml::mealPlanError(refused));
            // A year at most: the program asks for a week.
            if (!from.isValid() || !to.isValid() || to < from || from.daysTo(to) > 366)
                return xmlReply(ProtocolXml::mealPlanError(ProtocolError::BadDocument));
            return xmlReply(ProtocolXml::mealPlan(MealPlanDB(_db).planned(memberId, from, to)));
        });
    });

    server.route(QLatin1String(WebPaths::kMetrics), [this](const QHttpServerRequest &request) {
        if (request.method() != Method::Post)
            return status(_pool, Status::MethodNotAllowed);
        return ServerListener::respond(_pool, [this, body = request.body()] {
            if (!_options.storeMetrics)
                return protocolReply(ProtocolError::Ok);
            const std::optional<QByteArray> document = formField(body, "xml");
            if (document && document->size() > _options.maxDocument)
                return protocolReply(ProtocolError::TooLarge);
            QList<MetricsCount> counts;
            QString why;
            ProtocolError error = ProtocolError::BadDocument;
            if (!document || !readMetricsUpdate(*document, &counts, &why, &error)) {
                qCInfo(lcServer, "metrics refused: %s", document ? qUtf8Printable(why) : "no xml field");
                return protocolReply(error);
            }
            if (!MetricsDB(_db).add(counts, &why)) {
                qCWarning(lcServer, "metrics not stored: %s", qUtf8Printable(why));
                return protocolReply(ProtocolError::ServerError);
            }
            return protocolReply(ProtocolError::Ok);
        });
    });

    server.route(QLatin1String(WebPaths::kStaticDbFolder) + QStringLiteral("<arg>/") +
                     QLatin1String(WebPaths::kUpdateFeedName),
                 [this](const QString &product, const QHttpServerRequest &request) {
                     if (request.method() != Method::Get)
                         return status(_pool, Status::MethodNotAllowed);
                     if (product != QLatin1String(Lm::kProductKeyword))
                         return status(_pool, Status::NotFound);
                     const QUrl site = siteUrl(request);
                     return ServerListener::respond(_pool, [this, site, product] {
                         if (!site.isValid() || site.host().isEmpty())
                             return QHttpServerResponse(Status::BadRequest);
                         const QUrl database =
                             site.resolved(QUrl(QLatin1String(WebPaths::kStaticDbFolder) + product +
                                                QLatin1Char('/') + QLatin1String(WebPaths::kDatabaseName)));
                         return QHttpServerResponse(
                             "application/rss+xml",
                             ProtocolXml::updateFeed(site.toString(QUrl::FullyEncoded),
                                                     database.toString(QUrl::FullyEncoded),
                                                     UpdateFeed(_options.dataDir).published()));
                     });
                 });

    server.route(QLatin1String(WebPaths::kStaticDbFolder) + QStringLiteral("<arg>/") +
                     QLatin1String(WebPaths::kDatabaseName),
                 [this](const QString &product, const QHttpServerRequest &request) {
                     if (request.method() != Method::Get)
                         return status(_pool, Status::MethodNotAllowed);
                     if (product != QLatin1String(Lm::kProductKeyword))
                         return status(_pool, Status::NotFound);
                     return ServerListener::respond(_pool, [this] {
                         const QByteArray data = UpdateFeed(_options.dataDir).compressed();
                         return data.isEmpty() ? QHttpServerResponse(Status::NotFound)
                                               : QHttpServerResponse("application/gzip", data);
                     });
                 });
}
