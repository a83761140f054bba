#include "app/lmsettings.h"
#include "brand/brandengine.h"
#include "brand/tarfilewriter.h"
#include "common/lmmessage.h"
#include "db/lmexception.h"
#include "db/lmsqldb.h"
#include "db/schema.h"
#include "dbfixture.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

struct Message
{
    QString caption;
    QString text;
};

class RecordingPresenter : public Lm::MessagePresenter
{
public:
    void showMessage(Lm::MessageKind, const QString &caption, const QString &text) override
    {
        messages.append({caption, text});
    }
    bool askQuestion(const QString &, const QString &, bool defaultYes) override { return defaultYes; }
    QList<Message> messages;
};

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Runs statements on a database file through a connection of its own; the text of the first
// column of the last statement's first row comes back.
QString runOnFile(const QString &path, const QStringList &statements)
{
    QString result;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"setup"_s);
        db.setDatabaseName(path);
        if (db.open()) {
            for (const QString &statement : statements) {
                QSqlQuery query(db);
                if (!query.exec(statement))
                    qWarning("setup statement failed: %s", qUtf8Printable(statement));
                else if (query.next())
                    result = query.value(0).toString();
            }
        }
    }
    QSqlDatabase::removeDatabase(u"setup"_s);
    return result;
}

QStringList queryColumn(const QString &sql, int index = 0)
{
    QStringList values;
    LmSqlQueryPtr query = LmSqlDb::instance()->prepare(sql);
    if (query->exec()) {
        while (query->next())
            values.append(query->value(index).isNull() ? u"NULL"_s : query->value(index).toString());
    }
    return values;
}

QStringList columnsOf(const QString &table)
{
    return queryColumn(u"PRAGMA table_info(%1)"_s.arg(table), 1);
}

using Steps = QList<QPair<int, int>>;

} // namespace

class TestSchema : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void templateUpgradesToCurrent();
    void columnsAtCurrentVersion_data();
    void columnsAtCurrentVersion();
    void rowsKeptAndTargetSizesSet();
    void startUpByVersion_data();
    void startUpByVersion();
    void failedStepResumesNextStart_data();
    void failedStepResumesNextStart();
    void step304Or305_data();
    void step304Or305();
    void backupFailureIsFatal();
    void addColumn_data();
    void addColumn();
    void setSchemaVersionNeedsItsRow();

private:
    QString folder(const QString &name) const { return _db.path(name); }
    QString templatePath() const { return folder(u"resources/userdata.db"_s); }
    QString databasePath() const { return LmSettings::userDatabasePath() + u"userdata.db"_s; }
    QStringList backups() const;
    bool startCurrent();

    DbFixture _db;
    RecordingPresenter _presenter;
    Steps _steps;
};

void TestSchema::initTestCase()
{
    QLoggingCategory::setFilterRules(u"tarnwell.db.debug=true"_s);
}

void TestSchema::init()
{
    QVERIFY(_db.prepare(false));
    _presenter.messages.clear();
    Lm::setMessagePresenter(&_presenter);
    _steps.clear();
    LmSchema::setStepObserver([this](int from, int to) { _steps.append({from, to}); });
}

void TestSchema::cleanup()
{
    LmSchema::setStepObserver(nullptr);
    Lm::setMessagePresenter(nullptr);
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
    return LmSqlDb::startUp(error, false) && LmSqlDb::instance()->schemaVersion() == 412;
}

