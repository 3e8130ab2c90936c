#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QString>
#include <QTcpServer>
#include <QUrl>

#include <chrono>
#include <functional>

class QTcpSocket;

// A real HTTP/1.1 server on 127.0.0.1 for tests. It records every request and answers what the
// test scripts, with delays and faults on request. With a certificate it speaks TLS instead.
class TestHttpServer : public QObject {
    Q_OBJECT
public:
    struct Request {
        QByteArray method;
        QString path;        // decoded path
        QByteArray rawQuery; // the query as it travelled, still percent-encoded
        QList<QPair<QString, QString>> queryItems;    // decoded, in order
        QList<QPair<QByteArray, QByteArray>> headers; // names lower-cased, in order
        QByteArray body;
        QByteArray target; // path and query as they travelled, "?" included when sent

        QByteArray header(const QByteArray& name) const;
        bool hasHeader(const QByteArray& name) const;
        QString query(const QString& name) const;
    };

    enum class Fault {
        None,
        NeverAnswer,  // accept the request and stay silent
        ResetMidBody, // send the headers and half the body, then reset the connection
        EndlessBody,  // send the headers and then body bytes until the client goes away
        Held,         // answer as usual once the test calls release()
    };

    struct Response {
        int status = 200;
        QByteArray body;
        QList<QPair<QByteArray, QByteArray>> headers;
        std::chrono::milliseconds delay{0};
        Fault fault = Fault::None;

        static Response json(const QByteArray& body, int status = 200) {
            return {status, body, {{"Content-Type", "application/json"}}, {}, Fault::None};
        }
        Response& after(std::chrono::milliseconds d) {
            delay = d;
            return *this;
        }
        Response& held() {
            fault = Fault::Held;
            return *this;
        }
    };

    using Handler = std::function<Response(const Request&)>;

    // Plain HTTP; with a PEM certificate and key, HTTPS.
    explicit TestHttpServer(QObject* parent = nullptr);
    TestHttpServer(const QByteArray& certificatePem, const QByteArray& keyPem,
                   QObject* parent = nullptr);
    ~TestHttpServer() override;

    // "http://127.0.0.1:PORT" (or https).
    QString baseUrl() const;
    quint16 port() const;

    // A fixed answer for one method and path (the query is not looked at). Later calls replace
    // earlier ones for the same method and path.
    void on(const QByteArray& method, const QString& path, Response response);
    // A handler consulted for requests that no fixed answer matches.
    void setFallback(Handler handler);

    QList<Request> requests() const { return m_requests; }
    QList<Request> requestsTo(const QString& path) const;
    int requestCount() const { return int(m_requests.size()); }
    void clearRequests() { m_requests.clear(); }
    // Spins the event loop until at least count requests were recorded, or the time is up (long
    // enough for a loaded machine running a sanitizer build; it only delays a real failure).
    bool waitForRequests(int count, std::chrono::milliseconds timeout = std::chrono::seconds(30));
    // Sends the answers held so far, in the order of their requests, to the clients still there.
    void release();
    // Refuses every connection from now on, as a host whose network is down, and drops the open
    // ones; or takes connections again, on the same port.
    void setRefusing(bool refusing);
    // Connections that the client closed while an answer was owed (delayed, never sent or
    // endless), counted the moment they closed, and TLS handshakes that failed.
    int abortedConnections() const { return m_abortedConnections; }
    // Bytes read from all clients so far.
    qint64 receivedBytes() const { return m_receivedBytes; }
    // Connections taken so far, and those of them still open.
    int acceptedConnections() const { return m_acceptedConnections; }
    int openConnections() const { return m_openConnections; }

Q_SIGNALS:
    void requestReceived(const TestHttpServer::Request& request);

private:
    struct Route {
        QByteArray method;
        QString path;
        Response response;
    };

    void start(QTcpServer* server);
    void onConnection();
    void onReadable(QTcpSocket* socket);
    void answer(QPointer<QTcpSocket> socket, const Response& response);
    void streamEndlessly(QPointer<QTcpSocket> socket);
    Response responseFor(const Request& request) const;

    QTcpServer* m_server = nullptr;
    quint16 m_port = 0;
    bool m_tls = false;
    QList<Route> m_routes;
    Handler m_fallback;
    QList<Request> m_requests;
    QList<QPair<QPointer<QTcpSocket>, Response>> m_held;
    int m_abortedConnections = 0;
    qint64 m_receivedBytes = 0;
    int m_acceptedConnections = 0;
    int m_openConnections = 0;
};
