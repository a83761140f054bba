#include "model/quantitytext.h"
#include "server/webpagecells.h"
#include "server/webpages.h"

// The meal plan editor: the coming week's plan, the food search and the chosen food's form.

namespace WebPages {

namespace {

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
                if (one.calories) {
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
                const std::array<std::optional<double>, ColumnCount> values = {
                    p.calories, p.carbohydrate, p.fat, p.protein, p.fiber, std::nullopt};
                rows +=
                    QStringLiteral(
                        "<tr class=\"entry\"><td class=\"name\">%1</td><td class=\"num\">%2</td><td>%3</td>")
                        .arg(htmlEscape(p.foodName), quantityText(p.qty), htmlEscape(p.servName));
                for (int c = 0; c < Sodium; ++c) {
                    rows += numberCell(figure(c, values[size_t(c)]));
                    if (values[size_t(c)])
                        sums[size_t(c)] += *values[size_t(c)];
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

} // namespace WebPages
