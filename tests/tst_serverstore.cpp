// The server's stores against real databases: every row runs on an SQLite file and on a
// PostgreSQL cluster started for the run.

#include "pgcluster.h"
#include "server/accountdb.h"
#include "server/mealplandb.h"
#include "server/passwordhash.h"
#include "server/serverdb.h"
#include "server/serverdiarydb.h"
#include "server/serverschema.h"
#include "testsupport.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QThread>

#include <atomic>
#include <memory>

using Login = AccountDB::Login;

Q_DECLARE_METATYPE(DiaryUpdate)
Q_DECLARE_METATYPE(AccountDB::Login)

namespace {

const QDate kDay(2026, 3, 1);

QString md5(const QString &password)
{
    return QString::fromLatin1(QCryptographicHash::hash(password.toUtf8(), QCryptographicHash::Md5).toHex());
}

PublishedFood food(char meal, const QString &desc, double qty, std::optional<double> calories)
{
    PublishedFood item;
    item.meal = QLatin1Char(meal);
    item.desc = desc;
    item.serving = QStringLiteral("1 serving");
    item.qty = qty;
    item.values[0] = calories;
    return item;
}

DiaryUpdate dayUpdate(const QDate &date, const QList<PublishedFood> &foods,
                      const QList<PublishedExercise> &exercises = {})
{
    DiaryUpdate update;
    update.days.append({date, foods, exercises});
    return update;
}

DiaryUpdate operator+(DiaryUpdate a, const DiaryUpdate &b)
{
    a.days += b.days;
    a.checkins += b.checkins;
    a.waters += b.waters;
    return a;
}

DiaryUpdate checkin(const QDate &date, std::optional<double> weight, const QString &note = {})
{
    DiaryUpdate update;
    PublishedCheckin item;
    item.date = date;
    item.weight = weight;
    item.note = note;
    update.checkins.append(item);
    return update;
}

DiaryUpdate water(const QDate &date, int cups)
{
    DiaryUpdate update;
    update.waters.append({date, cups});
    return update;
}

// The day as one line: entries in their order, then water and check-in.
QString describe(const ServerDiaryDB::Day &day)
{
    QStringList parts;
    for (const PublishedFood &item : day.foods) {
        parts.append(QStringLiteral("%1:%2 %3 %4")
                         .arg(item.meal)
                         .arg(item.desc)
                         .arg(item.qty)
                         .arg(item.values[0] ? QString::number(*item.values[0]) : QStringLiteral("?")));
    }
    for (const PublishedExercise &item : day.exercises)
        parts.append(QStringLiteral("E:%1 %2 %3").arg(item.desc).arg(item.duration).arg(item.calories));
    if (day.cups)
        parts.append(QStringLiteral("water %1").arg(*day.cups));
    if (day.checkin) {
        parts.append(
            QStringLiteral("weight %1 \"%2\"")
                .arg(day.checkin->weight ? QString::number(*day.checkin->weight) : QStringLiteral("?"),
                     day.checkin->note));
    }
    return parts.join(QStringLiteral(", "));
}

// The first column of every row, as text.
QStringList column(ServerDB &db, const QString &sql, const QVariantList &values = {})
{
    QStringList list;
    QSqlQuery query(db.connection());
    if (ServerDB::exec(query, sql, values)) {
        while (query.next())
            list.append(query.value(0).toString());
    }
    return list;
}

} // namespace

class TestServerStore : public QObject
{
    Q_OBJECT

private:
    // Adds the row once per back end, with the back end as its first column.
    template <typename... Values> static void addRows(const char *name, const Values &...values)
    {
        for (const char *backend : {"sqlite", "postgresql"})
            ((QTest::addRow("%s: %s", backend, name) << QString::fromLatin1(backend)) << ... << values);
    }
    static void backendColumn() { QTest::addColumn<QString>("backend"); }
    static void backendsOnly()
    {
        backendColumn();
        addRows("store");
    }

