#include "server/serverdb.h"

#include "server/serverlog.h"
#include "server/serverschema.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QMutex>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QThread>
#include <QUrl>
#include <QUrlQuery>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

// How often a transaction is tried when the database says "busy" or "try again".
constexpr int kMaxAttempts = 8;
// How long a statement waits for another process's write on SQLite.
constexpr int kSQLiteBusyTimeoutMs = 10000;
// Statements kept prepared on one connection; past this many, the least used lately goes.
constexpr qsizetype kCachedStatements = 48;

// Taken by every SQLite write transaction of the process, in the stores' writer threads: SQLite
// has one writer at a time anyway, and waiting here is cheaper than spinning on its busy handler.
// Recursive, so that work which opens a transaction on a second store of the same thread fails as
// busy instead of hanging.
std::recursive_mutex g_sqliteWriteLock;
// Names every migration takes on PostgreSQL, so that two servers starting at once do not both
// create the tables.
constexpr qint64 kMigrationLockKey = 0x7461726e77656c6c; // "tarnwell"

std::atomic<quint64> g_nextSerial{1};
std::atomic<quint64> g_nextConnection{1};

// The statements kept prepared on one connection (ServerDB::cached), by their text. They go
// before their connection does, and whenever the connection is opened again.
class StatementCache
{
public:
    QSqlQuery *find(const QString &sql)
    {
        const auto found = _entries.find(sql);
        if (found == _entries.end())
            return nullptr;
        found->used = ++_clock;
        return found->query.get();
    }

    QSqlQuery *insert(const QString &sql, QSqlQuery &&query)
    {
        if (_entries.size() >= kCachedStatements) {
            const auto oldest =
                std::min_element(_entries.begin(), _entries.end(),
                                 [](const Entry &a, const Entry &b) { return a.used < b.used; });
            _entries.erase(oldest);
        }
        auto kept = std::make_shared<QSqlQuery>(std::move(query));
        _entries.insert(sql, {kept, ++_clock});
        return kept.get();
    }

    // Lets go of the rows of any statement still being read (an SQLite statement that is not
    // reset holds its read transaction open).
    void finishAll()
    {
        for (Entry &entry : _entries)
            entry.query->finish();
    }

    void clear() { _entries.clear(); }

private:
    struct Entry
    {
        std::shared_ptr<QSqlQuery> query;
        quint64 used = 0;
    };
    QHash<QString, Entry> _entries;
    quint64 _clock = 0;
};

// The connections of one ServerDB, shared with the threads that hold them, so that whichever
// goes first (the ServerDB or the thread) closes them.
struct Registry
{
    QMutex mutex;
    QHash<QString, std::shared_ptr<StatementCache>> connections; // by connection name

    // False when it was already gone.
    bool remove(const QString &name)
    {
        std::lock_guard lock(mutex);
        const auto found = connections.find(name);
        if (found == connections.end())
            return false;
        (*found)->clear();
        connections.erase(found);
        QSqlDatabase::removeDatabase(name);
        return true;
    }
};

// What one thread holds of every ServerDB it used.
struct ThreadState
{
    struct Entry
    {
        quint64 serial;
        QString name;
        std::weak_ptr<Registry> registry;
        std::shared_ptr<StatementCache> statements;
        int depth = 0;     // transaction() levels open on this thread
        QString openError; // why the connection did not open, the last time it was tried
    };
    std::vector<Entry> entries;
    bool retryable = false; // the last failed statement may succeed when the work runs again

    Entry *find(quint64 serial)
    {
        for (Entry &entry : entries) {
            if (entry.serial == serial)
                return &entry;
        }
        return nullptr;
    }

    ~ThreadState()
    {
        for (const Entry &entry : entries) {
            if (const std::shared_ptr<Registry> registry = entry.registry.lock())
                registry->remove(entry.name);
        }
    }
};

thread_local ThreadState t_state;
// Set in a store's SQLite writer thread: transactions it starts run where they are.
thread_local bool t_writer = false;
thread_local bool t_opening = false; // in ServerDB::open(), which reports what fails itself

