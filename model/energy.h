#pragma once

// The daily energy requirement (Harris-Benedict with kilojoule coefficients, an activity factor,
// then calories), the body mass index with the gauge's bands, and the built-in diet plan that
// turns the requirement and the profile's goal into daily targets.

#include "model/dbtypes.h"

#include <QString>

#include <array>

struct EnergyInputs
{
    float weight = 0.0f;  // kg, from the check-in in force
    QString checkInDay;   // day string of that check-in
    int activity = 1;     // 0 to 3
    int sex = 0;          // 0 male, anything else female
    float height = 0.0f;  // cm
    QString dateOfBirth;  // day string
};

// Calories a day. Weight and height must be known and the age at least one year (asserted).
float energyRequirement(const EnergyInputs &inputs);

// Whole years between the years of birth and of the day (month and day are ignored).
int ageInYears(const QString &dateOfBirth, const QString &day);

double bodyMassIndex(double weightKg, double heightCm);
// "Under", "Ideal", "Over", "Obese" or "Very Obese"; a value on a boundary belongs to the band
// above it; values outside the gauge fall into its end bands.
QString bmiBand(double bmi);
QString bmiText(double bmi); // "Your BMI: 23.4"

// What the profile aims for, as user_misc.goal stores it.
enum Goal { MAINTAIN_WEIGHT = 0, LOSE_WEIGHT = 1, GAIN_WEIGHT = 2 };

// The built-in plan's targets, by nutrient type:
// - energy: the requirement, less 500 calories a day to lose weight (about 0.5 kg a week) but
//   never below 1200 (women) or 1500 (men), or plus 300 to gain, rounded to 10 calories;
// - carbohydrate 50 %, fat 30 %, protein 20 % of that energy (4, 9 and 4 calories per gram);
// - fibre 14 g per 1000 calories; saturated fat and sugar at most 10 % of the energy;
// - cholesterol 300 mg, sodium 2300 mg, calcium 1000 mg (1200 mg from age 51).
class DietPlan
{
public:
    static constexpr const char *kName = "Tarnwell";

    static std::array<float, kNutrientCount> targets(float requirement, int goal, int sex, int age);
    // The same shares of a given energy.
    static std::array<float, kNutrientCount> targetsFor(float energy, int age);
};

// Calories a day for a weekly change of weight (kg, negative to lose): 7700 calories to a
// kilogram, spread over the week; never below 1200 (women) or 1500 (men) while losing; rounded to
// 10 calories.
float energyForRate(float requirement, double weeklyRateKg, int sex);
