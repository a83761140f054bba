#pragma once

// A new profile as the new-profile wizard and the command-line tool make it: the profile with its
// settings, first height and activity, and, given a weight, the first check-in and the targets
// of its diet plan (the built-in one unless the brand offers its own and it was chosen) for the
// goal. One transaction.

#include "db/userdb.h"
#include "model/energy.h"

struct NewProfile
{
    QString name;
    int sex = 0;        // 0 male, 1 female
    QString dob;        // day string
    double height = 0;  // cm
    double weight = -1; // kg; -1 when not given
    int activity = 1;   // 0-3
    int goal = 0;       // Goal of model/energy.h
    QString dietPlan = QLatin1String(DietPlan::kName); // one of offeredDietPlans()
    UserSettings settings;
};

// The new profile's id. day is the day it is made ("yyyyMMdd").
int createProfile(const NewProfile &profile, const QString &day);
