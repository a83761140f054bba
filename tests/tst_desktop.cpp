// The desktop program's widgets under the offscreen platform, and the program itself started
// twice: the second copy wakes the first and ends.

#include "app/notificationdispatcher.h"
#include "app/webserver.h"
#include "brand/tarfilewriter.h"
#include "db/diarydb.h"
#include "db/newprofile.h"
#include "dbfixture.h"
#include "httptestserver.h"
#include "model/dateconversion.h"
#include "model/energy.h"
#include "staticdb/fooddb.h"
#include "ui/backgroundservices.h"
#include "ui/checkinview.h"
#include "ui/customfooddialog.h"
#include "ui/daymodel.h"
#include "ui/diaryview.h"
#include "ui/mainwindow.h"
#include "ui/matchdelegate.h"
#include "ui/newprofilewizard.h"
#include "ui/preferencesdialog.h"
#include "ui/printing.h"
#include "ui/profiledialog.h"
#include "ui/reportsview.h"
#include "ui/updatedialog.h"

#include <QAction>
#include <QApplication>
#include <QChartView>
#include <QComboBox>
#include <QDateEdit>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPrintPreviewDialog>
#include <QPrintPreviewWidget>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QSplitter>
#include <QTabWidget>
#include <QTableWidget>
#include <QTextBrowser>
#include <QTimer>
#include <QTreeView>
#include <QTreeWidget>
#include <QValueAxis>
#include <QWizard>
#include <QXYSeries>

class TestDesktop : public QObject
{
    Q_OBJECT

private:
    DbFixture _db;

    // Runs action on the wizard once it is up.
    template <typename Action> static void whenWizardShows(Action action)
    {
        QTimer::singleShot(0, [action] {
            auto *wizard = qobject_cast<NewProfileWizard *>(QApplication::activeModalWidget());
            QVERIFY(wizard);
            action(wizard);
        });
    }

private slots:
    void init() { QVERIFY(_db.startWithReferenceData()); }
    void cleanup() { _db.stop(); }

    void wizardCreatesProfile();
    void wizardCancelled();
    void searchAddsFoodToLunch();
    void checkInAndUnitsEverywhere();
    void checkInKeepsWhatIsTyped();
    void dayCopied();
    void savedMeals();
    void profilesAndColumns();
    void browseTreeAndCustomFoods();
    void backUpAndRestore();
    void tabOrderFollowsTheEye_data();
    void tabOrderFollowsTheEye();
    void publishFromTheWindow();
    void metricsAndUpdateCheckAfterStart();
    void noTrapsWhenAdding();
    void windowKeepsItsLayout();
    void printPreviewAndPdf();
    void tenChangesUndoneAndRedone();
    void sameOrderAsTheTool_data();
    void sameOrderAsTheTool();
    void secondStartWakesFirst();
    void conduitSwitchRequired();
    void updateCommandNeedsUpdates();
};

void TestDesktop::wizardCreatesProfile()
{
    QString shownTargets;
    whenWizardShows([&shownTargets](NewProfileWizard *wizard) {
        wizard->findChild<QLineEdit *>(QStringLiteral("name"))->setText(QStringLiteral("Ann"));
        wizard->findChild<QRadioButton *>(QStringLiteral("female"))->setChecked(true);
        wizard->findChild<QDateEdit *>(QStringLiteral("born"))->setDate(QDate(1985, 4, 2));
        wizard->next();
        // Imperial units: 5 ft 6 in and 136 lb are kept as 167.6 cm and 61.7 kg.
        wizard->findChild<QComboBox *>(QStringLiteral("units"))->setCurrentIndex(1);
        wizard->findChild<QSpinBox *>(QStringLiteral("heightFeet"))->setValue(5);
        wizard->findChild<QSpinBox *>(QStringLiteral("heightInches"))->setValue(6);
        wizard->findChild<QDoubleSpinBox *>(QStringLiteral("weight"))->setValue(136);
        wizard->findChild<QComboBox *>(QStringLiteral("goal"))->setCurrentIndex(LOSE_WEIGHT);
        wizard->next();
        shownTargets = wizard->findChild<QLabel *>(QStringLiteral("targets"))->text();
        wizard->button(QWizard::FinishButton)->click();
    });
    MainWindow window;
    QVERIFY(window.openProfile(-1));
    const QList<UserProfile> users = UserDB::getUsers();
    QCOMPARE(users.size(), 1);
    QCOMPARE(users.constFirst().name, QStringLiteral("Ann"));
    QCOMPARE(users.constFirst().sex, 1);
    QCOMPARE(window.currentUser(), users.constFirst().user_id);
    QCOMPARE(UserDB::getSettings(window.currentUser()).measurement_units, 1);
    const QString today = QDate::currentDate().toString(QStringLiteral("yyyyMMdd"));
    QVERIFY(qAbs(UserDB::getLatestCheckIn(window.currentUser(), today)->weight - 61.69) < 0.01);
    QVERIFY(qAbs(UserDB::getHeight(window.currentUser()) - 167.64) < 0.01);
    // The targets shown are the ones stored.
    const int energy = qRound(UserDB::getTargets(window.currentUser(), today).values[ENERGY]);
    QVERIFY(energy >= 1200);
    QVERIFY2(shownTargets.contains(QStringLiteral("Energy: <b>%1 calories</b>").arg(energy)),
             qPrintable(shownTargets));
}

void TestDesktop::wizardCancelled()
{
    whenWizardShows([](NewProfileWizard *wizard) { wizard->reject(); });
    MainWindow window;
    QVERIFY(!window.openProfile(-1));
    QCOMPARE(UserDB::numUsers(), 0);
}

namespace {

// The day's tree as the window shows it: the rows named so, meals and entries alike; a meal's
// first entry; a row's text in a column.
QModelIndexList rowsNamed(const QTreeView *entries, const QString &name)
{
    const QAbstractItemModel *day = entries->model();
    return day->match(day->index(0, 0), Qt::DisplayRole, name, -1, Qt::MatchExactly | Qt::MatchRecursive);
}

QModelIndex firstEntry(const QTreeView *entries, const QString &meal)
{
    const QModelIndex group = rowsNamed(entries, meal).value(0);
    return group.isValid() ? entries->model()->index(0, 0, group) : QModelIndex();
}

QString cell(const QModelIndex &row, int column)
{
    return row.siblingAtColumn(column).data().toString();
}

} // namespace

