// The database start-up: locate or create the file, back it up and walk it up the chain of
// schema upgrades, one transaction per step, then install the sync triggers.

#include "db/schema.h"

#include "app/lmsettings.h"
#include "common/lmassert.h"
#include "common/lmconstants.h"
#include "common/lmmessage.h"
#include "db/dblog.h"
#include "db/lmexception.h"
#include "db/lmsqldb.h"
#include "db/synctriggers.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QList>
#include <QRegularExpression>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStringList>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

LmSchema::StepObserver &stepObserver()
{
    static LmSchema::StepObserver observer;
    return observer;
}

void processPendingEvents()
{
    if (QCoreApplication::instance())
        QCoreApplication::processEvents();
}

// Runs one statement; a failure throws failureText.
void runStatement(const LmSqlDb &db, const QString &sql, const QString &failureText)
{
    LmSqlQueryPtr query = db.prepare(sql);
    if (!query->exec())
        throw LmException(failureText);
}

// One upgrade step: its changes, the new version and the commit in one transaction, so that a
// failed step leaves the last committed version. A failure shows a box with the step's caption,
// rolls back and ends the program; the first step has no caption and ends at once, naming the
// exception in its fatal message.
template <typename Changes>
void runStep(int from, int to, const QString &logLine, const QString &caption, const QString &fatalMessage,
             Changes changes)
{
    if (stepObserver())
        stepObserver()(from, to);
    if (!logLine.isEmpty())
        qCDebug(lcDb).noquote() << logLine;

    LmSqlDb &db = *LmSqlDb::instance();
    db.beginTransaction();
    try {
        changes(db);
        db.setSchemaVersion(to);
        db.commitTransaction();
    } catch (const LmException &e) {
        if (caption.isEmpty())
            Lm::fatal(fatalMessage + e.message());
        Lm::showMessage(Lm::MessageKind::Warning, caption,
                        u"Contact technical support with the following message:\n"_s + e.message());
        db.rollbackTransaction();
        Lm::fatal(fatalMessage);
    }
}

// How often a written version is read back before the write counts as failed.
constexpr int kVersionReadBacks = 100;

const QString kUpgradeError = u"Error upgrading database"_s;
const QString kUpgardeError = u"Error upgarding database"_s; // the later steps' spelling

void addColumns(LmSqlDb &db, const QString &table, const QStringList &columns, const QString &type)
{
    for (const QString &column : columns)
        db.addColumn(table, column, type);
}

void upgrade204To205()
{
    runStep(204, 205, QString(), QString(), u"Upgrade schema 204 -> 205 failed: "_s, [](LmSqlDb &db) {
        for (const QString &table :
             {u"food_diary"_s, u"group_diary"_s, u"food_mealplan"_s, u"exer_diary"_s, u"exer_mealplan"_s})
            db.addColumn(table, u"time"_s, u"TEXT"_s);
        db.addColumn(u"exer_diary"_s, u"group_id"_s, u"INTEGER"_s);
        db.addColumn(u"exer_mealplan"_s, u"group_id"_s, u"INTEGER"_s);
    });
}

void upgrade205To206()
{
    runStep(205, 206, u"Upgrading database schema: 205 -> 206"_s, u"Upgrade schema 204 -> 205 failed."_s,
            kUpgradeError, [](LmSqlDb &db) { db.addColumn(u"user_checkins"_s, u"steps"_s, u"NUMERIC"_s); });
}

void upgrade206To300()
{
    runStep(206, 300, QString(), u"Upgrade schema 205 -> 300 failed."_s, kUpgradeError, [](LmSqlDb &db) {
        for (const QString &table : {u"user_checkins_sync"_s, u"water_diary_sync"_s, u"food_diary_sync"_s,
                                     u"exer_diary_sync"_s, u"group_diary_sync"_s})
            db.addColumn(table, u"lastModified"_s, u"TEXT"_s);

        runStatement(db,
                     u"CREATE table metrics_startStats ( user_id INTEGER, date TEXT, count INTEGER, "
                     "PRIMARY KEY ( user_id, date ) )"_s,
                     u"Cannot create metrics table"_s);
        runStatement(db,
                     u"INSERT INTO userdata_sync_tables VALUES ('metrics_startStats',\t"
                     "'metrics_startStats_sync',\t'user_id, date')"_s,
                     u"Cannot create userdata_sync_tables entry"_s);
        runStatement(db,
                     u"CREATE TABLE metrics_startStats_sync(device INTEGER, state INTEGER, user_id INTEGER,  "
                     "date TEXT, lastModified TEXT, palm_id INTEGER, PRIMARY KEY(user_id, date))"_s,
                     u"Cannot create metrics sync table"_s);
        runStatement(
            db, u"CREATE INDEX metrics_sync_idx   \t\tON metrics_startStats_sync  (user_id, date,\tdevice)"_s,
            u"Cannot create metrics sync index"_s);
        runStatement(db, u"INSERT INTO userdata_sync_devices(id, name) VALUES (2, 'metrics')"_s,
                     u"Cannot create metrics device in userdata_sync_devices"_s);
    });
}

