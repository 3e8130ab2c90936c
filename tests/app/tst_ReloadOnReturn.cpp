#include "../menu/MenuTree.h"

#include "FakeLogind.h"
#include "FakeNetworkManager.h"
#include "FakeRaindropService.h"
#include "PrivateSessionBus.h"
#include "RoundTrip.h"
#include "app/AppDelegate.h"
#include "config/AppConfig.h"

#include <QFile>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using State = FakeNetworkManager::State;

namespace {

const QString token = u"reload-token"_s;

// The suspend-counting clock of the menu, moved by the test.
struct TestClock {
    std::shared_ptr<std::chrono::nanoseconds> now = std::make_shared<std::chrono::nanoseconds>(1h);
    void advance(std::chrono::nanoseconds by) const { *now += by; }
};

MenuManager::Timings testTimings(const TestClock& clock) {
    MenuManager::Timings timings;
    timings.refreshInterval = 300s; // the timer never fires here: every reload is a trigger's
    timings.updateCheckDelay = 1h;
    timings.requestTimeout = 5s;
    timings.bootClock = [now = clock.now] {
        return *now;
    };
    return timings;
}

Environment environmentOf(const FakeRaindropService& service) {
    Environment environment;
    environment.apiBase = service.apiBase();
    environment.updateManifest = service.apiBase() + u"/latest.json"_s;
    environment.version = u"1.0"_s;
    return environment;
}

void fill(FakeRaindropService& service) {
    service.addCollection(501, u"Reading"_s);
    service.addBookmark(
        {7001, u"Kept for later"_s, u"https://later.example/"_s, 501, true, {u"later"_s}});
}

bool hasFailureLine(const QMenu* menu) {
    const QStringList lines = MenuTree::describe(menu);
    return lines.contains(u"(off) Failed to load favourites"_s) ||
           lines.contains(u"(off) Failed to load collections and tags"_s);
}

// A delegate started with the token, its watchers up and its first full menu attached.
struct Running {
    Running(const FakeRaindropService& service, const TestClock& clock)
        : delegate({environmentOf(service), testTimings(clock)}) {
        delegate.applicationDidFinishLaunching();
        menu = MenuTree::waitForFullMenu(*delegate.statusItem());
        QTRY_VERIFY(delegate.connectivityWatcher() && delegate.resumeWatcher());
        // NetworkManager has told its state.
        QTRY_VERIFY(delegate.connectivityWatcher()->isAvailable());
    }
    AppDelegate delegate;
    QMenu* menu = nullptr;
};

} // namespace

// NetworkManager and logind on a system bus of the test's own: the menu reloads when the
// network returns and when the computer wakes up, if it is outdated.
class tst_ReloadOnReturn : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void watchersFindTheServices();
    void networkReturnsAfterFailedStart();
    void networkReturnsToFreshMenu();
    void networkReturnsToOldMenu();
    void wakeUpAfterLongSleep();
    void wakeUpAfterShortSleep();
    void wakeUpAfterFailedBuild();
    void reloadWaitsForOpenMenu();
    void setupMenuIsLeftAlone();

private:
    // Sets NetworkManager's state; with a delegate, returns once the delegate has heard it.
    void setNetwork(State state, const AppDelegate* delegate = nullptr);
    void wake(const AppDelegate& delegate, const TestClock& clock, std::chrono::seconds slept);

    PrivateSessionBus m_systemBus{
        PrivateSessionBus::Kind::System,
        {u"org.freedesktop.NetworkManager"_s, u"org.freedesktop.login1"_s}};
    std::unique_ptr<FakeNetworkManager> m_networkManager;
    std::unique_ptr<FakeLogind> m_logind;
};

void tst_ReloadOnReturn::initTestCase() {
    QVERIFY(m_systemBus.start());
    // Read by Qt when it first connects to the system bus, which nothing has done yet.
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", m_systemBus.address().toUtf8());
    m_networkManager =
        std::make_unique<FakeNetworkManager>(m_systemBus.address(), State::ConnectedGlobal);
    m_logind = std::make_unique<FakeLogind>(m_systemBus.address());
    QVERIFY(m_networkManager->isRegistered());
    QVERIFY(m_logind->isRegistered());
}

