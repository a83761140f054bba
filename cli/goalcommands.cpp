// Goals: the goal weight, the weekly rate and the targets worked out from them.

#include "cli/commands.h"
#include "cli/session.h"

#include "db/diaryedits.h"
#include "db/goals.h"
#include "db/lmsqldb.h"
#include "model/dateconversion.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace Cli {
namespace {

// "G" grams or "P%" a share of the energy target.
GoalChange::Amount parseAmount(const QString &text, const QString &what)
{
    if (text.endsWith(QLatin1Char('%')))
        return {parseNumber(text.chopped(1), what, 0, 100), true};
    return {parseNumber(text, what, 0, 2000), false};
}

void printGoals(const Context &context, int userId, const QString &day)
{
    const GoalsInForce goals = Goals::inForce(userId, day);
    const DisplayUnits units = DisplayUnits::of(userId);
    std::array<float, kNutrientCount> targets;
    for (int type = 0; type < kNutrientCount; ++type)
        targets[size_t(type)] = float(goals.targets.values[size_t(type)]);
    if (context.options.json) {
        QJsonObject document{{QStringLiteral("weeklyRate"), goals.weeklyRate},
                             {QStringLiteral("energyByHand"), goals.energyByHand},
                             {QStringLiteral("dietPlan"), goals.dietPlan},
                             {QStringLiteral("water"), goals.water},
                             {QStringLiteral("targets"), nutrientsJson(targets)}};
        document.insert(QStringLiteral("goalWeight"),
                        goals.weight ? QJsonValue(*goals.weight) : QJsonValue());
        if (!goals.targets.date.isEmpty())
            document.insert(QStringLiteral("targetsFrom"), DateConversion::toWebDate(goals.targets.date));
        printJson(QJsonDocument(document).toJson(QJsonDocument::Compact));
        return;
    }
    const UnitDescriptor &weight = units.weight();
    printLine(QStringLiteral("Goal weight\t") +
              (goals.weight ? weight.formatValueWithUnit(*goals.weight) : QStringLiteral("-")));
    printLine(QStringLiteral("Weekly rate\t") + (goals.weeklyRate == 0
                                                     ? QStringLiteral("keep")
                                                     : weight.formatSignedWithUnit(goals.weeklyRate)));
    if (goals.weight && goals.weeklyRate != 0) {
        if (const auto now = DiaryEdits::weightInForce(userId, day)) {
            const double weeks = (*goals.weight - *now) / goals.weeklyRate;
            if (weeks > 0)
                printLine(QStringLiteral("Reached\tabout %1")
                              .arg(DateConversion::toWebDate(DateConversion::fromQDate(
                                  DateConversion::toQDate(day).addDays(qint64(std::ceil(weeks * 7)))))));
        }
    }
    printLine(QStringLiteral("Energy\t") + units.energy().formatValueWithUnit(goals.targets.values[ENERGY]) +
              (goals.energyByHand ? QStringLiteral(" (set by hand)")
                                  : QStringLiteral(" (diet plan %1)").arg(goals.dietPlan)));
    printLine(QStringLiteral("Targets\t") + nutrientsText(targets));
    if (!goals.targets.date.isEmpty())
        printLine(QStringLiteral("In force from\t") + DateConversion::toWebDate(goals.targets.date));
    printLine(QStringLiteral("Water\t%1 glasses").arg(goals.water));
}

} // namespace

int goal(Context &context, const QStringList &args)
{
    const QString weightOption = QStringLiteral("--weight"), rateOption = QStringLiteral("--rate"),
                  caloriesOption = QStringLiteral("--calories"), fromOption = QStringLiteral("--from"),
                  waterOption = QStringLiteral("--water");
    const Arguments a(args, {weightOption, rateOption, caloriesOption, QStringLiteral("--carb"),
                             QStringLiteral("--fat"), QStringLiteral("--protein"), fromOption, waterOption});
    a.expectPositionals(0, 0,
                        QStringLiteral("goal [--weight W] [--rate R] [--calories N|auto] [--carb G|P%] "
                                       "[--fat G|P%] [--protein G|P%] [--water GLASSES] [--from DATE]"));
    const QString day = a.has(fromOption) ? dayArgument(a.value(fromOption), fromOption)
                                          : DateConversion::fromQDate(QDate::currentDate());
    const Session session(context);
    const int userId = session.userId();
    const DisplayUnits units = DisplayUnits::of(userId);

    GoalChange change;
    if (a.has(weightOption)) {
        const double shown =
            parseNumber(a.value(weightOption), weightOption, 0, units.weight().toDisplay(500));
        change.weight = units.weight().fromDisplayValue(shown);
    }
    if (a.has(rateOption)) {
        const double rate =
            units.weight().fromDisplayValue(parseNumber(a.value(rateOption), rateOption, -1000, 1000));
        if (std::abs(rate) > Goals::kFastestRate * 1.001)
            usageError(QStringLiteral("--rate: at most %1 a week either way")
                           .arg(units.weight().formatValueWithUnit(Goals::kFastestRate)));
        change.weeklyRate = rate;
    }
    if (a.has(caloriesOption)) {
        if (a.value(caloriesOption) == QLatin1String("auto"))
            change.caloriesFromPlan = true;
        else
            change.calories = units.energy().fromDisplayValue(
                parseNumber(a.value(caloriesOption), caloriesOption, 500, units.energy().toDisplay(10000)));
    }
    const std::pair<const char *, std::optional<GoalChange::Amount> *> amounts[] = {
        {"--carb", &change.carb}, {"--fat", &change.fat}, {"--protein", &change.protein}};
    for (const auto &[option, amount] : amounts) {
        if (a.has(QLatin1String(option)))
            *amount = parseAmount(a.value(QLatin1String(option)), QLatin1String(option));
    }
    if (a.has(waterOption))
        change.water = parseInteger(a.value(waterOption), waterOption, 1, 40);

    const bool changes = change.weight || change.weeklyRate || change.calories || change.caloriesFromPlan ||
                         change.carb || change.fat || change.protein || change.water;
    if (changes) {
        QString message;
        switch (Goals::apply(userId, day, change, &message)) {
        case Goals::Applied::Refused:
            usageError(message);
        case Goals::Applied::NotStored:
            failure(message);
        case Goals::Applied::Stored:
            break;
        }
    }
    printGoals(context, userId, day);
    return Success;
}

} // namespace Cli
