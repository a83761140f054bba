#include "db/goals.h"

#include "db/diaryedits.h"
#include "db/lmsqldb.h"
#include "model/energy.h"
#include "model/lmdietplan.h"

#include <QSqlQuery>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// The latest non-empty value of a user_misc column on or before day.
QVariant latestMisc(int userId, const QString &column, const QString &day)
{
    LmSqlQueryPtr query =
        runBound(u"SELECT "_s + column + u" FROM user_misc WHERE user_id = ? AND date <= ? AND "_s + column +
                     u" IS NOT NULL ORDER BY date DESC LIMIT 1"_s,
                 {userId, day});
    if (!query.isNull() && query->next())
        return query->value(0);
    return {};
}

} // namespace

GoalsInForce Goals::inForce(int userId, const QString &day)
{
    GoalsInForce goals;
    if (const QVariant weight = latestMisc(userId, u"goal_weight"_s, day);
        weight.isValid() && weight.toDouble() > 0)
        goals.weight = weight.toDouble();
    goals.weeklyRate = latestMisc(userId, u"weekly_rate"_s, day).toDouble();
    goals.energyByHand = latestMisc(userId, u"energy_by_hand"_s, day).toInt() == 1;
    goals.dietPlan = latestMisc(userId, u"diet_plan"_s, day).toString();
    if (goals.dietPlan.isEmpty())
        goals.dietPlan = QLatin1String(DietPlan::kName);
    goals.targets = UserDB::getTargets(userId, day);
    goals.water = waterGoal(userId);
    return goals;
}

int Goals::waterGoal(int userId)
{
    LmSqlQueryPtr water = runBound(u"SELECT water_goal FROM user_users WHERE user_id = ?"_s, {userId});
    if (!water.isNull() && water->next() && water->value(0).toInt() > 0)
        return water->value(0).toInt();
    return GoalsInForce().water;
}

std::optional<float> Goals::plannedEnergy(int userId, const QString &day, double weeklyRate)
{
    const auto profile = UserDB::getUser(userId);
    const auto weight = DiaryEdits::weightInForce(userId, day);
    const double height = UserDB::getHeight(userId);
    if (!profile || !weight || height <= 0 || ageInYears(profile->dob, day) < 1)
        return std::nullopt;
    const EnergyInputs inputs{float(*weight), day,           UserDB::activityLevel(userId, day),
                              profile->sex,   float(height), profile->dob};
    const QString plan = inForce(userId, day).dietPlan;
    const float requirement = plan == QLatin1String(LmDietPlan::kName)
                                  ? LmDietPlan::requirement(&inputs, &inputs)
                                  : energyRequirement(inputs);
    return energyForRate(requirement, weeklyRate, profile->sex);
}

Goals::Applied Goals::apply(int userId, const QString &day, const GoalChange &change, QString *message)
{
    LmWriteTransaction write;
    if (!write.isOpen()) {
        *message = u"The diary is busy: "_s + LmSqlDb::lastErrorText();
        return Applied::NotStored;
    }
    const GoalsInForce before = inForce(userId, day);
    Targets targets = before.targets;
    targets.date = day;
    const double rate = change.weeklyRate.value_or(before.weeklyRate);
    const bool fromPlan =
        change.caloriesFromPlan || (!change.calories && change.weeklyRate && !before.energyByHand);

    const double oldEnergy = targets.values[ENERGY];
    if (fromPlan) {
        const auto energy = plannedEnergy(userId, day, rate);
        if (!energy) {
            *message =
                u"No weight recorded on or before %1: the plan needs a weight, a height and a date of birth. "
                "Record a check-in first, or set the calories by hand."_s.arg(day);
            return Applied::Refused;
        }
        const auto planned =
            dietPlanTargetsFor(before.dietPlan, *energy, ageInYears(UserDB::getUser(userId)->dob, day));
        for (int type = 0; type < kNutrientCount; ++type)
            targets.values[size_t(type)] = planned[size_t(type)];
    } else if (change.calories) {
        targets.values[ENERGY] = *change.calories;
        // Carbohydrate, fat and protein keep their share of the energy.
        if (oldEnergy > 0) {
            for (int type : {CARB, FAT, PROTEIN}) {
                if (targets.values[size_t(type)] > 0)
                    targets.values[size_t(type)] =
                        std::round(targets.values[size_t(type)] * *change.calories / oldEnergy);
            }
        }
    }
    const double energy = targets.values[ENERGY];
    const std::pair<int, const std::optional<GoalChange::Amount> *> amounts[] = {
        {CARB, &change.carb}, {FAT, &change.fat}, {PROTEIN, &change.protein}};
    for (const auto &[type, amount] : amounts) {
        if (!*amount)
            continue;
        if ((*amount)->percent && energy <= 0) {
            *message = u"A share of energy needs an energy target: set the calories too."_s;
            return Applied::Refused;
        }
        targets.values[size_t(type)] =
            (*amount)->percent ? std::round(energy * (*amount)->value / 100.0 / Goals::caloriesPerGram(type))
                               : (*amount)->value;
    }

    bool ok = true;
    if (change.weight || change.weeklyRate || fromPlan || change.calories) {
        const double weight =
            change.weight ? (*change.weight > 0 ? *change.weight : -1.0) : before.weight.value_or(-1.0);
        const int goal = rate < 0 ? LOSE_WEIGHT : rate > 0 ? GAIN_WEIGHT : MAINTAIN_WEIGHT;
        const bool byHand = fromPlan ? false : (change.calories ? true : before.energyByHand);
        ok = UserDB::ensureRow(u"user_misc"_s, userId, day) &&
             !runBound(u"UPDATE user_misc SET goal = ?, goal_weight = ?, weekly_rate = ?, energy_by_hand = ? "
                       "WHERE user_id = ? AND date = ?"_s,
                       {goal, weight, rate, byHand ? 1 : 0, userId, day})
                  .isNull();
    }
    if (ok && targets.values != before.targets.values)
        ok = UserDB::setTargets(userId, day, targets);
    if (ok && change.water)
        ok = UserDB::setUserColumn(userId, u"water_goal"_s, *change.water);
    if (!write.commit(ok)) {
        *message = u"The goals could not be stored: "_s + LmSqlDb::lastErrorText();
        return Applied::NotStored;
    }
    return Applied::Stored;
}
