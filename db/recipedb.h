#pragma once

// Recipes: ingredients with their quantities, made into a number of portions and, when it was
// weighed, a cooked weight. Each ingredient keeps its values for its quantity as the recipe was
// made; a logged recipe is an entry of its own with the values of what was eaten, so changing or
// removing a recipe never changes a day already logged.

#include "model/dbtypes.h"

#include <QList>
#include <QPair>
#include <QString>

#include <optional>

struct Recipe
{
    int id = -1;
    int user_id = -1; // -1: shared by every profile
    QString name;
    double portions = 1.0;
    double cookedWeight = -1.0; // grams; -1 when not weighed
    QList<FoodDiaryItem> ingredients;

    // The values of the whole dish, of one portion, of one gram cooked (none unweighed).
    FoodDiaryItem whole() const;
    FoodDiaryItem portion() const { return share(1.0 / portions); }
    FoodDiaryItem share(double factor) const;
};

namespace RecipeDB {

// Stores a new recipe (id -1; the id is set) or writes over one, ingredients and all, in one
// transaction. False when it could not be stored.
bool save(Recipe &recipe);
// Marks it removed; days it was logged on keep their entries.
bool remove(int id);
// A live recipe the profile may use (its own or a shared one).
std::optional<Recipe> get(int id, int user_id);
// (id, name) of the recipes a profile may use, by name regardless of case.
QList<QPair<int, QString>> list(int user_id);

// An entry of portions, or (portions <= 0) of grams of the cooked dish, for a day and meal:
// named after the recipe, its serving "portion" or "g", without a food id.
FoodDiaryItem entryOf(const Recipe &recipe, double portions, double grams);
// Logs that entry; false when it could not be stored.
bool log(int user_id, const QString &day, int meal, const Recipe &recipe, double portions, double grams,
         FoodDiaryItem *entry);

} // namespace RecipeDB