void tst_ReloadOnReturn::init() {
    AppConfig config;
    config.token = token;
    QVERIFY(!config.save());
    setNetwork(State::ConnectedGlobal);
}

void tst_ReloadOnReturn::cleanup() {
    QFile::remove(AppConfig::filePath());
}

void tst_ReloadOnReturn::cleanupTestCase() {
    m_logind.reset();
    m_networkManager.reset();
    m_systemBus.stop();
}

void tst_ReloadOnReturn::setNetwork(State state, const AppDelegate* delegate) {
    if (m_networkManager->state() == state)
        return;
    m_networkManager->setState(state);
    // The watcher takes the state before it tells the delegate: when it has it, the delegate
    // has acted.
    if (delegate)
        QTRY_COMPARE(delegate->connectivityWatcher()->state(), uint(state));
}

void tst_ReloadOnReturn::wake(const AppDelegate& delegate, const TestClock& clock,
                              std::chrono::seconds slept) {
    QSignalSpy resumed(delegate.resumeWatcher(), &ResumeWatcher::resumed);
    m_logind->prepareForSleep(true);
    clock.advance(slept);
    m_logind->prepareForSleep(false);
    // The delegate's own connection to the signal came first and has run.
    QTRY_COMPARE(resumed.count(), 1);
}

void tst_ReloadOnReturn::watchersFindTheServices() {
    FakeRaindropService service(token);
    fill(service);
    TestClock clock;
    Running running(service, clock);
    QVERIFY(running.delegate.resumeWatcher()->isListening());
    QCOMPARE(running.delegate.connectivityWatcher()->state(), uint(State::ConnectedGlobal));
}

void tst_ReloadOnReturn::networkReturnsAfterFailedStart() {
    // Started at login before the network was up: the service cannot be reached.
    FakeRaindropService service(token);
    fill(service);
    service.server().setRefusing(true);
    setNetwork(State::Disconnected);
    TestClock clock;
    Running running(service, clock);
    QVERIFY(running.menu);
    QVERIFY(MenuTree::item(running.menu, u"Failed to load favourites"_s));
    QVERIFY(MenuTree::item(running.menu, u"Failed to load collections and tags"_s));
    QCOMPARE(service.server().requestCount(), 0);

    // Connecting is not online yet.
    setNetwork(State::Connecting, &running.delegate);
    QCOMPARE(running.delegate.statusItem()->menu(), running.menu);

    service.server().setRefusing(false);
    setNetwork(State::ConnectedGlobal, &running.delegate);
    QMenu* menu = MenuTree::waitForFullMenu(*running.delegate.statusItem(), running.menu);
    QVERIFY(menu);
    QVERIFY(!hasFailureLine(menu));
    QVERIFY(MenuTree::item(menu, u"Kept for later"_s));
    QCOMPARE(service.favouritesRequests(), 1);
}

void tst_ReloadOnReturn::networkReturnsToFreshMenu() {
    FakeRaindropService service(token);
    fill(service);
    TestClock clock;
    Running running(service, clock);
    QVERIFY(running.menu);
    QVERIFY(!hasFailureLine(running.menu));
    QVERIFY(service.server().waitForRequests(3)); // favourites, collections, tags
    const int requests = service.server().requestCount();

    // A short drop of the connection: the menu is recent and whole, nothing is loaded.
    setNetwork(State::Disconnected, &running.delegate);
    clock.advance(120s);
    setNetwork(State::ConnectedGlobal, &running.delegate);
    QCOMPARE(running.delegate.statusItem()->menu(), running.menu);
    roundTrip(running.delegate.menuManager()->api());
    QCOMPARE(service.server().requestCount(), requests + 1);
}

void tst_ReloadOnReturn::networkReturnsToOldMenu() {
    FakeRaindropService service(token);
    fill(service);
    TestClock clock;
    Running running(service, clock);
    QVERIFY(running.menu);

    setNetwork(State::Disconnected, &running.delegate);
    service.addBookmark({7002, u"Saved elsewhere"_s, u"https://new.example/"_s, 501, true, {}});
    clock.advance(301s);
    setNetwork(State::ConnectedGlobal, &running.delegate);
    QMenu* menu = MenuTree::waitForFullMenu(*running.delegate.statusItem(), running.menu);
    QVERIFY(menu);
    QVERIFY(MenuTree::item(menu, u"Saved elsewhere"_s));
    QCOMPARE(service.favouritesRequests(), 2);
}

