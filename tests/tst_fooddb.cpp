// The food and exercise databases: the real reference file, custom items in the user database,
// the id spaces and roots, the dynamic index and favourites.

#include "app/notificationdispatcher.h"
#include "dbfixture.h"
#include "staticdb/exdb.h"
#include "staticdb/fooddb.h"
#include "staticdb/staticdbwriter.h"

#include <QSignalSpy>

namespace {

// Names of the shown items below a category, depth first.
QStringList shownItems(const IndexedDB &db, quint32 category)
{
    QStringList names;
    std::unique_ptr<BrowsableDBIterator> it(db.children(category, FLAG_SHOWN, 0));
    while (const IndexEntry *e = it ? it->next() : nullptr) {
        if (db.isCategory(e)) {
            names += QLatin1Char('[') + db.nameText(e) + QLatin1Char(']');
            names += shownItems(db, e->id);
        } else {
            names += db.nameText(e);
        }
    }
    return names;
}

QStringList list(std::initializer_list<const char *> names)
{
    QStringList result;
    for (const char *name : names)
        result.append(QString::fromUtf8(name));
    return result;
}

std::array<float, FV_COUNT> calories(float value)
{
    std::array<float, FV_COUNT> values;
    values.fill(kAbsentValue);
    values[FV_CALORIES] = value;
    return values;
}

} // namespace

class TestFoodDb : public QObject
{
    Q_OBJECT

private:
    DbFixture _db;

private slots:
    void init()
    {
        QVERIFY(_db.start());
        QVERIFY(QDir().mkpath(LmSettings::contentPath()));
        QVERIFY(QFile::copy(binDir() + QStringLiteral("/content/static.db"), StaticDB::fileName()));
    }
    void cleanup() { _db.stop(); }

    void realFoods_data();
    void realFoods();
    void realExercises();
    void realSearch_data();
    void realSearch();
    void payloadDecoding();
    void exerciseWithoutBurnRate();
    void customFoodIdsAndRoots();
    void customTreeIndexAndSearch();
    void deepCustomCategories();
    void customExercises();
    void favorites();
};

void TestFoodDb::realFoods_data()
{
    QTest::addColumn<int>("food");
    QTest::addColumn<int>("serving");
    QTest::addColumn<float>("size");
    QTest::addColumn<QString>("servingName");
    QTest::addColumn<float>("calories");
    QTest::addColumn<float>("fiber");

    QTest::newRow("apple, two medium") << 9003 << 4 << 2.0f << "1 medium (3\" dia)" << 189.28f << 8.736f;
    QTest::newRow("apple, grams") << 9003 << -1 << 250.0f << "g" << 130.0f << 6.0f;
    QTest::newRow("cheddar, ounce") << 1009 << -2 << 1.0f << "oz" << 114.534f << 0.0f;
    QTest::newRow("cheddar, a slice") << 1009 << 6 << 3.0f << "1 slice (1 oz)" << 339.36f << 0.0f;
    // USDA gives no fibre for this one: unknown stays unknown through the arithmetic.
    QTest::newRow("egg mix, fibre unknown") << 1210 << -1 << 10.0f << "g" << 55.5f << -1.0f;
    // Sequence numbers with a gap (no 4) keep their own ids.
    QTest::newRow("egg, small") << 1123 << 7 << 1.0f << "1 small" << 54.34f << 0.0f;
}

void TestFoodDb::realFoods()
{
    QFETCH(int, food);
    QFETCH(int, serving);
    QFETCH(float, size);
    FoodDB foods(0);
    FoodDiaryItem item;
    item.changeFood(food);
    item.setServing(serving);
    item.setSize(size);
    QTEST(item.serv_name, "servingName");
    QTEST(item.getNutrient(ENERGY), "calories");
    QTEST(item.getNutrient(FIBER), "fiber");

    // Servings come sorted by size, the generic ones after them.
    const QList<FoodServing> servings = item.getServings();
    for (qsizetype i = 1; i + 2 < servings.size(); ++i)
        QVERIFY(servings.at(i - 1).quantity <= servings.at(i).quantity);
    QCOMPARE(servings.constLast().name, QStringLiteral("oz"));
    QCOMPARE(foods.staticDB()->secondText(food), QStringLiteral("USDA SR28"));
    QCOMPARE(foods.staticDB()->numericAttribute(food), quint32(food));
}

