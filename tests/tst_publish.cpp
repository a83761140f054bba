// Publishing end to end: a real diary in the user database, the document posted to our own server
// (as the proxy), the reply, and the sync marks before and after.

#include "db/diarydb.h"
#include "db/userdb.h"
#include "dbfixture.h"
#include "httptestserver.h"
#include "net/publish.h"

#include <QScopeGuard>
#include <QSignalSpy>

namespace {

const char kEmpty[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
                      "<diaryupdate protocol=\"1.1\" platform=\"WINDOWS\" os=\"WIN32\" locate=\"US\" >\n"
                      "  <diary />\n"
                      "  <checkins />\n"
                      "  <waters />\n"
                      "</diaryupdate>\n";

FoodDiaryItem food(int user, const char *day, int meal, const QString &name, float calories,
                   float size = 1.0f)
{
    FoodDiaryItem item(true);
    item.user_id = user;
    item.setDate(QString::fromLatin1(day));
    item.meal = meal;
    item.food_name = name;
    item.serv_name = QStringLiteral("1 cup");
    item.size = size;
    item.setNutrient(ENERGY, calories);
    item.setNutrient(FAT, 0.5f);
    return item;
}

} // namespace

class TestPublish : public QObject
{
    Q_OBJECT

private:
    DbFixture _db;
    HttpTestServer _server;
    int _user = -1;

