#include "server/targetdb.h"

#include "server/serverdb.h"
#include "server/serverlog.h"

#include <QSqlQuery>

#include <cmath>

const std::array<const char *, MemberTargets::Count> MemberTargets::kColumns = {"energy",  "fat",   "carbs",
                                                                                "protein", "fiber", "sodium"};
const std::array<double, MemberTargets::Count> MemberTargets::kLimits = {20000, 2000, 3000,
                                                                         2000,  1000, 50000};

bool MemberTargets::isEmpty() const
{
    for (const std::optional<double> &v : values) {
        if (v)
            return false;
    }
    return true;
}

TargetDB::TargetDB(ServerDB &db)
    : _db(db)
{
}

MemberTargets TargetDB::targets(qint64 memberId)
{
    MemberTargets targets;
    QSqlQuery query(_db.connection());
    QString error;
    if (!ServerDB::exec(query,
                        QStringLiteral("SELECT energy, fat, carbs, protein, fiber, sodium FROM targets "
                                       "WHERE member_id = ?"),
                        {memberId}, &error)) {
        qCWarning(lcServer, "reading targets failed: %s", qUtf8Printable(error));
        return targets;
    }
    if (!query.next())
        return targets;
    for (int i = 0; i < MemberTargets::Count; ++i)
        targets.values[size_t(i)] = ServerDB::optionalReal(query.value(i));
    return targets;
}

bool TargetDB::setTargets(qint64 memberId, const MemberTargets &targets, QString *error)
{
    QVariantList bound{memberId};
    for (int i = 0; i < MemberTargets::Count; ++i) {
        const std::optional<double> &v = targets.values[size_t(i)];
        if (v && !(std::isfinite(*v) && *v >= 0 && *v <= MemberTargets::kLimits[size_t(i)])) {
            *error = QStringLiteral("The %1 target must be a number from 0 to %2.")
                         .arg(QLatin1String(MemberTargets::kColumns[size_t(i)]))
                         .arg(MemberTargets::kLimits[size_t(i)]);
            return false;
        }
        bound.append(ServerDB::realOrNull(v));
    }
    return _db.transaction(
        [&](QSqlDatabase &db, QString *why) {
            QSqlQuery query(db);
            return ServerDB::exec(
                query,
                QStringLiteral(
                    "INSERT INTO targets(member_id, energy, fat, carbs, protein, fiber, sodium) "
                    "VALUES (?, ?, ?, ?, ?, ?, ?) ON CONFLICT (member_id) DO UPDATE SET "
                    "energy = excluded.energy, fat = excluded.fat, carbs = excluded.carbs, "
                    "protein = excluded.protein, fiber = excluded.fiber, sodium = excluded.sodium"),
                bound, why);
        },
        error);
}
