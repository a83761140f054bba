// Profiles and daily records: profiles, profile-add, profile-set, checkin, checkin-remove, water,
// target.

#include "cli/commands.h"
#include "cli/session.h"

#include "app/profilepreferences.h"
#include "brand/brandengine.h"
#include "db/lmsqldb.h"
#include "db/newprofile.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/energy.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace Cli {
namespace {

QString today()
{
    return DateConversion::fromQDate(QDate::currentDate());
}

int brandInt(const char *id, int fallback)
{
    const BrandEngine &brand = BrandEngine::instance();
    return brand.idExists(QLatin1String(id)) ? brand.getInt(QLatin1String(id)) : fallback;
}

// --units metric|imperial and --energy calories|kilojoules.
void applyUnitOptions(const Arguments &a, UserSettings &settings)
{
    if (a.has(QStringLiteral("--units"))) {
        const QString units = a.value(QStringLiteral("--units"));
        if (units != QLatin1String("metric") && units != QLatin1String("imperial"))
            usageError(QStringLiteral("--units: '%1' is not metric or imperial").arg(units));
        settings.measurement_units = units == QLatin1String("imperial") ? 1 : 0;
    }
    if (a.has(QStringLiteral("--energy"))) {
        const QString energy = a.value(QStringLiteral("--energy"));
        if (energy != QLatin1String("calories") && energy != QLatin1String("kilojoules"))
            usageError(QStringLiteral("--energy: '%1' is not calories or kilojoules").arg(energy));
        settings.energy_units = energy == QLatin1String("calories") ? 1 : 0; // as profiles store it
    }
}

} // namespace

int profiles(Context &context, const QStringList &args)
{
    Arguments(args, {}).expectPositionals(0, 0, QStringLiteral("profiles"));
    const Session session(context);
    const QList<UserProfile> users = UserDB::getUsers();
    if (context.options.json) {
        QJsonArray list;
        for (const UserProfile &user : users)
            list.append(QJsonObject{{QStringLiteral("id"), user.user_id}, {QStringLiteral("name"), user.name}});
        printJson(QJsonDocument(list).toJson(QJsonDocument::Indented));
    } else {
        for (const UserProfile &user : users)
            printLine(QString::number(user.user_id) + QLatin1Char('\t') + escapeField(user.name));
    }
    return Success;
}

int profileAdd(Context &context, const QStringList &args)
{
    const Arguments a(args, {QStringLiteral("--name"), QStringLiteral("--sex"), QStringLiteral("--born"),
                             QStringLiteral("--height"), QStringLiteral("--weight"), QStringLiteral("--activity"),
                             QStringLiteral("--units"), QStringLiteral("--energy")});
    a.expectPositionals(0, 0, QStringLiteral("profile-add --name N --sex male|female --born DATE --height H ..."));
    for (const char *required : {"--name", "--sex", "--born", "--height"}) {
        if (!a.has(QLatin1String(required)))
            usageError(QStringLiteral("profile-add needs %1").arg(QLatin1String(required)));
    }
    const QString name = a.value(QStringLiteral("--name")).trimmed();
    if (name.isEmpty() || name.size() > 100)
        usageError(QStringLiteral("--name: give a name of 1 to 100 characters"));
    const QString sex = a.value(QStringLiteral("--sex"));
    if (sex != QLatin1String("male") && sex != QLatin1String("female"))
        usageError(QStringLiteral("--sex: '%1' is not male or female").arg(sex));
    const QDate born = parseDate(a.value(QStringLiteral("--born")), QStringLiteral("--born"));
    if (born > QDate::currentDate() || born.year() < 1900)
        usageError(QStringLiteral("--born: %1 is not a plausible birth date").arg(a.value(QStringLiteral("--born"))));

    const Session session(context);
    UserSettings settings;
    settings.measurement_units = brandInt("default_measurement_units", 0);
    settings.energy_units = brandInt("default_energy_units", 1);
    applyUnitOptions(a, settings);
    const DisplayUnits units(settings);
    const double height = units.length().fromDisplayValue(
        parseNumber(a.value(QStringLiteral("--height")), QStringLiteral("--height"), units.length().toDisplay(50),
                    units.length().toDisplay(272)));
    double weight = -1;
    if (a.has(QStringLiteral("--weight"))) {
        weight = units.weight().fromDisplayValue(parseNumber(a.value(QStringLiteral("--weight")),
                                                             QStringLiteral("--weight"), units.weight().toDisplay(20),
                                                             units.weight().toDisplay(500)));
    }
    const int activity = a.has(QStringLiteral("--activity"))
                             ? parseInteger(a.value(QStringLiteral("--activity")), QStringLiteral("--activity"), 0, 3)
                             : 1;

    const BrandEngine &brand = BrandEngine::instance();
    const bool family = brand.idExists(QStringLiteral("feature.family")) && brand.getBool(QStringLiteral("feature.family"));
    if (!family && UserDB::numUsers() >= 1)
        usageError(QStringLiteral("this edition keeps a single profile, and it exists already"));
    for (const UserProfile &user : UserDB::getUsers()) {
        if (user.name == name)
            usageError(QStringLiteral("a profile named '%1' exists already").arg(name));
    }

    NewProfile profile;
    profile.name = name;
    profile.sex = sex == QLatin1String("female") ? 1 : 0;
    profile.dob = DateConversion::fromQDate(born);
    profile.height = height;
    profile.weight = weight;
    profile.activity = activity;
    profile.goal = MAINTAIN_WEIGHT;
    profile.settings = settings;
    const int userId = createProfile(profile, today());
    printLine(QString::number(userId));
    return Success;
}

