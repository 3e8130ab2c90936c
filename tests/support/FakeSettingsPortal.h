#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusVariant>
#include <QObject>

#include <optional>

// Plays the desktop's settings portal (org.freedesktop.portal.Desktop, interface
// org.freedesktop.portal.Settings) on a bus of the test's own: it answers Read of
// "org.freedesktop.appearance" "color-scheme" as xdg-desktop-portal 1.16 does (the value in a
// second variant), NotFound without a value, and announces changes with SettingChanged.
class FakeSettingsPortal : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")
public:
    // Connects to the bus at this address under a connection of its own.
    explicit FakeSettingsPortal(const QString& busAddress, QObject* parent = nullptr);
    ~FakeSettingsPortal() override;

    // Takes the portal's name and object; false when that fails.
    bool start();
    // The answer to Read from now on (none: NotFound); with announce, SettingChanged too.
    void setColorScheme(std::optional<uint> value, bool announce = true);
    int reads() const { return m_reads; }

public Q_SLOTS:
    QDBusVariant Read(const QString& nameSpace, const QString& key);

Q_SIGNALS:
    void SettingChanged(const QString& nameSpace, const QString& key, const QDBusVariant& value);

private:
    QString m_connectionName;
    QDBusConnection m_bus;
    std::optional<uint> m_colorScheme;
    int m_reads = 0;
};
