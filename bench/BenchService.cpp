#include "BenchService.h"

#include "TestHttpServer.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaObject>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 firstCollectionId = 1503912485;

QByteArray list(const QJsonArray& items) {
    const QJsonObject body{{u"result"_s, true},
                           {u"items"_s, items},
                           {u"count"_s, items.size()},
                           {u"collectionId"_s, 0}};
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

// Shaped like the service's own answers, extra keys included.
QJsonObject bookmark(qint64 id, qint64 collection, bool important) {
    return {{u"_id"_s, id},
            {u"title"_s, u"An article worth keeping, number %1"_s.arg(id)},
            {u"link"_s, u"https://example.com/articles/%1/a-readable-slug"_s.arg(id)},
            {u"excerpt"_s, QString()},
            {u"important"_s, important},
            {u"collection"_s, QJsonObject{{u"$ref"_s, u"collections"_s},
                                          {u"$id"_s, collection},
                                          {u"oid"_s, collection}}},
            {u"__v"_s, 0},
            {u"sort"_s, id},
            {u"type"_s, u"article"_s},
            {u"creatorRef"_s, 4321},
            {u"media"_s, QJsonArray()},
            {u"highlights"_s, QJsonArray()},
            {u"created"_s, u"2024-05-01T10:00:00.000Z"_s},
            {u"lastUpdate"_s, u"2024-05-02T10:00:00.000Z"_s}};
}

QByteArray bookmarks(int count, qint64 firstId, qint64 collection, bool important) {
    QJsonArray items;
    for (int i = 0; i < count; ++i)
        items.append(bookmark(firstId + i, collection, important));
    return list(items);
}

QByteArray collections(int count) {
    QJsonArray items;
    for (int i = 0; i < count; ++i)
        items.append(
            QJsonObject{{u"_id"_s, firstCollectionId + i},
                        {u"title"_s, u"Collection %1"_s.arg(i, 5, 10, QLatin1Char('0'))},
                        {u"count"_s, i % 40},
                        {u"public"_s, false},
                        {u"view"_s, u"list"_s},
                        {u"sort"_s, i},
                        {u"expanded"_s, true},
                        {u"creatorRef"_s, QJsonObject{{u"_id"_s, 4321}, {u"name"_s, u"me"_s}}},
                        {u"lastUpdate"_s, u"2024-05-02T10:00:00.000Z"_s}});
    return list(items);
}

QByteArray tags(int count) {
    QJsonArray items;
    for (int i = 0; i < count; ++i)
        items.append(QJsonObject{{u"_id"_s, u"tag-%1"_s.arg(i)}, {u"count"_s, count - i}});
    return list(items);
}

// The answers of one account, made once.
struct Answers {
    QByteArray favourites;
    QByteArray recent;
    QByteArray collections;
    QByteArray tags;
    QByteArray bookmarks;
};

TestHttpServer::Response answer(const Answers& answers, std::chrono::milliseconds delay,
                                const TestHttpServer::Request& request) {
    const QString api = u"/rest/v1"_s;
    const QString path = request.path.mid(api.size());
    QByteArray body;
    if (!request.path.startsWith(api) || request.method != "GET")
        return {404, "not found", {}, delay, TestHttpServer::Fault::None};
    if (path == u"/collections"_s)
        body = answers.collections;
    else if (path == u"/tags"_s)
        body = answers.tags;
    else if (path == u"/raindrops/0"_s && request.query(u"search"_s).contains(u"important"_s))
        body = answers.favourites;
    else if (path == u"/raindrops/0"_s && request.query(u"sort"_s) == u"-created"_s)
        body = answers.recent;
    else if (path.startsWith(u"/raindrops/"_s))
        body = answers.bookmarks;
    else
        return {404, "not found", {}, delay, TestHttpServer::Fault::None};
    return TestHttpServer::Response::json(body).after(delay);
}

} // namespace

qint64 BenchService::pinnedCollectionId() {
    return firstCollectionId;
}

QString BenchService::pinnedCollectionTitle() {
    return u"Collection 00000"_s;
}

QString BenchService::pinnedTag() {
    return u"tag-0"_s;
}

BenchService::BenchService()
    : m_context(new QObject()) {
    m_thread.setObjectName(u"bench service"_s);
    m_context->moveToThread(&m_thread);
    m_thread.start();
}

BenchService::~BenchService() {
    QMetaObject::invokeMethod(
        m_context, [this] { qDeleteAll(m_servers); }, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
    // Its thread has ended: nothing of it runs any more.
    delete m_context;
}

QString BenchService::serve(const Account& account) {
    const auto answers = std::make_shared<Answers>(
        Answers{bookmarks(account.favourites, 2000000000, firstCollectionId, true),
                bookmarks(10, 2100000000, firstCollectionId, false),
                collections(account.collections), tags(account.tags),
                bookmarks(account.bookmarksPerList, 2200000000, firstCollectionId, false)});
    TestHttpServer* server = nullptr;
    // The server is made in its thread, so that its sockets belong to that thread's event loop.
    QMetaObject::invokeMethod(
        m_context,
        [&server, answers, delay = account.delay] {
            server = new TestHttpServer();
            server->setFallback([answers, delay](const TestHttpServer::Request& request) {
                return answer(*answers, delay, request);
            });
        },
        Qt::BlockingQueuedConnection);
    m_servers.append(server);
    return server->baseUrl() + u"/rest/v1"_s;
}

int BenchService::requestCount() const {
    int count = 0;
    QMetaObject::invokeMethod(
        m_context,
        [this, &count] {
            for (const TestHttpServer* server : m_servers)
                count += server->requestCount();
        },
        Qt::BlockingQueuedConnection);
    return count;
}

void BenchService::setRefusing(const QString& apiBase, bool refusing) {
    QMetaObject::invokeMethod(
        m_context,
        [this, &apiBase, refusing] {
            for (TestHttpServer* server : std::as_const(m_servers))
                if (apiBase.startsWith(server->baseUrl() + u"/"_s))
                    server->setRefusing(refusing);
        },
        Qt::BlockingQueuedConnection);
}
