// The user, diary, saved-meal and meal-plan stores against a real, upgraded database file.

#include "db/diarydb.h"
#include "db/savedmealdb.h"
#include "db/userdb.h"
#include "dbfixture.h"

#include <QSqlQuery>

namespace {

// First column of every row of a statement, as text ("NULL" for null).
QStringList column(const QString &sql)
{
    QStringList values;
    LmSqlQueryPtr query = LmSqlDb::instance()->prepare(sql);
    if (query->exec()) {
        while (query->next())
            values.append(query->value(0).isNull() ? QStringLiteral("NULL") : query->value(0).toString());
    }
    return values;
}

int newProfile(const QString &name)
{
    UserProfile profile;
    profile.name = name;
    profile.created = QStringLiteral("20260101");
    profile.dob = QStringLiteral("19850402");
    return UserDB::createUser(profile, UserSettings(), 170.0, QStringLiteral("20260101"));
}

FoodDiaryItem food(int user, const QString &day, int meal, float calories, float fat = -1)
{
    FoodDiaryItem item(true);
    item.user_id = user;
    item.date = day;
    item.meal = meal;
    item.ref_id = 9003;
    item.food_name = QStringLiteral("Apples, raw, with skin");
    item.serv_name = QStringLiteral("1 medium");
    item.serving_id = 2;
    item.setNutrient(ENERGY, calories);
    item.setNutrient(FAT, fat);
    return item;
}

ExerciseDiaryItem exercise(int user, const QString &day, float minutes, float rate)
{
    ExerciseDiaryItem item;
    item.user_id = user;
    item.date = day;
    item.duration = minutes;
    item.rate = rate;
    item.name = QStringLiteral("Walking");
    return item;
}

} // namespace

class TestStores : public QObject
{
    Q_OBJECT

private:
    DbFixture _db;
    int _user = -1;

private slots:
    void init()
    {
        QVERIFY(_db.start());
        _user = newProfile(QStringLiteral("Ann"));
    }
    void cleanup() { _db.stop(); }

    void profiles();
    void singleProfileWithoutFamily();
    void targetsInForce_data();
    void targetsInForce();
    void weightTrend_data();
    void weightTrend();
    void checkInsAndWater();
    void foodEntries();
    void softDeleteMarksEveryDevice();
    void dailyTotals_data();
    void dailyTotals();
    void datesWithEntries();
    void publishing();
    void mealPlanDeletesForReal();
    void savedMeals();
    void deleteUser();
};

void TestStores::profiles()
{
    const int bob = newProfile(QStringLiteral("Bob"));
    QCOMPARE(UserDB::getUserIds(), (QList<int>{_user, bob}));
    QCOMPARE(UserDB::numUsers(), 2);
    QCOMPARE(UserDB::getUsers().at(1).name, QStringLiteral("Bob"));
    QCOMPARE(UserDB::getHeight(bob), 170.0);

    UserSettings settings = UserDB::getSettings(bob);
    QCOMPARE(settings.energy_units, 1);
    settings.measurement_units = 1;
    settings.web_username = QStringLiteral("bob@example");
    settings.target_sizes[3] = 7;
    settings.hideNutrientAndFluid = true;
    UserDB::setSettings(bob, settings);
    const UserSettings read = UserDB::getSettings(bob);
    QCOMPARE(read.measurement_units, 1);
    QCOMPARE(read.web_username, QStringLiteral("bob@example"));
    QCOMPARE(read.target_sizes[3], 7);
    QVERIFY(read.hideNutrientAndFluid);

    QCOMPARE(UserDB::diaryViewColumnSettings(bob), QStringLiteral("0:2:"));
    UserDB::setDiaryViewColumnSettings(bob, QStringLiteral("0:2:4:"));
    QCOMPARE(UserDB::diaryViewColumnSettings(bob), QStringLiteral("0:2:4:"));
    LM_VERIFY_ASSERT(UserDB::getSettings(-1), "user_id != -1");
    // Every argument of a dated lookup and of the daily sums is required.
    const QString weight = QStringLiteral("weight");
    const QString day = QStringLiteral("20260101");
    LM_VERIFY_ASSERT(UserDB::getLatest(QStringLiteral("user_checkins"), weight, bob, QString(), -1), "date");
    LM_VERIFY_ASSERT(UserDB::getLatest(QStringLiteral("user_checkins"), QString(), bob, day, -1), "field");
    LM_VERIFY_ASSERT(UserDB::getLatest(QStringLiteral("user_checkins"), weight, bob, day, qQNaN()), "invalidValue");
    LM_VERIFY_ASSERT(DiaryDB().getDailyTotals(bob, QString(), day, 0), "startDate");
    LM_VERIFY_ASSERT(DiaryDB().getDailyTotals(bob, day, QString(), 0), "endDate");
}

