#pragma once

// Where a day stands against its targets: energy eaten, burned, net, the budget and what
// remains of it; each tracked nutrient eaten against its target; the share of energy from
// carbohydrate, fat and protein. Worked out from the day's entries and the targets in force.

#include "model/dbtypes.h"

#include <QList>
#include <QString>

#include <array>

struct NutrientStanding
{
    int type = ENERGY;
    float eaten = 0.0f;
    float target = 0.0f; // 0 or less: none set
    // A limit is not to be gone over (sodium, saturated fat); a goal is to be reached (fibre,
    // protein).
    bool limit = true;

    bool hasTarget() const { return target > 0.0f; }
    float remaining() const { return target - eaten; }
    // Over a limit, or short of a goal.
    bool offTrack() const { return hasTarget() && (limit ? eaten > target : eaten < target); }
};

struct DayStanding
{
    float eaten = 0.0f;
    float burned = 0.0f;
    float budget = 0.0f; // the energy target; 0 when none is set
    float net() const { return eaten - burned; }
    float remaining() const { return budget - net(); }
    // Shares of the energy eaten (0..1) from carbohydrate, fat and protein, at 4, 9 and 4
    // calories per gram; all 0 when nothing was eaten.
    std::array<float, 3> energyShares{};
    QList<NutrientStanding> nutrients; // in the order asked for, energy left out
};

bool isLimit(int nutrientType);
DayStanding dayStanding(const DiaryDay &day, const std::array<double, kNutrientCount> &targets,
                        const QList<int> &tracked);

// The words the window's panel and the printed diary both use for where a day stands, in the
// display units. Rich text puts what is left or over in bold.
QString energyStandingText(const DayStanding &standing, bool rich); // "Eaten 1900 − burned 200 = …"
QString nutrientFiguresText(const NutrientStanding &n);   // "50 of 225 g", or "50 g" without a target
QString nutrientRemainingText(const NutrientStanding &n); // "25 g left", "5 g over" or "no target"
QString energySharesText(const DayStanding &standing);    // empty when nothing was eaten
// What an entry brings: "197 cals · Carbs 24.9 g · Fat 0.4 g · Protein 3.4 g". Each figure holds
// together, so a narrow label breaks the line only between figures.
QString mainValuesText(const FoodDiaryItem &item);
