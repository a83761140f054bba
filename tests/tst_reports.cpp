// Report series over a small diary worked out by hand: gaps, a target change mid-range, other
// units, the weight trend and forecast, and the command-line tool's report command.

#include "dbfixture.h"

#include "db/diarydb.h"
#include "db/goals.h"
#include "reports/breakdownreport.h"
#include "reports/energyreport.h"
#include "reports/measurementsreport.h"
#include "reports/nutrientreport.h"
#include "reports/reportoutput.h"
#include "reports/stepsreport.h"
#include "reports/weightreport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

using namespace Qt::StringLiterals;

class TestReports : public QObject
{
    Q_OBJECT

private:
    DbFixture _db;
    int _user = -1;
    // 2026-03-02 (a Monday) to 2026-03-09; 03-03 holds only a removed entry.
    const ReportRange _range = ReportRange::between(QDate(2026, 3, 2), QDate(2026, 3, 9));
    QHash<QString, ReportDocument> _documents;

    void addFood(const char *day, int meal, const char *name,
                 std::initializer_list<std::pair<int, float>> values, bool remove = false)
    {
        FoodDiaryItem food;
        food.user_id = _user;
        food.date = QLatin1String(day);
        food.meal = meal;
        food.food_name = QLatin1String(name);
        food.ref_id = int(qHash(food.food_name) % 10000);
        for (const auto &[type, value] : values)
            food.setNutrient(type, value);
        QVERIFY(DiaryDB().addFoodEntry(food));
        if (remove)
            QVERIFY(DiaryDB().removeFoodEntry(food.food_id));
    }
    void addExercise(const char *day, float minutes, float rate)
    {
        ExerciseDiaryItem exercise;
        exercise.user_id = _user;
        exercise.date = QLatin1String(day);
        exercise.duration = minutes;
        exercise.rate = rate;
        exercise.name = u"Walking"_s;
        QVERIFY(DiaryDB().addExerciseEntry(exercise));
    }
    void addCheckIn(const char *day, double weight, double waist, double hip, double steps)
    {
        CheckIn checkIn;
        checkIn.date = QLatin1String(day);
        checkIn.weight = weight;
        checkIn.waist = waist;
        checkIn.hip = hip;
        checkIn.steps = steps;
        QVERIFY(UserDB::setCheckIn(_user, checkIn));
    }
    struct Run
    {
        int status = -1;
        QString out, err;
    };
    Run cli(const QString &arguments)
    {
        QProcess process;
        process.setProcessEnvironment(QProcessEnvironment::systemEnvironment());
        process.start(binDir() + u"/tarnwell-cli"_s,
                      QStringList{u"--resourcedir"_s, _db.path(u"resources"_s)} + arguments.split(u' '));
        if (!process.waitForFinished(60000))
            return {};
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

private slots:
    void initTestCase();
    void cleanupTestCase() { _db.stop(); }
    void series_data();
    void series();
    void weightFigures();
    void unitsInText_data();
    void unitsInText();
    void csvFollowsTheText();
    void breakdown();
    void ranges_data();
    void ranges();
    void commandErrors_data();
    void commandErrors();
    void commandJsonAndCsv();
    void commandPdf();
};

void TestReports::initTestCase()
{
    QVERIFY(_db.start());
    // Ann: 168 cm, 61.5 kg on 03-01, born 1985.
    _user = DbFixture::makeAnn(QDate(2026, 3, 1));
    QVERIFY(_user > 0);
    GoalChange goal;
    goal.weight = 58.0;
    QString message;
    QCOMPARE(Goals::apply(_user, u"20260301"_s, goal, &message), Goals::Applied::Stored);
    Targets first, later;
    first.values[ENERGY] = 2000;
    first.values[PROTEIN] = 50;
    later.values[ENERGY] = 1800;
    later.values[PROTEIN] = 60;
    QVERIFY(UserDB::setTargets(_user, u"20260301"_s, first));
    QVERIFY(UserDB::setTargets(_user, u"20260304"_s, later));

    addFood("20260302", BREAKFAST, "Porridge", {{ENERGY, 1500}, {CARB, 100}, {FAT, 50}, {PROTEIN, 75}});
    addFood("20260302", LUNCH, "Soup", {{ENERGY, 600}, {CARB, 0}, {FAT, 0}, {PROTEIN, 25}});
    addExercise("20260302", 30, 5);
    addFood("20260303", LUNCH, "Cake", {{ENERGY, 900}}, true);
    addFood("20260304", LUNCH, "Stew", {{ENERGY, 2300}, {CARB, 0}, {FAT, 0}, {PROTEIN, 40}});
    addExercise("20260305", 20, 10);
    addFood("20260306", DINNER, "Pasta", {{ENERGY, 1700}, {CARB, 200}, {FAT, 20}, {PROTEIN, 60}});

    addCheckIn("20260302", 62.5, 80, 100, 8000);
    addCheckIn("20260304", 60.5, -1, -1, 6000);
    addCheckIn("20260306", 61.5, 79, -1, 7000);
    addCheckIn("20260309", -1, -1, -1, 10000);

    // The tool runs on this diary with the test brand.
    QVERIFY(QFile::copy(_db.path(u"brand.dat"_s), _db.path(u"resources/brand.dat"_s)));

    _documents.insert(u"energy"_s, EnergyReport(_user, _range).document());
    _documents.insert(u"nutrients"_s, NutrientReport(_user, _range, PROTEIN).document());
    _documents.insert(u"weight"_s, WeightReport(_user, _range).document());
    _documents.insert(u"measurements"_s, MeasurementsReport(_user, _range).document());
    _documents.insert(u"steps"_s, StepsReport(_user, _range).document());
}

void TestReports::series_data()
{
    QTest::addColumn<QString>("report");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QList<int>>("days"); // of March 2026
    QTest::addColumn<QList<double>>("values");
    QTest::addColumn<QList<double>>("summary"); // average, minimum, maximum

    // 03-03 (a removed entry only) and 03-07 to 03-09 are gaps; 03-05 has exercise only.
    QTest::newRow("eaten") << u"energy"_s << u"eaten"_s << QList<int>{2, 4, 5, 6}
                           << QList<double>{2100, 2300, 0, 1700} << QList<double>{1525, 0, 2300}; // 6100 / 4
    QTest::newRow("burned") << u"energy"_s << u"burned"_s << QList<int>{2, 4, 5, 6}
                            << QList<double>{150, 0, 200, 0} << QList<double>{87.5, 0, 200}; // 30x5, 20x10
    QTest::newRow("net") << u"energy"_s << u"net"_s << QList<int>{2, 4, 5, 6}
                         << QList<double>{1950, 2300, -200, 1700} << QList<double>{1437.5, -200, 2300};
    QTest::newRow("budget changes on 03-04")
        << u"energy"_s << u"budget"_s << QList<int>{2, 4, 5, 6} << QList<double>{2000, 1800, 1800, 1800}
        << QList<double>{1850, 1800, 2000};
    // 1950 is within 100 of 2000 and 1700 of 1800; 2300 and -200 are not. Only 03-02 has 30 minutes.
    QTest::newRow("food tick") << u"energy"_s << u"foodTick"_s << QList<int>{2, 4, 5, 6}
                               << QList<double>{1, 0, 0, 1} << QList<double>{0.5, 0, 1};
    QTest::newRow("exercise tick") << u"energy"_s << u"exerciseTick"_s << QList<int>{2, 4, 5, 6}
                                   << QList<double>{1, 0, 0, 0} << QList<double>{0.25, 0, 1};
    QTest::newRow("protein, no food on 03-05")
        << u"nutrients"_s << u"protein"_s << QList<int>{2, 4, 6} << QList<double>{100, 40, 60}
        << QList<double>{200.0 / 3, 40, 100};
    QTest::newRow("protein target") << u"nutrients"_s << u"target"_s << QList<int>{2, 4, 6}
                                    << QList<double>{50, 60, 60} << QList<double>{170.0 / 3, 50, 60};
    // 03-02: 100 g carb x4 = 400, 50 g fat x9 = 450, 100 g protein x4 = 400 of 1250.
    // 03-06: 800 + 180 + 240 = 1220.
    QTest::newRow("carb share") << u"nutrients"_s << u"carbShare"_s << QList<int>{2, 4, 6}
                                << QList<double>{32, 0, 800.0 / 12.2}
                                << QList<double>{(32 + 800.0 / 12.2) / 3, 0, 800.0 / 12.2};
    QTest::newRow("fat share") << u"nutrients"_s << u"fatShare"_s << QList<int>{2, 4, 6}
                               << QList<double>{36, 0, 180.0 / 12.2}
                               << QList<double>{(36 + 180.0 / 12.2) / 3, 0, 36};
    QTest::newRow("weight") << u"weight"_s << u"weight"_s << QList<int>{2, 4, 6}
                            << QList<double>{62.5, 60.5, 61.5} << QList<double>{61.5, 60.5, 62.5};
    // From 61.5 on 03-01: 61.5+0.1x1 = 61.6; 61.6+0.1x(60.5-61.6) = 61.49; 61.49+0.1x0.01 = 61.491.
    QTest::newRow("trend") << u"weight"_s << u"trend"_s << QList<int>{2, 4, 6}
                           << QList<double>{61.6, 61.49, 61.491}
                           << QList<double>{(61.6 + 61.49 + 61.491) / 3, 61.49, 61.6};
    QTest::newRow("waist") << u"measurements"_s << u"waist"_s << QList<int>{2, 6} << QList<double>{80, 79}
                           << QList<double>{79.5, 79, 80};
    QTest::newRow("hip") << u"measurements"_s << u"hip"_s << QList<int>{2} << QList<double>{100}
                         << QList<double>{100, 100, 100};
    QTest::newRow("steps") << u"steps"_s << u"steps"_s << QList<int>{2, 4, 6, 9}
                           << QList<double>{8000, 6000, 7000, 10000} << QList<double>{7750, 6000, 10000};
    // (8000 + 6000 + 7000) / 3 for the week of 03-02; 10000 alone in the week of 03-09.
    QTest::newRow("weekly steps") << u"steps"_s << u"weeklyAverage"_s << QList<int>{2, 9}
                                  << QList<double>{7000, 10000} << QList<double>{};
}

void TestReports::series()
{
    QFETCH(QString, report);
    QFETCH(QString, key);
    QFETCH(QList<int>, days);
    QFETCH(QList<double>, values);
    QFETCH(QList<double>, summary);

    const ReportDocument document = _documents.value(report);
    const auto found = std::find_if(document.series.cbegin(), document.series.cend(),
                                    [&key](const ReportSeries &s) { return s.key == key; });
    QVERIFY2(found != document.series.cend(), qPrintable(key));
    QCOMPARE(found->points.size(), days.size());
    for (qsizetype i = 0; i < days.size(); ++i) {
        QCOMPARE(found->points[i].date, QDate(2026, 3, days[i]));
        QVERIFY2(qAbs(found->points[i].value - values[i]) < 1e-4,
                 qPrintable(QString::number(found->points[i].value)));
    }
    QCOMPARE(found->summarised, !summary.isEmpty());
    if (summary.isEmpty())
        return;
    const SeriesSummary figures = found->summary();
    QCOMPARE(figures.days, days.size());
    QVERIFY(qAbs(figures.average - summary[0]) < 1e-4);
    QCOMPARE(figures.minimum, summary[1]);
    QCOMPARE(figures.maximum, summary[2]);
}

void TestReports::weightFigures()
{
    const WeightReport report(_user, _range);
    QCOMPARE(report.goalWeight(), std::optional<double>(58.0));
    // (61.491 - 61.6) kg over the 4 days from 03-02 to 03-06, times 7.
    QVERIFY(qAbs(*report.weeklyRate() - (-0.19075)) < 1e-6);

    // 168 x 168 x BMI x 0.0001 at BMI 18.5, 26.5, 29.5, 40.5: the rounded BMI reaches 19, 27, 30, 41.
    const QList<WeightReport::BmiBand> bands = report.bmiBands();
    const QStringList names{u"Underweight"_s, u"low risk"_s, u"medium risk"_s, u"high risk"_s,
                            u"very high risk"_s};
    const double edges[] = {52.2144, 74.7936, 83.2608, 114.3072};
    QCOMPARE(bands.size(), names.size());
    for (qsizetype i = 0; i < bands.size(); ++i) {
        QCOMPARE(bands[i].name, names[i]);
        QCOMPARE(bands[i].from.has_value(), i > 0);
        QCOMPARE(bands[i].to.has_value(), i < 4);
        if (i > 0)
            QVERIFY(qAbs(*bands[i].from - edges[i - 1]) < 1e-4);
    }

    // Requirement at 61.5 kg on 03-06, aged 41, activity 1: (2741 + 40x61.5 + 7.7x168 - 19.6x41) kJ
    // x 1.2 x 0.23923446 = 1633.78; the average net 1437.5 is 196.28 under it: 0.003944634 x 196.28
    // = 0.7743 kg a month, under 1 kg so over 3 months: a loss of 2.3228 kg from the trend 61.491.
    const std::optional<WeightReport::Forecast> forecast = report.forecast();
    QVERIFY(forecast);
    QCOMPARE(forecast->months, 3);
    QCOMPARE(forecast->from, QDate(2026, 3, 9));
    QCOMPARE(forecast->to, QDate(2026, 6, 9));
    QVERIFY(qAbs(forecast->fromWeight - 61.491) < 1e-6);
    QVERIFY(qAbs(forecast->toWeight - 59.1682) < 1e-3);
}

void TestReports::unitsInText_data()
{
    QTest::addColumn<QString>("report");
    QTest::addColumn<int>("measurement");
    QTest::addColumn<int>("energy"); // as stored: 1 calories, 0 kilojoules
    QTest::addColumn<QString>("line");

    QTest::newRow("a day of exercise only")
        << u"energy"_s << 0 << 1 << u"2026-03-05\t0 cals\t200 cals\t-200 cals\t1800 cals\tno\tno"_s;
    // 1437.5 x 4.18 = 6008.75, -200 x 4.18 = -836, 2300 x 4.18 = 9614.
    QTest::newRow("kilojoules") << u"energy"_s << 0 << 0 << u"Net\t6009 kj\t-836 kj\t9614 kj\t4"_s;
    QTest::newRow("ticks as a share of days") << u"energy"_s << 0 << 1 << u"Food tick\t50.0 %\tno\tyes\t4"_s;
    // 61.5, 60.5 and 62.5 kg x 2.20462 = 135.58, 133.38, 137.79 lb.
    QTest::newRow("pounds") << u"weight"_s << 1 << 1 << u"Weight\t135.6 lb\t133.4 lb\t137.8 lb\t3"_s;
    // 58 x 2.20462 = 127.87 lb.
    QTest::newRow("goal in pounds") << u"weight"_s << 1 << 1 << u"Goal weight\t127.9 lb"_s;
    // 79.5, 79 and 80 cm / 2.54 = 31.30, 31.10, 31.50 in.
    QTest::newRow("inches") << u"measurements"_s << 1 << 1 << u"Waist\t31.30 in\t31.10 in\t31.50 in\t2"_s;
    QTest::newRow("target in grams") << u"nutrients"_s << 0 << 1 << u"Target\t56.7 g\t50.0 g\t60.0 g\t3"_s;
}

void TestReports::unitsInText()
{
    QFETCH(QString, report);
    QFETCH(int, measurement);
    QFETCH(int, energy);
    QFETCH(QString, line);
    const QString text = reportText(_documents.value(report), ReportUnits(measurement, energy));
    QVERIFY2(text.split(u'\n').contains(line), qPrintable(text));
}

void TestReports::csvFollowsTheText()
{
    const QStringList lines =
        QString::fromUtf8(reportCsv(_documents.value(u"energy"_s), ReportUnits(0, 0))).split(u'\n');
    QCOMPARE(lines.value(0), u"Date,Eaten (kj),Burned (kj),Net (kj),Budget (kj),Food tick,Exercise tick"_s);
    // 2100, 150, 1950 and 2000 calories x 4.18.
    QCOMPARE(lines.value(1), u"2026-03-02,8778,627,8151,8360,yes,yes"_s);
    QCOMPARE(lines.value(5), QString()); // four logged days, then the table of figures
    QCOMPARE(lines.value(6), u"Series,Average,Minimum,Maximum,Days logged"_s);
}

void TestReports::breakdown()
{
    const BreakdownReport report(_user, _range, PROTEIN, 2);
    QStringList names;
    QList<double> energy;
    for (const BreakdownReport::Meal &meal : report.meals()) {
        names << meal.name;
        energy << meal.nutrients[ENERGY];
    }
    QCOMPARE(names, (QStringList{u"Breakfast"_s, u"Lunch"_s, u"Dinner"_s}));
    QCOMPARE(energy, (QList<double>{1500, 2900, 1700})); // lunch: 600 + 2300; the removed cake is not counted
    QCOMPARE(report.burned(), 350.0);
    // Protein: porridge 75, pasta 60, stew 40, soup 25 of 200.
    QCOMPARE(report.topFoods().size(), 2);
    QCOMPARE(report.topFoods()[0].name, u"Porridge"_s);
    QCOMPARE(report.topFoods()[0].share, 37.5);
    QCOMPARE(report.topFoods()[1].name, u"Pasta"_s);
    QCOMPARE(report.topFoods()[1].share, 30.0);

    const QString text = reportText(report.document(), ReportUnits(0, 1));
    QVERIFY2(text.contains(u"\nLunch\t2900 cals\t"_s) && text.contains(u"\t47.5 %\n"_s),
             qPrintable(text)); // 2900/6100
    QVERIFY2(text.contains(u"\nExercise\t-350 cals\t-\t"_s), qPrintable(text));
}

void TestReports::ranges_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QDate>("from");
    QTest::addColumn<QDate>("to");
    const QDate last(2026, 3, 9);
    QTest::newRow("week") << int(ReportRange::Week) << QDate(2026, 3, 3) << last;
    QTest::newRow("month") << int(ReportRange::Month) << QDate(2026, 2, 10) << last;
    QTest::newRow("three months") << int(ReportRange::ThreeMonths) << QDate(2025, 12, 10) << last;
    QTest::newRow("year") << int(ReportRange::Year) << QDate(2025, 3, 10) << last;
    // From Ann's first check-in to the last check-in.
    QTest::newRow("all") << int(ReportRange::All) << QDate(2026, 3, 1) << last;
}

