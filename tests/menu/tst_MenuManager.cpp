#include "FakeRaindropService.h"
#include "MenuTree.h"
#include "RoundTrip.h"

#include "AlertCatcher.h"
#include "app/tray/StatusItem.h"
#include "menu/MenuManager.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QJsonDocument>
#include <QMimeData>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

MenuManager::Timings testTimings() {
    MenuManager::Timings timings;
    timings.refreshInterval = 1h;
    timings.updateCheckDelay = 1h; // no update check in the middle of a test
    timings.hoverPrefetchDelay = 300ms;
    timings.requestTimeout = 5s;
    timings.pageTitleTimeout = 500ms;
    return timings;
}

AppConfig config(QList<qint64> pinnedIds = {}, QStringList pinnedTags = {}) {
    AppConfig config;
    config.token = u"test-token"_s;
    config.pinnedCollectionIds = std::move(pinnedIds);
    config.pinnedTags = std::move(pinnedTags);
    return config;
}

// The service as most tests see it: two favourites, six collections and five tags, some of
// them pinned by the configuration of richConfig().
void fillRich(FakeRaindropService& service) {
    service.setItems(
        u"favourites"_s,
        {FakeRaindropService::bookmark(1, u"First favourite"_s, u"https://one.example/"_s, true),
         FakeRaindropService::bookmark(2, u"Fish & Chips_1"_s, u"https://two.example/"_s, false,
                                       -1)});
    service.setItems(u"collections"_s, {FakeRaindropService::collection(30, u"beta"_s, 4),
                                        FakeRaindropService::collection(10, u"Alpha"_s, 2),
                                        FakeRaindropService::collection(20, u"alpha"_s, 0),
                                        FakeRaindropService::collection(40, u"R&D"_s, 7),
                                        FakeRaindropService::collection(50, u"Pinned Two"_s, 1),
                                        FakeRaindropService::collection(60, u"Pinned One"_s, 3)});
    service.setItems(u"tags"_s,
                     {FakeRaindropService::tag(u"reading"_s, 5),
                      FakeRaindropService::tag(u"a&b"_s, 9), FakeRaindropService::tag(u"zero"_s, 0),
                      FakeRaindropService::tag(u"pinned-tag"_s, 3),
                      FakeRaindropService::tag(u"later"_s, 5)});
}

AppConfig richConfig() {
    // 999 and "gone" no longer exist; "Reading" differs from "reading" in case.
    return config({50, 999, 60}, {u"gone"_s, u"pinned-tag"_s, u"Reading"_s});
}

const QStringList bookmarkActions{
    u"↗ Open"_s, u"---"_s, u"⎘ Copy URL"_s, u"[ ] Copy as Markdown"_s, u"✎ Edit in Raindrop"_s,
    u"---"_s};

const QStringList footer{u"---"_s,
                         u"Settings… [Ctrl+,]"_s,
                         u"Refresh [Ctrl+R]"_s,
                         u"(off) Quillmar v1.2.3"_s,
                         u"Check for Updates…"_s,
                         u"Quit Quillmar [Ctrl+Q]"_s};

const QStringList top{u"(off) 📋 Add Clipboard URL"_s, u"🕐 Recent ▸"_s, u"🌐 Open Raindrop Web"_s,
                      u"---"_s, u"(off) ❤️ Favourites"_s};

int liveMenus() {
    int count = 0;
    const QWidgetList widgets = QApplication::allWidgets();
    for (QWidget* widget : widgets)
        count += qobject_cast<QMenu*>(widget) ? 1 : 0;
    return count;
}

void settle() {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
}

} // namespace

class tst_MenuManager : public QObject {
    Q_OBJECT
public Q_SLOTS:
    void openUrl(const QUrl& url) { m_opened.append(url); }

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void defaultTimings();
    void placeholderUntilComplete();
    void fullMenuLayout();
    void bookmarkItems();
    void noPinnedPresent();
    void allPinned();
    void thirtyTags();
    void favouritesFailing();
    void noFavourites();
    void tagsFailing();
    void collectionsFailingCancelsTags();
    void missingVersion();
    void requestTimeout();
    void clipboardItemFollowsClipboard();
    void titlesShownAsSent();
    void longTitles();
    void openActions();
    void copyActions();
    void linkNotURL();
    void emptyTitle();
    void toggleFavourite();
    void toggleFavouriteFailure();
    void refreshAction();
    void refreshTimer();
    void refreshWaitsForOpenMenuToClose();
    void builtMenuWaitsForOpenMenuToClose();
    void overlappingBuilds();
    void managerGoneMidBuild();
    void openSettings();
    void quit();

private:
    std::unique_ptr<MenuManager> start(FakeRaindropService& service, StatusItem& statusItem,
                                       const AppConfig& config,
                                       MenuManager::Timings timings = testTimings(),
                                       const QString& version = u"1.2.3"_s);
    QList<QUrl> m_opened;
};

std::unique_ptr<MenuManager> tst_MenuManager::start(FakeRaindropService& service,
                                                    StatusItem& statusItem, const AppConfig& config,
                                                    MenuManager::Timings timings,
                                                    const QString& version) {
    auto manager =
        std::make_unique<MenuManager>(&statusItem, config, service.environment(version), timings);
    manager->buildInitialMenu();
    manager->loadData();
    return manager;
}

void tst_MenuManager::initTestCase() {
    QDesktopServices::setUrlHandler(u"https"_s, this, "openUrl");
    QDesktopServices::setUrlHandler(u"http"_s, this, "openUrl");
}

