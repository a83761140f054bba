#include "server/serverdiarydb.h"

#include "server/serverdb.h"

#include <QLocale>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStringList>

#include <algorithm>
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

// The entries in their order, each dropped when a later one has its date.
template <typename Entry> QList<Entry> lastOfEachDate(const QList<Entry> &entries)
{
    QSet<QDate> seen;
    QList<Entry> kept;
    for (auto it = entries.crbegin(); it != entries.crend(); ++it) {
        if (!seen.contains(it->date)) {
            seen.insert(it->date);
            kept.prepend(*it);
        }
    }
    return kept;
}

// count groups of size placeholders, each in parentheses: "(:v0, :v1), (:v2, :v3)"; size 0
// gives the list without them: ":v0, :v1".
QString placeholders(qsizetype count, int size, qsizetype first = 0)
{
    QString list;
    list.reserve(count * (std::max(size, 1) * 8 + 4));
    qsizetype next = first;
    for (qsizetype i = 0; i < count; ++i) {
        if (i)
            list += u", "_s;
        if (size > 0)
            list += u'(';
        for (int c = 0; c < std::max(size, 1); ++c) {
            if (c)
                list += u", "_s;
            list += ServerDB::valueName(next++);
        }
        if (size > 0)
            list += u')';
    }
    return list;
}

// value as JSON: null, a number, or a string. Numbers are finite (the update was checked).
void appendJson(QString &json, const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::UnknownType:
        json += u"null"_s;
        return;
    case QMetaType::Double:
        json += QString::number(value.toDouble(), 'g', QLocale::FloatingPointShortest);
        return;
    case QMetaType::QString:
        break;
    default:
        json += QString::number(value.toLongLong());
        return;
    }
    const QString text = value.toString();
    json += u'"';
    for (const QChar c : text) {
        if (c == u'"' || c == u'\\') {
            json += u'\\';
            json += c;
        } else if (c.unicode() < 0x20) {
            json += u"\\u00"_s;
            json += QChar(u"0123456789abcdef"[c.unicode() >> 4]);
            json += QChar(u"0123456789abcdef"[c.unicode() & 15]);
        } else {
            json += c;
        }
    }
    json += u'"';
}

