#include "app/lmsettings.h"
#include "brand/brandengine.h"
#include "brand/tarfilewriter.h"
#include "common/lmmessage.h"
#include "db/lmsqldb.h"
#include "dbfixture.h"

#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>

#include <chrono>
#include <future>
#include <memory>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

struct Message
{
    QString caption;
    QString text;
};

class RecordingPresenter : public Lm::MessagePresenter
{
public:
    void showMessage(Lm::MessageKind, const QString &caption, const QString &text) override
    {
        messages.append({caption, text});
    }
    bool askQuestion(const QString &, const QString &, bool defaultYes) override { return defaultYes; }
    QList<Message> messages;
};

bool writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Permission tests mean nothing to a user who may read and write anything.
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

} // namespace

class TestLmSqlDb : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void instanceLifecycle();
    void nestedTransactions_data();
    void nestedTransactions();
    void transactionFailuresAreFatal_data();
    void transactionFailuresAreFatal();
    void busyDatabaseIsWaitedFor();
    void queryHandleOwnership();
    void schemaVersion_data();
    void schemaVersion();
    void qualifyColumns_data();
    void qualifyColumns();

    void copyFile_data();
    void copyFile();
    void copyFileBlockwise_data();
    void copyFileBlockwise();
    void restoreDatabaseHeader_data();
    void restoreDatabaseHeader();
    void locateOrCreateDatabase_data();
    void locateOrCreateDatabase();

private:
    void loadBrand(const QString &extraXml = QString());
    bool openDatabase();
    int observedRows();
    QString folder(const QString &name) const;

    DbFixture _db;
    RecordingPresenter _presenter;
};

void TestLmSqlDb::init()
{
    QVERIFY(_db.prepare(false));
    _presenter.messages.clear();
    Lm::setMessagePresenter(&_presenter);
}

void TestLmSqlDb::cleanup()
{
    QSqlDatabase::removeDatabase(u"observer"_s);
    Lm::setMessagePresenter(nullptr);
    _db.stop();
}

QString TestLmSqlDb::folder(const QString &name) const
{
    return _db.path(name);
}

void TestLmSqlDb::loadBrand(const QString &extraXml)
{
    QVERIFY(_db.loadBrand(false, extraXml.toUtf8()));
}

// The template copied into place and opened, with a scratch table.
bool TestLmSqlDb::openDatabase()
{
    std::string error;
    if (!LmSqlDb::startUp(error, false))
        return false;
    return LmSqlDb::instance()->prepare(u"CREATE TABLE t (x INTEGER)"_s)->exec();
}

// Rows of the scratch table as a second connection sees them.
int TestLmSqlDb::observedRows()
{
    QSqlDatabase observer = QSqlDatabase::contains(u"observer"_s)
                                ? QSqlDatabase::database(u"observer"_s)
                                : QSqlDatabase::addDatabase(u"QSQLITE"_s, u"observer"_s);
    observer.setDatabaseName(LmSettings::userDatabasePath() + u"userdata.db"_s);
    if (!observer.isOpen() && !observer.open())
        return -1;
    QSqlQuery query(observer);
    if (!query.exec(u"SELECT COUNT(*) FROM t"_s) || !query.next())
        return -1;
    return query.value(0).toInt();
}

void TestLmSqlDb::instanceLifecycle()
{
    QVERIFY(!LmSqlDb::exists());
    LM_VERIFY_ASSERT(LmSqlDb::instance(), u"_instance"_s);

    std::string error;
    QVERIFY(LmSqlDb::startUp(error, true));
    QVERIFY(LmSqlDb::exists());
    QCOMPARE(LmSqlDb::instance()->nestedTransactionLevel(), 0);
    QVERIFY(!LmSqlDb::startUp(error, true));
    QCOMPARE(QString::fromStdString(error), u"startUp called twice? should never happen"_s);

    LmSqlDb::shutDown();
    QVERIFY(!LmSqlDb::exists());
    QVERIFY(!QSqlDatabase::contains(QLatin1String(LmSqlDb::kConnectionName)));
    LmSqlDb::shutDown(); // nothing left to destroy
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
    QTest::newRow("rollback") << u"br"_s << QList<int>{0, 0} << 0;
}