void tst_MenuManager::cleanupTestCase() {
    QDesktopServices::unsetUrlHandler(u"https"_s);
    QDesktopServices::unsetUrlHandler(u"http"_s);
}

void tst_MenuManager::init() {
    m_opened.clear();
    QGuiApplication::clipboard()->clear();
}

void tst_MenuManager::defaultTimings() {
    const MenuManager::Timings timings;
    QCOMPARE(timings.refreshInterval, 300s);
    QCOMPARE(timings.hoverPrefetchDelay, 1s);
    QCOMPARE(timings.staleness, 1800s);
    QCOMPARE(timings.requestTimeout, 15s);
    QCOMPARE(timings.pageTitleTimeout, 5s);
}

void tst_MenuManager::placeholderUntilComplete() {
    FakeRaindropService service;
    fillRich(service);
    // Every menu attached after the placeholder, as it was when attached.
    QList<QStringList> attached;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings());

    manager.buildInitialMenu();
    QVERIFY(statusItem.menu());
    const QStringList placeholder{u"(off) Loading…"_s, u"---"_s, u"Quit Quillmar [Ctrl+Q]"_s};
    QCOMPARE(MenuTree::describe(statusItem.menu()), placeholder);
    QCOMPARE(service.server().requestCount(), 0);

    connect(&statusItem, &StatusItem::menuChanged, this,
            [&attached](QMenu* menu) { attached.append(MenuTree::describe(menu)); });
    manager.loadData();
    QMenu* initial = statusItem.menu();
    QCOMPARE(MenuTree::describe(initial), placeholder);
    QMenu* full = MenuTree::waitForFullMenu(statusItem, initial);
    QVERIFY(full);
    // The placeholder stays until the menu is whole: the one menu attached is the full one.
    QCOMPARE(attached, QList<QStringList>{MenuTree::describe(full)});
    QVERIFY(MenuTree::item(full, u"First favourite"_s));
}

void tst_MenuManager::fullMenuLayout() {
    FakeRaindropService service;
    fillRich(service);
    StatusItem statusItem;
    auto manager = start(service, statusItem, richConfig());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);

    const QStringList expected = top + QStringList{u"First favourite ▸"_s,
                                                   u"Fish && Chips_1 ▸"_s,
                                                   u"---"_s,
                                                   u"(off) 📌 Pinned"_s,
                                                   u"Pinned One ▸"_s,
                                                   u"Pinned Two ▸"_s,
                                                   u"#pinned-tag ▸"_s,
                                                   u"---"_s,
                                                   u"📁 Collections ▸"_s,
                                                   u"---"_s,
                                                   u"🏷 Tags ▸"_s} +
                                 footer;
    QCOMPARE(MenuTree::describe(menu), expected);

    const QStringList collections{u"Alpha  (2) ▸"_s, u"alpha ▸"_s, u"beta  (4) ▸"_s,
                                  u"R&&D  (7) ▸"_s};
    QCOMPARE(MenuTree::describe(MenuTree::submenu(menu, u"📁 Collections"_s)), collections);
    const QStringList tags{u"#a&&b  (9) ▸"_s, u"#reading  (5) ▸"_s, u"#later  (5) ▸"_s,
                           u"#zero  (0) ▸"_s};
    QCOMPARE(MenuTree::describe(MenuTree::submenu(menu, u"🏷 Tags"_s)), tags);

    // Every bookmark list waits for its first opening.
    const QStringList loading{u"(off) Loading…"_s};
    QMenu* collectionsMenu = MenuTree::submenu(menu, u"📁 Collections"_s);
    QMenu* tagsMenu = MenuTree::submenu(menu, u"🏷 Tags"_s);
    const QList<QMenu*> lazy{MenuTree::submenu(menu, u"🕐 Recent"_s),
                             MenuTree::submenu(menu, u"Pinned One"_s),
                             MenuTree::submenu(menu, u"Pinned Two"_s),
                             MenuTree::submenu(menu, u"#pinned-tag"_s),
                             MenuTree::submenu(collectionsMenu, u"Alpha  (2)"_s),
                             MenuTree::submenu(collectionsMenu, u"alpha"_s),
                             MenuTree::submenu(collectionsMenu, u"beta  (4)"_s),
                             MenuTree::submenu(collectionsMenu, u"R&&D  (7)"_s),
                             MenuTree::submenu(tagsMenu, u"#a&&b  (9)"_s),
                             MenuTree::submenu(tagsMenu, u"#reading  (5)"_s),
                             MenuTree::submenu(tagsMenu, u"#later  (5)"_s),
                             MenuTree::submenu(tagsMenu, u"#zero  (0)"_s)};
    QCOMPARE(manager->lazyDelegates().size(), lazy.size());
    for (QMenu* submenu : lazy) {
        QVERIFY(submenu);
        QCOMPARE(MenuTree::describe(submenu), loading);
        const auto delegate = LazyMenuDelegate::of(submenu);
        QVERIFY(delegate);
        QVERIFY(manager->lazyDelegates().contains(delegate));
    }
    // The Collections and Tags submenus themselves are plain menus.
    QVERIFY(!LazyMenuDelegate::of(collectionsMenu));
    QVERIFY(!LazyMenuDelegate::of(tagsMenu));

    // Favourites first; collections and tags together; then the warm-up of the pinned lists.
    QVERIFY(service.server().waitForRequests(6));
    QVERIFY(!manager->api()->isCached(RaindropAPI::collectionKey(10)));
    roundTrip(manager->api());
    const QStringList kinds = service.kinds();
    QCOMPARE(kinds.size(), 7);
    QCOMPARE(kinds.at(6), u"tags"_s);
    QCOMPARE(kinds.at(0), u"favourites"_s);
    QCOMPARE(QSet<QString>(kinds.begin() + 1, kinds.begin() + 3),
             QSet<QString>({u"collections"_s, u"tags"_s}));
    QCOMPARE(QSet<QString>(kinds.begin() + 3, kinds.end() - 1),
             QSet<QString>({u"col_60"_s, u"col_50"_s, u"tag_pinned-tag"_s}));
    const QList<TestHttpServer::Request> requests = service.server().requests();
    for (const TestHttpServer::Request& request : requests) {
        QCOMPARE(request.method, QByteArrayLiteral("GET"));
        QCOMPARE(request.header("Authorization"), QByteArrayLiteral("Bearer test-token"));
    }

    // The warm-up filled the cache: opening a pinned list sends nothing more.
    QVERIFY(manager->api()->isCached(RaindropAPI::collectionKey(60)));
    QVERIFY(manager->api()->isCached(RaindropAPI::tagKey(u"pinned-tag"_s)));
}

