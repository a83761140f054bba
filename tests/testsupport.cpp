#include "testsupport.h"

#include <QDir>

#include <vector>

namespace {

void throwAssertion(const char *expression, const char *, int)
{
    throw LmAbort{LmAbort::Assertion, QString::fromUtf8(expression)};
}

void throwFatal(const QString &message)
{
    throw LmAbort{LmAbort::Fatal, message};
}

constexpr const char *kHomeVariables[] = {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"};

// The homes alive, oldest first: the newest is the one in the environment. A fixture that makes
// its next home before the last one goes must not be put back into the last one's folders, nor
// into the person's own. The values from before the first are put back when the last goes.
std::vector<const TemporaryHome *> g_liveHomes;
std::optional<QByteArray> g_before[std::size(kHomeVariables)];

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
{
    if (g_liveHomes.empty()) {
        for (size_t i = 0; i < std::size(kHomeVariables); ++i) {
            g_before[i] = qEnvironmentVariableIsSet(kHomeVariables[i])
                              ? std::optional(qgetenv(kHomeVariables[i]))
                              : std::nullopt;
        }
    }
    QDir(_dir.path()).mkpath(QStringLiteral("data"));
    QDir(_dir.path()).mkpath(QStringLiteral("config"));
    QDir(_dir.path()).mkpath(QStringLiteral("run"));
    QFile::setPermissions(runtimeDir(),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    g_liveHomes.push_back(this);
    putInEnvironment();
}

void TemporaryHome::putInEnvironment() const
{
    const QString folders[] = {path(), dataHome(), configHome(), runtimeDir()};
    for (size_t i = 0; i < std::size(kHomeVariables); ++i)
        qputenv(kHomeVariables[i], QFile::encodeName(folders[i]));
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
    std::erase(g_liveHomes, this);
    if (!g_liveHomes.empty()) {
        g_liveHomes.back()->putInEnvironment();
        return;
    }
    for (size_t i = 0; i < std::size(kHomeVariables); ++i) {
        if (g_before[i])
            qputenv(kHomeVariables[i], *g_before[i]);
        else
            qunsetenv(kHomeVariables[i]);
    }
}
