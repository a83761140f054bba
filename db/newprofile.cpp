#include "db/newprofile.h"

#include "db/lmsqldb.h"
#include "model/dateconversion.h"
#include "model/energy.h"
#include "model/lmdietplan.h"

int createProfile(const NewProfile &p, const QString &day)
{
    LmSqlDb::begin();
    int userId = -1;
    try {
        UserProfile profile;
        profile.name = p.name;
        profile.created = day;
        profile.dob = p.dob;
        profile.sex = p.sex;
        userId = UserDB::createUser(profile, p.settings, p.height, day);
        UserDB::setMisc(userId, day, p.goal, p.activity, -1, QString());
        UserDB::setHeight(userId, day, p.height);
        if (p.weight > 0) {
            CheckIn checkIn;
            checkIn.date = day;
            checkIn.weight = p.weight;
            UserDB::setCheckIn(userId, checkIn);
            // The first targets come from the built-in diet plan.
            const int age = ageInYears(profile.dob, day);
            if (age > 0) {
                const EnergyInputs inputs{float(p.weight), day, p.activity, profile.sex, float(p.height), profile.dob};
                const bool brandPlan = p.dietPlan == QLatin1String(LmDietPlan::kName);
                const float requirement =
                    brandPlan ? LmDietPlan::requirement(&inputs, &inputs) : energyRequirement(inputs);
                Targets targets;
                const auto planned = dietPlanTargets(p.dietPlan, requirement, Goal(p.goal), profile.sex, age);
                for (int type = 0; type < kNutrientCount; ++type)
                    targets.values[size_t(type)] = planned[size_t(type)];
                UserDB::setTargets(userId, day, targets);
                UserDB::setMisc(userId, day, p.goal, p.activity, -1,
                                brandPlan ? p.dietPlan : QLatin1String(DietPlan::kName));
            }
        }
    } catch (...) {
        LmSqlDb::rollback();
        throw;
    }
    LmSqlDb::commit();
    return userId;
}
