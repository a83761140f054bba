#include "server/accountdb.h"

#include "server/passwordhash.h"
#include "server/serverdb.h"
#include "server/serverlog.h"

#include <QHash>
#include <QMessageAuthenticationCode>
#include <QMutex>
#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QSqlQuery>

#include <algorithm>
#include <mutex>

using namespace Qt::StringLiterals;

namespace {

// Credentials that passed the slow check, so that the publish that carries them every time costs
// one look-up: HMAC(process key, name NUL pwhash) -> the stored hash they matched. An entry is
// only believed while the member's stored hash is still that text, so a new password (from this
// process or another) retires it. The key never leaves the process, so the entries cannot be
// tried against offline.
class VerifiedCache
{
public:
    bool contains(const QString &name, const QString &pwhash, const QString &stored)
    {
        std::lock_guard lock(_mutex);
        const auto found = _entries.constFind(key(name, pwhash));
        return found != _entries.cend() && *found == stored;
    }

    void insert(const QString &name, const QString &pwhash, const QString &stored)
    {
        std::lock_guard lock(_mutex);
        if (_entries.size() >= kLimit)
            _entries.clear(); // the household is small; whoever is active comes back at once
        _entries.insert(key(name, pwhash), stored);
    }

private:
    static constexpr qsizetype kLimit = 4096;

    QByteArray key(const QString &name, const QString &pwhash) const
    {
        return QMessageAuthenticationCode::hash(name.toUtf8() + '\0' + pwhash.toLatin1(), _secret,
                                                QCryptographicHash::Sha256);
    }

    QMutex _mutex;
    QHash<QByteArray, QString> _entries;
    const QByteArray _secret = [] {
        QByteArray secret(32, Qt::Uninitialized);
        QRandomGenerator::system()->fillRange(reinterpret_cast<quint32 *>(secret.data()), 8);
        return secret;
    }();
};

VerifiedCache &verifiedCache()
{
    static VerifiedCache cache;
    return cache;
}

// Checked for names that are not members, so that a wrong name costs what a wrong password does.
const QString &decoyHash()
{
    static const QString hash = PasswordHash::make(QByteArrayLiteral("decoy"));
    return hash;
}

QString memberKey(const QString &name)
{
    return u"member:"_s + name;
}

QString addressKey(const QString &address)
{
    return u"address:"_s + address;
}

QString badNameText(const QString &name)
{
    return u"\"%1\" is not a usable member name: 1 to 64 letters, digits and the characters . _ - @"_s.arg(
        name.left(80));
}

std::optional<Member> readMember(QSqlQuery &query)
{
    if (!query.next())
        return std::nullopt;
    Member member;
    member.id = query.value(0).toLongLong();
    member.name = query.value(1).toString();
    member.created = QDateTime::fromSecsSinceEpoch(query.value(2).toLongLong(), Qt::UTC);
    return member;
}

} // namespace

AccountDB::AccountDB(ServerDB &db)
    : _db(db)
    , _clock(&ServerDB::now)
{
}

void AccountDB::setClock(std::function<qint64()> clock)
{
    _clock = std::move(clock);
}

bool AccountDB::validName(const QString &name)
{
    // Letters and digits of ASCII and "._@-", 1 to 64 of them; checked on every login.
    if (name.isEmpty() || name.size() > 64)
        return false;
    return std::all_of(name.begin(), name.end(), [](QChar c) {
        const char16_t u = c.unicode();
        return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9') ||
               u == u'.' || u == u'_' || u == u'@' || u == u'-';
    });
}

bool AccountDB::addMember(const QString &name, const QString &password, QString *error)
{
    if (!validName(name)) {
        *error = badNameText(name);
        return false;
    }
    if (password.isEmpty()) {
        *error = u"the password is empty"_s;
        return false;
    }
    const QString stored = PasswordHash::make(PasswordHash::md5Hex(password));
    return _db.transaction(
        [&](QSqlDatabase &db, QString *workError) {
            QSqlQuery query(db);
            if (!ServerDB::exec(query, u"SELECT 1 FROM members WHERE name = ?"_s, {name}, workError))
                return false;
            if (query.next()) {
                *workError = u"there is already a member called %1"_s.arg(name);
                return false;
            }
            // A name used before starts with no failures counted against it.
            return ServerDB::exec(query, u"DELETE FROM login_failures WHERE key = ?"_s, {memberKey(name)},
                                  workError) &&
                   ServerDB::exec(query, u"INSERT INTO members (name, pw_hash, created) VALUES (?, ?, ?)"_s,
                                  {name, stored, ServerDB::now()}, workError);
        },
        error);
}

