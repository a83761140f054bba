// The ranked search over the real reference file and a profile's own items: what people type,
// what their history does to the order, and names in any script.

#include "db/diarydb.h"
#include "dbfixture.h"
#include "staticdb/exdb.h"
#include "staticdb/fooddb.h"
#include "staticdb/itemsearch.h"

using namespace Qt::StringLiterals;

namespace {

// The names of the first count results.
QStringList top(const ItemSearchResult &result, int count)
{
    QStringList names;
    for (qsizetype i = 0; i < result.items.size() && i < count; ++i)
        names.append(result.items.at(i).name);
    return names;
}

} // namespace

class TestItemSearch : public QObject
{
    Q_OBJECT

private:
    DbFixture _db;
    int _user = -1;

    // As the desktop's list does: ranked matches, or before any words the usual items.
    ItemSearchResult search(const QString &query, bool exercises, qsizetype limit = 25)
    {
        const SearchHistory history = loadSearchHistory(_user, exercises);
        const auto run = [&](IndexedDB &reference, DynamicDB *custom) {
            const ItemSearchResult found = searchItems(reference, custom, query, history, limit);
            return found.searched ? found : usualItems(reference, custom, history, limit);
        };
        if (exercises) {
            ExDB db(_user);
            return run(*db.staticDB(), db.dynamicDB());
        }
        FoodDB db(_user);
        return run(*db.staticDB(), db.dynamicDB());
    }

    // The food logged today that many times; false when the diary refused an entry.
    bool logFood(int food, int times)
    {
        const FoodDB foods(_user); // entries read their food's name and servings
        for (int i = 0; i < times; ++i) {
            FoodDiaryItem entry;
            entry.user_id = _user;
            entry.changeFood(food);
            entry.setDate(QDate::currentDate().toString(QStringLiteral("yyyyMMdd")));
            entry.meal = BREAKFAST;
            if (!DiaryDB().addFoodEntry(entry))
                return false;
        }
        return true;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(_db.start());
        QVERIFY(QDir().mkpath(LmSettings::contentPath()));
        QVERIFY(QFile::copy(binDir() + QStringLiteral("/content/static.db"), StaticDB::fileName()));
    }
    // Every case on a profile of its own: nothing logged, no favourites, no foods.
    void init()
    {
        UserProfile profile;
        profile.name = QStringLiteral("Ann ") + QString::fromUtf8(QTest::currentDataTag());
        profile.dob = QStringLiteral("19850402");
        _user = UserDB::createUser(profile, UserSettings(), 168, QStringLiteral("20260101"));
        QVERIFY(_user >= 0);
    }
    void cleanupTestCase() { _db.stop(); }

    void whatPeopleType_data();
    void whatPeopleType();
    void historyLeads_data();
    void historyLeads();
    void usualBeforeWords();
    void customNames_data();
    void customNames();
};