void TestLmSqlDb::nestedTransactions()
{
    QFETCH(QString, steps);
    QFETCH(QList<int>, visibleAfterEach);
    QFETCH(int, kept);
    QVERIFY(openDatabase());
    LmSqlDb *db = LmSqlDb::instance();

    int level = 0;
    for (qsizetype i = 0; i < steps.size(); ++i) {
        switch (steps.at(i).toLatin1()) {
        case 'b':
            if (level == 0)
                db->beginTransaction();
            else
                LM_VERIFY_ASSERT(db->beginTransaction(), u"nestedTransactionLevel == 0"_s);
            if (level++ == 0)
                QVERIFY(db->prepare(u"INSERT INTO t VALUES (1)"_s)->exec());
            break;
        case 'c':
            db->commitTransaction();
            --level;
            break;
        default:
            LmSqlDb::rollback();
            --level;
        }
        QCOMPARE(db->nestedTransactionLevel(), level);
        QCOMPARE(observedRows(), visibleAfterEach.at(i));
    }
    LmSqlQueryPtr count = db->prepare(u"SELECT COUNT(*) FROM t"_s);
    QVERIFY(count->exec() && count->next());
    QCOMPARE(count->value(0).toInt(), kept);

    LM_VERIFY_ASSERT(db->commitTransaction(), u"nestedTransactionLevel > 0"_s);
    QCOMPARE(db->nestedTransactionLevel(), 0);
    LM_VERIFY_ASSERT(db->rollbackTransaction(), u"nestedTransactionLevel > 0"_s);
}

void TestLmSqlDb::transactionFailuresAreFatal_data()
{
    // A statement run behind the object's back makes SQLite refuse the next transaction command.
    QTest::addColumn<QString>("sneaked");
    QTest::addColumn<char>("step");
    QTest::addColumn<QString>("message");

    QTest::newRow("begin")
        << u"BEGIN"_s << 'b'
        << u"Could not start database transaction. There could be an I/O or network error, "
           "or your disk may be full"_s;
    QTest::newRow("commit") << u"COMMIT"_s << 'c'
                            << u"Could not commit (finish) database transaction. There could be an I/O or "
                               "network error, or your disk may be full"_s;
    QTest::newRow("rollback") << u"ROLLBACK"_s << 'r'
                              << u"Could not rollback (abort) database transaction. There could be an I/O or "
                                 "network error, or your disk may be full"_s;
}

void TestLmSqlDb::transactionFailuresAreFatal()
{
    QFETCH(QString, sneaked);
    QFETCH(char, step);
    QFETCH(QString, message);
    QVERIFY(openDatabase());
    LmSqlDb *db = LmSqlDb::instance();

    if (step != 'b')
        db->beginTransaction();
    QVERIFY(db->prepare(sneaked)->exec());
    if (step == 'b')
        LM_VERIFY_FATAL(db->beginTransaction(), message);
    else if (step == 'c')
        LM_VERIFY_FATAL(db->commitTransaction(), message);
    else
        LM_VERIFY_FATAL(db->rollbackTransaction(), message);
}

void TestLmSqlDb::busyDatabaseIsWaitedFor()
{
    QVERIFY(openDatabase());
    const QString path = LmSettings::userDatabasePath() + u"userdata.db"_s;

    // Another process holds the write lock for a moment.
    std::promise<bool> locked;
    std::thread holder([&path, &locked] {
        {
            QSqlDatabase other = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"holder"_s);
            other.setDatabaseName(path);
            QSqlQuery lock(other);
            const bool ok = other.open() && lock.exec(u"BEGIN IMMEDIATE"_s);
            locked.set_value(ok);
            std::this_thread::sleep_for(std::chrono::milliseconds(400));
            lock.exec(u"COMMIT"_s);
        }
        QSqlDatabase::removeDatabase(u"holder"_s);
    });
    const bool holderLocked = locked.get_future().get();

    LmSqlDb::begin();
    const bool inserted = LmSqlDb::instance()->prepare(u"INSERT INTO t VALUES (1)"_s)->exec();
    LmSqlDb::commit();
    holder.join();
    QVERIFY(holderLocked);
    QVERIFY(inserted);
    QCOMPARE(observedRows(), 1);
}

