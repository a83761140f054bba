#pragma once

// What a profile aims for after its first day: a goal weight, a weekly rate, an energy target
// from the diet plan or set by hand, and nutrient targets in grams or as a share of energy. Each
// change is written as the targets of a day, in force from then on, so the days before it keep
// the targets they had. Both faces change goals through these.

#include "db/userdb.h"
#include "model/dbtypes.h"

#include <QString>

#include <optional>

struct GoalsInForce
{
    std::optional<double> weight; // kg
    double weeklyRate = 0.0;      // kg a week; negative to lose
    bool energyByHand = false;
    QString dietPlan;
    Targets targets;
    int water = 8; // glasses a day
};

// A change: only what is set changes.
struct GoalChange
{
    std::optional<double> weight; // kg; a value not above 0 clears it
    std::optional<double> weeklyRate;
    std::optional<double> calories; // by hand
    bool caloriesFromPlan = false;
    struct Amount
    {
        double value = 0.0;
        bool percent = false; // of the energy target, else grams
    };
    std::optional<Amount> carb, fat, protein;
    std::optional<int> water;
};

namespace Goals {

// Calories a gram of the nutrients energy is shared among: 9 for fat, 4 for carbohydrate and
// protein.
inline double caloriesPerGram(int type)
{
    return type == FAT ? 9.0 : 4.0;
}

// The fastest weekly change offered either way, kg.
inline constexpr double kFastestRate = 1.0;

GoalsInForce inForce(int userId, const QString &day);
int waterGoal(int userId); // glasses a day

// The diet plan's energy for the profile on the day at a weekly rate; none without a weight in
// force, a height and an age of a year or more.
std::optional<float> plannedEnergy(int userId, const QString &day, double weeklyRate);

// Writes the change as in force from day, in one transaction. Energy from the plan (asked, or
// still in force when the rate changes) sets every target the plan sets; energy set by hand
// keeps carbohydrate, fat and protein at their share of it. Grams or shares given win over both.
// Refused (nothing written) when the change cannot be worked out, with the reason in message.
enum class Applied { Stored, Refused, NotStored };
Applied apply(int userId, const QString &day, const GoalChange &change, QString *message);

} // namespace Goals
