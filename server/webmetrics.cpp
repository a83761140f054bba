#include "server/webmetrics.h"

#include "server/serverdb.h"
#include "server/serverlog.h"

#include <QSqlQuery>

QList<WebPages::MetricsDay> readMetricsDays(ServerDB &db, const QDate &from, const QDate &to)
{
    QList<WebPages::MetricsDay> days;
    QSqlQuery query(db.connection());
    QString error;
    if (!ServerDB::exec(
            query,
            QStringLiteral("SELECT date, kind, count FROM metrics_days WHERE date >= ? AND date <= ? "
                           "ORDER BY date"),
            {from.toString(Qt::ISODate), to.toString(Qt::ISODate)}, &error)) {
        qCWarning(lcServer, "reading the usage counts failed: %s", qUtf8Printable(error));
        return days;
    }
    while (query.next()) {
        const QDate date = QDate::fromString(query.value(0).toString(), Qt::ISODate);
        if (!date.isValid())
            continue;
        if (days.isEmpty() || days.constLast().date != date)
            days.append({date, 0, 0, 0});
        WebPages::MetricsDay &day = days.last();
        const QString kind = query.value(1).toString();
        const qint64 count = query.value(2).toLongLong();
        if (kind == QLatin1String("start"))
            day.start += count;
        else if (kind == QLatin1String("checkin"))
            day.checkin += count;
        else if (kind == QLatin1String("fooddiary"))
            day.fooddiary += count;
    }
    return days;
}
