// The web pages of a real tarnwell-server on the loopback address, against a real SQLite store and
// a reference database written for the run and published with publish-db; then a real headless
// chromium that logs in through the form and reads the rendered pages.

#include "childprocess.h"
#include "httptestserver.h"
#include "pgcluster.h"
#include "server/accountdb.h"
#include "server/mealplandb.h"
#include "server/metricsdb.h"
#include "server/serverdb.h"
#include "server/serverdiarydb.h"
#include "staticdb/staticdbwriter.h"
#include "testsupport.h"
#include "webclient.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QStandardPaths>
#include <QTcpServer>
#include <QWebSocket>

#include <algorithm>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kPassword = u"correct horse"_s;

// A reference database with a few foods, one of them named with markup.
bool writeFoods(const QString &path)
{
    const auto food = [](quint32 id, const char *name, float calories, float carbs, float fat,
                         float protein) {
        StaticDbNode n;
        n.id = id;
        n.name = name;
        std::vector<std::optional<float>> values(30);
        values[POS_CALORIES] = calories;
        values[POS_CARB] = carbs;
        values[POS_FAT] = fat;
        values[POS_PROTEIN] = protein;
        n.payload = StaticDbWriter::foodPayload(id, "test", values, 'M', 100.0f,
                                                {{125.0f, "1 cup, sliced"}, {182.0f, "1 medium (3\" dia)"}});
        return n;
    };
    StaticDbNode fruits;
    fruits.category = true;
    fruits.id = 1;
    fruits.name = "Fruits";
    fruits.children = {food(100, "Apples, raw", 52, 13.8f, 0.2f, 0.3f),
                       food(101, "Apple crisp <b>baked</b>", 200, 30, 8, 2)};
    StaticDbNode root;
    root.category = true;
    root.children = {fruits};
    StaticDbNode walking; // the exercises' chunk must hold something, as the program's does
    walking.id = 200;
    walking.name = "Walking";
    walking.payload = StaticDbWriter::exercisePayload(0.06f);
    StaticDbNode exercises;
    exercises.category = true;
    exercises.children = {walking};
    StaticDbWriter writer(QDate(2026, 1, 1));
    writer.addChunk(1, root);
    writer.addChunk(2, exercises);
    QString error;
    return writer.write(path, &error);
}

PublishedFood food(QChar meal, const QString &desc, double qty, const QString &serving, double calories)
{
    PublishedFood f;
    f.meal = meal;
    f.desc = desc;
    f.qty = qty;
    f.serving = serving;
    // calories, fat, fibre, protein, carbs, ..., sodium in the order of kFoodValueNames
    f.values[0] = calories;
    f.values[1] = calories / 30;
    f.values[2] = calories / 100;
    f.values[3] = calories / 25;
    f.values[4] = calories / 8;
    f.values[7] = calories * 1.5;
    return f;
}

} // namespace

class TestServerWeb : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void login_data();
    void login();
    void pages_data();
    void pages();
    void refusedPosts_data();
    void refusedPosts();
    void sharing();
    void planEditor();
    void chromium();

private:
    QString snapshot(); // the tables the pages change, as text
    QString day(int daysAgo) const { return _today.addDays(-daysAgo).toString(Qt::ISODate); }

    TemporaryHome _home;
    PgCluster _pg; // when the suite runs on PostgreSQL
    QDate _today = QDate::currentDate();
    std::unique_ptr<ServerDB> _db; // the test's own connection to the server's store
    // The server: tarnwell-server serve on a free loopback port, plain HTTP and TLS on it.
    QProcess _server;
    HttpTestServer _certificates; // makes and keeps the certificate
    QList<QSslCertificate> _chain;
    QString _base, _tlsBase;
    qint64 _ann = -1;
};

