// Meal plan download and usage metrics against our own server on the loopback address (as the
// proxy; metrics through a CONNECT tunnel with TLS), also behind a real forward proxy, and the web
// commands of the command-line tool: their failures and their interruption by a signal.

#include "app/webserver.h"
#include "db/diarydb.h"
#include "db/savedmealdb.h"
#include "db/userdb.h"
#include "dbfixture.h"
#include "httptestserver.h"
#include "model/dateconversion.h"
#include "net/mealplandownload.h"
#include "net/metrics.h"
#include "staticdb/staticdbupdater.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QSignalSpy>

#include <csignal>

namespace {

QString today(int days = 0)
{
    return DateConversion::fromQDate(QDate::currentDate().addDays(days));
}

QByteArray food(const char *nameAttribute, const QString &name, const QString &date, const char *more)
{
    return "<food " + QByteArray(nameAttribute) + "=\"" + name.toUtf8() +
           "\" qty=\"1\" meal=\"Lunch\" date=\"" + date.toLatin1() + "\" " + more + "/>";
}

} // namespace

class TestWebServices : public QObject
{
    Q_OBJECT

private:
    DbFixture _db;
    HttpTestServer _server;
    int _user = -1;

private slots:
    void init()
    {
        _user = _db.startWithWebProfile(
            "<string id=\"mealplan_auth_url\" value=\"http://diary.example/plan?u=${USERNAME}&amp;\"/>"
            "<string id=\"metrics_auth_url\" "
            "value=\"https://localhost/metrics?p=${PRODUCT}&amp;u=${USERNAME}\"/>"
            "<string id=\"publish_auth_url\" value=\"http://diary.example/publish?u=${USERNAME}\"/>"
            "<string id=\"update_rss_url\" value=\"http://diary.example/update.rss\"/>"
            "<bool id=\"update_enabled\" value=\"true\"/>");
        QVERIFY(_user >= 0);
        QVERIFY(_server.start());
        _server.requests.clear();
        LmSettings::writeValue(QStringLiteral("proxySettings"),
                               QStringLiteral("127.0.0.1:%1").arg(_server.serverPort()));
    }
    void cleanup()
    {
        _server.close();
        _db.stop();
    }

    void mealPlan_data();
    void mealPlan();
    void mealPlanWeekAlreadyPlanned();
    void weightTrend_data();
    void weightTrend();
    void metrics_data();
    void metrics();
    void throughForwardProxy_data();
    void throughForwardProxy();
    void commandLine_data();
    void commandLine();
    void ownServerAddresses_data();
    void ownServerAddresses();
    void ownServerRequests_data();
    void ownServerRequests();

private:
    struct CliRun
    {
        int status = -1; // -1: killed by a signal or never ended
        QString out;
        QString err;
        qint64 afterSignal = -1; // ms from the signal to the end
    };
    // Runs the tool on the fixture's files; with a signal, sends it once the server has a request.
    CliRun runCli(const QStringList &arguments, int signal);
    // The certificate of our server, trusted by the client; false when openssl is missing.
    bool trustServer();
};

