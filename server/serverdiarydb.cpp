#include "server/serverdiarydb.h"

#include "model/dateconversion.h"
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
                return u"a food on %1 has no meal (B, L, D or S)"_s.arg(DateConversion::toWebDate(day.date));
            if (!std::isfinite(food.qty) || !std::all_of(food.values.cbegin(), food.values.cend(), finite))
                return u"a food on %1 has a number that is not one"_s.arg(
                    DateConversion::toWebDate(day.date));
        }
        for (const PublishedExercise &exercise : day.exercises) {
            if (!std::isfinite(exercise.duration) || !std::isfinite(exercise.calories))
                return u"an exercise on %1 has a number that is not one"_s.arg(
                    DateConversion::toWebDate(day.date));
        }
    }
    for (const PublishedCheckin &checkin : update.checkins) {
        if (!usableDate(checkin.date))
            return u"a check-in has no usable date"_s;
        if (!finite(checkin.weight) || !finite(checkin.chest) || !finite(checkin.hips) ||
            !finite(checkin.thigh) || !finite(checkin.waist))
            return u"the check-in of %1 has a number that is not one"_s.arg(
                DateConversion::toWebDate(checkin.date));
    }
    for (const PublishedWater &water : update.waters) {
        if (!usableDate(water.date))
            return u"a water entry has no usable date"_s;
        if (water.cups < 0)
            return u"the water of %1 is less than nothing"_s.arg(DateConversion::toWebDate(water.date));
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

// A finite number as text that reads back as the same double. What the program sends ("120.5",
// "3") has a few decimal places: the value is then the double nearest to scaled / 10^places, and
// that division (of exact operands, correctly rounded) finds the places without the general
// shortest-text search. Anything else is left to to_chars.
char *writeNumber(char *out, char *end, double value)
{
    static constexpr double kPowers[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6};
    if (std::fabs(value) < 1e9) {
        for (int places = 0; places < int(std::size(kPowers)); ++places) {
            const double scaled = std::nearbyint(value * kPowers[places]);
            if (scaled / kPowers[places] != value)
                continue;
            auto digits = qint64(std::fabs(scaled));
            char reversed[24];
            int n = 0;
            do {
                reversed[n++] = char('0' + digits % 10);
                digits /= 10;
            } while (digits != 0);
            while (n <= places)
                reversed[n++] = '0'; // 0.05: the zeros before the first digit
            if (scaled < 0)
                *out++ = '-';
            for (int i = n - 1; i >= 0; --i) {
                *out++ = reversed[i];
                if (i == places && places > 0)
                    *out++ = '.';
            }
            return out;
        }
    }
    return std::to_chars(out, end, value).ptr;
}

// A day's entries as JSON, written straight into UTF-16: this is done for every day of every
// publish. Each write makes room for itself first.
class JsonWriter
{
public:
    explicit JsonWriter(qsizetype expected) { room(expected); }

    void put(char16_t c)
    {
        room(1);
        *_o++ = c;
    }

    // ASCII text as it is.
    void ascii(const char *text, qsizetype size)
    {
        room(size);
        for (qsizetype i = 0; i < size; ++i)
            *_o++ = uchar(text[i]);
    }
    template <qsizetype N> void ascii(const char (&text)[N]) { ascii(text, N - 1); }

    void string(QStringView text)
    {
        room(text.size() * 6 + 2); // six characters for each at most, escaped
        *_o++ = u'"';
        for (const QChar c : text) {
            const char16_t u = c.unicode();
            if (u == u'"' || u == u'\\') {
                *_o++ = u'\\';
                *_o++ = u;
            } else if (u < 0x20) {
                for (const char16_t e : {u'\\', u'u', u'0', u'0'})
                    *_o++ = e;
                *_o++ = u"0123456789abcdef"[u >> 4];
                *_o++ = u"0123456789abcdef"[u & 15];
            } else {
                *_o++ = u;
            }
        }
        *_o++ = u'"';
    }

    // ,"name":value. Numbers are finite: the update was checked.
    void number(QLatin1StringView name, double value)
    {
        char text[64];
        char *end = text;
        *end++ = ',';
        *end++ = '"';
        end = std::copy(name.begin(), name.end(), end);
        *end++ = '"';
        *end++ = ':';
        end = writeNumber(end, text + sizeof text, value);
        ascii(text, end - text);
    }

    QString take()
    {
        _text.truncate(_o - begin());
        return std::move(_text);
    }

private:
    char16_t *begin() { return reinterpret_cast<char16_t *>(_text.data()); }

    void room(qsizetype size)
    {
        if (_end - _o >= size)
            return;
        const qsizetype used = _o ? _o - begin() : 0;
        _text.resize(std::max(used + size, 2 * _text.size() + 256));
        _o = begin() + used;
        _end = begin() + _text.size();
    }

    QString _text;
    char16_t *_o = nullptr, *_end = nullptr;
};

// A day's foods as kept: [{"meal":"B","qty":1.5,"desc":...,"serving":...,"calories":120,...}, ...],
// an unknown value left out.
QString foodsJson(const QList<PublishedFood> &foods)
{
    JsonWriter json(foods.size() * 240 + 2);
    json.put(u'[');
    for (const PublishedFood &food : foods) {
        if (&food != &foods.front())
            json.put(u',');
        json.ascii("{\"meal\":");
        json.string(QStringView(&food.meal, 1));
        json.number("qty"_L1, food.qty);
        json.ascii(",\"desc\":");
        json.string(food.desc);
        json.ascii(",\"serving\":");
        json.string(food.serving);
        for (size_t i = 0; i < food.values.size(); ++i) {
            if (food.values[i])
                json.number(kFoodValueNames[i], *food.values[i]);
        }
        json.put(u'}');
    }
    json.put(u']');
    return json.take();
}

QString exercisesJson(const QList<PublishedExercise> &exercises)
{
    JsonWriter json(exercises.size() * 80 + 2);
    json.put(u'[');
    for (const PublishedExercise &exercise : exercises) {
        if (&exercise != &exercises.front())
            json.put(u',');
        json.ascii("{\"desc\":");
        json.string(exercise.desc);
        json.number("duration"_L1, exercise.duration);
        json.number("calories"_L1, exercise.calories);
        json.put(u'}');
    }
    json.put(u']');
    return json.take();
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
            const QJsonValue value = object.value(kFoodValueNames[i]);
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
            checkinDeletions.append(DateConversion::toWebDate(checkin.date));
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
            cleared.append(DateConversion::toWebDate(day.date));
        else
            filled.append(
                {DateConversion::toWebDate(day.date), foodsJson(day.foods), exercisesJson(day.exercises)});
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
                           values << memberId << DateConversion::toWebDate(checkin.date)
                                  << ServerDB::realOrNull(checkin.weight)
                                  << ServerDB::realOrNull(checkin.chest) << ServerDB::realOrNull(checkin.hips)
                                  << ServerDB::realOrNull(checkin.thigh)
                                  << ServerDB::realOrNull(checkin.waist) << text(checkin.note);
                       },
                       workError) &&
                   insertRows(
                       u"waters"_s, waterColumns, u"member_id, date"_s, waters.size(),
                       [&](qsizetype i, QVariantList &values) {
                           values << memberId << DateConversion::toWebDate(waters.at(i).date)
                                  << waters.at(i).cups;
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
    const QString text = DateConversion::toWebDate(date);
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
    const QString first = DateConversion::toWebDate(from), last = DateConversion::toWebDate(to);
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

QList<ServerDiaryDB::Day> ServerDiaryDB::diaryDays(qint64 memberId, const QDate &from, const QDate &to)
{
    QList<Day> days;
    QSqlQuery query(_db.connection());
    if (ServerDB::exec(query,
                       u"SELECT date, foods, exercises FROM diary_days "
                       "WHERE member_id = ? AND date BETWEEN ? AND ? ORDER BY date"_s,
                       {memberId, DateConversion::toWebDate(from), DateConversion::toWebDate(to)})) {
        while (query.next()) {
            Day day;
            day.date = QDate::fromString(query.value(0).toString(), Qt::ISODate);
            day.foods = readFoods(query.value(1));
            day.exercises = readExercises(query.value(2));
            days.append(std::move(day));
        }
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
                       {memberId, DateConversion::toWebDate(from), DateConversion::toWebDate(to)})) {
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