void TestItemSearch::whatPeopleType_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<bool>("exercises");
    QTest::addColumn<QString>("meant");
    QTest::addColumn<bool>("exact"); // found by the word search itself
    QTest::addColumn<int>("within"); // of the first
    const auto food = [](const char *query, const char *meant, bool exact = true, int within = 3) {
        QTest::newRow(query) << QString::fromUtf8(query) << false << QString::fromUtf8(meant) << exact
                             << within;
    };
    const auto exercise = [](const char *query, const char *meant, bool exact = true) {
        QTest::newRow(query) << QString::fromUtf8(query) << true << QString::fromUtf8(meant) << exact << 3;
    };
    // One word: the plain food, not its brands, baby foods or the words that hold it.
    food("apple", "Apples, raw, with skin");
    food("banana", "Bananas, raw");
    food("milk", "Milk, whole, 3.25% milkfat, with added vitamin D");
    food("egg", "Egg, whole, raw, fresh");
    food("chicken", "Chicken, broilers or fryers, meat only, raw", true, 1); // not its giblets
    food("potato", "Potatoes, flesh and skin, raw", true, 1);                // nor the skin alone
    food("eggs", "Egg, whole, raw, fresh");
    food("rice", "Rice, brown, long-grain, cooked");
    food("salmon", "Fish, salmon, pink, raw");
    food("coffee", "Beverages, coffee, brewed, prepared with tap water");
    food("oats", "Cereals, oats, regular and quick, unenriched, cooked with water (includes boiling and "
                 "microwaving), without salt");
    food("cheddar", "Cheese, cheddar");
    food("butter", "Butter, salted");
    food("avocado", "Avocados, raw, all commercial varieties");
    food("almonds", "Nuts, almonds");
    food("cola", "Beverages, carbonated, cola, regular");
    food("beer", "Alcoholic beverage, beer, regular, all");
    food("quinoa", "Quinoa, cooked");
    // Two words: the thing and its kind.
    food("brown rice", "Rice, brown, long-grain, cooked");
    food("greek yogurt", "Yogurt, Greek, plain, nonfat");
    food("orange juice", "Orange juice, raw");
    food("chicken noodle soup", "Soup, chicken noodle, canned, condensed");
    food("ground beef", "Beef, ground, unspecified fat content, cooked");
    food("peanut butter", "Peanut butter, chunk style, with salt");
    food("roasted chicken breast", "Chicken, broilers or fryers, breast, meat only, cooked, roasted", true,
         1); // not the deli's "Oven-roasted chicken breast roll"
    food("cheese pizza", "Pizza, cheese topping, regular crust, frozen, cooked"); // not a chain's
    food("chicken soup", "Soup, chicken broth, ready-to-serve"); // its group named, brands still fall
    food("soy milk", "Soymilk, original and vanilla, unfortified");
    food("mayonnaise", "Salad dressing, mayonnaise, regular"); // after its class
    food("sugar", "Sugars, granulated", true, 1);
    food("tomato", "Tomatoes, red, ripe, raw, year round average", true, 1); // not one colour
    food("diet cola",                                                        // not "other than cola"
         "Beverages, carbonated, low calorie, cola or pepper-type, with aspartame, without caffeine", true,
         1);
    food("white rice", "Rice, white, long-grain, regular, enriched, cooked"); // the kind most eaten
    food("grapes", "Grapes, red or green (European type, such as Thompson seedless), raw", true, 1);
    food("vodka", "Alcoholic beverage, distilled, vodka, 80 proof", true, 1); // not "all (gin, rum, vodka"
    food("bagel", "Bagels, plain, enriched, with calcium propionate (includes onion, poppy, sesame)", true,
         1); // "whole grain" is not the whole food
    food("milk 2%", "Milk, reduced fat, fluid, 2% milkfat, with added vitamin A and vitamin D", true, 1);
    food("oats cooked",
         "Cereals, oats, regular and quick, unenriched, cooked with water (includes boiling and "
         "microwaving), without salt",
         true, 1); // not "Oat bran, cooked"
    // Exclusions.
    food("egg -white", "Egg, whole, raw, fresh");
    food("broccoli -cooked", "Broccoli, raw");
    food("apple -juice -pie", "Apples, raw, with skin");
    // The singular of a plural in -ies, and words the names spell another way.
    food("blueberry", "Blueberries, raw");
    food("oatmeal", "Cereals, oats, regular and quick, unenriched, cooked with water (includes boiling and "
                    "microwaving), without salt");
    food("porridge",
         "Cereals, oats, regular and quick, unenriched, cooked with water (includes boiling and "
         "microwaving), without salt",
         false);
    food("yoghurt", "Yogurt, plain, whole milk, 8 grams protein per 8 ounce", false);
    food("courgette", "Squash, summer, zucchini, includes skin, raw", false);
    food("aubergine", "Eggplant, raw", false);
    food("bell pepper", "Peppers, sweet, red, raw", false);
    food("kiwi", "Kiwifruit, green, raw");
    food("icecream", "Ice creams, vanilla", false); // two words typed as one
    // Typos and accents.
    food("brocoli", "Broccoli, raw", false);
    food("bannana", "Bananas, raw", false);
    food("jalapeño", "Peppers, jalapeno, raw", false);
    food("fried egg", "Egg, whole, cooked, fried", true, 1);             // before "dried", a typo away
    food("baked salmon", "Fish, salmon, pink, cooked, dry heat", false); // named otherwise
    food("black coffee", "Beverages, coffee, brewed, prepared with tap water", false); // all but one word
    // Activities: the activity itself, from its own heading.
    exercise("walking", "Walking, 2.8 to 3.2 mph, level, moderate pace, firm surface");
    exercise("cycling", "Bicycling, general");
    exercise("biking", "Bicycling, general", false);
    exercise("jogging", "Jogging, general");
    exercise("yoga", "Yoga, Hatha");
    exercise("running", "Running, (Taylor code 200)");                      // not a marathon
    exercise("swimming", "Swimming, leisurely, not lap swimming, general"); // nor the butterfly
    exercise("gardening", "Gardening, general, moderate effort");
    exercise("aerobic", "Aerobic, general");
}

