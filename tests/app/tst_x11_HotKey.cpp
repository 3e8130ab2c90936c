// The X11 hot key end to end: a private Xvfb, real key presses through XTest (xdotool), and a
// second X client competing for the same key.
#include "FakeRaindropService.h"

#include "app/AppDelegate.h"
#include "app/hotkey/HotKeyManager.h"
#include "app/hotkey/x11/X11HotKeyBackend.h"
#include "app/tray/StatusItem.h"
#include "config/AppConfig.h"
#include "config/SettingsNotifier.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMenu>
#include <QProcess>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QtTest>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The X server of this test run. It dies with the test process even when the test crashes.
class Xvfb {
public:
    bool start() {
        int fds[2];
        if (pipe(fds) != 0)
            return false;
        m_pid = fork();
        if (m_pid < 0)
            return false;
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(fds[0]);
            const std::string fd = std::to_string(fds[1]);
            execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1280x800x24",
                   "-nolisten", "tcp", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(fds[1]);
        // Xvfb writes the display number once it accepts connections.
        std::string number;
        char c = 0;
        while (read(fds[0], &c, 1) == 1 && c != '\n')
            number += c;
        close(fds[0]);
        if (number.empty())
            return false;
        m_display = ":" + number;
        return true;
    }

    void stop() {
        if (m_pid <= 0)
            return;
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }

    ~Xvfb() { stop(); }

    const std::string& display() const { return m_display; }

private:
    pid_t m_pid = -1;
    std::string m_display;
};

constexpr std::uint16_t modControl = XCB_MOD_MASK_CONTROL;
constexpr std::uint16_t modAlt = XCB_MOD_MASK_1;
constexpr xcb_keysym_t keysymR = 0x72;

// Another program on the same display, grabbing keys for itself.
class OtherClient {
public:
    OtherClient()
        : m_connection(xcb_connect(nullptr, nullptr)) {
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    }
    ~OtherClient() { xcb_disconnect(m_connection); }

    bool connected() const { return xcb_connection_has_error(m_connection) == 0; }

    xcb_keycode_t keycode(xcb_keysym_t keysym) const {
        xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(m_connection);
        xcb_keycode_t* codes = xcb_key_symbols_get_keycode(symbols, keysym);
        const xcb_keycode_t code = codes ? codes[0] : 0;
        std::free(codes);
        xcb_key_symbols_free(symbols);
        return code;
    }

    // True when the server granted the grab, false when another client holds the key.
    bool grab(xcb_keysym_t keysym, std::uint16_t modifiers) {
        const xcb_void_cookie_t cookie =
            xcb_grab_key_checked(m_connection, 0, m_root, modifiers, keycode(keysym),
                                 XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        xcb_generic_error_t* error = xcb_request_check(m_connection, cookie);
        std::free(error);
        return error == nullptr;
    }

    void ungrab(xcb_keysym_t keysym, std::uint16_t modifiers) {
        xcb_ungrab_key(m_connection, keycode(keysym), m_root, modifiers);
        xcb_flush(m_connection);
    }

    bool waitForKeyPress(int timeoutMs) {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < timeoutMs) {
            while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection)) {
                const bool press = (event->response_type & 0x7f) == XCB_KEY_PRESS;
                std::free(event);
                if (press)
                    return true;
            }
            QTest::qWait(10);
        }
        return false;
    }

    // The lock state as the server sees it (Num Lock is in the modifier bits).
    std::uint16_t modifierState() {
        xcb_query_pointer_reply_t* reply =
            xcb_query_pointer_reply(m_connection, xcb_query_pointer(m_connection, m_root), nullptr);
        const std::uint16_t state = reply ? reply->mask : 0;
        std::free(reply);
        return state;
    }

private:
    xcb_connection_t* m_connection;
    xcb_window_t m_root = 0;
};

bool pressKeys(const QString& keys) {
    return QProcess::execute(QStringLiteral("xdotool"), {QStringLiteral("key"), keys}) == 0;
}

ShortcutConfig ctrlShiftK() {
    // Command+shift+K: Ctrl+Shift+K on X11.
    return {40, ShortcutConfig::CommandFlag | ShortcutConfig::ShiftFlag, QStringLiteral("K")};
}

