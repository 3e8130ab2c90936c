#include "app/hotkey/HotKeyBackend.h"
#include "app/hotkey/HotKeyManager.h"
#include "app/hotkey/KeySymTable.h"
#include "app/hotkey/portal/PortalHotKeyBackend.h"
#include "app/hotkey/x11/X11HotKeyBackend.h"

#include <QKeySequence>
#include <QtTest>

#include <functional>
#include <vector>

namespace {

// Stands in for the desktop: records what is registered and can press the key. The real
// backends have their own tests against a real X server and a D-Bus portal.
class RecordingBackend : public HotKeyBackend {
public:
    std::vector<QKeyCombination> active;
    int registerCalls = 0;
    int unregisterCalls = 0;
    // Called as the backend goes, while its fields can still be read.
    std::function<void(const RecordingBackend&)> onDestruction;

    ~RecordingBackend() override {
        if (onDestruction)
            onDestruction(*this);
    }

    void registerHotKey(QKeyCombination key) override {
        ++registerCalls;
        active.push_back(key);
    }
    void unregisterHotKey() override {
        ++unregisterCalls;
        active.clear();
    }
    void press() { Q_EMIT pressed(); }
};

ShortcutConfig shortcut(std::uint16_t keyCode, std::uint64_t flags, const char* label) {
    return {keyCode, flags, QString::fromLatin1(label)};
}

// For QCOMPARE's message: "Ctrl+Alt+R".
QString text(QKeyCombination key) {
    return QKeySequence(key).toString(QKeySequence::PortableText);
}

} // namespace

class tst_HotKeyManager : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void hotKey_data();
    void hotKey();
    void backendGetsTheQtKeyAndModifiers();
    void everyModifierReachesTheBackend();
    void sameShortcutTwiceHoldsOneRegistration();
    void absentShortcutAfterRegisteredLeavesNone();
    void absentShortcutStillStoresAction();
    void actionRunsFromEventLoopNotInHandler();
    void actionReplacedBetweenPressAndRunRunsNewOne();
    void actionMayReplaceItself();
    void pressAfterDestructionRunsNothing();
    void destructionUnregisters();
    void destructionWithoutRegistrationUnregistersNothing();
    void offscreenGetsABackendThatRuns();
    void keySyms();
    void x11Modifiers();
};

void tst_HotKeyManager::hotKey_data() {
    QTest::addColumn<int>("keyCode");
    QTest::addColumn<quint64>("flags");
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("modifiers");
    const int ctrl = Qt::ControlModifier;
    const int alt = Qt::AltModifier;
    const int shift = Qt::ShiftModifier;
    const int meta = Qt::MetaModifier;
    QTest::newRow("default option+command+R")
        << 15 << quint64(0x180000) << int(Qt::Key_R) << (ctrl | alt);
    QTest::newRow("all four") << 40 << quint64(0x1E0000) << int(Qt::Key_K)
                              << (ctrl | alt | shift | meta);
    QTest::newRow("command is Ctrl") << 18 << quint64(0x100000) << int(Qt::Key_1) << ctrl;
    QTest::newRow("option is Alt") << 96 << quint64(0x80000) << int(Qt::Key_F5) << alt;
    QTest::newRow("shift") << 0 << quint64(0x20000) << int(Qt::Key_A) << shift;
    QTest::newRow("control is Meta") << 126 << quint64(0x40000) << int(Qt::Key_Up) << meta;
    QTest::newRow("none") << 53 << quint64(0) << int(Qt::Key_Escape) << 0;
    QTest::newRow("caps lock and device bits dropped")
        << 44 << quint64(0x10000 | 0x100 | 0x800000 | 0x100000) << int(Qt::Key_Slash) << ctrl;
    QTest::newRow("key code without a Qt key")
        << 10 << quint64(0x100000) << int(Qt::Key_unknown) << ctrl;
}

void tst_HotKeyManager::hotKey() {
    QFETCH(int, keyCode);
    QFETCH(quint64, flags);
    QFETCH(int, key);
    QFETCH(int, modifiers);
    const QKeyCombination hotKey =
        HotKeyManager::hotKey({static_cast<std::uint16_t>(keyCode), flags, QString()});
    QCOMPARE(int(hotKey.key()), key);
    QCOMPARE(hotKey.keyboardModifiers().toInt(), modifiers);
}

void tst_HotKeyManager::backendGetsTheQtKeyAndModifiers() {
    auto backend = std::make_unique<RecordingBackend>();
    RecordingBackend* desktop = backend.get();
    HotKeyManager manager(std::move(backend));
    manager.update(ShortcutConfig::defaultShortcut(), [] {});
    QCOMPARE(desktop->active.size(), std::size_t(1));
    QCOMPARE(text(desktop->active[0]), QStringLiteral("Ctrl+Alt+R"));
    QCOMPARE(desktop->active[0], QKeyCombination(Qt::ControlModifier | Qt::AltModifier, Qt::Key_R));
}

