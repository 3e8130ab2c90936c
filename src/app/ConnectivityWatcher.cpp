#include "app/ConnectivityWatcher.h"

using namespace Qt::StringLiterals;

ConnectivityWatcher::ConnectivityWatcher(QObject* parent)
    : QObject(parent) {
#ifdef Q_OS_LINUX
    // NetworkManager's own verdict only. Qt's other Linux source, GLib's network monitor, reads
    // the routing table and calls a machine online that has a route but no working network.
    m_available = QNetworkInformation::loadBackendByName(u"networkmanager");
#else
    m_available =
        QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Reachability);
#endif
    const QNetworkInformation* information = QNetworkInformation::instance();
    if (!m_available || !information)
        return;
    m_reachability = information->reachability();
    connect(information, &QNetworkInformation::reachabilityChanged, this,
            &ConnectivityWatcher::reachabilityChanged);
}

ConnectivityWatcher::~ConnectivityWatcher() = default;

void ConnectivityWatcher::reachabilityChanged(QNetworkInformation::Reachability reachability) {
    using Reachability = QNetworkInformation::Reachability;
    const bool cameOnline =
        reachability == Reachability::Online && m_reachability != Reachability::Online;
    m_reachability = reachability;
    if (cameOnline)
        Q_EMIT online();
}
