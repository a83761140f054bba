#pragma once

// The user's data backed up into a tar archive and restored from one. The archive holds the
// database as the member "userdata.db"; it is a plain tar, so any archiver opens it too.

#include <QString>

namespace DataBackup {

inline constexpr const char *kMember = "userdata.db";

// A consistent copy of the running database into the archive (replaced when it exists). The
// error text, empty on success; a failed backup leaves no archive behind.
QString backUp(const QString &archivePath);

// Checks the archive's database (a whole SQLite file of a schema version this program reads or
// upgrades), then puts it in place of the running one and starts it again. The database as it
// was is kept beside it as "userdata.db.before-restore" and comes back when the restored one
// does not start. The error text, empty on success; on a refusal nothing on disk has changed.
QString restore(const QString &archivePath);

} // namespace DataBackup