// " ON CONFLICT (keys) DO UPDATE SET c = excluded.c, ..." for the columns that are not keys.
QString upsert(const QString &keys, const QString &columns)
{
    const QStringList keyList = keys.split(u", "_s);
    QStringList sets;
    for (const QString &column : columns.split(u", "_s)) {
        if (!keyList.contains(column))
            sets.append(column + u" = excluded."_s + column);
    }
    return u" ON CONFLICT ("_s + keys + u") DO UPDATE SET "_s + sets.join(u", "_s);
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
    // What is left of the update once a later entry for a date has replaced an earlier one, as it
    // would have one at a time. Each statement below then touches a row once, which PostgreSQL's
    // upsert of many rows requires.
    const QList<PublishedDay> days = lastOfEachDate(update.days);
    const QList<PublishedWater> waters = lastOfEachDate(update.waters);
    QList<PublishedCheckin> checkins;
    QStringList dates, checkinDeletions;
    for (const PublishedCheckin &checkin : lastOfEachDate(update.checkins)) {
        if (checkin.isDeletion())
            checkinDeletions.append(dateText(checkin.date));
        else
            checkins.append(checkin);
    }
    // Each entry with its day and its position there.
    struct Food
    {
        qsizetype day, position;
        const PublishedFood *food;
    };
    struct Exercise
    {
        qsizetype day, position;
        const PublishedExercise *exercise;
    };
    QList<Food> foods;
    QList<Exercise> exercises;
    QList<qint64> foodCounts, exerciseCounts;
    for (qsizetype d = 0; d < days.size(); ++d) {
        dates.append(dateText(days.at(d).date));
        foodCounts.append(days.at(d).foods.size());
        exerciseCounts.append(days.at(d).exercises.size());
        for (qsizetype i = 0; i < days.at(d).foods.size(); ++i)
            foods.append({d, i, &days.at(d).foods.at(i)});
        for (qsizetype i = 0; i < days.at(d).exercises.size(); ++i)
            exercises.append({d, i, &days.at(d).exercises.at(i)});
    }

    const bool postgres = _db.kind() == ServerDB::Kind::PostgreSQL;
    return _db.transaction(
        [&](QSqlDatabase &, QString *workError) {
            // Two publishes of one member at once would interleave their rows; holding the
            // member's row makes the second wait. (SQLite has one writer anyway.)
            QSqlQuery *lock = _db.cached(postgres ? u"SELECT id FROM members WHERE id = ? FOR UPDATE"_s
                                                  : u"SELECT id FROM members WHERE id = ?"_s,
                                         workError);
            if (!lock || !ServerDB::execPrepared(*lock, {memberId}, workError))
                return false;
            const bool found = lock->next();
            lock->finish();
            if (!found) {
                *workError = u"there is no such member"_s;
                return false;
            }

            // Each day's entries land on its positions 0, 1, ...; what stood beyond them goes.
            const QString foodColumns =
                u"member_id, date, position, meal, qty, descr, serving, "_s + foodValueColumns();
            const QString exerciseColumns = u"member_id, date, position, duration, descr, calories"_s;
            return deleteBeyond(u"diary_foods"_s, memberId, dates, foodCounts, workError) &&
                   deleteBeyond(u"diary_exercises"_s, memberId, dates, exerciseCounts, workError) &&
                   insertRows(
                       u"diary_foods"_s, foodColumns, upsert(u"member_id, date, position"_s, foodColumns),
                       foods.size(),
                       [&](qsizetype i, QVariantList &values) {
                           const Food &entry = foods.at(i);
                           const PublishedFood &food = *entry.food;
                           values << memberId << dates.at(entry.day) << qint64(entry.position)
                                  << QString(food.meal) << food.qty << text(food.desc) << text(food.serving);
                           for (const std::optional<double> &value : food.values)
                               values.append(orNull(value));
                       },
                       workError) &&
                   insertRows(
                       u"diary_exercises"_s, exerciseColumns,
                       upsert(u"member_id, date, position"_s, exerciseColumns), exercises.size(),
                       [&](qsizetype i, QVariantList &values) {
                           const Exercise &entry = exercises.at(i);
                           values << memberId << dates.at(entry.day) << qint64(entry.position)
                                  << entry.exercise->duration << text(entry.exercise->desc)
                                  << entry.exercise->calories;
                       },
                       workError) &&
                   deleteDates(u"checkins"_s, memberId, checkinDeletions, workError) &&
                   insertRows(
                       u"checkins"_s, u"member_id, date, weight, chest, hips, thigh, waist, note"_s,
                       u" ON CONFLICT (member_id, date) DO UPDATE SET weight = excluded.weight, "
                       "chest = excluded.chest, hips = excluded.hips, thigh = excluded.thigh, "
                       "waist = excluded.waist, note = excluded.note"_s,
                       checkins.size(),
                       [&](qsizetype i, QVariantList &values) {
                           const PublishedCheckin &checkin = checkins.at(i);
                           values << memberId << dateText(checkin.date) << orNull(checkin.weight)
                                  << orNull(checkin.chest) << orNull(checkin.hips) << orNull(checkin.thigh)
                                  << orNull(checkin.waist) << text(checkin.note);
                       },
                       workError) &&
                   insertRows(
                       u"waters"_s, u"member_id, date, cups"_s,
                       u" ON CONFLICT (member_id, date) DO UPDATE SET cups = excluded.cups"_s, waters.size(),
                       [&](qsizetype i, QVariantList &values) {
                           values << memberId << dateText(waters.at(i).date) << waters.at(i).cups;
                       },
                       workError) &&
                   insertRows(
                       u"publishes"_s, u"member_id, last_publish"_s,
                       u" ON CONFLICT (member_id) DO UPDATE SET last_publish = excluded.last_publish"_s, 1,
                       [&](qsizetype, QVariantList &values) { values << memberId << ServerDB::now(); },
                       workError);
        },
        error);
}

