// Reference database updates end to end: the feed from our own server (as the proxy), the date
// comparison, a gzip download that installs, downloads that must not (404, damaged, cut short,
// too large, not newer), cancelling during the copy, an install cut short by a crash, the
// periodic check.

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
#include <QLockFile>
#include <QSignalSpy>
#include <QtEndian>

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

// The data gzip-compressed, followed by zeros bytes of nothing but zeros.
QByteArray gzip(const QByteArray &data, qint64 zeros = 0)
{
    QTemporaryDir dir;
    const QByteArray path = QFile::encodeName(dir.filePath(QStringLiteral("x.gz")));
    gzFile out = gzopen(path.constData(), "wb9");
    gzwrite(out, data.constData(), unsigned(data.size()));
    const QByteArray nothing(1 << 20, '\0');
    for (qint64 left = zeros; left > 0; left -= nothing.size())
        gzwrite(out, nothing.constData(), unsigned(std::min<qint64>(left, nothing.size())));
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
        LmSettings::removeValue(QStringLiteral("/staticdb/installedUpdate"));
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
    void notDownloadedTwice();
    void cancelDuringCopy();
    void recoversInterruptedInstall_data();
    void recoversInterruptedInstall();
    void periodicCheck_data();
    void periodicCheck();
    void checkIfDue();
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
    // Published days after it was made: the feed alone would offer it again and again.
    const QByteArray rss = feed(QStringLiteral("Thu, 05 Nov 2026 08:00:00 GMT"),
                                QStringLiteral("http://localhost/static.db.gz"));
    QCOMPARE(check(updater, rss), int(StaticDbUpdater::UpdateAvailable));
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
    StaticDbUpdater again;
    QCOMPARE(check(again, rss), int(StaticDbUpdater::UpToDate));
}

void TestStaticDbUpdater::failedDownloads_data()
{
    QTest::addColumn<HttpTestServer::Reply>("reply");
    QTest::addColumn<QString>("error");
    const QString copyFailed = QStringLiteral("Copy from\n%1static.download\nto\n%1static.db\nfailed.")
                                   .arg(LmSettings::contentPath());
    const QString corrupt = QStringLiteral("New databases failed to start:\nDatabase corrupt");
    const QByteArray fresh = gzip(database(QDate(2026, 11, 1), 200));
    QTest::newRow("404") << HttpTestServer::reply(
                                "HTTP/1.1 404 Not Found\r\nContent-Length: 9\r\n\r\nnot there")
                         << "Sorry, an error occurred downloading the update. Please try again later.";
    QTest::newRow("not a database") << HttpTestServer::ok(gzip("Database subject to nothing at all, really."))
                                    << corrupt;
    QTest::newRow("not gzip") << HttpTestServer::ok("plain bytes") << copyFailed;
    // Every byte of the database is there, but not the check of them.
    QTest::newRow("no gzip trailer") << HttpTestServer::ok(fresh.chopped(8)) << copyFailed;
    QTest::newRow("cut short") << HttpTestServer::ok(fresh.left(fresh.size() / 2)) << copyFailed;
    // It opens, but one of its foods would not: the file is read through before it is used.
    QByteArray bad = database(QDate(2026, 11, 1), 3);
    const quint32 chunk = qFromBigEndian<quint32>(bad.constData() + 68);
    const quint32 table = chunk + qFromBigEndian<quint32>(bad.constData() + chunk + 4);
    const quint32 payloads = chunk + qFromBigEndian<quint32>(bad.constData() + chunk + 12);
    // The first food's payload is the file's last byte: inside the file, but no food.
    qToBigEndian(quint32(bad.size() - 1) - payloads, bad.data() + table + 16 + 12);
    QTest::newRow("a food that does not decode") << HttpTestServer::ok(gzip(bad)) << corrupt;
    QTest::newRow("not newer") << HttpTestServer::ok(gzip(database(QDate(2007, 5, 1), 2)))
                               << "The downloaded database (made 2007-05-01) is not newer than the one "
                                  "installed (made 2007-05-01).";
    // 300 KB of gzip that would make 300 MB: it stops at the limit, before it fills the disk.
    QTest::newRow("larger than the limit")
        << HttpTestServer::ok(gzip(database(QDate(2026, 11, 1)), 300 << 20))
        << copyFailed + QStringLiteral("\nThe database would be larger than 256 MiB.");
    QTest::newRow("announced larger than the limit")
        << HttpTestServer::reply("HTTP/1.1 200 OK\r\nContent-Length: 300000000\r\n\r\n\x1f\x8b", true)
        << "The update is larger than 256 MiB and was not downloaded.";
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
    QVERIFY(finished.wait(30000));
    QCOMPARE(finished.constFirst().constFirst().toBool(), false);
    QCOMPARE(updater.state(), int(StaticDbUpdater::Failed));
    QTEST(updater.errorText(), "error");
    QCOMPARE(read(contentFile("static.db")), before);
    QVERIFY(open.isOpen() && open.lookup(12150, false));
    QCOMPARE(QDir(LmSettings::contentPath()).entryList(QDir::Files),
             QStringList{QStringLiteral("static.db")});
}