void TestDesktop::searchAddsFoodToLunch()
{
    const int user = DbFixture::makeAnn();
    MainWindow window;
    QVERIFY(window.openProfile(user));
    window.show();

    // Searching as you type; plain foods first.
    auto *search = window.findChild<QLineEdit *>(QStringLiteral("search"));
    auto *matches = window.findChild<QListWidget *>(QStringLiteral("matches"));
    QTest::keyClicks(search, QStringLiteral("apple raw"));
    QVERIFY(matches->count() > 10);
    QCOMPARE(matches->item(0)->text(),
             QStringLiteral("Apples, raw, with skin \u2014 95 cals per 1 medium (3\" dia)"));
    // A name longer than the list is wide takes a second line rather than losing its middle.
    QListWidgetItem *longest = matches->item(0);
    for (int i = 0; i < matches->count(); ++i) {
        if (matches->item(i)->text().size() > longest->text().size())
            longest = matches->item(i);
    }
    QVERIFY(matches->fontMetrics().horizontalAdvance(longest->data(MatchDelegate::kNameRole).toString()) >
            matches->viewport()->width());
    QCOMPARE(matches->visualItemRect(longest).height(),
             matches->visualItemRect(matches->item(0)).height() + matches->fontMetrics().height());
    window.findChild<QComboBox *>(QStringLiteral("meal"))->setCurrentIndex(2); // lunch
    auto *serving = window.findChild<QComboBox *>(QStringLiteral("serving"));
    serving->setCurrentIndex(serving->findText(QStringLiteral("1 medium (3\" dia)")));
    window.findChild<QDoubleSpinBox *>(QStringLiteral("quantity"))->setValue(2);
    QTest::keyClick(matches, Qt::Key_Return);

    // Lunch holds it, the day's total and the ticks follow.
    auto *entries = window.findChild<QTreeView *>(QStringLiteral("entries"));
    const auto lunch = [entries] { return rowsNamed(entries, QStringLiteral("Lunch")).value(0); };
    const auto apples = [entries] { return firstEntry(entries, QStringLiteral("Lunch")); };
    QCOMPARE(entries->model()->rowCount(lunch()), 1);
    QCOMPARE(cell(apples(), 0), QStringLiteral("Apples, raw, with skin"));
    QCOMPARE(cell(apples(), 3), QStringLiteral("189"));
    QCOMPARE(cell(lunch(), 3), QStringLiteral("189"));
    QCOMPARE(apples().siblingAtColumn(3).data(Qt::TextAlignmentRole).toInt(),
             int(Qt::AlignRight | Qt::AlignVCenter));
    QCOMPARE(apples().data(Qt::ToolTipRole).toString(), QStringLiteral("Apples, raw, with skin"));
    QVERIFY(window.findChild<QLabel *>(QStringLiteral("totals"))->text().contains(QLatin1String("189 cals")));
    const QString tooltip = window.findChild<QLabel *>(QStringLiteral("ticks"))->toolTip();
    QVERIFY2(tooltip.contains(QLatin1String("more calories")), qPrintable(tooltip));
    window.showSection(MainWindow::ReportsSection);
    QVERIFY(
        window.findChild<QTextBrowser *>(QStringLiteral("report"))->toHtml().contains(QLatin1String("189")));

    // Quantity and serving change where they stand: F2, a value, Enter. The entry stays current,
    // a meal closed by hand stays closed, the columns keep their widths.
    window.showSection(MainWindow::DiarySection);
    entries->collapse(rowsNamed(entries, QStringLiteral("Breakfast")).value(0));
    const int servingWidth = entries->columnWidth(2);
    entries->setCurrentIndex(apples().siblingAtColumn(1));
    QTest::keyClick(entries, Qt::Key_F2);
    auto *quantity = entries->viewport()->findChild<QDoubleSpinBox *>();
    QVERIFY(quantity);
    QCOMPARE(quantity->value(), 2.0);
    QVERIFY(quantity->width() >= quantity->sizeHint().width());
    quantity->selectAll();
    QTest::keyClicks(quantity, QStringLiteral("1 1/2")); // as a recipe writes it
    QTest::keyClick(quantity, Qt::Key_Return);
    QTRY_COMPARE(cell(apples(), 3), QStringLiteral("142"));
    QCOMPARE(cell(apples(), 1), QStringLiteral("1.5"));
    QCOMPARE(entries->currentIndex(), apples().siblingAtColumn(1));
    QVERIFY(!entries->isExpanded(rowsNamed(entries, QStringLiteral("Breakfast")).value(0)));
    QVERIFY(entries->isExpanded(lunch()));
    QCOMPARE(entries->columnWidth(2), servingWidth);
    // Shift+F2 the serving; Shift+F10 the entry's menu.
    entries->setCurrentIndex(apples());
    bool menu = false;
    QTimer::singleShot(0, [&menu] {
        auto *popup = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        menu = popup != nullptr;
        if (popup)
            popup->close();
    });
    QTest::keyClick(entries, Qt::Key_F10, Qt::ShiftModifier);
    QVERIFY(menu);
    QTest::keyClick(entries, Qt::Key_F2, Qt::ShiftModifier);
    auto *servings = entries->viewport()->findChild<QComboBox *>();
    QVERIFY(servings);
    QCOMPARE(servings->currentText(), QStringLiteral("1 medium (3\" dia)"));
    QVERIFY(servings->width() >= servings->sizeHint().width()); // not cut to the column
    servings->setCurrentIndex(servings->findText(QStringLiteral("1 large (3-1/4\" dia)")));
    QTest::keyClick(servings, Qt::Key_Return);
    QTRY_COMPARE(cell(apples(), 2), QStringLiteral("1 large (3-1/4\" dia)"));
    QVERIFY(window.diary()->undo());
    QCOMPARE(cell(apples(), 3), QStringLiteral("142"));
    // A third, as the tool logs it, shows as 0.333 in the editor; left as shown, it stays a third.
    const int appleId = apples().data(DayModel::EntryIdRole).toInt();
    FoodDiaryItem third = DiaryDB().getFoodEntry(appleId);
    third.size = 1 / 3.0f;
    QVERIFY(DiaryDB().updateFoodEntry(appleId, third));
    entries->setCurrentIndex(apples().siblingAtColumn(1));
    QTest::keyClick(entries, Qt::Key_F2);
    QTest::keyClick(entries->viewport()->findChild<QDoubleSpinBox *>(), Qt::Key_Return);
    QTRY_VERIFY(!entries->viewport()->findChild<QDoubleSpinBox *>()); // the editor is gone
    QCoreApplication::processEvents();                                // and what it left to be done
    QCOMPARE(DiaryDB().getFoodEntry(appleId).size, 1 / 3.0f);

    // Half an hour's walk: its minutes change in place too, Delete removes it, undo brings it back.
    window.findChild<QComboBox *>(QStringLiteral("kind"))->setCurrentIndex(1);
    search->setText(QStringLiteral("45 min walking")); // the minutes typed before the words
    QVERIFY(matches->count() > 0);
    QCOMPARE(window.findChild<QDoubleSpinBox *>(QStringLiteral("quantity"))->value(), 45.0);
    search->setText(QStringLiteral("30 walking"));
    QCOMPARE(window.findChild<QDoubleSpinBox *>(QStringLiteral("quantity"))->value(), 30.0);
    QTest::keyClick(matches, Qt::Key_Return);
    const auto walk = [entries] { return firstEntry(entries, QStringLiteral("Exercise")); };
    QVERIFY(walk().isValid());
    QCOMPARE(cell(walk(), 1), QStringLiteral("30"));
    // 3.5 MET x 0.0175 x 61.5 kg x 30 min, burned; the group sums the day's, the footer names it.
    const QString burned30 = cell(walk(), 3);
    QCOMPARE(burned30, QStringLiteral("113"));
    QCOMPARE(cell(walk().parent(), 3), burned30);
    QVERIFY(window.findChild<QLabel *>(QStringLiteral("totals"))
                ->text()
                .startsWith(QLocale().dayName(QDate::currentDate().dayOfWeek()) + QLatin1Char(':')));
    entries->setCurrentIndex(walk().siblingAtColumn(1));
    QTest::keyClick(entries, Qt::Key_F2);
    auto *minutes = entries->viewport()->findChild<QDoubleSpinBox *>();
    QVERIFY(minutes);
    minutes->selectAll();
    QTest::keyClicks(minutes, QStringLiteral("60"));
    QTest::keyClick(minutes, Qt::Key_Return);
    QTRY_COMPARE(cell(walk(), 1), QStringLiteral("60"));
    QCOMPARE(cell(walk(), 3).toFloat(), 2 * burned30.toFloat());
    entries->setCurrentIndex(walk());
    QTest::keyClick(entries, Qt::Key_Delete);
    QVERIFY(!walk().isValid());
    QVERIFY(window.diary()->undo());
    QCOMPARE(cell(walk(), 1), QStringLiteral("60"));

    // An empty box offers what the profile logs: the walk, then, back among foods, the apples.
    search->clear();
    QTRY_COMPARE(matches->count(), 1);
    QVERIFY(matches->item(0)->text().startsWith(QLatin1String("Walking")));
    window.findChild<QComboBox *>(QStringLiteral("kind"))->setCurrentIndex(0);
    QTRY_COMPARE(matches->count(), 1);
    QCOMPARE(matches->item(0)->data(Qt::UserRole).toInt(), 9003);
}

