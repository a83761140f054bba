#include "db/databackup.h"

#include "app/lmsettings.h"
#include "brand/tarfilereader.h"
#include "brand/tarfilewriter.h"
#include "db/dblog.h"
#include "db/lmsqldb.h"
#include "db/schema.h"
#include "common/lmassert.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include <cstdio>
#include <string>

#include <unistd.h>

namespace {

QString databaseFile()
{
    return LmSettings::userDatabasePath() + QLatin1String(LmSqlDb::kFileName);
}

QString asideFile()
{
    return databaseFile() + QLatin1String(LmSqlDb::kAsideSuffix);
}

bool renameOver(const QString &from, const QString &to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

// Whether the file begins as an SQLite database does.
bool isDatabaseFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.read(16) == QByteArray("SQLite format 3\0", 16);
}

// Opens the unpacked backup on a connection of its own: an error text unless it is a whole
// database of a version this program starts on. It leaves the file in rollback-journal mode, so
// that no -wal or -shm file is made beside it, now or once it is the diary.
QString checkDatabase(const QString &path)
{
    const QString connection = QStringLiteral("tarnwell-restore-check");
    QString error;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        db.setDatabaseName(path);
        QSqlQuery check(db);
        QSqlQuery version(db);
        if (!db.open() || !check.exec(QStringLiteral("PRAGMA journal_mode = DELETE")) ||
            !check.exec(QStringLiteral("PRAGMA integrity_check")) || !check.next() ||
            check.value(0).toString() != QLatin1String("ok")) {
            error = QStringLiteral("The diary in the backup is damaged or is no database.");
        } else if (!version.exec(QStringLiteral(
                       "SELECT itemvalue FROM userdata_meta WHERE itemkey = 'schema_version'")) ||
                   !version.next()) {
            error = QStringLiteral("The backup holds no diary.");
        } else {
            bool number = false;
            const int v = version.value(0).toInt(&number);
            if (!number || v < LmSchema::kTemplateVersion || v > LmSchema::kLastReadableVersion)
                error = QStringLiteral(
                            "The diary in the backup has version %1, which this version of the program "
                            "cannot read.")
                            .arg(version.value(0).toString());
        }
        check.finish();
        version.finish();
        db.close();
    }
    QSqlDatabase::removeDatabase(connection);
    return error;
}

// The upgrade of the unpacked copy ends the program where it fails, as at a start; here the end
// becomes an error text and the diary is left as it was.
struct UpgradeAbort
{
    QString message;
};

void abortUpgrade(const QString &message)
{
    throw UpgradeAbort{message};
}

QString upgradeCopy(const QString &path)
{
    std::string error;
    const Lm::FatalHandler previous = Lm::setFatalHandler(abortUpgrade);
    bool upgraded = false;
    QString fatal;
    try {
        upgraded = LmSqlDb::upgradeFile(path, error);
    } catch (const UpgradeAbort &abort) {
        LmSqlDb::shutDown();
        fatal = abort.message;
    }
    Lm::setFatalHandler(previous);
    if (!fatal.isEmpty())
        return QStringLiteral("The diary in the backup could not be upgraded: ") + fatal;
    if (!upgraded)
        return QStringLiteral("The diary in the backup cannot be used: ") + QString::fromStdString(error);
    return QString();
}

// Starts the diary again after a failed restore; false when even that fails.
bool restartDiary()
{
    std::string error;
    if (LmSqlDb::startUp(error, true))
        return true;
    qCWarning(lcDb, "The diary did not start again: %s", error.c_str());
    LmSqlDb::shutDown();
    return false;
}

} // namespace

QString DataBackup::backUp(const QString &archivePath)
{
    // Writing the archive over the diary (or any database) would destroy it.
    const QFileInfo target(archivePath);
    if (target.exists() && (target.canonicalFilePath() == QFileInfo(databaseFile()).canonicalFilePath() ||
                            isDatabaseFile(archivePath)))
        return QStringLiteral("%1 is a database: choose another name for the backup.")
            .arg(QDir::toNativeSeparators(archivePath));

    // The consistent copy is made beside the diary, never in a shared temporary folder, and one
    // left by a backup that was killed is cleared by the next.
    const QString copy = databaseFile() + QStringLiteral(".backing-up");
    QFile::remove(copy);
    if (runBound(QStringLiteral("VACUUM INTO ?"), {copy}).isNull()) {
        QFile::remove(copy);
        return QStringLiteral("The diary could not be copied.");
    }

    QSaveFile file(archivePath);
    QString error;
    if (file.open(QIODevice::WriteOnly)) {
        TarFileWriter writer(file);
        writer.addFile(copy, QLatin1String(kMember));
        writer.error(&error);
    } // the end marker goes out here
    QFile::remove(copy);
    if (!file.isOpen() || !error.isEmpty() || !file.commit()) {
        file.cancelWriting();
        return QStringLiteral("Cannot write %1: %2")
            .arg(QDir::toNativeSeparators(archivePath), error.isEmpty() ? file.errorString() : error);
    }
    return QString();
}

QString DataBackup::restore(const QString &archivePath)
{
    TarFileReader archive;
    if (!archive.open(archivePath))
        return QStringLiteral("Cannot read %1.").arg(QDir::toNativeSeparators(archivePath));
    if (archive.catalogue().count(QByteArray(kMember)) == 0)
        return QStringLiteral("%1 is no backup of this program: it holds no %2.")
            .arg(QDir::toNativeSeparators(archivePath), QLatin1String(kMember));
    const QByteArray contents = archive.read(QLatin1String(kMember));

    // Unpacked, checked and upgraded beside the diary, so that putting it in place is a rename.
    const QString incoming = databaseFile() + QStringLiteral(".restoring");
    const auto discard = [&incoming] {
        for (const char *suffix : {"", "-journal", "-wal", "-shm"})
            QFile::remove(incoming + QLatin1String(suffix));
    };
    discard();
    {
        QFile out(incoming);
        if (!out.open(QIODevice::WriteOnly) || out.write(contents) != contents.size() || !out.flush()) {
            const QString text = out.errorString();
            out.close();
            discard();
            return QStringLiteral("No room to unpack the backup: ") + text;
        }
    }
    if (const QString error = checkDatabase(incoming); !error.isEmpty()) {
        discard();
        return error;
    }

    LmSqlDb::shutDown();
    if (const QString error = upgradeCopy(incoming); !error.isEmpty()) {
        discard();
        restartDiary();
        return error;
    }

    // The diary stays under its name until the backup replaces it in one rename; the copy put
    // aside is a second name of the same file, made first.
    const QString current = databaseFile();
    const QString aside = asideFile();
    QFile::remove(aside);
    const bool keptAside = ::link(QFile::encodeName(current).constData(), QFile::encodeName(aside).constData()) == 0 ||
                           QFile::copy(current, aside);
    if (!keptAside || !renameOver(incoming, current)) {
        discard();
        restartDiary();
        return QStringLiteral("The backup could not be put in place of the diary.");
    }
    std::string startError;
    if (LmSqlDb::startUp(startError, true))
        return QString();

    // Back to the diary as it was.
    qCWarning(lcDb, "Restore failed (%s): putting the diary back", startError.c_str());
    LmSqlDb::shutDown();
    renameOver(aside, current);
    restartDiary();
    return QStringLiteral("The restored diary did not start: ") + QString::fromStdString(startError);
}
