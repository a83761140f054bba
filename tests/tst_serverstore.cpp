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
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QThread>

#include <atomic>
#include <bit>
#include <memory>

using Login = AccountDB::Login;
using namespace Qt::StringLiterals;

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
    return {QLatin1Char(meal), qty, desc, u"1 serving"_s, {calories}};
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
    update.checkins.append({date, weight, {}, {}, {}, {}, note});
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
        parts.append(u"%1:%2 %3 %4"_s.arg(item.meal).arg(item.desc).arg(item.qty).arg(
            item.values[0] ? QString::number(*item.values[0]) : u"?"_s));
    }
    for (const PublishedExercise &item : day.exercises)
        parts.append(u"E:%1 %2 %3"_s.arg(item.desc).arg(item.duration).arg(item.calories));
    if (day.cups)
        parts.append(u"water %1"_s.arg(*day.cups));
    if (day.checkin) {
        parts.append(u"weight %1 \"%2\""_s.arg(
            day.checkin->weight ? QString::number(*day.checkin->weight) : u"?"_s, day.checkin->note));
    }
    return parts.join(u", "_s);
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

    // A fresh, opened store of the row's back end: _db, _url. Unopened, its database is empty.
    bool openStore(const QString &backend, bool open = true)
    {
        if (backend == QLatin1String("sqlite")) {
            _url = u"sqlite:%1/store%2.sqlite"_s.arg(_home->path()).arg(++_stores);
        } else {
            _url = _pg.emptyDatabase(&_error);
            if (_url.isEmpty())
                return false;
        }
        _db = std::make_unique<ServerDB>(_url);
        return !open || _db->open(&_error);
    }

    // A second store on the same database, as another process would have it.
    std::unique_ptr<ServerDB> reopen()
    {
        auto other = std::make_unique<ServerDB>(_url);
        return other->open(&_error) ? std::move(other) : nullptr;
    }

    qint64 addMember(const QString &name, const QString &password = u"secret"_s)
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
        QTest::failOnWarning(QRegularExpression(u"still in use"_s));
    }
    void cleanup() { _db.reset(); }
    void cleanupTestCase();

    void urls_data();
    void urls();
    void migrations_data() { backendsOnly(); }
    void migrations();
    void firstSchemaCarriedOver_data() { backendsOnly(); }
    void firstSchemaCarriedOver();
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
    void numbersKeptExactly_data() { backendsOnly(); }
    void numbersKeptExactly();
    void removeMember_data() { backendsOnly(); }
    void removeMember();
    void mealPlan_data() { backendsOnly(); }
    void mealPlan();
    void concurrentPublishes_data() { backendsOnly(); }
    void concurrentPublishes();
    void serverRestartsUnderneath();
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
    QTest::newRow("sqlite: and a path") << u"sqlite:%1/a.sqlite"_s.arg(dir) << true << QString();
    QTest::newRow("sqlite:// and a path") << u"sqlite://%1/b.sqlite"_s.arg(dir) << true << QString();
    QTest::newRow("plain path, new folder") << dir + u"/new/c.sqlite"_s << true << QString();
    QTest::newRow("sqlite with a host") << u"sqlite://host/d.sqlite"_s << false << u"not a host"_s;
    QTest::newRow("other kind") << u"mysql://u@host/db"_s << false << u"unknown kind of database"_s;
    QTest::newRow("no database name") << u"postgresql://u@host"_s << false << u"names no database"_s;
    QTest::newRow("unknown setting") << u"postgresql://u@host/db?colour=red"_s << false
                                     << u"unknown setting"_s;
    if (_pg.isRunning())
        QTest::newRow("no such database") << _pg.url(u"absent"_s) << false << u"absent"_s;
    QFile garbage(dir + u"/garbage.sqlite"_s);
    if (garbage.open(QIODevice::WriteOnly))
        garbage.write(QByteArray(4096, '\x5a'));
    QTest::newRow("not a database") << garbage.fileName() << false << u"file is not a database"_s;
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
    QVERIFY(addMember(u"ann"_s) > 0);
    QVERIFY2(_db->open(&_error), qPrintable(_error));
    std::unique_ptr<ServerDB> other = reopen();
    QVERIFY2(other, qPrintable(_error));
    QCOMPARE(other->schemaVersion(), ServerSchema::latestVersion());
    QCOMPARE(column(*other, u"SELECT COUNT(*) FROM schema_migrations"_s),
             QStringList{QString::number(ServerSchema::latestVersion())});
    QCOMPARE(column(*other, u"SELECT name FROM members"_s), QStringList{u"ann"_s});

    // A store a newer server has moved on is left alone.
    QSqlQuery query(other->connection());
    QVERIFY(ServerDB::exec(query, u"INSERT INTO schema_migrations (version, applied) VALUES (?, 0)"_s,
                           {ServerSchema::latestVersion() + 1}));
    QVERIFY(!reopen());
    QVERIFY2(_error.contains(u"newer"_s), qPrintable(_error));
}