// Notes on the thread what a failed statement means for the transaction around it.
void noteFailure(const QSqlQuery &query, bool mayRetry)
{
    const QSqlError error = query.lastError();
    const QString code = error.nativeErrorCode();
    if (query.driver() && query.driver()->dbmsType() == QSqlDriver::PostgreSQL) {
        // Class 08, 57P0x (shut down) or a driver that says so: the connection is gone, and
        // connection() opens a new one for the next attempt.
        const bool lost = code.startsWith("08"_L1) || code.startsWith("57P0"_L1) || !query.driver()->isOpen();
        // 40001 serialization failure, 40P01 deadlock.
        if (mayRetry && (code == "40001"_L1 || code == "40P01"_L1 || lost))
            t_state.retryable = true;
        return;
    }
    // SQLITE_BUSY and SQLITE_LOCKED, with or without their extended codes.
    bool ok = false;
    const int primary = code.toInt(&ok) & 0xff;
    if (mayRetry && ok && (primary == 5 || primary == 6))
        t_state.retryable = true;
}

// A statement that takes no values and that PostgreSQL cannot prepare: transaction control and
// definitions. A COMMIT whose answer was lost may have landed, so it is never tried again.
bool unprepared(QSqlDatabase &db, const QString &sql, QString *error, bool mayRetry = true)
{
    QSqlQuery query(db);
    if (query.exec(sql))
        return true;
    noteFailure(query, mayRetry);
    if (error)
        *error = query.lastError().text();
    qCWarning(lcServer).noquote() << sql << "failed:" << query.lastError().text();
    return false;
}

} // namespace

struct ServerDB::Private
{
    quint64 serial = g_nextSerial++;
    std::shared_ptr<Registry> registry = std::make_shared<Registry>();
    QString url;
    QString urlError; // why the URL cannot be used; empty when it can
    Kind kind = Kind::SQLite;
    // SQLite: the file. PostgreSQL: what QPSQL connects with.
    QString path;
    QString host, user, password, dbname, options;
    int port = -1;

    void parse();
    QString display() const;
    void parsePostgreSQL();
    // Opens db and sets it up; false with the reason.
    bool configure(QSqlDatabase &db, QString *why) const;
    bool migrate(ServerDB &q, QString *error);

    // SQLite: every write transaction of the store runs in one thread of its own, on one
    // connection, in the order asked. That connection's page cache stays warm (one that another
    // connection wrote behind reads its pages again), and no turn is handed from thread to thread.
    struct Job
    {
        const std::function<bool(QSqlDatabase &, QString *)> *work;
        QString error;
        bool ok = false;
        bool done = false;
        std::exception_ptr thrown;
        std::condition_variable finished;
    };
    std::mutex writerMutex;
    std::condition_variable writerWake;
    std::deque<Job *> jobs;
    std::thread writer;
    bool stopping = false;

    bool runByWriter(ServerDB &q, const std::function<bool(QSqlDatabase &, QString *)> &work, QString *error);
    void writerLoop(ServerDB &q);
    void stopWriter();
};

bool ServerDB::Private::runByWriter(ServerDB &q, const std::function<bool(QSqlDatabase &, QString *)> &work,
                                    QString *error)
{
    Job job;
    job.work = &work;
    {
        std::unique_lock lock(writerMutex);
        if (!writer.joinable())
            writer = std::thread([this, &q] { writerLoop(q); });
        jobs.push_back(&job);
        writerWake.notify_one();
        job.finished.wait(lock, [&job] { return job.done; });
    }
    if (job.thrown)
        std::rethrow_exception(job.thrown);
    if (!job.ok && error)
        *error = job.error;
    return job.ok;
}

void ServerDB::Private::writerLoop(ServerDB &q)
{
    t_writer = true;
    std::unique_lock lock(writerMutex);
    for (;;) {
        writerWake.wait(lock, [this] { return stopping || !jobs.empty(); });
        if (jobs.empty())
            return;
        Job *job = jobs.front();
        jobs.pop_front();
        lock.unlock();
        try {
            job->ok = q.transaction(*job->work, &job->error);
        } catch (...) {
            job->thrown = std::current_exception();
        }
        lock.lock();
        // Under the lock: the asker cannot see done, and let go of the job, before this is said.
        job->done = true;
        job->finished.notify_one();
    }
}