bool AccountDB::setPassword(const QString &name, const QString &password, QString *error)
{
    if (password.isEmpty()) {
        *error = u"the password is empty"_s;
        return false;
    }
    const QString stored = PasswordHash::make(PasswordHash::md5Hex(password));
    return _db.transaction(
        [&](QSqlDatabase &db, QString *workError) {
            QSqlQuery query(db);
            if (!ServerDB::exec(query, u"UPDATE members SET pw_hash = ? WHERE name = ?"_s, {stored, name},
                                workError))
                return false;
            if (query.numRowsAffected() != 1) {
                *workError = u"there is no member called %1"_s.arg(name);
                return false;
            }
            // Whoever set a new password has unlocked the account.
            return ServerDB::exec(query, u"DELETE FROM login_failures WHERE key = ?"_s, {memberKey(name)},
                                  workError);
        },
        error);
}

bool AccountDB::removeMember(const QString &name, QString *error)
{
    return _db.transaction(
        [&](QSqlDatabase &db, QString *workError) {
            QSqlQuery query(db);
            // The member's rows in every other table go by ON DELETE CASCADE.
            if (!ServerDB::exec(query, u"DELETE FROM members WHERE name = ?"_s, {name}, workError))
                return false;
            if (query.numRowsAffected() != 1) {
                *workError = u"there is no member called %1"_s.arg(name);
                return false;
            }
            return ServerDB::exec(query, u"DELETE FROM login_failures WHERE key = ?"_s, {memberKey(name)},
                                  workError);
        },
        error);
}

QList<Member> AccountDB::members()
{
    QList<Member> list;
    QSqlQuery query(_db.connection());
    if (ServerDB::exec(query, u"SELECT id, name, created FROM members ORDER BY name"_s)) {
        while (const std::optional<Member> member = readMember(query))
            list.append(*member);
    }
    return list;
}

std::optional<Member> AccountDB::member(const QString &name)
{
    QSqlQuery query(_db.connection());
    if (!ServerDB::exec(query, u"SELECT id, name, created FROM members WHERE name = ?"_s, {name}))
        return std::nullopt;
    return readMember(query);
}

std::optional<Member> AccountDB::member(qint64 id)
{
    QSqlQuery query(_db.connection());
    if (!ServerDB::exec(query, u"SELECT id, name, created FROM members WHERE id = ?"_s, {id}))
        return std::nullopt;
    return readMember(query);
}

AccountDB::Login AccountDB::checkPassword(const QString &name, const QString &password,
                                          const QString &address, qint64 *memberId)
{
    return checkPwHash(name, QString::fromLatin1(PasswordHash::md5Hex(password)), address, memberId);
}

