#include "reports/reportdocument.h"

#include "model/dbtypes.h"

#include <QSet>

#include <algorithm>

namespace {

const char *const kNutrientKeys[kNutrientCount] = {"calories", "carb",        "fat",    "protein", "fiber",
                                                   "satfat",   "cholesterol", "sodium", "sugar",   "calcium"};
const char *const kNutrientTitles[kNutrientCount] = {"Energy", "Carbohydrate",  "Fat",         "Protein",
                                                     "Fibre",  "Saturated fat", "Cholesterol", "Sodium",
                                                     "Sugar",  "Calcium"};

} // namespace

SeriesSummary ReportSeries::summary() const
{
    SeriesSummary summary;
    if (points.isEmpty())
        return summary;
    double sum = 0.0;
    summary.minimum = summary.maximum = points.constFirst().value;
    for (const SeriesPoint &point : points) {
        sum += point.value;
        summary.minimum = std::min(summary.minimum, point.value);
        summary.maximum = std::max(summary.maximum, point.value);
    }
    summary.days = int(points.size());
    summary.average = sum / summary.days;
    return summary;
}

std::optional<double> ReportSeries::valueOn(const QDate &date) const
{
    const auto it = std::lower_bound(points.cbegin(), points.cend(), date,
                                     [](const SeriesPoint &point, const QDate &d) { return point.date < d; });
    if (it == points.cend() || it->date != date)
        return std::nullopt;
    return it->value;
}

QList<QDate> ReportDocument::dates() const
{
    QSet<QDate> seen;
    for (const ReportSeries &s : series) {
        for (const SeriesPoint &point : s.points)
            seen.insert(point.date);
    }
    QList<QDate> sorted(seen.cbegin(), seen.cend());
    std::sort(sorted.begin(), sorted.end());
    return sorted;
}

QString nutrientKey(int type)
{
    return type >= 0 && type < kNutrientCount ? QLatin1String(kNutrientKeys[type]) : QString();
}

std::optional<int> nutrientFromKey(const QString &key)
{
    for (int type = 0; type < kNutrientCount; ++type) {
        if (key == QLatin1String(kNutrientKeys[type]))
            return type;
    }
    return std::nullopt;
}

QString nutrientTitle(int type)
{
    return type >= 0 && type < kNutrientCount ? QLatin1String(kNutrientTitles[type]) : QString();
}
