// mkstaticdb DATA_DIR OUTPUT DATE
//
// Builds the reference database from the tables in data/ (see data/README.md).
//
// Foods (chunk 1): the USDA food groups as categories, within each a subcategory for every
// leading name (the text before the first comma) that several foods of the group share, then the
// foods. Neither groups nor subcategories take part in word search: foods are found by their own
// names. Ids stay the same from one build to the next: a food's id is its NDB number, a group's
// is its group code / 100 shifted left 16 bits, a subcategory's that plus a hash of its name.
// Values are per 100 g; servings keep USDA's sequence numbers, whose set is recorded in the
// leaf's 32-bit value (bit n set = sequence n + 1 present).
//
// Exercises (chunk 2): the compendium's major headings as categories (id = the two leading
// digits of their activity codes), the activities as items (id = activity code), each with its
// burn rate: MET x 0.0175 calories per minute per kilogram.

#include "staticdb/staticdbwriter.h"

#include <QCoreApplication>
#include <QDate>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMap>
#include <QSet>

#include <algorithm>
#include <cstdio>
#include <optional>

namespace {

constexpr quint8 kReferenceFilter = 0x04; // every record below the root: a reference item
constexpr int kMaxServings = 15;          // what the payload's serving count holds

[[noreturn]] void fail(const QString &message)
{
    std::fprintf(stderr, "mkstaticdb: %s\n", qUtf8Printable(message));
    std::exit(1);
}

// Rows of a table without its header line.
QList<QStringList> readTable(const QString &path, int columns)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        fail(QStringLiteral("cannot read %1").arg(path));
    QList<QStringList> rows;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QStringList fields = lines.at(i).split(QLatin1Char('\t'));
        if (fields.size() != columns)
            fail(QStringLiteral("%1:%2: %3 fields, expected %4")
                     .arg(path)
                     .arg(i + 1)
                     .arg(fields.size())
                     .arg(columns));
        rows.append(fields);
    }
    return rows;
}

// Names are 8-bit text: typographic punctuation of the sources becomes its plain form.
QByteArray latin1(QString text, const QString &where)
{
    text.replace(QChar(0x2013), QLatin1Char('-')).replace(QChar(0x2014), QLatin1Char('-'));
    text.replace(QChar(0x2018), QLatin1Char('\'')).replace(QChar(0x2019), QLatin1Char('\''));
    text.replace(QChar(0x201C), QLatin1Char('"')).replace(QChar(0x201D), QLatin1Char('"'));
    text.replace(QChar(0x2265), QStringLiteral(">="));
    for (const QChar c : text) {
        if (c.unicode() > 255 || c.unicode() == 0)
            fail(QStringLiteral("%1: \"%2\" is not Latin-1 text").arg(where, text));
    }
    return text.toLatin1();
}

quint32 number(const QString &text, const QString &where)
{
    bool ok = false;
    const uint value = text.toUInt(&ok);
    if (!ok || value >= (1u << 24))
        fail(QStringLiteral("%1: bad number \"%2\"").arg(where, text));
    return value;
}

std::optional<float> value(const QString &text, const QString &where)
{
    if (text.isEmpty())
        return std::nullopt;
    bool ok = false;
    const float v = text.toFloat(&ok);
    if (!ok || v < 0.0f)
        fail(QStringLiteral("%1: bad value \"%2\"").arg(where, text));
    return v;
}

bool byName(const StaticDbNode &a, const StaticDbNode &b)
{
    const int order = QString::fromLatin1(a.name).compare(QString::fromLatin1(b.name), Qt::CaseInsensitive);
    return order != 0 ? order < 0 : a.name < b.name;
}

StaticDbNode category(quint32 id, const QByteArray &name, quint8 flags)
{
    StaticDbNode node;
    node.category = true;
    node.id = id;
    node.name = name;
    node.flags = flags;
    return node;
}

// Amounts as USDA writes them (".5") become ordinary numbers ("0.5").
QString amountText(const QString &amount)
{
    bool ok = false;
    const double v = amount.toDouble(&ok);
    return ok ? QString::number(v, 'g', 6) : amount;
}

