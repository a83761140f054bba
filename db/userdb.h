#pragma once

// Everything about a profile that is not a food or exercise entry: the profile and its
// preferences (user_users), dated check-ins, targets and body facts, water, the start counter
// and the tips already shown. Dated facts are sparse: the value in force on a day is the latest
// row on or before it.
//
// Every per-user call asserts a valid user ("user_id != -1"). Values read as NULL come back as
// -1 (unknown). Setters answer whether the value was stored; those that first make the day's row
// do both in one write transaction. Statements go through LmSqlDb with bound values; only the column names of the
// generic setters are put into the text, and those are our own constants.

#include <QList>
#include <QString>
#include <QVariant>

#include <array>
#include <optional>

struct UserProfile
{
    int user_id = -1;
    QString name;
    QString password;
    QString created; // day string
    QString dob;     // day string
    int sex = 0;     // 0 male, 1 female
    bool auto_publish = false;
    bool ask_before_publish = false;
};

// Display sizes of the ten targets, in the order of the columns below.
inline constexpr int kTargetSizeCount = 10;

struct UserSettings
{
    int measurement_units = 0; // 0 metric, 1 imperial
    int energy_units = 1;      // 1 calories, 0 kilojoules
    QString web_username;
    QString web_password;
    bool auto_publish = false;
    bool ask_before_publish = true;
    // energy, fat, fiber, carb, protein, sat fat, cholesterol, sugar, calcium, sodium
    std::array<int, kTargetSizeCount> target_sizes{3, 2, 2, 2, 2, 2, 2, 2, 2, 2};
    int diaryAdvancedMode = 0;
    int summaryOptions = 0;
    bool hideNutrientAndFluid = false;
};

// A day's check-in; measurements in kilograms and centimetres, -1 when not measured.
struct CheckIn
{
    QString date;
    double weight = -1;
    double chest = -1;
    double hip = -1;
    double thigh = -1;
    double waist = -1;
    double steps = -1;
    QString note;
};

// Targets in force on a day, by nutrient type (calories, carb, fat, protein, fibre, saturated
// fat, cholesterol, sodium, sugar, calcium); -1 when not set.
struct Targets
{
    QString date; // the day the row was set
    std::array<double, 10> values{-1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
};

class UserDB
{
public:
    static const QString kNoNote; // "<__NO_NOTE__>"

    // Profiles
    static QList<int> getUserIds();
    static QList<UserProfile> getUsers();
    static std::optional<UserProfile> getUser(int user_id); // none for an unknown id
    static int numUsers();
    // Creates a profile with its first height (cm) on the day it is made; returns its id.
    // Without the brand's family feature only one profile may exist.
    static int createUser(const UserProfile &profile, const UserSettings &settings, double height,
                          const QString &day);
    static bool updateUser(const UserProfile &profile);
    static void deleteUser(int user_id);

    static UserSettings getSettings(int user_id);
    // Shows figures as the profile asks (units of weight, length and energy), with the brand's
    // name for fibre; both faces call it when they take up a profile.
    static void applyDisplayUnits(int user_id);
    static bool setSettings(int user_id, const UserSettings &settings);
    static int tipOfTheDay(int user_id);
    static bool setTipOfTheDay(int user_id, int tip);
    static bool setNutrientFluidHidden(int user_id, bool hidden);
    static bool setBackupDataPath(int user_id, const QString &path);
    static QString diaryViewColumnSettings(int user_id);
    static bool setDiaryViewColumnSettings(int user_id, const QString &settings);
    // One named column of user_users (a column of ours, never user text).
    static bool setUserColumn(int user_id, const QString &column, const QVariant &value);
    // auto_publish and ask_before_publish for every profile with a web account.
    static bool setPublishDefaults(bool autoPublish, bool askBeforePublish);

    // Dated rows
    static bool ensureRow(const QString &table, int user_id, const QString &day);
    // The latest value of field on or before day that differs from invalidValue.
    static std::optional<QPair<double, QString>> getLatest(const QString &table, const QString &field, int user_id,
                                                           const QString &day, double invalidValue);

    static Targets getTargets(int user_id, const QString &day);
    // The row set on that very day, with its calories or without; none when the day has no row.
    static std::optional<Targets> getTargetsOn(int user_id, const QString &day);
    static bool setTargets(int user_id, const QString &day, const Targets &targets);
    // The rows in force over a range, oldest first: the one in force on from (if any), then each
    // set after it up to to. The row in force on a day is the latest of them on or before it.
    static QList<Targets> getTargetHistory(int user_id, const QString &from, const QString &to);

    static double getHeight(int user_id); // the latest of all; -1 when none
    static bool setHeight(int user_id, const QString &day, double height);
    static bool setMisc(int user_id, const QString &day, int goal, int activity, double customRmr,
                        const QString &dietPlan);
    static std::optional<QPair<double, QString>> getMisc(int user_id, const QString &day); // custom_rmr, diet_plan
    static int getLatestMiscInt(int user_id, const QString &field, const QString &day, int fallback);
    // The activity level in force on a day; before the first recorded one, that first one (1 when
    // none was ever recorded).
    static int activityLevel(int user_id, const QString &day);

    // Check-ins
    static std::optional<CheckIn> getCheckIn(int user_id, const QString &day);   // that day only
    static std::optional<CheckIn> getLatestCheckIn(int user_id, const QString &day); // on or before
    static QList<CheckIn> getCheckIns(int user_id); // every check-in, the most recent first
    static bool setCheckIn(int user_id, const CheckIn &checkIn);
    static bool removeCheckIn(int user_id, const QString &day);
    static bool hasOtherWeight(int user_id, const QString &day);
    // "nochange", "increase", "bigincrease", "decrease" or "bigdecrease" from the last two
    // weights on or before day.
    static QString weightTrend(int user_id, const QString &day);

    // Water
    static int getWater(int user_id, const QString &day); // 0 when none recorded
    static bool setWater(int user_id, const QString &day, int cups);

    // The id of the synchronisation device with this name, bound as a value; -1 when none.
    static int deviceId(const QString &name);

    // Start-up counter (today, as the database sees it) and tips
    static int startCount(int user_id, const QString &day);
    static bool countStart(int user_id);
    static bool tipShown(int user_id, int tip);
    static bool setTipShown(int user_id, int tip);
    static bool resetTips(int user_id);
};
