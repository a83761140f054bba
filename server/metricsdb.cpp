#include "server/metricsdb.h"

#include "server/serverdb.h"

#include <QMap>
#include <QSqlQuery>

namespace {

const char *const kKindNames[] = {"start", "checkin", "fooddiary"};

} // namespace

MetricsDB::MetricsDB(ServerDB &db)
    : _db(db)
{
}

bool MetricsDB::add(const QList<MetricsCount> &counts, QString *error)
{
    // One row per day and kind, however many lines of the upload name it.
    QMap<std::pair<QDate, int>, qint64> sums;
    for (const MetricsCount &count : counts)
        sums[{count.date, int(count.kind)}] += count.count;
    if (sums.isEmpty())
        return true;
    return _db.transaction(
        [&sums](QSqlDatabase &db, QString *error) {
            QSqlQuery query(db);
            for (auto it = sums.cbegin(); it != sums.cend(); ++it) {
                if (!ServerDB::exec(
                        query,
                        QStringLiteral("INSERT INTO metrics_days (date, kind, count) VALUES (?, ?, ?) "
                                       "ON CONFLICT (date, kind) DO UPDATE SET count = "
                                       "metrics_days.count + excluded.count"),
                        {it.key().first.toString(Qt::ISODate),
                         QString::fromLatin1(kKindNames[it.key().second]), it.value()},
                        error))
                    return false;
            }
            return true;
        },
        error);
}

QList<MetricsDB::Day> MetricsDB::days(const QDate &from, const QDate &to)
{
    QList<Day> result;
    QSqlDatabase db = _db.connection();
    QSqlQuery query(db);
    if (!ServerDB::exec(
            query,
            QStringLiteral("SELECT date, kind, count FROM metrics_days WHERE date >= ? AND date <= ? "
                           "ORDER BY date"),
            {from.toString(Qt::ISODate), to.toString(Qt::ISODate)}))
        return result;
    while (query.next()) {
        const QDate date = QDate::fromString(query.value(0).toString(), Qt::ISODate);
        if (result.isEmpty() || result.constLast().date != date)
            result.append(Day{date});
        const QString kind = query.value(1).toString();
        const qint64 count = query.value(2).toLongLong();
        Day &day = result.last();
        (kind == QLatin1String("start")     ? day.starts
         : kind == QLatin1String("checkin") ? day.checkins
                                            : day.foodDiary) += count;
    }
    return result;
}
