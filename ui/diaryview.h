#pragma once

// One day of the diary: the meals with their entries and totals against the targets in force,
// the green ticks, the water counter, and beside them the food browser that searches as you type
// and adds the chosen food to a meal.

#include "model/dbtypes.h"
#include "staticdb/dynamicdb.h"
#include "staticdb/searchranking.h"

#include <QDate>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>

class ExDB;
class FoodDB;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QSpinBox;
class QTreeWidget;

class DiaryView : public QWidget
{
    Q_OBJECT

public:
    explicit DiaryView(QWidget *parent = nullptr);
    ~DiaryView() override;

    void setUser(int user_id);
    QDate date() const { return _date; }
    void setDate(const QDate &date);

    // The browser: foods or exercises; search, then add the current match (an exercise for the
    // quantity's minutes, at the weight in force that day).
    enum Browse { BrowseFoods, BrowseExercises, BrowseSavedMeals };
    void setBrowsing(int what);
    void setBrowsingExercises(bool exercises) { setBrowsing(exercises ? BrowseExercises : BrowseFoods); }
    // Saves the foods of a meal of the shown day under a name; the saved meal's id, -1 if none.
    int saveMeal(int meal, const QString &name);
    void search(const QString &query);
    bool addSelectedFood();
    // Every value of the chosen food for the chosen amount and per 100 g, in a dialog (F3).
    bool showNutrients();
    void deleteSelectedEntry();
    // Copies every entry of the shown day to the same meals of another day; when that day has
    // entries, AskFirst asks whether to add to them or replace them. The entries copied.
    enum CopyMode { AskFirst, Add, Replace };
    int copyDay(const QDate &target, CopyMode mode = AskFirst);
    // Copies the selected entry, or all of the selected meal, to a day and meal (0: the same
    // meals); the entries copied.
    int copySelection(const QDate &target, int meal);
    // Changes the selected food entry's serving and quantity, or moves it to another meal.
    bool editSelectedEntry(int servingId, float quantity);
    bool editEntry(int entryId, int servingId, float quantity);
    bool editExerciseEntry(int exerciseId, float minutes);
    // Whether the entry's food is still there to offer its servings (then they are loaded).
    bool servingsKnown(FoodDiaryItem &entry) const;
    bool moveSelectedEntry(int meal);
    // Every change to the diary made here, named, to take back and make again.
    class QUndoStack *undoStack() const { return _undoStack; }
    bool undo(); // false when there is nothing to undo
    bool redo();
    bool canUndo() const;

    // The user's own foods: a new one in a category (or the profile's root), or a copy of the
    // selected reference food for the chosen serving and quantity. The new food's id, -1 if none.
    int newCustomFood(int category = -1);
    int copySelectedToCustom();
    int newCustomCategory(int parent, const QString &name);
    // Where a custom item or category of the kind browsed can move: (category, path) of the
    // profile's and the shared categories, leaving out a category's own branch.
    QList<QPair<int, QString>> customMoveTargets(int id, bool category) const;
    bool moveCustom(int id, bool category, int target);

    // The nutrient columns (nutrient types), and whether the totals and water panel shows; both
    // are kept with the profile.
    QList<int> columns() const { return _columns; }
    // A profile's columns as kept (energy, carbohydrate, fat and protein when none are), and
    // keeping them.
    static QList<int> columnsOf(int user_id);
    static void saveColumns(int user_id, const QList<int> &columns);
    void setColumns(const QList<int> &columns);
    void setNutrientPanelHidden(bool hidden);

    // What a drop of "binary/lmitem" does: adds the item to the meal (0: the chosen one).
    bool dropItem(const QString &kind, int id, int meal);

    // Keeps the split between the day and the browser for the next start.
    void saveLayout() const;

    // The profile's units or meal names changed.
    void preferencesChanged() { setUser(_userId); }

signals:
    void dayChanged(const QDate &date);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void refresh();
    void populateTree();
    void fillTreeItem(class QTreeWidgetItem *parent);
    void treeMenu(const QPoint &at);
    void moveCustomInDialog(int id, bool category);
    // The custom foods or exercises, as browsed, and the row of a root category made when needed.
    DynamicDB *browsedCustom() const;
    const DynamicDB::Tables &browsedTables() const;
    void makeRootRow(int category);
    void select(int id);
    void markCalendar();
    void editSelectedEntryInDialog();
    void copySelectionInDialog();
    int copyFoods(const QList<FoodDiaryItem> &foods, const QDate &target, int meal);
    // Shows why when a change could not be stored; ok as it came.
    bool written(bool ok);
    void record(class QUndoCommand *command);
    std::function<void()> changed(); // what undo and redo do after: the day drawn again
    // Fills the servings of the selected food, its usual one chosen; that one's usual quantity,
    // 0 when no food is selected.
    float updateServings();
    void updatePreview();

    int _userId = -1;
    bool _metric = true; // the profile measures in grams and millilitres
    QDate _date;
    std::unique_ptr<FoodDB> _foods;
    std::unique_ptr<ExDB> _exercises;
    int _browsing = BrowseFoods;
    // What the profile eats and does, for the order of the matches; read again when the diary
    // or the favourites change.
    std::optional<SearchHistory> _history;
    class QUndoStack *_undoStack;
    QList<int> _columns;
    QWidget *_panel;
    class DayStatus *_status;
    class QSplitter *_splitter;
    class QCalendarWidget *_calendar = nullptr;

    QLabel *_title;
    QTreeWidget *_entries;
    QLabel *_totals;
    QLabel *_ticks;
    QSpinBox *_water;
    QComboBox *_kind;
    QLineEdit *_query;
    QListWidget *_matches;
    QLabel *_searchNote;
    class QTabWidget *_views;
    QTreeWidget *_tree;
    int _selectedId = -1;
    QComboBox *_meal;
    QComboBox *_serving;
    QDoubleSpinBox *_quantity;
    QLabel *_quantityLabel;
    QLabel *_preview;
};
