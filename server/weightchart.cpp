#include "server/weightchart.h"

#include "server/webhtml.h"

#include <QLocale>

#include <algorithm>
#include <cmath>

void smoothWeights(QList<WeightPoint> &weighings)
{
    for (qsizetype i = 0; i < weighings.size(); ++i) {
        const double previous = i == 0 ? weighings[i].weight : weighings[i - 1].trend;
        weighings[i].trend = previous + kTrendSmoothing * (weighings[i].weight - previous);
    }
}

namespace {

constexpr double kWidth = 760, kHeight = 320;
constexpr double kLeft = 52, kRight = 16, kTop = 14, kBottom = 56;

QString num(double v)
{
    return QString::number(v, 'f', 1);
}

// A step of 1, 2 or 5 times a power of ten that cuts span into about count parts.
double niceStep(double span, int count)
{
    const double raw = span / count;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (const double m : {1.0, 2.0, 5.0}) {
        if (raw <= m * power)
            return m * power;
    }
    return 10 * power;
}

} // namespace

QString weightChartSvg(const QList<WeightPoint> &points, const QDate &from, const QDate &to)
{
    if (points.isEmpty() || !from.isValid() || !to.isValid() || to < from)
        return QString();
    double low = INFINITY, high = -INFINITY;
    for (const WeightPoint &p : points) {
        low = std::min({low, p.weight, p.trend});
        high = std::max({high, p.weight, p.trend});
    }
    if (high - low < 1.0) {
        const double middle = (high + low) / 2;
        low = middle - 0.5;
        high = middle + 0.5;
    }
    const double step = niceStep(high - low, 5);
    // Room above the heaviest and below the lightest, so that no weighing sits on the frame.
    low = std::max(0.0, std::floor((low - step / 4) / step) * step);
    high = std::ceil((high + step / 4) / step) * step;
    const double plotWidth = kWidth - kLeft - kRight;
    const double plotHeight = kHeight - kTop - kBottom;
    const double days = std::max<qint64>(1, from.daysTo(to));
    const auto x = [&](const QDate &d) { return kLeft + plotWidth * double(from.daysTo(d)) / days; };
    const auto y = [&](double kg) { return kTop + plotHeight * (high - kg) / (high - low); };

    QString svg;
    svg.reserve(2048 + points.size() * 160);
    svg += QStringLiteral(
               "<svg class=\"weightchart\" xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %1 %2\" "
               "role=\"img\" aria-labelledby=\"wc-title\"><title id=\"wc-title\">Weight and trend, "
               "%3 to %4</title>")
               .arg(num(kWidth), num(kHeight), from.toString(Qt::ISODate), to.toString(Qt::ISODate));
    // Levels with their weights.
    for (double level = low; level <= high + step / 2; level += step) {
        svg += QStringLiteral("<line class=\"grid\" x1=\"%1\" y1=\"%2\" x2=\"%3\" y2=\"%2\"/>"
                              "<text class=\"axis\" x=\"%4\" y=\"%5\" text-anchor=\"end\">%6</text>")
                   .arg(num(kLeft), num(y(level)), num(kWidth - kRight), num(kLeft - 6), num(y(level) + 4),
                        QString::number(level, 'f', step < 1 ? 1 : 0));
    }
    // About six dates along the bottom.
    const qint64 dateStep = std::max<qint64>(1, qint64(std::ceil(days / 6.0)));
    const QString dateFormat = days > 400 ? QStringLiteral("MMM yyyy") : QStringLiteral("MMM d");
    for (qint64 i = 0; i <= qint64(days); i += dateStep) {
        const QDate d = from.addDays(i);
        svg += QStringLiteral("<line class=\"tick\" x1=\"%1\" y1=\"%2\" x2=\"%1\" y2=\"%3\"/>"
                              "<text class=\"axis\" x=\"%1\" y=\"%4\" text-anchor=\"middle\">%5</text>")
                   .arg(num(x(d)), num(kTop + plotHeight), num(kTop + plotHeight + 4),
                        num(kTop + plotHeight + 18), htmlEscape(QLocale::c().toString(d, dateFormat)));
    }
    svg += QStringLiteral("<text class=\"axis\" x=\"12\" y=\"%1\" transform=\"rotate(-90 12 %1)\" "
                          "text-anchor=\"middle\">kg</text>")
               .arg(num(kTop + plotHeight / 2));
    QString weights, trend;
    for (const WeightPoint &p : points) {
        weights += (weights.isEmpty() ? QString() : QStringLiteral(" ")) + num(x(p.date)) + QLatin1Char(',') +
                   num(y(p.weight));
        trend += (trend.isEmpty() ? QString() : QStringLiteral(" ")) + num(x(p.date)) + QLatin1Char(',') +
                 num(y(p.trend));
    }
    svg +=
        QStringLiteral("<polyline class=\"weight\" points=\"%1\"/><polyline class=\"trend\" points=\"%2\"/>")
            .arg(weights, trend);
    // Points with their figures: a browser shows the title on hover, without script.
    if (points.size() <= 400) {
        for (const WeightPoint &p : points) {
            svg += QStringLiteral("<circle class=\"weighing\" cx=\"%1\" cy=\"%2\" r=\"3\"><title>%3: %4 kg "
                                  "(trend %5 kg)</title></circle>")
                       .arg(num(x(p.date)), num(y(p.weight)), p.date.toString(Qt::ISODate), num(p.weight),
                            num(p.trend));
        }
    }
    const double keyY = kHeight - 12;
    svg += QStringLiteral("<g class=\"key\"><line class=\"weight\" x1=\"%1\" y1=\"%2\" x2=\"%3\" y2=\"%2\"/>"
                          "<circle class=\"weighing\" cx=\"%4\" cy=\"%2\" r=\"3\"/>"
                          "<text x=\"%5\" y=\"%6\">Weight</text>"
                          "<line class=\"trend\" x1=\"%7\" y1=\"%2\" x2=\"%8\" y2=\"%2\"/>"
                          "<text x=\"%9\" y=\"%6\">Trend</text></g></svg>")
               .arg(num(kLeft), num(keyY), num(kLeft + 24), num(kLeft + 12), num(kLeft + 30), num(keyY + 4),
                    num(kLeft + 110), num(kLeft + 134), num(kLeft + 140));
    return svg;
}
