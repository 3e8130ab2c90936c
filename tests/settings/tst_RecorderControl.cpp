#include "config/KeyCodeTable.h"
#include "settings/RecorderControl.h"

#include <QAccessible>
#include <QAction>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

using Shortcut = std::optional<ShortcutConfig>;

class tst_RecorderControl : public QObject {
    Q_OBJECT

    QWidget* m_window = nullptr;
    RecorderControl* m_recorder = nullptr;
    QLineEdit* m_other = nullptr;
    QAction* m_quit = nullptr;

    QLabel* label() const { return m_recorder->findChild<QLabel*>(u"recorderLabel"_s); }
    QColor labelColour() const { return label()->palette().color(QPalette::WindowText); }
    QImage picture() const { return m_recorder->grab().toImage(); }
    void click() { QTest::mouseClick(m_recorder, Qt::LeftButton); }
    QList<Shortcut> reported(const QSignalSpy& spy) const {
        QList<Shortcut> values;
        for (const QList<QVariant>& arguments : spy)
            values.append(arguments.at(0).value<Shortcut>());
        return values;
    }

private Q_SLOTS:
    void init() {
        // A window with the recorder, a text field to move the focus to, and a Ctrl+Q command
        // that must not fire while recording.
        m_window = new QWidget();
        auto* layout = new QHBoxLayout(m_window);
        m_recorder = new RecorderControl(m_window);
        layout->addWidget(m_recorder);
        m_other = new QLineEdit(m_window);
        layout->addWidget(m_other);
        m_quit = new QAction(u"Quit"_s, m_window);
        m_quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
        m_window->addAction(m_quit);
        m_recorder->setShortcut(ShortcutConfig::defaultShortcut());
        m_window->show();
        QVERIFY(QTest::qWaitForWindowActive(m_window));
        // The recorder comes first in the focus chain; the tests start with it unfocused.
        m_other->setFocus();
        QVERIFY(m_other->hasFocus());
    }

    void cleanup() {
        delete m_window;
        m_window = nullptr;
    }

    void itsPreferredSizeIsFixed() {
        QCOMPARE(m_recorder->sizeHint(), QSize(160, 28));
        QCOMPARE(m_recorder->size(), QSize(160, 28));
        m_recorder->setShortcut(ShortcutConfig{40, 0x1E0000, QString(200, u'W')});
        QCOMPARE(m_recorder->sizeHint(), QSize(160, 28));
        m_window->adjustSize();
        QCOMPARE(m_recorder->size(), QSize(160, 28));
        // The label stays 8 points inside each side.
        QVERIFY(label()->geometry().left() >= 8);
        QVERIFY(label()->geometry().right() <= 160 - 8);
    }

    void idleShowsTheShortcutOrAnInvitation() {
        const QPalette colours = m_recorder->palette();
        QCOMPARE(label()->text(), u"Ctrl+Alt+R"_s);
        QCOMPARE(labelColour(), colours.color(QPalette::Text));
        m_recorder->setShortcut(std::nullopt);
        QCOMPARE(label()->text(), u"Click to record"_s);
        QCOMPARE(labelColour(), colours.color(QPalette::PlaceholderText));
        const QImage image = picture();
        QCOMPARE(image.pixel(80, 0), colours.color(QPalette::Mid).rgba());
        QCOMPARE(image.pixel(4, 14), colours.color(QPalette::Base).rgba());
    }

    void recordingUsesTheAccentColour() {
        click();
        QVERIFY(m_recorder->isRecording());
        QVERIFY(m_recorder->hasFocus());
        QCOMPARE(label()->text(), u"Type shortcut\u2026"_s);
        const QColor accent = m_recorder->palette().color(QPalette::Highlight);
        QCOMPARE(labelColour(), accent);
        const QImage image = picture();
        QCOMPARE(image.pixel(80, 0), accent.rgba());
        // A faint wash of the accent over the window's background.
        const QColor window = m_recorder->palette().color(QPalette::Window);
        const QColor wash = image.pixelColor(4, 14);
        QVERIFY(wash != window);
        QVERIFY(qAbs(wash.red() - (window.red() * 0.92 + accent.red() * 0.08)) <= 2);
    }

