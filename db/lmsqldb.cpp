#include "db/lmsqldb.h"

#include "app/lmsettings.h"
#include "brand/brandengine.h"
#include "common/lmassert.h"
#include "common/lmmessage.h"
#include "db/dblog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include <cstdio>
#include <utility>

using namespace Qt::StringLiterals;

LmSqlDb *LmSqlDb::_instance = nullptr;

namespace {
QString g_lastErrorText;
} // namespace

QString LmSqlDb::lastErrorText()
{
    return g_lastErrorText;
}

// ---------------------------------------------------------------------------------------------
// LmSqlQueryPtr

LmSqlQueryPtr::LmSqlQueryPtr(QSqlQuery *query)
    : _owns(query != nullptr)
    , _query(query)
{
}

LmSqlQueryPtr::LmSqlQueryPtr(LmSqlQueryPtr &other)
{
    take(other);
}

LmSqlQueryPtr::LmSqlQueryPtr(LmSqlQueryPtr &&other) noexcept
{
    take(other);
}

LmSqlQueryPtr &LmSqlQueryPtr::operator=(LmSqlQueryPtr &other)
{
    if (this != &other) {
        if (_query != other._query)
            destroy();
        take(other);
    }
    return *this;
}

LmSqlQueryPtr &LmSqlQueryPtr::operator=(LmSqlQueryPtr &&other) noexcept
{
    return *this = other;
}

LmSqlQueryPtr::~LmSqlQueryPtr()
{
    destroy();
}

QSqlQuery *LmSqlQueryPtr::operator->() const
{
    LM_ASSERT(_query);
    return _query;
}

QSqlQuery &LmSqlQueryPtr::operator*() const
{
    LM_ASSERT(_query);
    return *_query;
}

void LmSqlQueryPtr::take(LmSqlQueryPtr &other)
{
    _owns = std::exchange(other._owns, false);
    _cached = std::exchange(other._cached, false);
    _query = other._query; // the source keeps the pointer, without the ownership
}

void LmSqlQueryPtr::destroy()
{
    if (_owns && _query)
        LmSqlDb::destroyQuery(_query);
    else if (_cached && _query && LmSqlDb::exists())
        _query->finish(); // a statement left open would hold the read lock other processes wait on
    _owns = false;
    _cached = false;
    _query = nullptr;
}

// ---------------------------------------------------------------------------------------------
// LmSqlDb

LmSqlDb *LmSqlDb::instance()
{
    LM_ASSERT(_instance);
    return _instance;
}

bool LmSqlDb::exists()
{
    return _instance != nullptr;
}

void LmSqlDb::shutDown()
{
    delete _instance;
    _instance = nullptr;
    LM_ASSERT(!_instance);
}

LmSqlDb::LmSqlDb(std::string &error, bool &openFailed)
    : LmSqlDb(LmSettings::userDatabasePath() + QLatin1String(kFileName), error, openFailed)
{
}

LmSqlDb::LmSqlDb(const QString &file, std::string &error, bool &openFailed)
{
    const QString connection = QLatin1String(kConnectionName);
    _db = std::make_unique<QSqlDatabase>(QSqlDatabase::addDatabase(u"QSQLITE"_s, connection));
    _db->setDatabaseName(file);
    _db->setUserName(QString());
    _db->setPassword(QString());
    // A second process (the desktop program, the command-line tool, a cron job) may hold the file
    // for a moment; wait for it rather than fail.
    _db->setConnectOptions(u"QSQLITE_BUSY_TIMEOUT="_s + QString::number(kBusyTimeoutMs));

    if (_db->open() && !_db->isOpenError()) {
        _nestedTransactionLevel = 0;
        return;
    }

    error = _db->lastError().text().toLatin1().toStdString();
    openFailed = true;
    qCWarning(lcDb).noquote() << "Cannot open the user database:" << _db->lastError().text();
    _db.reset();
    QSqlDatabase::removeDatabase(connection);
}

LmSqlDb::~LmSqlDb()
{
    qDeleteAll(_cachedQueries);
    _cachedQueries.clear();
    if (_db) {
        _db->close();
        _db.reset();
        QSqlDatabase::removeDatabase(QLatin1String(kConnectionName));
    }
    if (_instance == this)
        _instance = nullptr;
}

