#pragma once

// The server database's numbered migrations. Each is a list of statements written once for
// both back ends; the few words that differ (how an id is made, the width of numbers) are
// placeholders filled in per back end, so SQLite and PostgreSQL hold the same tables, columns,
// keys and checks.

#include "server/serverdb.h"

#include <QStringList>

namespace ServerSchema {

// The highest migration this program knows.
int latestVersion();

// Creates the table of applied migrations when it is missing; run before they are looked up.
QString bookkeeping(ServerDB::Kind kind);

// The statements of migration version (1..latestVersion()) for the back end.
QStringList statements(int version, ServerDB::Kind kind);

} // namespace ServerSchema
