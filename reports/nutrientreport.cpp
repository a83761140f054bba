#include "reports/nutrientreport.h"

#include "common/lmassert.h"
#include "db/diarydb.h"
#include "db/goals.h"
#include "model/dateconversion.h"
#include "reports/targetsinforce.h"

NutrientReport::NutrientReport(int userId, const ReportRange &range, int nutrient)
    : _range(range)
    , _nutrient(nutrient)
{
    const bool knownNutrient = nutrient >= 0 && nutrient < kNutrientCount;
    LM_ASSERT(knownNutrient);
    const QMap<QString, DailyTotal> totals =
        DiaryDB().getDailyTotals(userId, range.fromDay(), range.toDay(), ALL_MEALS);
    const TargetsInForce targets(userId, range);
    for (auto it = totals.cbegin(); it != totals.cend(); ++it) {
        if (it->foodEntries == 0)
            continue;
        Day day;
        day.date = DateConversion::toQDate(it.key());
        day.eaten = it->nutrients[size_t(nutrient)];
        day.target = targets.on(it.key())[size_t(nutrient)];
        const int sources[3] = {CARB, FAT, PROTEIN};
        std::array<double, 3> calories{};
        double sum = 0.0;
        for (size_t i = 0; i < 3; ++i) {
            calories[i] = it->nutrients[size_t(sources[i])] * Goals::caloriesPerGram(sources[i]);
            sum += calories[i];
        }
        if (sum > 0) {
            for (double &share : calories)
                share = share * 100.0 / sum;
            day.shares = calories;
        }
        _days.append(day);
    }
}

ReportDocument NutrientReport::document() const
{
    ReportDocument document;
    document.report = QStringLiteral("nutrients");
    document.title = nutrientTitle(_nutrient);
    document.range = _range;
    ReportSeries eaten{nutrientKey(_nutrient), nutrientTitle(_nutrient), Quantity::Nutrient, _nutrient};
    ReportSeries target{QStringLiteral("target"), QStringLiteral("Target"), Quantity::Nutrient, _nutrient};
    ReportSeries shares[3] = {
        {QStringLiteral("carbShare"), QStringLiteral("Energy from carbohydrate"), Quantity::Percent},
        {QStringLiteral("fatShare"), QStringLiteral("Energy from fat"), Quantity::Percent},
        {QStringLiteral("proteinShare"), QStringLiteral("Energy from protein"), Quantity::Percent}};
    for (const Day &day : _days) {
        eaten.points.append({day.date, day.eaten});
        if (day.target > 0)
            target.points.append({day.date, day.target});
        for (size_t i = 0; i < 3 && day.shares; ++i)
            shares[i].points.append({day.date, (*day.shares)[i]});
    }
    document.series = {eaten, target, shares[0], shares[1], shares[2]};
    return document;
}