void TestServerStore::firstSchemaCarriedOver()
{
    QFETCH(QString, backend);
    if (backend == QLatin1String("postgresql") && !_pgUnavailable.isEmpty())
        QSKIP(qPrintable(_pgUnavailable));
    QVERIFY2(openStore(backend, false), qPrintable(_error));
    QSqlQuery query(_db->connection());
    QVERIFY(query.exec(ServerSchema::bookkeeping(_db->kind())));
    for (const QString &statement : ServerSchema::statements(1, _db->kind()))
        QVERIFY2(query.exec(statement), qPrintable(query.lastError().text()));
    const QString day = kDay.toString(Qt::ISODate);
    for (
        const auto &[sql, values] : std::initializer_list<std::pair<QString, QVariantList>>{
            {u"INSERT INTO schema_migrations (version, applied) VALUES (1, 0)"_s, {}},
            {u"INSERT INTO members (id, name, pw_hash, created) VALUES (7, 'ann', 'x', 0)"_s, {}},
            {u"INSERT INTO diary_foods (member_id, date, meal, position, qty, descr, serving, calories) "
             "VALUES (7, ?, 'D', 0, 1, 'Pasta', 'plate', 480), (7, ?, 'B', 1, 2, 'Toast \"1\"', 'slice', NULL)"_s,
             {day, day}},
            {u"INSERT INTO diary_exercises (member_id, date, position, duration, descr, calories) "
             "VALUES (7, ?, 0, 30, 'Walk', 120)"_s,
             {kDay.addDays(1).toString(Qt::ISODate)}},
            {u"INSERT INTO meal_plans (member_id, date, meal, food_name, serv_name, qty, calories, "
             "carbohydrate, fat, fiber, protein) VALUES (7, ?, 'L', 'Soup', 'bowl', 1, 90, 12, 3, 2, 4)"_s,
             {day}}})
        QVERIFY2(ServerDB::exec(query, sql, values, &_error), qPrintable(_error));
    query.finish();
    std::unique_ptr<ServerDB> store = reopen();
    QVERIFY2(store, qPrintable(_error));
    QCOMPARE(store->schemaVersion(), ServerSchema::latestVersion());
    ServerDiaryDB diary(*store);
    QCOMPARE(describe(diary.day(7, kDay)), u"B:Toast \"1\" 2 ?, D:Pasta 1 480"_s);
    QCOMPARE(describe(diary.day(7, kDay.addDays(1))), u"E:Walk 30 120"_s);
    const QList<PlannedFood> planned = MealPlanDB(*store).planned(7, kDay, kDay);
    QCOMPARE(planned.size(), 1);
    QCOMPARE((QList<std::optional<double>>{planned[0].calories, planned[0].carbohydrate, planned[0].fat,
                                           planned[0].fiber, planned[0].protein}),
             (QList<std::optional<double>>{90, 12, 3, 2, 4}));
}

