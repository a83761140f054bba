#include "server/webroutes.h"

#include "model/quantitytext.h"

#include "server/accountdb.h"
#include "server/mealplandb.h"
#include "server/metricsdb.h"
#include "server/serverdb.h"
#include "server/serverdiarydb.h"
#include "server/serverlistener.h"
#include "server/serverlog.h"
#include "server/sessiondb.h"
#include "server/sharedb.h"
#include "server/targetdb.h"
#include "server/webfoodsearch.h"
#include "server/webpages.h"
#include "server/webrequest.h"
#include "server/websession.h"

#include <QFile>
#include <QHttpServer>
#include <QHttpServerRouterRule>
#include <QLocale>
#include <QRegularExpression>
#include <QSslSocket>

#include <memory>
#include <optional>

namespace {

using Status = QHttpServerResponder::StatusCode;

// Whether the request being routed came over TLS. The rule below sets it on the server's thread
// right before the handler runs, which copies it into its WebRequest.
bool g_requestTls = false;

// QHttpServerRequest does not tell the connection's kind; the router's handler still sees the socket.
class WebRule : public QHttpServerRouterRule
{
public:
    WebRule(const QString &pattern, QHttpServerRequest::Methods methods, RouterHandler handler)
        : QHttpServerRouterRule(pattern, methods,
                                [handler = std::move(handler)](const QRegularExpressionMatch &match,
                                                               const QHttpServerRequest &request,
                                                               QTcpSocket *socket) {
                                    const auto *ssl = qobject_cast<const QSslSocket *>(socket);
                                    g_requestTls = ssl && ssl->isEncrypted();
                                    handler(match, request, socket);
                                    g_requestTls = false;
                                })
    {
    }
};

constexpr QHttpServerRequest::Methods kAnyMethod = QHttpServerRequest::Method::AnyKnown;
constexpr qint64 kLoginFormSecs = 60 * 60;
constexpr int kSearchResults = 25;
constexpr int kPlanDays = 7; // today and the week after it

void addPageHeaders(QHttpServerResponse &response)
{
    response.setHeader("Content-Security-Policy",
                       "default-src 'none'; style-src 'self'; img-src 'self'; form-action 'self'; "
                       "frame-ancestors 'none'; base-uri 'none'");
    response.setHeader("X-Content-Type-Options", "nosniff");
    response.setHeader("X-Frame-Options", "DENY");
    response.setHeader("Referrer-Policy", "same-origin");
    response.setHeader("Cache-Control", "no-store");
}

QHttpServerResponse htmlResponse(const QString &html, Status status = Status::Ok)
{
    QHttpServerResponse response(QByteArrayLiteral("text/html; charset=utf-8"), html.toUtf8(), status);
    addPageHeaders(response);
    return response;
}

QHttpServerResponse redirect(const QString &location)
{
    QHttpServerResponse response(Status::SeeOther);
    addPageHeaders(response);
    response.setHeader("Location", location.toUtf8());
    return response;
}

// Only a path of this site: nothing a browser could read as another origin (a browser drops tabs
// and newlines from an address, so "/\t/host" would be "//host"); sent percent-encoded.
QString localTarget(const QString &next)
{
    static const QRegularExpression path(QStringLiteral("^/(?![/\\\\])[^\\s\\\\\\x00-\\x1f\\x7f]*$"));
    if (!path.match(next).hasMatch() || next.startsWith(QLatin1String("/login")))
        return QStringLiteral("/");
    return QString::fromLatin1(QUrl::toPercentEncoding(next, "/?=&%+:@-._~!$'()*,;"));
}

QString memberSuffix(const QString &viewer, const QString &subject)
{
    return subject == viewer
               ? QString()
               : QStringLiteral("?member=") + QString::fromLatin1(QUrl::toPercentEncoding(subject));
}

// Who asks, and whose diary the page is about.
struct Visit
{
    qint64 viewerId = -1;
    QString viewer;
    QString csrf;
    QString tokenHash;
    qint64 subjectId = -1;
    QString subject;
    QStringList shownBy;

    bool own() const { return subjectId == viewerId; }
    PageFrame frame(const QString &title, const QString &section, const QString &path) const
    {
        PageFrame f;
        f.title = title;
        f.section = section;
        f.viewer = viewer;
        f.csrf = csrf;
        f.subject = subject;
        f.shownBy = shownBy;
        f.path = path;
        return f;
    }
};

class WebApp : public std::enable_shared_from_this<WebApp>
{
public:
    explicit WebApp(const WebContext &context)
        : _context(context)
        , _foods(context.referenceDb, context.bundledReferenceDb)
    {
    }