void saveConfig(const QString& token, std::optional<ShortcutConfig> shortcut = std::nullopt) {
    AppConfig config;
    config.token = token;
    config.openMenuShortcut = std::move(shortcut);
    QVERIFY(!config.save());
}

// The bookmark menu has replaced the placeholder once its data has arrived.
bool bookmarkMenuLoaded(const AppDelegate& delegate) {
    const QMenu* menu = delegate.statusItem()->menu();
    return menu && !menu->actions().isEmpty() &&
           menu->actions().constFirst()->text() != QStringLiteral("Loading…");
}

MenuManager::Timings quietTimings() {
    MenuManager::Timings timings;
    timings.refreshInterval = std::chrono::hours(1);
    return timings;
}

} // namespace

class tst_x11_HotKey : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void keyPressOpensTrayMenu();
    void backendGrabsTheQtKeyItIsGiven();
    void keyAtItsPlaceUnderLayoutWithoutLatinLetters();
    void updateMovesTheKey();
    void worksWithNumLockAndCapsLock();
    void keyHeldByAnotherClientLeavesNoHotKey();
    void absentShortcutAndDestructionReleaseTheKey();
    void delegateUsesDefaultShortcutWhenNoneConfigured();
    void delegateUsesConfiguredShortcut();
    void clearingTheTokenKeepsTheHotKey();

private:
    void setNumLock(bool on);
    void setCapsLock(bool on);
    // Presses the keys and waits until the presses have surely been delivered: the other
    // client, which grabs a sentinel key, sees the sentinel that follows them.
    void pressAndSettle(const QString& keys);
    // Registers the default shortcut, presses keys and sees the tray menu open.
    void defaultKeyOpensTrayMenu(const QString& keys);
};

void tst_x11_HotKey::init() {
    QFile::remove(AppConfig::filePath());
    QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
}

void tst_x11_HotKey::cleanup() {
    setNumLock(false);
    setCapsLock(false);
}

void tst_x11_HotKey::setNumLock(bool on) {
    OtherClient probe;
    const bool isOn = (probe.modifierState() & XCB_MOD_MASK_2) != 0;
    if (isOn != on)
        QVERIFY(pressKeys(QStringLiteral("Num_Lock")));
    QTRY_COMPARE((probe.modifierState() & XCB_MOD_MASK_2) != 0, on);
}

void tst_x11_HotKey::setCapsLock(bool on) {
    OtherClient probe;
    const bool isOn = (probe.modifierState() & XCB_MOD_MASK_LOCK) != 0;
    if (isOn != on)
        QVERIFY(pressKeys(QStringLiteral("Caps_Lock")));
    QTRY_COMPARE((probe.modifierState() & XCB_MOD_MASK_LOCK) != 0, on);
}

void tst_x11_HotKey::pressAndSettle(const QString& keys) {
    OtherClient sentinel;
    constexpr xcb_keysym_t keysymF9 = 0xffc6;
    QVERIFY(sentinel.grab(keysymF9, XCB_MOD_MASK_ANY));
    QVERIFY(pressKeys(keys));
    QVERIFY(pressKeys(QStringLiteral("F9")));
    QVERIFY(sentinel.waitForKeyPress(5000));
    // Qt reads events on its own thread; give the main thread time to dispatch what arrived.
    QTest::qWait(200);
}

void tst_x11_HotKey::defaultKeyOpensTrayMenu(const QString& keys) {
    StatusItem item;
    auto* menu = new QMenu();
    menu->addAction(QStringLiteral("Quit Quillmar"));
    item.setMenu(menu);
    HotKeyManager manager;
    manager.update(ShortcutConfig::defaultShortcut(), [&item] { item.performClick(); });

    QVERIFY(!menu->isVisible());
    QVERIFY(pressKeys(keys));
    QTRY_VERIFY(menu->isVisible());
    menu->hide();
    QTRY_VERIFY(!menu->isVisible());
}

void tst_x11_HotKey::keyPressOpensTrayMenu() {
    defaultKeyOpensTrayMenu(QStringLiteral("ctrl+alt+r"));
}

