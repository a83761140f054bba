#pragma once

// Weight over a range: the weighed check-ins, a smoothed trend, the goal weight, the BMI risk
// bands as weights at the profile's height, the weekly rate of change and a forecast.
//
// The trend is an exponentially smoothed average with factor 0.1, started at the first weight
// ever recorded (so it has settled by the range's first day): trend = trend + 0.1 x (weight -
// trend) on each weighed day; a day without a weighing keeps the trend. The forecast repeats the
// summary report's arithmetic with the range's average net energy against the energy requirement
// at the latest weight, starting from the trend on the range's last day.

#include "reports/reportdocument.h"

#include <QList>

#include <optional>

class WeightReport
{
public:
    static constexpr double kSmoothing = 0.1;

    struct Weighing
    {
        QDate date;
        double weight = 0.0; // kg
        double trend = 0.0;  // kg, after this weighing
    };
    // A risk band of the summary report, as weights: from (included) and to (excluded), kg; an
    // open end is none.
    struct BmiBand
    {
        QString name; // as the summary report words it: "Underweight", "low risk", ...
        std::optional<double> from, to;
    };
    struct Forecast
    {
        QDate from, to;
        double fromWeight = 0.0, toWeight = 0.0; // kg
        int months = 1;
    };

    WeightReport(int userId, const ReportRange &range);

    const QList<Weighing> &weighings() const { return _weighings; } // in the range
    std::optional<double> goalWeight() const { return _goal; }      // in force on the last day
    const QList<BmiBand> &bmiBands() const { return _bands; }       // empty without a height
    // kg a week, from the trend's first and last weighing in the range; none with fewer than two.
    std::optional<double> weeklyRate() const;
    const std::optional<Forecast> &forecast() const { return _forecast; }
    ReportDocument document() const;

    // The trend through weighings in date order (their trend is written).
    static void smooth(QList<Weighing> &weighings);
    static QList<BmiBand> bandsAt(double heightCm);

private:
    ReportRange _range;
    QList<Weighing> _weighings;
    std::optional<double> _goal;
    QList<BmiBand> _bands;
    std::optional<Forecast> _forecast;
};
