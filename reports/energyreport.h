#pragma once

// Energy per day over a range: eaten, burned, net, the budget in force that day, and the day's
// food and exercise green ticks, judged exactly as the diary judges them. Days without an entry
// are left out. Reads the diary once for the range when made.

#include "reports/reportdocument.h"

#include <QList>

#include <optional>

class EnergyReport
{
public:
    struct Day
    {
        QDate date;
        double eaten = 0.0;   // calories
        double burned = 0.0;  // calories
        double minutes = 0.0; // of exercise
        double budget = -1;   // the energy target in force; -1 when none
        // Only judged under a budget, as in the diary.
        std::optional<bool> foodTick, exerciseTick;
        double net() const { return eaten - burned; }
    };

    EnergyReport(int userId, const ReportRange &range);

    const ReportRange &range() const { return _range; }
    const QList<Day> &days() const { return _days; }
    // The average net energy of the logged days; none without one.
    std::optional<double> averageNet() const;
    ReportDocument document() const;

private:
    ReportRange _range;
    QList<Day> _days;
};
