#pragma once

// The reference database the server offers the household's programs: DATA/updates/static.db.gz,
// published by "tarnwell-server publish-db FILE" after the file has been read through in full
// with the program's own reader. The creation date in the file's header is the update's date;
// it is read from the published file itself, so the file and its date can never disagree.

#include <QByteArray>
#include <QDate>
#include <QString>

#include <optional>

class UpdateFeed
{
public:
    explicit UpdateFeed(const QString &dataDir);

    QString databaseFile() const;  // the published file, compressed, as the programs fetch it
    QString referenceFile() const; // the same uncompressed, for the web pages' food search

    // Checks the file (a reference database the program can open, not older than the one
    // published) and puts it in place atomically, compressed and as it is. False with a text;
    // the published files are then unchanged. *created: the new file's creation date.
    bool publish(const QString &file, QString *error, QDate *created = nullptr);

    // The published database's creation date; none when nothing (readable) is published.
    std::optional<QDate> published() const;
    // The compressed file as served; empty when there is none.
    QByteArray compressed() const;

private:
    QString _folder;
};