void TestSchema::templateUpgradesToCurrent()
{
    LmSettings::writeValue(u"/sync/uploadOnExit"_s, true);
    LmSettings::writeValue(u"/sync/confirmUploadOnExit"_s, false);

    std::string error;
    QVERIFY(LmSqlDb::startUp(error, true));
    QCOMPARE(QString::fromStdString(error), QString());
    LmSqlDb *db = LmSqlDb::instance();
    QCOMPARE(db->schemaVersion(), 412);
    QCOMPARE(
        queryColumn(u"SELECT itemvalue FROM userdata_meta WHERE itemkey = 'software_modified_version'"_s),
        QStringList{u"4.1.0"_s});

    const Steps chain = {{204, 205}, {205, 206}, {206, 300}, {300, 301}, {301, 302}, {302, 303}, {303, 304},
                         {304, 306}, {306, 307}, {307, 308}, {308, 309}, {309, 310}, {310, 411}, {411, 412}};
    QCOMPARE(_steps, chain);

    // One backup, taken before the first step: the template as it was copied.
    const QStringList taken = backups();
    QCOMPARE(taken.size(), 1);
    QVERIFY(readFile(taken.first()) == readFile(templatePath()));

    // The upload settings are dropped, not carried into the new columns.
    QVERIFY(!LmSettings::contains(u"/sync/uploadOnExit"_s));
    QVERIFY(LmSettings::contains(u"/sync/confirmUploadOnExit"_s));

    QCOMPARE(
        queryColumn(u"SELECT id || ':' || name || ':' || IFNULL(user_id, 'all') FROM userdata_sync_devices "
                    "ORDER BY id"_s),
        (QStringList{u"0:website:all"_s, u"2:metrics:all"_s}));
    QCOMPARE(
        queryColumn(u"SELECT source_table || '>' || dest_table || '>' || fields FROM userdata_sync_tables"_s),
        (QStringList{u"food_diary>food_diary_sync>food_id"_s, u"exer_diary>exer_diary_sync>ex_id"_s,
                     u"group_diary>group_diary_sync>group_id"_s,
                     u"user_checkins>user_checkins_sync>user_id, date"_s,
                     u"water_diary>water_diary_sync>user_id, date"_s,
                     u"metrics_startStats>metrics_startStats_sync>user_id, date"_s}));

    // Every index of the template survived the column rebuilds.
    LmSqlDb::shutDown();
    const QString indexQuery = u"SELECT group_concat(name, ' ') FROM (SELECT name FROM sqlite_master "
                               "WHERE type = 'index' AND sql IS NOT NULL ORDER BY name)"_s;
    QStringList before = runOnFile(templatePath(), {indexQuery}).split(u' ');
    const QStringList after = runOnFile(databasePath(), {indexQuery}).split(u' ');
    QVERIFY(before.size() >= 20);
    before.append(u"metrics_sync_idx"_s);
    before.sort();
    QCOMPARE(after, before);
}

void TestSchema::columnsAtCurrentVersion_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<QStringList>("columns");

    const auto row = [](const QString &table, const QString &columns) {
        QTest::newRow(qPrintable(table)) << table << columns.split(u' ');
    };
    row(u"userdata_meta"_s, u"itemkey itemvalue"_s);
    row(u"user_users"_s,
        u"user_id name password created dob sex measurement_units energy_units web_username web_password "
        "auto_publish ask_before_publish tipOfTheDay hideNutrientAndFluid backup_data_path "
        "diaryViewColumnSettings "
        "diaryAdvancedMode energy_target_size fat_target_size fiber_target_size carb_target_size "
        "protein_target_size sat_fat_target_size cholesterol_target_size sugar_target_size "
        "calcium_target_size "
        "sodium_target_size summaryOptions"_s);
    row(u"user_target"_s, u"user_id date target_calories target_fat target_protein target_fiber target_carb "
                          u"target_saturated_fat "
                          "target_cholesterol target_sodium target_sugar target_calcium"_s);
    row(u"user_misc"_s, u"user_id date height goal activity custom_rmr diet_plan"_s);
    row(u"user_checkins"_s, u"user_id date weight chest hip thigh waist steps note"_s);
    row(u"user_firsttime_tips"_s, u"user_id tip_index"_s);
    row(u"water_diary"_s, u"user_id date cups"_s);
    const QString food =
        u"food_id user_id date meal status ref_id group_id time food_name serving_id serv_name "
        "size calories fat protein carb fiber saturated_fat cholesterol sodium sugar calcium"_s;
    row(u"food_diary"_s, food);
    row(u"food_mealplan"_s, food);
    row(u"exer_diary"_s, u"ex_id user_id date duration rate name status time group_id"_s);
    row(u"exer_mealplan"_s, u"ex_id user_id date duration rate name status time group_id"_s);
    row(u"group_diary"_s, u"group_id user_id name status date time"_s);
    row(u"custom_foods"_s, u"food_id category_id name serv_name calories fat protein carb fiber "
                           u"saturated_fat cholesterol sodium "
                           "sugar calcium"_s);
    row(u"custom_food_cats"_s, u"category_id parent_id name"_s);
    row(u"custom_exercises"_s, u"activity_id category_id description scale"_s);
    row(u"custom_exercise_cats"_s, u"category_id parent_id description"_s);
    row(u"favorites"_s, u"user_id item_id item_type"_s);
    row(u"metrics_startStats"_s, u"user_id date count"_s);
    row(u"userdata_sync_devices"_s, u"id name user_id"_s);
    row(u"userdata_sync_tables"_s, u"source_table dest_table fields"_s);
    row(u"food_diary_sync"_s, u"device state food_id lastModified palm_id"_s);
    row(u"exer_diary_sync"_s, u"device state ex_id lastModified palm_id"_s);
    row(u"group_diary_sync"_s, u"device state group_id lastModified palm_id"_s);
    row(u"user_checkins_sync"_s, u"device state user_id date lastModified palm_id"_s);
    row(u"water_diary_sync"_s, u"device state user_id date lastModified palm_id"_s);
    row(u"metrics_startStats_sync"_s, u"device state user_id date lastModified palm_id"_s);
}

