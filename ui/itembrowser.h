#pragma once

// The food, exercise and saved-meal browser beside the day: a search as you type whose best
// matches come first, the tree of categories, the profile's favourites and recent items first in
// the order, and the meal, serving and quantity to add the chosen item with, with what that
// brings. Adding goes through the editing operations the tool uses and is recorded for undo.

#include "staticdb/itemsearch.h"
#include "staticdb/searchranking.h"

#include <QDate>
#include <QHash>
#include <QWidget>

#include <memory>
#include <optional>

class CustomItems;
class DiaryUndoStack;
class ExDB;
class FoodDB;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QTabWidget;
class QTreeWidget;
class QTreeWidgetItem;

class ItemBrowser : public QWidget
{
    Q_OBJECT

public:
    enum Browse { BrowseFoods, BrowseExercises, BrowseSavedMeals };
    // The browse tree's items: Qt::UserRole has the id, these whether a category, whether custom.
    static constexpr int kCategoryRole = Qt::UserRole + 1;
    static constexpr int kCustomRole = Qt::UserRole + 2;

    ItemBrowser(DiaryUndoStack *undo, QWidget *parent = nullptr);
    ~ItemBrowser() override;

    void setUser(int userId);
    // The day items are added to; exercises burn at the weight in force on it. Coming to today
    // chooses the meal of the time of day.
    void setDate(const QDate &date);
    int userId() const { return _userId; }
    FoodDB *foods() const { return _foods.get(); }
    ExDB *exercises() const { return _exercises.get(); }
    CustomItems *customItems() const { return _custom; }

    void setBrowsing(int what);
    int browsing() const { return _browsing; }
    void search(const QString &query);
    // The search again, after its items changed.
    void searchAgain();
    // What the profile eats and does is read again for the order of the matches.
    void forgetHistory();
    void savedMealsChanged();

    // The chosen item, serving and quantity; choosing another item starts it at its usual serving.
    int selectedId() const { return _selectedId; }
    void select(int id);
    std::optional<int> servingId() const;
    int meal() const; // the meal chosen to add to
    double quantity() const;

    // Adds the chosen item to the chosen meal: a food for the quantity of the serving, an
    // exercise for the quantity's minutes, or a saved meal. Added from the browser, the search
    // box takes the keys again with its words selected, for the next item.
    bool addSelectedFood();
    // Every value of the chosen food for the chosen amount and per 100 g, in a dialog (F3).
    bool showNutrients();
    // What a drop of "binary/lmitem" does: adds the item to the meal (0: the chosen one).
    bool dropItem(const QString &kind, int id, int meal);

    // Where Tab goes, in the order the eye reads it.
    QList<QWidget *> tabOrder() const;

private:
    bool addSelected();
    void chooseMealOfNow();
    QString searchHint() const; // the search box's, for the kind browsed
    void populateTree();
    void fillTreeItem(QTreeWidgetItem *parent);
    void matchesMenu(const QPoint &at);
    // Fills the servings of the selected food, its usual one chosen; that one's usual quantity,
    // 0 when no food is selected.
    float updateServings();
    void updatePreview();

    DiaryUndoStack *_undo;
    int _userId = -1;
    bool _metric = true; // the profile measures in grams and millilitres
    QDate _date;
    std::unique_ptr<FoodDB> _foods;
    std::unique_ptr<ExDB> _exercises;
    int _browsing = BrowseFoods;
    // What the profile eats and does, for the order of the matches; read again when the diary
    // or the favourites change.
    std::optional<SearchHistory> _history;
    QHash<int, ItemEnergy> _foodEnergies;
    int _selectedId = -1;
    double _leadingAmount = 1;             // how many of the usual serving the search asked for ("2 eggs")
    std::optional<double> _leadingMinutes; // and for how long an activity ("30 walking")
    CustomItems *_custom;

    QComboBox *_kind;
    QLineEdit *_query;
    QListWidget *_matches;
    QLabel *_searchNote;
    QTabWidget *_views;
    QTreeWidget *_tree;
    QComboBox *_meal;
    QComboBox *_serving;
    QDoubleSpinBox *_quantity;
    QLabel *_quantityLabel;
    QLabel *_preview;
    QPushButton *_add;
};
