#include "db/userdb.h"

#include "brand/brandengine.h"
#include "common/lmassert.h"
#include "db/dblog.h"
#include "db/lmexception.h"
#include "db/lmsqldb.h"
#include "model/unitdescriptor.h"

#include <QSqlQuery>

#include <cmath>

const QString UserDB::kNoNote = QStringLiteral("<__NO_NOTE__>");

namespace {

LmSqlQueryPtr prepare(const QString &sql)
{
    return LmSqlDb::instance()->prepare(sql);
}

double number(const QVariant &value)
{
    return value.isNull() ? -1.0 : value.toDouble();
}

QVariant nullable(double value)
{
    return value < 0 ? QVariant() : QVariant(value);
}

QVariant nullableText(const QString &text)
{
    return text.isEmpty() ? QVariant() : QVariant(text);
}

void checkUser(int user_id)
{
    LM_ASSERT(user_id != -1);
}

CheckIn readCheckIn(const QSqlQuery &query)
{
    CheckIn c;
    c.weight = number(query.value(0));
    c.chest = number(query.value(1));
    c.hip = number(query.value(2));
    c.thigh = number(query.value(3));
    c.waist = number(query.value(4));
    c.steps = number(query.value(5));
    c.note = query.value(6).toString();
    c.date = query.value(7).toString();
    return c;
}

// Check-ins of a profile on or before a day, the most recent first.
const QString kCheckInsUpTo = QStringLiteral(
    "SELECT weight, chest, hip, thigh, waist, steps, note, date FROM user_checkins WHERE user_id = ? AND date <= ? "
    "ORDER BY date DESC");

const char *const kTargetColumns[] = {"target_calories", "target_carb",        "target_fat",
                                      "target_protein",  "target_fiber",       "target_saturated_fat",
                                      "target_cholesterol", "target_sodium",   "target_sugar",
                                      "target_calcium"};

} // namespace

QList<int> UserDB::getUserIds()
{
    QList<int> ids;
    LmSqlQueryPtr query = prepare(QStringLiteral("SELECT user_id FROM user_users ORDER BY user_id ASC"));
    if (execBound(query)) {
        while (query->next())
            ids.append(query->value(0).toInt());
    }
    return ids;
}

QList<UserProfile> UserDB::getUsers()
{
    QList<UserProfile> users;
    LmSqlQueryPtr query = prepare(QStringLiteral(
        "SELECT DISTINCT user_id, name, password, created, dob, sex, auto_publish, ask_before_publish  FROM user_users"));
    if (execBound(query)) {
        while (query->next()) {
            UserProfile p;
            p.user_id = query->value(0).toInt();
            p.name = query->value(1).toString();
            p.password = query->value(2).toString();
            p.created = query->value(3).toString();
            p.dob = query->value(4).toString();
            p.sex = query->value(5).toInt();
            p.auto_publish = query->value(6).toInt() != 0;
            p.ask_before_publish = query->value(7).toInt() != 0;
            users.append(p);
        }
    }
    std::sort(users.begin(), users.end(),
              [](const UserProfile &a, const UserProfile &b) { return a.user_id < b.user_id; });
    return users;
}

std::optional<UserProfile> UserDB::getUser(int user_id)
{
    for (const UserProfile &profile : getUsers()) {
        if (profile.user_id == user_id)
            return profile;
    }
    return std::nullopt;
}

int UserDB::numUsers()
{
    LmSqlQueryPtr query = prepare(QStringLiteral("SELECT COUNT(user_id) FROM user_users"));
    return execBound(query) && query->next() ? query->value(0).toInt() : 0;
}

