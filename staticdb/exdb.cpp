#include "staticdb/exdb.h"

#include "common/lmassert.h"
#include "db/lmsqldb.h"
#include "staticdb/staticdblog.h"

#include <QSqlQuery>
#include <QtEndian>

#include <cmath>
#include <cstring>

ExDBStatic::ExDBStatic(bool *failed)
    : StaticDB(2, failed)
{
}

bool ExDBStatic::exercise(int id, Exercise *exercise) const
{
    const IndexEntry *item = id >= 0 ? lookup(quint32(id), false) : nullptr;
    if (!item)
        return false;
    const QByteArrayView bytes = payload(item);
    float scale = 0.0f;
    if (bytes.isEmpty() || !(quint8(bytes[0]) & 0x01)) {
        qCWarning(lcStaticDb, "ExDBStatic::getExercise - no burn rate!");
        return false;
    }
    if (bytes.size() < 5)
        return false;
    const quint32 bits = qFromBigEndian<quint32>(bytes.data() + 1);
    std::memcpy(&scale, &bits, sizeof scale);
    if (!std::isfinite(scale))
        return false;
    exercise->id = id;
    exercise->name = nameText(item);
    exercise->scale = scale;
    return true;
}

const DynamicDB::Tables ExDBDynamic::kTables = {"Exercises", "custom_exercise_cats", "custom_exercises",
                                                "activity_id", "description"};

ExDBDynamic::ExDBDynamic(int user_id)
    : DynamicDB(kTables, user_id)
{
}

bool ExDBDynamic::exercise(int id, Exercise *exercise) const
{
    LmSqlQueryPtr query = runBound(
        QStringLiteral("SELECT category_id, description, scale FROM custom_exercises WHERE activity_id = ?"),
        {id});
    if (query.isNull() || !query->next())
        return false;
    exercise->id = id;
    exercise->name = query->value(1).toString();
    exercise->scale = query->value(2).toFloat();
    return true;
}

int ExDBDynamic::categoryOf(int id) const
{
    LmSqlQueryPtr query = runBound(
        QStringLiteral("SELECT category_id, description, scale FROM custom_exercises WHERE activity_id = ?"),
        {id});
    return !query.isNull() && query->next() ? query->value(0).toInt() : -1;
}

int ExDBDynamic::addExercise(int category, const QString &description, float scale)
{
    return insertWithNextId(
        QStringLiteral("SELECT MAX(activity_id)+1 FROM custom_exercises"), {}, kFirstCustomId, [&](int id) {
            return change("INSERT INTO custom_exercises(activity_id, category_id, description, "
                          "scale) VALUES (?, ?, ?, ?)",
                          {id, category, description, double(scale)});
        });
}

bool ExDBDynamic::updateExercise(int id, const QString &description, float scale)
{
    return change("UPDATE custom_exercises SET description = ?, scale = ? WHERE activity_id = ?",
                  {description, double(scale), id});
}

ExDB::ExDB(int user_id, bool *failed)
{
    bool staticFailed = false;
    _static = std::make_unique<ExDBStatic>(failed ? &staticFailed : nullptr);
    if (staticFailed) {
        _static.reset();
        *failed = true;
    }
    _dynamic = std::make_unique<ExDBDynamic>(user_id);
}

ExDB::~ExDB() = default;

bool ExDB::exercise(int index, Exercise *exercise) const
{
    LM_ASSERT(index >= 0 && index < 0x3000000);
    const int id = index;
    if (id < kFirstCustomId)
        return _static && _static->exercise(id, exercise);
    return _dynamic->exercise(id, exercise);
}
