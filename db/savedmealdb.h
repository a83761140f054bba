#pragma once

// Saved meals: named groups of foods that a profile adds to any meal in one step. They live in
// the diary's own tables without a date (group_diary for the meal, food_diary for its foods).
// The food browser lists them under one "My Saved Meals" category per profile (id user + 2) and
// the shared ones under category 1.
//
// The meal-plan store is the diary store on the meal-plan tables, with real deletions.

#include "db/diarydb.h"

#include <QList>
#include <QPair>
#include <QString>

struct SavedMeal
{
    int meal_id = -1;
    int user_id = -1; // -1: shared by every profile
    QString name;
    QList<FoodDiaryItem> foods;
};

class SavedMealDB
{
public:
    static constexpr int kSharedCategory = 1;
    static int categoryOf(int user_id) { return user_id + 2; }

    // (category id, "My Saved Meals") for each profile; only the root (0) has children.
    static QList<QPair<int, QString>> getCategories(int parent);
    // (meal id, name) of the live, named meals of a category, by name regardless of case.
    static QList<QPair<int, QString>> getMeals(int category);

    static int createMeal(SavedMeal &meal);
    static bool renameMeal(int group_id, const QString &name);
    static bool moveMeal(int group_id, int user_id);
    static bool deleteMeal(int group_id);
    static QList<FoodDiaryItem> getMealFoods(int group_id);
    // Replaces the foods of a saved meal, in one transaction; days logged from it keep theirs.
    static bool setMealFoods(int group_id, const QList<FoodDiaryItem> &foods);
    // Adds a copy of every food of the meal to the day and meal of a profile; returns the new
    // entries.
    static QList<FoodDiaryItem> addMealToDay(int group_id, int user_id, const QString &day, int mealCode);
};

class MealPlanDB : public DiaryDB
{
public:
    MealPlanDB()
        : DiaryDB(QStringLiteral("mealplan"), false)
    {
    }
};