AccountDB::Login AccountDB::checkPwHash(const QString &name, const QString &pwhash, const QString &address,
                                        qint64 *memberId)
{
    const qint64 now = _clock();
    const qint64 windowOpenedAfter = now - kFailureWindowSecs;
    // Names that cannot be members are not counted under their own key: that would let anyone
    // fill the table with junk. Their address still pays.
    const bool nameOk = validName(name);
    const QStringList keys =
        nameOk ? QStringList{memberKey(name), addressKey(address)} : QStringList{addressKey(address)};

    // One statement reads the failure counts and the member: it runs on every publish. The limit
    // is weighed before anything costly (the password's hash), so refused attempts stay cheap.
    bool memberHasFailures = false, throttled = false;
    std::optional<qint64> id;
    QString stored;
    {
        QSqlQuery *query = _db.cached(
            // Two lookups rather than "key IN (?, ?)", for which SQLite builds a temporary table.
            // The member comes first so that PostgreSQL takes each column's type from a value.
            u"SELECT NULL, NULL, NULL, id, pw_hash FROM members WHERE name = ? "
            "UNION ALL SELECT key, failures, window_start, NULL, NULL FROM login_failures WHERE key = ? "
            "UNION ALL SELECT key, failures, window_start, NULL, NULL FROM login_failures WHERE key = ?"_s);
        // A name that cannot be a member is looked up as NULL, which matches none.
        if (!query ||
            !ServerDB::execPrepared(*query, {nameOk ? name : QString(), keys.constFirst(), keys.constLast()}))
            return Login::Wrong; // a store that cannot say is no reason to let anyone in
        while (query->next()) {
            if (query->isNull(0)) {
                id = query->value(3).toLongLong();
                stored = query->value(4).toString();
                continue;
            }
            const QString key = query->value(0).toString();
            const qint64 failures = query->value(1).toLongLong();
            if (query->value(2).toLongLong() <= windowOpenedAfter)
                continue;
            const bool isMember = nameOk && key == keys.constFirst();
            memberHasFailures = memberHasFailures || isMember;
            throttled = throttled || failures >= (isMember ? kMaxFailuresPerMember : kMaxFailuresPerAddress);
        }
        query->finish();
    }
    if (throttled)
        return Login::Throttled;

    const QString lowered = pwhash.toLower();
    bool ok = false;
    if (!id || !PasswordHash::isMd5Hex(lowered)) {
        PasswordHash::verify(lowered.toLatin1(), decoyHash());
    } else if (verifiedCache().contains(name, lowered, stored)) {
        ok = true;
    } else if (PasswordHash::verify(lowered.toLatin1(), stored)) {
        ok = true;
        stored = upgradeHash(*id, lowered, stored);
        verifiedCache().insert(name, lowered, stored);
    }

    if (!ok) {
        recordFailure(keys, now);
        return Login::Wrong;
    }
    if (memberHasFailures) {
        QString error;
        _db.transaction(
            [&](QSqlDatabase &db, QString *workError) {
                QSqlQuery query(db);
                return ServerDB::exec(query, u"DELETE FROM login_failures WHERE key = ?"_s,
                                      {keys.constFirst()}, workError);
            },
            &error);
    }
    if (memberId)
        *memberId = *id;
    return Login::Ok;
}

void AccountDB::recordFailure(const QStringList &keys, qint64 now)
{
    const qint64 windowOpenedAfter = now - kFailureWindowSecs;
    QString error;
    const bool ok = _db.transaction(
        [&](QSqlDatabase &db, QString *workError) {
            QSqlQuery query(db);
            // A window that has run out starts again at this failure.
            const QString count =
                u"INSERT INTO login_failures (key, failures, window_start) VALUES (?, 1, ?) "
                "ON CONFLICT (key) DO UPDATE SET "
                "failures = CASE WHEN login_failures.window_start <= ? THEN 1 "
                "ELSE login_failures.failures + 1 END, "
                "window_start = CASE WHEN login_failures.window_start <= ? THEN excluded.window_start "
                "ELSE login_failures.window_start END"_s;
            for (const QString &key : keys) {
                if (!ServerDB::exec(query, count, {key, now, windowOpenedAfter, windowOpenedAfter},
                                    workError))
                    return false;
            }
            // Old windows are of no more use.
            return ServerDB::exec(query, u"DELETE FROM login_failures WHERE window_start <= ?"_s,
                                  {windowOpenedAfter}, workError);
        },
        &error);
    if (!ok)
        qCWarning(lcServer).noquote() << "Cannot count a failed login:" << error;
}

QString AccountDB::upgradeHash(qint64 id, const QString &pwhash, const QString &stored)
{
    if (PasswordHash::iterations(stored) >= PasswordHash::kIterations)
        return stored;
    // Made with an older, cheaper count: the password is at hand now, so store it at today's.
    const QString upgraded = PasswordHash::make(pwhash.toLatin1());
    QString error;
    const bool ok = _db.transaction(
        [&](QSqlDatabase &db, QString *workError) {
            QSqlQuery query(db);
            return ServerDB::exec(query, u"UPDATE members SET pw_hash = ? WHERE id = ? AND pw_hash = ?"_s,
                                  {upgraded, id, stored}, workError) &&
                   query.numRowsAffected() == 1;
        },
        &error);
    return ok ? upgraded : stored;
}
