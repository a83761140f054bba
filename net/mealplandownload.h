#pragma once

// Downloads the profile's planned meals for the coming week from the web site and stores them as
// meal plan entries. One downloader for the program; the end of a download is told by finished().

#include "model/dbtypes.h"
#include "net/lmhttp.h"

#include <QDate>
#include <QList>
#include <QObject>

#include <memory>
#include <optional>

class MealPlanDownloader : public QObject
{
    Q_OBJECT

public:
    static MealPlanDownloader *instance();

    // Starts a download for the profile; false when the coming week is planned already or the
    // URL cannot be made (errorText() says why).
    bool download(int user_id);
    QString errorText() const { return _errorText; }
    QDate firstDay() const { return _first; }
    QDate lastDay() const { return _last; }

    // Reads a reply: the foods, or false with the server's "errstr (errno)" in *error.
    static bool parseReply(const QByteArray &reply, int user_id, QList<FoodDiaryItem> *foods, QString *error);

signals:
    void finished(bool error, const QString &text);
    void dataReadProgress(int done, int total);

private:
    MealPlanDownloader();
    void onDone(bool error);

    std::unique_ptr<LmHttp> _http;
    QString _errorText;
    QDate _first;
    QDate _last;
    int _userId = -1;
    bool _running = false;
};
