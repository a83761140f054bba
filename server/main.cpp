#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream(stderr) << "usage: tarnwell-server serve|user-add|user-list|user-remove|user-password|publish-db\n";
    return 2;
}
