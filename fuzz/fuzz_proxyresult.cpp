// Arbitrary text as the answer of a proxy auto-configuration script, then as "host:port" alone.

#include "net/proxydiscovery.h"

#include <cstdint>

namespace {

// A proxy that is read must come back the same from its written form.
void checkProxy(const QString &host, quint16 port)
{
    if (host.isEmpty() || port == 0)
        __builtin_trap();
    QString again;
    quint16 againPort = 0;
    if (!ProxyDiscovery::parseHostPort(ProxyDiscovery::hostPort(host, port), &again, &againPort) ||
        again != host || againPort != port)
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    QString host;
    quint16 port = 0;
    if (ProxyDiscovery::parseScriptResult(text, &host, &port))
        checkProxy(host, port);
    if (ProxyDiscovery::parseHostPort(text, &host, &port))
        checkProxy(host, port);
    return 0;
}