    void aCombinationWithModifiersIsRecorded() {
        QSignalSpy changed(m_recorder, &RecorderControl::changed);
        click();
        QTest::keyClick(m_recorder, Qt::Key_K, Qt::ControlModifier | Qt::AltModifier);
        const ShortcutConfig expected{40, 0x180000, u"K"_s};
        QCOMPARE(reported(changed), QList<Shortcut>{expected});
        QCOMPARE(m_recorder->shortcut(), expected);
        QCOMPARE(label()->text(), u"Ctrl+Alt+K"_s);
        QCOMPARE(labelColour(), m_recorder->palette().color(QPalette::Text));
        QVERIFY(!m_recorder->isRecording());
    }

    void aKeyWithoutModifiersIsIgnored() {
        QSignalSpy changed(m_recorder, &RecorderControl::changed);
        click();
        QTest::keyClick(m_recorder, Qt::Key_K);
        QVERIFY(m_recorder->isRecording());
        QCOMPARE(label()->text(), u"Type shortcut…"_s);
        QCOMPARE(changed.count(), 0);
        QCOMPARE(m_recorder->shortcut(), ShortcutConfig::defaultShortcut());
    }

    void escapeCancels() {
        QSignalSpy changed(m_recorder, &RecorderControl::changed);
        click();
        QTest::keyClick(m_recorder, Qt::Key_Escape);
        QVERIFY(!m_recorder->isRecording());
        QCOMPARE(label()->text(), u"Ctrl+Alt+R"_s);
        QCOMPARE(changed.count(), 0);
    }

    void backspaceAndDeleteClear_data() {
        QTest::addColumn<int>("key");
        QTest::newRow("Backspace (51)") << int(Qt::Key_Backspace);
        QTest::newRow("Delete (117)") << int(Qt::Key_Delete);
    }

    void backspaceAndDeleteClear() {
        QFETCH(int, key);
        QSignalSpy changed(m_recorder, &RecorderControl::changed);
        click();
        QTest::keyClick(m_recorder, Qt::Key(key));
        QCOMPARE(reported(changed), QList<Shortcut>{std::nullopt});
        QCOMPARE(m_recorder->shortcut(), std::nullopt);
        QCOMPARE(label()->text(), u"Click to record"_s);
        QVERIFY(!m_recorder->isRecording());
    }

    void ctrlQIsRecordedInsteadOfQuitting() {
        QSignalSpy quit(m_quit, &QAction::triggered);
        // Outside recording the command works.
        QTest::keyClick(m_other, Qt::Key_Q, Qt::ControlModifier);
        QCOMPARE(quit.count(), 1);

        click();
        QTest::keyClick(m_recorder, Qt::Key_Q, Qt::ControlModifier);
        QCOMPARE(quit.count(), 1);
        QCOMPARE(m_recorder->shortcut(), (ShortcutConfig{12, 0x100000, u"Q"_s}));
        QCOMPARE(label()->text(), u"Ctrl+Q"_s);
    }

    void lockAndKeypadStatesAreDropped() {
        click();
        // Caps Lock on: the text is upper case and the native state carries the lock bit.
        QKeyEvent capsA(QEvent::KeyPress, Qt::Key_A, Qt::ControlModifier, 38, 'A', 0x2 | 0x4,
                        u"A"_s);
        QApplication::sendEvent(m_recorder, &capsA);
        QCOMPARE(m_recorder->shortcut(), (ShortcutConfig{0, 0x100000, u"A"_s}));

        click();
        QTest::keyClick(m_recorder, Qt::Key_1, Qt::ControlModifier | Qt::KeypadModifier);
        QCOMPARE(m_recorder->shortcut(), (ShortcutConfig{18, 0x100000, u"1"_s}));
    }

    void shiftAloneIsEnough() {
        click();
        QTest::keyClick(m_recorder, Qt::Key_A, Qt::ShiftModifier);
        QCOMPARE(m_recorder->shortcut(), (ShortcutConfig{0, 0x20000, u"A"_s}));
        QCOMPARE(label()->text(), u"Shift+A"_s);
    }

    void metaIsTheControlBit() {
        click();
        QTest::keyClick(m_recorder, Qt::Key_K, Qt::MetaModifier | Qt::ShiftModifier);
        QCOMPARE(m_recorder->shortcut(), (ShortcutConfig{40, 0x60000, u"K"_s}));
        QCOMPARE(label()->text(), u"Meta+Shift+K"_s);
    }

    void aShiftedSymbolKeepsItsKey() {
        // Shift+1 arrives as "!"; the key is still the 1 key.
        click();
        QTest::keyClick(m_recorder, Qt::Key_Exclam, Qt::ShiftModifier | Qt::ControlModifier);
        QCOMPARE(m_recorder->shortcut(), (ShortcutConfig{18, 0x120000, u"!"_s}));
        // Shown as the keys pressed; the record keeps the character it typed.
        QCOMPARE(label()->text(), u"Ctrl+Shift+1"_s);
    }

