// convertdata SOURCE_DIR DATA_DIR
//
// Turns the public reference data (USDA SR28 in its caret-delimited ASCII format, the 2011
// Compendium of Physical Activities as CSV) into the compact UTF-8 tables kept in the project's
// data/ folder, from which the build makes static.db. Run by hand when the sources change; the
// build itself never reads the sources.
//
// Tables (tab-separated, one header line, empty field = no value):
//   usda-sr28/groups.tsv      code, name
//   usda-sr28/foods.tsv       ndb, group, name, then per 100 g: kcal, carb, fat, protein, fibre,
//                             satfat, cholesterol, sodium, sugar, calcium
//   usda-sr28/servings.tsv    ndb, seq, amount, measure, grams
//   compendium-2011/headings.tsv   key, name
//   compendium-2011/activities.tsv code, heading, met, description

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QMap>
#include <QSaveFile>
#include <QStringDecoder>

#include <cstdio>

namespace {

[[noreturn]] void fail(const QString &message)
{
    std::fprintf(stderr, "convertdata: %s\n", qUtf8Printable(message));
    std::exit(1);
}

// Lines of a USDA file split at carets, with the tildes around text removed (Latin-1, CRLF).
QList<QStringList> readUsda(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        fail(QStringLiteral("cannot read %1").arg(path));
    QList<QStringList> rows;
    const QString text = QString::fromLatin1(file.readAll());
    for (QString line : text.split(QStringLiteral("\r\n"), Qt::SkipEmptyParts)) {
        QStringList fields = line.split(QLatin1Char('^'));
        for (QString &field : fields) {
            if (field.size() >= 2 && field.startsWith(QLatin1Char('~')) && field.endsWith(QLatin1Char('~')))
                field = field.mid(1, field.size() - 2);
        }
        rows.append(fields);
    }
    return rows;
}

// A small CSV reader: fields in double quotes may hold commas; "" is a quote.
QList<QStringList> readCsv(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        fail(QStringLiteral("cannot read %1").arg(path));
    QList<QStringList> rows;
    for (const QString &line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        QStringList fields;
        QString field;
        bool quoted = false;
        for (qsizetype i = 0; i < line.size(); ++i) {
            const QChar c = line.at(i);
            if (quoted) {
                if (c == QLatin1Char('"') && i + 1 < line.size() && line.at(i + 1) == QLatin1Char('"')) {
                    field += c;
                    ++i;
                } else if (c == QLatin1Char('"')) {
                    quoted = false;
                } else {
                    field += c;
                }
            } else if (c == QLatin1Char('"')) {
                quoted = true;
            } else if (c == QLatin1Char(',')) {
                fields.append(field);
                field.clear();
            } else if (c != QLatin1Char('\r')) {
                field += c;
            }
        }
        fields.append(field);
        rows.append(fields);
    }
    return rows.mid(1); // without the header
}

QString clean(QString text)
{
    return text.replace(QLatin1Char('\t'), QLatin1Char(' ')).trimmed();
}

void writeTable(const QString &path, const QString &header, const QStringList &lines)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        fail(QStringLiteral("cannot write %1").arg(path));
    file.write(header.toUtf8() + '\n');
    for (const QString &line : lines)
        file.write(line.toUtf8() + '\n');
    if (!file.commit())
        fail(QStringLiteral("cannot write %1").arg(path));
    std::printf("%s: %lld rows\n", qUtf8Printable(path), static_cast<long long>(lines.size()));
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 3)
        fail(QStringLiteral("usage: convertdata SOURCE_DIR DATA_DIR"));
    const QDir source(args.at(1));
    const QDir data(args.at(2));

    // USDA SR28
    QStringList groups;
    for (const QStringList &row : readUsda(source.filePath(QStringLiteral("usda-sr28/FD_GROUP.txt"))))
        groups.append(row.value(0) + QLatin1Char('\t') + clean(row.value(1)));
    writeTable(data.filePath(QStringLiteral("usda-sr28/groups.tsv")), QStringLiteral("code\tname"), groups);

    // Nutrient numbers in the model's order.
    const QStringList nutrients = {QStringLiteral("208"), QStringLiteral("205"), QStringLiteral("204"),
                                   QStringLiteral("203"), QStringLiteral("291"), QStringLiteral("606"),
                                   QStringLiteral("601"), QStringLiteral("307"), QStringLiteral("269"),
                                   QStringLiteral("301")};
    QHash<QString, QHash<QString, QString>> values;
    for (const QStringList &row : readUsda(source.filePath(QStringLiteral("usda-sr28/NUT_DATA.txt"))))
        values[row.value(0)][row.value(1)] = row.value(2);

    QStringList foods;
    for (const QStringList &row : readUsda(source.filePath(QStringLiteral("usda-sr28/FOOD_DES.txt")))) {
        const QString ndb = row.value(0);
        QStringList fields = {ndb, row.value(1), clean(row.value(2))};
        const QHash<QString, QString> &own = values[ndb];
        for (const QString &number : nutrients)
            fields.append(own.value(number));
        foods.append(fields.join(QLatin1Char('\t')));
    }
    writeTable(data.filePath(QStringLiteral("usda-sr28/foods.tsv")),
               QStringLiteral("ndb\tgroup\tname\tkcal\tcarb\tfat\tprotein\tfibre\tsatfat\tcholesterol\tsodium\tsugar\tcalcium"),
               foods);

    QStringList servings;
    for (const QStringList &row : readUsda(source.filePath(QStringLiteral("usda-sr28/WEIGHT.txt"))))
        servings.append(QStringList{row.value(0), row.value(1), row.value(2), clean(row.value(3)), row.value(4)}.join(
            QLatin1Char('\t')));
    writeTable(data.filePath(QStringLiteral("usda-sr28/servings.tsv")), QStringLiteral("ndb\tseq\tamount\tmeasure\tgrams"),
               servings);

    // Compendium 2011
    QStringList headings;
    for (const QStringList &row : readCsv(source.filePath(QStringLiteral("compendium-2011/headings.csv"))))
        headings.append(row.value(0) + QLatin1Char('\t') + clean(row.value(1)));
    writeTable(data.filePath(QStringLiteral("compendium-2011/headings.tsv")), QStringLiteral("key\tname"), headings);
    QStringList activities;
    for (const QStringList &row : readCsv(source.filePath(QStringLiteral("compendium-2011/activities.csv"))))
        activities.append(QStringList{row.value(0), row.value(1), row.value(2), clean(row.value(3))}.join(QLatin1Char('\t')));
    writeTable(data.filePath(QStringLiteral("compendium-2011/activities.tsv")),
               QStringLiteral("code\theading\tmet\tdescription"), activities);
    return 0;
}
