#pragma once

#include "app/hotkey/HotKeyBackend.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QSet>
#include <QString>
#include <QVariantMap>

#include <cstdint>

// The hot key on Wayland, where no program may grab keys itself: a session of the desktop
// portal's GlobalShortcuts interface with one bound shortcut. The desktop decides the final key
// (it may ask the user); the shortcut only proposes one. Without the portal nothing happens.
class PortalHotKeyBackend : public HotKeyBackend {
    Q_OBJECT
public:
    explicit PortalHotKeyBackend(QDBusConnection bus, QObject* parent = nullptr);
    ~PortalHotKeyBackend() override;

    void registerHotKey(QKeyCombination key) override;
    void unregisterHotKey() override;

    // The proposed key in the desktop shortcut notation ("CTRL+ALT+r", Meta being "LOGO");
    // empty when the key has no name there, and the desktop then lets the user choose.
    static QString preferredTrigger(QKeyCombination key);

private Q_SLOTS:
    void requestAnswered(uint response, const QVariantMap& results, const QDBusMessage& message);
    void shortcutActivated(const QDBusObjectPath& session, const QString& shortcut,
                           qulonglong timestamp, const QVariantMap& options);

private:
    QString nextToken();
    QString requestPath(const QString& token) const;
    void watchRequest(const QString& path);
    void unwatchRequest(const QString& path);
    void bindShortcut();
    void closeSession(const QString& session);

    QDBusConnection m_bus;
    bool m_appRegistered = false;
    std::uint64_t m_tokenCounter = 0;
    QString m_trigger;
    // CreateSession requests still waiting for their answer; only the newest one counts.
    QSet<QString> m_pendingRequests;
    QString m_currentRequest;
    QString m_session;
};