int UserDB::createUser(const UserProfile &profile, const UserSettings &settings, double height, const QString &day)
{
    const BrandEngine &brand = BrandEngine::instance();
    const QString family = QStringLiteral("feature.family");
    if (!(brand.idExists(family) && brand.getBool(family)))
        LM_ASSERT(numUsers() < 1);

    LmWriteTransaction write;
    if (!write.isOpen())
        throw LmException("Cannot create the profile");
    LmSqlQueryPtr insert = prepare(QStringLiteral(
        "INSERT INTO user_users(  user_id, name, password, created, dob, sex,    measurement_units, energy_units, "
        "web_username, web_password, hidenutrientandfluid, summaryOptions,  energy_target_size, fat_target_size, "
        "fiber_target_size, carb_target_size, protein_target_size, sat_fat_target_size, cholesterol_target_size, "
        "sugar_target_size, calcium_target_size, sodium_target_size)VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?,?, ?, ?, ?, "
        "?, ?, ?, ?, ?, ?, ?, ?, ?)"));
    QVariantList values = {QVariant(),
                           profile.name,
                           profile.password,
                           profile.created,
                           profile.dob,
                           profile.sex,
                           settings.measurement_units,
                           settings.energy_units,
                           settings.web_username,
                           settings.web_password,
                           int(settings.hideNutrientAndFluid),
                           settings.summaryOptions};
    for (int size : settings.target_sizes)
        values.append(size);
    if (!execBound(insert, values))
        throw LmException("Cannot create the profile");

    LmSqlQueryPtr maxId = prepare(QStringLiteral("SELECT MAX(user_id) FROM user_users"));
    if (!execBound(maxId) || !maxId->next())
        throw LmException("Cannot create the profile");
    const int user_id = maxId->value(0).toInt();

    LmSqlDb::releaseQuery(maxId);

    LmSqlQueryPtr misc = prepare(QStringLiteral("INSERT INTO user_misc(user_id, date, height) VALUES (?, ?, ?)"));
    // auto publish and the flags that the insert does not carry
    if (!execBound(misc, {user_id, day, nullable(height)}) || !setSettings(user_id, settings) || !write.commit())
        throw LmException("Cannot create the profile");
    return user_id;
}

bool UserDB::updateUser(const UserProfile &p)
{
    checkUser(p.user_id);
    LmSqlQueryPtr query = prepare(
        QStringLiteral("UPDATE user_users SET name = ?, password = ?, created = ?, dob = ?, sex = ? WHERE user_id = ?"));
    return execBound(query, {p.name, p.password, p.created, p.dob, p.sex, p.user_id});
}

void UserDB::deleteUser(int user_id)
{
    const int &userId = user_id;
    LM_ASSERT(userId != -1);
    const char *const tables[] = {"food_diary",    "group_diary",  "food_mealplan", "exer_diary",
                                  "exer_mealplan", "user_users",   "user_target",   "user_misc",
                                  "user_checkins", "water_diary",  "metrics_startStats", "user_firsttime_tips"};
    LmWriteTransaction write;
    for (const char *table : tables) {
        LmSqlQueryPtr query =
            prepare(QStringLiteral("DELETE FROM ") + QLatin1String(table) + QStringLiteral(" WHERE user_id = ?"));
        if (!write.isOpen() || !execBound(query, {user_id}))
            throw LmException(QStringLiteral("Cannot delete") + QLatin1String(table) + QStringLiteral(" entries"));
    }
    if (!write.commit())
        throw LmException(QStringLiteral("Cannot delete the profile"));
}

void UserDB::applyDisplayUnits(int user_id)
{
    const UserSettings settings = getSettings(user_id);
    UnitRegistry &units = UnitRegistry::instance();
    units.applyPreferences(settings.measurement_units, settings.energy_units);
    const BrandEngine &brand = BrandEngine::instance();
    if (brand.idExists(QStringLiteral("spelling_fiber")))
        units.setFiberSpelling(brand.getString(QStringLiteral("spelling_fiber")));
}

UserSettings UserDB::getSettings(int user_id)
{
    checkUser(user_id);
    UserSettings s;
    LmSqlQueryPtr query = prepare(QStringLiteral(
        "SELECT measurement_units, energy_units, web_username, web_password, auto_publish, ask_before_publish, "
        "energy_target_size, fat_target_size, fiber_target_size, carb_target_size, protein_target_size, "
        "sat_fat_target_size, cholesterol_target_size, sugar_target_size, calcium_target_size, sodium_target_size, "
        "diaryAdvancedMode, summaryOptions, hideNutrientAndFluid  FROM user_users WHERE user_id = ?"));
    if (execBound(query, {user_id}) && query->next()) {
        s.measurement_units = query->value(0).toInt();
        s.energy_units = query->value(1).toInt();
        s.web_username = query->value(2).toString();
        s.web_password = query->value(3).toString();
        s.auto_publish = query->value(4).toInt() != 0;
        s.ask_before_publish = query->value(5).toInt() != 0;
        for (int i = 0; i < kTargetSizeCount; ++i)
            s.target_sizes[size_t(i)] = query->value(6 + i).toInt();
        s.diaryAdvancedMode = query->value(16).toInt();
        s.summaryOptions = query->value(17).toInt();
        s.hideNutrientAndFluid = query->value(18).toInt() != 0;
    }
    return s;
}

