#include "server/serverdiarydb.h"

#include "server/serverdb.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStringList>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

QString dateText(const QDate &date)
{
    return date.toString(Qt::ISODate);
}

// Dates are kept as "yyyy-MM-dd" text and compared as text, which holds for four-digit years.
bool usableDate(const QDate &date)
{
    return date.isValid() && date.year() >= 1000 && date.year() <= 9999;
}

bool isMeal(QChar meal)
{
    return meal == 'B'_L1 || meal == 'L'_L1 || meal == 'D'_L1 || meal == 'S'_L1;
}

bool finite(const std::optional<double> &value)
{
    return !value || std::isfinite(*value);
}

QVariant orNull(const std::optional<double> &value)
{
    return value ? QVariant(*value) : QVariant();
}

std::optional<double> optionalReal(const QVariant &value)
{
    return value.isNull() ? std::nullopt : std::optional<double>(value.toDouble());
}

QString foodValueColumns()
{
    QStringList names;
    for (const char *name : kFoodValueNames)
        names.append(QLatin1String(name));
    return names.join(", "_L1);
}

// What is wrong with the update, or nothing. Checked whole before anything is written.
QString problem(const DiaryUpdate &update)
{
    for (const PublishedDay &day : update.days) {
        if (!usableDate(day.date))
            return u"a day has no usable date"_s;
        for (const PublishedFood &food : day.foods) {
            if (!isMeal(food.meal))
                return u"a food on %1 has no meal (B, L, D or S)"_s.arg(dateText(day.date));
            if (!std::isfinite(food.qty) || !std::all_of(food.values.cbegin(), food.values.cend(), finite))
                return u"a food on %1 has a number that is not one"_s.arg(dateText(day.date));
        }
        for (const PublishedExercise &exercise : day.exercises) {
            if (!std::isfinite(exercise.duration) || !std::isfinite(exercise.calories))
                return u"an exercise on %1 has a number that is not one"_s.arg(dateText(day.date));
        }
    }
    for (const PublishedCheckin &checkin : update.checkins) {
        if (!usableDate(checkin.date))
            return u"a check-in has no usable date"_s;
        if (!finite(checkin.weight) || !finite(checkin.chest) || !finite(checkin.hips) ||
            !finite(checkin.thigh) || !finite(checkin.waist))
            return u"the check-in of %1 has a number that is not one"_s.arg(dateText(checkin.date));
    }
    for (const PublishedWater &water : update.waters) {
        if (!usableDate(water.date))
            return u"a water entry has no usable date"_s;
        if (water.cups < 0)
            return u"the water of %1 is less than nothing"_s.arg(dateText(water.date));
    }
    return {};
}

PublishedCheckin readCheckin(const QSqlQuery &query)
{
    PublishedCheckin checkin;
    checkin.date = QDate::fromString(query.value(0).toString(), Qt::ISODate);
    checkin.weight = optionalReal(query.value(1));
    checkin.chest = optionalReal(query.value(2));
    checkin.hips = optionalReal(query.value(3));
    checkin.thigh = optionalReal(query.value(4));
    checkin.waist = optionalReal(query.value(5));
    checkin.note = query.value(6).toString();
    return checkin;
}

// Empty text, never NULL: the drivers bind a null QString as NULL.
QString text(const QString &value)
{
    return value.isNull() ? u""_s : value;
}

} // namespace

ServerDiaryDB::ServerDiaryDB(ServerDB &db)
    : _db(db)
{
}

