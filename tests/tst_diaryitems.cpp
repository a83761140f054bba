// Day strings, meal names, and food and exercise entries with their serving arithmetic.

#include "model/dateconversion.h"
#include "model/dbtypes.h"
#include "testsupport.h"

#include <QHash>

namespace {

// Two foods as a food database would describe them.
class TwoFoods : public FoodInfoSource
{
public:
    bool foodName(int refId, QString *name) const override
    {
        if (refId == 1)
            *name = QStringLiteral("Apples, raw, with skin");
        else if (refId == 2)
            *name = QStringLiteral("Milk, whole");
        else if (refId == 3)
            *name = QStringLiteral("Mystery, no base");
        else if (refId == 4)
            *name = QStringLiteral("Orange juice, raw");
        else
            return false;
        return true;
    }
    bool foodReference(int refId, FoodReference *reference) const override
    {
        if (refId == 1)
            *reference = {100.0f, 'M', {52, 13.8f, 0.17f, 0.26f, 2.4f, 0.028f, 0, 1, 10.4f, 6}};
        else if (refId == 2)
            *reference = {100.0f, 'V', {61, 4.8f, 3.3f, 3.2f, -1, 1.9f, 10, 43, 5.1f, 113}};
        else if (refId == 3)
            *reference = {0.0f, 'M', {250, -1, -1, -1, -1, -1, -1, -1, -1, -1}};
        else if (refId == 4) // weighed, though a liquid
            *reference = {100.0f, 'M', {45, -1, -1, -1, -1, -1, -1, -1, -1, -1}};
        else
            return false;
        return true;
    }
    QList<FoodServing> foodServings(int refId) const override
    {
        if (refId == 1)
            return {{QStringLiteral("1 cup, sliced"), 1, 109.0f}, {QStringLiteral("1 medium"), 2, 182.0f}};
        if (refId == 2)
            return {{QStringLiteral("1 cup"), 1, 244.0f}};
        if (refId == 3)
            return {{QStringLiteral("1 piece"), 7, 30.0f}};
        if (refId == 4)
            return {{QStringLiteral("1 fl oz"), 2, 31.0f}, {QStringLiteral("1 cup"), 1, 248.0f}};
        return {};
    }
};

} // namespace

class TestDiaryItems : public QObject
{
    Q_OBJECT

private:
    TwoFoods _foods;

private slots:
    void initTestCase() { FoodInfoSource::setInstance(&_foods); }
    void cleanupTestCase() { FoodInfoSource::setInstance(nullptr); }

    void dayStrings_data();
    void dayStrings();
    void mealNames_data();
    void mealNames();
    void mealAtTime_data();
    void mealAtTime();
    void servings_data();
    void servings();
    void checkedLoadRefusesChangedFood();
    void unknownValues();
    void dayTotals_data();
    void dayTotals();
};

void TestDiaryItems::dayStrings_data()
{
    QTest::addColumn<QString>("day");
    QTest::addColumn<QDate>("date");
    QTest::newRow("plain") << QStringLiteral("20070315") << QDate(2007, 3, 15);
    QTest::newRow("leap day") << QStringLiteral("20240229") << QDate(2024, 2, 29);
    QTest::newRow("no leap day") << QStringLiteral("20230229") << QDate();
    QTest::newRow("month 13") << QStringLiteral("20071315") << QDate();
    QTest::newRow("letters") << QStringLiteral("2007a315") << QDate();
}

void TestDiaryItems::dayStrings()
{
    QFETCH(QString, day);
    QFETCH(QDate, date);
    QCOMPARE(DateConversion::toQDate(day), date);
    QCOMPARE(DateConversion::toWebDate(day),
             day.left(4) + QLatin1Char('-') + day.mid(4, 2) + QLatin1Char('-') + day.mid(6));
    if (date.isValid())
        QCOMPARE(DateConversion::fromQDate(date), day);
    LM_VERIFY_ASSERT(DateConversion::toQDate(day.left(7)), "strlen(date) == 8");
    QCOMPARE(DateConversion::longDayName(QDate(2007, 3, 15)), QStringLiteral("Thursday, March 15 2007"));
    QCOMPARE(DateConversion::fromQDate(QDate(10000, 1, 1)), QString()); // no 8-character form
    QVERIFY(genericServings('S').isEmpty());
}

