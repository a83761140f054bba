#pragma once

// A private PostgreSQL cluster for one test run: initdb and pg_ctl of Debian's server packages
// into a temporary folder, reachable only through a Unix socket in that folder, with trust
// authentication and without fsync (nothing in it outlives the run). Run as root, the server runs
// as the "postgres" system user (it refuses root) and the folder is handed to that user.
//
// available() says why a machine cannot run it (the test skips); start() failing on a machine
// that has it is a real failure. The destructor stops the server at once and removes the folder;
// a run that was killed leaves its cluster running, and the next start() stops and removes it.

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QString>
#include <QTemporaryDir>

#include <cerrno>
#include <csignal>
#include <memory>

#include <pwd.h>
#include <unistd.h>

class PgCluster
{
public:
    PgCluster() = default;
    ~PgCluster() { stop(); }
    PgCluster(const PgCluster &) = delete;
    PgCluster &operator=(const PgCluster &) = delete;

    // Where the server programs are; TARNWELL_PG_BINDIR overrides.
    static QString binDir()
    {
        return qEnvironmentVariable("TARNWELL_PG_BINDIR", QStringLiteral("/usr/lib/postgresql/15/bin"));
    }

    // False with the reason when this machine cannot run a cluster at all.
    static bool available(QString *reason)
    {
        for (const char *program : {"initdb", "pg_ctl", "postgres"}) {
            if (!QFile::exists(binDir() + QLatin1Char('/') + QLatin1String(program))) {
                *reason =
                    QStringLiteral("no PostgreSQL server programs in %1 (package postgresql)").arg(binDir());
                return false;
            }
        }
        if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QPSQL"))) {
            *reason = QStringLiteral("no Qt driver QPSQL (package libqt6sql6-psql)");
            return false;
        }
        if (::geteuid() == 0) {
            if (!::getpwnam("postgres")) {
                *reason =
                    QStringLiteral("running as root, and there is no postgres user to run the server as");
                return false;
            }
            if (runuser().isEmpty()) {
                *reason = QStringLiteral("running as root, and there is no runuser to become postgres");
                return false;
            }
        }
        return true;
    }

    // Initialises the cluster and starts its server. False with what went wrong.
    bool start(QString *error)
    {
        const bool root = ::geteuid() == 0;
        _runAs = root;
        // As root the folder must be reachable by postgres, which a private TMPDIR may not be.
        const QString parent = root ? QStringLiteral("/tmp") : QDir::tempPath();
        removeOrphans(parent);
        _dir = std::make_unique<QTemporaryDir>(parent + QStringLiteral("/tarnwell-pg-XXXXXX"));
        QFile owner(_dir->filePath(QStringLiteral("owner.pid")));
        if (!_dir->isValid() || !owner.open(QIODevice::WriteOnly) ||
            owner.write(QByteArray::number(::getpid())) <= 0) {
            *error = QStringLiteral("cannot make a temporary folder: %1").arg(_dir->errorString());
            return false;
        }
        owner.close();
        if (root) {
            const passwd *postgres = ::getpwnam("postgres");
            if (::chown(QFile::encodeName(_dir->path()).constData(), postgres->pw_uid, postgres->pw_gid) !=
                0) {
                *error = QStringLiteral("cannot hand %1 to the postgres user").arg(_dir->path());
                return false;
            }
        }
        if (!run(QStringLiteral("initdb"),
                 {QStringLiteral("-D"), dataDir(), QStringLiteral("-U"), user(), QStringLiteral("-A"),
                  QStringLiteral("trust"), QStringLiteral("-E"), QStringLiteral("UTF8"),
                  QStringLiteral("--locale=C"), QStringLiteral("--no-sync"),
                  QStringLiteral("--no-instructions")},
                 error))
            return false;
        QFile conf(dataDir() + QStringLiteral("/postgresql.conf"));
        if (!conf.open(QIODevice::Append | QIODevice::Text)) {
            *error = QStringLiteral("cannot add to %1").arg(conf.fileName());
            return false;
        }
        conf.write(QStringLiteral("listen_addresses = ''\n"
                                  "unix_socket_directories = '%1'\n"
                                  "fsync = off\n"
                                  "synchronous_commit = off\n"
                                  "full_page_writes = off\n"
                                  "shared_buffers = 128MB\n"
                                  "max_connections = 120\n")
                       .arg(socketDir())
                       .toUtf8());
        conf.close();
        if (!run(QStringLiteral("pg_ctl"),
                 {QStringLiteral("-D"), dataDir(), QStringLiteral("-l"), logFile(), QStringLiteral("-w"),
                  QStringLiteral("-t"), QStringLiteral("60"), QStringLiteral("start")},
                 error)) {
            *error += QStringLiteral("\n") + log();
            return false;
        }
        _running = true;
        return true;
    }

    void stop()
    {
        if (!_running)
            return;
        QString error;
        if (!run(QStringLiteral("pg_ctl"),
                 {QStringLiteral("-D"), dataDir(), QStringLiteral("-m"), QStringLiteral("immediate"),
                  QStringLiteral("-w"), QStringLiteral("stop")},
                 &error))
            qWarning("cannot stop the test cluster: %s", qPrintable(error));
        _running = false;
        _dir.reset();
    }

    bool isRunning() const { return _running; }
    QString socketDir() const { return _dir->path(); }
    static QString user() { return QStringLiteral("tarnwell"); }

    // The URL ServerDB opens database dbname of the cluster with.
    QString url(const QString &dbname) const
    {
        return QStringLiteral("postgresql://%1@/%2?host=%3").arg(user(), dbname, socketDir());
    }

    // An empty database, for one test; its URL, or empty with the server's text in error. The
    // same database each time, emptied: making a new one costs a checkpoint, dropping its schema
    // almost nothing. Whatever used it before must have closed its connections.
    QString emptyDatabase(QString *error)
    {
        const QString dbname = QStringLiteral("store");
        const QString connection = QStringLiteral("pgcluster-admin");
        bool ok = false;
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), connection);
            db.setHostName(socketDir());
            db.setUserName(user());
            db.setDatabaseName(_created ? dbname : QStringLiteral("postgres"));
            QSqlQuery query(db);
            const QStringList statements = _created
                                               ? QStringList{QStringLiteral("DROP SCHEMA public CASCADE"),
                                                             QStringLiteral("CREATE SCHEMA public")}
                                               : QStringList{QStringLiteral("CREATE DATABASE ") + dbname};
            ok = db.open();
            for (const QString &statement : statements)
                ok = ok && query.exec(statement);
            if (!ok)
                *error = db.isOpen() ? query.lastError().text() : db.lastError().text();
        }
        QSqlDatabase::removeDatabase(connection);
        _created = _created || ok;
        return ok ? url(dbname) : QString();
    }

    QString log() const
    {
        QFile file(logFile());
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll().right(2000)) : QString();
    }

