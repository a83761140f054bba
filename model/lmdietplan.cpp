#include "model/lmdietplan.h"

#include "common/lmassert.h"

#include <cmath>

float LmDietPlan::requirement(const EnergyInputs *c, const EnergyInputs *p)
{
    LM_ASSERT(c->weight > 0 && p->height > 0);
    EnergyInputs inputs = *p;
    inputs.weight = c->weight;
    inputs.checkInDay = c->checkInDay;
    inputs.activity = c->activity;
    return energyRequirement(inputs);
}

std::array<float, kNutrientCount> LmDietPlan::targets(float requirement, int goal, int sex, int age)
{
    return targetsFor(DietPlan::targets(requirement, goal, sex, age)[ENERGY], age);
}

std::array<float, kNutrientCount> LmDietPlan::targetsFor(float energy, int age)
{
    std::array<float, kNutrientCount> t = DietPlan::targetsFor(energy, age);
    t[CARB] = std::round(energy * 0.40f / 4.0f);
    t[FAT] = std::round(energy * 0.30f / 9.0f);
    t[PROTEIN] = std::round(energy * 0.30f / 4.0f);
    return t;
}

QStringList offeredDietPlans(bool brandPlanEnabled)
{
    QStringList plans{QLatin1String(DietPlan::kName)};
    if (brandPlanEnabled)
        plans.append(QLatin1String(LmDietPlan::kName));
    return plans;
}

std::array<float, kNutrientCount> dietPlanTargets(const QString &plan, float requirement, int goal, int sex, int age)
{
    if (plan == QLatin1String(LmDietPlan::kName))
        return LmDietPlan::targets(requirement, goal, sex, age);
    return DietPlan::targets(requirement, goal, sex, age);
}

std::array<float, kNutrientCount> dietPlanTargetsFor(const QString &plan, float energy, int age)
{
    if (plan == QLatin1String(LmDietPlan::kName))
        return LmDietPlan::targetsFor(energy, age);
    return DietPlan::targetsFor(energy, age);
}
