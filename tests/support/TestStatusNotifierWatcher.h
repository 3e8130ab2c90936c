#pragma once

#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QThread>

// A stand-in for the panel's org.kde.StatusNotifierWatcher on a test's session bus, with a
// host registered. It answers from a thread of its own, as a panel's process would, so that the
// program under test may call it synchronously from the test's main thread.
class TestStatusNotifierWatcher {
public:
    struct Item {
        QString service;
        QString path;
    };

    explicit TestStatusNotifierWatcher(QString busAddress);
    ~TestStatusNotifierWatcher();
    TestStatusNotifierWatcher(const TestStatusNotifierWatcher&) = delete;
    TestStatusNotifierWatcher& operator=(const TestStatusNotifierWatcher&) = delete;

    // Connects, takes the watcher's name and exports the watcher; false when any of it fails.
    bool start();
    // Gives the name up and disconnects, as a panel that quits does.
    void stop();
    // Drops the item of service while its program is still on the bus, as GNOME's AppIndicator
    // extension does with one it failed to set up.
    void drop(const QString& service);
    // The items registered so far and still on the bus, in registration order.
    QList<Item> items() const;
    // Spins the event loop until an item is registered (or the time is up).
    bool waitForItem(int timeoutMs = 10000) const;

private:
    friend class WatcherService;
    void setItems(const QList<Item>& items);

    QString m_busAddress;
    QThread m_thread;
    // Runs the set-up and tear-down on the watcher's thread.
    QObject m_context;
    QObject* m_service = nullptr;
    mutable QMutex m_mutex;
    QList<Item> m_items;
};
