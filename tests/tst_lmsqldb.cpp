#include "db/databackup.h"
#include "db/lmsqldb.h"
#include "db/schema.h"
#include "dbfixture.h"

#include <QSqlDatabase>
#include <QSqlQuery>

#include <csignal>
#include <sys/resource.h>

using namespace Qt::StringLiterals;
using DbTest::readFile;
using DbTest::writeFile;

namespace {

// Permission cases mean nothing to a user who may read and write anything.
bool permissionsApply(const QString &folder)
{
    const QString probe = folder + u"/probe"_s;
    writeFile(probe, "x");
    QFile::setPermissions(probe, QFile::WriteOwner);
    const bool applies = !QFileInfo(probe).isReadable();
    QFile::remove(probe);
    return applies;
}

const QByteArray kMaskingHeader = QByteArray::fromHex(
    "1f8b080037561f400203732acacc4bc949cdcd2f2e5670cbcf4fd177ad482d4ace2c4e55707102009640d88b1c000000");
const QByteArray kSqliteHeader = QByteArray("** This file contains an SQLite 2.1 database **", 48);
const qint64 kCopyLimit = qint64(15) * 1024 * 1024;

} // namespace

class TestLmSqlDb : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(_db.prepare(false)); }
    void cleanup();

    void nestedTransactions_data();
    void nestedTransactions();
    void transactionFailuresAreFatal_data();
    void transactionFailuresAreFatal();
    void copyFile_data();
    void copyFile();
    void restoreDatabaseHeader_data();
    void restoreDatabaseHeader();
    void locateOrCreateDatabase_data();
    void locateOrCreateDatabase();
    void backUpAndRestore();
    void restoreRefused_data();
    void restoreRefused();

private:
    bool openDatabase();
    int observedRows();

    DbFixture _db;
};

void TestLmSqlDb::cleanup()
{
    QSqlDatabase::removeDatabase(u"observer"_s);
    _db.stop();
}

// The template copied into place and opened, with a scratch table.
bool TestLmSqlDb::openDatabase()
{
    std::string error;
    return LmSqlDb::startUp(error, false) &&
           LmSqlDb::instance()->prepare(u"CREATE TABLE t (x INTEGER)"_s)->exec();
}

// Rows of the scratch table as a second connection sees them.
int TestLmSqlDb::observedRows()
{
    QSqlDatabase observer = QSqlDatabase::contains(u"observer"_s)
                                ? QSqlDatabase::database(u"observer"_s)
                                : QSqlDatabase::addDatabase(u"QSQLITE"_s, u"observer"_s);
    observer.setDatabaseName(_db.databasePath());
    QSqlQuery query(observer);
    if ((!observer.isOpen() && !observer.open()) || !query.exec(u"SELECT COUNT(*) FROM t"_s) || !query.next())
        return -1;
    return query.value(0).toInt();
}

void TestLmSqlDb::nestedTransactions_data()
{
    // b begin, c commit, r rollback; the row is inserted after the first begin.
    QTest::addColumn<QString>("steps");
    QTest::addColumn<QList<int>>("visibleAfterEach"); // rows a second connection sees
    QTest::addColumn<int>("kept");

    QTest::newRow("one level") << u"bc"_s << QList<int>{0, 1} << 1;
    QTest::newRow("two begins, two commits: one COMMIT") << u"bbcc"_s << QList<int>{0, 0, 0, 1} << 1;
    QTest::newRow("inner rollback undoes nothing") << u"bbrc"_s << QList<int>{0, 0, 0, 1} << 1;
    QTest::newRow("outer rollback undoes all") << u"bbcr"_s << QList<int>{0, 0, 0, 0} << 0;
}