void TestStores::singleProfileWithoutFamily()
{
    _db.stop();
    QVERIFY(_db.start(false));
    newProfile(QStringLiteral("Only"));
    LM_VERIFY_ASSERT(newProfile(QStringLiteral("Second")), "numUsers() < 1");
}

void TestStores::targetsInForce_data()
{
    QTest::addColumn<QString>("day");
    QTest::addColumn<double>("calories");
    QTest::newRow("before any") << QStringLiteral("20260215") << -1.0;
    QTest::newRow("on the first") << QStringLiteral("20260301") << 2000.0;
    QTest::newRow("between") << QStringLiteral("20260305") << 2000.0;
    QTest::newRow("replaced") << QStringLiteral("20260315") << 1800.0;
}

void TestStores::targetsInForce()
{
    QFETCH(QString, day);
    Targets march1;
    march1.values[ENERGY] = 2000;
    march1.values[FAT] = 65;
    UserDB::setTargets(_user, QStringLiteral("20260301"), march1);
    Targets march10 = march1;
    march10.values[ENERGY] = 1800;
    UserDB::setTargets(_user, QStringLiteral("20260310"), march10);

    const Targets targets = UserDB::getTargets(_user, day);
    QTEST(targets.values[ENERGY], "calories");
    QCOMPARE(targets.values[FAT], targets.date.isEmpty() ? -1.0 : 65.0);
    QCOMPARE(targets.values[SODIUM], -1.0); // never set: unknown, not zero
}

void TestStores::weightTrend_data()
{
    QTest::addColumn<QList<double>>("weights"); // oldest first, one a day
    QTest::addColumn<QString>("trend");
    QTest::newRow("single check-in") << QList<double>{70.0} << "nochange";
    QTest::newRow("tiny change") << QList<double>{70.0, 70.004} << "nochange";
    QTest::newRow("exactly +0.005") << QList<double>{70.0, 70.005} << "increase";
    QTest::newRow("exactly -0.005") << QList<double>{70.0, 69.995} << "decrease";
    QTest::newRow("+0.3") << QList<double>{70.0, 70.3} << "bigincrease";
    QTest::newRow("-0.3") << QList<double>{70.0, 69.7} << "bigdecrease";
    QTest::newRow("only the last two count") << QList<double>{90.0, 70.0, 70.1} << "increase";
}

void TestStores::weightTrend()
{
    QFETCH(QList<double>, weights);
    QDate day(2026, 5, 1);
    for (double weight : weights) {
        CheckIn checkIn;
        checkIn.date = day.toString(QStringLiteral("yyyyMMdd"));
        checkIn.weight = weight;
        UserDB::setCheckIn(_user, checkIn);
        day = day.addDays(1);
    }
    QTEST(UserDB::weightTrend(_user, QStringLiteral("20261231")), "trend");
}

void TestStores::checkInsAndWater()
{
    CheckIn checkIn;
    checkIn.date = QStringLiteral("20260310");
    checkIn.weight = 61.5;
    checkIn.waist = 70;
    checkIn.note = UserDB::kNoNote;
    UserDB::setCheckIn(_user, checkIn);
    checkIn.note = QStringLiteral("after the holidays");
    checkIn.weight = 61.0;
    UserDB::setCheckIn(_user, checkIn); // same day: one row, updated
    QCOMPARE(column(QStringLiteral("SELECT COUNT(*) FROM user_checkins")), QStringList{QStringLiteral("1")});

    const std::optional<CheckIn> latest = UserDB::getLatestCheckIn(_user, QStringLiteral("20260401"));
    QVERIFY(latest);
    QCOMPARE(latest->date, QStringLiteral("20260310"));
    QCOMPARE(latest->weight, 61.0);
    QCOMPARE(latest->chest, -1.0);
    QCOMPARE(latest->note, QStringLiteral("after the holidays"));
    QVERIFY(!UserDB::getCheckIn(_user, QStringLiteral("20260401")));
    QVERIFY(!UserDB::hasOtherWeight(_user, QStringLiteral("20260310")));
    UserDB::removeCheckIn(_user, QStringLiteral("20260310"));
    QVERIFY(!UserDB::getLatestCheckIn(_user, QStringLiteral("20260401")));

    QCOMPARE(UserDB::getWater(_user, QStringLiteral("20260310")), 0);
    UserDB::setWater(_user, QStringLiteral("20260310"), 6);
    UserDB::setWater(_user, QStringLiteral("20260310"), 8);
    QCOMPARE(UserDB::getWater(_user, QStringLiteral("20260310")), 8);
    QCOMPARE(column(QStringLiteral("SELECT COUNT(*) FROM water_diary")), QStringList{QStringLiteral("1")});
}

