// Meal plan download and usage metrics against our own server on the loopback address (as the
// proxy; metrics through a CONNECT tunnel with TLS).

#include "db/diarydb.h"
#include "db/savedmealdb.h"
#include "db/userdb.h"
#include "dbfixture.h"
#include "httptestserver.h"
#include "model/dateconversion.h"
#include "net/mealplandownload.h"
#include "net/metrics.h"

#include <QSignalSpy>

namespace {

QString today(int days = 0)
{
    return DateConversion::fromQDate(QDate::currentDate().addDays(days));
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
            "<string id=\"metrics_auth_url\" value=\"https://localhost/metrics?p=${PRODUCT}\"/>");
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
};

void TestWebServices::mealPlan_data()
{
    QTest::addColumn<HttpTestServer::Reply>("reply");
    QTest::addColumn<bool>("error");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("stored");
    const QByteArray plan =
        "<mealplan><food description=\"Porridge\" serving=\"1 bowl\" qty=\"1.5\" meal=\"Lunch\" date=\"" +
        today(2).toLatin1() +
        "\" calories=\"150\" fat=\"3\"/><food description=\"Toast\" serving=\"1 "
        "slice\" qty=\"2\" meal=\"Supper\" date=\"" +
        today(3).toLatin1() + "\" calories=\"80\"/></mealplan>";
    QTest::newRow("two foods") << HttpTestServer::ok(plan) << false << QString()
                               << QStringList{QStringLiteral("Porridge 3 1.5 150"),
                                              QStringLiteral("Toast 6 2 80")};
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
    QVERIFY(_server.requests.constFirst().startsWith(
        QStringLiteral("GET http://diary.example/plan?u=ann&begindate=%1&enddate=%2 HTTP/1.1\r\n")
            .arg(QDate::currentDate().toString(Qt::ISODate),
                 QDate::currentDate().addDays(7).toString(Qt::ISODate))
            .toLatin1()));
    QTEST(DbTest::column(
              QStringLiteral("SELECT food_name || ' ' || meal || ' ' || size || ' ' || calories FROM "
                             "food_mealplan ORDER BY date")),
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
    const QString certificate = _server.makeCertificate();
    if (certificate.isEmpty())
        QSKIP("the openssl tool is not available");
    QFile::remove(LmSettings::resourcePath() + QStringLiteral("cert.pem"));
    QVERIFY(QFile::copy(certificate, LmSettings::resourcePath() + QStringLiteral("cert.pem")));
    _server.connectReply = "HTTP/1.0 200 Connection established\r\n\r\n";
    _server.tlsAfterConnect = true;
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
    QVERIFY(_server.requests.at(1).startsWith("POST https://localhost/metrics?p=tarnwell HTTP/1.1\r\n"));
    QCOMPARE(DbTest::column(changed), QStringList{uploaded ? QStringLiteral("0") : QStringLiteral("3")});
}

QTEST_GUILESS_MAIN(TestWebServices)
#include "tst_webservices.moc"