void TestFoodDb::realExercises()
{
    FoodDB foods(0);
    ExDB exercises(0);
    QCOMPARE(foods.name(9003), QStringLiteral("Apples, raw, with skin"));
    Exercise running;
    QVERIFY(exercises.exercise(12150, &running));
    QCOMPARE(running.name, QStringLiteral("Running, (Taylor code 200)"));
    QCOMPARE(running.scale, 8.0f * 0.0175f);
    QVERIFY(!exercises.exercise(9003, &running)); // a food's id is no exercise

    // The tree: 25 food groups, 21 activity headings.
    std::unique_ptr<BrowsableDBIterator> groups(foods.staticDB()->children(0, 0, 0));
    int count = 0;
    while (groups->next())
        ++count;
    QCOMPARE(count, 25);
    std::unique_ptr<BrowsableDBIterator> headings(exercises.staticDB()->children(0, FLAG_CATEGORY, 0));
    count = 0;
    while (headings->next())
        ++count;
    QCOMPARE(count, 21);
    LM_VERIFY_ASSERT(foods.name(0x3000000), "index >= 0 && index < 0x3000000");
    LM_VERIFY_ASSERT(foods.staticDB()->name(12), "item && item->name");
    Food none;
    LM_VERIFY_ASSERT(foods.staticDB()->food(12, &none), "food");
}

void TestFoodDb::realSearch_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<QString>("found");
    // Food groups and the subcategories of a shared leading word are not searched: every shown
    // food holds each word in its own name, and no exclusion word.
    QTest::newRow("pie -apple") << "pie -apple"
                                << "Pie, cherry, commercially prepared";
    QTest::newRow("chicken -fried") << "chicken -fried"
                                    << "Chicken, broilers or fryers, meat and skin and giblets and neck, raw";
    QTest::newRow("three exclusions") << "cheddar -imitation -reduced -low"
                                      << "Cheese, cheddar";
    QTest::newRow("two words") << "apple raw"
                               << "Apples, raw, with skin";
}

void TestFoodDb::realSearch()
{
    QFETCH(QString, query);
    QFETCH(QString, found);
    FoodDB foods(0);
    QVERIFY(foods.staticDB()->search(query, false, 0));
    QStringList names = shownItems(*foods.staticDB(), 0);
    names.removeIf([](const QString &name) { return name.startsWith(QLatin1Char('[')); });
    QVERIFY2(names.contains(found), qPrintable(names.join(u'|')));
    for (const QString &word : query.split(u' ')) {
        const bool excluded = word.startsWith(u'-');
        for (const QString &name : std::as_const(names)) {
            const bool holds = name.contains(excluded ? word.mid(1) : word, Qt::CaseInsensitive);
            QVERIFY2(holds != excluded, qPrintable(name));
        }
    }
}

void TestFoodDb::payloadDecoding()
{
    std::vector<std::optional<float>> values(30);
    values[POS_CALORIES] = 52.0f;
    values[POS_SUGAR] = 10.39f;
    values[5] = 1.0f; // a position the program does not read
    const QByteArray payload = StaticDbWriter::foodPayload(
        9003, "USDA SR28", values, 'V', 100.0f, {{182.0f, "1 medium"}, {125.0f, "1 cup"}, {5.0f, "1 slice"}});
    Food food;
    quint32 numeric = 0;
    QString second;
    QVERIFY(FoodDBStatic::decodePayload(payload, 0b1011, &food, &numeric, &second));
    QCOMPARE(numeric, 9003u);
    QCOMPARE(second, QStringLiteral("USDA SR28"));
    QCOMPARE(food.values[FV_CALORIES], 52.0f);
    QCOMPARE(food.values[FV_SUGAR], 10.39f);
    QCOMPARE(food.values[FV_PROTEIN], kAbsentValue);
    QCOMPARE(food.nutrients()[PROTEIN], kUnknownNutrient);
    QCOMPARE(food.measureKind, 'V');
    QCOMPARE(food.referenceQuantity, 100.0f);
    // Written in sequence order 1, 2, 4; read back by size.
    QCOMPARE(food.servings.size(), 3);
    QCOMPARE(food.servings.at(0).name, QStringLiteral("1 slice"));
    QCOMPARE(food.servings.at(0).id, 4);
    QCOMPARE(food.servings.at(2).id, 1);
    // A mask that does not fit numbers the servings in file order.
    QVERIFY(FoodDBStatic::decodePayload(payload, 0, &food));
    QCOMPARE(food.servings.at(0).id, 3);

    // No cut of the payload decodes, and none reads past its end (the sanitizers watch).
    for (qsizetype length = 0; length < payload.size(); ++length) {
        const QByteArray cut = payload.left(length);
        QVERIFY2(!FoodDBStatic::decodePayload(QByteArrayView(cut.constData(), length), 0, &food),
                 qPrintable(QString::number(length)));
    }
}

