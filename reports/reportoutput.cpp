#include "reports/reportoutput.h"

#include "db/userdb.h"
#include "model/dbtypes.h"
#include "model/unitdescriptor.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace {

QString isoDate(const QDate &date)
{
    return date.toString(Qt::ISODate);
}

// A header cell: the title, and the unit when the cells are bare numbers.
QString columnTitle(const QString &title, const QString &unit, bool withUnits)
{
    return withUnits || unit.isEmpty() ? title : title + QStringLiteral(" (") + unit + QLatin1Char(')');
}

class TextLayout : public ReportLayout
{
public:
    void heading(const ReportDocument &document) override
    {
        _lines << document.title + QStringLiteral(", ") + isoDate(document.range.from()) +
                      QStringLiteral(" to ") + isoDate(document.range.to());
    }
    void table(const QString &, const QString &, const QStringList &header,
               const QList<QStringList> &rows) override
    {
        _lines << QString() << header.join(QLatin1Char('\t'));
        for (const QStringList &row : rows)
            _lines << row.join(QLatin1Char('\t'));
    }
    QString text() const { return _lines.join(QLatin1Char('\n')) + QLatin1Char('\n'); }

private:
    QStringList _lines;
};

class CsvLayout : public ReportLayout
{
public:
    bool withUnits() const override { return false; }
    void heading(const ReportDocument &) override {}
    void table(const QString &, const QString &, const QStringList &header,
               const QList<QStringList> &rows) override
    {
        // Sections are apart by one empty line, each with its own header.
        if (!_csv.isEmpty())
            _csv += "\n";
        line(header);
        for (const QStringList &row : rows)
            line(row);
    }
    QByteArray csv() const { return _csv; }

private:
    void line(const QStringList &cells)
    {
        QStringList quoted;
        for (QString cell : cells) {
            if (cell.contains(QLatin1Char(',')) || cell.contains(QLatin1Char('"')) ||
                cell.contains(QLatin1Char('\n')))
                cell = QLatin1Char('"') + cell.replace(QLatin1Char('"'), QStringLiteral("\"\"")) +
                       QLatin1Char('"');
            quoted << cell;
        }
        _csv += quoted.join(QLatin1Char(',')).toUtf8() + "\n";
    }
    QByteArray _csv;
};

QJsonValue rounded(double value)
{
    // Stored values are single precision at best: four decimals say all they hold.
    return std::round(value * 10000.0) / 10000.0;
}

} // namespace

ReportUnits::ReportUnits(int measurementUnits, int energyUnits)
    : _energy(makeEnergyUnit(energyUnits == 0 ? 1 : 0))
    , _weight(makeWeightUnit(measurementUnits == 1 ? 1 : 0))
    , _length(makeMeasurementUnit(measurementUnits == 1 ? 1 : 0))
{
}

ReportUnits ReportUnits::of(int userId)
{
    const UserSettings settings = UserDB::getSettings(userId);
    return ReportUnits(settings.measurement_units, settings.energy_units);
}

const UnitDescriptor *ReportUnits::descriptor(Quantity quantity, int nutrient) const
{
    switch (quantity) {
    case Quantity::Energy:
        return _energy.get();
    case Quantity::Weight:
        return _weight.get();
    case Quantity::Length:
        return _length.get();
    case Quantity::Nutrient:
        return nutrient == ENERGY ? _energy.get() : UnitRegistry::instance().getUnitForNutrient(nutrient);
    case Quantity::Steps:
        return UnitRegistry::instance().getUnit(UNIT_STEPS);
    case Quantity::Percent:
    case Quantity::Tick:
    case Quantity::Count:
        break;
    }
    return nullptr;
}

double ReportUnits::toDisplay(Quantity quantity, int nutrient, double stored) const
{
    const UnitDescriptor *unit = descriptor(quantity, nutrient);
    return unit ? unit->toDisplay(stored) : stored;
}

QString ReportUnits::format(Quantity quantity, int nutrient, double stored, bool withUnit) const
{
    if (const UnitDescriptor *unit = descriptor(quantity, nutrient))
        return withUnit ? unit->formatSignedWithUnit(stored) : unit->formatSigned(stored);
    switch (quantity) {
    case Quantity::Percent:
        return QString::asprintf(withUnit ? "%.1f %%" : "%.1f", stored);
    case Quantity::Tick:
        return stored >= 0.5 ? QStringLiteral("yes") : QStringLiteral("no");
    default:
        return QString::number(stored, 'f', stored == std::floor(stored) ? 0 : 1);
    }
}

QString ReportUnits::unitText(Quantity quantity, int nutrient) const
{
    if (quantity == Quantity::Percent)
        return QStringLiteral("%");
    if (quantity == Quantity::Steps)
        return QString();
    const UnitDescriptor *unit = descriptor(quantity, nutrient);
    return unit ? unit->getUnitText() : QString();
}