void TestLmSqlDb::nestedTransactions()
{
    QFETCH(QString, steps);
    QFETCH(QList<int>, visibleAfterEach);
    QVERIFY(openDatabase());
    LmSqlDb *db = LmSqlDb::instance();

    int level = 0;
    for (qsizetype i = 0; i < steps.size(); ++i) {
        if (steps.at(i) == u'b') {
            if (level == 0)
                db->beginTransaction();
            else
                LM_VERIFY_ASSERT(db->beginTransaction(), u"nestedTransactionLevel == 0"_s);
            if (level++ == 0)
                QVERIFY(db->prepare(u"INSERT INTO t VALUES (1)"_s)->exec());
        } else {
            steps.at(i) == u'c' ? db->commitTransaction() : db->rollbackTransaction();
            --level;
        }
        QCOMPARE(db->nestedTransactionLevel(), level);
        QCOMPARE(observedRows(), visibleAfterEach.at(i));
    }
    QTEST(DbTest::column(u"SELECT COUNT(*) FROM t"_s).value(0).toInt(), "kept");
    LM_VERIFY_ASSERT(db->commitTransaction(), u"nestedTransactionLevel > 0"_s);
    LM_VERIFY_ASSERT(db->rollbackTransaction(), u"nestedTransactionLevel > 0"_s);
}

void TestLmSqlDb::transactionFailuresAreFatal_data()
{
    // A statement run behind the object's back makes SQLite refuse the next transaction command.
    QTest::addColumn<QString>("sneaked");
    QTest::addColumn<QString>("message");

    const QString tail =
        u" database transaction. There could be an I/O or network error, or your disk may be full"_s;
    QTest::newRow("begin") << u"BEGIN"_s << u"Could not start"_s + tail;
    QTest::newRow("commit") << u"COMMIT"_s << u"Could not commit (finish)"_s + tail;
    QTest::newRow("rollback") << u"ROLLBACK"_s << u"Could not rollback (abort)"_s + tail;
}

void TestLmSqlDb::transactionFailuresAreFatal()
{
    QFETCH(QString, sneaked);
    QFETCH(QString, message);
    QVERIFY(openDatabase());
    LmSqlDb *db = LmSqlDb::instance();

    if (sneaked != u"BEGIN")
        db->beginTransaction();
    QVERIFY(db->prepare(sneaked)->exec());
    if (sneaked == u"BEGIN")
        LM_VERIFY_FATAL(db->beginTransaction(), message);
    else if (sneaked == u"COMMIT")
        LM_VERIFY_FATAL(db->commitTransaction(), message);
    else
        LM_VERIFY_FATAL(db->rollbackTransaction(), message);
}

void TestLmSqlDb::copyFile_data()
{
    QTest::addColumn<qint64>("size");  // -1: no source
    QTest::addColumn<QString>("dest"); // relative to the home folder, or absolute
    QTest::addColumn<QString>("error");

    QTest::newRow("exactly 15 MiB") << kCopyLimit << u"copy"_s << QString();
    QTest::newRow("one byte more") << kCopyLimit + 1 << u"copy"_s
                                   << u"source file is greater than 15 megs - this should not be the case!"_s;
    QTest::newRow("no source") << qint64(-1) << u"copy"_s << u"couldn't open source file for copy"_s;
    QTest::newRow("no dest folder") << qint64(10) << u"missing/copy"_s
                                    << u"couldn't open dest file for copy"_s;
    if (QFile::exists(u"/dev/full"_s)) {
        QTest::newRow("disk full")
            << qint64(5000) << u"/dev/full"_s
            << u"Couldn't write all data to the database. It's possible the disk is full"_s;
    }
    QTest::newRow("dest not readable")
        << qint64(10) << u"writeonly"_s << u"File was copied, but wrong permissions on new database."_s;
}

void TestLmSqlDb::copyFile()
{
    QFETCH(qint64, size);
    QFETCH(QString, dest);
    QFETCH(QString, error);

    const QString source = _db.path(u"source"_s);
    QByteArray content;
    if (size >= 0) {
        content = QByteArray(size, '\0');
        for (qsizetype i = 0; i < content.size(); i += 4099)
            content[i] = char(i % 251);
        QVERIFY(writeFile(source, content));
    }
    if (!dest.startsWith(u'/'))
        dest = _db.path(dest);
    if (dest.endsWith(u"writeonly"_s)) {
        if (!permissionsApply(_db.home()))
            QSKIP("file permissions do not apply to this user");
        QVERIFY(writeFile(dest, "old"));
        QFile::setPermissions(dest, QFile::WriteOwner);
    }

    QString message;
    QCOMPARE(::copyFile(source, dest, message), error.isEmpty());
    QCOMPARE(message, error);
    if (error.isEmpty())
        QVERIFY(readFile(dest) == content);
}

