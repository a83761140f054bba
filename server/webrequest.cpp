#include "server/webrequest.h"

#include "server/websession.h"

#include <QHttpServerRequest>
#include <QUrl>

#include <array>

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

// The value of a hex digit, -1 for any other byte; a table, as a posted document is mostly escapes.
constexpr std::array<qint8, 256> kHexValues = [] {
    std::array<qint8, 256> values{};
    for (int c = 0; c < 256; ++c) {
        values[size_t(c)] = qint8(c >= '0' && c <= '9'   ? c - '0'
                                  : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                  : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                         : -1);
    }
    return values;
}();

} // namespace

QByteArray formDecoded(QByteArrayView text)
{
    QByteArray out(text.size(), Qt::Uninitialized);
    char *o = out.data();
    const auto *p = reinterpret_cast<const uchar *>(text.data());
    const uchar *const end = p + text.size();
    while (p < end) {
        const uchar c = *p;
        if (c == '%' && end - p > 2) {
            const int high = kHexValues[p[1]], low = kHexValues[p[2]];
            if ((high | low) >= 0) {
                *o++ = char(high * 16 + low);
                p += 3;
                continue;
            }
        }
        *o++ = c == '+' ? ' ' : char(c);
        ++p;
    }
    out.truncate(o - out.constData());
    return out;
}

QList<QPair<QString, QString>> decodeFormFields(const QByteArray &encoded)
{
    QList<QPair<QString, QString>> fields;
    for (const QByteArray &part : encoded.split('&')) {
        if (part.isEmpty())
            continue;
        const qsizetype equals = part.indexOf('=');
        const QByteArrayView whole(part);
        const QByteArrayView name = equals < 0 ? whole : whole.first(equals);
        const QByteArrayView value = equals < 0 ? QByteArrayView() : whole.sliced(equals + 1);
        fields.append({QString::fromUtf8(formDecoded(name)), QString::fromUtf8(formDecoded(value))});
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
