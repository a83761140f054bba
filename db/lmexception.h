#pragma once

// The error thrown by the schema operations and the stores of the user database. Catch sites
// show message() to the user.

#include <QByteArray>
#include <QString>

#include <exception>

class LmException : public std::exception
{
public:
    explicit LmException(const char *message)
        : LmException(QString::fromUtf8(message))
    {
    }
    explicit LmException(const QString &message)
        : _message(message)
        , _utf8(message.toUtf8())
    {
    }

    QString message() const { return _message; }
    const char *what() const noexcept override { return _utf8.constData(); }

private:
    QString _message;
    QByteArray _utf8; // kept so that what() stays valid as long as the exception
};
