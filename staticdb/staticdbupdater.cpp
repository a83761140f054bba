#include "staticdb/staticdbupdater.h"

#include "app/lmsettings.h"
#include "app/notificationdispatcher.h"
#include "brand/brandengine.h"
#include "net/lmhttp.h"
#include "net/publish.h"
#include "net/qhttps.h"
#include "staticdb/rssreader.h"
#include "staticdb/staticdb.h"
#include "staticdb/staticdblog.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QTimeZone>

#include <zlib.h>

namespace {

QString contentFile(const char *name)
{
    return LmSettings::contentPath() + QLatin1String(name);
}

} // namespace

StaticDbUpdater::StaticDbUpdater(QObject *parent)
    : QObject(parent)
{
}

StaticDbUpdater::~StaticDbUpdater() = default;

bool StaticDbUpdater::check()
{
    if (_state == Aborted)
        return false;
    qCDebug(lcStaticDb, "StaticDbUpdater: Making RSS request");
    const BrandEngine &brand = BrandEngine::instance();
    QString url = brand.idExists(QStringLiteral("update_rss_url"))
                      ? brand.getString(QStringLiteral("update_rss_url"))
                      : QString();
    if (url.isEmpty() || !expandBrandUrl(url, -1).isEmpty() || url.isEmpty()) {
        qCDebug(lcStaticDb, "StaticDbUpdater: Could not construct URL for RSS request");
        return false;
    }
    if (!_http) {
        _http = std::make_unique<LmHttp>(false, QUrl(url), 80);
        connect(_http.get(), &LmHttp::requestFinished, this, &StaticDbUpdater::requestFinished);
        connect(_http.get(), &LmHttp::responseHeaderReceived, this, &StaticDbUpdater::responseHeader);
        connect(_http.get(), &LmHttp::readyRead, this, [this] { saveBody(); });
        connect(_http.get(), &LmHttp::dataReadProgress, this, &StaticDbUpdater::downloadProgress);
    }
    _state = Checking;
    _result = NoInformation;
    _message.clear();
    _errorText.clear();
    _rssRequest = _http->get(QUrl(url));
    return true;
}

void StaticDbUpdater::requestFinished(int id, bool error)
{
    if (id == _rssRequest)
        rssRequestFinished(error);
    else if (id == _downloadRequest)
        downloadRequestFinished(error);
}

void StaticDbUpdater::rssRequestFinished(bool error)
{
    qCDebug(lcStaticDb, "StaticDbUpdater: Finished RSS request");
    _rssRequest = -1;
    if (error) {
        if (_state != Aborted) {
            _errorText = _http->errorString();
            qCDebug(lcStaticDb, "StaticDbUpdater::rssRequestFinished() Error: %s",
                    qUtf8Printable(_errorText));
            _state = Failed;
            emit checkFinished(true);
        }
        return;
    }
    const QByteArray body = _http->readAll();
    RSSReader reader;
    _result = NoInformation;
    if (!reader.parse(body)) {
        qCDebug(lcStaticDb, "StaticDbUpdater::rssRequestFinished() Failed to parse rss");
        qCDebug(lcStaticDb, "StaticDbUpdater::rssRequestFinished() Data: %s", body.constData());
    } else {
        const auto &items = reader.channel().items;
        const auto it = std::find_if(items.cbegin(), items.cend(), [](const RssItem &item) {
            return item.title == QLatin1String("staticdb_updates");
        });
        if (it == items.cend()) {
            qCDebug(lcStaticDb,
                    "StaticDbUpdater::rssRequestFinished() No database update information available.");
        } else if (!it->link.isEmpty()) {
            // The creation date of the file in use; none (no file, a broken one) means any update is newer.
            QString created;
            {
                bool failed = false;
                const StaticDB foods(1, &failed);
                if (!failed)
                    created = foods.creationDate();
            }
            const QDateTime createdAt(QDate::fromString(created, Qt::ISODate), QTime(23, 59, 59), Qt::UTC);
            qCDebug(lcStaticDb, "StaticDbUpdater: update if:\ncreationDate (%s)\n<\npubDate(%s)",
                    qUtf8Printable(createdAt.toString(Qt::ISODate)),
                    qUtf8Printable(it->pubDate.toString(Qt::ISODate)));
            if (isNewer(created, it->pubDate)) {
                _updateUrl = it->link;
                _result = UpdateAvailable;
            } else {
                _result = UpToDate;
            }
            markChecked();
        } else {
            _message = it->elements.value(QStringLiteral("tqm:message"));
            markChecked();
        }
    }
    _state = Finished;
    emit checkFinished(false);
}

