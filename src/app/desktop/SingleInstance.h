#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <functional>

// One Quillmar per desktop session. The running one owns the session-bus name
// "app.quillmar.Quillmar" and offers ShowMenu there, which does what the hot key does: a second
// start, or a key bound to a D-Bus call in the desktop's own keyboard settings, opens the menu.
// Adaptors made on this object before claim() are offered at the same path.
class SingleInstance : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.quillmar.Quillmar")
public:
    static QString serviceName() { return QStringLiteral("app.quillmar.Quillmar"); }
    static QString objectPath() { return QStringLiteral("/app/quillmar/Quillmar"); }
    static QString interfaceName() { return QStringLiteral("app.quillmar.Quillmar"); }

    explicit SingleInstance(QDBusConnection bus = QDBusConnection::sessionBus(),
                            QObject* parent = nullptr);
    ~SingleInstance() override;

    // Takes the name. False only when another Quillmar already holds it; without a session bus
    // this process simply runs alone.
    bool claim();
    // Asks the Quillmar holding the name to show its menu; true once it has answered.
    bool showMenuInRunningInstance();

    // The bus the name is claimed on.
    QDBusConnection connection() const { return m_bus; }

    // What ShowMenu runs, from the event loop.
    void setAction(std::function<void()> action);

public Q_SLOTS:
    // The D-Bus method; its name is the interface's.
    void ShowMenu();

private:
    QDBusConnection m_bus;
    bool m_owner = false;
    std::function<void()> m_action;
};
