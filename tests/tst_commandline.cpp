#include "app/commandline.h"
#include "testsupport.h"

class TestCommandLine : public QObject
{
    Q_OBJECT

private slots:
    void accepted_data();
    void accepted();
    void refused_data();
    void refused();
};

void TestCommandLine::accepted_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("updateDb");
    QTest::addColumn<bool>("deregister");
    QTest::addColumn<QString>("resourceDir");

    QTest::newRow("none") << QStringList{} << false << false << QString();
    QTest::newRow("updatedb") << QStringList{QStringLiteral("-updatedb")} << true << false << QString();
    QTest::newRow("deregister") << QStringList{QStringLiteral("-deregistercond")} << false << true << QString();
    QTest::newRow("resourcedir") << QStringList{QStringLiteral("-resourcedir"), QStringLiteral("/opt/x")} << false
                                 << false << QStringLiteral("/opt/x");
    QTest::newRow("path looks like an option")
        << QStringList{QStringLiteral("-resourcedir"), QStringLiteral("-updatedb")} << false << false
        << QStringLiteral("-updatedb");
}

void TestCommandLine::accepted()
{
    QFETCH(QStringList, arguments);
    const CommandLine result = parseCommandLine(arguments);
    QTEST(result.updateDb, "updateDb");
    QTEST(result.deregisterConduit, "deregister");
    QTEST(result.resourceDir, "resourceDir");
}

void TestCommandLine::refused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("assertion");
    QTest::addColumn<QString>("message");

    QTest::newRow("unknown") << QStringList{QStringLiteral("--help")} << false
                             << QStringLiteral("Unknown argument: --help");
    QTest::newRow("case matters") << QStringList{QStringLiteral("-UpdateDb")} << false
                                  << QStringLiteral("Unknown argument: -UpdateDb");
    QTest::newRow("resourcedir last") << QStringList{QStringLiteral("-updatedb"), QStringLiteral("-resourcedir")}
                                      << false
                                      << QStringLiteral("-resourcedir must be followed by a directory path");
    QTest::newRow("both modes") << QStringList{QStringLiteral("-deregistercond"), QStringLiteral("-updatedb")}
                                << false
                                << QStringLiteral("You may only specify one of -updatedb and -deregistercond");
    QTest::newRow("resourcedir twice")
        << QStringList{QStringLiteral("-resourcedir"), QStringLiteral("/a"), QStringLiteral("-resourcedir"),
                       QStringLiteral("/b")}
        << true << QStringLiteral("!resourcePath");
}

void TestCommandLine::refused()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, assertion);
    QFETCH(QString, message);
    if (assertion)
        LM_VERIFY_ASSERT(parseCommandLine(arguments), message);
    else
        LM_VERIFY_FATAL(parseCommandLine(arguments), message);
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
