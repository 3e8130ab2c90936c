#include "../menu/MenuTree.h"
#include "FakeRaindropService.h"

#include "app/AppDelegate.h"
#include "config/AppConfig.h"
#include "config/SettingsNotifier.h"
#include "settings/SettingsView.h"
#include "settings/SettingsWindowController.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QStringList setupMenu{u"(off) Welcome to Quillmar"_s,
                            u"(off) Open Settings to add your API token"_s, u"---"_s,
                            u"Settings… [Ctrl+,]"_s, u"Quit [Ctrl+Q]"_s};
const QStringList placeholder{u"(off) Loading…"_s, u"---"_s, u"Quit Quillmar [Ctrl+Q]"_s};

MenuManager::Timings testTimings(std::chrono::milliseconds refresh = 1h) {
    MenuManager::Timings timings;
    timings.refreshInterval = refresh;
    timings.updateCheckDelay = 1h; // no update check in the middle of a test
    return timings;
}

void save(const QString& token, QList<qint64> pinned = {}) {
    AppConfig config;
    config.token = token;
    config.pinnedCollectionIds = std::move(pinned);
    QVERIFY(!config.save());
}

QByteArrayList authorizations(const FakeRaindropService& service) {
    QByteArrayList values;
    const QList<TestHttpServer::Request> requests = service.server().requests();
    for (const TestHttpServer::Request& request : requests) {
        if (!values.contains(request.header("Authorization")))
            values.append(request.header("Authorization"));
    }
    return values;
}

// The windows shown other than menus: the settings window once it opened.
int visibleWindows() {
    int count = 0;
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (const QWidget* widget : widgets)
        count += widget->isVisible() && !qobject_cast<const QMenu*>(widget) ? 1 : 0;
    return count;
}

} // namespace

class tst_AppDelegate : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();

    void firstLaunchThenSaved();
    void damagedConfiguration();
    void whitespaceToken();
    void savingTwice();
    void clearingTheToken();
    void setupMenuOpensSettings();
    void bookmarkMenuOpensSettings();
};

void tst_AppDelegate::init() {
    QFile::remove(AppConfig::filePath());
}

void tst_AppDelegate::firstLaunchThenSaved() {
    FakeRaindropService service;
    service.setItems(u"favourites"_s,
                     {FakeRaindropService::bookmark(1, u"Fav"_s, u"https://f/"_s)});
    AppDelegate delegate({service.environment(), testTimings()});
    delegate.applicationDidFinishLaunching();
    QVERIFY(!QFileInfo::exists(AppConfig::filePath()));
    QCOMPARE(MenuTree::describe(delegate.statusItem()->menu()), setupMenu);
    QVERIFY(!delegate.menuManager());
    // Without a token nothing is asked: the one authorization ever sent is the saved token's.
    QCOMPARE(service.server().requestCount(), 0);

    // The settings are saved with a token: the bookmark menu follows without a restart.
    save(u"first-token"_s);
    SettingsNotifier::instance().post();
    QVERIFY(delegate.menuManager());
    QCOMPARE(MenuTree::describe(delegate.statusItem()->menu()), placeholder);
    QMenu* menu = MenuTree::waitForFullMenu(*delegate.statusItem());
    QVERIFY(menu);
    QVERIFY(MenuTree::item(menu, u"Fav"_s));
    QCOMPARE(authorizations(service), QByteArrayList{"Bearer first-token"});
}

void tst_AppDelegate::damagedConfiguration() {
    QVERIFY(QDir().mkpath(QFileInfo(AppConfig::filePath()).path()));
    QFile file(AppConfig::filePath());
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("{\"token\": ");
    file.close();
    FakeRaindropService service;
    AppDelegate delegate({service.environment(), testTimings()});
    delegate.applicationDidFinishLaunching();
    QCOMPARE(MenuTree::describe(delegate.statusItem()->menu()), setupMenu);
    QVERIFY(!delegate.menuManager());
}

void tst_AppDelegate::whitespaceToken() {
    // Only an empty token means "not set up".
    save(u"  \t "_s);
    FakeRaindropService service;
    AppDelegate delegate({service.environment(), testTimings()});
    delegate.applicationDidFinishLaunching();
    QVERIFY(delegate.menuManager());
    QCOMPARE(MenuTree::describe(delegate.statusItem()->menu()), placeholder);
    QVERIFY(MenuTree::waitForFullMenu(*delegate.statusItem()));
    // The token is sent trimmed, that is empty.
    QCOMPARE(service.server().requests().constFirst().header("Authorization"),
             QByteArrayLiteral("Bearer"));
}

