#include "reports/energyreport.h"

#include "app/profilepreferences.h"
#include "db/diarydb.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/greenticks.h"
#include "model/unitdescriptor.h"
#include "reports/targetsinforce.h"

EnergyReport::EnergyReport(int userId, const ReportRange &range)
    : _range(range)
{
    const QMap<QString, DailyTotal> totals =
        DiaryDB().getDailyTotals(userId, range.fromDay(), range.toDay(), ALL_MEALS);
    TargetsInForce targets(userId, range);
    const ProfilePreferences preferences = ProfilePreferences::load(userId);
    // The tick texts are not kept; only the judgement is.
    const std::unique_ptr<UnitDescriptor> calories = makeEnergyUnit(0);
    _days.reserve(totals.size());
    for (auto it = totals.cbegin(); it != totals.cend(); ++it) {
        Day day;
        day.date = DateConversion::toQDate(it.key());
        day.eaten = it->nutrients[ENERGY];
        day.burned = it->burned;
        day.minutes = it->minutes;
        day.budget = targets.on(it.key())[ENERGY];
        if (day.budget > 0) {
            // The diary's figures are single precision.
            const GreenTicks ticks = computeGreenTicks(
                {float(day.eaten) - float(day.burned), float(day.budget), float(day.minutes),
                 float(preferences.exerciseTarget), preferences.budgetMode},
                *calories);
            day.foodTick = ticks.foodTick;
            day.exerciseTick = ticks.exerciseTick;
        }
        _days.append(day);
    }
}

std::optional<double> EnergyReport::averageNet() const
{
    if (_days.isEmpty())
        return std::nullopt;
    double sum = 0.0;
    for (const Day &day : _days)
        sum += day.net();
    return sum / double(_days.size());
}

ReportDocument EnergyReport::document() const
{
    ReportDocument document;
    document.report = QStringLiteral("energy");
    document.title = QStringLiteral("Energy");
    document.range = _range;
    ReportSeries eaten{QStringLiteral("eaten"), QStringLiteral("Eaten"), Quantity::Energy};
    ReportSeries burned{QStringLiteral("burned"), QStringLiteral("Burned"), Quantity::Energy};
    ReportSeries net{QStringLiteral("net"), QStringLiteral("Net"), Quantity::Energy};
    ReportSeries budget{QStringLiteral("budget"), QStringLiteral("Budget"), Quantity::Energy};
    ReportSeries foodTick{QStringLiteral("foodTick"), QStringLiteral("Food tick"), Quantity::Tick};
    ReportSeries exerciseTick{QStringLiteral("exerciseTick"), QStringLiteral("Exercise tick"),
                              Quantity::Tick};
    for (const Day &day : _days) {
        eaten.points.append({day.date, day.eaten});
        burned.points.append({day.date, day.burned});
        net.points.append({day.date, day.net()});
        if (day.budget > 0)
            budget.points.append({day.date, day.budget});
        if (day.foodTick) {
            foodTick.points.append({day.date, *day.foodTick ? 1.0 : 0.0});
            exerciseTick.points.append({day.date, *day.exerciseTick ? 1.0 : 0.0});
        }
    }
    document.series = {eaten, burned, net, budget, foodTick, exerciseTick};
    return document;
}
