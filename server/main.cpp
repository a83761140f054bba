// tarnwell-server: the household's online diary. See servercommands.h for the commands.

#include "server/servercommands.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tarnwell-server"));
    return ServerCommands::run(QCoreApplication::arguments().mid(1));
}