void TestServerWeb::initTestCase()
{
    QVERIFY(_home.isValid());
    // The same pages on either store; CTest runs the suite once with each.
    QString url = u"sqlite:"_s + _home.path() + u"/diary.sqlite"_s;
    QString error;
    if (qgetenv("TARNWELL_TEST_DATABASE") == "postgresql") {
        if (!PgCluster::available(&error))
            QSKIP(qPrintable(error));
        QVERIFY2(_pg.start(&error), qPrintable(error));
        url = _pg.emptyDatabase(&error);
        QVERIFY2(!url.isEmpty(), qPrintable(error));
    }
    const QString foods = _home.path() + u"/static.db"_s;
    QVERIFY(writeFoods(foods));
    _db = std::make_unique<ServerDB>(url);
    QVERIFY2(_db->open(&error), qPrintable(error));
    AccountDB accounts(*_db);
    for (const QString &name : {u"ann"_s, u"bob"_s, u"cat"_s, u"dan"_s})
        QVERIFY2(accounts.addMember(name, kPassword, &error), qPrintable(error));
    _ann = accounts.member(u"ann"_s)->id;

    DiaryUpdate update;
    PublishedDay d2{_today.addDays(-2),
                    {food(QLatin1Char('B'), u"Oatmeal"_s, 1, u"cup"_s, 150),
                     food(QLatin1Char('L'), u"Chicken sandwich"_s, 1, u"sandwich"_s, 420),
                     food(QLatin1Char('S'), u"<script>alert(\"x\")</script> & crisps"_s, 2, u"bag"_s, 300)},
                    {{30, u"Walking"_s, 150}}};
    update.days = {d2};
    for (const auto &[ago, kg] : {std::pair{10, 80.0}, {5, 78.0}, {2, 79.0}}) {
        PublishedCheckin c;
        c.date = _today.addDays(-ago);
        c.weight = kg;
        update.checkins.append(c);
    }
    update.waters = {{_today.addDays(-2), 6}};
    QVERIFY2(ServerDiaryDB(*_db).apply(_ann, update, &error), qPrintable(error));
    QVERIFY2(MetricsDB(*_db).add({{_today.addDays(-3), MetricsCount::Start, 7}}, &error), qPrintable(error));

    // The reference database goes out as the programs' update; the plan editor searches that.
    const QString data = _home.path() + u"/server"_s;
    const QString program = binDir() + u"/tarnwell-server"_s;
    QProcess publish;
    publish.setProcessEnvironment(_home.environment());
    publish.start(program, {u"publish-db"_s, foods, u"--data"_s, data, u"--database"_s, url});
    QVERIFY(publish.waitForFinished(60000));
    QVERIFY2(publish.exitCode() == 0, publish.readAllStandardError().constData());

    QTcpServer probe; // a port free right now
    QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
    const quint16 port = probe.serverPort();
    probe.close();
    QStringList arguments{
        u"serve"_s, u"--listen"_s,    u"127.0.0.1:%1"_s.arg(port), u"--data"_s, data, u"--database"_s,
        url,        u"--no-metrics"_s};
    const QString certificate = _certificates.makeCertificate();
    if (!certificate.isEmpty()) {
        _chain = QSslCertificate::fromPath(certificate);
        arguments << u"--tls-cert"_s << certificate << u"--tls-key"_s
                  << QFileInfo(certificate).dir().filePath(u"key.pem"_s);
        _tlsBase = u"https://127.0.0.1:%1"_s.arg(port);
    }
    _server.setProcessEnvironment(_home.environment());
    _server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    endWithParent(_server);
    _server.start(program, arguments);
    QElapsedTimer started;
    started.start();
    while (!_server.readAllStandardOutput().contains("listening on") && started.elapsed() < 30000 &&
           _server.state() != QProcess::NotRunning)
        _server.waitForReadyRead(200);
    QCOMPARE(_server.state(), QProcess::Running);
    _base = u"http://127.0.0.1:%1"_s.arg(port);

    // Targets through the form, so that the day page has something to stand against.
    Client ann(_base);
    QVERIFY(ann.logIn(u"ann"_s, kPassword));
    ann.get(u"/targets"_s);
    QCOMPARE(
        ann.post(u"/targets"_s, {{u"csrf"_s, ann.csrf()}, {u"energy"_s, u"2000"_s}, {u"protein"_s, u"50"_s}})
            .status,
        303);
}

