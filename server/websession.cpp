#include "server/websession.h"

#include <QCryptographicHash>

#include <openssl/crypto.h>
#include <openssl/rand.h>

namespace WebSession {

QByteArray randomToken(int bytes)
{
    QByteArray raw(bytes, Qt::Uninitialized);
    // A generator that cannot seed itself is no place to make login secrets from.
    if (RAND_bytes(reinterpret_cast<unsigned char *>(raw.data()), bytes) != 1)
        qFatal("tarnwell-server: the system's random generator failed");
    return raw.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals);
}

QString tokenHash(const QByteArray &token)
{
    return QString::fromLatin1(QCryptographicHash::hash(token, QCryptographicHash::Sha256).toHex());
}

bool sameToken(const QByteArray &a, const QByteArray &b)
{
    if (a.isEmpty() || a.size() != b.size())
        return false;
    return CRYPTO_memcmp(a.constData(), b.constData(), size_t(a.size())) == 0;
}

QHash<QByteArray, QByteArray> parseCookies(const QByteArray &header)
{
    QHash<QByteArray, QByteArray> cookies;
    for (const QByteArray &part : header.split(';')) {
        const qsizetype equals = part.indexOf('=');
        if (equals <= 0)
            continue;
        const QByteArray name = part.left(equals).trimmed();
        if (!cookies.contains(name))
            cookies.insert(name, part.mid(equals + 1).trimmed());
    }
    return cookies;
}

QByteArray setCookie(const char *name, const QByteArray &value, qint64 maxAge, bool secure)
{
    QByteArray cookie = QByteArray(name) + '=' + value + "; Path=/; Max-Age=" + QByteArray::number(maxAge) +
                        "; HttpOnly; SameSite=Strict";
    if (secure)
        cookie += "; Secure";
    return cookie;
}

} // namespace WebSession
