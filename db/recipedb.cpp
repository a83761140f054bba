#include "db/recipedb.h"

#include "db/diarydb.h"
#include "db/lmsqldb.h"

#include <QDateTime>
#include <QSqlQuery>

using namespace Qt::StringLiterals;

namespace {

// The nutrient columns of recipe_ingredients, in nutrient-type order.
constexpr const char *kNutrientColumns[kNutrientCount] = {
    "calories",      "carb",        "fat",    "protein", "fiber",
    "saturated_fat", "cholesterol", "sodium", "sugar",   "calcium"};

QVariant userValue(int user_id)
{
    return user_id < 0 ? QVariant(QMetaType(QMetaType::Int)) : QVariant(user_id);
}

QVariant nutrientValue(float value)
{
    return isKnown(value) ? QVariant(double(value)) : QVariant(QMetaType(QMetaType::Double));
}

QString nutrientColumns()
{
    QStringList columns;
    for (const char *column : kNutrientColumns)
        columns.append(QLatin1String(column));
    return columns.join(u", "_s);
}

} // namespace

FoodDiaryItem Recipe::whole() const
{
    FoodDiaryItem total;
    for (const FoodDiaryItem &ingredient : ingredients)
        total.add(ingredient);
    return total;
}

FoodDiaryItem Recipe::share(double factor) const
{
    FoodDiaryItem item = whole();
    item.scale(float(factor));
    item.food_name = name;
    return item;
}

bool RecipeDB::save(Recipe &recipe)
{
    if (recipe.name.trimmed().isEmpty() || !(recipe.portions > 0) || recipe.ingredients.isEmpty())
        return false;
    LmWriteTransaction write;
    if (!write.isOpen())
        return false;
    const QString now = QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
    const QVariant cooked =
        recipe.cookedWeight > 0 ? QVariant(recipe.cookedWeight) : QVariant(QMetaType(QMetaType::Double));
    int id = recipe.id;
    if (id < 0) {
        LmSqlQueryPtr insert = runBound(
            u"INSERT INTO recipes (user_id, name, portions, cooked_weight, status, created, modified) "
            "VALUES (?, ?, ?, ?, ?, ?, ?)"_s,
            {userValue(recipe.user_id), recipe.name, recipe.portions, cooked, STATUS_LIVE, now, now});
        LmSqlQueryPtr last = insert.isNull() ? LmSqlQueryPtr() : runBound(u"SELECT last_insert_rowid()"_s);
        if (last.isNull() || !last->next())
            return write.commit(false);
        id = last->value(0).toInt();
    } else if (runBound(
                   u"UPDATE recipes SET user_id = ?, name = ?, portions = ?, cooked_weight = ?, modified = ? "
                   "WHERE recipe_id = ? AND status = ?"_s,
                   {userValue(recipe.user_id), recipe.name, recipe.portions, cooked, now, id, STATUS_LIVE})
                   .isNull() ||
               runBound(u"DELETE FROM recipe_ingredients WHERE recipe_id = ?"_s, {id}).isNull()) {
        return write.commit(false);
    }
    LmSqlQueryPtr ingredient = LmSqlDb::instance()->prepare(
        u"INSERT INTO recipe_ingredients (recipe_id, position, ref_id, food_name, serving_id, serv_name, size, "_s +
        nutrientColumns() + u") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"_s);
    int position = 0;
    for (const FoodDiaryItem &item : recipe.ingredients) {
        QVariantList values = {id,
                               position++,
                               item.ref_id >= 0 ? QVariant(item.ref_id) : QVariant(QMetaType(QMetaType::Int)),
                               item.food_name,
                               item.serving_id,
                               item.serv_name,
                               double(item.size)};
        for (int type = 0; type < kNutrientCount; ++type)
            values.append(nutrientValue(item.getNutrient(type)));
        if (!execBound(ingredient, values))
            return write.commit(false);
    }
    if (!write.commit())
        return false;
    recipe.id = id;
    return true;
}

bool RecipeDB::remove(int id)
{
    LmWriteTransaction write;
    return write.commit(write.isOpen() &&
                        !runBound(u"UPDATE recipes SET status = ?, modified = ? WHERE recipe_id = ?"_s,
                                  {STATUS_DELETED, QDateTime::currentDateTimeUtc().toString(Qt::ISODate), id})
                             .isNull());
}

std::optional<Recipe> RecipeDB::get(int id, int user_id)
{
    LmSqlQueryPtr query = runBound(
        u"SELECT user_id, name, portions, cooked_weight FROM recipes WHERE recipe_id = ? AND status = ? "
        "AND (user_id IS NULL OR user_id = ?)"_s,
        {id, STATUS_LIVE, user_id});
    if (query.isNull() || !query->next())
        return std::nullopt;
    Recipe recipe;
    recipe.id = id;
    recipe.user_id = query->value(0).isNull() ? -1 : query->value(0).toInt();
    recipe.name = query->value(1).toString();
    recipe.portions = query->value(2).toDouble();
    recipe.cookedWeight = query->value(3).isNull() ? -1.0 : query->value(3).toDouble();
    LmSqlQueryPtr items =
        runBound(u"SELECT ref_id, food_name, serving_id, serv_name, size, "_s + nutrientColumns() +
                     u" FROM recipe_ingredients WHERE recipe_id = ? ORDER BY position"_s,
                 {id});
    while (!items.isNull() && items->next()) {
        FoodDiaryItem item(true);
        item.ref_id = items->value(0).isNull() ? -1 : items->value(0).toInt();
        item.food_name = items->value(1).toString();
        item.serving_id = items->value(2).toInt();
        item.serv_name = items->value(3).toString();
        item.size = items->value(4).toFloat();
        for (int type = 0; type < kNutrientCount; ++type) {
            const QVariant value = items->value(5 + type);
            item.setNutrient(type, value.isNull() ? kUnknownNutrient : value.toFloat());
        }
        recipe.ingredients.append(item);
    }
    if (!(recipe.portions > 0))
        return std::nullopt; // a row no program of ours wrote
    return recipe;
}

QList<QPair<int, QString>> RecipeDB::list(int user_id)
{
    QList<QPair<int, QString>> recipes;
    LmSqlQueryPtr query = runBound(u"SELECT recipe_id, name FROM recipes WHERE status = ? AND "
                                   "(user_id IS NULL OR user_id = ?) ORDER BY UPPER(name), recipe_id"_s,
                                   {STATUS_LIVE, user_id});
    while (!query.isNull() && query->next())
        recipes.append({query->value(0).toInt(), query->value(1).toString()});
    return recipes;
}

FoodDiaryItem RecipeDB::entryOf(const Recipe &recipe, double portions, double grams)
{
    const bool byWeight = portions <= 0;
    FoodDiaryItem entry = recipe.share(byWeight ? grams / recipe.cookedWeight : portions / recipe.portions);
    entry.serv_name = byWeight ? u"g"_s : u"portion"_s;
    entry.serving_id = byWeight ? -1 : 0;
    entry.size = float(byWeight ? grams : portions);
    entry.ref_id = -1;
    return entry;
}

bool RecipeDB::log(int user_id, const QString &day, int meal, const Recipe &recipe, double portions,
                   double grams, FoodDiaryItem *entry)
{
    if (portions <= 0 && !(recipe.cookedWeight > 0 && grams > 0))
        return false;
    FoodDiaryItem item = entryOf(recipe, portions, grams);
    item.user_id = user_id;
    item.setDate(day);
    item.meal = meal;
    if (!DiaryDB().addFoodEntry(item))
        return false;
    *entry = item;
    return true;
}
