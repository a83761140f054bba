#pragma once

// One running copy of the desktop program per login. Its socket and lock file are named from the
// program's identifier and the login; the lock is a kernel lock held for the life of the copy,
// so whether a copy runs is known without asking it (tools that replace the database do).

#include <QString>

namespace SingleCopy {

inline constexpr const char *kIdentifier = "zxcv71mnbvzxcv;po;iuyhgf;lkjhgfds_quonderblitmarq";

QString serverName(const QString &identifier = QLatin1String(kIdentifier));

// Takes the lock; the descriptor that holds it, -1 when another copy holds it past the wait.
int acquireLock(const QString &identifier, int waitMs);
void releaseLock(int fd);

bool isRunning(const QString &identifier = QLatin1String(kIdentifier));

} // namespace SingleCopy
