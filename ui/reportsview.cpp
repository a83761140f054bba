#include "ui/reportsview.h"

#include "db/userdb.h"
#include "model/dbtypes.h"
#include "reports/daysummary.h"
#include "reports/reportbuild.h"
#include "reports/reportchart.h"
#include "reports/reportoutput.h"

#include <QBarCategoryAxis>
#include <QBarSeries>
#include <QBarSet>
#include <QChart>
#include <QChartView>
#include <QComboBox>
#include <QDateEdit>
#include <QDateTimeAxis>
#include <QHBoxLayout>
#include <QLabel>
#include <QLegend>
#include <QLegendMarker>
#include <QLineSeries>
#include <QListWidget>
#include <QSplitter>
#include <QStackedWidget>
#include <QTextBrowser>
#include <QVBoxLayout>
#include <QValueAxis>

#include <cmath>

namespace {

// Nice numbers for the axis, written with a decimal only where its steps need one: "1800",
// not "1800.0"; "62.5" stays.
void niceValueAxis(QValueAxis *axis)
{
    axis->applyNiceNumbers();
    const double step = (axis->max() - axis->min()) / std::max(1, axis->tickCount() - 1);
    const bool whole =
        std::abs(step - std::round(step)) < 1e-9 && std::abs(axis->min() - std::round(axis->min())) < 1e-9;
    axis->setLabelFormat(whole ? QStringLiteral("%.0f") : QStringLiteral("%.1f"));
}

// The tables of a report as HTML, in the order every form of it follows.
class HtmlLayout : public ReportLayout
{
public:
    explicit HtmlLayout(const ReportRange &range)
        : _everyDay(tablesEveryDay(range))
    {
    }
    QString html;

