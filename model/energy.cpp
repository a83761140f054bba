#include "model/energy.h"

#include "common/lmassert.h"
#include "model/dateconversion.h"

#include <QLocale>

#include <cmath>

namespace {

constexpr float kActivityFactors[] = {1.1f, 1.2f, 1.3f, 1.4f};
constexpr float kCaloriesPerKilojoule = 0.23923446f;

} // namespace

int ageInYears(const QString &dateOfBirth, const QString &day)
{
    return DateConversion::toQDate(day).year() - DateConversion::toQDate(dateOfBirth).year();
}

float energyRequirement(const EnergyInputs &c)
{
    const EnergyInputs &p = c;
    LM_ASSERT(c.weight > 0 && p.height > 0);
    const int age = ageInYears(p.dateOfBirth, c.checkInDay);
    LM_ASSERT(age > 0);
    const float kilojoules = p.sex == 0 ? 278.0f + 57.5f * c.weight + 20.9f * p.height - 28.3f * float(age)
                                        : 2741.0f + 40.0f * c.weight + 7.7f * p.height - 19.6f * float(age);
    const int level = qBound(0, c.activity, 3);
    return kilojoules * kActivityFactors[level] * kCaloriesPerKilojoule;
}

double bodyMassIndex(double weightKg, double heightCm)
{
    return weightKg * 10000.0 / (heightCm * heightCm);
}

QString bmiBand(double bmi)
{
    if (bmi < 20)
        return QStringLiteral("Under");
    if (bmi < 25)
        return QStringLiteral("Ideal");
    if (bmi < 30)
        return QStringLiteral("Over");
    if (bmi < 40)
        return QStringLiteral("Obese");
    return QStringLiteral("Very Obese");
}

QString bmiText(double bmi)
{
    return QString::asprintf("Your BMI: %0.1f", bmi);
}

std::array<float, kNutrientCount> DietPlan::targets(float requirement, int goal, int sex, int age)
{
    float energy = requirement;
    if (goal == LOSE_WEIGHT)
        energy = std::max(requirement - 500.0f, sex == 0 ? 1500.0f : 1200.0f);
    else if (goal == GAIN_WEIGHT)
        energy = requirement + 300.0f;
    return targetsFor(std::round(energy / 10.0f) * 10.0f, age);
}

std::array<float, kNutrientCount> DietPlan::targetsFor(float energy, int age)
{
    std::array<float, kNutrientCount> t{};
    t[ENERGY] = energy;
    t[CARB] = std::round(energy * 0.50f / 4.0f);
    t[FAT] = std::round(energy * 0.30f / 9.0f);
    t[PROTEIN] = std::round(energy * 0.20f / 4.0f);
    t[FIBER] = std::round(energy / 1000.0f * 14.0f);
    t[SATURATED_FAT] = std::round(energy * 0.10f / 9.0f);
    t[CHOLESTEROL] = 300.0f;
    t[SODIUM] = 2300.0f;
    t[SUGAR] = std::round(energy * 0.10f / 4.0f);
    t[CALCIUM] = age > 50 ? 1200.0f : 1000.0f;
    return t;
}

float energyForRate(float requirement, double weeklyRateKg, int sex)
{
    constexpr double kCaloriesPerKg = 7700.0;
    float energy = requirement + float(weeklyRateKg * kCaloriesPerKg / 7.0);
    if (weeklyRateKg < 0)
        energy = std::max(energy, sex == 0 ? 1500.0f : 1200.0f);
    return std::round(energy / 10.0f) * 10.0f;
}