namespace {

// Today's dinner: a soup of 200 calories.
FoodDiaryItem addSoup(int user)
{
    FoodDiaryItem soup(true);
    soup.user_id = user;
    soup.setDate(QDate::currentDate().toString(QStringLiteral("yyyyMMdd")));
    soup.meal = DINNER;
    soup.food_name = QStringLiteral("Soup");
    soup.setNutrient(ENERGY, 200);
    DiaryDB().addFoodEntry(soup);
    return soup;
}

} // namespace

void TestDesktop::checkInAndUnitsEverywhere()
{
    MainWindow window;
    QVERIFY(window.openProfile(DbFixture::makeAnn()));
    window.show();
    window.showSection(MainWindow::CheckInSection);
    auto *weight = window.findChild<QDoubleSpinBox *>(QStringLiteral("weight"));
    QCOMPARE(weight->value(), 61.5); // today's, from the profile
    weight->setValue(62.3);
    window.findChild<QLineEdit *>(QStringLiteral("note"))->setText(QStringLiteral("after the holidays"));
    window.findChild<QPushButton *>(QStringLiteral("save"))->click();
    const QString today = QDate::currentDate().toString(QStringLiteral("yyyyMMdd"));
    const CheckIn stored = *UserDB::getCheckIn(window.currentUser(), today);
    QCOMPARE(stored.weight, 62.3);
    QCOMPARE(stored.note, QStringLiteral("after the holidays"));

    // Pounds and kilojoules, in the check-in and the diary alike.
    QTimer::singleShot(0, [] {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        QVERIFY(dialog);
        dialog->findChild<QComboBox *>(QStringLiteral("units"))->setCurrentIndex(1);
        dialog->findChild<QComboBox *>(QStringLiteral("energy"))->setCurrentIndex(1);
        dialog->accept();
    });
    QVERIFY(window.editPreferences());
    QCOMPARE(weight->suffix(), QStringLiteral(" lb"));
    QVERIFY(qAbs(weight->value() - 137.3) < 0.05);
    QVERIFY2(window.findChild<QLabel *>(QStringLiteral("totals"))->text().contains(QLatin1String(" kj")),
             qPrintable(window.findChild<QLabel *>(QStringLiteral("totals"))->text()));
}

void TestDesktop::checkInKeepsWhatIsTyped()
{
    MainWindow window;
    const int user = DbFixture::makeAnn();
    QVERIFY(window.openProfile(user));
    window.show();
    window.showSection(MainWindow::CheckInSection);
    CheckInView *view = window.checkIn();
    auto *weight = view->findChild<QDoubleSpinBox *>(QStringLiteral("weight"));
    auto *history = view->findChild<QTreeWidget *>(QStringLiteral("history"));
    const QDate today = QDate::currentDate();
    const auto storedWeight = [user](const QDate &day) {
        const auto c = UserDB::getCheckIn(user, day.toString(QStringLiteral("yyyyMMdd")));
        return c ? c->weight : -1.0;
    };

    // Enter saves; a weight typed for yesterday is kept when the day changes.
    view->setDate(today.addDays(-1));
    weight->setFocus();
    weight->selectAll();
    QTest::keyClicks(weight, QStringLiteral("61"));
    QTest::keyClick(weight, Qt::Key_Return);
    QCOMPARE(storedWeight(today.addDays(-1)), 61.0);
    weight->selectAll();
    QTest::keyClicks(weight, QLocale().toString(60.5, 'f', 1)); // as the reader's locale writes it
    view->setDate(today);
    QCOMPARE(storedWeight(today.addDays(-1)), 60.5);

    // Only the days before the shown one are earlier, each weight with its change since the
    // one weighed before it.
    CheckIn before;
    before.date = today.addDays(-3).toString(QStringLiteral("yyyyMMdd"));
    before.weight = 60.0;
    UserDB::setCheckIn(user, before);
    view->setDate(today.addDays(-2)); // away and back: the history is read again
    view->setDate(today);
    QCOMPARE(history->topLevelItemCount(), 2);
    QCOMPARE(history->topLevelItem(0)->text(2), QStringLiteral("+0.5 kg"));
    QCOMPARE(history->topLevelItem(1)->text(2), QString());
    view->setDate(today.addDays(-1));
    QCOMPARE(history->topLevelItemCount(), 1);

    // Delete removes the shown day's check-in, after asking.
    QTimer::singleShot(0, [] {
        qobject_cast<QMessageBox *>(QApplication::activeModalWidget())->button(QMessageBox::Yes)->click();
    });
    view->findChild<QPushButton *>(QStringLiteral("delete"))->click();
    QCOMPARE(storedWeight(today.addDays(-1)), -1.0);
    QCOMPARE(storedWeight(today), 61.5);
}

void TestDesktop::dayCopied()
{
    MainWindow window;
    const int user = DbFixture::makeAnn();
    QVERIFY(window.openProfile(user));
    const FoodDiaryItem soup = addSoup(user);
    QCOMPARE(window.diary()->copyDay(QDate::currentDate().addDays(1)), 1);
    const DiaryDay tomorrow =
        DiaryDB().getDay(user, QDate::currentDate().addDays(1).toString(QStringLiteral("yyyyMMdd")));
    QCOMPARE(tomorrow.foods.size(), 1);
    QCOMPARE(tomorrow.foods.constFirst().meal, int(DINNER));
    QCOMPARE(tomorrow.foods.constFirst().getNutrient(ENERGY), 200.0f);
    QVERIFY(window.diary()->undo()); // the copies go again
    const QString nextDay = QDate::currentDate().addDays(1).toString(QStringLiteral("yyyyMMdd"));
    QVERIFY(DiaryDB().getDay(user, nextDay).foods.constFirst().status == STATUS_DELETED);

    // Onto a day with entries it asks: add to them, or replace them; undo brings back the replaced.
    const auto live = [user, &nextDay] {
        const QList<FoodDiaryItem> foods = DiaryDB().getDay(user, nextDay).foods;
        return std::count_if(foods.cbegin(), foods.cend(),
                             [](const FoodDiaryItem &f) { return f.status == STATUS_LIVE; });
    };
    const auto answer = [](const QString &button) {
        QTimer::singleShot(0, [button] {
            for (QAbstractButton *b :
                 qobject_cast<QMessageBox *>(QApplication::activeModalWidget())->buttons()) {
                if (b->text() == button)
                    b->click();
            }
        });
    };
    QCOMPARE(window.diary()->copyDay(QDate::currentDate().addDays(1)), 1);
    for (const auto &[button, after] : {std::pair{"&Add to Them", 2}, std::pair{"&Replace Them", 1}}) {
        answer(QString::fromLatin1(button));
        QCOMPARE(window.diary()->copyDay(QDate::currentDate().addDays(1)), 1);
        QCOMPARE(live(), after);
    }
    QVERIFY(window.diary()->undo());
    QCOMPARE(live(), 2);

    // Two bowls instead of one, then at lunch; each change can be taken back.
    auto *entries = window.findChild<QTreeView *>(QStringLiteral("entries"));
    window.diary()->setDate(QDate::currentDate().addDays(-1));
    window.diary()->setDate(QDate::currentDate());
    entries->setCurrentIndex(firstEntry(entries, QStringLiteral("Dinner")));
    QVERIFY(window.diary()->editSelectedEntry(0, 2.0f));
    QCOMPARE(DiaryDB().getFoodEntry(soup.food_id).getNutrient(ENERGY), 400.0f);
    QVERIFY(window.diary()->undo());
    QCOMPARE(DiaryDB().getFoodEntry(soup.food_id).getNutrient(ENERGY), 200.0f);
    entries->setCurrentIndex(firstEntry(entries, QStringLiteral("Dinner")));
    QVERIFY(window.diary()->moveSelectedEntry(LUNCH));
    QVERIFY(firstEntry(entries, QStringLiteral("Lunch")).isValid());
    QVERIFY(!firstEntry(entries, QStringLiteral("Dinner")).isValid());
    QVERIFY(window.diary()->undo());
    QCOMPARE(DiaryDB().getFoodEntry(soup.food_id).meal, int(DINNER));

    // The whole dinner, copied to lunch two days on.
    entries->setCurrentIndex(rowsNamed(entries, QStringLiteral("Dinner")).value(0));
    QCOMPARE(window.diary()->copySelection(QDate::currentDate().addDays(2), LUNCH), 1);
    const DiaryDay later =
        DiaryDB().getDay(user, QDate::currentDate().addDays(2).toString(QStringLiteral("yyyyMMdd")));
    QCOMPARE(later.foods.size(), 1);
    QCOMPARE(later.foods.constFirst().meal, int(LUNCH));
}

