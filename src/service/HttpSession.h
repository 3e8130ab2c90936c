#pragma once

#include <QNetworkAccessManager>

#include <functional>

// The one HTTP client that every request of the program shares, as a browser shares its
// connections. Created on first use; lives as long as the application object. All requests
// are made from the main thread's event loop.
//
// Connections are kept open between requests only while inUse says someone is using the
// program (a menu is open): a background refresh closes them as soon as its last answer is in,
// rather than leaving them to Qt, which closes idle connections two minutes later and so wakes
// an idle program a second time for each refresh.
class HttpSession {
public:
    static QNetworkAccessManager& shared();

    // Without one, connections are closed whenever no request is in flight.
    static void keepConnectionsWhile(std::function<bool()> inUse);
    // Closes the open connections now, or once the requests in flight are answered.
    static void closeIdleConnections();
};