void TestServerWeb::cleanupTestCase()
{
    _server.terminate();
    if (!_server.waitForFinished(10000))
        _server.kill();
}

QString TestServerWeb::snapshot()
{
    QString text;
    QSqlQuery query(_db->connection());
    for (const char *sql :
         {"SELECT * FROM targets ORDER BY member_id", "SELECT * FROM shares ORDER BY owner_id, viewer_id",
          "SELECT * FROM meal_plans ORDER BY id",
          "SELECT token_hash, csrf FROM sessions ORDER BY token_hash"}) {
        if (!ServerDB::exec(query, QLatin1String(sql)))
            return u"unreadable"_s;
        while (query.next()) {
            for (int c = 0; c < query.record().count(); ++c)
                text += query.value(c).toString() + QLatin1Char('|');
            text += QLatin1Char('\n');
        }
    }
    return text;
}

void TestServerWeb::login_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("password");
    QTest::addColumn<bool>("withToken");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("says");       // the page's message; where a login leads
    QTest::addColumn<int>("failuresBefore"); // wrong passwords sent first
    QTest::addColumn<QString>("next");       // the form's place to go once logged in
    QTest::addColumn<bool>("tls");
    QTest::newRow("right") << u"bob"_s << kPassword << true << 303 << u"/calendar"_s << 0 << u"/calendar"_s
                           << false;
    QTest::newRow("right, over TLS") << u"cat"_s << kPassword << true << 303 << u"/"_s << 0 << QString()
                                     << true;
    QTest::newRow("right, another site next")
        << u"bob"_s << kPassword << true << 303 << u"/"_s << 0 << u"//elsewhere.example/"_s << false;
    QTest::newRow("right, tab trick")
        << u"bob"_s << kPassword << true << 303 << u"/"_s << 0 << u"/\t/elsewhere.example/"_s << false;
    QTest::newRow("wrong password") << u"bob"_s << u"horse"_s << true << 200 << u"Wrong name or password."_s
                                    << 0 << QString() << false;
    QTest::newRow("unknown member") << u"zed"_s << kPassword << true << 200 << u"Wrong name or password."_s
                                    << 0 << QString() << false;
    QTest::newRow("no form token") << u"bob"_s << kPassword << false << 403 << u"The login form had expired"_s
                                   << 0 << QString() << false;
    QTest::newRow("after five failures")
        << u"dan"_s << kPassword << true << 429 << u"Too many failed logins"_s << 5 << QString() << false;
}

void TestServerWeb::login()
{
    QFETCH(QString, name);
    QFETCH(QString, password);
    QFETCH(bool, withToken);
    QFETCH(int, status);
    QFETCH(QString, says);
    QFETCH(int, failuresBefore);
    QFETCH(QString, next);
    QFETCH(bool, tls);
    if (tls && _tlsBase.isEmpty())
        QSKIP("the openssl tool is missing: the server runs without a certificate");
    Client client(tls ? _tlsBase : _base, _chain);
    QCOMPARE(client.get(u"/day/"_s + day(2)).status, 303);
    for (int i = 0; i < failuresBefore; ++i)
        QVERIFY(!client.logIn(name, u"guess %1"_s.arg(i)));
    const Client::Reply form = client.get(u"/login"_s);
    const Client::Reply reply = client.post(u"/login"_s, {{u"csrf"_s, withToken ? client.csrf() : QString()},
                                                          {u"name"_s, name},
                                                          {u"password"_s, password},
                                                          {u"next"_s, next}});
    QCOMPARE(reply.status, status);
    if (status != 303)
        QVERIFY(QString::fromUtf8(reply.body).contains(says));
    const bool session =
        std::any_of(reply.setCookies.cbegin(), reply.setCookies.cend(), [](const QByteArray &c) {
            return c.startsWith("tarnwell_session=") && !c.contains("Max-Age=0");
        });
    QCOMPARE(session, status == 303);
    if (status != 303)
        return;
    QCOMPARE(QString::fromUtf8(reply.location), says);
    for (const char *attribute : {"HttpOnly", "SameSite=Strict", "Path=/"})
        QVERIFY(reply.setCookies.constFirst().contains(attribute));
    // The session's cookie and the login form's, set and cleared, are Secure exactly over TLS.
    QCOMPARE(reply.setCookies.size(), 2);
    for (const QByteArray &cookie : reply.setCookies + form.setCookies)
        QCOMPARE(cookie.contains("; Secure"), tls);
    QCOMPARE(client.get(u"/day/"_s + day(2)).status, 200);
    client.get(u"/logout"_s);
    QCOMPARE(client.post(u"/logout"_s, {{u"csrf"_s, client.csrf()}}).status, 303);
    QCOMPARE(client.get(u"/day/"_s + day(2)).status, 303);
}

