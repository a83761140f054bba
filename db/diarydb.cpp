#include "db/diarydb.h"

#include "common/lmassert.h"
#include "db/dblog.h"
#include "db/lmsqldb.h"
#include "db/synctriggers.h"
#include "model/dateconversion.h"

#include <QSqlQuery>

namespace {

LmSqlQueryPtr prepare(const QString &sql)
{
    return LmSqlDb::instance()->prepare(sql);
}

// NULL reads as unknown, never as zero.
float nutrient(const QVariant &value)
{
    return value.isNull() ? kUnknownNutrient : value.toFloat();
}

QVariant stored(float value)
{
    return isKnown(value) ? QVariant(double(value)) : QVariant();
}

// The columns after "food_id, user_id, meal, date, status, ref_id, serving_id, size, food_name,
// serv_name" in the table's nutrient order.
constexpr int kColumnNutrients[kNutrientCount] = {ENERGY, FAT, PROTEIN, CARB, FIBER,
                                                  SATURATED_FAT, CHOLESTEROL, SODIUM, SUGAR, CALCIUM};

FoodDiaryItem readFood(const QSqlQuery &query)
{
    FoodDiaryItem item(true);
    item.food_id = query.value(0).toInt();
    item.user_id = query.value(1).toInt();
    item.meal = query.value(2).toInt();
    item.date = query.value(3).toString();
    item.status = query.value(4).toInt();
    item.ref_id = query.value(5).toInt();
    item.serving_id = query.value(6).toInt();
    item.size = query.value(7).toFloat();
    item.food_name = query.value(8).toString();
    item.serv_name = query.value(9).toString();
    for (int i = 0; i < kNutrientCount; ++i)
        item.setNutrient(kColumnNutrients[i], nutrient(query.value(10 + i)));
    return item;
}

QVariantList nutrientValues(const FoodDiaryItem &fdi)
{
    QVariantList values;
    for (int type : kColumnNutrients)
        values.append(stored(fdi.getNutrient(type)));
    return values;
}

void collectDates(LmSqlQueryPtr &query, const QVariantList &values, QSet<QString> &dates)
{
    if (!execBound(query, values))
        return;
    while (query->next())
        dates.insert(query->value(0).toString());
}

} // namespace

DiaryDB::DiaryDB(const QString &suffix, bool keepDeleted)
    : _suffix(suffix)
    , _keepDeleted(keepDeleted)
{
}

bool DiaryDB::addFoodEntry(FoodDiaryItem &fdi) const
{
    LM_ASSERT(fdi.food_id < 0);
    LmWriteTransaction write;
    LmSqlQueryPtr insert = prepare(
        QStringLiteral("INSERT INTO food_") + _suffix
        + QStringLiteral(" (food_id, user_id, date, meal, status, ref_id, food_name, serving_id, serv_name, size, "
                         "calories, fat, protein, carb, fiber, saturated_fat, cholesterol, sodium , sugar, calcium) "
                         "VALUES (NULL, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?,?,?,?,?)"));
    QVariantList values = {fdi.user_id, fdi.date.isEmpty() ? QVariant() : QVariant(fdi.date),
                           fdi.meal,    STATUS_LIVE,
                           fdi.ref_id,  fdi.food_name,
                           fdi.serving_id, fdi.serv_name,
                           double(fdi.size)};
    values += nutrientValues(fdi);
    if (!write.isOpen() || !execBound(insert, values))
        return false;
    LmSqlQueryPtr maxId = prepare(QStringLiteral("SELECT MAX(food_id) FROM food_") + _suffix);
    if (!execBound(maxId) || !maxId->next())
        return false;
    const int id = maxId->value(0).toInt();
    LmSqlDb::releaseQuery(maxId);
    if (!write.commit())
        return false;
    fdi.food_id = id;
    fdi.status = STATUS_LIVE;
    return true;
}

