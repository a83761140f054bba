#include "app/singlecopy.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <cerrno>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

// One copy per login session: the session's runtime folder, or the temporary folder where the
// session has none.
QString runtimeFolder()
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QFileInfo(runtime).isDir())
        return QDir::cleanPath(runtime) + QLatin1Char('/');
    return QDir::tempPath() + QLatin1Char('/');
}

QString baseName(const QString &identifier)
{
    // The account, not $USER or $HOME: those change with the environment a copy starts in.
    const passwd *account = ::getpwuid(::getuid());
    const QString login = account ? QString::fromLocal8Bit(account->pw_name) : QString::number(::getuid());
    // Socket names are paths with a short length limit: a digest keeps them short.
    const QByteArray digest =
        QCryptographicHash::hash((identifier + QLatin1Char('\n') + login).toUtf8(), QCryptographicHash::Sha1);
    return QStringLiteral("tarnwell-") + QString::fromLatin1(digest.toHex().left(20));
}

QByteArray lockPath(const QString &identifier)
{
    return QFile::encodeName(runtimeFolder() + baseName(identifier) + QStringLiteral(".lock"));
}

} // namespace

QString SingleCopy::serverName(const QString &identifier)
{
    // A full path: the socket lives in the session's folder, not in the shared temporary one.
    return runtimeFolder() + baseName(identifier);
}

int SingleCopy::acquireLock(const QString &identifier, int waitMs)
{
    // The kernel drops the lock when the process ends, however it ends: no stale lock to judge,
    // and nothing is written to disk on every start.
    const int fd = ::open(lockPath(identifier).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return -1;
    const QDeadlineTimer deadline(waitMs);
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || deadline.hasExpired()) {
            ::close(fd);
            return -1;
        }
        QThread::msleep(5);
    }
    return fd;
}

void SingleCopy::releaseLock(int fd)
{
    if (fd >= 0)
        ::close(fd);
}

bool SingleCopy::isRunning(const QString &identifier)
{
    const int fd = ::open(lockPath(identifier).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false; // no copy has run since the temporary folder was cleared
    const bool held = ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(fd);
    return held;
}