void TestServerWeb::pages_data()
{
    QTest::addColumn<QString>("member");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("shown");
    const QString d2 = day(2);
    // Worked out by hand: 150 + 420 + 300 eaten, 150 burned, net 720 of 2000.
    QTest::newRow("day") << u"ann"_s << u"/day/"_s + d2 << 200
                         << QStringList{u"Oatmeal"_s,
                                        u"Chicken sandwich"_s,
                                        u"Walking"_s,
                                        u"Breakfast"_s,
                                        u"Snacks"_s,
                                        u">870<"_s,
                                        u"1280 cals left"_s,
                                        u"6 glasses"_s,
                                        u"79.0 kg"_s,
                                        u"no target"_s,
                                        u"&lt;script&gt;alert(&quot;x&quot;)&lt;/script&gt; &amp; crisps"_s};
    QTest::newRow("calendar") << u"ann"_s << u"/calendar/"_s + d2.left(7) << 200
                              << QStringList{u"class=\"logged\"><a href=\"/day/"_s + d2 + u"\""_s,
                                             u">720 cals<"_s,         // net, as on the day's page
                                             u"title=\"entries\""_s}; // a day of check-in alone
    // Trend 80, then 79.8, then 79.72.
    QTest::newRow("check-ins") << u"ann"_s << u"/checkins?range=30"_s << 200
                               << QStringList{u"<svg class=\"weightchart\""_s,
                                              u"trend 79.7 kg, \u22120.3 kg since"_s, u"79.8"_s};
    QTest::newRow("statistics") << u"bob"_s << u"/stats"_s << 200
                                << QStringList{u"<td class=\"num\">7</td>"_s};
    QTest::newRow("no such day") << u"ann"_s << u"/day/2025-02-30"_s << 404 << QStringList{u"no such page"_s};
    QTest::newRow("wrong method") << u"ann"_s << u"/day/"_s + d2 << 405 << QStringList{};
}

void TestServerWeb::pages()
{
    QFETCH(QString, member);
    QFETCH(QString, path);
    QFETCH(int, status);
    QFETCH(QStringList, shown);
    Client client(_base);
    QVERIFY(client.logIn(member, kPassword));
    const Client::Reply reply = client.send(status == 405 ? "PUT" : "GET", path);
    QCOMPARE(reply.status, status);
    const QString html = QString::fromUtf8(reply.body);
    for (const QString &text : shown)
        QVERIFY2(html.contains(text), qPrintable(text));
    QVERIFY(!html.contains(u"<script"_s));
}