bool UserDB::setSettings(int user_id, const UserSettings &s)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(QStringLiteral(
        "UPDATE user_users SET web_username = ?, web_password = ?, measurement_units = ?, energy_units = ?, "
        "auto_publish = ?, ask_before_publish = ?,  energy_target_size = ?, fat_target_size = ?, fiber_target_size = "
        "?, carb_target_size = ?, protein_target_size = ?, sat_fat_target_size = ?, cholesterol_target_size = ?, "
        "sugar_target_size = ?, calcium_target_size = ?, sodium_target_size = ?, diaryAdvancedMode = ?, "
        "summaryOptions = ?, hideNutrientAndFluid = ?  WHERE user_id = ?"));
    QVariantList values = {s.web_username, s.web_password, s.measurement_units, s.energy_units,
                           int(s.auto_publish), int(s.ask_before_publish)};
    for (int size : s.target_sizes)
        values.append(size);
    values << s.diaryAdvancedMode << s.summaryOptions << int(s.hideNutrientAndFluid) << user_id;
    return execBound(query, values);
}

int UserDB::tipOfTheDay(int user_id)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(QStringLiteral("SELECT tipOfTheDay FROM user_users WHERE user_id = ?"));
    return execBound(query, {user_id}) && query->next() ? query->value(0).toInt() : 0;
}

bool UserDB::setTipOfTheDay(int user_id, int tip)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(QStringLiteral("UPDATE user_users SET tipOfTheDay = ? WHERE user_id = ?"));
    return execBound(query, {tip, user_id});
}

bool UserDB::setNutrientFluidHidden(int user_id, bool hidden)
{
    checkUser(user_id);
    qCDebug(lcDb, "In UserDB::setNutrientFluidHidden");
    LmSqlQueryPtr query = prepare(QStringLiteral("UPDATE user_users SET hideNutrientAndFluid = ? WHERE user_id = ?"));
    return execBound(query, {int(hidden), user_id});
}

bool UserDB::setBackupDataPath(int user_id, const QString &path)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(QStringLiteral("UPDATE user_users SET backup_data_path = ? WHERE user_id = ?"));
    return execBound(query, {path, user_id});
}

QString UserDB::diaryViewColumnSettings(int user_id)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(QStringLiteral("SELECT diaryViewColumnSettings FROM user_users WHERE user_id = ?"));
    QString value;
    if (execBound(query, {user_id}) && query->next())
        value = query->value(0).toString();
    return value.isEmpty() ? QStringLiteral("0:2:") : value;
}

bool UserDB::setDiaryViewColumnSettings(int user_id, const QString &settings)
{
    checkUser(user_id);
    LmSqlQueryPtr query =
        prepare(QStringLiteral("UPDATE user_users SET diaryViewColumnSettings = ? WHERE user_id = ?"));
    return execBound(query, {settings, user_id});
}

bool UserDB::setUserColumn(int user_id, const QString &column, const QVariant &value)
{
    checkUser(user_id);
    LmSqlQueryPtr query =
        prepare(QStringLiteral("UPDATE user_users SET %1 = ? WHERE user_id = ?").arg(column));
    return execBound(query, {value, user_id});
}

bool UserDB::setPublishDefaults(bool autoPublish, bool askBeforePublish)
{
    LmSqlQueryPtr query = prepare(QStringLiteral(
        "UPDATE user_users SET auto_publish = ?, ask_before_publish = ? WHERE web_username <> '' AND web_password <> ''"));
    return execBound(query, {int(autoPublish), int(askBeforePublish)});
}

bool UserDB::ensureRow(const QString &table, int user_id, const QString &day)
{
    checkUser(user_id);
    LmSqlQueryPtr count =
        prepare(QStringLiteral("SELECT COUNT(*) FROM ") + table + QStringLiteral(" WHERE user_id = ? AND date = ?"));
    if (!execBound(count, {user_id, day}) || !count->next())
        return false;
    const bool exists = count->value(0).toInt() >= 1;
    LmSqlDb::releaseQuery(count);
    if (exists)
        return true;
    LmSqlQueryPtr insert =
        prepare(QStringLiteral("INSERT INTO ") + table + QStringLiteral("( user_id, date ) VALUES ( ?, ?)"));
    return execBound(insert, {user_id, day});
}

