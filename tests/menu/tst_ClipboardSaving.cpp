#include "FakeRaindropService.h"
#include "MenuTree.h"
#include "RoundTrip.h"

#include "AlertCatcher.h"
#include "app/tray/StatusItem.h"
#include "menu/MenuManager.h"

#include <QClipboard>
#include <QCoroTask>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QByteArray userAgent = "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 "
                             "(KHTML, like Gecko) Version/17.0 Safari/605.1.15";

MenuManager::Timings testTimings() {
    MenuManager::Timings timings;
    timings.refreshInterval = 1h;
    timings.updateCheckDelay = 1h; // no update check in the middle of a test
    timings.pageTitleTimeout = 500ms;
    return timings;
}

AppConfig config() {
    AppConfig config;
    config.token = u"t"_s;
    return config;
}

TestHttpServer::Response page(const QByteArray& html, int status = 200) {
    return {status, html, {{"Content-Type", "text/html; charset=utf-8"}}, {}, {}};
}

TestHttpServer::Response redirect(const QString& to, int status = 302) {
    return {status, {}, {{"Location", to.toUtf8()}}, {}, {}};
}

QJsonObject createdBody(const FakeRaindropService& service) {
    const QList<TestHttpServer::Request> created = service.requestsOf(u"create"_s);
    if (created.size() != 1)
        return {};
    return QJsonDocument::fromJson(created.constFirst().body).object();
}

} // namespace

class tst_ClipboardSaving : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();

    void noURLOnClipboard();
    void savesWithPageTitle();
    void titleOfErrorPage_data();
    void titleOfErrorPage();
    void slowPageSavedWithoutTitle();
    void pageWithoutTitle();
    void blankTitleSentEmpty();
    void saveFailure();

    void fetchSendsBrowserIdentity();
    void fetchFollowsRedirects();
    void fetchLatin1();
    void fetchStopsAtTitle();
    void fetchStopsAtReadLimit();
    void fetchFindsTitleWithinReadLimit();
    void fetchIgnoresTitleBeyondReadLimit();
    void fetchBrokenConnection();
    void fetchUnreachable();
    void fetchNotAnAddress();

private:
    QString pageURL(const FakeRaindropService& service, const QString& path = u"/page"_s) const {
        return service.server().baseUrl() + path;
    }
};

void tst_ClipboardSaving::init() {
    QGuiApplication::clipboard()->clear();
}

void tst_ClipboardSaving::noURLOnClipboard() {
    FakeRaindropService service;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings());
    manager.buildInitialMenu();
    manager.loadData();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    const int before = service.server().requestCount();

    AlertCatcher alerts;
    QGuiApplication::clipboard()->setText(u"ftp://example.com only"_s);
    // Chosen anyway (the item is disabled): an alert, and nothing is sent.
    manager.addClipboardURL();
    QCOMPARE(alerts.count(), 1);
    const AlertCatcher::Seen alert = alerts.alerts().constFirst();
    QCOMPARE(alert.windowTitle, u"Quillmar"_s);
    QCOMPARE(alert.text, u"Quillmar"_s);
    QCOMPARE(alert.informativeText, u"No URL found on clipboard."_s);
    QCOMPARE(alert.icon, QMessageBox::Warning);
    roundTrip(manager.api());
    QCOMPARE(service.server().requestCount(), before + 1);
}

