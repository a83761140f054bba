// Arbitrary bytes as the server's meal plan reply, asked for 2026-03-10 to 2026-03-17.

#include "net/mealplandownload.h"

#include <cmath>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QList<FoodDiaryItem> foods;
    QString error;
    const bool ok =
        MealPlanDownloader::parseReply(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)), 1,
                                       QDate(2026, 3, 10), QDate(2026, 3, 17), &foods, &error);
    if (!ok && (!foods.isEmpty() || error.isEmpty()))
        __builtin_trap(); // a refused reply stores nothing, and says why
    for (const FoodDiaryItem &food : std::as_const(foods)) {
        if (!std::isfinite(food.size) || food.size < 0 || food.date < QLatin1String("20260310") ||
            food.date > QLatin1String("20260317"))
            __builtin_trap();
        for (int type = 0; type < kNutrientCount; ++type) {
            if (!std::isfinite(food.getNutrient(type)))
                __builtin_trap();
        }
    }
    return 0;
}
