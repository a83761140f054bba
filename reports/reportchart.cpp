#include "reports/reportchart.h"

#include "reports/reportoutput.h"

#include <QFontMetricsF>
#include <QLocale>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace {

// A round step for about `wanted` lines across span.
double niceStep(double span, int wanted)
{
    const double raw = span / std::max(1, wanted);
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (const double factor : {1.0, 2.0, 2.5, 5.0, 10.0}) {
        if (raw <= factor * power)
            return factor * power;
    }
    return 10.0 * power;
}

} // namespace

QList<const ReportSeries *> chartedSeries(const ReportDocument &document)
{
    QList<const ReportSeries *> charted;
    const ReportSeries *first = nullptr;
    for (const ReportSeries &s : document.series) {
        if (s.quantity == Quantity::Tick || s.quantity == Quantity::Count)
            continue;
        if (!first)
            first = &s;
        if (s.quantity == first->quantity && s.nutrient == first->nutrient)
            charted.append(&s);
    }
    return charted;
}

QList<const ReportFigure *> chartedLevels(const ReportDocument &document, const ReportUnits &units,
                                          double low, double high)
{
    QList<const ReportFigure *> levels;
    const QList<const ReportSeries *> charted = chartedSeries(document);
    if (charted.isEmpty())
        return levels;
    const Quantity quantity = charted.first()->quantity;
    const int nutrient = charted.first()->nutrient;
    const double margin = std::max(0.25 * (high - low), 2.0);
    for (const ReportFigure &f : document.figures) {
        if (!f.level || f.quantity != quantity || f.nutrient != nutrient || !std::isfinite(f.value))
            continue;
        const double v = units.toDisplay(quantity, nutrient, f.value);
        if (f.key.startsWith(QLatin1String("goal")) || (v >= low - margin && v <= high + margin))
            levels.append(&f);
    }
    return levels;
}

bool breaksAtGaps(Quantity quantity)
{
    return quantity == Quantity::Energy || quantity == Quantity::Nutrient || quantity == Quantity::Percent;
}

bool tablesEveryDay(const ReportRange &range)
{
    return range.days() <= 31;
}

QColor seriesColour(qsizetype index)
{
    static const QList<QColor> colours = {QColor(0x2e, 0x9d, 0x5b), QColor(0x34, 0x49, 0x5e),
                                          QColor(0xd6, 0x89, 0x10), QColor(0xc0, 0x39, 0x2b),
                                          QColor(0x29, 0x80, 0xb9), QColor(0x8e, 0x44, 0xad)};
    return colours.at(index % colours.size());
}

