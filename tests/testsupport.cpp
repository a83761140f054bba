#include "testsupport.h"

#include <QDir>

namespace {

void throwAssertion(const char *expression, const char *, int)
{
    throw LmAbort{LmAbort::Assertion, QString::fromUtf8(expression)};
}

void throwFatal(const QString &message)
{
    throw LmAbort{LmAbort::Fatal, message};
}

std::optional<QByteArray> takeEnv(const char *name)
{
    if (!qEnvironmentVariableIsSet(name))
        return std::nullopt;
    return qgetenv(name);
}

void restoreEnv(const char *name, const std::optional<QByteArray> &value)
{
    if (value)
        qputenv(name, *value);
    else
        qunsetenv(name);
}

} // namespace

ThrowingHandlers::ThrowingHandlers()
    : _previousAssert(Lm::setAssertHandler(throwAssertion))
    , _previousFatal(Lm::setFatalHandler(throwFatal))
{
}

ThrowingHandlers::~ThrowingHandlers()
{
    Lm::setAssertHandler(_previousAssert);
    Lm::setFatalHandler(_previousFatal);
}

TemporaryHome::TemporaryHome()
    : _home(takeEnv("HOME"))
    , _dataHome(takeEnv("XDG_DATA_HOME"))
    , _configHome(takeEnv("XDG_CONFIG_HOME"))
{
    QDir(_dir.path()).mkpath(QStringLiteral("data"));
    QDir(_dir.path()).mkpath(QStringLiteral("config"));
    qputenv("HOME", QFile::encodeName(_dir.path()));
    qputenv("XDG_DATA_HOME", QFile::encodeName(dataHome()));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(configHome()));
}

TemporaryHome::~TemporaryHome()
{
    restoreEnv("HOME", _home);
    restoreEnv("XDG_DATA_HOME", _dataHome);
    restoreEnv("XDG_CONFIG_HOME", _configHome);
}
