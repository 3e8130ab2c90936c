#include "TestHttpServer.h"

#include <QElapsedTimer>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QSslSocket>
#include <QTcpSocket>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

using QueryItems = QList<QPair<QString, QString>>;

QByteArray resource(const QString& name) {
    QFile file(u":/testdata/"_s + name);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("missing test resource");
    return file.readAll();
}

// A raw HTTP client: exactly the bytes written go out, and every byte that comes back is kept.
class RawClient {
public:
    explicit RawClient(const TestHttpServer& server, bool tls = false) {
        if (tls) {
            auto* socket = new QSslSocket();
            QSslConfiguration configuration = socket->sslConfiguration();
            configuration.setCaCertificates(
                {QSslCertificate(resource(u"selfsigned-cert.pem"_s), QSsl::Pem)});
            socket->setSslConfiguration(configuration);
            socket->connectToHostEncrypted(u"127.0.0.1"_s, server.port());
            m_socket.reset(socket);
            // Not waitForEncrypted: the server needs this thread's event loop for its side.
            m_connected = QTest::qWaitFor([socket] { return socket->isEncrypted(); }, 5000);
        } else {
            m_socket = std::make_unique<QTcpSocket>();
            m_socket->connectToHost(u"127.0.0.1"_s, server.port());
            m_connected = m_socket->waitForConnected(5000);
        }
        QObject::connect(m_socket.get(), &QTcpSocket::readyRead, m_socket.get(),
                         [this] { m_received += m_socket->readAll(); });
        QObject::connect(m_socket.get(), &QTcpSocket::disconnected, m_socket.get(),
                         [this] { m_closed = true; });
    }

    bool isConnected() const { return m_connected; }
    void send(const QByteArray& bytes) {
        m_socket->write(bytes);
        m_socket->flush();
    }
    QByteArray received() const { return m_received; }
    bool isClosed() const { return m_closed; }
    void close() { m_socket->abort(); }

    // Waits for one complete answer (head and Content-Length body) and takes it off the front.
    QByteArray takeResponse(std::chrono::milliseconds timeout = 5s) {
        qsizetype length = -1;
        if (!QTest::qWaitFor([&] { return (length = completeLength()) >= 0 || m_closed; },
                             int(timeout.count())) ||
            length < 0)
            return {};
        const QByteArray response = m_received.left(length);
        m_received.remove(0, length);
        return response;
    }

private:
    qsizetype completeLength() const {
        const qsizetype headEnd = m_received.indexOf("\r\n\r\n");
        if (headEnd < 0)
            return -1;
        qsizetype bodyLength = 0;
        for (const QByteArray& line : m_received.left(headEnd).split('\n')) {
            if (line.toLower().startsWith("content-length:"))
                bodyLength = line.mid(15).trimmed().toLongLong();
        }
        const qsizetype total = headEnd + 4 + bodyLength;
        return m_received.size() >= total ? total : -1;
    }

    std::unique_ptr<QTcpSocket> m_socket;
    QByteArray m_received;
    bool m_connected = false;
    bool m_closed = false;
};

QByteArray statusLine(const QByteArray& response) {
    return response.left(response.indexOf("\r\n"));
}

QByteArray bodyOf(const QByteArray& response) {
    return response.mid(response.indexOf("\r\n\r\n") + 4);
}

QList<QByteArray> headLines(const QByteArray& response) {
    QList<QByteArray> lines = response.left(response.indexOf("\r\n\r\n")).split('\n');
    for (QByteArray& line : lines)
        line = line.trimmed();
    return lines;
}

} // namespace

class tst_TestHttpServer : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();

    void listensOnLoopback();
    void recordsRequest();
    void recordsQueryItems_data();
    void recordsQueryItems();
    void recordsRequestArrivingInPieces();
    void recordsPipelinedRequests();
    void headerLookupIgnoresCase();
    void announcesRequests();
    void answersFixedResponse();
    void fixedResponseIgnoresQueryAndMatchesMethod();
    void laterFixedResponseReplacesEarlier();
    void fallbackAnswersTheRest();
    void answersNotFoundWithoutFallback();
    void jsonResponse();
    void delaysAnswer();
    void clientLeavingBeforeDelayedAnswer();
    void neverAnswer();
    void resetMidBody();
    void endlessBody();
    void requestsToAndClear();
    void waitForRequestsGivesUp();
    void speaksTls();
    void untrustedTlsReachesNothing();
};

