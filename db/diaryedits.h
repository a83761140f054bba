#pragma once

// What both faces do to a day of the diary, worked out once: the desktop program and the tool
// log food and exercise through these, so the two never come to different figures.

#include "model/dbtypes.h"

#include <QList>
#include <QString>

#include <optional>

namespace DiaryEdits {

// The body weight in force on a day (kg): the latest weighed check-in on or before it.
std::optional<double> weightInForce(int userId, const QString &day);

enum class Logged { Stored, NoWeight, NotStored };

// An exercise of minutes on a day. burnRate is calories per minute and kilogram; the entry
// keeps its rate at the weight in force that day, so a later check-in never changes it. The
// weight is read under the write lock, with the insert.
Logged logExercise(int userId, const QString &day, const QString &name, float burnRate, float minutes,
                   ExerciseDiaryItem *entry);

// A food entry of size servings (servingId) of a food the food information source knows.
bool logFood(int userId, const QString &day, int meal, int foodId, int servingId, float size,
             FoodDiaryItem *entry);

// Entries as a change has them: what it removed, what it added.
struct Entries
{
    QList<FoodDiaryItem> foods;
    QList<ExerciseDiaryItem> exercises;
    bool isEmpty() const { return foods.isEmpty() && exercises.isEmpty(); }
};
// Takes out the entries of remove (by id) and writes those of restore again as new entries,
// their ids updated, in one transaction: undoing or redoing a change that added and removed
// entries. Removed rows stay deleted, so that every synchronised device learns of them.
bool swapEntries(const Entries &remove, Entries *restore);

// Copies every live entry of one day to the same meals of another, in one transaction; with
// replace, the other day's entries go first. What changed, to take it back.
struct DayCopy
{
    Entries removed;
    Entries added;
};
bool copyDay(int userId, const QString &from, const QString &to, bool replace, DayCopy *copy);
// Whether a day has live entries.
bool hasEntries(int userId, const QString &day);

// What an edit of one entry came to. Nothing: the user has no such live entry, or it asked for
// no change; the diary is as it was.
enum class Edited { Stored, Nothing, NotStored };
// An entry changed in place, from before to after, to take back.
struct Change
{
    Entries before;
    Entries after;
};
enum class Kind { Food, Exercise };

// Each reads the entry and writes it under one write lock: the entry changed is the one checked.
Edited moveFood(int userId, int entryId, int meal, Change *change);
// Another serving or quantity; a food no longer in the food information source keeps its stored
// values, scaled by the quantity.
Edited changeFood(int userId, int entryId, int servingId, float size, Change *change);
Edited changeMinutes(int userId, int entryId, float minutes, Change *change);
// Removed rows stay, marked deleted, for every synchronised device to learn of them.
Edited removeEntry(int userId, Kind kind, int entryId, Entries *removed = nullptr);

// Whether the entry's food is still in the food information source to offer its servings (then
// they are loaded).
bool servingsKnown(FoodDiaryItem &entry);

// Copies live food entries to a day, into meal (0: each to its own), in one transaction.
bool copyFoods(const QList<int> &entryIds, const QString &to, int meal, QList<FoodDiaryItem> *copied);
// Adds the foods of a saved meal to a meal of a day; true with nothing added for an empty one.
bool addSavedMeal(int savedMealId, int userId, const QString &day, int meal, QList<FoodDiaryItem> *added);
// Adds copies of foods (part of a saved meal) to a meal of a day, in one transaction.
bool addFoods(const QList<FoodDiaryItem> &foods, int userId, const QString &day, int meal,
              QList<FoodDiaryItem> *added);

} // namespace DiaryEdits