    void heading(const ReportDocument &) override {}
    void table(const QString &key, const QString &title, const QStringList &header,
               const QList<QStringList> &rows) override
    {
        if (rows.isEmpty() || (key == QLatin1String("days") && !_everyDay))
            return;
        html += QStringLiteral("<h3>%1</h3><table cellspacing=0 cellpadding=3 border=0 width=100%><tr>")
                    .arg(title.toHtmlEscaped());
        for (qsizetype c = 0; c < header.size(); ++c)
            html += QStringLiteral("<th align=%1>%2</th>")
                        .arg(c ? QStringLiteral("right") : QStringLiteral("left"), header[c].toHtmlEscaped());
        html += QStringLiteral("</tr>");
        bool shade = false;
        for (const QStringList &row : rows) {
            html += shade ? QStringLiteral("<tr bgcolor=#eef3ee>") : QStringLiteral("<tr>");
            for (qsizetype c = 0; c < row.size(); ++c)
                html +=
                    QStringLiteral("<td align=%1>%2</td>")
                        .arg(c ? QStringLiteral("right") : QStringLiteral("left"), row[c].toHtmlEscaped());
            html += QStringLiteral("</tr>");
            shade = !shade;
        }
        html += QStringLiteral("</table>");
    }

private:
    bool _everyDay;
};

QDateTime at(const QDate &date)
{
    return date.startOfDay();
}

// The series over the dates: a line each, the levels dashed across.
QChart *lineChart(const ReportDocument &document, const ReportUnits &units)
{
    auto *chart = new QChart;
    chart->setTitle(document.title);
    chart->legend()->setAlignment(Qt::AlignBottom);
    const QList<const ReportSeries *> charted = chartedSeries(document);
    auto *dates = new QDateTimeAxis;
    dates->setFormat(QLocale().dateFormat(QLocale::ShortFormat));
    auto *values = new QValueAxis;
    chart->addAxis(dates, Qt::AlignBottom);
    chart->addAxis(values, Qt::AlignLeft);
    QDate last = document.range.to();
    double low = INFINITY;
    double high = -INFINITY;
    const auto add = [&](QLineSeries *line, const QColor &colour, bool inLegend) {
        line->setColor(colour);
        chart->addSeries(line);
        line->attachAxis(dates);
        line->attachAxis(values);
        if (!inLegend)
            chart->legend()->markers(line).constFirst()->setVisible(false);
    };
    if (!charted.isEmpty()) {
        const Quantity quantity = charted.first()->quantity;
        const int nutrient = charted.first()->nutrient;
        const bool daily = breaksAtGaps(quantity);
        values->setTitleText(units.unitText(quantity, nutrient));
        for (qsizetype i = 0; i < charted.size(); ++i) {
            // One piece a run of days where the quantity breaks at gaps.
            QLineSeries *piece = nullptr;
            QDate previous;
            for (const SeriesPoint &p : charted[i]->points) {
                const double v = units.toDisplay(quantity, nutrient, p.value);
                low = std::min(low, v);
                high = std::max(high, v);
                last = std::max(last, p.date);
                if (!piece || (daily && previous.daysTo(p.date) != 1)) {
                    if (piece)
                        add(piece, seriesColour(i), !piece->name().isEmpty());
                    piece = new QLineSeries;
                    // A day logged alone shows as its point.
                    piece->setPointsVisible(charted[i]->points.size() <= 120);
                    piece->setMarkerSize(6);
                    if (!previous.isValid())
                        piece->setName(charted[i]->title);
                }
                piece->append(double(at(p.date).toMSecsSinceEpoch()), v);
                previous = p.date;
            }
            if (piece)
                add(piece, seriesColour(i), !piece->name().isEmpty());
        }
        for (const ReportFigure *f : chartedLevels(document, units, low, high)) {
            const double v = units.toDisplay(quantity, nutrient, f->value);
            low = std::min(low, v);
            high = std::max(high, v);
            auto *level = new QLineSeries;
            level->setName(f->title);
            level->append(double(at(document.range.from()).toMSecsSinceEpoch()), v);
            level->append(double(at(last).toMSecsSinceEpoch()), v);
            QPen pen(QColor(0x99, 0x99, 0x99));
            pen.setStyle(Qt::DashLine);
            level->setPen(pen);
            chart->addSeries(level);
            level->attachAxis(dates);
            level->attachAxis(values);
        }
    }
    // Half a day past each end, so that a point on the first or the last day is drawn whole.
    dates->setRange(at(document.range.from()).addSecs(-12 * 3600), at(last).addSecs(12 * 3600));
    if (std::isfinite(low)) {
        // A little room above and below, so that a point at the top or the bottom is drawn whole
        // and not on the axis; a quantity that cannot go below zero is not shown below it.
        const double margin = (high > low ? high - low : 1) * 0.04;
        values->setRange(low >= 0 ? std::max(0.0, low - margin) : low - margin,
                         std::max(high, low + 1) + margin);
        niceValueAxis(values);
    }
    return chart;
}

// The breakdown: the chosen nutrient by meal, as bars.
QChart *mealChart(const ReportDocument &document, const ReportUnits &units, int nutrient)
{
    auto *chart = new QChart;
    chart->setTitle(document.title);
    chart->legend()->hide();
    const ReportGrid &grid = document.grids.first();
    qsizetype column = -1;
    for (qsizetype c = 0; c < grid.columns.size(); ++c) {
        if (grid.columns[c].nutrient == nutrient)
            column = c;
    }
    if (column < 0)
        return chart;
    const ReportGrid::Column &chosen = grid.columns[column];
    auto *bars = new QBarSet(chosen.title);
    bars->setColor(seriesColour(0));
    QStringList meals;
    for (const ReportGrid::Row &row : grid.rows) {
        meals << row.label;
        *bars << units.toDisplay(chosen.quantity, chosen.nutrient, row.cells.value(column).value_or(0.0));
    }
    auto *series = new QBarSeries;
    series->append(bars);
    chart->addSeries(series);
    auto *names = new QBarCategoryAxis;
    names->append(meals);
    chart->addAxis(names, Qt::AlignBottom);
    series->attachAxis(names);
    auto *values = new QValueAxis;
    values->setTitleText(units.unitText(chosen.quantity, chosen.nutrient));
    chart->addAxis(values, Qt::AlignLeft);
    series->attachAxis(values);
    niceValueAxis(values);
    return chart;
}

} // namespace