bool LmSqlDb::runControl(const char *statement)
{
    if (!_db)
        return false;
    QSqlQuery query(*_db);
    if (query.exec(QLatin1String(statement)))
        return true;
    g_lastErrorText = query.lastError().databaseText();
    qCWarning(lcDb).noquote() << statement << "failed:" << query.lastError().text();
    return false;
}

bool LmSqlDb::tryBeginTransaction()
{
    if (_nestedTransactionLevel != 0) {
        // Reported, but counted as a level, so that the matching commits still balance.
        const int nestedTransactionLevel = _nestedTransactionLevel++;
        LM_ASSERT(nestedTransactionLevel == 0);
        return true;
    }
    if (!runControl("BEGIN IMMEDIATE"))
        return false;
    _nestedTransactionLevel = 1;
    return true;
}

void LmSqlDb::beginTransaction()
{
    if (!tryBeginTransaction())
        Lm::fatal(u"Could not start database transaction. There could be an I/O or network error, "
                  "or your disk may be full"_s);
}

bool LmSqlDb::tryCommitTransaction()
{
    const int nestedTransactionLevel = _nestedTransactionLevel;
    LM_ASSERT(nestedTransactionLevel > 0);
    --_nestedTransactionLevel;
    if (nestedTransactionLevel != 1)
        return true;
    if (runControl("COMMIT"))
        return true;
    runControl("ROLLBACK");
    return false;
}

void LmSqlDb::commitTransaction()
{
    if (!tryCommitTransaction())
        Lm::fatal(u"Could not commit (finish) database transaction. There could be an I/O or network "
                  "error, or your disk may be full"_s);
}

void LmSqlDb::rollbackTransaction()
{
    const int nestedTransactionLevel = _nestedTransactionLevel;
    LM_ASSERT(nestedTransactionLevel > 0);
    --_nestedTransactionLevel;
    if (nestedTransactionLevel != 1)
        return;
    if (!runControl("ROLLBACK"))
        Lm::fatal(u"Could not rollback (abort) database transaction. There could be an I/O or network "
                  "error, or your disk may be full"_s);
}

LmWriteTransaction::LmWriteTransaction()
{
    LmSqlDb *db = LmSqlDb::instance();
    if (db->nestedTransactionLevel() > 0)
        _state = Joined;
    else if (db->tryBeginTransaction())
        _state = Owner;
}

LmWriteTransaction::~LmWriteTransaction()
{
    if (_state == Owner && LmSqlDb::exists())
        LmSqlDb::instance()->rollbackTransaction();
}

bool LmWriteTransaction::commit(bool ok)
{
    const State state = std::exchange(_state, Closed);
    if (state == Joined)
        return ok;
    if (state != Owner)
        return false;
    LmSqlDb *db = LmSqlDb::instance();
    if (!ok) {
        db->rollbackTransaction();
        return false;
    }
    return db->tryCommitTransaction();
}

LmSqlQueryPtr LmSqlDb::prepare(const QString &sql) const
{
    auto *query = new QSqlQuery(_db ? *_db : QSqlDatabase());
    // Every caller steps through its rows once; the driver then keeps no copy of them.
    query->setForwardOnly(true);
    query->prepare(sql);
    return LmSqlQueryPtr(query);
}

LmSqlQueryPtr runBound(const QString &sql, const QVariantList &values)
{
    LmSqlQueryPtr query = LmSqlDb::instance()->prepare(sql);
    if (!execBound(query, values))
        return LmSqlQueryPtr();
    return query;
}

bool execBound(LmSqlQueryPtr &query, const QVariantList &values)
{
    for (qsizetype i = 0; i < values.size(); ++i)
        query->bindValue(int(i), values.at(i));
    if (query->exec())
        return true;
    g_lastErrorText = query->lastError().databaseText();
    qCWarning(lcDb, "%s failed: %s", qUtf8Printable(query->lastQuery()), qUtf8Printable(query->lastError().text()));
    // A damaged file (SQLITE_CORRUPT, SQLITE_NOTADB) is found only where a statement reads the
    // damaged page: nothing more is read or written, and the user learns what to do.
    const QString code = query->lastError().nativeErrorCode();
    if (code == QLatin1String("11") || code == QLatin1String("26"))
        Lm::fatal(u"The diary is damaged (%1). Restore it from a backup."_s.arg(g_lastErrorText));
    return false;
}

LmSqlQueryPtr LmSqlDb::cachedQuery(const QString &sql)
{
    QSqlQuery *&query = _cachedQueries[sql];
    if (!query) {
        query = new QSqlQuery(_db ? *_db : QSqlDatabase());
        query->setForwardOnly(true);
        query->prepare(sql);
    }
    query->finish();
    LmSqlQueryPtr handle(query);
    handle._owns = false;
    handle._cached = true;
    return handle;
}