StaticDbNode buildFoods(const QString &dir)
{
    const QString folder = dir + QStringLiteral("/usda-sr28/");
    struct Serving
    {
        quint32 seq;
        StaticFoodServing serving;
    };
    QHash<QString, QList<Serving>> servings;
    for (const QStringList &row : readTable(folder + QStringLiteral("servings.tsv"), 5)) {
        const QString where = QStringLiteral("servings.tsv %1").arg(row.at(0));
        const quint32 seq = number(row.at(1), where);
        const std::optional<float> grams = value(row.at(4), where);
        if (seq < 1 || seq > 32 || !grams || *grams <= 0.0f)
            fail(where + QStringLiteral(": bad sequence or weight"));
        servings[row.at(0)].append(
            {seq, {*grams, latin1(amountText(row.at(2)) + QLatin1Char(' ') + row.at(3), where)}});
    }

    StaticDbNode root = category(0, QByteArray(), 0);
    QMap<QString, qsizetype> groupIndex;
    for (const QStringList &row : readTable(folder + QStringLiteral("groups.tsv"), 2)) {
        const quint32 code = number(row.at(0), QStringLiteral("groups.tsv"));
        if (code % 100 != 0 || code / 100 > 255)
            fail(QStringLiteral("groups.tsv: unexpected group code %1").arg(row.at(0)));
        groupIndex.insert(row.at(0), qsizetype(root.children.size()));
        // Group names are too broad to search by ("Dairy and Egg Products" is not an egg).
        root.children.push_back(category(code / 100 << 16, latin1(row.at(1), QStringLiteral("groups.tsv")),
                                         kReferenceFilter | 0x40));
    }

    // Foods by group, then by leading name.
    QMap<QString, QMap<QString, std::vector<StaticDbNode>>> grouped;
    for (const QStringList &row : readTable(folder + QStringLiteral("foods.tsv"), 13)) {
        const QString where = QStringLiteral("foods.tsv %1").arg(row.at(0));
        if (!groupIndex.contains(row.at(1)))
            fail(where + QStringLiteral(": unknown group"));
        StaticDbNode food;
        food.id = number(row.at(0), where);
        food.name = latin1(row.at(2), where);
        food.flags = kReferenceFilter;
        // Columns: kcal, carb, fat, protein, fibre, satfat, cholesterol, sodium, sugar, calcium.
        const int positions[] = {POS_CALORIES,      POS_CARB,        POS_FAT,    POS_PROTEIN, POS_FIBER,
                                 POS_SATURATED_FAT, POS_CHOLESTEROL, POS_SODIUM, POS_SUGAR,   POS_CALCIUM};
        std::vector<std::optional<float>> nutrients(POS_SUGAR + 1);
        for (int i = 0; i < 10; ++i)
            nutrients[size_t(positions[i])] = value(row.at(3 + i), where);

        QList<Serving> list = servings.value(row.at(0));
        std::sort(list.begin(), list.end(), [](const Serving &a, const Serving &b) { return a.seq < b.seq; });
        if (list.size() > kMaxServings) {
            std::fprintf(stderr, "mkstaticdb: %s: keeping the first %d of %d servings\n",
                         qUtf8Printable(where), kMaxServings, int(list.size()));
            list.resize(kMaxServings);
        }
        QList<StaticFoodServing> payloadServings;
        for (const Serving &s : list) {
            if (food.leafValue & (1u << (s.seq - 1)))
                fail(where + QStringLiteral(": sequence number twice"));
            food.leafValue |= 1u << (s.seq - 1);
            payloadServings.append(s.serving);
        }
        food.payload =
            StaticDbWriter::foodPayload(food.id, "USDA SR28", nutrients, 'M', 100.0f, payloadServings);
        const QString leading = row.at(2).section(QLatin1Char(','), 0, 0).trimmed();
        grouped[row.at(1)][leading].push_back(std::move(food));
    }

    for (auto group = grouped.begin(); group != grouped.end(); ++group) {
        StaticDbNode &node = root.children[size_t(groupIndex.value(group.key()))];
        QSet<quint32> used;
        std::vector<StaticDbNode> subcategories;
        for (auto leading = group.value().begin(); leading != group.value().end(); ++leading) {
            std::vector<StaticDbNode> &foods = leading.value();
            if (foods.size() < 2) {
                node.children.push_back(std::move(foods.front()));
                continue;
            }
            const QByteArray name = latin1(leading.key(), QStringLiteral("foods.tsv"));
            // The QMap walks names in a fixed order, so probing past a collision is stable too.
            quint32 hash = qChecksum(name) & 0xFFFF;
            while (hash == 0 || used.contains(hash))
                hash = (hash + 1) & 0xFFFF;
            used.insert(hash);
            // Not searched: its word is in each of its foods' own names anyway, and a word
            // matched here would carry to every food below, so that "pie -apple" could never
            // test "apple" against "Pie, apple".
            StaticDbNode sub = category(node.id | hash, name, kReferenceFilter | 0x40);
            std::sort(foods.begin(), foods.end(), byName);
            sub.children = std::move(foods);
            subcategories.push_back(std::move(sub));
        }
        std::sort(subcategories.begin(), subcategories.end(), byName);
        std::sort(node.children.begin(), node.children.end(), byName);
        subcategories.insert(subcategories.end(), std::make_move_iterator(node.children.begin()),
                             std::make_move_iterator(node.children.end()));
        node.children = std::move(subcategories);
    }
    return root;
}

