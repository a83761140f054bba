#pragma once

// What every report hands to whoever shows it (the command-line tool's text, JSON and CSV, the
// desktop's charts and printed pages): dated series, single figures and labelled grids, all in
// storage units (calories, kilograms, centimetres, grams, milligrams) with the kind of quantity
// that says how to show them. A day with nothing recorded has no point: a gap, never a zero.

#include "reports/reportrange.h"

#include <QDate>
#include <QList>
#include <QString>

#include <optional>

// What a number measures, so that it can be shown in the profile's units.
enum class Quantity {
    Energy,   // calories
    Weight,   // kilograms
    Length,   // centimetres
    Nutrient, // grams or milligrams of ReportSeries::nutrient
    Steps,
    Percent, // 0 to 100
    Tick,    // 1 earned, 0 not
    Count,   // a plain whole number (entries, months)
};

struct SeriesPoint
{
    QDate date;
    double value = 0.0;
};

struct SeriesSummary
{
    double average = 0.0;
    double minimum = 0.0;
    double maximum = 0.0;
    int days = 0; // points that went into it; 0 leaves the others meaningless
};

struct ReportSeries
{
    ReportSeries() = default;
    ReportSeries(QString key, QString title, Quantity quantity, int nutrient = -1)
        : key(std::move(key))
        , title(std::move(title))
        , quantity(quantity)
        , nutrient(nutrient)
    {
    }

    QString key;   // stable name for JSON, CSV and code ("eaten", "trend")
    QString title; // for people ("Eaten", "Trend")
    Quantity quantity = Quantity::Energy;
    int nutrient = -1;         // the nutrient type of a Quantity::Nutrient series
    QList<SeriesPoint> points; // oldest first, one a day at most
    bool summarised = true;    // whether the table of figures has a row for it

    SeriesSummary summary() const;
    std::optional<double> valueOn(const QDate &date) const;
};

// A single figure beside the series (the goal weight, a rate, a band boundary).
struct ReportFigure
{
    ReportFigure() = default;
    ReportFigure(QString key, QString title, Quantity quantity, double value, int nutrient = -1)
        : key(std::move(key))
        , title(std::move(title))
        , quantity(quantity)
        , value(value)
        , nutrient(nutrient)
    {
    }

    QString key;
    QString title;
    Quantity quantity = Quantity::Weight;
    double value = 0.0;
    int nutrient = -1;
    bool level = false; // a level a chart draws across (a goal, a band's edge), not a change
};

// A table with labelled rows (meals, foods): each column one quantity, a missing cell is a gap.
struct ReportGrid
{
    struct Column
    {
        Column() = default;
        Column(QString key, QString title, Quantity quantity, int nutrient = -1)
            : key(std::move(key))
            , title(std::move(title))
            , quantity(quantity)
            , nutrient(nutrient)
        {
        }
        QString key;
        QString title;
        Quantity quantity = Quantity::Energy;
        int nutrient = -1;
    };
    struct Row
    {
        Row() = default;
        Row(QString label, QList<std::optional<double>> cells = {})
            : label(std::move(label))
            , cells(std::move(cells))
        {
        }
        QString label;
        QList<std::optional<double>> cells; // one per column
    };
    ReportGrid() = default;
    ReportGrid(QString key, QString title, QString rowTitle)
        : key(std::move(key))
        , title(std::move(title))
        , rowTitle(std::move(rowTitle))
    {
    }

    QString key;
    QString title;
    QString rowTitle; // heads the labels ("Meal", "Food")
    QList<Column> columns;
    QList<Row> rows;
};

struct ReportDocument
{
    QString report; // "energy", "nutrients", ...
    QString title;
    ReportRange range = ReportRange::between(QDate(), QDate());
    QList<ReportSeries> series;
    QList<ReportFigure> figures;
    QList<ReportGrid> grids;

    // The dates on which any series has a point, oldest first.
    QList<QDate> dates() const;
};

// Nutrient names as options and keys spell them ("calories", "carb", ..., "calcium"), by type.
QString nutrientKey(int type);
std::optional<int> nutrientFromKey(const QString &key);
QString nutrientTitle(int type); // "Energy", "Carbohydrate", ...
