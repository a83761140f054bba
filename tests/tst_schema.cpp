#include "db/lmsqldb.h"
#include "db/schema.h"
#include "dbfixture.h"

#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>

using namespace Qt::StringLiterals;
using DbTest::column;
using DbTest::readFile;

namespace {

// Runs statements on a database file through a connection of its own; the text of the first
// column of the last statement's first row comes back.
QString runOnFile(const QString &path, const QStringList &statements)
{
    QString result;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"setup"_s);
        db.setDatabaseName(path);
        for (const QString &statement : statements) {
            QSqlQuery query(db);
            if ((!db.isOpen() && !db.open()) || !query.exec(statement))
                qWarning("setup statement failed: %s", qUtf8Printable(statement));
            else if (query.next())
                result = query.value(0).toString();
        }
    }
    QSqlDatabase::removeDatabase(u"setup"_s);
    return result;
}

QStringList columnsOf(const QString &table)
{
    return column(u"SELECT name FROM pragma_table_info('%1')"_s.arg(table));
}

const QString kVersionQuery = u"SELECT itemvalue FROM userdata_meta WHERE itemkey = 'schema_version'"_s;

} // namespace

class TestSchema : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void templateUpgradesToCurrent();
    void rowsKeptAndTargetSizesSet();
    void startUpByVersion_data();
    void startUpByVersion();
    void upgradeFrom412KeepsRows();
    void failedStepResumesNextStart_data();
    void failedStepResumesNextStart();
    void addColumn();

private:
    QString templatePath() const { return _db.path(u"resources/userdata.db"_s); }
    QStringList backups() const;
    bool startCurrent();

    DbFixture _db;
    QList<QPair<int, int>> _steps;
};

void TestSchema::init()
{
    QVERIFY(_db.prepare(false));
    _steps.clear();
    LmSchema::setStepObserver([this](int from, int to) { _steps.append({from, to}); });
}

void TestSchema::cleanup()
{
    LmSchema::setStepObserver(nullptr);
    _db.stop();
}

QStringList TestSchema::backups() const
{
    static const QRegularExpression name(u"^userdata\\.\\d{6}-\\d{6}$"_s);
    QStringList found;
    for (const QString &entry : QDir(LmSettings::dataPath()).entryList(QDir::Files)) {
        if (name.match(entry).hasMatch())
            found.append(LmSettings::dataPath() + entry);
    }
    return found;
}

// Starts on the template upgraded to the current version.
bool TestSchema::startCurrent()
{
    std::string error;
    return LmSqlDb::startUp(error, false) && LmSqlDb::instance()->schemaVersion() == LmSchema::kCurrentVersion;
}

void TestSchema::templateUpgradesToCurrent()
{
    LmSettings::writeValue(u"/sync/uploadOnExit"_s, true);
    LmSettings::writeValue(u"/sync/confirmUploadOnExit"_s, false);
    std::string error;
    // The start-up refuses a database without a table or column the program uses: passing it is
    // the check that the chain builds the whole current schema.
    QVERIFY(LmSqlDb::startUp(error, true));
    QCOMPARE(LmSqlDb::instance()->schemaVersion(), LmSchema::kCurrentVersion);
    QCOMPARE(column(u"SELECT itemvalue FROM userdata_meta WHERE itemkey = 'software_modified_version'"_s),
             QStringList{u"4.1.0"_s});
    const QList<QPair<int, int>> chain = {{204, 205}, {205, 206}, {206, 300}, {300, 301}, {301, 302},
                                          {302, 303}, {303, 304}, {304, 306}, {306, 307}, {307, 308},
                                          {308, 309}, {309, 310}, {310, 411}, {411, 412}, {412, 413}};
    QCOMPARE(_steps, chain);

    // One backup, taken before the first step: the template as it was copied.
    const QStringList taken = backups();
    QCOMPARE(taken.size(), 1);
    QVERIFY(readFile(taken.first()) == readFile(templatePath()));

    // The upload settings are dropped, not carried into the new columns.
    QVERIFY(!LmSettings::contains(u"/sync/uploadOnExit"_s));
    QVERIFY(LmSettings::contains(u"/sync/confirmUploadOnExit"_s));

    QCOMPARE(column(u"SELECT id || ':' || name || ':' || IFNULL(user_id, 'all') FROM userdata_sync_devices "
                    "ORDER BY id"_s),
             (QStringList{u"0:website:all"_s, u"2:metrics:all"_s}));

    // Every index of the template survived the column rebuilds.
    LmSqlDb::shutDown();
    const QString indexQuery = u"SELECT group_concat(name, ' ') FROM (SELECT name FROM sqlite_master "
                               "WHERE type = 'index' AND sql IS NOT NULL ORDER BY name)"_s;
    QStringList before = runOnFile(templatePath(), {indexQuery}).split(u' ');
    QVERIFY(before.size() >= 20);
    before.append(u"metrics_sync_idx"_s);
    before.sort();
    QCOMPARE(runOnFile(_db.databasePath(), {indexQuery}).split(u' '), before);
}

