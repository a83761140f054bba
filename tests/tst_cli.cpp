// The command-line tool as a user runs it: a real process, its output and exit status.

#include "testsupport.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

class TestCli : public QObject
{
    Q_OBJECT

private:
    struct Result
    {
        int status = -1;
        QString out;
        QString err;
    };

    Result run(const QStringList &arguments)
    {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), _home.path());
        env.insert(QStringLiteral("XDG_DATA_HOME"), _home.dataHome());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), _home.configHome());
        env.remove(QStringLiteral("TARNWELL_DEBUG"));
        process.setProcessEnvironment(env);
        process.start(binDir() + QStringLiteral("/tarnwell-cli"), arguments);
        if (!process.waitForFinished(60000))
            return {};
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    TemporaryHome _home;

private slots:
    void exitStatuses_data();
    void exitStatuses();
    void helpListsEveryCommand();
    void brandDumpListsDefaultBrand();
    void brandDumpJson();
    void brandDumpShowsLoaderWarnings();
};

void TestCli::exitStatuses_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");

    const QString none;
    QTest::newRow("version") << QStringList{QStringLiteral("--version")} << 0
                             << QStringLiteral("tarnwell-cli 4.1.0\n") << none;
    QTest::newRow("no command") << QStringList{} << 2 << none
                                << QStringLiteral("tarnwell-cli: no command given (see --help)\n");
    QTest::newRow("unknown command") << QStringList{QStringLiteral("frobnicate")} << 2 << none
                                     << QStringLiteral("tarnwell-cli: unknown command 'frobnicate' (see --help)\n");
    QTest::newRow("unknown global option") << QStringList{QStringLiteral("--colour"), QStringLiteral("day")} << 2
                                           << none
                                           << QStringLiteral("tarnwell-cli: unknown option --colour (see --help)\n");
    QTest::newRow("not available yet") << QStringList{QStringLiteral("publish")} << 2 << none
                                       << QStringLiteral("tarnwell-cli: publish: not available yet\n");
    QTest::newRow("missing option value") << QStringList{QStringLiteral("--profile")} << 2 << none
                                          << QStringLiteral("tarnwell-cli: option --profile needs a value\n");
    QTest::newRow("brand-dump without file") << QStringList{QStringLiteral("brand-dump")} << 2 << none
                                             << QStringLiteral("tarnwell-cli: usage: tarnwell-cli brand-dump FILE\n");
    QTest::newRow("brand-dump unknown option")
        << QStringList{QStringLiteral("brand-dump"), QStringLiteral("--all"), QStringLiteral("x")} << 2 << none
        << QStringLiteral("tarnwell-cli: unknown option --all\n");
    QTest::newRow("brand-dump missing file")
        << QStringList{QStringLiteral("brand-dump"), QStringLiteral("/nonexistent/brand.dat")} << 1 << none
        << QStringLiteral("tarnwell-cli: Cannot find /nonexistent/brand.dat\n");
    QTest::newRow("missing resource folder")
        << QStringList{QStringLiteral("--resourcedir"), QStringLiteral("/nonexistent"), QStringLiteral("brand-dump"),
                       QStringLiteral("x")}
        << 2 << none << QStringLiteral("tarnwell-cli: resource folder /nonexistent does not exist\n");
}

void TestCli::exitStatuses()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, out);
    QFETCH(QString, err);

    const Result result = run(arguments);
    QCOMPARE(result.status, status);
    QCOMPARE(result.out, out);
    QCOMPARE(result.err, err);
}

void TestCli::helpListsEveryCommand()
{
    const Result result = run({QStringLiteral("--help")});
    QCOMPARE(result.status, 0);
    const QStringList commands = {
        QStringLiteral("brand-dump"), QStringLiteral("profiles"), QStringLiteral("profile-add"),
        QStringLiteral("checkin"),    QStringLiteral("water"),    QStringLiteral("search"),
        QStringLiteral("log-food"),   QStringLiteral("day"),      QStringLiteral("export"),
        QStringLiteral("publish"),    QStringLiteral("update-db"), QStringLiteral("backup"),
    };
    for (const QString &command : commands)
        QVERIFY2(result.out.contains(QLatin1String("\n  ") + command + QLatin1Char(' ')), qPrintable(command));
}

