#include "staticdb/staticdbupdater.h"

#include "app/lmsettings.h"
#include "app/notificationdispatcher.h"
#include "app/webserver.h"
#include "brand/brandengine.h"
#include "net/lmhttp.h"
#include "net/publish.h"
#include "net/qhttps.h"
#include "staticdb/rssreader.h"
#include "staticdb/staticdb.h"
#include "staticdb/staticdblog.h"

#include "staticdb/fooddb.h"
#include "staticdb/memmappedfile.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QTimeZone>

#include <zlib.h>

namespace {

QString contentFile(const char *name)
{
    return LmSettings::contentPath() + QLatin1String(name);
}

// Held while a process installs, so that another one starting meanwhile leaves its files alone.
// A lock whose process has died is taken over at once; a live one is never taken by age.
std::unique_ptr<QLockFile> lockInstall()
{
    auto lock = std::make_unique<QLockFile>(contentFile("static.db.lock"));
    lock->setStaleLockTime(0);
    return lock->tryLock(0) ? std::move(lock) : nullptr;
}

QString limitText()
{
    return QStringLiteral("%1 MiB").arg(StaticDbUpdater::kMaxDatabaseSize / (1024 * 1024));
}

// The creation date of an installed file; empty when there is none, or none we can read.
QString installedCreationDate(const QString &path)
{
    QFile file(path);
    QString created;
    if (!file.open(QIODevice::ReadOnly))
        return created;
    const QByteArray header = file.read(64);
    if (!StaticDB::readHeader(reinterpret_cast<const uchar *>(header.constData()), header.size(), &created))
        created.clear();
    return created;
}

// The feed's date and link of an update, as remembered once it is installed.
QString updateKey(const QDateTime &date, const QString &url)
{
    return date.toUTC().toString(Qt::ISODate) + QLatin1Char(' ') + url;
}

const QString kInstalledUpdate = QStringLiteral("/staticdb/installedUpdate");

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
                      ? WebServer::address(QStringLiteral("update_rss_url"))
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
            markChecked(); // the feed was read: nothing to ask again before the interval is over
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
            // An update already installed (or found to be no newer) is not fetched again, even
            // when its file says it was made before the feed's date.
            const bool known =
                LmSettings::readValue(kInstalledUpdate).toString() == updateKey(it->pubDate, it->link);
            if (isNewer(created, it->pubDate) && !known) {
                _updateUrl = it->link;
                _updateDate = it->pubDate;
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
    _tooLarge = false;
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
    if (header.hasContentLength() && qint64(header.contentLength()) > kMaxDatabaseSize)
        refuseLargeDownload();
}

void StaticDbUpdater::refuseLargeDownload()
{
    if (_tooLarge)
        return;
    _tooLarge = true;
    // Not from inside the client's own signal: it finishes the request when it can.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (_downloadRequest >= 0)
                _http->abort();
        },
        Qt::QueuedConnection);
}

void StaticDbUpdater::saveBody()
{
    if (_http->https()->currentId() == _downloadRequest && _download)
        keep(_http->readAll());
}

void StaticDbUpdater::keep(const QByteArray &data)
{
    if (_tooLarge)
        return;
    if (_download->size() + data.size() > kMaxDatabaseSize)
        refuseLargeDownload();
    else
        _download->write(data);
}