void tst_MenuManager::bookmarkItems() {
    FakeRaindropService service;
    fillRich(service);
    StatusItem statusItem;
    auto manager = start(service, statusItem, config());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);

    QAction* favourite = MenuTree::item(menu, u"First favourite"_s);
    QVERIFY(favourite && favourite->menu());
    QCOMPARE(MenuTree::describe(favourite->menu()),
             bookmarkActions + QStringList{u"♥ Remove from Favourites"_s});
    QAction* other = MenuTree::item(menu, u"Fish && Chips_1"_s);
    QVERIFY(other && other->menu());
    QCOMPARE(MenuTree::describe(other->menu()),
             bookmarkActions + QStringList{u"♡ Add to Favourites"_s});
    // The item and each of its actions carry the bookmark.
    QCOMPARE(favourite->data().value<Raindrop>().id, 1);
    const QList<QAction*> actions = favourite->menu()->actions();
    for (const QAction* action : actions) {
        if (!action->isSeparator())
            QCOMPARE(action->data().value<Raindrop>().id, 1);
    }
    // A bookmark's action submenu has no lazy delegate.
    QVERIFY(!LazyMenuDelegate::of(favourite->menu()));
}

void tst_MenuManager::noPinnedPresent() {
    FakeRaindropService service;
    fillRich(service);
    StatusItem statusItem;
    auto manager = start(service, statusItem, config({999}, {u"gone"_s, u"Reading"_s}));
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    const QStringList expected = top + QStringList{u"First favourite ▸"_s,
                                                   u"Fish && Chips_1 ▸"_s,
                                                   u"---"_s,
                                                   u"📁 Collections ▸"_s,
                                                   u"---"_s,
                                                   u"🏷 Tags ▸"_s} +
                                 footer;
    QCOMPARE(MenuTree::describe(menu), expected);
    QCOMPARE(MenuTree::describe(MenuTree::submenu(menu, u"📁 Collections"_s)).size(), 6);
    QCOMPARE(MenuTree::describe(MenuTree::submenu(menu, u"🏷 Tags"_s)).size(), 5);
    roundTrip(manager->api());
    QCOMPARE(service.server().requestCount(), 4); // no warm-up, the round trip's
}

void tst_MenuManager::allPinned() {
    FakeRaindropService service;
    fillRich(service);
    StatusItem statusItem;
    auto manager = start(service, statusItem,
                         config({10, 20, 30, 40, 50, 60},
                                {u"reading"_s, u"a&b"_s, u"zero"_s, u"pinned-tag"_s, u"later"_s}));
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    const QStringList expected = top +
                                 QStringList{u"First favourite ▸"_s,
                                             u"Fish && Chips_1 ▸"_s,
                                             u"---"_s,
                                             u"(off) 📌 Pinned"_s,
                                             u"Alpha ▸"_s,
                                             u"alpha ▸"_s,
                                             u"beta ▸"_s,
                                             u"Pinned One ▸"_s,
                                             u"Pinned Two ▸"_s,
                                             u"R&&D ▸"_s,
                                             u"#a&&b ▸"_s,
                                             u"#reading ▸"_s,
                                             u"#later ▸"_s,
                                             u"#pinned-tag ▸"_s,
                                             u"#zero ▸"_s} +
                                 footer;
    QCOMPARE(MenuTree::describe(menu), expected);
    // Eleven warm-ups, one per pinned list.
    QVERIFY(service.server().waitForRequests(14));
    roundTrip(manager->api());
    QCOMPARE(service.server().requestCount(), 15);
    QCOMPARE(service.count(u"tag_a&b"_s), 1);
    QCOMPARE(service.count(u"col_20"_s), 1);
}

void tst_MenuManager::thirtyTags() {
    FakeRaindropService service;
    QJsonArray tags;
    for (int i = 0; i < 30; ++i)
        tags.append(
            FakeRaindropService::tag(u"t%1"_s.arg(i, 2, 10, QLatin1Char('0')), i < 5 ? 50 : 7));
    service.setItems(u"tags"_s, tags);
    service.setItems(u"collections"_s, {FakeRaindropService::collection(1, u"Only"_s, 1)});
    StatusItem statusItem;
    auto manager = start(service, statusItem, config());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QStringList expected;
    for (int i = 0; i < 25; ++i)
        expected.append(u"#t%1  (%2) ▸"_s.arg(i, 2, 10, QLatin1Char('0')).arg(i < 5 ? 50 : 7));
    QCOMPARE(MenuTree::describe(MenuTree::submenu(menu, u"🏷 Tags"_s)), expected);
}