void ServerDB::Private::stopWriter()
{
    {
        std::lock_guard lock(writerMutex);
        stopping = true;
        writerWake.notify_one();
    }
    if (writer.joinable())
        writer.join(); // its connection goes with the thread
}

void ServerDB::Private::parse()
{
    static const QRegularExpression schemeWithHost(u"\\A[A-Za-z][A-Za-z0-9+.-]*://"_s);
    if (url.startsWith("postgresql://"_L1) || url.startsWith("postgres://"_L1)) {
        kind = Kind::PostgreSQL;
        parsePostgreSQL();
        return;
    }
    kind = Kind::SQLite;
    QString file = url;
    if (file.startsWith("sqlite:"_L1)) {
        file = file.mid(7);
        if (file.startsWith("///"_L1))
            file = file.mid(2);
        else if (file.startsWith("//"_L1))
            urlError = u"an SQLite URL names a file, not a host: use sqlite:/path/to/diary.sqlite"_s;
    } else if (schemeWithHost.match(file).hasMatch()) {
        urlError = u"unknown kind of database in \"%1\": use sqlite:/path/file or "
                   "postgresql://user@host/dbname"_s.arg(file.section("://"_L1, 0, 0));
        return;
    }
    if (file.isEmpty() && urlError.isEmpty())
        urlError = u"no database file given"_s;
    path = QFileInfo(file).absoluteFilePath();
}

void ServerDB::Private::parsePostgreSQL()
{
    const QUrl parsed(url, QUrl::StrictMode);
    if (!parsed.isValid()) {
        urlError = u"cannot read the database URL: %1"_s.arg(parsed.errorString());
        return;
    }
    host = parsed.host(QUrl::FullyDecoded);
    port = parsed.port(-1);
    user = parsed.userName(QUrl::FullyDecoded);
    password = parsed.password(QUrl::FullyDecoded);
    dbname = parsed.path(QUrl::FullyDecoded).mid(1);
    QStringList optionList;
    static const QStringList passedOn = {
        u"sslmode"_s, u"connect_timeout"_s, u"application_name"_s, u"sslcert"_s,
        u"sslkey"_s,  u"sslrootcert"_s,     u"sslcrl"_s,           u"target_session_attrs"_s};
    const auto items = QUrlQuery(parsed).queryItems(QUrl::FullyDecoded);
    for (const auto &[key, value] : items) {
        if (key == "host"_L1) {
            host = value; // a folder: the Unix socket's
        } else if (key == "port"_L1) {
            bool ok = false;
            port = value.toInt(&ok);
            if (!ok || port <= 0 || port > 65535) {
                urlError = u"bad port \"%1\" in the database URL"_s.arg(value);
                return;
            }
        } else if (passedOn.contains(key)) {
            if (value.contains(QLatin1Char(';')) || value.contains(QLatin1Char(' ')) ||
                value.contains(QLatin1Char('\''))) {
                urlError = u"bad value for %1 in the database URL"_s.arg(key);
                return;
            }
            optionList.append(key + QLatin1Char('=') + value);
        } else {
            urlError = u"unknown setting \"%1\" in the database URL"_s.arg(key);
            return;
        }
    }
    // A server that does not answer fails the request rather than hanging a worker for good.
    if (optionList.filter(QRegularExpression(u"^connect_timeout="_s)).isEmpty())
        optionList.append(u"connect_timeout=10"_s);
    options = optionList.join(QLatin1Char(';'));
    if (dbname.isEmpty() || dbname.contains(QLatin1Char('/')))
        urlError = u"the database URL names no database: postgresql://user@host/dbname"_s;
}

