#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class QDBusVariant;

// Tells when the computer's network connection comes back, as NetworkManager reports it on the
// system bus: its state becomes "connected to the internet" (the state Qt's own network
// information calls online). Without a system bus or NetworkManager it never says anything.
class ConnectivityWatcher : public QObject {
    Q_OBJECT
public:
    explicit ConnectivityWatcher(QObject* parent = nullptr);
    ~ConnectivityWatcher() override;

    // Whether NetworkManager has told its state.
    bool isAvailable() const { return m_state != 0; }
    // NetworkManager's last state (NMState); 0 until it has answered.
    uint state() const { return m_state; }

Q_SIGNALS:
    // The state went from anything else (disconnected, connecting, local or site only, asleep)
    // to connected to the internet.
    void online();

private Q_SLOTS:
    void propertiesChanged(const QString& interface, const QVariantMap& changed,
                           const QStringList& invalidated);
    void stateRead(const QDBusVariant& state);

private:
    void setState(uint state);

    // NetworkManager's NMState; 0 (unknown) until it has answered.
    uint m_state = 0;
};