void TestFoodDb::exerciseWithoutBurnRate()
{
    StaticDbNode root;
    root.category = true;
    StaticDbNode with;
    with.id = 100;
    with.name = "Rowing";
    with.payload = StaticDbWriter::exercisePayload(0.1f);
    StaticDbNode without = with;
    without.id = 101;
    without.payload = StaticDbWriter::exercisePayload(std::nullopt);
    root.children = {with, without};
    StaticDbWriter writer(QDate(2026, 1, 1));
    writer.addChunk(1, StaticDbNode{true, 0, {}, 0, 0, {}, {}});
    writer.addChunk(2, root);
    QString error;
    QVERIFY2(writer.write(StaticDB::fileName(), &error), qPrintable(error));

    ExDB exercises(0);
    Exercise found;
    QVERIFY(exercises.exercise(100, &found));
    QTest::ignoreMessage(QtWarningMsg, "ExDBStatic::getExercise - no burn rate!");
    QVERIFY(!exercises.exercise(101, &found));
}

void TestFoodDb::customFoodIdsAndRoots()
{
    FoodDBDynamic foods(7);
    QCOMPARE(FoodDBDynamic::userRootId(7), 0x1FFF007);
    QCOMPARE(FoodDBDynamic::userRootId(7), 0x1FFF007);
    QCOMPARE(FoodDBDynamic::userRootId(-1), 0x2000000);
    QCOMPARE(
        DbTest::column(QStringLiteral("SELECT category_id || ' ' || name FROM custom_food_cats ORDER BY 1")),
        (QStringList{QStringLiteral("33550343 My Foods"), QStringLiteral("33554432 Shared Foods")}));
    LM_VERIFY_ASSERT(FoodDBDynamic::userRootId(4096), "user_id >= -1 && user_id < 4096");

    // Roots lie above the range the allocation looks at.
    QCOMPARE(foods.addCategory(0x1FFF007, QStringLiteral("Baking")), 0x1000000);
    QCOMPARE(foods.addCategory(0x1FFF007, QStringLiteral("Drinks")), 0x1000001);
    QCOMPARE(foods.addFood(QStringLiteral("Scone"), QStringLiteral("1 scone"), calories(180), 0x1000000),
             0x1000000);
    QCOMPARE(foods.addFood(QStringLiteral("Tea"), QStringLiteral("1 mug"), calories(2), 0x1000001),
             0x1000001);

    // The facade routes by id; a custom food is per serving, with size scaling it.
    FoodDB all(7);
    QCOMPARE(all.name(0x1000000), QStringLiteral("Scone"));
    FoodDiaryItem item;
    item.changeFood(0x1000000);
    item.setSize(1.5f);
    QCOMPARE(item.serv_name, QStringLiteral("1 scone"));
    QCOMPARE(item.getNutrient(ENERGY), 270.0f);
    QCOMPARE(item.getNutrient(FAT), kUnknownNutrient);
    QString name;
    QVERIFY(!all.foodName(0x1000005, &name));
    QVERIFY(!all.foodName(12, &name));

    QVERIFY(foods.updateFood(0x1000001, QStringLiteral("Green tea"), QStringLiteral("1 cup"), calories(1)));
    Food tea;
    QVERIFY(all.food(0x1000001, &tea));
    QCOMPARE(tea.name, QStringLiteral("Green tea"));
    QCOMPARE(tea.servings.constFirst().name, QStringLiteral("1 cup"));
    QCOMPARE(tea.values[FV_CALORIES], 1.0f);
}

