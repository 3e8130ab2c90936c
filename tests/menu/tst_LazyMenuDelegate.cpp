#include "FakeRaindropService.h"
#include "MenuTree.h"
#include "RoundTrip.h"
#include "Timers.h"

#include "app/tray/StatusItem.h"
#include "menu/LazyMenuDelegate.h"
#include "menu/MenuManager.h"
#include "service/ServiceError.h"

#include <QCoroTimer>
#include <QDeadlineTimer>
#include <QMenu>
#include <QScreen>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

using TimePoint = std::chrono::steady_clock::time_point;

// A clock that moves only when the test moves it.
struct TestClock {
    std::shared_ptr<TimePoint> now = std::make_shared<TimePoint>(std::chrono::steady_clock::now());
    LazyMenuDelegate::Clock clock() const {
        return [now = now] {
            return *now;
        };
    }
    void advance(std::chrono::milliseconds by) const { *now += by; }
};

// What the scripted fetch answers next, and how often it was asked.
struct Script {
    QList<Raindrop> bookmarks;
    bool fails = false;
    std::chrono::milliseconds delay{0};
    int calls = 0;
    // Fetches that have answered or failed.
    int finished = 0;
};

Raindrop bookmark(qint64 id, const QString& title) {
    Raindrop raindrop;
    raindrop.id = id;
    raindrop.title = title;
    raindrop.link = u"https://example.com/"_s + QString::number(id);
    return raindrop;
}

QCoro::Task<QList<Raindrop>> answer(std::shared_ptr<Script> script) {
    ++script->calls;
    const QList<Raindrop> bookmarks = script->bookmarks;
    const bool fails = script->fails;
    if (script->delay.count() > 0)
        co_await QCoro::sleepFor(script->delay);
    ++script->finished;
    if (fails)
        throw ServiceError::status(500, u"Unexpected response from Raindrop (HTTP 500)."_s);
    co_return bookmarks;
}

// A submenu as the menu manager makes it: "Loading…" and a delegate whose items are the titles.
struct Lazy {
    std::shared_ptr<Script> script = std::make_shared<Script>();
    TestClock clock;
    std::unique_ptr<QMenu> menu = std::make_unique<QMenu>();
    std::shared_ptr<LazyMenuDelegate> delegate;

    Lazy() {
        menu->addAction(u"Loading…"_s)->setEnabled(false);
        delegate =
            std::make_shared<LazyMenuDelegate>([script = script] { return answer(script); },
                                               [](QMenu* target, const QList<Raindrop>& bookmarks) {
                                                   for (const Raindrop& raindrop : bookmarks)
                                                       target->addAction(raindrop.title);
                                               },
                                               1800s, clock.clock());
        delegate->attach(menu.get());
    }
    void open() const { Q_EMIT menu->aboutToShow(); }
    QStringList items() const { return MenuTree::describe(menu.get()); }
};

const QStringList loading{u"(off) Loading…"_s};

constexpr std::chrono::milliseconds hoverDelay = 300ms;

MenuManager::Timings testTimings(const TestClock& clock) {
    MenuManager::Timings timings;
    timings.refreshInterval = 1h;
    timings.updateCheckDelay = 1h; // no update check in the middle of a test
    timings.hoverPrefetchDelay = hoverDelay;
    timings.clock = clock.clock();
    return timings;
}

AppConfig config(QList<qint64> pinned = {}) {
    AppConfig config;
    config.token = u"t"_s;
    config.pinnedCollectionIds = std::move(pinned);
    return config;
}

// Past the prefetch timer of a highlight made before this call.
bool runPastHoverDelay() {
    return Timers::runPast(hoverDelay + 1ms);
}

bool isLoading(const QMenu* menu) {
    return menu->property("loading").toBool();
}

} // namespace

class tst_LazyMenuDelegate : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void firstOpenLoads();
    void freshAndStale();
    void sameIdsLeaveItems();
    void emptyLists();
    void failedFirstLoad();
    void failedReloadKeepsItems();
    void noInFlightGuard();
    void prefetch();
    void reset();
    void menuGoneDuringLoad();
    void menuHoldsDelegateWeakly();

    void reopenThroughService();
    void emptyCollectionThroughService();
    void failedThenLoadedThroughService();
    void pinnedOpensFromCache();
    void bookmarkItemsInSubmenu();
    void managerGoneYieldsEmptyList();

    void shortHighlightPrefetchesNothing();
    void longHighlightPrefetchesOnce();
    void freshListNotPrefetched();
    void insideCollectionsNeverPrefetches();
    void leavingTheItemsStopsTheTimer();

    void grownSubmenuStaysBesideParent();
    void grownSubmenuOnTheRightKeepsItsPlace();
    void refilledWhileActionsOpen();
};

