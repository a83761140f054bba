#pragma once

// Recipes in the desktop program: the list of the profile's recipes, logged to the shown day by
// the portion or, when the dish was weighed, by the gram; and the editor that builds one from
// ingredients.

#include "db/recipedb.h"

#include <QDialog>

#include <functional>

class FoodDB;
class FoodPicker;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QTableWidget;

// Fills a chooser with the six meals under the profile's names, the meal code as item data.
void fillMeals(QComboBox *meals, int userId);

class RecipeDialog : public QDialog
{
    Q_OBJECT

public:
    RecipeDialog(int userId, FoodDB *foods, Recipe recipe, QWidget *parent = nullptr);
    const Recipe &recipe() const { return _recipe; }
    void accept() override; // stores the recipe, or says what it lacks

private:
    void refresh();
    void removeIngredient();

    Recipe _recipe;
    QLineEdit *_name;
    QDoubleSpinBox *_portions;
    QDoubleSpinBox *_cooked;
    QTableWidget *_ingredients;
    QLabel *_totals;
};

class RecipesDialog : public QDialog
{
    Q_OBJECT

public:
    // Logging goes through log (the recipe, meal, portions, or grams when portions is 0), so
    // that the diary view records it for undo.
    using Log = std::function<bool(const Recipe &recipe, int meal, double portions, double grams)>;
    RecipesDialog(int userId, FoodDB *foods, int meal, Log log, QWidget *parent = nullptr);

    void edit(int id); // -1: a new recipe
    bool logCurrent();

private:
    void refresh(int select = -1);
    std::optional<Recipe> current() const;
    void updateUnits();

    int _userId;
    FoodDB *_foods;
    Log _log;
    QListWidget *_list;
    QLabel *_emptyHint;
    QList<QWidget *> _needRecipe; // what acts on the chosen recipe
    QComboBox *_meal;
    QDoubleSpinBox *_amount;
    QComboBox *_unit;
};
