// The command-line tool as a user runs it: a real process, its output and exit status.

#include "app/singlecopy.h"
#include "httptestserver.h"
#include "testsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>

using namespace Qt::StringLiterals;

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
        process.setProcessEnvironment(_home.environment());
        process.start(binDir() + QStringLiteral("/tarnwell-cli"), arguments);
        // The event loop keeps running: some commands talk to a server in this process.
        QElapsedTimer timer;
        timer.start();
        while (process.state() != QProcess::NotRunning && !process.waitForFinished(5)) {
            if (timer.elapsed() > 60000)
                return {};
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        }
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    // Standard output of a run that must succeed, trimmed; a failure is printed.
    QString ok(const QStringList &arguments)
    {
        const Result result = run(arguments);
        if (result.status != 0 || !result.err.isEmpty())
            qWarning("%s: %s", qPrintable(arguments.join(u' ')), qPrintable(result.err));
        return result.out.trimmed();
    }
    static QStringList args(const char *text) { return QString::fromUtf8(text).split(QLatin1Char(' ')); }

    TemporaryHome _home;

private slots:
    void exitStatuses_data();
    void exitStatuses();
    void brandDumpListsDefaultBrand();
    void brandDumpShowsLoaderWarnings();
    void profilesAndDailyRecords();
    void targetKeepsTheDaysValues();
    void foodsExercisesAndMeals();
    void goalsAndRecipes();
    void publish();
    void updateDb();
    void invalidInputChangesNothing_data();
    void invalidInputChangesNothing();
    void failedStartUp();
    void noRestoreUnderRunningProgram();
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
                                     << QStringLiteral(
                                            "tarnwell-cli: unknown command 'frobnicate' (see --help)\n");
    QTest::newRow("unknown global option")
        << QStringList{QStringLiteral("--colour"), QStringLiteral("day")} << 2 << none
        << QStringLiteral("tarnwell-cli: unknown option --colour (see --help)\n");
    QTest::newRow("backup without file")
        << QStringList{QStringLiteral("backup")} << 2 << none
        << QStringLiteral("tarnwell-cli: usage: tarnwell-cli backup FILE.tar\n");
    QTest::newRow("restore of no archive")
        << QStringList{QStringLiteral("restore"), QStringLiteral("/nonexistent/x.tar")} << 1 << none
        << QStringLiteral("tarnwell-cli: Cannot read /nonexistent/x.tar.\n");
    QTest::newRow("missing option value") << QStringList{QStringLiteral("--profile")} << 2 << none
                                          << QStringLiteral("tarnwell-cli: option --profile needs a value\n");
    QTest::newRow("brand-dump without file")
        << QStringList{QStringLiteral("brand-dump")} << 2 << none
        << QStringLiteral("tarnwell-cli: usage: tarnwell-cli brand-dump FILE\n");
    QTest::newRow("brand-dump unknown option")
        << QStringList{QStringLiteral("brand-dump"), QStringLiteral("--all"), QStringLiteral("x")} << 2
        << none << QStringLiteral("tarnwell-cli: unknown option --all\n");
    QTest::newRow("brand-dump missing file")
        << QStringList{QStringLiteral("brand-dump"), QStringLiteral("/nonexistent/brand.dat")} << 1 << none
        << QStringLiteral("tarnwell-cli: Cannot find /nonexistent/brand.dat\n");
    QTest::newRow("fatal error on one line")
        << QStringList{QStringLiteral("--resourcedir"), QStringLiteral("/"), QStringLiteral("day")} << 70
        << none << QStringLiteral("tarnwell-cli: Cannot find /brand.dat\n");
    QTest::newRow("missing resource folder")
        << QStringList{QStringLiteral("--resourcedir"), QStringLiteral("/nonexistent"),
                       QStringLiteral("brand-dump"), QStringLiteral("x")}
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

    const Result json = run(
        {QStringLiteral("--json"), QStringLiteral("brand-dump"), binDir() + QStringLiteral("/brand.dat")});
    QCOMPARE(json.status, 0);
    QJsonParseError error;
    const QJsonObject document = QJsonDocument::fromJson(json.out.toUtf8(), &error).object();
    QCOMPARE(error.error, QJsonParseError::NoError);
    QCOMPARE(document.value(QLatin1String("bool")).toObject().value(QLatin1String("feature.family")).toBool(),
             true);
    QCOMPARE(document.value(QLatin1String("int"))
                 .toObject()
                 .value(QLatin1String("default_energy_units"))
                 .toInt(-1),
             1);
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

