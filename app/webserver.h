#pragma once

// The household's own online diary server. When the application setting "/web/server" names one,
// its addresses stand in for the brand's web addresses and requests go to the port it names;
// without it, the brand's addresses and the standard ports hold.

#include <QString>
#include <QUrl>

namespace WebServer {

// The setting, as "http://host[:port]/" (or https), or empty when none is set.
QString base();

// Checks and stores a server address: http or https, a host, an optional port and path, no
// query, user or fragment. A bare "host:port" is taken as http. False with a reason otherwise;
// nothing is stored then.
bool setBase(const QString &address, QString *error);
void unset();

// The web address the program uses for a brand string: "publish_auth_url", "mealplan_auth_url",
// "metrics_auth_url", "update_rss_url" or "web_address". Other ids read the brand.
QString address(const QString &id);

// The port to connect to for url: its own when a server is set, otherwise the standard one.
quint16 port(const QUrl &url, quint16 standard);

} // namespace WebServer