void TestWebServices::mealPlan_data()
{
    QTest::addColumn<HttpTestServer::Reply>("reply");
    QTest::addColumn<bool>("error");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("stored");
    // The server's own attribute names, and the older description and serving.
    const QByteArray plan =
        "<mealplan><food food_name=\"Porridge\" serv_name=\"1 bowl\" qty=\"1.5\" meal=\"Lunch\" date=\"" +
        today(2).toLatin1() +
        "\" calories=\"150\" fat=\"3\"/><food description=\"Toast\" serving=\"1 "
        "slice\" qty=\"2\" meal=\"Supper\" date=\"" +
        today(3).toLatin1() + "\" calories=\"80\"/></mealplan>";
    QTest::newRow("two foods") << HttpTestServer::ok(plan) << false << QString()
                               << QStringList{QStringLiteral("Porridge 1 bowl 3 1.5 150"),
                                              QStringLiteral("Toast 1 slice 6 2 80")};
    QTest::newRow("proxy's page") << HttpTestServer::reply(
                                         "HTTP/1.1 500 Unable to connect\r\nContent-Length: " +
                                         QByteArray::number(plan.size()) + "\r\n\r\n" + plan)
                                  << true << "The request failed with status 500 Unable to connect."
                                  << QStringList();
    // One bad food refuses the whole reply.
    const QString range = QDate::currentDate().toString(Qt::ISODate) + QStringLiteral(" to ") +
                          QDate::currentDate().addDays(7).toString(Qt::ISODate);
    const QByteArray good = food("food_name", QStringLiteral("Soup"), today(1), "calories=\"90\"");
    const auto refused = [&](const char *name, const QByteArray &bad, const QString &why) {
        QTest::newRow(name) << HttpTestServer::ok("<mealplan>" + good + bad + "</mealplan>") << true
                            << QStringLiteral("The meal plan was not stored: food 2 (\"Bad\") ") + why + u'.'
                            << QStringList();
    };
    refused("fat not finite", food("food_name", QStringLiteral("Bad"), today(1), "fat=\"inf\""),
            QStringLiteral("has a fat value that is not a finite number"));
    refused("calories beyond single precision",
            food("food_name", QStringLiteral("Bad"), today(1), "calories=\"1e39\""),
            QStringLiteral("has a calories value that is not a finite number"));
    refused("negative quantity",
            "<food food_name=\"Bad\" qty=\"-5\" meal=\"Lunch\" date=\"" + today(1).toLatin1() + "\"/>",
            QStringLiteral("has a negative quantity"));
    refused("day out of range", food("food_name", QStringLiteral("Bad"), QStringLiteral("99999999"), ""),
            QStringLiteral("is not for a day from ") + range);
    refused("no day", food("food_name", QStringLiteral("Bad"), QStringLiteral("2026-03-10"), ""),
            QStringLiteral("is not for a day from ") + range);
    QTest::newRow("server error") << HttpTestServer::ok("<mealplan errno=\"5\" errstr=\"no plan\"/>") << true
                                  << "no plan (5)" << QStringList();
    QTest::newRow("unreadable")
        << HttpTestServer::ok("<mealplan><food") << true
        << "Unknown error. Please make sure you're connected to the internet, and your "
           "username/password are set correctly."
        << QStringList();
}

void TestWebServices::mealPlan()
{
    QFETCH(HttpTestServer::Reply, reply);
    _server.replies = {reply};
    MealPlanDownloader *downloader = MealPlanDownloader::instance();
    QSignalSpy finished(downloader, &MealPlanDownloader::finished);
    QVERIFY(downloader->download(_user));
    QVERIFY(finished.wait(10000));
    QTEST(finished.constFirst().at(0).toBool(), "error");
    QTEST(finished.constFirst().at(1).toString(), "text");
    QTEST(downloader->errorText(), "text"); // no text of an earlier failure stays
    QVERIFY(_server.requests.constFirst().startsWith(
        QStringLiteral("GET http://diary.example/plan?u=ann&begindate=%1&enddate=%2 HTTP/1.1\r\n")
            .arg(QDate::currentDate().toString(Qt::ISODate),
                 QDate::currentDate().addDays(7).toString(Qt::ISODate))
            .toLatin1()));
    QTEST(DbTest::column(
              QStringLiteral("SELECT food_name || ' ' || serv_name || ' ' || meal || ' ' || size || ' ' || "
                             "calories FROM food_mealplan ORDER BY date")),
          "stored");
}

void TestWebServices::mealPlanWeekAlreadyPlanned()
{
    // The day keys looked up are padded with spaces, so only a key of that form counts as planned.
    const QDate end = QDate::currentDate().addDays(7);
    FoodDiaryItem planned(true);
    planned.user_id = _user;
    planned.date = QString::asprintf("%4d%2d%2d", end.year(), end.month(), end.day());
    planned.meal = LUNCH;
    planned.food_name = QStringLiteral("Soup");
    MealPlanDB().addFoodEntry(planned);
    QVERIFY(!MealPlanDownloader::instance()->download(_user));
    QVERIFY(_server.requests.isEmpty());
}

void TestWebServices::weightTrend_data()
{
    QTest::addColumn<double>("latest");
    QTest::addColumn<QString>("trend");
    QTest::newRow("no earlier weight") << -1.0 << QString();
    QTest::newRow("4 g") << 80.004 << "nochange";
    QTest::newRow("300 g") << 80.3 << "bigincrease";
    QTest::newRow("-300 g") << 79.7 << "bigdecrease";
}

