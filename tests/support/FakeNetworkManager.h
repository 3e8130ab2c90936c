#pragma once

#include "FakeBusService.h"

#include <atomic>

// NetworkManager as programs read it from the system bus (Qt's network information reads the
// same): the name org.freedesktop.NetworkManager, the properties of its manager object (State,
// Connectivity, PrimaryConnection, Metered) through org.freedesktop.DBus.Properties, and
// PropertiesChanged when the state changes.
class FakeNetworkManager : public FakeBusService {
public:
    // NetworkManager's NMState values.
    enum class State : uint {
        Asleep = 10,
        Disconnected = 20,
        Connecting = 40,
        ConnectedLocal = 50,
        ConnectedSite = 60,
        ConnectedGlobal = 70,
    };

    FakeNetworkManager(const QString& busAddress, State state);

    State state() const { return m_state; }
    // Changes the state and announces it, with the connectivity that goes with it.
    void setState(State state);

private:
    std::optional<QDBusMessage> answer(const QDBusMessage& call) const;
    QVariantMap properties() const;

    std::atomic<State> m_state;
};