void tst_ClipboardSaving::savesWithPageTitle() {
    FakeRaindropService service;
    service.set(u"/page"_s, page("<html><head><TITLE>\n  Tom &amp; Jerry  </TITLE></head>"));
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings());
    manager.buildInitialMenu();
    manager.loadData();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);
    QVERIFY(service.server().waitForRequests(3));
    service.server().clearRequests();

    const QString url = pageURL(service);
    QGuiApplication::clipboard()->setText(u"have a look: "_s + url + u", it is good"_s);
    Q_EMIT menu->aboutToShow();
    QAction* add = menu->actions().constFirst();
    QVERIFY(add->isEnabled());
    AlertCatcher alerts;
    add->trigger();
    QVERIFY(service.server().waitForRequests(2));
    // The answer to the bookmark's creation has been read once a later one has.
    roundTrip(manager.api());

    QCOMPARE(service.kinds(), QStringList({u"/page"_s, u"create"_s, u"tags"_s}));
    const TestHttpServer::Request pageRequest = service.server().requests().constFirst();
    QCOMPARE(pageRequest.method, QByteArrayLiteral("GET"));
    QCOMPARE(pageRequest.header("User-Agent"), userAgent);
    QVERIFY(!pageRequest.hasHeader("Authorization"));
    const TestHttpServer::Request create = service.requestsOf(u"create"_s).constFirst();
    QCOMPARE(create.method, QByteArrayLiteral("POST"));
    QCOMPARE(create.header("Authorization"), QByteArrayLiteral("Bearer t"));
    QCOMPARE(QJsonDocument::fromJson(create.body).object(),
             QJsonObject({{u"link"_s, url},
                          {u"collection"_s, QJsonObject{{u"$id"_s, 0}}},
                          {u"title"_s, u"Tom & Jerry"_s}}));
    // Nothing else follows: no alert, no rebuild.
    QCOMPARE(alerts.count(), 0);
    QCOMPARE(statusItem.menu(), menu);
}

void tst_ClipboardSaving::titleOfErrorPage_data() {
    QTest::addColumn<int>("status");
    for (const int status : {201, 400, 404, 407, 418, 429, 500, 503})
        QTest::addRow("%d", status) << status;
}

void tst_ClipboardSaving::titleOfErrorPage() {
    QFETCH(int, status);
    FakeRaindropService service;
    service.set(u"/page"_s, page("<title>Not here</title>", status));
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings());
    QCOMPARE(QCoro::waitFor(manager.fetchPageTitle(pageURL(service))),
             std::optional<QString>(u"Not here"_s));
}

void tst_ClipboardSaving::slowPageSavedWithoutTitle() {
    FakeRaindropService service;
    // The page never answers: the bookmark is made once the title's time-out has passed.
    TestHttpServer::Response silent = page("<title>Late</title>");
    silent.fault = TestHttpServer::Fault::NeverAnswer;
    service.set(u"/page"_s, silent);
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings());
    QGuiApplication::clipboard()->setText(pageURL(service));
    manager.addClipboardURL();
    QTRY_COMPARE(service.count(u"create"_s), 1);
    QCOMPARE(createdBody(service), QJsonObject({{u"link"_s, pageURL(service)},
                                                {u"collection"_s, QJsonObject{{u"$id"_s, 0}}}}));
}

void tst_ClipboardSaving::pageWithoutTitle() {
    FakeRaindropService service;
    service.set(u"/page"_s, page("<html><body>No title here</body></html>"));
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings());
    QGuiApplication::clipboard()->setText(pageURL(service));
    manager.addClipboardURL();
    QTRY_COMPARE(service.count(u"create"_s), 1);
    QVERIFY(!createdBody(service).contains(u"title"_s));
}

void tst_ClipboardSaving::blankTitleSentEmpty() {
    FakeRaindropService service;
    service.set(u"/page"_s, page("<title> \n\t </title>"));
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings());
    QGuiApplication::clipboard()->setText(pageURL(service));
    manager.addClipboardURL();
    QTRY_COMPARE(service.count(u"create"_s), 1);
    QCOMPARE(createdBody(service).value(u"title"_s), QJsonValue(u""_s));
}