void TestStores::foodEntries()
{
    const DiaryDB diary;
    FoodDiaryItem item = food(_user, QStringLiteral("20260310"), LUNCH, 95.0f, 0.3f);
    diary.addFoodEntry(item);
    QVERIFY(item.food_id > 0);
    LM_VERIFY_ASSERT(diary.addFoodEntry(item), "fdi.food_id < 0");

    FoodDiaryItem read = diary.getFoodEntry(item.food_id);
    QCOMPARE(read.food_name, item.food_name);
    QCOMPARE(read.getNutrient(ENERGY), 95.0f);
    QCOMPARE(read.getNutrient(FAT), 0.3f);
    QCOMPARE(read.getNutrient(SODIUM), -1.0f); // stored as NULL, read as unknown
    QCOMPARE(column(QStringLiteral("SELECT sodium FROM food_diary")), QStringList{QStringLiteral("NULL")});

    read.meal = DINNER;
    read.size = 2.0f;
    diary.updateFoodEntry(read.food_id, read);
    QCOMPARE(diary.getFoodEntry(item.food_id).meal, int(DINNER));
    LM_VERIFY_ASSERT(diary.updateFoodEntry(read.food_id + 1, read), "food_id==fdi.food_id");

    QTest::ignoreMessage(QtWarningMsg, "DiaryDB::getFoodEntry didn't return a proper result - couldn't find record");
    QCOMPARE(diary.getFoodEntry(9999).food_id, -1);

    ExerciseDiaryItem walk = exercise(_user, QStringLiteral("20260310"), 30, 4.5f);
    diary.addExerciseEntry(walk);
    QVERIFY(walk.ex_id > 0);
    QCOMPARE(diary.getExerciseEntry(walk.ex_id).energy(), 135.0f);
    QTest::ignoreMessage(QtWarningMsg, "AIEEEE! couldn't get exercise #9999");
    QCOMPARE(diary.getExerciseEntry(9999).ex_id, -1);
}

void TestStores::softDeleteMarksEveryDevice()
{
    // One more device besides the website and metrics: its triggers come with the next start.
    column(QStringLiteral("INSERT INTO userdata_sync_devices (id, name) VALUES (5, 'handheld')"));
    QVERIFY(_db.restart());
    const DiaryDB diary;
    FoodDiaryItem item = food(_user, QStringLiteral("20260310"), BREAKFAST, 200);
    diary.addFoodEntry(item);
    QCOMPARE(column(QStringLiteral("SELECT device || ':' || state FROM food_diary_sync ORDER BY device")),
             (QStringList{QStringLiteral("0:1"), QStringLiteral("2:1"), QStringLiteral("5:1")}));

    diary.removeFoodEntry(item.food_id);
    QCOMPARE(column(QStringLiteral("SELECT status FROM food_diary")), QStringList{QStringLiteral("2")});
    QCOMPARE(column(QStringLiteral("SELECT device || ':' || state FROM food_diary_sync ORDER BY device")),
             (QStringList{QStringLiteral("0:2"), QStringLiteral("2:2"), QStringLiteral("5:2")}));
    // Still in the day (callers skip it), gone from sums and the calendar.
    QCOMPARE(diary.getDay(_user, QStringLiteral("20260310")).foods.constFirst().status, int(STATUS_DELETED));
    QVERIFY(diary.getDailyTotals(_user, QStringLiteral("20260301"), QStringLiteral("20260331"), 0).isEmpty());
    QVERIFY(diary.getDatesWithEntries(_user, QDate(2026, 3, 1), QDate(2026, 3, 31), false).isEmpty());
    QCOMPARE(diary.getDatesWithEntries(_user, QDate(2026, 3, 1), QDate(2026, 3, 31), true).size(), 1);
}