void layOutReport(const ReportDocument &document, const ReportUnits &units, ReportLayout &layout)
{
    const bool withUnits = layout.withUnits();
    layout.heading(document);
    layout.chart(document, units);

    if (!document.series.isEmpty()) {
        QStringList header{QStringLiteral("Date")};
        for (const ReportSeries &s : document.series)
            header << columnTitle(s.title, units.unitText(s.quantity, s.nutrient), withUnits);
        QList<QStringList> rows;
        // One walk along each series: both are in date order.
        QList<qsizetype> next(document.series.size(), 0);
        for (const QDate &date : document.dates()) {
            QStringList row{isoDate(date)};
            for (qsizetype i = 0; i < document.series.size(); ++i) {
                const ReportSeries &s = document.series[i];
                if (next[i] < s.points.size() && s.points[next[i]].date == date)
                    row << units.format(s.quantity, s.nutrient, s.points[next[i]++].value, withUnits);
                else
                    row << (withUnits ? QStringLiteral("-") : QString());
            }
            rows << row;
        }
        layout.table(QStringLiteral("days"), QStringLiteral("Days"), header, rows);

        QList<QStringList> summary;
        for (const ReportSeries &s : document.series) {
            if (!s.summarised)
                continue;
            const SeriesSummary figures = s.summary();
            QStringList row{columnTitle(s.title, units.unitText(s.quantity, s.nutrient), withUnits)};
            if (figures.days == 0) {
                row << QString() << QString() << QString();
            } else if (s.quantity == Quantity::Tick) {
                // Ticks average to the share of days that earned one.
                row << units.format(Quantity::Percent, -1, figures.average * 100.0, withUnits)
                    << units.format(s.quantity, -1, figures.minimum, withUnits)
                    << units.format(s.quantity, -1, figures.maximum, withUnits);
            } else {
                row << units.format(s.quantity, s.nutrient, figures.average, withUnits)
                    << units.format(s.quantity, s.nutrient, figures.minimum, withUnits)
                    << units.format(s.quantity, s.nutrient, figures.maximum, withUnits);
            }
            summary << (row << QString::number(figures.days));
        }
        layout.table(QStringLiteral("summary"), QStringLiteral("Summary"),
                     {QStringLiteral("Series"), QStringLiteral("Average"), QStringLiteral("Minimum"),
                      QStringLiteral("Maximum"), QStringLiteral("Days logged")},
                     summary);
    }

    if (!document.figures.isEmpty()) {
        QList<QStringList> rows;
        for (const ReportFigure &f : document.figures)
            rows << QStringList{columnTitle(f.title, units.unitText(f.quantity, f.nutrient), withUnits),
                                units.format(f.quantity, f.nutrient, f.value, withUnits)};
        layout.table(QStringLiteral("figures"), QStringLiteral("Figures"),
                     {QStringLiteral("Figure"), QStringLiteral("Value")}, rows);
    }

    for (const ReportGrid &grid : document.grids) {
        QStringList header{grid.rowTitle};
        for (const ReportGrid::Column &column : grid.columns)
            header << columnTitle(column.title, units.unitText(column.quantity, column.nutrient), withUnits);
        QList<QStringList> rows;
        for (const ReportGrid::Row &gridRow : grid.rows) {
            QStringList row{gridRow.label};
            for (qsizetype i = 0; i < grid.columns.size(); ++i) {
                const ReportGrid::Column &column = grid.columns[i];
                const std::optional<double> cell = i < gridRow.cells.size() ? gridRow.cells[i] : std::nullopt;
                row << (cell ? units.format(column.quantity, column.nutrient, *cell, withUnits)
                             : (withUnits ? QStringLiteral("-") : QString()));
            }
            rows << row;
        }
        layout.table(grid.key, grid.title, header, rows);
    }
}

QString reportText(const ReportDocument &document, const ReportUnits &units)
{
    TextLayout layout;
    layOutReport(document, units, layout);
    return layout.text();
}

QByteArray reportCsv(const ReportDocument &document, const ReportUnits &units)
{
    CsvLayout layout;
    layOutReport(document, units, layout);
    return layout.csv();
}

QByteArray reportJson(const ReportDocument &document)
{
    QJsonArray series;
    for (const ReportSeries &s : document.series) {
        QJsonArray points;
        for (const SeriesPoint &point : s.points)
            points.append(QJsonObject{{QStringLiteral("date"), isoDate(point.date)},
                                      {QStringLiteral("value"), rounded(point.value)}});
        QJsonObject object{{QStringLiteral("key"), s.key},
                           {QStringLiteral("title"), s.title},
                           {QStringLiteral("points"), points}};
        if (s.summarised) {
            const SeriesSummary summary = s.summary();
            object.insert(QStringLiteral("days"), summary.days);
            if (summary.days > 0) {
                object.insert(QStringLiteral("average"), rounded(summary.average));
                object.insert(QStringLiteral("minimum"), rounded(summary.minimum));
                object.insert(QStringLiteral("maximum"), rounded(summary.maximum));
            }
        }
        series.append(object);
    }
    QJsonObject figures;
    for (const ReportFigure &f : document.figures)
        figures.insert(f.key, rounded(f.value));
    QJsonArray grids;
    for (const ReportGrid &grid : document.grids) {
        QJsonArray rows;
        for (const ReportGrid::Row &row : grid.rows) {
            QJsonObject object{{QStringLiteral("label"), row.label}};
            for (qsizetype i = 0; i < grid.columns.size() && i < row.cells.size(); ++i)
                object.insert(grid.columns[i].key, row.cells[i] ? rounded(*row.cells[i]) : QJsonValue());
            rows.append(object);
        }
        grids.append(QJsonObject{{QStringLiteral("key"), grid.key}, {QStringLiteral("rows"), rows}});
    }
    QJsonObject root{{QStringLiteral("report"), document.report},
                     {QStringLiteral("from"), isoDate(document.range.from())},
                     {QStringLiteral("to"), isoDate(document.range.to())},
                     {QStringLiteral("series"), series}};
    if (!document.figures.isEmpty())
        root.insert(QStringLiteral("figures"), figures);
    if (!document.grids.isEmpty())
        root.insert(QStringLiteral("grids"), grids);
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}
