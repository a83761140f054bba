#include "db/diaryedits.h"

#include "db/diarydb.h"
#include "db/lmsqldb.h"
#include "db/savedmealdb.h"
#include "db/userdb.h"

#include <algorithm>

namespace DiaryEdits {

std::optional<double> weightInForce(int userId, const QString &day)
{
    const auto weight =
        UserDB::getLatest(QStringLiteral("user_checkins"), QStringLiteral("weight"), userId, day, -1);
    if (!weight || weight->first <= 0)
        return std::nullopt;
    return weight->first;
}

Logged logExercise(int userId, const QString &day, const QString &name, float burnRate, float minutes,
                   ExerciseDiaryItem *entry)
{
    LmWriteTransaction write;
    if (!write.isOpen())
        return Logged::NotStored;
    const std::optional<double> weight = weightInForce(userId, day);
    if (!weight)
        return Logged::NoWeight;
    ExerciseDiaryItem item;
    item.user_id = userId;
    item.date = day;
    item.duration = minutes;
    item.rate = burnRate * float(*weight);
    item.name = name;
    if (!write.commit(DiaryDB().addExerciseEntry(item)))
        return Logged::NotStored;
    *entry = item;
    return Logged::Stored;
}

bool logFood(int userId, const QString &day, int meal, int foodId, int servingId, float size,
             FoodDiaryItem *entry)
{
    FoodDiaryItem item;
    item.user_id = userId;
    item.changeFood(foodId);
    item.setServing(servingId);
    item.setSize(size);
    item.setDate(day);
    item.meal = meal;
    if (!DiaryDB().addFoodEntry(item))
        return false;
    *entry = item;
    return true;
}

bool swapEntries(const Entries &remove, Entries *restore)
{
    const DiaryDB diary;
    LmWriteTransaction write;
    bool ok = write.isOpen();
    for (const FoodDiaryItem &food : remove.foods)
        ok = ok && diary.removeFoodEntry(food.food_id);
    for (const ExerciseDiaryItem &exercise : remove.exercises)
        ok = ok && diary.removeExerciseEntry(exercise.ex_id);
    Entries written = *restore;
    for (FoodDiaryItem &food : written.foods) {
        food.food_id = -1;
        food.status = STATUS_LIVE;
        ok = ok && diary.addFoodEntry(food);
    }
    for (ExerciseDiaryItem &exercise : written.exercises) {
        exercise.ex_id = -1;
        exercise.status = STATUS_LIVE;
        ok = ok && diary.addExerciseEntry(exercise);
    }
    if (!write.commit(ok))
        return false;
    *restore = written;
    return true;
}

bool hasEntries(int userId, const QString &day)
{
    const DiaryDay entries = DiaryDB().getDay(userId, day);
    const auto live = [](const auto &entry) { return entry.status != STATUS_DELETED; };
    return std::any_of(entries.foods.cbegin(), entries.foods.cend(), live) ||
           std::any_of(entries.exercises.cbegin(), entries.exercises.cend(), live);
}

bool copyDay(int userId, const QString &from, const QString &to, bool replace, DayCopy *copy)
{
    const DiaryDB diary;
    DayCopy done;
    LmWriteTransaction write;
    bool ok = write.isOpen();
    // Read under the lock: what is copied and replaced is what is there.
    const DiaryDay source = diary.getDay(userId, from);
    const DiaryDay target = diary.getDay(userId, to);
    for (const FoodDiaryItem &food : target.foods) {
        if (ok && replace && food.status != STATUS_DELETED) {
            ok = diary.removeFoodEntry(food.food_id);
            done.removed.foods.append(food);
        }
    }
    for (const ExerciseDiaryItem &exercise : target.exercises) {
        if (ok && replace && exercise.status != STATUS_DELETED) {
            ok = diary.removeExerciseEntry(exercise.ex_id);
            done.removed.exercises.append(exercise);
        }
    }
    for (FoodDiaryItem food : source.foods) {
        if (!ok || food.status == STATUS_DELETED)
            continue;
        food.food_id = -1;
        food.setDate(to);
        ok = diary.addFoodEntry(food);
        done.added.foods.append(food);
    }
    for (ExerciseDiaryItem exercise : source.exercises) {
        if (!ok || exercise.status == STATUS_DELETED)
            continue;
        exercise.ex_id = -1;
        exercise.date = to;
        ok = diary.addExerciseEntry(exercise);
        done.added.exercises.append(exercise);
    }
    if (!write.commit(ok))
        return false;
    *copy = done;
    return true;
}

namespace {

// The user's live entry of that id in the diary (saved meals keep their foods without a day).
bool liveFood(int userId, int entryId, FoodDiaryItem *entry)
{
    *entry = DiaryDB().getFoodEntry(entryId);
    return entry->food_id == entryId && entry->user_id == userId && entry->status == STATUS_LIVE &&
           !entry->date.isEmpty();
}

bool liveExercise(int userId, int entryId, ExerciseDiaryItem *entry)
{
    *entry = DiaryDB().getExerciseEntry(entryId);
    return entry->ex_id == entryId && entry->user_id == userId && entry->status == STATUS_LIVE;
}

Edited updated(LmWriteTransaction &write, bool ok)
{
    return write.commit(ok) ? Edited::Stored : Edited::NotStored;
}

// Reads the user's live food entry and writes it as edit leaves it, under one write lock.
template <typename Edit> Edited editFood(int userId, int entryId, Change *change, Edit edit)
{
    LmWriteTransaction write;
    if (!write.isOpen())
        return Edited::NotStored;
    FoodDiaryItem entry;
    if (!liveFood(userId, entryId, &entry))
        return Edited::Nothing;
    change->before = {{entry}, {}};
    edit(entry);
    change->after = {{entry}, {}};
    return updated(write, DiaryDB().updateFoodEntry(entry.food_id, entry));
}

} // namespace

Edited moveFood(int userId, int entryId, int meal, Change *change)
{
    return editFood(userId, entryId, change, [meal](FoodDiaryItem &entry) { entry.meal = meal; });
}

Edited changeFood(int userId, int entryId, int servingId, float size, Change *change)
{
    if (size <= 0)
        return Edited::Nothing;
    return editFood(userId, entryId, change, [servingId, size](FoodDiaryItem &entry) {
        if (servingsKnown(entry)) {
            entry.setServing(servingId);
            entry.setSize(size);
        } else {
            entry.scale(size / entry.size);
            entry.size = size;
        }
    });
}

Edited changeMinutes(int userId, int entryId, float minutes, Change *change)
{
    LmWriteTransaction write;
    if (!write.isOpen())
        return Edited::NotStored;
    ExerciseDiaryItem entry;
    if (minutes <= 0 || !liveExercise(userId, entryId, &entry) || entry.duration == minutes)
        return Edited::Nothing;
    change->before = {{}, {entry}};
    entry.duration = minutes;
    change->after = {{}, {entry}};
    return updated(write, DiaryDB().updateExerciseEntry(entry));
}

Edited removeEntry(int userId, Kind kind, int entryId, Entries *removed)
{
    const DiaryDB diary;
    LmWriteTransaction write;
    if (!write.isOpen())
        return Edited::NotStored;
    Entries gone;
    bool ok = false;
    if (kind == Kind::Exercise) {
        ExerciseDiaryItem entry;
        if (!liveExercise(userId, entryId, &entry))
            return Edited::Nothing;
        gone.exercises.append(entry);
        ok = diary.removeExerciseEntry(entryId);
    } else {
        FoodDiaryItem entry;
        if (!liveFood(userId, entryId, &entry))
            return Edited::Nothing;
        gone.foods.append(entry);
        ok = diary.removeFoodEntry(entryId);
    }
    if (!write.commit(ok))
        return Edited::NotStored;
    if (removed)
        *removed = gone;
    return Edited::Stored;
}

bool servingsKnown(FoodDiaryItem &entry)
{
    return entry.ref_id >= 0 && FoodInfoSource::instance() && entry.loadFoodInfo(true);
}

bool copyFoods(const QList<int> &entryIds, const QString &to, int meal, QList<FoodDiaryItem> *copied)
{
    const DiaryDB diary;
    QList<FoodDiaryItem> written;
    LmWriteTransaction write;
    bool ok = write.isOpen();
    for (const int id : entryIds) {
        FoodDiaryItem food = diary.getFoodEntry(id);
        if (!ok || food.food_id != id || food.status == STATUS_DELETED)
            continue;
        food.food_id = -1;
        food.setDate(to);
        if (meal > 0)
            food.meal = meal;
        ok = diary.addFoodEntry(food);
        written.append(food);
    }
    if (!write.commit(ok))
        return false;
    *copied = written;
    return true;
}

bool addSavedMeal(int savedMealId, int userId, const QString &day, int meal, QList<FoodDiaryItem> *added)
{
    *added = SavedMealDB::addMealToDay(savedMealId, userId, day, meal);
    return !added->isEmpty() || SavedMealDB::getMealFoods(savedMealId).isEmpty();
}

bool addFoods(const QList<FoodDiaryItem> &foods, int userId, const QString &day, int meal,
              QList<FoodDiaryItem> *added)
{
    const DiaryDB diary;
    LmWriteTransaction write;
    bool ok = write.isOpen();
    QList<FoodDiaryItem> written;
    for (FoodDiaryItem food : foods) {
        food.food_id = -1;
        food.user_id = userId;
        food.group_id = -1;
        food.status = STATUS_LIVE;
        food.setDate(day);
        food.meal = meal;
        ok = ok && diary.addFoodEntry(food);
        written.append(food);
    }
    if (!write.commit(ok))
        return false;
    *added = written;
    return true;
}

} // namespace DiaryEdits