void TestLmSqlDb::restoreDatabaseHeader_data()
{
    QTest::addColumn<QByteArray>("content"); // null: no file
    QTest::addColumn<bool>("result");
    QTest::addColumn<QByteArray>("after");

    const QByteArray tail("rest of the file, untouched");
    QByteArray damaged = kMaskingHeader;
    damaged[20] = 'X';
    QTest::newRow("masked") << kMaskingHeader + tail << true << kSqliteHeader + tail;
    QTest::newRow("not masked") << damaged + tail << true << damaged + tail;
    QTest::newRow("shorter than a header") << kMaskingHeader.left(47) << false << kMaskingHeader.left(47);
    QTest::newRow("missing") << QByteArray() << false << QByteArray();
}

void TestLmSqlDb::restoreDatabaseHeader()
{
    QFETCH(QByteArray, content);
    const QString path = _db.path(u"userdata.db"_s);
    if (!content.isNull())
        QVERIFY(writeFile(path, content));
    QTEST(::restoreDatabaseHeader(path), "result");
    QTEST(readFile(path), "after");
    QCOMPARE(QFile::exists(path), !content.isNull());
}

void TestLmSqlDb::locateOrCreateDatabase_data()
{
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QByteArray>("expected"); // the database file after; null: the template

    QTest::newRow("missing: the template") << QString() << QString() << QByteArray();
    QTest::newRow("empty: the template") << u"empty"_s << QString() << QByteArray();
    QTest::newRow("existing kept") << u"existing"_s << QString() << QByteArray("old");
    QTest::newRow("older location") << u"older"_s << QString() << QByteArray("older");
    QTest::newRow("no template") << u"no template"_s << u"Couldn't locate source file for copy."_s
                                 << QByteArray("");
    QTest::newRow("folder cannot be made")
        << u"blocked folder"_s << u"couldn't open dest file for copy"_s << QByteArray("");
    QTest::newRow("put aside by a cut-short restore") << u"aside"_s << QString() << QByteArray("aside");
    QTest::newRow("disk full while copying")
        << u"disk full"_s << u"Couldn't write all data to the database. It's possible the disk is full"_s
        << QByteArray("");
}

void TestLmSqlDb::locateOrCreateDatabase()
{
    QFETCH(QString, setup);
    QFETCH(QString, error);
    QFETCH(QByteArray, expected);
    DbTest::RecordedBoxes presenter;

    const QString templatePath = _db.path(u"resources/userdata.db"_s);
    if (setup == u"blocked folder") {
        QVERIFY(writeFile(_db.path(u"file"_s), "x"));
        LmSettings::writeValue(u"/admin/userdbpath"_s, _db.path(u"file/db"_s));
    } else if (setup == u"empty" || setup == u"existing") {
        QVERIFY(writeFile(_db.databasePath(), setup == u"empty" ? "" : "old"));
    } else if (setup == u"older") {
        QVERIFY(QDir().mkpath(_db.path(u"older"_s)) && writeFile(_db.path(u"older/userdata.db"_s), "older"));
        QVERIFY(_db.loadBrand(false, u"<int id=\"datastore.old_path.count\" value=\"2\"/>"
                                     "<string id=\"datastore.old_path.path_0\" value=\"%1\"/>"
                                     "<string id=\"datastore.old_path.path_1\" value=\"%2\"/>"_s
                                         .arg(_db.path(u"nowhere"_s), _db.path(u"older"_s))
                                         .toUtf8()));
    } else if (setup == u"no template") {
        QFile::remove(templatePath);
    } else if (setup == u"aside") {
        QVERIFY(QDir().mkpath(LmSettings::userDatabasePath()));
        QVERIFY(writeFile(_db.databasePath() + u".before-restore"_s, "aside"));
    }

    QString message;
    // A full disk, as the kernel reports it: writes past the limit fail.
    rlimit unlimited{};
    if (setup == u"disk full") {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &unlimited);
        const rlimit full{4096, unlimited.rlim_max};
        setrlimit(RLIMIT_FSIZE, &full);
    }
    const bool located = ::locateOrCreateDatabase(u"userdata.db"_s, message);
    if (setup == u"disk full")
        setrlimit(RLIMIT_FSIZE, &unlimited);
    QCOMPARE(located, error.isEmpty());
    QVERIFY(!QFile::exists(_db.databasePath() + u".copying"_s));
    QCOMPARE(message, error);
    QVERIFY(readFile(_db.databasePath()) == (expected.isNull() ? readFile(templatePath) : expected));
    QCOMPARE(presenter.boxes,
             setup == u"blocked folder" ? QStringList{u"Error: Could not create folder: "_s} : QStringList());
}

