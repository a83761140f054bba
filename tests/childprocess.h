#pragma once

// A server that a test or a benchmark starts ends with the process that started it, even when
// that one is killed: the kernel sends the child SIGTERM when its parent dies.

#include <QProcess>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

inline void endWithParent(QProcess &process)
{
    const pid_t parent = ::getpid();
    process.setChildProcessModifier([parent] {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent) // died before the line above
            ::_exit(1);
    });
}