    // A fresh, opened store of the row's back end: _db, _url.
    bool openStore(const QString &backend)
    {
        if (backend == QLatin1String("sqlite")) {
            _url = QStringLiteral("sqlite:%1/store%2.sqlite").arg(_home->path()).arg(++_stores);
        } else {
            _url = _pg.emptyDatabase(&_error);
            if (_url.isEmpty())
                return false;
        }
        _db = std::make_unique<ServerDB>(_url);
        return _db->open(&_error);
    }

    // A second store on the same database, as another process would have it.
    std::unique_ptr<ServerDB> reopen()
    {
        auto other = std::make_unique<ServerDB>(_url);
        return other->open(&_error) ? std::move(other) : nullptr;
    }

    qint64 addMember(const QString &name, const QString &password = QStringLiteral("secret"))
    {
        AccountDB accounts(*_db);
        return accounts.addMember(name, password, &_error) ? accounts.member(name)->id : -1;
    }

    std::unique_ptr<TemporaryHome> _home;
    PgCluster _pg;
    QString _pgUnavailable;
    std::unique_ptr<ServerDB> _db;
    QString _url, _error;
    int _stores = 0;

private slots:
    void initTestCase();
    void init()
    {
        // A connection dropped while still in use would be a connection leaked per thread.
        QTest::failOnWarning(QRegularExpression(QStringLiteral("still in use")));
    }
    void cleanup() { _db.reset(); }
    void cleanupTestCase();

    void urls_data();
    void urls();
    void migrations_data() { backendsOnly(); }
    void migrations();
    void sameSchemaOnBoth();
    void addMember_data();
    void addMember();
    void login_data();
    void login();
    void throttling_data();
    void throttling();
    void passwordChange_data() { backendsOnly(); }
    void passwordChange();
    void apply_data();
    void apply();
    void removeMember_data() { backendsOnly(); }
    void removeMember();
    void mealPlan_data() { backendsOnly(); }
    void mealPlan();
    void concurrentPublishes_data() { backendsOnly(); }
    void concurrentPublishes();
};

#define OPEN_STORE()                                                                                         \
    QFETCH(QString, backend);                                                                                \
    if (backend == QLatin1String("postgresql") && !_pgUnavailable.isEmpty())                                 \
        QSKIP(qPrintable(_pgUnavailable));                                                                   \
    QVERIFY2(openStore(backend), qPrintable(_error))

void TestServerStore::initTestCase()
{
    _home = std::make_unique<TemporaryHome>();
    QVERIFY(_home->isValid());
    QElapsedTimer timer;
    timer.start();
    if (PgCluster::available(&_pgUnavailable)) {
        QVERIFY2(_pg.start(&_error), qPrintable(_error));
        qInfo("PostgreSQL test cluster up in %lld ms", timer.elapsed());
    }
}

void TestServerStore::cleanupTestCase()
{
    _pg.stop();
    _home.reset();
}

void TestServerStore::urls_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("opens");
    QTest::addColumn<QString>("problem");
    const QString dir = _home->path();
    QTest::newRow("sqlite: and a path") << QStringLiteral("sqlite:%1/a.sqlite").arg(dir) << true << QString();
    QTest::newRow("sqlite:// and a path")
        << QStringLiteral("sqlite://%1/b.sqlite").arg(dir) << true << QString();
    QTest::newRow("plain path, new folder") << dir + QStringLiteral("/new/c.sqlite") << true << QString();
    QTest::newRow("sqlite with a host")
        << QStringLiteral("sqlite://host/d.sqlite") << false << QStringLiteral("not a host");
    QTest::newRow("other kind") << QStringLiteral("mysql://u@host/db") << false
                                << QStringLiteral("unknown kind of database");
    QTest::newRow("no database name")
        << QStringLiteral("postgresql://u@host") << false << QStringLiteral("names no database");
    QTest::newRow("unknown setting") << QStringLiteral("postgresql://u@host/db?colour=red") << false
                                     << QStringLiteral("unknown setting");
    if (_pg.isRunning())
        QTest::newRow("no such database")
            << _pg.url(QStringLiteral("absent")) << false << QStringLiteral("absent");
}