std::optional<QPair<double, QString>> UserDB::getLatest(const QString &table, const QString &column, int user_id,
                                                        const QString &day, double invalid)
{
    LM_ASSERT(user_id != -1);
    const bool date = !day.isEmpty();
    LM_ASSERT(date);
    const bool field = !column.isEmpty();
    const bool invalidValue = !std::isnan(invalid);
    LM_ASSERT(field);
    LM_ASSERT(invalidValue);
    LmSqlQueryPtr query = prepare(QStringLiteral("SELECT ") + column + QStringLiteral(", date FROM ") + table
                                  + QStringLiteral(" WHERE user_id = ? AND ") + QStringLiteral("date = (SELECT MAX(date) FROM ")
                                  + table + QStringLiteral(" WHERE ") + column + QStringLiteral(" IS NOT NULL ")
                                  + QStringLiteral(" AND date <= ? AND ") + column + QStringLiteral(" <> ? ")
                                  + QStringLiteral(" AND user_id = ?)"));
    if (execBound(query, {user_id, day, invalid, user_id}) && query->next() && !query->value(0).isNull())
        return QPair<double, QString>(query->value(0).toDouble(), query->value(1).toString());
    return std::nullopt;
}

Targets UserDB::getTargets(int user_id, const QString &day)
{
    checkUser(user_id);
    QString columns;
    for (const char *column : kTargetColumns)
        columns += QLatin1Char(',') + QLatin1String(column);
    LmSqlQueryPtr query =
        prepare(QStringLiteral("SELECT date") + columns + QStringLiteral(" FROM user_target ") + QStringLiteral("WHERE ")
                + QLatin1String(kTargetColumns[0])
                + QStringLiteral(" IS NOT NULL AND user_id = ? AND date <= ? ") + QStringLiteral("ORDER BY date DESC LIMIT 1"));
    Targets targets;
    if (execBound(query, {user_id, day}) && query->next()) {
        targets.date = query->value(0).toString();
        for (int i = 0; i < 10; ++i)
            targets.values[size_t(i)] = number(query->value(1 + i));
    }
    return targets;
}

QList<Targets> UserDB::getTargetHistory(int user_id, const QString &from, const QString &to)
{
    QList<Targets> rows;
    const Targets first = getTargets(user_id, from);
    if (!first.date.isEmpty())
        rows.append(first);
    QString columns;
    for (const char *column : kTargetColumns)
        columns += QLatin1Char(',') + QLatin1String(column);
    LmSqlQueryPtr query =
        prepare(QStringLiteral("SELECT date") + columns + QStringLiteral(" FROM user_target WHERE ") +
                QLatin1String(kTargetColumns[0]) +
                QStringLiteral(" IS NOT NULL AND user_id = ? AND date > ? AND date <= ? "
                               "ORDER BY date"));
    if (execBound(query, {user_id, from, to})) {
        while (query->next()) {
            Targets targets;
            targets.date = query->value(0).toString();
            for (int i = 0; i < 10; ++i)
                targets.values[size_t(i)] = number(query->value(1 + i));
            rows.append(targets);
        }
    }
    return rows;
}

std::optional<Targets> UserDB::getTargetsOn(int user_id, const QString &day)
{
    checkUser(user_id);
    QString columns;
    for (const char *column : kTargetColumns)
        columns += QLatin1Char(',') + QLatin1String(column);
    LmSqlQueryPtr query = prepare(QStringLiteral("SELECT date") + columns +
                                  QStringLiteral(" FROM user_target WHERE user_id = ? AND date = ?"));
    if (!execBound(query, {user_id, day}) || !query->next())
        return std::nullopt;
    Targets targets;
    targets.date = query->value(0).toString();
    for (int i = 0; i < 10; ++i)
        targets.values[size_t(i)] = number(query->value(1 + i));
    return targets;
}

bool UserDB::setTargets(int user_id, const QString &day, const Targets &targets)
{
    LmWriteTransaction write;
    if (!write.isOpen() || !ensureRow(QStringLiteral("user_target"), user_id, day))
        return false;
    QString sql = QStringLiteral("UPDATE user_target SET date = ?");
    for (const char *column : kTargetColumns)
        sql += QLatin1Char(',') + QLatin1String(column) + QStringLiteral(" = ?");
    sql += QStringLiteral(" WHERE user_id = ? AND date = ?");
    LmSqlQueryPtr query = prepare(sql);
    QVariantList values = {day};
    for (double value : targets.values)
        values.append(nullable(value));
    values << user_id << day;
    return write.commit(execBound(query, values));
}

