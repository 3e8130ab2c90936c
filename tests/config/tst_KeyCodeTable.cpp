#include "config/KeyCodeTable.h"
#include "config/ShortcutConfig.h"

#include <QKeyEvent>
#include <QtTest>

using namespace Qt::StringLiterals;

class tst_KeyCodeTable : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void keys_data();
    void keys();
    void backtabIsTab();
    void unknownKeys();
    void everyCodeRoundTrips();
    void modifierFlags();
    void otherModifiersDropped();
    void qtModifiers();
    void qtModifiersReadsOnlyFourBits();
    void physicalKeys_data();
    void physicalKeys();
    void everyPhysicalKeyCanBeRegistered();
    void keysWithoutAPlaceOfTheirOwn();
    void anEventNamesItsPhysicalKey();
    void anEventWithoutAPhysicalKeyNamesItsKey();
    void displayText_data();
    void displayText();
};

void tst_KeyCodeTable::keys_data() {
    QTest::addColumn<int>("qtKey");
    QTest::addColumn<int>("code");
    QTest::newRow("A") << int(Qt::Key_A) << 0;
    QTest::newRow("S") << int(Qt::Key_S) << 1;
    QTest::newRow("B") << int(Qt::Key_B) << 11;
    QTest::newRow("R") << int(Qt::Key_R) << 15;
    QTest::newRow("K") << int(Qt::Key_K) << 40;
    QTest::newRow("M") << int(Qt::Key_M) << 46;
    QTest::newRow("Z") << int(Qt::Key_Z) << 6;
    QTest::newRow("0") << int(Qt::Key_0) << 29;
    QTest::newRow("1") << int(Qt::Key_1) << 18;
    QTest::newRow("5") << int(Qt::Key_5) << 23;
    QTest::newRow("6") << int(Qt::Key_6) << 22;
    QTest::newRow("9") << int(Qt::Key_9) << 25;
    QTest::newRow("F1") << int(Qt::Key_F1) << 122;
    QTest::newRow("F2") << int(Qt::Key_F2) << 120;
    QTest::newRow("F5") << int(Qt::Key_F5) << 96;
    QTest::newRow("F10") << int(Qt::Key_F10) << 109;
    QTest::newRow("F12") << int(Qt::Key_F12) << 111;
    QTest::newRow("F13") << int(Qt::Key_F13) << 105;
    QTest::newRow("F15") << int(Qt::Key_F15) << 113;
    QTest::newRow("Left") << int(Qt::Key_Left) << 123;
    QTest::newRow("Right") << int(Qt::Key_Right) << 124;
    QTest::newRow("Down") << int(Qt::Key_Down) << 125;
    QTest::newRow("Up") << int(Qt::Key_Up) << 126;
    QTest::newRow("Delete (backspace)") << int(Qt::Key_Backspace) << 51;
    QTest::newRow("Escape") << int(Qt::Key_Escape) << 53;
    QTest::newRow("Forward Delete") << int(Qt::Key_Delete) << 117;
    QTest::newRow("Return") << int(Qt::Key_Return) << 36;
    QTest::newRow("Tab") << int(Qt::Key_Tab) << 48;
    QTest::newRow("Space") << int(Qt::Key_Space) << 49;
    QTest::newRow("Home") << int(Qt::Key_Home) << 115;
    QTest::newRow("End") << int(Qt::Key_End) << 119;
    QTest::newRow("PageUp") << int(Qt::Key_PageUp) << 116;
    QTest::newRow("PageDown") << int(Qt::Key_PageDown) << 121;
    QTest::newRow("Equal") << int(Qt::Key_Equal) << 24;
    QTest::newRow("Minus") << int(Qt::Key_Minus) << 27;
    QTest::newRow("[") << int(Qt::Key_BracketLeft) << 33;
    QTest::newRow("]") << int(Qt::Key_BracketRight) << 30;
    QTest::newRow("'") << int(Qt::Key_Apostrophe) << 39;
    QTest::newRow(";") << int(Qt::Key_Semicolon) << 41;
    QTest::newRow("\\") << int(Qt::Key_Backslash) << 42;
    QTest::newRow(",") << int(Qt::Key_Comma) << 43;
    QTest::newRow("/") << int(Qt::Key_Slash) << 44;
    QTest::newRow(".") << int(Qt::Key_Period) << 47;
    QTest::newRow("`") << int(Qt::Key_QuoteLeft) << 50;
}