bool ServerDB::Private::configure(QSqlDatabase &db, QString *why) const
{
    if (kind == Kind::SQLite) {
        db.setDatabaseName(path);
        db.setConnectOptions(u"QSQLITE_BUSY_TIMEOUT="_s + QString::number(kSQLiteBusyTimeoutMs));
    } else {
        db.setDatabaseName(dbname);
        db.setHostName(host);
        db.setPort(port);
        db.setUserName(user);
        db.setPassword(password);
        db.setConnectOptions(options);
    }
    // What the database says ("file is not a database"), without Qt's words around it.
    const auto reason = [](const QSqlError &failed) {
        return failed.databaseText().isEmpty() ? failed.text() : failed.databaseText().trimmed();
    };
    if (!db.open()) {
        *why = reason(db.lastError());
        return false;
    }
    QSqlQuery query(db);
    const QStringList setup =
        kind == Kind::SQLite ? QStringList{u"PRAGMA journal_mode = WAL"_s, u"PRAGMA synchronous = NORMAL"_s,
                                           u"PRAGMA foreign_keys = ON"_s}
                             : QStringList{u"SET client_min_messages = warning"_s};
    for (const QString &statement : setup) {
        if (!query.exec(statement)) {
            *why = reason(query.lastError());
            db.close();
            return false;
        }
    }
    return true;
}

QString ServerDB::Private::display() const
{
    if (kind == Kind::SQLite)
        return u"sqlite:"_s + path;
    QUrl shown(url);
    shown.setPassword(QString());
    return shown.toString();
}

bool ServerDB::Private::migrate(ServerDB &q, QString *error)
{
    const int latest = ServerSchema::latestVersion();
    const int found = q.schemaVersion();
    if (found > latest) {
        // A newer server changed it in ways this one cannot know; writing to it could undo them.
        if (error)
            *error = u"the database was brought to schema version %1 by a newer tarnwell-server; this one "
                     "knows up to %2"_s.arg(found)
                         .arg(latest);
        return false;
    }
    if (found == latest)
        return true;
    for (int version = 1; version <= latest; ++version) {
        const bool ok = q.transaction(
            [&](QSqlDatabase &db, QString *workError) {
                QSqlQuery query(db);
                if (kind == Kind::PostgreSQL &&
                    !exec(query, u"SELECT pg_advisory_xact_lock(?)"_s, {kMigrationLockKey}, workError))
                    return false;
                // The table that says what is done exists before the first step is looked up.
                // Definitions take no values, and PostgreSQL prepares none: they run as they are.
                if (!unprepared(db, ServerSchema::bookkeeping(kind), workError) ||
                    !exec(query, u"SELECT 1 FROM schema_migrations WHERE version = ?"_s, {version},
                          workError))
                    return false;
                if (query.next())
                    return true; // done before, maybe by another process just now
                qCInfo(lcServer) << "Applying database migration" << version;
                for (const QString &statement : ServerSchema::statements(version, kind)) {
                    if (!unprepared(db, statement, workError))
                        return false;
                }
                return exec(query, u"INSERT INTO schema_migrations (version, applied) VALUES (?, ?)"_s,
                            {version, now()}, workError);
            },
            error);
        if (!ok) {
            if (error)
                *error = u"cannot bring the database up to date (step %1): %2"_s.arg(version).arg(*error);
            return false;
        }
    }
    return true;
}

ServerDB::ServerDB(const QString &url)
    : d(std::make_unique<Private>())
{
    d->url = url;
    d->parse();
}

ServerDB::~ServerDB()
{
    d->stopWriter();
    std::lock_guard lock(d->registry->mutex);
    for (auto it = d->registry->connections.cbegin(); it != d->registry->connections.cend(); ++it) {
        (*it)->clear();
        QSqlDatabase::removeDatabase(it.key());
    }
    d->registry->connections.clear();
}

QString ServerDB::defaultUrl(const QString &dataDir)
{
    return u"sqlite:"_s + dataDir + u"/diary.sqlite"_s;
}

bool ServerDB::open(QString *error)
{
    if (!d->urlError.isEmpty()) {
        if (error)
            *error = d->urlError;
        return false;
    }
    if (d->kind == Kind::SQLite && !QDir().mkpath(QFileInfo(d->path).absolutePath())) {
        if (error)
            *error = u"cannot make the folder of %1"_s.arg(d->path);
        return false;
    }
    t_opening = true;
    QSqlDatabase db = connection();
    t_opening = false;
    if (!db.isOpen()) {
        if (error)
            *error = t_state.find(d->serial)->openError;
        return false;
    }
    return d->migrate(*this, error);
}