void TestSchema::rowsKeptAndTargetSizesSet()
{
    runOnFile(templatePath(),
              {u"INSERT INTO user_users (user_id, name, web_username, web_password) "
               "VALUES (1, 'Ann', 'ann', 'pw')"_s,
               u"INSERT INTO user_users (user_id, name) VALUES (2, 'Bob')"_s,
               u"INSERT INTO user_target VALUES (1, '20240101', 2000, 70, NULL, -1, 250)"_s,
               u"INSERT INTO user_target VALUES (1, '20240201', NULL, NULL, NULL, NULL, NULL)"_s,
               u"INSERT INTO food_diary (food_id, user_id, date, meal, status, food_name, calories, fat) "
               "VALUES (5, 1, '20240105', 3, 1, 'Apple', 95, 0.3)"_s,
               u"INSERT INTO exer_diary VALUES (7, 1, '20240105', 30, 5.5, 'Walk', 1)"_s});
    QVERIFY(startCurrent());

    QCOMPARE(column(u"SELECT food_id || ' ' || food_name || ' ' || calories || ' ' || fat || ' ' || "
                    "IFNULL(time, '-') || ' ' || IFNULL(calcium, '-') FROM food_diary"_s),
             QStringList{u"5 Apple 95 0.3 - -"_s});
    // Sizes only where the latest known target is not negative; nothing for the profile without targets.
    QCOMPARE(
        column(u"SELECT user_id || ':' || IFNULL(energy_target_size, '-') || IFNULL(fat_target_size, '-') "
               "|| IFNULL(protein_target_size, '-') || IFNULL(fiber_target_size, '-') || "
               "IFNULL(carb_target_size, '-') || IFNULL(sat_fat_target_size, '-') || "
               "IFNULL(auto_publish, '-') FROM user_users ORDER BY user_id"_s),
        (QStringList{u"1:32--2--"_s, u"2:-------"_s}));
}

void TestSchema::startUpByVersion_data()
{
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QByteArray>("header"); // written over the start of the file when not empty
    QTest::addColumn<QString>("error");     // empty: used as it is
    QTest::addColumn<bool>("backedUp");

    const QString version = u"UPDATE userdata_meta SET itemvalue = %1 WHERE itemkey = 'schema_version'"_s;
    const QString unsupported =
        u"Your database is not supported by this software.\n\tDatabase version: %1\n\t"
        "Application version: 4.1.0"_s;
    const QString corrupt = u"Cannot start program as database may be corrupted"_s;
    const QByteArray masking = QByteArray::fromHex(
        "1f8b080037561f400203732acacc4bc949cdcd2f2e5670cbcf4fd177ad482d4ace2c4e55707102009640d88b1c000000");

    QTest::newRow("413") << version.arg(413) << QByteArray() << QString() << false;
    QTest::newRow("499") << version.arg(499) << QByteArray() << QString() << false;
    QTest::newRow("500") << version.arg(500) << QByteArray() << unsupported.arg(500) << true;
    QTest::newRow("between steps") << version.arg(250) << QByteArray() << unsupported.arg(250) << true;
    QTest::newRow("no version row") << u"DELETE FROM userdata_meta WHERE itemkey = 'schema_version'"_s
                                    << QByteArray() << corrupt << false;
    QTest::newRow("not a database") << QString() << QByteArray(4096, 'x') << corrupt << false;
    QTest::newRow("a table missing") << version.arg(413) + u";DROP TABLE food_diary"_s << QByteArray()
                                     << corrupt + u"\n(no table food_diary)"_s << false;
    QTest::newRow("masked header") << QString() << masking << corrupt << false;
}

