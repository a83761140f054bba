// Arbitrary bytes as a tar archive: catalogue, list and read every member.

#include "brand/tarfilereader.h"

#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir dir;
    static const QString path = dir.filePath(QStringLiteral("input.tar"));
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return 0;
        file.write(reinterpret_cast<const char *>(data), qint64(size));
    }
    TarFileReader reader;
    if (!reader.open(path))
        return 0;
    for (const auto &[name, entry] : reader.catalogue()) {
        const QByteArray contents = reader.read(QString::fromUtf8(name));
        if (contents.size() > qsizetype(size))
            __builtin_trap(); // a member can never be larger than the archive
    }
    reader.list(QStringLiteral(".*xml"));
    reader.list(QStringLiteral(".*"), Qt::CaseInsensitive);
    return 0;
}
