#include "app/messagehandler.h"

#include <QtGlobal>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace Lm {
namespace {

std::atomic<MessageHandlerMode> g_mode{MessageHandlerMode::Desktop};
std::atomic<FatalDisplay> g_fatalDisplay{nullptr};
std::atomic<bool> g_inFatal{false};
std::atomic<bool> g_echoWarnings{false};

bool debugEnabled()
{
    return !qEnvironmentVariableIsEmpty("TARNWELL_DEBUG");
}

void writeLine(const char *prefix, const QString &text)
{
    std::fprintf(stderr, "%s%s\n", prefix, qUtf8Printable(text));
    std::fflush(stderr);
}

void handleMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type != QtFatalMsg) {
        if (type == QtWarningMsg && g_echoWarnings.load() && !debugEnabled()) {
            writeLine("", message);
        } else if (debugEnabled()) {
            const char *category = context.category ? context.category : "default";
            std::fprintf(stderr, "%s: %s\n", category, qUtf8Printable(message));
            std::fflush(stderr);
        }
        return;
    }

    if (g_mode.load() == MessageHandlerMode::CommandLine) {
        // One line, as every error of the tool: scripts read the first line of standard error.
        QString line = message;
        line.replace(QLatin1String("\r\n"), QLatin1String(" ")).replace(u'\n', u' ').replace(u'\r', u' ');
        writeLine("tarnwell-cli: ", line.simplified());
        std::_Exit(kFatalExitStatus);
    }

    writeLine("Fatal Error: ", message);
    // A fatal message raised while the box is up must not open another one.
    if (!g_inFatal.exchange(true)) {
        if (FatalDisplay display = g_fatalDisplay.load())
            display(message);
    }
    std::abort();
}

} // namespace

void installMessageHandler(MessageHandlerMode mode)
{
    g_mode.store(mode);
    qInstallMessageHandler(handleMessage);
}

void setFatalDisplay(FatalDisplay display)
{
    g_fatalDisplay.store(display);
}

void setEchoWarnings(bool echo)
{
    g_echoWarnings.store(echo);
}

} // namespace Lm
