// Arbitrary bytes as the server's meal plan reply.

#include "net/mealplandownload.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QList<FoodDiaryItem> foods;
    QString error;
    const bool ok = MealPlanDownloader::parseReply(
        QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)), 1, &foods, &error);
    if (!ok && !foods.isEmpty())
        __builtin_trap(); // a failed reply stores nothing
    return 0;
}