void tst_TestHttpServer::initTestCase() {
    Q_INIT_RESOURCE(testdata);
}

void tst_TestHttpServer::listensOnLoopback() {
    TestHttpServer server;
    QVERIFY(server.port() > 0);
    QCOMPARE(server.baseUrl(), u"http://127.0.0.1:%1"_s.arg(server.port()));
    TestHttpServer other;
    QVERIFY(other.port() != server.port());
    TestHttpServer tls(resource(u"selfsigned-cert.pem"_s), resource(u"selfsigned-key.pem"_s));
    QCOMPARE(tls.baseUrl(), u"https://127.0.0.1:%1"_s.arg(tls.port()));
}

void tst_TestHttpServer::recordsRequest() {
    TestHttpServer server;
    RawClient client(server);
    QVERIFY(client.isConnected());
    client.send("PUT /rest/v1/raindrop%2Fx/%C3%A9t%C3%A9?a=1&b=%7B%22k%22%3A2%7D HTTP/1.1\r\n"
                "Host: 127.0.0.1\r\n"
                "Authorization:   Bearer abc  \r\n"
                "Content-Type: application/json\r\n"
                "X-Twice: one\r\n"
                "X-Twice: two\r\n"
                "Content-Length: 17\r\n"
                "\r\n"
                "{\"important\":true}");
    QVERIFY(server.waitForRequests(1));
    const TestHttpServer::Request request = server.requests().first();
    QCOMPARE(request.method, QByteArray("PUT"));
    QCOMPARE(request.path, u"/rest/v1/raindrop/x/été"_s);
    QCOMPARE(request.rawQuery, QByteArray("a=1&b=%7B%22k%22%3A2%7D"));
    QCOMPARE(request.target,
             QByteArray("/rest/v1/raindrop%2Fx/%C3%A9t%C3%A9?a=1&b=%7B%22k%22%3A2%7D"));
    QCOMPARE(request.queryItems,
             (QList<QPair<QString, QString>>{{u"a"_s, u"1"_s}, {u"b"_s, u"{\"k\":2}"_s}}));
    QCOMPARE(request.headers,
             (QList<QPair<QByteArray, QByteArray>>{{"host", "127.0.0.1"},
                                                   {"authorization", "Bearer abc"},
                                                   {"content-type", "application/json"},
                                                   {"x-twice", "one"},
                                                   {"x-twice", "two"},
                                                   {"content-length", "17"}}));
    // The body is exactly Content-Length bytes; the rest belongs to whatever follows.
    QCOMPARE(request.body, QByteArray("{\"important\":true"));
    QCOMPARE(request.query(u"b"_s), u"{\"k\":2}"_s);
    QCOMPARE(request.query(u"missing"_s), QString());
}

void tst_TestHttpServer::recordsQueryItems_data() {
    QTest::addColumn<QByteArray>("target");
    QTest::addColumn<QByteArray>("rawQuery");
    QTest::addColumn<QueryItems>("items");

    using Items = QueryItems;
    QTest::newRow("none") << QByteArray("/p") << QByteArray() << Items{};
    QTest::newRow("empty query") << QByteArray("/p?") << QByteArray() << Items{};
    QTest::newRow("order kept") << QByteArray("/p?z=1&a=2&m=3") << QByteArray("z=1&a=2&m=3")
                                << Items{{u"z"_s, u"1"_s}, {u"a"_s, u"2"_s}, {u"m"_s, u"3"_s}};
    QTest::newRow("repeated name") << QByteArray("/p?a=1&a=2") << QByteArray("a=1&a=2")
                                   << Items{{u"a"_s, u"1"_s}, {u"a"_s, u"2"_s}};
    QTest::newRow("empty value and no value") << QByteArray("/p?a=&b") << QByteArray("a=&b")
                                              << Items{{u"a"_s, QString()}, {u"b"_s, QString()}};
    QTest::newRow("plus stays a plus")
        << QByteArray("/p?q=a+b") << QByteArray("q=a+b") << Items{{u"q"_s, u"a+b"_s}};
    QTest::newRow("encoded space")
        << QByteArray("/p?q=a%20b") << QByteArray("q=a%20b") << Items{{u"q"_s, u"a b"_s}};
    QTest::newRow("encoded ampersand and equals")
        << QByteArray("/p?q%3D=a%26b%3Dc") << QByteArray("q%3D=a%26b%3Dc")
        << Items{{u"q="_s, u"a&b=c"_s}};
    QTest::newRow("equals inside value")
        << QByteArray("/p?q=a=b") << QByteArray("q=a=b") << Items{{u"q"_s, u"a=b"_s}};
    QTest::newRow("UTF-8") << QByteArray("/p?tag=%C3%BCber") << QByteArray("tag=%C3%BCber")
                           << Items{{u"tag"_s, u"über"_s}};
}