void TestDesktop::savedMeals()
{
    MainWindow window;
    const int user = DbFixture::makeAnn();
    QVERIFY(window.openProfile(user));
    const FoodDiaryItem soup = addSoup(user);
    QVERIFY(window.diary()->saveMeal(DINNER, QStringLiteral("Soup supper")) >= 0);
    QCOMPARE(window.diary()->saveMeal(BREAKFAST, QStringLiteral("Nothing")), -1);

    // Dropped on tomorrow's lunch, and undo takes it away.
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    window.diary()->setDate(QDate::currentDate().addDays(1));
    window.diary()->setBrowsing(ItemBrowser::BrowseSavedMeals);
    auto *matches = window.findChild<QListWidget *>(QStringLiteral("matches"));
    QCOMPARE(matches->count(), 1);
    QCOMPARE(matches->item(0)->text(), QStringLiteral("Soup supper"));
    auto *entries = window.findChild<QTreeView *>(QStringLiteral("entries"));
    QMimeData item;
    item.setData(QStringLiteral("binary/lmitem"),
                 "meal " + matches->item(0)->data(Qt::UserRole).toByteArray());
    const QPoint lunch = entries->visualRect(rowsNamed(entries, QStringLiteral("Lunch")).value(0)).center();
    QDragEnterEvent enter(lunch, Qt::CopyAction, &item, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(entries->viewport(), &enter);
    QVERIFY(enter.isAccepted());
    QDropEvent drop(lunch, Qt::CopyAction, &item, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(entries->viewport(), &drop);
    QVERIFY(drop.isAccepted());
    const QString tomorrow = QDate::currentDate().addDays(1).toString(QStringLiteral("yyyyMMdd"));
    const QList<FoodDiaryItem> added = DiaryDB().getDay(user, tomorrow).foods;
    QCOMPARE(added.size(), 1);
    QCOMPARE(added.constFirst().meal, int(LUNCH));
    QVERIFY(window.diary()->undo());
    QCOMPARE(DiaryDB().getDay(user, tomorrow).foods.constFirst().status, int(STATUS_DELETED));
}

void TestDesktop::profilesAndColumns()
{
    MainWindow window;
    const int ann = DbFixture::makeAnn();
    NewProfile second;
    second.name = QStringLiteral("Bob");
    second.dob = QStringLiteral("19830120");
    second.height = 180;
    const int bob = createProfile(second, QStringLiteral("20260101"));
    QVERIFY(window.openProfile(bob));
    QCOMPARE(window.currentUser(), bob);

    // Sodium beside energy; the choice stays with Bob.
    window.diary()->setColumns({ENERGY, SODIUM});
    const QAbstractItemModel *entries = window.findChild<QTreeView *>(QStringLiteral("entries"))->model();
    QCOMPARE(entries->columnCount(), 5);
    QCOMPARE(entries->headerData(4, Qt::Horizontal).toString(), QStringLiteral("Sodium"));
    window.diary()->setNutrientPanelHidden(true);
    QVERIFY(UserDB::getSettings(bob).hideNutrientAndFluid);
    QVERIFY(window.openProfile(ann));
    QCOMPARE(entries->columnCount(), 7);
    QVERIFY(window.openProfile(bob));
    QCOMPARE(entries->columnCount(), 5);
    QVERIFY(window.findChild<QWidget *>(QStringLiteral("nutrientPanel"))->isHidden());

    // The preferences choose them too: sodium off, fibre on.
    QTimer::singleShot(0, [] {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        QVERIFY(dialog);
        auto *columns = dialog->findChild<QListWidget *>(QStringLiteral("columns"));
        QCOMPARE(columns->item(SODIUM)->checkState(), Qt::Checked);
        columns->item(SODIUM)->setCheckState(Qt::Unchecked);
        QCOMPARE(columns->item(FIBER)->text(), QStringLiteral("Fibre")); // the brand's spelling
        columns->item(FIBER)->setCheckState(Qt::Checked);
        dialog->accept();
    });
    QVERIFY(window.editPreferences());
    QCOMPARE(window.diary()->columns(), (QList<int>{ENERGY, FIBER}));
    QCOMPARE(entries->columnCount(), 5);
    QCOMPARE(entries->headerData(4, Qt::Horizontal).toString(), QStringLiteral("Fibre"));

    // Renamed and grown, from today on.
    QTimer::singleShot(0, [] {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        QVERIFY(dialog);
        dialog->findChild<QLineEdit *>(QStringLiteral("name"))->setText(QStringLiteral("Robert"));
        dialog->findChild<QDoubleSpinBox *>(QStringLiteral("height"))->setValue(182);
        dialog->accept();
    });
    QVERIFY(ProfileDialog(bob, &window).exec() == QDialog::Accepted);
    QCOMPARE(UserDB::getUsers().constLast().name, QStringLiteral("Robert"));
    QCOMPARE(UserDB::getHeight(bob), 182.0);

    QVERIFY(window.deleteProfile()); // Ann is open next
    QCOMPARE(window.currentUser(), ann);
    QCOMPARE(UserDB::getUserIds(), QList<int>{ann});
}

void TestDesktop::browseTreeAndCustomFoods()
{
    MainWindow window;
    const int user = DbFixture::makeAnn();
    QVERIFY(window.openProfile(user));
    auto *search = window.findChild<QLineEdit *>(QStringLiteral("search"));
    auto *tree = window.findChild<QTreeWidget *>(QStringLiteral("browseTree"));

    // Without a query the tree holds the 25 food groups, then the profile's own and the shared foods.
    QCOMPARE(tree->topLevelItemCount(), 27);
    QCOMPARE(tree->topLevelItem(25)->text(0), QStringLiteral("My Foods"));
    QCOMPARE(tree->topLevelItem(26)->text(0), QStringLiteral("Shared Foods"));
    // A search opens the groups and subcategories it found something in.
    search->setText(QStringLiteral("cheddar -imitation"));
    const QTreeWidgetItem *dairy =
        tree->findItems(QStringLiteral("Dairy and Egg Products"), Qt::MatchExactly).value(0);
    QVERIFY(dairy && dairy->isExpanded());
    QVERIFY(
        !tree->findItems(QStringLiteral("Cheese, cheddar"), Qt::MatchExactly | Qt::MatchRecursive).isEmpty());

    // Two slices of cheddar become a food of the profile's own, values and all.
    auto *matches = window.findChild<QListWidget *>(QStringLiteral("matches"));
    const QList<QListWidgetItem *> cheddar =
        matches->findItems(QStringLiteral("Cheese, cheddar \u2014"), Qt::MatchStartsWith);
    QVERIFY(!cheddar.isEmpty());
    matches->setCurrentItem(cheddar.constFirst());
    auto *serving = window.findChild<QComboBox *>(QStringLiteral("serving"));
    serving->setCurrentIndex(serving->findText(QStringLiteral("1 slice (1 oz)")));
    window.findChild<QDoubleSpinBox *>(QStringLiteral("quantity"))->setValue(2);
    QTimer::singleShot(0, [] {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        QVERIFY(dialog);
        dialog->findChild<QLineEdit *>(QStringLiteral("name"))
            ->setText(QStringLiteral("Cheddar sandwich filling"));
        dialog->accept();
    });
    const int id = window.diary()->copySelectedToCustom();
    QVERIFY(id >= 0x1000000);
    Food food;
    QVERIFY(FoodDBDynamic(user).food(id, &food));
    QCOMPARE(food.name, QStringLiteral("Cheddar sandwich filling"));
    QCOMPARE(food.servings.constFirst().name, QStringLiteral("2 x 1 slice (1 oz)"));
    QVERIFY(qAbs(food.values[FV_CALORIES] - 226.2f) < 0.01f); // 2 x 28 g at 404 per 100 g, to a tenth

    // A food the search does not know is offered as one's own, named as it was sought, beside
    // close matches too; Enter on no matches at all takes the offer.
    auto *note = window.findChild<QLabel *>(QStringLiteral("searchNote"));
    for (const QString &words :
         {QStringLiteral("grandma lasagne"), QStringLiteral("latte")}) { // lasagna; platters
        search->setText(words);
        QVERIFY(matches->count() > 0 && note->text().contains(QLatin1String("<a href")));
    }
    search->setText(QStringLiteral("grandma kolaczki -frozen"));
    QVERIFY(matches->count() == 0 && note->text().contains(QLatin1String("<a href")));
    QTimer::singleShot(0, [] {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        QVERIFY(dialog);
        QCOMPARE(dialog->findChild<QLineEdit *>(QStringLiteral("name"))->text(),
                 QStringLiteral("Grandma kolaczki"));
        dialog->findChild<QLineEdit *>(QStringLiteral("serving"))->setText(QStringLiteral("1 piece"));
        dialog->findChild<QDoubleSpinBox *>(QStringLiteral("value%1").arg(FV_CALORIES))->setValue(450);
        dialog->accept();
    });
    QTest::keyClick(search, Qt::Key_Return); // as a click on the note's link does
    QVERIFY(matches->currentItem());
    QCOMPARE(matches->currentItem()->data(MatchDelegate::kNameRole).toString(),
             QStringLiteral("Grandma kolaczki"));

    // A category of one's own, found again by the search.
    const int category =
        window.diary()->newCustomCategory(DynamicDB::rootIdOf(user), QStringLiteral("Lunch box"));
    QCOMPARE(category, 0x1000000);
    search->setText(QStringLiteral("sandwich"));
    const QTreeWidgetItem *mine = tree->findItems(QStringLiteral("My Foods"), Qt::MatchExactly).value(0);
    QVERIFY(mine && mine->isExpanded());
    QVERIFY(
        !tree->findItems(QStringLiteral("Cheddar sandwich filling"), Qt::MatchExactly | Qt::MatchRecursive)
             .isEmpty());

    // Moving: the food into the new category; a category goes anywhere but into its own branch.
    const int inner = window.diary()->newCustomCategory(category, QStringLiteral("Fillings"));
    QStringList paths;
    for (const auto &target : window.diary()->customMoveTargets(id, false))
        paths.append(target.second);
    QCOMPARE(paths, (QStringList{QStringLiteral("My Foods"), QStringLiteral("My Foods / Lunch box"),
                                 QStringLiteral("My Foods / Lunch box / Fillings"),
                                 QStringLiteral("Shared Foods")}));
    QVERIFY(window.diary()->moveCustom(id, false, inner));
    QCOMPARE(FoodDBDynamic(user).itemsOf(inner).value(0).first, id);
    QVERIFY(!window.diary()->moveCustom(category, true, inner));
    QVERIFY(window.diary()->moveCustom(inner, true, kSharedRootId));
    QCOMPARE(FoodDBDynamic(user).subcategories(kSharedRootId).value(0).second, QStringLiteral("Fillings"));
}

QString describe(const QWidget *w)
{
    QString text = w->property("text").toString();
    if (text.isEmpty())
        text = w->objectName();
    return QString::fromLatin1(w->metaObject()->className()) + QStringLiteral(" \"") + text + u'"';
}

void TestDesktop::backUpAndRestore()
{
    MainWindow window;
    const int user = DbFixture::makeAnn();
    QVERIFY(window.openProfile(user));
    const QString archive = LmSettings::backupPath() + QStringLiteral("diary.tar");
    QVERIFY(QDir().mkpath(LmSettings::backupPath()));
    QCOMPARE(window.backUpDataTo(archive), QString());

    // Dinner after the backup is gone once it is restored; the window shows the diary restored.
    addSoup(user);
    window.diary()->setDate(QDate::currentDate().addDays(-1));
    window.diary()->setDate(QDate::currentDate());
    auto *entries = window.findChild<QTreeView *>(QStringLiteral("entries"));
    QCOMPARE(rowsNamed(entries, QStringLiteral("Soup")).size(), 1);
    QCOMPARE(window.restoreDataFrom(archive), QString());
    QCOMPARE(window.currentUser(), user);
    QVERIFY(rowsNamed(entries, QStringLiteral("Soup")).isEmpty());
}

// The widgets Tab visits from the first one, in order, until it comes round again.
QList<QWidget *> tabChain(QWidget *top)
{
    QList<QWidget *> chain;
    const auto stop = [top](QWidget *w) {
        return w->isVisibleTo(top) && w->isEnabled() && (w->focusPolicy() & Qt::TabFocus) && w != top &&
               top->isAncestorOf(w) && !w->focusProxy();
    };
    // From where the focus is when the window opens.
    QWidget *first = top->focusWidget() ? top->focusWidget() : top->nextInFocusChain();
    while (first != top && !stop(first))
        first = first->nextInFocusChain();
    for (QWidget *w = first; w != top;) {
        chain.append(w);
        do
            w = w->nextInFocusChain();
        while (w != top && w != first && !stop(w));
        if (w == first)
            break;
    }
    return chain;
}

// Every step of Tab goes right along a row or down to a later row, except where a page has
// columns side by side (given as their left edges): there it reads each column top to bottom.
QString tabOrderProblem(QWidget *top)
{
    const QList<QWidget *> chain = tabChain(top);
    if (chain.isEmpty())
        return QStringLiteral("nothing takes the focus");
    for (qsizetype i = 1; i < chain.size(); ++i) {
        const QRect a(chain[i - 1]->mapTo(top, QPoint(0, 0)), chain[i - 1]->size());
        const QRect b(chain[i]->mapTo(top, QPoint(0, 0)), chain[i]->size());
        const bool sameRow = b.center().y() >= a.top() && b.center().y() <= a.bottom();
        if (sameRow ? b.left() < a.left() : b.top() < a.top())
            return describe(chain[i]) + QStringLiteral(" comes after ") + describe(chain[i - 1]);
    }
    return QString();
}

void TestDesktop::tabOrderFollowsTheEye_data()
{
    QTest::addColumn<QString>("window");
    QTest::newRow("preferences") << QStringLiteral("preferences");
    QTest::newRow("profile") << QStringLiteral("profile");
    QTest::newRow("custom food") << QStringLiteral("custom food");
    QTest::newRow("check-in") << QStringLiteral("check-in");
    QTest::newRow("wizard") << QStringLiteral("wizard");
}

void TestDesktop::tabOrderFollowsTheEye()
{
    QFETCH(QString, window);
    const int user = DbFixture::makeAnn();
    std::unique_ptr<QWidget> top;
    FoodDBDynamic foods(user);
    if (window == QLatin1String("preferences"))
        top = std::make_unique<PreferencesDialog>(user);
    else if (window == QLatin1String("profile"))
        top = std::make_unique<ProfileDialog>(user);
    else if (window == QLatin1String("custom food"))
        top = std::make_unique<CustomFoodDialog>(&foods, -1, FoodDBDynamic::userRootId(user), nullptr);
    else if (window == QLatin1String("check-in"))
        top = std::make_unique<CheckInView>();
    else
        top = std::make_unique<NewProfileWizard>();
    top->resize(top->sizeHint().expandedTo(QSize(600, 400)));
    top->show();
    QVERIFY(QTest::qWaitForWindowExposed(top.get()));
    // Pages of tabs and of the wizard: each as it is shown.
    const QList<QTabWidget *> tabs = top->findChildren<QTabWidget *>();
    auto *wizard = qobject_cast<QWizard *>(top.get());
    int pages = wizard ? int(wizard->pageIds().size()) : 1;
    for (QTabWidget *tab : tabs)
        pages = std::max(pages, tab->count());
    for (int page = 0; page < pages; ++page) {
        for (QTabWidget *tab : tabs)
            tab->setCurrentIndex(std::min(page, tab->count() - 1));
        QString problem = tabOrderProblem(top.get());
        if (!problem.isEmpty())
            QFAIL(qPrintable(QStringLiteral("page %1: %2").arg(page).arg(problem)));
        if (wizard && page + 1 < pages) {
            auto *name = wizard->findChild<QLineEdit *>(QStringLiteral("name"));
            if (name && name->text().isEmpty())
                name->setText(QStringLiteral("Tab"));
            const int before = wizard->currentId();
            wizard->next();
            QVERIFY(wizard->currentId() != before);
        }
    }
}

void TestDesktop::publishFromTheWindow()
{
    HttpTestServer server;
    QVERIFY(server.start());
    server.replies = {HttpTestServer::ok("<response errno=\"0\"/>")};
    LmSettings::writeValue(QStringLiteral("proxySettings"),
                           QStringLiteral("127.0.0.1:%1").arg(server.serverPort()));
    MainWindow window;
    const int user = DbFixture::makeAnn();
    UserSettings settings = UserDB::getSettings(user);
    settings.web_username = QStringLiteral("ann");
    settings.web_password = QStringLiteral("secret");
    UserDB::setSettings(user, settings);
    QVERIFY(window.openProfile(user));
    addSoup(user);

    // The household's server, named in the preferences, is reached directly on its own port; an
    // address that is not one is refused with a message and leaves the setting as it was.
    LmSettings::writeValue(QStringLiteral("proxySettings"), QString());
    for (const QString &address :
         {QStringLiteral("ftp://diary.home"), QStringLiteral("127.0.0.1:%1").arg(server.serverPort())}) {
        PreferencesDialog preferences(user);
        preferences.findChild<QLineEdit *>(QStringLiteral("webServer"))->setText(address);
        QString warning;
        QTimer::singleShot(0, &preferences, [&warning] {
            if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
                warning = box->text();
                box->accept();
            }
        });
        preferences.accept();
        QCOMPARE(preferences.result(), warning.isEmpty() ? int(QDialog::Accepted) : int(QDialog::Rejected));
        QCOMPARE(WebServer::base(),
                 warning.isEmpty() ? QStringLiteral("http://%1/").arg(address) : QString());
    }
    const auto unset = qScopeGuard([] { WebServer::unset(); });

    // The dialog ticks its steps and counts down after a success; OK closes it.
    QString button;
    QTimer poll;
    connect(&poll, &QTimer::timeout, &window, [&button] {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        auto *ok = dialog ? dialog->findChild<QPushButton *>(QStringLiteral("button")) : nullptr;
        if (ok && ok->text().startsWith(QLatin1String("OK"))) {
            button = ok->text();
            ok->click();
        }
    });
    poll.start(20);
    QCOMPARE(window.publishDiary(), QStringLiteral("Completed successfully"));
    QCOMPARE(button, QStringLiteral("OK (5)"));
    QVERIFY(server.requests.constFirst().startsWith(
        QStringLiteral("POST http://127.0.0.1:%1/diary/publish?username=ann&")
            .arg(server.serverPort())
            .toLatin1()));
    QVERIFY(server.requests.constFirst().contains("xml=%3C%3Fxml"));
    QVERIFY(DiaryDB().getUnpublishedDates(user).isEmpty());

    // And the diary as CSV: the header, the soup, the final line feed.
    const QString csv = _db.path(QStringLiteral("diary.csv"));
    QCOMPARE(window.exportDiaryTo(csv), QString());
    QCOMPARE(DbTest::readFile(csv).count('\n'), 2);
    QVERIFY(DbTest::readFile(csv).contains("\"Soup\""));
}

void TestDesktop::metricsAndUpdateCheckAfterStart()
{
    // Our server stands for the web site behind a proxy, trusted for the metrics' TLS.
    HttpTestServer server;
    QVERIFY(server.start());
    const QString certificate = server.makeCertificate();
    if (certificate.isEmpty())
        QSKIP("the openssl tool is not available");
    QVERIFY(QFile::copy(certificate, LmSettings::resourcePath() + QStringLiteral("cert.pem")));
    server.connectReply = "HTTP/1.0 200 Connection established\r\n\r\n";
    server.tlsAfterConnect = true;
    const QByteArray feed =
        "<rss version=\"2.0\"><channel><title>t</title><link>l</link><description>d</description>"
        "</channel></rss>";
    server.replies = {HttpTestServer::ok("<response errno=\"0\"/>"), HttpTestServer::ok(feed)};
    LmSettings::writeValue(QStringLiteral("proxySettings"),
                           QStringLiteral("127.0.0.1:%1").arg(server.serverPort()));

    MainWindow window;
    const int user = DbFixture::makeAnn();
    QVERIFY(window.openProfile(user));
    QVERIFY(UserDB::countStart(user));
    const QString marked = QStringLiteral("SELECT COUNT(*) FROM metrics_startStats_sync WHERE state = 1");
    QCOMPARE(DbTest::column(marked), QStringList{QStringLiteral("1")});

    // Once the window is up: the figures go and their marks are cleared; the feed is read once.
    const auto sent = [&server](const QByteArray &start) {
        return std::count_if(server.requests.cbegin(), server.requests.cend(),
                             [&start](const QByteArray &request) { return request.startsWith(start); });
    };
    const QByteArray metrics = "POST https://localhost/metrics?";
    const QByteArray check = "GET http://localhost/staticdb/tarnwell/update.rss";
    window.show();
    NotificationDispatcher::send(QStringLiteral("app_about_to_start"));
    QTRY_COMPARE_WITH_TIMEOUT(sent(check), 1, 15000);
    QCOMPARE(sent(metrics), 1);
    QTRY_COMPARE(DbTest::column(marked), QStringList{QStringLiteral("0")});
    QTRY_VERIFY(!LmSettings::readString(LmSettings::StaticDbLastUpdate).isEmpty());

    // A second window the same day reads no feed: the interval has not passed.
    MainWindow again;
    QVERIFY(again.openProfile(user));
    again.show();
    NotificationDispatcher::send(QStringLiteral("app_about_to_start"));
    QTest::qWait(BackgroundServices::kUpdateCheckDelayMs + 500);
    QCOMPARE(sent(check), 1);
    QCOMPARE(sent(metrics), 2);
}

void TestDesktop::printPreviewAndPdf()
{
    MainWindow window;
    QVERIFY(window.openProfile(DbFixture::makeAnn()));
    window.show();
    // The preview shows the day; its tool bar's choice makes it the week, and keeps that.
    int dayPages = 0;
    int weekPages = 0;
    QTimer::singleShot(0, [&] {
        auto *dialog = window.findChild<QPrintPreviewDialog *>(QStringLiteral("printPreview"));
        auto *pages = dialog ? dialog->findChild<QPrintPreviewWidget *>() : nullptr;
        auto *span = dialog ? dialog->findChild<QComboBox *>(QStringLiteral("printSpan")) : nullptr;
        if (!pages || !span)
            return;
        pages->updatePreview();
        dayPages = pages->pageCount();
        span->setCurrentIndex(DiaryPrinting::Week);
        weekPages = pages->pageCount();
        dialog->reject();
    });
    window.findChild<QAction *>(QStringLiteral("printPreview"))->trigger();
    QCOMPARE(dayPages, 1);
    QCOMPARE(weekPages, 1); // seven empty days fit a page
    QCOMPARE(window.printing()->span(), DiaryPrinting::Week);

    // On the Reports section the shown report prints instead, with no day-or-week choice.
    FoodDiaryItem soup;
    soup.user_id = window.currentUser();
    soup.date = DateConversion::fromQDate(QDate::currentDate());
    soup.food_name = QStringLiteral("Soup");
    soup.setNutrient(ENERGY, 2000); // a round figure, where the axis would end
    QVERIFY(DiaryDB().addFoodEntry(soup));
    window.showSection(MainWindow::ReportsSection);
    window.findChild<QListWidget *>(QStringLiteral("reportList"))->setCurrentRow(ReportsView::Energy);
    const QChart *energyChart = window.findChild<QChartView *>(QStringLiteral("chart"))->chart();
    QVERIFY(!energyChart->series().isEmpty());
    // The highest point is drawn whole, below the axis's end; energy never shows below zero.
    qreal highest = 0;
    for (const QAbstractSeries *series : energyChart->series()) {
        for (const QPointF &p : qobject_cast<const QXYSeries *>(series)->points())
            highest = std::max(highest, p.y());
    }
    const auto *energyAxis = qobject_cast<QValueAxis *>(energyChart->axes(Qt::Vertical).constFirst());
    QVERIFY2(energyAxis->max() > highest && energyAxis->min() >= 0,
             qPrintable(QStringLiteral("%1 to %2, highest %3")
                            .arg(energyAxis->min())
                            .arg(energyAxis->max())
                            .arg(highest)));
    QVERIFY(window.findChild<QTextBrowser *>(QStringLiteral("reportTables"))
                ->toPlainText()
                .contains(QLatin1String("2000")));
    // Between two dates, and the breakdown by meal as bars.
    auto *reports = window.findChild<ReportsView *>();
    reports->setDates(QDate::currentDate().addDays(-3), QDate::currentDate());
    QVERIFY(reports->document()->range.days() == 4);
    reports->setReport(ReportsView::Breakdown);
    QVERIFY(!window.findChild<QChartView *>(QStringLiteral("chart"))->chart()->series().isEmpty());
    bool chosen = true;
    int reportPages = 0;
    QTimer::singleShot(0, [&] {
        auto *dialog = window.findChild<QPrintPreviewDialog *>(QStringLiteral("printPreview"));
        auto *pages = dialog ? dialog->findChild<QPrintPreviewWidget *>() : nullptr;
        if (!pages)
            return;
        chosen = dialog->findChild<QComboBox *>(QStringLiteral("printSpan")) != nullptr;
        pages->updatePreview();
        reportPages = pages->pageCount();
        dialog->reject();
    });
    window.findChild<QAction *>(QStringLiteral("printPreview"))->trigger();
    QVERIFY(!chosen);
    QCOMPARE(reportPages, 1);

    const QString pdf = _db.path(QStringLiteral("week.pdf"));
    QCOMPARE(window.printing()->exportPdf(pdf), QString());
    QVERIFY(DbTest::readFile(pdf).startsWith("%PDF"));
    QVERIFY(!window.printing()->exportPdf(_db.path(QStringLiteral("no/such/folder/x.pdf"))).isEmpty());
}

void TestDesktop::noTrapsWhenAdding()
{
    MainWindow window;
    QVERIFY(window.openProfile(DbFixture::makeAnn()));
    auto *search = window.findChild<QLineEdit *>(QStringLiteral("search"));
    auto *matches = window.findChild<QListWidget *>(QStringLiteral("matches"));
    auto *serving = window.findChild<QComboBox *>(QStringLiteral("serving"));
    auto *quantity = window.findChild<QDoubleSpinBox *>(QStringLiteral("quantity"));
    const auto total = [&window] { return window.findChild<QLabel *>(QStringLiteral("totals"))->text(); };

    // 200 g of milk, then a banana: one medium banana, not 200 of them.
    search->setText(QStringLiteral("milk"));
    QCOMPARE(serving->itemText(0), QStringLiteral("mL")); // a metric profile's measure, for a liquid
    serving->setCurrentIndex(serving->findText(QStringLiteral("g")));
    quantity->setValue(200);
    search->setText(QStringLiteral("banana"));
    QCOMPARE(quantity->value(), 1.0);
    QCOMPARE(serving->currentText(), QStringLiteral("1 medium (7\" to 7-7/8\" long)"));
    search->setText(QStringLiteral("2 banana")); // as many of the usual serving
    QCOMPARE(matches->currentItem()->data(MatchDelegate::kNameRole).toString(),
             QStringLiteral("Bananas, raw"));
    QCOMPARE(quantity->value(), 2.0);
    search->setText(QStringLiteral("banana"));
    const QString preview = window.findChild<QLabel *>(QStringLiteral("preview"))->text();
    QVERIFY2(preview.startsWith(QStringLiteral("105\u00a0cals \u00b7 Carbs\u00a027.0\u00a0g")),
             qPrintable(preview));
    // F3 shows all ten values, for the serving and per 100 g.
    bool shown = false;
    QTimer::singleShot(0, [&shown] {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        QVERIFY(dialog);
        shown = true;
        auto *table = dialog->findChild<QTableWidget *>(QStringLiteral("nutrients"));
        QCOMPARE(table->rowCount(), int(kNutrientCount));
        QCOMPARE(table->item(ENERGY, 0)->text(), QStringLiteral("105 cals"));
        QCOMPARE(table->item(ENERGY, 1)->text(), QStringLiteral("89 cals"));
        QCOMPARE(table->horizontalHeaderItem(1)->text(), QStringLiteral("Per 100 g"));
        dialog->reject();
    });
    QTest::keyClick(matches, Qt::Key_F3);
    QVERIFY(shown);
    // From the search box Down goes into the matches; Enter in the quantity adds.
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    search->setFocus();
    QTest::keyClick(search, Qt::Key_Down);
    QVERIFY(matches->hasFocus());
    QTest::keyClick(quantity, Qt::Key_Return);
    QVERIFY2(total().contains(QLatin1String("105 cals")), qPrintable(total()));
    // The search box has the keys again, its words selected for the next food.
    QVERIFY(search->hasFocus());
    QCOMPARE(search->selectedText(), QStringLiteral("banana"));
    // Where the day stands: what is left of the budget, each nutrient's bar, the energy's sources.
    const auto standing = [&window](const char *name) {
        return window.findChild<QWidget *>(QLatin1String(name));
    };
    QVERIFY(
        qobject_cast<QLabel *>(standing("energyStanding"))->text().contains(QLatin1String("1525 cals left")));
    const QString shares = qobject_cast<QLabel *>(standing("energyShares"))->text();
    QVERIFY2(shares.contains(QLatin1String("carbohydrate 93%")), qPrintable(shares));
    QVERIFY(!window.findChild<QProgressBar *>(QStringLiteral("standing%1").arg(CARB))
                 ->property("offTrack")
                 .toBool());

    // A hundred bananas ask first: no adds nothing, yes adds them.
    quantity->setValue(100);
    for (const auto answer : {QMessageBox::No, QMessageBox::Yes}) {
        QString asked;
        QTimer::singleShot(0, [&asked, answer] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            QVERIFY(box);
            asked = box->text();
            box->button(answer)->click();
        });
        QCOMPARE(window.diary()->addSelectedFood(), answer == QMessageBox::Yes);
        QCOMPARE(asked, QStringLiteral(
                            "100 x 1 medium (7\" to 7-7/8\" long) of Bananas, raw is 10502 cals. Add it?"));
    }
    QVERIFY2(total().contains(QLatin1String("10607 cals")), qPrintable(total()));
    QVERIFY(
        qobject_cast<QLabel *>(standing("energyStanding"))->text().contains(QLatin1String("8977 cals over")));
    QVERIFY(window.findChild<QProgressBar *>(QStringLiteral("standing%1").arg(CARB))
                ->property("offTrack")
                .toBool());
}

