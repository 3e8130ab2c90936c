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

    void registerHotKey(const Registration& registration) override;
    void unregisterHotKey() override;

    // The proposed key in the desktop shortcut notation ("CTRL+ALT+r"); empty when the key has
    // no name there, and the desktop then lets the user choose.
    static QString preferredTrigger(std::uint16_t keyCode, std::uint32_t modifierMask);
    // The shortcut's identity towards the desktop, which remembers the user's choice under it.
    static QString shortcutId(std::uint32_t signature, std::uint32_t id);

private Q_SLOTS:
    void requestAnswered(uint response, const QVariantMap& results, const QDBusMessage& message);
    void shortcutActivated(const QDBusObjectPath& session, const QString& shortcutId,
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
    QString m_shortcutId;
    QString m_trigger;
    // CreateSession requests still waiting for their answer; only the newest one counts.
    QSet<QString> m_pendingRequests;
    QString m_currentRequest;
    QString m_session;
};
