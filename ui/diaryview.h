#pragma once

// One day of the diary: its title and navigation, the day's tree of meals and entries (DayView),
// where the day stands, the totals, green ticks and water counter, and beside them the browser
// (ItemBrowser) that adds foods, exercises and saved meals to it. Every change to the diary made
// here is on one undo stack; after each, the day is read again.

#include "ui/customitems.h"
#include "ui/dayview.h"
#include "ui/itembrowser.h"

#include <QDate>
#include <QWidget>

class DiaryUndoStack;
class QLabel;
class QSpinBox;

class DiaryView : public QWidget
{
    Q_OBJECT

public:
    explicit DiaryView(QWidget *parent = nullptr);
    ~DiaryView() override;

    void setUser(int user_id);
    QDate date() const { return _date; }
    void setDate(const QDate &date);

    DayView *dayView() const { return _day; }
    ItemBrowser *browser() const { return _browser; }

    // The browser: foods, exercises or saved meals (ItemBrowser::Browse); search, then add the
    // current match.
    void setBrowsing(int what) { _browser->setBrowsing(what); }
    bool addSelectedFood() { return _browser->addSelectedFood(); }

    // The day's entries.
    int saveMeal(int meal, const QString &name) { return _day->saveMeal(meal, name); }
    void deleteSelectedEntry() { _day->deleteSelectedEntry(); }
    int copySelection(const QDate &target, int meal) { return _day->copySelection(target, meal); }
    bool editSelectedEntry(int servingId, float quantity)
    {
        return _day->editSelectedEntry(servingId, quantity);
    }
    bool moveSelectedEntry(int meal) { return _day->moveSelectedEntry(meal); }
    // Copies every entry of the shown day to the same meals of another day; when that day has
    // entries, AskFirst asks whether to add to them or replace them. The entries copied.
    enum CopyMode { AskFirst, Add, Replace };
    int copyDay(const QDate &target, CopyMode mode = AskFirst);

    // A recipe by the portion (or, portions 0, by the gram), or foods of a saved meal, logged to a
    // meal of the shown day as changes to undo.
    bool logRecipe(const struct Recipe &recipe, int meal, double portions, double grams);
    bool logFoods(const QList<FoodDiaryItem> &foods, int meal);
    // The meal the browser adds to.
    int meal() const { return _browser->meal(); }
    // The day read again: its targets or goals changed.
    void reload();

    // Every change to the diary made here, named, to take back and make again.
    class QUndoStack *undoStack() const;
    bool undo(); // false when there is nothing to undo
    bool redo();
    bool canUndo() const;

    // The user's own foods and exercises.
    int copySelectedToCustom() { return _browser->customItems()->copySelectedToCustom(); }
    int newCustomCategory(int parent, const QString &name)
    {
        return _browser->customItems()->newCustomCategory(parent, name);
    }
    QList<QPair<int, QString>> customMoveTargets(int id, bool category) const
    {
        return _browser->customItems()->customMoveTargets(id, category);
    }
    bool moveCustom(int id, bool category, int target)
    {
        return _browser->customItems()->moveCustom(id, category, target);
    }

    // The nutrient columns (nutrient types), and whether the totals and water panel shows; both
    // are kept with the profile.
    QList<int> columns() const;
    // Keeps a profile's columns (read with DayTable::columnsOf).
    static void saveColumns(int user_id, const QList<int> &columns);
    void setColumns(const QList<int> &columns);
    void setNutrientPanelHidden(bool hidden);

    // Keeps the split between the day and the browser for the next start.
    void saveLayout() const;

    // The profile's units or meal names changed.
    void preferencesChanged() { setUser(_userId); }

signals:
    void dayChanged(const QDate &date);

private:
    // The title, where the day stands and the water, from the day as last read.
    void refresh();
    void markCalendar();

    int _userId = -1;
    QDate _date;
    DiaryUndoStack *_undo;
    DayView *_day;
    ItemBrowser *_browser;
    QWidget *_panel;
    class DayStatus *_status;
    class QSplitter *_splitter;
    class QCalendarWidget *_calendar = nullptr;
    QLabel *_title;
    QLabel *_totals;
    QLabel *_ticks;
    QSpinBox *_water;
    int _waterGoal = 8; // glasses a day, read with the profile and its goals
};
