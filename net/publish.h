#pragma once

// Publishing: the profile's changed diary days, check-ins and water go to its online diary as one
// XML document posted as the form field "xml="; after the server's reply (status 200, no error
// number) says yes, every sync mark of the profile for the "website" device is reset. The steps
// and the result are told through signals; the desktop shows them in its progress dialog, the
// command line prints them.

#include "net/lmhttp.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

// Fills the variables of a brand URL for a profile (web account, content folder); the error
// text when the URL needs an account the profile has not set, else empty.
QString expandBrandUrl(QString &url, int user_id);

// A streaming XML writer with the exact layout the server has always read: two spaces of
// indentation per open element, a space after every attribute, self-closed empty elements.
class XmlWriter
{
public:
    explicit XmlWriter(QString *out);
    ~XmlWriter(); // closes every open element

    void startElement(const QString &name);
    void endElement();
    // Attribute values; numbers in the general format with 6 significant digits.
    void attribute(const QString &name, const QString &value);
    void attribute(const QString &name, float value);
    void attribute(const QString &name, int value);

    static QString escape(const QString &value);
    static void appendEscaped(QString *out, const QString &value);

private:
    void closeStartTag();
    void indent(qsizetype level);

    QString *_out;
    QStringList _open;
    bool _startTagOpen = false;
};

// The server's one-element reply: <response errno=".." errstr=".." show="yes|no"/>.
struct PublishResponse
{
    int errnum = 0;
    QString errstr;
    bool show = false;
    // False when the text is not well-formed XML. A reply without a response element leaves the
    // values as they are (success).
    bool parse(const QByteArray &reply);
};

class LmPublish : public QObject
{
    Q_OBJECT

public:
    enum Step { Connecting, Sending, Reading, Disconnecting, Done };
    static constexpr int kMaxItems = 2000;
    // However slowly the server answers, a publish ends within this.
    static constexpr int kDeadline = 3 * 60 * 1000;

    explicit LmPublish(int user_id, QObject *parent = nullptr);
    ~LmPublish() override;

    // Builds the document and posts it; false (with an information box "Publish Diary") when the
    // URL cannot be made, and nothing is sent.
    bool publish();
    void cancel();

    // The document of everything changed since the last publish; fills publishedDays().
    QString buildDocument();
    static QByteArray encodeBody(const QString &document);
    const QStringList &publishedDays() const { return _publishedDays; }
    LmHttp *http() const { return _http.get(); }
    int itemCount() const { return _itemCount; }

signals:
    // A step's text changed; ok false puts a cross beside it.
    void stepChanged(int step, bool ok, const QString &text);
    void finished(const QString &result);        // "Completed successfully", "Complete", "Error occured", ...
    void statusTextChanged(const QString &text); // "Host %1 found", "Connected to host %1", ...

private:
    void onStateChanged(int state);
    void onDone(bool error);
    void markSynchronised();
    bool writeDay(XmlWriter &xml, const QString &day); // false when the day does not fit

    int _userId;
    QString _url;
    std::unique_ptr<LmHttp> _http;
    int _itemCount = 0;
    QStringList _publishedDays;
    bool _running = false;
};