void TestSchema::startUpByVersion()
{
    QFETCH(QString, setup);
    QFETCH(QByteArray, header);
    QFETCH(QString, error);
    QFETCH(bool, backedUp);

    // A database of the current schema, relabelled.
    QVERIFY(startCurrent());
    LmSqlDb::shutDown();
    for (const QString &backup : backups())
        QFile::remove(backup);
    _steps.clear();
    if (!setup.isEmpty())
        runOnFile(_db.databasePath(), setup.split(u';'));
    QFile file(_db.databasePath());
    QVERIFY(file.open(QIODevice::ReadWrite) && file.write(header) == header.size());
    file.close();
    const QByteArray before = readFile(_db.databasePath());

    std::string text;
    QCOMPARE(LmSqlDb::startUp(text, false), error.isEmpty());
    QCOMPARE(QString::fromStdString(text), error);
    QVERIFY(LmSqlDb::exists()); // on failure too: the caller shuts it down
    QCOMPARE(backups().size(), backedUp ? 1 : 0);
    QVERIFY(_steps.isEmpty());
    if (error.isEmpty())
        QVERIFY(readFile(_db.databasePath()) == before);

    // Starting again fails again, without a second copy of the same bytes.
    LmSqlDb::shutDown();
    for (const QString &backup : backups())
        QFile::rename(backup, LmSettings::dataPath() + u"userdata.000101-000000"_s);
    QCOMPARE(LmSqlDb::startUp(text, false), error.isEmpty());
    QCOMPARE(backups().size(), backedUp ? 1 : 0);
}

// A diary of the previous release, larger than a whole-file copy takes: it is backed up all the
// same, its rows stay, and recipes and goals can be stored at once.
void TestSchema::upgradeFrom412KeepsRows()
{
    QVERIFY(startCurrent());
    LmSqlDb::shutDown();
    for (const QString &backup : backups())
        QFile::remove(backup);
    _steps.clear();
    runOnFile(_db.databasePath(),
              {u"DROP TABLE recipes"_s, u"DROP TABLE recipe_ingredients"_s,
               u"ALTER TABLE user_misc DROP COLUMN goal_weight"_s, u"ALTER TABLE user_misc DROP COLUMN weekly_rate"_s,
               u"ALTER TABLE user_misc DROP COLUMN energy_by_hand"_s, u"ALTER TABLE user_users DROP COLUMN water_goal"_s,
               u"UPDATE userdata_meta SET itemvalue = 412 WHERE itemkey = 'schema_version'"_s,
               u"INSERT INTO user_users (user_id, name) VALUES (1, 'Ann')"_s,
               u"INSERT INTO user_misc (user_id, date, height, goal) VALUES (1, '20240101', 170, 1)"_s,
               u"CREATE TABLE years (b)"_s, u"INSERT INTO years VALUES (zeroblob(16 * 1024 * 1024))"_s});
    const QByteArray before = readFile(_db.databasePath());

    std::string error;
    QVERIFY(LmSqlDb::startUp(error, true));
    QCOMPARE(_steps, (QList<QPair<int, int>>{{412, 413}}));
    QCOMPARE(backups().size(), 1);
    QVERIFY(readFile(backups().first()) == before);
    QCOMPARE(column(u"SELECT height || ' ' || goal || ' ' || IFNULL(goal_weight, '-') FROM user_misc"_s),
             QStringList{u"170 1 -"_s});
    QVERIFY(LmSqlDb::instance()
                ->prepare(u"INSERT INTO recipes (user_id, name, portions) VALUES (1, 'Chili', 4)"_s)
                ->exec());
}

