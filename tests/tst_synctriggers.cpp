#include "db/synctriggers.h"
#include "db/userdb.h"
#include "dbfixture.h"

#include <QDateTime>

using namespace Qt::StringLiterals;
using DbTest::column;

namespace {

bool run(const QString &sql)
{
    return LmSqlDb::instance()->prepare(sql)->exec();
}

QStringList triggerNames()
{
    return column(u"SELECT name FROM sqlite_temp_master WHERE type = 'trigger' ORDER BY name"_s);
}

QString triggerText(const QString &name)
{
    return column(u"SELECT sql FROM sqlite_temp_master WHERE name = '%1'"_s.arg(name)).value(0);
}

const QString kToday = u"strftime('%Y%m%d', 'now')"_s;

} // namespace

class TestSyncTriggers : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(_db.prepare(false)); }
    void cleanup() { _db.stop(); }

    void triggersOfTheTemplate();
    void devicesOfOneProfile();
    void states_data();
    void states();
    void refusedTriggerKeepsNumbering();
    void deviceId_data();
    void deviceId();

private:
    DbFixture _db;
};

void TestSyncTriggers::triggersOfTheTemplate()
{
    std::string error;
    QVERIFY(LmSqlDb::startUp(error, true));

    // Six tracked tables, both devices serve every profile: three triggers a table.
    QStringList expected;
    for (int i = 0; i < 18; ++i)
        expected.append(u"lmtmp_%1"_s.arg(i, 4, 10, QLatin1Char('0')));
    QCOMPARE(triggerNames(), expected);
    const QString update = u"  UPDATE food_diary_sync SET state = 2, lastModified = "_s + kToday;
    QCOMPARE(triggerText(u"lmtmp_0000"_s), u"CREATE TRIGGER lmtmp_0000 AFTER DELETE ON food_diary BEGIN\n"_s +
                                               update + u" WHERE device = 0  AND food_id = old.food_id;\n"_s +
                                               update +
                                               u" WHERE device = 2  AND food_id = old.food_id;\nEND"_s);
}

void TestSyncTriggers::devicesOfOneProfile()
{
    std::string error;
    QVERIFY(LmSqlDb::startUp(error, false));
    QVERIFY(run(u"DELETE FROM userdata_sync_devices WHERE id = 0"_s));
    QVERIFY(run(u"INSERT INTO userdata_sync_devices (id, name, user_id) VALUES (1, 'palm one', 0)"_s));
    QVERIFY(run(u"DELETE FROM userdata_sync_tables WHERE source_table <> 'food_diary'"_s));
    QVERIFY(installSyncTriggers());

    // The devices of all profiles first, then those of profile 0, which watch only its rows.
    QCOMPARE(triggerNames().size(), 6);
    QVERIFY(triggerText(u"lmtmp_0003"_s)
                .startsWith(
                    u"CREATE TRIGGER lmtmp_0003 AFTER DELETE ON food_diary WHEN old.user_id = 0 BEGIN\n"_s));
    QVERIFY(run(u"INSERT INTO food_diary (food_id, user_id, date) VALUES (10, 3, '20240301')"_s));
    QVERIFY(run(u"INSERT INTO food_diary (food_id, user_id, date) VALUES (11, 0, '20240301')"_s));
    QCOMPARE(column(u"SELECT food_id || ':' || device || ':' || state FROM food_diary_sync "
                    "ORDER BY food_id, device"_s),
             (QStringList{u"10:2:1"_s, u"11:1:1"_s, u"11:2:1"_s}));
}

void TestSyncTriggers::states_data()
{
    QTest::addColumn<QStringList>("statements");
    QTest::addColumn<QString>("syncTable");
    QTest::addColumn<QStringList>("marks"); // device:state, by device

    const QString addFood =
        u"INSERT INTO food_diary (food_id, user_id, date, status) VALUES (1, 4, '20240301', 1)"_s;
    const QString addCheckin =
        u"INSERT INTO user_checkins (user_id, date, weight) VALUES (4, '20240301', 80)"_s;
    const QString taken = u"UPDATE food_diary_sync SET state = 0"_s;

    QTest::newRow("insert") << QStringList{addFood} << u"food_diary_sync"_s
                            << QStringList{u"0:1"_s, u"2:1"_s};
    QTest::newRow("change after transfer")
        << QStringList{addFood, taken, u"UPDATE food_diary SET status = 2 WHERE food_id = 1"_s}
        << u"food_diary_sync"_s << QStringList{u"0:1"_s, u"2:1"_s};
    QTest::newRow("delete") << QStringList{addFood, taken, u"DELETE FROM food_diary"_s}
                            << u"food_diary_sync"_s << QStringList{u"0:2"_s, u"2:2"_s};
    QTest::newRow("no mark, no change")
        << QStringList{addFood, u"DELETE FROM food_diary_sync WHERE device = 2"_s,
                       u"UPDATE food_diary SET meal = 3"_s, u"DELETE FROM food_diary"_s}
        << u"food_diary_sync"_s << QStringList{u"0:2"_s};
    QTest::newRow("same key twice: one row a device")
        << QStringList{addCheckin, addCheckin} << u"user_checkins_sync"_s << QStringList{u"0:1"_s, u"2:1"_s};
    QTest::newRow("other key, other rows")
        << QStringList{addCheckin, u"UPDATE user_checkins_sync SET state = 0"_s,
                       u"INSERT INTO user_checkins (user_id, date) VALUES (4, '20240302')"_s}
        << u"user_checkins_sync"_s << QStringList{u"0:0"_s, u"0:1"_s, u"2:0"_s, u"2:1"_s};
}