void TestSchema::columnsAtCurrentVersion()
{
    QFETCH(QString, table);
    QFETCH(QStringList, columns);
    QVERIFY(startCurrent());

    QStringList present = columnsOf(table);
    QCOMPARE(present.size(), columns.size());
    present.sort(Qt::CaseInsensitive);
    columns.sort(Qt::CaseInsensitive);
    QCOMPARE(present, columns);
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

    QCOMPARE(queryColumn(u"SELECT food_id || ' ' || food_name || ' ' || calories || ' ' || fat || ' ' || "
                         "IFNULL(time, '-') || ' ' || IFNULL(calcium, '-') FROM food_diary"_s),
             QStringList{u"5 Apple 95 0.3 - -"_s});
    QCOMPARE(queryColumn(u"SELECT ex_id || ' ' || name || ' ' || IFNULL(group_id, '-') FROM exer_diary"_s),
             QStringList{u"7 Walk -"_s});
    // Sizes only where the latest known target is not negative; nothing for the profile without targets.
    QCOMPARE(
        queryColumn(
            u"SELECT user_id || ':' || IFNULL(energy_target_size, '-') || IFNULL(fat_target_size, '-') || "
            "IFNULL(protein_target_size, '-') || IFNULL(fiber_target_size, '-') || "
            "IFNULL(carb_target_size, '-') || IFNULL(sat_fat_target_size, '-') || "
            "IFNULL(auto_publish, '-') FROM user_users ORDER BY user_id"_s),
        (QStringList{u"1:32--2--"_s, u"2:-------"_s}));
    // A rebuilt table puts its new column first.
    QCOMPARE(columnsOf(u"user_users"_s).first(), u"summaryOptions"_s);
}

void TestSchema::startUpByVersion_data()
{
    QTest::addColumn<QStringList>("setup");
    QTest::addColumn<QByteArray>("header"); // written over the start of the file when not empty
    QTest::addColumn<QString>("error");     // empty: used as it is
    QTest::addColumn<bool>("backedUp");

    const auto version = [](int number) {
        return QStringList{
            u"UPDATE userdata_meta SET itemvalue = %1 WHERE itemkey = 'schema_version'"_s.arg(number)};
    };
    const auto unsupported = [](int number) {
        return u"Your database is not supported by this software.\n\tDatabase version: %1\n\t"
               "Application version: 4.1.0"_s.arg(number);
    };
    const QString corrupt = u"Cannot start program as database may be corrupted"_s;
    const QByteArray masking = QByteArray::fromHex(
        "1f8b080037561f400203732acacc4bc949cdcd2f2e5670cbcf4fd177ad482d4ace2c4e55707102009640d88b1c000000");

    QTest::newRow("412") << version(412) << QByteArray() << QString() << false;
    QTest::newRow("499") << version(499) << QByteArray() << QString() << false;
    QTest::newRow("500") << version(500) << QByteArray() << unsupported(500) << true;
    QTest::newRow("below the chain") << version(203) << QByteArray() << unsupported(203) << true;
    QTest::newRow("between steps") << version(250) << QByteArray() << unsupported(250) << true;
    QTest::newRow("no version row")
        << QStringList{u"DELETE FROM userdata_meta WHERE itemkey = 'schema_version'"_s} << QByteArray()
        << corrupt << false;
    QTest::newRow("no meta table") << QStringList{u"DROP TABLE userdata_meta"_s} << QByteArray() << corrupt
                                   << false;
    QTest::newRow("not a database") << QStringList() << QByteArray(4096, 'x') << corrupt << false;
    QTest::newRow("masked header") << QStringList() << masking << corrupt << false;
}

