#include "TestHttpServer.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrlQuery>

#include <utility>

namespace {

const char* bufferProperty = "testHttpServerBuffer";
// Requests of a connection whose answer has not been sent in full yet.
const char* owedProperty = "testHttpServerOwed";

int owed(const QTcpSocket* socket) {
    return socket->property(owedProperty).toInt();
}

void setOwed(QTcpSocket* socket, int count) {
    socket->setProperty(owedProperty, count);
}

QByteArray reasonPhrase(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 201:
        return "Created";
    case 204:
        return "No Content";
    case 301:
        return "Moved Permanently";
    case 302:
        return "Found";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 429:
        return "Too Many Requests";
    case 500:
        return "Internal Server Error";
    default:
        return "Status";
    }
}

// Splits a complete request off the front of the buffer, or returns false when more bytes
// are needed.
bool takeRequest(QByteArray& buffer, TestHttpServer::Request& request) {
    const qsizetype headerEnd = buffer.indexOf("\r\n\r\n");
    if (headerEnd < 0)
        return false;
    const QList<QByteArray> lines = buffer.left(headerEnd).split('\n');
    qsizetype contentLength = 0;
    QList<QPair<QByteArray, QByteArray>> headers;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines[i].trimmed();
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            continue;
        const QByteArray name = line.left(colon).trimmed().toLower();
        const QByteArray value = line.mid(colon + 1).trimmed();
        headers.append({name, value});
        if (name == "content-length")
            contentLength = value.toLongLong();
    }
    if (buffer.size() < headerEnd + 4 + contentLength)
        return false;

    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    request = {};
    request.method = requestLine.value(0);
    const QByteArray target = requestLine.value(1);
    request.target = target;
    const qsizetype questionMark = target.indexOf('?');
    const QByteArray rawPath = questionMark < 0 ? target : target.left(questionMark);
    request.path = QUrl::fromPercentEncoding(rawPath);
    if (questionMark >= 0) {
        request.rawQuery = target.mid(questionMark + 1);
        // A bare "?" carries no item; QByteArray::split would make one empty pair of it.
        const QList<QByteArray> pairs =
            request.rawQuery.isEmpty() ? QList<QByteArray>() : request.rawQuery.split('&');
        for (const QByteArray& pair : pairs) {
            const qsizetype equals = pair.indexOf('=');
            const QByteArray name = equals < 0 ? pair : pair.left(equals);
            const QByteArray value = equals < 0 ? QByteArray() : pair.mid(equals + 1);
            request.queryItems.append(
                {QUrl::fromPercentEncoding(name), QUrl::fromPercentEncoding(value)});
        }
    }
    request.headers = headers;
    request.body = buffer.mid(headerEnd + 4, contentLength);
    buffer.remove(0, headerEnd + 4 + contentLength);
    return true;
}

} // namespace

QByteArray TestHttpServer::Request::header(const QByteArray& name) const {
    for (const auto& [key, value] : headers)
        if (key == name.toLower())
            return value;
    return {};
}

bool TestHttpServer::Request::hasHeader(const QByteArray& name) const {
    for (const auto& header : headers)
        if (header.first == name.toLower())
            return true;
    return false;
}

QString TestHttpServer::Request::query(const QString& name) const {
    for (const auto& [key, value] : queryItems)
        if (key == name)
            return value;
    return {};
}

TestHttpServer::TestHttpServer(QObject* parent)
    : QObject(parent) {
    start(new QTcpServer(this));
}

TestHttpServer::TestHttpServer(const QByteArray& certificatePem, const QByteArray& keyPem,
                               QObject* parent)
    : QObject(parent)
    , m_tls(true) {
    auto* server = new QSslServer(this);
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setLocalCertificate(QSslCertificate(certificatePem, QSsl::Pem));
    configuration.setPrivateKey(QSslKey(keyPem, QSsl::Rsa, QSsl::Pem));
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    server->setSslConfiguration(configuration);
    // A refused handshake is what the TLS test expects; it counts as an early end.
    connect(server, &QSslServer::errorOccurred, this, [this] { ++m_abortedConnections; });
    connect(server, &QSslServer::handshakeInterruptedOnError, this,
            [this] { ++m_abortedConnections; });
    start(server);
}

TestHttpServer::~TestHttpServer() = default;

void TestHttpServer::start(QTcpServer* server) {
    m_server = server;
    connect(m_server, &QTcpServer::pendingConnectionAvailable, this, &TestHttpServer::onConnection);
    if (!m_server->listen(QHostAddress::LocalHost, 0))
        qFatal("TestHttpServer: cannot listen on 127.0.0.1");
    m_port = m_server->serverPort();
}