void LmSqlDb::releaseQuery(LmSqlQueryPtr &handle)
{
    const bool owns = std::exchange(handle._owns, false);
    const bool cached = std::exchange(handle._cached, false);
    QSqlQuery *query = std::exchange(handle._query, nullptr);
    if (owns && query) {
        destroyQuery(query);
        return;
    }
    LM_ASSERT(_instance);
    if (cached && query)
        query->finish();
}

void LmSqlDb::destroyQuery(QSqlQuery *query)
{
    // A query must not outlive its connection.
    LM_ASSERT(_instance);
    delete query;
}

int LmSqlDb::schemaVersion() const
{
    if (!_db)
        return 0;
    LmSqlQueryPtr query = prepare(u"SELECT itemvalue FROM userdata_meta WHERE itemkey = 'schema_version'"_s);
    if (!query->exec() || !query->next())
        return 0;
    return query->value(0).toInt();
}

QString LmSqlDb::qualifyColumns(const QString &list, const QString &prefix)
{
    QString result;
    result.reserve(list.size() * 2);
    bool atWordStart = true;
    for (const QChar c : list) {
        if (c == u' ') {
            atWordStart = true;
        } else if (atWordStart) {
            result += prefix;
            result += u'.';
            atWordStart = false;
        }
        result += c;
    }
    return result;
}

// ---------------------------------------------------------------------------------------------
// File operations

namespace {

// Files larger than this are not databases of ours; copyFile refuses them.
constexpr qint64 kMaxCopySize = qint64(15) * 1024 * 1024;

// What nothing in the program writes but a delivered database may start with: one complete gzip
// member (no name, mtime 0x401F5637, extra flags 2, system 3) whose single fixed-Huffman deflate
// block holds "Brindlemoss Food/Exercise DB", then its CRC-32 and length 28.
constexpr unsigned char kMaskingHeader[48] = {
    0x1f, 0x8b, 0x08, 0x00, 0x37, 0x56, 0x1f, 0x40, 0x02, 0x03, 0x73, 0x2a, 0xca, 0xcc, 0x4b, 0xc9,
    0x49, 0xcd, 0xcd, 0x2f, 0x2e, 0x56, 0x70, 0xcb, 0xcf, 0x4f, 0xd1, 0x77, 0xad, 0x48, 0x2d, 0x4a,
    0xce, 0x2c, 0x4e, 0x55, 0x70, 0x71, 0x02, 0x00, 0x96, 0x40, 0xd8, 0x8b, 0x1c, 0x00, 0x00, 0x00,
};

// The header text and its terminating zero byte.
constexpr char kDatabaseHeader[48] = "** This file contains an SQLite 2.1 database **";

// Copies beside the target, then renames into place: a copy cut short (a full disk, a kill) never
// stands as the database.
bool copyIntoPlace(const QString &source, const QString &target, QString &error)
{
    const QString partial = target + u".copying"_s;
    QFile::remove(partial);
    if (!copyFile(source, partial, error)) {
        QFile::remove(partial);
        return false;
    }
    if (std::rename(QFile::encodeName(partial).constData(), QFile::encodeName(target).constData()) != 0) {
        QFile::remove(partial);
        error = u"Copying of file failed"_s;
        return false;
    }
    return true;
}

// An older data location of the brand that holds a database of the same name, copied to target.
bool copyFromOlderLocation(const QString &name, const QString &target)
{
    const BrandEngine &brand = BrandEngine::instance();
    const QString countId = u"datastore.old_path.count"_s;
    if (!brand.idExists(countId))
        return false;
    const int count = brand.getInt(countId);
    for (int i = 0; i < count; ++i) {
        const QString pathId = u"datastore.old_path.path_"_s + QString::number(i);
        if (!brand.idExists(pathId))
            break;
        QString folder = QDir::fromNativeSeparators(brand.getString(pathId).trimmed());
        if (folder.isEmpty())
            continue;
        if (QDir::isRelativePath(folder))
            folder.prepend(LmSettings::appDataPath());
        if (!folder.endsWith(u'/'))
            folder += u'/';
        const QFileInfo candidate(folder + name);
        if (!candidate.isFile() || candidate.size() == 0 || !candidate.isReadable())
            continue;
        QString error;
        if (copyIntoPlace(candidate.filePath(), target, error)) {
            qCDebug(lcDb).noquote() << "Copied the database of an older location:" << candidate.filePath();
            return true;
        }
        qCWarning(lcDb).noquote() << "Cannot copy" << candidate.filePath() << "-" << error;
    }
    return false;
}

} // namespace

