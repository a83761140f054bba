// Arbitrary bytes as static.db: open both chunks, browse everything, decode every payload, search.

#include "app/lmsettings.h"
#include "staticdb/exdb.h"
#include "staticdb/fooddb.h"
#include "staticdb/staticdb.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <cstdint>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir dir;
    static const bool ready = [] {
        QLoggingCategory::setFilterRules(QStringLiteral("tarnwell.*=false"));
        LmSettings::setResourcePath(dir.path());
        return QDir().mkpath(LmSettings::contentPath());
    }();
    if (!ready)
        return 0;
    {
        QFile file(StaticDB::fileName());
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return 0;
        file.write(reinterpret_cast<const char *>(data), qint64(size));
    }
    for (quint32 chunk : {1u, 2u}) {
        bool failed = false;
        StaticDB db(chunk, &failed);
        if (failed)
            continue;
        std::unique_ptr<BrowsableDBIterator> it(db.all(0, 0));
        size_t bytes = 0;
        while (const IndexEntry *e = it->next()) {
            const char *name = db.namePointer(e);
            for (quint32 i = 0; i < db.nameLength(e); ++i)
                bytes += uchar(name[i]);
            const QByteArrayView payload = db.payload(e);
            if (!payload.isEmpty())
                bytes += uchar(payload.front()) + uchar(payload.back());
            if (!db.isCategory(e)) {
                Food food;
                if (FoodDBStatic::decodePayload(payload, e->value, &food))
                    bytes += size_t(food.servings.size());
            }
            std::unique_ptr<BrowsableDBIterator> children(db.children(e->id, 0, 0));
        }
        if (chunk == 2) {
            ExDBStatic exercises(&failed);
            Exercise exercise;
            for (quint32 id = 0; !failed && id < 64; ++id)
                exercises.exercise(int(id), &exercise);
        }
        db.search(QStringLiteral("apple raw -pie"), false, 0);
        db.search(QStringLiteral("-xyz"), false, 0x04);
        db.reset();
        (void)bytes;
    }
    return 0;
}