// The upload-on-exit settings moved into per-profile columns. Their values are dropped, not
// carried over: the update below has placeholders that are never bound, and its failure is
// ignored on purpose.
void handOverSyncSettings(LmSqlDb &db)
{
    for (const QString &key : {u"/sync/uploadOnExit"_s, u"/sync/confirmUploadOnExit"_s}) {
        if (LmSettings::readValue(key, false).toBool())
            LmSettings::removeValue(key);
    }

    int users = 0;
    {
        LmSqlQueryPtr count = db.prepare(u"SELECT COUNT ( user_id ) FROM user_users"_s);
        if (count->exec() && count->next())
            users = count->value(0).toInt();
    }
    if (users != 0) {
        LmSqlQueryPtr update = db.prepare(u"update user_users set auto_publish = ?, ask_before_publish = ? "
                                          "where web_username <> \"\" and web_password <> \"\""_s);
        update->exec();
    }
}

void upgrade300To301()
{
    runStep(300, 301, QString(), u"Upgrade schema 300 -> 301 failed."_s, kUpgradeError, [](LmSqlDb &db) {
        db.addColumn(u"user_users"_s, u"auto_publish"_s, u"INTEGER"_s);
        db.addColumn(u"user_users"_s, u"ask_before_publish"_s, u"INTEGER"_s);
        handOverSyncSettings(db);
    });
}

void upgrade301To302()
{
    runStep(301, 302, u"Upgrade 301 -> 302"_s, u"Upgrade schema 301 -> 302 failed."_s, kUpgradeError,
            [](LmSqlDb &db) {
                db.addColumn(u"userdata_sync_devices"_s, u"user_id"_s, u"INTEGER"_s);
                runStatement(db,
                             u"UPDATE userdata_sync_devices SET user_id = 0 WHERE id = 1 AND "
                             "substr(name,1,4) = 'palm'"_s,
                             u"couldn't set user_id on existing palm device"_s);
            });
}

void upgrade302To303()
{
    runStep(302, 303, u"Upgrading database schema: 302 -> 303"_s, u"Upgrade schema 302 -> 303 failed."_s,
            kUpgradeError, [](LmSqlDb &db) {
                db.addColumn(u"user_users"_s, u"tipOfTheDay"_s, u"INTEGER"_s);
                // A table left by an earlier attempt is no error.
                LmSqlQueryPtr create =
                    db.prepare(u"CREATE TABLE user_firsttime_tips ( user_id INTEGER, "
                               "tip_index INTEGER, PRIMARY KEY ( user_id, tip_index ) );"_s);
                create->exec();
            });
}

void upgrade303To304()
{
    runStep(303, 304, u"Upgrading database schema: 303 -> 304"_s, u"Upgrade schema 303 -> 304 failed."_s,
            kUpgradeError,
            [](LmSqlDb &db) { db.addColumn(u"user_users"_s, u"hideNutrientAndFluid"_s, u"BOOL"_s); });
}

void upgrade304To306()
{
    const LmSqlDb &db = *LmSqlDb::instance();
    QString createText;
    {
        LmSqlQueryPtr schema =
            db.prepare(u"SELECT sql FROM sqlite_master WHERE type='table' AND name='user_users'"_s);
        if (!schema->exec() || !schema->next())
            Lm::fatal(u"Couldn't get user_users schema info from sqlite_master"_s);
        createText = schema->value(0).toString();
    }
    if (!createText.contains(u"CREATE TABLE"_s))
        Lm::fatal(u"Couldn't get valid CREATE TABLE from user_users schema info"_s);

    runStep(db.schemaVersion(), 306, u"Upgrading database schema: 30[45] -> 306"_s,
            u"Upgrade schema 304/305 -> 306 failed."_s, kUpgradeError, [&createText](LmSqlDb &db) {
                if (!createText.contains(u"backup_data_path"_s))
                    db.addColumn(u"user_users"_s, u"backup_data_path"_s, u"TEXT"_s);
            });
}

