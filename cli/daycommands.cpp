// day: one day of the diary as the desktop shows it.

#include "cli/commands.h"
#include "cli/session.h"

#include "app/profilepreferences.h"
#include "brand/brandengine.h"
#include "db/diarydb.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/energy.h"
#include "model/greenticks.h"
#include "model/quantitytext.h"
#include "model/summaryreport.h"
#include "model/unitdescriptor.h"
#include "reports/csvexportdiary.h"
#include "reports/daysummary.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

#include <algorithm>
#include <cmath>

namespace Cli {
namespace {

std::array<float, kNutrientCount> sum(const QList<FoodDiaryItem> &foods)
{
    std::array<float, kNutrientCount> total{};
    for (const FoodDiaryItem &food : foods) {
        for (int type = 0; type < kNutrientCount; ++type) {
            const float value = food.getNutrient(type);
            if (value > 0)
                total[size_t(type)] += value;
        }
    }
    return total;
}

} // namespace

int day(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(0, 1, QStringLiteral("day [DATE]"));
    const QDate date =
        a.positionals().isEmpty() ? QDate::currentDate() : parseDate(a.positionals().constFirst());
    const QString dayString = DateConversion::fromQDate(date);

    const Session session(context);
    const int userId = session.userId();
    const ProfilePreferences preferences = ProfilePreferences::load(userId);
    applyDisplayUnits(userId);
    UnitRegistry &units = UnitRegistry::instance();

    // Deleted entries stay in the table until every device has them; they are not shown.
    DiaryDay diary = DiaryDB().getDay(userId, dayString);
    diary.foods.removeIf([](const FoodDiaryItem &f) { return f.status == STATUS_DELETED; });
    diary.exercises.removeIf([](const ExerciseDiaryItem &e) { return e.status == STATUS_DELETED; });

    const Targets targets = UserDB::getTargets(userId, dayString);
    const int water = UserDB::getWater(userId, dayString);
    const std::optional<CheckIn> checkIn = UserDB::getLatestCheckIn(userId, dayString);
    float minutes = 0;
    for (const ExerciseDiaryItem &exercise : diary.exercises)
        minutes += exercise.duration;
    const float net = diary.total(ALL_MEALS, ENERGY);
    const float burned = diary.total(EXERCISE, ENERGY);
    std::optional<GreenTicks> ticks;
    if (targets.values[ENERGY] > 0) {
        ticks = computeGreenTicks({net, float(targets.values[ENERGY]), minutes,
                                   float(preferences.exerciseTarget), preferences.budgetMode},
                                  *units.getUnit(UNIT_ENERGY));
    }
    std::array<float, kNutrientCount> targetValues;
    for (int type = 0; type < kNutrientCount; ++type)
        targetValues[size_t(type)] = float(targets.values[size_t(type)]);

    if (context.options.json) {
        QJsonObject document{{QStringLiteral("date"), date.toString(Qt::ISODate)}};
        QJsonArray meals;
        for (const QList<int> &group : mealGroups(preferences.snackMode)) {
            QList<FoodDiaryItem> foods;
            QJsonArray entries;
            for (const FoodDiaryItem &food : diary.foods) {
                if (!group.contains(food.meal))
                    continue;
                foods.append(food);
                entries.append(QJsonObject{{QStringLiteral("id"), food.food_id},
                                           {QStringLiteral("food"), food.ref_id},
                                           {QStringLiteral("name"), food.food_name},
                                           {QStringLiteral("quantity"), double(food.size)},
                                           {QStringLiteral("serving"), food.serv_name},
                                           {QStringLiteral("meal"), food.meal},
                                           {QStringLiteral("nutrients"), nutrientsJson(food.nutrients())}});
            }
            meals.append(
                QJsonObject{{QStringLiteral("name"), mealName(group.constLast(), preferences.snackMode)},
                            {QStringLiteral("entries"), entries},
                            {QStringLiteral("totals"), nutrientsJson(sum(foods))}});
        }
        QJsonArray exercises;
        for (const ExerciseDiaryItem &exercise : diary.exercises) {
            exercises.append(QJsonObject{{QStringLiteral("id"), exercise.ex_id},
                                         {QStringLiteral("name"), exercise.name},
                                         {QStringLiteral("minutes"), double(exercise.duration)},
                                         {QStringLiteral("calories"), double(exercise.energy())}});
        }
        document.insert(QStringLiteral("meals"), meals);
        document.insert(QStringLiteral("exercise"), exercises);
        document.insert(QStringLiteral("totals"), nutrientsJson(sum(diary.foods)));
        document.insert(QStringLiteral("burned"), double(burned));
        document.insert(QStringLiteral("net"), double(net));
        document.insert(QStringLiteral("targets"), nutrientsJson(targetValues));
        document.insert(QStringLiteral("water"), water);
        if (checkIn) {
            QJsonObject c{{QStringLiteral("date"), DateConversion::toWebDate(checkIn->date)}};
            const QPair<const char *, double> measures[] = {
                {"weight", checkIn->weight}, {"chest", checkIn->chest}, {"waist", checkIn->waist},
                {"hip", checkIn->hip},       {"thigh", checkIn->thigh}, {"steps", checkIn->steps}};
            for (const auto &[name, value] : measures) {
                if (value >= 0)
                    c.insert(QLatin1String(name), value);
            }
            if (!checkIn->note.isEmpty())
                c.insert(QStringLiteral("note"), checkIn->note);
            document.insert(QStringLiteral("checkin"), c);
        }
        if (ticks) {
            document.insert(QStringLiteral("greenTicks"),
                            QJsonObject{{QStringLiteral("food"), ticks->foodTick},
                                        {QStringLiteral("exercise"), ticks->exerciseTick},
                                        {QStringLiteral("text"), ticks->tooltip}});
        }
        printJson(QJsonDocument(document).toJson(QJsonDocument::Indented));
        return Success;
    }

    const UnitDescriptor &energy = *units.getUnit(UNIT_ENERGY);
    printLine(DateConversion::longDayName(date));
    for (const QList<int> &group : mealGroups(preferences.snackMode)) {
        QList<FoodDiaryItem> foods;
        for (const FoodDiaryItem &food : diary.foods) {
            if (group.contains(food.meal))
                foods.append(food);
        }
        if (foods.isEmpty())
            continue;
        printLine(mealName(group.constLast(), preferences.snackMode));
        for (const FoodDiaryItem &food : foods) {
            printLine(QStringLiteral("  %1\t%2\t%3 x %4\t")
                          .arg(food.food_id)
                          .arg(escapeField(food.food_name))
                          .arg(quantityText(food.size), escapeField(food.serv_name)) +
                      nutrientsText(food.nutrients()));
        }
        printLine(QStringLiteral("  Total\t") + nutrientsText(sum(foods)));
    }
    if (!diary.exercises.isEmpty()) {
        printLine(mealName(EXERCISE, preferences.snackMode));
        for (const ExerciseDiaryItem &exercise : diary.exercises) {
            printLine(QStringLiteral("  %1\t%2\t%3 min\t%4")
                          .arg(exercise.ex_id)
                          .arg(escapeField(exercise.name), quantityText(exercise.duration),
                               energy.formatSignedWithUnit(exercise.energy())));
        }
    }
    printLine(QStringLiteral("Day total\t") + nutrientsText(sum(diary.foods)));
    printLine(QStringLiteral("Burned\t") + energy.formatValueWithUnit(burned));
    printLine(QStringLiteral("Net\t") + energy.formatSignedWithUnit(net));
    printLine(QStringLiteral("Targets\t") + nutrientsText(targetValues));
    printLine(QStringLiteral("Water\t%1 glasses").arg(water));
    if (checkIn) {
        QStringList parts = {DateConversion::toWebDate(checkIn->date)};
        const UnitDescriptor &weight = *units.getUnit(UNIT_WEIGHT);
        const UnitDescriptor &length = *units.getUnit(UNIT_MEASUREMENT);
        if (checkIn->weight >= 0)
            parts.append(QStringLiteral("weight ") + weight.formatValueWithUnit(checkIn->weight));
        const QPair<const char *, double> lengths[] = {{"chest", checkIn->chest},
                                                       {"waist", checkIn->waist},
                                                       {"hip", checkIn->hip},
                                                       {"thigh", checkIn->thigh}};
        for (const auto &[name, value] : lengths) {
            if (value >= 0)
                parts.append(QLatin1String(name) + QLatin1Char(' ') + length.formatValueWithUnit(value));
        }
        if (checkIn->steps >= 0)
            parts.append(units.getUnit(UNIT_STEPS)->formatValueLong(checkIn->steps));
        if (!checkIn->note.isEmpty())
            parts.append(QStringLiteral("note: ") + escapeField(checkIn->note));
        printLine(QStringLiteral("Check-in\t") + parts.join(QStringLiteral(", ")));
    }
    if (ticks)
        printLine(QStringLiteral("Green ticks\t") + escapeField(ticks->tooltip));
    return Success;
}

} // namespace Cli

