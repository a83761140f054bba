#include "reports/reportrange.h"

#include "db/diarydb.h"
#include "db/userdb.h"
#include "model/dateconversion.h"

#include <algorithm>

ReportRange::ReportRange(Kind kind, const QDate &from, const QDate &to)
    : _kind(kind)
    , _from(from)
    , _to(to)
{
}

ReportRange ReportRange::ending(Kind kind, const QDate &last)
{
    switch (kind) {
    case Week:
        return {kind, last.addDays(-6), last};
    case Month:
        return {kind, last.addMonths(-1).addDays(1), last};
    case ThreeMonths:
        return {kind, last.addMonths(-3).addDays(1), last};
    case Year:
        return {kind, last.addYears(-1).addDays(1), last};
    case All:
    case Dates:
        break;
    }
    return {kind, last, last};
}

ReportRange ReportRange::between(const QDate &first, const QDate &last)
{
    return {Dates, first, last};
}

ReportRange ReportRange::all(int userId, const QDate &today)
{
    QSet<QString> days = DiaryDB().getAllDatesWithEntries(userId, false);
    for (const CheckIn &checkIn : UserDB::getCheckIns(userId))
        days.insert(checkIn.date);
    if (days.isEmpty())
        return {All, today, today};
    const auto [first, last] = std::minmax_element(days.cbegin(), days.cend());
    return {All, DateConversion::toQDate(*first), DateConversion::toQDate(*last)};
}

QString ReportRange::fromDay() const
{
    return DateConversion::fromQDate(_from);
}

QString ReportRange::toDay() const
{
    return DateConversion::fromQDate(_to);
}
