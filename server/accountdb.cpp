#include "server/accountdb.h"

#include "server/serverdb.h"

#include <QDateTime>
#include <QRegularExpression>

AccountDB::AccountDB(ServerDB &db)
    : _db(db)
    , _clock(&ServerDB::now)
{
}

bool AccountDB::addMember(const QString &, const QString &, QString *error)
{
    *error = QStringLiteral("storage not built yet");
    return false;
}

bool AccountDB::setPassword(const QString &, const QString &, QString *error)
{
    *error = QStringLiteral("storage not built yet");
    return false;
}

bool AccountDB::removeMember(const QString &, QString *error)
{
    *error = QStringLiteral("storage not built yet");
    return false;
}

QList<Member> AccountDB::members()
{
    return {};
}

std::optional<Member> AccountDB::member(const QString &)
{
    return std::nullopt;
}

std::optional<Member> AccountDB::member(qint64)
{
    return std::nullopt;
}

bool AccountDB::validName(const QString &name)
{
    static const QRegularExpression pattern(QStringLiteral("\\A[A-Za-z0-9._@-]{1,64}\\z"));
    return pattern.match(name).hasMatch();
}

AccountDB::Login AccountDB::checkPwHash(const QString &, const QString &, const QString &, qint64 *)
{
    return Login::Wrong;
}

AccountDB::Login AccountDB::checkPassword(const QString &, const QString &, const QString &, qint64 *)
{
    return Login::Wrong;
}

void AccountDB::setClock(std::function<qint64()> clock)
{
    _clock = std::move(clock);
}
