#include "app/profilepreferences.h"

#include "app/lmsettings.h"

#include <QString>

namespace {

QString key(int userId, const char *name)
{
    return QStringLiteral("profiles/%1/%2").arg(userId).arg(QLatin1String(name));
}

int readInt(int userId, const char *name, int fallback, int min, int max)
{
    bool ok = false;
    const int value = LmSettings::readValue(key(userId, name)).toString().toInt(&ok);
    return ok && value >= min && value <= max ? value : fallback;
}

} // namespace

ProfilePreferences ProfilePreferences::load(int userId)
{
    ProfilePreferences p;
    p.budgetMode = readInt(userId, "budgetMode", p.budgetMode, 0, 1);
    p.exerciseTarget = readInt(userId, "exerciseTarget", p.exerciseTarget, 0, 1440);
    p.snackMode = readInt(userId, "snackMode", p.snackMode, 0, 2);
    return p;
}

void ProfilePreferences::save(int userId) const
{
    LmSettings::writeValue(key(userId, "budgetMode"), QString::number(budgetMode));
    LmSettings::writeValue(key(userId, "exerciseTarget"), QString::number(exerciseTarget));
    LmSettings::writeValue(key(userId, "snackMode"), QString::number(snackMode));
}