void TestStores::dailyTotals_data()
{
    QTest::addColumn<int>("filter");
    QTest::addColumn<double>("calories");
    QTest::addColumn<double>("burned");
    QTest::newRow("all meals") << 0 << 1110.0 << 150.0;
    QTest::newRow("all snacks") << -2 << 110.0 << 0.0;
    QTest::newRow("lunch") << 3 << 1000.0 << 0.0;
    QTest::newRow("exercise") << 8 << 0.0 << 150.0;
}

void TestStores::dailyTotals()
{
    QFETCH(int, filter);
    const DiaryDB diary;
    for (FoodDiaryItem item : {food(_user, QStringLiteral("20260310"), LUNCH, 1000, 30),
                               food(_user, QStringLiteral("20260310"), SNACK_1, 50),
                               food(_user, QStringLiteral("20260310"), SNACK_3, 60),
                               food(_user, QStringLiteral("20260311"), DINNER, 700)})
        diary.addFoodEntry(item);
    ExerciseDiaryItem walk = exercise(_user, QStringLiteral("20260310"), 30, 5);
    diary.addExerciseEntry(walk);

    const QMap<QString, DailyTotal> totals =
        diary.getDailyTotals(_user, QStringLiteral("20260310"), QStringLiteral("20260310"), filter);
    QCOMPARE(totals.keys(), QStringList{QStringLiteral("20260310")});
    const DailyTotal &day = totals.first();
    QTEST(day.nutrients[ENERGY], "calories");
    QTEST(day.burned, "burned");
    if (filter == 0)
        QCOMPARE(day.nutrients[FAT], 30.0); // unknown values add nothing
}

void TestStores::datesWithEntries()
{
    const DiaryDB diary;
    FoodDiaryItem first = food(_user, QStringLiteral("20260301"), LUNCH, 100);
    diary.addFoodEntry(first);
    for (const char *day : {"20260301", "20260315", "20260331"}) {
        ExerciseDiaryItem walk = exercise(_user, QLatin1String(day), 10, 3);
        diary.addExerciseEntry(walk);
    }
    UserDB::setWater(_user, QStringLiteral("20260320"), 3);
    UserDB::setWater(_user, QStringLiteral("20260321"), 0);

    // Exercise is counted only strictly inside the range; food and water inclusively.
    QCOMPARE(diary.getDatesWithEntries(_user, QDate(2026, 3, 1), QDate(2026, 3, 31), false),
             (QSet<QString>{QStringLiteral("20260301"), QStringLiteral("20260315"), QStringLiteral("20260320")}));
    QCOMPARE(diary.getAllDatesWithEntries(_user, false).size(), 4);
}

void TestStores::publishing()
{
    const DiaryDB diary;
    FoodDiaryItem kept = food(_user, QStringLiteral("20260301"), LUNCH, 100);
    FoodDiaryItem removed = food(_user, QStringLiteral("20260302"), LUNCH, 100);
    diary.addFoodEntry(kept);
    diary.addFoodEntry(removed);
    diary.removeFoodEntry(removed.food_id);
    ExerciseDiaryItem walk = exercise(_user, QStringLiteral("20260303"), 10, 3);
    diary.addExerciseEntry(walk);
    QCOMPARE(diary.getUnpublishedDates(_user),
             (QSet<QString>{QStringLiteral("20260301"), QStringLiteral("20260302"), QStringLiteral("20260303")}));

    diary.markPublished(_user);
    QVERIFY(diary.getUnpublishedDates(_user).isEmpty());
    // The deletion reached the website: its mark is gone; the live rows are in step.
    QCOMPARE(column(QStringLiteral("SELECT food_id || ':' || state FROM food_diary_sync WHERE device = 0")),
             QStringList{QString::number(kept.food_id) + QStringLiteral(":0")});
    LM_VERIFY_ASSERT(diary.markPublished(-1), "user_id!=-1");
}