void TestSyncTriggers::states()
{
    QFETCH(QStringList, statements);
    QFETCH(QString, syncTable);
    std::string error;
    QVERIFY(LmSqlDb::startUp(error, true));

    for (const QString &statement : std::as_const(statements))
        QVERIFY2(run(statement), qPrintable(statement));
    QTEST(column(u"SELECT device || ':' || state FROM %1 ORDER BY device, state"_s.arg(syncTable)), "marks");
    const QString today = QDateTime::currentDateTimeUtc().date().toString(u"yyyyMMdd"_s);
    for (const QString &day : column(u"SELECT lastModified FROM %1"_s.arg(syncTable)))
        QCOMPARE(day, today);
}

void TestSyncTriggers::refusedTriggerKeepsNumbering()
{
    std::string error;
    QVERIFY(LmSqlDb::startUp(error, false));

    int counter = 41;
    QVERIFY(!createSyncTrigger(counter, u"no_such_table"_s, u"food_diary_sync"_s, u"food_id"_s, {0},
                               u"AFTER INSERT"_s, u"new"_s, 1, SyncTriggerForm::Insert, -1));
    QCOMPARE(counter, 42);
    QVERIFY(createSyncTrigger(counter, u"food_diary"_s, u"food_diary_sync"_s, u"food_id"_s, {0, 5},
                              u"AFTER INSERT"_s, u"new"_s, 1, SyncTriggerForm::Insert, 7));
    counter = 12345;
    QVERIFY(createSyncTrigger(counter, u"food_diary"_s, u"food_diary_sync"_s, u"food_id"_s, {3},
                              u"AFTER UPDATE"_s, u"new"_s, 1, SyncTriggerForm::Update, -1));
    QCOMPARE(triggerNames(), (QStringList{u"lmtmp_0042"_s, u"lmtmp_12345"_s}));
    QCOMPARE(triggerText(u"lmtmp_12345"_s),
             u"CREATE TRIGGER lmtmp_12345 AFTER UPDATE ON food_diary BEGIN\n  UPDATE food_diary_sync SET "
             "state = 1, lastModified = "_s +
                 kToday + u" WHERE device = 3  AND food_id = new.food_id;\nEND"_s);
    QVERIFY(
        triggerText(u"lmtmp_0042"_s)
            .startsWith(u"CREATE TRIGGER lmtmp_0042 AFTER INSERT ON food_diary WHEN new.user_id = 7 BEGIN\n"
                        "  INSERT OR REPLACE INTO food_diary_sync(device, state, lastModified, food_id) "
                        "VALUES (0, 1, "_s));
}

void TestSyncTriggers::deviceId_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("id");
    QTest::addColumn<int>("boundId"); // the user store's lookup with the name bound

    QTest::newRow("metrics") << u"metrics"_s << 2 << 2;
    QTest::newRow("handheld") << u"palm one"_s << 1 << 1;
    QTest::newRow("case matters") << u"Website"_s << -1 << -1;
    QTest::newRow("quote breaks the unescaped statement") << u"web\"site"_s << -1 << 3;
}

void TestSyncTriggers::deviceId()
{
    QFETCH(QString, name);
    std::string error;
    QVERIFY(LmSqlDb::startUp(error, true));
    QVERIFY(run(u"INSERT INTO userdata_sync_devices (id, name) VALUES (1, 'palm one')"_s));
    QVERIFY(run(u"INSERT INTO userdata_sync_devices (id, name) VALUES (3, 'web\"site')"_s));
    QTEST(::deviceId(name), "id");
    QTEST(UserDB::deviceId(name), "boundId");
    QCOMPARE(syncDevices(), (QList<QPair<int, QString>>{
                                {0, u"website"_s}, {1, u"palm one"_s}, {2, u"metrics"_s}, {3, u"web\"site"_s}}));
}

QTEST_GUILESS_MAIN(TestSyncTriggers)
#include "tst_synctriggers.moc"
