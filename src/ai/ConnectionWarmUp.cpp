#include "ai/ConnectionWarmUp.h"

#include <QNetworkProxyFactory>
#include <QTcpSocket>
#include <QUrl>

namespace {

constexpr int kWarmUpTimeoutMs = 5000;

} // namespace

WarmUpTarget vontrelWarmUpTarget(QNetworkProxyFactory *factory, const QUrl &url)
{
    // Behind a proxy the route that matters is the one to the proxy.
    const QList<QNetworkProxy> proxies =
        factory ? factory->queryProxy(QNetworkProxyQuery(url)) : QList<QNetworkProxy>();
    if (!proxies.isEmpty() && proxies.first().type() != QNetworkProxy::NoProxy &&
        proxies.first().type() != QNetworkProxy::DefaultProxy) {
        return {proxies.first().hostName(), proxies.first().port()};
    }
    // The port the request itself will use: dialling 443 for a plain http address would wait out the whole
    // time-out wherever that port drops packets.
    const bool plain = url.scheme().compare(QLatin1String("http"), Qt::CaseInsensitive) == 0;
    return {url.host(), static_cast<quint16>(url.port(plain ? 80 : 443))};
}

std::function<void()> vontrelConnectionWarmUp(QNetworkProxyFactory *factory, const QUrl &url)
{
    const WarmUpTarget target = vontrelWarmUpTarget(factory, url);
    return [target] {
        if (target.host.isEmpty())
            return;
        QTcpSocket socket;
        socket.setProxy(QNetworkProxy::NoProxy);
        socket.connectToHost(target.host, target.port);
        socket.waitForConnected(kWarmUpTimeoutMs);
        socket.abort();
    };
}
