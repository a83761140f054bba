#include "model/quantitytext.h"

#include <QLocale>
#include <QRegularExpression>
#include <QStringList>

#include <cmath>

std::optional<double> fractionValue(QStringView text)
{
    static const QRegularExpression written(
        QStringLiteral(R"(^\s*(?:(\d{1,6})\s+)?(\d{1,6})\s*/\s*(\d{1,6})\s*$)"));
    static const QRegularExpression vulgar(QStringLiteral(R"(^\s*(\d{1,6})?\s*(\S)\s*$)"));
    static const QString glyphs = QStringLiteral("½⅓⅔¼¾⅕⅖⅗⅘⅙⅚⅛⅜⅝⅞");
    static const double parts[] = {1 / 2.0, 1 / 3.0, 2 / 3.0, 1 / 4.0, 3 / 4.0, 1 / 5.0, 2 / 5.0, 3 / 5.0,
                                   4 / 5.0, 1 / 6.0, 5 / 6.0, 1 / 8.0, 3 / 8.0, 5 / 8.0, 7 / 8.0};
    if (const QRegularExpressionMatch m = written.match(text.toString()); m.hasMatch()) {
        const double below = m.capturedView(3).toDouble();
        if (below == 0)
            return std::nullopt;
        return m.capturedView(1).toDouble() + m.capturedView(2).toDouble() / below;
    }
    if (const QRegularExpressionMatch m = vulgar.match(text.toString()); m.hasMatch()) {
        if (const qsizetype glyph = glyphs.indexOf(m.capturedView(2)); glyph >= 0)
            return m.capturedView(1).toDouble() + parts[glyph];
    }
    return std::nullopt;
}

LeadingAmount leadingAmount(const QString &search, double most)
{
    const QStringList words = search.simplified().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    // A whole and a fraction ("1 1/2") first, then one word.
    for (const qsizetype count : {2, 1}) {
        if (words.size() <= count)
            continue;
        const QString head = words.first(count).join(QLatin1Char(' '));
        std::optional<double> amount = fractionValue(head);
        bool number = false;
        if (!amount && count == 1) {
            const double value = QLocale::c().toDouble(head, &number);
            if (number)
                amount = value;
        }
        if (amount && *amount > 0 && *amount <= most)
            return {amount, words.sliced(count).join(QLatin1Char(' '))};
    }
    return {std::nullopt, search};
}

LeadingAmount leadingMinutes(const QString &search)
{
    LeadingAmount lead = leadingAmount(search, 24 * 60);
    if (!lead.amount)
        return lead;
    static const QRegularExpression unit(QStringLiteral("^(min|mins|minute|minutes)\\b\\s*"),
                                         QRegularExpression::CaseInsensitiveOption);
    const QString rest = QString(lead.rest).remove(unit);
    if (rest.isEmpty())
        return {std::nullopt, search};
    lead.rest = rest;
    return lead;
}

QString quantityText(double value)
{
    const QLocale c = QLocale::c();
    if (value != 0 && std::abs(value) < 0.005)
        return c.toString(value, 'g', 2);
    QString text = c.toString(value, 'f', 2);
    while (text.endsWith(QLatin1Char('0')))
        text.chop(1);
    if (text.endsWith(QLatin1Char('.')))
        text.chop(1);
    return text == QLatin1String("-0") ? QStringLiteral("0") : text;
}