bool StaticDbUpdater::isNewer(const QString &creationDate, const QDateTime &pubDate)
{
    const QDate day = QDate::fromString(creationDate, Qt::ISODate);
    if (!day.isValid())
        return true;
    return QDateTime(day, QTime(23, 59, 59), Qt::UTC) < pubDate;
}

bool StaticDbUpdater::download()
{
    if (_state == Aborted || _updateUrl.isEmpty())
        return false;
    qCDebug(lcStaticDb, "StaticDbUpdater: Downloading update");
    _download = std::make_unique<QFile>(contentFile("static.download"));
    if (!_download->open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        _errorText = QStringLiteral("Failed to create temporary file at ") + _download->fileName();
        _download.reset();
        _state = Failed;
        return false;
    }
    qCDebug(lcStaticDb, "StaticDbUpdater: Getting update from URL %s", qUtf8Printable(_updateUrl));
    _badResponse = false;
    _state = Downloading;
    _downloadRequest = _http->get(QUrl(_updateUrl));
    return true;
}

void StaticDbUpdater::responseHeader(const QHttpsResponseHeader &header)
{
    if (_http->https()->currentId() != _downloadRequest)
        return;
    const int code = header.statusCode();
    if (code >= 200 && code <= 299)
        qCDebug(lcStaticDb, "Response code: %d", code);
    else
        _badResponse = true;
}

void StaticDbUpdater::saveBody()
{
    if (_http->https()->currentId() == _downloadRequest && _download)
        _download->write(_http->readAll());
}

void StaticDbUpdater::downloadRequestFinished(bool error)
{
    qCDebug(lcStaticDb, "StaticDbUpdater: Finished download request.");
    _downloadRequest = -1;
    if (_download) {
        _download->write(_http->readAll());
        _download->close();
    }
    bool ok = !error;
    if (_badResponse) {
        qCDebug(lcStaticDb, "StaticDbUpdater: Bad response recieved");
        _errorText =
            QStringLiteral("Sorry, an error occurred downloading the update. Please try again later.");
        ok = false;
    } else if (error && _state != Aborted) {
        _errorText = _http->errorString();
    }
    if (ok)
        ok = install();
    if (!ok && _download)
        _download->remove();
    _download.reset();
    if (_state != Aborted)
        _state = ok ? Finished : Failed;
    emit downloadFinished(ok);
}

