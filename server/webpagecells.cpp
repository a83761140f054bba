#include "server/webpagecells.h"

#include "server/webpages.h"

#include <QLocale>

namespace WebPages {

QString columnLabel(int c)
{
    return c == Fiber ? WebBrand::instance().fibreLabel() : QLatin1String(kColumns[size_t(c)].label);
}

QString figure(int c, std::optional<double> value)
{
    return c == Energy ? formatEnergy(value) : formatNutrient(value);
}

QString amount(int c, double value)
{
    return figure(c, value) + QLatin1Char(' ') + QLatin1String(kColumns[size_t(c)].unit);
}

QString headerCells(int figures)
{
    QString html = QStringLiteral("<th scope=\"col\" class=\"name\">Food</th><th scope=\"col\" "
                                  "class=\"num\">Quantity</th><th scope=\"col\">Serving</th>");
    for (int c = 0; c < figures; ++c)
        html += QStringLiteral("<th scope=\"col\" class=\"num\">%1</th>").arg(htmlEscape(columnLabel(c)));
    return html;
}

QString numberCell(const QString &text)
{
    return QStringLiteral("<td class=\"num\">%1</td>").arg(text);
}

QString shortDate(const QDate &date)
{
    return QLocale::c().toString(date, QStringLiteral("ddd, MMM d yyyy"));
}

QString mealName(QChar letter)
{
    switch (letter.unicode()) {
    case 'B':
        return QStringLiteral("Breakfast");
    case 'L':
        return QStringLiteral("Lunch");
    case 'D':
        return QStringLiteral("Dinner");
    case 'S':
        return QStringLiteral("Snacks");
    default:
        return QString();
    }
}

} // namespace WebPages
