#include "server/publishreader.h"

#include "server/plainxml.h"

#include <QHash>
#include <QSet>
#include <QXmlStreamReader>

#include <charconv>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// A pull reader of start elements that refuses what the documents never hold: a DTD, entity
// references, deep nesting and long attribute values. Text, comments and processing
// instructions are passed over. It reads with Qt's XML reader, or replays what PlainXml read.
class SafeReader
{
public:
    explicit SafeReader(QByteArrayView xml)
        : _xml(std::in_place, QByteArray::fromRawData(xml.data(), xml.size()))
    {
        _xml->setNamespaceProcessing(false); // the documents use none; resolving prefixes is work
    }
    explicit SafeReader(const PlainXml &plain)
        : _plain(&plain)
    {
    }

    // The next start element within the current one; false at its end, at the end of the
    // document or on an error (see failed()).
    bool nextChild()
    {
        if (_plain) {
            if (_failed || _next == _plain->events().size())
                return false;
            const PlainXml::Event &event = _plain->events()[_next++];
            if (!event.start) {
                --_depth;
                return false;
            }
            ++_depth;
            _current = &event;
            _nextAttribute = 0;
            return true;
        }
        while (!_failed) {
            // Let go of the last element's attributes first: the reader would copy them otherwise.
            _attributes = QXmlStreamAttributes();
            switch (_xml->readNext()) {
            case QXmlStreamReader::StartElement:
                if (++_depth > kMaxDepth)
                    return fail(QStringLiteral("elements nested too deep"));
                _attributes = _xml->attributes();
                for (const QXmlStreamAttribute &a : std::as_const(_attributes)) {
                    if (a.value().size() > kMaxAttributeLength)
                        return fail(QStringLiteral("attribute %1 too long").arg(a.name()));
                }
                return true;
            case QXmlStreamReader::EndElement:
                --_depth;
                return false;
            case QXmlStreamReader::DTD:
                return fail(QStringLiteral("a DTD is not allowed"));
            case QXmlStreamReader::EntityReference:
                return fail(QStringLiteral("entity references are not allowed"));
            case QXmlStreamReader::Invalid:
                return fail(_xml->errorString());
            case QXmlStreamReader::EndDocument:
                return false;
            default:
                break; // text, comments, the declaration
            }
        }
        return false;
    }

    // Passes over the current element and everything in it.
    void skip()
    {
        while (nextChild())
            skip();
    }

    // The end of the document must follow the root: only comments and white space may.
    bool finish()
    {
        if (_plain)
            return !_failed; // PlainXml read the document to its end
        _attributes = QXmlStreamAttributes();
        while (!_failed && !_xml->atEnd()) {
            const QXmlStreamReader::TokenType token = _xml->readNext();
            if (token == QXmlStreamReader::Invalid)
                return fail(_xml->errorString());
            if (token == QXmlStreamReader::DTD || token == QXmlStreamReader::StartElement)
                return fail(QStringLiteral("content after the document"));
        }
        return !_failed;
    }

    bool fail(const QString &why)
    {
        if (!_failed) {
            _failed = true;
            // A replay's failure is only a reason to read again with Qt's reader, which says where.
            _error = QStringLiteral("line %1: %2").arg(_xml ? _xml->lineNumber() : 0).arg(why);
        }
        return false;
    }

    QStringView name() const { return _plain ? _current->name : _xml->name(); }
    // The value of the current element's attribute of that (qualified) name, if it has one.
    std::optional<QStringView> find(QLatin1StringView wanted) const
    {
        if (_plain) {
            // Asked for mostly in the order they were written: the search starts past the last
            // one found and wraps around.
            const qsizetype count = _current->attributeCount;
            const PlainXml::Attribute *first = _plain->attributes().data() + _current->firstAttribute;
            for (qsizetype n = 0, i = _nextAttribute; n < count; ++n, ++i) {
                if (i >= count)
                    i = 0;
                if (sameName(first[i].name, wanted)) {
                    _nextAttribute = i + 1;
                    return first[i].value;
                }
            }
            return std::nullopt;
        }
        for (const QXmlStreamAttribute &a : _attributes) {
            if (sameName(a.qualifiedName(), wanted))
                return a.value();
        }
        return std::nullopt;
    }
    QStringView attribute(QLatin1StringView name) const { return find(name).value_or(QStringView()); }
    bool failed() const { return _failed; }
    QString error() const { return _error; }

