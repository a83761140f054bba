#pragma once

// Replaces the reference database with a newer one: a feed (RSS) says whether there is one and
// where, the gzip-compressed file is downloaded next to static.db and installed with a backup.
//
// The feed and the download come over plain HTTP, so the download is trusted for nothing: it is
// decompressed (up to kMaxDatabaseSize) into static.db.new beside static.db, read through in full
// (verifyDatabase), and must be newer than the file installed; only then does it take the place
// of static.db, whose old copy waits in static.db.backup until the new file has opened. Whatever
// the moment the program is killed, static.db or static.db.backup is a good file, and
// recoverInterruptedInstall() at the next start puts the good one back in place.
//
// The periodic check keeps two settings: "/staticdb/updateInterval", days between checks
// (default 28; 0 or less: never), and "/staticdb/lastUpdate", when the feed was last read
// successfully, as ISO 8601 UTC ("2026-11-23T15:30:00Z"; empty: never). A third,
// "/staticdb/installedUpdate", holds the feed's date and link of the last update that was
// installed or found no newer than the file in place ("2026-11-20T08:00:00Z http://..."): the
// feed may keep offering it, and it is not downloaded again.

#include <QDateTime>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class LmHttp;
class QFile;
class QHttpsResponseHeader;

class StaticDbUpdater : public QObject
{
    Q_OBJECT

public:
    enum State { Idle = 0, Checking = 1, Downloading = 2, Aborted = 3, Failed = 4, Finished = 5 };
    enum Result { UpdateAvailable = 0, NoInformation = 1, UpToDate = 2 };

    explicit StaticDbUpdater(QObject *parent = nullptr);
    ~StaticDbUpdater() override;

    bool check();
    bool download();
    bool install();

    int state() const { return _state; }
    int result() const { return _result; }
    QString errorText() const { return _errorText; }
    bool hasMessage() const { return !_message.isEmpty(); }
    QString message() const { return _message; }
    QString updateUrl() const { return _updateUrl; }

    // False when static.db exists and cannot be written.
    static bool permissionTest();

    // For both programs' start, before any reference database is opened: finishes an install that
    // was cut short. A static.db that does not verify while static.db.backup exists is replaced by
    // the backup, and a half-made static.db.new is removed. Nothing is done while another process
    // installs. True when the backup was put back.
    static bool recoverInterruptedInstall();

    // Whether the periodic check is due at now: never with an interval of 0 or less, at once
    // without a last check (or with one in the future: the clock was wrong), else when the
    // interval has passed since the last one. markChecked() records a check.
    static bool checkDue(const QDateTime &now = QDateTime::currentDateTimeUtc());
    static void markChecked(const QDateTime &when = QDateTime::currentDateTimeUtc());
    // The periodic check: starts check() when it is due (see checkDue). False when it was not due
    // or could not start; otherwise checkFinished follows as for check().
    bool checkIfDue(const QDateTime &now = QDateTime::currentDateTimeUtc());
    // An update is newer when the current file's creation day (taken as 23:59:59 UTC of that day)
    // is before the feed's date.
    static bool isNewer(const QString &creationDate, const QDateTime &pubDate);

    // The largest file an update may decompress to (and the largest download). Today's database
    // is a few MiB; anything near this is a compression bomb or a server gone wrong, and must not
    // fill the disk before it is refused.
    static constexpr qint64 kMaxDatabaseSize = qint64(256) * 1024 * 1024;

    enum class Inflated { Ok, Failed, TooLarge, Stopped };
    // Decompresses the gzip file source into target, refusing plain data, damaged data and a
    // stream that ends early (a truncated download), and stopping at more than limit bytes. After
    // every 1024 bytes progress(bytes written) is called; returning false stops the copy. The
    // target is left to the caller to remove when the result is not Ok.
    static Inflated inflate(const QString &source, const QString &target, qint64 limit,
                            const std::function<bool(qint64 written)> &progress = {});
    // Opens the file as a reference database and reads all of it: both chunks index, both trees
    // walk from their roots, every payload decodes and a search runs. False for anything the
    // program could trip over later; its creation date into *creationDate.
    static bool verifyDatabase(const QString &path, QString *creationDate = nullptr);

public slots:
    void abort();

signals:
    void checkFinished(bool error);
    void downloadFinished(bool success);
    void downloadProgress(int done, int total);
    void installProgress(int done, int total);

private:
    void requestFinished(int id, bool error);
    void rssRequestFinished(bool error);
    void downloadRequestFinished(bool error);
    void responseHeader(const QHttpsResponseHeader &header);
    void saveBody();
    void keep(const QByteArray &data);
    void refuseLargeDownload();
    bool copyFile(const QString &source, const QString &target, bool compressed);
    bool swapIn(const QString &staged);
    bool restoreBackup();
    void rememberUpdate();

    std::unique_ptr<LmHttp> _http;
    int _state = Idle;
    int _result = NoInformation;
    int _rssRequest = -1;
    int _downloadRequest = -1;
    QString _updateUrl;
    QDateTime _updateDate; // the feed's pubDate for the update URL
    QString _message;
    QString _errorText;
    bool _badResponse = false;
    bool _tooLarge = false;
    Inflated _inflated = Inflated::Ok; // how the last compressed copy ended
    std::unique_ptr<QFile> _download;
};