FoodDiaryItem DiaryDB::getFoodEntry(int food_id) const
{
    LmSqlQueryPtr query = prepare(QStringLiteral("SELECT food_id, user_id, meal, date, status, ref_id, serving_id, "
                                                 "size, food_name, serv_name, calories, fat, protein, carb, fiber,  "
                                                 "saturated_fat, cholesterol, sodium , sugar, calcium  FROM food_")
                                  + _suffix + QStringLiteral(" WHERE food_id = ?"));
    if (execBound(query, {food_id}) && query->next())
        return readFood(*query);
    qCWarning(lcDb, "DiaryDB::getFoodEntry didn't return a proper result - couldn't find record");
    return FoodDiaryItem();
}

bool DiaryDB::updateFoodEntry(int food_id, const FoodDiaryItem &fdi) const
{
    LM_ASSERT(food_id==fdi.food_id);
    LmWriteTransaction write;
    LmSqlQueryPtr query = prepare(
        QStringLiteral("UPDATE food_") + _suffix
        + QStringLiteral(" SET user_id = ?, date = ?, meal = ?, status = ?, ref_id = ?, food_name = ?, serving_id = "
                         "?, serv_name = ?, size = ?, calories = ?, fat = ?, protein = ?, carb = ?, fiber = ?, "
                         "saturated_fat = ?, cholesterol = ?, sodium = ?, sugar = ?, calcium = ? WHERE food_id = ?"));
    QVariantList values = {fdi.user_id,    fdi.date.isEmpty() ? QVariant() : QVariant(fdi.date),
                           fdi.meal,       fdi.status,
                           fdi.ref_id,     fdi.food_name,
                           fdi.serving_id, fdi.serv_name,
                           double(fdi.size)};
    values += nutrientValues(fdi);
    values.append(food_id);
    return write.commit(write.isOpen() && execBound(query, values));
}

bool DiaryDB::removeFoodEntry(int food_id) const
{
    LmWriteTransaction write;
    if (!write.isOpen())
        return false;
    if (_keepDeleted) {
        LmSqlQueryPtr query = prepare(QStringLiteral("UPDATE food_") + _suffix + QStringLiteral(" SET status = ? WHERE food_id = ?"));
        LmSqlQueryPtr sync = prepare(QStringLiteral("UPDATE food_diary_sync SET state = ? WHERE food_id = ?"));
        return write.commit(execBound(query, {STATUS_DELETED, food_id}) && execBound(sync, {2, food_id}));
    }
    LmSqlQueryPtr query = prepare(QStringLiteral("DELETE FROM food_") + _suffix + QStringLiteral(" WHERE food_id = ?"));
    return write.commit(execBound(query, {food_id}));
}

ExerciseDiaryItem DiaryDB::getExerciseEntry(int ex_id) const
{
    ExerciseDiaryItem item;
    LmSqlQueryPtr query = prepare(QStringLiteral("SELECT user_id, date, duration, rate, name, status FROM exer_") + _suffix
                                  + QStringLiteral(" WHERE ex_id = ?"));
    if (execBound(query, {ex_id}) && query->next()) {
        item.ex_id = ex_id;
        item.user_id = query->value(0).toInt();
        item.date = query->value(1).toString();
        item.duration = query->value(2).toFloat();
        item.rate = query->value(3).toFloat();
        item.name = query->value(4).toString();
        item.status = query->value(5).toInt();
    } else {
        qCWarning(lcDb, "AIEEEE! couldn't get exercise #%0d", ex_id);
    }
    return item;
}

