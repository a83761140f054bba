#pragma once

// The one gateway to the user's database "userdata.db": it owns the connection "LmSqlDb_User",
// counts nested transactions and hands out prepared queries. Stores never open connections of
// their own.
//
// One instance per process, made by startUp() and destroyed by shutDown(). Misuse (no instance,
// nesting a transaction, committing none) fails an assertion; a transaction that SQLite refuses
// ends the program with a fatal message. Schema operations throw LmException.
//
// The free functions at the end are the file operations of the database's life: locating or
// creating the file, restoring a masked header and copying it for a backup. They report through
// their result and an error text and never throw.

#include <QHash>
#include <QString>
#include <QVariantList>

#include <memory>
#include <string>

class QSqlDatabase;
class QSqlQuery;

// A single-owner handle around a heap query on the "LmSqlDb_User" connection. Copying moves the
// ownership to the copy; the source keeps the pointer but no longer owns it. An owning handle
// destroys its query, which it may only do while the database object exists.
class LmSqlQueryPtr
{
public:
    explicit LmSqlQueryPtr(QSqlQuery *query = nullptr);
    LmSqlQueryPtr(LmSqlQueryPtr &other);
    LmSqlQueryPtr(LmSqlQueryPtr &&other) noexcept;
    LmSqlQueryPtr &operator=(LmSqlQueryPtr &other);
    LmSqlQueryPtr &operator=(LmSqlQueryPtr &&other) noexcept;
    ~LmSqlQueryPtr();

    QSqlQuery *get() const { return _query; }
    QSqlQuery *operator->() const;
    QSqlQuery &operator*() const;
    bool owns() const { return _owns; }
    bool isNull() const { return _query == nullptr; }

private:
    friend class LmSqlDb;
    void take(LmSqlQueryPtr &other);
    void destroy();

    bool _owns = false;
    bool _cached = false; // a kept statement: finished, not destroyed, when the handle goes
    QSqlQuery *_query = nullptr;
};

class LmSqlDb
{
public:
    static constexpr const char *kConnectionName = "LmSqlDb_User";
    static constexpr const char *kFileName = "userdata.db";
    // Beside it while a restore replaces it: the diary as it was.
    static constexpr const char *kAsideSuffix = ".before-restore";

    // The instance; asserts that there is one.
    static LmSqlDb *instance();
    static bool exists();

    // Locates or creates the database, backs it up and upgrades it to the current schema, and
    // installs the sync triggers when asked. False with a text for the user in error.
    static bool startUp(std::string &error, bool installTriggers);
    // Destroys the instance if there is one. Every query handle must be gone by then.
    static void shutDown();
    // Opens another database file as the instance, upgrades it to the current schema and checks
    // that it holds every table and column the program uses, then shuts down again. No backup,
    // no triggers: for a copy that is to take the diary's place. Needs no instance to exist.
    static bool upgradeFile(const QString &file, std::string &error);

    // Opens the user database folder's "userdata.db". On failure error holds the driver's text,
    // openFailed is set and the connection is gone again.
    LmSqlDb(std::string &error, bool &openFailed);
    LmSqlDb(const QString &file, std::string &error, bool &openFailed);
    ~LmSqlDb();
    LmSqlDb(const LmSqlDb &) = delete;
    LmSqlDb &operator=(const LmSqlDb &) = delete;

    // Only the outermost level issues SQL. Beginning a nested transaction is a programming error
    // that is reported but counted; an inner rollback undoes nothing by itself.
    // Every transaction takes the write lock at its start (BEGIN IMMEDIATE), waiting while another
    // process writes, so that what it reads stays true until it commits.
    void beginTransaction();
    void commitTransaction();
    void rollbackTransaction();
    int nestedTransactionLevel() const { return _nestedTransactionLevel; }
    // The same without the fatal end: false when the database stayed busy past the wait or the
    // disk refused. A commit that fails rolls back.
    bool tryBeginTransaction();
    bool tryCommitTransaction();

    // The same on instance(), for callers that do not hold the object.
    static void begin() { instance()->beginTransaction(); }
    static void commit() { instance()->commitTransaction(); }
    static void rollback() { instance()->rollbackTransaction(); }