void upgrade306To307()
{
    runStep(306, 307, u"Upgrading database schema: 306 ->  307"_s, u"Upgrade schema 306 -> 307 failed."_s,
            kUpgardeError, [](LmSqlDb &db) {
                runStatement(db,
                             u"CREATE TABLE favorites (user_id INTEGER, item_id INTEGER, item_type INTEGER, "
                             "PRIMARY KEY(user_id, item_id, item_type))"_s,
                             u"Couldn't create favorites table"_s);
            });
}

void upgrade307To308()
{
    runStep(307, 308, u"Upgrading database schema: 307 -> 308"_s, u"Upgrade schema 307 -> 308 failed."_s,
            kUpgardeError, [](LmSqlDb &db) {
                const QStringList nutrients = {u"saturated_fat"_s, u"cholesterol"_s, u"sodium"_s, u"sugar"_s,
                                               u"calcium"_s};
                for (const QString &table : {u"custom_foods"_s, u"food_diary"_s, u"food_mealplan"_s})
                    addColumns(db, table, nutrients, u"NUMERIC"_s);
                db.addColumn(u"user_users"_s, u"diaryViewColumnSettings"_s, u"TEXT"_s);
                db.addColumn(u"user_users"_s, u"diaryAdvancedMode"_s, u"INTEGER"_s);
            });
}

// Profiles that already have a target get the display size of that target.
bool setDefaultTargetSizes(const LmSqlDb &db)
{
    struct DefaultSize
    {
        QString targetColumn;
        QString sizeColumn;
        int size;
    };
    static const DefaultSize kDefaults[] = {
        {u"target_calories"_s, u"energy_target_size"_s, 3}, {u"target_fat"_s, u"fat_target_size"_s, 2},
        {u"target_protein"_s, u"protein_target_size"_s, 2}, {u"target_fiber"_s, u"fiber_target_size"_s, 2},
        {u"target_carb"_s, u"carb_target_size"_s, 2},
    };

    QList<int> users;
    {
        LmSqlQueryPtr query = db.prepare(u"SELECT user_id FROM user_users"_s);
        if (!query->exec())
            return false;
        while (query->next())
            users.append(query->value(0).toInt());
    }

    for (const int user : std::as_const(users)) {
        for (const DefaultSize &entry : kDefaults) {
            LmSqlQueryPtr latest =
                db.prepare(u"SELECT %1 FROM user_target WHERE %1 IS NOT NULL AND user_id = ? "
                           "ORDER BY date DESC LIMIT 1"_s.arg(entry.targetColumn));
            latest->bindValue(0, user);
            if (!latest->exec())
                return false;
            if (!latest->next() || latest->value(0).toInt() < 0)
                continue;
            latest->finish();
            qCDebug(lcDb).noquote() << u"Setting default target for "_s + entry.targetColumn;
            LmSqlQueryPtr update =
                db.prepare(u"UPDATE user_users SET %1 = ? WHERE user_id = ?"_s.arg(entry.sizeColumn));
            update->bindValue(0, entry.size);
            update->bindValue(1, user);
            update->exec();
        }
    }
    return true;
}

void upgrade308To309()
{
    runStep(308, 309, u"Upgrading database schema: 308 -> 309"_s, u"Upgrade schema 308 -> 309 failed."_s,
            kUpgardeError, [](LmSqlDb &db) {
                addColumns(db, u"user_target"_s,
                           {u"target_saturated_fat"_s, u"target_cholesterol"_s, u"target_sodium"_s,
                            u"target_sugar"_s, u"target_calcium"_s},
                           u"NUMERIC"_s);
                addColumns(db, u"user_users"_s,
                           {u"energy_target_size"_s, u"carb_target_size"_s, u"fiber_target_size"_s,
                            u"protein_target_size"_s, u"fat_target_size"_s, u"sat_fat_target_size"_s,
                            u"cholesterol_target_size"_s, u"sugar_target_size"_s, u"calcium_target_size"_s,
                            u"sodium_target_size"_s},
                           u"INTEGER"_s);
                if (!setDefaultTargetSizes(db))
                    qCDebug(lcDb) << "UPGRADE FAILED!!!";
            });
}

