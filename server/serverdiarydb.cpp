#include "server/serverdiarydb.h"

#include "server/serverdb.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStringList>

#include <algorithm>
#include <charconv>
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
    checkin.weight = ServerDB::optionalReal(query.value(1));
    checkin.chest = ServerDB::optionalReal(query.value(2));
    checkin.hips = ServerDB::optionalReal(query.value(3));
    checkin.thigh = ServerDB::optionalReal(query.value(4));
    checkin.waist = ServerDB::optionalReal(query.value(5));
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

void appendString(QString &json, const QString &text)
{
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

// Numbers are finite: the update was checked. The shortest text that reads back the same.
void appendNumber(QString &json, const char *name, double value)
{
    char text[64];
    char *end = text;
    *end++ = ',';
    *end++ = '"';
    for (const char *c = name; *c; ++c)
        *end++ = *c;
    *end++ = '"';
    *end++ = ':';
    end = std::to_chars(end, text + sizeof text, value).ptr;
    json += QLatin1StringView(text, end - text);
}

// A day's foods as kept: [{"meal":"B","qty":1.5,"desc":...,"serving":...,"calories":120,...}, ...],
// an unknown value left out.
QString foodsJson(const QList<PublishedFood> &foods)
{
    QString json;
    json.reserve(foods.size() * 200 + 2);
    json += u'[';
    for (const PublishedFood &food : foods) {
        if (json.size() > 1)
            json += u',';
        json += u"{\"meal\":"_s;
        appendString(json, QString(food.meal));
        appendNumber(json, "qty", food.qty);
        json += u",\"desc\":"_s;
        appendString(json, food.desc);
        json += u",\"serving\":"_s;
        appendString(json, food.serving);
        for (size_t i = 0; i < food.values.size(); ++i) {
            if (food.values[i])
                appendNumber(json, kFoodValueNames[i], *food.values[i]);
        }
        json += u'}';
    }
    return json + u']';
}

QString exercisesJson(const QList<PublishedExercise> &exercises)
{
    QString json = u"["_s;
    for (const PublishedExercise &exercise : exercises) {
        if (json.size() > 1)
            json += u',';
        json += u"{\"desc\":"_s;
        appendString(json, exercise.desc);
        appendNumber(json, "duration", exercise.duration);
        appendNumber(json, "calories", exercise.calories);
        json += u'}';
    }
    return json + u']';
}

QJsonArray readArray(const QVariant &json)
{
    return QJsonDocument::fromJson(json.toString().toUtf8()).array();
}

int mealRank(QChar meal)
{
    return meal == 'B'_L1 ? 0 : meal == 'L'_L1 ? 1 : meal == 'D'_L1 ? 2 : 3;
}

// In meal order (B L D S), and as published within a meal.
QList<PublishedFood> readFoods(const QVariant &json)
{
    QList<PublishedFood> foods;
    for (const QJsonValue &entry : readArray(json)) {
        const QJsonObject object = entry.toObject();
        PublishedFood food;
        const QString meal = object.value("meal"_L1).toString();
        food.meal = meal.isEmpty() ? QChar() : meal.at(0);
        food.qty = object.value("qty"_L1).toDouble();
        food.desc = object.value("desc"_L1).toString();
        food.serving = object.value("serving"_L1).toString();
        for (size_t i = 0; i < food.values.size(); ++i) {
            const QJsonValue value = object.value(QLatin1String(kFoodValueNames[i]));
            if (value.isDouble())
                food.values[i] = value.toDouble();
        }
        foods.append(food);
    }
    std::stable_sort(foods.begin(), foods.end(), [](const PublishedFood &a, const PublishedFood &b) {
        return mealRank(a.meal) < mealRank(b.meal);
    });
    return foods;
}

QList<PublishedExercise> readExercises(const QVariant &json)
{
    QList<PublishedExercise> exercises;
    for (const QJsonValue &entry : readArray(json)) {
        const QJsonObject object = entry.toObject();
        exercises.append({object.value("duration"_L1).toDouble(), object.value("desc"_L1).toString(),
                          object.value("calories"_L1).toDouble()});
    }
    return exercises;
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
    // Days with entries are written whole; a day without any is cleared.
    struct DayRow
    {
        QString date, foods, exercises;
    };
    QList<DayRow> filled;
    QStringList cleared;
    for (const PublishedDay &day : days) {
        if (day.foods.isEmpty() && day.exercises.isEmpty())
            cleared.append(dateText(day.date));
        else
            filled.append({dateText(day.date), foodsJson(day.foods), exercisesJson(day.exercises)});
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

            const QString dayColumns = u"member_id, date, foods, exercises"_s;
            const QString checkinColumns = u"member_id, date, weight, chest, hips, thigh, waist, note"_s;
            const QString waterColumns = u"member_id, date, cups"_s;
            const QString publishColumns = u"member_id, last_publish"_s;
            return deleteDates(u"diary_days"_s, memberId, cleared, workError) &&
                   insertRows(
                       u"diary_days"_s, dayColumns, u"member_id, date"_s, filled.size(),
                       [&](qsizetype i, QVariantList &values) {
                           values << memberId << filled.at(i).date << filled.at(i).foods
                                  << filled.at(i).exercises;
                       },
                       workError) &&
                   deleteDates(u"checkins"_s, memberId, checkinDeletions, workError) &&
                   insertRows(
                       u"checkins"_s, checkinColumns, u"member_id, date"_s, checkins.size(),
                       [&](qsizetype i, QVariantList &values) {
                           const PublishedCheckin &checkin = checkins.at(i);
                           values << memberId << dateText(checkin.date)
                                  << ServerDB::realOrNull(checkin.weight)
                                  << ServerDB::realOrNull(checkin.chest) << ServerDB::realOrNull(checkin.hips)
                                  << ServerDB::realOrNull(checkin.thigh)
                                  << ServerDB::realOrNull(checkin.waist) << text(checkin.note);
                       },
                       workError) &&
                   insertRows(
                       u"waters"_s, waterColumns, u"member_id, date"_s, waters.size(),
                       [&](qsizetype i, QVariantList &values) {
                           values << memberId << dateText(waters.at(i).date) << waters.at(i).cups;
                       },
                       workError) &&
                   insertRows(
                       u"publishes"_s, publishColumns, u"member_id"_s, 1,
                       [&](qsizetype, QVariantList &values) { values << memberId << ServerDB::now(); },
                       workError);
        },
        error);
}

