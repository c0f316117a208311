#include "ai/ConnectionWarmUp.h"

#include <QNetworkProxyFactory>
#include <QTcpSocket>
#include <QUrl>

namespace {

constexpr int kWarmUpTimeoutMs = 5000;

} // namespace

std::function<void()> vontrelConnectionWarmUp(QNetworkProxyFactory *factory, const QUrl &url)
{
    QString host = url.host();
    quint16 port = static_cast<quint16>(url.port(443));
    // Behind a proxy the route that matters is the one to the proxy.
    const QList<QNetworkProxy> proxies =
        factory ? factory->queryProxy(QNetworkProxyQuery(url)) : QList<QNetworkProxy>();
    if (!proxies.isEmpty() && proxies.first().type() != QNetworkProxy::NoProxy &&
        proxies.first().type() != QNetworkProxy::DefaultProxy) {
        host = proxies.first().hostName();
        port = proxies.first().port();
    }
    return [host, port] {
        if (host.isEmpty())
            return;
        QTcpSocket socket;
        socket.setProxy(QNetworkProxy::NoProxy);
        socket.connectToHost(host, port);
        socket.waitForConnected(kWarmUpTimeoutMs);
        socket.abort();
    };
}