void tst_TestHttpServer::recordsQueryItems() {
    QFETCH(QByteArray, target);
    QFETCH(QByteArray, rawQuery);
    QFETCH(QueryItems, items);
    TestHttpServer server;
    RawClient client(server);
    client.send("GET " + target + " HTTP/1.1\r\nHost: x\r\n\r\n");
    QVERIFY(server.waitForRequests(1));
    const TestHttpServer::Request request = server.requests().first();
    QCOMPARE(request.path, u"/p"_s);
    QCOMPARE(request.rawQuery, rawQuery);
    QCOMPARE(request.target, target);
    QCOMPARE(request.queryItems, items);
    QVERIFY(request.body.isEmpty());
}

void tst_TestHttpServer::recordsRequestArrivingInPieces() {
    TestHttpServer server;
    server.on("POST", u"/raindrop"_s, {201, "made", {}, {}, TestHttpServer::Fault::None});
    RawClient client(server);
    const QByteArray request = "POST /raindrop HTTP/1.1\r\nHost: x\r\nContent-Length: 10\r\n\r\n"
                               "0123456789";
    for (qsizetype i = 0; i < request.size(); i += 7) {
        client.send(request.mid(i, 7));
        // Each piece is read on its own before the next is sent.
        QTRY_COMPARE(server.receivedBytes(), qMin(i + 7, request.size()));
        if (i + 7 < request.size())
            QCOMPARE(server.requestCount(), 0);
    }
    QVERIFY(server.waitForRequests(1));
    QCOMPARE(server.requests().first().body, QByteArray("0123456789"));
    QCOMPARE(statusLine(client.takeResponse()), QByteArray("HTTP/1.1 201 Created"));
}

void tst_TestHttpServer::recordsPipelinedRequests() {
    TestHttpServer server;
    server.setFallback([](const TestHttpServer::Request& request) {
        return TestHttpServer::Response{200, request.path.toUtf8(), {}, {}, {}};
    });
    RawClient client(server);
    client.send("GET /one HTTP/1.1\r\nHost: x\r\n\r\n"
                "POST /two HTTP/1.1\r\nHost: x\r\nContent-Length: 3\r\n\r\nabc"
                "GET /three HTTP/1.1\r\nHost: x\r\n\r\n");
    QVERIFY(server.waitForRequests(3));
    QCOMPARE(server.requests().at(0).path, u"/one"_s);
    QCOMPARE(server.requests().at(1).path, u"/two"_s);
    QCOMPARE(server.requests().at(1).body, QByteArray("abc"));
    QCOMPARE(server.requests().at(2).path, u"/three"_s);
    QCOMPARE(bodyOf(client.takeResponse()), QByteArray("/one"));
    QCOMPARE(bodyOf(client.takeResponse()), QByteArray("/two"));
    QCOMPARE(bodyOf(client.takeResponse()), QByteArray("/three"));
}

void tst_TestHttpServer::headerLookupIgnoresCase() {
    TestHttpServer::Request request;
    request.headers = {{"content-type", "application/json"}, {"x-empty", ""}};
    QCOMPARE(request.header("Content-Type"), QByteArray("application/json"));
    QCOMPARE(request.header("CONTENT-TYPE"), QByteArray("application/json"));
    QVERIFY(request.hasHeader("Content-Type"));
    QVERIFY(request.hasHeader("X-Empty"));
    QVERIFY(!request.hasHeader("Authorization"));
    QCOMPARE(request.header("Authorization"), QByteArray());
}