void tst_LazyMenuDelegate::firstOpenLoads() {
    Lazy lazy;
    lazy.script->bookmarks = {bookmark(1, u"One"_s), bookmark(2, u"Two"_s)};
    lazy.script->delay = 100ms;
    QCOMPARE(lazy.script->calls, 0);
    lazy.open();
    QCOMPARE(lazy.script->calls, 1);
    // The menu opens with what it has.
    QCOMPARE(lazy.items(), loading);
    QVERIFY(!lazy.delegate->loadedAt());
    QTRY_COMPARE(lazy.items(), QStringList({u"One"_s, u"Two"_s}));
    QCOMPARE(lazy.delegate->loadedAt(), std::optional<TimePoint>(*lazy.clock.now));
    QCOMPARE(lazy.delegate->loadedIds(), QSet<qint64>({1, 2}));
}

void tst_LazyMenuDelegate::freshAndStale() {
    Lazy lazy;
    lazy.script->bookmarks = {bookmark(1, u"One"_s)};
    lazy.open();
    QTRY_COMPARE(lazy.items(), QStringList{u"One"_s});

    lazy.clock.advance(1799s);
    lazy.open();
    lazy.clock.advance(1s); // exactly 1800 seconds: still fresh
    lazy.open();
    QCOMPARE(lazy.script->calls, 1);

    lazy.clock.advance(1ms);
    lazy.script->bookmarks = {bookmark(1, u"One"_s), bookmark(3, u"Three"_s)};
    lazy.script->delay = 150ms;
    lazy.open();
    QCOMPARE(lazy.script->calls, 2);
    // The old items stay while the list is fetched again.
    QCOMPARE(lazy.items(), QStringList{u"One"_s});
    QTRY_COMPARE(lazy.items(), QStringList({u"One"_s, u"Three"_s}));
}

void tst_LazyMenuDelegate::sameIdsLeaveItems() {
    Lazy lazy;
    lazy.script->bookmarks = {bookmark(1, u"One"_s), bookmark(2, u"Two"_s)};
    lazy.open();
    QTRY_COMPARE(lazy.items(), QStringList({u"One"_s, u"Two"_s}));
    const QList<QAction*> before = lazy.menu->actions();

    lazy.clock.advance(31min);
    // Another order and another title: the ids are the same, the items stay.
    lazy.script->bookmarks = {bookmark(2, u"Two, renamed"_s), bookmark(1, u"One"_s)};
    lazy.open();
    QTRY_VERIFY(lazy.delegate->loadedAt() == std::optional<TimePoint>(*lazy.clock.now));
    QCOMPARE(lazy.script->calls, 2);
    QCOMPARE(lazy.menu->actions(), before);
    QCOMPARE(lazy.items(), QStringList({u"One"_s, u"Two"_s}));
}

void tst_LazyMenuDelegate::emptyLists() {
    Lazy lazy;
    lazy.open();
    QTRY_VERIFY(lazy.delegate->loadedAt());
    // A first empty list leaves "Loading…".
    QCOMPARE(lazy.items(), loading);

    lazy.clock.advance(31min);
    lazy.script->bookmarks = {bookmark(5, u"Five"_s)};
    lazy.open();
    QTRY_COMPARE(lazy.items(), QStringList{u"Five"_s});

    lazy.clock.advance(31min);
    lazy.script->bookmarks = {};
    lazy.open();
    QTRY_COMPARE(lazy.items(), QStringList{u"(off) No bookmarks"_s});
}

void tst_LazyMenuDelegate::failedFirstLoad() {
    Lazy lazy;
    lazy.script->fails = true;
    lazy.open();
    QTRY_COMPARE(lazy.items(), QStringList{u"(off) Failed to load"_s});
    QVERIFY(!lazy.delegate->loadedAt());

    // The next opening tries again, without waiting for staleness.
    lazy.script->fails = false;
    lazy.script->bookmarks = {bookmark(1, u"One"_s)};
    lazy.open();
    QTRY_COMPARE(lazy.items(), QStringList{u"One"_s});
    QCOMPARE(lazy.script->calls, 2);
}

