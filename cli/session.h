#pragma once

// What every diary command of the tool stands on: the brand and the user database, started up
// exactly as the desktop program does (locate or copy the template, back up, upgrade, sync
// triggers) and shut down cleanly when the session ends.

#include "cli/cli.h"
#include "db/userdb.h"
#include "model/dbtypes.h"
#include "model/unitdescriptor.h"

#include <QJsonObject>

#include <array>
#include <functional>

#include <memory>

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
class DisplayUnits
{
public:
    explicit DisplayUnits(const UserSettings &settings);
    static DisplayUnits of(int userId);

    const UnitDescriptor &weight() const { return *_weight; }
    const UnitDescriptor &length() const { return *_length; }
    const UnitDescriptor &energy() const { return *_energy; }

private:
    std::shared_ptr<UnitDescriptor> _weight, _length, _energy;
};

// Sets the unit registry to the profile's display units and the brand's spelling of fibre.
void applyDisplayUnits(int userId);
// Nutrient values in model order: formatted with units and tab-separated, or as a JSON object in
// storage units (unknown values null).
QString nutrientsText(const std::array<float, kNutrientCount> &values);
QJsonObject nutrientsJson(const std::array<float, kNutrientCount> &values);

// Runs change (returning whether each step was stored) in one write transaction: all of it lands
// or none, and the command fails with status 1 unless it did.
void storeOrFail(const std::function<bool()> &change);

// "yyyyMMdd" of a date argument.
QString dayArgument(const QString &text, const QString &what = QStringLiteral("DATE"));

} // namespace Cli