void tst_KeyCodeTable::keys() {
    QFETCH(int, qtKey);
    QFETCH(int, code);
    QCOMPARE(KeyCodeTable::keyCode(qtKey), std::optional<std::uint16_t>(code));
    QCOMPARE(KeyCodeTable::qtKey(static_cast<std::uint16_t>(code)), std::optional<int>(qtKey));
}

void tst_KeyCodeTable::backtabIsTab() {
    QCOMPARE(KeyCodeTable::keyCode(Qt::Key_Backtab), std::optional<std::uint16_t>(48));
}

void tst_KeyCodeTable::unknownKeys() {
    QCOMPARE(KeyCodeTable::keyCode(Qt::Key_Shift), std::nullopt);
    QCOMPARE(KeyCodeTable::keyCode(Qt::Key_VolumeUp), std::nullopt);
    QCOMPARE(KeyCodeTable::qtKey(10), std::nullopt); // the ISO section key has no Qt key
    QCOMPARE(KeyCodeTable::qtKey(52), std::nullopt);
    QCOMPARE(KeyCodeTable::qtKey(0xFFFF), std::nullopt);
}

void tst_KeyCodeTable::everyCodeRoundTrips() {
    int known = 0;
    for (int code = 0; code <= 0xFFFF; ++code) {
        const std::optional<int> key = KeyCodeTable::qtKey(static_cast<std::uint16_t>(code));
        if (!key)
            continue;
        ++known;
        QCOMPARE(KeyCodeTable::keyCode(*key), std::optional<std::uint16_t>(code));
    }
    QVERIFY(known >= 75);
}

void tst_KeyCodeTable::modifierFlags() {
    QCOMPARE(KeyCodeTable::modifierFlags(Qt::ControlModifier), ShortcutConfig::CommandFlag);
    QCOMPARE(KeyCodeTable::modifierFlags(Qt::AltModifier), ShortcutConfig::OptionFlag);
    QCOMPARE(KeyCodeTable::modifierFlags(Qt::ShiftModifier), ShortcutConfig::ShiftFlag);
    QCOMPARE(KeyCodeTable::modifierFlags(Qt::MetaModifier), ShortcutConfig::ControlFlag);
    QCOMPARE(KeyCodeTable::modifierFlags(Qt::ControlModifier | Qt::AltModifier),
             std::uint64_t(0x180000));
    QCOMPARE(KeyCodeTable::modifierFlags(Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier |
                                         Qt::MetaModifier),
             std::uint64_t(0x1E0000));
    QCOMPARE(KeyCodeTable::modifierFlags(Qt::NoModifier), std::uint64_t(0));
}

void tst_KeyCodeTable::otherModifiersDropped() {
    QCOMPARE(KeyCodeTable::modifierFlags(Qt::KeypadModifier | Qt::GroupSwitchModifier |
                                         Qt::ControlModifier),
             ShortcutConfig::CommandFlag);
}

void tst_KeyCodeTable::qtModifiers() {
    QCOMPARE(KeyCodeTable::qtModifiers(0x100000), Qt::KeyboardModifiers(Qt::ControlModifier));
    QCOMPARE(KeyCodeTable::qtModifiers(0x80000), Qt::KeyboardModifiers(Qt::AltModifier));
    QCOMPARE(KeyCodeTable::qtModifiers(0x20000), Qt::KeyboardModifiers(Qt::ShiftModifier));
    QCOMPARE(KeyCodeTable::qtModifiers(0x40000), Qt::KeyboardModifiers(Qt::MetaModifier));
    QCOMPARE(KeyCodeTable::qtModifiers(0x180000), Qt::ControlModifier | Qt::AltModifier);
    QCOMPARE(KeyCodeTable::qtModifiers(0x1E0000),
             Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier | Qt::MetaModifier);
}

