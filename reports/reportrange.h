#pragma once

// The days a report covers, both ends included. A range ending on a day spans a week, a month,
// three months or a year back from it; "all" spans the diary from its first to its last record.

#include <QDate>
#include <QString>

class ReportRange
{
public:
    enum Kind { Week, Month, ThreeMonths, Year, All, Dates };

    // The span of kind ending on last (All and Dates give the single day last).
    static ReportRange ending(Kind kind, const QDate &last);
    // The days from first to last; invalid when first is after last.
    static ReportRange between(const QDate &first, const QDate &last);
    // The profile's whole diary: entries, water and check-ins; today alone when it is empty.
    static ReportRange all(int userId, const QDate &today);

    bool isValid() const { return _from.isValid() && _to.isValid() && _from <= _to; }
    Kind kind() const { return _kind; }
    QDate from() const { return _from; }
    QDate to() const { return _to; }
    QString fromDay() const; // "yyyyMMdd", as the stores take days
    QString toDay() const;
    int days() const { return int(_from.daysTo(_to)) + 1; }
    bool contains(const QDate &date) const { return date >= _from && date <= _to; }

private:
    ReportRange(Kind kind, const QDate &from, const QDate &to);
    Kind _kind = Dates;
    QDate _from, _to;
};
