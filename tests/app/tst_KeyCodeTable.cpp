#include "app/KeyCodeTable.h"
#include "config/ShortcutConfig.h"

#include <QtTest>

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

QTEST_APPLESS_MAIN(tst_KeyCodeTable)
#include "tst_KeyCodeTable.moc"
