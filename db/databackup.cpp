#include "db/databackup.h"

#include "app/lmsettings.h"
#include "brand/tarfilereader.h"
#include "brand/tarfilewriter.h"
#include "db/dblog.h"
#include "db/lmsqldb.h"
#include "db/schema.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <string>

namespace {

QString databaseFile()
{
    return LmSettings::userDatabasePath() + QLatin1String(LmSqlDb::kFileName);
}

QString sideCopyFile()
{
    return databaseFile() + QStringLiteral(".before-restore");
}

// Opens the file read-only on a connection of its own: an error text unless it is a whole
// database of a version this program starts on.
QString checkDatabase(const QString &path)
{
    const QString connection = QStringLiteral("tarnwell-restore-check");
    QString error;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        const bool opened = db.open();
        QSqlQuery check(db);
        QSqlQuery version(db);
        if (!opened || !check.exec(QStringLiteral("PRAGMA quick_check")) || !check.next() ||
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

} // namespace

QString DataBackup::backUp(const QString &archivePath)
{
    QTemporaryDir scratch;
    if (!scratch.isValid())
        return QStringLiteral("No room for a copy of the diary: ") + scratch.errorString();
    // A copy made by the database itself is consistent even while the program runs.
    const QString copy = scratch.filePath(QLatin1String(kMember));
    if (runBound(QStringLiteral("VACUUM INTO ?"), {copy}).isNull())
        return QStringLiteral("The diary could not be copied.");

    QSaveFile file(archivePath);
    if (!file.open(QIODevice::WriteOnly))
        return QStringLiteral("Cannot write %1: %2")
            .arg(QDir::toNativeSeparators(archivePath), file.errorString());
    QString error;
    {
        TarFileWriter writer(file);
        writer.addFile(copy, QLatin1String(kMember));
        writer.error(&error);
    } // the end marker goes out here
    if (!error.isEmpty() || !file.commit()) {
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

    // Checked beside the diary, so that putting it in place is a rename.
    const QString incoming = databaseFile() + QStringLiteral(".restoring");
    QFile::remove(incoming);
    {
        QFile out(incoming);
        if (!out.open(QIODevice::WriteOnly) || out.write(contents) != contents.size() || !out.flush()) {
            const QString text = out.errorString();
            out.close();
            QFile::remove(incoming);
            return QStringLiteral("No room to unpack the backup: ") + text;
        }
    }
    if (const QString error = checkDatabase(incoming); !error.isEmpty()) {
        QFile::remove(incoming);
        return error;
    }

    LmSqlDb::shutDown();
    const QString current = databaseFile();
    const QString side = sideCopyFile();
    QFile::remove(side);
    std::string startError;
    if (QFile::rename(current, side) && QFile::rename(incoming, current) &&
        LmSqlDb::startUp(startError, true))
        return QString();

    // Back to the diary as it was.
    qCWarning(lcDb, "Restore failed (%s): putting the diary back", startError.c_str());
    LmSqlDb::shutDown();
    if (QFile::exists(side)) {
        QFile::remove(current);
        QFile::rename(side, current);
    }
    QFile::remove(incoming);
    std::string again;
    LmSqlDb::startUp(again, true);
    return startError.empty()
               ? QStringLiteral("The backup could not be put in place of the diary.")
               : QStringLiteral("The restored diary did not start: ") + QString::fromStdString(startError);
}
