#include "DesktopSession.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <csignal>
#include <sys/stat.h>

namespace {

void setVariable(const QString& name, const QString& value) {
    qputenv(name.toLocal8Bit().constData(), value.toLocal8Bit());
}

} // namespace

DesktopSession::DesktopSession(Options options, QString folder)
    : m_options(std::move(options))
    , m_folder(std::move(folder)) {}

DesktopSession::~DesktopSession() {
    stop();
}

bool DesktopSession::fail(const QString& error) {
    m_error = error + QStringLiteral(" (logs in ") + m_folder.path() + QStringLiteral(")");
    return false;
}

QString DesktopSession::logFile(const QString& name) const {
    return m_folder.filePath(QStringLiteral("logs/") + name + QStringLiteral(".log"));
}

bool DesktopSession::start() {
    // Emptied, not removed: the folder may be one that a test run as another user was given.
    const QFileInfoList entries = m_folder.entryInfoList(QDir::AllEntries | QDir::Hidden |
                                                         QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries) {
        const bool removed = entry.isDir() && !entry.isSymLink()
                                 ? QDir(entry.filePath()).removeRecursively()
                                 : QFile::remove(entry.filePath());
        if (!removed)
            return fail(QStringLiteral("cannot empty the session folder"));
    }
    for (const char* sub : {"home/.config", "home/.local/share", "home/.cache", "home/.local/state",
                            "runtime", "logs", "screenshots"})
        if (!m_folder.mkpath(QString::fromLatin1(sub)))
            return fail(QStringLiteral("cannot make the session folders"));
    const QString runtime = m_folder.filePath(QStringLiteral("runtime"));
    chmod(runtime.toLocal8Bit().constData(), 0700);

    setVariable(QStringLiteral("HOME"), home());
    setVariable(QStringLiteral("XDG_CONFIG_HOME"), home() + QStringLiteral("/.config"));
    setVariable(QStringLiteral("XDG_DATA_HOME"), home() + QStringLiteral("/.local/share"));
    setVariable(QStringLiteral("XDG_CACHE_HOME"), home() + QStringLiteral("/.cache"));
    setVariable(QStringLiteral("XDG_STATE_HOME"), home() + QStringLiteral("/.local/state"));
    setVariable(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    // Settings stored through dconf go to this home's database, not to memory.
    qunsetenv("GSETTINGS_BACKEND");
    qunsetenv("QT_QPA_PLATFORM");

    if (m_options.wayland) {
        if (!m_sessionBus.start(logFile(QStringLiteral("session-bus"))))
            return fail(QStringLiteral("the session bus did not start"));
        setVariable(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), m_sessionBus.address());
        setVariable(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland"));
        // Nothing of the desktop the tests were started from may leak in.
        for (const char* variable :
             {"DISPLAY", "WAYLAND_DISPLAY", "XDG_CURRENT_DESKTOP", "SESSION_MANAGER"})
            qunsetenv(variable);
    } else {
        m_desktop = std::make_unique<VirtualDesktop>(
            VirtualDesktop::Options{.trayHost = false, .screen = m_options.screen});
        if (!m_desktop->start())
            return fail(m_desktop->errorString());
        // VirtualDesktop points Qt programs at X; the session's own variables decide the rest.
        setVariable(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("x11"));
    }
    for (const QString& variable : m_options.variables)
        setVariable(variable.section(u'=', 0, 0), variable.section(u'=', 1));

    if (m_options.systemBus) {
        if (!m_systemBus.start(logFile(QStringLiteral("system-bus"))))
            return fail(QStringLiteral("the system bus did not start"));
        setVariable(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), m_systemBus.address());
    }
    if (m_options.accessibility && !startAccessibilityBus())
        return false;
    return true;
}

bool DesktopSession::startAccessibilityBus() {
    // The launcher owns org.a11y.Bus on the session bus and starts the accessibility bus, on
    // which the registry is started on demand. Toolkits find it through the session bus.
    if (!startProgram(QStringLiteral("at-spi-bus-launcher"),
                      {QStringLiteral("/usr/libexec/at-spi-bus-launcher"),
                       QStringLiteral("--launch-immediately")}))
        return fail(QStringLiteral("cannot start the accessibility bus"));
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 20000) {
        const auto reply = ChildProcess::run(
            {QStringLiteral("dbus-send"), QStringLiteral("--session"),
             QStringLiteral("--print-reply=literal"), QStringLiteral("--dest=org.a11y.Bus"),
             QStringLiteral("/org/a11y/bus"), QStringLiteral("org.a11y.Bus.GetAddress")});
        if (reply.exitCode == 0 && reply.output.contains("unix:")) {
            // The launcher's bus daemon leaves the launcher's process group and outlives it:
            // it is stopped by its process id, which it tells itself.
            const auto pid = ChildProcess::run(
                {QStringLiteral("dbus-send"),
                 QStringLiteral("--address=") + QString::fromUtf8(reply.output.trimmed()),
                 QStringLiteral("--print-reply=literal"),
                 QStringLiteral("--dest=org.freedesktop.DBus"),
                 QStringLiteral("/org/freedesktop/DBus"),
                 QStringLiteral("org.freedesktop.DBus.GetConnectionUnixProcessID"),
                 QStringLiteral("string:org.freedesktop.DBus")});
            m_accessibilityBusPid = pid.output.trimmed().split(' ').last().toLongLong();
            return true;
        }
        QThread::msleep(100);
    }
    return fail(QStringLiteral("the accessibility bus did not answer"));
}

ChildProcess* DesktopSession::startProgram(const QString& name, const QStringList& command) {
    Program& program = m_programs.emplace_back();
    program.name = name;
    if (!program.process.start(command, logFile(name))) {
        m_programs.pop_back();
        return nullptr;
    }
    return &program.process;
}

void DesktopSession::stopProgram(ChildProcess* program) {
    for (auto it = m_programs.begin(); it != m_programs.end(); ++it) {
        if (&it->process == program) {
            it->process.stop();
            m_programs.erase(it);
            return;
        }
    }
}

QStringList DesktopSession::endedPrograms() {
    QStringList ended;
    for (Program& program : m_programs)
        if (!program.process.isRunning())
            ended.append(program.name);
    return ended;
}

void DesktopSession::stop() {
    // Last started first: panels before the buses they talk on.
    while (!m_programs.empty()) {
        m_programs.back().process.stop();
        m_programs.pop_back();
    }
    if (m_accessibilityBusPid > 0)
        kill(pid_t(m_accessibilityBusPid), SIGTERM);
    m_accessibilityBusPid = 0;
    m_systemBus.stop();
    m_sessionBus.stop();
    m_desktop.reset();
}
