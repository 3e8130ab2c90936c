#pragma once

#include <QNetworkInformation>
#include <QObject>

// Tells when the computer's network connection comes back, as the system's network service
// reports it: NetworkManager on Linux, the system's own reachability service elsewhere. Where
// there is no such service it never says anything.
class ConnectivityWatcher : public QObject {
    Q_OBJECT
public:
    explicit ConnectivityWatcher(QObject* parent = nullptr);
    ~ConnectivityWatcher() override;

    // Whether a network service reports the connectivity.
    bool isAvailable() const { return m_available; }

Q_SIGNALS:
    // The connectivity went from anything else (none, local only, unknown) to online.
    void online();

private:
    void reachabilityChanged(QNetworkInformation::Reachability reachability);

    bool m_available = false;
    QNetworkInformation::Reachability m_reachability = QNetworkInformation::Reachability::Unknown;
};