void TestStores::mealPlanDeletesForReal()
{
    const MealPlanDB plan;
    FoodDiaryItem item = food(_user, QStringLiteral("20260310"), BREAKFAST, 300);
    plan.addFoodEntry(item);
    ExerciseDiaryItem walk = exercise(_user, QStringLiteral("20260310"), 10, 3);
    walk.ex_id = 77; // plan entries may bring their own id
    plan.addExerciseEntry(walk);
    QCOMPARE(walk.ex_id, 77);
    plan.removeFoodEntry(item.food_id);
    plan.removeExerciseEntry(77);
    QCOMPARE(column(QStringLiteral("SELECT COUNT(*) FROM food_mealplan")), QStringList{QStringLiteral("0")});
    QCOMPARE(column(QStringLiteral("SELECT COUNT(*) FROM exer_mealplan")), QStringList{QStringLiteral("0")});
}

void TestStores::savedMeals()
{
    const int bob = newProfile(QStringLiteral("Bob"));
    QCOMPARE(SavedMealDB::getCategories(0),
             (QList<QPair<int, QString>>{{_user + 2, QStringLiteral("My Saved Meals")},
                                         {bob + 2, QStringLiteral("My Saved Meals")}}));
    QVERIFY(SavedMealDB::getCategories(5).isEmpty());

    SavedMeal porridge{-1, _user, QStringLiteral("porridge"), {food(-1, QString(), 0, 150), food(-1, QString(), 0, 80)}};
    SavedMeal apple{-1, _user, QStringLiteral("Apple snack"), {food(-1, QString(), 0, 95)}};
    SavedMeal unnamed{-1, _user, QString(), {food(-1, QString(), 0, 1)}};
    SavedMeal shared{-1, -1, QStringLiteral("Sunday roast"), {food(-1, QString(), 0, 700)}};
    for (SavedMeal *meal : {&porridge, &apple, &unnamed, &shared})
        QVERIFY(SavedMealDB::createMeal(*meal) > 0);
    LM_VERIFY_ASSERT(SavedMealDB::createMeal(apple), "meal_id < 0");

    const auto names = [](int category) {
        QStringList list;
        for (const auto &[id, name] : SavedMealDB::getMeals(category))
            list.append(name);
        return list;
    };
    QCOMPARE(names(SavedMealDB::categoryOf(_user)), (QStringList{QStringLiteral("Apple snack"), QStringLiteral("porridge")}));
    QCOMPARE(names(SavedMealDB::kSharedCategory), QStringList{QStringLiteral("Sunday roast")});
    QVERIFY(names(SavedMealDB::categoryOf(bob)).isEmpty());

    const QList<FoodDiaryItem> added =
        SavedMealDB::addMealToDay(porridge.meal_id, bob, QStringLiteral("20260310"), BREAKFAST);
    QCOMPARE(added.size(), 2);
    const DiaryDay day = DiaryDB().getDay(bob, QStringLiteral("20260310"));
    QCOMPARE(day.total(BREAKFAST, ENERGY), 230.0f);
    QCOMPARE(day.foods.constFirst().ref_id, 9003); // the food it came from: its serving can change

    SavedMealDB::renameMeal(apple.meal_id, QStringLiteral("Zesty apple"));
    SavedMealDB::moveMeal(apple.meal_id, bob);
    QCOMPARE(names(SavedMealDB::categoryOf(bob)), QStringList{QStringLiteral("Zesty apple")});
    SavedMealDB::deleteMeal(porridge.meal_id);
    QCOMPARE(names(SavedMealDB::categoryOf(_user)), QStringList{});
    QCOMPARE(column(QStringLiteral("SELECT DISTINCT status FROM food_diary WHERE group_id = %1").arg(porridge.meal_id)),
             QStringList{QStringLiteral("2")});
    QCOMPARE(SavedMealDB::getMealFoods(shared.meal_id).constFirst().getNutrient(ENERGY), 700.0f);
}

void TestStores::deleteUser()
{
    const int bob = newProfile(QStringLiteral("Bob"));
    FoodDiaryItem item = food(bob, QStringLiteral("20260310"), LUNCH, 100);
    DiaryDB().addFoodEntry(item);
    UserDB::setWater(bob, QStringLiteral("20260310"), 2);
    UserDB::deleteUser(bob);
    QCOMPARE(UserDB::getUserIds(), QList<int>{_user});
    QCOMPARE(column(QStringLiteral("SELECT COUNT(*) FROM food_diary")), QStringList{QStringLiteral("0")});
    QCOMPARE(column(QStringLiteral("SELECT COUNT(*) FROM water_diary")), QStringList{QStringLiteral("0")});
}

QTEST_GUILESS_MAIN(TestStores)
#include "tst_stores.moc"