void StaticDbUpdater::downloadRequestFinished(bool error)
{
    qCDebug(lcStaticDb, "StaticDbUpdater: Finished download request.");
    _downloadRequest = -1;
    if (_download) {
        keep(_http->readAll());
        _download->close();
    }
    bool ok = !error;
    if (_tooLarge) {
        qCDebug(lcStaticDb, "StaticDbUpdater: Download too large");
        _errorText = QStringLiteral("The update is larger than %1 and was not downloaded.").arg(limitText());
        ok = false;
    } else if (_badResponse) {
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
    const QString staged = contentFile("static.db.new");
    if (!QFile::exists(downloaded)) {
        _errorText = QStringLiteral("No database to install");
        return false;
    }
    const std::unique_ptr<QLockFile> lock = lockInstall();
    if (!lock) {
        _errorText =
            QStringLiteral("Another program is installing a database update. Please try again later.");
        return false;
    }
    const QString copyFailed = QStringLiteral("Copy from\n") + downloaded + QStringLiteral("\nto\n") +
                               current + QStringLiteral("\nfailed.");
    // The new file is made and proved beside the old one, which stays in use meanwhile.
    const bool copied = copyFile(downloaded, staged, true);
    QString created;
    bool ok = false;
    if (!copied) {
        if (_state != Aborted) {
            _errorText = copyFailed;
            if (_inflated == Inflated::TooLarge)
                _errorText += QStringLiteral("\nThe database would be larger than %1.").arg(limitText());
        }
    } else if (!verifyDatabase(staged, &created)) {
        _errorText = QStringLiteral("New databases failed to start:\nDatabase corrupt");
        qCDebug(lcStaticDb, "StaticDbUpdater: The downloaded database does not open");
    } else {
        const QString installed = installedCreationDate(current);
        const QDate newDay = QDate::fromString(created, Qt::ISODate);
        const QDate oldDay = QDate::fromString(installed, Qt::ISODate);
        if (!newDay.isValid() || (oldDay.isValid() && newDay <= oldDay)) {
            qCDebug(lcStaticDb, "StaticDbUpdater: The update (%s) is not newer than the database (%s)",
                    qUtf8Printable(created), qUtf8Printable(installed));
            _errorText = QStringLiteral("The downloaded database (made %1) is not newer than the one "
                                        "installed (made %2).")
                             .arg(created, installed);
            rememberUpdate();
        } else {
            ok = swapIn(staged);
        }
    }
    QFile::remove(staged);
    QFile::remove(downloaded);
    if (ok) {
        rememberUpdate();
        NotificationDispatcher::send(QStringLiteral("staticdb_update_notification"));
    }
    return ok;
}

// Puts the proved file in place of static.db, keeping the old one as the backup until the
// databases have opened the new one.
bool StaticDbUpdater::swapIn(const QString &staged)
{
    const QString current = contentFile("static.db");
    const QString backup = contentFile("static.db.backup");
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
    if (!QFile::rename(staged, current)) {
        QFile::rename(backup, current);
        StaticDB::reopenAll();
        _errorText = QStringLiteral("Copy from\n") + contentFile("static.download") +
                     QStringLiteral("\nto\n") + current + QStringLiteral("\nfailed.");
        return false;
    }
    // Each database opens the new file again; a bad one must not end the program.
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
    return true;
}

void StaticDbUpdater::rememberUpdate()
{
    if (!_updateUrl.isEmpty())
        LmSettings::writeValue(kInstalledUpdate, updateKey(_updateDate, _updateUrl));
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

bool StaticDbUpdater::recoverInterruptedInstall()
{
    const QString current = contentFile("static.db");
    const QString backup = contentFile("static.db.backup");
    const QString staged = contentFile("static.db.new");
    if (!QFile::exists(backup) && !QFile::exists(staged))
        return false;
    const std::unique_ptr<QLockFile> lock = lockInstall();
    if (!lock)
        return false; // another process is installing: its files are not ours to touch
    QFile::remove(staged);
    if (!QFile::exists(backup) || verifyDatabase(current))
        return false;
    qCWarning(lcStaticDb, "StaticDbUpdater: An install was interrupted. Restoring backup.");
    QFile::remove(current);
    return QFile::rename(backup, current);
}

bool StaticDbUpdater::copyFile(const QString &source, const QString &target, bool compressed)
{
    if (!compressed) {
        qCDebug(lcStaticDb, "StaticDbUpdater: copying uncompressed file");
        QFile in(source);
        QFile out(target);
        if (!in.open(QIODevice::ReadOnly) || !out.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return false;
        return out.write(in.readAll()) == in.size() && out.flush();
    }
    qCDebug(lcStaticDb, "StaticDbUpdater: copying compressed file");
    const qint64 total = QFileInfo(source).size();
    _inflated = inflate(source, target, kMaxDatabaseSize, [this, total](qint64 written) {
        // Progress against the compressed size, so it may pass its total.
        emit installProgress(int(written), int(total));
        QCoreApplication::processEvents();
        return _state != Aborted;
    });
    return _inflated == Inflated::Ok;
}

StaticDbUpdater::Inflated StaticDbUpdater::inflate(const QString &source, const QString &target, qint64 limit,
                                                   const std::function<bool(qint64)> &progress)
{
    QFile out(target);
    gzFile in = gzopen(QFile::encodeName(source).constData(), "rb");
    if (!in)
        return Inflated::Failed;
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        gzclose(in);
        return Inflated::Failed;
    }
    char buffer[1024];
    qint64 written = 0;
    Inflated result = Inflated::Ok;
    for (;;) {
        const int n = gzread(in, buffer, sizeof buffer);
        // zlib would pass plain bytes through; updates always come compressed.
        if (n < 0 || gzdirect(in)) {
            result = Inflated::Failed; // not gzip data, or damaged
            break;
        }
        if (n == 0) {
            // zlib reports a stream cut short (no trailer) as an end with an error beside it.
            int error = Z_OK;
            gzerror(in, &error);
            if (error != Z_OK)
                result = Inflated::Failed;
            break;
        }
        if (written + n > limit) {
            result = Inflated::TooLarge;
            break;
        }
        if (out.write(buffer, n) != n) {
            result = Inflated::Failed;
            break;
        }
        written += n;
        if (progress && !progress(written)) {
            result = Inflated::Stopped;
            break;
        }
    }
    if (gzclose(in) != Z_OK && result == Inflated::Ok)
        result = Inflated::Failed;
    if (!out.flush())
        result = result == Inflated::Ok ? Inflated::Failed : result;
    out.close();
    return result;
}

bool StaticDbUpdater::verifyDatabase(const QString &path, QString *creationDate)
{
    const MemMappedFile file(path);
    QString created;
    if (!file.isValid() || !StaticDB::readHeader(file.base(), file.size(), &created))
        return false;
    for (const quint32 chunk : {1u, 2u}) {
        IndexedDB db;
        bool missingChunk = false;
        if (!db.index(file.base(), file.size(), chunk, &missingChunk))
            return false;
        const IndexEntry *root = db.lookup(db.rootId(), true);
        if (!root)
            return false;
        // Every category browses; the index has made sure the tree below the root ends.
        std::vector<quint32> pending = {db.rootId()};
        while (!pending.empty()) {
            std::unique_ptr<BrowsableDBIterator> children(db.children(pending.back(), 0, 0));
            pending.pop_back();
            if (!children)
                return false;
            while (const IndexEntry *e = children->next()) {
                if (db.isCategory(e) && db.lookup(e->id, true) == e)
                    pending.push_back(e->id);
            }
        }
        // Every leaf's payload decodes as the databases will decode it.
        std::unique_ptr<BrowsableDBIterator> all(db.all(0, FLAG_CATEGORY));
        while (const IndexEntry *e = all->next()) {
            const QByteArrayView payload = db.payload(e);
            if (chunk == 1) {
                Food food;
                if (!FoodDBStatic::decodePayload(payload, e->value, &food))
                    return false;
            } else if (payload.isEmpty() || ((quint8(payload[0]) & 0x01) && payload.size() < 5)) {
                return false;
            }
        }
        db.search(QStringLiteral("database update check"), false, 0);
    }
    if (creationDate)
        *creationDate = created;
    return true;
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
    bool ok = false;
    int days = LmSettings::readValue(QStringLiteral("/staticdb/updateInterval"), 28).toInt(&ok);
    if (!ok)
        days = 28;
    if (days <= 0)
        return false;
    const QDateTime last = QDateTime::fromString(
        LmSettings::readValue(QStringLiteral("/staticdb/lastUpdate")).toString(), Qt::ISODate);
    return !last.isValid() || last > now || last.addDays(days) <= now;
}

void StaticDbUpdater::markChecked(const QDateTime &when)
{
    LmSettings::writeValue(QStringLiteral("/staticdb/lastUpdate"), when.toUTC().toString(Qt::ISODate));
}

bool StaticDbUpdater::checkIfDue(const QDateTime &now)
{
    return checkDue(now) && check();
}
