#pragma once

// Where the energy and the nutrients of a day or a range came from: the sums by meal (grouped as
// the profile's snack mode shows meals) with exercise apart, and the foods that gave the most of
// one nutrient over the range.

#include "reports/reportdocument.h"

#include <QList>

#include <array>

class BreakdownReport
{
public:
    struct Meal
    {
        QString name;
        int entries = 0;
        std::array<double, 10> nutrients{}; // by nutrient type, summed over the range
    };
    struct Food
    {
        QString name;
        int entries = 0;
        double amount = 0.0; // of the ranked nutrient
        double share = 0.0;  // percent of the range's total of it
    };

    static constexpr int kTopFoods = 10;

    // nutrient: the NutrientType foods are ranked by.
    BreakdownReport(int userId, const ReportRange &range, int nutrient = 0, int topFoods = kTopFoods);

    const QList<Meal> &meals() const { return _meals; }    // meals with an entry, in the diary's order
    double burned() const { return _burned; }              // calories of exercise over the range
    const QList<Food> &topFoods() const { return _foods; } // the most first; ties by name
    ReportDocument document() const;

private:
    ReportRange _range;
    int _nutrient;
    QList<Meal> _meals;
    double _burned = 0.0;
    QList<Food> _foods;
};
