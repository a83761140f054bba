#pragma once

#include "cli/cli.h"

#include <span>

namespace Cli {

using CommandFunction = int (*)(Context &context, const QStringList &args);

struct Command
{
    const char *name;
    const char *synopsis; // arguments, for --help
    const char *group;
    CommandFunction run;  // nullptr: not available yet
};

std::span<const Command> commands();
const Command *findCommand(const QString &name);

// Commands, grouped by source file.
int brandDump(Context &context, const QStringList &args);
int profiles(Context &context, const QStringList &args);
int profileAdd(Context &context, const QStringList &args);
int profileSet(Context &context, const QStringList &args);
int checkin(Context &context, const QStringList &args);
int checkinRemove(Context &context, const QStringList &args);
int water(Context &context, const QStringList &args);
int target(Context &context, const QStringList &args);
int day(Context &context, const QStringList &args);
int exportCommand(Context &context, const QStringList &args);
int summary(Context &context, const QStringList &args);

} // namespace Cli
