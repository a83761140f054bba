#pragma once

// The brand's own diet plan, "Brindlemoss", offered beside the built-in one when the brand sets
// "dietplan.brindlemoss.enabled". It keeps its own copy of the energy requirement and shares the
// energy out with more protein and less carbohydrate than the built-in plan.

#include "model/dbtypes.h"
#include "model/energy.h"

#include <QStringList>

#include <array>

class LmDietPlan
{
public:
    static constexpr const char *kName = "Brindlemoss";

    // The same requirement as energyRequirement(), from the check-in c and the profile p (which
    // may be one and the same); weight and height must be known (asserted).
    static float requirement(const EnergyInputs *c, const EnergyInputs *p);
    // Energy as the built-in plan sets it; carbohydrate 40 %, fat 30 %, protein 30 % of it.
    static std::array<float, kNutrientCount> targets(float requirement, int goal, int sex, int age);
    static std::array<float, kNutrientCount> targetsFor(float energy, int age);
};

// The plans a profile can follow: the built-in one, then the brand's own when it is offered.
QStringList offeredDietPlans(bool brandPlanEnabled);
// The targets of the named plan; an unknown name is the built-in plan.
std::array<float, kNutrientCount> dietPlanTargets(const QString &plan, float requirement, int goal, int sex,
                                                  int age);
// The named plan's shares of a given energy (a weekly rate's or one set by hand).
std::array<float, kNutrientCount> dietPlanTargetsFor(const QString &plan, float energy, int age);
