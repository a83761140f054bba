#pragma once

// Chest, waist, hip and thigh over a range, each on the days it was measured.

#include "reports/reportdocument.h"

#include <QList>

class MeasurementsReport
{
public:
    MeasurementsReport(int userId, const ReportRange &range);

    // chest, waist, hip, thigh: one series each, in centimetres.
    const QList<ReportSeries> &series() const { return _series; }
    ReportDocument document() const;

private:
    ReportRange _range;
    QList<ReportSeries> _series;
};
