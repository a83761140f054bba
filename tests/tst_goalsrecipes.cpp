// Goals, recipes and saved meals as a person uses them in the desktop program: the real dialogs
// from the window's menus, under the offscreen platform, on a real diary.

#include "db/diarydb.h"
#include "db/recipedb.h"
#include "db/savedmealdb.h"
#include "dbfixture.h"
#include "staticdb/fooddb.h"
#include "ui/mainwindow.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QScopeGuard>
#include <QSpinBox>
#include <QTableWidget>
#include <QTimer>
#include <QUndoStack>

using namespace Qt::StringLiterals;

namespace {

QString dayString(const QDate &date)
{
    return date.toString(u"yyyyMMdd"_s);
}

// Runs action on the dialog of that name once it is up, the test's own modal loop kept going.
template <typename Action> void whenShown(const QString &name, Action action, bool *shown)
{
    QTimer::singleShot(0, [name, action, shown] {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        QVERIFY(dialog);
        QCOMPARE(dialog->objectName(), name);
        *shown = true;
        // The offscreen platform does not hand activation to a modal dialog by itself.
        QApplication::setActiveWindow(dialog);
        action(dialog);
    });
}

template <typename T> T *child(QObject *parent, const char *name)
{
    T *found = parent->findChild<T *>(QLatin1String(name));
    if (!found)
        qWarning("no %s", name);
    return found;
}

QList<FoodDiaryItem> todaysFoods(int user)
{
    QList<FoodDiaryItem> live;
    for (const FoodDiaryItem &food : DiaryDB().getDay(user, dayString(QDate::currentDate())).foods) {
        if (food.status == STATUS_LIVE)
            live.append(food);
    }
    return live;
}

} // namespace

class TestGoalsRecipes : public QObject
{
    Q_OBJECT

private:
    DbFixture _db;

private slots:
    void init() { QVERIFY(_db.startWithReferenceData()); }
    void cleanup() { _db.stop(); }

    void changedTargetKeepsEarlierDays();
    void recipeOfThreeLoggedAsOnePortion();
    void savedMealEditedAndLoggedInPart();
};

void TestGoalsRecipes::changedTargetKeepsEarlierDays()
{
    MainWindow window;
    QVERIFY(window.openProfile(DbFixture::makeAnn(QDate::currentDate().addDays(-7))));
    const int user = window.currentUser();
    const QString today = dayString(QDate::currentDate());
    const QString yesterday = dayString(QDate::currentDate().addDays(-1));
    const Targets before = UserDB::getTargets(user, yesterday);
    QVERIFY(before.values[ENERGY] > 1000);

    bool shown = false;
    whenShown(
        u"goals"_s,
        [](QDialog *dialog) {
            // The plan's energy for the rate chosen is shown beside it.
            child<QComboBox>(dialog, "rate")->setCurrentIndex(2); // lose 0.5 kg a week
            QVERIFY(child<QRadioButton>(dialog, "fromPlan")->isChecked());
            QVERIFY(!child<QLabel>(dialog, "planned")->text().isEmpty());
            child<QDoubleSpinBox>(dialog, "goalWeight")->setValue(58);
            child<QSpinBox>(dialog, "calories")->setValue(1800); // by hand from now on
            QVERIFY(child<QRadioButton>(dialog, "byHand")->isChecked());
            child<QComboBox>(dialog, "proteinUnit")->setCurrentIndex(1);
            child<QDoubleSpinBox>(dialog, "protein")->setValue(30);
            child<QSpinBox>(dialog, "water")->setValue(10);
            dialog->accept();
        },
        &shown);
    child<QAction>(&window, "goals")->trigger();
    QVERIFY(shown);

    const Targets now = UserDB::getTargets(user, today);
    QCOMPARE(now.values[ENERGY], 1800.0);
    QCOMPARE(now.values[PROTEIN], 135.0); // 30 % of 1800 calories at 4 a gram
    QCOMPARE(UserDB::getTargets(user, yesterday).values, before.values);
    // The day shown stands against the new budget and the new water goal.
    QVERIFY(child<QLabel>(&window, "energyStanding")->text().contains(u"1800"_s));
    QCOMPARE(child<QLabel>(&window, "waterStanding")->text(), u"0 of 10 glasses"_s);
}

