#pragma once

// Showing a report: its numbers in the profile's units, and one order of parts (heading, chart,
// the days, the table of figures, the single figures, the grids) that every form follows. Text
// and CSV are ReportLayouts here; printed pages are another ReportLayout drawn by the desktop
// over its own paint device. JSON keeps storage units, as the tool's JSON does everywhere.

#include "reports/reportdocument.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <memory>

class UnitDescriptor;

class ReportUnits
{
public:
    // Preferences as stored: measurement 0 metric, 1 imperial; energy 1 calories, 0 kilojoules.
    ReportUnits(int measurementUnits, int energyUnits);
    static ReportUnits of(int userId);

    double toDisplay(Quantity quantity, int nutrient, double stored) const;
    // The value as shown, with its sign (net energy and rates go below zero) and, when asked, its
    // unit.
    QString format(Quantity quantity, int nutrient, double stored, bool withUnit) const;
    QString unitText(Quantity quantity, int nutrient) const; // empty for plain numbers and ticks

private:
    const UnitDescriptor *descriptor(Quantity quantity, int nutrient) const;
    std::shared_ptr<UnitDescriptor> _energy, _weight, _length;
};

// The parts of a report as they are laid out, in order. Cells come formatted: with their units
// when withUnits() says so, else as bare numbers in display units with the unit in the header.
class ReportLayout
{
public:
    virtual ~ReportLayout() = default;
    virtual bool withUnits() const { return true; }
    virtual void heading(const ReportDocument &document) = 0;
    // Before the tables; a printed report draws its chart of the series here.
    virtual void chart(const ReportDocument &document, const ReportUnits &units)
    {
        Q_UNUSED(document);
        Q_UNUSED(units);
    }
    virtual void table(const QString &key, const QString &title, const QStringList &header,
                       const QList<QStringList> &rows) = 0;
};

// Tables, by key: "days" (a row a date with a point, "-" for a gap), "summary" (a row per
// summarised series: average, minimum, maximum, days logged), "figures", then each grid.
void layOutReport(const ReportDocument &document, const ReportUnits &units, ReportLayout &layout);

QString reportText(const ReportDocument &document, const ReportUnits &units);
QByteArray reportCsv(const ReportDocument &document, const ReportUnits &units);
QByteArray reportJson(const ReportDocument &document);
