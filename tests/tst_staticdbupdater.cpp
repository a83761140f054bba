// Reference database updates end to end: the feed from our own server (as the proxy), the date
// comparison, a gzip download that installs, a 404, a corrupt file restored from its backup,
// cancelling during the copy.

#include "app/lmsettings.h"
#include "app/notificationdispatcher.h"
#include "brand/brandengine.h"
#include "httptestserver.h"
#include "staticdb/rssreader.h"
#include "staticdb/staticdb.h"
#include "staticdb/staticdbupdater.h"
#include "staticdb/staticdbwriter.h"
#include "testsupport.h"

#include <QDir>
#include <QSignalSpy>

#include <zlib.h>

namespace {

QByteArray database(const QDate &created, int foods = 1)
{
    StaticDbNode root;
    root.category = true;
    for (int i = 0; i < foods; ++i) {
        StaticDbNode food;
        food.id = quint32(1000 + i);
        food.name = "Food " + QByteArray::number(i) + " with a longer name to fill the file";
        food.payload = StaticDbWriter::foodPayload(food.id, "test", {52.0f}, 'M', 100.0f, {});
        root.children.push_back(food);
    }
    StaticDbNode exercise;
    exercise.id = 12150;
    exercise.name = "Running";
    exercise.payload = StaticDbWriter::exercisePayload(0.14f);
    StaticDbNode exercises;
    exercises.category = true;
    exercises.children = {exercise};
    StaticDbWriter writer(created);
    writer.addChunk(1, root);
    writer.addChunk(2, exercises);
    return writer.build();
}

QByteArray gzip(const QByteArray &data)
{
    QTemporaryDir dir;
    const QByteArray path = QFile::encodeName(dir.filePath(QStringLiteral("x.gz")));
    gzFile out = gzopen(path.constData(), "wb");
    gzwrite(out, data.constData(), unsigned(data.size()));
    gzclose(out);
    QFile file(QString::fromLocal8Bit(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray feed(const QString &pubDate, const QString &link, const QString &extra = QString())
{
    return QStringLiteral(
               "<?xml version=\"1.0\"?><rss version=\"2.0\" xmlns:tqm=\"http://tarnwell.org/ns\"><channel>"
               "<title>Updates</title><link>http://localhost/</link><description>d</description>"
               "<item><title>other</title><link>http://localhost/x</link></item>"
               "<item><title>staticdb_updates</title><link>%1</link><pubDate>%2</pubDate>%3</item>"
               "</channel></rss>")
        .arg(link, pubDate, extra)
        .toUtf8();
}

} // namespace

class TestStaticDbUpdater : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TemporaryHome> _home;
    HttpTestServer _server;

    QString contentFile(const char *name) const { return LmSettings::contentPath() + QLatin1String(name); }
    static QByteArray read(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    void write(const QString &path, const QByteArray &bytes)
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes);
    }
    // Checks the feed; the updater's result.
    int check(StaticDbUpdater &updater, const QByteArray &rss)
    {
        _server.replies.append(HttpTestServer::ok(rss));
        QSignalSpy finished(&updater, &StaticDbUpdater::checkFinished);
        if (!updater.check() || !finished.wait(10000))
            return -1;
        return updater.result();
    }

private slots:
    void initTestCase()
    {
        _home = std::make_unique<TemporaryHome>();
        LmSettings::resetForTesting();
        LmSettings::setResourcePath(_home->path() + QStringLiteral("/resources/"));
        QVERIFY(QDir().mkpath(LmSettings::contentPath()));
        QVERIFY(BrandEngine::instance().load(binDir() + QStringLiteral("/brand.dat")));
    }
    void init()
    {
        write(contentFile("static.db"), database(QDate(2007, 5, 1)));
        QVERIFY(_server.start());
        _server.replies.clear();
        _server.requests.clear();
        LmSettings::writeValue(QStringLiteral("proxySettings"),
                               QStringLiteral("127.0.0.1:%1").arg(_server.serverPort()));
    }
    void cleanup() { _server.close(); }

    void feeds_data();
    void feeds();
    void readerRules();
    void installs();
    void failedDownloads_data();
    void failedDownloads();
    void cancelDuringCopy();
    void periodicCheck();
};

void TestStaticDbUpdater::feeds_data()
{
    QTest::addColumn<QByteArray>("rss");
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("message");
    const QString link = QStringLiteral("http://localhost/static.db.gz");
    QTest::newRow("published the same day at noon")
        << feed(QStringLiteral("Tue, 01 May 2007 12:00:00 GMT"), link) << int(StaticDbUpdater::UpToDate)
        << QString();
    QTest::newRow("a second after the day ends")
        << feed(QStringLiteral("Wed, 02 May 2007 00:00:00 GMT"), link)
        << int(StaticDbUpdater::UpdateAvailable) << QString();
    QTest::newRow("no link, a message")
        << feed(QStringLiteral("Wed, 02 May 2007 00:00:00 GMT"), QString(),
                QStringLiteral("<tqm:message>Updates come with version 5</tqm:message>"))
        << int(StaticDbUpdater::NoInformation) << "Updates come with version 5";
    QTest::newRow("no update item")
        << QByteArray(
               "<rss version=\"2.0\"><channel><title>t</title><link>l</link><description>d</description>"
               "</channel></rss>")
        << int(StaticDbUpdater::NoInformation) << QString();
    QTest::newRow("not a feed") << QByteArray("<html>nope</html>") << int(StaticDbUpdater::NoInformation)
                                << QString();
}

void TestStaticDbUpdater::feeds()
{
    QFETCH(QByteArray, rss);
    StaticDbUpdater updater;
    QTEST(check(updater, rss), "result");
    QCOMPARE(updater.state(), int(StaticDbUpdater::Finished));
    QTEST(updater.message(), "message");
    QVERIFY(_server.requests.constFirst().startsWith(
        "GET http://localhost/staticdb/tarnwell/update.rss HTTP/1.1\r\n"));
}

void TestStaticDbUpdater::readerRules()
{
    RSSReader reader;
    QVERIFY(reader.parse(
        "<rss><channel><item><title>a</title><tqm:x xmlns:tqm=\"u\">b</tqm:x></item></channel></rss>"));
    QCOMPARE(reader.channel().items.constFirst().elements.value(QStringLiteral("tqm:x")),
             QStringLiteral("b"));
    QVERIFY(!reader.parse("<rss version=\"2.0\"></rss>")); // no channel
    QVERIFY(!reader.parse("<feed/>"));
    QVERIFY(!reader.parse("<rss><channel><item>"));
}

void TestStaticDbUpdater::installs()
{
    // An open database follows the file: closed for the install, open on the new one after.
    const StaticDB open(1);
    QCOMPARE(open.creationDate(), QStringLiteral("2007-05-01"));
    StaticDbUpdater updater;
    QCOMPARE(check(updater, feed(QStringLiteral("Wed, 02 May 2007 00:00:00 GMT"),
                                 QStringLiteral("http://localhost/static.db.gz"))),
             int(StaticDbUpdater::UpdateAvailable));
    const QByteArray fresh = database(QDate(2026, 11, 1), 200);
    _server.replies = {HttpTestServer::ok(gzip(fresh))};
    QSignalSpy finished(&updater, &StaticDbUpdater::downloadFinished);
    QSignalSpy notified(NotificationDispatcher::instance(), &NotificationDispatcher::notified);
    QVERIFY(StaticDbUpdater::permissionTest());
    QVERIFY(updater.download());
    QVERIFY(finished.wait(10000));
    QVERIFY2(finished.constFirst().constFirst().toBool(), qPrintable(updater.errorText()));
    QCOMPARE(read(contentFile("static.db")), fresh);
    QVERIFY(!QFile::exists(contentFile("static.db.backup")));
    QVERIFY(!QFile::exists(contentFile("static.download")));
    QCOMPARE(notified.constLast().constFirst().toString(), QStringLiteral("staticdb_update_notification"));
    QCOMPARE(open.creationDate(), QStringLiteral("2026-11-01"));
    QVERIFY(open.lookup(1199, false));
}

void TestStaticDbUpdater::failedDownloads_data()
{
    QTest::addColumn<HttpTestServer::Reply>("reply");
    QTest::addColumn<QString>("error");
    QTest::newRow("404") << HttpTestServer::reply(
                                "HTTP/1.1 404 Not Found\r\nContent-Length: 9\r\n\r\nnot there")
                         << "Sorry, an error occurred downloading the update. Please try again later.";
    QTest::newRow("not a database") << HttpTestServer::ok(gzip("Database subject to nothing at all, really."))
                                    << "New databases failed to start:\nDatabase corrupt";
    QTest::newRow("not gzip") << HttpTestServer::ok("plain bytes")
                              << QStringLiteral("Copy from\n%1static.download\nto\n%1static.db\nfailed.")
                                     .arg(LmSettings::contentPath());
}

void TestStaticDbUpdater::failedDownloads()
{
    QFETCH(HttpTestServer::Reply, reply);
    const QByteArray before = read(contentFile("static.db"));
    const StaticDB open(2);
    StaticDbUpdater updater;
    QCOMPARE(check(updater, feed(QStringLiteral("Wed, 02 May 2007 00:00:00 GMT"),
                                 QStringLiteral("http://localhost/static.db.gz"))),
             int(StaticDbUpdater::UpdateAvailable));
    _server.replies = {reply};
    QSignalSpy finished(&updater, &StaticDbUpdater::downloadFinished);
    QVERIFY(updater.download());
    QVERIFY(finished.wait(10000));
    QCOMPARE(finished.constFirst().constFirst().toBool(), false);
    QCOMPARE(updater.state(), int(StaticDbUpdater::Failed));
    QTEST(updater.errorText(), "error");
    QCOMPARE(read(contentFile("static.db")), before);
    QVERIFY(open.isOpen() && open.lookup(12150, false));
}

void TestStaticDbUpdater::cancelDuringCopy()
{
    const QByteArray before = read(contentFile("static.db"));
    StaticDbUpdater updater;
    QCOMPARE(check(updater, feed(QStringLiteral("Wed, 02 May 2007 00:00:00 GMT"),
                                 QStringLiteral("http://localhost/static.db.gz"))),
             int(StaticDbUpdater::UpdateAvailable));
    _server.replies = {HttpTestServer::ok(gzip(database(QDate(2026, 11, 1), 500)))};
    connect(&updater, &StaticDbUpdater::installProgress, &updater, [&updater](int done) {
        if (done >= 4096)
            updater.abort();
    });
    QSignalSpy finished(&updater, &StaticDbUpdater::downloadFinished);
    QVERIFY(updater.download());
    QVERIFY(finished.wait(10000));
    QCOMPARE(finished.constFirst().constFirst().toBool(), false);
    QCOMPARE(updater.state(), int(StaticDbUpdater::Aborted));
    QCOMPARE(read(contentFile("static.db")), before);
    bool failed = true;
    const StaticDB reopened(1, &failed);
    QVERIFY(!failed);
}

void TestStaticDbUpdater::periodicCheck()
{
    const QDateTime now(QDate(2026, 11, 23), QTime(12, 0), Qt::UTC);
    LmSettings::writeValue(QStringLiteral("/staticdb/lastUpdate"), QString());
    QVERIFY(StaticDbUpdater::checkDue(now));
    StaticDbUpdater::markChecked(now.addDays(-27));
    QCOMPARE(LmSettings::readValue(QStringLiteral("/staticdb/lastUpdate")).toString(),
             QStringLiteral("2026-10-27T12:00:00Z"));
    QVERIFY(!StaticDbUpdater::checkDue(now));
    QVERIFY(StaticDbUpdater::checkDue(now.addDays(1)));
    LmSettings::writeValue(QStringLiteral("/staticdb/updateInterval"), 0);
    QVERIFY(!StaticDbUpdater::checkDue(now.addYears(1)));
}

QTEST_GUILESS_MAIN(TestStaticDbUpdater)
#include "tst_staticdbupdater.moc"