void tst_HotKeyManager::everyModifierReachesTheBackend() {
    auto backend = std::make_unique<RecordingBackend>();
    RecordingBackend* desktop = backend.get();
    HotKeyManager manager(std::move(backend));
    manager.update(shortcut(40, 0x1E0000, "K"), [] {});
    QCOMPARE(desktop->active.size(), std::size_t(1));
    QCOMPARE(text(desktop->active[0]), QStringLiteral("Meta+Ctrl+Alt+Shift+K"));
    manager.update(shortcut(0, 0x20000, "A"), [] {});
    QCOMPARE(desktop->active.size(), std::size_t(1));
    QCOMPARE(text(desktop->active[0]), QStringLiteral("Shift+A"));
    // A shortcut without any of the four modifiers still registers.
    manager.update(shortcut(96, 0, "F5"), [] {});
    QCOMPARE(desktop->active.size(), std::size_t(1));
    QCOMPARE(text(desktop->active[0]), QStringLiteral("F5"));
}

void tst_HotKeyManager::sameShortcutTwiceHoldsOneRegistration() {
    auto backend = std::make_unique<RecordingBackend>();
    RecordingBackend* desktop = backend.get();
    HotKeyManager manager(std::move(backend));
    manager.update(ShortcutConfig::defaultShortcut(), [] {});
    manager.update(ShortcutConfig::defaultShortcut(), [] {});
    QCOMPARE(desktop->active.size(), std::size_t(1));
    QCOMPARE(desktop->registerCalls, 2);
    QCOMPARE(desktop->unregisterCalls, 1);
}

void tst_HotKeyManager::absentShortcutAfterRegisteredLeavesNone() {
    auto backend = std::make_unique<RecordingBackend>();
    RecordingBackend* desktop = backend.get();
    HotKeyManager manager(std::move(backend));
    manager.update(ShortcutConfig::defaultShortcut(), [] {});
    manager.update(std::nullopt, [] {});
    QVERIFY(desktop->active.empty());
    QCOMPARE(desktop->registerCalls, 1);
    QCOMPARE(desktop->unregisterCalls, 1);
    // Nothing left to give back a second time.
    manager.update(std::nullopt, [] {});
    QCOMPARE(desktop->unregisterCalls, 1);
}

void tst_HotKeyManager::absentShortcutStillStoresAction() {
    auto backend = std::make_unique<RecordingBackend>();
    RecordingBackend* desktop = backend.get();
    HotKeyManager manager(std::move(backend));
    int first = 0;
    int second = 0;
    manager.update(ShortcutConfig::defaultShortcut(), [&first] { ++first; });
    manager.update(std::nullopt, [&second] { ++second; });
    // A press still in flight from the old registration finds the stored new action.
    desktop->press();
    QTRY_COMPARE(second, 1);
    QCOMPARE(first, 0);
}

void tst_HotKeyManager::actionRunsFromEventLoopNotInHandler() {
    auto backend = std::make_unique<RecordingBackend>();
    RecordingBackend* desktop = backend.get();
    HotKeyManager manager(std::move(backend));
    int runs = 0;
    manager.update(ShortcutConfig::defaultShortcut(), [&runs] { ++runs; });
    desktop->press();
    QCOMPARE(runs, 0);
    QCoreApplication::processEvents();
    QCOMPARE(runs, 1);
}

void tst_HotKeyManager::actionReplacedBetweenPressAndRunRunsNewOne() {
    auto backend = std::make_unique<RecordingBackend>();
    RecordingBackend* desktop = backend.get();
    HotKeyManager manager(std::move(backend));
    QStringList ran;
    manager.update(ShortcutConfig::defaultShortcut(), [&ran] { ran << QStringLiteral("old"); });
    desktop->press();
    manager.update(ShortcutConfig::defaultShortcut(), [&ran] { ran << QStringLiteral("new"); });
    QCoreApplication::processEvents();
    QCOMPARE(ran, QStringList{QStringLiteral("new")});
}

void tst_HotKeyManager::actionMayReplaceItself() {
    auto backend = std::make_unique<RecordingBackend>();
    RecordingBackend* desktop = backend.get();
    HotKeyManager manager(std::move(backend));
    QStringList ran;
    manager.update(ShortcutConfig::defaultShortcut(), [&] {
        // As a settings change during the menu would: the running action is replaced.
        manager.update(shortcut(40, 0x100000, "K"), [&ran] { ran << QStringLiteral("second"); });
        ran << QStringLiteral("first");
    });
    desktop->press();
    QCoreApplication::processEvents();
    desktop->press();
    QCoreApplication::processEvents();
    QCOMPARE(ran, (QStringList{QStringLiteral("first"), QStringLiteral("second")}));
    QCOMPARE(desktop->active.size(), std::size_t(1));
    QCOMPARE(text(desktop->active[0]), QStringLiteral("Ctrl+K"));
}