void tst_LazyMenuDelegate::failedReloadKeepsItems() {
    Lazy lazy;
    lazy.script->bookmarks = {bookmark(1, u"One"_s)};
    lazy.open();
    QTRY_COMPARE(lazy.items(), QStringList{u"One"_s});
    const std::optional<TimePoint> loadedAt = lazy.delegate->loadedAt();

    lazy.clock.advance(31min);
    lazy.script->fails = true;
    lazy.open();
    QCOMPARE(lazy.script->calls, 2);
    QTRY_VERIFY(!isLoading(lazy.menu.get()));
    QCOMPARE(lazy.script->finished, 2);
    QCOMPARE(lazy.items(), QStringList{u"One"_s});
    QCOMPARE(lazy.delegate->loadedAt(), loadedAt);
}

void tst_LazyMenuDelegate::noInFlightGuard() {
    Lazy lazy;
    lazy.script->bookmarks = {bookmark(1, u"One"_s)};
    lazy.script->delay = 100ms;
    lazy.open();
    lazy.open();
    QCOMPARE(lazy.script->calls, 2);
    QTRY_COMPARE(lazy.items(), QStringList{u"One"_s});
    // The second load ends too, and changes nothing.
    QTRY_COMPARE(lazy.script->finished, 2);
    QTRY_VERIFY(!isLoading(lazy.menu.get()));
    QCOMPARE(lazy.items(), QStringList{u"One"_s});
}

void tst_LazyMenuDelegate::prefetch() {
    Lazy lazy;
    lazy.script->bookmarks = {bookmark(1, u"One"_s)};
    lazy.delegate->prefetch();
    QCOMPARE(lazy.script->calls, 1);
    QTRY_COMPARE(lazy.script->finished, 1);
    // Only the fetch happens.
    QCOMPARE(lazy.items(), loading);
    QVERIFY(!lazy.delegate->loadedAt());
    QVERIFY(lazy.delegate->loadedIds().isEmpty());

    lazy.open();
    QTRY_COMPARE(lazy.items(), QStringList{u"One"_s});
    lazy.delegate->prefetch();
    QCOMPARE(lazy.script->calls, 2);
    lazy.clock.advance(31min);
    lazy.script->fails = true;
    lazy.delegate->prefetch();
    QCOMPARE(lazy.script->calls, 3);
    QTRY_COMPARE(lazy.script->finished, 3);
    QCOMPARE(lazy.items(), QStringList{u"One"_s});
}

void tst_LazyMenuDelegate::reset() {
    Lazy lazy;
    lazy.script->bookmarks = {bookmark(1, u"One"_s)};
    lazy.open();
    QTRY_VERIFY(lazy.delegate->loadedAt());
    lazy.delegate->reset();
    QVERIFY(!lazy.delegate->loadedAt());
    QVERIFY(lazy.delegate->loadedIds().isEmpty());
    lazy.open();
    QCOMPARE(lazy.script->calls, 2);
}

void tst_LazyMenuDelegate::menuGoneDuringLoad() {
    Lazy lazy;
    lazy.script->bookmarks = {bookmark(1, u"One"_s)};
    lazy.script->delay = 100ms;
    lazy.open();
    lazy.menu.reset();
    QTRY_COMPARE(lazy.script->finished, 1);
    QCOMPARE(lazy.script->calls, 1);
    QVERIFY(!lazy.delegate->loadedAt());
}

void tst_LazyMenuDelegate::menuHoldsDelegateWeakly() {
    Lazy lazy;
    lazy.script->delay = 100ms;
    QCOMPARE(LazyMenuDelegate::of(lazy.menu.get()), lazy.delegate);
    const std::weak_ptr<LazyMenuDelegate> weak = lazy.delegate;
    lazy.delegate.reset();
    QVERIFY(weak.expired());
    QVERIFY(!LazyMenuDelegate::of(lazy.menu.get()));
    lazy.open();
    QCOMPARE(lazy.script->calls, 0);

    // A load in flight keeps its delegate until it ends.
    Lazy other;
    other.script->bookmarks = {bookmark(1, u"One"_s)};
    other.script->delay = 100ms;
    other.open();
    const std::weak_ptr<LazyMenuDelegate> loading = other.delegate;
    other.delegate.reset();
    QVERIFY(!loading.expired());
    QTRY_COMPARE(other.items(), QStringList{u"One"_s});
    QTRY_VERIFY(loading.expired());
}