void tst_TestHttpServer::announcesRequests() {
    TestHttpServer server;
    QSignalSpy spy(&server, &TestHttpServer::requestReceived);
    RawClient client(server);
    client.send("DELETE /x?y=1 HTTP/1.1\r\nHost: x\r\n\r\n");
    QVERIFY(spy.wait(5000));
    const auto request = spy.first().first().value<TestHttpServer::Request>();
    QCOMPARE(request.method, QByteArray("DELETE"));
    QCOMPARE(request.path, u"/x"_s);
}

void tst_TestHttpServer::answersFixedResponse() {
    TestHttpServer server;
    server.on("GET", u"/collections"_s,
              {403, "no", {{"X-Ratelimit-Remaining", "0"}}, {}, TestHttpServer::Fault::None});
    RawClient client(server);
    client.send("GET /collections HTTP/1.1\r\nHost: x\r\n\r\n");
    const QByteArray response = client.takeResponse();
    QCOMPARE(statusLine(response), QByteArray("HTTP/1.1 403 Forbidden"));
    QVERIFY(headLines(response).contains("X-Ratelimit-Remaining: 0"));
    QVERIFY(headLines(response).contains("Content-Length: 2"));
    QCOMPARE(bodyOf(response), QByteArray("no"));
    // The connection stays open for the next request.
    client.send("GET /collections HTTP/1.1\r\nHost: x\r\n\r\n");
    QCOMPARE(bodyOf(client.takeResponse()), QByteArray("no"));
    QCOMPARE(server.requestCount(), 2);
}

void tst_TestHttpServer::fixedResponseIgnoresQueryAndMatchesMethod() {
    TestHttpServer server;
    server.on("GET", u"/raindrops/0"_s, {200, "get", {}, {}, {}});
    server.on("PUT", u"/raindrops/0"_s, {200, "put", {}, {}, {}});
    RawClient client(server);
    client.send("GET /raindrops/0?perpage=25&search=x HTTP/1.1\r\nHost: x\r\n\r\n");
    QCOMPARE(bodyOf(client.takeResponse()), QByteArray("get"));
    client.send("PUT /raindrops/0 HTTP/1.1\r\nHost: x\r\nContent-Length: 0\r\n\r\n");
    QCOMPARE(bodyOf(client.takeResponse()), QByteArray("put"));
    client.send("POST /raindrops/0 HTTP/1.1\r\nHost: x\r\nContent-Length: 0\r\n\r\n");
    QCOMPARE(statusLine(client.takeResponse()), QByteArray("HTTP/1.1 404 Not Found"));
    client.send("GET /raindrops/1 HTTP/1.1\r\nHost: x\r\n\r\n");
    QCOMPARE(statusLine(client.takeResponse()), QByteArray("HTTP/1.1 404 Not Found"));
}

void tst_TestHttpServer::laterFixedResponseReplacesEarlier() {
    TestHttpServer server;
    server.on("GET", u"/tags"_s, {200, "first", {}, {}, {}});
    server.on("GET", u"/tags"_s, {500, "second", {}, {}, {}});
    RawClient client(server);
    client.send("GET /tags HTTP/1.1\r\nHost: x\r\n\r\n");
    const QByteArray response = client.takeResponse();
    QCOMPARE(statusLine(response), QByteArray("HTTP/1.1 500 Internal Server Error"));
    QCOMPARE(bodyOf(response), QByteArray("second"));
}

void tst_TestHttpServer::fallbackAnswersTheRest() {
    TestHttpServer server;
    server.on("GET", u"/fixed"_s, {200, "fixed", {}, {}, {}});
    QList<QString> seen;
    server.setFallback([&seen](const TestHttpServer::Request& request) {
        seen.append(request.path + u"?"_s + request.query(u"n"_s));
        return TestHttpServer::Response{299, "fallback " + request.rawQuery, {}, {}, {}};
    });
    RawClient client(server);
    client.send("GET /fixed?n=1 HTTP/1.1\r\nHost: x\r\n\r\n");
    QCOMPARE(bodyOf(client.takeResponse()), QByteArray("fixed"));
    client.send("GET /other?n=2 HTTP/1.1\r\nHost: x\r\n\r\n");
    const QByteArray response = client.takeResponse();
    QCOMPARE(statusLine(response), QByteArray("HTTP/1.1 299 Status"));
    QCOMPARE(bodyOf(response), QByteArray("fallback n=2"));
    QCOMPARE(seen, QList<QString>{u"/other?2"_s});
}