void TestLmSqlDb::queryHandleOwnership()
{
    QVERIFY(openDatabase());
    LmSqlDb *db = LmSqlDb::instance();

    LmSqlQueryPtr first = db->prepare(u"SELECT 7"_s);
    QVERIFY(first.owns());
    LmSqlQueryPtr second(first); // the copy takes the ownership
    QVERIFY(!first.owns());
    QVERIFY(second.owns());
    QCOMPARE(first.get(), second.get());
    QVERIFY(second->exec() && second->next());
    QCOMPARE(second->value(0).toInt(), 7);

    LmSqlQueryPtr third = db->prepare(u"SELECT 8"_s);
    third = second; // drops its own query, takes the other
    QVERIFY(third.owns());
    QVERIFY(!second.owns());

    LmSqlDb::releaseQuery(third);
    QVERIFY(third.isNull());
    QVERIFY(!third.owns());
    LmSqlDb::releaseQuery(first); // not the owner: only forgets the pointer
    QVERIFY(first.isNull());

    // Released after the database is gone: reported, and the handle lets go of the query.
    LmSqlQueryPtr late = db->prepare(u"SELECT 9"_s);
    const std::unique_ptr<QSqlQuery> query(late.get());
    LmSqlDb::shutDown();
    LM_VERIFY_ASSERT(LmSqlDb::releaseQuery(late), u"_instance"_s);
    QVERIFY(late.isNull());
}

void TestLmSqlDb::schemaVersion_data()
{
    QTest::addColumn<QString>("statement");
    QTest::addColumn<int>("version");

    QTest::newRow("as stored") << QString() << 412;
    QTest::newRow("later release")
        << u"UPDATE userdata_meta SET itemvalue = 499 WHERE itemkey = 'schema_version'"_s << 499;
    QTest::newRow("no row") << u"DELETE FROM userdata_meta WHERE itemkey = 'schema_version'"_s << 0;
    QTest::newRow("no table") << u"DROP TABLE userdata_meta"_s << 0;
}

void TestLmSqlDb::schemaVersion()
{
    QFETCH(QString, statement);
    // A current database, so that the start-up leaves it alone.
    const QString path = LmSettings::userDatabasePath() + u"userdata.db"_s;
    QVERIFY(QFile::copy(binDir() + u"/userdata.db"_s, path));
    {
        QSqlDatabase setup = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"setup"_s);
        setup.setDatabaseName(path);
        QVERIFY(setup.open());
        QVERIFY(QSqlQuery(setup).exec(
            u"UPDATE userdata_meta SET itemvalue = 412 WHERE itemkey = 'schema_version'"_s));
    }
    QSqlDatabase::removeDatabase(u"setup"_s);

    std::string error;
    QVERIFY(LmSqlDb::startUp(error, false));
    LmSqlDb *db = LmSqlDb::instance();
    if (!statement.isEmpty())
        QVERIFY(db->prepare(statement)->exec());
    QTEST(db->schemaVersion(), "version");
}

void TestLmSqlDb::qualifyColumns_data()
{
    QTest::addColumn<QString>("list");
    QTest::addColumn<QString>("prefix");
    QTest::addColumn<QString>("qualified");

    QTest::newRow("two fields") << u"user_id, date"_s << u"new"_s << u"new.user_id, new.date"_s;
    QTest::newRow("one field") << u"food_id"_s << u"old"_s << u"old.food_id"_s;
    QTest::newRow("spaces kept") << u" a  b "_s << u"p"_s << u" p.a  p.b "_s;
    QTest::newRow("empty") << QString() << u"new"_s << QString();
}

void TestLmSqlDb::qualifyColumns()
{
    QFETCH(QString, list);
    QFETCH(QString, prefix);
    QTEST(LmSqlDb::qualifyColumns(list, prefix), "qualified");
}