void tst_MenuManager::favouritesFailing() {
    FakeRaindropService service;
    fillRich(service);
    service.set(u"favourites"_s, TestHttpServer::Response::json("{}", 500));
    StatusItem statusItem;
    auto manager = start(service, statusItem, richConfig());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    const QStringList expected = top +
                                 QStringList{u"(off) Failed to load favourites"_s,
                                             u"---"_s,
                                             u"(off) 📌 Pinned"_s,
                                             u"Pinned One ▸"_s,
                                             u"Pinned Two ▸"_s,
                                             u"#pinned-tag ▸"_s,
                                             u"---"_s,
                                             u"📁 Collections ▸"_s,
                                             u"---"_s,
                                             u"🏷 Tags ▸"_s} +
                                 footer;
    QCOMPARE(MenuTree::describe(menu), expected);
}

void tst_MenuManager::noFavourites() {
    FakeRaindropService service;
    StatusItem statusItem;
    auto manager = start(service, statusItem, config());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    // No collections and no tags either: neither section appears.
    QCOMPARE(MenuTree::describe(menu), top + QStringList{u"(off) No favourites"_s} + footer);
}

void tst_MenuManager::tagsFailing() {
    FakeRaindropService service;
    fillRich(service);
    service.set(u"tags"_s, TestHttpServer::Response::json("Unauthorized", 401));
    StatusItem statusItem;
    auto manager = start(service, statusItem, richConfig());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    const QStringList expected =
        top +
        QStringList{u"First favourite ▸"_s, u"Fish && Chips_1 ▸"_s, u"---"_s,
                    u"(off) Failed to load collections and tags"_s} +
        footer;
    QCOMPARE(MenuTree::describe(menu), expected);
    QCOMPARE(manager->lazyDelegates().size(), 1); // Recent only
    roundTrip(manager->api());
    QCOMPARE(service.server().requestCount(), 4); // no warm-up, the round trip's
}

void tst_MenuManager::collectionsFailingCancelsTags() {
    FakeRaindropService service;
    fillRich(service);
    service.set(u"collections"_s, TestHttpServer::Response::json("{}", 500));
    // The tags never come, nor does the request time out: the menu is built without them.
    service.set(u"tags"_s, {200, {}, {}, {}, TestHttpServer::Fault::NeverAnswer});
    MenuManager::Timings timings = testTimings();
    timings.requestTimeout = 1h;
    StatusItem statusItem;
    auto manager = start(service, statusItem, richConfig(), timings);
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    const QStringList expected =
        top +
        QStringList{u"First favourite ▸"_s, u"Fish && Chips_1 ▸"_s, u"---"_s,
                    u"(off) Failed to load collections and tags"_s} +
        footer;
    QCOMPARE(MenuTree::describe(menu), expected);
    QCOMPARE(service.count(u"tags"_s), 1);
    // The tags request was given up: its connection closed while it waited.
    QTRY_COMPARE(service.server().abortedConnections(), 1);
}

void tst_MenuManager::missingVersion() {
    FakeRaindropService service;
    StatusItem statusItem;
    auto manager = start(service, statusItem, config(), testTimings(), QString());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QVERIFY(MenuTree::item(menu, u"Quillmar v"_s));
    QVERIFY(!MenuTree::item(menu, u"Quillmar v"_s)->isEnabled());
}

void tst_MenuManager::requestTimeout() {
    FakeRaindropService service;
    TestHttpServer::Response silent;
    silent.fault = TestHttpServer::Fault::NeverAnswer;
    service.set(u"favourites"_s, silent);
    MenuManager::Timings timings = testTimings();
    timings.requestTimeout = 400ms;
    StatusItem statusItem;
    auto manager = start(service, statusItem, config(), timings);
    QMenu* menu = MenuTree::waitForFullMenu(statusItem, nullptr, 3s);
    QVERIFY(menu);
    QVERIFY(MenuTree::item(menu, u"Failed to load favourites"_s));
}

void tst_MenuManager::clipboardItemFollowsClipboard() {
    FakeRaindropService service;
    fillRich(service);
    QGuiApplication::clipboard()->setText(u"look: https://example.com/x."_s);
    StatusItem statusItem;
    auto manager = start(service, statusItem, richConfig());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QAction* add = menu->actions().constFirst();
    QCOMPARE(add->text(), u"📋 Add Clipboard URL"_s);
    QVERIFY(add->isEnabled());

    QGuiApplication::clipboard()->setText(u"no address here"_s);
    // A submenu opening does not look at the clipboard.
    Q_EMIT MenuTree::submenu(menu, u"Pinned One"_s)->aboutToShow();
    Q_EMIT MenuTree::submenu(menu, u"📁 Collections"_s)->aboutToShow();
    QVERIFY(add->isEnabled());
    // Opening the menu does, without a rebuild.
    Q_EMIT menu->aboutToShow();
    QVERIFY(!add->isEnabled());
    QCOMPARE(statusItem.menu(), menu);

    for (const QString& text :
         {u"ftp://example.com/file"_s, u"example.com"_s, u"HTTPS://EXAMPLE.COM"_s}) {
        QGuiApplication::clipboard()->setText(text);
        Q_EMIT menu->aboutToShow();
        QVERIFY2(!add->isEnabled(), qPrintable(text));
    }
    QGuiApplication::clipboard()->setText(u"https://example.com/y"_s);
    Q_EMIT menu->aboutToShow();
    QVERIFY(add->isEnabled());

    // An address copied as a URL list, not as text, does not count.
    auto* urls = new QMimeData();
    urls->setUrls({QUrl(u"https://example.com/z"_s)});
    QGuiApplication::clipboard()->setMimeData(urls);
    Q_EMIT menu->aboutToShow();
    QVERIFY(!add->isEnabled());

    // A menu that is not the attached one is not the manager's business.
    QGuiApplication::clipboard()->setText(u"https://example.com/y"_s);
    QMenu other;
    manager->menuWillOpen(&other);
    QVERIFY(!add->isEnabled());
    QCOMPARE(service.count(u"favourites"_s), 1);
}