void TestGoalsRecipes::recipeOfThreeLoggedAsOnePortion()
{
    MainWindow window;
    QVERIFY(window.openProfile(DbFixture::makeAnn(QDate::currentDate().addDays(-7))));
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    // With the keyboard alone: Ctrl+R, Ctrl+N, the name, the portions, then each ingredient's words,
    // Down into the matches, Tab to the quantity and Enter; Ctrl+S saves, Enter logs.
    const auto type = [](const QString &text) { QTest::keyClicks(QApplication::focusWidget(), text); };
    const auto key = [](int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key(key), modifiers);
    };
    bool listShown = false, editorShown = false;
    whenShown(
        u"recipes"_s,
        [&](QDialog *recipes) {
            whenShown(
                u"recipe"_s,
                [&](QDialog *editor) {
                    type(u"Rice bowl"_s);
                    key(Qt::Key_Tab);
                    key(Qt::Key_A, Qt::ControlModifier);
                    type(u"2"_s);
                    key(Qt::Key_Tab);
                    key(Qt::Key_Tab);
                    const std::tuple<QString, int, QString> ingredients[] = {
                        {u"apple raw"_s, 9003, u"2"_s},
                        {u"rice white glutinous cooked"_s, 20055, u"1"_s},
                        {u"chicken breast rotisserie"_s, 7961, u"3"_s}};
                    for (const auto &[words, food, quantity] : ingredients) {
                        type(words);
                        key(Qt::Key_Down);
                        auto *matches = child<QListWidget>(editor, "pickerMatches");
                        QVERIFY(matches->hasFocus());
                        while (matches->currentItem()->data(Qt::UserRole).toInt() != food &&
                               matches->currentRow() < matches->count() - 1)
                            key(Qt::Key_Down);
                        key(Qt::Key_Tab);
                        key(Qt::Key_A, Qt::ControlModifier);
                        type(quantity);
                        key(Qt::Key_Return);
                    }
                    QCOMPARE(child<QTableWidget>(editor, "ingredients")->rowCount(), 3);
                    const QString totals = child<QLabel>(editor, "recipeTotals")->text();
                    QVERIFY2(totals.contains(u"A portion: 197\u00a0cals"_s), qPrintable(totals));
                    key(Qt::Key_S, Qt::ControlModifier);
                },
                &editorShown);
            // Without recipes the list says how one is made, and nothing can be logged.
            QVERIFY(!child<QLabel>(recipes, "noRecipes")->isHidden());
            QVERIFY(!child<QPushButton>(recipes, "logRecipe")->isEnabled());
            key(Qt::Key_N, Qt::ControlModifier);
            QVERIFY(child<QLabel>(recipes, "noRecipes")->isHidden());
            QVERIFY(child<QPushButton>(recipes, "logRecipe")->isEnabled());
            QApplication::setActiveWindow(recipes);
            child<QComboBox>(recipes, "recipeMeal")->setFocus(); // where Tab leads after the buttons
            key(Qt::Key_Home);                                   // breakfast, the morning snack, lunch
            key(Qt::Key_Down);
            key(Qt::Key_Down);
            key(Qt::Key_Return);
            key(Qt::Key_Escape);
        },
        &listShown);
    key(Qt::Key_R, Qt::ControlModifier);
    QVERIFY(listShown && editorShown);

    // 189.28 + 168.78 + 35.28 calories in two portions.
    const QList<FoodDiaryItem> foods = todaysFoods(window.currentUser());
    QCOMPARE(foods.size(), 1);
    QCOMPARE(foods.constFirst().food_name, u"Rice bowl"_s);
    QCOMPARE(foods.constFirst().meal, int(LUNCH));
    QCOMPARE(qRound(foods.constFirst().getNutrient(ENERGY) * 100), 19667);
    // Undone like any other change.
    QCOMPARE(child<QAction>(&window, "undo")->text(), u"&Undo Add Rice bowl"_s);
    QApplication::setActiveWindow(&window);
    QTest::keyClick(&window, Qt::Key_Z, Qt::ControlModifier);
    QVERIFY(todaysFoods(window.currentUser()).isEmpty());
}