    void namedKeysAreLabelledByName() {
        click();
        QTest::keyClick(m_recorder, Qt::Key_F5, Qt::AltModifier);
        QCOMPARE(m_recorder->shortcut(), (ShortcutConfig{96, 0x80000, u"F5"_s}));
        click();
        QTest::keyClick(m_recorder, Qt::Key_Space, Qt::ControlModifier);
        QCOMPARE(m_recorder->shortcut(), (ShortcutConfig{49, 0x100000, u"SPACE"_s}));
        click();
        QTest::keyClick(m_recorder, Qt::Key_Backtab, Qt::ShiftModifier | Qt::ControlModifier);
        QCOMPARE(m_recorder->shortcut(), (ShortcutConfig{48, 0x120000, u"TAB"_s}));
    }

    void aKeyWithoutNameIsLabelledWithAQuestionMark() {
        QCOMPARE(RecorderControl::keyLabel(Qt::Key_unknown), u"?"_s);
        QCOMPARE(RecorderControl::keyLabel(Qt::Key_K), u"K"_s);
    }

    void modifierKeysOnTheirOwnAreIgnored() {
        QSignalSpy changed(m_recorder, &RecorderControl::changed);
        click();
        QTest::keyPress(m_recorder, Qt::Key_Control, Qt::ControlModifier);
        QTest::keyPress(m_recorder, Qt::Key_Alt, Qt::ControlModifier | Qt::AltModifier);
        QTest::keyPress(m_recorder, Qt::Key_Shift, Qt::ShiftModifier);
        QTest::keyPress(m_recorder, Qt::Key_Meta, Qt::MetaModifier);
        QVERIFY(m_recorder->isRecording());
        QCOMPARE(changed.count(), 0);
    }

    void keysWithoutAKeyCodeAreIgnored() {
        QSignalSpy changed(m_recorder, &RecorderControl::changed);
        click();
        // QTest cannot type keys without an ASCII form; these come as the platform sends them.
        QKeyEvent volume(QEvent::KeyPress, Qt::Key_VolumeUp, Qt::ControlModifier | Qt::AltModifier,
                         123, 0x1008ff13, 0);
        QApplication::sendEvent(m_recorder, &volume);
        // A letter of no place: nothing tells which key it was.
        QKeyEvent zhe(QEvent::KeyPress, 0x416, Qt::ControlModifier, u"Ж"_s);
        QApplication::sendEvent(m_recorder, &zhe);
        QVERIFY(m_recorder->isRecording());
        QCOMPARE(changed.count(), 0);
    }

    void anyLayoutRecordsThePhysicalKey_data() {
        // As X11 and Wayland send them: the key's XKB keycode, its keysym, the layout's letter.
        QTest::addColumn<int>("qtKey");
        QTest::addColumn<uint>("xkbKeycode");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("expectedLabel");
        QTest::newRow("Russian K key") << 0x41B << 45U << u"л"_s << 40 << u"Л"_s;
        QTest::newRow("Russian ; key") << 0x416 << 47U << u"ж"_s << 41 << u"Ж"_s;
        QTest::newRow("Greek K key") << 0x39A << 45U << u"κ"_s << 40 << u"Κ"_s;
        QTest::newRow("Hebrew K key") << 0x5DC << 45U << u"ל"_s << 40 << u"ל"_s;
        QTest::newRow("French Q key") << int(Qt::Key_A) << 24U << u"a"_s << 12 << u"A"_s;
        // With Ctrl the platform may send a control character: the key's name then.
        QTest::newRow("US K key") << int(Qt::Key_K) << 45U << u"\x0b"_s << 40 << u"K"_s;
    }

    void anyLayoutRecordsThePhysicalKey() {
        QFETCH(int, qtKey);
        QFETCH(uint, xkbKeycode);
        QFETCH(QString, text);
        QFETCH(int, code);
        QFETCH(QString, expectedLabel);
        QSignalSpy changed(m_recorder, &RecorderControl::changed);
        click();
        QKeyEvent press(QEvent::KeyPress, qtKey, Qt::ControlModifier | Qt::AltModifier, xkbKeycode,
                        0, 0, text);
        QApplication::sendEvent(m_recorder, &press);
        const ShortcutConfig expected{std::uint16_t(code), 0x180000, expectedLabel};
        QCOMPARE(reported(changed), QList<Shortcut>{expected});
        QVERIFY(!m_recorder->isRecording());
        // Shown by the key's place, as the hot key will be registered.
        QCOMPARE(label()->text(),
                 u"Ctrl+Alt+"_s + QKeySequence(*KeyCodeTable::qtKey(std::uint16_t(code)))
                                      .toString(QKeySequence::NativeText));
    }

