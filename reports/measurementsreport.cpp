#include "reports/measurementsreport.h"

#include "db/userdb.h"
#include "model/dateconversion.h"

MeasurementsReport::MeasurementsReport(int userId, const ReportRange &range)
    : _range(range)
{
    _series = {{QStringLiteral("chest"), QStringLiteral("Chest"), Quantity::Length},
               {QStringLiteral("waist"), QStringLiteral("Waist"), Quantity::Length},
               {QStringLiteral("hip"), QStringLiteral("Hip"), Quantity::Length},
               {QStringLiteral("thigh"), QStringLiteral("Thigh"), Quantity::Length}};
    const QList<CheckIn> checkIns = UserDB::getCheckIns(userId); // newest first
    for (auto it = checkIns.crbegin(); it != checkIns.crend(); ++it) {
        const QDate date = DateConversion::toQDate(it->date);
        if (!range.contains(date))
            continue;
        const double values[] = {it->chest, it->waist, it->hip, it->thigh};
        for (size_t i = 0; i < std::size(values); ++i) {
            if (values[i] > 0)
                _series[qsizetype(i)].points.append({date, values[i]});
        }
    }
}

ReportDocument MeasurementsReport::document() const
{
    ReportDocument document;
    document.report = QStringLiteral("measurements");
    document.title = QStringLiteral("Measurements");
    document.range = _range;
    document.series = _series;
    return document;
}