void tst_HotKeyManager::pressAfterDestructionRunsNothing() {
    int runs = 0;
    {
        auto backend = std::make_unique<RecordingBackend>();
        RecordingBackend* desktop = backend.get();
        HotKeyManager manager(std::move(backend));
        manager.update(ShortcutConfig::defaultShortcut(), [&runs] { ++runs; });
        desktop->press();
    }
    QCoreApplication::processEvents();
    QCOMPARE(runs, 0);
}

void tst_HotKeyManager::destructionUnregisters() {
    auto backend = std::make_unique<RecordingBackend>();
    RecordingBackend* desktop = backend.get();
    int unregisterCalls = -1;
    bool wasActive = false;
    desktop->onDestruction = [&](const RecordingBackend& gone) {
        unregisterCalls = gone.unregisterCalls;
        wasActive = !gone.active.empty();
    };
    {
        HotKeyManager manager(std::move(backend));
        manager.update(ShortcutConfig::defaultShortcut(), [] {});
    }
    QCOMPARE(unregisterCalls, 1);
    QVERIFY(!wasActive);
}

void tst_HotKeyManager::destructionWithoutRegistrationUnregistersNothing() {
    auto backend = std::make_unique<RecordingBackend>();
    RecordingBackend* desktop = backend.get();
    int unregisterCalls = -1;
    desktop->onDestruction = [&](const RecordingBackend& gone) {
        unregisterCalls = gone.unregisterCalls;
    };
    { HotKeyManager manager(std::move(backend)); }
    QCOMPARE(unregisterCalls, 0);
}

void tst_HotKeyManager::offscreenGetsABackendThatRuns() {
    // Neither X11 nor Wayland: the manager still works, the key just never fires.
    QCOMPARE(QGuiApplication::platformName(), QStringLiteral("offscreen"));
    int runs = 0;
    {
        HotKeyManager manager;
        manager.update(ShortcutConfig::defaultShortcut(), [&runs] { ++runs; });
        manager.update(std::nullopt, [&runs] { ++runs; });
        QCoreApplication::processEvents();
    }
    QCOMPARE(runs, 0);
}

void tst_HotKeyManager::keySyms() {
    QCOMPARE(KeySymTable::keysym(Qt::Key_R), std::optional<std::uint32_t>(0x72)); // r
    QCOMPARE(KeySymTable::name(Qt::Key_R), QStringLiteral("r"));
    QCOMPARE(KeySymTable::keysym(Qt::Key_0), std::optional<std::uint32_t>(0x30));
    QCOMPARE(KeySymTable::name(Qt::Key_1), QStringLiteral("1"));
    QCOMPARE(KeySymTable::keysym(Qt::Key_F1), std::optional<std::uint32_t>(0xffbe));
    QCOMPARE(KeySymTable::name(Qt::Key_F12), QStringLiteral("F12"));
    QCOMPARE(KeySymTable::keysym(Qt::Key_F15), std::optional<std::uint32_t>(0xffcc));
    QCOMPARE(KeySymTable::name(Qt::Key_Return), QStringLiteral("Return"));
    QCOMPARE(KeySymTable::keysym(Qt::Key_Backspace), std::optional<std::uint32_t>(0xff08));
    QCOMPARE(KeySymTable::name(Qt::Key_Backspace), QStringLiteral("BackSpace"));
    QCOMPARE(KeySymTable::keysym(Qt::Key_Delete), std::optional<std::uint32_t>(0xffff));
    QCOMPARE(KeySymTable::name(Qt::Key_Escape), QStringLiteral("Escape"));
    QCOMPARE(KeySymTable::name(Qt::Key_Up), QStringLiteral("Up"));
    QCOMPARE(KeySymTable::name(Qt::Key_PageUp), QStringLiteral("Page_Up"));
    QCOMPARE(KeySymTable::name(Qt::Key_QuoteLeft), QStringLiteral("grave"));
    QCOMPARE(KeySymTable::keysym(Qt::Key_QuoteLeft), std::optional<std::uint32_t>(0x60));
    QCOMPARE(KeySymTable::keysym(Qt::Key_unknown), std::nullopt);
    QCOMPARE(KeySymTable::name(Qt::Key_unknown), QString());
}

void tst_HotKeyManager::x11Modifiers() {
    // Ctrl, Alt (Mod1), Shift, Meta as Super (Mod4); the keypad flag is no X modifier.
    QCOMPARE(X11HotKeyBackend::x11Modifiers(Qt::ControlModifier | Qt::AltModifier),
             std::uint16_t(0x4 | 0x8));
    QCOMPARE(X11HotKeyBackend::x11Modifiers(Qt::ControlModifier | Qt::AltModifier |
                                            Qt::ShiftModifier | Qt::MetaModifier),
             std::uint16_t(0x4 | 0x8 | 0x1 | 0x40));
    QCOMPARE(X11HotKeyBackend::x11Modifiers(Qt::ShiftModifier | Qt::KeypadModifier),
             std::uint16_t(0x1));
    QCOMPARE(X11HotKeyBackend::x11Modifiers(Qt::NoModifier), std::uint16_t(0));
}

QTEST_MAIN(tst_HotKeyManager)
#include "tst_HotKeyManager.moc"
