#pragma once

// The program's Qt message handler. Debug, info and warning messages are discarded unless the
// environment variable TARNWELL_DEBUG is set (non-empty), in which case they go to standard
// error. A fatal message ends the process: the desktop program writes it to standard error, shows
// it in a "Fatal Error" box (through the display hook the user interface sets) and aborts; the
// command-line tool writes "Fatal Error: " and the message and exits with status 70.

#include <QString>

namespace Lm {

enum class MessageHandlerMode { Desktop, CommandLine };

inline constexpr int kFatalExitStatus = 70;

void installMessageHandler(MessageHandlerMode mode);

// Shows a fatal message to the user before the desktop program aborts; must not return early
// from a modal loop in a way that lets the program go on.
using FatalDisplay = void (*)(const QString &message);
void setFatalDisplay(FatalDisplay display);

// Writes warnings to standard error even without TARNWELL_DEBUG (the command-line tool shows the
// brand loader's warnings this way).
void setEchoWarnings(bool echo);

} // namespace Lm