void tst_LazyMenuDelegate::reopenThroughService() {
    FakeRaindropService service;
    service.setItems(u"recent"_s, {FakeRaindropService::bookmark(1, u"Old"_s, u"https://o/"_s)});
    TestClock clock;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings(clock));
    manager.buildInitialMenu();
    manager.loadData();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QMenu* recent = MenuTree::submenu(menu, u"🕐 Recent"_s);

    Q_EMIT recent->aboutToShow();
    QTRY_COMPARE(MenuTree::describe(recent), QStringList{u"Old ▸"_s});
    QCOMPARE(service.count(u"recent"_s), 1);
    const TestHttpServer::Request request = service.requestsOf(u"recent"_s).constFirst();
    QCOMPARE(request.queryItems,
             (QList<QPair<QString, QString>>{{u"sort"_s, u"-created"_s}, {u"perpage"_s, u"10"_s}}));

    clock.advance(29min);
    Q_EMIT recent->aboutToShow();
    roundTrip(manager.api());
    QCOMPARE(service.count(u"recent"_s), 1);

    clock.advance(2min);
    service.set(u"recent"_s, FakeRaindropService::list(
                                 {FakeRaindropService::bookmark(2, u"New"_s, u"https://n/"_s),
                                  FakeRaindropService::bookmark(1, u"Old"_s, u"https://o/"_s)})
                                 .held());
    Q_EMIT recent->aboutToShow();
    QTRY_COMPARE(service.count(u"recent"_s), 2);
    QCOMPARE(MenuTree::describe(recent), QStringList{u"Old ▸"_s});
    service.server().release();
    QTRY_COMPARE(MenuTree::describe(recent), QStringList({u"New ▸"_s, u"Old ▸"_s}));
}

void tst_LazyMenuDelegate::emptyCollectionThroughService() {
    FakeRaindropService service;
    service.setItems(u"collections"_s, {FakeRaindropService::collection(7, u"Empty"_s, 0)});
    service.setItems(u"recent"_s, {FakeRaindropService::bookmark(1, u"Last"_s, u"https://l/"_s)});
    TestClock clock;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings(clock));
    manager.buildInitialMenu();
    manager.loadData();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);

    QMenu* empty = MenuTree::submenu(MenuTree::submenu(menu, u"📁 Collections"_s), u"Empty"_s);
    Q_EMIT empty->aboutToShow();
    QTRY_COMPARE(service.count(u"col_7"_s), 1);
    QTRY_VERIFY(!isLoading(empty));
    QCOMPARE(MenuTree::describe(empty), loading);
    const TestHttpServer::Request request = service.requestsOf(u"col_7"_s).constFirst();
    QCOMPARE(request.query(u"perpage"_s), u"50"_s);

    // The last bookmark of a list goes away: "No bookmarks" on the next reload.
    QMenu* recent = MenuTree::submenu(menu, u"🕐 Recent"_s);
    Q_EMIT recent->aboutToShow();
    QTRY_COMPARE(MenuTree::describe(recent), QStringList{u"Last ▸"_s});
    service.setItems(u"recent"_s, {});
    clock.advance(31min);
    Q_EMIT recent->aboutToShow();
    QTRY_COMPARE(MenuTree::describe(recent), QStringList{u"(off) No bookmarks"_s});
}

void tst_LazyMenuDelegate::failedThenLoadedThroughService() {
    FakeRaindropService service;
    service.setItems(u"tags"_s, {FakeRaindropService::tag(u"news"_s, 2)});
    service.set(u"tag_news"_s, TestHttpServer::Response::json("{}", 500));
    TestClock clock;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings(clock));
    manager.buildInitialMenu();
    manager.loadData();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QMenu* news = MenuTree::submenu(MenuTree::submenu(menu, u"🏷 Tags"_s), u"#news  (2)"_s);
    Q_EMIT news->aboutToShow();
    QTRY_COMPARE(MenuTree::describe(news), QStringList{u"(off) Failed to load"_s});
    service.setItems(u"tag_news"_s,
                     {FakeRaindropService::bookmark(4, u"Story"_s, u"https://s/"_s)});
    Q_EMIT news->aboutToShow();
    QTRY_COMPARE(MenuTree::describe(news), QStringList{u"Story ▸"_s});
    QCOMPARE(service.count(u"tag_news"_s), 2);
}

