#pragma once

// The server's one way into its database: SQLite (a file) or PostgreSQL (a server), chosen by
// URL. Every thread gets its own connection (Qt connections never cross threads); the schema is
// brought up to date by numbered migrations when the store is opened.
//
// Failures are reported as false with a text (open, transaction, exec); nothing throws. A
// transaction whose work fails is rolled back whole, so a refused change leaves no trace.

#include <QSqlDatabase>
#include <QString>
#include <QVariantList>

#include <functional>
#include <memory>
#include <optional>

class QSqlQuery;

class ServerDB
{
public:
    enum class Kind { SQLite, PostgreSQL };
    // url: "sqlite:/abs/path/diary.sqlite" or a plain path (SQLite), or
    // "postgresql://[user[:password]@][host][:port]/dbname[?host=/unix/socket/dir]" (QPSQL).
    explicit ServerDB(const QString &url);
    ~ServerDB(); // closes every thread's connection it made
    ServerDB(const ServerDB &) = delete;
    ServerDB &operator=(const ServerDB &) = delete;

    static QString defaultUrl(const QString &dataDir); // "sqlite:" + dataDir + "/diary.sqlite"
    bool open(QString *error); // connects and runs the numbered migrations (idempotent)
    Kind kind() const;
    int schemaVersion();
    QSqlDatabase connection(); // this thread's own connection, opened on first use
    // One transaction; work returns false (and sets *error) to roll back. Retried on SQLite busy
    // or PostgreSQL serialization/deadlock failures. On SQLite, work runs in the store's one
    // writer thread, on that thread's connection, while the caller waits.
    bool transaction(const std::function<bool(QSqlDatabase &db, QString *error)> &work, QString *error);

    // Prepares sql on the query's connection, binds values to its "?" placeholders in order and
    // runs it. False with the driver's text in *error (may be null). A busy, serialization or
    // deadlock failure is noted so that the enclosing transaction() runs its work again.
    static bool exec(QSqlQuery &query, const QString &sql, const QVariantList &values = {},
                     QString *error = nullptr);
    // The two halves of exec(), for a statement run many times with different values.
    static bool prepare(QSqlQuery &query, const QString &sql, QString *error = nullptr);
    static bool execPrepared(QSqlQuery &query, const QVariantList &values, QString *error = nullptr);
    // Binds values in order to the placeholders valueName(0), valueName(1), ... and runs the
    // query, as execPrepared() does for "?". Qt makes up a name for every value bound by position;
    // statements with many values are cheaper to bind by name.
    static bool execNamed(QSqlQuery &query, const QVariantList &values, QString *error = nullptr);
    static const QString &valueName(qsizetype i); // ":v0", ":v1", ...
    // sql prepared on this thread's connection and kept there, so that the next request finds it
    // ready: for the statements every request runs. Run it with execPrepared(); finish() a SELECT
    // once it is read (transaction() finishes them all when it ends). Good until the next call;
    // null, with the driver's text in *error, when it cannot be prepared.
    QSqlQuery *cached(const QString &sql, QString *error = nullptr);
    // The same for a statement made up at run time, kept under a short key that names it
    // (distinct from any SQL text): sql() makes it when it is not kept yet.
    QSqlQuery *cached(const QString &key, const std::function<QString()> &sql, QString *error = nullptr);
    // The most values one statement may bind on this back end.
    int maxBoundValues() const;

    // The URL with any password left out, for messages and logs.
    QString displayUrl() const;
    // Seconds since the epoch (UTC), the unit of every timestamp column.
    static qint64 now();
    // A value that may be unknown, bound as a typed NULL when it is; and read back.
    static QVariant realOrNull(const std::optional<double> &value);
    static std::optional<double> optionalReal(const QVariant &value);

private:
    struct Private;
    std::unique_ptr<Private> d;
};
