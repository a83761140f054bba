// tarnwell-server: the household's online diary. See servercommands.h for the commands.

#include "server/servercommands.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <openssl/crypto.h>

#include <malloc.h>

namespace {

QLoggingCategory::CategoryFilter g_previousFilter = nullptr;

// Qt HttpServer's own debug output names request URLs, and the program's queries carry password
// hashes: it stays off whatever logging rules say. The libraries' debug lines (files mapped and
// unmapped) are no news in a service's log: off unless QT_LOGGING_RULES asks for them.
void quietLog(QLoggingCategory *category)
{
    if (g_previousFilter)
        g_previousFilter(category);
    if (qstrncmp(category->categoryName(), "qt.httpserver", 13) == 0) {
        category->setEnabled(QtDebugMsg, false);
        category->setEnabled(QtInfoMsg, false);
    } else if (qstrncmp(category->categoryName(), "tarnwell.", 9) == 0 &&
               !qEnvironmentVariableIsSet("QT_LOGGING_RULES")) {
        category->setEnabled(QtDebugMsg, false);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    // Every request allocates and frees the same tens of kilobytes on some pool thread: memory
    // handed back to the system after each (and faulted in again by the next, with a TLB flush on
    // every core) costs a publish a tenth of its time. A service keeps what it has used.
    mallopt(M_TRIM_THRESHOLD, 64 * 1024 * 1024);
    mallopt(M_MMAP_THRESHOLD, 4 * 1024 * 1024);
    // No OpenSSL clean-up at exit: Qt's pool threads are detached, and one still ending (and
    // freeing its OpenSSL state) would race it. The process is ending anyway.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    g_previousFilter = QLoggingCategory::installFilter(quietLog);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tarnwell-server"));
    return ServerCommands::run(QCoreApplication::arguments().mid(1));
}