    using Page = std::function<QHttpServerResponse(WebApp &, const WebRequest &)>;
    // A page for members: made once the visit is authorized and the method is one it takes.
    using MemberPage = std::function<QHttpServerResponse(WebApp &, const WebRequest &, const Visit &)>;
    enum class Takes { Get, GetAndPost };

    // Copies the request and makes the page on the pool.
    QFuture<QHttpServerResponse> run(const QHttpServerRequest &request, Page page)
    {
        WebRequest copied = WebRequest::from(request, g_requestTls);
        if (copied.method == WebRequest::Method::Other)
            page = [](WebApp &a, const WebRequest &) { return a.methodNotAllowed("GET, POST"); };
        // Through the front: an answer whose connection has closed is never written.
        return ServerListener::respond(_context.pool,
                                       [self = shared_from_this(), copied = std::move(copied),
                                        page = std::move(page)] { return page(*self, copied); });
    }

    // What every page but the login form does first: the session, the CSRF token of a POST and
    // the right to see ?member=, then 405 for a POST to a page that only shows.
    static Page forMembers(Takes takes, MemberPage page)
    {
        return [takes, page = std::move(page)](WebApp &a, const WebRequest &r) -> QHttpServerResponse {
            Visit v;
            std::optional<QHttpServerResponse> refusal;
            if (!a.authorize(r, &v, &refusal))
                return std::move(*refusal);
            if (r.isPost() && takes == Takes::Get)
                return a.methodNotAllowed("GET");
            return page(a, r, v);
        };
    }

    QHttpServerResponse loginPage(const WebRequest &r);
    QHttpServerResponse home(const WebRequest &r, const Visit &v);
    QHttpServerResponse logout(const WebRequest &r, const Visit &v);
    QHttpServerResponse day(const WebRequest &r, const Visit &v, const QString &dateText);
    QHttpServerResponse calendar(const WebRequest &r, const Visit &v, const QString &monthText);
    QHttpServerResponse thisMonth(const WebRequest &r, const Visit &v) { return calendar(r, v, QString()); }
    QHttpServerResponse checkins(const WebRequest &r, const Visit &v);
    QHttpServerResponse plan(const WebRequest &r, const Visit &v);
    QHttpServerResponse targets(const WebRequest &r, const Visit &v);
    QHttpServerResponse sharing(const WebRequest &r, const Visit &v);
    QHttpServerResponse stats(const WebRequest &r, const Visit &v);
    QHttpServerResponse methodNotAllowed(const char *allowed) const;

private:
    QDate today() const { return _context.today ? _context.today() : QDate::currentDate(); }
    ServerDB &db() const { return *_context.db; }

    // The session, the CSRF token of a POST and the right to see ?member=NAME; false with the
    // answer in *refusal when any of them fails.
    bool authorize(const WebRequest &r, Visit *visit, std::optional<QHttpServerResponse> *refusal);
    QHttpServerResponse notFound(const Visit &visit) const;
    QHttpServerResponse loginForm(const WebRequest &r, const QString &name, const QString &message,
                                  Status status);
    QHttpServerResponse planPage(const WebRequest &r, const Visit &v, const QString &error);

