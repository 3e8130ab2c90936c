#include "AlertCatcher.h"
#include "FakeRaindropService.h"
#include "TestHttpServer.h"
#include "Timers.h"
#include "app/tray/StatusItem.h"
#include "menu/MenuManager.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMenu>
#include <QSettings>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString manifestPath = u"/apps/quillmar/latest.json"_s;
const QString token = u"update-test-token"_s;

QByteArray manifest(const QString& version) {
    return QJsonDocument(QJsonObject{{u"version"_s, version},
                                     {u"download_url"_s, u"https://quillmar.app/download"_s}})
        .toJson(QJsonDocument::Compact);
}

// The update checks' timers are coarse: each may fall due 5 % of its time early or late.
std::chrono::milliseconds earliest(std::chrono::milliseconds timer) {
    return timer * 19 / 20 - 1ms;
}
std::chrono::milliseconds latest(std::chrono::milliseconds timer) {
    return timer * 21 / 20 + 1ms;
}

QAction* findAction(QMenu* menu, const QString& text) {
    if (!menu)
        return nullptr;
    const QList<QAction*> actions = menu->actions();
    for (QAction* action : actions)
        if (action->text() == text)
            return action;
    return nullptr;
}

} // namespace

// The update checks as the menu hosts them: scheduled by every load, and behind the footer's
// "Check for Updates…".
class tst_MenuManagerUpdates : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void everyLoadSchedulesOneSilentCheck();
    void loadRearmsTheRepeatingCheck();
    void footerItemChecksForUpdates();
    void silentCheckThroughTheHost();
    void nothingOnceTheHostIsGone();

private:
    std::unique_ptr<MenuManager> manager(std::chrono::milliseconds delay,
                                         std::chrono::milliseconds interval,
                                         const QString& version = u"1.0"_s);

    std::unique_ptr<FakeRaindropService> m_service;
    std::unique_ptr<TestHttpServer> m_manifests;
    std::unique_ptr<StatusItem> m_statusItem;
};

void tst_MenuManagerUpdates::init() {
    QSettings settings(QDir::homePath() + u"/.config/quillmar/quillmar.ini"_s,
                       QSettings::IniFormat);
    settings.clear();
    settings.sync();
    m_service = std::make_unique<FakeRaindropService>(token);
    m_manifests = std::make_unique<TestHttpServer>();
    m_manifests->on("GET", manifestPath, TestHttpServer::Response::json(manifest(u"1.0"_s)));
    m_statusItem = std::make_unique<StatusItem>();
}

void tst_MenuManagerUpdates::cleanup() {
    m_statusItem.reset();
    m_manifests.reset();
    m_service.reset();
}

std::unique_ptr<MenuManager> tst_MenuManagerUpdates::manager(std::chrono::milliseconds delay,
                                                             std::chrono::milliseconds interval,
                                                             const QString& version) {
    AppConfig config;
    config.token = token;
    Environment environment;
    environment.apiBase = m_service->apiBase();
    environment.updateManifest = m_manifests->baseUrl() + manifestPath;
    environment.version = version;
    MenuManager::Timings timings;
    timings.refreshInterval = 1h;
    timings.updateCheckDelay = delay;
    timings.updateCheckInterval = interval;
    return std::make_unique<MenuManager>(m_statusItem.get(), config, environment, timings);
}

void tst_MenuManagerUpdates::everyLoadSchedulesOneSilentCheck() {
    m_manifests->on("GET", manifestPath, TestHttpServer::Response::json(manifest(u"2.0"_s)));
    AlertCatcher alerts(1); // "Later"
    constexpr std::chrono::milliseconds delay = 300ms;
    auto menu = manager(delay, 1h);
    const QDeadlineTimer beforeDue(earliest(delay));
    menu->buildInitialMenu();
    menu->loadData();
    // The check waits for its delay.
    QVERIFY(Timers::runUntil(beforeDue));
    QCOMPARE(m_manifests->requestCount(), 0);
    QVERIFY(m_manifests->waitForRequests(1));
    QVERIFY(alerts.waitForAlerts(1));
    QCOMPARE(alerts.alerts().constFirst().text, u"Update Available"_s);
    QCOMPARE(alerts.alerts().constFirst().informativeText,
             u"Quillmar 2.0 is available (you have 1.0)."_s);
    // One check per load: by the time a later check of the test's own has been answered,
    // every check due by now has asked too.
    QVERIFY(Timers::runPast(latest(delay)));
    QCoro::waitFor(menu->checkForUpdatesSilently());
    QCOMPARE(m_manifests->requestCount(), 2);

    // A refresh loads again: one more silent check, which stays silent about 2.0.
    menu->refresh();
    QVERIFY(m_manifests->waitForRequests(3));
    QVERIFY(Timers::runPast(latest(delay)));
    QCoro::waitFor(menu->checkForUpdatesSilently());
    QCOMPARE(m_manifests->requestCount(), 4);
    QCOMPARE(alerts.count(), 1);

    // Two loads within the delay: two checks, one alert for a new version.
    m_manifests->on("GET", manifestPath, TestHttpServer::Response::json(manifest(u"2.1"_s)));
    menu->loadData();
    menu->loadData();
    QVERIFY(m_manifests->waitForRequests(6));
    QVERIFY(alerts.waitForAlerts(2));
    QVERIFY(Timers::runPast(latest(delay)));
    QCoro::waitFor(menu->checkForUpdatesSilently());
    QCOMPARE(m_manifests->requestCount(), 7);
    QCOMPARE(alerts.count(), 2);
    QCOMPARE(alerts.alerts().constLast().informativeText,
             u"Quillmar 2.1 is available (you have 1.0)."_s);
}

