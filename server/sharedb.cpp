#include "server/sharedb.h"

#include "server/serverdb.h"
#include "server/serverlog.h"

#include <QSqlQuery>

ShareDB::ShareDB(ServerDB &db)
    : _db(db)
{
}

bool ShareDB::maySee(qint64 viewerId, qint64 ownerId)
{
    if (viewerId == ownerId)
        return viewerId >= 0;
    QSqlQuery query(_db.connection());
    QString error;
    if (!ServerDB::exec(query, QStringLiteral("SELECT 1 FROM shares WHERE owner_id = ? AND viewer_id = ?"),
                        {ownerId, viewerId}, &error)) {
        qCWarning(lcServer, "reading shares failed: %s", qUtf8Printable(error));
        return false;
    }
    return query.next();
}

QStringList ShareDB::names(const QString &sql, qint64 id)
{
    QStringList names;
    QSqlQuery query(_db.connection());
    QString error;
    if (!ServerDB::exec(query, sql, {id}, &error)) {
        qCWarning(lcServer, "reading shares failed: %s", qUtf8Printable(error));
        return names;
    }
    while (query.next())
        names.append(query.value(0).toString());
    return names;
}

QStringList ShareDB::viewersOf(qint64 ownerId)
{
    return names(QStringLiteral("SELECT m.name FROM shares s JOIN members m ON m.id = s.viewer_id "
                                "WHERE s.owner_id = ? ORDER BY m.name"),
                 ownerId);
}

QStringList ShareDB::sharedWith(qint64 viewerId)
{
    return names(QStringLiteral("SELECT m.name FROM shares s JOIN members m ON m.id = s.owner_id "
                                "WHERE s.viewer_id = ? ORDER BY m.name"),
                 viewerId);
}

bool ShareDB::setViewers(qint64 ownerId, const QList<qint64> &viewerIds, QString *error)
{
    return _db.transaction(
        [&](QSqlDatabase &db, QString *why) {
            QSqlQuery query(db);
            if (!ServerDB::exec(query, QStringLiteral("DELETE FROM shares WHERE owner_id = ?"), {ownerId},
                                why))
                return false;
            for (const qint64 viewer : viewerIds) {
                // Checked here rather than left to the foreign keys, which SQLite may not enforce.
                if (viewer == ownerId) {
                    *why = QStringLiteral("A diary is always shown to its owner.");
                    return false;
                }
                if (!ServerDB::exec(query, QStringLiteral("SELECT 1 FROM members WHERE id = ?"), {viewer},
                                    why))
                    return false;
                if (!query.next()) {
                    *why = QStringLiteral("There is no such member.");
                    return false;
                }
                if (!ServerDB::exec(query,
                                    QStringLiteral("INSERT INTO shares(owner_id, viewer_id) VALUES (?, ?) "
                                                   "ON CONFLICT DO NOTHING"),
                                    {ownerId, viewer}, why))
                    return false;
            }
            return true;
        },
        error);
}