void TestFoodDb::customTreeIndexAndSearch()
{
    QSignalSpy reloaded(NotificationDispatcher::instance(), &NotificationDispatcher::notified);
    FoodDBDynamic foods(0);
    const int root = FoodDBDynamic::userRootId(0);
    const int fruit = foods.addCategory(root, QStringLiteral("Fruit"));
    const int tropical = foods.addCategory(fruit, QStringLiteral("tropical"));
    for (const char *name : {"cherry", "apple", "Banana"})
        foods.addFood(QString::fromLatin1(name), QStringLiteral("1"), calories(50), fruit);
    const int mango = foods.addFood(QStringLiteral("Mango"), QStringLiteral("1"), calories(60), tropical);
    foods.addFood(QStringLiteral("Apple pie"), QStringLiteral("1 slice"), calories(300),
                  FoodDBDynamic::userRootId(-1));
    QVERIFY(reloaded.count() >= 6);
    QCOMPARE(reloaded.constLast().constFirst().toString(), QStringLiteral("dynamicdb_reloaded_notification"));

    // Categories before foods, each in case-insensitive order; the shared root first.
    QCOMPARE(shownItems(foods, 0), list({"[Shared Foods]", "Apple pie", "[My Foods]", "[Fruit]", "[tropical]",
                                         "Mango", "apple", "Banana", "cherry"}));
    QCOMPARE(foods.itemsOf(fruit).constFirst().second, QStringLiteral("apple"));

    QVERIFY(foods.search(QStringLiteral("apple"), false, 0));
    QCOMPARE(shownItems(foods, 0), list({"[Shared Foods]", "Apple pie", "[My Foods]", "[Fruit]", "apple"}));
    QVERIFY(foods.search(QStringLiteral("an -tropical"), false, 0)); // Mango is under tropical
    QCOMPARE(shownItems(foods, 0), list({"[My Foods]", "[Fruit]", "Banana"}));

    // Renames, moves and deletions show in the index at once.
    QVERIFY(foods.renameCategory(tropical, QStringLiteral("Exotic")));
    QVERIFY(foods.moveItem(mango, fruit));
    QVERIFY(foods.moveCategory(tropical, FoodDBDynamic::userRootId(-1)));
    QCOMPARE(shownItems(foods, 0), list({"[Shared Foods]", "[Exotic]", "Apple pie", "[My Foods]", "[Fruit]",
                                         "apple", "Banana", "cherry", "Mango"}));
    QVERIFY(foods.moveCategory(tropical, fruit));
    QVERIFY(foods.moveItem(mango, tropical));
    QVERIFY(foods.deleteCategory(fruit)); // its foods, its subcategory and that one's food
    QCOMPARE(shownItems(foods, 0), list({"[Shared Foods]", "Apple pie", "[My Foods]"}));
    QCOMPARE(DbTest::column(QStringLiteral("SELECT COUNT(*) FROM custom_foods")),
             QStringList{QStringLiteral("1")});
    QCOMPARE(DbTest::column(QStringLiteral("SELECT COUNT(*) FROM custom_food_cats")),
             QStringList{QStringLiteral("2")});

    // A move that makes a cycle leaves the looping part out instead of hanging the build.
    const int a = foods.addCategory(root, QStringLiteral("A"));
    const int b = foods.addCategory(a, QStringLiteral("B"));
    QVERIFY(foods.moveCategory(a, b));
    QCOMPARE(shownItems(foods, 0), list({"[Shared Foods]", "Apple pie", "[My Foods]"}));
    QVERIFY(foods.deleteCategory(a)); // and the loop goes, once round
    QCOMPARE(DbTest::column(QStringLiteral("SELECT COUNT(*) FROM custom_food_cats")),
             QStringList{QStringLiteral("2")});
}