namespace {

// An archive with the given members, in the fixture's home.
QString archiveOf(const DbFixture &db, const QList<QPair<QString, QByteArray>> &members)
{
    const QString path = db.path(u"backup.tar"_s);
    QFile out(path);
    if (!out.open(QIODevice::WriteOnly))
        return QString();
    TarFileWriter writer(out);
    for (const auto &[name, contents] : members) {
        const QString source = db.path(u"member"_s);
        if (!writeFile(source, contents) || !writer.addFile(source, name))
            return QString();
    }
    return path;
}

int waterOn(int user)
{
    return UserDB::getWater(user, u"20260301"_s);
}

} // namespace

void TestLmSqlDb::backUpAndRestore()
{
    QVERIFY(_db.start(false));
    const int user = UserDB::createUser(UserProfile(), UserSettings(), 168, u"20260101"_s);
    UserDB::setWater(user, u"20260301"_s, 5);
    const QString archive = _db.path(u"data.tar"_s);
    QCOMPARE(DataBackup::backUp(archive), QString());
    UserDB::setWater(user, u"20260301"_s, 8);

    // The running diary goes back to the backup's, and the one replaced stays beside it.
    QCOMPARE(DataBackup::restore(archive), QString());
    QCOMPARE(waterOn(user), 5);
    const QString side = _db.databasePath() + u".before-restore"_s;
    QVERIFY(QFile::exists(side));
    QCOMPARE(DataBackup::backUp(_db.path(u"nowhere/data.tar"_s)).left(12), u"Cannot write"_s);

    // The copy never passes through the temporary folder, where a killed backup would leave it.
    const bool tmpSet = qEnvironmentVariableIsSet("TMPDIR");
    const QByteArray tmp = qgetenv("TMPDIR");
    qputenv("TMPDIR", QFile::encodeName(_db.path(u"no-such-folder"_s)));
    const QString viaNoTemp = DataBackup::backUp(_db.path(u"again.tar"_s));
    tmpSet ? qputenv("TMPDIR", tmp) : qunsetenv("TMPDIR");
    QCOMPARE(viaNoTemp, QString());
    QVERIFY(!QFile::exists(_db.databasePath() + u".backing-up"_s));

    // A backup never lands on the diary itself, nor on any other database.
    const QByteArray diary = readFile(_db.databasePath());
    QVERIFY(DataBackup::backUp(_db.databasePath()).endsWith(u"is a database: choose another name for the backup."_s));
    QVERIFY(DataBackup::backUp(side).contains(u"is a database"_s));
    QVERIFY(readFile(_db.databasePath()) == diary);

    // A diary kept in write-ahead mode comes back as one file.
    QVERIFY(!LmSqlDb::instance()->prepare(u"PRAGMA journal_mode = WAL"_s).isNull());
    QVERIFY(LmSqlDb::instance()->prepare(u"PRAGMA journal_mode = WAL"_s)->exec());
    QCOMPARE(DataBackup::backUp(archive), QString());
    QCOMPARE(DataBackup::restore(archive), QString());
    QCOMPARE(waterOn(user), 5);
    QCOMPARE(QDir(LmSettings::userDatabasePath()).entryList({u"userdata.db-*"_s}), QStringList());

    // A backup of the template (version 204) is upgraded as it starts.
    const QString older = archiveOf(
        _db, {{QLatin1String(DataBackup::kMember), readFile(_db.path(u"resources/userdata.db"_s))}});
    QCOMPARE(DataBackup::restore(older), QString());
    QCOMPARE(UserDB::numUsers(), 0);
    QCOMPARE(DbTest::column(u"SELECT itemvalue FROM userdata_meta WHERE itemkey = 'schema_version'"_s),
             QStringList{QString::number(LmSchema::kCurrentVersion)});
}

