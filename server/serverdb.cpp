#include "server/serverdb.h"

#include <QDateTime>
#include <QSqlQuery>

struct ServerDB::Private
{
    QString url;
};

ServerDB::ServerDB(const QString &url)
    : d(std::make_unique<Private>())
{
    d->url = url;
}

ServerDB::~ServerDB() = default;

QString ServerDB::defaultUrl(const QString &dataDir)
{
    return QStringLiteral("sqlite:") + dataDir + QStringLiteral("/diary.sqlite");
}

bool ServerDB::open(QString *error)
{
    if (error)
        *error = QStringLiteral("storage not built yet");
    return false;
}

ServerDB::Kind ServerDB::kind() const
{
    return d->url.startsWith(QLatin1String("postgres")) ? Kind::PostgreSQL : Kind::SQLite;
}

int ServerDB::schemaVersion()
{
    return 0;
}

QSqlDatabase ServerDB::connection()
{
    return QSqlDatabase();
}

bool ServerDB::transaction(const std::function<bool(QSqlDatabase &, QString *)> &, QString *error)
{
    if (error)
        *error = QStringLiteral("storage not built yet");
    return false;
}

bool ServerDB::exec(QSqlQuery &, const QString &, const QVariantList &, QString *error)
{
    if (error)
        *error = QStringLiteral("storage not built yet");
    return false;
}

QString ServerDB::displayUrl() const
{
    return d->url;
}

qint64 ServerDB::now()
{
    return QDateTime::currentSecsSinceEpoch();
}
