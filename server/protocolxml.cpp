#include "server/protocolxml.h"

#include <QDateTime>
#include <QLocale>
#include <QTimeZone>

#include <charconv>
#include <cmath>

namespace {

const char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

QString number(double value)
{
    return QString::number(value, 'g', QLocale::FloatingPointShortest);
}

// The program keeps a food's values in single precision, and the reference values are floats:
// the shortest text that reads back as the same float, "5.232" rather than "5.2320002079010015".
QString singleNumber(double value)
{
    char text[32];
    const float single = float(value);
    if (!std::isfinite(single))
        return number(value);
    const auto [end, error] = std::to_chars(text, text + sizeof text, single);
    return error == std::errc() ? QString::fromLatin1(text, end - text) : number(value);
}

QString mealWord(QChar meal)
{
    switch (meal.unicode()) {
    case 'B':
        return QStringLiteral("Breakfast");
    case 'L':
        return QStringLiteral("Lunch");
    case 'D':
        return QStringLiteral("Dinner");
    default:
        return QStringLiteral("Snack");
    }
}

QString attribute(const char *name, const QString &value)
{
    return QLatin1Char(' ') + QLatin1String(name) + QStringLiteral("=\"") + ProtocolXml::escape(value) +
           QLatin1Char('"');
}

} // namespace

namespace ProtocolXml {

QString escape(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '&':
            out += QLatin1String("&amp;");
            break;
        case '<':
            out += QLatin1String("&lt;");
            break;
        case '>':
            out += QLatin1String("&gt;");
            break;
        case '"':
            out += QLatin1String("&quot;");
            break;
        case '\n':
            out += QLatin1String("&#10;");
            break;
        case '\r':
            out += QLatin1String("&#13;");
            break;
        case '\t':
            out += QLatin1String("&#9;");
            break;
        default:
            if (c.unicode() >= 0x20 && c.unicode() != 0xFFFE && c.unicode() != 0xFFFF)
                out += c;
        }
    }
    return out;
}

QByteArray response(ProtocolError error, const QString &errstr)
{
    const QString text = error == ProtocolError::Ok || !errstr.isEmpty() ? errstr : protocolErrorText(error);
    return kDeclaration + (QStringLiteral("<response") + attribute("errno", QString::number(int(error))) +
                           attribute("errstr", text) + QStringLiteral(" />"))
                              .toUtf8();
}

QByteArray mealPlan(const QList<PlannedFood> &foods)
{
    if (foods.isEmpty())
        return kDeclaration + QByteArray("<mealplan />\n");
    QString xml = QStringLiteral("<mealplan>\n");
    for (const PlannedFood &food : foods) {
        xml += QStringLiteral("  <food") + attribute("food_name", food.foodName) +
               attribute("serv_name", food.servName) + attribute("qty", number(food.qty)) +
               attribute("meal", mealWord(food.meal)) +
               attribute("date", food.date.toString(QStringLiteral("yyyyMMdd")));
        // A value the food lacks is left out: the program keeps it unknown.
        const std::pair<const char *, std::optional<double>> values[] = {{"calories", food.calories},
                                                                         {"carbohydrate", food.carbohydrate},
                                                                         {"fat", food.fat},
                                                                         {"fiber", food.fiber},
                                                                         {"protein", food.protein}};
        for (const auto &[name, value] : values) {
            if (value)
                xml += attribute(name, singleNumber(*value));
        }
        xml += QStringLiteral(" />\n");
    }
    xml += QStringLiteral("</mealplan>\n");
    return kDeclaration + xml.toUtf8();
}

QByteArray mealPlanError(ProtocolError error)
{
    return kDeclaration + (QStringLiteral("<mealplan") + attribute("errno", QString::number(int(error))) +
                           attribute("errstr", protocolErrorText(error)) + QStringLiteral(" />\n"))
                              .toUtf8();
}

QByteArray updateFeed(const QString &siteUrl, const QString &databaseUrl, std::optional<QDate> created)
{
    QString xml = QStringLiteral("<rss version=\"2.0\">\n  <channel>\n"
                                 "    <title>Reference database updates</title>\n"
                                 "    <link>%1</link>\n"
                                 "    <description>The foods and exercises database of this "
                                 "server</description>\n")
                      .arg(escape(siteUrl));
    if (created) {
        const QDateTime endOfDay(*created, QTime(23, 59, 59), QTimeZone::utc());
        xml +=
            QStringLiteral("    <item>\n"
                           "      <title>staticdb_updates</title>\n"
                           "      <link>%1</link>\n"
                           "      <description>Made on %2</description>\n"
                           "      <guid isPermaLink=\"false\">staticdb-%2</guid>\n"
                           "      <pubDate>%3</pubDate>\n"
                           "    </item>\n")
                .arg(escape(databaseUrl), created->toString(Qt::ISODate), endOfDay.toString(Qt::RFC2822Date));
    }
    xml += QStringLiteral("  </channel>\n</rss>\n");
    return kDeclaration + xml.toUtf8();
}

} // namespace ProtocolXml
