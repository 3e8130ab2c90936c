// The shared HTTP client keeps its connections while the program is in use and closes them as
// soon as an idle program has its answers, against a real server on 127.0.0.1 that counts the
// connections it takes and sees closed.
#include "TestHttpServer.h"

#include "service/HttpSession.h"

#include <QNetworkReply>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

using Reply = std::unique_ptr<QNetworkReply, void (*)(QNetworkReply*)>;

Reply get(const TestHttpServer& server, const QString& path) {
    return Reply(HttpSession::shared().get(QNetworkRequest(QUrl(server.baseUrl() + path))),
                 [](QNetworkReply* reply) { reply->deleteLater(); });
}

bool answered(const Reply& reply) {
    if (!reply->isFinished()) {
        QSignalSpy finished(reply.get(), &QNetworkReply::finished);
        if (!finished.wait(30000))
            return false;
    }
    return reply->error() == QNetworkReply::NoError && reply->readAll() == "{}";
}

} // namespace

class tst_HttpSession : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init() {
        m_server = std::make_unique<TestHttpServer>();
        m_server->on("GET", u"/a"_s, TestHttpServer::Response::json("{}"));
        m_server->on("GET", u"/slow"_s, TestHttpServer::Response::json("{}").held());
    }
    void cleanup() {
        HttpSession::keepConnectionsWhile({});
        HttpSession::closeIdleConnections();
        QTRY_COMPARE(m_server->openConnections(), 0);
        m_server.reset();
    }

    // An idle program (a background refresh, no menu open) keeps no connection once its
    // answers are in.
    void closedOnceAnswered() {
        const Reply reply = get(*m_server, u"/a"_s);
        QVERIFY(answered(reply));
        QTRY_COMPARE(m_server->openConnections(), 0);
        QCOMPARE(m_server->acceptedConnections(), 1);
    }

    // While a menu is open, the next submenu's request reuses the connection.
    void keptWhileInUse() {
        bool inUse = true;
        HttpSession::keepConnectionsWhile([&inUse] { return inUse; });
        for (int i = 0; i < 3; ++i)
            QVERIFY(answered(get(*m_server, u"/a"_s)));
        QCOMPARE(m_server->acceptedConnections(), 1);
        // The queued check after the last answer has run, and kept the connection.
        QCoreApplication::processEvents();
        QCOMPARE(m_server->openConnections(), 1);

        // The menu closes.
        inUse = false;
        HttpSession::closeIdleConnections();
        QTRY_COMPARE(m_server->openConnections(), 0);
    }

    // A request still in flight when another is answered, or when the menu closes, is answered
    // in full; the connections close after it.
    void requestInFlightKept() {
        const Reply slow = get(*m_server, u"/slow"_s);
        QVERIFY(m_server->waitForRequests(1));
        QVERIFY(answered(get(*m_server, u"/a"_s)));
        HttpSession::closeIdleConnections();
        QVERIFY(!slow->isFinished());
        m_server->release();
        QVERIFY(answered(slow));
        QTRY_COMPARE(m_server->openConnections(), 0);
        QCOMPARE(m_server->abortedConnections(), 0);
    }

    // The next request after the close opens a new connection and is answered.
    void newConnectionAfterClose() {
        QVERIFY(answered(get(*m_server, u"/a"_s)));
        QTRY_COMPARE(m_server->openConnections(), 0);
        QVERIFY(answered(get(*m_server, u"/a"_s)));
        QCOMPARE(m_server->acceptedConnections(), 2);
    }

private:
    std::unique_ptr<TestHttpServer> m_server;
};

QTEST_GUILESS_MAIN(tst_HttpSession)
#include "tst_HttpSession.moc"
