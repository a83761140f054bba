#include "server/webpagecells.h"
#include "server/webpages.h"

#include <QLocale>

// The member's own pages: logging in and out, targets, sharing, the household's statistics, and
// the one-sentence answers.

namespace WebPages {

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