int profileSet(Context &context, const QStringList &args)
{
    const Arguments a(args, {QStringLiteral("--units"), QStringLiteral("--energy"), QStringLiteral("--web-user"),
                             QStringLiteral("--web-password"), QStringLiteral("--auto-publish"),
                             QStringLiteral("--ask-before-publish"), QStringLiteral("--budget-mode"),
                             QStringLiteral("--exercise-target"), QStringLiteral("--snack-mode")});
    a.expectPositionals(0, 0, QStringLiteral("profile-set [OPTIONS]"));
    const Session session(context);
    const int userId = session.userId();
    UserSettings settings = UserDB::getSettings(userId);
    ProfilePreferences preferences = ProfilePreferences::load(userId);
    if (a.has(QStringLiteral("--budget-mode")))
        preferences.budgetMode = parseInteger(a.value(QStringLiteral("--budget-mode")), QStringLiteral("--budget-mode"), 0, 1);
    if (a.has(QStringLiteral("--exercise-target"))) {
        preferences.exerciseTarget =
            parseInteger(a.value(QStringLiteral("--exercise-target")), QStringLiteral("--exercise-target"), 0, 1440);
    }
    if (a.has(QStringLiteral("--snack-mode")))
        preferences.snackMode = parseInteger(a.value(QStringLiteral("--snack-mode")), QStringLiteral("--snack-mode"), 0, 2);
    applyUnitOptions(a, settings);
    if (a.has(QStringLiteral("--web-user")))
        settings.web_username = a.value(QStringLiteral("--web-user"));
    if (a.has(QStringLiteral("--web-password")))
        settings.web_password = a.value(QStringLiteral("--web-password"));
    if (a.has(QStringLiteral("--auto-publish")))
        settings.auto_publish = parseYesNo(a.value(QStringLiteral("--auto-publish")), QStringLiteral("--auto-publish"));
    if (a.has(QStringLiteral("--ask-before-publish"))) {
        settings.ask_before_publish =
            parseYesNo(a.value(QStringLiteral("--ask-before-publish")), QStringLiteral("--ask-before-publish"));
    }
    storeOrFail([&] { return UserDB::setSettings(userId, settings); });
    preferences.save(userId);
    return Success;
}