void TestItemSearch::whatPeopleType()
{
    QFETCH(QString, query);
    QFETCH(bool, exercises);
    QFETCH(QString, meant);
    QFETCH(bool, exact);
    QFETCH(int, within);
    const ItemSearchResult result = search(query, exercises);
    QVERIFY2(top(result, within).contains(meant), qPrintable(top(result, 3).join(QStringLiteral(" | "))));
    // Close matches come only when the word search finds little, and say so.
    QCOMPARE(result.exact > 0, exact);
    QCOMPARE(result.closeMatchNote(query).isEmpty(), result.close == 0);
}

void TestItemSearch::historyLeads_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<bool>("exercises");
    QTest::addColumn<int>("id");
    QTest::addColumn<int>("logged"); // times, this month
    QTest::addColumn<bool>("favourite");
    QTest::addColumn<bool>("leads");
    QTest::newRow("logged ten times") << "apple" << false << 9011 << 10 << false << true; // Apples, dried
    QTest::newRow("a favourite") << "apple" << false << 9016 << 0 << true << true;        // Apple juice
    QTest::newRow("the profile's activity") << "walking" << true << 17165 << 6 << false << true; // the dog
    QTest::newRow("inside a word: no") << "oat" << false << 1159 << 10 << true << false; // goat cheese
    QTest::newRow("a word on its side: no") << "salt" << false << 11742 << 10 << false << false; // broccoli
}

void TestItemSearch::historyLeads()
{
    QFETCH(QString, query);
    QFETCH(bool, exercises);
    QFETCH(int, id);
    QFETCH(int, logged);
    QFETCH(bool, favourite);
    if (exercises) {
        Exercise activity;
        QVERIFY(ExDB(_user).exercise(id, &activity));
        for (int i = 0; i < logged; ++i) {
            ExerciseDiaryItem entry;
            entry.user_id = _user;
            entry.date = QDate::currentDate().toString(QStringLiteral("yyyyMMdd"));
            entry.duration = 30;
            entry.rate = activity.scale * 70;
            entry.name = activity.name;
            QVERIFY(DiaryDB().addExerciseEntry(entry));
        }
    } else {
        QVERIFY(logFood(id, logged));
    }
    if (favourite)
        QVERIFY(Favorites::add(_user, exercises ? Favorites::EXERCISES : Favorites::FOODS, id));
    const ItemSearchResult result = search(query, exercises);
    QVERIFY(!result.items.isEmpty());
    QFETCH(bool, leads);
    QCOMPARE(result.items.constFirst().id == id, leads);
    // Before any words, the item is what the profile uses: alone in the list, whatever the query.
    const ItemSearchResult before = search(QString(), exercises);
    QCOMPARE(before.items.size(), 1);
    QCOMPARE(before.items.constFirst().id, id);
}

void TestItemSearch::usualBeforeWords()
{
    QCOMPARE(search(QString(), false).items.size(), 0);     // a new profile has none
    QVERIFY(logFood(9003, 2));                              // apples
    QVERIFY(logFood(9040, 5));                              // bananas
    QVERIFY(Favorites::add(_user, Favorites::FOODS, 1159)); // goat cheese, never logged
    QStringList order;
    for (const FoundItem &item : search(u"ba"_s, false).items) // too short to search
        order.append(QString::number(item.id));
    QCOMPARE(order, QStringList({u"1159"_s, u"9040"_s, u"9003"_s}));
}

void TestItemSearch::customNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("query");
    QTest::addColumn<bool>("exact");
    QTest::newRow("beyond Latin-1, its own spelling") << u"Żurek soup"_s << u"żurek"_s << true;
    QTest::newRow("beyond Latin-1, in capitals") << u"Żurek soup"_s << u"ŻUREK"_s << true;
    QTest::newRow("beyond Latin-1, without the accent") << u"Żurek soup"_s << u"zurek"_s << false;
    QTest::newRow("Greek") << u"Σπανακόπιτα"_s << u"σπανακόπιτα"_s << true;
    QTest::newRow("an accent the query leaves out") << u"Café crème"_s << u"cafe creme"_s << false;
}

void TestItemSearch::customNames()
{
    QFETCH(QString, name);
    QFETCH(QString, query);
    QFETCH(bool, exact);
    std::array<float, FV_COUNT> values;
    values.fill(kAbsentValue);
    values[FV_CALORIES] = 250;
    const int id =
        FoodDBDynamic(_user).addFood(name, QStringLiteral("1 slice"), values, DynamicDB::rootIdOf(_user));
    QVERIFY(id >= kFirstCustomId);
    const ItemSearchResult result = search(query, false);
    QCOMPARE(result.exact > 0, exact);
    QVERIFY(!result.items.isEmpty());
    QCOMPARE(result.items.constFirst().name, name);
    QVERIFY(result.items.constFirst().custom);
}

QTEST_GUILESS_MAIN(TestItemSearch)
#include "tst_itemsearch.moc"