    // "yyyy-MM-dd" and a real day.
    bool date(QLatin1StringView attributeName, QDate *out)
    {
        const QStringView text = attribute(attributeName);
        *out = text.size() == 10 ? isoDate(text) : QDate();
        return out->isValid() ||
               fail(QStringLiteral("%1 \"%2\" is not a yyyy-MM-dd date").arg(attributeName, text.left(40)));
    }

    // A finite number; false when it is there but is none, or is missing and required.
    bool number(QLatin1StringView attributeName, std::optional<double> *out, bool required)
    {
        out->reset();
        const std::optional<QStringView> found = find(attributeName);
        if (!found) {
            return !required || fail(QStringLiteral("%1 is missing").arg(attributeName));
        }
        const QStringView text = *found;
        std::optional<double> value = plainDecimal(text);
        if (!value) {
            bool ok = false;
            value = text.trimmed().toDouble(&ok);
            if (!ok || !std::isfinite(*value))
                return fail(
                    QStringLiteral("%1 \"%2\" is not a finite number").arg(attributeName, text.left(40)));
        }
        *out = value;
        return true;
    }

    bool number(QLatin1StringView attributeName, double *out)
    {
        std::optional<double> value;
        if (!number(attributeName, &value, true))
            return false;
        *out = *value;
        return true;
    }

    bool count(QLatin1StringView attributeName, int max, int *out)
    {
        bool ok = false;
        *out = attribute(attributeName).trimmed().toInt(&ok);
        return (ok && *out >= 0 && *out <= max) ||
               fail(QStringLiteral("%1 is not a count").arg(attributeName));
    }

private:
    // Names are short ASCII: compared here, not by a call for each.
    static bool sameName(QStringView found, QLatin1StringView wanted)
    {
        if (found.size() != wanted.size())
            return false;
        for (qsizetype i = 0; i < found.size(); ++i) {
            if (found[i].unicode() != uchar(wanted.data()[i]))
                return false;
        }
        return true;
    }

    // What the program writes, "-12.5" or "3", read faster than toDouble() reads it, to the same
    // value (both round correctly); anything else is left to toDouble().
    static std::optional<double> plainDecimal(QStringView text)
    {
        if (text.isEmpty() || text.size() > 32)
            return std::nullopt;
        qsizetype digits = 0, point = -1;
        qint64 mantissa = 0;
        for (qsizetype i = 0; i < text.size(); ++i) {
            const char16_t c = text.at(i).unicode();
            if (c >= u'0' && c <= u'9') {
                ++digits;
                mantissa = mantissa * 10 + (c - u'0');
            } else if (c == u'.' && point < 0 && digits > 0) {
                point = i;
            } else if (!(c == u'-' && i == 0)) {
                return std::nullopt;
            }
        }
        if (digits == 0 || point == text.size() - 1)
            return std::nullopt;
        // Up to 15 digits the digits and the power of ten are exact doubles, and one division
        // rounds correctly: the same value from_chars gives, without its general path.
        if (digits <= 15) {
            static constexpr double kPowers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
            const double magnitude = double(mantissa) / kPowers[point < 0 ? 0 : text.size() - 1 - point];
            return text.front() == u'-' ? -magnitude : magnitude;
        }
        char latin1[32];
        for (qsizetype i = 0; i < text.size(); ++i)
            latin1[i] = char(text.at(i).unicode());
        double value = 0;
        const auto [end, error] = std::from_chars(latin1, latin1 + text.size(), value);
        if (error != std::errc() || end != latin1 + text.size())
            return std::nullopt;
        return value;
    }

    // Ten characters as "yyyy-MM-dd": all digits where they belong are read directly, anything
    // else by QDate::fromString, which gives the same day for those, slower.
    static QDate isoDate(QStringView text)
    {
        int parts[3] = {0, 0, 0};
        for (qsizetype i = 0, part = 0; i < text.size(); ++i) {
            const char16_t c = text.at(i).unicode();
            if (i == 4 || i == 7) {
                if (c != u'-')
                    return QDate::fromString(text.toString(), QStringLiteral("yyyy-MM-dd"));
                ++part;
            } else if (c >= u'0' && c <= u'9') {
                parts[part] = parts[part] * 10 + (c - u'0');
            } else {
                return QDate::fromString(text.toString(), QStringLiteral("yyyy-MM-dd"));
            }
        }
        return QDate(parts[0], parts[1], parts[2]);
    }