int checkin(Context &context, const QStringList &args)
{
    const QStringList measures = {QStringLiteral("--weight"), QStringLiteral("--chest"), QStringLiteral("--waist"),
                                  QStringLiteral("--hip"), QStringLiteral("--thigh")};
    const Arguments a(args, measures + QStringList{QStringLiteral("--steps"), QStringLiteral("--note")});
    a.expectPositionals(1, 1, QStringLiteral("checkin DATE [--weight W] [--chest C] [--waist W] [--hip H] "
                                             "[--thigh T] [--steps N] [--note TEXT]"));
    const QString day = dayArgument(a.positionals().constFirst());
    const Session session(context);
    const int userId = session.userId();
    const DisplayUnits units = DisplayUnits::of(userId);

    // What the options set, applied to the day's row under the write lock: values given by another
    // program in the meantime stay.
    std::optional<double> given[5];
    bool any = false;
    for (int i = 0; i < measures.size(); ++i) {
        const QString &option = measures.at(i);
        if (!a.has(option))
            continue;
        any = true;
        const UnitDescriptor &unit = i == 0 ? units.weight() : units.length();
        const double shown = parseNumber(a.value(option), option, 0, unit.toDisplay(i == 0 ? 500 : 300));
        given[i] = shown == 0 ? -1 : unit.fromDisplayValue(shown); // 0 clears a measurement
    }
    std::optional<double> steps;
    if (a.has(QStringLiteral("--steps"))) {
        any = true;
        steps = parseInteger(a.value(QStringLiteral("--steps")), QStringLiteral("--steps"), 0, 1000000);
    }
    if (a.has(QStringLiteral("--note")))
        any = true;
    if (!any)
        usageError(QStringLiteral("checkin needs at least one measurement or a note"));
    storeOrFail([&] {
        CheckIn checkIn = UserDB::getCheckIn(userId, day).value_or(CheckIn{});
        checkIn.date = day;
        double *fields[5] = {&checkIn.weight, &checkIn.chest, &checkIn.waist, &checkIn.hip, &checkIn.thigh};
        for (int i = 0; i < 5; ++i) {
            if (given[i])
                *fields[i] = *given[i];
        }
        if (steps)
            checkIn.steps = *steps;
        if (a.has(QStringLiteral("--note")))
            checkIn.note = a.value(QStringLiteral("--note"));
        return UserDB::setCheckIn(userId, checkIn);
    });
    return Success;
}

int checkinRemove(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(1, 1, QStringLiteral("checkin-remove DATE"));
    const QString day = dayArgument(a.positionals().constFirst());
    const Session session(context);
    const int userId = session.userId();
    storeOrFail([&] {
        if (!UserDB::getCheckIn(userId, day))
            failure(QStringLiteral("no check-in on %1").arg(a.positionals().constFirst()));
        return UserDB::removeCheckIn(userId, day);
    });
    return Success;
}

int water(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(2, 2, QStringLiteral("water DATE CUPS"));
    const QString day = dayArgument(a.positionals().at(0));
    const int cups = parseInteger(a.positionals().at(1), QStringLiteral("CUPS"), 0, 100);
    const Session session(context);
    const int userId = session.userId();
    storeOrFail([&] { return UserDB::setWater(userId, day, cups); });
    return Success;
}

int target(Context &context, const QStringList &args)
{
    // Options in nutrient-type order.
    const QStringList options = {QStringLiteral("--calories"), QStringLiteral("--carb"),   QStringLiteral("--fat"),
                                 QStringLiteral("--protein"),  QStringLiteral("--fiber"),  QStringLiteral("--satfat"),
                                 QStringLiteral("--cholesterol"), QStringLiteral("--sodium"), QStringLiteral("--sugar"),
                                 QStringLiteral("--calcium")};
    const Arguments a(args, options);
    a.expectPositionals(1, 1, QStringLiteral("target DATE [--calories N] [--carb G] ..."));
    const QString day = dayArgument(a.positionals().constFirst());
    const Session session(context);
    const int userId = session.userId();
    const DisplayUnits units = DisplayUnits::of(userId);

    std::optional<double> given[kNutrientCount];
    for (int i = 0; i < options.size(); ++i) {
        if (!a.has(options.at(i)))
            continue;
        const double max = i == 0 ? units.energy().toDisplay(20000) : 100000;
        const double value = parseNumber(a.value(options.at(i)), options.at(i), 0, max);
        given[i] = i == 0 ? units.energy().fromDisplayValue(value) : value;
    }
    if (std::none_of(std::begin(given), std::end(given), [](const auto &v) { return v.has_value(); }))
        usageError(QStringLiteral("target needs at least one value"));
    storeOrFail([&] {
        // The day's own row keeps its other values; a new row starts from the values in force.
        Targets targets = UserDB::getTargetsOn(userId, day).value_or(UserDB::getTargets(userId, day));
        for (int i = 0; i < kNutrientCount; ++i) {
            if (given[i])
                targets.values[size_t(i)] = *given[i];
        }
        // Targets are read through their energy value: a row without it would never be in force.
        if (targets.values[ENERGY] < 0)
            usageError(QStringLiteral("no energy target is in force on %1: give --calories too")
                           .arg(DateConversion::toWebDate(day)));
        return UserDB::setTargets(userId, day, targets);
    });
    return Success;
}

} // namespace Cli