void tst_TestHttpServer::answersNotFoundWithoutFallback() {
    TestHttpServer server;
    RawClient client(server);
    client.send("GET /anything HTTP/1.1\r\nHost: x\r\n\r\n");
    const QByteArray response = client.takeResponse();
    QCOMPARE(statusLine(response), QByteArray("HTTP/1.1 404 Not Found"));
    QCOMPARE(bodyOf(response), QByteArray("not found"));
}

void tst_TestHttpServer::jsonResponse() {
    const auto response = TestHttpServer::Response::json(R"({"items": []})", 201);
    QCOMPARE(response.status, 201);
    QCOMPARE(response.body, QByteArray(R"({"items": []})"));
    QCOMPARE(response.headers,
             (QList<QPair<QByteArray, QByteArray>>{{"Content-Type", "application/json"}}));
    QCOMPARE(response.delay, 0ms);
    QCOMPARE(response.fault, TestHttpServer::Fault::None);
    QCOMPARE(TestHttpServer::Response::json("{}").status, 200);

    TestHttpServer server;
    server.on("GET", u"/j"_s, TestHttpServer::Response::json("{}"));
    RawClient client(server);
    client.send("GET /j HTTP/1.1\r\nHost: x\r\n\r\n");
    const QByteArray answer = client.takeResponse();
    QCOMPARE(statusLine(answer), QByteArray("HTTP/1.1 200 OK"));
    QVERIFY(headLines(answer).contains("Content-Type: application/json"));
    QCOMPARE(bodyOf(answer), QByteArray("{}"));
}

void tst_TestHttpServer::delaysAnswer() {
    TestHttpServer server;
    server.on("GET", u"/slow"_s, TestHttpServer::Response::json("{}").after(300ms));
    server.on("GET", u"/fast"_s, TestHttpServer::Response::json("[]"));
    RawClient slow(server);
    RawClient fast(server);
    QElapsedTimer timer;
    timer.start();
    slow.send("GET /slow HTTP/1.1\r\nHost: x\r\n\r\n");
    QVERIFY(server.waitForRequests(1));
    // The delay holds back only its own answer.
    fast.send("GET /fast HTTP/1.1\r\nHost: x\r\n\r\n");
    QCOMPARE(bodyOf(fast.takeResponse()), QByteArray("[]"));
    QVERIFY(slow.received().isEmpty());
    QCOMPARE(bodyOf(slow.takeResponse()), QByteArray("{}"));
    QVERIFY(timer.elapsed() >= 300);
}

void tst_TestHttpServer::clientLeavingBeforeDelayedAnswer() {
    TestHttpServer server;
    // Counted when the client leaves, long before the answer would be due.
    server.on("GET", u"/slow"_s, TestHttpServer::Response::json("{}").after(1h));
    {
        RawClient client(server);
        client.send("GET /slow HTTP/1.1\r\nHost: x\r\n\r\n");
        QVERIFY(server.waitForRequests(1));
        client.close();
    }
    QTRY_COMPARE(server.abortedConnections(), 1);
}

void tst_TestHttpServer::neverAnswer() {
    TestHttpServer server;
    server.on("GET", u"/silent"_s, {200, "never sent", {}, {}, TestHttpServer::Fault::NeverAnswer});
    server.on("GET", u"/fast"_s, TestHttpServer::Response::json("[]"));
    RawClient client(server);
    client.send("GET /silent HTTP/1.1\r\nHost: x\r\n\r\n");
    QVERIFY(server.waitForRequests(1));
    // A later request is answered, the silent one still is not.
    RawClient later(server);
    later.send("GET /fast HTTP/1.1\r\nHost: x\r\n\r\n");
    QCOMPARE(bodyOf(later.takeResponse()), QByteArray("[]"));
    QVERIFY(client.received().isEmpty());
    QVERIFY(!client.isClosed());
    // Leaving it waiting counts as leaving early.
    client.close();
    QTRY_COMPARE(server.abortedConnections(), 1);
}

