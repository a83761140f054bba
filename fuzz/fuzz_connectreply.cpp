// Arbitrary bytes as a proxy's answer to CONNECT, arriving in pieces of varying size: once the
// answer is complete, more bytes never change the verdict.

#include "net/lmhttp.h"

#include <algorithm>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const size_t step = 1 + (data[0] & 0x3F);
    QByteArray received;
    LmHttp::ConnectReply first = LmHttp::ConnectReply::Incomplete;
    for (size_t at = 1; at < size; at += step) {
        received.append(reinterpret_cast<const char *>(data + at), qsizetype(std::min(step, size - at)));
        const LmHttp::ConnectReply verdict = LmHttp::readConnectReply(received);
        if (first == LmHttp::ConnectReply::Incomplete)
            first = verdict;
        else if (verdict != first && first != LmHttp::ConnectReply::Unreadable)
            __builtin_trap();
    }
    // Accepted means the status line matches "HTTP/1.[01] 200" (any character after the one).
    if (first == LmHttp::ConnectReply::Accepted &&
        (!received.startsWith("HTTP/1") || received.size() < 12 ||
         (received[7] != '0' && received[7] != '1') || received.mid(8, 4) != " 200" ||
         !received.contains("\r\n\r\n")))
        __builtin_trap();
    return 0;
}
