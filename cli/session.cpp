#include "cli/session.h"

#include "app/lmsettings.h"
#include "brand/brandengine.h"
#include "common/lmassert.h"
#include "db/lmsqldb.h"
#include "db/userdb.h"
#include "model/dateconversion.h"

#include <string>

namespace Cli {

Session::Session(const Context &context)
    : _profile(context.options.profile)
{
    const QString brandFile = LmSettings::resourcePath() + QStringLiteral("brand.dat");
    if (!BrandEngine::instance().load(brandFile))
        Lm::fatal(QStringLiteral("Cannot find %1").arg(brandFile));

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

DisplayUnits DisplayUnits::of(int userId)
{
    const UserSettings settings = UserDB::getSettings(userId);
    return {settings.measurement_units == 1, settings.energy_units == 0};
}

// The program's conversion factors (4.18 kJ per calorie is the product's own).
double DisplayUnits::weightToStorage(double value) const
{
    return imperial ? value * 0.4535924 : value;
}

double DisplayUnits::weightToDisplay(double kg) const
{
    return imperial ? kg * 2.2046224760379585 : kg;
}

double DisplayUnits::lengthToStorage(double value) const
{
    return imperial ? value * 2.54 : value;
}

double DisplayUnits::lengthToDisplay(double cm) const
{
    return imperial ? cm * 0.39370078740157477 : cm;
}

double DisplayUnits::energyToStorage(double value) const
{
    return kilojoules ? value * 0.23923444976076558 : value;
}

double DisplayUnits::energyToDisplay(double calories) const
{
    return kilojoules ? calories * 4.18 : calories;
}

QString dayArgument(const QString &text, const QString &what)
{
    return DateConversion::fromQDate(parseDate(text, what));
}

} // namespace Cli
