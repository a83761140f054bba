#pragma once

// Shared pieces of the command-line tool: its exit statuses, the error that carries one, the
// global options and the parser of a command's own arguments.

#include <QDate>
#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

#include <exception>

namespace Cli {

enum ExitStatus {
    Success = 0,
    Failed = 1,     // the operation failed (network, nothing to export, refused)
    UsageError = 2, // bad usage or invalid input; nothing was changed
};

// Thrown by commands to end the run with a message on standard error.
class Error : public std::exception
{
public:
    Error(int status, QString message)
        : _status(status)
        , _message(std::move(message))
    {
    }
    int status() const { return _status; }
    const QString &message() const { return _message; }
    const char *what() const noexcept override { return "tarnwell-cli error"; }

private:
    int _status;
    QString _message;
};

[[noreturn]] inline void usageError(const QString &message)
{
    throw Error(UsageError, message);
}
[[noreturn]] inline void failure(const QString &message)
{
    throw Error(Failed, message);
}

struct GlobalOptions
{
    QString resourceDir;
    QString profile;
    bool json = false;
};

// A command's arguments: options ("--name VALUE" or "--name=VALUE", and flags without a value)
// and positional arguments; "--" ends the options.
class Arguments
{
public:
    // Throws a usage error for an unknown option or an option without its value.
    Arguments(const QStringList &args, const QStringList &valueOptions, const QStringList &flags = {});

    const QStringList &positionals() const { return _positionals; }
    bool has(const QString &name) const { return _values.contains(name) || _flags.contains(name); }
    QString value(const QString &name, const QString &fallback = QString()) const
    {
        return _values.value(name, fallback);
    }

    // Throws a usage error unless the count of positional arguments lies in [min, max].
    void expectPositionals(int min, int max, const QString &usage) const;

private:
    QStringList _positionals;
    QHash<QString, QString> _values;
    QSet<QString> _flags;
};

// Argument values. Each throws a usage error naming the option (or argument) on bad input.
QDate parseDate(const QString &text, const QString &what = QStringLiteral("DATE")); // YYYY-MM-DD, today, yesterday
int parseMeal(const QString &text);                                                 // name or 1..6
double parseNumber(const QString &text, const QString &what, double min, double max);
int parseInteger(const QString &text, const QString &what, int min, int max);
bool parseYesNo(const QString &text, const QString &what);

// Output helpers: standard output in UTF-8, one line at a time.
void printLine(const QString &line);
void printJson(const QByteArray &document);
// A line for the reader on standard error, "tarnwell-cli: " first, as errors are.
void printNote(const QString &line);

// Escapes backslash, tab and line breaks so that a value stays on its line.
QString escapeField(const QString &value);

struct Context
{
    GlobalOptions options;
};

} // namespace Cli
