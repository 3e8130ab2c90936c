#pragma once

#include <QNetworkAccessManager>

// The one HTTP client that every request of the program shares, as a browser shares its
// connections. Created on first use; lives as long as the application object. All requests
// are made from the main thread's event loop.
class HttpSession {
public:
    static QNetworkAccessManager& shared();
};