void TestDiaryItems::mealNames_data()
{
    QTest::addColumn<int>("meal");
    QTest::addColumn<QString>("mode0");
    QTest::addColumn<QString>("mode1");
    QTest::addColumn<QString>("mode2");
    // meal, then its name in snack modes 0, 1 and 2
    const std::array<const char *, 4> rows[] = {{"1", "Breakfast", "Breakfast", "Breakfast"},
                                                {"2", "Snacks #1", "Morning snack", "Snacks #1"},
                                                {"3", "Lunch", "Lunch", "Lunch"},
                                                {"4", "Snacks #2", "Afternoon snack", "Snacks #2"},
                                                {"5", "Dinner", "Dinner", "Dinner"},
                                                {"6", "Snacks", "Evening snack", "Snacks #3"},
                                                {"8", "Exercise", "Exercise", "Exercise"}};
    for (const auto &row : rows)
        QTest::newRow(row[2]) << QByteArray(row[0]).toInt() << QString::fromLatin1(row[1])
                              << QString::fromLatin1(row[2]) << QString::fromLatin1(row[3]);
    QTest::newRow("seven") << 7 << QString() << QString() << QString();
}

void TestDiaryItems::mealNames()
{
    QFETCH(int, meal);
    QTEST(mealName(meal, 0), "mode0");
    QTEST(mealName(meal, 1), "mode1");
    QTEST(mealName(meal, 2), "mode2");
    QTEST(mealName(meal, 5), "mode0"); // any other mode names snacks as mode 0
    QVERIFY(mealName(7, 1).isNull());
}

void TestDiaryItems::mealAtTime_data()
{
    QTest::addColumn<QTime>("time");
    QTest::addColumn<int>("meal");
    // Each boundary from both sides.
    const std::pair<const char *, int> rows[] = {
        {"03:59", SNACK_3}, {"04:00", BREAKFAST}, {"09:59", BREAKFAST}, {"10:00", SNACK_1},
        {"11:29", SNACK_1}, {"11:30", LUNCH},     {"14:30", SNACK_2},   {"17:30", DINNER},
        {"20:59", DINNER},  {"21:00", SNACK_3},   {"23:59", SNACK_3}};
    for (const auto &[time, meal] : rows)
        QTest::newRow(time) << QTime::fromString(QLatin1String(time), QStringLiteral("HH:mm")) << meal;
}

void TestDiaryItems::mealAtTime()
{
    QFETCH(QTime, time);
    QTEST(::mealAtTime(time), "meal");
}

void TestDiaryItems::servings_data()
{
    QTest::addColumn<int>("food");
    QTest::addColumn<int>("serving");
    QTest::addColumn<float>("size");
    QTest::addColumn<QString>("servingName");
    QTest::addColumn<float>("calories");
    QTest::addColumn<float>("fiber");

    QTest::newRow("first serving") << 1 << 1 << 1.0f << "1 cup, sliced" << 56.68f << 2.616f;
    QTest::newRow("two medium") << 1 << 2 << 2.0f << "1 medium" << 189.28f << 8.736f;
    QTest::newRow("grams") << 1 << -1 << 250.0f << "g" << 130.0f << 6.0f;
    QTest::newRow("two ounces") << 1 << -2 << 2.0f << "oz" << 29.484f << 1.3608f;
    QTest::newRow("fluid ounce, fibre unknown") << 2 << -4 << 1.0f << "fl.oz" << 18.04014f << -1.0f;
    QTest::newRow("millilitres") << 2 << -3 << 100.0f << "mL" << 61.0f << -1.0f;
    QTest::newRow("no base quantity: values as given") << 3 << 7 << 2.0f << "1 piece" << 250.0f << -1.0f;
    // 250 mL of a juice whose fluid ounce weighs 31 g: 262.06 g.
    QTest::newRow("millilitres of a weighed liquid") << 4 << -5 << 250.0f << "mL" << 117.927f << -1.0f;
}

