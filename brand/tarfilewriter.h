#pragma once

// Writes plain tar archives (the old 512-byte-block layout, no ustar fields) to a device the
// caller has opened and owns. The first failure sticks: the writer stays failed, its byte count
// becomes -1, and it no longer writes anything, not even the end-of-archive marker.

#include <QString>

class QIODevice;

class TarFileWriter
{
public:
    explicit TarFileWriter(QIODevice &device);
    ~TarFileWriter(); // writes the end marker (two zero blocks) unless the writer failed

    TarFileWriter(const TarFileWriter &) = delete;
    TarFileWriter &operator=(const TarFileWriter &) = delete;

    // Appends the file at sourcePath as one member named memberName (sourcePath itself when
    // memberName is empty). False when the source cannot be read or the writer failed.
    bool addFile(const QString &sourcePath, const QString &memberName = QString());

    // False while the writer has not failed. When it has, true, and *text (if given) is
    // "TarFileWriter error" followed by " - " and the stored message when there is one.
    bool error(QString *text = nullptr) const;

    qint64 bytesWritten() const { return _written; }

private:
    bool writeData(const char *data, qint64 size);
    void pad();
    void fail(const QString &message);

    QIODevice &_ioDevice;
    qint64 _written = 0; // -1 once failed
    QString _message;
};