void TestCli::profilesAndDailyRecords()
{
    QCOMPARE(run({QStringLiteral("profiles")}).out, QString());
    const Result ann = run({QStringLiteral("profile-add"), QStringLiteral("--name"), QStringLiteral("Ann"),
                            QStringLiteral("--sex"), QStringLiteral("female"), QStringLiteral("--born"),
                            QStringLiteral("1985-04-02"), QStringLiteral("--height"), QStringLiteral("168"),
                            QStringLiteral("--weight"), QStringLiteral("61.5")});
    QCOMPARE(ann.err, QString());
    QCOMPARE(ann.out, QStringLiteral("1\n"));
    const Result bob =
        run({QStringLiteral("profile-add"), QStringLiteral("--name=Bob"), QStringLiteral("--sex=male"),
             QStringLiteral("--born=1983-01-20"), QStringLiteral("--height=70"),
             QStringLiteral("--units=imperial"), QStringLiteral("--weight=180")});
    QCOMPARE(bob.out, QStringLiteral("2\n"));
    QCOMPARE(run({QStringLiteral("profiles")}).out, QStringLiteral("1\tAnn\n2\tBob\n"));

    const QStringList commands[] = {
        {QStringLiteral("--profile"), QStringLiteral("Bob"), QStringLiteral("checkin"),
         QStringLiteral("2026-03-10"), QStringLiteral("--waist"), QStringLiteral("34"),
         QStringLiteral("--note"), QStringLiteral("felt good")},
        {QStringLiteral("water"), QStringLiteral("2026-03-10"), QStringLiteral("6")},
        {QStringLiteral("target"), QStringLiteral("2026-03-01"), QStringLiteral("--calories"),
         QStringLiteral("1900"), QStringLiteral("--fat"), QStringLiteral("60")},
        {QStringLiteral("--profile"), QStringLiteral("2"), QStringLiteral("profile-set"),
         QStringLiteral("--energy"), QStringLiteral("kilojoules"), QStringLiteral("--web-user"),
         QStringLiteral("bob")},
        {QStringLiteral("checkin"), QStringLiteral("2026-03-11"), QStringLiteral("--weight"),
         QStringLiteral("61")},
        {QStringLiteral("checkin-remove"), QStringLiteral("2026-03-11")},
    };
    for (const QStringList &command : commands) {
        const Result result = run(command);
        QVERIFY2(result.status == 0 && result.err.isEmpty(), qPrintable(command.join(u' ') + result.err));
    }

    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("check"));
    db.setDatabaseName(_home.dataHome() + QStringLiteral("/tarnwell.org/Ambervale/Tarnwell/userdata.db"));
    QVERIFY(db.open());
    const auto rows = [&db](const QString &sql) {
        QStringList values;
        QSqlQuery query(sql, db);
        while (query.next())
            values.append(query.value(0).toString());
        return values;
    };
    // Bob's 34 in is stored in centimetres; Ann's check-in of the 11th is gone.
    QCOMPARE(rows(QStringLiteral(
                 "SELECT user_id || ' ' || waist || ' ' || note FROM user_checkins WHERE date = '20260310'")),
             QStringList{QStringLiteral("2 86.36 felt good")});
    QVERIFY(rows(QStringLiteral("SELECT date FROM user_checkins WHERE date = '20260311'")).isEmpty());
    QCOMPARE(rows(QStringLiteral("SELECT cups FROM water_diary WHERE user_id = 1")),
             QStringList{QStringLiteral("6")});
    QCOMPARE(rows(QStringLiteral(
                 "SELECT target_calories || ' ' || target_fat FROM user_target WHERE date = '20260301'")),
             QStringList{QStringLiteral("1900 60")});
    QCOMPARE(rows(QStringLiteral("SELECT energy_units || web_username FROM user_users WHERE user_id = 2")),
             QStringList{QStringLiteral("0bob")});

    // A day as the desktop shows it: deleted entries hidden, totals net of exercise, the ticks.
    QSqlQuery insert(db);
    QVERIFY(insert.exec(QStringLiteral(
        "INSERT INTO food_diary (user_id, date, meal, status, ref_id, food_name, serving_id, serv_name, "
        "size, "
        "calories, fat) VALUES (1, '20260310', 1, 1, 9003, 'Apples, raw', 2, '1 medium', 1, 95, 0.3), "
        "(1, '20260310', 3, 1, 7, 'Soup', 1, '1 bowl', 2, 1700, 20), (1, '20260310', 2, 2, 7, 'Gone', 1, "
        "'x', 1, 500, 1)")));
    QVERIFY(insert.exec(QStringLiteral("INSERT INTO exer_diary (user_id, date, duration, rate, name, status) "
                                       "VALUES (1, '20260310', 30, 5, 'Walking', 1)")));
    db.close();
    db = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("check"));

    const Result day = run({QStringLiteral("day"), QStringLiteral("2026-03-10")});
    QCOMPARE(day.status, 0);
    const QStringList lines = day.out.split(QLatin1Char('\n'));
    QCOMPARE(lines.at(0), QStringLiteral("Tuesday, March 10 2026"));
    QCOMPARE(lines.at(1), QStringLiteral("Breakfast"));
    QVERIFY(lines.at(2).startsWith(QStringLiteral("  1\tApples, raw\t1 x 1 medium\t95 cals\t-\t0.3 g\t")));
    QVERIFY(!day.out.contains(QLatin1String("Gone")));
    QVERIFY(lines.contains(QStringLiteral("Net\t1645 cals")));
    QVERIFY(lines.contains(QStringLiteral("Water\t6 glasses")));
    QVERIFY2(lines.contains(
                 QStringLiteral("Green ticks\tCongratulations! You've earnt a green tick for doing at least "
                                "30 minutes of exercise.\\n\\nIf you eat between 155 and 355 more calories "
                                "today, you'll be close  enough to your target to earn a green tick for "
                                "calories.")),
             qPrintable(day.out));

    QVERIFY(run({QStringLiteral("summary"), QStringLiteral("2026-03-10")})
                .out.contains(QLatin1String(
                    "You've recorded <b>1645 cals</b> on this day (subtracting <b>150 cals</b>")));

    // The whole diary, from its first to its last day with an item.
    const QString csv = _home.path() + QStringLiteral("/diary.csv");
    const Result exported = run({QStringLiteral("export"), QStringLiteral("--file"), csv});
    QCOMPARE(exported.err, QString());
    QFile file(csv);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QList<QByteArray> csvLines = file.readAll().split('\n');
    QCOMPARE(csvLines.size(), 5); // header, two foods, the exercise, the final line feed
    QCOMPARE(
        csvLines.at(3),
        QByteArray("\"2026-03-10\",\"\",\"Exercise\",\"\",\"Walking\",\"30.00\",\"minutes\",\"-150.00\","));
    QCOMPARE(run({QStringLiteral("export"), QStringLiteral("--file"), csv, QStringLiteral("--from"),
                  QStringLiteral("2026-04-01"), QStringLiteral("--to"), QStringLiteral("2026-04-02"),
                  QStringLiteral("--skip-empty")})
                 .err,
             QStringLiteral("tarnwell-cli: No days in the selected range have any recorded items\n"));
}

