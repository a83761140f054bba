#pragma once

// The targets in force on each day of a range, read once: a day takes the latest row set on or
// before it, as UserDB::getTargets() does for one day.

#include "db/userdb.h"
#include "reports/reportrange.h"

#include <array>

class TargetsInForce
{
public:
    TargetsInForce(int userId, const ReportRange &range);
    // By nutrient type, for a day of the range; -1 where none is set.
    const std::array<double, 10> &on(const QString &day) const;

private:
    QList<Targets> _rows; // oldest first
    Targets _none;
};