void TestSchema::failedStepResumesNextStart_data()
{
    QTest::addColumn<QString>("breaking");
    QTest::addColumn<QString>("repair");
    QTest::addColumn<QString>("fatal");
    QTest::addColumn<QStringList>("boxes");
    QTest::addColumn<int>("committed");

    QTest::newRow("204 -> 205") << u"DROP TABLE exer_mealplan"_s
                                << u"CREATE TABLE exer_mealplan (ex_id INTEGER PRIMARY KEY, user_id INTEGER, "
                                   "date TEXT, duration NUMERIC, rate NUMERIC, name TEXT, status INTEGER)"_s
                                << u"Upgrade schema 204 -> 205 failed: Cannot create temp table"_s
                                << QStringList() << 204;
    QTest::newRow("306 -> 307")
        << u"CREATE TABLE favorites (x)"_s << u"DROP TABLE favorites"_s << u"Error upgarding database"_s
        << QStringList{u"Upgrade schema 306 -> 307 failed.: Contact technical support "
                       "with the following message:\nCouldn't create favorites table"_s}
        << 306;
    // A trigger of the file's own that puts the version back: the step fails instead of waiting.
    QTest::newRow("version put back")
        << u"CREATE TRIGGER keep AFTER UPDATE ON userdata_meta BEGIN UPDATE userdata_meta SET itemvalue = "
           "'204' WHERE itemkey = 'schema_version'; END"_s
        << u"DROP TRIGGER keep"_s << u"Upgrade schema 204 -> 205 failed: Cannot update database schema version"_s
        << QStringList() << 204;
}

void TestSchema::failedStepResumesNextStart()
{
    QFETCH(QString, breaking);
    QFETCH(QString, repair);
    QFETCH(QString, fatal);
    QFETCH(int, committed);
    DbTest::RecordedBoxes presenter;

    runOnFile(templatePath(), {breaking});
    std::string error;
    LM_VERIFY_FATAL(LmSqlDb::startUp(error, true), fatal);
    QTEST(presenter.boxes, "boxes");
    LmSqlDb::shutDown();
    QCOMPARE(runOnFile(_db.databasePath(), {kVersionQuery}), QString::number(committed));
    QCOMPARE(backups().size(), 1);
    QVERIFY(readFile(backups().first()) == readFile(templatePath()));

    runOnFile(_db.databasePath(), {repair});
    _steps.clear();
    QVERIFY(LmSqlDb::startUp(error, true));
    QCOMPARE(LmSqlDb::instance()->schemaVersion(), LmSchema::kCurrentVersion);
    QCOMPARE(_steps.first().first, committed);
}

// The new column goes first in a rebuilt table; a name found inside another counts as present.
void TestSchema::addColumn()
{
    QVERIFY(startCurrent());
    LmSqlDb *db = LmSqlDb::instance();
    QVERIFY(db->prepare(u"CREATE TABLE s (a_longer INTEGER, b TEXT, PRIMARY KEY (a_longer, b))"_s)->exec());
    QVERIFY(db->prepare(u"CREATE INDEX s_b_idx ON s (b)"_s)->exec());
    QVERIFY(db->prepare(u"INSERT INTO s VALUES (2, 'y')"_s)->exec());
    db->addColumn(u"s"_s, u"longer"_s, u"NUMERIC"_s);
    QCOMPARE(columnsOf(u"s"_s), (QStringList{u"a_longer"_s, u"b"_s}));
    db->addColumn(u"s"_s, u"c"_s, u"NUMERIC"_s);
    QCOMPARE(columnsOf(u"s"_s), (QStringList{u"c"_s, u"a_longer"_s, u"b"_s}));
    QCOMPARE(column(u"SELECT IFNULL(c, '-') || ' ' || a_longer || ' ' || b FROM s"_s),
             QStringList{u"- 2 y"_s});
    QCOMPARE(
        column(u"SELECT name FROM sqlite_master WHERE type = 'index' AND tbl_name = 's' ORDER BY name"_s),
        (QStringList{u"s_b_idx"_s, u"sqlite_autoindex_s_1"_s}));
}

QTEST_GUILESS_MAIN(TestSchema)
#include "tst_schema.moc"
