#pragma once

// Food and exercise entries of the user database, for one table family: the diary ("diary":
// food_diary, exer_diary; deletions are soft so that they can reach every synchronised device)
// or the meal plan ("mealplan": food_mealplan, exer_mealplan; deletions are real).
//
// getDay() returns deleted entries too (status 2); callers that show a day skip them. Range
// queries and sums leave them out. Every change runs in one write transaction (joining one that
// is open) and answers whether it was stored; a new entry gets its id only then.

#include "model/dbtypes.h"

#include <QDate>
#include <QHash>
#include <QMap>
#include <QSet>
#include <QString>

#include <array>

// Per-day sums of a range: the ten nutrients (model order) and the energy burned.
struct DailyTotal
{
    std::array<double, kNutrientCount> nutrients{};
    double burned = 0.0;
    double minutes = 0.0; // of exercise
    int foodEntries = 0;  // a day with only exercise has none
};

// What a range holds of one food (by reference id and name): its entries and their sums.
struct FoodTotal
{
    int ref_id = -1;
    QString name;
    int entries = 0;
    std::array<double, kNutrientCount> nutrients{};
};

class DiaryDB
{
public:
    explicit DiaryDB(const QString &suffix = QStringLiteral("diary"), bool keepDeleted = true);

    bool addFoodEntry(FoodDiaryItem &fdi) const;
    FoodDiaryItem getFoodEntry(int food_id) const;
    bool updateFoodEntry(int food_id, const FoodDiaryItem &fdi) const;
    bool removeFoodEntry(int food_id) const;

    ExerciseDiaryItem getExerciseEntry(int ex_id) const;
    bool addExerciseEntry(ExerciseDiaryItem &item) const;
    bool updateExerciseEntry(const ExerciseDiaryItem &item) const;
    bool removeExerciseEntry(int ex_id) const;

    DiaryDay getDay(int user_id, const QString &day) const;
    QSet<QString> getDatesWithEntries(int user_id, const QDate &from, const QDate &to, bool includeDeleted) const;
    QSet<QString> getAllDatesWithEntries(int user_id, bool includeDeleted) const;
    QSet<QString> getUnpublishedDates(int user_id) const;
    // Sums per day of the range; mealFilter 0 all meals, -2 all snacks, a meal code, or
    // EXERCISE (energy burned only). Burned energy is filled for 0 and EXERCISE.
    QMap<QString, DailyTotal> getDailyTotals(int user_id, const QString &startDate, const QString &endDate,
                                             int mealFilter) const;
    // Sums of the range by meal code; EXERCISE holds the energy burned and the minutes.
    QMap<int, DailyTotal> getMealTotals(int user_id, const QString &startDate, const QString &endDate) const;
    // Every food eaten in the range with its sums.
    QList<FoodTotal> getFoodTotals(int user_id, const QString &startDate, const QString &endDate) const;
    // How much a profile eats each food (by ref_id) and does each exercise (by name): every live
    // entry of the last three years counts, halved for each six months it lies before today.
    QHash<int, double> foodUsage(int user_id, const QDate &today) const;
    QHash<QString, double> exerciseUsage(int user_id, const QDate &today) const;
    // After a successful publish to the "website" device.
    bool markPublished(int user_id) const;

    const QString &suffix() const { return _suffix; }

private:
    QString _suffix;
    bool _keepDeleted;
};
