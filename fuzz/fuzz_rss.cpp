// Arbitrary bytes as the update feed.

#include "staticdb/rssreader.h"

#include <QLoggingCategory>

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool quiet = [] {
        QLoggingCategory::setFilterRules(QStringLiteral("tarnwell.*=false"));
        return true;
    }();
    (void)quiet;
    RSSReader reader;
    if (reader.parse(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)))) {
        for (const RssItem &item : reader.channel().items)
            (void)item.pubDate.isValid();
    }
    return 0;
}