void TestSchema::startUpByVersion()
{
    QFETCH(QStringList, setup);
    QFETCH(QByteArray, header);
    QFETCH(QString, error);
    QFETCH(bool, backedUp);

    QDir().mkpath(LmSettings::userDatabasePath());
    QVERIFY(QFile::copy(templatePath(), databasePath()));
    runOnFile(databasePath(), setup);
    if (!header.isEmpty()) {
        QFile file(databasePath());
        QVERIFY(file.open(QIODevice::ReadWrite) && file.write(header) == header.size());
    }
    const QByteArray before = readFile(databasePath());

    std::string text;
    QCOMPARE(LmSqlDb::startUp(text, false), error.isEmpty());
    QCOMPARE(QString::fromStdString(text), error);
    QVERIFY(LmSqlDb::exists()); // on failure too: the caller shuts it down
    QCOMPARE(backups().size(), backedUp ? 1 : 0);
    QVERIFY(_steps.isEmpty());
    if (error.isEmpty())
        QVERIFY(readFile(databasePath()) == before);
}

void TestSchema::failedStepResumesNextStart_data()
{
    QTest::addColumn<QString>("breaking");
    QTest::addColumn<QString>("repair");
    QTest::addColumn<QString>("fatal");
    QTest::addColumn<QString>("caption"); // empty: no box
    QTest::addColumn<QString>("exception");
    QTest::addColumn<int>("committed");

    QTest::newRow("204 -> 205") << u"DROP TABLE exer_mealplan"_s
                                << u"CREATE TABLE exer_mealplan (ex_id INTEGER PRIMARY KEY, user_id INTEGER, "
                                   "date TEXT, duration NUMERIC, rate NUMERIC, name TEXT, status INTEGER)"_s
                                << u"Upgrade schema 204 -> 205 failed: Cannot create temp table"_s
                                << QString() << QString() << 204;
    QTest::newRow("206 -> 300") << u"CREATE TABLE metrics_startStats (x)"_s
                                << u"DROP TABLE metrics_startStats"_s << u"Error upgrading database"_s
                                << u"Upgrade schema 205 -> 300 failed."_s << u"Cannot create metrics table"_s
                                << 206;
    QTest::newRow("306 -> 307") << u"CREATE TABLE favorites (x)"_s << u"DROP TABLE favorites"_s
                                << u"Error upgarding database"_s << u"Upgrade schema 306 -> 307 failed."_s
                                << u"Couldn't create favorites table"_s << 306;
}

void TestSchema::failedStepResumesNextStart()
{
    QFETCH(QString, breaking);
    QFETCH(QString, repair);
    QFETCH(QString, fatal);
    QFETCH(QString, caption);
    QFETCH(QString, exception);
    QFETCH(int, committed);

    runOnFile(templatePath(), {breaking});
    std::string error;
    LM_VERIFY_FATAL(LmSqlDb::startUp(error, true), fatal);
    if (caption.isEmpty()) {
        QVERIFY(_presenter.messages.isEmpty());
    } else {
        QCOMPARE(_presenter.messages.size(), 1);
        QCOMPARE(_presenter.messages.at(0).caption, caption);
        QCOMPARE(_presenter.messages.at(0).text,
                 u"Contact technical support with the following message:\n"_s + exception);
    }
    LmSqlDb::shutDown();
    QCOMPARE(runOnFile(databasePath(),
                       {u"SELECT itemvalue FROM userdata_meta WHERE itemkey = 'schema_version'"_s}),
             QString::number(committed));
    QCOMPARE(backups().size(), 1);
    QVERIFY(readFile(backups().first()) == readFile(templatePath()));

    runOnFile(databasePath(), {repair});
    _steps.clear();
    QVERIFY(LmSqlDb::startUp(error, true));
    QCOMPARE(LmSqlDb::instance()->schemaVersion(), 412);
    QCOMPARE(_steps.first().first, committed);
}