void tst_ClipboardSaving::saveFailure() {
    FakeRaindropService service;
    service.set(u"/page"_s, page("<title>Fine</title>"));
    service.set(u"create"_s, TestHttpServer::Response{500, "oops", {}, {}, {}});
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings());
    QGuiApplication::clipboard()->setText(pageURL(service));
    AlertCatcher alerts;
    manager.addClipboardURL();
    QVERIFY(alerts.waitForAlerts(1));
    const AlertCatcher::Seen alert = alerts.alerts().constFirst();
    QCOMPARE(alert.windowTitle, u"Quillmar"_s);
    QCOMPARE(alert.text, u"Quillmar"_s);
    QCOMPARE(alert.informativeText, u"Failed to save: HTTP 500: oops"_s);
    QCOMPARE(alert.icon, QMessageBox::Warning);

    // saveURL on its own passes the title unchanged and reports the same way.
    QCoro::waitFor(manager.saveURL(u"https://x.example/"_s, std::nullopt));
    QCOMPARE(alerts.count(), 2);
    QCOMPARE(alerts.alerts().at(1).informativeText, u"Failed to save: HTTP 500: oops"_s);
}

void tst_ClipboardSaving::fetchSendsBrowserIdentity() {
    FakeRaindropService service;
    service.set(u"/page"_s, page("<title>x</title>"));
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings());
    QCOMPARE(QCoro::waitFor(manager.fetchPageTitle(pageURL(service))),
             std::optional<QString>(u"x"_s));
    QCOMPARE(service.server().requestCount(), 1);
    QCOMPARE(service.server().requests().constFirst().header("User-Agent"), userAgent);
}

void tst_ClipboardSaving::fetchFollowsRedirects() {
    FakeRaindropService service;
    FakeRaindropService elsewhere; // another port: another origin
    elsewhere.set(u"/final"_s, page("<title>Arrived</title>"));
    service.set(u"/page"_s, redirect(u"/moved"_s));
    service.set(u"/moved"_s, redirect(elsewhere.server().baseUrl() + u"/final"_s, 301));
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings());
    QCOMPARE(QCoro::waitFor(manager.fetchPageTitle(pageURL(service))),
             std::optional<QString>(u"Arrived"_s));
    // Qt's HTTP layer may send a request a second time on a fresh connection; which pages were
    // asked for, and in what order, is ours.
    QStringList visited = service.kinds();
    visited.removeDuplicates();
    QCOMPARE(visited, QStringList({u"/page"_s, u"/moved"_s}));
    QCOMPARE(elsewhere.server().requests().constFirst().header("User-Agent"), userAgent);
}

void tst_ClipboardSaving::fetchLatin1() {
    FakeRaindropService service;
    service.set(u"/page"_s, page("<title>Caf\xE9 cr\xE8me</title>"));
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings());
    QCOMPARE(QCoro::waitFor(manager.fetchPageTitle(pageURL(service))),
             std::optional<QString>(u"Café crème"_s));
}

void tst_ClipboardSaving::fetchStopsAtTitle() {
    // A page that never ends: the title arrives first, then more bytes every few milliseconds.
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    QPointer<QTcpSocket> connection;
    bool closedByClient = false;
    connect(&server, &QTcpServer::newConnection, this, [&] {
        connection = server.nextPendingConnection();
        connect(connection, &QTcpSocket::disconnected, this, [&] { closedByClient = true; });
        connect(connection, &QTcpSocket::readyRead, this, [&] {
            connection->readAll();
            connection->write("HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n"
                              "Connection: close\r\n\r\n<html><head><title>Streamed</title>");
        });
    });
    QTimer more;
    connect(&more, &QTimer::timeout, this, [&] {
        if (connection && connection->state() == QAbstractSocket::ConnectedState)
            connection->write(QByteArray(1024, ' '));
    });
    more.start(5);

    // No time-out ends this fetch: only the title can.
    MenuManager::Timings timings = testTimings();
    timings.pageTitleTimeout = 24h;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), Environment(), timings);
    const QString url = u"http://127.0.0.1:%1/"_s.arg(server.serverPort());
    std::optional<std::optional<QString>> title;
    const QCoro::Task<> fetch =
        manager.fetchPageTitle(url).then([&](std::optional<QString> found) { title = found; });
    QTRY_VERIFY_WITH_TIMEOUT(title.has_value(), 30000);
    QCOMPARE(*title, std::optional<QString>(u"Streamed"_s));
    QTRY_VERIFY(closedByClient);
}