void tst_MenuManager::titlesShownAsSent() {
    FakeRaindropService service;
    service.setItems(u"favourites"_s,
                     {FakeRaindropService::bookmark(1, u"Tom & Jerry_2 && more"_s, u"https://a/"_s),
                      FakeRaindropService::bookmark(2, u"tab\there"_s, u"https://b/"_s)});
    service.setItems(u"collections"_s, {FakeRaindropService::collection(5, u"R&D_x"_s, 1),
                                        FakeRaindropService::collection(6, u"&Pinned"_s, 0)});
    service.setItems(
        u"tags"_s, {FakeRaindropService::tag(u"c&c"_s, 2), FakeRaindropService::tag(u"_t&"_s, 1)});
    StatusItem statusItem;
    auto manager = start(service, statusItem, config({6}, {u"_t&"_s}));
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);

    const auto check = [](const QAction* action, const QString& shown) {
        QVERIFY(action);
        // No mnemonic, and the text drawn is the title itself.
        QVERIFY2(QKeySequence::mnemonic(action->text()).isEmpty(), qPrintable(action->text()));
        QCOMPARE(action->iconText(), shown);
    };
    check(MenuTree::item(menu, u"Tom && Jerry_2 &&&& more"_s), u"Tom & Jerry_2 && more"_s);
    // A tab would open the shortcut column.
    check(MenuTree::item(menu, u"tab here"_s), u"tab here"_s);
    check(MenuTree::item(menu, u"&&Pinned"_s), u"&Pinned"_s);
    check(MenuTree::item(menu, u"#_t&&"_s), u"#_t&"_s);
    QMenu* collections = MenuTree::submenu(menu, u"📁 Collections"_s);
    check(MenuTree::item(collections, u"R&&D_x  (1)"_s), u"R&D_x  (1)"_s);
    QMenu* tags = MenuTree::submenu(menu, u"🏷 Tags"_s);
    check(MenuTree::item(tags, u"#c&&c  (2)"_s), u"#c&c  (2)"_s);
    // The action submenu of a bookmark carries the same label.
    QCOMPARE(MenuTree::item(menu, u"Tom && Jerry_2 &&&& more"_s)->menu()->title(),
             u"Tom && Jerry_2 &&&& more"_s);
}

void tst_MenuManager::longTitles() {
    FakeRaindropService service;
    const QString seventy(70, u'x');
    // "é" as e and a combining accent: two UTF-16 units, one character.
    QString accented;
    for (int i = 0; i < 71; ++i)
        accented += u"e\u0301"_s;
    QString families;
    for (int i = 0; i < 71; ++i)
        families += u"👨‍👩‍👧"_s;
    service.setItems(u"favourites"_s,
                     {FakeRaindropService::bookmark(1, seventy + u"y"_s, u"https://a/"_s),
                      FakeRaindropService::bookmark(2, accented, u"https://b/"_s),
                      FakeRaindropService::bookmark(3, families, u"https://c/"_s),
                      FakeRaindropService::bookmark(4, seventy, u"https://d/"_s)});
    StatusItem statusItem;
    auto manager = start(service, statusItem, config());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    const QList<QAction*> actions = menu->actions();
    QCOMPARE(actions.at(5)->text(), seventy);
    QCOMPARE(actions.at(6)->text(), accented.left(140));
    QCOMPARE(actions.at(7)->text(), families.left(families.size() / 71 * 70));
    QCOMPARE(actions.at(8)->text(), seventy);

    // The Markdown copy holds the whole title.
    actions.at(5)->menu()->actions().at(3)->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), u"["_s + seventy + u"y](https://a/)"_s);
}

void tst_MenuManager::openActions() {
    FakeRaindropService service;
    fillRich(service);
    StatusItem statusItem;
    auto manager = start(service, statusItem, config());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);

    MenuTree::item(menu, u"🌐 Open Raindrop Web"_s)->trigger();
    QCOMPARE(m_opened, QList<QUrl>{QUrl(u"https://app.raindrop.io"_s)});

    m_opened.clear();
    QAction* favourite = MenuTree::item(menu, u"First favourite"_s);
    favourite->trigger();
    MenuTree::item(favourite->menu(), u"↗ Open"_s)->trigger();
    QCOMPARE(m_opened,
             QList<QUrl>({QUrl(u"https://one.example/"_s), QUrl(u"https://one.example/"_s)}));

    m_opened.clear();
    MenuTree::item(favourite->menu(), u"✎ Edit in Raindrop"_s)->trigger();
    // The second bookmark's collection is unknown: -1 stays in the address.
    MenuTree::item(MenuTree::item(menu, u"Fish && Chips_1"_s)->menu(), u"✎ Edit in Raindrop"_s)
        ->trigger();
    QCOMPARE(m_opened, QList<QUrl>({QUrl(u"https://app.raindrop.io/my/1000/item/1/edit"_s),
                                    QUrl(u"https://app.raindrop.io/my/-1/item/2/edit"_s)}));

    // An item without a bookmark does nothing.
    m_opened.clear();
    QAction bare(u"bare"_s);
    manager->openBookmark(&bare);
    manager->editInRaindrop(&bare);
    manager->copyBookmark(&bare);
    manager->toggleFavourite(&bare);
    bare.setData(42);
    manager->openBookmark(&bare);
    QVERIFY(m_opened.isEmpty());
    QVERIFY(QGuiApplication::clipboard()->text().isEmpty());
}