    // A new query on the connection, prepared with sql. A bad statement shows when executed.
    LmSqlQueryPtr prepare(const QString &sql) const;
    // A query prepared once and kept for the life of the database, for the statements of the hot
    // paths (a day of the diary). The handle does not own it; its bound values and results are
    // reset by the next exec().
    LmSqlQueryPtr cachedQuery(const QString &sql);

    // Destroys the handle's query (when the handle owns it) and nulls it; asserts the instance.
    static void releaseQuery(LmSqlQueryPtr &handle);

    // The connection; null after a failed open.
    QSqlDatabase *database() const { return _db.get(); }

    // The "schema_version" of userdata_meta; 0 when there is none or it cannot be read.
    int schemaVersion() const;
    // Writes the version and the program version that made the change. Throws LmException.
    void setSchemaVersion(int version);
    // Adds a column in front of the table's columns, keeping its rows and indexes. A column
    // whose name already appears in the table's definitions counts as present. Throws
    // LmException.
    void addColumn(const QString &table, const QString &column, const QString &type);

    // "user_id, date" with prefix "new" gives "new.user_id, new.date": the prefix and a point
    // before every space-separated word, spaces kept.
    static QString qualifyColumns(const QString &list, const QString &prefix);

    // SQLite's text for the last statement or transaction command that failed ("database is
    // locked", "attempt to write a readonly database"), for messages.
    static QString lastErrorText();

    // How long a statement waits for another process's write before it fails.
    static constexpr int kBusyTimeoutMs = 10000;

private:
    friend class LmSqlQueryPtr;
    static void destroyQuery(QSqlQuery *query);
    bool runControl(const char *statement);
    static bool openAndUpgrade(const QString &file, bool backUp, std::string &error);

    static LmSqlDb *_instance;

    std::unique_ptr<QSqlDatabase> _db;
    QHash<QString, QSqlQuery *> _cachedQueries;
    int _nestedTransactionLevel = 0;
};

// One change to the database that lands whole or not at all, under the write lock from its first
// statement to its commit, so that another process never writes between what it reads and what
// it writes (an id read back with MAX is the row just inserted). Joins a transaction that is
// already open; then the outer owner commits. Destroyed without commit() it rolls back.
class LmWriteTransaction
{
public:
    LmWriteTransaction();
    ~LmWriteTransaction();
    LmWriteTransaction(const LmWriteTransaction &) = delete;
    LmWriteTransaction &operator=(const LmWriteTransaction &) = delete;

    // False when the write lock could not be had.
    bool isOpen() const { return _state == Owner || _state == Joined; }
    // Commits when ok and this scope began the transaction, else rolls back. True only when the
    // change is (or, joined, may still be) stored.
    bool commit(bool ok = true);

private:
    enum State { Owner, Joined, Closed };
    State _state = Closed;
};

// Binds the values to the statement's placeholders in order and runs it. A failure is logged
// with the statement and SQLite's text, and reported as false.
bool execBound(LmSqlQueryPtr &query, const QVariantList &values = {});
// Prepares a statement and runs it with the values; a null handle when it failed (logged).
LmSqlQueryPtr runBound(const QString &sql, const QVariantList &values = {});

// Makes sure the user database folder holds a usable database called name: an existing non-empty
// file, the one a cut-short restore put aside, a copy from an older data location of the brand,
// or a copy of the template in the resource folder. Copies are made beside the target and renamed
// into place, so a failed copy leaves nothing that passes for a database.
bool locateOrCreateDatabase(const QString &name, QString &error);

// Replaces the 48-byte masking header of a delivered database by the SQLite 2.1 header. True when
// there was nothing to do or the header was written.
bool restoreDatabaseHeader(const QString &path);

// Whole-file copy of at most 15 MiB, with the checks a database copy needs.
bool copyFile(const QString &source, const QString &dest, QString &error);

// Streaming copy in blocks of 1024 bytes into dest without truncating it; dest is removed when a
// read or write fails.
bool copyFileBlockwise(const QString &source, const QString &dest);
