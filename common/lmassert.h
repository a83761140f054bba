#pragma once

// Assertions that stay active in release builds, and the program's fatal exit.
//
// Both end in a handler that must not return: by default an assertion writes the expression, file
// and line to standard error and aborts, and a fatal message goes to qFatal (and so to the
// program's message handler). Tests install handlers that throw, so that each assertion and
// fatal message of the program can be checked without ending the test process.

#include <QString>

namespace Lm {

using AssertHandler = void (*)(const char *expression, const char *file, int line);
using FatalHandler = void (*)(const QString &message);

// nullptr restores the default handler. Returns the previous one.
AssertHandler setAssertHandler(AssertHandler handler);
FatalHandler setFatalHandler(FatalHandler handler);

[[noreturn]] void assertFailed(const char *expression, const char *file, int line);
[[noreturn]] void fatal(const QString &message);

} // namespace Lm

#define LM_ASSERT(expr) ((expr) ? static_cast<void>(0) : ::Lm::assertFailed(#expr, __FILE__, __LINE__))