void TestCli::targetKeepsTheDaysValues()
{
    // A row of the day without energy (as older diaries hold them) beside a row in force before it.
    const auto sql = [this](const QString &statement) {
        QString value;
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("targets"));
            db.setDatabaseName(_home.diaryFolder() + QStringLiteral("userdata.db"));
            QSqlQuery query(db);
            if (db.open() && query.exec(statement) && query.next())
                value = query.value(0).toString();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("targets"));
        return value;
    };
    QCOMPARE(run({QStringLiteral("target"), QStringLiteral("2026-05-01"), QStringLiteral("--calories=2100"),
                  QStringLiteral("--fat=70")})
                 .status,
             0);
    sql(QStringLiteral("INSERT INTO user_target (user_id, date, target_carb) VALUES (1, '20260520', 200)"));
    QCOMPARE(run({QStringLiteral("target"), QStringLiteral("2026-05-20"), QStringLiteral("--calories=1900")})
                 .status,
             0);
    QCOMPARE(
        sql(QStringLiteral("SELECT target_calories || ' ' || target_carb || ' ' || IFNULL(target_fat, '-') "
                           "FROM user_target WHERE date = '20260520'")),
        QStringLiteral("1900 200 -"));
}

void TestCli::foodsExercisesAndMeals()
{
    // Real USDA foods, the plain one first with the energy of its usual serving; in tree order
    // with --tree, each once.
    QVERIFY(ok(args("search apple raw"))
                .startsWith(u"9003\tApples, raw, with skin\t95 cals per 1 medium (3\" dia)\n"_s));
    QCOMPARE(ok(args("search 2 apple raw")), ok(args("search apple raw"))); // a count is not a word
    QStringList apples = ok(args("search --tree apple raw")).split(QLatin1Char('\n'));
    QVERIFY(apples.size() > 20);
    QVERIFY(apples.constFirst().startsWith(u"9504\tApples, raw, fuji, with skin\t"_s));
    QVERIFY(apples.contains(u"9003\tApples, raw, with skin\t95 cals per 1 medium (3\" dia)"_s));
    QCOMPARE(apples.removeDuplicates(), 0);
    const QJsonArray best =
        QJsonDocument::fromJson(ok(args("--json search --limit 1 apple")).toUtf8()).array();
    QCOMPARE(best.size(), 1);
    QCOMPARE(best.at(0).toObject(), (QJsonObject{{u"id"_s, 9003},
                                                 {u"name"_s, u"Apples, raw, with skin"_s},
                                                 {u"kind"_s, u"reference"_s},
                                                 {u"serving"_s, u"1 medium (3\" dia)"_s},
                                                 {u"calories"_s, 94.6}}));
    QVERIFY(!ok({QStringLiteral("search"), QStringLiteral("--"), QStringLiteral("apple"),
                 QStringLiteral("raw"), QStringLiteral("-skin")})
                 .contains(QLatin1String("skin")));
    QCOMPARE(ok(args("search --limit 1 --exercises running")).count(QLatin1Char('\n')), 0);
    const QString cheddar = ok(args("food 1009"));
    QVERIFY2(cheddar.startsWith(QStringLiteral("1009\tCheese, cheddar\nSource\tUSDA SR28 01009\n")),
             qPrintable(cheddar));
    QVERIFY(cheddar.contains(QStringLiteral("\n  -2\toz\t28.35 g\t115 cals\t")));

    // Two medium apples at lunch: 182 g each of 52 cals per 100 g; without --serving, the one
    // search counts in; a cup of slices by its name.
    const QString entry = ok(args("log-food 2026-03-12 lunch 9003 --qty 2"));
    const QString cup =
        ok({u"log-food"_s, u"2026-03-12"_s, u"dinner"_s, u"9003"_s, u"--serving"_s, u"1 CUP SLICES"_s});
    const QString logged = ok(args("day 2026-03-12"));
    QVERIFY(logged.contains(entry +
                            QStringLiteral("\tApples, raw, with skin\t2 x 1 medium (3\" dia)\t189 cals\t")));
    QVERIFY(logged.contains(cup + QStringLiteral("\tApples, raw, with skin\t1 x 1 cup slices\t57 cals\t")));

    // Custom items join the same id space; the burn rate follows the weight in force
    // (7 MET x 0.0175 x 60 kg x 30 min = 220.5).
    QCOMPARE(ok(args("food-add --name Flapjack --serving bar --calories 250 --fat 12")),
             QStringLiteral("16777216"));
    QCOMPARE(ok(args("exercise-add --name Rowing --met 7 --shared")), QStringLiteral("16777216"));
    QCOMPARE(ok(args("search flapjack")), QStringLiteral("16777216\tFlapjack\t250 cals per bar"));
    QVERIFY(ok(args("search --exercises rowing")).contains(QStringLiteral("16777216\tRowing\t")));
    QCOMPARE(
        run(args("log-exercise 2026-03-12 16777216 30")).err,
        QStringLiteral(
            "tarnwell-cli: no weight recorded on or before 2026-03-12; record one with checkin first\n"));
    ok(args("checkin 2026-03-01 --weight 60"));
    const QString rowing = ok(args("log-exercise 2026-03-12 16777216 30"));
    ok({QStringLiteral("log-food"), QStringLiteral("2026-03-12"), QStringLiteral("snack2"),
        QStringLiteral("16777216"), QStringLiteral("--qty"), QStringLiteral("1.5")});
    const QString day = ok(args("day 2026-03-12"));
    QVERIFY2(day.contains(rowing + QStringLiteral("\tRowing\t30 min\t221 cals")), qPrintable(day));
    QVERIFY(day.contains(QStringLiteral("\tFlapjack\t1.5 x bar\t375 cals\t-\t18.0 g\t")));

    ok(args("favorite add food 9003"));
    ok(args("favorite add food 16777216"));
    QCOMPARE(ok(args("favorite list food")),
             QStringLiteral("9003\tApples, raw, with skin\n16777216\tFlapjack"));
    ok(args("food-remove 16777216")); // and with it its favourite
    QCOMPARE(ok(args("favorite list food")), QStringLiteral("9003\tApples, raw, with skin"));

    // Saved meals: lunch saved, added to another day, removed.
    QVERIFY(!ok(args("meal-save Appley 2026-03-12 lunch")).isEmpty());
    QVERIFY(ok(args("meal-list")).endsWith(QStringLiteral("\tAppley\t1 foods")));
    const QString added = ok(args("meal-add Appley 2026-03-13 dinner"));
    QVERIFY(ok(args("day 2026-03-13"))
                .contains(added + QStringLiteral("\tApples, raw, with skin\t2 x 1 medium")));
    ok(args("meal-remove Appley"));
    QCOMPARE(ok(args("meal-list")), QString());
    ok({QStringLiteral("remove"), QStringLiteral("food"), added});
    QVERIFY(!ok(args("day 2026-03-13")).contains(QLatin1String("Apples")));
}

