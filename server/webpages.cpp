#include "server/webpages.h"

#include <QLocale>
#include <QTimeZone>

#include <algorithm>
#include <array>
#include <cmath>

namespace WebPages {

namespace {

// The figures of a diary row, in the order the columns show them.
enum Column { Energy, Carbs, Fat, Protein, Fiber, Sodium, ColumnCount };

struct ColumnInfo
{
    const char *label;
    size_t valueIndex;           // in kFoodValueNames
    MemberTargets::Field target; // the matching target
    const char *unit;
    bool limit; // not to be gone over; otherwise a goal to reach
};

const std::array<ColumnInfo, ColumnCount> kColumns = {{
    {"Calories", 0, MemberTargets::Energy, "cals", true},
    {"Carbs", 4, MemberTargets::Carbs, "g", true},
    {"Fat", 1, MemberTargets::Fat, "g", true},
    {"Protein", 3, MemberTargets::Protein, "g", false},
    {"", 2, MemberTargets::Fiber, "g", false}, // the brand's spelling of fibre
    {"Sodium", 7, MemberTargets::Sodium, "mg", true},
}};

QString columnLabel(int c)
{
    return c == Fiber ? WebBrand::instance().fibreLabel() : QLatin1String(kColumns[size_t(c)].label);
}

QString figure(int c, std::optional<double> value)
{
    return c == Energy ? formatEnergy(value) : formatNutrient(value);
}

using Sums = std::array<double, ColumnCount>;

// Sums count what is known and positive, as the desktop's totals do.
void addTo(Sums &sums, const PublishedFood &food)
{
    for (int c = 0; c < ColumnCount; ++c) {
        const std::optional<double> &v = food.values[kColumns[size_t(c)].valueIndex];
        if (v && *v > 0)
            sums[size_t(c)] += *v;
    }
}

QString dayLink(const PageFrame &frame, const QDate &date, const QString &text)
{
    return QStringLiteral("<a href=\"/day/%1%2\">%3</a>")
        .arg(date.toString(Qt::ISODate), memberQuery(frame), text);
}

// The column heads of a diary table with its first figure columns.
QString headerCells(int figures = ColumnCount)
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
    return QLocale::c().toString(date, QStringLiteral("ddd d MMM yyyy"));
}

QString amount(int c, double value)
{
    return figure(c, value) + QLatin1Char(' ') + QLatin1String(kColumns[size_t(c)].unit);
}

QString dateOptions(const QDate &first, const QDate &last, const QDate &selected)
{
    QString html;
    for (QDate d = first; d <= last; d = d.addDays(1)) {
        html += QStringLiteral("<option value=\"%1\"%2>%3</option>")
                    .arg(d.toString(Qt::ISODate), d == selected ? QStringLiteral(" selected") : QString(),
                         htmlEscape(shortDate(d)));
    }
    return html;
}

QString mealOptions(QChar selected)
{
    QString html;
    for (const QChar meal : kMealLetters) {
        html += QStringLiteral("<option value=\"%1\"%2>%3</option>")
                    .arg(meal, meal == selected ? QStringLiteral(" selected") : QString(), mealName(meal));
    }
    return html;
}

} // namespace

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

