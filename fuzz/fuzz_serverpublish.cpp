// Arbitrary bytes as the document of a publish, read by the server: what it takes is sound, and
// its fast reader takes nothing that Qt's reader would read differently.

#include "server/publishreader.h"

#include <cmath>
#include <cstdint>

namespace {

bool finite(const std::optional<double> &value)
{
    return !value || std::isfinite(*value);
}

bool same(const std::optional<double> &a, const std::optional<double> &b)
{
    return a.has_value() == b.has_value() && (!a || *a == *b);
}

bool same(const DiaryUpdate &a, const DiaryUpdate &b)
{
    if (a.days.size() != b.days.size() || a.checkins.size() != b.checkins.size() ||
        a.waters.size() != b.waters.size())
        return false;
    for (qsizetype d = 0; d < a.days.size(); ++d) {
        const PublishedDay &x = a.days[d], &y = b.days[d];
        if (x.date != y.date || x.foods.size() != y.foods.size() || x.exercises.size() != y.exercises.size())
            return false;
        for (qsizetype i = 0; i < x.foods.size(); ++i) {
            const PublishedFood &f = x.foods[i], &g = y.foods[i];
            if (f.meal != g.meal || f.qty != g.qty || f.desc != g.desc || f.serving != g.serving)
                return false;
            for (size_t v = 0; v < f.values.size(); ++v) {
                if (!same(f.values[v], g.values[v]))
                    return false;
            }
        }
        for (qsizetype i = 0; i < x.exercises.size(); ++i) {
            const PublishedExercise &e = x.exercises[i], &f = y.exercises[i];
            if (e.duration != f.duration || e.desc != f.desc || e.calories != f.calories)
                return false;
        }
    }
    for (qsizetype i = 0; i < a.checkins.size(); ++i) {
        const PublishedCheckin &c = a.checkins[i], &d = b.checkins[i];
        if (c.date != d.date || !same(c.weight, d.weight) || !same(c.chest, d.chest) ||
            !same(c.hips, d.hips) || !same(c.thigh, d.thigh) || !same(c.waist, d.waist) || c.note != d.note)
            return false;
    }
    for (qsizetype i = 0; i < a.waters.size(); ++i) {
        if (a.waters[i].date != b.waters[i].date || a.waters[i].cups != b.waters[i].cups)
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    DiaryUpdate update;
    QString error;
    ProtocolError code = ProtocolError::Ok;
    const QByteArrayView xml(reinterpret_cast<const char *>(data), qsizetype(size));
    const bool ok = readDiaryUpdate(xml, &update, &error, &code);
    DiaryUpdate qtUpdate;
    QString qtError;
    ProtocolError qtCode = ProtocolError::Ok;
    const bool qtOk = readDiaryUpdate(xml, &qtUpdate, &qtError, &qtCode, XmlReading::QtOnly);
    if (ok != qtOk || code != qtCode || error != qtError || !same(update, qtUpdate))
        __builtin_trap();
    // The metrics document goes through the same two readers.
    QList<MetricsCount> counts, qtCounts;
    QString metricsError, qtMetricsError;
    ProtocolError metricsCode = ProtocolError::Ok, qtMetricsCode = ProtocolError::Ok;
    if (readMetricsUpdate(xml, &counts, &metricsError, &metricsCode) !=
            readMetricsUpdate(xml, &qtCounts, &qtMetricsError, &qtMetricsCode, XmlReading::QtOnly) ||
        metricsCode != qtMetricsCode || metricsError != qtMetricsError || counts.size() != qtCounts.size())
        __builtin_trap();
    for (qsizetype i = 0; i < counts.size(); ++i) {
        if (counts[i].date != qtCounts[i].date || counts[i].kind != qtCounts[i].kind ||
            counts[i].count != qtCounts[i].count)
            __builtin_trap();
    }
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
