#pragma once

#include "ChildProcess.h"

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// A session bus of a test's own: a dbus-daemon that starts no services, so that nothing answers
// that the test did not start, unless the test gives it a folder of service files to start
// programs from on demand. It stops when this object goes and dies with the test process (the
// programs it started do not: the test stops them). Works before a QCoreApplication exists.
//
// Made as a system bus, it is configured like the system's: only the names given may be owned,
// and only their owners and the bus itself take method calls.
class PrivateSessionBus {
public:
    enum class Kind { Session, System };

    PrivateSessionBus() = default;
    explicit PrivateSessionBus(Kind kind, QStringList systemServices = {})
        : m_kind(kind)
        , m_systemServices(std::move(systemServices)) {}
    PrivateSessionBus(const PrivateSessionBus&) = delete;
    PrivateSessionBus& operator=(const PrivateSessionBus&) = delete;

    // The folder of D-Bus service files (NAME.service) from which the next start() lets the bus
    // start programs, with the environment of this process at that start.
    void setServiceDirectory(const QString& directory) { m_serviceDirectory = directory; }

    // Starts the daemon and waits until it accepts connections. Its messages, and those of the
    // programs it starts, are appended to logFile (none: dropped).
    bool start(const QString& logFile = QString());
    void stop();

    // The address clients connect to; empty until started.
    QString address() const { return m_address; }
    // The folder of the bus's configuration and socket.
    QString directory() const { return m_directory.path(); }

private:
    QString configuration() const;

    Kind m_kind = Kind::Session;
    QStringList m_systemServices;
    QTemporaryDir m_directory;
    ChildProcess m_daemon;
    QString m_address;
    QString m_serviceDirectory;
};
