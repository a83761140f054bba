#pragma once

// The desktop program's command line: "-updatedb", "-deregistercond" and "-resourcedir PATH",
// matched exactly. A bad command line is a fatal error.

#include <QStringList>

struct CommandLine
{
    bool updateDb = false;
    bool deregisterConduit = false;
    QString resourceDir; // empty when not given
};

// Reads the arguments that follow the program name (Qt's own already taken out).
CommandLine parseCommandLine(const QStringList &arguments);
