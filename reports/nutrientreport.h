#pragma once

// One nutrient per day over a range against the target in force that day (targets change
// mid-range; each day takes its own row), and the share of the day's energy from carbohydrate,
// fat and protein (4, 9 and 4 calories a gram). Days without a food entry are left out; so is a
// share on a day whose three sums are all zero.

#include "reports/reportdocument.h"

#include <QList>

#include <array>
#include <optional>

class NutrientReport
{
public:
    struct Day
    {
        QDate date;
        double eaten = 0.0; // grams, milligrams or calories, as the nutrient is stored
        double target = -1; // in force that day; -1 when none
        std::optional<std::array<double, 3>> shares; // percent from carbohydrate, fat, protein
    };

    // nutrient: a NutrientType.
    NutrientReport(int userId, const ReportRange &range, int nutrient);

    int nutrient() const { return _nutrient; }
    const QList<Day> &days() const { return _days; }
    ReportDocument document() const;

private:
    ReportRange _range;
    int _nutrient;
    QList<Day> _days;
};
