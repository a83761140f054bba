// Display units: conversion factors and their drift, formatting, preferences, the height split.

#include "model/dbtypes.h"
#include "model/quantitytext.h"
#include "model/unitdescriptor.h"
#include "testsupport.h"

#include <QValidator>

using namespace Qt::StringLiterals;

class TestUnits : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { UnitRegistry::instance().applyPreferences(0, 1); }

    void formatting_data();
    void formatting();
    void quantities_data();
    void quantities();
    void fractions_data();
    void fractions();
    void leadingAmounts_data();
    void leadingAmounts();
    void conversions_data();
    void conversions();
    void preferences();
    void heightSplit_data();
    void heightSplit();
    void misuse();
};

void TestUnits::formatting_data()
{
    QTest::addColumn<int>("unit");
    QTest::addColumn<double>("stored");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("withUnit");
    QTest::addColumn<QString>("longForm");
    QTest::addColumn<QString>("signedWithUnit"); // of a value that is real below zero too

    QTest::newRow("energy") << int(UNIT_ENERGY) << 1234.4 << "1234"
                            << "1234 cals"
                            << "1234 cals"
                            << "1234 cals";
    QTest::newRow("energy below zero") << int(UNIT_ENERGY) << -150.0 << "-"
                                       << "-"
                                       << "-"
                                       << "-150 cals";
    QTest::newRow("rounds to zero, no sign") << int(UNIT_ENERGY) << -0.2 << "-"
                                             << "-"
                                             << "-"
                                             << "0 cals";
    QTest::newRow("energy zero") << int(UNIT_ENERGY) << 0.0 << "0"
                                 << "0 cals"
                                 << "0 cals"
                                 << "0 cals";
    QTest::newRow("fat has no long form") << int(UNIT_FAT) << 0.0 << "0.0"
                                          << "0.0 g"
                                          << ""
                                          << "0.0 g";
    QTest::newRow("unknown") << int(UNIT_CARB) << -1.0 << "-"
                             << "-"
                             << "-"
                             << "-1.0 g";
    QTest::newRow("fibre spelled by the brand") << int(UNIT_FIBER) << 2.45 << "2.5"
                                                << "2.5 g"
                                                << "2.5g of fibre"
                                                << "2.5 g";
    QTest::newRow("iron percent") << int(UNIT_IRON) << 12.0 << "12.0"
                                  << "12.0 %"
                                  << "12.0% of iron"
                                  << "12.0 %";
    QTest::newRow("potassium says sodium") << int(UNIT_POTASSIUM) << 3.0 << "3.0"
                                           << "3.0 mg"
                                           << "3.0mg of sodium"
                                           << "3.0 mg";
    QTest::newRow("steps") << int(UNIT_STEPS) << 10234.0 << "10234"
                           << "10234"
                           << "10234 steps"
                           << "10234";
}

void TestUnits::formatting()
{
    QFETCH(int, unit);
    QFETCH(double, stored);
    UnitRegistry::instance().setFiberSpelling(QStringLiteral("fibre"));
    const UnitDescriptor *descriptor = UnitRegistry::instance().getUnit(unit);
    QTEST(descriptor->formatValue(stored), "value");
    QTEST(descriptor->formatValueWithUnit(stored), "withUnit");
    QTEST(descriptor->formatValueLong(stored), "longForm");
    QTEST(descriptor->formatSignedWithUnit(stored), "signedWithUnit");
}

void TestUnits::quantities_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("text");
    QTest::newRow("a third") << 1 / 3.0 << "0.33";
    QTest::newRow("trailing zeros go") << 1.5 << "1.5";
    QTest::newRow("whole") << 150.0 << "150";
    QTest::newRow("tiny is not zero") << 0.0012 << "0.0012";
}

void TestUnits::quantities()
{
    QFETCH(double, value);
    QTEST(quantityText(value), "text");
}

void TestUnits::fractions_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<double>("value"); // -1: not a fraction
    QTest::newRow("half") << u"1/2"_s << 0.5;
    QTest::newRow("one and a half") << u" 1 1/2 "_s << 1.5;
    QTest::newRow("a glyph") << u"⅓"_s << 1 / 3.0;
    QTest::newRow("a whole and a glyph") << u"2¾"_s << 2.75;
    QTest::newRow("over nothing") << u"1/0"_s << -1.0;
    QTest::newRow("a decimal is not one") << u"1.5"_s << -1.0;
    QTest::newRow("half-typed") << u"1 1/"_s << -1.0;
    QTest::newRow("another sign") << u"2%"_s << -1.0;
}

void TestUnits::fractions()
{
    QFETCH(QString, text);
    QFETCH(double, value);
    QCOMPARE(fractionValue(text).value_or(-1), value);
}

void TestUnits::leadingAmounts_data()
{
    QTest::addColumn<QString>("search");
    QTest::addColumn<double>("amount"); // -1: none
    QTest::addColumn<QString>("rest");
    QTest::newRow("a count") << u"2 eggs"_s << 2.0 << u"eggs"_s;
    QTest::newRow("a whole and a fraction") << u"1 1/2 bagel -plain"_s << 1.5 << u"bagel -plain"_s;
    QTest::newRow("part of a name") << u"2% milk"_s << -1.0 << u"2% milk"_s;
    QTest::newRow("too many to be a count") << u"100 grand"_s << -1.0 << u"100 grand"_s;
    QTest::newRow("nothing after it") << u"2"_s << -1.0 << u"2"_s;
    QTest::newRow("minutes of an activity") << u"45 min walking"_s << 45.0 << u"walking"_s;
    QTest::newRow("minutes and nothing else") << u"45 minutes"_s << -1.0 << u"45 minutes"_s;
}

