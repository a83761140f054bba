#pragma once

// A report's chart drawn with a painter, as vectors: the series that share the report's main
// quantity as lines over the dates (a gap breaks a line), its single figures of that quantity as
// dashed levels (the goal weight, the BMI band edges), axes in the profile's units. Printed
// pages and PDFs use it; the window shows the same series with Qt Charts.

#include "reports/reportdocument.h"

#include <QColor>
#include <QList>
#include <QRectF>

class QPainter;
class ReportUnits;

// The series a chart of the document shows, and the quantity of its axis.
QList<const ReportSeries *> chartedSeries(const ReportDocument &document);
// The levels drawn across a chart whose points run from low to high (display units): the goal
// always, a band's edge only near the points, so that a far edge does not flatten the line.
QList<const ReportFigure *> chartedLevels(const ReportDocument &document, const ReportUnits &units,
                                          double low, double high);
// Whether a line of this quantity breaks where a day has no point: a food log does; weighings,
// measurements and steps are joined across the days between them.
bool breaksAtGaps(Quantity quantity);
// Beside a chart, the table of every day is left out for runs longer than a month: the chart
// carries them.
bool tablesEveryDay(const ReportRange &range);
// Colours the window and the pages give the charted series, in order.
QColor seriesColour(qsizetype index);

void paintReportChart(QPainter &painter, const QRectF &area, const ReportDocument &document,
                      const ReportUnits &units);
