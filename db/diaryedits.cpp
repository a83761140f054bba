#include "db/diaryedits.h"

#include "db/diarydb.h"
#include "db/lmsqldb.h"
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

} // namespace DiaryEdits
