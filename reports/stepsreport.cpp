#include "reports/stepsreport.h"

#include "db/userdb.h"
#include "model/dateconversion.h"

StepsReport::StepsReport(int userId, const ReportRange &range)
    : _range(range)
    , _daily{QStringLiteral("steps"), QStringLiteral("Steps"), Quantity::Steps}
    , _weekly{QStringLiteral("weeklyAverage"), QStringLiteral("Weekly average"), Quantity::Steps}
{
    const QList<CheckIn> checkIns = UserDB::getCheckIns(userId); // newest first
    for (auto it = checkIns.crbegin(); it != checkIns.crend(); ++it) {
        const QDate date = DateConversion::toQDate(it->date);
        if (range.contains(date) && it->steps >= 0)
            _daily.points.append({date, it->steps});
    }
    // The daily counts are in date order, so a week's days are together.
    _weekly.summarised = false;
    QDate weekStart;
    double sum = 0.0;
    int days = 0;
    const auto close = [&] {
        if (days > 0)
            _weekly.points.append({std::max(weekStart, range.from()), sum / days});
    };
    for (const SeriesPoint &point : std::as_const(_daily.points)) {
        const QDate monday = point.date.addDays(1 - point.date.dayOfWeek());
        if (monday != weekStart) {
            close();
            weekStart = monday;
            sum = 0.0;
            days = 0;
        }
        sum += point.value;
        ++days;
    }
    close();
}

ReportDocument StepsReport::document() const
{
    ReportDocument document;
    document.report = QStringLiteral("steps");
    document.title = QStringLiteral("Steps");
    document.range = _range;
    document.series = {_daily, _weekly};
    return document;
}