void TestLmSqlDb::copyFile_data()
{
    QTest::addColumn<qint64>("size");  // -1: no source
    QTest::addColumn<QString>("dest"); // relative to the home folder, or absolute
    QTest::addColumn<QString>("error");

    const qint64 limit = qint64(15) * 1024 * 1024;
    QTest::newRow("empty") << qint64(0) << u"copy"_s << QString();
    QTest::newRow("small") << qint64(5000) << u"copy"_s << QString();
    QTest::newRow("exactly 15 MiB") << limit << u"copy"_s << QString();
    QTest::newRow("one byte more") << limit + 1 << u"copy"_s
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

    const QString source = folder(u"source"_s);
    QByteArray content;
    if (size >= 0) {
        content = QByteArray(size, '\0');
        for (qsizetype i = 0; i < content.size(); i += 4099)
            content[i] = char(i % 251);
        QVERIFY(writeFile(source, content));
    }
    if (!dest.startsWith(u'/'))
        dest = folder(dest);
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

void TestLmSqlDb::copyFileBlockwise_data()
{
    QTest::addColumn<QByteArray>("source");  // null: no source file
    QTest::addColumn<QByteArray>("oldDest"); // null: no dest file
    QTest::addColumn<bool>("destFolderExists");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QByteArray>("newDest"); // null: no dest file

    const QByteArray blocks(3000, 'a');
    QTest::newRow("several blocks") << blocks << QByteArray() << true << true << blocks;
    QTest::newRow("empty source") << QByteArray("") << QByteArray() << true << true << QByteArray("");
    QTest::newRow("dest not truncated")
        << QByteArray("new") << QByteArray("older text") << true << true << QByteArray("newer text");
    QTest::newRow("no source") << QByteArray() << QByteArray("kept") << true << false << QByteArray("kept");
    QTest::newRow("no dest folder") << QByteArray("x") << QByteArray() << false << false << QByteArray();
}

void TestLmSqlDb::copyFileBlockwise()
{
    QFETCH(QByteArray, source);
    QFETCH(QByteArray, oldDest);
    QFETCH(bool, destFolderExists);
    QFETCH(QByteArray, newDest);

    const QString sourcePath = folder(u"source"_s);
    const QString destPath = folder(destFolderExists ? u"dest"_s : u"missing/dest"_s);
    if (!source.isNull())
        QVERIFY(writeFile(sourcePath, source));
    if (!oldDest.isNull())
        QVERIFY(writeFile(destPath, oldDest));

    QTEST(::copyFileBlockwise(sourcePath, destPath), "result");
    QCOMPARE(QFile::exists(destPath), !newDest.isNull());
    if (!newDest.isNull())
        QCOMPARE(readFile(destPath), newDest);
}

void TestLmSqlDb::restoreDatabaseHeader_data()
{
    QTest::addColumn<QByteArray>("content"); // null: no file
    QTest::addColumn<bool>("result");
    QTest::addColumn<QByteArray>("after"); // null: no file

    const QByteArray tail("rest of the file, untouched");
    QByteArray damaged = kMaskingHeader;
    damaged[20] = 'X';

    QTest::newRow("masked") << kMaskingHeader + tail << true << kSqliteHeader + tail;
    QTest::newRow("masking header only") << kMaskingHeader << true << kSqliteHeader;
    QTest::newRow("not masked") << damaged + tail << true << damaged + tail;
    QTest::newRow("SQLite 3 file") << QByteArray("SQLite format 3").append(60, '\0') << true
                                   << QByteArray("SQLite format 3").append(60, '\0');
    QTest::newRow("shorter than a header") << kMaskingHeader.left(47) << false << kMaskingHeader.left(47);
    QTest::newRow("missing") << QByteArray() << false << QByteArray();
}

void TestLmSqlDb::restoreDatabaseHeader()
{
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, after);

    const QString path = folder(u"userdata.db"_s);
    if (!content.isNull())
        QVERIFY(writeFile(path, content));
    QTEST(::restoreDatabaseHeader(path), "result");
    QCOMPARE(QFile::exists(path), !after.isNull());
    if (!after.isNull())
        QCOMPARE(readFile(path), after);
}