void TestCli::goalsAndRecipes()
{
    const auto goals = [this](const char *arguments) {
        return QJsonDocument::fromJson(ok(args(arguments)).toUtf8()).object();
    };
    const auto target = [](const QJsonObject &goals, const char *nutrient) {
        return goals.value(u"targets"_s).toObject().value(QLatin1String(nutrient)).toDouble();
    };
    // Ann (female, 45 in 2030, 168 cm, 61.5 kg, activity 1) needs 1611 calories; a quarter of a
    // kilogram a week less is 275 a day, 1340 rounded, shared 50/30/20 by the plan.
    ok(args("goal --weight 58 --rate -0.25 --calories auto --from 2030-01-01"));
    QJsonObject inForce = goals("--json goal --from 2030-01-20");
    QCOMPARE(inForce.value(u"goalWeight"_s).toDouble(), 58.0);
    QCOMPARE(inForce.value(u"weeklyRate"_s).toDouble(), -0.25);
    QCOMPARE(target(inForce, "calories"), 1340.0);
    QCOMPARE(target(inForce, "carb"), 168.0);
    QCOMPARE(target(inForce, "fat"), 45.0);
    // By hand from February: the shares stay unless given; January keeps its targets.
    ok(args("goal --calories 1500 --protein 30% --from 2030-02-01"));
    inForce = goals("--json goal --from 2030-02-01");
    QCOMPARE(inForce.value(u"energyByHand"_s).toBool(), true);
    QCOMPARE(target(inForce, "calories"), 1500.0);
    QCOMPARE(target(inForce, "carb"), 188.0);
    QCOMPARE(target(inForce, "protein"), 113.0);
    QCOMPARE(target(goals("--json goal --from 2030-01-31"), "calories"), 1340.0);
    // Bob keeps pounds: his goal is stored in kilograms.
    ok(args("--profile Bob goal --weight 170 --rate -1 --calories 2000"));
    inForce = goals("--json --profile Bob goal");
    QCOMPARE(qRound(inForce.value(u"goalWeight"_s).toDouble() * 100), 7711);
    QCOMPARE(qRound(inForce.value(u"weeklyRate"_s).toDouble() * 1000), -454);

    // Three ingredients: two medium apples (189.28), a cup of rice (168.78), three slices of
    // chicken (35.28); two portions from 800 g cooked.
    const QString id =
        ok({u"recipe-add"_s, u"--name"_s, u"Rice bowl"_s, u"--portions"_s, u"2"_s, u"--cooked-weight"_s,
            u"800"_s, u"9003:2"_s, u"20055:1:1 cup"_s, u"7961:3:1 slice"_s});
    QCOMPARE(ok(args("recipe-list")), id + u"\tRice bowl\t2 portions\t197 cals a portion"_s);
    const QString portion = ok({u"log-recipe"_s, u"2030-01-05"_s, u"lunch"_s, id});
    const QString grams = ok({u"log-recipe"_s, u"2030-01-05"_s, u"dinner"_s, id, u"--grams"_s, u"200"_s});
    ok({u"recipe-remove"_s, id}); // days logged keep their entries
    QCOMPARE(run({u"recipe"_s, id}).status, 2);
    const QJsonArray meals = QJsonDocument::fromJson(ok(args("--json day 2030-01-05")).toUtf8())
                                 .object()
                                 .value(u"meals"_s)
                                 .toArray();
    QStringList entries;
    for (const QJsonValue &meal : meals) {
        for (const QJsonValue &entry : meal.toObject().value(u"entries"_s).toArray()) {
            const QJsonObject e = entry.toObject();
            entries.append(
                u"%1 %2 %3"_s.arg(e.value(u"id"_s).toInt())
                    .arg(e.value(u"name"_s).toString())
                    .arg(e.value(u"nutrients"_s).toObject().value(u"calories"_s).toDouble(), 0, 'f', 1));
        }
    }
    QCOMPARE(entries, (QStringList{portion + u" Rice bowl 196.7"_s, grams + u" Rice bowl 98.3"_s}));
}

