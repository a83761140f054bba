#pragma once

// Schema versions of the user database and the hook through which the start-up reports its
// upgrade steps. The start-up itself is LmSqlDb::startUp().

#include <QString>

#include <functional>

class QSqlDatabase;

namespace LmSchema {

// The version this program writes, and the last one it still reads unchanged.
inline constexpr int kCurrentVersion = 413;
inline constexpr int kLastReadableVersion = 499;
// The version of the template database in the resource folder.
inline constexpr int kTemplateVersion = 204;

inline bool isCurrent(int version)
{
    return version >= kCurrentVersion && version <= kLastReadableVersion;
}

// What the database lacks of the tables and columns the program uses at the current version
// ("no table food_diary", "no column steps in user_checkins"); empty when nothing.
QString missingPart(const QSqlDatabase &db);

// Called before each upgrade step with the versions it moves between, so that a splash screen
// can say what is going on. Empty by default; the start-up runs without it.
using StepObserver = std::function<void(int fromVersion, int toVersion)>;
void setStepObserver(StepObserver observer);

} // namespace LmSchema