void upgrade309To310()
{
    runStep(309, 310, u"Upgrading database schema: 309 -> 310"_s, u"Upgrade schema 309 -> 310 failed."_s,
            kUpgardeError, [](LmSqlDb &db) {
                db.addColumn(u"user_misc"_s, u"custom_rmr"_s, u"NUMERIC"_s);
                db.addColumn(u"user_misc"_s, u"diet_plan"_s, u"TEXT"_s);
            });
}

void upgrade310To411()
{
    runStep(310, 411, QString(), u"Upgrade schema 310 -> 411 failed."_s, kUpgradeError, [](LmSqlDb &) {});
}

void upgrade411To412()
{
    runStep(411, 412, QString(), u"Upgrade schema 411 ->412 failed."_s, kUpgradeError,
            [](LmSqlDb &db) { db.addColumn(u"user_users"_s, u"summaryOptions"_s, u"INTEGER"_s); });
}

// Recipes, and the goals that the targets are worked out from. An ingredient keeps its values for
// its quantity as they were when the recipe was made, like a saved meal's foods, and a logged
// portion keeps its own: changing a recipe never changes a day already logged.
void upgrade412To413()
{
    runStep(412, 413, u"Upgrading database schema: 412 -> 413"_s, u"Upgrade schema 412 -> 413 failed."_s,
            kUpgardeError, [](LmSqlDb &db) {
                runStatement(
                    db,
                    u"CREATE TABLE IF NOT EXISTS recipes (recipe_id INTEGER PRIMARY KEY, user_id INTEGER, "
                    "name TEXT NOT NULL, portions NUMERIC NOT NULL, cooked_weight NUMERIC, "
                    "status INTEGER NOT NULL DEFAULT 1, created TEXT, modified TEXT)"_s,
                    u"Cannot create table recipes"_s);
                runStatement(
                    db,
                    u"CREATE TABLE IF NOT EXISTS recipe_ingredients (recipe_id INTEGER NOT NULL, "
                    "position INTEGER NOT NULL, ref_id INTEGER, food_name TEXT, serving_id INTEGER, "
                    "serv_name TEXT, size NUMERIC, calories NUMERIC, carb NUMERIC, fat NUMERIC, "
                    "fiber NUMERIC, protein NUMERIC, saturated_fat NUMERIC, cholesterol NUMERIC, "
                    "sodium NUMERIC, sugar NUMERIC, calcium NUMERIC, PRIMARY KEY (recipe_id, position))"_s,
                    u"Cannot create table recipe_ingredients"_s);
                addColumns(db, u"user_misc"_s, {u"goal_weight"_s, u"weekly_rate"_s, u"energy_by_hand"_s},
                           u"NUMERIC"_s);
                db.addColumn(u"user_users"_s, u"water_goal"_s, u"INTEGER"_s);
            });
}

struct ChainRow
{
    int from;
    int alsoFrom; // the one step that starts at two versions
    void (*run)();
};

// Every row up to 310; the steps from 411 run after the check that the chain reached 411.
const ChainRow kChain[] = {
    {204, 204, upgrade204To205}, {205, 205, upgrade205To206}, {206, 206, upgrade206To300},
    {300, 300, upgrade300To301}, {301, 301, upgrade301To302}, {302, 302, upgrade302To303},
    {303, 303, upgrade303To304}, {304, 305, upgrade304To306}, {306, 306, upgrade306To307},
    {307, 307, upgrade307To308}, {308, 308, upgrade308To309}, {309, 309, upgrade309To310},
    {310, 310, upgrade310To411},
};

// The copy that an upgrade may be undone from. Its paths come from the per-user data folder even
// when the database lives elsewhere.
// Whether a backup of exactly these bytes lies in the folder already: a diary that cannot be
// upgraded (too new, or a step that fails) is backed up once, not at every start.
bool alreadyBackedUp(const QString &folder, const QString &file)
{
    QFile current(folder + file);
    if (!current.open(QIODevice::ReadOnly))
        return false;
    const QByteArray bytes = current.readAll();
    const QFileInfoList backups =
        QDir(folder).entryInfoList({file.section(u'.', 0, 0) + u".??????-??????"_s}, QDir::Files);
    for (const QFileInfo &backup : backups) {
        if (backup.size() != bytes.size())
            continue;
        QFile other(backup.filePath());
        if (other.open(QIODevice::ReadOnly) && other.readAll() == bytes)
            return true;
    }
    return false;
}