void tst_AppDelegate::savingTwice() {
    FakeRaindropService service;
    service.setItems(u"collections"_s, {FakeRaindropService::collection(7, u"Seven"_s, 1)});
    save(u"token-a"_s);
    AppDelegate delegate({service.environment(), testTimings()});
    delegate.applicationDidFinishLaunching();
    const QPointer<MenuManager> first = delegate.menuManager();
    QVERIFY(first);
    QMenu* menu = MenuTree::waitForFullMenu(*delegate.statusItem());
    QVERIFY(menu);
    QVERIFY(!MenuTree::item(menu, u"📌 Pinned"_s));

    save(u"token-b"_s);
    SettingsNotifier::instance().post();
    const QPointer<MenuManager> second = delegate.menuManager();
    QVERIFY(second);
    QVERIFY(!first); // released
    QVERIFY(!MenuTree::isFull(delegate.statusItem()->menu()));
    menu = MenuTree::waitForFullMenu(*delegate.statusItem());
    QVERIFY(menu);

    service.server().clearRequests();
    save(u"token-c"_s, {7});
    SettingsNotifier::instance().post();
    QVERIFY(!second);
    QVERIFY(delegate.menuManager());
    menu = MenuTree::waitForFullMenu(*delegate.statusItem());
    QVERIFY(menu);
    // Built from the new configuration: its token and its pins.
    QVERIFY(MenuTree::item(menu, u"📌 Pinned"_s));
    QVERIFY(MenuTree::item(menu, u"Seven"_s));
    QVERIFY(service.server().waitForRequests(4));
    QCOMPARE(authorizations(service), QByteArrayList{"Bearer token-c"});
}

void tst_AppDelegate::clearingTheToken() {
    FakeRaindropService service;
    save(u"old-token"_s);
    AppDelegate delegate({service.environment(), testTimings(600ms)});
    delegate.applicationDidFinishLaunching();
    const QPointer<MenuManager> manager = delegate.menuManager();
    QMenu* menu = MenuTree::waitForFullMenu(*delegate.statusItem());
    QVERIFY(menu);

    save(QString());
    SettingsNotifier::instance().post();
    QCOMPARE(MenuTree::describe(delegate.statusItem()->menu()), setupMenu);
    // The manager is kept, and so is its refresh: its own menu comes back, with the old token.
    QVERIFY(manager);
    QCOMPARE(delegate.menuManager(), manager.data());
    service.server().clearRequests();
    QVERIFY(MenuTree::waitForFullMenu(*delegate.statusItem(), menu, 3s));
    QCOMPARE(authorizations(service), QByteArrayList{"Bearer old-token"});
}

void tst_AppDelegate::setupMenuOpensSettings() {
    FakeRaindropService service;
    AppDelegate delegate({service.environment(), testTimings()});
    delegate.applicationDidFinishLaunching();
    QCOMPARE(visibleWindows(), 0);
    MenuTree::item(delegate.statusItem()->menu(), u"Settings…"_s)->trigger();
    QTRY_COMPARE(visibleWindows(), 1);
    // Asked again, the same window comes to the front.
    const QPointer<SettingsView> window = delegate.settingsWindow()->window();
    delegate.openSettings();
    QCOMPARE(delegate.settingsWindow()->window(), window.data());
    QCOMPARE(visibleWindows(), 1);
}

void tst_AppDelegate::bookmarkMenuOpensSettings() {
    save(u"token"_s);
    FakeRaindropService service;
    AppDelegate delegate({service.environment(), testTimings()});
    delegate.applicationDidFinishLaunching();
    QMenu* menu = MenuTree::waitForFullMenu(*delegate.statusItem());
    QVERIFY(menu);
    QCOMPARE(visibleWindows(), 0);
    MenuTree::item(menu, u"Settings…"_s)->trigger();
    QTRY_COMPARE(visibleWindows(), 1);
}

QTEST_MAIN(tst_AppDelegate)
#include "tst_AppDelegate.moc"