void tst_MenuManager::copyActions() {
    FakeRaindropService service;
    fillRich(service);
    StatusItem statusItem;
    auto manager = start(service, statusItem, config());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QMenu* actions = MenuTree::item(menu, u"Fish && Chips_1"_s)->menu();
    MenuTree::item(actions, u"⎘ Copy URL"_s)->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), u"https://two.example/"_s);
    MenuTree::item(actions, u"[ ] Copy as Markdown"_s)->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), u"[Fish & Chips_1](https://two.example/)"_s);
    QVERIFY(m_opened.isEmpty());
}

void tst_MenuManager::linkNotURL() {
    FakeRaindropService service;
    service.setItems(u"favourites"_s,
                     {FakeRaindropService::bookmark(1, u"Odd [one] (x)"_s, u"not a url"_s)});
    StatusItem statusItem;
    auto manager = start(service, statusItem, config());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QAction* item = MenuTree::item(menu, u"Odd [one] (x)"_s);
    item->trigger();
    MenuTree::item(item->menu(), u"↗ Open"_s)->trigger();
    QVERIFY(m_opened.isEmpty());
    MenuTree::item(item->menu(), u"⎘ Copy URL"_s)->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), u"not a url"_s);
    // Nothing is escaped in the Markdown text.
    MenuTree::item(item->menu(), u"[ ] Copy as Markdown"_s)->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), u"[Odd [one] (x)](not a url)"_s);
}

void tst_MenuManager::emptyTitle() {
    FakeRaindropService service;
    service.setItems(u"favourites"_s,
                     {FakeRaindropService::bookmark(1, QString(), u"https://example.com/a&b"_s)});
    StatusItem statusItem;
    auto manager = start(service, statusItem, config());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QAction* item = MenuTree::item(menu, u"https://example.com/a&&b"_s);
    QVERIFY(item);
    MenuTree::item(item->menu(), u"[ ] Copy as Markdown"_s)->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(),
             u"[https://example.com/a&b](https://example.com/a&b)"_s);
}

void tst_MenuManager::toggleFavourite() {
    FakeRaindropService service;
    fillRich(service);
    service.set(u"favourite_1"_s, TestHttpServer::Response{204, {}, {}, {}, {}});
    service.set(u"favourite_2"_s, TestHttpServer::Response{204, {}, {}, {}, {}});
    StatusItem statusItem;
    auto manager = start(service, statusItem, config());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QVERIFY(service.server().waitForRequests(3));
    service.server().clearRequests();

    AlertCatcher alerts;
    QSignalSpy changes(&statusItem, &StatusItem::menuChanged);
    QAction* remove = MenuTree::item(MenuTree::item(menu, u"First favourite"_s)->menu(),
                                     u"♥ Remove from Favourites"_s);
    remove->trigger();
    QVERIFY(service.server().waitForRequests(1));
    QAction* add = MenuTree::item(MenuTree::item(menu, u"Fish && Chips_1"_s)->menu(),
                                  u"♡ Add to Favourites"_s);
    add->trigger();
    QVERIFY(service.server().waitForRequests(2));
    // Both answers have been read once the answer to a later request has.
    roundTrip(manager->api());

    const QList<TestHttpServer::Request> requests = service.server().requests();
    QCOMPARE(requests.size(), 3);
    QCOMPARE(service.kindOf(requests.at(2)), u"tags"_s);
    QCOMPARE(requests.at(0).method, QByteArrayLiteral("PUT"));
    QCOMPARE(requests.at(0).path, u"/rest/v1/raindrop/1"_s);
    QCOMPARE(QJsonDocument::fromJson(requests.at(0).body).object(),
             QJsonObject({{u"important"_s, false}}));
    QCOMPARE(requests.at(1).path, u"/rest/v1/raindrop/2"_s);
    QCOMPARE(QJsonDocument::fromJson(requests.at(1).body).object(),
             QJsonObject({{u"important"_s, true}}));
    // No rebuild: the same menu, with the old hearts.
    QCOMPARE(changes.count(), 0);
    QCOMPARE(statusItem.menu(), menu);
    QCOMPARE(remove->text(), u"♥ Remove from Favourites"_s);
    QCOMPARE(alerts.count(), 0);
    QVERIFY(!manager->api()->isCached(RaindropAPI::favouritesKey()));
}

