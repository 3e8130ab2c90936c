#pragma once

#include "ChildProcess.h"
#include "PrivateSessionBus.h"

#include <QSize>
#include <QString>
#include <QTemporaryDir>

#include <memory>

// A desktop of its own for a test: a virtual X server (Xvfb), a private session bus and,
// optionally, an XEmbed tray host (trayer). Everything it starts stops with it. Tests named
// tst_x11_* start one in their static initMain(), before the QApplication connects to X:
//
//     static void initMain() { VirtualDesktop::startShared({.trayHost = true}); }
class VirtualDesktop {
public:
    struct Options {
        bool trayHost = true;
        QSize screen{1280, 800};
    };

    explicit VirtualDesktop(Options options);
    ~VirtualDesktop();
    VirtualDesktop(const VirtualDesktop&) = delete;
    VirtualDesktop& operator=(const VirtualDesktop&) = delete;

    // Starts the server, the bus and the tray host and points DISPLAY and
    // DBUS_SESSION_BUS_ADDRESS of this process at them.
    bool start();
    QString errorString() const { return m_error; }
    QString display() const { return m_display; }
    QString busAddress() const { return m_bus.address(); }
    // Where the programs' logs are written.
    QString logDirectory() const { return m_work.path(); }

    // Starts the tray host again (after stopTrayHost) and waits until it is up.
    bool startTrayHost();
    void stopTrayHost();

    // The desktop of this test program, started by startShared (which aborts the test program
    // when the desktop cannot start) and stopped when the program ends.
    static void startShared(Options options);
    static VirtualDesktop& shared();

private:
    bool fail(const QString& error);

    Options m_options;
    QTemporaryDir m_work;
    ChildProcess m_server;
    PrivateSessionBus m_bus;
    ChildProcess m_trayHost;
    QString m_display;
    QString m_error;
};
