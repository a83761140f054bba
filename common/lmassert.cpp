#include "common/lmassert.h"

#include <QtGlobal>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace Lm {
namespace {

std::atomic<AssertHandler> g_assertHandler{nullptr};
std::atomic<FatalHandler> g_fatalHandler{nullptr};

void defaultAssertHandler(const char *expression, const char *file, int line)
{
    std::fprintf(stderr, "ASSERT: \"%s\" in file %s, line %d\n", expression, file, line);
    std::fflush(stderr);
}

} // namespace

AssertHandler setAssertHandler(AssertHandler handler)
{
    return g_assertHandler.exchange(handler);
}

FatalHandler setFatalHandler(FatalHandler handler)
{
    return g_fatalHandler.exchange(handler);
}

void assertFailed(const char *expression, const char *file, int line)
{
    if (AssertHandler handler = g_assertHandler.load())
        handler(expression, file, line);
    else
        defaultAssertHandler(expression, file, line);
    std::abort(); // a handler that returns still ends the program
}

void fatal(const QString &message)
{
    if (FatalHandler handler = g_fatalHandler.load())
        handler(message);
    qFatal("%s", qUtf8Printable(message));
}

} // namespace Lm
