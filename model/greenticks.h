#pragma once

// The day's green ticks: one for food (net energy within the budget), one for exercise (enough
// minutes), and the tooltip that says how to earn or keep them. The widget shows the picture
// named by the two ticks.

#include <QString>

class UnitDescriptor;

struct GreenTickFigures
{
    float calories = 0.0f;        // net energy of the day so far (food less exercise)
    float caloriesTarget = 0.0f;  // the day's energy budget
    float exerciseMinutes = 0.0f;
    float exerciseTarget = 30.0f;
    int budgetMode = 1; // 1 within 100 calories either side, 0 at or under the budget
};

struct GreenTicks
{
    bool foodTick = false;
    bool exerciseTick = false;
    QString foodText;
    QString exerciseText;
    QString tooltip;
    QString pictureId() const; // brand image id, "graphics_tick_<food>_<exercise>"
};

// Amounts are shown through the energy unit (its name in lower case names the unit in words).
GreenTicks computeGreenTicks(const GreenTickFigures &figures, const UnitDescriptor &energyUnit);
