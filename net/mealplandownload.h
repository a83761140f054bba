#pragma once

// Downloads the profile's planned meals for the coming week from the web site and stores them as
// meal plan entries. One downloader for the program; the end of a download is told by finished().
// A reply is stored whole or not at all: a status other than 200, the server's error, or any food
// with a value that is not a finite number, a negative quantity or a day outside the range asked
// for refuses the whole reply, and the text says why.

#include "model/dbtypes.h"
#include "net/lmhttp.h"

#include <QDate>
#include <QList>
#include <QObject>

#include <memory>

class MealPlanDownloader : public QObject
{
    Q_OBJECT

public:
    static MealPlanDownloader *instance();
    // However slowly the server answers, a download ends within this.
    static constexpr int kDeadline = 3 * 60 * 1000;

    // Starts a download for the profile; false when the coming week is planned already (no error
    // text) or the URL cannot be made (errorText() says why).
    bool download(int user_id);
    // Stops a running download; finished() tells it with the error flag set.
    void abort();
    QString errorText() const { return _errorText; }
    QDate firstDay() const { return _first; }
    QDate lastDay() const { return _last; }

    // Reads a reply asked for the days first to last: the foods, or false with the reason in
    // *error (the server's "errstr (errno)", or the food that was refused and why).
    static bool parseReply(const QByteArray &reply, int user_id, const QDate &first, const QDate &last,
                           QList<FoodDiaryItem> *foods, QString *error);

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