    WebContext _context;
    WebFoodSearch _foods;
};

bool WebApp::authorize(const WebRequest &r, Visit *visit, std::optional<QHttpServerResponse> *refusal)
{
    const auto refuse = [&](const QString &title, const QString &text, Status status) {
        PageFrame frame;
        frame.title = title;
        refusal->emplace(htmlResponse(WebPages::message(frame, text), status));
        return false;
    };
    std::optional<SessionRow> session;
    if (!r.sessionToken.isEmpty()) {
        visit->tokenHash = WebSession::tokenHash(r.sessionToken);
        session = SessionDB(db()).find(visit->tokenHash, ServerDB::now());
    }
    if (!session) {
        if (r.isPost())
            return refuse(QStringLiteral("Not logged in"),
                          QStringLiteral("Log in again, then send the form again."), Status::Forbidden);
        refusal->emplace(redirect(QStringLiteral("/login?next=") +
                                  QString::fromLatin1(QUrl::toPercentEncoding(r.target))));
        return false;
    }
    if (r.isPost()) {
        if (r.formTooLarge)
            return refuse(QStringLiteral("Form too large"),
                          QStringLiteral("That form was far larger than any of "
                                         "these pages send."),
                          Status::PayloadTooLarge);
        // Nothing of a POST is read before its token is checked.
        if (!WebSession::sameToken(r.field(QStringLiteral("csrf")).toUtf8(), session->csrf.toUtf8()))
            return refuse(
                QStringLiteral("Form refused"),
                QStringLiteral("The form did not come from this session's pages. Reload the page and try "
                               "again."),
                Status::Forbidden);
    }
    visit->viewerId = session->memberId;
    visit->viewer = session->name;
    visit->csrf = session->csrf;
    visit->subjectId = visit->viewerId;
    visit->subject = visit->viewer;
    ShareDB shares(db());
    visit->shownBy = shares.sharedWith(visit->viewerId);
    // Changes are only ever made to one's own diary: a POST ignores ?member=.
    const QString member = r.isPost() ? QString() : r.param(QStringLiteral("member"));
    if (member.isEmpty() || member == visit->viewer)
        return true;
    const std::optional<Member> subject = AccountDB(db()).member(member);
    if (!subject || !shares.maySee(visit->viewerId, subject->id)) {
        refusal->emplace(notFound(*visit));
        return false;
    }
    visit->subjectId = subject->id;
    visit->subject = subject->name;
    return true;
}

QHttpServerResponse WebApp::notFound(const Visit &visit) const
{
    // The same answer whether the page, the day or the member does not exist or is not shared.
    Visit anonymous = visit;
    anonymous.subject = visit.viewer;
    PageFrame frame = anonymous.frame(QStringLiteral("Not found"), QString(), QString());
    return htmlResponse(WebPages::message(frame, QStringLiteral("There is no such page.")), Status::NotFound);
}

QHttpServerResponse WebApp::methodNotAllowed(const char *allowed) const
{
    PageFrame frame;
    frame.title = QStringLiteral("Method not allowed");
    QHttpServerResponse response = htmlResponse(
        WebPages::message(frame, QStringLiteral("This page does not take that kind of request.")),
        Status::MethodNotAllowed);
    response.setHeader("Allow", allowed);
    return response;
}

QHttpServerResponse WebApp::home(const WebRequest &, const Visit &v)
{
    return redirect(QStringLiteral("/day/") + today().toString(Qt::ISODate) +
                    memberSuffix(v.viewer, v.subject));
}

QHttpServerResponse WebApp::loginForm(const WebRequest &r, const QString &name, const QString &message,
                                      Status status)
{
    // A fresh token for the form, doubled in a cookie: a login POST must come from this form.
    const QByteArray token = WebSession::randomToken(24);
    WebPages::Login view;
    view.name = name;
    view.message = message;
    view.csrf = QString::fromLatin1(token);
    view.next = localTarget(r.isPost() ? r.field(QStringLiteral("next")) : r.param(QStringLiteral("next")));
    QHttpServerResponse response = htmlResponse(WebPages::login(view), status);
    response.addHeader("Set-Cookie",
                       WebSession::setCookie(WebSession::kLoginCookie, token, kLoginFormSecs, r.tls));
    return response;
}

QHttpServerResponse WebApp::loginPage(const WebRequest &r)
{
    SessionDB sessions(db());
    const qint64 now = ServerDB::now();
    if (!r.isPost()) {
        if (!r.sessionToken.isEmpty() && sessions.find(WebSession::tokenHash(r.sessionToken), now))
            return redirect(localTarget(r.param(QStringLiteral("next"))));
        return loginForm(r, QString(), QString(), Status::Ok);
    }
    const QString name = r.field(QStringLiteral("name")).trimmed();
    if (r.formTooLarge || !WebSession::sameToken(r.field(QStringLiteral("csrf")).toUtf8(), r.loginToken))
        return loginForm(r, name, QStringLiteral("The login form had expired. Please log in again."),
                         Status::Forbidden);
    qint64 memberId = -1;
    switch (AccountDB(db()).checkPassword(name, r.field(QStringLiteral("password")), r.address, &memberId)) {
    case AccountDB::Login::Wrong:
        return loginForm(r, name, QStringLiteral("Wrong name or password."), Status::Ok);
    case AccountDB::Login::Throttled:
        return loginForm(r, name,
                         QStringLiteral("Too many failed logins. Try again in a quarter of an hour."),
                         Status::TooManyRequests);
    case AccountDB::Login::Ok:
        break;
    }
    sessions.removeExpired(now);
    const QByteArray token = WebSession::randomToken(32);
    const QString csrf = QString::fromLatin1(WebSession::randomToken(24));
    const qint64 lifetime = qint64(_context.sessionDays) * 24 * 60 * 60;
    QString error;
    if (!sessions.create(WebSession::tokenHash(token), memberId, csrf, now, now + lifetime, &error)) {
        qCWarning(lcServer, "could not start a web session: %s", qUtf8Printable(error));
        return loginForm(r, name, QStringLiteral("The server could not log you in. Try again later."),
                         Status::InternalServerError);
    }
    QHttpServerResponse response = redirect(localTarget(r.field(QStringLiteral("next"))));
    response.addHeader("Set-Cookie",
                       WebSession::setCookie(WebSession::kSessionCookie, token, lifetime, r.tls));
    response.addHeader("Set-Cookie", WebSession::setCookie(WebSession::kLoginCookie, QByteArray(), 0, r.tls));
    return response;
}

QHttpServerResponse WebApp::logout(const WebRequest &r, const Visit &v)
{
    if (!r.isPost())
        return htmlResponse(
            WebPages::logoutConfirm(v.frame(QStringLiteral("Log out"), QString(), QString())));
    SessionDB(db()).remove(v.tokenHash);
    QHttpServerResponse response = redirect(QStringLiteral("/login"));
    response.addHeader("Set-Cookie",
                       WebSession::setCookie(WebSession::kSessionCookie, QByteArray(), 0, r.tls));
    return response;
}

QHttpServerResponse WebApp::day(const WebRequest &r, const Visit &v, const QString &dateText)
{
    static const QRegularExpression shape(QStringLiteral("^\\d{4}-\\d{2}-\\d{2}$"));
    const QDate date = QDate::fromString(dateText, Qt::ISODate);
    if (!shape.match(dateText).hasMatch() || !date.isValid())
        return notFound(v);
    ServerDiaryDB diary(db());
    WebPages::DayPage view{v.frame(longDayName(date), QStringLiteral("day"), r.path),
                           diary.day(v.subjectId, date), TargetDB(db()).targets(v.subjectId),
                           diary.lastPublish(v.subjectId)};
    view.day.date = date;
    return htmlResponse(WebPages::day(view));
}

QHttpServerResponse WebApp::calendar(const WebRequest &r, const Visit &v, const QString &monthText)
{
    static const QRegularExpression shape(QStringLiteral("^\\d{4}-\\d{2}$"));
    QDate first = QDate(today().year(), today().month(), 1);
    if (!monthText.isEmpty()) {
        first = QDate::fromString(monthText + QStringLiteral("-01"), Qt::ISODate);
        if (!shape.match(monthText).hasMatch() || !first.isValid())
            return notFound(v);
    }
    ServerDiaryDB diary(db());
    const QDate last = first.addMonths(1).addDays(-1);
    const QList<QDate> days = diary.loggedDays(v.subjectId, first, last);
    WebPages::CalendarPage view{v.frame(QLocale::c().toString(first, QStringLiteral("MMMM yyyy")),
                                        QStringLiteral("calendar"), r.path),
                                first.year(),
                                first.month(),
                                QSet<QDate>(days.cbegin(), days.cend()),
                                diary.diaryDays(v.subjectId, first, last),
                                today()};
    return htmlResponse(WebPages::calendar(view));
}

QHttpServerResponse WebApp::checkins(const WebRequest &r, const Visit &v)
{
    ServerDiaryDB diary(db());
    // The trend starts at the first weighing ever, so it has settled by the range's first day.
    const QList<PublishedCheckin> all = diary.checkins(v.subjectId, QDate(1900, 1, 1), QDate(9999, 12, 31));
    QString range = r.param(QStringLiteral("range"));
    QDate to = today();
    QDate from;
    if (range == QLatin1String("custom")) {
        from = QDate::fromString(r.param(QStringLiteral("from")), Qt::ISODate);
        to = QDate::fromString(r.param(QStringLiteral("to")), Qt::ISODate);
        if (!from.isValid() || !to.isValid() || to < from) {
            range = QStringLiteral("90");
            to = today();
        }
    } else if (range == QLatin1String("all")) {
        from = all.isEmpty() ? to.addDays(-29) : std::min(all.constFirst().date, to);
        if (!all.isEmpty())
            to = std::max(to, all.constLast().date);
    } else if (!QStringList{QStringLiteral("30"), QStringLiteral("182"), QStringLiteral("365")}.contains(
                   range)) {
        range = QStringLiteral("90");
    }
    if (range != QLatin1String("custom") && range != QLatin1String("all"))
        from = to.addDays(1 - range.toInt());

    WebPages::CheckinsPage view{
        v.frame(QStringLiteral("Check-ins"), QStringLiteral("checkins"), r.path), range, from, to, {}, {}};
    QList<WeightPoint> weighings;
    for (const PublishedCheckin &c : all) {
        if (c.weight && std::isfinite(*c.weight) && *c.weight > 0)
            weighings.append({c.date, *c.weight, 0.0});
    }
    smoothWeights(weighings);
    for (const WeightPoint &p : std::as_const(weighings)) {
        if (p.date >= from && p.date <= to)
            view.weighings.append(p);
    }
    for (auto c = all.crbegin(); c != all.crend(); ++c) {
        if (c->date >= from && c->date <= to)
            view.checkins.append(*c);
    }
    return htmlResponse(WebPages::checkins(view));
}

QHttpServerResponse WebApp::planPage(const WebRequest &r, const Visit &v, const QString &error)
{
    const QDate first = today(), last = first.addDays(kPlanDays);
    WebPages::PlanPage view;
    view.frame = v.frame(QStringLiteral("Meal plan"), QStringLiteral("plan"), QStringLiteral("/plan"));
    view.frame.notice = error;
    view.frame.error = !error.isEmpty();
    view.editable = v.own();
    view.first = first;
    view.last = last;
    view.planned = MealPlanDB(db()).planned(v.subjectId, first, last);
    // The add panel keeps what was chosen, from the search's link or a refused form.
    const auto value = [&r](const QString &name) { return r.isPost() ? r.field(name) : r.param(name); };
    view.addDate = QDate::fromString(value(QStringLiteral("date")), Qt::ISODate);
    if (!view.addDate.isValid() || view.addDate < first || view.addDate > last)
        view.addDate = first;
    const QString meal = value(QStringLiteral("meal"));
    view.addMeal =
        meal.size() == 1 && WebPages::kMealLetters.contains(meal.at(0)) ? meal.at(0) : QLatin1Char('B');
    if (!view.editable)
        return htmlResponse(WebPages::plan(view), error.isEmpty() ? Status::Ok : Status::BadRequest);
    view.query = value(QStringLiteral("q")).left(200);
    // "2 apples": two of the usual serving of what the words find, as in the program.
    const LeadingAmount lead = leadingAmount(view.query);
    QString unavailable;
    const QString foodText = value(QStringLiteral("food"));
    if (!view.query.isEmpty() || !foodText.isEmpty()) {
        if (!_foods.available(&unavailable))
            view.searchUnavailable = unavailable + QStringLiteral(" Food search is unavailable.");
    }
    if (view.searchUnavailable.isEmpty() && !foodText.isEmpty()) {
        bool ok = false;
        const int id = foodText.toInt(&ok);
        view.chosen = ok ? _foods.food(id) : std::nullopt;
        if (view.chosen) {
            bool servingOk = false;
            const int serving = value(QStringLiteral("serving")).toInt(&servingOk);
            view.servingId = servingOk ? serving : view.chosen->preferred.servingId;
            view.quantity = r.isPost()
                                ? r.field(QStringLiteral("qty"))
                                : quantityText(double(view.chosen->preferred.size) * lead.amount.value_or(1));
        }
    }
    if (view.searchUnavailable.isEmpty() && !view.chosen && !view.query.isEmpty())
        view.found = _foods.search(lead.rest, kSearchResults, &view.searchNote);
    return htmlResponse(WebPages::plan(view), error.isEmpty() ? Status::Ok : Status::BadRequest);
}

QHttpServerResponse WebApp::plan(const WebRequest &r, const Visit &v)
{
    if (!r.isPost())
        return planPage(r, v, QString());
    MealPlanDB plans(db());
    const QString action = r.field(QStringLiteral("action"));
    if (action == QLatin1String("remove")) {
        bool ok = false;
        const qint64 id = r.field(QStringLiteral("id")).toLongLong(&ok);
        if (!ok || !plans.remove(v.viewerId, id))
            return notFound(v);
        return redirect(QStringLiteral("/plan"));
    }
    if (action != QLatin1String("add"))
        return planPage(r, v, QStringLiteral("Nothing to do."));
    // The values are worked out here from the food database, never taken from the form.
    const QDate first = today(), last = first.addDays(kPlanDays);
    const QDate date = QDate::fromString(r.field(QStringLiteral("date")), Qt::ISODate);
    const QString meal = r.field(QStringLiteral("meal"));
    bool idOk = false, servingOk = false, qtyOk = false;
    const int foodId = r.field(QStringLiteral("food")).toInt(&idOk);
    const int servingId = r.field(QStringLiteral("serving")).toInt(&servingOk);
    // As the program takes it: a number, or a fraction as recipes write it ("1 1/2").
    const QString qtyText = r.field(QStringLiteral("qty")).trimmed();
    double qty = 0;
    if (const std::optional<double> fraction = fractionValue(qtyText)) {
        qty = *fraction;
        qtyOk = true;
    } else {
        qty = QLocale::c().toDouble(qtyText, &qtyOk);
    }
    if (!date.isValid() || date < first || date > last)
        return planPage(r, v, QStringLiteral("Choose a day of the coming week."));
    if (meal.size() != 1 || !WebPages::kMealLetters.contains(meal.at(0)))
        return planPage(r, v, QStringLiteral("Choose a meal."));
    const std::optional<ReferenceFood> food = idOk ? _foods.food(foodId) : std::nullopt;
    if (!food)
        return planPage(r, v, QStringLiteral("That food is not in the food database."));
    PlannedFood entry;
    if (!qtyOk || !servingOk || !WebFoodSearch::planEntry(*food, servingId, qty, &entry))
        return planPage(
            r, v,
            QStringLiteral(
                "Enter the quantity as a number (or a fraction, 1/2) greater than 0, and choose a serving."));
    entry.date = date;
    entry.meal = meal.at(0);
    QString error;
    if (plans.add(v.viewerId, entry, &error) < 0)
        return planPage(r, v, error);
    return redirect(QStringLiteral("/plan#plan-") + date.toString(Qt::ISODate));
}

QHttpServerResponse WebApp::targets(const WebRequest &r, const Visit &v)
{
    TargetDB targets(db());
    WebPages::TargetsPage view{v.frame(QStringLiteral("Targets"), QStringLiteral("targets"), r.path),
                               v.own(),
                               targets.targets(v.subjectId),
                               {}};
    if (!r.isPost())
        return htmlResponse(WebPages::targets(view));
    MemberTargets entered;
    QString error;
    for (int f = 0; f < MemberTargets::Count; ++f) {
        const QString text = r.field(QLatin1String(MemberTargets::kColumns[size_t(f)])).trimmed();
        view.entered.append(text);
        if (text.isEmpty())
            continue;
        bool ok = false;
        const double value = QLocale::c().toDouble(text, &ok);
        if (!ok && error.isEmpty())
            error = QStringLiteral("\u201c%1\u201d is not a number.").arg(text);
        entered.values[size_t(f)] = value;
    }
    if (error.isEmpty() && targets.setTargets(v.viewerId, entered, &error))
        return redirect(QStringLiteral("/targets"));
    view.frame.notice = error;
    view.frame.error = true;
    return htmlResponse(WebPages::targets(view), Status::BadRequest);
}

QHttpServerResponse WebApp::sharing(const WebRequest &r, const Visit &v)
{
    // Sharing is always about one's own diary.
    Visit own = v;
    own.subject = v.viewer;
    own.subjectId = v.viewerId;
    ShareDB shares(db());
    WebPages::SharingPage view{
        own.frame(QStringLiteral("Sharing"), QStringLiteral("sharing"), QString()), {}, {}};
    QHash<QString, qint64> ids;
    for (const Member &m : AccountDB(db()).members()) {
        if (m.id != v.viewerId) {
            view.others.append(m.name);
            ids.insert(m.name, m.id);
        }
    }
    if (r.isPost()) {
        QList<qint64> viewers;
        QString error;
        for (const QString &name : r.fields(QStringLiteral("viewer"))) {
            if (!ids.contains(name)) {
                error = QStringLiteral("There is no member called \u201c%1\u201d.").arg(name);
                break;
            }
            viewers.append(ids.value(name));
        }
        if (error.isEmpty() && shares.setViewers(v.viewerId, viewers, &error))
            return redirect(QStringLiteral("/sharing"));
        view.frame.notice = error;
        view.frame.error = true;
        view.viewers = shares.viewersOf(v.viewerId);
        return htmlResponse(WebPages::sharing(view), Status::BadRequest);
    }
    view.viewers = shares.viewersOf(v.viewerId);
    return htmlResponse(WebPages::sharing(view));
}

QHttpServerResponse WebApp::stats(const WebRequest &, const Visit &v)
{
    WebPages::StatsPage view{v.frame(QStringLiteral("Statistics"), QStringLiteral("stats"), QString()),
                             today().addDays(-89),
                             today(),
                             {}};
    view.days = MetricsDB(db()).days(view.from, view.to);
    return htmlResponse(WebPages::stats(view));
}

// The style sheet and the logo, compiled in.
QHttpServerResponse staticFile(const QString &name)
{
    static const QHash<QString, QByteArray> kTypes = {
        {QStringLiteral("tarnwell.css"), "text/css; charset=utf-8"},
        {QStringLiteral("tarnwell.svg"), "image/svg+xml"}};
    if (!kTypes.contains(name))
        return QHttpServerResponse(Status::NotFound);
    QFile file(QStringLiteral(":/tarnwell/web/") + name);
    if (!file.open(QIODevice::ReadOnly))
        return QHttpServerResponse(Status::NotFound);
    QHttpServerResponse response(kTypes.value(name), file.readAll());
    response.setHeader("Cache-Control", "public, max-age=86400");
    response.setHeader("X-Content-Type-Options", "nosniff");
    return response;
}

} // namespace

