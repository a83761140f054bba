#include "reports/daysummary.h"

#include "db/diarydb.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/energy.h"
#include "model/summaryreport.h"
#include "model/unitdescriptor.h"

QString daySummaryReport(int userId, const QDate &date)
{
    const QString dayString = DateConversion::fromQDate(date);
    const UnitRegistry &units = UnitRegistry::instance();
    SummaryInputs in;
    in.day = date;
    in.height = UserDB::getHeight(userId);
    if (const std::optional<CheckIn> checkIn = UserDB::getLatestCheckIn(userId, dayString)) {
        in.chest = checkIn->chest;
        in.waist = checkIn->waist;
        in.hip = checkIn->hip;
        in.thigh = checkIn->thigh;
    }
    // The weight in force is that of the latest weighed check-in, which need not be the latest one.
    const auto weighed = UserDB::getLatest(QStringLiteral("user_checkins"), QStringLiteral("weight"), userId,
                                           dayString, -1);
    if (weighed)
        in.weight = weighed->first;
    const QMap<QString, DailyTotal> totals =
        DiaryDB().getDailyTotals(userId, dayString, dayString, ALL_MEALS);
    if (!totals.isEmpty()) {
        in.eaten = totals.first().nutrients[ENERGY];
        in.burned = totals.first().burned;
    }
    in.target = UserDB::getTargets(userId, dayString).values[ENERGY];

    const UserProfile profile = UserDB::getUser(userId).value_or(UserProfile());
    // The requirement is that of the weighed check-in's day: the age then, the activity level then.
    const bool canForecast = in.weight > 0 && in.height > 0 && profile.dob.size() == 8 &&
                             ageInYears(profile.dob, weighed->second) > 0;
    if (canForecast) {
        in.requirement = energyRequirement({float(in.weight), weighed->second,
                                            UserDB::activityLevel(userId, weighed->second), profile.sex,
                                            float(in.height), profile.dob});
    } else {
        in.weight = in.weight > 0 && in.height > 0 ? in.weight : -1; // no BMI or forecast without both
    }
    return summaryReport(in, *units.getUnit(UNIT_ENERGY), *units.getUnit(UNIT_WEIGHT),
                         *units.getUnit(UNIT_MEASUREMENT));
}