void tst_TestHttpServer::resetMidBody() {
    TestHttpServer server;
    const QByteArray body(1000, 'b');
    server.on("GET", u"/broken"_s, {200, body, {}, {}, TestHttpServer::Fault::ResetMidBody});
    RawClient client(server);
    client.send("GET /broken HTTP/1.1\r\nHost: x\r\n\r\n");
    QTRY_VERIFY(client.isClosed());
    const QByteArray received = client.received();
    QCOMPARE(statusLine(received), QByteArray("HTTP/1.1 200 OK"));
    QVERIFY(headLines(received).contains("Content-Length: 1000"));
    QCOMPARE(bodyOf(received), QByteArray(500, 'b'));
}

void tst_TestHttpServer::endlessBody() {
    TestHttpServer server;
    server.on("GET", u"/endless"_s, {200, {}, {}, {}, TestHttpServer::Fault::EndlessBody});
    RawClient client(server);
    client.send("GET /endless HTTP/1.1\r\nHost: x\r\n\r\n");
    constexpr qsizetype plenty = 4 * 1024 * 1024;
    QTRY_VERIFY_WITH_TIMEOUT(client.received().size() > plenty, 20000);
    QVERIFY(!client.isClosed());
    const QByteArray received = client.received();
    QCOMPARE(statusLine(received), QByteArray("HTTP/1.1 200 OK"));
    QVERIFY(!received.left(received.indexOf("\r\n\r\n")).toLower().contains("content-length"));
    QCOMPARE(bodyOf(received).left(1000), QByteArray(1000, 'x'));
    // When the client goes away the server notices and stops.
    client.close();
    QTRY_COMPARE(server.abortedConnections(), 1);
}

void tst_TestHttpServer::requestsToAndClear() {
    TestHttpServer server;
    RawClient client(server);
    client.send("GET /a HTTP/1.1\r\nHost: x\r\n\r\nGET /b HTTP/1.1\r\nHost: x\r\n\r\n"
                "GET /a?x=1 HTTP/1.1\r\nHost: x\r\n\r\n");
    QVERIFY(server.waitForRequests(3));
    QCOMPARE(server.requestsTo(u"/a"_s).size(), 2);
    QCOMPARE(server.requestsTo(u"/a"_s).at(1).rawQuery, QByteArray("x=1"));
    QCOMPARE(server.requestsTo(u"/b"_s).size(), 1);
    QVERIFY(server.requestsTo(u"/c"_s).isEmpty());
    server.clearRequests();
    QCOMPARE(server.requestCount(), 0);
    QVERIFY(server.requests().isEmpty());
}

void tst_TestHttpServer::waitForRequestsGivesUp() {
    TestHttpServer server;
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!server.waitForRequests(1, 200ms));
    QVERIFY(timer.elapsed() >= 200);
}

void tst_TestHttpServer::speaksTls() {
    TestHttpServer server(resource(u"selfsigned-cert.pem"_s), resource(u"selfsigned-key.pem"_s));
    server.on("GET", u"/secure"_s, TestHttpServer::Response::json(R"({"ok":true})"));
    // A client that trusts the test certificate gets through.
    RawClient client(server, true);
    QVERIFY(client.isConnected());
    client.send("GET /secure?a=1 HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer t\r\n\r\n");
    QCOMPARE(bodyOf(client.takeResponse()), QByteArray(R"({"ok":true})"));
    QCOMPARE(server.requestCount(), 1);
    QCOMPARE(server.requests().first().header("authorization"), QByteArray("Bearer t"));
    QCOMPARE(server.abortedConnections(), 0);
}

void tst_TestHttpServer::untrustedTlsReachesNothing() {
    TestHttpServer server(resource(u"selfsigned-cert.pem"_s), resource(u"selfsigned-key.pem"_s));
    server.on("GET", u"/secure"_s, TestHttpServer::Response::json("{}"));
    // An ordinary client does not trust the certificate, so no request gets through.
    QNetworkAccessManager manager;
    QNetworkRequest request(QUrl(server.baseUrl() + u"/secure"_s));
    request.setRawHeader("Authorization", "Bearer secret");
    std::unique_ptr<QNetworkReply> reply(manager.get(request));
    QTRY_VERIFY(reply->isFinished());
    QCOMPARE(reply->error(), QNetworkReply::SslHandshakeFailedError);
    QTRY_VERIFY(server.abortedConnections() >= 1);
    QCOMPARE(server.requestCount(), 0);
}

QTEST_MAIN(tst_TestHttpServer)
#include "tst_TestHttpServer.moc"
