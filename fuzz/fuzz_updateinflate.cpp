// A downloaded update from arbitrary bytes, through what stands between it and static.db: the
// gzip decompression with its size limit, then the full read of the result. An input whose first
// byte is 0 is the database itself, compressed here first, so that the reading is reached with
// content the fuzzer chose rather than stopped at a broken checksum.

#include "app/lmsettings.h"
#include "fuzzcontent.h"
#include "staticdb/staticdbupdater.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <zlib.h>

#include <cstdint>

namespace {

// Well above any seed, well below the program's own limit: a bomb is refused quickly.
constexpr qint64 kLimit = 8 * 1024 * 1024;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (!prepareContentFolder())
        return 0;
    const QString download = LmSettings::contentPath() + QStringLiteral("static.download");
    const QString staged = LmSettings::contentPath() + QStringLiteral("static.db.new");
    if (size > 0 && data[0] == 0) {
        gzFile out = gzopen(QFile::encodeName(download).constData(), "wb1");
        if (!out)
            return 0;
        gzwrite(out, data + 1, unsigned(size - 1));
        gzclose(out);
    } else {
        QFile file(download);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return 0;
        file.write(reinterpret_cast<const char *>(data), qint64(size));
    }
    qint64 last = 0;
    const auto result = StaticDbUpdater::inflate(download, staged, kLimit, [&last](qint64 written) {
        if (written <= last || written > kLimit)
            __builtin_trap(); // progress only forward, and never past the limit
        last = written;
        return true;
    });
    if (result == StaticDbUpdater::Inflated::Ok) {
        QString created;
        if (StaticDbUpdater::verifyDatabase(staged, &created) && created.size() != 10)
            __builtin_trap();
    } else if (QFile(staged).size() > kLimit) {
        __builtin_trap();
    }
    return 0;
}