void TestStaticDbUpdater::notDownloadedTwice()
{
    // An update no newer than the file in place is refused, and not fetched again.
    const QByteArray rss = feed(QStringLiteral("Wed, 02 May 2007 00:00:00 GMT"),
                                QStringLiteral("http://localhost/static.db.gz"));
    StaticDbUpdater updater;
    QCOMPARE(check(updater, rss), int(StaticDbUpdater::UpdateAvailable));
    _server.replies = {HttpTestServer::ok(gzip(database(QDate(2007, 4, 1))))};
    QSignalSpy finished(&updater, &StaticDbUpdater::downloadFinished);
    QVERIFY(updater.download());
    QVERIFY(finished.wait(10000));
    QCOMPARE(finished.constFirst().constFirst().toBool(), false);
    StaticDbUpdater again;
    QCOMPARE(check(again, rss), int(StaticDbUpdater::UpToDate));
    // A later publication is offered again.
    QCOMPARE(check(again, feed(QStringLiteral("Thu, 03 May 2007 00:00:00 GMT"),
                               QStringLiteral("http://localhost/static.db.gz"))),
             int(StaticDbUpdater::UpdateAvailable));
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

void TestStaticDbUpdater::recoversInterruptedInstall_data()
{
    // The files a kill at each step of an install leaves behind; a null array: no such file.
    QTest::addColumn<QByteArray>("current");
    QTest::addColumn<QByteArray>("backup");
    QTest::addColumn<bool>("installing"); // another process holds the install lock
    QTest::addColumn<QByteArray>("expected");
    const QByteArray old = database(QDate(2007, 5, 1));
    const QByteArray fresh = database(QDate(2026, 11, 1));
    QTest::newRow("while decompressing") << old << QByteArray() << false << old;
    QTest::newRow("between the renames") << QByteArray() << old << false << old;
    QTest::newRow("while restoring the backup") << fresh.left(100) << old << false << old;
    QTest::newRow("before the backup was removed") << fresh << old << false << fresh;
    QTest::newRow("another process installing") << QByteArray() << old << true << QByteArray();
}

void TestStaticDbUpdater::recoversInterruptedInstall()
{
    QFETCH(QByteArray, current);
    QFETCH(QByteArray, backup);
    QFETCH(bool, installing);
    QFETCH(QByteArray, expected);
    QFile::remove(contentFile("static.db"));
    if (!current.isNull())
        write(contentFile("static.db"), current);
    if (!backup.isNull())
        write(contentFile("static.db.backup"), backup);
    write(contentFile("static.db.new"), "half a database");
    QLockFile lock(contentFile("static.db.lock"));
    QVERIFY(!installing || lock.tryLock(0));

    QCOMPARE(StaticDbUpdater::recoverInterruptedInstall(), current != expected && !expected.isNull());
    QCOMPARE(read(contentFile("static.db")), expected);
    QCOMPARE(QFile::exists(contentFile("static.db.new")), installing);
    if (!installing) {
        bool failed = true;
        const StaticDB foods(1, &failed);
        QVERIFY(!failed);
    }
    lock.unlock();
    QFile::remove(contentFile("static.db.backup"));
    QFile::remove(contentFile("static.db.new"));
}

void TestStaticDbUpdater::periodicCheck_data()
{
    QTest::addColumn<QVariant>("interval"); // null: not set
    QTest::addColumn<int>("daysAgo");       // of the last check; 0: never
    QTest::addColumn<bool>("due");
    QTest::newRow("never checked") << QVariant() << 0 << true;
    QTest::newRow("27 of 28 days") << QVariant() << 27 << false;
    QTest::newRow("28 of 28 days") << QVariant() << 28 << true;
    QTest::newRow("8 of 7 days") << QVariant(7) << 8 << true;
    QTest::newRow("0: never") << QVariant(0) << 400 << false;
    QTest::newRow("not a number: 28") << QVariant(QStringLiteral("weekly")) << 29 << true;
    QTest::newRow("last check in the future") << QVariant() << -3 << true;
}

void TestStaticDbUpdater::periodicCheck()
{
    QFETCH(QVariant, interval);
    QFETCH(int, daysAgo);
    const QDateTime now(QDate(2026, 11, 23), QTime(12, 0), Qt::UTC);
    LmSettings::removeValue(QStringLiteral("/staticdb/updateInterval"));
    if (!interval.isNull())
        LmSettings::writeValue(QStringLiteral("/staticdb/updateInterval"), interval);
    LmSettings::writeValue(QStringLiteral("/staticdb/lastUpdate"), QString());
    if (daysAgo != 0)
        StaticDbUpdater::markChecked(now.addDays(-daysAgo));
    QTEST(StaticDbUpdater::checkDue(now), "due");
    LmSettings::removeValue(QStringLiteral("/staticdb/updateInterval"));
}

void TestStaticDbUpdater::checkIfDue()
{
    const QDateTime now(QDate(2026, 11, 23), QTime(15, 30), Qt::UTC);
    StaticDbUpdater::markChecked(now.addDays(-1));
    StaticDbUpdater updater;
    QVERIFY(!updater.checkIfDue(now));
    QVERIFY(_server.requests.isEmpty());

    LmSettings::writeValue(QStringLiteral("/staticdb/lastUpdate"), QString());
    _server.replies.append(HttpTestServer::ok(feed(QStringLiteral("Tue, 01 May 2007 12:00:00 GMT"),
                                                   QStringLiteral("http://localhost/static.db.gz"))));
    QSignalSpy finished(&updater, &StaticDbUpdater::checkFinished);
    QVERIFY(updater.checkIfDue(now));
    QVERIFY(finished.wait(10000));
    QCOMPARE(updater.result(), int(StaticDbUpdater::UpToDate));
    const QDateTime last = QDateTime::fromString(
        LmSettings::readValue(QStringLiteral("/staticdb/lastUpdate")).toString(), Qt::ISODate);
    QVERIFY(last.isValid() && last.timeSpec() == Qt::UTC && !StaticDbUpdater::checkDue(last));
}

QTEST_GUILESS_MAIN(TestStaticDbUpdater)
#include "tst_staticdbupdater.moc"