void TestLmSqlDb::locateOrCreateDatabase_data()
{
    QTest::addColumn<QString>("setup");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("expected"); // what the database file holds after: template, old, older

    QTest::newRow("missing: the template") << QString() << true << QString() << u"template"_s;
    QTest::newRow("empty: the template") << u"empty"_s << true << QString() << u"template"_s;
    QTest::newRow("existing kept") << u"existing"_s << true << QString() << u"old"_s;
    QTest::newRow("older location") << u"older"_s << true << QString() << u"older"_s;
    QTest::newRow("no template") << u"no template"_s << false << u"Couldn't locate source file for copy."_s
                                 << QString();
    QTest::newRow("template too big")
        << u"big template"_s << false
        << u"source file is greater than 15 megs - this should not be the case!"_s << QString();
    QTest::newRow("template unreadable")
        << u"unreadable template"_s << false << u"Source file is not readable."_s << QString();
    QTest::newRow("existing unusable")
        << u"unusable"_s << false << u"File exists but permissions are wrong."_s << QString();
    QTest::newRow("folder cannot be made")
        << u"blocked folder"_s << false << u"couldn't open dest file for copy"_s << QString();
}

void TestLmSqlDb::locateOrCreateDatabase()
{
    QFETCH(QString, setup);
    QFETCH(QString, error);
    QFETCH(QString, expected);

    const QString templatePath = folder(u"resources/userdata.db"_s);
    if (setup == u"blocked folder") {
        QVERIFY(writeFile(folder(u"file"_s), "x"));
        LmSettings::writeValue(u"/admin/userdbpath"_s, folder(u"file/db"_s));
    }
    const QString target = LmSettings::userDatabasePath() + u"userdata.db"_s;
    if (setup.contains(u"unreadable") || setup == u"unusable") {
        if (!permissionsApply(_db.home()))
            QSKIP("file permissions do not apply to this user");
    }

    if (setup == u"empty") {
        QVERIFY(writeFile(target, QByteArray()));
    } else if (setup == u"existing" || setup == u"unusable") {
        QVERIFY(writeFile(target, "old"));
        if (setup == u"unusable")
            QFile::setPermissions(target, QFile::ReadOwner);
    } else if (setup == u"older") {
        QDir().mkpath(folder(u"older"_s));
        QVERIFY(writeFile(folder(u"older/userdata.db"_s), "older"));
        loadBrand(u"<int id=\"datastore.old_path.count\" value=\"2\"/>"
                  "<string id=\"datastore.old_path.path_0\" value=\"%1\"/>"
                  "<string id=\"datastore.old_path.path_1\" value=\"%2\"/>"_s.arg(folder(u"nowhere"_s),
                                                                                  folder(u"older"_s)));
    } else if (setup == u"no template") {
        QFile::remove(templatePath);
    } else if (setup == u"big template") {
        QFile big(templatePath);
        QVERIFY(big.open(QIODevice::ReadWrite) && big.resize(15 * 1024 * 1024 + 1));
    } else if (setup == u"unreadable template") {
        QFile::setPermissions(templatePath, QFile::WriteOwner);
    }

    QString message;
    QTEST(::locateOrCreateDatabase(u"userdata.db"_s, message), "result");
    QCOMPARE(message, error);
    if (expected == u"template")
        QVERIFY(readFile(target) == readFile(templatePath));
    else if (!expected.isEmpty())
        QCOMPARE(readFile(target), expected.toLatin1());

    if (setup == u"blocked folder") {
        QCOMPARE(_presenter.messages.size(), 1);
        QCOMPARE(_presenter.messages.at(0).caption, u"Error"_s);
        QCOMPARE(_presenter.messages.at(0).text, u"Could not create folder: "_s);
    } else {
        QVERIFY(_presenter.messages.isEmpty());
    }
}

QTEST_GUILESS_MAIN(TestLmSqlDb)
#include "tst_lmsqldb.moc"