bool DiaryDB::addExerciseEntry(ExerciseDiaryItem &item) const
{
    const bool hasId = item.ex_id >= 0;
    LmWriteTransaction write;
    LmSqlQueryPtr insert = prepare(QStringLiteral("INSERT INTO exer_") + _suffix
                                   + QStringLiteral(" (ex_id, user_id, date, duration, rate, name, status) VALUES ")
                                   + (hasId ? QStringLiteral("(?, ?, ?, ?, ?, ?, ?)")
                                            : QStringLiteral("(NULL, ?, ?, ?, ?, ?, ?)")));
    QVariantList values;
    if (hasId)
        values.append(item.ex_id);
    values << item.user_id << item.date << double(item.duration) << double(item.rate) << item.name << STATUS_LIVE;
    if (!write.isOpen() || !execBound(insert, values))
        return false;
    int id = item.ex_id;
    if (!hasId) {
        LmSqlQueryPtr maxId = prepare(QStringLiteral("SELECT MAX(ex_id) FROM exer_") + _suffix);
        if (!execBound(maxId) || !maxId->next())
            return false;
        id = maxId->value(0).toInt();
    }
    if (!write.commit())
        return false;
    item.ex_id = id;
    item.status = STATUS_LIVE;
    return true;
}

bool DiaryDB::updateExerciseEntry(const ExerciseDiaryItem &item) const
{
    LmWriteTransaction write;
    LmSqlQueryPtr query =
        prepare(QStringLiteral("UPDATE exer_") + _suffix
                + QStringLiteral(" SET user_id = ?, date = ?, duration = ?, rate = ?, name = ?, status = ? WHERE ex_id = ?"));
    return write.commit(write.isOpen() && execBound(query, {item.user_id, item.date, double(item.duration),
                                                            double(item.rate), item.name, item.status, item.ex_id}));
}

bool DiaryDB::removeExerciseEntry(int ex_id) const
{
    LmWriteTransaction write;
    if (!write.isOpen())
        return false;
    if (_keepDeleted) {
        LmSqlQueryPtr query = prepare(QStringLiteral("UPDATE exer_") + _suffix + QStringLiteral(" SET status = ? WHERE ex_id = ?"));
        LmSqlQueryPtr sync = prepare(QStringLiteral("UPDATE exer_diary_sync SET state = ? WHERE ex_id = ?"));
        return write.commit(execBound(query, {STATUS_DELETED, ex_id}) && execBound(sync, {2, ex_id}));
    }
    LmSqlQueryPtr query = prepare(QStringLiteral("DELETE FROM exer_") + _suffix + QStringLiteral(" WHERE ex_id = ?"));
    return write.commit(execBound(query, {ex_id}));
}

DiaryDay DiaryDB::getDay(int user_id, const QString &day) const
{
    DiaryDay result;
    // A day is read whenever the diary view changes: its two statements stay prepared.
    LmSqlQueryPtr foods = LmSqlDb::instance()->cachedQuery(
        QStringLiteral("SELECT food_id, user_id, meal, date, status, ref_id, serving_id, size, food_name, "
                       "serv_name, calories, fat, protein, carb, fiber, saturated_fat, cholesterol, sodium , sugar, "
                       "calcium FROM food_")
        + _suffix + QStringLiteral(" WHERE user_id = ? AND date = ?"));
    bool ret = execBound(foods, {user_id, day});
    LM_ASSERT(ret);
    while (foods->next())
        result.foods.append(readFood(*foods));

    LmSqlQueryPtr exercises = LmSqlDb::instance()->cachedQuery(
        QStringLiteral("SELECT  ex_id, duration, rate, name, status FROM exer_") + _suffix
        + QStringLiteral(" WHERE date = ? AND user_id = ?"));
    ret = execBound(exercises, {day, user_id});
    LM_ASSERT(ret);
    while (exercises->next()) {
        ExerciseDiaryItem item;
        item.ex_id = exercises->value(0).toInt();
        item.user_id = user_id;
        item.date = day;
        item.duration = exercises->value(1).toFloat();
        item.rate = exercises->value(2).toFloat();
        item.name = exercises->value(3).toString();
        item.status = exercises->value(4).toInt();
        result.exercises.append(item);
    }
    return result;
}

