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
    , _runtimeDir(takeEnv("XDG_RUNTIME_DIR"))
{
    QDir(_dir.path()).mkpath(QStringLiteral("data"));
    QDir(_dir.path()).mkpath(QStringLiteral("config"));
    QDir(_dir.path()).mkpath(QStringLiteral("run"));
    QFile::setPermissions(runtimeDir(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    qputenv("HOME", QFile::encodeName(_dir.path()));
    qputenv("XDG_DATA_HOME", QFile::encodeName(dataHome()));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(configHome()));
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtimeDir()));
}

QProcessEnvironment TemporaryHome::environment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), path());
    env.insert(QStringLiteral("XDG_DATA_HOME"), dataHome());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), configHome());
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtimeDir());
    env.remove(QStringLiteral("TARNWELL_DEBUG"));
    return env;
}

TemporaryHome::~TemporaryHome()
{
    restoreEnv("HOME", _home);
    restoreEnv("XDG_DATA_HOME", _dataHome);
    restoreEnv("XDG_CONFIG_HOME", _configHome);
    restoreEnv("XDG_RUNTIME_DIR", _runtimeDir);
}