void TestServerStore::urls()
{
    QFETCH(QString, url);
    QFETCH(bool, opens);
    QFETCH(QString, problem);
    ServerDB db(url);
    QString error;
    QCOMPARE(db.open(&error), opens);
    QVERIFY2(error.contains(problem), qPrintable(error));
    QCOMPARE(db.kind(), url.startsWith(QLatin1String("postgresql")) ? ServerDB::Kind::PostgreSQL
                                                                    : ServerDB::Kind::SQLite);
}

void TestServerStore::migrations()
{
    OPEN_STORE();
    QCOMPARE(_db->schemaVersion(), ServerSchema::latestVersion());
    QVERIFY(addMember(QStringLiteral("ann")) > 0);
    QVERIFY2(_db->open(&_error), qPrintable(_error));
    std::unique_ptr<ServerDB> other = reopen();
    QVERIFY2(other, qPrintable(_error));
    QCOMPARE(other->schemaVersion(), ServerSchema::latestVersion());
    QCOMPARE(column(*other, QStringLiteral("SELECT COUNT(*) FROM schema_migrations")),
             QStringList{QString::number(ServerSchema::latestVersion())});
    QCOMPARE(column(*other, QStringLiteral("SELECT name FROM members")), QStringList{QStringLiteral("ann")});

    // A store a newer server has moved on is left alone.
    QSqlQuery query(other->connection());
    QVERIFY(ServerDB::exec(query,
                           QStringLiteral("INSERT INTO schema_migrations (version, applied) VALUES (?, 0)"),
                           {ServerSchema::latestVersion() + 1}));
    QVERIFY(!reopen());
    QVERIFY2(_error.contains(QStringLiteral("newer")), qPrintable(_error));
}

void TestServerStore::sameSchemaOnBoth()
{
    if (!_pgUnavailable.isEmpty())
        QSKIP(qPrintable(_pgUnavailable));
    QVERIFY2(openStore(QStringLiteral("sqlite")), qPrintable(_error));
    std::unique_ptr<ServerDB> sqlite = std::move(_db);
    QVERIFY2(openStore(QStringLiteral("postgresql")), qPrintable(_error));
    const auto describeSchema = [](ServerDB &db) {
        QStringList tables = db.connection().tables();
        tables.removeAll(QStringLiteral("sqlite_sequence"));
        tables.sort();
        QStringList lines;
        for (const QString &table : std::as_const(tables)) {
            const QSqlRecord record = db.connection().record(table);
            QStringList fields;
            for (int i = 0; i < record.count(); ++i)
                fields.append(record.fieldName(i));
            lines.append(table + QLatin1Char('(') + fields.join(QLatin1Char(',')) + QLatin1Char(')'));
        }
        return lines;
    };
    const QStringList expected = describeSchema(*sqlite);
    QVERIFY(expected.contains(QStringLiteral("members(id,name,pw_hash,created)")));
    QCOMPARE(describeSchema(*_db), expected);
}

void TestServerStore::addMember_data()
{
    backendColumn();
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("password");
    QTest::addColumn<bool>("added");
    addRows("new", QStringLiteral("bob.smith@home"), QStringLiteral("pw"), true);
    addRows("64 characters", QString(64, QLatin1Char('b')), QStringLiteral("pw"), true);
    addRows("taken", QStringLiteral("ann"), QStringLiteral("pw"), false);
    addRows("empty name", QString(), QStringLiteral("pw"), false);
    addRows("65 characters", QString(65, QLatin1Char('b')), QStringLiteral("pw"), false);
    addRows("space", QStringLiteral("ann smith"), QStringLiteral("pw"), false);
    addRows("statement in the name", QStringLiteral("x'); DROP TABLE members; --"), QStringLiteral("pw"),
            false);
    addRows("empty password", QStringLiteral("carl"), QString(), false);
}