void TestCli::publish()
{
    HttpTestServer server;
    QVERIFY(server.start());
    server.replies = {HttpTestServer::ok("<response errno=\"0\"/>"),
                      HttpTestServer::ok("<response errno=\"2\" errstr=\"no such user\"/>")};
    qputenv("http_proxy", QStringLiteral("127.0.0.1:%1").arg(server.serverPort()).toLatin1());
    QCOMPARE(run({QStringLiteral("publish")}).err,
             QStringLiteral(
                 "Publish Diary: If you have a paid Tarnwell membership\n(a separate purchase from this "
                 "software) you can publish up\nyour diary entries to your Tarnwell online\ndiary. This "
                 "will let you share your diary with other\nTarnwell members. This process will also "
                 "upload your\ncheck-in information.\n\nYou have not set your username or password. To "
                 "do this,\ngo to the internet section of the preferences dialog\nand fill out the "
                 "http://localhost/ login box.\ntarnwell-cli: nothing was published\n"));
    QCOMPARE(run({QStringLiteral("profile-set"), QStringLiteral("--web-user"), QStringLiteral("ann"),
                  QStringLiteral("--web-password"), QStringLiteral("secret")})
                 .status,
             0);
    const Result published = run({QStringLiteral("publish")});
    QCOMPARE(published.status, 0);
    QVERIFY2(published.out.startsWith(
                 QStringLiteral("Connecting\tok\tConnect to Internet (Using Proxy 127.0.0.1:")),
             qPrintable(published.out));
    QVERIFY(published.out.endsWith(QStringLiteral("Done\tok\nCompleted successfully\n")));
    QVERIFY(server.requests.constFirst().contains("\r\n\r\nxml=%3C%3Fxml"));
    const Result refused = run({QStringLiteral("publish")});

    // The coming week's meal plan, stored and listed.
    const QDate day = QDate::currentDate().addDays(3);
    server.replies = {HttpTestServer::ok(
        "<mealplan><food description=\"Porridge\" serving=\"1 bowl\" qty=\"2\" "
        "meal=\"Breakfast\" date=\"" +
        day.toString(QStringLiteral("yyyyMMdd")).toLatin1() + "\" calories=\"150\"/></mealplan>")};
    QCOMPARE(run({QStringLiteral("mealplan")}).out,
             day.toString(Qt::ISODate) + QStringLiteral("\tBreakfast\t2 x 1 bowl\tPorridge\n"));

    // Metrics go over TLS: a certificate nobody trusts stops them.
    const QString certificate = server.makeCertificate();
    server.connectReply = "HTTP/1.1 200 OK\r\n\r\n";
    server.tlsAfterConnect = true;
    qputenv("https_proxy", QStringLiteral("127.0.0.1:%1").arg(server.serverPort()).toLatin1());
    const Result metrics = run({QStringLiteral("metrics")});
    qunsetenv("https_proxy");
    qunsetenv("http_proxy");
    if (!certificate.isEmpty()) {
        QCOMPARE(metrics.status, 1);
        QVERIFY2(metrics.err.startsWith(QStringLiteral("tarnwell-cli: Certificate check failed: ")),
                 qPrintable(metrics.err));
    }
    // The household's own server replaces the brand's addresses until it is unset.
    QCOMPARE(run(args("config server diary.home:8080")).out, u"http://diary.home:8080/\n"_s);
    QCOMPARE(run(args("config server")).out, u"http://diary.home:8080/\n"_s);
    QCOMPARE(run(args("config server --unset")).out,
             u"No server set: the brand's web addresses are used.\n"_s);
    QCOMPARE(refused.status, 1);
    QVERIFY(refused.out.contains(QStringLiteral("Reading\tfailed\tReading (FAILED!! Error message from "
                                                "http://localhost/ <no such user>)\n")));
    QVERIFY(refused.out.endsWith(QStringLiteral("\nComplete\n")));
}

