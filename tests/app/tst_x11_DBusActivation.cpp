// Starting Quillmar the way desktops do: a call to org.freedesktop.Application (or ShowMenu)
// on a session bus whose service folder holds the build's D-Bus service file. The bus starts
// the built program, which then answers the call: its menu opens, or its settings window. The
// program runs on a virtual X display with a tray host; the test sees its windows as any X
// client would, and saves a screenshot per step under the build folder
// (screenshots/tst_x11_DBusActivation/).

#include "ChildProcess.h"
#include "PrivateSessionBus.h"
#include "VirtualDesktop.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtTest>

#include <csignal>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QString serviceName = u"app.quillmar.Quillmar"_s;
const QString objectPath = u"/app/quillmar/Quillmar"_s;

struct Call {
    int exitCode = -1;
    QString output;
};

// A command as a user or a launcher runs it, with the test's session bus; standard error is
// kept, where gdbus says why a call failed.
Call run(const QStringList& command) {
    const ChildProcess::Result result = ChildProcess::run(command, std::chrono::minutes(1), true);
    return {result.exitCode, QString::fromUtf8(result.output).trimmed()};
}

QStringList gdbusCall(const QString& method, const QStringList& arguments) {
    return QStringList{u"gdbus"_s,         u"call"_s,  u"--session"_s, u"--dest"_s, serviceName,
                       u"--object-path"_s, objectPath, u"--method"_s,  method} +
           arguments;
}

// The command of one of the desktop entry's actions, split as a launcher splits it (the entry's
// Exec lines quote nothing).
QStringList actionCommand(const QString& action) {
    QFile file(QStringLiteral(QUILLMAR_DESKTOP_ENTRY));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    bool inAction = false;
    for (const QString& line : QString::fromUtf8(file.readAll()).split(u'\n')) {
        if (line.startsWith(u'['))
            inAction = line == u"[Desktop Action "_s + action + u']';
        else if (inAction && line.startsWith(u"Exec="_s))
            return line.mid(5).split(u' ', Qt::SkipEmptyParts);
    }
    return {};
}

QStringList visibleQuillmarWindows() {
    const auto result = ChildProcess::run(
        {u"xdotool"_s, u"search"_s, u"--onlyvisible"_s, u"--classname"_s, u"quillmar"_s});
    return QString::fromUtf8(result.output).split(u'\n', Qt::SkipEmptyParts);
}

// A menu is an override-redirect window of Quillmar's on the root window; the tray icon is
// embedded in the tray host's window, and the settings window is not override-redirect.
bool quillmarMenuIsOpen() {
    for (const QString& window : visibleQuillmarWindows()) {
        const QString info = QString::fromUtf8(
            ChildProcess::run({u"xwininfo"_s, u"-id"_s, window, u"-tree"_s, u"-stats"_s}).output);
        if (info.contains(u"Parent window id: "_s) &&
            info.section(u"Parent window id: "_s, 1)
                .section(u'\n', 0, 0)
                .contains(u"(the root window)"_s) &&
            info.contains(u"Override Redirect State: yes"_s))
            return true;
    }
    return false;
}

bool settingsWindowIsShown() {
    return ChildProcess::run({u"xdotool"_s, u"search"_s, u"--onlyvisible"_s, u"--name"_s,
                              u"^Quillmar Settings$"_s})
               .exitCode == 0;
}

} // namespace

class tst_x11_DBusActivation : public QObject {
    Q_OBJECT
public:
    static void initMain() { VirtualDesktop::startShared({.trayHost = true}); }

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();

    void activateStartsQuillmarAndOpensItsMenu();
    void openMenuActionStartsQuillmarAndOpensItsMenu();
    void settingsActionStartsQuillmarAndShowsSettings();
    void runningQuillmarAnswersWithoutASecond();
    void showMenuStartsQuillmarToo();
    void unknownActionIsRefused();

private:
    // The Quillmar the bus started: its process id, once it holds the name (0: none).
    uint runningQuillmar();
    void stopQuillmar();
    void screenshot(const QString& name);

    PrivateSessionBus m_bus;
    std::unique_ptr<QDBusConnection> m_observer;
    QString m_screenshots;
};

void tst_x11_DBusActivation::initTestCase() {
    const QString program = QStringLiteral(QUILLMAR_PROGRAM);
    QVERIFY2(QFileInfo(program).isExecutable(), qPrintable(u"build the program: "_s + program));
    QVERIFY(QFileInfo::exists(QStringLiteral(QUILLMAR_SERVICE_DIR) + u'/' + serviceName +
                              u".service"_s));
    m_screenshots = QDir::currentPath() + u"/screenshots/tst_x11_DBusActivation"_s;
    QVERIFY(QDir().mkpath(m_screenshots));

    // The programs the bus starts get the environment it was started with: the virtual
    // display, this test's home, and this bus as their session bus (which gdbus --session
    // reaches too).
    m_bus.setServiceDirectory(QStringLiteral(QUILLMAR_SERVICE_DIR));
    const QString log = m_screenshots + u"/bus-and-quillmar.log"_s;
    QFile::remove(log);
    QVERIFY(m_bus.start(log));
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.address().toUtf8());
    m_observer = std::make_unique<QDBusConnection>(
        QDBusConnection::connectToBus(m_bus.address(), u"observer"_s));
    QVERIFY(m_observer->isConnected());
    QVERIFY(!m_observer->interface()->isServiceRegistered(serviceName));
}

void tst_x11_DBusActivation::cleanup() {
    stopQuillmar();
}

