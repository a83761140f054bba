#include "server/passwordhash.h"

#include "common/lmassert.h"

#include <QCryptographicHash>
#include <QRegularExpression>
#include <QStringList>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int kSaltBytes = 16;
constexpr int kHashBytes = 32;
const QLatin1StringView kPrefix("pbkdf2-sha256");

QByteArray derive(const QByteArray &secret, const QByteArray &salt, int iterations)
{
    QByteArray out(kHashBytes, Qt::Uninitialized);
    const int ok = PKCS5_PBKDF2_HMAC(secret.constData(), int(secret.size()),
                                     reinterpret_cast<const unsigned char *>(salt.constData()),
                                     int(salt.size()), iterations, EVP_sha256(), kHashBytes,
                                     reinterpret_cast<unsigned char *>(out.data()));
    LM_ASSERT(ok == 1);
    return out;
}

struct Parsed
{
    int iterations = 0;
    QByteArray salt, hash;
};

bool parse(const QString &stored, Parsed *parsed)
{
    const QStringList parts = stored.split(QLatin1Char('$'));
    if (parts.size() != 4 || parts.at(0) != kPrefix)
        return false;
    bool ok = false;
    parsed->iterations = parts.at(1).toInt(&ok);
    if (!ok || parsed->iterations < PasswordHash::kMinIterations ||
        parsed->iterations > PasswordHash::kMaxIterations)
        return false;
    const auto decode = [](const QString &text, QByteArray *out) {
        const auto result =
            QByteArray::fromBase64Encoding(text.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
        *out = result.decoded;
        return bool(result);
    };
    return decode(parts.at(2), &parsed->salt) && decode(parts.at(3), &parsed->hash) &&
           parsed->salt.size() >= 8 && parsed->hash.size() == kHashBytes;
}

} // namespace

namespace PasswordHash {

QString make(const QByteArray &secret, int iterations)
{
    LM_ASSERT(iterations >= kMinIterations && iterations <= kMaxIterations);
    QByteArray salt(kSaltBytes, Qt::Uninitialized);
    const int ok = RAND_bytes(reinterpret_cast<unsigned char *>(salt.data()), kSaltBytes);
    LM_ASSERT(ok == 1);
    return u"%1$%2$%3$%4"_s.arg(kPrefix)
        .arg(iterations)
        .arg(QString::fromLatin1(salt.toBase64()),
             QString::fromLatin1(derive(secret, salt, iterations).toBase64()));
}

bool verify(const QByteArray &secret, const QString &stored)
{
    Parsed parsed;
    if (!parse(stored, &parsed))
        return false;
    const QByteArray hash = derive(secret, parsed.salt, parsed.iterations);
    return CRYPTO_memcmp(hash.constData(), parsed.hash.constData(), kHashBytes) == 0;
}

int iterations(const QString &stored)
{
    Parsed parsed;
    return parse(stored, &parsed) ? parsed.iterations : 0;
}

QByteArray md5Hex(const QString &password)
{
    return QCryptographicHash::hash(password.toUtf8(), QCryptographicHash::Md5).toHex();
}

bool isMd5Hex(const QString &text)
{
    static const QRegularExpression pattern(u"\\A[0-9A-Fa-f]{32}\\z"_s);
    return pattern.match(text).hasMatch();
}

} // namespace PasswordHash
