// tarnwell-server: the household's online diary. See servercommands.h for the commands.

#include "server/servercommands.h"

#include <QCoreApplication>
#include <QLoggingCategory>

namespace {

QLoggingCategory::CategoryFilter g_previousFilter = nullptr;

// Qt HttpServer's own debug output names request URLs, and the program's queries carry password
// hashes: it stays off whatever logging rules say.
void quietHttpServer(QLoggingCategory *category)
{
    if (g_previousFilter)
        g_previousFilter(category);
    if (qstrncmp(category->categoryName(), "qt.httpserver", 13) == 0) {
        category->setEnabled(QtDebugMsg, false);
        category->setEnabled(QtInfoMsg, false);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    g_previousFilter = QLoggingCategory::installFilter(quietHttpServer);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tarnwell-server"));
    return ServerCommands::run(QCoreApplication::arguments().mid(1));
}
