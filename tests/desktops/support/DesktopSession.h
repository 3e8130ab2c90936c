#pragma once

#include "ChildProcess.h"
#include "PrivateSessionBus.h"
#include "VirtualDesktop.h"

#include <QDir>
#include <QSize>
#include <QString>
#include <QStringList>

#include <list>
#include <memory>

// A desktop session of a test's own, for running a real shell in it: a virtual X server (or,
// for a Wayland session, none: the shell is the compositor), a private session bus, a fresh
// home with its own XDG folders, and on request a private system bus and the accessibility bus
// that lets a test read what the shell shows. This process's environment points at all of it,
// so that every program the test starts (the shell, the program under test, xdotool, xclip)
// runs inside the session. Programs started through startProgram stop, last first, when the
// session goes.
class DesktopSession {
public:
    struct Options {
        QSize screen{1366, 768};
        // A Wayland session: the shell starts its compositor and points WAYLAND_DISPLAY at it.
        bool wayland = false;
        // Some shells (GNOME) end at once without a system bus.
        bool systemBus = false;
        bool accessibility = true;
        // "NAME=value" entries of the session (XDG_CURRENT_DESKTOP, ...).
        QStringList variables;
    };

    // Everything is kept under folder (emptied first): the home, the logs and the screenshots.
    DesktopSession(Options options, QString folder);
    ~DesktopSession();
    DesktopSession(const DesktopSession&) = delete;
    DesktopSession& operator=(const DesktopSession&) = delete;

    bool start();
    void stop();
    QString errorString() const { return m_error; }

    QString display() const { return m_desktop ? m_desktop->display() : QString(); }
    QString busAddress() const {
        return m_desktop ? m_desktop->busAddress() : m_sessionBus.address();
    }
    QSize screen() const { return m_options.screen; }
    bool isWayland() const { return m_options.wayland; }
    QString home() const { return m_folder.filePath(QStringLiteral("home")); }
    QString folder() const { return m_folder.path(); }
    QString logFile(const QString& name) const;

    // Starts a program of the session (a compositor, a panel, a daemon); its output goes to
    // logFile(name). It is stopped with the session, or earlier by stopProgram.
    ChildProcess* startProgram(const QString& name, const QStringList& command);
    void stopProgram(ChildProcess* program);
    // The programs started through startProgram that have ended since (a shell that crashed).
    QStringList endedPrograms();

private:
    bool fail(const QString& error);
    bool startAccessibilityBus();
    // Stops, by process id, what the session's programs started and left behind.
    void stopAdopted();
    void stopOnEndSignals();

    Options m_options;
    QDir m_folder;
    std::unique_ptr<VirtualDesktop> m_desktop;
    // The session bus of a Wayland session (an X11 one has the virtual desktop's).
    PrivateSessionBus m_sessionBus;
    PrivateSessionBus m_systemBus;
    struct Program {
        QString name;
        ChildProcess process;
    };
    // In start order; a list, so that the pointers handed out stay valid.
    std::list<Program> m_programs;
    QString m_error;
};
