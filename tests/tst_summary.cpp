// The summary report: BMI rounding, risk words, forecast periods and the report text.

#include "model/summaryreport.h"
#include "model/unitdescriptor.h"
#include "testsupport.h"

class TestSummary : public QObject
{
    Q_OBJECT

private slots:
    void bmi_data();
    void bmi();
    void forecast_data();
    void forecast();
    void report();
};

void TestSummary::bmi_data()
{
    QTest::addColumn<double>("weight");
    QTest::addColumn<double>("height");
    QTest::addColumn<int>("bmi");
    QTest::addColumn<QString>("risk");
    QTest::newRow("22.86 -> 23") << 70.0 << 175.0 << 23 << " (low risk)";
    QTest::newRow("18.6 -> 19") << 18.6 << 100.0 << 19 << " (low risk)";
    QTest::newRow("18.4 -> 18") << 18.4 << 100.0 << 18 << " (Underweight)";
    QTest::newRow("27") << 27.0 << 100.0 << 27 << " (medium risk)";
    QTest::newRow("40") << 40.0 << 100.0 << 40 << " (high risk)";
    QTest::newRow("41") << 41.0 << 100.0 << 41 << " (very high risk)";
}

void TestSummary::bmi()
{
    QFETCH(double, weight);
    QFETCH(double, height);
    QFETCH(int, bmi);
    QCOMPARE(reportedBmi(weight, height), bmi);
    QTEST(bmiRiskWord(bmi), "risk");
    LM_VERIFY_ASSERT(reportedBmi(weight, 0), "height");
}

void TestSummary::forecast_data()
{
    QTest::addColumn<double>("net");
    QTest::addColumn<QString>("word");
    QTest::addColumn<double>("change");
    QTest::addColumn<int>("months");
    QTest::newRow("300 below: a month") << 1700.0 << "loss" << 1.1834 << 1;
    QTest::newRow("50 above: six months") << 2050.0 << "gain" << 1.1834 << 6;
    QTest::newRow("150 above: three months") << 2150.0 << "gain" << 1.7751 << 3;
    QTest::newRow("20 above: still six months") << 2020.0 << "gain" << 0.4734 << 6;
}

void TestSummary::forecast()
{
    QFETCH(double, net);
    const WeightForecast forecast = forecastWeight(net, 2000.0);
    QTEST(forecast.word, "word");
    QTEST(forecast.months, "months");
    QFETCH(double, change);
    QVERIFY2(qAbs(forecast.change - change) < 0.0005, qPrintable(QString::number(forecast.change)));
}

void TestSummary::report()
{
    const auto energy = makeEnergyUnit(0);
    const auto kg = makeWeightUnit(0);
    const auto cm = makeMeasurementUnit(0);
    SummaryInputs in;
    in.day = QDate(2007, 3, 15);
    in.weight = 70;
    in.waist = 80;
    in.hip = 100;
    in.height = 175;
    in.eaten = 1850;
    in.burned = 150;
    in.target = 1800;
    in.requirement = 2000;
    QCOMPARE(summaryReport(in, *energy, *kg, *cm),
             QStringLiteral(
                 "<big><b>Thursday, March 15 2007</b></big><p><p><table border=0 cellspacing=0 cellpadding=0>"
                 "<tr><td><b>Weight:</b></td><td>70.0 kg</td></tr><tr><td><b>Waist:</b></td><td>80.00 cm</td></tr>"
                 "<tr><td><b>Hip:</b></td><td>100.00 cm</td></tr><tr><td><b>BMI:</b></td><td>23 (low risk)</td></tr>"
                 "<tr><td><b>Waist/Hip ratio:</b></td><td>0.80</td></tr></table><p>You've recorded <b>1700 cals</b> "
                 "on this day (subtracting <b>150 cals</b> burned from  <b>1850 cals</b> eaten.) Your target was "
                 "<b>1800 cals</b>.</p><p>On an average person, these figures would lead to a loss of 1.2 kg over "
                 "the next month.</p><p>To reach a BMI of 20, you need to lose 8.8 kg."));

    // No weight: no BMI, no forecast; nothing burned, no target.
    SummaryInputs bare;
    bare.day = in.day;
    bare.eaten = 1200;
    QCOMPARE(summaryReport(bare, *energy, *kg, *cm),
             QStringLiteral("<big><b>Thursday, March 15 2007</b></big><p><p><table border=0 cellspacing=0 "
                            "cellpadding=0></table><p>You've recorded <b>1200 cals</b> on this day.</p>"));
    // More burned than eaten: the net is a real number below zero.
    bare.burned = 1500;
    QVERIFY(summaryReport(bare, *energy, *kg, *cm).contains(QLatin1String("You've recorded <b>-300 cals</b>")));
}

QTEST_GUILESS_MAIN(TestSummary)
#include "tst_summary.moc"
