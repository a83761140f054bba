#include "reports/daytable.h"

#include "db/diarydb.h"
#include "model/dateconversion.h"
#include "model/daystanding.h"
#include "model/quantitytext.h"
#include "model/unitdescriptor.h"

#include <QCoreApplication>
#include <QLocale>

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("DayTable", text);
}

} // namespace

const QList<int> DayTable::kDefaultColumns = {ENERGY, CARB, FAT, PROTEIN};

QList<int> DayTable::columnsOf(int userId)
{
    // Nutrient types separated by commas; anything else in the text is passed over.
    QList<int> columns;
    for (const QString &part :
         UserDB::diaryViewColumnSettings(userId).split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        bool ok = false;
        const int type = part.trimmed().toInt(&ok);
        if (ok && type >= 0 && type < kNutrientCount && !columns.contains(type))
            columns.append(type);
    }
    return columns.isEmpty() ? kDefaultColumns : columns;
}

DayTable DayTable::read(int userId, const QDate &date, const QList<int> &columns)
{
    DayTable table;
    table.userId = userId;
    table.date = date;
    table.columns = columns;
    table.headers = QStringList{tr("Food"), tr("Quantity"), tr("Serving")};
    const UnitRegistry &units = UnitRegistry::instance();
    for (const int type : columns)
        table.headers.append(units.getUnitForNutrient(type)->getName());
    if (userId < 0)
        return table;

    const QString day = DateConversion::fromQDate(date);
    DiaryDay &diary = table.diary;
    diary = DiaryDB().getDay(userId, day);
    diary.foods.removeIf([](const FoodDiaryItem &f) { return f.status == STATUS_DELETED; });
    diary.exercises.removeIf([](const ExerciseDiaryItem &e) { return e.status == STATUS_DELETED; });
    table.targets = UserDB::getTargets(userId, day);
    table.preferences = ProfilePreferences::load(userId);
    const int snackMode = table.preferences.snackMode;
    const qsizetype width = FirstNutrientColumn + columns.size();
    const auto blank = [width](const QString &name) {
        QStringList texts(width);
        texts[NameColumn] = name;
        return texts;
    };
    for (const QList<int> &meals : mealGroups(snackMode)) {
        const QString name = mealName(meals.constLast(), snackMode);
        Group group{{MealRow, meals.constLast(), blank(name), name}, meals, {}};
        for (const FoodDiaryItem &food : std::as_const(diary.foods)) {
            if (!meals.contains(food.meal))
                continue;
            QStringList texts = {food.food_name, quantityText(food.size), food.serv_name};
            for (const int type : columns)
                texts.append(units.getUnitForNutrient(type)->formatValue(food.getNutrient(type)));
            group.entries.append({FoodRow, food.food_id, texts, food.food_name});
        }
        for (qsizetype c = 0; c < columns.size() && !group.entries.isEmpty(); ++c) {
            float sum = 0;
            for (const FoodDiaryItem &food : std::as_const(diary.foods)) {
                if (meals.contains(food.meal) && food.getNutrient(columns[c]) > 0)
                    sum += food.getNutrient(columns[c]);
            }
            group.row.texts[FirstNutrientColumn + c] = units.getUnitForNutrient(columns[c])->formatValue(sum);
        }
        table.groups.append(group);
    }
    // Exercise: what each burned, and the day's total burned on the group's row.
    if (diary.exercises.isEmpty())
        return table;
    const QString name = mealName(EXERCISE, snackMode);
    Group group{{ExerciseGroupRow, -1, blank(name), name}, {EXERCISE}, {}};
    const qsizetype energyColumn = columns.indexOf(ENERGY);
    const UnitDescriptor &energy = *units.getUnit(UNIT_ENERGY);
    for (const ExerciseDiaryItem &e : std::as_const(diary.exercises)) {
        QStringList texts = blank(e.name);
        texts[QuantityColumn] = quantityText(e.duration);
        texts[ServingColumn] = tr("minutes");
        if (energyColumn >= 0)
            texts[FirstNutrientColumn + energyColumn] = energy.formatValue(e.energy());
        group.entries.append({ExerciseRow, e.ex_id, texts,
                              tr("%1: %2 burned").arg(e.name, energy.formatValueWithUnit(e.energy()))});
    }
    if (energyColumn >= 0)
        group.row.texts[FirstNutrientColumn + energyColumn] =
            energy.formatValue(diary.total(EXERCISE, ENERGY));
    table.groups.append(group);
    return table;
}

DayStanding DayTable::standing() const
{
    return dayStanding(diary, targets.values, columns);
}

std::optional<GreenTicks> DayTable::ticks() const
{
    if (targets.values[ENERGY] <= 0)
        return std::nullopt;
    float minutes = 0;
    for (const ExerciseDiaryItem &e : diary.exercises)
        minutes += e.duration;
    return computeGreenTicks({diary.total(ALL_MEALS, ENERGY), float(targets.values[ENERGY]), minutes,
                              float(preferences.exerciseTarget), preferences.budgetMode},
                             *UnitRegistry::instance().getUnit(UNIT_ENERGY));
}

QString DayTable::totalsText(bool bold) const
{
    const UnitDescriptor &energy = *UnitRegistry::instance().getUnit(UNIT_ENERGY);
    const QString net = energy.formatSignedWithUnit(diary.total(ALL_MEALS, ENERGY));
    QString text = tr("%1: %2").arg(QLocale().dayName(date.dayOfWeek()),
                                    bold ? QStringLiteral("<b>%1</b>").arg(net) : net);
    if (targets.values[ENERGY] > 0)
        text += tr(" of %1").arg(energy.formatValueWithUnit(targets.values[ENERGY]));
    return text;
}