void TestServerWeb::refusedPosts_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QStringList>("fields"); // name, value, ...
    QTest::addColumn<QString>("token");      // "" none, "session" the right one, else as given
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("says");
    const QString tomorrow = _today.addDays(1).toString(Qt::ISODate);
    const QStringList add{u"action"_s, u"add"_s, u"food"_s, u"100"_s, u"serving"_s, u"1"_s,
                          u"qty"_s,    u"1"_s,   u"date"_s, tomorrow, u"meal"_s,    u"B"_s};
    QTest::newRow("targets, no token")
        << u"/targets"_s << QStringList{u"energy"_s, u"1"_s} << u""_s << 403 << u"did not come from"_s;
    QTest::newRow("targets, forged token")
        << u"/targets"_s << QStringList{u"energy"_s, u"1"_s} << u"forged"_s << 403 << u"did not come from"_s;
    QTest::newRow("sharing, no token")
        << u"/sharing"_s << QStringList{u"viewer"_s, u"bob"_s} << u""_s << 403 << u"did not come from"_s;
    QTest::newRow("plan, no token") << u"/plan"_s << add << u""_s << 403 << u"did not come from"_s;
    QTest::newRow("log out, no token")
        << u"/logout"_s << QStringList{} << u""_s << 403 << u"did not come from"_s;
    QTest::newRow("day, shows only") << u"/day/"_s + day(2) << QStringList{} << u"session"_s << 405
                                     << u"does not take that kind"_s;
    QTest::newRow("targets, not a number") << u"/targets"_s << QStringList{u"energy"_s, u"lots"_s}
                                           << u"session"_s << 400 << u"is not a number"_s;
    QTest::newRow("targets, too large")
        << u"/targets"_s << QStringList{u"sodium"_s, u"1e9"_s} << u"session"_s << 400 << u"from 0 to"_s;
    QTest::newRow("sharing, unknown member") << u"/sharing"_s << QStringList{u"viewer"_s, u"zed"_s}
                                             << u"session"_s << 400 << u"no member called"_s;
    QStringList negative = add;
    negative[7] = u"-2"_s;
    QTest::newRow("plan, negative quantity")
        << u"/plan"_s << negative << u"session"_s << 400 << u"greater than 0"_s;
    QStringList lastYear = add;
    lastYear[9] = _today.addYears(-1).toString(Qt::ISODate);
    QTest::newRow("plan, day out of the week")
        << u"/plan"_s << lastYear << u"session"_s << 400 << u"coming week"_s;
    QTest::newRow("plan, someone's entry")
        << u"/plan"_s << QStringList{u"action"_s, u"remove"_s, u"id"_s, u"999999"_s} << u"session"_s << 404
        << u"no such page"_s;
}

void TestServerWeb::refusedPosts()
{
    QFETCH(QString, path);
    QFETCH(QStringList, fields);
    QFETCH(QString, token);
    QFETCH(int, status);
    QFETCH(QString, says);
    Client client(_base);
    QVERIFY(client.logIn(u"ann"_s, kPassword));
    client.get(path);
    QList<QPair<QString, QString>> form;
    if (!token.isEmpty())
        form.append({u"csrf"_s, token == QLatin1String("session") ? client.csrf() : token});
    for (qsizetype i = 0; i + 1 < fields.size(); i += 2)
        form.append({fields[i], fields[i + 1]});
    const QString before = snapshot();
    const Client::Reply reply = client.post(path, form);
    QCOMPARE(reply.status, status);
    QVERIFY2(QString::fromUtf8(reply.body).contains(says), reply.body.constData());
    QCOMPARE(snapshot(), before);
    const Client::Reply home = client.get(u"/"_s); // still logged in
    QVERIFY(home.status == 303 && !home.location.startsWith("/login"));
}

void TestServerWeb::sharing()
{
    Client ann(_base), bob(_base);
    QVERIFY(ann.logIn(u"ann"_s, kPassword));
    QVERIFY(bob.logIn(u"bob"_s, kPassword));
    const QString annsDay = u"/day/"_s + day(2) + u"?member=ann"_s;
    const QByteArray unknown = bob.get(u"/day/"_s + day(2) + u"?member=zed"_s).body;
    const auto share = [&](const QStringList &viewers) {
        ann.get(u"/sharing"_s);
        QList<QPair<QString, QString>> form{{u"csrf"_s, ann.csrf()}};
        for (const QString &v : viewers)
            form.append({u"viewer"_s, v});
        return ann.post(u"/sharing"_s, form).status;
    };
    QCOMPARE(share({u"bob"_s}), 303);
    Client::Reply shown = bob.get(annsDay);
    QCOMPARE(shown.status, 200);
    QVERIFY(shown.body.contains("Oatmeal"));
    QVERIFY(shown.body.contains("<option value=\"ann\" selected>"));
    QVERIFY(!bob.get(u"/day/"_s + day(2)).body.contains("Oatmeal"));              // bob's own day
    QVERIFY(!bob.get(u"/targets?member=ann"_s).body.contains("name=\"energy\"")); // read-only
    QCOMPARE(share({}), 303);
    const Client::Reply hidden = bob.get(annsDay);
    QCOMPARE(hidden.status, 404);
    QCOMPARE(hidden.body, unknown); // no hint that ann exists
}