ReportsView::ReportsView(QWidget *parent)
    : QWidget(parent)
    , _reports(new QListWidget(this))
    , _range(new QComboBox(this))
    , _nutrient(new QComboBox(this))
    , _from(new QDateEdit(this))
    , _to(new QDateEdit(this))
    , _pages(new QStackedWidget(this))
    , _summary(new QTextBrowser(this))
    , _chart(new QChartView(this))
    , _tables(new QTextBrowser(this))
{
    _reports->setObjectName(QStringLiteral("reportList"));
    _reports->addItems({tr("Day summary"), tr("Energy"), tr("Nutrients"), tr("Weight"), tr("Measurements"),
                        tr("Steps"), tr("Breakdown")});
    _reports->setMaximumWidth(_reports->sizeHintForColumn(0) + 24);
    _range->setObjectName(QStringLiteral("range"));
    _range->addItem(tr("Day"), ReportRange::Dates);
    _range->addItem(tr("Week"), ReportRange::Week);
    _range->addItem(tr("Month"), ReportRange::Month);
    _range->addItem(tr("Three months"), ReportRange::ThreeMonths);
    _range->addItem(tr("Year"), ReportRange::Year);
    _range->addItem(tr("All"), ReportRange::All);
    _range->addItem(tr("Between dates"), kBetweenDates);
    for (QDateEdit *edit : {_from, _to}) {
        edit->setCalendarPopup(true);
        edit->setVisible(false);
        edit->setDate(QDate::currentDate());
    }
    _from->setObjectName(QStringLiteral("fromDate"));
    _to->setObjectName(QStringLiteral("toDate"));
    // The last day never before the first.
    connect(_from, &QDateEdit::dateChanged, _to, &QDateEdit::setMinimumDate);
    _range->setCurrentIndex(2);
    _nutrient->setObjectName(QStringLiteral("nutrient"));
    for (int type = 0; type < kNutrientCount; ++type)
        _nutrient->addItem(nutrientTitle(type), type);
    _summary->setObjectName(QStringLiteral("report"));
    // The summary's measurements table has no padding of its own: room between a label and its value.
    _summary->document()->setDefaultStyleSheet(QStringLiteral("td { padding-right: 6px; }"));
    _chart->setObjectName(QStringLiteral("chart"));
    _chart->setRenderHint(QPainter::Antialiasing);
    _chart->setMinimumHeight(220);
    _tables->setObjectName(QStringLiteral("reportTables"));

    auto *bar = new QHBoxLayout;
    bar->addWidget(new QLabel(tr("Days:"), this));
    bar->addWidget(_range);
    bar->addWidget(_from);
    bar->addWidget(_to);
    bar->addWidget(_nutrient);
    bar->addStretch();
    auto *charted = new QSplitter(Qt::Vertical, this);
    charted->addWidget(_chart);
    charted->addWidget(_tables);
    charted->setStretchFactor(0, 3);
    charted->setStretchFactor(1, 1);
    auto *chartPage = new QWidget(this);
    auto *chartLayout = new QVBoxLayout(chartPage);
    chartLayout->setContentsMargins(0, 0, 0, 0);
    chartLayout->addLayout(bar);
    chartLayout->addWidget(charted);
    _pages->addWidget(_summary);
    _pages->addWidget(chartPage);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(_reports);
    layout->addWidget(_pages, 1);
    _reports->setCurrentRow(Summary);

    connect(_reports, &QListWidget::currentRowChanged, this, &ReportsView::refresh);
    connect(_range, &QComboBox::currentIndexChanged, this, &ReportsView::refresh);
    connect(_nutrient, &QComboBox::currentIndexChanged, this, &ReportsView::refresh);
    connect(_from, &QDateEdit::dateChanged, this, &ReportsView::refresh);
    connect(_to, &QDateEdit::dateChanged, this, &ReportsView::refresh);
}

void ReportsView::setUser(int userId)
{
    _userId = userId;
}

void ReportsView::setDay(const QDate &day)
{
    _day = day;
}

ReportsView::Report ReportsView::report() const
{
    return Report(std::max(0, _reports->currentRow()));
}

void ReportsView::setReport(Report report)
{
    _reports->setCurrentRow(report);
}

void ReportsView::setRange(int kind)
{
    _range->setCurrentIndex(_range->findData(kind));
}

void ReportsView::setDates(const QDate &first, const QDate &last)
{
    // Read once, for the three changes together.
    {
        const QSignalBlocker from(_from), to(_to), range(_range);
        _from->setDate(first);
        _to->setMinimumDate(first);
        _to->setDate(last);
        _range->setCurrentIndex(_range->findData(kBetweenDates));
    }
    refresh();
}

void ReportsView::refresh()
{
    if (_userId < 0)
        return;
    const Report shown = report();
    _nutrient->setVisible(shown == Nutrients || shown == Breakdown);
    if (shown == Summary) {
        _document.reset();
        _pages->setCurrentIndex(0);
        _summary->setHtml(daySummaryReport(_userId, _day));
        return;
    }
    const auto kind = ReportRange::Kind(_range->currentData().toInt());
    const bool between = _range->currentData().toInt() == kBetweenDates;
    _from->setVisible(between);
    _to->setVisible(between);
    // Dates stands for the shown day alone.
    const ReportRange range = between                      ? ReportRange::between(_from->date(), _to->date())
                              : kind == ReportRange::All   ? ReportRange::all(_userId, _day)
                              : kind == ReportRange::Dates ? ReportRange::between(_day, _day)
                                                           : ReportRange::ending(kind, _day);
    _document =
        buildReport(kReportNames.at(shown - Energy), _userId, range, _nutrient->currentData().toInt());
    _pages->setCurrentIndex(1);
    showDocument();
}

void ReportsView::showDocument()
{
    const ReportDocument &document = *_document;
    const ReportUnits units = ReportUnits::of(_userId);
    const QList<const ReportSeries *> charted = chartedSeries(document);
    const bool meals = charted.isEmpty() && !document.grids.isEmpty() &&
                       document.grids.first().key == QLatin1String("meals");
    QChart *chart =
        meals ? mealChart(document, units, _nutrient->currentData().toInt()) : lineChart(document, units);
    QChart *old = _chart->chart();
    _chart->setChart(chart);
    delete old;
    _chart->setVisible(!charted.isEmpty() || meals);

    HtmlLayout layout(document.range);
    layOutReport(document, units, layout);
    _tables->setHtml(layout.html);
}
