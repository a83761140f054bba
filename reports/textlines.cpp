#include "reports/textlines.h"

#include <QFontMetricsF>

QStringList wrappedLines(const QString &text, const QFont &font, qreal width, int most,
                         Qt::TextElideMode lastElide)
{
    const QFontMetricsF metrics(font);
    if (metrics.horizontalAdvance(text) <= width)
        return {text};
    QStringList lines;
    qsizetype start = 0;
    while (start < text.size() && lines.size() + 1 < most) {
        // The longest run of whole words from start that fits; a word longer than the line
        // makes a line of its own.
        qsizetype end = -1;
        for (qsizetype space = text.indexOf(QLatin1Char(' '), start); space > 0;
             space = text.indexOf(QLatin1Char(' '), space + 1)) {
            if (metrics.horizontalAdvance(text.sliced(start, space - start)) > width)
                break;
            end = space;
        }
        if (end < 0) {
            end = text.indexOf(QLatin1Char(' '), start);
            if (end < 0)
                break;
        }
        lines.append(metrics.elidedText(text.sliced(start, end - start), Qt::ElideRight, width));
        start = end + 1;
        if (metrics.horizontalAdvance(text.sliced(start)) <= width)
            break;
    }
    if (start < text.size())
        lines.append(metrics.elidedText(text.sliced(start), lastElide, width));
    return lines;
}