ServerDB::Kind ServerDB::kind() const
{
    return d->kind;
}

QString ServerDB::displayUrl() const
{
    return d->display();
}

int ServerDB::schemaVersion()
{
    QSqlDatabase db = connection();
    QSqlQuery query(db);
    // No table yet is version 0; on PostgreSQL the failed look-up must not poison a transaction.
    const QString sql = d->kind == Kind::SQLite
                            ? u"SELECT COUNT(*) FROM sqlite_master WHERE type = 'table' AND name = ?"_s
                            : u"SELECT COUNT(*) FROM pg_catalog.pg_tables WHERE schemaname = "
                              "current_schema() AND tablename = ?"_s;
    if (!exec(query, sql, {u"schema_migrations"_s}) || !query.next() || query.value(0).toInt() == 0)
        return 0;
    if (!exec(query, u"SELECT MAX(version) FROM schema_migrations"_s) || !query.next())
        return 0;
    return query.value(0).toInt();
}

QSqlDatabase ServerDB::connection()
{
    if (ThreadState::Entry *entry = t_state.find(d->serial)) {
        QSqlDatabase db = QSqlDatabase::database(entry->name, false);
        // A lost PostgreSQL connection reports itself closed and is opened again, but never in the
        // middle of a transaction: the rest of its work would land outside it. What was prepared
        // on the old one is gone with it.
        if (!db.isOpen() && entry->depth == 0 && d->urlError.isEmpty()) {
            entry->statements->clear();
            if (!d->configure(db, &entry->openError))
                qCWarning(lcServer).noquote()
                    << "Cannot open the database" << d->display() << ":" << entry->openError;
        }
        return db;
    }
    const QString name = u"tarnwell-server-%1-%2"_s.arg(d->serial).arg(g_nextConnection++);
    QSqlDatabase db = QSqlDatabase::addDatabase(d->kind == Kind::SQLite ? u"QSQLITE"_s : u"QPSQL"_s, name);
    auto statements = std::make_shared<StatementCache>();
    {
        std::lock_guard lock(d->registry->mutex);
        d->registry->connections.insert(name, statements);
    }
    t_state.entries.push_back({d->serial, name, d->registry, statements, 0, {}});
    // Said by open() when it is the one asking; on a thread of the service, only the log can.
    if (d->urlError.isEmpty() && !d->configure(db, &t_state.entries.back().openError) && !t_opening)
        qCWarning(lcServer).noquote()
            << "Cannot open the database" << d->display() << ":" << t_state.entries.back().openError;
    return db;
}

bool ServerDB::transaction(const std::function<bool(QSqlDatabase &, QString *)> &work, QString *error)
{
    const quint64 serial = d->serial;
    const auto entry = [serial]() { return t_state.find(serial); };
    if (d->kind == Kind::SQLite && !t_writer && !(entry() && entry()->depth > 0))
        return d->runByWriter(*this, work, error);
    QSqlDatabase db = connection();
    QString workError;
    // Inside another transaction of this store on this thread: part of it.
    if (entry()->depth > 0) {
        const bool ok = work(db, &workError);
        if (!ok && error)
            *error = workError.isEmpty() ? u"the change was refused"_s : workError;
        return ok;
    }

    for (int attempt = 1;; ++attempt) {
        std::unique_lock writeLock(g_sqliteWriteLock, std::defer_lock);
        if (d->kind == Kind::SQLite)
            writeLock.lock();
        t_state.retryable = false;
        workError.clear();

        bool ok = db.isOpen();
        if (ok)
            ok = unprepared(db, d->kind == Kind::SQLite ? u"BEGIN IMMEDIATE"_s : u"BEGIN"_s, &workError);
        else
            workError = u"cannot reach the database: "_s + db.lastError().text();
        if (ok) {
            ++entry()->depth;
            try {
                ok = work(db, &workError);
            } catch (...) {
                --entry()->depth;
                unprepared(db, u"ROLLBACK"_s, nullptr);
                throw;
            }
            --entry()->depth;
            entry()->statements->finishAll();
            if (ok) {
                ok = unprepared(db, u"COMMIT"_s, &workError, d->kind == Kind::SQLite);
                if (!ok)
                    unprepared(db, u"ROLLBACK"_s, nullptr);
            } else {
                unprepared(db, u"ROLLBACK"_s, nullptr);
                // The work's statements could not be freed inside the failed transaction (the
                // server ignores everything there); free them now so the connection holds none.
                // The kept ones go too, first, so that none of them names a freed statement.
                if (d->kind == Kind::PostgreSQL) {
                    entry()->statements->clear();
                    unprepared(db, u"DEALLOCATE ALL"_s, nullptr);
                }
                if (workError.isEmpty())
                    workError = u"the change was refused"_s;
            }
        }
        if (ok)
            return true;

        const bool retry = t_state.retryable && attempt < kMaxAttempts;
        if (!retry) {
            if (error)
                *error = workError;
            return false;
        }
        writeLock = {};
        qCDebug(lcServer).noquote() << "Transaction attempt" << attempt
                                    << "failed, trying again:" << workError;
        // Back off a little, at random, so that two writers that collided do not collide again.
        QThread::msleep(QRandomGenerator::global()->bounded(5u, 20u) * attempt);
        db = connection();
    }
}