void tst_x11_HotKey::backendGrabsTheQtKeyItIsGiven() {
    const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    QVERIFY(x11 && x11->connection());
    X11HotKeyBackend backend(x11->connection());
    QSignalSpy pressed(&backend, &HotKeyBackend::pressed);
    backend.registerHotKey(QKeyCombination(Qt::ControlModifier | Qt::AltModifier, Qt::Key_R));
    OtherClient other;
    QVERIFY(!other.grab(keysymR, modControl | modAlt));
    pressAndSettle(QStringLiteral("ctrl+alt+r"));
    QCOMPARE(pressed.size(), 1);

    backend.unregisterHotKey();
    QVERIFY(other.grab(keysymR, modControl | modAlt));
    other.ungrab(keysymR, modControl | modAlt);
}

void tst_x11_HotKey::keyAtItsPlaceUnderLayoutWithoutLatinLetters() {
    // Under a Russian layout the R key types "к"; no key types "r". The hot key is the key at
    // R's place, pressed here by its keycode as a keyboard sends it.
    QCOMPARE(QProcess::execute(QStringLiteral("setxkbmap"), {QStringLiteral("ru")}), 0);
    const auto restoreLayout =
        qScopeGuard([] { QProcess::execute(QStringLiteral("setxkbmap"), {QStringLiteral("us")}); });
    constexpr int keycodeOfR = 27;
    defaultKeyOpensTrayMenu(QStringLiteral("ctrl+alt+%1").arg(keycodeOfR));
}

void tst_x11_HotKey::updateMovesTheKey() {
    int runs = 0;
    HotKeyManager manager;
    manager.update(ShortcutConfig::defaultShortcut(), [&runs] { ++runs; });
    pressAndSettle(QStringLiteral("ctrl+alt+r"));
    QTRY_COMPARE(runs, 1);

    manager.update(ctrlShiftK(), [&runs] { ++runs; });
    pressAndSettle(QStringLiteral("ctrl+alt+r"));
    QCOMPARE(runs, 1);
    pressAndSettle(QStringLiteral("ctrl+shift+k"));
    QTRY_COMPARE(runs, 2);

    // The old key is free again: another program may take it.
    OtherClient other;
    QVERIFY(other.grab(keysymR, modControl | modAlt));
}

void tst_x11_HotKey::worksWithNumLockAndCapsLock() {
    int runs = 0;
    HotKeyManager manager;
    manager.update(ShortcutConfig::defaultShortcut(), [&runs] { ++runs; });

    setNumLock(true);
    pressAndSettle(QStringLiteral("ctrl+alt+r"));
    QTRY_COMPARE(runs, 1);

    setCapsLock(true);
    pressAndSettle(QStringLiteral("ctrl+alt+r"));
    QTRY_COMPARE(runs, 2);

    setNumLock(false);
    pressAndSettle(QStringLiteral("ctrl+alt+r"));
    QTRY_COMPARE(runs, 3);

    // Other modifiers still matter: Ctrl+Alt+Shift+R is another key.
    pressAndSettle(QStringLiteral("ctrl+alt+shift+r"));
    QCOMPARE(runs, 3);
}

void tst_x11_HotKey::keyHeldByAnotherClientLeavesNoHotKey() {
    OtherClient other;
    QVERIFY(other.connected());
    // The other program holds only the plain combination, not the lock variants.
    QVERIFY(other.grab(keysymR, modControl | modAlt));

    int runs = 0;
    HotKeyManager manager;
    manager.update(ShortcutConfig::defaultShortcut(), [&runs] { ++runs; });

    QVERIFY(pressKeys(QStringLiteral("ctrl+alt+r")));
    QVERIFY(other.waitForKeyPress(5000));
    // Quillmar keeps none of the variants it did get: with Num Lock on the key is not its either.
    setNumLock(true);
    pressAndSettle(QStringLiteral("ctrl+alt+r"));
    QCOMPARE(runs, 0);
    setNumLock(false);

    // Quillmar runs on, and a free key still works.
    manager.update(ctrlShiftK(), [&runs] { ++runs; });
    pressAndSettle(QStringLiteral("ctrl+shift+k"));
    QTRY_COMPARE(runs, 1);
    other.ungrab(keysymR, modControl | modAlt);
}