bool ServerDiaryDB::apply(qint64 memberId, const DiaryUpdate &update, QString *error)
{
    if (const QString text = problem(update); !text.isEmpty()) {
        *error = text;
        return false;
    }
    const bool postgres = _db.kind() == ServerDB::Kind::PostgreSQL;
    return _db.transaction(
        [&](QSqlDatabase &db, QString *workError) {
            QSqlQuery query(db);
            // Two publishes of one member at once would both clear a day and then both fill it;
            // holding the member's row makes the second wait. (SQLite has one writer anyway.)
            const QString lock = postgres ? u"SELECT id FROM members WHERE id = ? FOR UPDATE"_s
                                          : u"SELECT id FROM members WHERE id = ?"_s;
            if (!ServerDB::exec(query, lock, {memberId}, workError))
                return false;
            if (!query.next()) {
                *workError = u"there is no such member"_s;
                return false;
            }

            QSqlQuery clearFoods(db), clearExercises(db), addFood(db), addExercise(db);
            const QString foodColumns = foodValueColumns();
            if (!ServerDB::prepare(clearFoods, u"DELETE FROM diary_foods WHERE member_id = ? AND date = ?"_s,
                                   workError) ||
                !ServerDB::prepare(clearExercises,
                                   u"DELETE FROM diary_exercises WHERE member_id = ? AND date = ?"_s,
                                   workError) ||
                !ServerDB::prepare(
                    addFood,
                    u"INSERT INTO diary_foods (member_id, date, meal, position, qty, descr, "
                    "serving, %1) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"_s.arg(
                        foodColumns),
                    workError) ||
                !ServerDB::prepare(
                    addExercise,
                    u"INSERT INTO diary_exercises (member_id, date, position, duration, descr, "
                    "calories) VALUES (?, ?, ?, ?, ?, ?)"_s,
                    workError))
                return false;

            for (const PublishedDay &day : update.days) {
                const QString date = dateText(day.date);
                if (!ServerDB::execPrepared(clearFoods, {memberId, date}, workError) ||
                    !ServerDB::execPrepared(clearExercises, {memberId, date}, workError))
                    return false;
                for (qsizetype i = 0; i < day.foods.size(); ++i) {
                    const PublishedFood &food = day.foods.at(i);
                    QVariantList values{memberId,          date,     QString(food.meal),
                                        qint64(i),         food.qty, text(food.desc),
                                        text(food.serving)};
                    for (const std::optional<double> &value : food.values)
                        values.append(orNull(value));
                    if (!ServerDB::execPrepared(addFood, values, workError))
                        return false;
                }
                for (qsizetype i = 0; i < day.exercises.size(); ++i) {
                    const PublishedExercise &exercise = day.exercises.at(i);
                    if (!ServerDB::execPrepared(addExercise,
                                                {memberId, date, qint64(i), exercise.duration,
                                                 text(exercise.desc), exercise.calories},
                                                workError))
                        return false;
                }
            }

            for (const PublishedCheckin &checkin : update.checkins) {
                const QString date = dateText(checkin.date);
                const bool ok =
                    checkin.isDeletion()
                        ? ServerDB::exec(query, u"DELETE FROM checkins WHERE member_id = ? AND date = ?"_s,
                                         {memberId, date}, workError)
                        : ServerDB::exec(
                              query,
                              u"INSERT INTO checkins (member_id, date, weight, chest, hips, thigh, "
                              "waist, note) VALUES (?, ?, ?, ?, ?, ?, ?, ?) "
                              "ON CONFLICT (member_id, date) DO UPDATE SET weight = excluded.weight, "
                              "chest = excluded.chest, hips = excluded.hips, thigh = excluded.thigh, "
                              "waist = excluded.waist, note = excluded.note"_s,
                              {memberId, date, orNull(checkin.weight), orNull(checkin.chest),
                               orNull(checkin.hips), orNull(checkin.thigh), orNull(checkin.waist),
                               text(checkin.note)},
                              workError);
                if (!ok)
                    return false;
            }

            for (const PublishedWater &water : update.waters) {
                if (!ServerDB::exec(query,
                                    u"INSERT INTO waters (member_id, date, cups) VALUES (?, ?, ?) "
                                    "ON CONFLICT (member_id, date) DO UPDATE SET cups = excluded.cups"_s,
                                    {memberId, dateText(water.date), water.cups}, workError))
                    return false;
            }

            return ServerDB::exec(
                query,
                u"INSERT INTO publishes (member_id, last_publish) VALUES (?, ?) "
                "ON CONFLICT (member_id) DO UPDATE SET last_publish = excluded.last_publish"_s,
                {memberId, ServerDB::now()}, workError);
        },
        error);
}