void TestDesktop::windowKeepsItsLayout()
{
    const int user = DbFixture::makeAnn();
    QList<int> sizes;
    {
        MainWindow window;
        QVERIFY(window.openProfile(user));
        window.show();
        window.resize(1000, 640);
        auto *splitter = window.findChild<QSplitter *>(QStringLiteral("diarySplitter"));
        splitter->setSizes({300, 560});
        sizes = splitter->sizes();
        QVERIFY(window.close());
    }
    MainWindow again;
    QVERIFY(again.openProfile(user));
    again.show();
    QCOMPARE(again.size(), QSize(1000, 640));
    QCOMPARE(again.findChild<QSplitter *>(QStringLiteral("diarySplitter"))->sizes(), sizes);
}

void TestDesktop::tenChangesUndoneAndRedone()
{
    const int user = DbFixture::makeAnn();
    MainWindow window;
    QVERIFY(window.openProfile(user));
    window.findChild<QLineEdit *>(QStringLiteral("search"))->setText(QStringLiteral("banana"));
    auto *quantity = window.findChild<QDoubleSpinBox *>(QStringLiteral("quantity"));
    for (int i = 1; i <= 10; ++i) {
        quantity->setValue(i);
        QVERIFY(window.diary()->addSelectedFood());
    }
    QCOMPARE(window.findChild<QAction *>(QStringLiteral("undo"))->text(),
             QStringLiteral("&Undo Add Bananas, raw"));
    // The sizes of the day's live entries, oldest first.
    const auto sizes = [user] {
        QList<float> live;
        for (const FoodDiaryItem &food :
             DiaryDB().getDay(user, QDate::currentDate().toString(QStringLiteral("yyyyMMdd"))).foods) {
            if (food.status == STATUS_LIVE)
                live.append(food.size);
        }
        return live;
    };
    for (int i = 10; i >= 1; --i) {
        QVERIFY(window.diary()->undo());
        QCOMPARE(sizes().size(), i - 1);
        QVERIFY(!sizes().contains(float(i))); // the last one first
    }
    QVERIFY(!window.diary()->canUndo());
    for (int i = 1; i <= 10; ++i)
        QVERIFY(window.diary()->redo());
    QCOMPARE(sizes(), (QList<float>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    QVERIFY(!window.diary()->redo());
}

void TestDesktop::sameOrderAsTheTool_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<bool>("exercises");
    QTest::addColumn<QString>("first"); // what the profile does, when it is a match
    QTest::newRow("apple, dried ones logged") << "apple" << false << "9011";
    QTest::newRow("milk") << "milk" << false << "1077";
    QTest::newRow("close matches") << "brocoli" << false << "11090";
    QTest::newRow("walking, the dog walked") << "walking" << true << "17165";
}

void TestDesktop::sameOrderAsTheTool()
{
    QFETCH(QString, query);
    QFETCH(bool, exercises);
    const int user = DbFixture::makeAnn(); // weighed: exercises show what they burn

    const QString today = QDate::currentDate().toString(QStringLiteral("yyyyMMdd"));
    {
        const FoodDB foods(user);
        for (int i = 0; i < 3; ++i) {
            FoodDiaryItem apples;
            apples.user_id = user;
            apples.changeFood(9011); // Apples, dried, sulfured, uncooked
            apples.setDate(today);
            QVERIFY(DiaryDB().addFoodEntry(apples));
            ExerciseDiaryItem dog;
            dog.user_id = user;
            dog.date = today;
            dog.duration = 20;
            dog.name = QStringLiteral("Walking the dog");
            QVERIFY(DiaryDB().addExerciseEntry(dog));
        }
    }
    MainWindow window;
    QVERIFY(window.openProfile(user));
    window.findChild<QComboBox *>(QStringLiteral("kind"))->setCurrentIndex(exercises ? 1 : 0);
    QTest::keyClicks(window.findChild<QLineEdit *>(QStringLiteral("search")), query);
    const auto *matches = window.findChild<QListWidget *>(QStringLiteral("matches"));

    // The tool, on the same data: the test's brand names the data folder.
    const QString resources = LmSettings::resourcePath();
    QVERIFY(QFile::copy(_db.path(QStringLiteral("brand.dat")), resources + QStringLiteral("brand.dat")));
    QProcess tool;
    QStringList arguments = {QStringLiteral("--resourcedir"), resources, QStringLiteral("search")};
    if (exercises)
        arguments.append(QStringLiteral("--exercises"));
    tool.start(binDir() + QStringLiteral("/tarnwell-cli"), arguments << query);
    QVERIFY(tool.waitForFinished(30000));
    QCOMPARE(tool.exitCode(), 0);
    const QStringList lines =
        QString::fromUtf8(tool.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), std::min(matches->count(), 25));
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QStringList fields = lines.at(i).split(u'\t');
        QCOMPARE(fields.size(), 3);
        QCOMPARE(matches->item(int(i))->data(Qt::UserRole).toString(), fields.at(0));
        QCOMPARE(matches->item(int(i))->text(), fields.at(1) + QStringLiteral(" \u2014 ") + fields.at(2));
    }
    QTEST(lines.constFirst().section(u'\t', 0, 0), "first");
}