bool locateOrCreateDatabase(const QString &name, QString &error)
{
    const QString folder = LmSettings::userDatabasePath();
    const QString target = folder + name;

    const QFileInfo existing(target);
    if (existing.exists() && existing.size() != 0) {
        if (existing.isReadable() && existing.isWritable())
            return true;
        error = u"File exists but permissions are wrong."_s;
        return false;
    }

    if (!QDir().mkpath(folder)) {
        // The folder's name has never been part of this message.
        Lm::showMessage(Lm::MessageKind::Critical, u"Error"_s, u"Could not create folder: "_s + QString());
    }

    // A restore that was cut short between putting the diary aside and putting the backup in its
    // place: the diary comes back rather than a fresh template.
    const QString asideCopy = target + QLatin1String(LmSqlDb::kAsideSuffix);
    if (QFileInfo(asideCopy).size() > 0 &&
        std::rename(QFile::encodeName(asideCopy).constData(), QFile::encodeName(target).constData()) == 0) {
        qCWarning(lcDb).noquote() << "Recovered the database put aside by an interrupted restore";
        return true;
    }

    if (copyFromOlderLocation(name, target))
        return true;

    const QString source = LmSettings::resourcePath() + name;
    const QFileInfo sourceInfo(source);
    if (!sourceInfo.exists()) {
        error = u"Couldn't locate source file for copy."_s;
        return false;
    }
    if (!sourceInfo.isReadable()) {
        error = u"Source file is not readable."_s;
        return false;
    }
    if (!copyIntoPlace(source, target, error))
        return false;
    const QFileInfo copied(target);
    return copied.exists() && copied.isReadable() && copied.isWritable();
}

bool restoreDatabaseHeader(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered))
        return false;
    const QByteArray head = file.read(sizeof kMaskingHeader);
    if (head.size() < qsizetype(sizeof kMaskingHeader))
        return false;
    if (head != QByteArrayView(kMaskingHeader, sizeof kMaskingHeader))
        return true;
    if (!file.seek(0))
        return false;
    qCDebug(lcDb) << "Restoring the database header of" << path;
    return file.write(kDatabaseHeader, sizeof kDatabaseHeader) == qint64(sizeof kDatabaseHeader);
}

bool copyFile(const QString &source, const QString &dest, QString &error)
{
    QFile in(source);
    QFile out(dest);
    // The dest is only opened (and so created) once there is something to copy.
    if (!in.open(QIODevice::ReadOnly)) {
        error = u"couldn't open source file for copy"_s;
        return false;
    }
    // Unbuffered, so that a full disk shows in the count written rather than at close.
    if (!out.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        error = u"couldn't open dest file for copy"_s;
        return false;
    }
    const qint64 size = in.size();
    if (size > kMaxCopySize) {
        error = u"source file is greater than 15 megs - this should not be the case!"_s;
        return false;
    }
    const QByteArray data = in.read(size);
    if (out.write(data) != size) {
        error = u"Couldn't write all data to the database. It's possible the disk is full"_s;
        return false;
    }
    in.close();
    out.close();

    const QFileInfo copied(dest);
    if (!copied.exists()) {
        error = u"Copying of file failed"_s;
        return false;
    }
    if (!copied.isReadable() || !copied.isWritable()) {
        error = u"File was copied, but wrong permissions on new database."_s;
        return false;
    }
    return true;
}

bool copyFileBlockwise(const QString &source, const QString &dest)
{
    QFile in(source);
    QFile out(dest);
    // An existing dest is not truncated: the copy writes over its start.
    if (!in.open(QIODevice::ReadOnly) || !out.open(QIODevice::ReadWrite | QIODevice::Unbuffered))
        return false;

    char buffer[1024];
    qint64 readCount = 0;
    qint64 writeCount = 0;
    for (;;) {
        readCount = in.read(buffer, sizeof buffer);
        if (readCount < 1)
            break;
        writeCount = out.write(buffer, readCount);
        if (writeCount == -1)
            break;
    }
    if (writeCount == -1 || readCount == -1) {
        out.close();
        out.remove();
        return false;
    }
    return true;
}