void tst_LazyMenuDelegate::pinnedOpensFromCache() {
    FakeRaindropService service;
    service.setItems(u"collections"_s, {FakeRaindropService::collection(8, u"Pinned"_s, 1)});
    service.setItems(u"col_8"_s, {FakeRaindropService::bookmark(3, u"Kept"_s, u"https://k/"_s)});
    TestClock clock;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config({8}), service.environment(), testTimings(clock));
    manager.buildInitialMenu();
    manager.loadData();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QTRY_COMPARE(service.count(u"col_8"_s), 1); // the warm-up
    QTRY_VERIFY(manager.api()->isCached(RaindropAPI::collectionKey(8)));
    QMenu* pinned = MenuTree::submenu(menu, u"Pinned"_s);
    Q_EMIT pinned->aboutToShow();
    // Served from the cache at once, before the menu is even shown.
    QCOMPARE(MenuTree::describe(pinned), QStringList{u"Kept ▸"_s});
    QCOMPARE(service.count(u"col_8"_s), 1);
}

void tst_LazyMenuDelegate::bookmarkItemsInSubmenu() {
    FakeRaindropService service;
    service.setItems(u"recent"_s, {FakeRaindropService::bookmark(1, u"Salt & Pepper_"_s,
                                                                 u"https://s/"_s, true)});
    TestClock clock;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings(clock));
    manager.buildInitialMenu();
    manager.loadData();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QMenu* recent = MenuTree::submenu(menu, u"🕐 Recent"_s);
    Q_EMIT recent->aboutToShow();
    QTRY_COMPARE(MenuTree::describe(recent), QStringList{u"Salt && Pepper_ ▸"_s});
    QCOMPARE(MenuTree::describe(MenuTree::submenu(recent, u"Salt && Pepper_"_s)),
             QStringList({u"↗ Open"_s, u"---"_s, u"⎘ Copy URL"_s, u"[ ] Copy as Markdown"_s,
                          u"✎ Edit in Raindrop"_s, u"---"_s, u"♥ Remove from Favourites"_s}));
}

void tst_LazyMenuDelegate::managerGoneYieldsEmptyList() {
    FakeRaindropService service;
    service.setItems(u"recent"_s, {FakeRaindropService::bookmark(1, u"One"_s, u"https://o/"_s)});
    TestClock clock;
    StatusItem statusItem;
    auto manager = std::make_unique<MenuManager>(&statusItem, config(), service.environment(),
                                                 testTimings(clock));
    manager->buildInitialMenu();
    manager->loadData();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QMenu* recent = MenuTree::submenu(menu, u"🕐 Recent"_s);
    const std::shared_ptr<LazyMenuDelegate> delegate = LazyMenuDelegate::of(recent);
    QVERIFY(delegate);
    const int before = service.server().requestCount();
    const std::shared_ptr<RaindropAPI> api = manager->api();

    manager.reset();
    // The delegate outlives its manager here; its fetch asks nothing and finds nothing.
    delegate->prefetch();
    Q_EMIT recent->aboutToShow();
    QTRY_VERIFY(delegate->loadedAt());
    roundTrip(api);
    QCOMPARE(service.server().requestCount(), before + 1);
    QCOMPARE(service.count(u"recent"_s), 0);
    QCOMPARE(MenuTree::describe(recent), loading);
}

namespace {

// A running manager whose menu is open on the offscreen screen, for the hover tests.
struct Hover {
    FakeRaindropService service;
    TestClock clock;
    StatusItem statusItem;
    std::unique_ptr<MenuManager> manager;
    QMenu* menu = nullptr;

