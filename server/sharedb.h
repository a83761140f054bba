#pragma once

// Who may read whose diary on the web pages: rows of the shares table (owner, viewer). Nothing is
// shared until an owner ticks a viewer; a share is read-only for the viewer.

#include <QList>
#include <QString>
#include <QStringList>

class ServerDB;

class ShareDB
{
public:
    explicit ShareDB(ServerDB &db);

    // A member always sees their own diary; another's only when it is shared with them.
    bool maySee(qint64 viewerId, qint64 ownerId);
    QStringList viewersOf(qint64 ownerId);   // names, sorted
    QStringList sharedWith(qint64 viewerId); // the owners' names, sorted
    // Replaces the owner's viewers in one transaction; the owner and unknown ids are refused and
    // then nothing changes.
    bool setViewers(qint64 ownerId, const QList<qint64> &viewerIds, QString *error);

private:
    QStringList names(const QString &sql, qint64 id);

    ServerDB &_db;
};