void TestServerStore::addMember()
{
    QFETCH(QString, name);
    QFETCH(QString, password);
    QFETCH(bool, added);
    OPEN_STORE();
    QVERIFY(addMember(QStringLiteral("ann")) > 0);
    AccountDB accounts(*_db);
    QString error;
    QCOMPARE(accounts.addMember(name, password, &error), added);
    QCOMPARE(error.isEmpty(), added);

    QStringList expected{QStringLiteral("ann")};
    if (added)
        expected.append(name);
    expected.sort();
    QStringList names;
    for (const Member &member : accounts.members())
        names.append(member.name);
    QCOMPARE(names, expected);
    qint64 id = -1;
    QCOMPARE(accounts.checkPassword(name, password, QStringLiteral("::1"), &id),
             added ? Login::Ok : Login::Wrong);
    if (added)
        QCOMPARE(id, accounts.member(name)->id);
}

void TestServerStore::login_data()
{
    backendColumn();
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("pwhash");
    QTest::addColumn<Login>("expected");
    addRows("right", QStringLiteral("ann"), md5(QStringLiteral("s3cret")), Login::Ok);
    addRows("right, in capitals", QStringLiteral("ann"), md5(QStringLiteral("s3cret")).toUpper(), Login::Ok);
    addRows("wrong password", QStringLiteral("ann"), md5(QStringLiteral("secret")), Login::Wrong);
    addRows("password itself", QStringLiteral("ann"), QStringLiteral("s3cret"), Login::Wrong);
    addRows("name in another case", QStringLiteral("Ann"), md5(QStringLiteral("s3cret")), Login::Wrong);
    addRows("no such member", QStringLiteral("zoe"), md5(QStringLiteral("s3cret")), Login::Wrong);
}

void TestServerStore::login()
{
    QFETCH(QString, name);
    QFETCH(QString, pwhash);
    QFETCH(Login, expected);
    OPEN_STORE();
    const qint64 ann = addMember(QStringLiteral("ann"), QStringLiteral("s3cret"));
    AccountDB accounts(*_db);
    // Twice: the second answer comes from the verified-credential memory.
    for (int round = 0; round < 2; ++round) {
        qint64 id = -1;
        QCOMPARE(accounts.checkPwHash(name, pwhash, QStringLiteral("192.0.2.1"), &id), expected);
        QCOMPARE(id, expected == Login::Ok ? ann : -1);
    }
}

void TestServerStore::throttling_data()
{
    backendColumn();
    QTest::addColumn<int>("memberFailures");  // ann's, each from its own address
    QTest::addColumn<int>("addressFailures"); // from 192.0.2.9, each for a name that is no member
    QTest::addColumn<QString>("from");
    QTest::addColumn<Login>("expected");
    const QString busy = QStringLiteral("192.0.2.9"), other = QStringLiteral("198.51.100.1");
    addRows("member at the limit", AccountDB::kMaxFailuresPerMember, 0, other, Login::Throttled);
    addRows("member below the limit", AccountDB::kMaxFailuresPerMember - 1, 0, other, Login::Ok);
    addRows("address at the limit", 0, AccountDB::kMaxFailuresPerAddress, busy, Login::Throttled);
    addRows("address below the limit", 0, AccountDB::kMaxFailuresPerAddress - 1, busy, Login::Ok);
    addRows("another address", 0, AccountDB::kMaxFailuresPerAddress, other, Login::Ok);
}