    explicit Hover(QList<qint64> pinned = {}) {
        service.setItems(u"collections"_s, {FakeRaindropService::collection(8, u"Pinned"_s, 1),
                                            FakeRaindropService::collection(9, u"Inner"_s, 1)});
        // The warm-up of the pinned list fails, so that its cache stays empty.
        service.set(u"col_8"_s, TestHttpServer::Response::json("{}", 500));
        service.setItems(u"favourites"_s,
                         {FakeRaindropService::bookmark(5, u"Fav"_s, u"https://f/"_s)});
        manager = std::make_unique<MenuManager>(&statusItem, config(std::move(pinned)),
                                                service.environment(), testTimings(clock));
        manager->buildInitialMenu();
        manager->loadData();
        menu = MenuTree::waitForFullMenu(statusItem);
        if (menu) {
            menu->popup(QPoint(10, 10));
            // The keys go to a menu that is shown.
            if (!QTest::qWaitForWindowExposed(menu))
                menu = nullptr;
        }
    }
    QAction* item(const QString& text) const { return MenuTree::item(menu, text); }
    // Moves the highlight with the arrow keys, as a person does; unlike a pointer resting on
    // an item, the keys do not open its submenu.
    bool highlight(const QString& text) const { return highlightIn(menu, item(text)); }
    static bool highlightIn(QMenu* menu, QAction* target) {
        for (const Qt::Key key : {Qt::Key_Down, Qt::Key_Up}) {
            for (qsizetype i = 0; i < menu->actions().size() && menu->activeAction() != target; ++i)
                QTest::keyClick(menu, key);
        }
        return menu->activeAction() == target && (!target->menu() || !target->menu()->isVisible());
    }
};

} // namespace

void tst_LazyMenuDelegate::shortHighlightPrefetchesNothing() {
    Hover hover({8});
    QVERIFY(hover.menu);
    QTRY_COMPARE(hover.service.count(u"col_8"_s), 1);
    const std::shared_ptr<RaindropAPI> api = hover.manager->api();
    // Two thirds of the delay on Recent, then on the pinned list (the delay begins again, so
    // Recent's would have ended meanwhile), then on a plain item.
    const QDeadlineTimer onRecent(hoverDelay * 2 / 3);
    QVERIFY(hover.highlight(u"🕐 Recent"_s));
    QVERIFY(Timers::runUntil(onRecent));
    const QDeadlineTimer onPinned(hoverDelay * 2 / 3);
    QVERIFY(hover.highlight(u"Pinned"_s));
    QVERIFY(Timers::runUntil(onPinned));
    QVERIFY(hover.highlight(u"🌐 Open Raindrop Web"_s));
    QVERIFY(runPastHoverDelay());
    roundTrip(api);
    QCOMPARE(hover.service.count(u"recent"_s), 0);
    QCOMPARE(hover.service.count(u"col_8"_s), 1);
    // A bookmark item has a submenu of its own, but no list to fetch.
    QVERIFY(hover.highlight(u"Fav"_s));
    QVERIFY(runPastHoverDelay());
    roundTrip(api);
    QCOMPARE(hover.service.server().requestCount(), 4 + 2); // and the two round trips
}

void tst_LazyMenuDelegate::longHighlightPrefetchesOnce() {
    Hover hover({8});
    QVERIFY(hover.menu);
    QTRY_COMPARE(hover.service.count(u"col_8"_s), 1);
    const std::shared_ptr<RaindropAPI> api = hover.manager->api();
    hover.service.setItems(u"col_8"_s,
                           {FakeRaindropService::bookmark(3, u"Kept"_s, u"https://k/"_s)});
    QVERIFY(hover.highlight(u"Pinned"_s));
    const QDeadlineTimer due(hoverDelay + 1ms);
    // The pointer moving over the same item halfway does not restart the delay: the prefetch
    // comes when it was first due, before a restarted delay would end.
    QVERIFY(Timers::runPast(hoverDelay / 2));
    Q_EMIT hover.menu->hovered(hover.item(u"Pinned"_s));
    QVERIFY(Timers::runUntil(due));
    roundTrip(api);
    QCOMPARE(hover.service.count(u"col_8"_s), 2);
    QVERIFY(runPastHoverDelay());
    roundTrip(api);
    QCOMPARE(hover.service.count(u"col_8"_s), 2);
    QTRY_VERIFY(hover.manager->api()->isCached(RaindropAPI::collectionKey(8)));
    // The prefetch changed nothing in the menu; opening it is served from the cache.
    QMenu* pinned = MenuTree::submenu(hover.menu, u"Pinned"_s);
    QCOMPARE(MenuTree::describe(pinned), loading);
    QVERIFY(!LazyMenuDelegate::of(pinned)->loadedAt());
    Q_EMIT pinned->aboutToShow();
    QCOMPARE(MenuTree::describe(pinned), QStringList{u"Kept ▸"_s});
    QCOMPARE(hover.service.count(u"col_8"_s), 2);

    // Recent is never cached: its prefetch is one request all the same.
    QVERIFY(hover.highlight(u"🕐 Recent"_s));
    QTRY_COMPARE(hover.service.count(u"recent"_s), 1);
    QVERIFY(runPastHoverDelay());
    roundTrip(api);
    QCOMPARE(hover.service.count(u"recent"_s), 1);
}