void TestWebServices::weightTrend()
{
    QFETCH(double, latest);
    CheckIn first;
    first.date = QStringLiteral("20260301");
    first.weight = 80.0;
    UserDB::setCheckIn(_user, first);
    if (latest > 0) {
        CheckIn second;
        second.date = QStringLiteral("20260302");
        second.weight = latest;
        UserDB::setCheckIn(_user, second);
    }
    QTEST(Metrics::weightTrend(_user, QStringLiteral("20260302")), "trend");
}

void TestWebServices::metrics_data()
{
    QTest::addColumn<HttpTestServer::Reply>("reply");
    QTest::addColumn<bool>("uploaded");
    QTest::addColumn<QString>("error");
    QTest::newRow("accepted") << HttpTestServer::ok("<response errno=\"0\"/>") << true << QString();
    QTest::newRow("status 500") << HttpTestServer::reply("HTTP/1.1 500 Oops\r\nContent-Length: 0\r\n\r\n")
                                << false << "error - 500";
    QTest::newRow("refused") << HttpTestServer::ok("<response errno=\"4\" errstr=\"later\"/>") << false
                             << "later";
    QTest::newRow("empty") << HttpTestServer::ok(QByteArray()) << false << "HTTPS error - No content";
}

void TestWebServices::metrics()
{
    QFETCH(HttpTestServer::Reply, reply);
    QFETCH(bool, uploaded);
    if (!trustServer())
        QSKIP("the openssl tool is not available");
    _server.replies = {reply};

    UserDB::countStart(_user);
    UserDB::countStart(_user);
    for (const char *day : {"20260301", "20260302"}) {
        CheckIn checkIn;
        checkIn.date = QString::fromLatin1(day);
        checkIn.weight = 80.5;
        UserDB::setCheckIn(_user, checkIn);
    }
    for (int i = 0; i < 3; ++i) {
        FoodDiaryItem item(true);
        item.user_id = _user;
        item.setDate(QStringLiteral("20260302"));
        item.meal = LUNCH;
        item.food_name = QStringLiteral("Private food name");
        DiaryDB().addFoodEntry(item);
    }
    const QString changed =
        QStringLiteral("SELECT COUNT(*) FROM food_diary_sync WHERE device = 2 AND state = 1");

    Metrics metrics(_user);
    const QString document = metrics.buildDocument();
    const QString modified = QDate::currentDate().toString(Qt::ISODate);
    QVERIFY2(
        document.contains(QStringLiteral("<metrics protocol=\"1.0\" >\n  <login date=\"%1\" count=\"2\" />\n")
                              .arg(modified)),
        qPrintable(document));
    QVERIFY(document.contains(
        QStringLiteral(
            "  <checkin modified=\"%1\" date=\"2026-03-01\" trend=\"\" />\n  <checkin modified=\"%1\" "
            "date=\"2026-03-02\" trend=\"nochange\" />\n  <fooddiary modified=\"%1\" date=\"2026-03-02\" "
            "count=\"3\" />\n")
            .arg(modified)));
    QVERIFY(!document.contains(QLatin1String("Private")) && !document.contains(QLatin1String("80.5")));

    QSignalSpy done(&metrics, &Metrics::done);
    QSignalSpy ok(&metrics, &Metrics::uploadOk);
    connect(&metrics, &Metrics::uploadOk, &metrics, [this] { Metrics::resetUserMetrics(_user); });
    metrics.start();
    QVERIFY(done.wait(10000));
    QCOMPARE(ok.size(), int(uploaded));
    QTEST(metrics.errorText(), "error");
    QVERIFY(
        _server.requests.at(1).startsWith("POST https://localhost/metrics?p=tarnwell&u=ann HTTP/1.1\r\n"));
    QCOMPARE(DbTest::column(changed), QStringList{uploaded ? QStringLiteral("0") : QStringLiteral("3")});
}

bool TestWebServices::trustServer()
{
    const QString certificate = _server.makeCertificate();
    if (certificate.isEmpty())
        return false;
    QFile::remove(LmSettings::resourcePath() + QStringLiteral("cert.pem"));
    if (!QFile::copy(certificate, LmSettings::resourcePath() + QStringLiteral("cert.pem")))
        return false;
    _server.connectReply = "HTTP/1.0 200 Connection established\r\n\r\n";
    _server.tlsAfterConnect = true;
    return true;
}