namespace {

bool failed(const QSqlQuery &query, const QString &sql, QString *error)
{
    noteFailure(query, true);
    if (error)
        *error = query.lastError().text();
    // The statement, never the values: they may be a member's data or credentials.
    qCWarning(lcServer).noquote() << "Statement failed:" << sql.simplified() << ":"
                                  << query.lastError().text();
    return false;
}

} // namespace

bool ServerDB::prepare(QSqlQuery &query, const QString &sql, QString *error)
{
    return query.prepare(sql) || failed(query, sql, error);
}

QSqlQuery *ServerDB::cached(const QString &sql, QString *error)
{
    return cached(
        sql, [&sql] { return sql; }, error);
}

QSqlQuery *ServerDB::cached(const QString &key, const std::function<QString()> &sql, QString *error)
{
    QSqlDatabase db = connection();
    StatementCache &statements = *t_state.find(d->serial)->statements;
    if (QSqlQuery *found = statements.find(key))
        return found;
    QSqlQuery prepared(db);
    if (!prepare(prepared, sql(), error))
        return nullptr;
    return statements.insert(key, std::move(prepared));
}

int ServerDB::maxBoundValues() const
{
    // SQLite before 3.32 takes 999; PostgreSQL counts them in 16 bits.
    return d->kind == Kind::SQLite ? 999 : 32767;
}

bool ServerDB::execPrepared(QSqlQuery &query, const QVariantList &values, QString *error)
{
    for (qsizetype i = 0; i < values.size(); ++i)
        query.bindValue(int(i), values.at(i));
    return query.exec() || failed(query, query.lastQuery(), error);
}

bool ServerDB::execNamed(QSqlQuery &query, const QVariantList &values, QString *error)
{
    for (qsizetype i = 0; i < values.size(); ++i)
        query.bindValue(valueName(i), values.at(i));
    return query.exec() || failed(query, query.lastQuery(), error);
}

const QString &ServerDB::valueName(qsizetype i)
{
    thread_local std::vector<QString> names;
    while (qsizetype(names.size()) <= i)
        names.push_back(u":v"_s + QString::number(names.size()));
    return names[size_t(i)];
}

bool ServerDB::exec(QSqlQuery &query, const QString &sql, const QVariantList &values, QString *error)
{
    return prepare(query, sql, error) && execPrepared(query, values, error);
}

qint64 ServerDB::now()
{
    return QDateTime::currentSecsSinceEpoch();
}

QVariant ServerDB::realOrNull(const std::optional<double> &value)
{
    return value ? QVariant(*value) : QVariant(QMetaType(QMetaType::Double));
}

std::optional<double> ServerDB::optionalReal(const QVariant &value)
{
    return value.isNull() ? std::nullopt : std::optional<double>(value.toDouble());
}