QString login(const Login &view)
{
    PageFrame frame;
    frame.title = QStringLiteral("Log in");
    frame.notice = view.message;
    frame.error = !view.message.isEmpty();
    const QString body =
        QStringLiteral("<section class=\"login\"><h1>Log in</h1>"
                       "<p>Use the name and password of your %1 profile's online diary.</p>"
                       "<form method=\"post\" action=\"/login\">%2"
                       "<input type=\"hidden\" name=\"next\" value=\"%3\">"
                       "<label for=\"name\">Name</label><input id=\"name\" name=\"name\" value=\"%4\" "
                       "autocomplete=\"username\" required autofocus>"
                       "<label for=\"password\">Password</label><input id=\"password\" name=\"password\" "
                       "type=\"password\" autocomplete=\"current-password\" required>"
                       "<button type=\"submit\">Log in</button></form></section>\n")
            .arg(htmlEscape(WebBrand::instance().appName), csrfField(view.csrf), htmlEscape(view.next),
                 htmlEscape(view.name));
    return renderPage(frame, body);
}

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
        html += QStringLiteral(" \u00b7 last published %1")
                    .arg(view.lastPublish->toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm")));
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
                        .arg(htmlEscape(food.desc), formatQuantity(food.qty), htmlEscape(food.serving));
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
    double burned = 0;
    if (!day.exercises.isEmpty()) {
        QString rows;
        for (const PublishedExercise &e : day.exercises) {
            if (e.calories > 0)
                burned += e.calories;
            rows +=
                QStringLiteral("<tr class=\"entry\"><td class=\"name\">%1</td><td class=\"num\">%2</td>"
                               "<td>minutes</td>%3<td colspan=\"%4\"></td></tr>\n")
                    .arg(htmlEscape(e.desc), formatQuantity(e.duration), numberCell(formatEnergy(e.calories)))
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
            const QString label = view.logged.contains(cell)
                                      ? QStringLiteral("<span class=\"mark\" "
                                                       "title=\"entries\">\u25cf</span>")
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
                         QString::asprintf("%+.1f", lastPoint.trend - firstPoint.trend),
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

QString plan(const PlanPage &view)
{
    const PageFrame &frame = view.frame;
    QString html =
        QStringLiteral("<h1>Meal plan</h1>\n<p class=\"meta\">Plan of <strong>%1</strong> for %2 to %3. "
                       "The program fetches it with the meal plan download.</p>\n")
            .arg(htmlEscape(frame.subject), htmlEscape(shortDate(view.first)),
                 htmlEscape(shortDate(view.last)));
    if (view.editable) {
        html += QLatin1String("<section class=\"add\"><h2>Add a food</h2>");
        html += QStringLiteral(
                    "<form class=\"search\" method=\"get\" action=\"/plan\"><label for=\"q\">Food</label> "
                    "<input id=\"q\" name=\"q\" type=\"search\" value=\"%1\" placeholder=\"apple, "
                    "oatmeal\u2026\"> <label for=\"sdate\">for</label> <select id=\"sdate\" "
                    "name=\"date\">%2</select> <select name=\"meal\" aria-label=\"Meal\">%3</select> "
                    "<button type=\"submit\">Search</button></form>\n")
                    .arg(htmlEscape(view.query), dateOptions(view.first, view.last, view.addDate),
                         mealOptions(view.addMeal));
        if (!view.searchUnavailable.isEmpty()) {
            html +=
                QStringLiteral("<p class=\"notice error\">%1</p>\n").arg(htmlEscape(view.searchUnavailable));
        } else if (view.chosen) {
            const ReferenceFood &food = *view.chosen;
            html += QStringLiteral("<form class=\"choose\" method=\"post\" action=\"/plan\">%1"
                                   "<input type=\"hidden\" name=\"action\" value=\"add\">"
                                   "<input type=\"hidden\" name=\"food\" value=\"%2\">"
                                   "<p class=\"chosen\">%3</p>"
                                   "<label for=\"qty\">Quantity</label> <input id=\"qty\" name=\"qty\" "
                                   "inputmode=\"decimal\" size=\"6\" value=\"%4\" required> "
                                   "<select name=\"serving\" aria-label=\"Serving\">")
                        .arg(csrfField(frame.csrf))
                        .arg(food.id)
                        .arg(htmlEscape(food.name), htmlEscape(view.quantity));
            for (const FoodServing &s : food.servings) {
                // What one brings; a gram or a millilitre is too little to tell, so a hundred of them.
                const double per = s.quantity == 1.0f ? 100.0 : 1.0;
                PlannedFood one;
                WebFoodSearch::planEntry(food, s.id, per, &one);
                QString energy;
                if (isKnown(food.nutrients[ENERGY])) {
                    energy = per == 1.0
                                 ? QStringLiteral(" \u2013 %1 cals").arg(formatEnergy(one.calories))
                                 : QStringLiteral(" \u2013 %1 cals per 100").arg(formatEnergy(one.calories));
                }
                html += QStringLiteral("<option value=\"%1\"%2>%3%4</option>")
                            .arg(s.id)
                            .arg(s.id == view.servingId ? QStringLiteral(" selected") : QString(),
                                 htmlEscape(s.name), energy);
            }
            html += QStringLiteral(
                        "</select> <label for=\"adate\">on</label> <select id=\"adate\" name=\"date\">%1"
                        "</select> <select name=\"meal\" aria-label=\"Meal\">%2</select> "
                        "<button type=\"submit\">Add to plan</button> <a href=\"/plan\">Cancel</a></form>\n")
                        .arg(dateOptions(view.first, view.last, view.addDate), mealOptions(view.addMeal));
        } else if (!view.query.isEmpty()) {
            if (view.found.isEmpty()) {
                html += QStringLiteral("<p class=\"empty\">No foods match \u201c%1\u201d.</p>\n")
                            .arg(htmlEscape(view.query));
            } else {
                if (!view.searchNote.isEmpty())
                    html += QStringLiteral("<p class=\"hint\">%1</p>").arg(htmlEscape(view.searchNote));
                html += QLatin1String("<ol class=\"results\">");
                const QString common =
                    QStringLiteral("date=%1&amp;meal=%2&amp;q=%3")
                        .arg(view.addDate.toString(Qt::ISODate), QString(view.addMeal), urlPart(view.query));
                for (const WebFoodSearch::Found &f : view.found) {
                    html += QStringLiteral("<li><a href=\"/plan?food=%1&amp;%2\">%3</a>%4</li>")
                                .arg(f.id)
                                .arg(common, htmlEscape(f.name),
                                     f.close ? QStringLiteral(" <span class=\"tag\">close match</span>")
                                             : QString());
                }
                html += QLatin1String("</ol>\n");
            }
        }
        html += QLatin1String("</section>\n");
    }

    for (QDate date = view.first; date <= view.last; date = date.addDays(1)) {
        html += QStringLiteral("<section class=\"planday\" id=\"plan-%1\"><h2>%2</h2>")
                    .arg(date.toString(Qt::ISODate), htmlEscape(longDayName(date)));
        QString body;
        Sums total{};
        for (const QChar meal : kMealLetters) {
            QString rows;
            Sums sums{};
            for (const PlannedFood &p : view.planned) {
                if (p.date != date || p.meal != meal)
                    continue;
                const std::array<double, ColumnCount> values = {p.calories, p.carbohydrate, p.fat,
                                                                p.protein,  p.fiber,        -1.0};
                rows +=
                    QStringLiteral(
                        "<tr class=\"entry\"><td class=\"name\">%1</td><td class=\"num\">%2</td><td>%3</td>")
                        .arg(htmlEscape(p.foodName), formatQuantity(p.qty), htmlEscape(p.servName));
                for (int c = 0; c < Sodium; ++c) {
                    rows += numberCell(figure(c, values[size_t(c)]));
                    if (values[size_t(c)] > 0)
                        sums[size_t(c)] += values[size_t(c)];
                }
                if (view.editable) {
                    rows += QStringLiteral(
                                "<td><form class=\"inline\" method=\"post\" action=\"/plan\">%1"
                                "<input type=\"hidden\" name=\"action\" value=\"remove\">"
                                "<input type=\"hidden\" name=\"id\" value=\"%2\">"
                                "<button type=\"submit\" class=\"remove\" aria-label=\"Remove %3\">Remove"
                                "</button></form></td>")
                                .arg(csrfField(frame.csrf))
                                .arg(p.id)
                                .arg(htmlEscape(p.foodName));
                }
                rows += QLatin1String("</tr>\n");
            }
            if (rows.isEmpty())
                continue;
            body += QStringLiteral("<tbody><tr class=\"mealrow\"><th scope=\"rowgroup\" "
                                   "class=\"name\">%1</th><td></td><td></td>")
                        .arg(mealName(meal));
            for (int c = 0; c < Sodium; ++c) {
                body += numberCell(figure(c, sums[size_t(c)]));
                total[size_t(c)] += sums[size_t(c)];
            }
            body += (view.editable ? QStringLiteral("<td></td>") : QString()) + QLatin1String("</tr>\n") +
                    rows + QLatin1String("</tbody>\n");
        }
        if (body.isEmpty()) {
            html += QLatin1String("<p class=\"empty\">Nothing planned.</p></section>\n");
            continue;
        }
        html += QLatin1String("<table class=\"diary plan\"><thead><tr>") +
                headerCells(Sodium); // no sodium planned
        html += (view.editable ? QStringLiteral("<th scope=\"col\"><span class=\"sr\">Remove</span></th>")
                               : QString()) +
                QLatin1String("</tr></thead>\n") + body;
        html += QLatin1String(
            "<tfoot><tr class=\"totals\"><th scope=\"row\" class=\"name\">Planned</th><td></td><td></td>");
        for (int c = 0; c < Sodium; ++c)
            html += numberCell(figure(c, total[size_t(c)]));
        html += (view.editable ? QStringLiteral("<td></td>") : QString()) +
                QLatin1String("</tr></tfoot></table></section>\n");
    }
    return renderPage(frame, html);
}

QString targets(const TargetsPage &view)
{
    const PageFrame &frame = view.frame;
    QString html =
        QStringLiteral("<h1>Targets</h1>\n<p class=\"meta\">Daily targets of <strong>%1</strong>. The "
                       "day pages show the diary against them.</p>\n")
            .arg(htmlEscape(frame.subject));
    // The day page's column of each target, in MemberTargets order.
    const std::array<int, MemberTargets::Count> fields = {Energy, Fat, Carbs, Protein, Fiber, Sodium};
    const auto label = [](int column) {
        return column == Energy ? QStringLiteral("Energy") : htmlEscape(columnLabel(column));
    };
    if (view.editable) {
        html += QStringLiteral("<form class=\"targets\" method=\"post\" action=\"/targets\">%1<dl>")
                    .arg(csrfField(frame.csrf));
        for (int f = 0; f < MemberTargets::Count; ++f) {
            const int column = fields[size_t(f)];
            const std::optional<double> &v = view.targets.values[size_t(f)];
            const QString value = view.entered.size() == MemberTargets::Count ? view.entered.at(f)
                                  : v ? QLocale::c().toString(*v, 'g', 8)
                                      : QString();
            html += QStringLiteral("<dt><label for=\"%1\">%2</label></dt><dd><input id=\"%1\" name=\"%1\" "
                                   "inputmode=\"decimal\" size=\"8\" value=\"%3\"> %4</dd>")
                        .arg(QLatin1String(MemberTargets::kColumns[size_t(f)]), label(column),
                             htmlEscape(value), QLatin1String(kColumns[size_t(column)].unit));
        }
        html += QLatin1String("</dl><p class=\"hint\">Leave a field empty for no target.</p>"
                              "<button type=\"submit\">Save targets</button></form>\n");
    } else {
        html += QLatin1String("<table class=\"standing\">");
        for (int f = 0; f < MemberTargets::Count; ++f) {
            const int column = fields[size_t(f)];
            const std::optional<double> &v = view.targets.values[size_t(f)];
            html += QStringLiteral("<tr><th scope=\"row\">%1</th><td>%2</td></tr>")
                        .arg(label(column), v ? amount(column, *v) : QStringLiteral("no target"));
        }
        html += QLatin1String("</table>\n");
    }
    return renderPage(frame, html);
}

QString sharing(const SharingPage &view)
{
    const PageFrame &frame = view.frame;
    QString html =
        QStringLiteral("<h1>Sharing</h1>\n<p class=\"meta\">Who may read your diary, check-ins, meal plan "
                       "and targets here. They cannot change anything; nothing is shared until you tick "
                       "someone.</p>\n");
    if (view.others.isEmpty()) {
        html += QLatin1String("<p class=\"empty\">There are no other members in this household yet.</p>\n");
    } else {
        html +=
            QStringLiteral("<form class=\"sharing\" method=\"post\" action=\"/sharing\">%1<fieldset><legend>"
                           "Share my diary with</legend>")
                .arg(csrfField(frame.csrf));
        for (qsizetype i = 0; i < view.others.size(); ++i) {
            const QString &name = view.others.at(i);
            html += QStringLiteral(
                        "<label class=\"check\"><input type=\"checkbox\" name=\"viewer\" value=\"%1\"%2> "
                        "%1</label>")
                        .arg(htmlEscape(name),
                             view.viewers.contains(name) ? QStringLiteral(" checked") : QString());
        }
        html += QLatin1String("</fieldset><button type=\"submit\">Save sharing</button></form>\n");
    }
    html += QLatin1String("<h2>Shared with you</h2>\n");
    if (frame.shownBy.isEmpty()) {
        html += QLatin1String("<p class=\"empty\">Nobody shares their diary with you.</p>\n");
    } else {
        html += QLatin1String("<ul class=\"shared\">");
        for (const QString &name : frame.shownBy) {
            html += QStringLiteral("<li><a href=\"/?member=%1\">%2</a></li>")
                        .arg(urlPart(name), htmlEscape(name));
        }
        html += QLatin1String("</ul>\n");
    }
    return renderPage(frame, html);
}

QString stats(const StatsPage &view)
{
    QString html =
        QStringLiteral("<h1>Statistics</h1>\n<p class=\"meta\">How often the household's programs started "
                       "and were used, as their usage reports tell, %1 to %2.</p>\n")
            .arg(htmlEscape(shortDate(view.from)), htmlEscape(shortDate(view.to)));
    if (view.days.isEmpty()) {
        html += QLatin1String("<p class=\"empty\">No usage reported in this time.</p>\n");
        return renderPage(view.frame, html);
    }
    html += QLatin1String(
        "<table class=\"stats\"><thead><tr><th scope=\"col\">Date</th><th scope=\"col\" "
        "class=\"num\">Starts</th><th scope=\"col\" class=\"num\">Check-ins</th><th scope=\"col\" "
        "class=\"num\">Food diary</th></tr></thead><tbody>\n");
    qint64 starts = 0, checkins = 0, diary = 0;
    for (const MetricsDB::Day &d : view.days) {
        html += QStringLiteral(
                    "<tr><td>%1</td><td class=\"num\">%2</td><td class=\"num\">%3</td><td class=\"num\">%4"
                    "</td></tr>\n")
                    .arg(htmlEscape(shortDate(d.date)))
                    .arg(d.starts)
                    .arg(d.checkins)
                    .arg(d.foodDiary);
        starts += d.starts;
        checkins += d.checkins;
        diary += d.foodDiary;
    }
    html += QStringLiteral(
                "</tbody><tfoot><tr class=\"totals\"><th scope=\"row\">All</th><td class=\"num\">%1</td>"
                "<td class=\"num\">%2</td><td class=\"num\">%3</td></tr></tfoot></table>\n")
                .arg(starts)
                .arg(checkins)
                .arg(diary);
    return renderPage(view.frame, html);
}

QString logoutConfirm(const PageFrame &frame)
{
    return renderPage(frame, QStringLiteral("<h1>Log out</h1><form method=\"post\" action=\"/logout\">%1"
                                            "<button type=\"submit\">Log out</button></form>\n")
                                 .arg(csrfField(frame.csrf)));
}

QString message(const PageFrame &frame, const QString &text)
{
    return renderPage(frame, QStringLiteral("<h1>%1</h1>\n<p>%2</p>\n<p><a href=\"/\">Your diary</a></p>\n")
                                 .arg(htmlEscape(frame.title), htmlEscape(text)));
}

} // namespace WebPages
