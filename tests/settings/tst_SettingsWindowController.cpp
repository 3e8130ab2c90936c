#include "SettingsFixtures.h"
#include "TestHttpServer.h"
#include "app/tray/StatusItem.h"
#include "config/SettingsNotifier.h"
#include "settings/PinList.h"
#include "settings/PinRow.h"
#include "settings/RecorderControl.h"
#include "settings/SettingsView.h"
#include "settings/SettingsViewModel.h"
#include "settings/SettingsWindowController.h"

#include <QAction>
#include <QClipboard>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QTabWidget>
#include <QtTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace SettingsFixtures;

// One controller, with its one window, for the whole test: the functions below run in order and
// build on each other.
class tst_SettingsWindowController : public QObject {
    Q_OBJECT

    std::unique_ptr<TestHttpServer> m_server;
    std::unique_ptr<SettingsWindowController> m_controller;
    // A made-up token in the service's format, for the screenshots.
    const QString m_token = u"8d3f2c71-5b9e-4a06-9c4e-2f7d1b6a0e93"_s;
    const QByteArray m_file = R"({"token": "8d3f2c71-5b9e-4a06-9c4e-2f7d1b6a0e93",
        "pinned_collections": [3], "pinned_tags": ["news"]})";

    SettingsView* window() const { return m_controller->window(); }
    QMenuBar* mainMenu() const { return m_controller->mainMenu(); }
    template <typename T> T* find(const QString& name) const {
        T* widget = window()->findChild<T*>(name);
        if (!widget)
            qFatal("no widget %s", qPrintable(name));
        return widget;
    }
    QLineEdit* tokenField() const { return find<QLineEdit>(u"tokenField"_s); }
    QTabWidget* tabs() const { return find<QTabWidget>(u"settingsTabs"_s); }
    RecorderControl* recorder() const { return find<RecorderControl>(u"shortcutRecorder"_s); }
    QList<PinRow*> collectionRows() const { return find<PinList>(u"collectionsList"_s)->rows(); }
    PinRow* collectionRow(const QString& label) const {
        for (PinRow* row : collectionRows())
            if (row->label() == label)
                return row;
        qFatal("no row %s", qPrintable(label));
    }
    QAction* quitAction() const { return mainMenu()->findChild<QAction*>(u"quitAction"_s); }
    QAction* editCommand(const QString& title) const {
        for (QAction* action : mainMenu()->findChild<QMenu*>(u"editMenu"_s)->actions())
            if (action->text() == title)
                return action;
        qFatal("no command %s", qPrintable(title));
    }
    static int settingsWindows() {
        int count = 0;
        for (QWidget* widget : QApplication::topLevelWidgets())
            count += widget->objectName() == u"settingsWindow"_s ? 1 : 0;
        return count;
    }
    static QString screenshotPath(const QString& name) {
        const QString folder = QCoreApplication::applicationDirPath() + u"/screenshots"_s;
        QDir().mkpath(folder);
        return folder + u'/' + name;
    }

