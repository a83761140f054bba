#pragma once

// Saved meals opened: their foods listed with quantities that can be changed or removed, the meal
// renamed or deleted, and all of it or the ticked foods logged to a meal of the shown day.

#include "db/savedmealdb.h"

#include <QDialog>

#include <functional>

class FoodDB;
class QComboBox;
class QLabel;
class QListWidget;
class QTableWidget;

class SavedMealsDialog : public QDialog
{
    Q_OBJECT

public:
    // Logging goes through log, so that the diary view records it for undo.
    using Log = std::function<bool(const QList<FoodDiaryItem> &foods, int meal)>;
    SavedMealsDialog(int userId, FoodDB *foods, int meal, Log log, QWidget *parent = nullptr);

    bool logTicked();

private:
    void refreshMeals(int select = -1);
    void showFoods();
    int currentMeal() const;
    bool store(); // the foods as the table has them
    void quantityChanged(int row, int column);

    int _userId;
    FoodDB *_foodDB;
    Log _log;
    QList<FoodDiaryItem> _foods;
    QListWidget *_meals;
    QLabel *_emptyHint;
    QList<QWidget *> _needMeal; // what acts on the chosen meal
    QTableWidget *_table;
    QComboBox *_meal;
};
