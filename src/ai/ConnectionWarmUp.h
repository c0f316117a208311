#pragma once

#include <QString>

#include <functional>

class QNetworkProxyFactory;
class QUrl;

// Where a request to url connects first: the proxy the factory names for it, otherwise the URL's host on its
// own port or its scheme's default one (80 for http, 443 otherwise).
struct WarmUpTarget
{
    QString host;
    quint16 port = 0;
};
WarmUpTarget vontrelWarmUpTarget(QNetworkProxyFactory *factory, const QUrl &url);

// A task that resolves the name and opens the route a request to url will take, so that the request itself
// does not pay for them. The route is chosen here, on the caller's thread; the task blocks for a few seconds
// at most, may run on any thread, and its outcome does not matter.
std::function<void()> vontrelConnectionWarmUp(QNetworkProxyFactory *factory, const QUrl &url);