// The size copyFile takes in one piece.
constexpr qint64 kWholeCopyLimit = qint64(15) * 1024 * 1024;

void backUpBeforeUpgrade()
{
    const QString folder = LmSettings::dataPath();
    if (alreadyBackedUp(folder, QLatin1String(LmSqlDb::kFileName))) {
        qCDebug(lcDb) << "The user database is backed up already";
        return;
    }
    const QString backup =
        folder + u"userdata."_s + QDateTime::currentDateTime().toString(u"yyMMdd-hhmmss"_s);
    QString error;
    const QString source = folder + QLatin1String(LmSqlDb::kFileName);
    // Years of a household's diary outgrow the whole-file copy; they are copied block by block
    // rather than kept from the upgrade.
    const bool large = QFileInfo(source).size() > kWholeCopyLimit;
    if (large ? copyFileBlockwise(source, backup) : copyFile(source, backup, error)) {
        qCDebug(lcDb).noquote() << "Backed up the user database to" << backup;
        return;
    }
    qCWarning(lcDb).noquote() << "Backup failed:" << error;
    Lm::showMessage(Lm::MessageKind::Information, u"Cannot backup userdatabase before ugprade"_s,
                    u"Cannot continue to upgrade your database as a backup cannot be made\n"
                    "Check that you have enough free space and file permissions in "_s +
                        folder);
    Lm::fatal(u"Cannot backup database before upgrade"_s);
}

// Each row reads the version afresh, so a start that was interrupted resumes at the step whose
// transaction did not commit.
bool runUpgrades(const LmSqlDb &db, QString &error)
{
    qCDebug(lcDb) << "Checking upgrades.";
    for (const ChainRow &row : kChain) {
        const int version = db.schemaVersion();
        if (version == row.from || version == row.alsoFrom) {
            row.run();
            processPendingEvents();
        }
    }
    const int version = db.schemaVersion();
    if (version != 411 && version != 412) {
        error = u"Your database is not supported by this software.\n\tDatabase version: %1\n\t"
                "Application version: %2"_s.arg(version)
                    .arg(QLatin1String(Lm::kVersion));
        return false;
    }
    if (version == 411) {
        upgrade411To412();
        processPendingEvents();
    }
    upgrade412To413();
    processPendingEvents();
    qCDebug(lcDb) << "All upgrades checked.";
    return true;
}

} // namespace

void LmSchema::setStepObserver(StepObserver observer)
{
    stepObserver() = std::move(observer);
}

namespace {

// The tables and columns the program's statements use, at the current version.
struct RequiredTable
{
    const char *name;
    const char *columns;
};
#define TARNWELL_FOOD_COLUMNS                                                                                \
    "food_id user_id date meal status ref_id group_id time food_name serving_id serv_name size calories "    \
    "fat protein carb fiber saturated_fat cholesterol sodium sugar calcium"
#define TARNWELL_EXERCISE_COLUMNS "ex_id user_id date duration rate name status time group_id"
#define TARNWELL_DATED_SYNC_COLUMNS "device state user_id date lastModified palm_id"
const RequiredTable kRequiredTables[] = {
    {"userdata_meta", "itemkey itemvalue"},
    {"user_users",
     "user_id name password created dob sex measurement_units energy_units web_username web_password "
     "auto_publish "
     "ask_before_publish tipOfTheDay hideNutrientAndFluid backup_data_path diaryViewColumnSettings "
     "diaryAdvancedMode energy_target_size fat_target_size fiber_target_size carb_target_size "
     "protein_target_size sat_fat_target_size cholesterol_target_size sugar_target_size calcium_target_size "
     "sodium_target_size summaryOptions water_goal"},
    {"user_target", "user_id date target_calories target_fat target_protein target_fiber target_carb "
                    "target_saturated_fat target_cholesterol target_sodium target_sugar target_calcium"},
    {"user_misc",
     "user_id date height goal activity custom_rmr diet_plan goal_weight weekly_rate energy_by_hand"},
    {"recipes", "recipe_id user_id name portions cooked_weight status created modified"},
    {"recipe_ingredients",
     "recipe_id position ref_id food_name serving_id serv_name size calories carb fat fiber "
     "protein saturated_fat cholesterol sodium sugar calcium"},
    {"user_checkins", "user_id date weight chest hip thigh waist steps note"},
    {"user_firsttime_tips", "user_id tip_index"},
    {"water_diary", "user_id date cups"},
    {"food_diary", TARNWELL_FOOD_COLUMNS},
    {"food_mealplan", TARNWELL_FOOD_COLUMNS},
    {"exer_diary", TARNWELL_EXERCISE_COLUMNS},
    {"exer_mealplan", TARNWELL_EXERCISE_COLUMNS},
    {"group_diary", "group_id user_id name status date time"},
    {"custom_foods", "food_id category_id name serv_name calories fat protein carb fiber saturated_fat "
                     "cholesterol sodium sugar calcium"},
    {"custom_food_cats", "category_id parent_id name"},
    {"custom_exercises", "activity_id category_id description scale"},
    {"custom_exercise_cats", "category_id parent_id description"},
    {"favorites", "user_id item_id item_type"},
    {"metrics_startStats", "user_id date count"},
    {"userdata_sync_devices", "id name user_id"},
    {"userdata_sync_tables", "source_table dest_table fields"},
    {"food_diary_sync", "device state food_id lastModified palm_id"},
    {"exer_diary_sync", "device state ex_id lastModified palm_id"},
    {"group_diary_sync", "device state group_id lastModified palm_id"},
    {"user_checkins_sync", TARNWELL_DATED_SYNC_COLUMNS},
    {"water_diary_sync", TARNWELL_DATED_SYNC_COLUMNS},
    {"metrics_startStats_sync", TARNWELL_DATED_SYNC_COLUMNS},
};
#undef TARNWELL_FOOD_COLUMNS
#undef TARNWELL_EXERCISE_COLUMNS
#undef TARNWELL_DATED_SYNC_COLUMNS

} // namespace