void tst_x11_DBusActivation::cleanupTestCase() {
    stopQuillmar();
    m_observer.reset();
    m_bus.stop();
}

uint tst_x11_DBusActivation::runningQuillmar() {
    if (!m_observer->interface()->isServiceRegistered(serviceName))
        return 0;
    return m_observer->interface()->servicePid(serviceName).value();
}

void tst_x11_DBusActivation::stopQuillmar() {
    // Started by the bus, so not this test's child: ended by its process id.
    const uint pid = runningQuillmar();
    if (pid == 0)
        return;
    kill(static_cast<pid_t>(pid), SIGTERM);
    QTRY_VERIFY_WITH_TIMEOUT(!m_observer->interface()->isServiceRegistered(serviceName), 20000);
}

void tst_x11_DBusActivation::screenshot(const QString& name) {
    ChildProcess::run({u"import"_s, u"-window"_s, u"root"_s, m_screenshots + u'/' + name},
                      std::chrono::seconds(20));
}

void tst_x11_DBusActivation::activateStartsQuillmarAndOpensItsMenu() {
    QCOMPARE(runningQuillmar(), 0u);
    const Call call = run(gdbusCall(u"org.freedesktop.Application.Activate"_s, {u"{}"_s}));
    QVERIFY2(call.exitCode == 0, qPrintable(call.output));
    QCOMPARE(call.output, u"()"_s);

    // The bus started the program of the build tree's service file.
    const uint pid = runningQuillmar();
    QVERIFY(pid != 0);
    QCOMPARE(QFileInfo(u"/proc/%1/exe"_s.arg(pid)).canonicalFilePath(),
             QFileInfo(QStringLiteral(QUILLMAR_PROGRAM)).canonicalFilePath());
    QTRY_VERIFY_WITH_TIMEOUT(quillmarMenuIsOpen(), 20000);
    screenshot(u"activate.png"_s);
}

void tst_x11_DBusActivation::openMenuActionStartsQuillmarAndOpensItsMenu() {
    // The desktop entry's own command for "Open Menu".
    const QStringList command = actionCommand(u"open-menu"_s);
    QCOMPARE(command.value(0), u"gdbus"_s);
    const Call call = run(command);
    QVERIFY2(call.exitCode == 0, qPrintable(call.output));
    QVERIFY(runningQuillmar() != 0);
    QTRY_VERIFY_WITH_TIMEOUT(quillmarMenuIsOpen(), 20000);
    QVERIFY(!settingsWindowIsShown());
    screenshot(u"open-menu.png"_s);
}

void tst_x11_DBusActivation::settingsActionStartsQuillmarAndShowsSettings() {
    const QStringList command = actionCommand(u"settings"_s);
    QCOMPARE(command.value(0), u"gdbus"_s);
    const Call call = run(command);
    QVERIFY2(call.exitCode == 0, qPrintable(call.output));
    QVERIFY(runningQuillmar() != 0);
    QTRY_VERIFY_WITH_TIMEOUT(settingsWindowIsShown(), 20000);
    QVERIFY(!quillmarMenuIsOpen());
    screenshot(u"settings.png"_s);
}

void tst_x11_DBusActivation::runningQuillmarAnswersWithoutASecond() {
    QCOMPARE(run(gdbusCall(u"org.freedesktop.Application.ActivateAction"_s,
                           {u"settings"_s, u"[]"_s, u"{}"_s}))
                 .exitCode,
             0);
    const uint pid = runningQuillmar();
    QVERIFY(pid != 0);
    QTRY_VERIFY_WITH_TIMEOUT(settingsWindowIsShown(), 20000);

    // A launcher's activation on X11 sends a startup id; it changes nothing here.
    const Call call = run(gdbusCall(u"org.freedesktop.Application.Activate"_s,
                                    {u"{'desktop-startup-id': <'launcher_TIME42'>}"_s}));
    QVERIFY2(call.exitCode == 0, qPrintable(call.output));
    QTRY_VERIFY_WITH_TIMEOUT(quillmarMenuIsOpen(), 20000);
    QCOMPARE(runningQuillmar(), pid);
    screenshot(u"running.png"_s);
}

void tst_x11_DBusActivation::showMenuStartsQuillmarToo() {
    // The README's command for a key binding, now also when Quillmar was not running.
    QCOMPARE(runningQuillmar(), 0u);
    const Call call = run(gdbusCall(u"app.quillmar.Quillmar.ShowMenu"_s, {}));
    QVERIFY2(call.exitCode == 0, qPrintable(call.output));
    QVERIFY(runningQuillmar() != 0);
    QTRY_VERIFY_WITH_TIMEOUT(quillmarMenuIsOpen(), 20000);
}

void tst_x11_DBusActivation::unknownActionIsRefused() {
    const Call call = run(gdbusCall(u"org.freedesktop.Application.ActivateAction"_s,
                                    {u"preferences"_s, u"[]"_s, u"{}"_s}));
    QCOMPARE(call.exitCode, 1);
    QVERIFY2(call.output.contains(u"Quillmar has no action \"preferences\"; it has "
                                  "\"open-menu\" and \"settings\""_s),
             qPrintable(call.output));
    // Started to answer, it shows nothing.
    QVERIFY(runningQuillmar() != 0);
    QVERIFY(!quillmarMenuIsOpen());
    QVERIFY(!settingsWindowIsShown());
}

QTEST_MAIN(tst_x11_DBusActivation)
#include "tst_x11_DBusActivation.moc"
