#pragma once

#include <functional>

class QNetworkProxyFactory;
class QUrl;

// A task that resolves the name and opens the route a request to url will take (to the proxy when the factory
// names one), so that the request itself does not pay for them. The route is chosen here, on the caller's
// thread; the task blocks for a few seconds at most, may run on any thread, and its outcome does not matter.
std::function<void()> vontrelConnectionWarmUp(QNetworkProxyFactory *factory, const QUrl &url);
