#pragma once

// One running copy of the desktop program per login session. Its socket and lock file lie in the
// session's runtime folder ($XDG_RUNTIME_DIR, else the temporary folder) and are named from the
// program's identifier and the account; the lock is a kernel lock held for the life of the copy,
// so whether a copy runs is known without asking it (tools that replace the database do).

#include <QString>

namespace SingleCopy {

inline constexpr const char *kIdentifier = "zxcv71mnbvzxcv;po;iuyhgf;lkjhgfds_quonderblitmarq";

// The full path of the socket a running copy listens on.
QString serverName(const QString &identifier = QLatin1String(kIdentifier));

// Takes the lock; the descriptor that holds it, -1 when another copy holds it past the wait.
int acquireLock(const QString &identifier, int waitMs);
void releaseLock(int fd);

bool isRunning(const QString &identifier = QLatin1String(kIdentifier));

} // namespace SingleCopy
