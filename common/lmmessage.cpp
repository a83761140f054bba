#include "common/lmmessage.h"

#include <cstdio>

namespace Lm {
namespace {

MessagePresenter *g_presenter = nullptr;

void writeToStderr(const QString &caption, const QString &text)
{
    std::fprintf(stderr, "%s: %s\n", qUtf8Printable(caption), qUtf8Printable(text));
    std::fflush(stderr);
}

} // namespace

MessagePresenter *setMessagePresenter(MessagePresenter *presenter)
{
    MessagePresenter *previous = g_presenter;
    g_presenter = presenter;
    return previous;
}

void showMessage(MessageKind kind, const QString &caption, const QString &text)
{
    if (g_presenter)
        g_presenter->showMessage(kind, caption, text);
    else
        writeToStderr(caption, text);
}

bool askQuestion(const QString &caption, const QString &text, bool defaultYes)
{
    if (g_presenter)
        return g_presenter->askQuestion(caption, text, defaultYes);
    writeToStderr(caption, text);
    return defaultYes;
}

} // namespace Lm
