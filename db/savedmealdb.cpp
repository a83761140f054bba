#include "db/savedmealdb.h"

#include "common/lmassert.h"
#include "db/dblog.h"
#include "db/lmsqldb.h"

#include <QSqlQuery>

namespace {

LmSqlQueryPtr prepare(const QString &sql)
{
    return LmSqlDb::instance()->prepare(sql);
}

QVariant userValue(int user_id)
{
    return user_id < 0 ? QVariant() : QVariant(user_id);
}

QVariant nutrientValue(float value)
{
    return isKnown(value) ? QVariant(double(value)) : QVariant();
}

// The food each item came from is kept (ref_id), so that what is logged from the meal can still
// change serving.
bool insertFoods(int group_id, int user_id, const QList<FoodDiaryItem> &foods)
{
    LmSqlQueryPtr food = prepare(QStringLiteral(
        "INSERT INTO food_diary ( group_id, food_name, serving_id, serv_name,\tsize, calories, carb, fat, fiber, "
        "protein, saturated_fat, cholesterol, sodium, sugar, calcium, status, user_id, ref_id) VALUES ( ?, ?, ?, ?, "
        "?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ? )"));
    for (const FoodDiaryItem &item : foods) {
        QVariantList values = {group_id, item.food_name, item.serving_id, item.serv_name, double(item.size)};
        for (int type : {ENERGY, CARB, FAT, FIBER, PROTEIN, SATURATED_FAT, CHOLESTEROL, SODIUM, SUGAR, CALCIUM})
            values.append(nutrientValue(item.getNutrient(type)));
        values << STATUS_LIVE << userValue(user_id)
               << (item.ref_id >= 0 ? QVariant(item.ref_id) : QVariant(QMetaType(QMetaType::Int)));
        if (!execBound(food, values))
            return false;
    }
    return true;
}

} // namespace

QList<QPair<int, QString>> SavedMealDB::getCategories(int parent)
{
    QList<QPair<int, QString>> categories;
    LmSqlQueryPtr query = prepare(
        QStringLiteral("SELECT (user_id + 2), 'My Saved Meals' FROM user_users  WHERE ? = 0 ORDER BY user_id"));
    if (execBound(query, {parent})) {
        while (query->next())
            categories.append({query->value(0).toInt(), query->value(1).toString()});
    }
    return categories;
}

QList<QPair<int, QString>> SavedMealDB::getMeals(int category)
{
    QList<QPair<int, QString>> meals;
    // The deleted status is formatted into the text; the category is bound twice.
    LmSqlQueryPtr query = prepare(
        QStringLiteral("SELECT group_id, name FROM group_diary  WHERE date IS NULL  AND (  (user_id = ? - 2)  OR  "
                       "(user_id IS NULL and ? = 1)  ) AND status <> %1 AND name <> \"\" ORDER BY UPPER(name)")
            .arg(STATUS_DELETED));
    if (execBound(query, {category, category})) {
        while (query->next())
            meals.append({query->value(0).toInt(), query->value(1).toString()});
    }
    return meals;
}

int SavedMealDB::createMeal(SavedMeal &meal)
{
    const int meal_id = meal.meal_id;
    LM_ASSERT(meal_id < 0);
    LmWriteTransaction write;
    LmSqlQueryPtr group =
        prepare(QStringLiteral("INSERT INTO group_diary(group_id, user_id, name, status) VALUES (?, ?, ?, ?)"));
    if (!write.isOpen() || !execBound(group, {QVariant(), userValue(meal.user_id), meal.name, STATUS_LIVE}))
        return -1;
    LmSqlQueryPtr maxId = prepare(QStringLiteral("SELECT MAX(group_id) FROM group_diary"));
    if (!execBound(maxId) || !maxId->next())
        return -1;
    const int id = maxId->value(0).toInt();
    LmSqlDb::releaseQuery(maxId);

    if (!insertFoods(id, meal.user_id, meal.foods))
        return -1;
    if (!write.commit())
        return -1;
    meal.meal_id = id;
    return id;
}

bool SavedMealDB::renameMeal(int group_id, const QString &name)
{
    LmWriteTransaction write;
    LmSqlQueryPtr query = prepare(QStringLiteral("UPDATE group_diary SET name = ? WHERE group_id = ?"));
    return write.commit(write.isOpen() && execBound(query, {name, group_id}));
}

