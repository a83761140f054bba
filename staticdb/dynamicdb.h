#pragma once

// The user's own foods or exercises as a browsable index, built from their SQL tables so that
// browsing and search work on them exactly as on the reference file. Records: "ROOT" (id 0), under
// it the shared root ("Shared " + base name) and the user's root ("My " + base name), then under
// every category its subcategories (flags 0x88) before its items (flags 0x08), each ordered by
// UPPER(name). The roots are always in the index; their rows are made when something is first
// filed under them.

#include "staticdb/staticdb.h"

// Id space of the custom items and categories.
inline constexpr int kFirstCustomId = 0x1000000;
inline constexpr int kUserRootBase = 0x1FFF000;
inline constexpr int kSharedRootId = 0x2000000;
inline constexpr int kIdLimit = 0x3000000;
inline constexpr quint8 FLAG_CUSTOM = 0x08;

class DynamicDB : public IndexedDB
{
public:
    struct Tables
    {
        QString baseName;      // "Foods", "Exercises"
        QString subcategories; // SELECT id, name ... WHERE parent_id = ? ORDER BY UPPER(name)
        QString items;         // SELECT id, name ... WHERE category_id = ? ORDER BY UPPER(name)
    };

    DynamicDB(Tables tables, int user_id);

    int userId() const { return _userId; }
    static int rootIdOf(int user_id) { return user_id < 0 ? kSharedRootId : kUserRootBase + user_id; }

    // Reads the tables again and replaces the whole index, then sends
    // "dynamicdb_reloaded_notification".
    void rebuild();

private:
    Tables _tables;
    int _userId;
};