QString LmSchema::missingPart(const QSqlDatabase &db)
{
    // One read of the schema: the words of each table's definition, in lower case as SQLite
    // compares names.
    QHash<QString, QSet<QString>> words;
    {
        QSqlQuery query(db);
        query.setForwardOnly(true);
        if (!query.exec(u"SELECT lower(name), lower(sql) FROM sqlite_master WHERE type = 'table'"_s))
            return u"the list of tables cannot be read"_s;
        static const QRegularExpression separators(u"[^a-z0-9_]+"_s);
        while (query.next()) {
            const QStringList tokens = query.value(1).toString().split(separators, Qt::SkipEmptyParts);
            words.insert(query.value(0).toString(), QSet<QString>(tokens.cbegin(), tokens.cend()));
        }
    }
    for (const RequiredTable &table : kRequiredTables) {
        const QString name = QLatin1String(table.name);
        const auto found = words.constFind(name.toLower());
        if (found == words.cend())
            return u"no table %1"_s.arg(name);
        for (const QString &column : QString::fromLatin1(table.columns).split(u' ')) {
            if (!found->contains(column.toLower()))
                return u"no column %1 in %2"_s.arg(column, name);
        }
    }
    return QString();
}

// Opens the file as the instance and brings it to the current version: a file of a version the
// chain cannot take, or without a table or column the program uses, is refused.
bool LmSqlDb::openAndUpgrade(const QString &file, bool backUp, std::string &error)
{
    bool openFailed = false;
    _instance = new LmSqlDb(file, error, openFailed);
    LmSqlDb *db = _instance;

    if (!LmSchema::isCurrent(db->schemaVersion())) {
        if (db->schemaVersion() == 0) {
            error = "Cannot start program as database may be corrupted";
            return false;
        }
        if (backUp)
            backUpBeforeUpgrade();
        QString upgradeError;
        if (!runUpgrades(*db, upgradeError)) {
            error = upgradeError.toStdString();
            return false;
        }
    }
    if (openFailed) {
        shutDown();
        return false;
    }
    if (const QString missing = LmSchema::missingPart(*db->database()); !missing.isEmpty()) {
        error = (u"Cannot start program as database may be corrupted\n("_s + missing + u')').toStdString();
        return false;
    }
    return true;
}

bool LmSqlDb::startUp(std::string &error, bool installTriggers)
{
    if (_instance) {
        error = "startUp called twice? should never happen";
        return false;
    }

    const QString fileName = QLatin1String(kFileName);
    QString text;
    if (!locateOrCreateDatabase(fileName, text)) {
        error = (u"Could not locate, or create, the user's database ("_s + LmSettings::dataPath() + fileName +
                 u"):\n"_s + text)
                    .toStdString();
        return false;
    }
    restoreDatabaseHeader(LmSettings::userDatabasePath() + fileName);

    if (!openAndUpgrade(LmSettings::userDatabasePath() + fileName, true, error))
        return false;
    if (!installTriggers)
        return true;
    if (installSyncTriggers())
        return true;
    error = "Error occurred whilst setting up db triggers";
    delete _instance;
    _instance = nullptr;
    return false;
}