void tst_KeyCodeTable::qtModifiersReadsOnlyFourBits() {
    // Caps Lock (0x10000) and device bits (0x100, 0x800000) from a hand-edited file are ignored.
    QCOMPARE(KeyCodeTable::qtModifiers(0x10000 | 0x100 | 0x800000), Qt::KeyboardModifiers());
    QCOMPARE(KeyCodeTable::qtModifiers(0x10000 | 0x100000),
             Qt::KeyboardModifiers(Qt::ControlModifier));
}

void tst_KeyCodeTable::physicalKeys_data() {
    // XKB keycodes are the Linux evdev codes + 8; the codes name keys by their place on the
    // keyboard, as the US layout prints them.
    QTest::addColumn<uint>("xkbKeycode");
    QTest::addColumn<int>("code");
    QTest::newRow("Escape") << 9U << 53;
    QTest::newRow("1") << 10U << 18;
    QTest::newRow("0") << 19U << 29;
    QTest::newRow("Backspace") << 22U << 51;
    QTest::newRow("Tab") << 23U << 48;
    QTest::newRow("Q") << 24U << 12;
    QTest::newRow("R") << 27U << 15;
    QTest::newRow("Return") << 36U << 36;
    QTest::newRow("A") << 38U << 0;
    QTest::newRow("K") << 45U << 40;
    QTest::newRow(";") << 47U << 41;
    QTest::newRow("`") << 49U << 50;
    QTest::newRow("Z") << 52U << 6;
    QTest::newRow("/") << 61U << 44;
    QTest::newRow("Space") << 65U << 49;
    QTest::newRow("F1") << 67U << 122;
    QTest::newRow("F10") << 76U << 109;
    QTest::newRow("F12") << 96U << 111;
    QTest::newRow("Keypad Enter") << 104U << 76;
    QTest::newRow("Up") << 111U << 126;
    QTest::newRow("Forward Delete") << 119U << 117;
    QTest::newRow("F15") << 193U << 113;
}

void tst_KeyCodeTable::physicalKeys() {
    QFETCH(uint, xkbKeycode);
    QFETCH(int, code);
    QCOMPARE(KeyCodeTable::keyCodeForXkbKeycode(xkbKeycode), std::optional<std::uint16_t>(code));
}

void tst_KeyCodeTable::everyPhysicalKeyCanBeRegistered() {
    // Whatever the recorder takes from a physical key, the hot key can turn back into a key; and
    // no two places share a code.
    QSet<std::uint16_t> seen;
    for (std::uint32_t keycode = 0; keycode < 256; ++keycode) {
        const auto code = KeyCodeTable::keyCodeForXkbKeycode(keycode);
        if (!code)
            continue;
        QVERIFY2(KeyCodeTable::qtKey(*code).has_value(), qPrintable(QString::number(keycode)));
        QVERIFY2(!seen.contains(*code), qPrintable(QString::number(*code)));
        seen.insert(*code);
    }
    QCOMPARE(seen.size(), 78);
}

void tst_KeyCodeTable::keysWithoutAPlaceOfTheirOwn() {
    QCOMPARE(KeyCodeTable::keyCodeForXkbKeycode(0), std::nullopt);
    QCOMPARE(KeyCodeTable::keyCodeForXkbKeycode(37), std::nullopt);  // Control
    QCOMPARE(KeyCodeTable::keyCodeForXkbKeycode(50), std::nullopt);  // Shift
    QCOMPARE(KeyCodeTable::keyCodeForXkbKeycode(87), std::nullopt);  // keypad 1
    QCOMPARE(KeyCodeTable::keyCodeForXkbKeycode(123), std::nullopt); // volume up
}

