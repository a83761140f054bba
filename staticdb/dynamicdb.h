#pragma once

// The user's own foods or exercises as a browsable index, built from their SQL tables so that
// browsing and search work on them exactly as on the reference file. Records: "ROOT" (id 0), under
// it the shared root ("Shared " + base name) and the user's root ("My " + base name), then under
// every category its subcategories (flags 0x88) before its items (flags 0x08), each ordered by
// UPPER(name). The roots are always in the index; their rows are made when something is first
// filed under them.

#include "db/lmsqldb.h"
#include "staticdb/staticdb.h"

#include <QList>
#include <QPair>

#include <functional>

// Id space of the custom items and categories.
inline constexpr int kFirstCustomId = 0x1000000;
inline constexpr int kUserRootBase = 0x1FFF000;
inline constexpr int kSharedRootId = 0x2000000;
inline constexpr int kIdLimit = 0x3000000;
inline constexpr quint8 FLAG_CUSTOM = 0x08;

class DynamicDB : public IndexedDB
{
public:
    // Where one kind of custom item lives; the statements are made from these names.
    struct Tables
    {
        const char *baseName;      // "Foods", "Exercises"
        const char *categoryTable; // category_id, parent_id and the name column
        const char *itemTable;     // the id column, category_id and the name column
        const char *itemId;        // "food_id", "activity_id"
        const char *nameColumn;    // "name", "description" (the same in both tables)
    };

    DynamicDB(const Tables &tables, int user_id);

    int userId() const { return _userId; }
    static int rootIdOf(int user_id) { return user_id < 0 ? kSharedRootId : kUserRootBase + user_id; }
    // The root category of a user (-1: the shared one), made when missing.
    static int userRootId(const Tables &tables, int user_id);

    // Category operations; every change rebuilds the index.
    int addCategory(int parent, const QString &name, int id = -1); // the id, -1 on failure
    bool renameCategory(int id, const QString &name);
    bool moveCategory(int id, int parent);
    bool moveItem(int id, int category);
    bool deleteCategory(int id); // with its items and subcategories, recursively
    bool deleteItem(int id);
    QString categoryName(int id) const; // null when there is none
    // (id, name) ordered by UPPER(name).
    QList<QPair<int, QString>> subcategories(int category) const;
    QList<QPair<int, QString>> itemsOf(int category) const;

    // Reads the tables again and replaces the whole index, then sends
    // "dynamicdb_reloaded_notification".
    void rebuild();

protected:
    // The statement text with %1 category table, %2 item table, %3 item id, %4 name column.
    QString sql(const char *text) const;
    // A changing statement, then the index rebuilt.
    bool change(const char *text, const QVariantList &values);
    // Inserts a row under a new id (the result of nextIdSql, at least firstId) in one write
    // transaction; the id, or -1 when nothing was stored.
    int insertWithNextId(const QString &nextIdSql, const QVariantList &nextIdValues, int firstId,
                         const std::function<bool(int id)> &insert);

private:
    bool deleteCategoryRows(int id);

    Tables _tables;
    int _userId;
};
