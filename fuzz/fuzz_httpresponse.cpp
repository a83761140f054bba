// Arbitrary bytes as a server's reply: the response reader takes them in pieces of varying size
// (header, content-length, chunked or close-delimited body), then the connection closes.

#include "net/qhttps.h"

#include <algorithm>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    // The first byte sets how the bytes arrive, and whether the request was a HEAD.
    const size_t step = 1 + (data[0] & 0x3F);
    QHttpsResponseReader reader;
    reader.start(data[0] & 0x40);
    QHttpsResponseReader::Status status = QHttpsResponseReader::Incomplete;
    for (size_t at = 1; at < size && status == QHttpsResponseReader::Incomplete; at += step) {
        const size_t length = std::min(step, size - at);
        status = reader.feed(QByteArray(reinterpret_cast<const char *>(data + at), qsizetype(length)));
    }
    if (status == QHttpsResponseReader::Incomplete)
        status = reader.closed();
    if (reader.takeBody().size() > QHttpsResponseReader::kMaxBody)
        __builtin_trap(); // the limit must hold
    if (reader.headerDone())
        (void)reader.header().toString();
    if (status == QHttpsResponseReader::Failed && reader.errorText().isEmpty())
        __builtin_trap(); // every failure has its text
    return 0;
}