bool SavedMealDB::moveMeal(int group_id, int user_id)
{
    LmWriteTransaction write;
    LmSqlQueryPtr group = prepare(QStringLiteral("UPDATE group_diary SET user_id = ? WHERE group_id = ?"));
    LmSqlQueryPtr foods = prepare(QStringLiteral("UPDATE food_diary SET user_id = ? WHERE group_id = ?"));
    return write.commit(write.isOpen() && execBound(group, {userValue(user_id), group_id}) &&
                        execBound(foods, {userValue(user_id), group_id}));
}

bool SavedMealDB::deleteMeal(int group_id)
{
    LmWriteTransaction write;
    if (!write.isOpen())
        return false;
    LmSqlQueryPtr foods = prepare(QStringLiteral("SELECT food_id FROM food_diary WHERE group_id = ?"));
    QList<int> ids;
    if (!execBound(foods, {group_id}))
        return write.commit(false);
    while (foods->next())
        ids.append(foods->value(0).toInt());
    LmSqlDb::releaseQuery(foods);
    const DiaryDB diary;
    for (int id : ids) {
        if (!diary.removeFoodEntry(id))
            return write.commit(false);
    }
    LmSqlQueryPtr group = prepare(QStringLiteral("UPDATE group_diary SET status = ? WHERE group_id = ?"));
    LmSqlQueryPtr sync = prepare(QStringLiteral("UPDATE group_diary_sync SET state = ? WHERE group_id = ?"));
    return write.commit(execBound(group, {STATUS_DELETED, group_id}) && execBound(sync, {2, group_id}));
}

QList<FoodDiaryItem> SavedMealDB::getMealFoods(int group_id)
{
    QList<FoodDiaryItem> foods;
    LmSqlQueryPtr query = prepare(QStringLiteral(
        "SELECT ref_id, food_name, serving_id, serv_name, size, calories, carb, fat, fiber, protein, saturated_fat, "
        "cholesterol, sodium, sugar, calcium  FROM food_diary WHERE group_id = ? AND date IS NULL"));
    if (!execBound(query, {group_id}))
        return foods;
    while (query->next()) {
        FoodDiaryItem item(true);
        item.ref_id = query->value(0).isNull() ? -1 : query->value(0).toInt();
        item.food_name = query->value(1).toString();
        item.serving_id = query->value(2).toInt();
        item.serv_name = query->value(3).toString();
        item.size = query->value(4).toFloat();
        int column = 5;
        for (int type : {ENERGY, CARB, FAT, FIBER, PROTEIN, SATURATED_FAT, CHOLESTEROL, SODIUM, SUGAR, CALCIUM}) {
            const QVariant value = query->value(column++);
            item.setNutrient(type, value.isNull() ? kUnknownNutrient : value.toFloat());
        }
        foods.append(item);
    }
    return foods;
}

QList<FoodDiaryItem> SavedMealDB::addMealToDay(int group_id, int user_id, const QString &day, int mealCode)
{
    const DiaryDB diary;
    QList<FoodDiaryItem> added;
    LmWriteTransaction write;
    if (!write.isOpen())
        return {};
    for (FoodDiaryItem item : getMealFoods(group_id)) {
        item.user_id = user_id;
        item.setDate(day);
        item.meal = mealCode;
        if (!diary.addFoodEntry(item))
            return {};
        added.append(item);
    }
    if (!write.commit())
        return {};
    return added;
}

bool SavedMealDB::setMealFoods(int group_id, const QList<FoodDiaryItem> &foods)
{
    LmWriteTransaction write;
    LmSqlQueryPtr owner = prepare(QStringLiteral("SELECT user_id FROM group_diary WHERE group_id = ? AND status = ?"));
    if (!write.isOpen() || !execBound(owner, {group_id, STATUS_LIVE}) || !owner->next())
        return write.commit(false);
    const int user_id = owner->value(0).isNull() ? -1 : owner->value(0).toInt();
    LmSqlDb::releaseQuery(owner);
    // Gone for good, since the meal's foods are read whatever their status; the delete trigger
    // still tells every synchronised device.
    LmSqlQueryPtr remove = prepare(QStringLiteral("DELETE FROM food_diary WHERE group_id = ? AND date IS NULL"));
    return write.commit(execBound(remove, {group_id}) && insertFoods(group_id, user_id, foods));
}
