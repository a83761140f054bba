#pragma once

// The profile's own foods and exercises, as the browser shows them: new ones and new categories,
// a reference food copied to them, renamed, moved and deleted, from the browse tree's menu. Each
// change is in the custom items' tables at once; the browser searches again to show it.

#include "staticdb/dynamicdb.h"

#include <QList>
#include <QObject>
#include <QPair>

class ItemBrowser;
class QTreeWidgetItem;

class CustomItems : public QObject
{
    Q_OBJECT

public:
    explicit CustomItems(ItemBrowser *browser);

    // A new food in a category (or the profile's root), named name to begin with, or a copy of
    // the browser's reference food for its serving and quantity. The new food's id, -1 if none.
    int newCustomFood(int category = -1, const QString &name = {});
    int copySelectedToCustom();
    int newCustomCategory(int parent, const QString &name);
    // Where a custom item or category of the kind browsed can move: (category, path) of the
    // profile's and the shared categories, leaving out a category's own branch.
    QList<QPair<int, QString>> customMoveTargets(int id, bool category) const;
    bool moveCustom(int id, bool category, int target);

    // The browse tree's menu for an item, at a point of the screen.
    void treeMenu(const QTreeWidgetItem *item, const QPoint &at);

private:
    void moveCustomInDialog(int id, bool category);
    void newExercise(int category);
    void editExercise(int id);
    // The custom foods or exercises, as browsed, and the row of a root category made when needed.
    DynamicDB *browsedCustom() const;
    const DynamicDB::Tables &browsedTables() const;
    void makeRootRow(int category);

    ItemBrowser *_browser;
};
