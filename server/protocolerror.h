#pragma once

// The error numbers of the program's protocol (publish, metrics, meal plan). The program shows
// errstr to the user and treats any number but 0 as "not done"; a refused request changes nothing.

#include <QString>

enum class ProtocolError {
    Ok = 0,
    ServerError = 1, // storage failed; nothing stored
    Throttled = 2,   // too many failed logins
    BadLogin = 3,
    BadDocument = 4, // unreadable XML, a DTD, wrong root, a bad date or number
    TooLarge = 6,    // decoded document over the limit, or too many items
};

inline QString protocolErrorText(ProtocolError error)
{
    switch (error) {
    case ProtocolError::Ok:
        return QString();
    case ProtocolError::ServerError:
        return QStringLiteral("server error");
    case ProtocolError::Throttled:
        return QStringLiteral("too many failed logins, try later");
    case ProtocolError::BadLogin:
        return QStringLiteral("bad login");
    case ProtocolError::BadDocument:
        return QStringLiteral("bad document");
    case ProtocolError::TooLarge:
        return QStringLiteral("document too large");
    }
    return QString();
}