    std::optional<QXmlStreamReader> _xml; // none when replaying: it is costly to make
    QXmlStreamAttributes _attributes;     // of the current start element
    const PlainXml *_plain = nullptr;
    size_t _next = 0;                          // in _plain's events
    const PlainXml::Event *_current = nullptr; // the last start element of _plain
    mutable qsizetype _nextAttribute = 0;      // of _current, where find() looks first
    int _depth = 0;
    bool _failed = false;
    QString _error;
};

// The meal letter of a group: its meal attribute, else the letter whose code is its id, else the
// first letter of its description. 0 when none of them names a meal.
QChar groupMeal(const SafeReader &reader)
{
    static const QString letters = QStringLiteral("BLDSE");
    const auto known = [](QChar c) { return letters.contains(c) ? c : QChar(); };
    const QStringView meal = reader.attribute("meal"_L1);
    if (meal.size() == 1 && !known(meal.at(0)).isNull())
        return meal.at(0);
    bool ok = false;
    const int id = reader.attribute("id"_L1).toInt(&ok);
    if (ok && id > 0 && id < 128 && !known(QChar(id)).isNull())
        return QChar(id);
    const QStringView desc = reader.attribute("desc"_L1);
    return desc.isEmpty() ? QChar() : known(desc.at(0).toUpper());
}

bool readFood(SafeReader &reader, QChar meal, PublishedFood *food)
{
    food->meal = meal;
    food->desc = reader.attribute("desc"_L1).toString();
    food->serving = reader.attribute("serving"_L1).toString();
    if (!reader.number("qty"_L1, &food->qty))
        return false;
    for (size_t i = 0; i < kFoodValueNames.size(); ++i) {
        if (!reader.number(kFoodValueNames[i], &food->values[i], false))
            return false;
        if (food->values[i] && *food->values[i] < 0)
            food->values[i].reset(); // the program's way of writing "unknown"
    }
    return true;
}

bool readDay(SafeReader &reader, PublishedDay *day, int *items)
{
    if (!reader.date("date"_L1, &day->date))
        return false;
    while (reader.nextChild()) {
        if (reader.name() != QLatin1String("group")) {
            reader.skip();
            continue;
        }
        const QChar meal = groupMeal(reader);
        if (meal.isNull())
            return reader.fail(QStringLiteral("a group names no meal"));
        while (reader.nextChild()) {
            const bool isFood = reader.name() == QLatin1String("food");
            const bool isExercise = reader.name() == QLatin1String("exercise");
            if (!isFood && !isExercise) {
                reader.skip();
                continue;
            }
            if (isExercise != (meal == QLatin1Char('E')))
                return reader.fail(QStringLiteral("%1 in a group of meal %2").arg(reader.name()).arg(meal));
            if (++*items > kMaxPublishItems)
                return reader.fail(QStringLiteral("more than %1 items").arg(kMaxPublishItems));
            if (isFood) {
                PublishedFood food;
                if (!readFood(reader, meal, &food))
                    return false;
                day->foods.append(std::move(food));
            } else {
                PublishedExercise exercise;
                exercise.desc = reader.attribute("desc"_L1).toString();
                if (!reader.number("duration"_L1, &exercise.duration) ||
                    !reader.number("calories"_L1, &exercise.calories))
                    return false;
                day->exercises.append(std::move(exercise));
            }
            reader.skip();
        }
    }
    return !reader.failed();
}

bool readCheckin(SafeReader &reader, PublishedCheckin *checkin)
{
    if (!reader.date("date"_L1, &checkin->date))
        return false;
    const std::pair<QLatin1StringView, std::optional<double> *> values[] = {{"weight"_L1, &checkin->weight},
                                                                            {"chest"_L1, &checkin->chest},
                                                                            {"hips"_L1, &checkin->hips},
                                                                            {"thigh"_L1, &checkin->thigh},
                                                                            {"waist"_L1, &checkin->waist}};
    for (const auto &[name, value] : values) {
        if (!reader.number(name, value, false))
            return false;
    }
    checkin->note = reader.attribute("note"_L1).toString();
    return true;
}

// Reads the root and hands each child of it to readChild.
template <typename ReadChild> void readRoot(SafeReader &reader, const char *rootName, ReadChild &readChild)
{
    if (!reader.nextChild()) {
        if (!reader.failed())
            reader.fail(QStringLiteral("no document"));
    } else if (reader.name() != QLatin1String(rootName)) {
        reader.fail(QStringLiteral("the root is %1, not %2").arg(reader.name(), QLatin1String(rootName)));
    } else {
        while (reader.nextChild() && readChild(reader)) {
        }
        reader.finish();
    }
}