void TestWebServices::throughForwardProxy_data()
{
    QTest::addColumn<bool>("metrics");
    QTest::addColumn<bool>("serverUp");
    QTest::addColumn<QString>("error");
    QTest::newRow("meal plan") << false << true << QString();
    QTest::newRow("meal plan, server unreachable")
        << false << false << "The request failed with status 502 Unable to connect to upstream proxy.";
    QTest::newRow("metrics") << true << true << QString();
    QTest::newRow("metrics, server unreachable") << true << false << "Proxy server does not support CONNECT";
}

void TestWebServices::throughForwardProxy()
{
    // tinyproxy in front of our server, which stands for the web site (and its port).
    QFETCH(bool, metrics);
    QFETCH(bool, serverUp);
    QFETCH(QString, error);
    if (metrics && !trustServer())
        QSKIP("the openssl tool is not available");
    ForwardProxy proxy;
    if (!proxy.start(_server.serverPort()))
        QSKIP(qPrintable(proxy.why()));
    LmSettings::writeValue(QStringLiteral("proxySettings"), QStringLiteral("127.0.0.1:%1").arg(proxy.port()));
    if (!serverUp)
        _server.close();
    const QString stored = QStringLiteral("SELECT COUNT(*) FROM food_mealplan");
    if (!metrics) {
        _server.replies = {HttpTestServer::ok(
            "<mealplan>" + food("food_name", QStringLiteral("Soup"), today(1), "") + "</mealplan>")};
        MealPlanDownloader *downloader = MealPlanDownloader::instance();
        QSignalSpy finished(downloader, &MealPlanDownloader::finished);
        QVERIFY(downloader->download(_user));
        QVERIFY(finished.wait(20000));
        QVERIFY2(finished.constFirst().at(1).toString() == error, qPrintable(proxy.log()));
        QCOMPARE(DbTest::column(stored),
                 QStringList{error.isEmpty() ? QStringLiteral("1") : QStringLiteral("0")});
        return;
    }
    UserDB::countStart(_user);
    const QString changed = QStringLiteral("SELECT state FROM metrics_startStats_sync WHERE device = 2");
    _server.replies = {HttpTestServer::ok("<response errno=\"0\"/>")};
    Metrics sender(_user);
    connect(&sender, &Metrics::uploadOk, &sender,
            [&sender] { Metrics::resetUserMetrics(sender.sentUserId()); });
    QSignalSpy done(&sender, &Metrics::done);
    QVERIFY(sender.send());
    QVERIFY(done.wait(20000));
    QVERIFY2(sender.errorText() == error, qPrintable(sender.errorText() + proxy.log()));
    QCOMPARE(DbTest::column(changed),
             QStringList{error.isEmpty() ? QStringLiteral("0") : QStringLiteral("1")});
}

TestWebServices::CliRun TestWebServices::runCli(const QStringList &arguments, int signal)
{
    const QString resources = _db.path(QStringLiteral("resources/"));
    QFile::remove(resources + QStringLiteral("brand.dat"));
    if (!QFile::copy(_db.path(QStringLiteral("brand.dat")), resources + QStringLiteral("brand.dat")))
        return {};
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment(); // the fixture's home
    environment.remove(QStringLiteral("TARNWELL_DEBUG"));
    process.setProcessEnvironment(environment);
    process.start(binDir() + QStringLiteral("/tarnwell-cli"),
                  QStringList{QStringLiteral("--resourcedir"), resources} + arguments);
    QElapsedTimer timer, sinceSignal;
    timer.start();
    // The event loop runs meanwhile: the server is in this process.
    while (process.state() != QProcess::NotRunning && timer.elapsed() < 20000) {
        QTest::qWait(10);
        if (signal && !sinceSignal.isValid() && !_server.requests.isEmpty()) {
            ::kill(pid_t(process.processId()), signal);
            sinceSignal.start();
        }
    }
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError()),
            sinceSignal.isValid() ? sinceSignal.elapsed() : -1};
}

void TestWebServices::commandLine_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<int>("signal");
    QTest::addColumn<QString>("err");
    QTest::addColumn<QString>("out"); // a line the output holds
    QTest::newRow("metrics without account")
        << "metrics" << 0 << "tarnwell-cli: If you have a paid testbrand membership\n(a separate purchase"
        << QString();
    QTest::newRow("publish interrupted") << "publish" << SIGINT << "tarnwell-cli: interrupted\n"
                                         << "Connected to host 127.0.0.1\n";
    QTest::newRow("meal plan interrupted") << "mealplan" << SIGTERM << "tarnwell-cli: interrupted\n"
                                           << QString();
    QTest::newRow("metrics interrupted in the tunnel's set-up")
        << "metrics" << SIGINT << "tarnwell-cli: interrupted\n"
        << QString();
    QTest::newRow("update-db interrupted") << "update-db" << SIGTERM << "tarnwell-cli: interrupted\n"
                                           << QString();
}

