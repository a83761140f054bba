#include "reports/csvexportdiary.h"

#include "db/diarydb.h"
#include "model/dateconversion.h"
#include "model/dbtypes.h"

#include <QDir>
#include <QSaveFile>

#include <map>
#include <memory>

namespace {

// A field: quoted, double quotes turned into apostrophes, always followed by a comma.
void field(QByteArray &out, const QString &text)
{
    QByteArray bytes = text.toUtf8();
    bytes.replace('"', '\'');
    out += '"';
    out += bytes;
    out += "\",";
}

QString number(double value)
{
    return QString::asprintf("%.2f", value);
}

QString nutrient(float value)
{
    if (value > 0)
        return number(double(value));
    if (value >= -0.005f)
        return QStringLiteral("0.00");
    return QString(); // unknown
}

QString groupType(int meal)
{
    switch (meal) {
    case BREAKFAST:
        return QStringLiteral("Breakfast");
    case LUNCH:
        return QStringLiteral("Lunch");
    case DINNER:
        return QStringLiteral("Dinner");
    case SNACK_3:
        return QStringLiteral("Snack");
    default:
        return QStringLiteral("Unknown"); // the first two snacks too
    }
}

} // namespace

QByteArray csvHeader()
{
    return QByteArrayLiteral(
        "\"Date\",\"Time\",\"Group Type\",\"Group Label\",\"Item Name\",\"Qty\",\"Serving\",\"Calories\",\"Carbs\","
        "\"Fat\",\"Fibre\",\"Protein\"\n");
}

QByteArray csvDay(const QString &day, const DiaryDay &entries)
{
    const QString date = DateConversion::toWebDate(day);
    QByteArray out;
    for (const FoodDiaryItem &food : entries.foods) {
        for (const QString &text : {date, QString(), groupType(food.meal), QString(), food.food_name,
                                    number(double(food.size)), food.serv_name, nutrient(food.getNutrient(ENERGY)),
                                    nutrient(food.getNutrient(CARB)), nutrient(food.getNutrient(FAT)),
                                    nutrient(food.getNutrient(FIBER)), nutrient(food.getNutrient(PROTEIN))})
            field(out, text);
        out += '\n';
    }
    for (const ExerciseDiaryItem &exercise : entries.exercises) {
        for (const QString &text : {date, QString(), QStringLiteral("Exercise"), QString(), exercise.name,
                                    number(double(exercise.duration)), QStringLiteral("minutes"),
                                    number(-double(exercise.rate * exercise.duration))})
            field(out, text);
        out += '\n';
    }
    return out;
}

QString exportDiary(int userId, const QString &fileName, const QString &folder, const QDate &firstDay,
                    const QDate &lastDay, bool skipEmpty)
{
    QString error;
    const DiaryDB diary;
    std::map<QString, DiaryDay> days;
    for (QDate date = firstDay; date <= lastDay; date = date.addDays(1)) {
        const QString day = DateConversion::fromQDate(date);
        DiaryDay entries = diary.getDay(userId, day);
        entries.foods.removeIf([](const FoodDiaryItem &f) { return f.status == STATUS_DELETED; });
        entries.exercises.removeIf([](const ExerciseDiaryItem &e) { return e.status == STATUS_DELETED; });
        if (skipEmpty && entries.foods.isEmpty() && entries.exercises.isEmpty())
            continue;
        days.emplace(day, std::move(entries));
    }
    if (days.empty())
        return QStringLiteral("No days in the selected range have any recorded items");

    std::unique_ptr<QSaveFile> whole;
    if (!fileName.isEmpty()) {
        whole = std::make_unique<QSaveFile>(fileName);
        if (!whole->open(QIODevice::WriteOnly))
            return QStringLiteral("Could not open ") + fileName;
        whole->write(csvHeader());
    }
    for (const auto &[day, entries] : days) {
        const QByteArray text = csvDay(day, entries);
        if (whole)
            whole->write(text);
        if (folder.isEmpty())
            continue;
        const QString dayFile = folder + QLatin1Char('/') + DateConversion::toWebDate(day);
        QSaveFile file(dayFile);
        if (!file.open(QIODevice::WriteOnly) || file.write(csvHeader() + text) < 0 || !file.commit())
            error = QStringLiteral("Could not open ") + dayFile + QStringLiteral(" (and possibly other files)");
    }
    if (whole && !whole->commit())
        return QStringLiteral("Could not open ") + fileName;
    return error;
}
