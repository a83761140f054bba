#pragma once

// The check-ins page's weight chart: the weighings as points joined by a thin line, and their
// smoothed trend as the desktop draws it, as inline SVG (no script, no style attributes).

#include <QDate>
#include <QList>
#include <QString>

struct WeightPoint
{
    QDate date;
    double weight = 0.0; // kg
    double trend = 0.0;  // kg, after this weighing
};

// The desktop's trend through weighings in date order: it starts at the first weight, and each
// weighing moves it a tenth of the way from the previous trend to that day's weight.
inline constexpr double kTrendSmoothing = 0.1;
void smoothWeights(QList<WeightPoint> &weighings);

// The chart of the points from..to (the x axis spans the whole range); empty without a point.
QString weightChartSvg(const QList<WeightPoint> &points, const QDate &from, const QDate &to);