void TestWebServices::commandLine()
{
    QFETCH(QString, command);
    QFETCH(int, signal);
    QFETCH(QString, err);
    QFETCH(QString, out);
    if (!QFile::exists(binDir() + QStringLiteral("/tarnwell-cli")))
        QSKIP("tarnwell-cli is not built");
    if (!signal) {
        UserSettings settings = UserDB::getSettings(_user);
        settings.web_password.clear();
        UserDB::setSettings(_user, settings);
    }
    // Nothing ever answers: the request is under way when the signal comes.
    _server.replies = {HttpTestServer::stall()};
    _server.connectReply = "HTTP/1.1 200 OK\r\n"; // a tunnel that is never ready
    FoodDiaryItem item(true);
    item.user_id = _user;
    item.setDate(today());
    item.meal = LUNCH;
    item.food_name = QStringLiteral("Pie");
    DiaryDB().addFoodEntry(item);
    UserDB::countStart(_user);
    const QString marks = QStringLiteral("SELECT device || ':' || state FROM food_diary_sync UNION ALL "
                                         "SELECT 'starts:' || state FROM metrics_startStats_sync");
    const QStringList before = DbTest::column(marks);

    const CliRun run = runCli({command}, signal);
    QVERIFY2(run.status == 1, qPrintable(run.err));
    QVERIFY2(run.err.startsWith(err), qPrintable(run.err));
    QVERIFY2(run.out.contains(out), qPrintable(run.out));
    if (signal)
        QVERIFY2(run.afterSignal < 4000, qPrintable(QString::number(run.afterSignal))); // not after a wait
    QCOMPARE(DbTest::column(marks), before);
    QCOMPARE(DbTest::column(QStringLiteral("SELECT COUNT(*) FROM food_mealplan")),
             QStringList{QStringLiteral("0")});
}

QTEST_GUILESS_MAIN(TestWebServices)
void TestWebServices::ownServerAddresses_data()
{
    QTest::addColumn<QString>("setting");
    QTest::addColumn<QString>("stored");        // empty: refused, nothing stored
    QTest::addColumn<QStringList>("addresses"); // publish, meal plan, metrics, feed, web address
    const QString query = QStringLiteral("?username=${USERNAME}&pwhash=${PWHASH}&product=${PRODUCT}");
    const auto on = [&](const QString &http, const QString &https) {
        return QStringList{http + QStringLiteral("diary/publish") + query +
                               QStringLiteral("&version=${VERSION}&platform=${PLATFORM}"),
                           http + QStringLiteral("mealplan") + query + u'&',
                           https + QStringLiteral("metrics?product=${PRODUCT}&version=${VERSION}&platform=${"
                                                  "PLATFORM}&username=${USERNAME_OPTIONAL}&"),
                           http + QStringLiteral("staticdb/${PRODUCT}/update.rss")};
    };
    QTest::newRow("host and port") << QStringLiteral(" diary.home:8080 ")
                                   << QStringLiteral("http://diary.home:8080/")
                                   << on(QStringLiteral("http://diary.home:8080/"),
                                         QStringLiteral("https://diary.home:8080/"));
    QTest::newRow("https, below a path")
        << QStringLiteral("HTTPS://10.0.0.2/tarnwell") << QStringLiteral("https://10.0.0.2/tarnwell/")
        << on(QStringLiteral("http://10.0.0.2/tarnwell/"), QStringLiteral("https://10.0.0.2/tarnwell/"));
    const QStringList brand{QStringLiteral("http://diary.example/publish?u=${USERNAME}"),
                            QStringLiteral("http://diary.example/plan?u=${USERNAME}&"),
                            QStringLiteral("https://localhost/metrics?p=${PRODUCT}&u=${USERNAME}"),
                            QStringLiteral("http://diary.example/update.rss")};
    for (const char *bad :
         {"ftp://diary.home/", "http://diary.home/?x=1", "http://ann:pw@diary.home/", "http://"})
        QTest::newRow(bad) << QString::fromLatin1(bad) << QString() << brand;
}

