#include "DesktopSession.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QSocketNotifier>
#include <QThread>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void setVariable(const QString& name, const QString& value) {
    qputenv(name.toLocal8Bit().constData(), value.toLocal8Bit());
}

// The session that runs now, stopped when this process is asked to end; and the pipe through
// which a signal handler tells the event loop so.
DesktopSession* runningSession = nullptr;
int signalPipe[2] = {-1, -1};

void onEndSignal(int signal) {
    const char number = char(signal);
    if (write(signalPipe[1], &number, 1) < 0)
        return;
}

// The processes whose parent is this one that no ChildProcess started: programs that the
// session's programs started and left (a daemon that detached, a service the bus started),
// given to this process as it is their subreaper.
QList<pid_t> adoptedProcesses() {
    QList<pid_t> adopted;
    const QString self = QString::number(getpid());
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        bool number = false;
        const pid_t pid = pid_t(entry.toInt(&number));
        if (!number || ChildProcess::isStartedProgram(pid))
            continue;
        QFile status(QStringLiteral("/proc/%1/status").arg(entry));
        if (!status.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray& line : status.readAll().split('\n'))
            if (line.startsWith("PPid:") && line.mid(5).trimmed() == self.toLatin1())
                adopted.append(pid);
    }
    return adopted;
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
    // What the session's programs start and leave behind comes to this process, to be stopped
    // with the session, and is found by a harness that ends this process's whole tree.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    stopOnEndSignals();
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
            // Its bus daemon leaves the launcher's process group and outlives it: it is
            // stopped with what the session's programs leave behind.
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

void DesktopSession::stopOnEndSignals() {
    // Asked to end (a harness's time-out, Ctrl+C), this process stops the session first: what
    // it adopted has no parent-death signal and would outlive it.
    runningSession = this;
    if (signalPipe[0] >= 0)
        return;
    if (pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    static QSocketNotifier notifier(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, [] {
        char number = 0;
        if (read(signalPipe[0], &number, 1) != 1)
            return;
        if (runningSession)
            runningSession->stop();
        std::_Exit(128 + number);
    });
    struct sigaction action = {};
    action.sa_handler = onEndSignal;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaction(signal, &action, nullptr);
}

void DesktopSession::stop() {
    if (runningSession == this)
        runningSession = nullptr;
    // Last started first: panels before the buses they talk on.
    while (!m_programs.empty()) {
        m_programs.back().process.stop();
        m_programs.pop_back();
    }
    m_systemBus.stop();
    m_sessionBus.stop();
    m_desktop.reset();
    stopAdopted();
}

void DesktopSession::stopAdopted() {
    // Stopping one may leave its own children to this process in turn.
    for (int round = 0; round < 5; ++round) {
        const QList<pid_t> adopted = adoptedProcesses();
        if (adopted.isEmpty())
            return;
        for (const pid_t pid : adopted)
            kill(pid, SIGTERM);
        QElapsedTimer timer;
        timer.start();
        QList<pid_t> left = adopted;
        while (!left.isEmpty() && timer.elapsed() < 3000) {
            left.removeIf([](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) == pid; });
            QThread::msleep(10);
        }
        for (const pid_t pid : std::as_const(left)) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
}