void TestServerStore::sameSchemaOnBoth()
{
    if (!_pgUnavailable.isEmpty())
        QSKIP(qPrintable(_pgUnavailable));
    QVERIFY2(openStore(u"sqlite"_s), qPrintable(_error));
    std::unique_ptr<ServerDB> sqlite = std::move(_db);
    QVERIFY2(openStore(u"postgresql"_s), qPrintable(_error));
    const auto describeSchema = [](ServerDB &db) {
        QStringList tables = db.connection().tables();
        tables.removeAll(u"sqlite_sequence"_s);
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
    QVERIFY(expected.contains(u"members(id,name,pw_hash,created)"_s));
    QCOMPARE(describeSchema(*_db), expected);
}

void TestServerStore::addMember_data()
{
    backendColumn();
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("password");
    QTest::addColumn<bool>("added");
    addRows("new", u"bob.smith@home"_s, u"pw"_s, true);
    addRows("64 characters", QString(64, QLatin1Char('b')), u"pw"_s, true);
    addRows("taken", u"ann"_s, u"pw"_s, false);
    addRows("empty name", QString(), u"pw"_s, false);
    addRows("65 characters", QString(65, QLatin1Char('b')), u"pw"_s, false);
    addRows("space", u"ann smith"_s, u"pw"_s, false);
    addRows("statement in the name", u"x'); DROP TABLE members; --"_s, u"pw"_s, false);
    addRows("empty password", u"carl"_s, QString(), false);
}

void TestServerStore::addMember()
{
    QFETCH(QString, name);
    QFETCH(QString, password);
    QFETCH(bool, added);
    OPEN_STORE();
    QVERIFY(addMember(u"ann"_s) > 0);
    AccountDB accounts(*_db);
    QString error;
    QCOMPARE(accounts.addMember(name, password, &error), added);
    QCOMPARE(error.isEmpty(), added);

    QStringList expected{u"ann"_s};
    if (added)
        expected.append(name);
    expected.sort();
    QStringList names;
    for (const Member &member : accounts.members())
        names.append(member.name);
    QCOMPARE(names, expected);
    qint64 id = -1;
    QCOMPARE(accounts.checkPassword(name, password, u"::1"_s, &id), added ? Login::Ok : Login::Wrong);
    if (added)
        QCOMPARE(id, accounts.member(name)->id);
}

void TestServerStore::login_data()
{
    backendColumn();
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("pwhash");
    QTest::addColumn<Login>("expected");
    addRows("right", u"ann"_s, md5(u"s3cret"_s), Login::Ok);
    addRows("right, in capitals", u"ann"_s, md5(u"s3cret"_s).toUpper(), Login::Ok);
    addRows("wrong password", u"ann"_s, md5(u"secret"_s), Login::Wrong);
    addRows("password itself", u"ann"_s, u"s3cret"_s, Login::Wrong);
    addRows("name in another case", u"Ann"_s, md5(u"s3cret"_s), Login::Wrong);
    addRows("no such member", u"zoe"_s, md5(u"s3cret"_s), Login::Wrong);
}

void TestServerStore::login()
{
    QFETCH(QString, name);
    QFETCH(QString, pwhash);
    QFETCH(Login, expected);
    OPEN_STORE();
    const qint64 ann = addMember(u"ann"_s, u"s3cret"_s);
    AccountDB accounts(*_db);
    // Twice: the second answer comes from the verified-credential memory.
    for (int round = 0; round < 2; ++round) {
        qint64 id = -1;
        QCOMPARE(accounts.checkPwHash(name, pwhash, u"192.0.2.1"_s, &id), expected);
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
    const QString busy = u"192.0.2.9"_s, other = u"198.51.100.1"_s;
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
    addMember(u"ann"_s);
    const QString right = md5(u"secret"_s), wrong = md5(u"guess"_s);
    qint64 now = 1770000000;
    AccountDB accounts(*_db);
    accounts.setClock([&now] { return now; });
    for (int i = 0; i < memberFailures; ++i)
        accounts.checkPwHash(u"ann"_s, wrong, u"203.0.113.%1"_s.arg(i), nullptr);
    for (int i = 0; i < addressFailures; ++i)
        accounts.checkPwHash(u"nobody%1"_s.arg(i), wrong, u"192.0.2.9"_s, nullptr);

    // Another process on the same database sees the same counts.
    std::unique_ptr<ServerDB> otherStore = reopen();
    QVERIFY(otherStore);
    AccountDB otherAccounts(*otherStore);
    otherAccounts.setClock([&now] { return now; });
    QCOMPARE(otherAccounts.checkPwHash(u"ann"_s, right, from, nullptr), expected);
    QCOMPARE(accounts.checkPwHash(u"ann"_s, right, from, nullptr), expected);

    // The window ends; a success then clears the member's count.
    now += AccountDB::kFailureWindowSecs;
    QCOMPARE(accounts.checkPwHash(u"ann"_s, right, from, nullptr), Login::Ok);
    for (int i = 0; i < AccountDB::kMaxFailuresPerMember - 1; ++i)
        accounts.checkPwHash(u"ann"_s, wrong, u"203.0.113.%1"_s.arg(i), nullptr);
    QCOMPARE(accounts.checkPwHash(u"ann"_s, right, from, nullptr), Login::Ok);
    for (int i = 0; i < AccountDB::kMaxFailuresPerMember - 1; ++i)
        accounts.checkPwHash(u"ann"_s, wrong, u"203.0.113.%1"_s.arg(i), nullptr);
    QCOMPARE(accounts.checkPwHash(u"ann"_s, right, from, nullptr), Login::Ok);
}

void TestServerStore::passwordChange()
{
    OPEN_STORE();
    const qint64 ann = addMember(u"ann"_s, u"old"_s);
    AccountDB accounts(*_db);
    const QString address = u"::1"_s;
    QCOMPARE(accounts.checkPassword(u"ann"_s, u"old"_s, address, nullptr), Login::Ok);

    // Changed by another process: what this one remembers no longer counts.
    std::unique_ptr<ServerDB> other = reopen();
    QVERIFY(other);
    QVERIFY2(AccountDB(*other).setPassword(u"ann"_s, u"new"_s, &_error), qPrintable(_error));
    QCOMPARE(accounts.checkPassword(u"ann"_s, u"old"_s, address, nullptr), Login::Wrong);
    QCOMPARE(accounts.checkPassword(u"ann"_s, u"new"_s, address, nullptr), Login::Ok);
    QVERIFY(!accounts.setPassword(u"zoe"_s, u"new"_s, &_error));

    const QString digest = md5(u"new"_s);
    const QString storedSql = u"SELECT pw_hash FROM members WHERE id = ?"_s;
    const QString stored = column(*_db, storedSql, {ann}).value(0);
    QVERIFY(stored.startsWith(u"pbkdf2-sha256$%1$"_s.arg(PasswordHash::kIterations)));
    for (const QByteArray &form :
         {digest.toLatin1(), QByteArray::fromHex(digest.toLatin1()).toBase64(), digest.toLatin1().toBase64()})
        QVERIFY(!stored.contains(QString::fromLatin1(form), Qt::CaseInsensitive));

    // A hash from the days of a smaller work factor still opens, and is then made at today's.
    QSqlQuery query(_db->connection());
    QVERIFY(ServerDB::exec(query, u"UPDATE members SET pw_hash = ? WHERE id = ?"_s,
                           {PasswordHash::make(digest.toLatin1(), PasswordHash::kMinIterations), ann}));
    QCOMPARE(accounts.checkPwHash(u"ann"_s, digest, address, nullptr), Login::Ok);
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
    const DiaryUpdate both = dayUpdate(kDay, {food('B', u"Toast"_s, 2, 160)}, {{30, u"Walk"_s, 120}}) +
                             dayUpdate(next, {food('L', u"Soup"_s, 1.1, std::nullopt)}) +
                             checkin(kDay, 61.5, u"fine"_s) + water(kDay, 3);
    const QString bothFirst = u"B:Toast 2 160, E:Walk 30 120, water 3, weight 61.5 \"fine\""_s;
    const QString bothNext = u"L:Soup 1.1 ?"_s;

    addRows("day replaced", both, dayUpdate(kDay, {food('D', u"Pasta"_s, 1, 480)}), false, true,
            QStringList{u"D:Pasta 1 480, water 3, weight 61.5 \"fine\""_s, bothNext});
    addRows("meal order", DiaryUpdate(),
            dayUpdate(kDay, {food('S', u"Tea"_s, 1, 2), food('B', u"Egg"_s, 1, 80),
                             food('D', u"Fish"_s, 1, 200), food('B', u"Roll"_s, 1, 150)}),
            false, true, QStringList{u"B:Egg 1 80, B:Roll 1 150, D:Fish 1 200, S:Tea 1 2"_s, QString()});
    addRows("day cleared", both, dayUpdate(kDay, {}), false, true,
            QStringList{u"water 3, weight 61.5 \"fine\""_s, bothNext});
    addRows("check-in deleted", both, checkin(kDay, std::nullopt), false, true,
            QStringList{u"B:Toast 2 160, E:Walk 30 120, water 3"_s, bothNext});
    addRows("check-in replaced", both, checkin(kDay, 60.25), false, true,
            QStringList{u"B:Toast 2 160, E:Walk 30 120, water 3, weight 60.25 \"\""_s, bothNext});
    addRows("water set", both, water(kDay, 5) + water(next, 0), false, true,
            QStringList{u"B:Toast 2 160, E:Walk 30 120, water 5, weight 61.5 \"fine\""_s,
                        bothNext + u", water 0"_s});
    addRows("meal letter refused", both,
            dayUpdate(kDay, {}) + dayUpdate(next, {food('X', u"Cake"_s, 1, 300)}), false, false,
            QStringList{bothFirst, bothNext});
    addRows("database fails mid-publish", both,
            dayUpdate(kDay, {}) + checkin(kDay, std::nullopt) + water(next, 2) + water(kDay, 99), true, false,
            QStringList{bothFirst, bothNext});
    const QString odd = u"Tea \"Earl\" 'Grey' \\ a\nb\t\u0001 \u00e9 \U0001F375"_s;
    addRows("text kept as sent", DiaryUpdate(),
            dayUpdate(kDay, {food('B', odd, 0.1, 80)}) + checkin(kDay, 60, odd), false, true,
            QStringList{u"B:%1 0.1 80, weight 60 \"%1\""_s.arg(odd), QString()});
    // One at a time, the last entry for a date would have stood.
    addRows("later entries for a date win", both,
            water(kDay, 1) + checkin(kDay, 60) + water(kDay, 4) + checkin(kDay, std::nullopt) +
                checkin(next, std::nullopt) + checkin(next, 59, u"again"_s),
            false, true,
            QStringList{u"B:Toast 2 160, E:Walk 30 120, water 4"_s, bothNext + u", weight 59 \"again\""_s});
    // More values than one statement may bind on either back end.
    QList<PublishedFood> many;
    QList<PublishedExercise> moves;
    QStringList manyText, movesText;
    for (int i = 0; i < 2000; ++i) {
        const char meal = "BLDS"[i * 4 / 2000];
        many.append(food(meal, u"F%1"_s.arg(i), 1, i));
        manyText.append(u"%1:F%2 1 %2"_s.arg(QLatin1Char(meal)).arg(i));
        if (i % 10 == 0) {
            moves.append({double(i), u"M%1"_s.arg(i), 1});
            movesText.append(u"E:M%1 %1 1"_s.arg(i));
        }
    }
    addRows("very many entries", both, dayUpdate(kDay, many, moves), false, true,
            QStringList{
                (manyText + movesText + QStringList{u"water 3"_s, u"weight 61.5 \"fine\""_s}).join(u", "_s),
                bothNext});
}

// Every double a publish may carry reads back as the same double: the short decimals the program
// writes, and the ones only the general way writes.
void TestServerStore::numbersKeptExactly()
{
    OPEN_STORE();
    const qint64 ann = addMember(u"ann"_s);
    const QList<double> numbers = {
        0,          0.1,    2.675, 120.5,           0.30000000000000004, 1e-7,        0.000001,      5e-324,
        123456.789, 100000, 1e300, 1234567.1234567, 0.0000015,           999999999.5, double(150.1f)};
    QList<PublishedFood> foods;
    for (const double number : numbers)
        foods.append(food('B', u"Bean"_s, number, number));
    ServerDiaryDB diary(*_db);
    QVERIFY2(diary.apply(ann, dayUpdate(kDay, foods, {{numbers.at(3), u"Walk"_s, numbers.at(4)}}), &_error),
             qPrintable(_error));
    const ServerDiaryDB::Day day = diary.day(ann, kDay);
    QCOMPARE(day.foods.size(), numbers.size());
    for (qsizetype i = 0; i < numbers.size(); ++i) {
        // Bits, not QCOMPARE's fuzzy comparison, which would hide a change in the last place.
        QVERIFY2(std::bit_cast<quint64>(day.foods.at(i).qty) == std::bit_cast<quint64>(numbers.at(i)) &&
                     std::bit_cast<quint64>(*day.foods.at(i).values[0]) ==
                         std::bit_cast<quint64>(numbers.at(i)),
                 qPrintable(QString::number(numbers.at(i), 'g', 17)));
    }
    QCOMPARE(std::bit_cast<quint64>(day.exercises.value(0).calories), std::bit_cast<quint64>(numbers.at(4)));
}

void TestServerStore::apply()
{
    QFETCH(DiaryUpdate, first);
    QFETCH(DiaryUpdate, second);
    QFETCH(bool, trap);
    QFETCH(bool, applied);
    QFETCH(QStringList, days);
    OPEN_STORE();
    const qint64 ann = addMember(u"ann"_s);
    ServerDiaryDB diary(*_db);
    QVERIFY2(diary.apply(ann, first, &_error), qPrintable(_error));
    const std::optional<QDateTime> published = diary.lastPublish(ann);
    QVERIFY(published);
    QVERIFY(qAbs(published->secsTo(QDateTime::currentDateTimeUtc())) < 60);
    // Back-dated, so that a refused publish that touched it would show.
    const QDateTime longAgo = QDateTime::fromSecsSinceEpoch(1000000000, Qt::UTC);
    QSqlQuery query(_db->connection());
    QVERIFY(ServerDB::exec(query, u"UPDATE publishes SET last_publish = ?"_s, {longAgo.toSecsSinceEpoch()}));

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

    // Whatever happened before, the store takes the next publish.
    QVERIFY2(diary.apply(ann, water(kDay, 7), &_error), qPrintable(_error));
    QCOMPARE(diary.day(ann, kDay).cups, 7);
}

void TestServerStore::removeMember()
{
    OPEN_STORE();
    const qint64 ann = addMember(u"ann"_s), bob = addMember(u"bob"_s);
    const DiaryUpdate update = dayUpdate(kDay, {food('B', u"Toast"_s, 1, 80)}, {{10, u"Run"_s, 100}}) +
                               checkin(kDay, 70) + water(kDay, 2);
    ServerDiaryDB diary(*_db);
    MealPlanDB plans(*_db);
    PlannedFood planned{-1, kDay, QLatin1Char('L'), u"Salad"_s, u"bowl"_s, 1, 90, 8, 5, 3, 2};
    for (const qint64 member : {ann, bob}) {
        QVERIFY2(diary.apply(member, update, &_error), qPrintable(_error));
        QVERIFY(plans.add(member, planned, &_error) > 0);
    }
    QSqlQuery query(_db->connection());
    QVERIFY(ServerDB::exec(query, u"INSERT INTO shares (owner_id, viewer_id) VALUES (?, ?), (?, ?)"_s,
                           {ann, bob, bob, ann}));

    AccountDB accounts(*_db);
    QVERIFY2(accounts.removeMember(u"ann"_s, &_error), qPrintable(_error));
    QVERIFY(!accounts.removeMember(u"ann"_s, &_error));
    for (const char *table : {"diary_days", "checkins", "waters", "meal_plans", "publishes"}) {
        const QString count = u"SELECT member_id FROM %1 ORDER BY 1"_s.arg(QLatin1String(table));
        QCOMPARE(column(*_db, count), QStringList{QString::number(bob)});
    }
    QCOMPARE(column(*_db, u"SELECT COUNT(*) FROM shares"_s), QStringList{u"0"_s});
    QCOMPARE(describe(diary.day(bob, kDay)), u"B:Toast 1 80, E:Run 10 100, water 2, weight 70 \"\""_s);

    // The name is free again, and the newcomer inherits nothing.
    const qint64 newAnn = addMember(u"ann"_s);
    QVERIFY(newAnn > 0 && newAnn != ann);
    QCOMPARE(describe(diary.day(newAnn, kDay)), QString());
}

void TestServerStore::mealPlan()
{
    OPEN_STORE();
    const qint64 ann = addMember(u"ann"_s), bob = addMember(u"bob"_s);
    MealPlanDB plans(*_db);
    const auto plan = [&](qint64 member, const QDate &date, char meal, const QString &name, double qty = 1,
                          std::optional<double> fiber = 1) {
        return plans.add(member, {-1, date, QLatin1Char(meal), name, u"cup"_s, qty, 100, 10, 2, fiber, 5},
                         &_error);
    };
    const qint64 dinner = plan(ann, kDay, 'D', u"Stew"_s, 1.5);
    QVERIFY(dinner > 0);
    QVERIFY(plan(ann, kDay.addDays(1), 'B', u"Oats"_s, 1, std::nullopt) > 0); // fiber not known
    QVERIFY(plan(ann, kDay, 'B', u"Egg"_s) > 0);
    QVERIFY(plan(bob, kDay, 'L', u"Soup"_s) > 0);
    QVERIFY(plan(ann, kDay.addDays(9), 'S', u"Nuts"_s) > 0);

    // Refused: no stored byte changes.
    QCOMPARE(plan(ann, kDay, 'X', u"Cake"_s), -1);
    QCOMPARE(plan(ann, QDate(), 'B', u"Cake"_s), -1);
    QCOMPARE(plan(ann, kDay, 'B', u"Cake"_s, qQNaN()), -1);
    QCOMPARE(plan(ann, kDay, 'B', QString()), -1);
    QCOMPARE(plan(ann, kDay, 'B', u"Cake"_s, 1, -2), -1);

    const auto names = [&](qint64 member) {
        QStringList list;
        for (const PlannedFood &item : plans.planned(member, kDay, kDay.addDays(1)))
            list.append(u"%1 %2 %3 %4 %5"_s.arg(item.date.toString(Qt::ISODate), item.meal, item.foodName)
                            .arg(item.qty)
                            .arg(item.fiber ? QString::number(*item.fiber) : u"?"_s));
        return list;
    };
    QCOMPARE(names(ann), (QStringList{u"2026-03-01 B Egg 1 1"_s, u"2026-03-01 D Stew 1.5 1"_s,
                                      u"2026-03-02 B Oats 1 ?"_s}));
    QVERIFY(!plans.remove(bob, dinner));
    QVERIFY(plans.remove(ann, dinner));
    QVERIFY(!plans.remove(ann, dinner));
    QCOMPARE(names(ann), (QStringList{u"2026-03-01 B Egg 1 1"_s, u"2026-03-02 B Oats 1 ?"_s}));
    QCOMPARE(names(bob), QStringList{u"2026-03-01 L Soup 1 1"_s});
}

void TestServerStore::concurrentPublishes()
{
    OPEN_STORE();
    const QList<qint64> members{addMember(u"ann"_s), addMember(u"bob"_s)};
    constexpr int kThreads = 4, kPublishes = 12;
    std::atomic<int> failures{0};
    QList<QThread *> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.append(QThread::create([&, t] {
            ServerDiaryDB diary(*_db);
            for (int i = 0; i < kPublishes; ++i) {
                const qint64 member = members.at((t + i) % 2);
                const QList<PublishedFood> foods{food('B', u"T%1"_s.arg(t), 1, 1),
                                                 food('L', u"T%1"_s.arg(t), 1, 2),
                                                 food('D', u"T%1"_s.arg(t), 1, 3)};
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

void TestServerStore::serverRestartsUnderneath()
{
    if (!_pgUnavailable.isEmpty())
        QSKIP(qPrintable(_pgUnavailable));
    QVERIFY2(openStore(u"postgresql"_s), qPrintable(_error));
    const qint64 ann = addMember(u"ann"_s);
    ServerDiaryDB diary(*_db);
    QVERIFY2(diary.apply(ann, water(kDay, 3), &_error), qPrintable(_error)); // its statements prepared
    // Every connection of the store is cut, as a restart of the database server would.
    std::unique_ptr<ServerDB> admin = reopen();
    QVERIFY(admin);
    QSqlQuery query(admin->connection());
    QVERIFY(ServerDB::exec(query, u"SELECT pg_terminate_backend(pid) FROM pg_stat_activity "
                                  "WHERE datname = current_database() AND pid <> pg_backend_pid()"_s));
    QVERIFY(query.next());

    QVERIFY2(diary.apply(ann, water(kDay, 4), &_error), qPrintable(_error));
    QCOMPARE(diary.day(ann, kDay).cups, 4);
}

QTEST_GUILESS_MAIN(TestServerStore)
#include "tst_serverstore.moc"
