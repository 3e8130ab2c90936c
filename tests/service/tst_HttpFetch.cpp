#include "TestHttpServer.h"

#include "service/HttpFetch.h"

#include <QCoroTask>
#include <QTcpServer>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Outcome = HttpFetch::Result::Outcome;

namespace {

HttpFetch::Result fetch(const QString& url, HttpFetch::Limits limits, HttpFetch::Enough enough = {},
                        std::shared_ptr<RequestCanceller> canceller = {}) {
    return QCoro::waitFor(HttpFetch::send(QNetworkRequest(QUrl(url)), QByteArrayLiteral("GET"),
                                          QByteArray(), limits, std::move(canceller),
                                          std::move(enough)));
}

const HttpFetch::Limits plain{.deadline = 30s, .bodyLimit = 1000};

} // namespace

// The one HTTP exchange that the service client, the page titles and the update check share.
class tst_HttpFetch : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void answeredWithAnyStatus_data();
    void answeredWithAnyStatus();
    void connectionFailures();
    void bodyOverLimitFails();
    void bodyOverLimitCut();
    void enoughEndsReading();
    void deadlineEndsSlowAnswer();
    void idleTimeout();
    void cancelledBeforeSending();
    void cancelledInFlight();
    void redirectsRefused();
    void redirectsFollowedWithinLimit();
    void bodySent();
};

void tst_HttpFetch::answeredWithAnyStatus_data() {
    QTest::addColumn<int>("status");
    // Qt reports these as errors of its own; a server answered each, so each is an answer.
    for (const int status : {200, 204, 400, 401, 404, 407, 410, 418, 500, 503})
        QTest::addRow("%d", status) << status;
}

void tst_HttpFetch::answeredWithAnyStatus() {
    QFETCH(int, status);
    TestHttpServer server;
    server.on("GET", u"/page"_s, {status, "the body", {}, {}, TestHttpServer::Fault::None});
    const HttpFetch::Result result = fetch(server.baseUrl() + u"/page"_s, plain);
    QCOMPARE(result.outcome, Outcome::Answered);
    QCOMPARE(result.status, status);
    if (status != 204)
        QCOMPARE(result.body, QByteArray("the body"));
    QVERIFY(!result.cut);
}

void tst_HttpFetch::connectionFailures() {
    // Nobody listens on a port just given back.
    QTcpServer closed;
    QVERIFY(closed.listen(QHostAddress::LocalHost));
    const quint16 port = closed.serverPort();
    closed.close();
    HttpFetch::Result result = fetch(u"http://127.0.0.1:%1/"_s.arg(port), plain);
    QCOMPARE(result.outcome, Outcome::Failed);
    QVERIFY(!result.errorText.isEmpty());
    QVERIFY(!result.answered());

    TestHttpServer server;
    server.on("GET", u"/reset"_s,
              {200, QByteArray(400, 'x'), {}, {}, TestHttpServer::Fault::ResetMidBody});
    result = fetch(server.baseUrl() + u"/reset"_s, plain);
    QCOMPARE(result.outcome, Outcome::Failed);
    QVERIFY(result.body.isEmpty());
}

void tst_HttpFetch::bodyOverLimitFails() {
    TestHttpServer server;
    server.on("GET", u"/exact"_s,
              {200, QByteArray(1000, 'a'), {}, {}, TestHttpServer::Fault::None});
    server.on("GET", u"/large"_s,
              {200, QByteArray(1001, 'a'), {}, {}, TestHttpServer::Fault::None});
    server.on("GET", u"/endless"_s, {200, {}, {}, {}, TestHttpServer::Fault::EndlessBody});
    QCOMPARE(fetch(server.baseUrl() + u"/exact"_s, plain).body.size(), 1000);
    HttpFetch::Result result = fetch(server.baseUrl() + u"/large"_s, plain);
    QCOMPARE(result.outcome, Outcome::TooLarge);
    QVERIFY(result.body.isEmpty());
    result = fetch(server.baseUrl() + u"/endless"_s, plain);
    QCOMPARE(result.outcome, Outcome::TooLarge);
}

void tst_HttpFetch::bodyOverLimitCut() {
    TestHttpServer server;
    server.on("GET", u"/endless"_s, {404, {}, {}, {}, TestHttpServer::Fault::EndlessBody});
    HttpFetch::Limits limits = plain;
    limits.overLimit = HttpFetch::OverLimit::Cut;
    const HttpFetch::Result result = fetch(server.baseUrl() + u"/endless"_s, limits);
    QCOMPARE(result.outcome, Outcome::Answered);
    QCOMPARE(result.status, 404);
    QVERIFY(result.cut);
    QCOMPARE(result.body.size(), 1000);
}

