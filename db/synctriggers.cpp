#include "db/synctriggers.h"

#include "db/dblog.h"
#include "db/lmsqldb.h"

#include <QMap>
#include <QSqlQuery>

using namespace Qt::StringLiterals;

namespace {

// Built by concatenation: the statement carries strftime's own %-codes.
const QString kToday = u"strftime('%Y%m%d', 'now')"_s;

struct TrackedTable
{
    QString source;
    QString sync;
    QString fields;
};

struct TriggerKind
{
    QString event;
    QString rowReference;
    int state;
    SyncTriggerForm form;
};

} // namespace

bool installSyncTriggers()
{
    const LmSqlDb &db = *LmSqlDb::instance();

    // Devices grouped by the profile they serve; -1 (all profiles) comes first.
    QMap<int, QList<int>> devicesByUser;
    {
        LmSqlQueryPtr devices = db.prepare(u"SELECT id, user_id FROM userdata_sync_devices"_s);
        if (!devices->exec())
            return false;
        while (devices->next()) {
            const int user = devices->value(1).isNull() ? -1 : devices->value(1).toInt();
            devicesByUser[user].append(devices->value(0).toInt());
        }
    }

    QList<TrackedTable> tables;
    {
        LmSqlQueryPtr tracked =
            db.prepare(u"SELECT source_table, dest_table, fields FROM userdata_sync_tables"_s);
        if (!tracked->exec())
            return false;
        while (tracked->next())
            tables.append(
                {tracked->value(0).toString(), tracked->value(1).toString(), tracked->value(2).toString()});
    }

    static const TriggerKind kKinds[] = {
        {u"AFTER DELETE"_s, u"old"_s, 2, SyncTriggerForm::Update},
        {u"AFTER UPDATE"_s, u"new"_s, 1, SyncTriggerForm::Update},
        {u"AFTER INSERT"_s, u"new"_s, 1, SyncTriggerForm::Insert},
    };

    // One deferred transaction for the lot: the triggers live in this connection's temporary
    // schema, so no other process waits on it, and the schema is written once, not per trigger.
    db.prepare(u"SAVEPOINT sync_triggers"_s)->exec();
    int counter = 0;
    for (const TrackedTable &table : std::as_const(tables)) {
        for (auto it = devicesByUser.cbegin(); it != devicesByUser.cend(); ++it) {
            for (const TriggerKind &kind : kKinds) {
                createSyncTrigger(counter, table.source, table.sync, table.fields, it.value(), kind.event,
                                  kind.rowReference, kind.state, kind.form, it.key());
            }
        }
    }
    db.prepare(u"RELEASE sync_triggers"_s)->exec();
    qCDebug(lcDb) << "Installed" << counter << "sync triggers";
    return true;
}

bool createSyncTrigger(int &counter, const QString &sourceTable, const QString &syncTable,
                       const QString &fields, const QList<int> &devices, const QString &event,
                       const QString &rowReference, int state, SyncTriggerForm form, int userId)
{
    QString sql = u"CREATE TEMP TRIGGER lmtmp_%1 %2 ON %3 "_s.arg(counter, 4, 10, QLatin1Char('0'))
                      .arg(event, sourceTable);
    ++counter;
    if (userId >= 0)
        sql += u"WHEN %1.user_id = %2 "_s.arg(rowReference, QString::number(userId));
    sql += u"BEGIN\n"_s;

    const QString stateText = QString::number(state);
    for (const int device : devices) {
        const QString deviceText = QString::number(device);
        if (form == SyncTriggerForm::Insert) {
            sql += u"  INSERT OR REPLACE INTO "_s + syncTable + u"(device, state, lastModified, "_s + fields +
                   u") VALUES ("_s + deviceText + u", "_s + stateText + u", "_s + kToday + u", "_s +
                   LmSqlDb::qualifyColumns(fields, rowReference) + u");\n"_s;
        } else {
            sql += u"  UPDATE "_s + syncTable + u" SET state = "_s + stateText + u", lastModified = "_s +
                   kToday + u" WHERE device = "_s + deviceText + u' ';
            for (const QString &field : fields.split(u',')) {
                const QString name = field.trimmed();
                sql += u" AND "_s + name + u" = "_s + rowReference + u'.' + name;
            }
            sql += u";\n"_s;
        }
    }
    sql += u"END;"_s;

    LmSqlQueryPtr query = LmSqlDb::instance()->prepare(sql);
    if (query->exec())
        return true;
    qCDebug(lcDb).noquote() << "Sync trigger refused:" << sql;
    return false;
}

int deviceId(const QString &name)
{
    LmSqlQueryPtr query =
        LmSqlDb::instance()->prepare(u"SELECT id FROM userdata_sync_devices WHERE name = \""_s + name + u'"');
    if (!query->exec() || !query->next() || query->value(0).isNull())
        return -1;
    return query->value(0).toInt();
}

QList<QPair<int, QString>> syncDevices()
{
    QList<QPair<int, QString>> devices;
    LmSqlQueryPtr query = runBound(u"SELECT id, name FROM userdata_sync_devices"_s);
    if (!query.isNull()) {
        while (query->next())
            devices.append({query->value(0).toInt(), query->value(1).toString()});
    }
    return devices;
}