void addWebRoutes(QHttpServer &server, const WebContext &context)
{
    Q_ASSERT(context.db && context.pool);
    const auto app = std::make_shared<WebApp>(context);
    using Takes = WebApp::Takes;
    using Handler = QHttpServerResponse (WebApp::*)(const WebRequest &, const Visit &);
    using ArgHandler = QHttpServerResponse (WebApp::*)(const WebRequest &, const Visit &, const QString &);
    // One rule per path takes every method, so a page answers PUT and the like with 405 itself.
    const auto route = [&server, app](const QString &path, const WebApp::Page &page) {
        server.route<WebRule>(path, kAnyMethod, [app, page](const QHttpServerRequest &request) {
            return app->run(request, page);
        });
    };
    const auto member = [&route](const QString &path, Takes takes, Handler handler) {
        route(path, WebApp::forMembers(takes, handler));
    };
    // A page of the day or month the path names.
    const auto dated = [&server, app](const QString &path, ArgHandler handler) {
        server.route<WebRule>(
            path, kAnyMethod, [app, handler](const QString &arg, const QHttpServerRequest &request) {
                return app->run(request,
                                WebApp::forMembers(Takes::Get, [handler, arg](WebApp &a, const WebRequest &r,
                                                                              const Visit &v) {
                                    return (a.*handler)(r, v, arg);
                                }));
            });
    };
    member(QStringLiteral("/"), Takes::Get, &WebApp::home);
    route(QStringLiteral("/login"), &WebApp::loginPage);
    member(QStringLiteral("/logout"), Takes::GetAndPost, &WebApp::logout);
    dated(QStringLiteral("/day/<arg>"), &WebApp::day);
    member(QStringLiteral("/calendar"), Takes::Get, &WebApp::thisMonth);
    dated(QStringLiteral("/calendar/<arg>"), &WebApp::calendar);
    member(QStringLiteral("/checkins"), Takes::Get, &WebApp::checkins);
    member(QStringLiteral("/plan"), Takes::GetAndPost, &WebApp::plan);
    member(QStringLiteral("/targets"), Takes::GetAndPost, &WebApp::targets);
    member(QStringLiteral("/sharing"), Takes::GetAndPost, &WebApp::sharing);
    member(QStringLiteral("/stats"), Takes::Get, &WebApp::stats);
    server.route(QStringLiteral("/static/<arg>"), QHttpServerRequest::Method::Get,
                 [](const QString &name) { return staticFile(name); });
}