void tst_MenuManager::toggleFavouriteFailure() {
    FakeRaindropService service;
    fillRich(service);
    service.set(u"favourite_2"_s, TestHttpServer::Response{500, "nope", {}, {}, {}});
    StatusItem statusItem;
    auto manager = start(service, statusItem, config());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);

    AlertCatcher alerts;
    MenuTree::item(MenuTree::item(menu, u"Fish && Chips_1"_s)->menu(), u"♡ Add to Favourites"_s)
        ->trigger();
    QVERIFY(alerts.waitForAlerts(1));
    const AlertCatcher::Seen alert = alerts.alerts().constFirst();
    QCOMPARE(alert.windowTitle, u"Quillmar"_s);
    QCOMPARE(alert.text, u"Quillmar"_s);
    QCOMPARE(alert.informativeText, u"Failed to update favourite: HTTP 500: nope"_s);
    QCOMPARE(alert.icon, QMessageBox::Warning);
    QCOMPARE(statusItem.menu(), menu);
}

void tst_MenuManager::refreshAction() {
    FakeRaindropService service;
    fillRich(service);
    StatusItem statusItem;
    auto manager = start(service, statusItem, richConfig());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QVERIFY(service.server().waitForRequests(6));

    // Load a submenu so that its delegate holds a state.
    QMenu* pinned = MenuTree::submenu(menu, u"Pinned One"_s);
    const std::shared_ptr<LazyMenuDelegate> delegate = LazyMenuDelegate::of(pinned);
    Q_EMIT pinned->aboutToShow();
    QTRY_VERIFY(delegate->loadedAt().has_value());
    QVERIFY(manager->api()->isCached(RaindropAPI::favouritesKey()));
    // Every answer of the first load is in, so none is still on its way to be shared with the
    // refresh's own requests.
    QTRY_VERIFY(manager->api()->isCached(RaindropAPI::collectionKey(50)) &&
                manager->api()->isCached(RaindropAPI::tagKey(u"pinned-tag"_s)));
    service.server().clearRequests();

    QAction* refresh = MenuTree::item(menu, u"Refresh"_s);
    QCOMPARE(refresh->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_R));
    refresh->trigger();
    QCOMPARE(MenuTree::describe(statusItem.menu()),
             QStringList({u"(off) Loading…"_s, u"---"_s, u"Quit Quillmar [Ctrl+Q]"_s}));
    QVERIFY(!delegate->loadedAt().has_value());
    QVERIFY(delegate->loadedIds().isEmpty());
    QVERIFY(!manager->api()->isCached(RaindropAPI::favouritesKey()));

    QMenu* rebuilt = MenuTree::waitForFullMenu(statusItem, menu);
    QVERIFY(rebuilt);
    QVERIFY(service.server().waitForRequests(6));
    // Everything is asked again, the pinned lists too.
    QCOMPARE(service.count(u"favourites"_s), 1);
    QCOMPARE(service.count(u"col_60"_s), 1);
    QVERIFY(!manager->lazyDelegates().contains(delegate));
}

void tst_MenuManager::refreshTimer() {
    FakeRaindropService service;
    MenuManager::Timings timings = testTimings();
    timings.refreshInterval = 300ms;
    StatusItem statusItem;
    QSignalSpy changes(&statusItem, &StatusItem::menuChanged);
    auto manager = start(service, statusItem, config(), timings);
    QVERIFY(MenuTree::waitForFullMenu(statusItem));
    // Each firing: the placeholder, then a full menu.
    QTRY_VERIFY_WITH_TIMEOUT(service.count(u"favourites"_s) >= 3, 30000);
    QVERIFY(changes.count() >= 5);
    manager.reset();
    const int asked = service.count(u"favourites"_s);
    // The timer goes with its manager: a manager started after it refreshes twice on the same
    // interval, while the first one asks nothing more.
    FakeRaindropService other;
    StatusItem otherItem;
    auto later = start(other, otherItem, config(), timings);
    QTRY_VERIFY_WITH_TIMEOUT(other.count(u"favourites"_s) >= 3, 30000);
    QCOMPARE(service.count(u"favourites"_s), asked);
}

void tst_MenuManager::refreshWaitsForOpenMenuToClose() {
    FakeRaindropService service;
    fillRich(service);
    StatusItem statusItem;
    auto manager = start(service, statusItem, richConfig());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QVERIFY(service.server().waitForRequests(6));
    service.server().clearRequests();
    menu->popup(QPoint(100, 100));
    QTRY_VERIFY(menu->isVisible());

    // The timer fires (or "Refresh" is chosen by key) while the user reads the menu.
    manager->refresh();
    roundTrip(manager->api());
    settle();
    QCOMPARE(statusItem.menu(), menu);
    QVERIFY(menu->isVisible());
    QCOMPARE(service.kinds(), QStringList{u"tags"_s});

    // Once it closes, the menu is rebuilt as usual.
    menu->hide();
    QMenu* rebuilt = MenuTree::waitForFullMenu(statusItem, menu);
    QVERIFY(rebuilt);
    QCOMPARE(service.count(u"favourites"_s), 1);
}

void tst_MenuManager::builtMenuWaitsForOpenMenuToClose() {
    FakeRaindropService service;
    fillRich(service);
    service.set(u"favourites"_s, FakeRaindropService::list({}).held());
    StatusItem statusItem;
    auto manager = start(service, statusItem, richConfig());
    QMenu* placeholder = statusItem.menu();
    placeholder->popup(QPoint(100, 100));
    QTRY_VERIFY(placeholder->isVisible());
    QVERIFY(service.server().waitForRequests(1));
    service.server().release();
    // The build ends with the requests for the pinned lists, and with the full menu.
    QVERIFY(service.server().waitForRequests(6));
    settle();
    QCOMPARE(statusItem.menu(), placeholder);
    QVERIFY(placeholder->isVisible());

    placeholder->hide();
    QVERIFY(MenuTree::waitForFullMenu(statusItem, placeholder));
}