void TestLmSqlDb::restoreRefused_data()
{
    QTest::addColumn<QString>("archive");
    QTest::addColumn<QString>("message");
    QTest::newRow("no archive") << u"missing"_s << u"Cannot read"_s;
    QTest::newRow("no database in it") << u"other member"_s << u"is no backup of this program"_s;
    QTest::newRow("not a database") << u"text"_s << u"damaged or is no database"_s;
    QTest::newRow("cut short") << u"half"_s << u"damaged or is no database"_s;
    QTest::newRow("another program's database") << u"foreign"_s << u"holds no diary"_s;
    QTest::newRow("too new") << u"version 500"_s << u"has version 500"_s;
    QTest::newRow("upgrade fails") << u"version 300 alone"_s << u"could not be upgraded: Error upgrading database"_s;
    QTest::newRow("a table missing") << u"no food_diary"_s << u"(no table food_diary)"_s;
}

void TestLmSqlDb::restoreRefused()
{
    QFETCH(QString, archive);
    QFETCH(QString, message);
    QVERIFY(_db.start(false));
    const int user = UserDB::createUser(UserProfile(), UserSettings(), 168, u"20260101"_s);
    UserDB::setWater(user, u"20260301"_s, 5);
    const QByteArray diary = readFile(_db.databasePath());

    QByteArray member;
    if (archive == u"half") {
        member = diary.left(diary.size() / 2);
    } else if (archive == u"foreign" || archive.startsWith(u"version") || archive == u"no food_diary") {
        const QString path = _db.path(u"other.db"_s);
        if (archive == u"no food_diary")
            QVERIFY(writeFile(path, diary));
        {
            QSqlDatabase other = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"other"_s);
            other.setDatabaseName(path);
            QVERIFY(other.open());
            QSqlQuery q(other);
            if (archive == u"foreign")
                QVERIFY(q.exec(u"CREATE TABLE recipes (name TEXT)"_s));
            else if (archive == u"no food_diary")
                QVERIFY(q.exec(u"DROP TABLE food_diary"_s));
            else
                QVERIFY(q.exec(u"CREATE TABLE userdata_meta (itemkey TEXT, itemvalue TEXT)"_s) &&
                        q.exec(u"INSERT INTO userdata_meta VALUES ('schema_version', '%1')"_s.arg(
                            archive == u"version 500" ? 500 : 300)));
            other.close();
        }
        QSqlDatabase::removeDatabase(u"other"_s);
        member = readFile(path);
    } else {
        member = "not a database at all";
    }
    const QString path =
        archive == u"missing"
            ? _db.path(u"missing.tar"_s)
            : archiveOf(_db,
                        {{archive == u"other member" ? u"notes.txt"_s : QLatin1String(DataBackup::kMember),
                          member}});
    const QString error = DataBackup::restore(path);
    QVERIFY2(error.contains(message), qPrintable(error));
    // Nothing changed: the diary runs on, byte for byte as it was, and nothing was left beside it.
    QCOMPARE(waterOn(user), 5);
    QVERIFY(readFile(_db.databasePath()) == diary);
    QVERIFY(QDir(LmSettings::userDatabasePath()).entryList({u"userdata.db.*"_s}).isEmpty());
}

QTEST_GUILESS_MAIN(TestLmSqlDb)
#include "tst_lmsqldb.moc"
