#pragma once

// Usage metrics: on which days the program was started and how often, which weight check-ins
// changed (with a trend word, never the weight) and on which days the food diary changed (with
// counts, never the foods). Everything in the changed state for the "metrics" device is sent over
// TLS; after a confirmed upload uploadOk() tells the owner to reset those marks.

#include "net/lmhttp.h"

#include <QObject>

#include <memory>

class Metrics : public QObject
{
    Q_OBJECT

public:
    explicit Metrics(int user_id, QObject *parent = nullptr);
    ~Metrics() override;

    QString buildDocument() const;
    QString errorText() const { return _errorText; }
    // The trend of the check-ins with a weight on or before a day; empty with fewer than two.
    static QString weightTrend(int user_id, const QString &day);
    // The profile's marks of the "metrics" device back from changed to in step.
    static void resetUserMetrics(int user_id);

public slots:
    void start();

signals:
    void done(bool error);
    void uploadOk();

private:
    void readData(const QHttpsResponseHeader &header);
    void checkCertError(int code, const QString &reason);
    void httpsDone(bool error);
    void fail(const QString &text);

    int _userId;
    std::unique_ptr<LmHttp> _http;
    bool _mayProceed = false;
    bool _answered = false;
    QString _errorText;
};