void TestServerStore::throttling()
{
    QFETCH(int, memberFailures);
    QFETCH(int, addressFailures);
    QFETCH(QString, from);
    QFETCH(Login, expected);
    OPEN_STORE();
    addMember(QStringLiteral("ann"));
    const QString right = md5(QStringLiteral("secret")), wrong = md5(QStringLiteral("guess"));
    qint64 now = 1770000000;
    AccountDB accounts(*_db);
    accounts.setClock([&now] { return now; });
    for (int i = 0; i < memberFailures; ++i)
        accounts.checkPwHash(QStringLiteral("ann"), wrong, QStringLiteral("203.0.113.%1").arg(i), nullptr);
    for (int i = 0; i < addressFailures; ++i)
        accounts.checkPwHash(QStringLiteral("nobody%1").arg(i), wrong, QStringLiteral("192.0.2.9"), nullptr);

    // Another process on the same database sees the same counts.
    std::unique_ptr<ServerDB> otherStore = reopen();
    QVERIFY(otherStore);
    AccountDB otherAccounts(*otherStore);
    otherAccounts.setClock([&now] { return now; });
    QCOMPARE(otherAccounts.checkPwHash(QStringLiteral("ann"), right, from, nullptr), expected);
    QCOMPARE(accounts.checkPwHash(QStringLiteral("ann"), right, from, nullptr), expected);

    // The window ends; a success then clears the member's count.
    now += AccountDB::kFailureWindowSecs;
    QCOMPARE(accounts.checkPwHash(QStringLiteral("ann"), right, from, nullptr), Login::Ok);
    for (int i = 0; i < AccountDB::kMaxFailuresPerMember - 1; ++i)
        accounts.checkPwHash(QStringLiteral("ann"), wrong, QStringLiteral("203.0.113.%1").arg(i), nullptr);
    QCOMPARE(accounts.checkPwHash(QStringLiteral("ann"), right, from, nullptr), Login::Ok);
    for (int i = 0; i < AccountDB::kMaxFailuresPerMember - 1; ++i)
        accounts.checkPwHash(QStringLiteral("ann"), wrong, QStringLiteral("203.0.113.%1").arg(i), nullptr);
    QCOMPARE(accounts.checkPwHash(QStringLiteral("ann"), right, from, nullptr), Login::Ok);
}

void TestServerStore::passwordChange()
{
    OPEN_STORE();
    const qint64 ann = addMember(QStringLiteral("ann"), QStringLiteral("old"));
    AccountDB accounts(*_db);
    const QString address = QStringLiteral("::1");
    QCOMPARE(accounts.checkPassword(QStringLiteral("ann"), QStringLiteral("old"), address, nullptr),
             Login::Ok);

    // Changed by another process: what this one remembers no longer counts.
    std::unique_ptr<ServerDB> other = reopen();
    QVERIFY(other);
    QVERIFY2(AccountDB(*other).setPassword(QStringLiteral("ann"), QStringLiteral("new"), &_error),
             qPrintable(_error));
    QCOMPARE(accounts.checkPassword(QStringLiteral("ann"), QStringLiteral("old"), address, nullptr),
             Login::Wrong);
    QCOMPARE(accounts.checkPassword(QStringLiteral("ann"), QStringLiteral("new"), address, nullptr),
             Login::Ok);
    QVERIFY(!accounts.setPassword(QStringLiteral("zoe"), QStringLiteral("new"), &_error));

    const QString digest = md5(QStringLiteral("new"));
    const QString storedSql = QStringLiteral("SELECT pw_hash FROM members WHERE id = ?");
    const QString stored = column(*_db, storedSql, {ann}).value(0);
    QVERIFY(stored.startsWith(QStringLiteral("pbkdf2-sha256$%1$").arg(PasswordHash::kIterations)));
    for (const QByteArray &form :
         {digest.toLatin1(), QByteArray::fromHex(digest.toLatin1()).toBase64(), digest.toLatin1().toBase64()})
        QVERIFY(!stored.contains(QString::fromLatin1(form), Qt::CaseInsensitive));

    // A hash from the days of a smaller work factor still opens, and is then made at today's.
    QSqlQuery query(_db->connection());
    QVERIFY(ServerDB::exec(query, QStringLiteral("UPDATE members SET pw_hash = ? WHERE id = ?"),
                           {PasswordHash::make(digest.toLatin1(), PasswordHash::kMinIterations), ann}));
    QCOMPARE(accounts.checkPwHash(QStringLiteral("ann"), digest, address, nullptr), Login::Ok);
    QCOMPARE(PasswordHash::iterations(column(*_db, storedSql, {ann}).value(0)), PasswordHash::kIterations);
}

