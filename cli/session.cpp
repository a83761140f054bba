#include "cli/session.h"

#include "app/lmsettings.h"
#include "brand/brandengine.h"
#include "common/lmassert.h"
#include "db/lmsqldb.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "staticdb/staticdbupdater.h"

#include <cmath>
#include <string>

namespace Cli {
namespace {

const char *const kNutrientKeys[kNutrientCount] = {"calories", "carb",        "fat",    "protein", "fiber",
                                                   "satfat",   "cholesterol", "sodium", "sugar",   "calcium"};

} // namespace

Session::Session(const Context &context)
    : _profile(context.options.profile)
{
    const QString brandFile = LmSettings::resourcePath() + QStringLiteral("brand.dat");
    if (!BrandEngine::instance().load(brandFile))
        Lm::fatal(QStringLiteral("Cannot find %1").arg(brandFile));

    // An install of the reference database cut short is put right before anything opens it.
    StaticDbUpdater::recoverInterruptedInstall();

    std::string error;
    if (!LmSqlDb::startUp(error, true)) {
        LmSqlDb::shutDown();
        failure(QString::fromStdString(error));
    }
}

Session::~Session()
{
    LmSqlDb::shutDown();
}

int Session::userId() const
{
    const QList<UserProfile> users = UserDB::getUsers();
    if (users.isEmpty())
        usageError(QStringLiteral("there is no profile yet; create one with profile-add"));
    if (_profile.isEmpty())
        return users.constFirst().user_id;
    bool isNumber = false;
    const int id = _profile.toInt(&isNumber);
    for (const UserProfile &user : users) {
        if ((isNumber && user.user_id == id) || user.name == _profile)
            return user.user_id;
    }
    usageError(QStringLiteral("no profile '%1'").arg(_profile));
}

DisplayUnits::DisplayUnits(const UserSettings &settings)
    : _weight(makeWeightUnit(settings.measurement_units == 1 ? 1 : 0))
    , _length(makeMeasurementUnit(settings.measurement_units == 1 ? 1 : 0))
    , _energy(makeEnergyUnit(settings.energy_units == 0 ? 1 : 0)) // stored 0 means kilojoules
{
}

DisplayUnits DisplayUnits::of(int userId)
{
    return DisplayUnits(UserDB::getSettings(userId));
}

void applyDisplayUnits(int userId)
{
    UserDB::applyDisplayUnits(userId);
}

QString nutrientsText(const std::array<float, kNutrientCount> &values)
{
    const UnitRegistry &units = UnitRegistry::instance();
    QStringList parts;
    for (int type = 0; type < kNutrientCount; ++type)
        parts.append(units.getUnitForNutrient(type)->formatValueWithUnit(values[size_t(type)]));
    return parts.join(QLatin1Char('\t'));
}

QJsonObject nutrientsJson(const std::array<float, kNutrientCount> &values)
{
    QJsonObject object;
    for (int type = 0; type < kNutrientCount; ++type) {
        const float value = values[size_t(type)];
        // Values are single precision: three decimals say all they hold.
        object.insert(QLatin1String(kNutrientKeys[type]),
                      isKnown(value) ? QJsonValue(std::round(double(value) * 1000.0) / 1000.0)
                                     : QJsonValue());
    }
    return object;
}

void storeOrFail(const std::function<bool()> &change)
{
    LmWriteTransaction write;
    // Anything thrown leaves the transaction to roll back in write's destructor.
    if (!write.isOpen() || !write.commit(change()))
        failure(QStringLiteral("the diary could not be written (%1); nothing was changed")
                    .arg(LmSqlDb::lastErrorText().isEmpty() ? QStringLiteral("unknown error")
                                                            : LmSqlDb::lastErrorText()));
}

QString dayArgument(const QString &text, const QString &what)
{
    return DateConversion::fromQDate(parseDate(text, what));
}

} // namespace Cli
