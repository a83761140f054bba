#pragma once

// Usage metrics: on which days the program was started and how often, which weight check-ins
// changed (with a trend word, never the weight) and on which days the food diary changed (with
// counts, never the foods). Everything in the changed state for the "metrics" device is sent over
// TLS; after a confirmed upload uploadOk() tells the owner to reset those marks, with
// resetUserMetrics(sentUserId()). Failures are told by done(true) and errorText() only.

#include "net/lmhttp.h"

#include <QObject>

#include <memory>

class Metrics : public QObject
{
    Q_OBJECT

public:
    static constexpr int kDeadline = 2 * 60 * 1000;

    explicit Metrics(int user_id = -1, QObject *parent = nullptr);
    ~Metrics() override;

    // The profile whose usage is reported; -1 while none is open.
    void setUserId(int user_id) { _userId = user_id; }
    int userId() const { return _userId; }
    // The profile of the last document sent: the one whose marks uploadOk() is about.
    int sentUserId() const { return _sentUserId; }

    // Builds and posts the document now. False, with errorText(), when no profile is open, the
    // brand has no metrics address or the address cannot be made (no web account); otherwise
    // done() follows.
    bool send();
    // Stops the upload under way, even while its connection is being made; done(true) follows.
    void abort();

    QString buildDocument() const;
    QString errorText() const { return _errorText; }
    // The trend of the check-ins with a weight on or before a day; empty with fewer than two.
    static QString weightTrend(int user_id, const QString &day);
    // The profile's marks of the "metrics" device back from changed to in step.
    static void resetUserMetrics(int user_id);

public slots:
    // The desktop program's way: send(), and while that cannot start, try again every 5 s.
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
    int _sentUserId = -1;
    std::unique_ptr<LmHttp> _http;
    bool _mayProceed = false;
    bool _answered = false;
    bool _aborted = false;
    bool _connecting = false; // inside send(), while the TLS connection is made
    QString _errorText;
};