void TestServerStore::apply_data()
{
    backendColumn();
    QTest::addColumn<DiaryUpdate>("first");
    QTest::addColumn<DiaryUpdate>("second");
    QTest::addColumn<bool>("trap"); // the database refuses any water of 99 cups
    QTest::addColumn<bool>("applied");
    QTest::addColumn<QStringList>("days"); // kDay and the day after, as describe() puts them

    const QDate next = kDay.addDays(1);
    const DiaryUpdate both =
        dayUpdate(kDay, {food('B', QStringLiteral("Toast"), 2, 160)}, {{30, QStringLiteral("Walk"), 120}}) +
        dayUpdate(next, {food('L', QStringLiteral("Soup"), 1.1, std::nullopt)}) +
        checkin(kDay, 61.5, QStringLiteral("fine")) + water(kDay, 3);
    const QString bothFirst = QStringLiteral("B:Toast 2 160, E:Walk 30 120, water 3, weight 61.5 \"fine\"");
    const QString bothNext = QStringLiteral("L:Soup 1.1 ?");

    addRows("day replaced", both, dayUpdate(kDay, {food('D', QStringLiteral("Pasta"), 1, 480)}), false, true,
            QStringList{QStringLiteral("D:Pasta 1 480, water 3, weight 61.5 \"fine\""), bothNext});
    addRows("meal order", DiaryUpdate(),
            dayUpdate(kDay,
                      {food('S', QStringLiteral("Tea"), 1, 2), food('B', QStringLiteral("Egg"), 1, 80),
                       food('D', QStringLiteral("Fish"), 1, 200), food('B', QStringLiteral("Roll"), 1, 150)}),
            false, true,
            QStringList{QStringLiteral("B:Egg 1 80, B:Roll 1 150, D:Fish 1 200, S:Tea 1 2"), QString()});
    addRows("day cleared", both, dayUpdate(kDay, {}), false, true,
            QStringList{QStringLiteral("water 3, weight 61.5 \"fine\""), bothNext});
    addRows("check-in deleted", both, checkin(kDay, std::nullopt), false, true,
            QStringList{QStringLiteral("B:Toast 2 160, E:Walk 30 120, water 3"), bothNext});
    addRows(
        "check-in replaced", both, checkin(kDay, 60.25), false, true,
        QStringList{QStringLiteral("B:Toast 2 160, E:Walk 30 120, water 3, weight 60.25 \"\""), bothNext});
    addRows("water set", both, water(kDay, 5) + water(next, 0), false, true,
            QStringList{QStringLiteral("B:Toast 2 160, E:Walk 30 120, water 5, weight 61.5 \"fine\""),
                        bothNext + QStringLiteral(", water 0")});
    addRows("meal letter refused", both,
            dayUpdate(kDay, {}) + dayUpdate(next, {food('X', QStringLiteral("Cake"), 1, 300)}), false, false,
            QStringList{bothFirst, bothNext});
    addRows("database fails mid-publish", both,
            dayUpdate(kDay, {}) + checkin(kDay, std::nullopt) + water(next, 2) + water(kDay, 99), true, false,
            QStringList{bothFirst, bothNext});
}

void TestServerStore::apply()
{
    QFETCH(DiaryUpdate, first);
    QFETCH(DiaryUpdate, second);
    QFETCH(bool, trap);
    QFETCH(bool, applied);
    QFETCH(QStringList, days);
    OPEN_STORE();
    const qint64 ann = addMember(QStringLiteral("ann"));
    ServerDiaryDB diary(*_db);
    QVERIFY2(diary.apply(ann, first, &_error), qPrintable(_error));
    const std::optional<QDateTime> published = diary.lastPublish(ann);
    QVERIFY(published);
    QVERIFY(qAbs(published->secsTo(QDateTime::currentDateTimeUtc())) < 60);
    // Back-dated, so that a refused publish that touched it would show.
    const QDateTime longAgo = QDateTime::fromSecsSinceEpoch(1000000000, Qt::UTC);
    QSqlQuery query(_db->connection());
    QVERIFY(ServerDB::exec(query, QStringLiteral("UPDATE publishes SET last_publish = ?"),
                           {longAgo.toSecsSinceEpoch()}));

    if (trap) {
        const QStringList statements =
            _db->kind() == ServerDB::Kind::SQLite
                ? QStringList{QStringLiteral("CREATE TRIGGER trap BEFORE INSERT ON waters WHEN NEW.cups = 99 "
                                             "BEGIN SELECT RAISE(ABORT, 'no such cup'); END")}
                : QStringList{QStringLiteral("CREATE FUNCTION trap() RETURNS trigger AS $$ BEGIN "
                                             "IF NEW.cups = 99 THEN RAISE EXCEPTION 'no such cup'; END IF; "
                                             "RETURN NEW; END $$ LANGUAGE plpgsql"),
                              QStringLiteral("CREATE TRIGGER trap BEFORE INSERT ON waters FOR EACH ROW "
                                             "EXECUTE FUNCTION trap()")};
        for (const QString &statement : statements)
            QVERIFY2(query.exec(statement), qPrintable(query.lastError().text()));
    }
    QString error;
    QCOMPARE(diary.apply(ann, second, &error), applied);
    QCOMPARE(error.isEmpty(), applied);
    QCOMPARE((QStringList{describe(diary.day(ann, kDay)), describe(diary.day(ann, kDay.addDays(1)))}), days);
    QCOMPARE(diary.lastPublish(ann) == longAgo, !applied);

    QList<QDate> logged;
    for (int i = 0; i < 2; ++i) {
        if (!days.at(i).isEmpty())
            logged.append(kDay.addDays(i));
    }
    QCOMPARE(diary.loggedDays(ann, kDay.addDays(-1), kDay.addDays(5)), logged);
}

