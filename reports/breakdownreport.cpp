#include "reports/breakdownreport.h"

#include "app/profilepreferences.h"
#include "common/lmassert.h"
#include "db/diarydb.h"

#include <algorithm>

BreakdownReport::BreakdownReport(int userId, const ReportRange &range, int nutrient, int topFoods)
    : _range(range)
    , _nutrient(nutrient)
{
    const bool knownNutrient = nutrient >= 0 && nutrient < kNutrientCount;
    LM_ASSERT(knownNutrient);
    const DiaryDB diary;
    const QMap<int, DailyTotal> byMeal = diary.getMealTotals(userId, range.fromDay(), range.toDay());
    const int snackMode = ProfilePreferences::load(userId).snackMode;
    for (const QList<int> &group : mealGroups(snackMode)) {
        Meal meal;
        meal.name = mealName(group.constLast(), snackMode);
        for (const int code : group) {
            const auto it = byMeal.constFind(code);
            if (it == byMeal.cend())
                continue;
            meal.entries += it->foodEntries;
            for (size_t type = 0; type < meal.nutrients.size(); ++type)
                meal.nutrients[type] += it->nutrients[type];
        }
        if (meal.entries > 0)
            _meals.append(meal);
    }
    _burned = byMeal.value(EXERCISE).burned;

    const QList<FoodTotal> foods = diary.getFoodTotals(userId, range.fromDay(), range.toDay());
    double total = 0.0;
    for (const FoodTotal &food : foods) {
        const double amount = food.nutrients[size_t(nutrient)];
        total += amount;
        if (amount > 0)
            _foods.append(Food{food.name, food.entries, amount, 0.0});
    }
    std::sort(_foods.begin(), _foods.end(), [](const Food &a, const Food &b) {
        return a.amount != b.amount ? a.amount > b.amount : a.name < b.name;
    });
    if (_foods.size() > topFoods)
        _foods.resize(topFoods);
    for (Food &food : _foods)
        food.share = food.amount * 100.0 / total;
}

ReportDocument BreakdownReport::document() const
{
    ReportDocument document;
    document.report = QStringLiteral("breakdown");
    document.title = QStringLiteral("Breakdown");
    document.range = _range;

    ReportGrid meals{QStringLiteral("meals"), QStringLiteral("By meal"), QStringLiteral("Meal")};
    for (int type = 0; type < kNutrientCount; ++type)
        meals.columns.append({nutrientKey(type), nutrientTitle(type), Quantity::Nutrient, type});
    double energy = 0.0;
    for (const Meal &meal : _meals)
        energy += meal.nutrients[ENERGY];
    meals.columns.append(
        {QStringLiteral("energyShare"), QStringLiteral("Share of energy"), Quantity::Percent});
    for (const Meal &meal : _meals) {
        ReportGrid::Row row{meal.name};
        for (const double value : meal.nutrients)
            row.cells.append(value);
        row.cells.append(energy > 0 ? std::optional<double>(meal.nutrients[ENERGY] * 100.0 / energy)
                                    : std::nullopt);
        meals.rows.append(row);
    }
    if (_burned > 0) {
        ReportGrid::Row row{QStringLiteral("Exercise")};
        row.cells = QList<std::optional<double>>(meals.columns.size());
        row.cells[ENERGY] = -_burned; // burned energy counts against the day, as the diary shows it
        meals.rows.append(row);
    }

    ReportGrid foods{QStringLiteral("foods"),
                     QStringLiteral("Top foods by ") + nutrientTitle(_nutrient).toLower(),
                     QStringLiteral("Food")};
    foods.columns = {{nutrientKey(_nutrient), nutrientTitle(_nutrient), Quantity::Nutrient, _nutrient},
                     {QStringLiteral("share"), QStringLiteral("Share"), Quantity::Percent},
                     {QStringLiteral("entries"), QStringLiteral("Entries"), Quantity::Count}};
    for (const Food &food : _foods)
        foods.rows.append({food.name, {food.amount, food.share, double(food.entries)}});
    document.grids = {meals, foods};
    return document;
}