// The document read with PlainXml when it takes it, else (and whenever that reading fails, so
// that the reason is Qt's) with Qt's reader; reset() forgets what readChild kept of a failed try.
template <typename ReadChild, typename Reset>
bool readDocument(QByteArrayView xml, XmlReading reading, const char *rootName, QString *error,
                  ReadChild readChild, Reset reset)
{
    if (reading == XmlReading::PlainFirst) {
        PlainXml plain;
        if (plain.read(xml, kMaxDepth, kMaxAttributeLength)) {
            SafeReader reader(plain);
            readRoot(reader, rootName, readChild);
            if (!reader.failed())
                return true;
        }
        reset();
    }
    SafeReader reader(xml);
    readRoot(reader, rootName, readChild);
    if (reader.failed() && error)
        *error = reader.error();
    return !reader.failed();
}

void setCode(ProtocolError *code, bool ok, bool tooLarge)
{
    if (code)
        *code = ok ? ProtocolError::Ok : tooLarge ? ProtocolError::TooLarge : ProtocolError::BadDocument;
}

} // namespace

bool readDiaryUpdate(QByteArrayView xml, DiaryUpdate *out, QString *error, ProtocolError *code,
                     XmlReading reading)
{
    *out = DiaryUpdate();
    int items = 0;
    QSet<QDate> days;
    const auto reset = [&] {
        *out = DiaryUpdate();
        items = 0;
        days.clear();
    };
    const bool ok = readDocument(
        xml, reading, "diaryupdate", error,
        [&](SafeReader &reader) {
            const QStringView section = reader.name();
            const char *child = section == QLatin1String("diary")      ? "diaryday"
                                : section == QLatin1String("checkins") ? "checkin"
                                : section == QLatin1String("waters")   ? "water"
                                                                       : nullptr;
            if (!child) {
                reader.skip();
                return true;
            }
            while (reader.nextChild()) {
                if (reader.name() != QLatin1String(child)) {
                    reader.skip();
                    continue;
                }
                if (section == QLatin1String("diary")) {
                    PublishedDay day;
                    if (!readDay(reader, &day, &items))
                        return false;
                    if (days.contains(day.date))
                        return reader.fail(
                            QStringLiteral("day %1 twice").arg(day.date.toString(Qt::ISODate)));
                    days.insert(day.date);
                    out->days.append(std::move(day));
                    continue; // readDay has read the day's end
                }
                if (section == QLatin1String("checkins")) {
                    PublishedCheckin checkin;
                    if (!readCheckin(reader, &checkin))
                        return false;
                    out->checkins.append(std::move(checkin));
                } else {
                    PublishedWater water;
                    if (!reader.date("date"_L1, &water.date) || !reader.count("cups"_L1, 10000, &water.cups))
                        return false;
                    out->waters.append(water);
                }
                reader.skip();
            }
            return !reader.failed();
        },
        reset);
    setCode(code, ok, items > kMaxPublishItems);
    if (!ok)
        *out = DiaryUpdate();
    return ok;
}

bool readMetricsUpdate(QByteArrayView xml, QList<MetricsCount> *out, QString *error, ProtocolError *code,
                       XmlReading reading)
{
    out->clear();
    int items = 0;
    const auto reset = [&] {
        out->clear();
        items = 0;
    };
    const bool ok = readDocument(
        xml, reading, "metrics", error,
        [&](SafeReader &reader) {
            static const QHash<QString, MetricsCount::Kind> kinds = {
                {QStringLiteral("login"), MetricsCount::Start},
                {QStringLiteral("checkin"), MetricsCount::Checkin},
                {QStringLiteral("fooddiary"), MetricsCount::FoodDiary}};
            const auto kind = kinds.constFind(reader.name().toString());
            if (kind == kinds.cend()) {
                reader.skip();
                return true;
            }
            if (++items > kMaxMetricsItems)
                return reader.fail(QStringLiteral("more than %1 items").arg(kMaxMetricsItems));
            MetricsCount count;
            count.kind = *kind;
            count.count = 1;
            if (!reader.date(count.kind == MetricsCount::Start ? "date"_L1 : "modified"_L1, &count.date) ||
                (count.kind != MetricsCount::Checkin && !reader.count("count"_L1, 1000000, &count.count)))
                return false;
            out->append(count);
            reader.skip();
            return !reader.failed();
        },
        reset);
    setCode(code, ok, items > kMaxMetricsItems);
    if (!ok)
        out->clear();
    return ok;
}