bool LmSqlDb::upgradeFile(const QString &file, std::string &error)
{
    LM_ASSERT(!_instance);
    const bool ok = openAndUpgrade(file, false, error);
    shutDown();
    return ok;
}

void LmSqlDb::setSchemaVersion(int version)
{
    {
        LmSqlQueryPtr update =
            prepare(u"UPDATE userdata_meta SET itemvalue = ? WHERE itemkey = 'schema_version'"_s);
        update->bindValue(0, version);
        // Without a version row the read-back below would never see the new version.
        if (!update->exec() || update->numRowsAffected() < 1)
            throw LmException("Cannot update database schema version");
    }
    // Read back until it shows; a file whose own trigger puts the version back never will.
    for (int reads = 0; schemaVersion() != version; ++reads) {
        if (reads >= kVersionReadBacks)
            throw LmException("Cannot update database schema version");
        processPendingEvents();
    }

    LmSqlQueryPtr modified =
        prepare(u"UPDATE userdata_meta SET itemvalue = ? WHERE itemkey = 'software_modified_version'"_s);
    modified->bindValue(0, QString::fromLatin1(Lm::kVersion));
    if (!modified->exec())
        throw LmException("Cannot update database modified string");
}

void LmSqlDb::addColumn(const QString &table, const QString &column, const QString &type)
{
    QString createText;
    QStringList indexTexts;
    {
        LmSqlQueryPtr tableQuery = prepare(u"SELECT sql FROM sqlite_master WHERE type='table' AND name=?"_s);
        LmSqlQueryPtr indexQuery =
            prepare(u"SELECT sql FROM sqlite_master WHERE type='index' and tbl_name = ?"_s);
        tableQuery->bindValue(0, table);
        indexQuery->bindValue(0, table);
        if (!tableQuery->exec())
            throw LmException(u"Cannot retrieve schema for "_s + table);
        if (tableQuery->next())
            createText = tableQuery->value(0).toString();
        if (indexQuery->exec()) {
            while (indexQuery->next())
                indexTexts.append(indexQuery->value(0).toString());
        }
    } // no statement may be pending when the table is dropped

    const qsizetype open = createText.indexOf(u'(');
    const qsizetype close = createText.lastIndexOf(u')');
    const QString definitions =
        open >= 0 && close > open ? createText.mid(open + 1, close - open - 1) : QString();

    // A plain substring test: a longer name that contains the new one counts as the column.
    if (definitions.contains(column))
        return;

    static const QRegularExpression keyClause(u"^\\s*|,?\\s*PRIMARY KEY[^)]*\\)"_s);
    static const QRegularExpression typeWords(u"\\s*(TEXT|INTEGER|PRIMARY|KEY|NUMERIC|BOOL)\\s*"_s);
    QString names = definitions;
    names.remove(keyClause);
    names.remove(typeWords);
    names = names.trimmed();

    runStatement(*this, u"CREATE TEMPORARY TABLE xxx_yyy_temp_table ("_s + names + u')',
                 u"Cannot create temp table"_s);
    runStatement(*this, u"INSERT INTO xxx_yyy_temp_table SELECT "_s + names + u" FROM "_s + table,
                 u"Cannot insert into temp table"_s);
    runStatement(*this, u"DROP TABLE "_s + table, u"Cannot drop table"_s);
    runStatement(*this,
                 u"CREATE TABLE "_s + table + u'(' + column + u' ' + type + u", "_s + definitions + u')',
                 u"Cannot create new table"_s);
    runStatement(*this,
                 u"INSERT INTO "_s + table + u'(' + names + u") SELECT "_s + names +
                     u" FROM xxx_yyy_temp_table"_s,
                 u"Cannot insert into new table"_s);
    runStatement(*this, u"DROP TABLE xxx_yyy_temp_table"_s, u"Cannot drop temp table"_s);

    // Dropping the table dropped its indexes.
    for (const QString &indexText : std::as_const(indexTexts)) {
        if (!indexText.isEmpty())
            runStatement(*this, indexText, u"Cannot create index"_s);
    }
}