void tst_x11_HotKey::absentShortcutAndDestructionReleaseTheKey() {
    {
        HotKeyManager manager;
        manager.update(ShortcutConfig::defaultShortcut(), [] {});
        manager.update(ShortcutConfig::defaultShortcut(), [] {});
        OtherClient other;
        QVERIFY(!other.grab(keysymR, modControl | modAlt));

        manager.update(std::nullopt, [] {});
        QVERIFY(other.grab(keysymR, modControl | modAlt));
        other.ungrab(keysymR, modControl | modAlt);

        manager.update(ShortcutConfig::defaultShortcut(), [] {});
        QVERIFY(!other.grab(keysymR, modControl | modAlt));
    }
    OtherClient other;
    QVERIFY(other.grab(keysymR, modControl | modAlt));
    QVERIFY(other.grab(keysymR, modControl | modAlt | XCB_MOD_MASK_2));
}

void tst_x11_HotKey::delegateUsesDefaultShortcutWhenNoneConfigured() {
    FakeRaindropService service;
    saveConfig(QStringLiteral("token"));
    AppDelegate delegate({service.environment(), quietTimings()});
    delegate.applicationDidFinishLaunching();
    QTRY_VERIFY(bookmarkMenuLoaded(delegate));

    QVERIFY(pressKeys(QStringLiteral("ctrl+alt+r")));
    QTRY_VERIFY(delegate.statusItem()->menu()->isVisible());
    delegate.statusItem()->menu()->hide();
}

void tst_x11_HotKey::delegateUsesConfiguredShortcut() {
    FakeRaindropService service;
    saveConfig(QStringLiteral("token"), ctrlShiftK());
    AppDelegate delegate({service.environment(), quietTimings()});
    delegate.applicationDidFinishLaunching();
    QTRY_VERIFY(bookmarkMenuLoaded(delegate));

    pressAndSettle(QStringLiteral("ctrl+alt+r"));
    QVERIFY(!delegate.statusItem()->menu()->isVisible());
    QVERIFY(pressKeys(QStringLiteral("ctrl+shift+k")));
    QTRY_VERIFY(delegate.statusItem()->menu()->isVisible());
    delegate.statusItem()->menu()->hide();
}

void tst_x11_HotKey::clearingTheTokenKeepsTheHotKey() {
    FakeRaindropService service;
    saveConfig(QStringLiteral("token"));
    AppDelegate delegate({service.environment(), quietTimings()});
    delegate.applicationDidFinishLaunching();
    QTRY_VERIFY(bookmarkMenuLoaded(delegate));

    // The settings are saved without a token: the setup menu returns, the key stays armed.
    saveConfig(QString());
    SettingsNotifier::instance().post();
    QTRY_COMPARE(delegate.statusItem()->menu()->actions().constFirst()->text(),
                 QStringLiteral("Welcome to Quillmar"));
    QVERIFY(pressKeys(QStringLiteral("ctrl+alt+r")));
    QTRY_VERIFY(delegate.statusItem()->menu()->isVisible());
    QCOMPARE(delegate.statusItem()->menu()->actions().constFirst()->text(),
             QStringLiteral("Welcome to Quillmar"));
    delegate.statusItem()->menu()->hide();
}

int main(int argc, char* argv[]) {
    // A display, a home, a runtime folder and no session bus of our own: nothing outside the
    // test is touched, and Qt does not start a bus that would outlive it.
    char runtimeTemplate[] = "/tmp/quillmar-x11-XXXXXX";
    const char* runtime = mkdtemp(runtimeTemplate);
    if (!runtime) {
        std::fprintf(stderr, "cannot create a runtime folder\n");
        return 1;
    }
    Xvfb xvfb;
    if (!xvfb.start()) {
        std::fprintf(stderr, "cannot start Xvfb\n");
        QDir(QString::fromLocal8Bit(runtime)).removeRecursively();
        return 1;
    }
    setenv("DISPLAY", xvfb.display().c_str(), 1);
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    setenv("XDG_RUNTIME_DIR", runtime, 1);
    setenv("HOME", runtime, 1);
    const std::string config = std::string(runtime) + "/.config";
    setenv("XDG_CONFIG_HOME", config.c_str(), 1);
    const std::string noBus = std::string("unix:path=") + runtime + "/no-bus";
    setenv("DBUS_SESSION_BUS_ADDRESS", noBus.c_str(), 1);

    int status = 0;
    {
        QApplication app(argc, argv);
        tst_x11_HotKey test;
        status = QTest::qExec(&test, argc, argv);
    }
    xvfb.stop();
    QDir(QString::fromLocal8Bit(runtime)).removeRecursively();
    return status;
}

#include "tst_x11_HotKey.moc"