void TestDesktop::secondStartWakesFirst()
{
    // Both copies run with the same login and data folders; the first waits in its wizard.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TARNWELL_DEBUG"), QStringLiteral("1"));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    QProcess first;
    first.setProcessEnvironment(env);
    first.setProcessChannelMode(QProcess::MergedChannels);
    first.start(binDir() + QStringLiteral("/tarnwell"));
    QVERIFY(first.waitForStarted());
    QByteArray firstOutput;
    // A copy busy starting up answers late; wait until the first one waits for the user.
    QTRY_VERIFY_WITH_TIMEOUT((firstOutput += first.readAll()).contains("running the new-profile wizard"),
                             30000);

    QProcess second;
    second.setProcessEnvironment(env);
    second.start(binDir() + QStringLiteral("/tarnwell"));
    QVERIFY(second.waitForFinished(10000));
    QCOMPARE(second.exitCode(), 0);
    QTRY_VERIFY_WITH_TIMEOUT((firstOutput += first.readAll()).contains("Wake up! received"), 10000);
    first.kill();
    first.waitForFinished();
}

void TestDesktop::conduitSwitchRequired()
{
    // A brand without "conduit_enabled": the program cannot tell whether it has a conduit.
    const QString resources = _db.path(QStringLiteral("noconduit"));
    QVERIFY(QDir().mkpath(resources));
    QVERIFY(DbTest::writeFile(
        resources + QStringLiteral("/brand.xml"),
        "<brand><string id=\"brand_id\" value=\"x\"/><string id=\"app_name\" value=\"x\"/></brand>"));
    {
        QFile archive(resources + QStringLiteral("/brand.dat"));
        QVERIFY(archive.open(QIODevice::WriteOnly));
        TarFileWriter writer(archive);
        QVERIFY(writer.addFile(resources + QStringLiteral("/brand.xml"), QStringLiteral("brand.xml")));
    }
    QProcess program;
    program.setProcessChannelMode(QProcess::MergedChannels);
    program.start(binDir() + QStringLiteral("/tarnwell"),
                  {QStringLiteral("-resourcedir"), resources, QStringLiteral("-deregistercond")});
    QByteArray output;
    QTRY_VERIFY_WITH_TIMEOUT((output += program.readAll()).contains("Fatal Error: "), 20000);
    program.kill(); // the fatal box waits for a click
    program.waitForFinished();
    QVERIFY2(output.contains("Fatal Error: Couldn't find id 'conduit_enabled' in brand"), output.constData());
}

void TestDesktop::updateCommandNeedsUpdates()
{
    // The update command exists only where the brand offers updates; reaching it otherwise is a
    // programming error.
    QVERIFY(_db.loadBrand(true, "<string id=\"update_rss_url\" value=\"http://localhost/u.rss\"/>"
                                "<bool id=\"update_enabled\" value=\"false\"/>"));
    LM_VERIFY_ASSERT(Ui::runDatabaseUpdate(nullptr, false),
                     "be->idExists(BRAND_STR_UPDATE_RSS_URL) && be->idExists(BRAND_BOOL_UPDATE_ENABLED) && "
                     "be->getBool(BRAND_BOOL_UPDATE_ENABLED)");
}

QTEST_MAIN(TestDesktop)
#include "tst_desktop.moc"