QSet<QString> DiaryDB::getDatesWithEntries(int user_id, const QDate &from, const QDate &to, bool includeDeleted) const
{
    const QString start = DateConversion::fromQDate(from);
    const QString end = DateConversion::fromQDate(to);
    const QString status = includeDeleted ? QString() : QStringLiteral(" AND status <> ?");
    QVariantList values = {user_id, start, end};
    if (!includeDeleted)
        values.append(STATUS_DELETED);

    QSet<QString> dates;
    LmSqlQueryPtr foods = prepare(QStringLiteral("SELECT DISTINCT date FROM food_") + _suffix
                                  + QStringLiteral(" WHERE user_id = ? AND date >= ? AND date <= ?") + status);
    collectDates(foods, values, dates);
    // Deliberately exclusive at both ends for exercise.
    LmSqlQueryPtr exercises = prepare(QStringLiteral("SELECT DISTINCT date FROM exer_") + _suffix
                                      + QStringLiteral(" WHERE user_id = ? AND date > ? AND date < ?") + status);
    collectDates(exercises, values, dates);
    LmSqlQueryPtr water = prepare(
        QStringLiteral("SELECT date FROM water_diary WHERE user_id = ? AND cups > 0 AND date >= ? AND date <= ?"));
    collectDates(water, {user_id, start, end}, dates);
    return dates;
}

QSet<QString> DiaryDB::getAllDatesWithEntries(int user_id, bool includeDeleted) const
{
    const QString status = includeDeleted ? QString() : QStringLiteral(" AND status <> ?");
    QVariantList values = {user_id};
    if (!includeDeleted)
        values.append(STATUS_DELETED);
    QSet<QString> dates;
    LmSqlQueryPtr foods = prepare(QStringLiteral("SELECT DISTINCT date FROM food_") + _suffix
                                  + QStringLiteral(" WHERE user_id = ? AND date IS NOT NULL") + status);
    collectDates(foods, values, dates);
    LmSqlQueryPtr exercises = prepare(QStringLiteral("SELECT DISTINCT date FROM exer_") + _suffix
                                      + QStringLiteral(" WHERE user_id = ? AND date IS NOT NULL") + status);
    collectDates(exercises, values, dates);
    LmSqlQueryPtr water = prepare(QStringLiteral("SELECT date FROM water_diary WHERE user_id = ? AND cups > 0"));
    collectDates(water, {user_id}, dates);
    return dates;
}

QSet<QString> DiaryDB::getUnpublishedDates(int user_id) const
{
    QSet<QString> dates;
    LmSqlQueryPtr query = prepare(QStringLiteral(
        "SELECT date FROM food_diary, food_diary_sync WHERE device = 0 AND food_diary_sync.food_id == "
        "food_diary.food_id AND date IS NOT NULL AND user_id = ? AND state <> ? UNION SELECT date FROM exer_diary, "
        "exer_diary_sync WHERE device = 0 AND exer_diary_sync.ex_id == exer_diary.ex_id AND date IS NOT NULL AND "
        "user_id = ? AND state <> ?"));
    collectDates(query, {user_id, 0, user_id, 0}, dates);
    return dates;
}

namespace {

// Weighted in the statement by half years, so that only one row per item comes back: a habit
// of years ago no longer leads the list.
template <typename Key, typename Read>
QHash<Key, double> usage(const QString &table, const char *key, int user_id, const QDate &today, Read read)
{
    constexpr int kHalfYears = 6;
    QString weights;
    QVariantList values;
    for (int step = 0; step < kHalfYears - 1; ++step) {
        weights += QStringLiteral("WHEN date >= ? THEN %1 ").arg(1 << (kHalfYears - 1 - step));
        values.append(DateConversion::fromQDate(today.addMonths(-6 * (step + 1))));
    }
    values << user_id << STATUS_DELETED << DateConversion::fromQDate(today.addMonths(-6 * kHalfYears));
    const QString sql = QStringLiteral("SELECT %1, SUM(CASE %2ELSE 1 END) FROM %3 WHERE user_id = ? AND status <> ? "
                                       "AND date >= ? AND %1 IS NOT NULL GROUP BY %1")
                            .arg(QLatin1String(key), weights, table);
    QHash<Key, double> found;
    LmSqlQueryPtr query = runBound(sql, values);
    while (!query.isNull() && query->next())
        found.insert(read(query->value(0)), query->value(1).toDouble() / (1 << (kHalfYears - 1)));
    return found;
}

} // namespace

