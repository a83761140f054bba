// Maintenance: the data backup and its restore.

#include "cli/commands.h"
#include "cli/session.h"

#include "app/singlecopy.h"
#include "db/databackup.h"

#include <QDir>

namespace Cli {

int backup(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(1, 1, QStringLiteral("backup FILE.tar"));
    const Session session(context);
    const QString archive = a.positionals().constFirst();
    if (const QString error = DataBackup::backUp(archive); !error.isEmpty())
        failure(error);
    printLine(QStringLiteral("Backed up to ") + QDir::toNativeSeparators(archive));
    return Success;
}

int restore(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(1, 1, QStringLiteral("restore FILE.tar"));
    // A running program would go on writing to the diary put aside.
    if (SingleCopy::isRunning())
        failure(QStringLiteral("The program is running: close it before restoring."));
    const Session session(context);
    if (const QString error = DataBackup::restore(a.positionals().constFirst()); !error.isEmpty())
        failure(error);
    printLine(QStringLiteral("Restored from ") + QDir::toNativeSeparators(a.positionals().constFirst()));
    return Success;
}

} // namespace Cli