bool ServerDiaryDB::insertRows(const QString &table, const QString &columns, const QString &tail,
                               qsizetype rows,
                               const std::function<void(qsizetype, QVariantList &)> &rowValues,
                               QString *error)
{
    if (rows == 0)
        return true;
    const QString head = u"INSERT INTO "_s + table + u" ("_s + columns + u") "_s;
    if (_db.kind() == ServerDB::Kind::PostgreSQL) {
        // One value, the rows as JSON: the driver runs a prepared statement by sending its values
        // as text to be parsed, and a thousand of them cost more to parse than the rows to write.
        const QStringList names = columns.split(u", "_s);
        QString json;
        json.reserve(rows * names.size() * 24);
        json += u'[';
        QVariantList values;
        for (qsizetype i = 0; i < rows; ++i) {
            values.clear();
            rowValues(i, values);
            json += i ? u",{"_s : u"{"_s;
            for (qsizetype c = 0; c < names.size(); ++c) {
                if (c)
                    json += u',';
                json += u'"';
                json += names.at(c);
                json += u"\":"_s;
                appendJson(json, values.at(c));
            }
            json += u'}';
        }
        json += u']';
        QSqlQuery *query = _db.cached(
            head + u"..."_s,
            [&] {
                return head + u"SELECT "_s + columns + u" FROM jsonb_populate_recordset(NULL::"_s + table +
                       u", ?::jsonb)"_s + tail;
            },
            error);
        return query && ServerDB::execPrepared(*query, {json}, error);
    }
    const int columnCount = int(columns.count(u',') + 1);
    return inPieces(
        rows, columnCount, 0, head + u"VALUES ..."_s + tail,
        [&](qsizetype count) { return head + u"VALUES "_s + placeholders(count, columnCount) + tail; },
        [&](qsizetype first, qsizetype count, QVariantList &values) {
            for (qsizetype i = first; i < first + count; ++i)
                rowValues(i, values);
        },
        error);
}

bool ServerDiaryDB::deleteDates(const QString &table, qint64 memberId, const QStringList &dates,
                                QString *error)
{
    const QString head = u"DELETE FROM "_s + table + u" WHERE member_id = :v0 AND date IN ("_s;
    return inPieces(
        dates.size(), 1, 1, head, [&](qsizetype count) { return head + placeholders(count, 0, 1) + u")"_s; },
        [&](qsizetype first, qsizetype count, QVariantList &values) {
            values.append(memberId);
            for (qsizetype i = first; i < first + count; ++i)
                values.append(dates.at(i));
        },
        error);
}

bool ServerDiaryDB::deleteBeyond(const QString &table, qint64 memberId, const QStringList &dates,
                                 const QList<qint64> &counts, QString *error)
{
    const QString head = u"DELETE FROM "_s + table + u" WHERE member_id = :v0 AND ("_s;
    return inPieces(
        dates.size(), 2, 1, head,
        [&](qsizetype count) {
            QStringList days;
            for (qsizetype i = 0; i < count; ++i)
                days.append(u"(date = %1 AND position >= %2)"_s.arg(ServerDB::valueName(1 + 2 * i),
                                                                    ServerDB::valueName(2 + 2 * i)));
            return head + days.join(u" OR "_s) + u')';
        },
        [&](qsizetype first, qsizetype count, QVariantList &values) {
            values.append(memberId);
            for (qsizetype i = first; i < first + count; ++i)
                values << dates.at(i) << counts.at(i);
        },
        error);
}

bool ServerDiaryDB::inPieces(qsizetype items, int valuesPerItem, int fixedValues, const QString &name,
                             const std::function<QString(qsizetype count)> &sql,
                             const std::function<void(qsizetype, qsizetype, QVariantList &)> &pieceValues,
                             QString *error)
{
    if (items == 0)
        return true;
    // As few statements as the limit allows, of equal size, so that the next publish of the same
    // shape finds them all prepared.
    const qsizetype most = std::max<qsizetype>(1, (_db.maxBoundValues() - fixedValues) / valuesPerItem);
    const qsizetype pieces = (items + most - 1) / most;
    const qsizetype perPiece = (items + pieces - 1) / pieces;
    QVariantList values;
    for (qsizetype first = 0; first < items; first += perPiece) {
        const qsizetype count = std::min(perPiece, items - first);
        // Kept under the statement's beginning and its number of items: that says all of it.
        QSqlQuery *query = _db.cached(
            u"%1 [%2]"_s.arg(name).arg(count), [&sql, count] { return sql(count); }, error);
        values.clear();
        values.reserve(fixedValues + count * valuesPerItem);
        pieceValues(first, count, values);
        if (!query || !ServerDB::execNamed(*query, values, error))
            return false;
    }
    return true;
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
