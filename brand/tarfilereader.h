#pragma once

// Reads plain tar archives: catalogues the member headers once at open (seeking over the data),
// then hands out whole members as byte arrays. Only the name and size fields of a header are
// used. Never reads outside the file: a member whose data would run past the end of the file
// reads as empty. Member names are 8-bit strings: as text each byte is one Latin-1 character, so
// every name read from the catalogue finds its member again whatever its encoding.

#include <QByteArray>
#include <QFile>
#include <QStringList>

#include <map>

class TarFileReader
{
public:
    TarFileReader() = default;
    TarFileReader(const TarFileReader &) = delete;
    TarFileReader &operator=(const TarFileReader &) = delete;

    // Opens the archive and builds the catalogue; false when the file cannot be opened.
    bool open(const QString &archivePath);
    bool isOpen() const { return _file.isOpen(); }
    QString fileName() const { return _file.fileName(); }

    // The member's whole contents; empty when the name is unknown or the data cannot be read.
    QByteArray read(const QString &memberName);

    // Catalogued names (in byte order) that match the regular expression as a whole.
    QStringList list(const QString &pattern, Qt::CaseSensitivity cs = Qt::CaseSensitive) const;

    struct Entry
    {
        qint64 size = 0;
        qint64 offset = 0; // file offset of the member's data
    };
    // The catalogue: member name (bytes as stored, up to the first zero) -> entry. The first of
    // two members with the same name is kept.
    const std::map<QByteArray, Entry> &catalogue() const { return _catalogue; }

    // The lenient octal parse of a header's size field: every decimal digit up to the first zero
    // byte (within the field) is folded in as value * 8 + digit, anything else is skipped.
    static qint64 parseOctal(const char *field, int length);

private:
    void buildCatalogue();

    QFile _file;
    std::map<QByteArray, Entry> _catalogue;
};