void TestCli::updateDb()
{
    // A resource folder of its own: the update replaces its content/static.db.
    const QString resources = _home.path() + QStringLiteral("/resources/");
    QVERIFY(QDir().mkpath(resources + QStringLiteral("content")));
    for (const char *name : {"brand.dat", "userdata.db", "content/static.db"})
        QVERIFY(
            QFile::copy(binDir() + QLatin1Char('/') + QLatin1String(name), resources + QLatin1String(name)));
    // The update is the same file made later: its creation date is what makes it newer.
    const QString newer = _home.path() + QStringLiteral("/newer.db");
    QVERIFY(QFile::copy(resources + QStringLiteral("content/static.db"), newer));
    QFile dated(newer);
    QVERIFY(dated.open(QIODevice::ReadWrite) && dated.seek(36) && dated.write("2099-12-31") == 10);
    dated.close();
    QProcess gzip;
    gzip.start(QStringLiteral("gzip"), {QStringLiteral("-c"), newer});
    QVERIFY(gzip.waitForFinished(30000));
    const QByteArray compressed = gzip.readAllStandardOutput();
    QVERIFY(!compressed.isEmpty());

    HttpTestServer server;
    QVERIFY(server.start());
    const QByteArray feed =
        "<rss version=\"2.0\"><channel><title>t</title><link>l</link><description>d</description>"
        "<item><title>staticdb_updates</title><link>http://localhost/new.db.gz</link>"
        "<pubDate>Fri, 01 Jan 2100 00:00:00 GMT</pubDate></item></channel></rss>";
    server.replies = {HttpTestServer::ok(feed), HttpTestServer::ok(feed), HttpTestServer::ok(compressed)};
    qputenv("http_proxy", QStringLiteral("127.0.0.1:%1").arg(server.serverPort()).toLatin1());
    const QStringList base = {QStringLiteral("--resourcedir"), resources, QStringLiteral("update-db")};
    const Result checked = run(base + QStringList{QStringLiteral("--check")});
    QCOMPARE(checked.out, QStringLiteral("An update is available: http://localhost/new.db.gz\n"));
    const Result updated = run(base);
    qunsetenv("http_proxy");
    QCOMPARE(updated.err, QString());
    QVERIFY(updated.out.endsWith(QStringLiteral("Your databases have been updated successfully.\n")));
    QCOMPARE(server.requests.size(), 3);
    QVERIFY(server.requests.at(2).startsWith("GET http://localhost/new.db.gz HTTP/1.1\r\n"));
    QVERIFY(!QFile::exists(resources + QStringLiteral("content/static.db.backup")));
}