namespace Cli {

int exportCommand(Context &context, const QStringList &args)
{
    const Arguments a(args,
                      {QStringLiteral("--file"), QStringLiteral("--folder"), QStringLiteral("--from"),
                       QStringLiteral("--to")},
                      {QStringLiteral("--skip-empty")});
    a.expectPositionals(
        0, 0,
        QStringLiteral("export (--file F | --folder DIR | both) [--from DATE --to DATE] [--skip-empty]"));
    const QString file = a.value(QStringLiteral("--file"));
    const QString folder = a.value(QStringLiteral("--folder"));
    if (file.isEmpty() && folder.isEmpty())
        usageError(QStringLiteral("export needs --file, --folder or both"));
    if (a.has(QStringLiteral("--from")) != a.has(QStringLiteral("--to")))
        usageError(QStringLiteral("give both --from and --to, or neither for the whole diary"));
    if (!folder.isEmpty() && !QFileInfo(folder).isDir())
        usageError(QStringLiteral("--folder: %1 is not a folder").arg(folder));

    QDate first;
    QDate last;
    if (a.has(QStringLiteral("--from"))) {
        first = parseDate(a.value(QStringLiteral("--from")), QStringLiteral("--from"));
        last = parseDate(a.value(QStringLiteral("--to")), QStringLiteral("--to"));
        if (first > last)
            usageError(QStringLiteral("--from is after --to"));
    }

    const Session session(context);
    const int userId = session.userId();
    if (!first.isValid()) {
        // The whole diary: from the first to the last day that holds an item.
        const QSet<QString> days = DiaryDB().getAllDatesWithEntries(userId, false);
        if (days.isEmpty())
            failure(QStringLiteral("There is nothing in the diary to export!"));
        const auto [low, high] = std::minmax_element(days.cbegin(), days.cend());
        first = DateConversion::toQDate(*low);
        last = DateConversion::toQDate(*high);
    }
    const QString error =
        exportDiary(userId, file, folder, first, last, a.has(QStringLiteral("--skip-empty")));
    if (!error.isEmpty())
        failure(error);
    return Success;
}

} // namespace Cli

namespace Cli {

int summary(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(0, 1, QStringLiteral("summary [DATE]"));
    const QDate date =
        a.positionals().isEmpty() ? QDate::currentDate() : parseDate(a.positionals().constFirst());
    const QString dayString = DateConversion::fromQDate(date);

    const Session session(context);
    const int userId = session.userId();
    applyDisplayUnits(userId);
    const QString html = daySummaryReport(userId, date);
    if (context.options.json)
        printJson(QJsonDocument(QJsonObject{{QStringLiteral("date"), date.toString(Qt::ISODate)},
                                            {QStringLiteral("html"), html}})
                      .toJson(QJsonDocument::Indented));
    else
        printLine(html);
    return Success;
}

} // namespace Cli
