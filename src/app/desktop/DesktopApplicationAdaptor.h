#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <functional>

// The desktop's own way to start and drive Quillmar: org.freedesktop.Application, beside
// ShowMenu on the single instance's object. Launchers call Activate when the desktop entry is
// chosen and ActivateAction for its actions; when Quillmar does not run, D-Bus starts it first.
// Every call is answered at once; what it asks for runs from the event loop.
class DesktopApplicationAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
public:
    static QString openMenuAction() { return QStringLiteral("open-menu"); }
    static QString settingsAction() { return QStringLiteral("settings"); }

    // parent is the object exported at the application's path on bus.
    DesktopApplicationAdaptor(QObject* parent, QDBusConnection bus);

    // What Activate and "open-menu" run.
    void setMenuAction(std::function<void()> action);
    // What "settings" runs, with the launcher's activation token (empty when it sent none).
    void setSettingsAction(std::function<void(const QString& activationToken)> action);

    // The token a launcher sent to let the window it asks for take the focus: "activation-token",
    // or "desktop-startup-id", under which launchers built on GLib before 2.76 send the same
    // Wayland token. The X11 startup id is of no use once Qt has connected to the display.
    static QString activationToken(const QVariantMap& platformData, bool wayland);

public Q_SLOTS:
    void Activate(const QVariantMap& platformData);
    // Quillmar opens no files (its entry declares none): it opens its menu, as Activate does.
    void Open(const QStringList& uris, const QVariantMap& platformData);
    // A call it cannot serve is answered with an error that says why. (The message, last, is
    // not an argument on the bus; Qt gives adaptors no other way to answer with an error.)
    void ActivateAction(const QString& name, const QVariantList& parameter,
                        const QVariantMap& platformData, const QDBusMessage& message);

private:
    void later(std::function<void()> work);

    QDBusConnection m_bus;
    std::function<void()> m_menuAction;
    std::function<void(const QString&)> m_settingsAction;
};
