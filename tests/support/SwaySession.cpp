#include "SwaySession.h"

#include <QDir>
#include <QElapsedTimer>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QThread>

#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>

namespace {

std::unique_ptr<SwaySession>& sharedSession() {
    static std::unique_ptr<SwaySession> session;
    return session;
}

// Polls condition for up to twenty seconds (a loaded machine starts sway slowly).
template <typename Condition> bool waitFor(Condition condition) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 20000) {
        if (condition())
            return true;
        QThread::msleep(50);
    }
    return false;
}

// The first file of folder whose name matches pattern.
QString findFile(const QString& folder, const QString& pattern) {
    const QStringList found = QDir(folder).entryList({pattern}, QDir::System | QDir::Files);
    return found.isEmpty() ? QString() : found.constFirst();
}

void collectViews(const QJsonObject& node, const QString& appId, QList<QJsonObject>& views) {
    if (node.value(QStringLiteral("app_id")).toString() == appId)
        views.append(node);
    for (const char* children : {"nodes", "floating_nodes"}) {
        for (const QJsonValue child : node.value(QLatin1String(children)).toArray())
            collectViews(child.toObject(), appId, views);
    }
}

} // namespace

SwaySession::SwaySession(Options options)
    : m_options(std::move(options)) {}

SwaySession::~SwaySession() {
    m_clipboardOwner.stop();
    m_pointerCommands.close();
    m_pointer.stop();
    m_keyboard.stop();
    m_sway.stop();
    m_bus.stop();
}

bool SwaySession::fail(const QString& error) {
    m_error = error + QStringLiteral(" (logs in ") + m_work.path() + QStringLiteral(")");
    m_work.setAutoRemove(false);
    return false;
}

bool SwaySession::writeConfiguration() {
    const QString waybarConfig = m_work.filePath(QStringLiteral("waybar.json"));
    QFile waybar(waybarConfig);
    if (!waybar.open(QIODevice::WriteOnly))
        return false;
    // A bar with the tray alone, at the top right, as on many sway desktops.
    waybar.write(R"({"layer": "top", "position": "top", "height": 26, "modules-left": [],
"modules-center": [], "modules-right": ["tray"], "tray": {"icon-size": 18, "spacing": 6}})");
    waybar.close();
    // sway 1.7 runs the bar command as one program name, without arguments.
    const QString bar = m_work.filePath(QStringLiteral("waybar.sh"));
    QFile script(bar);
    if (!script.open(QIODevice::WriteOnly))
        return false;
    script.write("#!/bin/sh\nexec waybar -c '" + waybarConfig.toUtf8() + "' \"$@\"\n");
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QFile sway(m_work.filePath(QStringLiteral("sway.conf")));
    if (!sway.open(QIODevice::WriteOnly))
        return false;
    QStringList lines = {
        QStringLiteral("output HEADLESS-1 resolution %1x%2 position 0 0")
            .arg(m_options.screen.width())
            .arg(m_options.screen.height()),
        // No X11 programs here: no Xwayland to wait for.
        QStringLiteral("xwayland disable"),
        QStringLiteral("bar {\n    swaybar_command %1\n}").arg(bar),
    };
    lines += m_options.configuration;
    sway.write(lines.join(u'\n').toUtf8() + '\n');
    return true;
}

bool SwaySession::start() {
    if (!m_work.isValid())
        return fail(QStringLiteral("no temporary folder"));
    const QString log = m_work.filePath(QStringLiteral("session.log"));
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (runtime.isEmpty() || !QDir(runtime).exists())
        return fail(QStringLiteral("XDG_RUNTIME_DIR is not set to a folder"));
    if (!writeConfiguration())
        return fail(QStringLiteral("cannot write the configuration"));
    if (!m_bus.start(log))
        return fail(QStringLiteral("dbus-daemon did not start"));

    qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.address().toLocal8Bit());
    qputenv("WLR_BACKENDS", "headless");
    qputenv("WLR_LIBINPUT_NO_DEVICES", "1");
    qputenv("WLR_RENDERER", "pixman");
    qputenv("XDG_CURRENT_DESKTOP", "sway");
    qputenv("XDG_SESSION_TYPE", "wayland");
    // Nothing of the desktop the tests were started from may leak in.
    qunsetenv("DISPLAY");
    qunsetenv("WAYLAND_DISPLAY");
    qunsetenv("SWAYSOCK");
    qunsetenv("SESSION_MANAGER");

    const QStringList before =
        QDir(runtime).entryList({QStringLiteral("wayland-*")}, QDir::System | QDir::Files);
    if (!m_sway.start({QStringLiteral("sway"), QStringLiteral("--config"),
                       m_work.filePath(QStringLiteral("sway.conf"))},
                      m_work.filePath(QStringLiteral("sway.log"))))
        return fail(QStringLiteral("cannot start sway"));
    QString display;
    QString ipc;
    const bool up = waitFor([&] {
        if (!m_sway.isRunning())
            return true;
        for (const QString& socket :
             QDir(runtime).entryList({QStringLiteral("wayland-*")}, QDir::System | QDir::Files)) {
            if (!socket.endsWith(QStringLiteral(".lock")) && !before.contains(socket))
                display = socket;
        }
        ipc = findFile(runtime, QStringLiteral("sway-ipc.*.%1.sock").arg(m_sway.pid()));
        return !display.isEmpty() && !ipc.isEmpty();
    });
    if (!up || display.isEmpty() || ipc.isEmpty())
        return fail(QStringLiteral("sway did not start"));
    qputenv("WAYLAND_DISPLAY", display.toLocal8Bit());
    qputenv("SWAYSOCK", QDir(runtime).filePath(ipc).toLocal8Bit());
    qputenv("QT_QPA_PLATFORM", "wayland");

    // The bar is up once sway reports it.
    const bool bar = waitFor([] {
        return ChildProcess::run({QStringLiteral("swaymsg"), QStringLiteral("-t"),
                                  QStringLiteral("get_bar_config")})
            .output.contains("bar-0");
    });
    if (!bar)
        return fail(QStringLiteral("waybar did not start"));
    if (!startPointer())
        return fail(QStringLiteral("the virtual pointer did not start"));
    // A keyboard that stays, as a real one does: wtype's own comes and goes with each call, and a
    // seat without any keyboard gives no program the focus.
    if (!m_keyboard.start(
            {QStringLiteral("wtype"), QStringLiteral("-s"), QStringLiteral("86400000")},
            m_work.filePath(QStringLiteral("keyboard.log"))))
        return fail(QStringLiteral("cannot start the keyboard"));
    return true;
}