void tst_ReloadOnReturn::wakeUpAfterLongSleep() {
    FakeRaindropService service(token);
    fill(service);
    TestClock clock;
    Running running(service, clock);
    QVERIFY(running.menu);
    service.addBookmark({7003, u"Saved overnight"_s, u"https://night.example/"_s, 501, true, {}});

    wake(running.delegate, clock, 8h);
    QMenu* menu = MenuTree::waitForFullMenu(*running.delegate.statusItem(), running.menu);
    QVERIFY(menu);
    QVERIFY(MenuTree::item(menu, u"Saved overnight"_s));
    QCOMPARE(service.favouritesRequests(), 2);
}

void tst_ReloadOnReturn::wakeUpAfterShortSleep() {
    FakeRaindropService service(token);
    fill(service);
    TestClock clock;
    Running running(service, clock);
    QVERIFY(running.menu);
    QVERIFY(service.server().waitForRequests(3)); // favourites, collections, tags
    const int requests = service.server().requestCount();

    wake(running.delegate, clock, 60s);
    QCOMPARE(running.delegate.statusItem()->menu(), running.menu);
    roundTrip(running.delegate.menuManager()->api());
    QCOMPARE(service.server().requestCount(), requests + 1);
}

void tst_ReloadOnReturn::wakeUpAfterFailedBuild() {
    FakeRaindropService service(token);
    fill(service);
    service.server().setRefusing(true);
    TestClock clock;
    Running running(service, clock);
    QVERIFY(running.menu);
    QVERIFY(hasFailureLine(running.menu));

    service.server().setRefusing(false);
    wake(running.delegate, clock, 10s);
    QMenu* menu = MenuTree::waitForFullMenu(*running.delegate.statusItem(), running.menu);
    QVERIFY(menu);
    QVERIFY(!hasFailureLine(menu));
}

void tst_ReloadOnReturn::reloadWaitsForOpenMenu() {
    FakeRaindropService service(token);
    fill(service);
    service.server().setRefusing(true);
    setNetwork(State::Disconnected);
    TestClock clock;
    Running running(service, clock);
    QVERIFY(running.menu);
    StatusItem* statusItem = running.delegate.statusItem();

    statusItem->performClick();
    QTRY_VERIFY(running.menu->isVisible());
    service.server().setRefusing(false);
    setNetwork(State::ConnectedGlobal, &running.delegate);
    // The open menu stays as it is, and nothing is asked for meanwhile.
    roundTrip(running.delegate.menuManager()->api());
    QCOMPARE(statusItem->menu(), running.menu);
    QVERIFY(running.menu->isVisible());
    QCOMPARE(service.server().requestCount(), 1);

    running.menu->hide();
    QMenu* menu = MenuTree::waitForFullMenu(*statusItem, running.menu);
    QVERIFY(menu);
    QVERIFY(!hasFailureLine(menu));
    QCOMPARE(service.favouritesRequests(), 1);
}

void tst_ReloadOnReturn::setupMenuIsLeftAlone() {
    QFile::remove(AppConfig::filePath());
    FakeRaindropService service(token);
    TestClock clock;
    AppDelegate delegate({environmentOf(service), testTimings(clock)});
    delegate.applicationDidFinishLaunching();
    QTRY_VERIFY(delegate.connectivityWatcher() && delegate.resumeWatcher());
    QTRY_VERIFY(delegate.connectivityWatcher()->isAvailable());
    QMenu* setup = delegate.statusItem()->menu();
    setNetwork(State::Disconnected, &delegate);
    setNetwork(State::ConnectedGlobal, &delegate);
    wake(delegate, clock, 8h);
    QCoreApplication::processEvents();
    QCOMPARE(delegate.statusItem()->menu(), setup);
    QCOMPARE(service.server().requestCount(), 0);
}

QTEST_MAIN(tst_ReloadOnReturn)
#include "tst_ReloadOnReturn.moc"