void tst_MenuManager::overlappingBuilds() {
    FakeRaindropService service;
    fillRich(service);
    service.setItems(u"favourites"_s,
                     {FakeRaindropService::bookmark(1, u"First build"_s, u"https://a/"_s)});
    const QJsonArray collections{FakeRaindropService::collection(60, u"Pinned One"_s, 3),
                                 FakeRaindropService::collection(70, u"Other"_s, 1)};
    service.set(u"collections"_s, FakeRaindropService::list(collections).held());
    StatusItem statusItem;
    auto manager = start(service, statusItem, config({60}));
    QVERIFY(service.server().waitForRequests(2));
    // "Refresh" while the first build waits for the service; the second build is quicker.
    service.setItems(u"favourites"_s,
                     {FakeRaindropService::bookmark(2, u"Second build"_s, u"https://b/"_s)});
    service.set(u"collections"_s, FakeRaindropService::list(collections));
    manager->refresh();
    QMenu* second = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(second);
    QVERIFY(MenuTree::item(second, u"Second build"_s));
    // The first build ends last, and its menu stays.
    service.server().release();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem, second);
    QVERIFY(menu);
    QVERIFY(MenuTree::item(menu, u"First build"_s));
    settle();

    // Both builds ended; one full menu is attached and exists, once the replaced ones are gone.
    QCOMPARE(statusItem.menu(), menu);
    QCOMPARE(service.count(u"favourites"_s), 2);
    QCOMPARE(service.count(u"collections"_s), 2);
    QTRY_COMPARE(liveMenus(), menu->findChildren<QMenu*>().size() + 1);
    // Its lazy submenus, once every entry of "Collections" and "Tags" was highlighted, are
    // exactly the manager's delegates, each alive.
    for (const QString& list : {u"📁 Collections"_s, u"🏷 Tags"_s}) {
        const QMenu* entries = MenuTree::submenu(menu, list);
        QVERIFY(entries);
        const QList<QAction*> actions = entries->actions();
        for (const QAction* entry : actions)
            QVERIFY(MenuTree::submenu(entries, entry->text()));
    }
    QList<QMenu*> lazy;
    const QList<QMenu*> submenus = menu->findChildren<QMenu*>();
    for (QMenu* submenu : submenus)
        if (LazyMenuDelegate::of(submenu))
            lazy.append(submenu);
    QCOMPARE(lazy.size(), 8); // Recent, Pinned One, Other and five tags
    QCOMPARE(manager->lazyDelegates().size(), 8);
    for (QMenu* submenu : std::as_const(lazy))
        QVERIFY(manager->lazyDelegates().contains(LazyMenuDelegate::of(submenu)));
    // And they load.
    QMenu* recent = MenuTree::submenu(menu, u"🕐 Recent"_s);
    service.setItems(u"recent"_s, {FakeRaindropService::bookmark(9, u"New"_s, u"https://n/"_s)});
    Q_EMIT recent->aboutToShow();
    QTRY_COMPARE(MenuTree::describe(recent), QStringList{u"New ▸"_s});
    // The clipboard item that follows the clipboard is this menu's.
    QGuiApplication::clipboard()->setText(u"https://example.com"_s);
    Q_EMIT menu->aboutToShow();
    QVERIFY(menu->actions().constFirst()->isEnabled());
}

void tst_MenuManager::managerGoneMidBuild() {
    FakeRaindropService service;
    fillRich(service);
    service.set(u"favourites"_s, FakeRaindropService::list({}).held());
    StatusItem statusItem;
    auto manager = start(service, statusItem, richConfig());
    QVERIFY(service.server().waitForRequests(1));
    QMenu* placeholder = statusItem.menu();
    const std::shared_ptr<RaindropAPI> api = manager->api();
    manager.reset();
    service.server().release();
    // The late answer reaches the client, and a build that went on would ask for more before
    // a later round trip of the same client ends.
    QTRY_VERIFY(api->isCached(RaindropAPI::favouritesKey()));
    roundTrip(api);
    settle();
    QCOMPARE(statusItem.menu(), placeholder);
    QCOMPARE(liveMenus(), 1);
    QCOMPARE(service.kinds(), QStringList({u"favourites"_s, u"tags"_s}));
}

void tst_MenuManager::openSettings() {
    FakeRaindropService service;
    StatusItem statusItem;
    auto manager = start(service, statusItem, config());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QAction* settings = MenuTree::item(menu, u"Settings…"_s);
    QCOMPARE(settings->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Comma));
    // The window belongs to the application, which hears the request.
    QSignalSpy requested(manager.get(), &MenuManager::settingsRequested);
    settings->trigger();
    QCOMPARE(requested.count(), 1);
}

void tst_MenuManager::quit() {
    FakeRaindropService service;
    StatusItem statusItem;
    auto manager = start(service, statusItem, config());
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QAction* quit = MenuTree::item(menu, u"Quit Quillmar"_s);
    QCOMPARE(quit->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Q));
    QTimer::singleShot(0, quit, &QAction::trigger);
    QTimer::singleShot(5000, [] { QCoreApplication::exit(1); });
    QCOMPARE(QApplication::exec(), 0);
}

QTEST_MAIN(tst_MenuManager)
#include "tst_MenuManager.moc"
