// Energy requirement, BMI and the built-in diet plan.

#include "model/energy.h"
#include "model/lmdietplan.h"
#include "testsupport.h"

class TestEnergy : public QObject
{
    Q_OBJECT

private slots:
    void requirement_data();
    void requirement();
    void bmi_data();
    void bmi();
    void dietPlan_data();
    void dietPlan();
};

void TestEnergy::requirement_data()
{
    QTest::addColumn<int>("sex");
    QTest::addColumn<float>("weight");
    QTest::addColumn<float>("height");
    QTest::addColumn<QString>("born");
    QTest::addColumn<QString>("day");
    QTest::addColumn<int>("activity");
    QTest::addColumn<QString>("calories");

    QTest::newRow("man, 40, level 1") << 0 << 80.0f << 180.0f << "19660601" << "20060601" << 1 << "2155.4";
    QTest::newRow("woman, 30, level 0") << 1 << 60.0f << 165.0f << "19760601" << "20060601" << 0 << "1532.5";
    QTest::newRow("years only: born 31 Dec, 27 on 1 Jan")
        << 1 << 60.0f << 165.0f << "19801231" << "20070101" << 3 << "1970.1";
}

void TestEnergy::requirement()
{
    QFETCH(int, sex);
    QFETCH(float, weight);
    QFETCH(float, height);
    QFETCH(QString, born);
    QFETCH(QString, day);
    QFETCH(int, activity);
    const EnergyInputs inputs{weight, day, activity, sex, height, born};
    QTEST(QString::asprintf("%.1f", energyRequirement(inputs)), "calories");

    EnergyInputs noWeight = inputs;
    noWeight.weight = 0;
    LM_VERIFY_ASSERT(energyRequirement(noWeight), "c.weight > 0 && p.height > 0");
    EnergyInputs baby = inputs;
    baby.dateOfBirth = day;
    LM_VERIFY_ASSERT(energyRequirement(baby), "age > 0");
    // The brand's plan keeps its own copy, with its own check.
    QCOMPARE(LmDietPlan::requirement(&inputs, &inputs), energyRequirement(inputs));
    LM_VERIFY_ASSERT(LmDietPlan::requirement(&noWeight, &inputs), "c->weight > 0 && p->height > 0");
}

void TestEnergy::bmi_data()
{
    QTest::addColumn<double>("weight");
    QTest::addColumn<double>("height");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("band");
    QTest::newRow("ideal") << 70.0 << 175.0 << "Your BMI: 22.9" << "Ideal";
    QTest::newRow("below the gauge") << 40.0 << 175.0 << "Your BMI: 13.1" << "Under";
    QTest::newRow("boundary 25 is over") << 64.0 << 160.0 << "Your BMI: 25.0" << "Over";
    QTest::newRow("obese") << 100.0 << 170.0 << "Your BMI: 34.6" << "Obese";
    QTest::newRow("above the gauge") << 150.0 << 160.0 << "Your BMI: 58.6" << "Very Obese";
}

void TestEnergy::bmi()
{
    QFETCH(double, weight);
    QFETCH(double, height);
    const double value = bodyMassIndex(weight, height);
    QTEST(bmiText(value), "text");
    QTEST(bmiBand(value), "band");
}

void TestEnergy::dietPlan_data()
{
    QTest::addColumn<float>("requirement");
    QTest::addColumn<int>("goal");
    QTest::addColumn<int>("sex");
    QTest::addColumn<float>("energy");
    QTest::addColumn<float>("carb");
    QTest::newRow("maintain") << 2155.4f << int(MAINTAIN_WEIGHT) << 0 << 2160.0f << 270.0f;
    QTest::newRow("lose 500") << 2155.4f << int(LOSE_WEIGHT) << 0 << 1660.0f << 208.0f;
    QTest::newRow("lose, women's floor") << 1532.5f << int(LOSE_WEIGHT) << 1 << 1200.0f << 150.0f;
    QTest::newRow("gain") << 1532.5f << int(GAIN_WEIGHT) << 1 << 1830.0f << 229.0f;
}

void TestEnergy::dietPlan()
{
    QFETCH(float, requirement);
    QFETCH(int, goal);
    QFETCH(int, sex);
    const auto targets = DietPlan::targets(requirement, goal, sex, 40);
    QTEST(targets[ENERGY], "energy");
    QTEST(targets[CARB], "carb");
    // The shares add up to the energy, within rounding of the grams.
    const float energy = targets[CARB] * 4 + targets[FAT] * 9 + targets[PROTEIN] * 4;
    QVERIFY(qAbs(energy - targets[ENERGY]) < 15);
    QCOMPARE(targets[SODIUM], 2300.0f);

    // The brand's own plan: offered only when the brand says so, the same energy, more protein.
    QCOMPARE(offeredDietPlans(false), QStringList{QStringLiteral("Tarnwell")});
    QCOMPARE(offeredDietPlans(true), (QStringList{QStringLiteral("Tarnwell"), QStringLiteral("Brindlemoss")}));
    const auto brand = dietPlanTargets(QStringLiteral("Brindlemoss"), requirement, goal, sex, 40);
    QCOMPARE(brand[ENERGY], targets[ENERGY]);
    QVERIFY(brand[PROTEIN] > targets[PROTEIN] && brand[CARB] < targets[CARB]);
    QCOMPARE(dietPlanTargets(QStringLiteral("Tarnwell"), requirement, goal, sex, 40), targets);
}

QTEST_GUILESS_MAIN(TestEnergy)
#include "tst_energy.moc"
