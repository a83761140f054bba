#include "staticdb/exdb.h"

#include "common/lmassert.h"
#include "db/lmsqldb.h"
#include "staticdb/staticdblog.h"

#include <QSqlQuery>
#include <QtEndian>

#include <cmath>
#include <cstring>

namespace {

LmSqlQueryPtr run(const QString &sql, const QVariantList &values)
{
    LmSqlQueryPtr query = LmSqlDb::instance()->prepare(sql);
    if (!execBound(query, values))
        return LmSqlQueryPtr();
    return query;
}

QList<QPair<int, QString>> pairs(const QString &sql, int key)
{
    QList<QPair<int, QString>> rows;
    LmSqlQueryPtr query = run(sql, {key});
    while (!query.isNull() && query->next())
        rows.append({query->value(0).toInt(), query->value(1).toString()});
    return rows;
}

} // namespace

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

ExDBDynamic::ExDBDynamic(int user_id)
    : DynamicDB({QStringLiteral("Exercises"),
                 QStringLiteral(
                     "SELECT category_id, description FROM custom_exercise_cats WHERE parent_id = ? ORDER "
                     "BY UPPER(description)"),
                 QStringLiteral(
                     "SELECT activity_id, description FROM custom_exercises WHERE category_id = ? ORDER BY "
                     "UPPER(description)")},
                user_id)
{
}

int ExDBDynamic::userRootId(int user_id)
{
    LM_ASSERT(user_id >= -1 && user_id < 4096);
    const int root = rootIdOf(user_id);
    LmSqlQueryPtr count =
        run(QStringLiteral("SELECT COUNT(*) FROM custom_exercise_cats WHERE category_id = ?"), {root});
    if (!count.isNull() && count->next() && count->value(0).toInt() < 1) {
        run(QStringLiteral(
                "INSERT INTO custom_exercise_cats(category_id, parent_id, description) VALUES (?, ?, ?)"),
            {root, 0, user_id == -1 ? QStringLiteral("Shared Exercises") : QStringLiteral("My Exercises")});
    }
    return root;
}

bool ExDBDynamic::exercise(int id, Exercise *exercise) const
{
    LmSqlQueryPtr query = run(
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
    LmSqlQueryPtr query = run(
        QStringLiteral("SELECT category_id, description, scale FROM custom_exercises WHERE activity_id = ?"),
        {id});
    return !query.isNull() && query->next() ? query->value(0).toInt() : -1;
}

int ExDBDynamic::addCategory(int parent, const QString &description, int id)
{
    if (id < 0) {
        LmSqlQueryPtr next =
            run(QStringLiteral("SELECT MAX(category_id)+1 FROM custom_exercise_cats WHERE category_id+1 < ?"),
                {kUserRootBase});
        const int candidate = !next.isNull() && next->next() ? next->value(0).toInt() : 0;
        id = candidate >= kFirstCustomId + 1 ? candidate : kFirstCustomId;
    }
    if (run(QStringLiteral(
                "INSERT INTO custom_exercise_cats(category_id, parent_id, description) VALUES (?, ?, ?)"),
            {id, parent, description})
            .isNull())
        return -1;
    rebuild();
    return id;
}

bool ExDBDynamic::renameCategory(int id, const QString &description)
{
    const bool ok =
        !run(QStringLiteral("UPDATE custom_exercise_cats SET description = ? WHERE category_id = ?"),
             {description, id})
             .isNull();
    rebuild();
    return ok;
}

bool ExDBDynamic::moveCategory(int id, int parent)
{
    const bool ok =
        !run(QStringLiteral("UPDATE custom_exercise_cats SET parent_id = ? WHERE category_id = ?"),
             {parent, id})
             .isNull();
    rebuild();
    return ok;
}

bool ExDBDynamic::moveExercise(int id, int category)
{
    const bool ok = !run(QStringLiteral("UPDATE custom_exercises SET category_id = ? WHERE activity_id = ?"),
                         {category, id})
                         .isNull();
    rebuild();
    return ok;
}

QString ExDBDynamic::categoryDescription(int id) const
{
    LmSqlQueryPtr query =
        run(QStringLiteral("SELECT description FROM custom_exercise_cats WHERE category_id = ?"), {id});
    return !query.isNull() && query->next() ? query->value(0).toString() : QString();
}

QList<QPair<int, QString>> ExDBDynamic::exercisesOf(int category) const
{
    return pairs(
        QStringLiteral("SELECT activity_id, description FROM custom_exercises WHERE category_id = ? ORDER BY "
                       "UPPER(description)"),
        category);
}

QList<QPair<int, QString>> ExDBDynamic::subcategories(int category) const
{
    return pairs(
        QStringLiteral("SELECT category_id, description FROM custom_exercise_cats WHERE parent_id = ? ORDER "
                       "BY UPPER(description)"),
        category);
}

bool ExDBDynamic::deleteCategoryRows(int id)
{
    bool ok = true;
    for (const auto &sub : subcategories(id)) {
        if (sub.first != id)
            ok = deleteCategoryRows(sub.first) && ok;
    }
    ok = !run(QStringLiteral("DELETE FROM custom_exercises WHERE category_id = ?"), {id}).isNull() && ok;
    ok = !run(QStringLiteral("DELETE FROM custom_exercise_cats WHERE category_id = ?"), {id}).isNull() && ok;
    return ok;
}

bool ExDBDynamic::deleteCategory(int id)
{
    LmSqlDb::begin();
    const bool ok = deleteCategoryRows(id);
    if (ok)
        LmSqlDb::commit();
    else
        LmSqlDb::rollback();
    rebuild();
    return ok;
}

bool ExDBDynamic::deleteExercise(int id)
{
    const bool ok = !run(QStringLiteral("DELETE FROM custom_exercises WHERE activity_id = ?"), {id}).isNull();
    rebuild();
    return ok;
}

int ExDBDynamic::addExercise(int category, const QString &description, float scale)
{
    LmSqlQueryPtr next = run(QStringLiteral("SELECT MAX(activity_id)+1 FROM custom_exercises"), {});
    const int candidate = !next.isNull() && next->next() ? next->value(0).toInt() : 0;
    // Unlike foods, a candidate equal to the first id is taken as it is.
    const int id = candidate >= kFirstCustomId ? candidate : kFirstCustomId;
    if (run(QStringLiteral("INSERT INTO custom_exercises(activity_id, category_id, description, scale) "
                           "VALUES (?, ?, ?, ?)"),
            {id, category, description, double(scale)})
            .isNull())
        return -1;
    rebuild();
    return id;
}

bool ExDBDynamic::updateExercise(int id, const QString &description, float scale)
{
    const bool ok =
        !run(QStringLiteral("UPDATE custom_exercises SET description = ?, scale = ? WHERE activity_id = ?"),
             {description, double(scale), id})
             .isNull();
    rebuild();
    return ok;
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

bool ExDB::exercise(int id, Exercise *exercise) const
{
    LM_ASSERT(id >= 0 && id < 0x3000000);
    if (id < kFirstCustomId)
        return _static && _static->exercise(id, exercise);
    return _dynamic->exercise(id, exercise);
}