void paintReportChart(QPainter &painter, const QRectF &area, const ReportDocument &document,
                      const ReportUnits &units)
{
    const QList<const ReportSeries *> charted = chartedSeries(document);
    painter.save();
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(7);
    painter.setFont(font);
    const QFontMetricsF metrics(font);
    painter.setPen(QColor(0x88, 0x88, 0x88));
    painter.drawRect(area);
    if (charted.isEmpty() || !document.range.isValid()) {
        painter.drawText(area, Qt::AlignCenter, QStringLiteral("Nothing recorded in these days."));
        painter.restore();
        return;
    }
    const Quantity quantity = charted.first()->quantity;
    const int nutrient = charted.first()->nutrient;
    const auto shown = [&](double stored) { return units.toDisplay(quantity, nutrient, stored); };

    // The value range: every point and every level of the same quantity.
    double low = INFINITY;
    double high = -INFINITY;
    for (const ReportSeries *s : charted) {
        for (const SeriesPoint &p : s->points) {
            low = std::min(low, shown(p.value));
            high = std::max(high, shown(p.value));
        }
    }
    const QList<const ReportFigure *> levels = chartedLevels(document, units, low, high);
    for (const ReportFigure *f : levels) {
        low = std::min(low, shown(f->value));
        high = std::max(high, shown(f->value));
    }
    if (!std::isfinite(low)) {
        painter.drawText(area, Qt::AlignCenter, QStringLiteral("Nothing recorded in these days."));
        painter.restore();
        return;
    }
    if (high - low < 1e-9) {
        low -= 1;
        high += 1;
    }
    const double step = niceStep(high - low, 5);
    low = std::floor(low / step) * step;
    high = std::ceil(high / step) * step;

    const qreal labelWidth = metrics.horizontalAdvance(QStringLiteral("000000"));
    const QRectF plot = area.adjusted(labelWidth + 6, 8, -8, -(metrics.height() * 2 + 6));
    // A forecast may run past the range's end: the dates reach its last point.
    const QDate first = document.range.from();
    QDate last = document.range.to();
    for (const ReportSeries *s : charted) {
        if (!s->points.isEmpty())
            last = std::max(last, s->points.constLast().date);
    }
    const qreal days = std::max<qint64>(1, first.daysTo(last));
    const auto x = [&](const QDate &date) {
        return plot.left() + plot.width() * qreal(first.daysTo(date)) / days;
    };
    const auto y = [&](double value) { return plot.bottom() - plot.height() * (value - low) / (high - low); };

    // Levels across, dates along.
    for (double v = low; v <= high + step / 2; v += step) {
        painter.setPen(QPen(QColor(0xdd, 0xdd, 0xdd), 0.5));
        painter.drawLine(QPointF(plot.left(), y(v)), QPointF(plot.right(), y(v)));
        painter.setPen(QColor(0x55, 0x55, 0x55));
        painter.drawText(QRectF(area.left(), y(v) - 6, labelWidth, 12), Qt::AlignRight | Qt::AlignVCenter,
                         QLocale().toString(v, 'f', step < 1 ? 1 : 0));
    }
    const int labels = std::clamp(int(plot.width() / 70), 2, 8);
    for (int i = 0; i <= labels; ++i) {
        const QDate date = first.addDays(qint64(std::round(days * i / labels)));
        const qreal at = x(date);
        painter.setPen(QPen(QColor(0xbb, 0xbb, 0xbb), 0.5));
        painter.drawLine(QPointF(at, plot.bottom()), QPointF(at, plot.bottom() + 3));
        painter.setPen(QColor(0x55, 0x55, 0x55));
        painter.drawText(QRectF(at - 40, plot.bottom() + 3, 80, metrics.height()), Qt::AlignCenter,
                         QLocale().toString(date, QLocale::ShortFormat));
    }
    painter.setClipRect(plot.adjusted(-2, -2, 2, 2));
    for (const ReportFigure *f : std::as_const(levels)) {
        painter.setPen(QPen(QColor(0x99, 0x99, 0x99), 0.7, Qt::DashLine));
        painter.drawLine(QPointF(plot.left(), y(shown(f->value))), QPointF(plot.right(), y(shown(f->value))));
        painter.drawText(QRectF(plot.left() + 2, y(shown(f->value)) - metrics.height(), plot.width() - 4,
                                metrics.height()),
                         Qt::AlignRight | Qt::AlignBottom, f->title);
    }
    // Each series a line, in pieces where the quantity breaks at gaps.
    const bool daily = breaksAtGaps(quantity);
    for (qsizetype i = 0; i < charted.size(); ++i) {
        const ReportSeries &s = *charted[i];
        QPainterPath path;
        QDate previous;
        for (const SeriesPoint &p : s.points) {
            const QPointF at(x(p.date), y(shown(p.value)));
            if (previous.isValid() && (!daily || previous.daysTo(p.date) == 1))
                path.lineTo(at);
            else
                path.moveTo(at);
            previous = p.date;
        }
        painter.setPen(QPen(seriesColour(i), s.points.size() > 120 ? 0.8 : 1.2));
        painter.drawPath(path);
        if (s.points.size() <= 62) {
            painter.setBrush(seriesColour(i));
            for (const SeriesPoint &p : s.points)
                painter.drawEllipse(QPointF(x(p.date), y(shown(p.value))), 1.3, 1.3);
            painter.setBrush(Qt::NoBrush);
        }
    }
    painter.setClipping(false);
    // The key below the dates.
    qreal keyX = plot.left();
    const qreal keyY = area.bottom() - metrics.height() - 2;
    const QString unit = units.unitText(quantity, nutrient);
    for (qsizetype i = 0; i < charted.size(); ++i) {
        const QString name =
            charted[i]->title + (unit.isEmpty() || i ? QString() : QStringLiteral(" (%1)").arg(unit));
        painter.fillRect(QRectF(keyX, keyY + metrics.height() / 2 - 1, 10, 2), seriesColour(i));
        painter.setPen(QColor(0x33, 0x33, 0x33));
        painter.drawText(QPointF(keyX + 13, keyY + metrics.ascent()), name);
        keyX += 20 + metrics.horizontalAdvance(name);
    }
    painter.restore();
}