double UserDB::getHeight(int user_id)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(
        QStringLiteral("SELECT height FROM user_misc WHERE user_id = ? AND height NOT NULL ORDER BY date DESC"));
    return execBound(query, {user_id}) && query->next() ? query->value(0).toDouble() : -1.0;
}

bool UserDB::setHeight(int user_id, const QString &day, double height)
{
    LmWriteTransaction write;
    if (!write.isOpen() || !ensureRow(QStringLiteral("user_misc"), user_id, day))
        return false;
    LmSqlQueryPtr query = prepare(QStringLiteral("UPDATE user_misc SET height = ? WHERE user_id = ? AND date = ?"));
    return write.commit(execBound(query, {height, user_id, day}));
}

bool UserDB::setMisc(int user_id, const QString &day, int goal, int activity, double customRmr,
                     const QString &dietPlan)
{
    LmWriteTransaction write;
    if (!write.isOpen() || !ensureRow(QStringLiteral("user_misc"), user_id, day))
        return false;
    LmSqlQueryPtr query = prepare(QStringLiteral(
        "UPDATE user_misc SET date = ?,goal = ?,activity = ?,custom_rmr = ?,diet_plan = ? WHERE user_id = ? AND date = ?"));
    return write.commit(execBound(query, {day, goal, activity, nullable(customRmr), nullableText(dietPlan), user_id, day}));
}

std::optional<QPair<double, QString>> UserDB::getMisc(int user_id, const QString &day)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(QStringLiteral(
        "SELECT custom_rmr, diet_plan FROM user_misc WHERE date = ? AND user_id = ? ORDER BY date DESC LIMIT 1"));
    if (execBound(query, {day, user_id}) && query->next())
        return QPair<double, QString>(number(query->value(0)), query->value(1).toString());
    return std::nullopt;
}

int UserDB::getLatestMiscInt(int user_id, const QString &field, const QString &day, int fallback)
{
    const auto latest = getLatest(QStringLiteral("user_misc"), field, user_id, day, -1);
    return latest ? int(latest->first) : fallback;
}

int UserDB::activityLevel(int user_id, const QString &day)
{
    if (const auto latest = getLatest(QStringLiteral("user_misc"), QStringLiteral("activity"), user_id, day, -1))
        return int(latest->first);
    LmSqlQueryPtr first = prepare(QStringLiteral(
        "SELECT activity FROM user_misc WHERE user_id = ? AND activity IS NOT NULL ORDER BY date ASC LIMIT 1"));
    return execBound(first, {user_id}) && first->next() ? first->value(0).toInt() : 1;
}

std::optional<CheckIn> UserDB::getCheckIn(int user_id, const QString &day)
{
    const std::optional<CheckIn> latest = getLatestCheckIn(user_id, day);
    if (latest && latest->date == day)
        return latest;
    return std::nullopt;
}

std::optional<CheckIn> UserDB::getLatestCheckIn(int user_id, const QString &day)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(kCheckInsUpTo);
    if (execBound(query, {user_id, day}) && query->next())
        return readCheckIn(*query);
    return std::nullopt;
}

QList<CheckIn> UserDB::getCheckIns(int user_id)
{
    checkUser(user_id);
    QList<CheckIn> checkIns;
    LmSqlQueryPtr query = prepare(kCheckInsUpTo);
    if (execBound(query, {user_id, QStringLiteral("99991231")})) {
        while (query->next())
            checkIns.append(readCheckIn(*query));
    }
    return checkIns;
}

bool UserDB::setCheckIn(int user_id, const CheckIn &c)
{
    LmWriteTransaction write;
    if (!write.isOpen() || !ensureRow(QStringLiteral("user_checkins"), user_id, c.date))
        return false;
    LmSqlQueryPtr query = prepare(QStringLiteral(
        "UPDATE user_checkins SET weight = ?, chest = ?, hip = ?, thigh = ?, waist = ?, steps = ?, note = ? WHERE "
        "user_id = ? AND date = ?"));
    const QVariant note = c.note.isEmpty() || c.note == kNoNote ? QVariant() : QVariant(c.note);
    return write.commit(execBound(query, {nullable(c.weight), nullable(c.chest), nullable(c.hip), nullable(c.thigh), nullable(c.waist),
                nullable(c.steps), note, user_id, c.date}));
}

bool UserDB::removeCheckIn(int user_id, const QString &day)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(QStringLiteral("DELETE from user_checkins WHERE user_id = ? AND date = ?"));
    return execBound(query, {user_id, day});
}

