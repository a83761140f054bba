// Every branch of the green ticks and their texts.

#include "model/greenticks.h"
#include "model/unitdescriptor.h"
#include "testsupport.h"

class TestGreenTicks : public QObject
{
    Q_OBJECT

private slots:
    void ticks_data();
    void ticks();
    void kilojoules();
};

void TestGreenTicks::ticks_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<float>("calories");
    QTest::addColumn<float>("minutes");
    QTest::addColumn<QString>("picture");
    QTest::addColumn<QString>("tooltip");

    const QString moreExercise = QStringLiteral("You need to exercise for another 30 minutes to earn a green tick for exercise.");
    const QString enoughExercise = QStringLiteral("You've earnt a green tick for doing at least 30 minutes of exercise.");
    QTest::newRow("within, lower bound included")
        << 1 << 1900.0f << 0.0f << "graphics_tick_yes_no"
        << QStringLiteral("Congratulations! You've earnt a green tick for coming within 100 cals of your net calorie "
                          "budget.\n\n") + moreExercise;
    QTest::newRow("eat more")
        << 1 << 1899.0f << 0.0f << "graphics_tick_no_no"
        << QStringLiteral("If you eat between 1 and 201 more calories today, you'll be close  enough to your target "
                          "to earn a green tick for calories.\n\n") + moreExercise;
    QTest::newRow("over, regain with exercise")
        << 1 << 2150.0f << 20.0f << "graphics_tick_no_no"
        << QStringLiteral("You're currently 150 cals over your budget. You need to fall within 100 cals of your "
                          "target to achieve a green tick for calories.\n\nYou could regain this green tick with an "
                          "additional 50 cals of exercise.\n\nYou need to exercise for another 10 minutes to earn a "
                          "green tick for exercise.");
    QTest::newRow("far over, exercise ticked: exercise first")
        << 1 << 2400.0f << 45.0f << "graphics_tick_no_yes"
        << QStringLiteral("Congratulations! ") + enoughExercise
               + QStringLiteral("\n\nYou're currently 400 cals over your budget. You need to fall within 100 cals "
                                "of your target to achieve a green tick for calories.");
    QTest::newRow("under budget mode, at the budget")
        << 0 << 2000.0f << 30.0f << "graphics_tick_yes_yes"
        << QStringLiteral("Congratulations! You're currently on track for a green tick for calories, if you stay "
                          "within your budget.\n\n") + enoughExercise;
    QTest::newRow("under budget mode, over")
        << 0 << 2100.0f << 0.0f << "graphics_tick_no_no"
        << QStringLiteral("You're currently missing out on a green tick, as you're 100 cals over your budget!\n\nYou "
                          "could regain this green tick with an additional 100 cals of exercise.\n\n") + moreExercise;
    QTest::newRow("unknown mode: no food text")
        << 7 << 1000.0f << 29.5f << "graphics_tick_no_no"
        << QStringLiteral("\n\nYou need to exercise for another 1 minutes to earn a green tick for exercise.");
}

void TestGreenTicks::ticks()
{
    QFETCH(int, mode);
    QFETCH(float, calories);
    QFETCH(float, minutes);
    const auto calorieUnit = makeEnergyUnit(0);
    const GreenTicks ticks = computeGreenTicks({calories, 2000.0f, minutes, 30.0f, mode}, *calorieUnit);
    QTEST(ticks.pictureId(), "picture");
    QTEST(ticks.tooltip, "tooltip");
}

void TestGreenTicks::kilojoules()
{
    const auto kj = makeEnergyUnit(1);
    const GreenTicks ticks = computeGreenTicks({2150.0f, 2000.0f, 0.0f, 30.0f, 1}, *kj);
    QVERIFY(ticks.foodText.startsWith(
        QStringLiteral("You're currently 627 kj over your budget. You need to fall within 418 kj of your target")));
    QVERIFY(ticks.foodText.contains(QLatin1String("green tick for kilojoules.")));
}

QTEST_GUILESS_MAIN(TestGreenTicks)
#include "tst_greenticks.moc"
