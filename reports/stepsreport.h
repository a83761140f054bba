#pragma once

// Steps per day over a range, and the average of each week (Monday to Sunday) over the days of it
// with a count, dated on the week's first day in the range.

#include "reports/reportdocument.h"

class StepsReport
{
public:
    StepsReport(int userId, const ReportRange &range);

    const ReportSeries &daily() const { return _daily; }
    const ReportSeries &weekly() const { return _weekly; }
    ReportDocument document() const;

private:
    ReportRange _range;
    ReportSeries _daily, _weekly;
};