QHash<int, double> DiaryDB::foodUsage(int user_id, const QDate &today) const
{
    QHash<int, double> found = usage<int>(QStringLiteral("food_") + _suffix, "ref_id", user_id, today,
                                          [](const QVariant &v) { return v.toInt(); });
    found.removeIf([](const auto &item) { return item.key() < 0; }); // entries of no food
    return found;
}

QHash<QString, double> DiaryDB::exerciseUsage(int user_id, const QDate &today) const
{
    return usage<QString>(QStringLiteral("exer_") + _suffix, "name", user_id, today,
                          [](const QVariant &v) { return v.toString(); });
}

namespace {

// The ten sums of a food query from column first on, in the order of kSummedNutrients.
constexpr int kSummedNutrients[kNutrientCount] = {ENERGY,        FAT,         FIBER,  PROTEIN, CARB,
                                                  SATURATED_FAT, CHOLESTEROL, SODIUM, SUGAR,   CALCIUM};
const char kNutrientSums[] =
    "SUM(calories), SUM(fat), SUM(fiber), SUM(protein), SUM(carb), SUM(saturated_fat), "
    "SUM(cholesterol), SUM(sodium), SUM(sugar), SUM(calcium)";

void readSums(const QSqlQuery &query, int first, std::array<double, kNutrientCount> &nutrients)
{
    for (int i = 0; i < kNutrientCount; ++i)
        nutrients[size_t(kSummedNutrients[i])] = query.value(first + i).toDouble();
}

} // namespace

QMap<QString, DailyTotal> DiaryDB::getDailyTotals(int user_id, const QString &startDay, const QString &endDay,
                                                  int mealFilter) const
{
    const bool startDate = !startDay.isEmpty();
    const bool endDate = !endDay.isEmpty();
    LM_ASSERT(startDate);
    LM_ASSERT(endDate);
    QMap<QString, DailyTotal> totals;

    if (mealFilter != EXERCISE) {
        QString sql = QStringLiteral("SELECT date, COUNT(*), ") + QLatin1String(kNutrientSums) +
                      QStringLiteral(" FROM food_") + _suffix +
                      QStringLiteral(" WHERE user_id = ? AND status <> ? AND date >= ? AND date <= ? ");
        QVariantList values = {user_id, STATUS_DELETED, startDay, endDay};
        if (mealFilter == ALL_SNACKS) {
            sql += QStringLiteral("AND meal IN (?, ?, ?) ");
            values << SNACK_1 << SNACK_2 << SNACK_3;
        } else if (mealFilter != ALL_MEALS) {
            sql += QStringLiteral("AND meal = ? ");
            values << mealFilter;
        }
        sql += QStringLiteral("GROUP BY date");
        LmSqlQueryPtr query = prepare(sql);
        if (execBound(query, values)) {
            while (query->next()) {
                DailyTotal &total = totals[query->value(0).toString()];
                total.foodEntries = query->value(1).toInt();
                readSums(*query, 2, total.nutrients);
            }
        }
    }
    if (mealFilter == ALL_MEALS || mealFilter == EXERCISE) {
        LmSqlQueryPtr query = prepare(
            QStringLiteral("SELECT date, SUM(rate*duration), SUM(duration) FROM exer_") + _suffix +
            QStringLiteral(" WHERE user_id = ? AND status <> ? AND date >= ? AND date <= ? GROUP BY date"));
        if (execBound(query, {user_id, STATUS_DELETED, startDay, endDay})) {
            while (query->next()) {
                DailyTotal &total = totals[query->value(0).toString()];
                total.burned = query->value(1).toDouble();
                total.minutes = query->value(2).toDouble();
            }
        }
    }
    return totals;
}

