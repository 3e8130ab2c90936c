#include "FakeRaindropService.h"
#include "MenuTree.h"
#include "RoundTrip.h"

#include "app/tray/StatusItem.h"
#include "menu/BootClock.h"
#include "menu/MenuManager.h"

#include <QSignalSpy>
#include <QTest>

#include <ctime>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// A clock that moves only when the test moves it, as across a suspend.
struct TestClock {
    std::shared_ptr<std::chrono::nanoseconds> now = std::make_shared<std::chrono::nanoseconds>(1h);
    void advance(std::chrono::nanoseconds by) const { *now += by; }
};

MenuManager::Timings testTimings(const TestClock& clock) {
    MenuManager::Timings timings;
    timings.refreshInterval = 300s;
    timings.updateCheckDelay = 1h; // no update check in the middle of a test
    timings.requestTimeout = 5s;
    timings.bootClock = [now = clock.now] {
        return *now;
    };
    return timings;
}

AppConfig config() {
    AppConfig config;
    config.token = u"test-token"_s;
    return config;
}

void answerEverything(FakeRaindropService& service) {
    service.setItems(u"favourites"_s, {FakeRaindropService::bookmark(1, u"A favourite"_s,
                                                                     u"https://one.example/"_s)});
    service.setItems(u"collections"_s, {FakeRaindropService::collection(10, u"Reading"_s, 2)});
    service.setItems(u"tags"_s, {FakeRaindropService::tag(u"later"_s, 1)});
}

const TestHttpServer::Response failure{500, "down", {}, {}, {}};

bool hasFailureLine(const QMenu* menu) {
    const QStringList lines = MenuTree::describe(menu);
    return lines.contains(u"(off) Failed to load favourites"_s) ||
           lines.contains(u"(off) Failed to load collections and tags"_s);
}

} // namespace

// The menu reloads when the network returns or the computer wakes, only when it is outdated.
class tst_MenuReload : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void bootClockCountsSleep();
    void freshMenuIsKept();
    void failedFavouritesReload();
    void failedCollectionsReload();
    void olderThanRefreshIntervalReloads();
    void oneLoadInFlight();
    void failedBuildInFlightIsFollowedOnce();
    void waitsForOpenMenuToClose();

private:
    std::unique_ptr<MenuManager> start(FakeRaindropService& service, StatusItem& statusItem,
                                       const TestClock& clock) {
        auto manager = std::make_unique<MenuManager>(&statusItem, config(), service.environment(),
                                                     testTimings(clock));
        manager->buildInitialMenu();
        manager->loadData();
        return manager;
    }
};

void tst_MenuReload::bootClockCountsSleep() {
    // The menu's age is measured on the clock that a suspend advances, which never runs behind
    // the monotonic clock that QTimer uses (that one stops while the machine sleeps).
    timespec monotonic{};
    clock_gettime(CLOCK_MONOTONIC, &monotonic);
    const std::chrono::nanoseconds boot = MenuManager::Timings().bootClock();
    QVERIFY(boot >=
            std::chrono::seconds(monotonic.tv_sec) + std::chrono::nanoseconds(monotonic.tv_nsec));
    QVERIFY(BootClock::now() >= boot);
}

void tst_MenuReload::freshMenuIsKept() {
    FakeRaindropService service;
    answerEverything(service);
    TestClock clock;
    StatusItem statusItem;
    auto manager = start(service, statusItem, clock);
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QVERIFY(service.server().waitForRequests(3));
    const int requests = service.server().requestCount();

    clock.advance(300s); // as old as the interval, not older
    manager->reloadIfOutdated();
    manager->reloadIfOutdated();
    // A reload would have put the placeholder up at once.
    QCOMPARE(statusItem.menu(), menu);
    roundTrip(manager->api());
    QCOMPARE(service.server().requestCount(), requests + 1);
}

void tst_MenuReload::failedFavouritesReload() {
    FakeRaindropService service;
    answerEverything(service);
    service.set(u"favourites"_s, failure);
    TestClock clock;
    StatusItem statusItem;
    auto manager = start(service, statusItem, clock);
    QMenu* failed = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(failed);
    QVERIFY(MenuTree::item(failed, u"Failed to load favourites"_s));

    // The service answers again; a moment later, not an interval later, the menu is whole.
    answerEverything(service);
    manager->reloadIfOutdated();
    QVERIFY(!MenuTree::isFull(statusItem.menu()));
    QMenu* menu = MenuTree::waitForFullMenu(statusItem, failed);
    QVERIFY(menu);
    QVERIFY(!hasFailureLine(menu));
    QVERIFY(MenuTree::item(menu, u"A favourite"_s));
    QCOMPARE(service.count(u"favourites"_s), 2);
}

