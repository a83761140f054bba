#pragma once

// Helpers shared by the test suites: assertion and fatal handlers that throw instead of ending
// the process, and private HOME/XDG folders so that no test touches a real user's data.

#include "common/lmassert.h"

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>
#include <QTest>

#include <optional>

// Thrown by the test handlers in place of an assertion failure or fatal exit.
struct LmAbort
{
    enum Kind { Assertion, Fatal } kind;
    QString text; // the assertion's expression or the fatal message
};

// Installs throwing handlers for its lifetime.
class ThrowingHandlers
{
public:
    ThrowingHandlers();
    ~ThrowingHandlers();

private:
    Lm::AssertHandler _previousAssert;
    Lm::FatalHandler _previousFatal;
};

// Points HOME, XDG_DATA_HOME, XDG_CONFIG_HOME and XDG_RUNTIME_DIR at folders inside one temporary
// folder for its lifetime, and restores the old values after: no test sees a person's data, nor
// wakes or locks out a program they have running. Of several alive at once, the newest holds.
class TemporaryHome
{
public:
    TemporaryHome();
    ~TemporaryHome();

    bool isValid() const { return _dir.isValid(); }
    QString path() const { return _dir.path(); }
    QString dataHome() const { return _dir.path() + QStringLiteral("/data"); }
    QString configHome() const { return _dir.path() + QStringLiteral("/config"); }
    QString runtimeDir() const { return _dir.path() + QStringLiteral("/run"); }
    // The folder the programs keep userdata.db in under this home.
    QString diaryFolder() const { return dataHome() + QStringLiteral("/tarnwell.org/Ambervale/Tarnwell/"); }
    // The process environment with this home's folders, for the programs a test starts.
    QProcessEnvironment environment() const;

private:
    void putInEnvironment() const;

    QTemporaryDir _dir;
};

inline QString lmText(const QString &text)
{
    return text;
}
inline QString lmText(const char *text)
{
    return QString::fromUtf8(text);
}

// Runs the statement and checks that it ends in an LmAbort of that kind and text; missing is the
// failure when it does not.
#define LM_VERIFY_ABORT_(statement, abortKind, expected, missing)                                            \
    do {                                                                                                     \
        ThrowingHandlers lmHandlers_;                                                                        \
        try {                                                                                                \
            statement;                                                                                       \
            QFAIL(missing);                                                                                  \
        } catch (const LmAbort &abort_) {                                                                    \
            QCOMPARE(abort_.kind, abortKind);                                                                \
            QCOMPARE(abort_.text, lmText(expected));                                                         \
        }                                                                                                    \
    } while (false)

// Runs the statement and checks that it ends in the given fatal message.
#define LM_VERIFY_FATAL(statement, message)                                                                  \
    LM_VERIFY_ABORT_(statement, LmAbort::Fatal, message, "no fatal message from: " #statement)

// Runs the statement and checks that it fails the assertion with the given expression text.
#define LM_VERIFY_ASSERT(statement, expression)                                                              \
    LM_VERIFY_ABORT_(statement, LmAbort::Assertion, expression, "no assertion failed in: " #statement)

// Folder of the test reference files, and of the built executables and resource files.
inline QString testDataDir()
{
    return QStringLiteral(TARNWELL_TEST_DATA_DIR);
}
inline QString binDir()
{
    return QStringLiteral(TARNWELL_BIN_DIR);
}