    // Posts and waits; the result text.
    QString publish()
    {
        LmPublish publisher(_user);
        QSignalSpy finished(&publisher, &LmPublish::finished);
        if (!publisher.publish())
            return QStringLiteral("not sent");
        if (!finished.wait(10000))
            return QStringLiteral("no result");
        return finished.constFirst().constFirst().toString();
    }
    QString postedDocument() const
    {
        const QByteArray request = _server.requests.constLast();
        const QByteArray body = request.mid(request.indexOf("\r\n\r\n") + 4);
        return body.startsWith("xml=") ? QString::fromUtf8(QByteArray::fromPercentEncoding(body.mid(4)))
                                       : QString();
    }
    // The profile's marks for the web site.
    QStringList syncStates() const
    {
        return DbTest::column(
            QStringLiteral(
                "SELECT 'food ' || state FROM food_diary_sync WHERE device = 0 AND food_id IN "
                "(SELECT food_id FROM food_diary WHERE user_id = %1) UNION ALL "
                "SELECT 'water ' || state FROM water_diary_sync WHERE device = 0 AND user_id = %1 UNION ALL "
                "SELECT 'checkin ' || state FROM user_checkins_sync WHERE device = 0 AND user_id = %1")
                .arg(_user));
    }

private slots:
    void init()
    {
        _user =
            _db.startWithWebProfile("<string id=\"publish_auth_url\" "
                                    "value=\"http://diary.example/publish?u=${USERNAME}&amp;p=${PWHASH}\"/>");
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

    void emptyDiary();
    void diaryDocument();
    void itemLimit();
    void replies_data();
    void replies();
    void missingAccount();
    void accountInUrl_data();
    void accountInUrl();
    void throughForwardProxy_data();
    void throughForwardProxy();
};

void TestPublish::emptyDiary()
{
    _server.replies = {HttpTestServer::ok("<response errno=\"0\"/>")};
    QCOMPARE(publish(), QStringLiteral("Completed successfully"));
    QCOMPARE(postedDocument(), QString::fromLatin1(kEmpty));
    // The password goes as its MD5 digest; the body as a percent-encoded form field.
    QVERIFY(_server.requests.constFirst().startsWith(
        "POST http://diary.example/publish?u=ann&p=5ebe2294ecd0e0f08eab7690d2a6ee69 HTTP/1.1\r\n"));
    QVERIFY(_server.requests.constFirst().contains("\r\n\r\nxml=%3C%3Fxml%20version%3D%221.0%22"));
}

void TestPublish::diaryDocument()
{
    const DiaryDB diary;
    FoodDiaryItem fish =
        food(_user, "20260310", BREAKFAST, QStringLiteral("Fish & Chips <large>, Bob's"), 850.5f, 2);
    diary.addFoodEntry(fish);
    FoodDiaryItem gone = food(_user, "20260311", DINNER, QStringLiteral("Soup"), 100);
    diary.addFoodEntry(gone);
    diary.removeFoodEntry(gone.food_id); // a day of deleted entries clears the day on the server
    ExerciseDiaryItem walk;
    walk.user_id = _user;
    walk.date = QStringLiteral("20260310");
    walk.duration = 30;
    walk.rate = 4.2f;
    walk.name = QStringLiteral("Walking");
    diary.addExerciseEntry(walk);
    CheckIn checkIn;
    checkIn.date = QStringLiteral("20260310");
    checkIn.weight = 61.5;
    checkIn.waist = 70;
    checkIn.note = QStringLiteral("felt \"good\"");
    UserDB::setCheckIn(_user, checkIn);
    UserDB::setWater(_user, QStringLiteral("20260310"), 6);
    // Another member of the household drinks on the same day: not in this profile's diary.
    UserProfile other;
    other.name = QStringLiteral("Bo");
    other.dob = QStringLiteral("19900101");
    const int otherUser = UserDB::createUser(other, UserSettings(), 180, QStringLiteral("20260101"));
    QVERIFY(otherUser >= 0);
    UserDB::setWater(otherUser, QStringLiteral("20260310"), 9);

    _server.replies = {
        HttpTestServer::ok("<?xml version=\"1.0\"?><response errno=\"0\" errstr=\"\" show=\"no\"/>")};
    QVERIFY(syncStates().contains(QStringLiteral("food 1")));
    QCOMPARE(publish(), QStringLiteral("Completed successfully"));
    const QString document = postedDocument();
    QVERIFY2(document.contains(QStringLiteral(
                 "  <diary >\n"
                 "    <diaryday date=\"2026-03-10\" >\n"
                 "      <group id=\"66\" date=\"2026-03-10\" meal=\"B\" desc=\"Breakfast\" >\n"
                 "        <food qty=\"2\" desc=\"Fish &amp; Chips &lt;large&gt;, Bob's\" serving=\"1 cup\" "
                 "calories=\"850.5\" fat=\"0.5\" fiber=\"-1\" protein=\"-1\" carbs=\"-1\" "
                 "saturated_fatty_acids=\"-1\" "
                 "cholesterol=\"-1\" sodium=\"-1\" sugars=\"-1\" calcium=\"-1\" />\n"
                 "      </group>\n"
                 "      <group id=\"69\" date=\"2026-03-10\" meal=\"E\" desc=\"Exercise\" >\n"
                 "        <exercise duration=\"30\" desc=\"Walking\" calories=\"126\" />\n"
                 "      </group>\n"
                 "    </diaryday>\n"
                 "    <diaryday date=\"2026-03-11\" />\n"
                 "  </diary>\n"
                 "  <checkins >\n"
                 "    <checkin date=\"2026-03-10\" weight=\"61.5\" waist=\"70\" note=\"felt "
                 "&quot;good&quot;\" />\n")),
             qPrintable(document));
    QVERIFY(document.contains(
        QStringLiteral("  <waters >\n    <water date=\"2026-03-10\" cups=\"6\" />\n  </waters>\n")));
    // Everything is in step now; deleted rows are gone from the sync tables.
    QVERIFY(!syncStates().isEmpty());
    for (const QString &state : syncStates())
        QVERIFY2(state.endsWith(QLatin1String(" 0")), qPrintable(state));
    UserDB::removeCheckIn(_user, QStringLiteral("20260310"));
    _server.replies = {HttpTestServer::ok("<response errno=\"0\"/>")};
    QCOMPARE(publish(), QStringLiteral("Completed successfully"));
    QVERIFY(postedDocument().contains(
        QStringLiteral("  <checkins >\n    <checkin date=\"2026-03-10\" />\n  </checkins>\n")));
}

void TestPublish::itemLimit()
{
    // 1,999 items on the first day, 2 on the second, 1 on the third: only the first day goes.
    const DiaryDB diary;
    LmSqlDb::begin();
    for (int i = 0; i < 1999; ++i) {
        FoodDiaryItem item = food(_user, "20260301", LUNCH, QStringLiteral("Pea"), 1);
        diary.addFoodEntry(item);
    }
    for (const char *day : {"20260302", "20260302", "20260303"}) {
        FoodDiaryItem item = food(_user, day, LUNCH, QStringLiteral("Bean"), 1);
        diary.addFoodEntry(item);
    }
    LmSqlDb::commit();
    LmPublish publisher(_user);
    const QString document = publisher.buildDocument();
    QCOMPARE(publisher.publishedDays(), QStringList{QStringLiteral("20260301")});
    QCOMPARE(publisher.itemCount(), 1999);
    QCOMPARE(document.count(QLatin1String("<food ")), 1999);
    QCOMPARE(document.count(QLatin1String("<group ")), 1);
}

void TestPublish::replies_data()
{
    QTest::addColumn<HttpTestServer::Reply>("reply");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("readingStep");
    QTest::newRow("server error") << HttpTestServer::ok(
                                         "<response errno=\"3\" errstr=\"bad login\" show=\"yes\"/>")
                                  << "Complete"
                                  << "Reading (FAILED!! Error message from diary.example <bad login>)";
    QTest::newRow("not XML") << HttpTestServer::ok("<html><body>oops") << "Complete"
                             << "Reading (FAILED!! Cannot interpret reply from diary.example)";
    QTest::newRow("connection lost") << HttpTestServer::reply(QByteArray(), true) << "Error occured"
                                     << "Skipped";
    // A well-formed page without a response element, from a proxy: the server saw nothing.
    const QByteArray page = "<?xml version=\"1.0\"?>\n<html><head><title>Sign in</title></head></html>";
    QTest::newRow("proxy wants credentials")
        << HttpTestServer::reply("HTTP/1.1 407 Proxy Authentication Required\r\nContent-Type: text/xml\r\n"
                                 "Content-Length: " +
                                 QByteArray::number(page.size()) + "\r\n\r\n" + page)
        << "Error occured"
        << "Skipped";
}

void TestPublish::replies()
{
    QFETCH(HttpTestServer::Reply, reply);
    FoodDiaryItem item = food(_user, "20260310", LUNCH, QStringLiteral("Pie"), 300);
    DiaryDB().addFoodEntry(item);
    const QStringList before = syncStates();
    _server.replies = {reply};
    LmPublish publisher(_user);
    QSignalSpy steps(&publisher, &LmPublish::stepChanged);
    QSignalSpy finished(&publisher, &LmPublish::finished);
    QVERIFY(publisher.publish());
    QVERIFY(finished.wait(10000));
    QTEST(finished.constFirst().constFirst().toString(), "result");
    QStringList reading;
    for (const QList<QVariant> &step : steps) {
        if (step.at(0).toInt() == LmPublish::Reading && !step.at(1).toBool())
            reading.append(step.at(2).toString());
    }
    QTEST(reading.value(0), "readingStep");
    QCOMPARE(syncStates(), before); // sent again by the next publish
}

void TestPublish::missingAccount()
{
    UserSettings settings = UserDB::getSettings(_user);
    settings.web_password.clear();
    UserDB::setSettings(_user, settings);
    DbTest::RecordedBoxes boxes;
    QCOMPARE(publish(), QStringLiteral("not sent"));
    QCOMPARE(boxes.boxes.size(), 1);
    QVERIFY(boxes.boxes.constFirst().startsWith(
        QLatin1String("Publish Diary: If you have a paid testbrand membership")));
    QVERIFY(_server.requests.isEmpty());
}

void TestPublish::accountInUrl_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("query");
    QTest::newRow("space and ampersand") << "al ice&x" << QByteArray("u=al%20ice%26x&p=");
    QTest::newRow("hash") << "bob#1" << QByteArray("u=bob%231&p=");
    QTest::newRow("brand variable") << "${app_name}" << QByteArray("u=%24%7Bapp_name%7D&p=");
    QTest::newRow("unknown variable") << "${loop}" << QByteArray("u=%24%7Bloop%7D&p=");
    QTest::newRow("accent") << "Jos\u00e9" << QByteArray("u=Jos%C3%A9&p=");
}

void TestPublish::accountInUrl()
{
    // What the user typed is a value in the query, never URL syntax or a brand variable.
    QFETCH(QString, name);
    QFETCH(QByteArray, query);
    UserSettings settings = UserDB::getSettings(_user);
    settings.web_username = name;
    UserDB::setSettings(_user, settings);
    _server.replies = {HttpTestServer::ok("<response errno=\"0\"/>")};
    QCOMPARE(publish(), QStringLiteral("Completed successfully"));
    QVERIFY2(_server.requests.constFirst().startsWith("POST http://diary.example/publish?" + query +
                                                      "5ebe2294ecd0e0f08eab7690d2a6ee69 HTTP/1.1\r\n"),
             _server.requests.constFirst().left(100).constData());
}

void TestPublish::throughForwardProxy_data()
{
    QTest::addColumn<bool>("serverUp");
    QTest::addColumn<QString>("proxyUser"); // the proxy asks for credentials
    QTest::addColumn<QString>("credentials");
    QTest::addColumn<QString>("result");
    QTest::newRow("published") << true << QString() << QString() << "Completed successfully";
    QTest::newRow("server unreachable") << false << QString() << QString() << "Error occured";
    QTest::newRow("no credentials") << true << "pat" << QString() << "Error occured";
    QTest::newRow("credentials") << true << "pat"
                                 << "pat:s3cret"
                                 << "Completed successfully";
}

void TestPublish::throughForwardProxy()
{
    QFETCH(bool, serverUp);
    QFETCH(QString, proxyUser);
    QFETCH(QString, credentials);
    QFETCH(QString, result);
    ForwardProxy proxy;
    if (!proxy.start(_server.serverPort(), proxyUser, QStringLiteral("s3cret")))
        QSKIP(qPrintable(proxy.why()));
    _server.replies = {HttpTestServer::ok("<response errno=\"0\"/>")};
    if (!serverUp)
        _server.close();
    // Credentials come with the proxy's address from the environment.
    LmSettings::writeValue(QStringLiteral("proxySettings"), QString());
    const QString userInfo = credentials.isEmpty() ? QString() : credentials + u'@';
    qputenv(
        "http_proxy",
        (QStringLiteral("http://") + userInfo + QStringLiteral("127.0.0.1:%1").arg(proxy.port())).toLatin1());
    const auto unset = qScopeGuard([] { qunsetenv("http_proxy"); });
    FoodDiaryItem item = food(_user, "20260310", LUNCH, QStringLiteral("Pie"), 300);
    DiaryDB().addFoodEntry(item);
    const QStringList before = syncStates();
    QVERIFY(before.contains(QStringLiteral("food 1")));

    const QString got = publish();
    QVERIFY2(got == result, qPrintable(got + u'\n' + proxy.log().right(900)));
    if (result == QLatin1String("Completed successfully")) {
        QVERIFY(postedDocument().contains(QLatin1String("<food qty=\"1\" desc=\"Pie\"")));
        QVERIFY(!syncStates().contains(QStringLiteral("food 1")));
    } else {
        QCOMPARE(syncStates(), before);
    }
}

QTEST_GUILESS_MAIN(TestPublish)
#include "tst_publish.moc"