void TestSchema::step304Or305_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<QStringList>("users"); // makes the user_users table
    QTest::addColumn<QString>("fatal");

    const QStringList plain = {u"CREATE TABLE user_users (user_id INTEGER PRIMARY KEY, name TEXT)"_s};
    const QStringList withPath = {
        u"CREATE TABLE user_users (user_id INTEGER PRIMARY KEY, backup_data_path TEXT)"_s};
    // SQLite writes the statement's keywords in capitals; only an edited schema lacks them.
    const QStringList edited =
        plain + QStringList{u"PRAGMA writable_schema = ON"_s,
                            u"UPDATE sqlite_master SET sql = 'create table user_users (user_id "
                            "INTEGER PRIMARY KEY, name TEXT)' WHERE name = 'user_users'"_s};
    QTest::newRow("304") << 304 << plain << QString();
    QTest::newRow("305") << 305 << plain << QString();
    QTest::newRow("305 with the column") << 305 << withPath << QString();
    QTest::newRow("no user_users") << 305 << QStringList()
                                   << u"Couldn't get user_users schema info from sqlite_master"_s;
    QTest::newRow("schema text without CREATE TABLE")
        << 304 << edited << u"Couldn't get valid CREATE TABLE from user_users schema info"_s;
}

void TestSchema::step304Or305()
{
    QFETCH(int, version);
    QFETCH(QStringList, users);
    QFETCH(QString, fatal);

    // Just the tables that the steps from 304 on change.
    QStringList tables = {
        u"CREATE TABLE userdata_meta (itemkey TEXT PRIMARY KEY, itemvalue TEXT)"_s,
        u"INSERT INTO userdata_meta VALUES ('schema_version', '%1')"_s.arg(version),
        u"CREATE TABLE custom_foods (food_id INTEGER PRIMARY KEY, name TEXT)"_s,
        u"CREATE TABLE food_diary (food_id INTEGER PRIMARY KEY, user_id INTEGER)"_s,
        u"CREATE TABLE food_mealplan (food_id INTEGER PRIMARY KEY, user_id INTEGER)"_s,
        u"CREATE TABLE user_target (user_id INTEGER, date TEXT, target_calories NUMERIC, target_fat NUMERIC, "
        "target_protein NUMERIC, target_fiber NUMERIC, target_carb NUMERIC)"_s,
        u"CREATE TABLE user_misc (user_id INTEGER, date TEXT, height NUMERIC)"_s,
    };
    tables.append(users);
    QDir().mkpath(LmSettings::userDatabasePath());
    runOnFile(databasePath(), tables);

    std::string error;
    if (!fatal.isEmpty()) {
        LM_VERIFY_FATAL(LmSqlDb::startUp(error, false), fatal);
        QVERIFY(_steps.isEmpty());
        return;
    }
    QTest::ignoreMessage(QtDebugMsg, "Upgrading database schema: 30[45] -> 306");
    QVERIFY(LmSqlDb::startUp(error, false));
    QCOMPARE(LmSqlDb::instance()->schemaVersion(), 412);
    QCOMPARE(_steps.first(), qMakePair(version, 306));
    QCOMPARE(columnsOf(u"user_users"_s).count(u"backup_data_path"_s), 1);
}

void TestSchema::backupFailureIsFatal()
{
    // The database lives elsewhere, but the backup is still taken from the per-user data folder.
    LmSettings::writeValue(u"/admin/userdbpath"_s, folder(u"elsewhere"_s));
    std::string error;
    LM_VERIFY_FATAL(LmSqlDb::startUp(error, true), u"Cannot backup database before upgrade"_s);
    QVERIFY(QFile::exists(folder(u"elsewhere/userdata.db"_s)));
    QCOMPARE(_presenter.messages.size(), 1);
    QCOMPARE(_presenter.messages.at(0).caption, u"Cannot backup userdatabase before ugprade"_s);
    QCOMPARE(
        _presenter.messages.at(0).text,
        u"Cannot continue to upgrade your database as a backup cannot be made\nCheck that you have enough "
        "free space and file permissions in "_s +
            LmSettings::dataPath());
    QVERIFY(_steps.isEmpty());
}

