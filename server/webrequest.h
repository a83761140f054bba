#pragma once

// What a page needs of a request, copied out of QHttpServerRequest on the server's thread (the
// request does not outlive its handler, and the page is made on the pool): method, path, the
// query and form fields decoded, the cookies that matter, the client's address and whether the
// connection is TLS.

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

class QHttpServerRequest;

struct WebRequest
{
    enum class Method { Get, Head, Post, Other };

    Method method = Method::Other;
    QString path;
    QString target; // path and query as sent, for coming back after logging in
    QList<QPair<QString, QString>> query;
    QList<QPair<QString, QString>> form; // an application/x-www-form-urlencoded POST body
    bool formTooLarge = false;
    QByteArray sessionToken;
    QByteArray loginToken;
    QString address;
    bool tls = false;

    static WebRequest from(const QHttpServerRequest &request, bool tls);

    QString param(const QString &name) const; // the query's first value, or empty
    QString field(const QString &name) const; // the form's first value, or empty
    QStringList fields(const QString &name) const;
    bool isPost() const { return method == Method::Post; }
};

// Urlencoded text decoded in one pass: "+" as a space and "%XX" as its byte; a "%" without two
// hex digits stays as it is. The program's whole publish document comes this way.
QByteArray formDecoded(QByteArrayView text);

// Fields of an urlencoded text ("+" is a space); names and values fully decoded.
QList<QPair<QString, QString>> decodeFormFields(const QByteArray &encoded);