void TestDiaryItems::servings()
{
    QFETCH(int, food);
    QFETCH(int, serving);
    QFETCH(float, size);
    FoodDiaryItem item;
    item.changeFood(food);
    QVERIFY(item.isLoaded());
    QCOMPARE(item.serving_id, _foods.foodServings(food).constFirst().id);
    item.setServing(serving);
    item.setSize(size);
    QTEST(item.serv_name, "servingName");
    QTEST(item.getNutrient(ENERGY), "calories");
    QTEST(item.getNutrient(FIBER), "fiber");

    const QList<FoodServing> servings = item.getServings();
    QCOMPARE(servings.size(), _foods.foodServings(food).size() + (food == 3 ? 0 : food == 4 ? 3 : 2));
    LM_VERIFY_ASSERT(item.setServing(99), "!\"FDI::setServing - uFI failed!\"");
    QTEST(item.getNutrient(ENERGY), "calories"); // unchanged by the refused serving
}

void TestDiaryItems::checkedLoadRefusesChangedFood()
{
    // A stored entry whose food was renamed in the database keeps its own values.
    FoodDiaryItem item;
    item.ref_id = 1;
    item.food_name = QStringLiteral("Apples, old name");
    item.serving_id = 1;
    item.serv_name = QStringLiteral("1 cup, sliced");
    item.setNutrient(ENERGY, 70.0f);
    QVERIFY(!item.loadFoodInfo(true));
    QVERIFY(!item.isLoaded());
    QCOMPARE(item.getNutrient(ENERGY), 70.0f);
    LM_VERIFY_ASSERT(item.setSize(2.0f), "!\"FDI::setSize - uFI failed!\"");

    FoodDiaryItem unknownFood;
    LM_VERIFY_ASSERT(unknownFood.changeFood(42), "!\"changeFood: loadFoodInfo failed!\"");
    FoodDiaryItem noFood;
    LM_VERIFY_ASSERT(noFood.loadFoodInfo(false), "ref_id >= 0");
    LM_VERIFY_ASSERT(noFood.setDate(QStringLiteral("2024031")), "newDate.length() == 8");
}

void TestDiaryItems::unknownValues()
{
    FoodDiaryItem a(true);
    a.setNutrient(ENERGY, 100.0f);
    a.setNutrient(FAT, 2.0f);
    FoodDiaryItem b(false);
    b.setNutrient(ENERGY, 50.0f);
    b.setNutrient(FAT, -1.0f);
    b.setNutrient(SODIUM, 7.0f);

    a.add(b);
    a.scale(2.0f);
    QCOMPARE(a.getNutrient(ENERGY), 300.0f);
    QCOMPARE(a.getNutrient(FAT), 4.0f);     // b's fat unknown: not added
    QCOMPARE(a.getNutrient(SODIUM), -1.0f); // unknown stays unknown through both
    QCOMPARE(a.getNutrient(42), 0.0f);
    a.setNutrient(42, 5.0f); // ignored
    QVERIFY(isKnown(-0.009f));
    QVERIFY(!isKnown(-0.01f));
}

void TestDiaryItems::dayTotals_data()
{
    QTest::addColumn<int>("group");
    QTest::addColumn<int>("type");
    QTest::addColumn<float>("total");
    QTest::newRow("energy, whole day, net of exercise") << 0 << int(ENERGY) << 1650.0f;
    QTest::newRow("energy burned") << 8 << int(ENERGY) << 150.0f;
    QTest::newRow("one meal ignores exercise") << 2 << int(ENERGY) << 300.0f;
    QTest::newRow("fat skips unknown") << 0 << int(FAT) << 30.0f;
    QTest::newRow("empty meal") << 5 << int(ENERGY) << 0.0f;
    QTest::newRow("all snacks, no exercise") << int(ALL_SNACKS) << int(ENERGY) << 300.0f;
}

void TestDiaryItems::dayTotals()
{
    QFETCH(int, group);
    QFETCH(int, type);
    DiaryDay day;
    const auto food = [](int meal, float calories, float fat) {
        FoodDiaryItem item(true);
        item.meal = meal;
        item.setNutrient(ENERGY, calories);
        item.setNutrient(FAT, fat);
        return item;
    };
    day.foods = {food(1, 600, 10), food(2, 300, -1), food(3, 900, 20)};
    ExerciseDiaryItem run;
    run.duration = 30;
    run.rate = 5;
    ExerciseDiaryItem negative;
    negative.duration = 10;
    negative.rate = -3;
    day.exercises = {run, negative};
    QTEST(day.total(group, type), "total");
    LM_VERIFY_ASSERT(day.total(EXERCISE, FAT), "!(grp == EXERCISE && nutType != ENERGY)");
}

QTEST_GUILESS_MAIN(TestDiaryItems)
#include "tst_diaryitems.moc"