StaticDbNode buildExercises(const QString &dir)
{
    const QString folder = dir + QStringLiteral("/compendium-2011/");
    QHash<QString, QByteArray> headingNames;
    for (const QStringList &row : readTable(folder + QStringLiteral("headings.tsv"), 2))
        headingNames.insert(row.at(0), latin1(row.at(1), QStringLiteral("headings.tsv")));

    QMap<quint32, StaticDbNode> headings; // by major code
    for (const QStringList &row : readTable(folder + QStringLiteral("activities.tsv"), 4)) {
        const QString where = QStringLiteral("activities.tsv %1").arg(row.at(0));
        if (!headingNames.contains(row.at(1)) || row.at(0).size() != 5)
            fail(where + QStringLiteral(": unknown heading or bad code"));
        const quint32 major = number(row.at(0).left(2), where);
        auto it = headings.find(major);
        if (it == headings.end())
            it = headings.insert(major,
                                 category(major, headingNames.value(row.at(1)), kReferenceFilter | 0x40));
        else if (it->name != headingNames.value(row.at(1)))
            fail(where + QStringLiteral(": heading differs from its code's"));
        const std::optional<float> met = value(row.at(2), where);
        if (!met || *met <= 0.0f)
            fail(where + QStringLiteral(": no MET value"));
        QString description = row.at(3).trimmed();
        if (!description.isEmpty())
            description[0] = description.at(0).toUpper();
        StaticDbNode activity;
        activity.id = number(row.at(0), where);
        activity.name = latin1(description, where);
        activity.flags = kReferenceFilter;
        activity.payload = StaticDbWriter::exercisePayload(*met * 0.0175f);
        it->children.push_back(std::move(activity));
    }
    if (headings.size() != headingNames.size())
        fail(QStringLiteral("headings.tsv: a heading without activities"));
    StaticDbNode root = category(0, QByteArray(), 0);
    for (StaticDbNode &heading : headings) {
        std::sort(heading.children.begin(), heading.children.end(), byName);
        root.children.push_back(std::move(heading));
    }
    return root;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 4)
        fail(QStringLiteral("usage: mkstaticdb DATA_DIR OUTPUT yyyy-MM-dd"));
    const QDate created = QDate::fromString(args.at(3), Qt::ISODate);
    if (!created.isValid())
        fail(QStringLiteral("bad date %1").arg(args.at(3)));

    StaticDbWriter writer(created);
    writer.addChunk(1, buildFoods(args.at(1)));
    writer.addChunk(2, buildExercises(args.at(1)));
    QDir().mkpath(QFileInfo(args.at(2)).absolutePath());
    QString error;
    if (!writer.write(args.at(2), &error))
        fail(error);
    return 0;
}