void TestUnits::leadingAmounts()
{
    QFETCH(QString, search);
    const LeadingAmount lead = search.contains(u"walk"_s) ? leadingMinutes(search) : leadingAmount(search);
    QTEST(lead.amount.value_or(-1), "amount");
    QTEST(lead.rest, "rest");
}

void TestUnits::conversions_data()
{
    QTest::addColumn<int>("unit");
    QTest::addColumn<int>("system");
    QTest::addColumn<double>("stored");
    QTest::addColumn<double>("shown");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<double>("parsed");

    QTest::newRow("calories") << int(UNIT_ENERGY) << 0 << 1000.0 << 1000.0 << "250" << 250.0;
    QTest::newRow("kilojoules: 4.18, not 4.184")
        << int(UNIT_ENERGY) << 1 << 1000.0 << 4180.0 << "418" << 100.0;
    QTest::newRow("pounds drift in the 8th digit")
        << int(UNIT_WEIGHT) << 1 << 45.35924 << 99.999994 << "100" << 45.35924;
    QTest::newRow("inches") << int(UNIT_MEASUREMENT) << 1 << 254.0 << 100.0 << "10" << 25.4;
    QTest::newRow("centimetres") << int(UNIT_MEASUREMENT) << 0 << 170.0 << 170.0 << "170.5" << 170.5;
}

void TestUnits::conversions()
{
    QFETCH(int, unit);
    QFETCH(int, system);
    QFETCH(double, stored);
    QFETCH(double, shown);
    QFETCH(QString, typed);
    QFETCH(double, parsed);
    std::unique_ptr<UnitDescriptor> descriptor = unit == UNIT_ENERGY   ? makeEnergyUnit(system)
                                                 : unit == UNIT_WEIGHT ? makeWeightUnit(system)
                                                                       : makeMeasurementUnit(system);
    QVERIFY(qAbs(descriptor->toDisplay(stored) - shown) < 1e-5);
    QVERIFY(qAbs(descriptor->fromDisplay(typed) - parsed) < 1e-4);
    if (unit == UNIT_WEIGHT)
        QCOMPARE(descriptor->formatValueWithUnit(stored), QStringLiteral("100.0 lb"));
    std::unique_ptr<QValidator> validator(descriptor->createValidator(nullptr));
    QVERIFY(validator);
    QCOMPARE(kgToLb(1.0), 2.2046224760379585);
    QCOMPARE(lbToKg(1.0), 0.4535924);
}

void TestUnits::preferences()
{
    UnitRegistry &registry = UnitRegistry::instance();
    registry.applyPreferences(1, 0); // imperial, kilojoules (stored 0)
    QCOMPARE(registry.getUnit(UNIT_ENERGY)->getUnitText(), QStringLiteral("kj"));
    QCOMPARE(registry.getUnit(UNIT_WEIGHT)->getUnitText(), QStringLiteral("lb"));
    QCOMPARE(registry.getUnit(UNIT_MEASUREMENT)->getUnitText(), QStringLiteral("in"));
    QCOMPARE(registry.getUnitForNutrient(ENERGY)->formatValueWithUnit(1000), QStringLiteral("4180 kj"));

    QTest::ignoreMessage(QtWarningMsg, "Invalid measurement type");
    QTest::ignoreMessage(QtWarningMsg, "Invalid energy type");
    registry.applyPreferences(7, 7); // both kept
    QCOMPARE(registry.getUnit(UNIT_WEIGHT)->getUnitText(), QStringLiteral("lb"));
    QCOMPARE(registry.getUnit(UNIT_ENERGY)->getUnitText(), QStringLiteral("kj"));

    registry.applyPreferences(0, 1);
    QCOMPARE(registry.getUnit(UNIT_ENERGY)->getName(), QStringLiteral("Calories"));
    // Nutrient 3 is protein (unit 4), nutrient 4 fibre (unit 3).
    QCOMPARE(registry.getUnitForNutrient(PROTEIN), registry.getUnit(UNIT_PROTEIN));
    QCOMPARE(registry.getUnitForNutrient(FIBER), registry.getUnit(UNIT_FIBER));
}

void TestUnits::heightSplit_data()
{
    QTest::addColumn<double>("cm");
    QTest::addColumn<int>("feet");
    QTest::addColumn<int>("inches");
    QTest::newRow("6 ft shows as 5 ft 12 in") << 182.88 << 5 << 12;
    QTest::newRow("30 cm rounds to 12 in") << 30.0 << 0 << 12;
    QTest::newRow("plain") << 170.0 << 5 << 7;
    QTest::newRow("rounds up") << 165.0 << 5 << 5;
}

void TestUnits::heightSplit()
{
    QFETCH(double, cm);
    const FeetInches split = splitHeight(cm);
    QTEST(split.feet, "feet");
    QTEST(split.inches, "inches");
    QCOMPARE(joinHeight(5, 7), 170); // 67 in = 170.18 cm, whole centimetres
}

void TestUnits::misuse()
{
    LM_VERIFY_ASSERT(UnitRegistry::instance().getUnit(15), "p != _units.end()");
    LM_VERIFY_ASSERT(UnitRegistry::instance().setUnit(15, nullptr), "it != _units.end()");
    LM_VERIFY_ASSERT(UnitRegistry::instance().getUnitForNutrient(10), "it != _unitsEnum.end()");
}

QTEST_MAIN(TestUnits)
#include "tst_units.moc"
