// Arbitrary bytes as the server's reply to a publish (or to the usage metrics).

#include "net/publish.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    PublishResponse response;
    if (response.parse(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size))))
        (void)response.errstr.size();
    return 0;
}
