#include "server/updatefeed.h"

#include "staticdb/staticdb.h"
#include "staticdb/staticdbupdater.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <zlib.h>

namespace {

// The whole file in gzip format, as the program's updater expects it.
bool gzipCompress(const QByteArray &data, QByteArray *out)
{
    z_stream stream = {};
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, 15 + 16, 9, Z_DEFAULT_STRATEGY) != Z_OK)
        return false;
    out->resize(qsizetype(deflateBound(&stream, uLong(data.size()))) + 32);
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data.constData()));
    stream.avail_in = uInt(data.size());
    stream.next_out = reinterpret_cast<Bytef *>(out->data());
    stream.avail_out = uInt(out->size());
    const int result = deflate(&stream, Z_FINISH);
    out->resize(qsizetype(stream.total_out));
    deflateEnd(&stream);
    return result == Z_STREAM_END;
}

} // namespace

UpdateFeed::UpdateFeed(const QString &dataDir)
    : _folder(dataDir + QStringLiteral("/updates"))
{
}

QString UpdateFeed::databaseFile() const
{
    return _folder + QStringLiteral("/static.db.gz");
}

QString UpdateFeed::referenceFile() const
{
    return _folder + QStringLiteral("/static.db");
}

std::optional<QDate> UpdateFeed::published() const
{
    gzFile in = gzopen(QFile::encodeName(databaseFile()).constData(), "rb");
    if (!in)
        return std::nullopt;
    uchar header[64];
    const int n = gzread(in, header, sizeof header);
    gzclose(in);
    QString created;
    if (n <= 0 || !StaticDB::readHeader(header, n, &created))
        return std::nullopt;
    const QDate date = QDate::fromString(created, Qt::ISODate);
    return date.isValid() ? std::optional<QDate>(date) : std::nullopt;
}

QByteArray UpdateFeed::compressed() const
{
    QFile file(databaseFile());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool UpdateFeed::publish(const QString &file, QString *error, QDate *created)
{
    const QFileInfo info(file);
    if (!info.isFile()) {
        *error = QStringLiteral("%1: no such file").arg(file);
        return false;
    }
    if (info.size() > StaticDbUpdater::kMaxDatabaseSize) {
        *error = QStringLiteral("%1: larger than the %2 MiB a program accepts")
                     .arg(file)
                     .arg(StaticDbUpdater::kMaxDatabaseSize / (1024 * 1024));
        return false;
    }
    QString madeOn;
    if (!StaticDbUpdater::verifyDatabase(file, &madeOn)) {
        *error = QStringLiteral("%1: not a reference database the program can read").arg(file);
        return false;
    }
    const QDate date = QDate::fromString(madeOn, Qt::ISODate);
    if (!date.isValid()) {
        *error = QStringLiteral("%1: the creation date '%2' is not a date").arg(file, madeOn);
        return false;
    }
    if (const std::optional<QDate> current = published(); current && date < *current) {
        *error = QStringLiteral("%1 was made on %2, before the published database (%3)")
                     .arg(file, date.toString(Qt::ISODate), current->toString(Qt::ISODate));
        return false;
    }
    QFile in(file);
    const QByteArray data = in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray();
    QByteArray compressedData;
    if (data.size() != info.size() || !gzipCompress(data, &compressedData)) {
        *error = QStringLiteral("%1: cannot be read and compressed").arg(file);
        return false;
    }
    if (!QDir().mkpath(_folder)) {
        *error = QStringLiteral("cannot make the folder %1").arg(_folder);
        return false;
    }
    // The compressed file last: its date is the feed's, and the plain copy is ready by then.
    const std::pair<QString, const QByteArray *> files[] = {{referenceFile(), &data},
                                                            {databaseFile(), &compressedData}};
    for (const auto &[path, bytes] : files) {
        QSaveFile out(path);
        if (!out.open(QIODevice::WriteOnly) || out.write(*bytes) != bytes->size() || !out.commit()) {
            *error = QStringLiteral("%1: %2").arg(path, out.errorString());
            return false;
        }
    }
    if (created)
        *created = date;
    return true;
}
