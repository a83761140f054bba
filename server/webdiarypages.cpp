#include "model/quantitytext.h"
#include "server/webpagecells.h"
#include "server/webpages.h"

#include <QHash>
#include <QLocale>
#include <QTimeZone>

#include <cmath>

// The diary pages: a day against the targets, a month's calendar, the check-ins and their chart.

namespace WebPages {

namespace {

// A change to one decimal with its sign ("+0.4", or "−0.3" with the minus sign the day's totals
// use too); "0.0" for none, where rounding would have left "-0.0".
QString signedTenths(double value)
{
    const double tenths = std::round(value * 10.0) / 10.0;
    if (tenths == 0.0)
        return QStringLiteral("0.0");
    return (tenths > 0 ? QStringLiteral("+") : QStringLiteral("\u2212")) +
           QString::number(std::abs(tenths), 'f', 1);
}

// Sums count what is known and positive, as the desktop's totals do.
void addTo(Sums &sums, const PublishedFood &food)
{
    for (int c = 0; c < ColumnCount; ++c) {
        const std::optional<double> &v = food.values[kColumns[size_t(c)].valueIndex];
        if (v && *v > 0)
            sums[size_t(c)] += *v;
    }
}

// What a day's exercise burned, counted as the foods are: what is known and positive.
double burnedBy(const QList<PublishedExercise> &exercises)
{
    double burned = 0;
    for (const PublishedExercise &e : exercises) {
        if (e.calories > 0)
            burned += e.calories;
    }
    return burned;
}

QString dayLink(const PageFrame &frame, const QDate &date, const QString &text)
{
    return QStringLiteral("<a href=\"/day/%1%2\">%3</a>")
        .arg(date.toString(Qt::ISODate), memberQuery(frame), text);
}

} // namespace

QString day(const DayPage &view)
{
    const PageFrame &frame = view.frame;
    const ServerDiaryDB::Day &day = view.day;
    const QDate date = day.date;
    QString html;
    html.reserve(8192 + day.foods.size() * 400);
    html += QStringLiteral(
                "<div class=\"pagehead\"><a class=\"step\" rel=\"prev\" href=\"/day/%1%4\">\u2039 "
                "Previous day</a><h1>%2</h1><a class=\"step\" rel=\"next\" href=\"/day/%3%4\">Next day "
                "\u203a</a></div>\n")
                .arg(date.addDays(-1).toString(Qt::ISODate), htmlEscape(longDayName(date)),
                     date.addDays(1).toString(Qt::ISODate), memberQuery(frame));
    html += QStringLiteral(
                "<p class=\"meta\">Diary of <strong>%1</strong> \u00b7 <a href=\"/calendar/%2%3\">%4</a>")
                .arg(htmlEscape(frame.subject), date.toString(QStringLiteral("yyyy-MM")), memberQuery(frame),
                     htmlEscape(QLocale::c().toString(date, QStringLiteral("MMMM yyyy"))));
    if (view.lastPublish) {
        const QDateTime published = view.lastPublish->toLocalTime();
        html +=
            QStringLiteral(" \u00b7 last published %1 %2")
                .arg(htmlEscape(shortDate(published.date())), published.toString(QStringLiteral("HH:mm")));
    }
    html += QLatin1String("</p>\n<table class=\"diary\"><thead><tr>") + headerCells() +
            QLatin1String("</tr></thead>\n");

    Sums eaten{};
    for (const QChar meal : kMealLetters) {
        Sums sums{};
        QString rows;
        for (const PublishedFood &food : day.foods) {
            if (food.meal != meal)
                continue;
            addTo(sums, food);
            rows += QStringLiteral(
                        "<tr class=\"entry\"><td class=\"name\">%1</td><td class=\"num\">%2</td><td>%3</td>")
                        .arg(htmlEscape(food.desc), quantityText(food.qty), htmlEscape(food.serving));
            for (int c = 0; c < ColumnCount; ++c)
                rows += numberCell(figure(c, food.values[kColumns[size_t(c)].valueIndex]));
            rows += QLatin1String("</tr>\n");
        }
        // A meal's totals show once something is in it, as in the desktop's day view.
        html += QStringLiteral(
                    "<tbody class=\"meal\" id=\"meal-%1\"><tr class=\"mealrow\"><th scope=\"rowgroup\" "
                    "class=\"name\">%2</th><td></td><td></td>")
                    .arg(meal, mealName(meal));
        for (int c = 0; c < ColumnCount; ++c)
            html += numberCell(rows.isEmpty() ? QString() : figure(c, sums[size_t(c)]));
        html += QLatin1String("</tr>\n") + rows + QLatin1String("</tbody>\n");
        for (int c = 0; c < ColumnCount; ++c)
            eaten[size_t(c)] += sums[size_t(c)];
    }
    const double burned = burnedBy(day.exercises);
    if (!day.exercises.isEmpty()) {
        QString rows;
        for (const PublishedExercise &e : day.exercises) {
            rows +=
                QStringLiteral("<tr class=\"entry\"><td class=\"name\">%1</td><td class=\"num\">%2</td>"
                               "<td>minutes</td>%3<td colspan=\"%4\"></td></tr>\n")
                    .arg(htmlEscape(e.desc), quantityText(e.duration), numberCell(formatEnergy(e.calories)))
                    .arg(ColumnCount - 1);
        }
        html +=
            QStringLiteral("<tbody class=\"exercise\"><tr class=\"mealrow\"><th scope=\"rowgroup\" "
                           "class=\"name\">Exercise</th><td></td><td></td>%1<td colspan=\"%2\"></td></tr>\n")
                .arg(numberCell(formatEnergy(burned)))
                .arg(ColumnCount - 1);
        html += rows + QLatin1String("</tbody>\n");
    }
    html += QLatin1String(
        "<tfoot><tr class=\"totals\"><th scope=\"row\" class=\"name\">Eaten</th><td></td><td></td>");
    for (int c = 0; c < ColumnCount; ++c)
        html += numberCell(figure(c, eaten[size_t(c)]));
    html += QLatin1String("</tr></tfoot></table>\n");
    if (day.foods.isEmpty() && day.exercises.isEmpty())
        html += QLatin1String("<p class=\"empty\">Nothing published for this day.</p>\n");

    // Where the day stands: the desktop's panel in words and bars.
    const std::array<std::optional<double>, MemberTargets::Count> &targets = view.targets.values;
    const double net = eaten[Energy] - burned;
    html += QLatin1String(
        "<section class=\"standing\"><h2>Totals against targets</h2>\n<table class=\"standing\">");
    {
        const std::optional<double> budget = targets[MemberTargets::Energy];
        QString words =
            QStringLiteral("Eaten %1 \u2212 burned %2 = net %3 cals")
                .arg(formatEnergy(eaten[Energy]), formatEnergy(burned), QString::asprintf("%.0f", net + 0.0));
        QString rest = QStringLiteral("no target");
        QString bar, kind;
        if (budget && *budget > 0) {
            const double left = *budget - net;
            rest = left >= 0 ? QStringLiteral("%1 cals left").arg(formatEnergy(left))
                             : QStringLiteral("%1 cals over").arg(formatEnergy(-left));
            words += QStringLiteral(" of %1").arg(formatEnergy(*budget));
            kind = left < 0 ? QStringLiteral("over") : QString();
            bar = standingBar(net / *budget, kind);
        }
        html +=
            QStringLiteral(
                "<tr class=\"energy\"><th scope=\"row\">Energy</th><td>%1</td><td class=\"barcell\">%2</td>"
                "<td class=\"rest %3\">%4</td></tr>\n")
                .arg(words, bar, kind, rest);
    }
    for (int c = Carbs; c < ColumnCount; ++c) {
        const ColumnInfo &info = kColumns[size_t(c)];
        const std::optional<double> target = targets[info.target];
        const double value = eaten[size_t(c)];
        QString figures = amount(c, value);
        QString rest = QStringLiteral("no target");
        QString bar, kind;
        if (target && *target > 0) {
            const double left = *target - value;
            // Red over a limit, amber short of a goal, as the desktop's bars.
            if (info.limit ? left < 0 : left > 0)
                kind = info.limit ? QStringLiteral("over") : QStringLiteral("short");
            figures = QStringLiteral("%1 of %2").arg(figure(c, value), amount(c, *target));
            rest = left >= 0 ? QStringLiteral("%1 left").arg(amount(c, left))
                             : QStringLiteral("%1 over").arg(amount(c, -left));
            bar = standingBar(value / *target, kind);
        }
        html += QStringLiteral("<tr><th scope=\"row\">%1</th><td>%2</td><td class=\"barcell\">%3</td>"
                               "<td class=\"rest %4\">%5</td></tr>\n")
                    .arg(htmlEscape(columnLabel(c)), figures, bar, kind, rest);
    }
    html +=
        QStringLiteral("<tr class=\"water\"><th scope=\"row\">Water</th><td>%1</td><td></td><td></td></tr>\n")
            .arg(day.cups ? QStringLiteral("%1 glasses").arg(*day.cups) : QStringLiteral("not published"));
    html += QLatin1String("</table>\n");
    const double carbs = eaten[Carbs] * 4, fat = eaten[Fat] * 9, protein = eaten[Protein] * 4;
    if (const double sum = carbs + fat + protein; eaten[Energy] > 0 && sum > 0) {
        html += QStringLiteral("<p class=\"shares\">Energy from carbohydrate %1%, fat %2%, protein %3%</p>\n")
                    .arg(std::round(100 * carbs / sum))
                    .arg(std::round(100 * fat / sum))
                    .arg(std::round(100 * protein / sum));
    }
    if (!view.frame.subject.isEmpty() && view.targets.isEmpty()) {
        html += QStringLiteral("<p class=\"hint\">No targets set. <a href=\"/targets%1\">Targets</a></p>\n")
                    .arg(memberQuery(frame));
    }
    html += QLatin1String("</section>\n");

    if (day.checkin) {
        const PublishedCheckin &c = *day.checkin;
        html += QLatin1String("<section class=\"checkin\"><h2>Check-in</h2><dl>");
        struct Measure
        {
            const char *label;
            const std::optional<double> &value;
            const char *unit;
        };
        const Measure measures[] = {{"Weight", c.weight, "kg"},
                                    {"Chest", c.chest, "cm"},
                                    {"Waist", c.waist, "cm"},
                                    {"Hips", c.hips, "cm"},
                                    {"Thigh", c.thigh, "cm"}};
        for (const Measure &m : measures) {
            if (m.value) {
                html += QStringLiteral("<dt>%1</dt><dd>%2 %3</dd>")
                            .arg(QLatin1String(m.label), QString::number(*m.value, 'f', 1),
                                 QLatin1String(m.unit));
            }
        }
        html += QLatin1String("</dl>");
        if (!c.note.isEmpty())
            html += QStringLiteral("<p class=\"note\">%1</p>").arg(htmlEscape(c.note));
        html += QStringLiteral("<p><a href=\"/checkins%1\">All check-ins</a></p></section>\n")
                    .arg(memberQuery(frame));
    }
    return renderPage(frame, html);
}

QString calendar(const CalendarPage &view)
{
    const PageFrame &frame = view.frame;
    const QDate first(view.year, view.month, 1);
    const QDate previous = first.addMonths(-1), next = first.addMonths(1);
    const auto monthLink = [&](const QDate &month, const QString &text, const char *rel) {
        return QStringLiteral("<a class=\"step\" rel=\"%1\" href=\"/calendar/%2%3\">%4</a>")
            .arg(QLatin1String(rel), month.toString(QStringLiteral("yyyy-MM")), memberQuery(frame), text);
    };
    QString html =
        QStringLiteral("<div class=\"pagehead\">%1<h1>%2</h1>%3</div>\n")
            .arg(monthLink(previous, QStringLiteral("\u2039 ") + QLocale::c().monthName(previous.month()),
                           "prev"),
                 htmlEscape(QLocale::c().toString(first, QStringLiteral("MMMM yyyy"))),
                 monthLink(next, QLocale::c().monthName(next.month()) + QStringLiteral(" \u203a"), "next"));
    html += QStringLiteral("<p class=\"meta\">Diary of <strong>%1</strong> \u00b7 %2 days with entries</p>\n")
                .arg(htmlEscape(frame.subject))
                .arg(view.logged.size());
    QHash<QDate, double> nets;
    for (const ServerDiaryDB::Day &d : view.diary) {
        Sums eaten{};
        for (const PublishedFood &food : d.foods)
            addTo(eaten, food);
        nets.insert(d.date, eaten[Energy] - burnedBy(d.exercises));
    }
    html += QLatin1String("<table class=\"calendar\"><thead><tr>");
    for (int d = 1; d <= 7; ++d)
        html +=
            QStringLiteral("<th scope=\"col\">%1</th>").arg(QLocale::c().dayName(d, QLocale::ShortFormat));
    html += QLatin1String("</tr></thead><tbody>\n");
    // Weeks start on Monday; the days of the other months stay empty.
    QDate cell = first.addDays(1 - first.dayOfWeek());
    while (cell < next) {
        html += QLatin1String("<tr>");
        for (int d = 0; d < 7; ++d, cell = cell.addDays(1)) {
            if (cell.month() != view.month) {
                html += QLatin1String("<td class=\"other\"></td>");
                continue;
            }
            QStringList classes;
            if (view.logged.contains(cell))
                classes << QStringLiteral("logged");
            if (cell == view.today)
                classes << QStringLiteral("today");
            // A day with foods or exercises shows its net energy, as its page works it out; one
            // with only a check-in or water, a mark.
            const auto net = nets.constFind(cell);
            const QString label =
                net != nets.cend()
                    ? QStringLiteral(
                          "<span class=\"net\" title=\"net energy: eaten less burned\">%1 cals</span>")
                          .arg(formatEnergy(*net))
                : view.logged.contains(cell)
                    ? QStringLiteral("<span class=\"mark\" title=\"entries\">\u25cf</span>")
                    : QString();
            html +=
                QStringLiteral("<td%1>%2</td>")
                    .arg(
                        classes.isEmpty()
                            ? QString()
                            : QStringLiteral(" class=\"%1\"").arg(classes.join(QLatin1Char(' '))),
                        dayLink(
                            frame, cell,
                            QStringLiteral("<span class=\"daynum\">%1</span>%2").arg(cell.day()).arg(label)));
        }
        html += QLatin1String("</tr>\n");
    }
    html += QLatin1String("</tbody></table>\n");
    return renderPage(frame, html);
}

QString checkins(const CheckinsPage &view)
{
    const PageFrame &frame = view.frame;
    QString html = QStringLiteral("<h1>Check-ins</h1>\n<p class=\"meta\">Diary of <strong>%1</strong></p>\n")
                       .arg(htmlEscape(frame.subject));
    // The range chooser: a plain GET form.
    const std::pair<const char *, const char *> ranges[] = {
        {"30", "Last 30 days"}, {"90", "Last 90 days"}, {"182", "Last 6 months"},
        {"365", "Last year"},   {"all", "Everything"},  {"custom", "From\u2026to"}};
    html += QStringLiteral("<form class=\"range\" method=\"get\" action=\"/checkins\">");
    if (frame.subject != frame.viewer)
        html += QStringLiteral("<input type=\"hidden\" name=\"member\" value=\"%1\">")
                    .arg(htmlEscape(frame.subject));
    html += QLatin1String("<label for=\"range\">Show</label> <select id=\"range\" name=\"range\">");
    for (const auto &[value, label] : ranges) {
        html += QStringLiteral("<option value=\"%1\"%2>%3</option>")
                    .arg(QLatin1String(value),
                         view.range == QLatin1String(value) ? QStringLiteral(" selected") : QString(),
                         QString::fromUtf8(label));
    }
    html += QStringLiteral(
                "</select> <label for=\"from\">from</label> <input id=\"from\" name=\"from\" type=\"date\" "
                "value=\"%1\"> <label for=\"to\">to</label> <input id=\"to\" name=\"to\" type=\"date\" "
                "value=\"%2\"> <button type=\"submit\">Show</button></form>\n")
                .arg(view.from.toString(Qt::ISODate), view.to.toString(Qt::ISODate));

    const QString chart = weightChartSvg(view.weighings, view.from, view.to);
    if (chart.isEmpty()) {
        html += QStringLiteral("<p class=\"empty\">No weighings from %1 to %2.</p>\n")
                    .arg(htmlEscape(shortDate(view.from)), htmlEscape(shortDate(view.to)));
    } else {
        html += QLatin1String("<figure class=\"chart\">") + chart + QLatin1String("</figure>\n");
        const WeightPoint &firstPoint = view.weighings.constFirst();
        const WeightPoint &lastPoint = view.weighings.constLast();
        html += QStringLiteral(
                    "<p class=\"summary\">Latest weight %1 kg on %2; trend %3 kg, %4 kg since %5.</p>\n")
                    .arg(QString::number(lastPoint.weight, 'f', 1), htmlEscape(shortDate(lastPoint.date)),
                         QString::number(lastPoint.trend, 'f', 1),
                         signedTenths(lastPoint.trend - firstPoint.trend),
                         htmlEscape(shortDate(firstPoint.date)));
    }
    if (!view.checkins.isEmpty()) {
        QHash<QDate, double> trendOf;
        for (const WeightPoint &p : view.weighings)
            trendOf.insert(p.date, p.trend);
        html += QLatin1String(
            "<table class=\"checkins\"><thead><tr><th scope=\"col\">Date</th><th scope=\"col\" "
            "class=\"num\">Weight</th><th scope=\"col\" class=\"num\">Trend</th><th scope=\"col\" "
            "class=\"num\">Chest</th><th scope=\"col\" class=\"num\">Waist</th><th scope=\"col\" "
            "class=\"num\">Hips</th><th scope=\"col\" class=\"num\">Thigh</th><th "
            "scope=\"col\">Note</th></tr></thead><tbody>\n");
        const auto measure = [](const std::optional<double> &v) {
            return v ? QString::number(*v, 'f', 1) : QString();
        };
        for (const PublishedCheckin &c : view.checkins) {
            html +=
                QStringLiteral("<tr><td>%1</td>").arg(dayLink(frame, c.date, htmlEscape(shortDate(c.date))));
            html += numberCell(measure(c.weight));
            html += numberCell(c.weight && trendOf.contains(c.date)
                                   ? QString::number(trendOf.value(c.date), 'f', 1)
                                   : QString());
            for (const std::optional<double> *v : {&c.chest, &c.waist, &c.hips, &c.thigh})
                html += numberCell(measure(*v));
            html += QStringLiteral("<td>%1</td></tr>\n").arg(htmlEscape(c.note));
        }
        html += QLatin1String("</tbody></table>\n<p class=\"hint\">Weights in kg, measurements in cm.</p>\n");
    }
    return renderPage(frame, html);
}

} // namespace WebPages