void TestFoodDb::deepCustomCategories()
{
    // However deep the rows nest categories, the index builds, searches and deletes.
    constexpr int depth = 40000;
    FoodDBDynamic foods(0);
    const int top = kFirstCustomId;
    LmSqlQueryPtr chain = LmSqlDb::instance()->prepare(
        QStringLiteral(
            "WITH RECURSIVE level(n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM level WHERE n + 1 < %1) "
            "INSERT INTO custom_food_cats(category_id, parent_id, name) "
            "SELECT %2 + n, CASE n WHEN 0 THEN %3 ELSE %2 + n - 1 END, 'Level' FROM level")
            .arg(depth)
            .arg(top)
            .arg(FoodDBDynamic::userRootId(0)));
    QVERIFY(chain->exec());
    const int pie =
        foods.addFood(QStringLiteral("Bottom pie"), QStringLiteral("1"), calories(1), top + depth - 1);
    QVERIFY(pie >= 0);
    QVERIFY(foods.search(QStringLiteral("pie"), false, 0));
    QVERIFY(foods.flags(foods.lookup(quint32(pie), false)) & FLAG_SHOWN);
    QVERIFY(foods.flags(foods.lookup(quint32(top), true)) & FLAG_EXPANDED);
    QVERIFY(foods.deleteCategory(top));
    QCOMPARE(DbTest::column(QStringLiteral("SELECT COUNT(*) FROM custom_food_cats WHERE name = 'Level'")),
             QStringList{QStringLiteral("0")});
    QVERIFY(!foods.lookup(quint32(pie), false));
}

void TestFoodDb::customExercises()
{
    ExDBDynamic exercises(3);
    const int root = ExDBDynamic::userRootId(3);
    QCOMPARE(root, 0x1FFF003);
    for (const char *name : {"cycling", "aerobics", "Boxing"})
        exercises.addExercise(root, QString::fromLatin1(name), 0.1f);
    QCOMPARE(exercises.itemsOf(root).constFirst(), qMakePair(0x1000001, QStringLiteral("aerobics")));
    QCOMPARE(shownItems(exercises, 0),
             list({"[Shared Exercises]", "[My Exercises]", "aerobics", "Boxing", "cycling"}));
    const int club = exercises.addCategory(root, QStringLiteral("Club"));
    QCOMPARE(club, 0x1000000);
    QVERIFY(exercises.moveItem(0x1000000, club));
    QVERIFY(exercises.updateExercise(0x1000000, QStringLiteral("Cycling club"), 0.15f));
    ExDB all(3);
    Exercise found;
    QVERIFY(all.exercise(0x1000000, &found));
    QCOMPARE(found.name, QStringLiteral("Cycling club"));
    QCOMPARE(found.scale, 0.15f);
    QCOMPARE(exercises.categoryOf(0x1000000), club);
    QVERIFY(exercises.deleteCategory(club));
    QVERIFY(!all.exercise(0x1000000, &found));
    QVERIFY(exercises.deleteItem(0x1000001));
    QCOMPARE(exercises.itemsOf(root).size(), 1);
    LM_VERIFY_ASSERT(ExDBDynamic::userRootId(4096), "user_id >= -1 && user_id < 4096");
    LM_VERIFY_ASSERT(all.exercise(-1, &found), "index >= 0 && index < 0x3000000");
}

void TestFoodDb::favorites()
{
    QCOMPARE(Favorites::typeOf(0x01), int(Favorites::FOODS));
    QCOMPARE(Favorites::typeOf(0x03), int(Favorites::FOODS));
    QCOMPARE(Favorites::typeOf(0x02), int(Favorites::EXERCISES));
    QCOMPARE(Favorites::typeOf(0x05), int(Favorites::NONE));
    QVERIFY(Favorites::list(1, Favorites::NONE).isEmpty());

    QVERIFY(Favorites::add(1, Favorites::FOODS, 9003));
    QCOMPARE(Favorites::list(1, Favorites::FOODS), QList<int>{9003});
    QVERIFY(Favorites::add(1, Favorites::FOODS, 1009)); // the cached list is read again
    QCOMPARE(Favorites::list(1, Favorites::FOODS).size(), 2);
    QVERIFY(Favorites::list(1, Favorites::EXERCISES).isEmpty());
    QVERIFY(Favorites::list(2, Favorites::FOODS).isEmpty());
    QVERIFY(Favorites::contains(1, Favorites::FOODS, 1009));
    QVERIFY(!Favorites::contains(1, Favorites::EXERCISES, 1009));
    QVERIFY(Favorites::remove(1, Favorites::FOODS, 1009));
    QCOMPARE(Favorites::list(1, Favorites::FOODS), QList<int>{9003});
}

QTEST_GUILESS_MAIN(TestFoodDb)
#include "tst_fooddb.moc"