bool SwaySession::startPointer() {
    const QString pipe = m_work.filePath(QStringLiteral("pointer"));
    if (mkfifo(QFile::encodeName(pipe).constData(), 0600) != 0)
        return false;
    if (!m_pointer.start({QStringLiteral(QUILLMAR_TEST_POINTER),
                          QString::number(m_options.screen.width()),
                          QString::number(m_options.screen.height()), pipe},
                         m_work.filePath(QStringLiteral("pointer.log")), true))
        return false;
    const auto ready = m_pointer.readLine(std::chrono::seconds(20));
    if (!ready || *ready != "ready")
        return false;
    m_pointerCommands.setFileName(pipe);
    return m_pointerCommands.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
}

bool SwaySession::pointerCommand(const QString& command) {
    if (m_pointerCommands.write(command.toUtf8() + '\n') <= 0)
        return false;
    const auto answer = m_pointer.readLine(std::chrono::seconds(10));
    return answer && *answer == "ok";
}

bool SwaySession::movePointer(QPoint at) {
    // A few steps, as a hand moves: the window under the pointer gets an enter and then
    // motions (menus react to motion; Qt 6.4 drops the first events on a menu window that has
    // just taken the pointer).
    for (const int dx : {-4, -2, 0}) {
        if (!pointerCommand(QStringLiteral("move %1 %2").arg(at.x() + dx).arg(at.y())))
            return false;
    }
    return true;
}

bool SwaySession::click(QPoint at, int button) {
    return movePointer(at) && pointerCommand(QStringLiteral("click %1").arg(button));
}

bool SwaySession::type(const QStringList& arguments) {
    return ChildProcess::run(QStringList{QStringLiteral("wtype")} + arguments).exitCode == 0;
}

bool SwaySession::screenshot(const QString& file) {
    return ChildProcess::run({QStringLiteral("grim"), file}).exitCode == 0;
}

QJsonObject SwaySession::tree() {
    const auto result = ChildProcess::run({QStringLiteral("swaymsg"), QStringLiteral("-r"),
                                           QStringLiteral("-t"), QStringLiteral("get_tree")});
    return QJsonDocument::fromJson(result.output).object();
}

QList<QJsonObject> SwaySession::windows(const QString& appId) {
    QList<QJsonObject> views;
    collectViews(tree(), appId, views);
    return views;
}

QRect SwaySession::rectOf(const QJsonObject& view) {
    const QJsonObject rect = view.value(QStringLiteral("rect")).toObject();
    return QRect(rect.value(QStringLiteral("x")).toInt(), rect.value(QStringLiteral("y")).toInt(),
                 rect.value(QStringLiteral("width")).toInt(),
                 rect.value(QStringLiteral("height")).toInt());
}

std::optional<QPoint> SwaySession::trayIcon() const {
    const QString file = m_work.filePath(QStringLiteral("tray.png"));
    if (!screenshot(file))
        return std::nullopt;
    const QImage shot(file);
    if (shot.isNull())
        return std::nullopt;
    // The bar is 26 pixels high, with a border line at its foot; its left end shows only its
    // background.
    const QRgb background = shot.pixel(2, 13);
    QRect icons;
    for (int y = 4; y < 21; ++y) {
        for (int x = shot.width() / 2; x < shot.width(); ++x) {
            if (shot.pixel(x, y) != background)
                icons |= QRect(x, y, 1, 1);
        }
    }
    if (icons.isEmpty())
        return std::nullopt;
    return icons.center();
}

QString SwaySession::clipboard() {
    return QString::fromUtf8(
        ChildProcess::run({QStringLiteral("wl-paste"), QStringLiteral("--no-newline")}).output);
}

bool SwaySession::setClipboard(const QString& text) {
    m_clipboardOwner.stop();
    if (!m_clipboardOwner.start(
            {QStringLiteral("wl-copy"), QStringLiteral("--foreground"), QStringLiteral("--"), text},
            m_work.filePath(QStringLiteral("wl-copy.log"))))
        return false;
    return waitFor([&] { return clipboard() == text; });
}

void SwaySession::startShared(Options options) {
    auto session = std::make_unique<SwaySession>(std::move(options));
    if (!session->start()) {
        std::fprintf(stderr, "Cannot start the sway session: %s\n",
                     qPrintable(session->errorString()));
        session.reset();
        std::exit(1);
    }
    sharedSession() = std::move(session);
}

SwaySession& SwaySession::shared() {
    return *sharedSession();
}
