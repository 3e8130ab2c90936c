#include "app/desktop/ConnectivityWatcher.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>

using namespace Qt::StringLiterals;

namespace {

const QString service = u"org.freedesktop.NetworkManager"_s;
const QString path = u"/org/freedesktop/NetworkManager"_s;
const QString properties = u"org.freedesktop.DBus.Properties"_s;
// NM_STATE_CONNECTED_GLOBAL.
constexpr uint connectedGlobal = 70;

} // namespace

// NetworkManager is asked directly rather than through QNetworkInformation: loading that one
// loads every network information plugin Qt has, and the GLib one brings GIO with it, more than
// a megabyte of memory for one number.
ConnectivityWatcher::ConnectivityWatcher(QObject* parent)
    : QObject(parent) {
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected())
        return;
    // Bound to the service's name, so that only NetworkManager is heard, also once it starts.
    bus.connect(service, path, properties, u"PropertiesChanged"_s, this,
                SLOT(propertiesChanged(QString, QVariantMap, QStringList)));
    QDBusMessage get = QDBusMessage::createMethodCall(service, path, properties, u"Get"_s);
    get << service << u"State"_s;
    // Not waited for: a missing NetworkManager answers with an error, which leaves the state
    // unknown.
    bus.callWithCallback(get, this, SLOT(stateRead(QDBusVariant)));
}

ConnectivityWatcher::~ConnectivityWatcher() = default;

void ConnectivityWatcher::stateRead(const QDBusVariant& state) {
    // A change announced before this answer came is newer.
    if (m_state == 0)
        m_state = state.variant().toUInt();
}

void ConnectivityWatcher::propertiesChanged(const QString& interface, const QVariantMap& changed,
                                            const QStringList&) {
    const auto state = changed.constFind(u"State"_s);
    if (interface == service && state != changed.cend())
        setState(state->toUInt());
}

void ConnectivityWatcher::setState(uint state) {
    // Before NetworkManager's first answer the state is unknown, which is not online either.
    const bool cameOnline = state == connectedGlobal && m_state != connectedGlobal;
    m_state = state;
    if (cameOnline)
        Q_EMIT online();
}
