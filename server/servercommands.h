#pragma once

// The command line of tarnwell-server: serve, the member accounts and publish-db. Every command
// takes --data DIR (default $XDG_DATA_HOME/tarnwell-server) and --database URL (default the
// SQLite file in DATA). Messages go to standard error, listings to standard output; the exit
// status is 0 when done, 1 when it failed (nothing changed) and 2 for a usage error.

#include <QStringList>

namespace ServerCommands {

enum Status { Success = 0, Failed = 1, Usage = 2 };

// arguments: without the program's name.
int run(const QStringList &arguments);

} // namespace ServerCommands