void TestServerWeb::planEditor()
{
    Client ann(_base);
    QVERIFY(ann.logIn(u"ann"_s, kPassword));
    const QString found = QString::fromUtf8(ann.get(u"/plan?q=2+apple"_s).body);
    QVERIFY(found.contains(QLatin1String(">Apples, raw</a>")));
    QVERIFY(found.contains(QLatin1String("Apple crisp &lt;b&gt;baked&lt;/b&gt;")));
    const QString date = _today.addDays(3).toString(Qt::ISODate);
    const QString chosen = QString::fromUtf8(ann.get(u"/plan?food=100&meal=L&q=2+apple&date="_s + date).body);
    QVERIFY2(chosen.contains(u"1 medium (3&quot; dia) \u2013 95 cals"_s), qPrintable(chosen));
    QVERIFY(
        chosen.contains(u"name=\"qty\" inputmode=\"decimal\" size=\"6\" value=\"2\""_s)); // as many as sought
    const Client::Reply added = ann.post(u"/plan"_s, {{u"csrf"_s, ann.csrf()},
                                                      {u"action"_s, u"add"_s},
                                                      {u"food"_s, u"100"_s},
                                                      {u"serving"_s, u"2"_s},
                                                      {u"qty"_s, u"1 1/2"_s},
                                                      {u"date"_s, date},
                                                      {u"meal"_s, u"L"_s}});
    QCOMPARE(added.status, 303);
    // One and a half of 182 g at 52 cals per 100 g, typed as a recipe writes it.
    const QList<PlannedFood> planned = MealPlanDB(*_db).planned(_ann, _today, _today.addDays(7));
    QCOMPARE(planned.size(), 1);
    QCOMPARE(planned[0].foodName, u"Apples, raw"_s);
    QCOMPARE(planned[0].meal, QLatin1Char('L'));
    QCOMPARE(qRound(planned[0].calories.value_or(-1)), 142);
    QVERIFY(!planned[0].fiber); // the reference food does not know it
    const QString page = QString::fromUtf8(ann.get(u"/plan"_s).body);
    QVERIFY(page.contains(QLatin1String("<td class=\"num\">142</td>")));
    QCOMPARE(ann.post(u"/plan"_s, {{u"csrf"_s, ann.csrf()},
                                   {u"action"_s, u"remove"_s},
                                   {u"id"_s, QString::number(planned[0].id)}})
                 .status,
             303);
    QVERIFY(MealPlanDB(*_db).planned(_ann, _today, _today.addDays(7)).isEmpty());
}

// Chromium driven through its DevTools protocol on a WebSocket: a real browser submits the
// login form, keeps the cookie and renders the pages.
class Chromium : public QObject
{
public:
    ~Chromium() override
    {
        if (_socket.state() == QAbstractSocket::ConnectedState) {
            call(u"Browser.close"_s);
            _process.waitForFinished(10000);
        }
        if (_process.state() != QProcess::NotRunning) {
            _process.kill();
            _process.waitForFinished(5000);
        }
    }

