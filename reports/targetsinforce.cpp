#include "reports/targetsinforce.h"

#include <algorithm>

TargetsInForce::TargetsInForce(int userId, const ReportRange &range)
    : _rows(UserDB::getTargetHistory(userId, range.fromDay(), range.toDay()))
{
}

const std::array<double, 10> &TargetsInForce::on(const QString &day) const
{
    // The first row set after the day; the one before it is in force.
    const auto after = std::upper_bound(_rows.cbegin(), _rows.cend(), day,
                                        [](const QString &d, const Targets &row) { return d < row.date; });
    return after == _rows.cbegin() ? _none.values : std::prev(after)->values;
}