void TestHttpServer::setRefusing(bool refusing) {
    if (!refusing) {
        if (!m_server->isListening() && !m_server->listen(QHostAddress::LocalHost, m_port))
            qFatal("TestHttpServer: cannot listen on 127.0.0.1 again");
        return;
    }
    m_server->close();
    const QList<QTcpSocket*> sockets = findChildren<QTcpSocket*>(Qt::FindDirectChildrenOnly);
    for (QTcpSocket* socket : sockets) {
        // The server drops these itself: no client left early.
        setOwed(socket, 0);
        socket->abort();
    }
}

QString TestHttpServer::baseUrl() const {
    return QStringLiteral("%1://127.0.0.1:%2")
        .arg(m_tls ? QStringLiteral("https") : QStringLiteral("http"))
        .arg(port());
}

quint16 TestHttpServer::port() const {
    return m_port;
}

void TestHttpServer::on(const QByteArray& method, const QString& path, Response response) {
    for (Route& route : m_routes) {
        if (route.method == method && route.path == path) {
            route.response = std::move(response);
            return;
        }
    }
    m_routes.append({method, path, std::move(response)});
}

void TestHttpServer::setFallback(Handler handler) {
    m_fallback = std::move(handler);
}

QList<TestHttpServer::Request> TestHttpServer::requestsTo(const QString& path) const {
    QList<Request> matching;
    for (const Request& request : m_requests)
        if (request.path == path)
            matching.append(request);
    return matching;
}

bool TestHttpServer::waitForRequests(int count, std::chrono::milliseconds timeout) {
    QDeadlineTimer deadline(timeout);
    while (requestCount() < count && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    return requestCount() >= count;
}

void TestHttpServer::onConnection() {
    while (QTcpSocket* socket = m_server->nextPendingConnection()) {
        socket->setParent(this);
        ++m_acceptedConnections;
        ++m_openConnections;
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadable(socket); });
        // A client that leaves while an answer is owed is counted the moment it leaves, so that
        // a test can wait for that rather than for the answer's delay.
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            --m_openConnections;
            if (owed(socket) > 0)
                ++m_abortedConnections;
        });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        if (socket->bytesAvailable() > 0)
            onReadable(socket);
    }
}

void TestHttpServer::onReadable(QTcpSocket* socket) {
    const QByteArray received = socket->readAll();
    m_receivedBytes += received.size();
    QByteArray buffer = socket->property(bufferProperty).toByteArray() + received;
    Request request;
    while (takeRequest(buffer, request)) {
        setOwed(socket, owed(socket) + 1);
        m_requests.append(request);
        Q_EMIT requestReceived(request);
        const Response response = responseFor(request);
        QPointer<QTcpSocket> guarded(socket);
        if (response.fault == Fault::Held)
            m_held.append({guarded, response});
        else if (response.delay.count() > 0)
            // Precise: the answer never leaves before its delay.
            QTimer::singleShot(response.delay, Qt::PreciseTimer, this,
                               [this, guarded, response] { answer(guarded, response); });
        else
            answer(guarded, response);
    }
    socket->setProperty(bufferProperty, buffer);
}

TestHttpServer::Response TestHttpServer::responseFor(const Request& request) const {
    for (const Route& route : m_routes)
        if (route.method == request.method && route.path == request.path)
            return route.response;
    if (m_fallback)
        return m_fallback(request);
    return {404, "not found", {}, {}, Fault::None};
}

void TestHttpServer::release() {
    const QList<QPair<QPointer<QTcpSocket>, Response>> held = std::exchange(m_held, {});
    for (auto [socket, response] : held) {
        response.fault = Fault::None;
        answer(socket, response);
    }
}

void TestHttpServer::answer(QPointer<QTcpSocket> socket, const Response& response) {
    // A client gone is counted when it left.
    if (!socket || socket->state() != QAbstractSocket::ConnectedState)
        return;
    if (response.fault == Fault::NeverAnswer)
        return;

    QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' +
                      reasonPhrase(response.status) + "\r\n";
    for (const auto& [name, value] : response.headers)
        head += name + ": " + value + "\r\n";
    if (response.fault == Fault::EndlessBody) {
        head += "Content-Type: text/html\r\nConnection: close\r\n\r\n";
        socket->write(head);
        // Still owed: the body goes on until the client leaves.
        streamEndlessly(socket);
        return;
    }
    setOwed(socket, owed(socket) - 1);
    head += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n\r\n";
    if (response.fault == Fault::ResetMidBody) {
        socket->write(head + response.body.left(response.body.size() / 2));
        socket->flush();
        socket->abort();
        return;
    }
    socket->write(head + response.body);
}

void TestHttpServer::streamEndlessly(QPointer<QTcpSocket> socket) {
    if (!socket || socket->state() != QAbstractSocket::ConnectedState)
        return;
    // Keep a little in flight so the client sets the pace.
    if (socket->bytesToWrite() < 256 * 1024)
        socket->write(QByteArray(64 * 1024, 'x'));
    QTimer::singleShot(1, this, [this, socket] { streamEndlessly(socket); });
}