void tst_LazyMenuDelegate::freshListNotPrefetched() {
    Hover hover;
    QVERIFY(hover.menu);
    QMenu* recent = MenuTree::submenu(hover.menu, u"🕐 Recent"_s);
    Q_EMIT recent->aboutToShow();
    QTRY_COMPARE(hover.service.count(u"recent"_s), 1);
    QTRY_VERIFY(LazyMenuDelegate::of(recent)->loadedAt());

    hover.clock.advance(29min);
    QVERIFY(hover.highlight(u"🕐 Recent"_s));
    QVERIFY(runPastHoverDelay());
    roundTrip(hover.manager->api());
    QCOMPARE(hover.service.count(u"recent"_s), 1);

    hover.clock.advance(2min);
    QVERIFY(hover.highlight(u"🌐 Open Raindrop Web"_s));
    QVERIFY(hover.highlight(u"🕐 Recent"_s));
    QTRY_COMPARE(hover.service.count(u"recent"_s), 2);
}

void tst_LazyMenuDelegate::insideCollectionsNeverPrefetches() {
    Hover hover;
    QVERIFY(hover.menu);
    QAction* collections = hover.item(u"📁 Collections"_s);
    hover.menu->setActiveAction(collections);
    QTRY_VERIFY(collections->menu()->isVisible());
    QAction* inner = MenuTree::item(collections->menu(), u"Inner  (1)"_s);
    QVERIFY(Hover::highlightIn(collections->menu(), inner));
    QVERIFY(runPastHoverDelay());
    roundTrip(hover.manager->api());
    QCOMPARE(hover.service.count(u"col_9"_s), 0);
    QCOMPARE(hover.service.count(u"col_8"_s), 0);
    QCOMPARE(hover.service.server().requestCount(), 3 + 1); // and the round trip
}

void tst_LazyMenuDelegate::leavingTheItemsStopsTheTimer() {
    Hover hover;
    QVERIFY(hover.menu);
    const std::shared_ptr<RaindropAPI> api = hover.manager->api();
    // Onto a separator.
    QVERIFY(hover.highlight(u"🕐 Recent"_s));
    const QRect separator = hover.menu->actionGeometry(hover.menu->actions().at(3));
    QVERIFY(hover.menu->actions().at(3)->isSeparator());
    QTest::mouseMove(hover.menu, separator.center());
    QTRY_VERIFY(!hover.menu->activeAction());
    QVERIFY(runPastHoverDelay());
    roundTrip(api);
    QCOMPARE(hover.service.count(u"recent"_s), 0);

    // Onto a disabled line.
    QVERIFY(hover.highlight(u"🕐 Recent"_s));
    QTest::mouseMove(hover.menu,
                     hover.menu->actionGeometry(hover.item(u"❤️ Favourites"_s)).center());
    QTRY_VERIFY(!hover.menu->activeAction());
    QVERIFY(runPastHoverDelay());
    roundTrip(api);
    QCOMPARE(hover.service.count(u"recent"_s), 0);

    // The menu closes.
    QVERIFY(hover.highlight(u"🕐 Recent"_s));
    hover.menu->hide();
    QVERIFY(runPastHoverDelay());
    roundTrip(api);
    QCOMPARE(hover.service.count(u"recent"_s), 0);

    // Coming back to the item starts the delay again.
    hover.menu->popup(QPoint(10, 10));
    QVERIFY(hover.highlight(u"🕐 Recent"_s));
    QTRY_COMPARE(hover.service.count(u"recent"_s), 1);
}