void TestServerStore::removeMember()
{
    OPEN_STORE();
    const qint64 ann = addMember(QStringLiteral("ann")), bob = addMember(QStringLiteral("bob"));
    const DiaryUpdate update =
        dayUpdate(kDay, {food('B', QStringLiteral("Toast"), 1, 80)}, {{10, QStringLiteral("Run"), 100}}) +
        checkin(kDay, 70) + water(kDay, 2);
    ServerDiaryDB diary(*_db);
    MealPlanDB plans(*_db);
    PlannedFood planned{
        -1, kDay, QLatin1Char('L'), QStringLiteral("Salad"), QStringLiteral("bowl"), 1, 90, 8, 5, 3, 2};
    for (const qint64 member : {ann, bob}) {
        QVERIFY2(diary.apply(member, update, &_error), qPrintable(_error));
        QVERIFY(plans.add(member, planned, &_error) > 0);
    }
    QSqlQuery query(_db->connection());
    QVERIFY(ServerDB::exec(query,
                           QStringLiteral("INSERT INTO shares (owner_id, viewer_id) VALUES (?, ?), (?, ?)"),
                           {ann, bob, bob, ann}));

    AccountDB accounts(*_db);
    QVERIFY2(accounts.removeMember(QStringLiteral("ann"), &_error), qPrintable(_error));
    QVERIFY(!accounts.removeMember(QStringLiteral("ann"), &_error));
    for (const char *table :
         {"diary_foods", "diary_exercises", "checkins", "waters", "meal_plans", "publishes"}) {
        const QString count = QStringLiteral("SELECT member_id FROM %1 ORDER BY 1").arg(QLatin1String(table));
        QCOMPARE(column(*_db, count), QStringList{QString::number(bob)});
    }
    QCOMPARE(column(*_db, QStringLiteral("SELECT COUNT(*) FROM shares")), QStringList{QStringLiteral("0")});
    QCOMPARE(describe(diary.day(bob, kDay)),
             QStringLiteral("B:Toast 1 80, E:Run 10 100, water 2, weight 70 \"\""));

    // The name is free again, and the newcomer inherits nothing.
    const qint64 newAnn = addMember(QStringLiteral("ann"));
    QVERIFY(newAnn > 0 && newAnn != ann);
    QCOMPARE(describe(diary.day(newAnn, kDay)), QString());
}

