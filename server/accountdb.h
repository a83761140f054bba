#pragma once

// The household's members and their passwords. The program sends the password's MD5 (32
// lower-case hex) with every request; that text is what is checked, and it is stored only
// through PBKDF2-HMAC-SHA256 with a random salt (see passwordhash.h). Failed logins are counted
// in the database per member name and per address, so the limit holds across processes.
//
// Failures are false with a text for the user in *error; a refused change stores nothing.

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class ServerDB;

struct Member
{
    qint64 id = -1;
    QString name;
    QDateTime created; // UTC
};

class AccountDB
{
public:
    enum class Login { Ok, Wrong, Throttled };

    // Failed logins allowed within the window before further attempts are refused unseen.
    static constexpr int kMaxFailuresPerMember = 5;
    static constexpr int kMaxFailuresPerAddress = 20;
    static constexpr qint64 kFailureWindowSecs = 15 * 60;

    explicit AccountDB(ServerDB &db);

    bool addMember(const QString &name, const QString &password, QString *error);
    bool setPassword(const QString &name, const QString &password, QString *error);
    // The member's diary, check-ins, plans, shares and sessions go with them.
    bool removeMember(const QString &name, QString *error);
    QList<Member> members(); // by name
    std::optional<Member> member(const QString &name);
    std::optional<Member> member(qint64 id);
    // 1..64 characters of letters, digits, "._-@"; nothing else.
    static bool validName(const QString &name);

    // pwhash: the 32 hex digits of the password's MD5, as the program sends them. address: the
    // client's address, for the per-address limit. On Ok, *memberId (may be null) is set.
    Login checkPwHash(const QString &name, const QString &pwhash, const QString &address, qint64 *memberId);
    Login checkPassword(const QString &name, const QString &password, const QString &address,
                        qint64 *memberId);

    // The clock for the failure windows (seconds since the epoch); tests move it on.
    void setClock(std::function<qint64()> clock);

private:
    void recordFailure(const QStringList &keys, qint64 now);
    QString upgradeHash(qint64 id, const QString &pwhash, const QString &stored);

    ServerDB &_db;
    std::function<qint64()> _clock;
};