void TestCli::invalidInputChangesNothing_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("err");
    QTest::newRow("bad date") << QStringList{QStringLiteral("water"), QStringLiteral("2026-02-30"),
                                             QStringLiteral("3")}
                              << QStringLiteral(
                                     "DATE: '2026-02-30' is not a date (YYYY-MM-DD, today or yesterday)");
    QTest::newRow("cups out of range")
        << QStringList{QStringLiteral("water"), QStringLiteral("today"), QStringLiteral("-1")}
        << QStringLiteral("CUPS: -1 is out of range (0 to 100)");
    QTest::newRow("not a number") << QStringList{QStringLiteral("target"), QStringLiteral("today"),
                                                 QStringLiteral("--fat"), QStringLiteral("1,5")}
                                  << QStringLiteral("--fat: '1,5' is not a number");
    QTest::newRow("unknown profile") << QStringList{QStringLiteral("--profile"), QStringLiteral("Zed"),
                                                    QStringLiteral("water"), QStringLiteral("today"),
                                                    QStringLiteral("2")}
                                     << QStringLiteral("no profile 'Zed'");
    QTest::newRow("empty check-in") << QStringList{QStringLiteral("checkin"), QStringLiteral("today")}
                                    << QStringLiteral("checkin needs at least one measurement or a note");
    QTest::newRow("bad sex") << QStringList{QStringLiteral("profile-add"), QStringLiteral("--name"),
                                            QStringLiteral("X"),           QStringLiteral("--sex"),
                                            QStringLiteral("other"),       QStringLiteral("--born"),
                                            QStringLiteral("2000-01-01"),  QStringLiteral("--height"),
                                            QStringLiteral("170")}
                             << QStringLiteral("--sex: 'other' is not male or female");
    QTest::newRow("duplicate name") << QStringList{QStringLiteral("profile-add"), QStringLiteral("--name"),
                                                   QStringLiteral("Ann"),         QStringLiteral("--sex"),
                                                   QStringLiteral("female"),      QStringLiteral("--born"),
                                                   QStringLiteral("2000-01-01"),  QStringLiteral("--height"),
                                                   QStringLiteral("170")}
                                    << QStringLiteral("a profile named 'Ann' exists already");
    QTest::newRow("height out of range")
        << QStringList{QStringLiteral("profile-add"), QStringLiteral("--name"),   QStringLiteral("Tiny"),
                       QStringLiteral("--sex"),       QStringLiteral("female"),   QStringLiteral("--born"),
                       QStringLiteral("2000-01-01"),  QStringLiteral("--height"), QStringLiteral("20")}
        << QStringLiteral("--height: 20 is out of range (50 to 272)");
    QTest::newRow("short search words")
        << QStringList{QStringLiteral("search"), QStringLiteral("ab"), QStringLiteral("-c")}
        << QStringLiteral("the longest search word needs at least 3 characters");
    QTest::newRow("words split at any white space")
        << QStringList{QStringLiteral("search"), QStringLiteral("ab\tcd\u2003ef")}
        << QStringLiteral("the longest search word needs at least 3 characters");
    QTest::newRow("target without energy")
        << QStringList{QStringLiteral("target"), QStringLiteral("2020-01-01"), QStringLiteral("--fat"),
                       QStringLiteral("50")}
        << QStringLiteral("no energy target is in force on 2020-01-01: give --calories too");
    QTest::newRow("32 search words") << (QStringList{QStringLiteral("search")} +
                                         QStringList(32, QStringLiteral("raw")))
                                     << QStringLiteral("a search takes at most 31 words");
    QTest::newRow("unknown food") << QStringList{QStringLiteral("log-food"), QStringLiteral("today"),
                                                 QStringLiteral("lunch"), QStringLiteral("12")}
                                  << QStringLiteral("no food 12");
    QTest::newRow("unknown serving") << QStringList{QStringLiteral("log-food"),  QStringLiteral("today"),
                                                    QStringLiteral("lunch"),     QStringLiteral("9003"),
                                                    QStringLiteral("--serving"), QStringLiteral("bucket")}
                                     << QStringLiteral("--serving: food 9003 has no serving 'bucket'");
    QTest::newRow("id beyond the id space") << QStringList{QStringLiteral("food"), QStringLiteral("50331648")}
                                            << QStringLiteral("ID: 50331648 is out of range (0 to 50331647)");
    QTest::newRow("reference food removal")
        << QStringList{QStringLiteral("food-remove"), QStringLiteral("9003")}
        << QStringLiteral("food 9003 is a reference item and cannot be removed");
    QTest::newRow("unknown entry") << QStringList{QStringLiteral("remove"), QStringLiteral("exercise"),
                                                  QStringLiteral("77")}
                                   << QStringLiteral("no exercise entry 77");
    QTest::newRow("favourite of nothing") << QStringList{QStringLiteral("favorite"), QStringLiteral("add"),
                                                         QStringLiteral("exercise"), QStringLiteral("9003")}
                                          << QStringLiteral("no exercise 9003");
    QTest::newRow("custom food without calories")
        << QStringList{QStringLiteral("food-add"), QStringLiteral("--name"), QStringLiteral("X"),
                       QStringLiteral("--serving"), QStringLiteral("1")}
        << QStringLiteral("food-add needs --name, --serving and --calories");
    QTest::newRow("goal too fast") << args("goal --rate -1.5")
                                   << u"--rate: at most 1.0 kg a week either way"_s;
    QTest::newRow("plan without a weight") << args("goal --calories auto --from 2001-01-01")
                                           << u"No weight recorded on or before 20010101: the plan needs a "
                                              u"weight, a height and a date of birth. "
                                              "Record a check-in first, or set the calories by hand."_s;
    QTest::newRow("share over 100") << args("goal --carb 120%")
                                    << u"--carb: 120 is out of range (0 to 100)"_s;
    QTest::newRow("recipe of nothing known")
        << args("recipe-add --name X --portions 2 9003:1 12:1") << u"no food 12"_s;
    QTest::newRow("bad server address") << args("config server ftp://diary.home")
                                        << u"the server address must start with http:// or https://"_s;
    QTest::newRow("empty meal") << QStringList{QStringLiteral("meal-save"), QStringLiteral("Nothing"),
                                               QStringLiteral("2001-01-01"), QStringLiteral("breakfast")}
                                << QStringLiteral("Breakfast of 2001-01-01 has no foods to save");
}