void TestGoalsRecipes::savedMealEditedAndLoggedInPart()
{
    MainWindow window;
    QVERIFY(window.openProfile(DbFixture::makeAnn(QDate::currentDate().addDays(-7))));
    const int user = window.currentUser();
    SavedMeal meal;
    meal.user_id = user;
    meal.name = u"Usual breakfast"_s;
    for (const auto &[food, serving] : {std::pair{9003, "1 medium (3\" dia)"}, std::pair{20055, "1 cup"}}) {
        FoodDiaryItem item;
        item.changeFood(food);
        for (const FoodServing &s : item.getServings()) {
            if (s.name == QLatin1String(serving))
                item.setServing(s.id);
        }
        QCOMPARE(item.serv_name, QLatin1String(serving));
        meal.foods.append(item);
    }
    QVERIFY(SavedMealDB::createMeal(meal) >= 0);

    bool shown = false;
    whenShown(
        u"savedMeals"_s,
        [](QDialog *dialog) {
            const QScopeGuard close([dialog] { dialog->reject(); }); // failing or not
            auto *table = child<QTableWidget>(dialog, "savedMealFoods");
            QCOMPARE(table->rowCount(), 2);
            table->setCurrentCell(0, 1); // one and a half apples from now on, typed as written
            table->editItem(table->item(0, 1));
            auto *quantity = table->viewport()->findChild<QDoubleSpinBox *>();
            QVERIFY(quantity);
            quantity->selectAll();
            QTest::keyClicks(quantity, u"1 1/2"_s);
            QTest::keyClick(quantity, Qt::Key_Return);
            QTRY_COMPARE(table->item(0, 1)->text(), u"1.5"_s);
            table->item(1, 0)->setCheckState(Qt::Unchecked); // and no rice today
            child<QComboBox>(dialog, "savedMealMeal")->setCurrentIndex(0);
            child<QPushButton>(dialog, "logSavedMeal")->click();
        },
        &shown);
    child<QAction>(&window, "savedMeals")->trigger();
    QVERIFY(shown);

    const QList<FoodDiaryItem> foods = todaysFoods(user);
    QCOMPARE(foods.size(), 1);
    QCOMPARE(foods.constFirst().ref_id, 9003); // so that its serving can still change
    QCOMPARE(foods.constFirst().size, 1.5f);
    const QList<FoodDiaryItem> saved = SavedMealDB::getMealFoods(meal.meal_id);
    QCOMPARE(saved.size(), 2);
    QCOMPARE(saved.constFirst().size, 1.5f);
    QCOMPARE(qRound(saved.constFirst().getNutrient(ENERGY)), 142);

    // With none left, the dialog says how a meal is saved, and nothing can be logged.
    QVERIFY(SavedMealDB::deleteMeal(meal.meal_id));
    shown = false;
    whenShown(
        u"savedMeals"_s,
        [](QDialog *dialog) {
            QVERIFY(!child<QLabel>(dialog, "noSavedMeals")->isHidden());
            QVERIFY(!child<QPushButton>(dialog, "logSavedMeal")->isEnabled());
            dialog->reject();
        },
        &shown);
    child<QAction>(&window, "savedMeals")->trigger();
    QVERIFY(shown);
}

QTEST_MAIN(TestGoalsRecipes)
#include "tst_goalsrecipes.moc"
