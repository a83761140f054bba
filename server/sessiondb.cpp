#include "server/sessiondb.h"

#include "server/serverdb.h"
#include "server/serverlog.h"

#include <QSqlQuery>

SessionDB::SessionDB(ServerDB &db)
    : _db(db)
{
}

bool SessionDB::create(const QString &tokenHash, qint64 memberId, const QString &csrf, qint64 created,
                       qint64 expires, QString *error)
{
    return _db.transaction(
        [&](QSqlDatabase &db, QString *why) {
            QSqlQuery query(db);
            return ServerDB::exec(query,
                                  QStringLiteral("INSERT INTO sessions(token_hash, member_id, csrf, created, "
                                                 "expires) VALUES (?, ?, ?, ?, ?)"),
                                  {tokenHash, memberId, csrf, created, expires}, why);
        },
        error);
}

std::optional<SessionRow> SessionDB::find(const QString &tokenHash, qint64 now)
{
    QSqlQuery query(_db.connection());
    QString error;
    if (!ServerDB::exec(
            query,
            QStringLiteral("SELECT s.member_id, m.name, s.csrf, s.expires FROM sessions s JOIN members m "
                           "ON m.id = s.member_id WHERE s.token_hash = ? AND s.expires > ?"),
            {tokenHash, now}, &error)) {
        qCWarning(lcServer, "reading a session failed: %s", qUtf8Printable(error));
        return std::nullopt;
    }
    if (!query.next())
        return std::nullopt;
    return SessionRow{query.value(0).toLongLong(), query.value(1).toString(), query.value(2).toString(),
                      query.value(3).toLongLong()};
}

bool SessionDB::remove(const QString &tokenHash)
{
    QString error;
    const bool ok = _db.transaction(
        [&](QSqlDatabase &db, QString *why) {
            QSqlQuery query(db);
            return ServerDB::exec(query, QStringLiteral("DELETE FROM sessions WHERE token_hash = ?"),
                                  {tokenHash}, why);
        },
        &error);
    if (!ok)
        qCWarning(lcServer, "ending a session failed: %s", qUtf8Printable(error));
    return ok;
}

bool SessionDB::removeExpired(qint64 now)
{
    QString error;
    const bool ok = _db.transaction(
        [&](QSqlDatabase &db, QString *why) {
            QSqlQuery query(db);
            return ServerDB::exec(query, QStringLiteral("DELETE FROM sessions WHERE expires <= ?"), {now},
                                  why);
        },
        &error);
    if (!ok)
        qCWarning(lcServer, "sweeping sessions failed: %s", qUtf8Printable(error));
    return ok;
}
