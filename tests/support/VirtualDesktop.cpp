#include "VirtualDesktop.h"

#include <QThread>

#include <cstdio>
#include <cstdlib>

namespace {

std::unique_ptr<VirtualDesktop>& sharedDesktop() {
    static std::unique_ptr<VirtualDesktop> desktop;
    return desktop;
}

// Long enough for any loaded machine: a program that ends before it is ready fails at once,
// and a test's own time limit ends one that hangs.
constexpr std::chrono::minutes startLimit{10};

} // namespace

VirtualDesktop::VirtualDesktop(Options options)
    : m_options(options) {}

VirtualDesktop::~VirtualDesktop() {
    m_trayHost.stop();
    m_bus.stop();
    m_server.stop();
}

bool VirtualDesktop::fail(const QString& error) {
    m_error = error + QStringLiteral(" (logs in ") + m_work.path() + QStringLiteral(")");
    // Keep the logs of a desktop that failed to start.
    m_work.setAutoRemove(false);
    return false;
}

bool VirtualDesktop::start() {
    if (!m_work.isValid())
        return fail(QStringLiteral("no temporary folder"));
    const QString log = m_work.filePath(QStringLiteral("desktop.log"));

    // -displayfd picks a free display number and prints it once the server accepts clients.
    // -noreset: by default the server resets when its last client leaves, and a client that
    // connects meanwhile is refused; the tray host, started slowly on a loaded machine, could
    // come just as a probe for it (xdotool) left.
    if (!m_server.start({QStringLiteral("Xvfb"), QStringLiteral("-displayfd"), QStringLiteral("1"),
                         QStringLiteral("-noreset"), QStringLiteral("-screen"), QStringLiteral("0"),
                         QStringLiteral("%1x%2x24")
                             .arg(m_options.screen.width())
                             .arg(m_options.screen.height()),
                         QStringLiteral("-nolisten"), QStringLiteral("tcp")},
                        log, true))
        return fail(QStringLiteral("cannot start Xvfb"));
    const auto number = m_server.readLine(startLimit);
    if (!number || number->trimmed().isEmpty())
        return fail(QStringLiteral("Xvfb did not start"));
    m_display = QStringLiteral(":") + QString::fromLatin1(number->trimmed());

    if (!m_bus.start(log))
        return fail(QStringLiteral("dbus-daemon did not start"));

    qputenv("DISPLAY", m_display.toLocal8Bit());
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.address().toLocal8Bit());
    qputenv("QT_QPA_PLATFORM", "xcb");
    // Nothing of the desktop the tests were started from may leak in.
    qunsetenv("WAYLAND_DISPLAY");
    qunsetenv("XDG_CURRENT_DESKTOP");
    qunsetenv("XDG_SESSION_TYPE");
    qunsetenv("SESSION_MANAGER");

    if (m_options.trayHost && !startTrayHost())
        return false;
    return true;
}

bool VirtualDesktop::startTrayHost() {
    if (!m_trayHost.start({QStringLiteral("trayer"), QStringLiteral("--edge"),
                           QStringLiteral("top"), QStringLiteral("--align"),
                           QStringLiteral("right"), QStringLiteral("--width"), QStringLiteral("10"),
                           QStringLiteral("--height"), QStringLiteral("24"),
                           QStringLiteral("--transparent"), QStringLiteral("false")},
                          m_work.filePath(QStringLiteral("trayer.log"))))
        return fail(QStringLiteral("cannot start trayer"));
    // However long a loaded machine takes to show it (a sanitized test beside it, for one).
    for (;;) {
        const ChildProcess::Result search = ChildProcess::run(
            {QStringLiteral("xdotool"), QStringLiteral("search"), QStringLiteral("--onlyvisible"),
             QStringLiteral("--class"), QStringLiteral("trayer")},
            startLimit);
        if (search.exitCode == 0)
            return true;
        if (!m_trayHost.isRunning())
            return fail(QStringLiteral("trayer ended before it showed"));
        QThread::msleep(50);
    }
}

void VirtualDesktop::stopTrayHost() {
    m_trayHost.stop();
}

void VirtualDesktop::startShared(Options options) {
    auto desktop = std::make_unique<VirtualDesktop>(options);
    if (!desktop->start()) {
        std::fprintf(stderr, "Cannot start the virtual desktop: %s\n",
                     qPrintable(desktop->errorString()));
        desktop.reset();
        std::exit(1);
    }
    sharedDesktop() = std::move(desktop);
}

VirtualDesktop& VirtualDesktop::shared() {
    return *sharedDesktop();
}