    bool start(const QString &program, QString *why)
    {
        if (!_profile.isValid())
            return false;
        _process.setProgram(program);
        _process.setArguments({u"--headless"_s, u"--no-sandbox"_s, u"--disable-gpu"_s, u"--disable-quic"_s,
                               u"--no-first-run"_s, u"--disable-background-networking"_s,
                               u"--disable-component-update"_s, u"--disable-sync"_s, u"--hide-scrollbars"_s,
                               u"--window-size=1200,900"_s, u"--remote-debugging-port=0"_s,
                               u"--user-data-dir="_s + _profile.path(), u"about:blank"_s});
        _process.setStandardErrorFile(QProcess::nullDevice()); // its complaints about D-Bus
        _process.start();
        // The browser writes the port it chose into its profile, and opens its first page a
        // moment later: both are waited for, a busy machine takes its time.
        QElapsedTimer timer;
        timer.start();
        QByteArray port;
        QString page;
        QNetworkAccessManager network;
        while (page.isEmpty() && timer.elapsed() < 30000 && _process.state() != QProcess::NotRunning) {
            QFile portFile(_profile.path() + u"/DevToolsActivePort"_s);
            if (port.isEmpty() && portFile.open(QIODevice::ReadOnly))
                port = portFile.readLine().trimmed();
            if (!port.isEmpty()) {
                QNetworkReply *list = network.get(
                    QNetworkRequest(QUrl(u"http://127.0.0.1:%1/json/list"_s.arg(QString::fromLatin1(port)))));
                QSignalSpy(list, &QNetworkReply::finished).wait(5000);
                for (const QJsonValue &target : QJsonDocument::fromJson(list->readAll()).array()) {
                    if (target[QLatin1String("type")].toString() == QLatin1String("page"))
                        page = target[QLatin1String("webSocketDebuggerUrl")].toString();
                }
                delete list;
            }
            if (page.isEmpty())
                QTest::qWait(100);
        }
        if (port.isEmpty()) {
            *why = u"chromium did not open its debugging port"_s;
            return false;
        }
        connect(&_socket, &QWebSocket::textMessageReceived, this, [this](const QString &text) {
            _messages.append(QJsonDocument::fromJson(text.toUtf8()).object());
        });
        QSignalSpy connected(&_socket, &QWebSocket::connected);
        _socket.open(QUrl(page));
        if (page.isEmpty() || !connected.wait(20000)) {
            *why = u"could not reach chromium's page"_s;
            return false;
        }
        call(u"Page.enable"_s);
        return true;
    }

    QJsonObject call(const QString &method, const QJsonObject &params = {})
    {
        const int id = ++_lastId;
        _socket.sendTextMessage(QString::fromUtf8(
            QJsonDocument(QJsonObject{{u"id"_s, id}, {u"method"_s, method}, {u"params"_s, params}})
                .toJson(QJsonDocument::Compact)));
        const QJsonObject reply =
            waitMessage([id](const QJsonObject &m) { return m[QLatin1String("id")].toInt() == id; });
        return reply[QLatin1String("result")].toObject();
    }
    // Runs a step that makes the page load, and waits until it has.
    bool loads(const std::function<void()> &step)
    {
        const auto loaded = [](const QJsonObject &m) {
            return m[QLatin1String("method")] == QLatin1String("Page.loadEventFired");
        };
        _messages.removeIf(loaded);
        step();
        return !waitMessage(loaded).isEmpty();
    }
    bool open(const QString &url)
    {
        return loads([&] { call(u"Page.navigate"_s, {{u"url"_s, url}}); });
    }
    QString evaluate(const QString &script)
    {
        const QJsonObject result =
            call(u"Runtime.evaluate"_s, {{u"expression"_s, script}, {u"returnByValue"_s, true}});
        return result[QLatin1String("result")][QLatin1String("value")].toVariant().toString();
    }
    // The whole page as PNG.
    bool screenshot(const QString &path)
    {
        const QJsonObject size = call(u"Page.getLayoutMetrics"_s)[QLatin1String("cssContentSize")].toObject();
        const QJsonObject shot = call(u"Page.captureScreenshot"_s,
                                      {{u"format"_s, u"png"_s},
                                       {u"captureBeyondViewport"_s, true},
                                       {u"clip"_s, QJsonObject{{u"x"_s, 0},
                                                               {u"y"_s, 0},
                                                               {u"width"_s, size[QLatin1String("width")]},
                                                               {u"height"_s, size[QLatin1String("height")]},
                                                               {u"scale"_s, 1}}}});
        QFile file(path);
        const QByteArray png = QByteArray::fromBase64(shot[QLatin1String("data")].toString().toLatin1());
        return png.startsWith("\x89PNG") && file.open(QIODevice::WriteOnly) && file.write(png) == png.size();
    }

private:
    QJsonObject waitMessage(const std::function<bool(const QJsonObject &)> &wanted)
    {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 20000) {
            for (qsizetype i = 0; i < _messages.size(); ++i) {
                if (wanted(_messages[i]))
                    return _messages.takeAt(i);
            }
            QTest::qWait(10);
        }
        return {};
    }

    QTemporaryDir _profile;
    QProcess _process;
    QWebSocket _socket;
    QList<QJsonObject> _messages;
    int _lastId = 0;
};

