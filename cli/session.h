#pragma once

// What every diary command of the tool stands on: the brand and the user database, started up
// exactly as the desktop program does (locate or copy the template, back up, upgrade, sync
// triggers) and shut down cleanly when the session ends.

#include "cli/cli.h"

namespace Cli {

class Session
{
public:
    // Loads the brand (fatal when it is missing, as at the program's start) and starts the
    // database; a failed start-up ends the run with its error text and status 1.
    explicit Session(const Context &context);
    ~Session();

    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // The profile chosen with --profile (id or exact name), else the first one. A usage error
    // when there is none.
    int userId() const;

private:
    QString _profile;
};

// Display units of a profile, for the numbers the tool reads and prints.
struct DisplayUnits
{
    bool imperial = false;   // lb and in instead of kg and cm
    bool kilojoules = false; // kJ instead of calories

    static DisplayUnits of(int userId);
    double weightToStorage(double value) const;
    double weightToDisplay(double kg) const;
    double lengthToStorage(double value) const;
    double lengthToDisplay(double cm) const;
    double energyToStorage(double value) const;
    double energyToDisplay(double calories) const;
    QString weightUnit() const { return imperial ? QStringLiteral("lb") : QStringLiteral("kg"); }
    QString lengthUnit() const { return imperial ? QStringLiteral("in") : QStringLiteral("cm"); }
    QString energyUnit() const { return kilojoules ? QStringLiteral("kj") : QStringLiteral("cals"); }
};

// "yyyyMMdd" of a date argument.
QString dayArgument(const QString &text, const QString &what = QStringLiteral("DATE"));

} // namespace Cli