void TestWebServices::ownServerAddresses()
{
    QFETCH(QString, setting);
    QFETCH(QString, stored);
    QFETCH(QStringList, addresses);
    QString error;
    QCOMPARE(WebServer::setBase(setting, &error), !stored.isEmpty());
    QCOMPARE(error.isEmpty(), !stored.isEmpty());
    QCOMPARE(WebServer::base(), stored);
    QStringList got;
    for (const char *id : {"publish_auth_url", "mealplan_auth_url", "metrics_auth_url", "update_rss_url"})
        got << WebServer::address(QString::fromLatin1(id));
    QCOMPARE(got, addresses);
    QCOMPARE(WebServer::address(QStringLiteral("web_address")),
             stored.isEmpty() ? QStringLiteral("diary.example") : stored);
    WebServer::unset();
    QCOMPARE(WebServer::address(QStringLiteral("update_rss_url")),
             QStringLiteral("http://diary.example/update.rss"));
}

void TestWebServices::ownServerRequests_data()
{
    QTest::addColumn<QString>("service");
    QTest::addColumn<QByteArray>("requestLine"); // %1: the server's port
    QTest::newRow("meal plan") << QStringLiteral("mealplan")
                               << QByteArray("GET http://127.0.0.1:%1/mealplan?username=ann&pwhash=");
    QTest::newRow("update feed") << QStringLiteral("feed")
                                 << QByteArray(
                                        "GET http://127.0.0.1:%1/staticdb/tarnwell/update.rss HTTP/1.1");
    QTest::newRow("metrics over TLS")
        << QStringLiteral("metrics") << QByteArray("POST https://127.0.0.1:%1/metrics?product=tarnwell&");
}

void TestWebServices::ownServerRequests()
{
    // The household's server is reached directly on the port it names, TLS included.
    QFETCH(QString, service);
    QFETCH(QByteArray, requestLine);
    _server.close();
    HttpTestServer server;
    if (service == QLatin1String("metrics")) {
        const QString certificate = server.makeCertificate();
        if (certificate.isEmpty())
            QSKIP("the openssl tool is not available");
        QFile::remove(LmSettings::resourcePath() + QStringLiteral("cert.pem"));
        QVERIFY(QFile::copy(certificate, LmSettings::resourcePath() + QStringLiteral("cert.pem")));
        server.tlsFromStart = true;
    }
    QVERIFY(server.start());
    LmSettings::writeValue(QStringLiteral("proxySettings"), QString());
    qunsetenv("http_proxy");
    qunsetenv("https_proxy");
    QString error;
    QVERIFY(WebServer::setBase(QStringLiteral("127.0.0.1:%1").arg(server.serverPort()), &error));
    const auto unset = qScopeGuard([] { WebServer::unset(); });
    if (service == QLatin1String("mealplan")) {
        server.replies = {HttpTestServer::ok("<mealplan/>")};
        QSignalSpy finished(MealPlanDownloader::instance(), &MealPlanDownloader::finished);
        QVERIFY(MealPlanDownloader::instance()->download(_user));
        QVERIFY(finished.wait(10000));
    } else if (service == QLatin1String("feed")) {
        server.replies = {HttpTestServer::ok("<rss version=\"2.0\"><channel/></rss>")};
        StaticDbUpdater updater;
        QSignalSpy checked(&updater, &StaticDbUpdater::checkFinished);
        QVERIFY(updater.check());
        QVERIFY(checked.wait(10000));
    } else {
        server.replies = {HttpTestServer::ok("<response errno=\"0\"/>")};
        UserDB::countStart(_user);
        Metrics metrics(_user);
        QSignalSpy done(&metrics, &Metrics::done);
        metrics.start();
        QVERIFY(done.wait(10000));
        QCOMPARE(metrics.errorText(), QString());
    }
    QVERIFY(!server.requests.isEmpty());
    const QByteArray &request = server.requests.constLast();
    const QByteArray port = QByteArray::number(server.serverPort());
    QVERIFY2(request.startsWith(QByteArray(requestLine).replace("%1", port)), request.constData());
    QVERIFY(request.contains("\r\nHost: 127.0.0.1:" + port + "\r\n"));
}

#include "tst_webservices.moc"
