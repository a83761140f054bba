#include "server/webrequest.h"

#include "server/websession.h"

#include <QHttpServerRequest>
#include <QUrl>

namespace {

// Forms on these pages are a few fields; anything much larger is not one of ours.
constexpr qsizetype kLargestForm = 64 * 1024;

QString firstValue(const QList<QPair<QString, QString>> &fields, const QString &name)
{
    for (const auto &[key, value] : fields) {
        if (key == name)
            return value;
    }
    return QString();
}

} // namespace

QList<QPair<QString, QString>> decodeFormFields(const QByteArray &encoded)
{
    QList<QPair<QString, QString>> fields;
    for (const QByteArray &part : encoded.split('&')) {
        if (part.isEmpty())
            continue;
        const qsizetype equals = part.indexOf('=');
        QByteArray name = equals < 0 ? part : part.left(equals);
        QByteArray value = equals < 0 ? QByteArray() : part.mid(equals + 1);
        name.replace('+', ' ');
        value.replace('+', ' ');
        fields.append({QString::fromUtf8(QByteArray::fromPercentEncoding(name)),
                       QString::fromUtf8(QByteArray::fromPercentEncoding(value))});
    }
    return fields;
}

WebRequest WebRequest::from(const QHttpServerRequest &request, bool tls)
{
    WebRequest r;
    switch (request.method()) {
    case QHttpServerRequest::Method::Get:
        r.method = Method::Get;
        break;
    case QHttpServerRequest::Method::Head:
        r.method = Method::Head;
        break;
    case QHttpServerRequest::Method::Post:
        r.method = Method::Post;
        break;
    default:
        r.method = Method::Other;
    }
    const QUrl url = request.url();
    r.path = url.path();
    const QByteArray query = url.query(QUrl::FullyEncoded).toLatin1();
    r.target = url.path(QUrl::FullyEncoded) +
               (query.isEmpty() ? QString() : QLatin1Char('?') + QString::fromLatin1(query));
    r.query = decodeFormFields(query);
    if (r.method == Method::Post) {
        const QByteArray body = request.body();
        if (body.size() > kLargestForm)
            r.formTooLarge = true;
        else
            r.form = decodeFormFields(body);
    }
    const QHash<QByteArray, QByteArray> cookies = WebSession::parseCookies(request.value("Cookie"));
    r.sessionToken = cookies.value(WebSession::kSessionCookie);
    r.loginToken = cookies.value(WebSession::kLoginCookie);
    r.address = request.remoteAddress().toString();
    r.tls = tls;
    return r;
}

QString WebRequest::param(const QString &name) const
{
    return firstValue(query, name);
}

QString WebRequest::field(const QString &name) const
{
    return firstValue(form, name);
}

QStringList WebRequest::fields(const QString &name) const
{
    QStringList values;
    for (const auto &[key, value] : form) {
        if (key == name)
            values.append(value);
    }
    return values;
}
