#pragma once

// The form passwords are kept in: PBKDF2-HMAC-SHA256 with a 16-byte random salt, written as
// "pbkdf2-sha256$ITERATIONS$SALT_B64$HASH_B64". The work factor travels in the text, so hashes
// made with an older count still verify after kIterations is raised.

#include <QByteArray>
#include <QString>

namespace PasswordHash {

// About 30 ms on the machine the server was tuned on (one core of a 2-core EPYC VM).
inline constexpr int kIterations = 60000;
// What verify() accepts of a stored count; outside it the text is not ours.
inline constexpr int kMinIterations = 1000;
inline constexpr int kMaxIterations = 10000000;

// A fresh stored text for secret.
QString make(const QByteArray &secret, int iterations = kIterations);
// True when secret is the one stored; compared in constant time. False for unreadable text.
bool verify(const QByteArray &secret, const QString &stored);
// The stored work factor; 0 when the text is unreadable.
int iterations(const QString &stored);

// What the program sends for a password: the 32 lower-case hex digits of its UTF-8 MD5.
QByteArray md5Hex(const QString &password);
// True for 32 hex digits (either case).
bool isMd5Hex(const QString &text);

} // namespace PasswordHash