bool UserDB::hasOtherWeight(int user_id, const QString &day)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(
        QStringLiteral("SELECT COUNT(?) FROM user_checkins WHERE user_id = ? AND date <> ? AND weight IS NOT NULL"));
    return execBound(query, {QStringLiteral("weight"), user_id, day}) && query->next() && query->value(0).toInt() > 0;
}

QString UserDB::weightTrend(int user_id, const QString &day)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(QStringLiteral(
        "SELECT weight, date FROM user_checkins WHERE user_id = ? AND date <= ? AND WEIGHT NOT NULL ORDER BY date "
        "DESC LIMIT 2"));
    QList<double> weights;
    if (execBound(query, {user_id, day})) {
        while (query->next())
            weights.append(query->value(0).toDouble());
    }
    if (weights.size() < 2)
        return QStringLiteral("nochange");
    // Weights are stored as decimal numbers: compare the difference as the user typed it, so that
    // a change of exactly 5 g is one.
    const double d = std::round((weights.at(0) - weights.at(1)) * 1e6) / 1e6;
    constexpr double kBig = 0.2857142857142857; // two kilograms a week, per day
    if (d > -0.005 && d < 0.005)
        return QStringLiteral("nochange");
    if (d > kBig)
        return QStringLiteral("bigincrease");
    if (d > -0.005)
        return QStringLiteral("increase");
    if (d < -kBig)
        return QStringLiteral("bigdecrease");
    return QStringLiteral("decrease");
}

int UserDB::getWater(int user_id, const QString &day)
{
    checkUser(user_id);
    LmSqlQueryPtr query =
        prepare(QStringLiteral("SELECT cups FROM water_diary WHERE user_id = ? AND date = ? AND cups IS NOT NULL"));
    return execBound(query, {user_id, day}) && query->next() ? query->value(0).toInt() : 0;
}

bool UserDB::setWater(int user_id, const QString &day, int cups)
{
    LmWriteTransaction write;
    if (!write.isOpen() || !ensureRow(QStringLiteral("water_diary"), user_id, day))
        return false;
    LmSqlQueryPtr query = prepare(QStringLiteral("UPDATE water_diary SET cups = ? WHERE user_id = ? AND date = ?"));
    return write.commit(execBound(query, {cups, user_id, day}));
}

int UserDB::deviceId(const QString &name)
{
    LmSqlQueryPtr query = prepare(QStringLiteral("SELECT id FROM userdata_sync_devices WHERE name = ?"));
    if (!execBound(query, {name}) || !query->next() || query->value(0).isNull())
        return -1;
    return query->value(0).toInt();
}

int UserDB::startCount(int user_id, const QString &day)
{
    checkUser(user_id);
    LmSqlQueryPtr query =
        prepare(QStringLiteral("SELECT count FROM metrics_startStats where user_id = ? AND date == ?"));
    return execBound(query, {user_id, day}) && query->next() ? query->value(0).toInt() : 0;
}

bool UserDB::countStart(int user_id)
{
    checkUser(user_id);
    LmWriteTransaction write;
    LmSqlQueryPtr today = prepare(QStringLiteral("SELECT strftime('%Y%m%d', 'now')"));
    if (!write.isOpen() || !execBound(today) || !today->next())
        return false;
    const int count = startCount(user_id, today->value(0).toString());
    LmSqlDb::releaseQuery(today);
    // Built by concatenation: strftime's pattern must never pass through a printf-style formatter.
    LmSqlQueryPtr query = prepare(QStringLiteral("INSERT OR REPLACE INTO metrics_startStats (user_id, date, count) "
                                                 "VALUES ( ?, strftime('%Y%m%d', 'now'), ?)"));
    return write.commit(execBound(query, {user_id, count + 1}));
}

bool UserDB::tipShown(int user_id, int tip)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(
        QStringLiteral("SELECT COUNT(user_id) FROM user_firsttime_tips WHERE user_id = ? AND tip_index = ?"));
    return execBound(query, {user_id, tip}) && query->next() && query->value(0).toInt() > 0;
}

bool UserDB::setTipShown(int user_id, int tip)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(QStringLiteral("INSERT OR REPLACE INTO user_firsttime_tips VALUES ( ?, ? );"));
    return execBound(query, {user_id, tip});
}

bool UserDB::resetTips(int user_id)
{
    checkUser(user_id);
    LmSqlQueryPtr query = prepare(QStringLiteral("DELETE FROM user_firsttime_tips WHERE user_id = ?;"));
    return execBound(query, {user_id});
}