void TestReports::ranges()
{
    QFETCH(int, kind);
    QFETCH(QDate, from);
    QFETCH(QDate, to);
    const ReportRange range = kind == ReportRange::All ? ReportRange::all(_user, QDate(2030, 1, 1))
                                                       : ReportRange::ending(ReportRange::Kind(kind), to);
    QCOMPARE(range.from(), from);
    QCOMPARE(range.to(), to);
}

void TestReports::commandErrors_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QString>("error");
    QTest::newRow("unknown report") << u"report calories"_s << u"unknown report 'calories'"_s;
    QTest::newRow("bad date") << u"report energy --from 2026-02-30"_s
                              << u"--from: '2026-02-30' is not a date"_s;
    QTest::newRow("from after to") << u"report energy --from 2026-03-09 --to 2026-03-02"_s
                                   << u"--from is after --to"_s;
    QTest::newRow("unknown nutrient")
        << u"report nutrients --nutrient iron"_s << u"unknown nutrient 'iron'"_s;
    QTest::newRow("nutrient of weight")
        << u"report weight --nutrient fat"_s << u"has no nutrient to choose"_s;
    QTest::newRow("two forms") << u"report steps --json --csv"_s << u"choose one of"_s;
}

void TestReports::commandErrors()
{
    QFETCH(QString, arguments);
    QFETCH(QString, error);
    const Run run = cli(arguments);
    QCOMPARE(run.status, 2);
    QVERIFY2(run.err.startsWith(u"tarnwell-cli: "_s) && run.err.contains(error), qPrintable(run.err));
    QVERIFY(run.out.isEmpty());
}