void tst_ClipboardSaving::fetchStopsAtReadLimit() {
    FakeRaindropService service;
    TestHttpServer::Response endless;
    endless.fault = TestHttpServer::Fault::EndlessBody;
    service.set(u"/page"_s, endless);
    // No time-out ends this fetch: only the read limit can.
    MenuManager::Timings timings = testTimings();
    timings.pageTitleTimeout = 24h;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), timings);
    std::optional<std::optional<QString>> title;
    const QCoro::Task<> fetch =
        manager.fetchPageTitle(pageURL(service)).then([&](std::optional<QString> found) {
            title = found;
        });
    QTRY_VERIFY_WITH_TIMEOUT(title.has_value(), 30000);
    QCOMPARE(*title, std::nullopt);
    QTRY_VERIFY(service.server().abortedConnections() >= 1);
}

void tst_ClipboardSaving::fetchFindsTitleWithinReadLimit() {
    FakeRaindropService service;
    // The title ends a few bytes before the limit; a megabyte follows.
    const QByteArray title = "<title>Deep \xC3\xA9</title>";
    QByteArray body = QByteArray(2 * 1024 * 1024 - title.size() - 3, 'x') + title;
    body += QByteArray(1024 * 1024, 'y');
    service.set(u"/page"_s, page(body));
    MenuManager::Timings timings = testTimings();
    timings.pageTitleTimeout = 10s;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), timings);
    QCOMPARE(QCoro::waitFor(manager.fetchPageTitle(pageURL(service))),
             std::optional<QString>(u"Deep é"_s));
}

void tst_ClipboardSaving::fetchIgnoresTitleBeyondReadLimit() {
    FakeRaindropService service;
    // The closing tag's last byte is the first beyond the limit.
    const QByteArray title = "<title>Too deep</title>";
    const QByteArray body = QByteArray(2 * 1024 * 1024 - title.size() + 1, 'x') + title;
    service.set(u"/page"_s, page(body));
    MenuManager::Timings timings = testTimings();
    timings.pageTitleTimeout = 10s;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), timings);
    QCOMPARE(QCoro::waitFor(manager.fetchPageTitle(pageURL(service))), std::nullopt);
    // One byte less, and it is found.
    service.set(u"/page"_s, page(body.mid(1)));
    QCOMPARE(QCoro::waitFor(manager.fetchPageTitle(pageURL(service))),
             std::optional<QString>(u"Too deep"_s));
}

void tst_ClipboardSaving::fetchBrokenConnection() {
    FakeRaindropService service;
    TestHttpServer::Response broken =
        page("<html><body>" + QByteArray(4000, 'x') + "<title>After the break</title>");
    broken.fault = TestHttpServer::Fault::ResetMidBody;
    service.set(u"/page"_s, broken);
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings());
    QCOMPARE(QCoro::waitFor(manager.fetchPageTitle(pageURL(service))), std::nullopt);
}

void tst_ClipboardSaving::fetchUnreachable() {
    QTcpServer closed;
    QVERIFY(closed.listen(QHostAddress::LocalHost));
    const quint16 port = closed.serverPort();
    closed.close();
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), Environment(), testTimings());
    QCOMPARE(QCoro::waitFor(manager.fetchPageTitle(u"http://127.0.0.1:%1/"_s.arg(port))),
             std::nullopt);
}

void tst_ClipboardSaving::fetchNotAnAddress() {
    FakeRaindropService service;
    StatusItem statusItem;
    MenuManager manager(&statusItem, config(), service.environment(), testTimings());
    QCOMPARE(QCoro::waitFor(manager.fetchPageTitle(u"https://["_s)), std::nullopt);
    QCOMPARE(QCoro::waitFor(manager.fetchPageTitle(u"not an address"_s)), std::nullopt);
    QCOMPARE(service.server().requestCount(), 0);
}

QTEST_MAIN(tst_ClipboardSaving)
#include "tst_ClipboardSaving.moc"
