#pragma once

// Replaces the reference database with a newer one: a feed (RSS) says whether there is one and
// where, the gzip-compressed file is downloaded next to static.db, and installed with a backup
// that comes back if the new file does not open.
//
// The periodic check keeps two settings: "/staticdb/updateInterval", days between checks
// (default 28; 0 or less: never), and "/staticdb/lastUpdate", when the feed was last read
// successfully, as ISO 8601 UTC ("2026-11-23T15:30:00Z"; empty: never).

#include <QDateTime>
#include <QObject>
#include <QString>

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
    // Whether the periodic check is due now, and remembering that it ran.
    static bool checkDue(const QDateTime &now = QDateTime::currentDateTimeUtc());
    static void markChecked(const QDateTime &when = QDateTime::currentDateTimeUtc());
    // An update is newer when the current file's creation day (taken as 23:59:59 UTC of that day)
    // is before the feed's date.
    static bool isNewer(const QString &creationDate, const QDateTime &pubDate);

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
    bool copyFile(const QString &source, const QString &target, bool compressed);
    bool restoreBackup();

    std::unique_ptr<LmHttp> _http;
    int _state = Idle;
    int _result = NoInformation;
    int _rssRequest = -1;
    int _downloadRequest = -1;
    QString _updateUrl;
    QString _message;
    QString _errorText;
    bool _badResponse = false;
    std::unique_ptr<QFile> _download;
};