void TestCli::invalidInputChangesNothing()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, err);
    const QString database =
        _home.dataHome() + QStringLiteral("/tarnwell.org/Ambervale/Tarnwell/userdata.db");
    if (!QFile::exists(database)) {
        run({QStringLiteral("profile-add"), QStringLiteral("--name"), QStringLiteral("Ann"),
             QStringLiteral("--sex"), QStringLiteral("female"), QStringLiteral("--born"),
             QStringLiteral("1985-04-02"), QStringLiteral("--height"), QStringLiteral("168")});
    }
    QFile file(database);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray before = file.readAll();
    file.close();

    const Result result = run(arguments);
    QCOMPARE(result.status, 2);
    QCOMPARE(result.err, QStringLiteral("tarnwell-cli: ") + err + QLatin1Char('\n'));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll() == before);
}

void TestCli::failedStartUp()
{
    // A database that is not one: the start-up's own text, status 1.
    TemporaryHome home;
    const QString folder = home.dataHome() + QStringLiteral("/tarnwell.org/Ambervale/Tarnwell");
    QVERIFY(QDir().mkpath(folder));
    QFile junk(folder + QStringLiteral("/userdata.db"));
    QVERIFY(junk.open(QIODevice::WriteOnly));
    junk.write(QByteArray(4096, 'x'));
    junk.close();
    QProcess process;
    process.start(binDir() + QStringLiteral("/tarnwell-cli"), {QStringLiteral("profiles")});
    QVERIFY(process.waitForFinished(60000));
    QCOMPARE(process.exitCode(), 1);
    QVERIFY(process.readAllStandardError().startsWith("tarnwell-cli: "));
}

void TestCli::noRestoreUnderRunningProgram()
{
    // The desktop program holds its lock while it runs.
    const int lock = SingleCopy::acquireLock(QLatin1String(SingleCopy::kIdentifier), 0);
    QVERIFY(lock >= 0);
    const Result refused = run({QStringLiteral("restore"), QStringLiteral("/nonexistent/x.tar")});
    SingleCopy::releaseLock(lock);
    QCOMPARE(refused.status, 1);
    QCOMPARE(refused.err,
             QStringLiteral("tarnwell-cli: The program is running: close it before restoring.\n"));
    QCOMPARE(run({QStringLiteral("restore"), QStringLiteral("/nonexistent/x.tar")}).err,
             QStringLiteral("tarnwell-cli: Cannot read /nonexistent/x.tar.\n"));

    // A copy running in another login session (another runtime folder) is none of this one's.
    QTemporaryDir otherSession;
    const QByteArray ours = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(otherSession.path()));
    const int elsewhere = SingleCopy::acquireLock(QLatin1String(SingleCopy::kIdentifier), 0);
    qputenv("XDG_RUNTIME_DIR", ours);
    QVERIFY(elsewhere >= 0);
    const Result here = run({QStringLiteral("restore"), QStringLiteral("/nonexistent/x.tar")});
    SingleCopy::releaseLock(elsewhere);
    QCOMPARE(here.err, QStringLiteral("tarnwell-cli: Cannot read /nonexistent/x.tar.\n"));
}

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