void tst_LazyMenuDelegate::grownSubmenuStaysBesideParent() {
    FakeRaindropService service;
    service.set(u"recent"_s, FakeRaindropService::list(
                                 {FakeRaindropService::bookmark(
                                      1, u"A bookmark whose title is long enough to widen it"_s,
                                      u"https://w/"_s),
                                  FakeRaindropService::bookmark(2, u"Two"_s, u"https://t/"_s)})
                                 .held());
    TestClock clock;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings(clock));
    manager.buildInitialMenu();
    manager.loadData();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    // A tray menu at the right edge of the screen: the submenu opens to its left.
    const QRect screen = menu->screen()->availableGeometry();
    menu->popup(QPoint(screen.right() - menu->sizeHint().width(), 10));
    QTRY_VERIFY(menu->isVisible());
    QAction* recentItem = MenuTree::item(menu, u"🕐 Recent"_s);
    menu->setActiveAction(recentItem);
    QMenu* recent = recentItem->menu();
    QTRY_VERIFY(recent->isVisible());
    const QRect before = recent->geometry();
    QVERIFY2(before.right() < menu->geometry().left() + 8, "opened to the left");

    QTRY_COMPARE(service.count(u"recent"_s), 1);
    service.server().release();
    QTRY_COMPARE(MenuTree::describe(recent).size(), 2);
    QTRY_VERIFY2(recent->geometry().width() > before.width(), "grew");
    QTRY_COMPARE(recent->geometry().right(), before.right());
    QTRY_COMPARE(recent->geometry().top(), before.top());
    const QRect after = recent->geometry();
    QVERIFY(!after.intersects(menu->geometry().adjusted(8, 0, 0, 0)));
}

void tst_LazyMenuDelegate::grownSubmenuOnTheRightKeepsItsPlace() {
    FakeRaindropService service;
    service.set(u"recent"_s, FakeRaindropService::list(
                                 {FakeRaindropService::bookmark(
                                     1, u"A bookmark whose title is long enough to widen it"_s,
                                     u"https://w/"_s)})
                                 .held());
    TestClock clock;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings(clock));
    manager.buildInitialMenu();
    manager.loadData();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    menu->popup(QPoint(0, 10));
    QTRY_VERIFY(menu->isVisible());
    QAction* recentItem = MenuTree::item(menu, u"🕐 Recent"_s);
    menu->setActiveAction(recentItem);
    QMenu* recent = recentItem->menu();
    QTRY_VERIFY(recent->isVisible());
    const QRect before = recent->geometry();
    QVERIFY(before.left() > menu->geometry().left());
    QTRY_COMPARE(service.count(u"recent"_s), 1);
    service.server().release();
    QTRY_COMPARE(MenuTree::describe(recent).size(), 1);
    QTRY_VERIFY(MenuTree::describe(recent) != loading);
    QTRY_VERIFY(recent->geometry().width() > before.width());
    QTRY_COMPARE(recent->geometry().topLeft(), before.topLeft());
}

void tst_LazyMenuDelegate::refilledWhileActionsOpen() {
    FakeRaindropService service;
    service.setItems(u"recent"_s, {FakeRaindropService::bookmark(1, u"Old"_s, u"https://o/"_s)});
    TestClock clock;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings(clock));
    manager.buildInitialMenu();
    manager.loadData();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    menu->popup(QPoint(10, 10));
    QTRY_VERIFY(menu->isVisible());
    QAction* recentItem = MenuTree::item(menu, u"🕐 Recent"_s);
    QMenu* recent = recentItem->menu();
    menu->setActiveAction(recentItem);
    QTRY_COMPARE(MenuTree::describe(recent), QStringList{u"Old ▸"_s});
    clock.advance(1h);

    // The old list's item is open when the new list arrives.
    service.set(u"recent"_s, FakeRaindropService::list(
                                 {FakeRaindropService::bookmark(2, u"New"_s, u"https://n/"_s)})
                                 .held());
    recent->hide();
    menu->setActiveAction(nullptr);
    menu->setActiveAction(recentItem);
    QTRY_VERIFY(recent->isVisible());
    QAction* old = MenuTree::item(recent, u"Old"_s);
    QPointer<QMenu> actions = old->menu();
    recent->setActiveAction(old);
    QTRY_VERIFY(actions->isVisible());
    QTRY_COMPARE(service.count(u"recent"_s), 2);
    service.server().release();
    QTRY_COMPARE(MenuTree::describe(recent), QStringList{u"New ▸"_s});
    QTRY_VERIFY(!actions);
    // The menus go on working.
    QAction* fresh = MenuTree::item(recent, u"New"_s);
    recent->setActiveAction(fresh);
    QTRY_VERIFY(fresh->menu()->isVisible());
    QTest::mouseMove(recent, recent->actionGeometry(fresh).center());
    QTest::mouseMove(menu, menu->actionGeometry(recentItem).center());
    menu->hide();
}

QTEST_MAIN(tst_LazyMenuDelegate)
#include "tst_LazyMenuDelegate.moc"