void tst_HttpFetch::enoughEndsReading() {
    TestHttpServer server;
    server.on("GET", u"/endless"_s, {200, {}, {}, {}, TestHttpServer::Fault::EndlessBody});
    HttpFetch::Limits limits = plain;
    limits.bodyLimit = 64 * 1024 * 1024;
    QList<qsizetype> previousSizes;
    const HttpFetch::Result result =
        fetch(server.baseUrl() + u"/endless"_s, limits,
              [&previousSizes](const QByteArray& body, qsizetype previousSize) {
                  previousSizes.append(previousSize);
                  return body.size() >= 10;
              });
    QCOMPARE(result.outcome, Outcome::Answered);
    QVERIFY(!result.cut);
    QVERIFY(result.body.size() >= 10);
    QCOMPARE(previousSizes.first(), 0);
    // Each look sees what came before it.
    for (qsizetype i = 1; i < previousSizes.size(); ++i)
        QVERIFY(previousSizes[i] > previousSizes[i - 1]);
    // The server sees the client go.
    QTRY_COMPARE_WITH_TIMEOUT(server.abortedConnections(), 1, 30000);
}

void tst_HttpFetch::deadlineEndsSlowAnswer() {
    TestHttpServer server;
    server.on("GET", u"/silent"_s, {200, {}, {}, {}, TestHttpServer::Fault::NeverAnswer});
    HttpFetch::Limits limits = plain;
    limits.deadline = 200ms;
    const HttpFetch::Result result = fetch(server.baseUrl() + u"/silent"_s, limits);
    QCOMPARE(result.outcome, Outcome::TimedOut);
}

void tst_HttpFetch::idleTimeout() {
    TestHttpServer server;
    server.on("GET", u"/silent"_s, {200, {}, {}, {}, TestHttpServer::Fault::NeverAnswer});
    const HttpFetch::Result result =
        fetch(server.baseUrl() + u"/silent"_s, {.idleTimeout = 200ms, .bodyLimit = 1000});
    QCOMPARE(result.outcome, Outcome::TimedOut);
}

void tst_HttpFetch::cancelledBeforeSending() {
    TestHttpServer server;
    const auto canceller = std::make_shared<RequestCanceller>();
    canceller->cancel();
    const HttpFetch::Result result = fetch(server.baseUrl() + u"/"_s, plain, {}, canceller);
    QCOMPARE(result.outcome, Outcome::Cancelled);
    QCOMPARE(server.acceptedConnections(), 0);
}

void tst_HttpFetch::cancelledInFlight() {
    TestHttpServer server;
    server.on("GET", u"/silent"_s, {200, {}, {}, {}, TestHttpServer::Fault::NeverAnswer});
    const auto canceller = std::make_shared<RequestCanceller>();
    connect(&server, &TestHttpServer::requestReceived, canceller.get(), &RequestCanceller::cancel);
    const HttpFetch::Result result = fetch(server.baseUrl() + u"/silent"_s, plain, {}, canceller);
    QCOMPARE(result.outcome, Outcome::Cancelled);
}

void tst_HttpFetch::redirectsRefused() {
    TestHttpServer server;
    server.on("GET", u"/moved"_s, {302, "moved", {{"Location", "/there"}}, {}, {}});
    server.on("GET", u"/there"_s, {200, "there", {}, {}, {}});
    const HttpFetch::Result result = fetch(server.baseUrl() + u"/moved"_s, plain);
    QCOMPARE(result.outcome, Outcome::Answered);
    QCOMPARE(result.status, 302);
    QCOMPARE(server.requestsTo(u"/there"_s).size(), 0);
}

void tst_HttpFetch::redirectsFollowedWithinLimit() {
    TestHttpServer server;
    // /hop/N redirects to /hop/N-1; /hop/0 answers.
    server.setFallback([](const TestHttpServer::Request& request) -> TestHttpServer::Response {
        const int hop = request.path.section(u'/', 2).toInt();
        if (hop == 0)
            return {200, "arrived", {}, {}, {}};
        return {302, {}, {{"Location", "/hop/" + QByteArray::number(hop - 1)}}, {}, {}};
    });
    HttpFetch::Limits limits = plain;
    limits.redirects = HttpFetch::Redirects::FollowNoLessSafe;
    limits.maximumRedirects = 3;
    HttpFetch::Result result = fetch(server.baseUrl() + u"/hop/3"_s, limits);
    QCOMPARE(result.outcome, Outcome::Answered);
    QCOMPARE(result.body, QByteArray("arrived"));
    result = fetch(server.baseUrl() + u"/hop/4"_s, limits);
    QCOMPARE(result.outcome, Outcome::Failed);
}

void tst_HttpFetch::bodySent() {
    TestHttpServer server;
    server.on("PUT", u"/item"_s, {200, "ok", {}, {}, {}});
    const HttpFetch::Result result = QCoro::waitFor(
        HttpFetch::send(QNetworkRequest(QUrl(server.baseUrl() + u"/item"_s)),
                        QByteArrayLiteral("PUT"), QByteArrayLiteral("{\"a\":1}"), plain));
    QCOMPARE(result.outcome, Outcome::Answered);
    QCOMPARE(server.requests().constFirst().body, QByteArray("{\"a\":1}"));
}

QTEST_GUILESS_MAIN(tst_HttpFetch)
#include "tst_HttpFetch.moc"
