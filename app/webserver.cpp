#include "app/webserver.h"

#include "app/lmsettings.h"
#include "brand/brandengine.h"
#include "common/webpaths.h"

namespace {

// Normalised: scheme, host, port as given, and a path ending with "/".
QUrl parse(const QString &text, QString *error)
{
    QString address = text.trimmed();
    if (!address.contains(QLatin1String("://")))
        address.prepend(QLatin1String("http://"));
    const QUrl url(address, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty()) {
        *error = QStringLiteral("\"%1\" is not a server address (such as http://diary.home:8080/)").arg(text);
        return {};
    }
    if (scheme != QLatin1String("http") && scheme != QLatin1String("https")) {
        *error = QStringLiteral("the server address must start with http:// or https://");
        return {};
    }
    if (url.hasQuery() || url.hasFragment() || !url.userInfo().isEmpty()) {
        *error = QStringLiteral("the server address takes no user, query or fragment");
        return {};
    }
    QUrl normal;
    normal.setScheme(scheme);
    normal.setHost(url.host());
    normal.setPort(url.port());
    QString path = url.path();
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    normal.setPath(path);
    return normal;
}

// The server's address with another scheme and a path below its own.
QString onServer(const QString &scheme, const QString &path, const QString &query = {})
{
    QString ignored;
    QUrl url = parse(WebServer::base(), &ignored);
    url.setScheme(scheme);
    QString full = url.toString(QUrl::FullyEncoded);
    full.chop(1); // the base's own "/" before an absolute path
    full += path;
    if (!query.isEmpty())
        full += QLatin1Char('?') + query;
    return full;
}

} // namespace

namespace WebServer {

QString base()
{
    return LmSettings::readString(LmSettings::WebServer);
}

bool setBase(const QString &address, QString *error)
{
    const QUrl url = parse(address, error);
    if (url.isEmpty())
        return false;
    LmSettings::write(LmSettings::WebServer, url.toString(QUrl::FullyEncoded));
    return true;
}

void unset()
{
    LmSettings::remove(LmSettings::WebServer);
}

QString address(const QString &id)
{
    if (base().isEmpty())
        return BrandEngine::instance().getString(id);
    if (id == QLatin1String("publish_auth_url"))
        return onServer(QStringLiteral("http"), QLatin1String(WebPaths::kPublish),
                        QLatin1String(WebPaths::kPublishQuery));
    if (id == QLatin1String("mealplan_auth_url"))
        return onServer(QStringLiteral("http"), QLatin1String(WebPaths::kMealPlan),
                        QLatin1String(WebPaths::kMealPlanQuery));
    // Metrics travel over TLS; the server takes both on its one port.
    if (id == QLatin1String("metrics_auth_url"))
        return onServer(QStringLiteral("https"), QLatin1String(WebPaths::kMetrics),
                        QLatin1String(WebPaths::kMetricsQuery));
    if (id == QLatin1String("update_rss_url")) {
        return onServer(QStringLiteral("http"), QLatin1String(WebPaths::kStaticDbFolder) +
                                                    QStringLiteral("${PRODUCT}/") +
                                                    QLatin1String(WebPaths::kUpdateFeedName));
    }
    if (id == QLatin1String("web_address"))
        return base();
    return BrandEngine::instance().getString(id);
}

quint16 port(const QUrl &url, quint16 standard)
{
    return base().isEmpty() ? standard : quint16(url.port(standard));
}

} // namespace WebServer
