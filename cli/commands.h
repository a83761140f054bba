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

} // namespace Cli