private:
    static QString runuser()
    {
        return QStandardPaths::findExecutable(QStringLiteral("runuser"),
                                              {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin"),
                                               QStringLiteral("/usr/bin"), QStringLiteral("/bin")});
    }

    // The clusters of runs that were killed (the process named in owner.pid is gone): stopped,
    // and their folders removed.
    void removeOrphans(const QString &parent)
    {
        const QDir dir(parent);
        for (const QString &name : dir.entryList({QStringLiteral("tarnwell-pg-*")}, QDir::Dirs)) {
            QFile owner(dir.filePath(name + QStringLiteral("/owner.pid")));
            const pid_t pid = owner.open(QIODevice::ReadOnly) ? pid_t(owner.readAll().toInt()) : 0;
            if (pid <= 0 || ::kill(pid, 0) == 0 || errno != ESRCH)
                continue;
            QString ignored; // nothing to stop when its server is gone too
            run(QStringLiteral("pg_ctl"),
                {QStringLiteral("-D"), dir.filePath(name + QStringLiteral("/data")), QStringLiteral("-m"),
                 QStringLiteral("immediate"), QStringLiteral("-w"), QStringLiteral("stop")},
                &ignored, dir.filePath(name));
            QDir(dir.filePath(name)).removeRecursively();
        }
    }

    QString dataDir() const { return _dir->path() + QStringLiteral("/data"); }
    QString logFile() const { return _dir->path() + QStringLiteral("/server.log"); }

    bool run(const QString &program, const QStringList &arguments, QString *error,
             const QString &workingDir = QString())
    {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const QString &name : env.keys()) {
            if (name.startsWith(QLatin1String("PG")))
                env.remove(name); // a PGHOST or PGDATA of the caller's must not steer the tools
        }
        env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
        process.setProcessEnvironment(env);
        // postgres may not be able to enter ours
        process.setWorkingDirectory(workingDir.isEmpty() ? _dir->path() : workingDir);
        process.setProcessChannelMode(QProcess::MergedChannels);
        const QString path = binDir() + QLatin1Char('/') + program;
        if (_runAs)
            process.start(runuser(), QStringList{QStringLiteral("-u"), QStringLiteral("postgres"),
                                                 QStringLiteral("--"), path} +
                                         arguments);
        else
            process.start(path, arguments);
        const bool finished = process.waitForFinished(120000);
        if (finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
            return true;
        *error = QStringLiteral("%1 failed: %2").arg(program, QString::fromLocal8Bit(process.readAll()));
        return false;
    }

    std::unique_ptr<QTemporaryDir> _dir;
    bool _runAs = false;
    bool _running = false;
    bool _created = false;
};
