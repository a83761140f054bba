#include "model/daystanding.h"

bool isLimit(int nutrientType)
{
    return nutrientType != FIBER && nutrientType != PROTEIN && nutrientType != CALCIUM;
}

DayStanding dayStanding(const DiaryDay &day, const std::array<double, kNutrientCount> &targets,
                        const QList<int> &tracked)
{
    DayStanding standing;
    standing.burned = day.total(EXERCISE, ENERGY);
    standing.eaten = day.total(ALL_MEALS, ENERGY) + standing.burned;
    standing.budget = float(targets[ENERGY]);
    const std::array<float, 3> calories = {day.total(ALL_MEALS, CARB) * 4.0f,
                                           day.total(ALL_MEALS, FAT) * 9.0f,
                                           day.total(ALL_MEALS, PROTEIN) * 4.0f};
    const float sum = calories[0] + calories[1] + calories[2];
    for (size_t i = 0; i < calories.size() && sum > 0.0f; ++i)
        standing.energyShares[i] = calories[i] / sum;
    for (const int type : tracked) {
        if (type == ENERGY || type < 0 || type >= kNutrientCount)
            continue;
        standing.nutrients.append(
            {type, day.total(ALL_MEALS, type), float(targets[size_t(type)]), isLimit(type)});
    }
    return standing;
}
