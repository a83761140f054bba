#pragma once

// The shown day's tree of meals and entries. Quantity, serving and minutes are edited where they
// stand (F2, Shift+F2, a double-click), entries deleted, moved and copied from the keyboard or a
// menu, each change through the editing operations the tool uses and recorded for undo. Items
// dragged from the browser onto a meal are handed on as itemDropped. The meals stay open or
// closed and the current row stays current as the day is read again after a change.

#include "ui/daymodel.h"

#include <QSet>
#include <QTreeView>

class DiaryUndoStack;

class DayView : public QTreeView
{
    Q_OBJECT

public:
    DayView(DiaryUndoStack *undo, QWidget *parent = nullptr);

    DayModel *day() const { return _model; }
    // A profile's day with its nutrient columns, laid out for them; another day of it; the same
    // day read again.
    void setDay(int userId, const QDate &date, const QList<int> &columns);
    void setDate(const QDate &date);
    void refresh();

    void deleteSelectedEntry();
    // Changes the selected food entry's serving and quantity, or moves it to another meal.
    bool editSelectedEntry(int servingId, float quantity);
    bool editEntry(int entryId, int servingId, float quantity);
    bool editExerciseEntry(int entryId, float minutes);
    bool moveSelectedEntry(int meal);
    // Copies the selected entry, or all of the selected meal, to a day and meal (0: the same
    // meals); the entries copied.
    int copySelection(const QDate &target, int meal);
    // Saves the foods of a meal of the day under a name; the saved meal's id, -1 if none.
    int saveMeal(int meal, const QString &name);

signals:
    // A drop of "binary/lmitem" onto a meal (0 when not onto one).
    void itemDropped(const QString &kind, int id, int meal);
    void mealSaved();

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    // The current row's entry; false on a meal's row or none.
    bool currentEntry(DayModel::Kind *kind, int *id) const;
    void editCell(const QModelIndex &cell);
    void reopen(); // opens the groups not closed by hand
    void contextMenu(const QPoint &at);
    void editSelectedEntryInDialog();
    void copySelectionInDialog();
    void layOutColumns();
    static int groupKey(const QModelIndex &group);

    DayModel *_model;
    DiaryUndoStack *_undo;
    QSet<int> _closed; // the groups closed by hand, by groupKey
};
