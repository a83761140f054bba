// Arbitrary bytes as the document of a publish, read by the server.

#include "server/publishreader.h"

#include <cmath>
#include <cstdint>

namespace {

bool finite(const std::optional<double> &value)
{
    return !value || std::isfinite(*value);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    DiaryUpdate update;
    QString error;
    ProtocolError code = ProtocolError::Ok;
    const bool ok = readDiaryUpdate(QByteArrayView(reinterpret_cast<const char *>(data), qsizetype(size)),
                                    &update, &error, &code);
    // A refused document leaves nothing to store, and says why.
    if (!ok && (!update.days.isEmpty() || !update.checkins.isEmpty() || !update.waters.isEmpty() ||
                error.isEmpty() || code == ProtocolError::Ok))
        __builtin_trap();
    if (ok && (code != ProtocolError::Ok || update.itemCount() > kMaxPublishItems))
        __builtin_trap();
    for (const PublishedDay &day : std::as_const(update.days)) {
        if (!day.date.isValid())
            __builtin_trap();
        for (const PublishedFood &food : day.foods) {
            if (!QStringLiteral("BLDS").contains(food.meal) || !std::isfinite(food.qty))
                __builtin_trap();
            for (const std::optional<double> &value : food.values) {
                if (!finite(value) || (value && *value < 0))
                    __builtin_trap();
            }
        }
        for (const PublishedExercise &exercise : day.exercises) {
            if (!std::isfinite(exercise.duration) || !std::isfinite(exercise.calories))
                __builtin_trap();
        }
    }
    for (const PublishedCheckin &checkin : std::as_const(update.checkins)) {
        if (!checkin.date.isValid() || !finite(checkin.weight) || !finite(checkin.chest) ||
            !finite(checkin.hips) || !finite(checkin.thigh) || !finite(checkin.waist))
            __builtin_trap();
    }
    for (const PublishedWater &water : std::as_const(update.waters)) {
        if (!water.date.isValid() || water.cups < 0)
            __builtin_trap();
    }
    return 0;
}