void TestServerStore::mealPlan()
{
    OPEN_STORE();
    const qint64 ann = addMember(QStringLiteral("ann")), bob = addMember(QStringLiteral("bob"));
    MealPlanDB plans(*_db);
    const auto plan = [&](qint64 member, const QDate &date, char meal, const QString &name, double qty = 1) {
        return plans.add(member,
                         {-1, date, QLatin1Char(meal), name, QStringLiteral("cup"), qty, 100, 10, 2, 1, 5},
                         &_error);
    };
    const qint64 dinner = plan(ann, kDay, 'D', QStringLiteral("Stew"), 1.5);
    QVERIFY(dinner > 0);
    QVERIFY(plan(ann, kDay.addDays(1), 'B', QStringLiteral("Oats")) > 0);
    QVERIFY(plan(ann, kDay, 'B', QStringLiteral("Egg")) > 0);
    QVERIFY(plan(bob, kDay, 'L', QStringLiteral("Soup")) > 0);
    QVERIFY(plan(ann, kDay.addDays(9), 'S', QStringLiteral("Nuts")) > 0);

    // Refused: no stored byte changes.
    QCOMPARE(plan(ann, kDay, 'X', QStringLiteral("Cake")), -1);
    QCOMPARE(plan(ann, QDate(), 'B', QStringLiteral("Cake")), -1);
    QCOMPARE(plan(ann, kDay, 'B', QStringLiteral("Cake"), qQNaN()), -1);
    QCOMPARE(plan(ann, kDay, 'B', QString()), -1);

    const auto names = [&](qint64 member) {
        QStringList list;
        for (const PlannedFood &item : plans.planned(member, kDay, kDay.addDays(1)))
            list.append(QStringLiteral("%1 %2 %3 %4")
                            .arg(item.date.toString(Qt::ISODate), item.meal, item.foodName)
                            .arg(item.qty));
        return list;
    };
    QCOMPARE(names(ann),
             (QStringList{QStringLiteral("2026-03-01 B Egg 1"), QStringLiteral("2026-03-01 D Stew 1.5"),
                          QStringLiteral("2026-03-02 B Oats 1")}));
    QVERIFY(!plans.remove(bob, dinner));
    QVERIFY(plans.remove(ann, dinner));
    QVERIFY(!plans.remove(ann, dinner));
    QCOMPARE(names(ann),
             (QStringList{QStringLiteral("2026-03-01 B Egg 1"), QStringLiteral("2026-03-02 B Oats 1")}));
    QCOMPARE(names(bob), QStringList{QStringLiteral("2026-03-01 L Soup 1")});
}

void TestServerStore::concurrentPublishes()
{
    OPEN_STORE();
    const QList<qint64> members{addMember(QStringLiteral("ann")), addMember(QStringLiteral("bob"))};
    constexpr int kThreads = 4, kPublishes = 12;
    std::atomic<int> failures{0};
    QList<QThread *> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.append(QThread::create([&, t] {
            ServerDiaryDB diary(*_db);
            for (int i = 0; i < kPublishes; ++i) {
                const qint64 member = members.at((t + i) % 2);
                const QList<PublishedFood> foods{food('B', QStringLiteral("T%1").arg(t), 1, 1),
                                                 food('L', QStringLiteral("T%1").arg(t), 1, 2),
                                                 food('D', QStringLiteral("T%1").arg(t), 1, 3)};
                // Its own day, and a day every thread replaces at once.
                const DiaryUpdate update = dayUpdate(kDay.addDays(1 + t * kPublishes + i), foods) +
                                           dayUpdate(kDay, foods) + water(kDay, t);
                QString error;
                if (!diary.apply(member, update, &error)) {
                    qWarning("publish failed: %s", qPrintable(error));
                    ++failures;
                }
            }
        }));
        threads.last()->start();
    }
    for (QThread *thread : std::as_const(threads)) {
        QVERIFY(thread->wait(120000));
        delete thread;
    }
    QCOMPARE(failures.load(), 0);
    ServerDiaryDB diary(*_db);
    for (const qint64 member : members) {
        const QList<QDate> days = diary.loggedDays(member, kDay, kDay.addDays(kThreads * kPublishes));
        QCOMPARE(days.size(), 1 + kThreads * kPublishes / 2);
        for (const QDate &date : days)
            QCOMPARE(diary.day(member, date).foods.size(), 3); // never two publishes mixed in one day
    }
}

QTEST_GUILESS_MAIN(TestServerStore)
#include "tst_serverstore.moc"