void TestServerWeb::chromium()
{
    const QString program = QStandardPaths::findExecutable(u"chromium"_s);
    if (program.isEmpty())
        QSKIP("chromium is not installed");
    Chromium browser;
    QString why;
    QVERIFY2(browser.start(program, &why), qPrintable(why));
    // Screenshots for people to look at go where TARNWELL_SHOTS_DIR says, else into the run's home.
    const QString shots = qEnvironmentVariableIsEmpty("TARNWELL_SHOTS_DIR")
                              ? _home.path()
                              : qEnvironmentVariable("TARNWELL_SHOTS_DIR");
    const QString dayPath = u"/day/"_s + day(2);
    QVERIFY(browser.open(_base + dayPath));
    QCOMPARE(browser.evaluate(u"location.pathname"_s), u"/login"_s);
    QVERIFY(browser.loads([&] {
        browser.evaluate(QStringLiteral("document.getElementById('name').value = 'ann';"
                                        "document.getElementById('password').value = '%1';"
                                        "document.querySelector('section.login button').click(); 1")
                             .arg(kPassword));
    }));
    QCOMPARE(browser.evaluate(u"location.pathname"_s), dayPath);
    QVERIFY(!browser.evaluate(u"document.cookie"_s).contains(QLatin1String("tarnwell_session")));
    QCOMPARE(browser.evaluate(u"document.querySelectorAll('tr.mealrow').length"_s), u"5"_s);
    QCOMPARE(browser.evaluate(u"document.querySelector('tbody.meal#meal-S td.name').textContent"_s),
             u"<script>alert(\"x\")</script> & crisps"_s);
    QVERIFY(browser.evaluate(u"getComputedStyle(document.querySelector('.brandbar')).backgroundColor"_s)
                .contains(QLatin1String("46, 157, 91")));
    QVERIFY(browser.screenshot(shots + u"/day.png"_s));

    QVERIFY(browser.open(_base + u"/calendar/"_s + day(2).left(7)));
    QCOMPARE(browser.evaluate(u"document.querySelector('td.logged a[href=\"%1\"]') !== null"_s.arg(dayPath)),
             u"true"_s);
    QVERIFY(browser.screenshot(shots + u"/calendar.png"_s));

    QVERIFY(browser.open(_base + u"/checkins?range=30"_s));
    QCOMPARE(browser.evaluate(u"document.querySelectorAll('svg.weightchart circle.weighing').length"_s),
             u"4"_s); // three weighings and the key's
    QCOMPARE(
        browser.evaluate(u"(() => { const ys = [...document.querySelectorAll('svg.weightchart line.grid')]"
                         ".map(l => +l.getAttribute('y1'));"
                         "return [...document.querySelectorAll('svg.weightchart circle.weighing')]"
                         ".filter(c => c.querySelector('title')).every(c => +c.getAttribute('cy') > "
                         "Math.min(...ys) && +c.getAttribute('cy') < Math.max(...ys)); })()"_s),
        u"true"_s); // none on the frame
    QVERIFY(browser.evaluate(u"document.querySelector('svg.weightchart').getBoundingClientRect().height"_s)
                .toDouble() > 200);
    QVERIFY(browser.screenshot(shots + u"/checkins.png"_s));

    QVERIFY(browser.open(_base + u"/plan?food=100&meal=L&q=apple&date="_s +
                         _today.addDays(1).toString(Qt::ISODate)));
    QCOMPARE(
        browser.evaluate(u"document.querySelector('select[name=serving]').selectedOptions[0].textContent"_s),
        u"1 medium (3\" dia) \u2013 95 cals"_s);
    QVERIFY(browser.screenshot(shots + u"/plan.png"_s));
}

QTEST_GUILESS_MAIN(TestServerWeb)
#include "tst_serverweb.moc"