QMap<int, DailyTotal> DiaryDB::getMealTotals(int user_id, const QString &startDay,
                                             const QString &endDay) const
{
    QMap<int, DailyTotal> totals;
    LmSqlQueryPtr foods =
        prepare(QStringLiteral("SELECT meal, COUNT(*), ") + QLatin1String(kNutrientSums) +
                QStringLiteral(" FROM food_") + _suffix +
                QStringLiteral(" WHERE user_id = ? AND status <> ? AND date >= ? AND date <= ? "
                               "GROUP BY meal"));
    if (execBound(foods, {user_id, STATUS_DELETED, startDay, endDay})) {
        while (foods->next()) {
            DailyTotal &total = totals[foods->value(0).toInt()];
            total.foodEntries = foods->value(1).toInt();
            readSums(*foods, 2, total.nutrients);
        }
    }
    LmSqlQueryPtr exercises =
        prepare(QStringLiteral("SELECT SUM(rate*duration), SUM(duration), COUNT(*) FROM exer_") + _suffix +
                QStringLiteral(" WHERE user_id = ? AND status <> ? AND date >= ? AND date <= ?"));
    if (execBound(exercises, {user_id, STATUS_DELETED, startDay, endDay}) && exercises->next() &&
        exercises->value(2).toInt() > 0) {
        DailyTotal &total = totals[EXERCISE];
        total.burned = exercises->value(0).toDouble();
        total.minutes = exercises->value(1).toDouble();
    }
    return totals;
}

QList<FoodTotal> DiaryDB::getFoodTotals(int user_id, const QString &startDay, const QString &endDay) const
{
    QList<FoodTotal> foods;
    LmSqlQueryPtr query =
        prepare(QStringLiteral("SELECT ref_id, food_name, COUNT(*), ") + QLatin1String(kNutrientSums) +
                QStringLiteral(" FROM food_") + _suffix +
                QStringLiteral(" WHERE user_id = ? AND status <> ? AND date >= ? AND date <= ? "
                               "GROUP BY ref_id, food_name"));
    if (execBound(query, {user_id, STATUS_DELETED, startDay, endDay})) {
        while (query->next()) {
            FoodTotal food;
            food.ref_id = query->value(0).toInt();
            food.name = query->value(1).toString();
            food.entries = query->value(2).toInt();
            readSums(*query, 3, food.nutrients);
            foods.append(food);
        }
    }
    return foods;
}

bool DiaryDB::markPublished(int user_id) const
{
    LM_ASSERT(user_id!=-1);
    LmWriteTransaction write;
    const int website = deviceId(QStringLiteral("website"));
    LmSqlQueryPtr foods = prepare(QStringLiteral("DELETE FROM food_") + _suffix
                                  + QStringLiteral("_sync WHERE device = ? AND state = ? AND food_id IN (SELECT food_id "
                                                   "FROM food_diary WHERE user_id = ?)"));
    bool ok = write.isOpen() && execBound(foods, {website, 2, user_id});
    LmSqlQueryPtr exercises = prepare(QStringLiteral("DELETE FROM exer_") + _suffix
                                      + QStringLiteral("_sync WHERE device = ? AND state = ? AND ex_id IN (SELECT ex_id "
                                                       "FROM exer_diary WHERE user_id = ?)"));
    ok = ok && execBound(exercises, {website, 2, user_id});
    LmSqlQueryPtr foodState = prepare(QStringLiteral("UPDATE food_") + _suffix
                                      + QStringLiteral("_sync SET state = ? WHERE device = ? AND food_id IN (SELECT "
                                                       "food_id FROM food_diary WHERE user_id = ?)"));
    ok = ok && execBound(foodState, {0, website, user_id});
    LmSqlQueryPtr exerciseState = prepare(QStringLiteral("UPDATE exer_") + _suffix
                                          + QStringLiteral("_sync SET state = ? WHERE device = ? AND ex_id IN (SELECT "
                                                           "ex_id FROM exer_diary WHERE user_id = ?)"));
    ok = ok && execBound(exerciseState, {0, website, user_id});
    return write.commit(ok);
}
