// Arbitrary bytes as the proxy configuration: the first byte says whether the connection is
// encrypted, then four lines are the "proxySettings" setting, http_proxy, https_proxy and no_proxy.
// No script is ever downloaded (there is no fetcher).

#include "net/proxydiscovery.h"

#include <QLoggingCategory>

#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    QLoggingCategory::setFilterRules(QStringLiteral("tarnwell.*=false"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const bool tls = data[0] & 1;
    const QStringList lines =
        QString::fromUtf8(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1)).split(u'\n');
    QProcessEnvironment environment;
    const char *names[] = {"http_proxy", "https_proxy", "no_proxy"};
    for (int i = 0; i < 3; ++i)
        environment.insert(QLatin1String(names[i]), lines.value(i + 1));
    const ProxyInfo info = ProxyDiscovery::discover(QUrl(QStringLiteral("https://food.example/diary")), tls,
                                                    lines.value(0), environment, nullptr);
    if (info.useProxy && (info.host.isEmpty() || info.port == 0))
        __builtin_trap();
    if (info.needsAuth != (info.useProxy && !info.user.isEmpty()))
        __builtin_trap();
    QString host;
    quint16 port = 0;
    if (ProxyDiscovery::parseProxyList(lines.value(0), &host, &port) && (host.isEmpty() || port == 0))
        __builtin_trap();
    return 0;
}
