#pragma once

#include "app/AppDelegate.h"
#include "app/AppEnvironment.h"
#include "app/desktop/DesktopApplicationAdaptor.h"
#include "app/desktop/SingleInstance.h"

#include <QDBusConnection>
#include <QObject>

#include <memory>

// One run of Quillmar, everything main() does: the names the desktop knows it by, the one
// instance per session with its D-Bus methods (ShowMenu and org.freedesktop.Application) and
// the delegate. The shipped program runs it with the default AppEnvironment; tests and
// benchmarks with their servers' addresses and their own timings.
class Application : public QObject {
    Q_OBJECT
public:
    // Needs the QApplication; sets its names and keeps it running without windows. The
    // delegate gets environment when start() makes it.
    explicit Application(AppEnvironment environment = {},
                         QDBusConnection bus = QDBusConnection::sessionBus(),
                         QObject* parent = nullptr);
    ~Application() override;

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
    AppEnvironment m_environment;
    SingleInstance m_instance;
    // Made on the instance's object, which owns it.
    DesktopApplicationAdaptor* m_desktopAdaptor;
    std::unique_ptr<AppDelegate> m_delegate;
};