void tst_KeyCodeTable::anEventNamesItsPhysicalKey() {
    // The K key under Russian, Greek and Hebrew layouts, and the Q key of a French one, which
    // types "a": the place counts, not the letter.
    const QKeyEvent russian(QEvent::KeyPress, 0x41B, Qt::ControlModifier | Qt::AltModifier, 45,
                            0x6cb, 0, u"л"_s);
    QCOMPARE(KeyCodeTable::keyCode(russian), std::optional<std::uint16_t>(40));
    const QKeyEvent greek(QEvent::KeyPress, 0x39A, Qt::ControlModifier, 45, 0x7ea, 0, u"κ"_s);
    QCOMPARE(KeyCodeTable::keyCode(greek), std::optional<std::uint16_t>(40));
    const QKeyEvent hebrew(QEvent::KeyPress, 0x5DC, Qt::ControlModifier, 45, 0xcec, 0, u"ל"_s);
    QCOMPARE(KeyCodeTable::keyCode(hebrew), std::optional<std::uint16_t>(40));
    const QKeyEvent french(QEvent::KeyPress, Qt::Key_A, Qt::ControlModifier, 24, 0x61, 0, u"a"_s);
    QCOMPARE(KeyCodeTable::keyCode(french), std::optional<std::uint16_t>(12));
}

void tst_KeyCodeTable::anEventWithoutAPhysicalKeyNamesItsKey() {
    // Synthetic events carry no keycode; keypad and modifier keys have no place of their own.
    const QKeyEvent synthetic(QEvent::KeyPress, Qt::Key_K, Qt::ControlModifier);
    QCOMPARE(KeyCodeTable::keyCode(synthetic), std::optional<std::uint16_t>(40));
    const QKeyEvent exclamation(QEvent::KeyPress, Qt::Key_Exclam, Qt::ShiftModifier);
    QCOMPARE(KeyCodeTable::keyCode(exclamation), std::optional<std::uint16_t>(18));
    const QKeyEvent keypad(QEvent::KeyPress, Qt::Key_1, Qt::KeypadModifier, 87, 0xffb1, 0, u"1"_s);
    QCOMPARE(KeyCodeTable::keyCode(keypad), std::optional<std::uint16_t>(18));
    const QKeyEvent control(QEvent::KeyPress, Qt::Key_Control, Qt::ControlModifier, 37, 0xffe3, 0);
    QCOMPARE(KeyCodeTable::keyCode(control), std::nullopt);
    const QKeyEvent cyrillic(QEvent::KeyPress, 0x416, Qt::ControlModifier, u"Ж"_s);
    QCOMPARE(KeyCodeTable::keyCode(cyrillic), std::nullopt);
}

void tst_KeyCodeTable::displayText_data() {
    QTest::addColumn<uint>("keyCode");
    QTest::addColumn<qulonglong>("flags");
    QTest::addColumn<QString>("displayKey");
    QTest::addColumn<QString>("expected");
    // Linux and Windows name the keys as the platform does; the symbols are macOS's.
    QTest::newRow("default") << 15U << 0x180000ULL << u"R"_s << u"Ctrl+Alt+R"_s;
    QTest::newRow("recorded under Russian") << 40U << 0x180000ULL << u"Л"_s << u"Ctrl+Alt+K"_s;
    QTest::newRow("all four") << 40U << 0x1E0000ULL << u"K"_s << u"Meta+Ctrl+Alt+Shift+K"_s;
    QTest::newRow("control") << 40U << 0x40000ULL << u"K"_s << u"Meta+K"_s;
    QTest::newRow("no modifier") << 96U << 0ULL << u"F5"_s << u"F5"_s;
    QTest::newRow("shifted symbol") << 18U << 0x120000ULL << u"!"_s << u"Ctrl+Shift+1"_s;
    QTest::newRow("space") << 49U << 0x100000ULL << u"SPACE"_s << u"Ctrl+Space"_s;
    QTest::newRow("other bits") << 40U << (0x180000ULL | 0x10000 | 0x100) << u"K"_s
                                << u"Ctrl+Alt+K"_s;
    // A code this table does not know, from a file written elsewhere: the recorded label.
    QTest::newRow("unknown code") << 10U << 0x100000ULL << u"§"_s << u"Ctrl+§"_s;
}

void tst_KeyCodeTable::displayText() {
    QFETCH(uint, keyCode);
    QFETCH(qulonglong, flags);
    QFETCH(QString, displayKey);
    QFETCH(QString, expected);
    const ShortcutConfig shortcut{std::uint16_t(keyCode), flags, displayKey};
    QCOMPARE(KeyCodeTable::displayText(shortcut), expected);
}

QTEST_MAIN(tst_KeyCodeTable)
#include "tst_KeyCodeTable.moc"
