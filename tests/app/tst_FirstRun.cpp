#include "app/AppDelegate.h"
#include "config/AppConfig.h"
#include "config/SettingsNotifier.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QMenu>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;

class tst_FirstRun : public QObject {
    Q_OBJECT
public:
    // Before the application exists: no session bus, so that no panel of the machine running
    // the tests ever sees an icon of ours, and no bus is started on demand.
    static void initMain() {
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/quillmar-test-bus");
    }

private Q_SLOTS:
    void initTestCase();
    void init();

    void showsSetupMenuWithoutConfiguration();
    void showsSetupMenuForDamagedConfiguration_data();
    void showsSetupMenuForDamagedConfiguration();
    void showsNoWindowAtLaunch();
    void trayIconIsTheDrop();
    void settingsOpensSettingsWindow();
    void settingsChangedWithoutTokenKeepsSetupMenu();
    void quitEndsTheEventLoop();

private:
    static void writeConfiguration(const QByteArray& bytes);
    static void checkSetupMenu(QMenu* menu);
    static QAction* actionTitled(QMenu* menu, const QString& title);
    static QList<QWidget*> visibleWindows();

    QTemporaryDir m_home;
};

void tst_FirstRun::initTestCase() {
    // A home of our own before anything asks where the configuration lives.
    QVERIFY(m_home.isValid());
    qputenv("HOME", QFile::encodeName(m_home.path()));
    QVERIFY(AppConfig::filePath().startsWith(m_home.path()));
}

void tst_FirstRun::init() {
    QVERIFY(QDir(m_home.path() + u"/.config"_s).removeRecursively());
    for (QWidget* window : visibleWindows())
        window->hide();
}

void tst_FirstRun::writeConfiguration(const QByteArray& bytes) {
    QVERIFY(QDir().mkpath(QFileInfo(AppConfig::filePath()).absolutePath()));
    QFile file(AppConfig::filePath());
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(bytes), bytes.size());
}

void tst_FirstRun::checkSetupMenu(QMenu* menu) {
    QVERIFY(menu);
    const QList<QAction*> actions = menu->actions();
    QCOMPARE(actions.size(), 5);

    QCOMPARE(actions[0]->text(), u"Welcome to Quillmar"_s);
    QVERIFY(!actions[0]->isEnabled());
    QVERIFY(actions[0]->shortcut().isEmpty());
    QVERIFY(!actions[0]->menu());

    QCOMPARE(actions[1]->text(), u"Open Settings to add your API token"_s);
    QVERIFY(!actions[1]->isEnabled());
    QVERIFY(actions[1]->shortcut().isEmpty());

    QVERIFY(actions[2]->isSeparator());

    QCOMPARE(actions[3]->text(), u"Settings\u2026"_s);
    QVERIFY(actions[3]->isEnabled());
    QCOMPARE(actions[3]->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Comma));

    QCOMPARE(actions[4]->text(), u"Quit"_s);
    QVERIFY(actions[4]->isEnabled());
    QCOMPARE(actions[4]->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Q));

    for (QAction* action : actions) {
        QVERIFY(!action->isCheckable());
        QVERIFY(action->isVisible());
    }
}

QAction* tst_FirstRun::actionTitled(QMenu* menu, const QString& title) {
    for (QAction* action : menu->actions())
        if (action->text() == title)
            return action;
    return nullptr;
}

QList<QWidget*> tst_FirstRun::visibleWindows() {
    QList<QWidget*> windows;
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (widget->isVisible())
            windows.append(widget);
    return windows;
}

void tst_FirstRun::showsSetupMenuWithoutConfiguration() {
    QVERIFY(!QFileInfo::exists(AppConfig::filePath()));
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    QVERIFY(delegate.statusItem());
    checkSetupMenu(delegate.statusItem()->menu());
    // Nothing is started without a token, and nothing is written.
    QVERIFY(!delegate.menuManager());
    QVERIFY(!QFileInfo::exists(AppConfig::filePath()));
}

