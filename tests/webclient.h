#pragma once

// The server's web pages as a browser without scripts sees them: a client with cookies of its
// own, over HTTP or TLS, that fills in forms with their CSRF token.

#include <QMap>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSslConfiguration>
#include <QUrl>

// An HTTP client with cookies of its own that follows no redirect, so every answer is seen.
class Client
{
public:
    struct Reply
    {
        int status = 0;
        QByteArray body;
        QByteArray location;
        QList<QByteArray> setCookies;
    };

    explicit Client(const QString &base, const QList<QSslCertificate> &trusted = {})
        : _base(base)
        , _trusted(trusted)
    {
    }

    Reply get(const QString &path) { return send("GET", path); }
    Reply post(const QString &path, const QList<QPair<QString, QString>> &fields)
    {
        QByteArray body;
        for (const auto &[name, value] : fields)
            body += (body.isEmpty() ? "" : "&") + QUrl::toPercentEncoding(name) + '=' +
                    QUrl::toPercentEncoding(value);
        return send("POST", path, body);
    }
    // The CSRF token the last form carried.
    QString csrf() const
    {
        static const QRegularExpression field(QStringLiteral("name=\"csrf\" value=\"([^\"]+)\""));
        return field.match(QString::fromUtf8(_last)).captured(1);
    }
    bool logIn(const QString &name, const QString &password)
    {
        get(QStringLiteral("/login"));
        return post(QStringLiteral("/login"), {{QStringLiteral("csrf"), csrf()},
                                               {QStringLiteral("name"), name},
                                               {QStringLiteral("password"), password}})
                   .status == 303;
    }

    Reply send(const QByteArray &method, const QString &path, const QByteArray &body = {})
    {
        QNetworkRequest request(QUrl(_base + path));
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
        if (!_trusted.isEmpty()) {
            QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
            tls.addCaCertificates(_trusted);
            request.setSslConfiguration(tls);
        }
        QByteArray cookies;
        for (auto it = _cookies.cbegin(); it != _cookies.cend(); ++it)
            cookies += (cookies.isEmpty() ? "" : "; ") + it.key() + '=' + it.value();
        if (!cookies.isEmpty())
            request.setRawHeader("Cookie", cookies);
        if (method == "POST")
            request.setHeader(QNetworkRequest::ContentTypeHeader,
                              QByteArray("application/x-www-form-urlencoded"));
        QNetworkReply *reply = _network.sendCustomRequest(request, method, body);
        if (!reply->isFinished())
            QSignalSpy(reply, &QNetworkReply::finished).wait(20000);
        Reply r;
        r.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        r.body = reply->readAll();
        r.location = reply->rawHeader("Location");
        for (const auto &[name, values] : reply->rawHeaderPairs()) {
            if (name.compare("Set-Cookie", Qt::CaseInsensitive) != 0)
                continue;
            // The network layer joins repeated Set-Cookie fields with newlines.
            for (const QByteArray &value : values.split('\n')) {
                r.setCookies.append(value);
                const QByteArray pair = value.split(';').constFirst();
                const qsizetype equals = pair.indexOf('=');
                if (value.contains("Max-Age=0"))
                    _cookies.remove(pair.left(equals));
                else
                    _cookies.insert(pair.left(equals), pair.mid(equals + 1));
            }
        }
        reply->deleteLater();
        _last = r.body;
        return r;
    }

private:
    QString _base;
    QList<QSslCertificate> _trusted;
    QNetworkAccessManager _network;
    QMap<QByteArray, QByteArray> _cookies;
    QByteArray _last;
};
