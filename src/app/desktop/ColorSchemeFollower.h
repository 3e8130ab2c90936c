#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QPalette>

class QDBusMessage;

// Gives Quillmar's own menus and windows the desktop's light or dark look. Qt 6.4 takes its
// palette from the platform theme only, which stays light under GNOME's dark style; the desktop
// states its preference in the settings portal ("org.freedesktop.appearance" "color-scheme").
// The preference is read once, soon after start, and followed as it changes; where the platform
// theme's palette already matches it, that palette is kept, otherwise a built-in one is used.
class ColorSchemeFollower : public QObject {
    Q_OBJECT
public:
    // The portal's values.
    enum class Preference { None = 0, Dark = 1, Light = 2 };
    Q_ENUM(Preference)

    // Listens to the portal on this bus for changes; nothing changes until one is heard or
    // readPreference() has its answer.
    explicit ColorSchemeFollower(QDBusConnection bus = QDBusConnection::sessionBus(),
                                 QObject* parent = nullptr);

    // Asks the portal for the preference; where none runs yet, the bus starts it (and the desktop
    // portal's own helpers with it).
    void readPreference();

    Preference preference() const { return m_preference; }

    // Whether the palette draws light text on a dark window.
    static bool isDark(const QPalette& palette);
    static QPalette darkPalette();
    static QPalette lightPalette();

Q_SIGNALS:
    // The start-up question is settled: answered, or there is no portal to answer it.
    void preferenceRead();
    // The preference changed and the application's palette follows it.
    void preferenceChanged();

private Q_SLOTS:
    // org.freedesktop.portal.Settings.SettingChanged(namespace, key, value).
    void settingChanged(const QDBusMessage& message);

private:
    void apply(Preference preference);

    QDBusConnection m_bus;
    Preference m_preference = Preference::None;
    // The portal's answer to the first question is dropped once it has announced a change.
    bool m_heardChange = false;
};