void tst_MenuManagerUpdates::loadRearmsTheRepeatingCheck() {
    constexpr std::chrono::milliseconds interval = 1500ms;
    auto menu = manager(1h, interval);
    menu->buildInitialMenu();
    menu->loadData();
    const QDeadlineTimer firstDue(latest(interval));
    QVERIFY(Timers::runPast(interval / 2));
    menu->loadData(); // the repeating check is now due an interval after this load
    // The first load's check would have asked by now; the second load's is not due yet.
    QVERIFY(Timers::runUntil(firstDue));
    QCOMPARE(m_manifests->requestCount(), 0);
    QVERIFY(m_manifests->waitForRequests(1));
    // And it repeats.
    QVERIFY(m_manifests->waitForRequests(2));
}

void tst_MenuManagerUpdates::footerItemChecksForUpdates() {
    AlertCatcher alerts;
    auto menu = manager(1h, 1h, u"1.4.2"_s);
    menu->buildInitialMenu();
    menu->loadData();
    QTRY_VERIFY(findAction(m_statusItem->menu(), u"Check for Updates…"_s));
    QCOMPARE(m_manifests->requestCount(), 0);
    findAction(m_statusItem->menu(), u"Check for Updates…"_s)->trigger();
    QVERIFY(alerts.waitForAlerts(1));
    QCOMPARE(alerts.alerts().constFirst().text, u"You're up to date"_s);
    QCOMPARE(alerts.alerts().constFirst().informativeText,
             u"Quillmar 1.4.2 is the latest version."_s);
    QCOMPARE(m_manifests->requestCount(), 1);

    // Asking again answers again.
    m_manifests->on("GET", manifestPath, TestHttpServer::Response::json("{}"));
    findAction(m_statusItem->menu(), u"Check for Updates…"_s)->trigger();
    QVERIFY(alerts.waitForAlerts(2));
    QCOMPARE(alerts.alerts().constLast().text, u"Quillmar"_s);
    QCOMPARE(alerts.alerts().constLast().informativeText,
             u"Couldn't check for updates.\nMake sure you're connected to the internet."_s);
}

void tst_MenuManagerUpdates::silentCheckThroughTheHost() {
    m_manifests->on("GET", manifestPath, TestHttpServer::Response::json(manifest(u"1.1"_s)));
    AlertCatcher alerts(1);
    auto menu = manager(1h, 1h);
    QCoro::waitFor(menu->checkForUpdatesSilently());
    QCOMPARE(alerts.count(), 1);
    QCoro::waitFor(menu->checkForUpdatesSilently());
    QCOMPARE(alerts.count(), 1);
    QCOMPARE(m_manifests->requestCount(), 2);
}

void tst_MenuManagerUpdates::nothingOnceTheHostIsGone() {
    AlertCatcher alerts;
    auto menu = manager(200ms, 300ms);
    menu->buildInitialMenu();
    menu->loadData();
    menu.reset();
    // Past both checks' times, and past the answer to a later check through the same network
    // access: the gone host's checks asked nothing.
    QVERIFY(Timers::runPast(latest(300ms)));
    auto other = manager(1h, 1h);
    QCoro::waitFor(other->checkForUpdatesSilently());
    QCOMPARE(m_manifests->requestCount(), 1);
    QCOMPARE(alerts.count(), 0);
}

QTEST_MAIN(tst_MenuManagerUpdates)
#include "tst_MenuManagerUpdates.moc"
