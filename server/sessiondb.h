#pragma once

// Web logins as rows of the sessions table: the token's hash (never the token), the member, the
// session's CSRF token and when it ends. Expired rows are never answered and are swept on login.

#include <QString>

#include <optional>

class ServerDB;

struct SessionRow
{
    qint64 memberId = -1;
    QString name; // the member's
    QString csrf;
    qint64 expires = 0; // seconds since the epoch
};

class SessionDB
{
public:
    explicit SessionDB(ServerDB &db);

    bool create(const QString &tokenHash, qint64 memberId, const QString &csrf, qint64 created,
                qint64 expires, QString *error);
    // The live session of a token hash at now; none when unknown, expired or its member is gone.
    std::optional<SessionRow> find(const QString &tokenHash, qint64 now);
    bool remove(const QString &tokenHash);
    // Every session that ended before now.
    bool removeExpired(qint64 now);

private:
    ServerDB &_db;
};