    void tabReachesTheFieldAndSpaceStartsRecording() {
        QSignalSpy changed(m_recorder, &RecorderControl::changed);
        QTest::keyClick(m_other, Qt::Key_Backtab, Qt::ShiftModifier);
        QVERIFY(m_recorder->hasFocus());
        QVERIFY(!m_recorder->isRecording());
        // The focus shows: the outline takes the accent colour.
        const QColor accent = m_recorder->palette().color(QPalette::Highlight);
        QCOMPARE(picture().pixelColor(80, 1), accent);
        QTest::keyClick(m_recorder, Qt::Key_Space);
        QVERIFY(m_recorder->isRecording());
        QCOMPARE(label()->text(), u"Type shortcut…"_s);
        QTest::keyClick(m_recorder, Qt::Key_J, Qt::ControlModifier | Qt::ShiftModifier);
        const ShortcutConfig recorded{38, 0x120000, u"J"_s};
        QCOMPARE(reported(changed), QList<Shortcut>{recorded});
        // Space again starts another recording; Escape leaves the field as it was.
        QTest::keyClick(m_recorder, Qt::Key_Space);
        QVERIFY(m_recorder->isRecording());
        QTest::keyClick(m_recorder, Qt::Key_Escape);
        QVERIFY(!m_recorder->isRecording());
        QCOMPARE(label()->text(), u"Ctrl+Shift+J"_s);
    }

    void aScreenReaderHearsTheFieldsValue() {
        QAccessibleInterface* field = QAccessible::queryAccessibleInterface(m_recorder);
        QVERIFY(field);
        QCOMPARE(field->text(QAccessible::Description), u"Ctrl+Alt+R"_s);
        click();
        QCOMPARE(field->text(QAccessible::Description), u"Type shortcut…"_s);
        QTest::keyClick(m_recorder, Qt::Key_Delete);
        QCOMPARE(field->text(QAccessible::Description), u"Click to record"_s);
    }

    void clickingTwiceStartsAndCancels() {
        QSignalSpy changed(m_recorder, &RecorderControl::changed);
        click();
        QVERIFY(m_recorder->isRecording());
        click();
        QVERIFY(!m_recorder->isRecording());
        QCOMPARE(label()->text(), u"Ctrl+Alt+R"_s);
        QCOMPARE(changed.count(), 0);
    }

    void losingTheFocusCancels() {
        QSignalSpy changed(m_recorder, &RecorderControl::changed);
        click();
        QTest::mouseClick(m_other, Qt::LeftButton);
        QVERIFY(m_other->hasFocus());
        QVERIFY(!m_recorder->isRecording());
        QCOMPARE(label()->text(), u"Ctrl+Alt+R"_s);
        QCOMPARE(changed.count(), 0);
    }

    void keysReachOtherWidgetsOnlyWhenNotRecording() {
        click();
        // While recording, every key press of the application is taken.
        QTest::keyClicks(m_other, u"ab"_s);
        QCOMPARE(m_other->text(), QString());
        QTest::keyClick(m_recorder, Qt::Key_Escape);
        QTest::keyClicks(m_other, u"ab"_s);
        QCOMPARE(m_other->text(), u"ab"_s);
    }

    void hidingStopsRecording() {
        click();
        m_window->hide();
        QVERIFY(!m_recorder->isRecording());
        QTest::keyClicks(m_other, u"x"_s);
        QCOMPARE(m_other->text(), u"x"_s);
    }

    void hidingStopsRecordingAlsoInAnInactiveWindow() {
        QWidget other;
        other.show();
        other.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&other));
        click();
        QVERIFY(m_recorder->isRecording());
        m_window->hide();
        QVERIFY(!m_recorder->isRecording());
    }

    void aNewPaletteRecolours() {
        QPalette colours = m_recorder->palette();
        colours.setColor(QPalette::Text, Qt::darkGreen);
        m_recorder->setPalette(colours);
        QCOMPARE(labelColour(), QColor(Qt::darkGreen));
    }
};

QTEST_MAIN(tst_RecorderControl)
#include "tst_RecorderControl.moc"