private Q_SLOTS:
    void initTestCase() {
        removeConfig();
        m_server = std::make_unique<TestHttpServer>();
        serveAccount(*m_server,
                     {{1, u"Inbox"_s, 0},
                      {2, u"Reading list"_s, 12},
                      {3, u"Work"_s, 42},
                      {4, u"Recipes"_s, 7},
                      {5, u"Travel"_s, 3}},
                     {{u"news"_s, 31},
                      {u"rust"_s, 17},
                      {u"design"_s, 9},
                      {u"later"_s, 4},
                      {u"unused"_s, 0}});
        writeConfig(m_file);
        // The service on the test server; the link shows the real web application, which the
        // tests never open.
        m_controller = std::make_unique<SettingsWindowController>(environmentFor(*m_server).apiBase,
                                                                  Environment().webApp);
    }

    void cleanupTestCase() {
        m_server.reset();
        removeConfig();
    }

    void thereIsNoWindowBeforeTheFirstShow() {
        QCOMPARE(window(), nullptr);
        QCOMPARE(settingsWindows(), 0);
    }

    void showMakesOneCentredWindowInFront() {
        m_controller->show();
        QVERIFY(window());
        QVERIFY(QTest::qWaitForWindowActive(window()));
        QCOMPARE(settingsWindows(), 1);
        QCOMPARE(window()->windowTitle(), u"Quillmar Settings"_s);
        const Qt::WindowFlags flags = window()->windowFlags();
        QVERIFY(flags.testFlag(Qt::WindowTitleHint));
        QVERIFY(flags.testFlag(Qt::WindowCloseButtonHint));
        QVERIFY(!flags.testFlag(Qt::WindowMinimizeButtonHint));
        QVERIFY(!flags.testFlag(Qt::WindowMaximizeButtonHint));
        QCOMPARE(window()->minimumSize(), QSize(500, 460));
        QCOMPARE(window()->maximumSize(), QSize(500, 460));
        QVERIFY(!window()->testAttribute(Qt::WA_DeleteOnClose));
        QCOMPARE(QApplication::activeWindow(), window());
        // The content is centred, not the frame around it.
        QCOMPARE(window()->geometry().center(), window()->screen()->availableGeometry().center());
        QVERIFY(window()->frameGeometry() != window()->geometry());
        // The drop in the title bar and the task bar.
        const QImage icon = window()->windowIcon().pixmap(32).toImage();
        QVERIFY(!icon.isNull());
        QCOMPARE(icon, StatusItem::dropIcon().pixmap(32).toImage());
        QVERIFY(mainMenu());
        // The account is loaded as the window comes on screen.
        QTRY_COMPARE(collectionRows().size(), 5);
    }

    void showingAgainReusesTheWindowAndRenewsTheMenu() {
        SettingsView* first = window();
        const QPointer<QMenuBar> firstMenu = mainMenu();
        m_controller->show();
        QCOMPARE(window(), first);
        QCOMPARE(settingsWindows(), 1);
        QVERIFY(mainMenu());
        QVERIFY(mainMenu() != firstMenu);
        QTRY_VERIFY(!firstMenu);
        QVERIFY(window()->isVisible());
        QCOMPARE(QApplication::activeWindow(), window());
    }

    void theMainMenuHasQuitAndEdit() {
        const QList<QAction*> menus = mainMenu()->actions();
        QCOMPARE(menus.size(), 2);
        QCOMPARE(menus[0]->menu()->title(), QString());
        QCOMPARE(menus[1]->menu()->title(), u"Edit"_s);
        const QList<QAction*> application = menus[0]->menu()->actions();
        QCOMPARE(application.size(), 1);
        QCOMPARE(application[0]->text(), u"Quit Quillmar"_s);
        QCOMPARE(application[0]->shortcut(), QKeySequence(u"Ctrl+Q"_s));
        QCOMPARE(application[0]->menuRole(), QAction::QuitRole);
        QStringList edit;
        for (QAction* action : menus[1]->menu()->actions())
            edit << action->text() + u' ' + action->shortcut().toString();
        QCOMPARE(edit, (QStringList{u"Cut Ctrl+X"_s, u"Copy Ctrl+C"_s, u"Paste Ctrl+V"_s,
                                    u"Select All Ctrl+A"_s}));
    }

    void ctrlVPastesIntoTheTokenField() {
        QApplication::clipboard()->setText(u"pasted-token"_s);
        QTest::mouseClick(tokenField(), Qt::LeftButton);
        QTest::keyClick(tokenField(), Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(tokenField(), Qt::Key_V, Qt::ControlModifier);
        QCOMPARE(tokenField()->text(), u"pasted-token"_s);
        QCOMPARE(window()->vm()->token(), u"pasted-token"_s);
    }

    void theEditCommandsReachTheTokenField() {
        tokenField()->setFocus();
        editCommand(u"Select All"_s)->trigger();
        QCOMPARE(tokenField()->selectedText(), u"pasted-token"_s);
        editCommand(u"Cut"_s)->trigger();
        QCOMPARE(tokenField()->text(), QString());
        QCOMPARE(QApplication::clipboard()->text(), u"pasted-token"_s);
        QApplication::clipboard()->setText(m_token);
        editCommand(u"Paste"_s)->trigger();
        QCOMPARE(tokenField()->text(), m_token);
        editCommand(u"Select All"_s)->trigger();
        editCommand(u"Copy"_s)->trigger();
        QCOMPARE(QApplication::clipboard()->text(), m_token);
        QCOMPARE(window()->vm()->token(), m_token);
        // Without a text field in focus the commands do nothing.
        find<QPushButton>(u"loadButton"_s)->setFocus();
        editCommand(u"Paste"_s)->trigger();
        QCOMPARE(tokenField()->text(), m_token);
    }

    void ctrlQQuitsUnlessTheRecorderListens() {
        // The test must go on: only the command is watched, not what it does.
        disconnect(quitAction(), &QAction::triggered, qApp, nullptr);
        QSignalSpy quit(quitAction(), &QAction::triggered);
        QTest::keyClick(tokenField(), Qt::Key_Q, Qt::ControlModifier);
        QCOMPARE(quit.count(), 1);

        tabs()->setCurrentIndex(1);
        QTest::mouseClick(recorder(), Qt::LeftButton);
        QTest::keyClick(recorder(), Qt::Key_Q, Qt::ControlModifier);
        QCOMPARE(quit.count(), 1);
        QCOMPARE(window()->vm()->openMenuShortcut(), (ShortcutConfig{12, 0x100000, u"Q"_s}));
        window()->vm()->setOpenMenuShortcut(ShortcutConfig::defaultShortcut());
        tabs()->setCurrentIndex(0);
    }

    void closingHidesTheWindowRemovesTheMenuAndKeepsEdits() {
        const QPointer<SettingsView> view = window();
        const QPointer<QMenuBar> menu = mainMenu();
        tokenField()->setFocus();
        tokenField()->end(false);
        QTest::keyClicks(tokenField(), u"-unsaved"_s);
        QVERIFY(window()->close());
        QVERIFY(!window()->isVisible());
        QCOMPARE(mainMenu(), nullptr);
        QTRY_VERIFY(!menu);
        QCOMPARE(readConfig(), m_file);

        m_controller->show();
        QVERIFY(QTest::qWaitForWindowActive(window()));
        QCOMPARE(window(), view.data());
        QCOMPARE(tokenField()->text(), m_token + u"-unsaved"_s);
        QVERIFY(mainMenu());
        window()->vm()->setToken(m_token);
        QCOMPARE(tokenField()->text(), m_token);
    }

    void screenshotsOfBothTabs() {
        QTRY_VERIFY(!window()->vm()->isLoading());
        QTRY_COMPARE(collectionRows().size(), 5);
        tabs()->setCurrentIndex(0);
        const QImage general = window()->grab().toImage();
        QCOMPARE(general.size() / general.devicePixelRatio(), QSize(500, 460));
        QVERIFY(general.save(screenshotPath(u"settings-general.png"_s)));
        tabs()->setCurrentIndex(1);
        const QImage shortcuts = window()->grab().toImage();
        QVERIFY(shortcuts.save(screenshotPath(u"settings-shortcuts.png"_s)));
        QVERIFY(general != shortcuts);
        tabs()->setCurrentIndex(0);
    }

    void saveClosesAnnouncesAndReopensWithTheSameValues() {
        QTest::mouseClick(collectionRow(u"Reading list"_s), Qt::LeftButton);
        tabs()->setCurrentIndex(1);
        QTest::mouseClick(recorder(), Qt::LeftButton);
        QTest::keyClick(recorder(), Qt::Key_K, Qt::ControlModifier | Qt::ShiftModifier);
        QSignalSpy announced(&SettingsNotifier::instance(), &SettingsNotifier::settingsChanged);
        QTest::mouseClick(find<QPushButton>(u"saveButton"_s), Qt::LeftButton);
        QCOMPARE(announced.count(), 1);
        QVERIFY(!window()->isVisible());
        QCOMPARE(mainMenu(), nullptr);
        AppConfig expected;
        expected.token = m_token;
        expected.pinnedCollectionIds = {2, 3};
        expected.pinnedTags = {u"news"_s};
        expected.openMenuShortcut = ShortcutConfig{40, 0x120000, u"K"_s};
        QCOMPARE(readConfig(), expected.encode());

        m_controller->show();
        QVERIFY(QTest::qWaitForWindowActive(window()));
        QCOMPARE(tokenField()->text(), m_token);
        QCOMPARE(recorder()->findChild<QLabel*>(u"recorderLabel"_s)->text(), u"Ctrl+Shift+K"_s);
        QTRY_VERIFY(!window()->vm()->isLoading());
        QVERIFY(collectionRow(u"Reading list"_s)->isPinned());
        QVERIFY(collectionRow(u"Work"_s)->isPinned());
        QVERIFY(!collectionRow(u"Inbox"_s)->isPinned());
    }

    void theWindowAndItsMenuGoWithTheController() {
        m_controller->show();
        QVERIFY(QTest::qWaitForWindowActive(window()));
        const QPointer<SettingsView> view = window();
        const QPointer<QMenuBar> menu = mainMenu();
        QVERIFY(menu);
        m_controller.reset();
        QVERIFY(!view);
        QVERIFY(!menu);
        QCOMPARE(settingsWindows(), 0);
    }
};

QTEST_MAIN(tst_SettingsWindowController)
#include "tst_SettingsWindowController.moc"
