#include "FakeNetworkManager.h"

#include <QDBusObjectPath>
#include <QDBusVariant>

using namespace Qt::StringLiterals;

namespace {

const QString managerInterface = u"org.freedesktop.NetworkManager"_s;
const QString propertiesInterface = u"org.freedesktop.DBus.Properties"_s;

const QString introspection = uR"(<interface name="org.freedesktop.NetworkManager">
  <property name="State" type="u" access="read"/>
  <property name="Connectivity" type="u" access="read"/>
  <property name="PrimaryConnection" type="o" access="read"/>
  <property name="Metered" type="u" access="read"/>
</interface>
<interface name="org.freedesktop.DBus.Properties">
  <method name="Get">
    <arg name="interface_name" type="s" direction="in"/>
    <arg name="property_name" type="s" direction="in"/>
    <arg name="value" type="v" direction="out"/>
  </method>
  <method name="GetAll">
    <arg name="interface_name" type="s" direction="in"/>
    <arg name="properties" type="a{sv}" direction="out"/>
  </method>
  <signal name="PropertiesChanged">
    <arg name="interface_name" type="s"/>
    <arg name="changed_properties" type="a{sv}"/>
    <arg name="invalidated_properties" type="as"/>
  </signal>
</interface>
)"_s;

// NMConnectivityState for a state: full when connected to the internet, none otherwise.
uint connectivityOf(FakeNetworkManager::State state) {
    switch (state) {
    case FakeNetworkManager::State::ConnectedGlobal:
        return 4;
    case FakeNetworkManager::State::ConnectedLocal:
    case FakeNetworkManager::State::ConnectedSite:
        return 3; // limited
    default:
        return 1;
    }
}

} // namespace

FakeNetworkManager::FakeNetworkManager(const QString& busAddress, State state)
    : FakeBusService(busAddress, u"org.freedesktop.NetworkManager"_s,
                     u"/org/freedesktop/NetworkManager"_s, introspection,
                     [this](const QDBusMessage& call) { return answer(call); })
    , m_state(state) {
    publish();
}

QVariantMap FakeNetworkManager::properties() const {
    const State state = m_state;
    return {{u"State"_s, QVariant::fromValue(uint(state))},
            {u"Connectivity"_s, QVariant::fromValue(connectivityOf(state))},
            // "/" is NetworkManager's "no connection"; a connected machine's primary connection
            // is another object, which Qt only asks for the device type.
            {u"PrimaryConnection"_s, QVariant::fromValue(QDBusObjectPath(u"/"_s))},
            {u"Metered"_s, QVariant::fromValue(uint(0))}};
}

std::optional<QDBusMessage> FakeNetworkManager::answer(const QDBusMessage& call) const {
    if (call.interface() != propertiesInterface)
        return std::nullopt;
    const QVariantList arguments = call.arguments();
    const QString interface = arguments.value(0).toString();
    if (call.member() == u"GetAll"_s && interface == managerInterface)
        return call.createReply(QVariant::fromValue(properties()));
    if (call.member() == u"Get"_s && interface == managerInterface) {
        const QVariantMap all = properties();
        const QString name = arguments.value(1).toString();
        if (all.contains(name))
            return call.createReply(QVariant::fromValue(QDBusVariant(all.value(name))));
        return call.createErrorReply(u"org.freedesktop.DBus.Error.InvalidArgs"_s,
                                     u"No such property "_s + name);
    }
    if (call.member() == u"GetAll"_s)
        return call.createReply(QVariant::fromValue(QVariantMap()));
    return std::nullopt;
}

void FakeNetworkManager::setState(State state) {
    m_state = state;
    emitSignal(propertiesInterface, u"PropertiesChanged"_s,
               {managerInterface,
                QVariant::fromValue(
                    QVariantMap{{u"State"_s, QVariant::fromValue(uint(state))},
                                {u"Connectivity"_s, QVariant::fromValue(connectivityOf(state))}}),
                QStringList()});
}
