#pragma once

// The secrets of a web login: session tokens (the cookie holds the token, the store only its
// SHA-256, so a copy of the database opens no session), CSRF tokens compared in constant time,
// and the cookies that carry them (HttpOnly, SameSite=Strict, Path=/, Secure over TLS).

#include <QByteArray>
#include <QHash>
#include <QString>

namespace WebSession {

inline constexpr char kSessionCookie[] = "tarnwell_session";
// Before a session exists, the login form's CSRF token is also a cookie (double submit).
inline constexpr char kLoginCookie[] = "tarnwell_login";

// bytes of randomness from OpenSSL's generator, base64url without padding.
QByteArray randomToken(int bytes = 32);
// The stored form of a session token: SHA-256 as 64 lower-case hex digits.
QString tokenHash(const QByteArray &token);
// Equal bytes, in time that does not depend on where they differ; empty never matches.
bool sameToken(const QByteArray &a, const QByteArray &b);

// The cookies of a request's Cookie header, by name (the first of a name wins).
QHash<QByteArray, QByteArray> parseCookies(const QByteArray &header);
// A Set-Cookie value; maxAge 0 removes the cookie.
QByteArray setCookie(const char *name, const QByteArray &value, qint64 maxAge, bool secure);

} // namespace WebSession
