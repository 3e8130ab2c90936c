// The shortcut recorder of the settings window under real keyboard layouts: the X server's
// keyboard map is switched with setxkbmap, and the keys are pressed through XTest (xdotool) by
// their keycode, the physical key, as a person's keyboard sends them.
#include "ChildProcess.h"
#include "VirtualDesktop.h"
#include "config/AppConfig.h"
#include "config/Environment.h"
#include "settings/RecorderControl.h"
#include "settings/SettingsView.h"
#include "settings/SettingsViewModel.h"

#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QTabWidget>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

bool run(const QStringList& command) {
    return ChildProcess::run(command).exitCode == 0;
}

QString currentLayout() {
    const QString query =
        QString::fromUtf8(ChildProcess::run({u"setxkbmap"_s, u"-query"_s}).output);
    for (const QString& line : query.split(u'\n')) {
        if (line.startsWith(u"layout:"_s))
            return line.section(u':', 1).trimmed();
    }
    return {};
}

} // namespace

class tst_x11_KeyboardLayouts : public QObject {
    Q_OBJECT
public:
    static void initMain() { VirtualDesktop::startShared({.trayHost = false}); }

private:
    SettingsView* m_window = nullptr;

    RecorderControl* recorder() const {
        return m_window->findChild<RecorderControl*>(u"shortcutRecorder"_s);
    }
    QString shown() const { return recorder()->findChild<QLabel*>(u"recorderLabel"_s)->text(); }

private Q_SLOTS:
    void initTestCase() {
        QFile::remove(AppConfig::filePath());
        QVERIFY(run({u"setxkbmap"_s, u"us"_s}));
        m_window = new SettingsView(Environment().apiBase, Environment().webApp);
        m_window->findChild<QTabWidget*>(u"settingsTabs"_s)->setCurrentIndex(1);
        m_window->show();
        // No window manager: the window takes the keyboard itself.
        QVERIFY(QTest::qWaitForWindowExposed(m_window));
        m_window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_window));
    }

    void cleanupTestCase() {
        delete m_window;
        run({u"setxkbmap"_s, u"us"_s});
        QFile::remove(AppConfig::filePath());
    }

    void cleanup() {
        // Back to the US layout after every case, as the desktop was.
        QVERIFY(run({u"setxkbmap"_s, u"us"_s}));
        QCOMPARE(currentLayout(), u"us"_s);
    }

    void theKeyPressedIsRecorded_data() {
        QTest::addColumn<QString>("layout");
        QTest::addColumn<int>("keycode");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("text");
        // The K key (XKB keycode 45) under layouts without Latin letters: key code 40 whatever
        // letter it types, labelled with that letter.
        QTest::newRow("Russian") << u"ru"_s << 45 << 40 << u"Л"_s << u"Ctrl+Alt+K"_s;
        QTest::newRow("Greek") << u"gr"_s << 45 << 40 << u"Κ"_s << u"Ctrl+Alt+K"_s;
        QTest::newRow("Hebrew") << u"il"_s << 45 << 40 << u"ל"_s << u"Ctrl+Alt+K"_s;
        // The key where the US layout has Q types "a" in French: its place counts.
        QTest::newRow("French") << u"fr"_s << 24 << 12 << u"A"_s << u"Ctrl+Alt+Q"_s;
        QTest::newRow("US") << u"us"_s << 45 << 40 << u"K"_s << u"Ctrl+Alt+K"_s;
    }

    void theKeyPressedIsRecorded() {
        QFETCH(QString, layout);
        QFETCH(int, keycode);
        QFETCH(int, code);
        QFETCH(QString, label);
        QFETCH(QString, text);
        QVERIFY(run({u"setxkbmap"_s, layout}));
        QCOMPARE(currentLayout(), layout);

        // Recording starts from the keyboard too: the field has the focus, Space starts it.
        recorder()->setFocus();
        QVERIFY(recorder()->hasFocus());
        QVERIFY(run({u"xdotool"_s, u"key"_s, u"--clearmodifiers"_s, u"space"_s}));
        QTRY_VERIFY(recorder()->isRecording());
        // Ctrl and Alt with the key itself, named by its keycode, not by a letter.
        QVERIFY(
            run({u"xdotool"_s, u"key"_s, u"--clearmodifiers"_s, u"ctrl+alt+%1"_s.arg(keycode)}));
        QTRY_VERIFY(!recorder()->isRecording());
        const ShortcutConfig expected{std::uint16_t(code), 0x180000, label};
        QCOMPARE(recorder()->shortcut(), std::optional(expected));
        QCOMPARE(m_window->vm()->openMenuShortcut(), std::optional(expected));
        QCOMPARE(shown(), text);
    }
};

QTEST_MAIN(tst_x11_KeyboardLayouts)
#include "tst_x11_KeyboardLayouts.moc"