void TestReports::commandJsonAndCsv()
{
    const Run json = cli(u"report nutrients --nutrient protein --from 2026-03-02 --to 2026-03-09 --json"_s);
    QCOMPARE(json.status, 0);
    const QJsonObject root = QJsonDocument::fromJson(json.out.toUtf8()).object();
    QCOMPARE(root.value(u"from"_s).toString(), u"2026-03-02"_s);
    const QJsonObject protein = root.value(u"series"_s).toArray().first().toObject();
    QCOMPARE(protein.value(u"key"_s).toString(), u"protein"_s);
    QCOMPARE(protein.value(u"days"_s).toInt(), 3);
    QCOMPARE(protein.value(u"maximum"_s).toDouble(), 100.0);
    QCOMPARE(protein.value(u"points"_s).toArray().at(1).toObject().value(u"date"_s).toString(),
             u"2026-03-04"_s);

    // The profile's own units: after switching to imperial, the tool shows pounds.
    UserSettings settings = UserDB::getSettings(_user);
    settings.measurement_units = 1;
    QVERIFY(UserDB::setSettings(_user, settings));
    const Run csv = cli(u"report weight --from 2026-03-02 --to 2026-03-09 --csv"_s);
    QCOMPARE(csv.status, 0);
    QVERIFY2(csv.out.startsWith(u"Date,Weight (lb),Trend (lb),Forecast (lb)\n2026-03-02,137.8,135.8,\n"_s),
             qPrintable(csv.out)); // 62.5 and 61.6 kg x 2.20462
}