bool StaticDbUpdater::install()
{
    if (_state == Aborted)
        return false;
    qCDebug(lcStaticDb, "StaticDbUpdater: Installing update");
    const QString downloaded = contentFile("static.download");
    const QString current = contentFile("static.db");
    const QString backup = contentFile("static.db.backup");
    if (!QFile::exists(downloaded)) {
        _errorText = QStringLiteral("No database to install");
        return false;
    }
    StaticDB::closeAll();
    if (QFile::exists(backup) && !QFile::remove(backup)) {
        _errorText = QStringLiteral("Failed to clear backup file: ") + backup;
        StaticDB::reopenAll();
        return false;
    }
    if (QFile::exists(current) && !QFile::rename(current, backup)) {
        _errorText = QStringLiteral("Failed to rename current database to backup: ") + current;
        StaticDB::reopenAll();
        return false;
    }
    if (!copyFile(downloaded, current, true)) {
        QFile::remove(current);
        QFile::rename(backup, current);
        StaticDB::reopenAll();
        if (_state != Aborted)
            _errorText = QStringLiteral("Copy from\n") + downloaded + QStringLiteral("\nto\n") + current +
                         QStringLiteral("\nfailed.");
        return false;
    }
    // Each database checks the new file; a bad one must not end the program.
    bool opened = StaticDB::reopenAll();
    if (opened) {
        bool foodsFailed = false;
        bool exercisesFailed = false;
        const StaticDB foods(1, &foodsFailed);
        const StaticDB exercises(2, &exercisesFailed);
        opened = !foodsFailed && !exercisesFailed;
    }
    if (!opened) {
        _errorText = QStringLiteral("New databases failed to start:\nDatabase corrupt");
        qCDebug(lcStaticDb, "StaticDbUpdater: New databases failed to restart. Restoring backup.");
        restoreBackup();
        return false;
    }
    QFile::remove(backup);
    QFile::remove(downloaded);
    NotificationDispatcher::send(QStringLiteral("staticdb_update_notification"));
    return true;
}

bool StaticDbUpdater::restoreBackup()
{
    StaticDB::closeAll();
    const QString current = contentFile("static.db");
    QFile::remove(current);
    const bool ok = QFile::rename(contentFile("static.db.backup"), current);
    StaticDB::reopenAll();
    return ok;
}

bool StaticDbUpdater::copyFile(const QString &source, const QString &target, bool compressed)
{
    QFile out(target);
    if (!compressed) {
        qCDebug(lcStaticDb, "StaticDbUpdater: copying uncompressed file");
        QFile in(source);
        if (!in.open(QIODevice::ReadOnly) || !out.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return false;
        return out.write(in.readAll()) == in.size() && out.flush();
    }
    qCDebug(lcStaticDb, "StaticDbUpdater: copying compressed file");
    const qint64 total = QFileInfo(source).size();
    gzFile in = gzopen(QFile::encodeName(source).constData(), "rb");
    if (!in)
        return false;
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        gzclose(in);
        return false;
    }
    char buffer[1024];
    qint64 written = 0;
    bool ok = true;
    for (;;) {
        const int n = gzread(in, buffer, sizeof buffer);
        // zlib would pass plain bytes through; updates always come compressed.
        if (n < 0 || gzdirect(in)) {
            ok = false; // not gzip data, or damaged
            break;
        }
        if (n == 0)
            break;
        if (out.write(buffer, n) != n) {
            ok = false;
            break;
        }
        written += n;
        // Progress against the compressed size, so it may pass its total.
        emit installProgress(int(written), int(total));
        QCoreApplication::processEvents();
        if (_state == Aborted) {
            ok = false;
            break;
        }
    }
    gzclose(in);
    out.close();
    return ok;
}

void StaticDbUpdater::abort()
{
    qCDebug(lcStaticDb, "StaticDbUpdater: Aborted");
    _state = Aborted;
    if (_http)
        _http->abort();
}

bool StaticDbUpdater::permissionTest()
{
    const QFileInfo file(contentFile("static.db"));
    return !file.exists() || file.isWritable();
}

bool StaticDbUpdater::checkDue(const QDateTime &now)
{
    const int days = LmSettings::readValue(QStringLiteral("/staticdb/updateInterval"), 28).toInt();
    if (days <= 0)
        return false;
    const QDateTime last = QDateTime::fromString(
        LmSettings::readValue(QStringLiteral("/staticdb/lastUpdate")).toString(), Qt::ISODate);
    return !last.isValid() || last.addDays(days) <= now;
}

void StaticDbUpdater::markChecked(const QDateTime &when)
{
    LmSettings::writeValue(QStringLiteral("/staticdb/lastUpdate"), when.toUTC().toString(Qt::ISODate));
}