bool ServerDiaryDB::insertRows(const QString &table, const QString &columns, const QString &keys,
                               qsizetype rows,
                               const std::function<void(qsizetype, QVariantList &)> &rowValues,
                               QString *error)
{
    if (rows == 0)
        return true;
    const QString head = u"INSERT INTO "_s + table + u" ("_s + columns + u") "_s;
    const QStringList columnList = columns.split(u", "_s), keyList = keys.split(u", "_s);
    const int columnCount = int(columnList.size());
    // A row already there for the keys is replaced by the new one.
    QStringList sets;
    for (const QString &column : columnList) {
        if (!keyList.contains(column))
            sets.append(column + u" = excluded."_s + column);
    }
    const QString tail = u" ON CONFLICT ("_s + keys + u") DO UPDATE SET "_s + sets.join(u", "_s);
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

    if (ServerDB::exec(query, u"SELECT foods, exercises FROM diary_days WHERE member_id = ? AND date = ?"_s,
                       {memberId, text}) &&
        query.next()) {
        day.foods = readFoods(query.value(0));
        day.exercises = readExercises(query.value(1));
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
    const QString sql = u"SELECT date FROM diary_days WHERE member_id = ? AND date BETWEEN ? AND ? "
                        "UNION SELECT date FROM checkins WHERE member_id = ? AND date BETWEEN ? AND ? "
                        "UNION SELECT date FROM waters WHERE member_id = ? AND date BETWEEN ? AND ? "
                        "ORDER BY 1"_s;
    if (ServerDB::exec(query, sql, {memberId, first, last, memberId, first, last, memberId, first, last})) {
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