void TestReports::commandPdf()
{
    // A year of weekly weighings: the printed pages hold the figures the text shows.
    for (QDate day(2025, 3, 10); day < QDate(2026, 3, 1); day = day.addDays(7)) {
        const QByteArray date = day.toString(u"yyyyMMdd"_s).toLatin1();
        addCheckIn(date.constData(), 70.0 - day.daysTo(QDate(2026, 3, 1)) / 100.0, 0, 0, 0);
    }
    const QString range = u"report weight --from 2025-03-10 --to 2026-03-09"_s;
    const Run text = cli(range);
    QCOMPARE(text.status, 0);
    const QString pdf = _db.path(u"w.pdf"_s);
    const Run printed = cli(range + u" --pdf "_s + pdf);
    QCOMPARE(printed.status, 0);
    QProcess reader;
    reader.start(u"pdftotext"_s, {u"-layout"_s, pdf, u"-"_s});
    QVERIFY2(reader.waitForFinished(20000) && reader.exitCode() == 0,
             "pdftotext is installed with the test tools");
    const QString pages = QString::fromUtf8(reader.readAllStandardOutput());
    const QStringList lines = text.out.split(u'\n');
    const qsizetype figures = lines.indexOf(u"Series\tAverage\tMinimum\tMaximum\tDays logged"_s);
    QVERIFY(figures > 0);
    for (const QString &cell : lines.at(figures + 1).split(u'\t'))
        QVERIFY2(pages.contains(cell), qPrintable(cell));
    QCOMPARE(cli(range + u" --pdf /no/such/folder/w.pdf"_s).status, 1);
}

QTEST_GUILESS_MAIN(TestReports)
#include "tst_reports.moc"
