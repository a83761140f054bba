#include "db/diaryedits.h"

#include "db/diarydb.h"
#include "db/lmsqldb.h"
#include "db/userdb.h"

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

} // namespace DiaryEdits