ServerDiaryDB::Day ServerDiaryDB::day(qint64 memberId, const QDate &date)
{
    Day day;
    day.date = date;
    const QString text = dateText(date);
    QSqlQuery query(_db.connection());

    if (ServerDB::exec(
            query,
            u"SELECT meal, qty, descr, serving, %1 FROM diary_foods WHERE member_id = ? AND date = ? "
            "ORDER BY CASE meal WHEN 'B' THEN 0 WHEN 'L' THEN 1 WHEN 'D' THEN 2 ELSE 3 END, "
            "position"_s.arg(foodValueColumns()),
            {memberId, text})) {
        while (query.next()) {
            PublishedFood food;
            const QString meal = query.value(0).toString(); // one letter, by the table's check
            food.meal = meal.isEmpty() ? QChar() : meal.at(0);
            food.qty = query.value(1).toDouble();
            food.desc = query.value(2).toString();
            food.serving = query.value(3).toString();
            for (size_t i = 0; i < food.values.size(); ++i)
                food.values[i] = optionalReal(query.value(int(4 + i)));
            day.foods.append(food);
        }
    }

    if (ServerDB::exec(
            query,
            u"SELECT duration, descr, calories FROM diary_exercises WHERE member_id = ? AND date = ? "
            "ORDER BY position"_s,
            {memberId, text})) {
        while (query.next())
            day.exercises.append(
                {query.value(0).toDouble(), query.value(1).toString(), query.value(2).toDouble()});
    }

    if (ServerDB::exec(query, u"SELECT cups FROM waters WHERE member_id = ? AND date = ?"_s,
                       {memberId, text}) &&
        query.next())
        day.cups = query.value(0).toInt();

    if (ServerDB::exec(query,
                       u"SELECT date, weight, chest, hips, thigh, waist, note FROM checkins "
                       "WHERE member_id = ? AND date = ?"_s,
                       {memberId, text}) &&
        query.next())
        day.checkin = readCheckin(query);
    return day;
}

QList<QDate> ServerDiaryDB::loggedDays(qint64 memberId, const QDate &from, const QDate &to)
{
    QList<QDate> days;
    const QString first = dateText(from), last = dateText(to);
    QSqlQuery query(_db.connection());
    const QString sql = u"SELECT date FROM diary_foods WHERE member_id = ? AND date BETWEEN ? AND ? "
                        "UNION SELECT date FROM diary_exercises WHERE member_id = ? AND date BETWEEN ? AND ? "
                        "UNION SELECT date FROM checkins WHERE member_id = ? AND date BETWEEN ? AND ? "
                        "UNION SELECT date FROM waters WHERE member_id = ? AND date BETWEEN ? AND ? "
                        "ORDER BY 1"_s;
    if (ServerDB::exec(
            query, sql,
            {memberId, first, last, memberId, first, last, memberId, first, last, memberId, first, last})) {
        while (query.next())
            days.append(QDate::fromString(query.value(0).toString(), Qt::ISODate));
    }
    return days;
}

QList<PublishedCheckin> ServerDiaryDB::checkins(qint64 memberId, const QDate &from, const QDate &to)
{
    QList<PublishedCheckin> list;
    QSqlQuery query(_db.connection());
    if (ServerDB::exec(query,
                       u"SELECT date, weight, chest, hips, thigh, waist, note FROM checkins "
                       "WHERE member_id = ? AND date BETWEEN ? AND ? ORDER BY date"_s,
                       {memberId, dateText(from), dateText(to)})) {
        while (query.next())
            list.append(readCheckin(query));
    }
    return list;
}

std::optional<QDateTime> ServerDiaryDB::lastPublish(qint64 memberId)
{
    QSqlQuery query(_db.connection());
    if (!ServerDB::exec(query, u"SELECT last_publish FROM publishes WHERE member_id = ?"_s, {memberId}) ||
        !query.next())
        return std::nullopt;
    return QDateTime::fromSecsSinceEpoch(query.value(0).toLongLong(), Qt::UTC);
}
