#include "app/hotkey/HotKeyBackend.h"
#include "app/hotkey/HotKeyManager.h"
#include "app/hotkey/KeySymTable.h"
#include "app/hotkey/portal/PortalHotKeyBackend.h"
#include "app/hotkey/x11/X11HotKeyBackend.h"

#include <QtTest>

#include <functional>
#include <vector>

namespace {

// Stands in for the desktop: records what is registered and can press the key. The real
// backends have their own tests against a real X server and a D-Bus portal.
class RecordingBackend : public HotKeyBackend {
public:
    std::vector<Registration> active;
    int registerCalls = 0;
    int unregisterCalls = 0;
    // Called as the backend goes, while its fields can still be read.
    std::function<void(const RecordingBackend&)> onDestruction;

    ~RecordingBackend() override {
        if (onDestruction)
            onDestruction(*this);
    }

    void registerHotKey(const Registration& registration) override {
        ++registerCalls;
        active.push_back(registration);
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

} // namespace

class tst_HotKeyManager : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void fourCC();
    void modifierMask_data();
    void modifierMask();
    void registersKeyCodeMaskAndIdentity();
    void allModifiersGiveFullMask();
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

void tst_HotKeyManager::fourCC() {
    QCOMPARE(HotKeyManager::fourCC(u"AB"), std::uint32_t(0x4142));
    QCOMPARE(HotKeyManager::fourCC(u""), std::uint32_t(0));
    QCOMPARE(HotKeyManager::fourCC(u"qlMr"), std::uint32_t(0x716c4d72));
    // Only the low 32 bits are kept: the first of five characters falls off the top.
    QCOMPARE(HotKeyManager::fourCC(u"XqlMr"), std::uint32_t(0x716c4d72));
}

void tst_HotKeyManager::modifierMask_data() {
    QTest::addColumn<quint64>("flags");
    QTest::addColumn<quint32>("mask");
    QTest::newRow("all four") << quint64(0x1E0000) << quint32(0x1B00);
    QTest::newRow("shift alone") << quint64(0x20000) << quint32(0x200);
    QTest::newRow("command") << quint64(0x100000) << quint32(0x100);
    QTest::newRow("option") << quint64(0x80000) << quint32(0x800);
    QTest::newRow("control") << quint64(0x40000) << quint32(0x1000);
    QTest::newRow("default option+command") << quint64(0x180000) << quint32(0x900);
    QTest::newRow("none") << quint64(0) << quint32(0);
    QTest::newRow("caps lock and device bits dropped")
        << quint64(0x10000 | 0x100 | 0x800000 | 0x100000) << quint32(0x100);
}

void tst_HotKeyManager::modifierMask() {
    QFETCH(quint64, flags);
    QFETCH(quint32, mask);
    QCOMPARE(HotKeyManager::modifierMask(flags), mask);
}

void tst_HotKeyManager::registersKeyCodeMaskAndIdentity() {
    auto backend = std::make_unique<RecordingBackend>();
    RecordingBackend* desktop = backend.get();
    HotKeyManager manager(std::move(backend));
    manager.update(ShortcutConfig::defaultShortcut(), [] {});
    QCOMPARE(desktop->active.size(), std::size_t(1));
    QCOMPARE(desktop->active[0].keyCode, std::uint16_t(15));
    QCOMPARE(desktop->active[0].modifierMask, std::uint32_t(0x900));
    QCOMPARE(desktop->active[0].signature, std::uint32_t(0x716c4d72));
    QCOMPARE(desktop->active[0].id, std::uint32_t(1));
}

void tst_HotKeyManager::allModifiersGiveFullMask() {
    auto backend = std::make_unique<RecordingBackend>();
    RecordingBackend* desktop = backend.get();
    HotKeyManager manager(std::move(backend));
    manager.update(shortcut(40, 0x1E0000, "K"), [] {});
    QCOMPARE(desktop->active.size(), std::size_t(1));
    QCOMPARE(desktop->active[0].modifierMask, std::uint32_t(0x1B00));
    manager.update(shortcut(0, 0x20000, "A"), [] {});
    QCOMPARE(desktop->active.size(), std::size_t(1));
    QCOMPARE(desktop->active[0].modifierMask, std::uint32_t(0x200));
    // A shortcut without any of the four modifiers still registers.
    manager.update(shortcut(96, 0, "F5"), [] {});
    QCOMPARE(desktop->active.size(), std::size_t(1));
    QCOMPARE(desktop->active[0].modifierMask, std::uint32_t(0));
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
    QCOMPARE(desktop->active[0].keyCode, std::uint16_t(40));
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
    QCOMPARE(KeySymTable::keysym(15), std::optional<std::uint32_t>(0x72)); // r
    QCOMPARE(KeySymTable::name(15), QStringLiteral("r"));
    QCOMPARE(KeySymTable::keysym(29), std::optional<std::uint32_t>(0x30)); // 0
    QCOMPARE(KeySymTable::name(18), QStringLiteral("1"));
    QCOMPARE(KeySymTable::keysym(122), std::optional<std::uint32_t>(0xffbe)); // F1
    QCOMPARE(KeySymTable::name(111), QStringLiteral("F12"));
    QCOMPARE(KeySymTable::keysym(113), std::optional<std::uint32_t>(0xffcc)); // F15
    QCOMPARE(KeySymTable::name(36), QStringLiteral("Return"));
    QCOMPARE(KeySymTable::keysym(51), std::optional<std::uint32_t>(0xff08));
    QCOMPARE(KeySymTable::name(51), QStringLiteral("BackSpace"));
    QCOMPARE(KeySymTable::keysym(117), std::optional<std::uint32_t>(0xffff));
    QCOMPARE(KeySymTable::name(53), QStringLiteral("Escape"));
    QCOMPARE(KeySymTable::name(126), QStringLiteral("Up"));
    QCOMPARE(KeySymTable::name(116), QStringLiteral("Page_Up"));
    QCOMPARE(KeySymTable::name(50), QStringLiteral("grave"));
    QCOMPARE(KeySymTable::keysym(50), std::optional<std::uint32_t>(0x60));
    QCOMPARE(KeySymTable::keysym(10), std::nullopt);
    QCOMPARE(KeySymTable::name(10), QString());
}

void tst_HotKeyManager::x11Modifiers() {
    // Command is Ctrl, option Alt (Mod1), shift Shift, control Super (Mod4).
    QCOMPARE(X11HotKeyBackend::x11Modifiers(0x900), std::uint16_t(0x4 | 0x8));
    QCOMPARE(X11HotKeyBackend::x11Modifiers(0x1B00), std::uint16_t(0x4 | 0x8 | 0x1 | 0x40));
    QCOMPARE(X11HotKeyBackend::x11Modifiers(0x200), std::uint16_t(0x1));
    QCOMPARE(X11HotKeyBackend::x11Modifiers(0), std::uint16_t(0));
}

QTEST_MAIN(tst_HotKeyManager)
#include "tst_HotKeyManager.moc"