void tst_MenuReload::failedCollectionsReload() {
    FakeRaindropService service;
    answerEverything(service);
    service.set(u"collections"_s, failure);
    TestClock clock;
    StatusItem statusItem;
    auto manager = start(service, statusItem, clock);
    QMenu* failed = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(failed);
    QVERIFY(MenuTree::item(failed, u"Failed to load collections and tags"_s));

    answerEverything(service);
    manager->reloadIfOutdated();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem, failed);
    QVERIFY(menu);
    QVERIFY(!hasFailureLine(menu));
    QVERIFY(MenuTree::submenu(menu, u"📁 Collections"_s));
}

void tst_MenuReload::olderThanRefreshIntervalReloads() {
    FakeRaindropService service;
    answerEverything(service);
    TestClock clock;
    StatusItem statusItem;
    auto manager = start(service, statusItem, clock);
    QMenu* first = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(first);
    QCOMPARE(service.count(u"favourites"_s), 1);

    // The machine slept for longer than the refresh interval; the timer has not fired since.
    service.setItems(u"favourites"_s, {FakeRaindropService::bookmark(2, u"Saved overnight"_s,
                                                                     u"https://two.example/"_s)});
    clock.advance(300s + 1ms);
    manager->reloadIfOutdated();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem, first);
    QVERIFY(menu);
    // As a refresh does, the reload asks the service again rather than its cache.
    QCOMPARE(service.count(u"favourites"_s), 2);
    QVERIFY(MenuTree::item(menu, u"Saved overnight"_s));

    // Measured from the new build on.
    const int requests = service.server().requestCount();
    clock.advance(299s);
    manager->reloadIfOutdated();
    QCOMPARE(statusItem.menu(), menu);
    roundTrip(manager->api());
    QCOMPARE(service.server().requestCount(), requests + 1);
}

void tst_MenuReload::oneLoadInFlight() {
    FakeRaindropService service;
    answerEverything(service);
    service.set(u"favourites"_s, FakeRaindropService::list(
                                     {FakeRaindropService::bookmark(1, u"Slow"_s, u"https://s/"_s)})
                                     .held());
    TestClock clock;
    StatusItem statusItem;
    auto manager = start(service, statusItem, clock);
    QMenu* placeholder = statusItem.menu();
    QVERIFY(service.server().waitForRequests(1));

    // The build under way is the load; no second one starts.
    manager->reloadIfOutdated();
    manager->reloadIfOutdated();
    QCOMPARE(statusItem.menu(), placeholder);
    service.server().release();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QVERIFY(!hasFailureLine(menu));
    // It succeeded: nothing follows it.
    QVERIFY(service.server().waitForRequests(3));
    roundTrip(manager->api());
    QCOMPARE(statusItem.menu(), menu);
    QCOMPARE(service.count(u"favourites"_s), 1);
}

void tst_MenuReload::failedBuildInFlightIsFollowedOnce() {
    FakeRaindropService service;
    answerEverything(service);
    TestHttpServer::Response slowFailure = failure;
    service.set(u"favourites"_s, slowFailure.held());
    TestClock clock;
    StatusItem statusItem;
    // Each menu attached: "placeholder", "failed" or "whole".
    QStringList attached;
    connect(&statusItem, &StatusItem::menuChanged, this, [&attached](QMenu* menu) {
        attached.append(!MenuTree::isFull(menu) ? u"placeholder"_s
                        : hasFailureLine(menu)  ? u"failed"_s
                                                : u"whole"_s);
    });
    auto manager = start(service, statusItem, clock);
    QVERIFY(service.server().waitForRequests(1));

    // The network came back while the build waited for a service that was still unreachable.
    manager->reloadIfOutdated();
    manager->reloadIfOutdated();
    answerEverything(service);
    service.server().release();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QVERIFY(!hasFailureLine(menu));
    // The failed build was followed by one reload, at once.
    QCOMPARE(attached, QStringList({u"placeholder"_s, u"failed"_s, u"placeholder"_s, u"whole"_s}));
    QCOMPARE(service.count(u"favourites"_s), 2);
}

void tst_MenuReload::waitsForOpenMenuToClose() {
    FakeRaindropService service;
    answerEverything(service);
    service.set(u"favourites"_s, failure);
    TestClock clock;
    StatusItem statusItem;
    auto manager = start(service, statusItem, clock);
    QMenu* failed = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(failed);
    const int requests = service.server().requestCount();
    answerEverything(service);

    failed->popup(QPoint(10, 10));
    QTRY_VERIFY(failed->isVisible());
    manager->reloadIfOutdated();
    manager->reloadIfOutdated();
    // Nothing changes under the open menu.
    roundTrip(manager->api());
    QCOMPARE(statusItem.menu(), failed);
    QVERIFY(failed->isVisible());
    QCOMPARE(service.server().requestCount(), requests + 1);

    // Once it closes, the reload follows, once.
    failed->hide();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem, failed);
    QVERIFY(menu);
    QVERIFY(!hasFailureLine(menu));
    QCOMPARE(service.count(u"favourites"_s), 2);
}

QTEST_MAIN(tst_MenuReload)
#include "tst_MenuReload.moc"