void TestSchema::addColumn_data()
{
    QTest::addColumn<QStringList>("setup");
    QTest::addColumn<QString>("column");
    QTest::addColumn<QString>("columns");   // afterwards, in order
    QTest::addColumn<QString>("firstRow");  // afterwards
    QTest::addColumn<QString>("indexes");   // afterwards
    QTest::addColumn<QString>("exception"); // empty: none

    QTest::newRow("new column first")
        << QStringList{u"CREATE TABLE s (a INTEGER, b TEXT)"_s, u"INSERT INTO s VALUES (1, 'x')"_s} << u"c"_s
        << u"c a b"_s << u"NULL 1 x"_s << QString() << QString();
    QTest::newRow("contained in a longer name")
        << QStringList{u"CREATE TABLE s (a_longer INTEGER, b TEXT)"_s, u"INSERT INTO s VALUES (1, 'x')"_s}
        << u"longer"_s << u"a_longer b"_s << u"1 x"_s << QString() << QString();
    QTest::newRow("keys and indexes kept")
        << QStringList{u"CREATE TABLE s (a INTEGER, b TEXT, PRIMARY KEY (a, b))"_s,
                       u"CREATE INDEX s_b_idx ON s (b)"_s, u"CREATE INDEX s_ab_idx ON s (a, b)"_s,
                       u"INSERT INTO s VALUES (2, 'y')"_s}
        << u"c"_s << u"c a b"_s << u"NULL 2 y"_s << u"s_ab_idx s_b_idx sqlite_autoindex_s_1"_s << QString();
    QTest::newRow("integer key")
        << QStringList{u"CREATE TABLE s (a INTEGER PRIMARY KEY, b BOOL, d NUMERIC)"_s,
                       u"INSERT INTO s VALUES (9, 1, 2.5)"_s}
        << u"c"_s << u"c a b d"_s << u"NULL 9 1 2.5"_s << QString() << QString();
    QTest::newRow("no such table") << QStringList() << u"c"_s << QString() << QString() << QString()
                                   << u"Cannot create temp table"_s;
}

void TestSchema::addColumn()
{
    QFETCH(QStringList, setup);
    QFETCH(QString, column);
    QFETCH(QString, columns);
    QFETCH(QString, exception);
    QVERIFY(startCurrent());
    LmSqlDb *db = LmSqlDb::instance();
    for (const QString &statement : std::as_const(setup))
        QVERIFY(db->prepare(statement)->exec());

    QString thrown;
    try {
        db->addColumn(u"s"_s, column, u"NUMERIC"_s);
    } catch (const LmException &e) {
        thrown = e.message();
    }
    QCOMPARE(thrown, exception);
    if (!exception.isEmpty())
        return;

    QCOMPARE(columnsOf(u"s"_s).join(u' '), columns);
    QStringList values;
    for (const QString &name : columnsOf(u"s"_s))
        values.append(u"IFNULL(%1, 'NULL')"_s.arg(name));
    QTEST(queryColumn(u"SELECT %1 FROM s"_s.arg(values.join(u" || ' ' || "_s))).value(0), "firstRow");
    QTEST(
        queryColumn(u"SELECT name FROM sqlite_master WHERE type = 'index' AND tbl_name = 's' ORDER BY name"_s)
            .join(u' '),
        "indexes");
}

void TestSchema::setSchemaVersionNeedsItsRow()
{
    QVERIFY(startCurrent());
    LmSqlDb *db = LmSqlDb::instance();
    QVERIFY(db->prepare(u"DELETE FROM userdata_meta WHERE itemkey = 'schema_version'"_s)->exec());
    QString thrown;
    try {
        db->setSchemaVersion(413);
    } catch (const LmException &e) {
        thrown = e.message();
    }
    QCOMPARE(thrown, u"Cannot update database schema version"_s);
}

QTEST_GUILESS_MAIN(TestSchema)
#include "tst_schema.moc"