void tst_FirstRun::showsSetupMenuForDamagedConfiguration_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("not JSON") << QByteArray("token = abc");
    QTest::newRow("truncated") << QByteArray(R"({"token": "abc", "pinned_tags": [)");
    QTest::newRow("binary") << QByteArray("\x00\x01\xff\xfe\x80{", 6);
    QTest::newRow("token of the wrong type") << QByteArray(R"({"token": 42})");
    QTest::newRow("damaged shortcut")
        << QByteArray(R"({"token": "abc", "open_menu_shortcut": {"keyCode": 15}})");
    QTest::newRow("empty token") << QByteArray(R"({"token": ""})");
}

void tst_FirstRun::showsSetupMenuForDamagedConfiguration() {
    QFETCH(QByteArray, bytes);
    writeConfiguration(bytes);
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    checkSetupMenu(delegate.statusItem()->menu());
    QVERIFY(!delegate.menuManager());
}

void tst_FirstRun::showsNoWindowAtLaunch() {
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    QCoreApplication::processEvents();
    // A tray utility: no main window, nothing in the task bar; the menu is shown only on a click.
    QCOMPARE(visibleWindows(), QList<QWidget*>{});
    QVERIFY(!delegate.statusItem()->menu()->isVisible());
}

void tst_FirstRun::trayIconIsTheDrop() {
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    // No panel on this bus-less test desktop: the icon is a plain XEmbed tray icon.
    QVERIFY(!delegate.statusItem()->isStatusNotifierItem());

    const QIcon icon = StatusItem::dropIcon();
    QVERIFY(!icon.isNull());
    // It really draws: the scalable icon renders at tray sizes, with something on it.
    for (int size : {16, 22, 24, 32, 48}) {
        const QImage image = icon.pixmap(size, size).toImage();
        QVERIFY(!image.isNull());
        QCOMPARE(image.width(), size);
        int opaque = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                opaque += qAlpha(image.pixel(x, y)) > 128 ? 1 : 0;
        QVERIFY2(opaque > size * size / 8, qPrintable(u"size %1"_s.arg(size)));
        // A drop, not a square: the top corners stay clear.
        QCOMPARE(qAlpha(image.pixel(0, 0)), 0);
        QCOMPARE(qAlpha(image.pixel(size - 1, 0)), 0);
    }
}

void tst_FirstRun::settingsOpensSettingsWindow() {
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    QAction* settings = actionTitled(delegate.statusItem()->menu(), u"Settings\u2026"_s);
    QVERIFY(settings);
    settings->trigger();
    QTRY_COMPARE(visibleWindows().size(), 1);
    QWidget* window = visibleWindows().first();
    QCOMPARE(window->windowTitle(), u"Quillmar Settings"_s);
    QVERIFY(window->isWindow());
    QVERIFY(!window->parentWidget());
    // Choosing it again brings back the same window, not a second one.
    window->hide();
    settings->trigger();
    QTRY_COMPARE(visibleWindows(), QList<QWidget*>{window});
    window->hide();
}

void tst_FirstRun::settingsChangedWithoutTokenKeepsSetupMenu() {
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    QMenu* first = delegate.statusItem()->menu();
    // Saved again without a token: the delegate reloads and shows the setup menu again.
    QCOMPARE((AppConfig{QString(), {1}, {u"x"_s}, std::nullopt}.save()), std::nullopt);
    SettingsNotifier::instance().post();
    QMenu* second = delegate.statusItem()->menu();
    QVERIFY(second != first);
    checkSetupMenu(second);
    QVERIFY(!delegate.menuManager());
}

void tst_FirstRun::quitEndsTheEventLoop() {
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    QAction* quit = actionTitled(delegate.statusItem()->menu(), u"Quit"_s);
    QVERIFY(quit);
    QTimer::singleShot(0, quit, &QAction::trigger);
    // Only a loop that Quit did not end meets this.
    QTimer guard;
    guard.setSingleShot(true);
    connect(&guard, &QTimer::timeout, qApp, [] { QCoreApplication::exit(1); });
    guard.start(10000);
    QCOMPARE(QApplication::exec(), 0);
}

QTEST_MAIN(tst_FirstRun)
#include "tst_FirstRun.moc"
