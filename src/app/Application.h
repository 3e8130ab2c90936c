#pragma once

#include "app/AppDelegate.h"
#include "app/desktop/DesktopApplicationAdaptor.h"
#include "app/desktop/SingleInstance.h"
#include "config/Environment.h"
#include "menu/MenuManager.h"

#include <QDBusConnection>
#include <QObject>

#include <memory>
#include <utility>

// One run of Quillmar, everything main() does: the names the desktop knows it by, the one
// instance per session with its D-Bus methods (ShowMenu and org.freedesktop.Application) and
// the delegate. The shipped program runs it with the default Environment; tests and benchmarks
// with their servers' addresses.
class Application : public QObject {
    Q_OBJECT
public:
    // Needs the QApplication; sets its names and keeps it running without windows. Benchmarks
    // give the menu's timings (its clock).
    explicit Application(Environment environment = {},
                         QDBusConnection bus = QDBusConnection::sessionBus(),
                         MenuManager::Timings timings = {}, QObject* parent = nullptr);
    ~Application() override;

    // The menu's timers; before start(). Tests shorten them.
    void setTimings(MenuManager::Timings timings) { m_timings = std::move(timings); }

    // Claims the session's one instance and launches once the event loop runs. False when
    // another Quillmar already runs: that one has been asked to open its menu, and this process
    // should end (with status 0).
    bool start();

    // None before start() succeeded.
    AppDelegate* delegate() const { return m_delegate.get(); }

    // What the hot key, ShowMenu, Activate and the "open-menu" action do: opens the tray icon's
    // menu.
    void showMenu();
    // The "settings" action: shows the settings window, with the focus a launcher's activation
    // token grants (empty: none).
    void showSettings(const QString& activationToken);

private:
    Environment m_environment;
    MenuManager::Timings m_timings;
    SingleInstance m_instance;
    // Made on the instance's object, which owns it.
    DesktopApplicationAdaptor* m_desktopAdaptor;
    std::unique_ptr<AppDelegate> m_delegate;
};
