#include "server/webhtml.h"

#include <QFile>
#include <QLocale>
#include <QUrl>
#include <QXmlStreamReader>

#include <algorithm>
#include <cmath>

QString htmlEscape(QStringView text)
{
    QString out;
    out.reserve(text.size() + text.size() / 8);
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
        case '\'':
            out += QLatin1String("&#39;");
            break;
        default:
            out += c;
        }
    }
    return out;
}

QString urlPart(const QString &text)
{
    return htmlEscape(QString::fromLatin1(QUrl::toPercentEncoding(text)));
}

namespace {

bool known(std::optional<double> value)
{
    return value && std::isfinite(*value) && *value > -0.01;
}

} // namespace

QString formatEnergy(std::optional<double> value)
{
    return known(value) ? QString::asprintf("%.0f", *value + 0.0) : QString();
}

QString formatNutrient(std::optional<double> value)
{
    return known(value) ? QString::asprintf("%.1f", *value + 0.0) : QString();
}

QString longDayName(const QDate &date)
{
    return QLocale::c().toString(date, QStringLiteral("dddd, MMMM d yyyy"));
}

const WebBrand &WebBrand::instance()
{
    static const WebBrand brand = [] {
        WebBrand b;
        QFile file(QStringLiteral(":/tarnwell/web/brand.xml"));
        if (!file.open(QIODevice::ReadOnly))
            return b;
        QXmlStreamReader xml(&file);
        while (!xml.atEnd()) {
            if (xml.readNext() != QXmlStreamReader::StartElement || xml.name() != QLatin1String("string"))
                continue;
            const QStringView id = xml.attributes().value(QLatin1String("id"));
            const QString value = xml.attributes().value(QLatin1String("value")).toString();
            if (id == QLatin1String("web_name"))
                b.webName = value;
            else if (id == QLatin1String("app_name_short"))
                b.appName = value;
            else if (id == QLatin1String("spelling_fiber"))
                b.fibre = value;
        }
        return b;
    }();
    return brand;
}

QString WebBrand::fibreLabel() const
{
    return fibre.left(1).toUpper() + fibre.mid(1);
}

QString memberQuery(const PageFrame &frame, const QString &more)
{
    QStringList parts;
    if (!frame.subject.isEmpty() && frame.subject != frame.viewer)
        parts << QStringLiteral("member=") + urlPart(frame.subject);
    if (!more.isEmpty())
        parts << more;
    return parts.isEmpty() ? QString() : QLatin1Char('?') + parts.join(QLatin1String("&amp;"));
}

QString csrfField(const QString &csrf)
{
    return QStringLiteral("<input type=\"hidden\" name=\"csrf\" value=\"%1\">").arg(htmlEscape(csrf));
}

QString standingBar(double share, const QString &kind)
{
    // Drawn as SVG: the page's policy allows no inline styles, and it needs no script.
    const double width = std::clamp(std::isfinite(share) ? share * 100.0 : 0.0, 0.0, 100.0);
    return QStringLiteral("<svg class=\"bar\" viewBox=\"0 0 100 10\" preserveAspectRatio=\"none\" "
                          "aria-hidden=\"true\"><rect class=\"track\" width=\"100\" height=\"10\"/>"
                          "<rect class=\"fill %1\" width=\"%2\" height=\"10\"/></svg>")
        .arg(kind, QString::number(width, 'f', 1));
}

QString renderPage(const PageFrame &frame, const QString &body)
{
    const WebBrand &brand = WebBrand::instance();
    QString html;
    html.reserve(body.size() + 4096);
    html += QStringLiteral("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
                           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
                           "<title>%1 \u2013 %2</title>"
                           "<link rel=\"stylesheet\" href=\"/static/tarnwell.css\">"
                           "<link rel=\"icon\" href=\"/static/tarnwell.svg\" type=\"image/svg+xml\">"
                           "</head><body>\n<header class=\"brandbar\"><a class=\"brand\" href=\"/\">"
                           "<img src=\"/static/tarnwell.svg\" alt=\"\" width=\"28\" height=\"28\">%2</a>")
                .arg(htmlEscape(frame.title), htmlEscape(brand.webName));
    if (!frame.viewer.isEmpty()) {
        html += QStringLiteral("<form class=\"logout\" method=\"post\" action=\"/logout\">%1"
                               "<span class=\"who\">%2</span><button type=\"submit\">Log out</button></form>")
                    .arg(csrfField(frame.csrf), htmlEscape(frame.viewer));
    }
    html += QLatin1String("</header>\n");
    if (!frame.viewer.isEmpty()) {
        struct Entry
        {
            const char *section;
            const char *label;
            QString href;
            bool perMember;
        };
        const Entry entries[] = {
            {"day", "Diary", QStringLiteral("/"), true},
            {"calendar", "Calendar", QStringLiteral("/calendar"), true},
            {"checkins", "Check-ins", QStringLiteral("/checkins"), true},
            {"plan", "Meal plan", QStringLiteral("/plan"), true},
            {"targets", "Targets", QStringLiteral("/targets"), true},
            {"sharing", "Sharing", QStringLiteral("/sharing"), false},
            {"stats", "Statistics", QStringLiteral("/stats"), false},
        };
        html += QLatin1String("<nav class=\"sections\">");
        for (const Entry &e : entries) {
            const bool current = frame.section == QLatin1String(e.section);
            html += QStringLiteral("<a href=\"%1%2\"%3>%4</a>")
                        .arg(e.href, e.perMember ? memberQuery(frame) : QString(),
                             current ? QStringLiteral(" class=\"current\" aria-current=\"page\"") : QString(),
                             QLatin1String(e.label));
        }
        html += QLatin1String("</nav>\n");
        if (!frame.shownBy.isEmpty() && !frame.path.isEmpty()) {
            // A plain form: choosing whose diary to see works without script.
            html += QStringLiteral(
                        "<form class=\"member\" method=\"get\" action=\"%1\">"
                        "<label for=\"member\">Diary of</label> <select id=\"member\" name=\"member\">")
                        .arg(htmlEscape(frame.path));
            QStringList names{frame.viewer};
            names += frame.shownBy;
            for (const QString &name : std::as_const(names)) {
                html += QStringLiteral("<option value=\"%1\"%2>%3</option>")
                            .arg(htmlEscape(name),
                                 name == frame.subject ? QStringLiteral(" selected") : QString(),
                                 name == frame.viewer ? htmlEscape(name) + QStringLiteral(" (you)")
                                                      : htmlEscape(name));
            }
            html += QLatin1String("</select> <button type=\"submit\">Show</button></form>\n");
        }
    }
    html += QLatin1String("<main>\n");
    if (!frame.notice.isEmpty()) {
        html += QStringLiteral("<p class=\"notice%1\" role=\"status\">%2</p>\n")
                    .arg(frame.error ? QStringLiteral(" error") : QString(), htmlEscape(frame.notice));
    }
    html += body;
    html +=
        QStringLiteral("</main>\n<footer>%1 \u00b7 the household's online diary</footer>\n</body></html>\n")
            .arg(htmlEscape(brand.webName));
    return html;
}