void TestCli::brandDumpListsDefaultBrand()
{
    const Result result = run({QStringLiteral("brand-dump"), binDir() + QStringLiteral("/brand.dat")});
    QCOMPARE(result.status, 0);
    QCOMPARE(result.err, QString());

    const QStringList lines = result.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QVERIFY(lines.contains(QStringLiteral("string\tbrand_id\tTarnwell")));
    QVERIFY(lines.contains(QStringLiteral("string\tapp_name\tTarnwell Nutrition Diary")));
    QVERIFY(lines.contains(QStringLiteral("string\tspelling_fiber\tfibre")));
    QVERIFY(lines.contains(QStringLiteral("bool\tfeature.family\ttrue")));
    QVERIFY(lines.contains(QStringLiteral("bool\tdatastore_compat\tfalse")));
    QVERIFY(lines.contains(QStringLiteral("image\tsplash\timages/splash.png")));

    // Sorted by type (bool, int, string, image), then by id.
    const QStringList typeOrder = {QStringLiteral("bool"), QStringLiteral("int"), QStringLiteral("string"),
                                   QStringLiteral("image")};
    QString previousType;
    QString previousId;
    for (const QString &line : lines) {
        const QStringList fields = line.split(QLatin1Char('\t'));
        QCOMPARE(fields.size(), 3);
        QVERIFY2(typeOrder.contains(fields[0]), qPrintable(line));
        if (fields[0] == previousType) {
            QVERIFY2(previousId < fields[1], qPrintable(line));
        } else {
            QVERIFY2(typeOrder.indexOf(fields[0]) > typeOrder.indexOf(previousType), qPrintable(line));
        }
        previousType = fields[0];
        previousId = fields[1];
    }
}

void TestCli::brandDumpJson()
{
    const Result result =
        run({QStringLiteral("--json"), QStringLiteral("brand-dump"), binDir() + QStringLiteral("/brand.dat")});
    QCOMPARE(result.status, 0);
    QJsonParseError error;
    const QJsonObject document = QJsonDocument::fromJson(result.out.toUtf8(), &error).object();
    QCOMPARE(error.error, QJsonParseError::NoError);
    QCOMPARE(document.value(QLatin1String("bool")).toObject().value(QLatin1String("feature.family")).toBool(), true);
    QCOMPARE(document.value(QLatin1String("int")).toObject().value(QLatin1String("default_energy_units")).toInt(-1), 1);
    QCOMPARE(document.value(QLatin1String("string")).toObject().value(QLatin1String("brand_id")).toString(),
             QStringLiteral("Tarnwell"));
}

void TestCli::brandDumpShowsLoaderWarnings()
{
    // A brand whose XML has an unknown tag: the value still loads, the warning reaches stderr.
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QFile xml(dir.filePath(QStringLiteral("brand.xml")));
    QVERIFY(xml.open(QIODevice::WriteOnly));
    xml.write("<brand><string id=\"brand_id\" value=\"Test\"/><colour id=\"x\" value=\"red\"/></brand>");
    xml.close();
    QProcess tar;
    tar.setWorkingDirectory(dir.path());
    tar.start(QStringLiteral("tar"), {QStringLiteral("--format=ustar"), QStringLiteral("-cf"),
                                      QStringLiteral("brand.dat"), QStringLiteral("brand.xml")});
    if (!tar.waitForFinished(30000) || tar.exitCode() != 0)
        QSKIP("the system's tar is not available");

    const Result result = run({QStringLiteral("brand-dump"), dir.filePath(QStringLiteral("brand.dat"))});
    QCOMPARE(result.status, 0);
    QCOMPARE(result.out, QStringLiteral("string\tbrand_id\tTest\n"));
    QCOMPARE(result.err, QStringLiteral("BrandEngine: Unknown tag 'colour' in brand.xml\n"));
}

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
