#include "FakeRaindropService.h"

#include <QJsonDocument>
#include <QMap>

#include <algorithm>

namespace {

const QString restPrefix = QStringLiteral("/rest/v1");

QJsonObject toJson(const FakeRaindropService::Bookmark& bookmark) {
    QJsonObject collection{{QStringLiteral("$ref"), QStringLiteral("collections")},
                           {QStringLiteral("$id"), bookmark.collectionId},
                           {QStringLiteral("oid"), bookmark.collectionId}};
    return {{QStringLiteral("_id"), bookmark.id},
            {QStringLiteral("title"), bookmark.title},
            {QStringLiteral("link"), bookmark.link},
            {QStringLiteral("excerpt"), QString()},
            {QStringLiteral("important"), bookmark.important},
            {QStringLiteral("tags"), QJsonArray::fromStringList(bookmark.tags)},
            {QStringLiteral("collection"), collection}};
}

TestHttpServer::Response itemAnswer(const FakeRaindropService::Bookmark& bookmark) {
    const QJsonObject body{{QStringLiteral("result"), true},
                           {QStringLiteral("item"), toJson(bookmark)}};
    return TestHttpServer::Response::json(QJsonDocument(body).toJson(QJsonDocument::Compact));
}

// The value of the first {"key": key, "val": ...} filter in a search parameter.
QJsonValue searchValue(const QString& search, const QString& key) {
    const QJsonArray filters = QJsonDocument::fromJson(search.toUtf8()).array();
    for (const QJsonValue& filter : filters)
        if (filter.toObject().value(QStringLiteral("key")).toString() == key)
            return filter.toObject().value(QStringLiteral("val"));
    return {};
}

} // namespace

FakeRaindropService::FakeRaindropService(QString token, QObject* parent)
    : QObject(parent)
    , m_token(std::move(token)) {
    m_server.setFallback(
        [this](const TestHttpServer::Request& request) { return answer(request); });
}

QString FakeRaindropService::apiBase() const {
    return m_server.baseUrl() + restPrefix;
}

Environment FakeRaindropService::environment(const QString& version) const {
    Environment environment;
    environment.apiBase = apiBase();
    environment.updateManifest = m_server.baseUrl() + QStringLiteral("/apps/quillmar/latest.json");
    environment.version = version;
    return environment;
}

void FakeRaindropService::addCollection(qint64 id, const QString& title) {
    m_collections.append({id, title});
}

void FakeRaindropService::addBookmark(const Bookmark& bookmark) {
    m_bookmarks.append(bookmark);
}

void FakeRaindropService::failListRequests(qint64 collectionId, int count) {
    m_failures[collectionId] = count;
}

void FakeRaindropService::set(const QString& kind, const TestHttpServer::Response& response) {
    m_answers.insert(kind, response);
}

TestHttpServer::Response FakeRaindropService::answer(const TestHttpServer::Request& request) {
    if (!m_token.isEmpty() && request.header("authorization") != "Bearer " + m_token.toUtf8())
        return {401, "Unauthorized", {{"Content-Type", "text/plain"}}, {}, {}};
    if (const auto set = m_answers.constFind(kindOf(request)); set != m_answers.cend())
        return *set;
    return storeAnswer(request);
}

TestHttpServer::Response FakeRaindropService::storeAnswer(const TestHttpServer::Request& request) {
    if (!request.path.startsWith(restPrefix))
        return {404, "Not Found", {}, {}, {}};
    const QString path = request.path.mid(restPrefix.size());

    if (request.method == "GET" && path == QStringLiteral("/collections")) {
        QJsonArray items;
        for (const CollectionEntry& collection : std::as_const(m_collections)) {
            const auto count = std::count_if(
                m_bookmarks.cbegin(), m_bookmarks.cend(),
                [&](const Bookmark& bookmark) { return bookmark.collectionId == collection.id; });
            items.append(QJsonObject{{QStringLiteral("_id"), collection.id},
                                     {QStringLiteral("title"), collection.title},
                                     {QStringLiteral("count"), qint64(count)}});
        }
        return FakeRaindropService::list(items);
    }
    if (request.method == "GET" && path == QStringLiteral("/tags")) {
        QMap<QString, int> counts;
        for (const Bookmark& bookmark : std::as_const(m_bookmarks))
            for (const QString& tag : bookmark.tags)
                ++counts[tag];
        QJsonArray items;
        for (auto it = counts.cbegin(); it != counts.cend(); ++it)
            items.append(QJsonObject{{QStringLiteral("_id"), it.key()},
                                     {QStringLiteral("count"), it.value()}});
        return FakeRaindropService::list(items);
    }
    if (request.method == "GET" && path.startsWith(QStringLiteral("/raindrops/"))) {
        bool ok = false;
        const qint64 collection = path.mid(11).toLongLong(&ok);
        if (ok && m_failures.value(collection) > 0) {
            --m_failures[collection];
            return {500, "Internal Server Error", {}, {}, {}};
        }
        if (ok)
            return listAnswer(request, collection).after(m_listDelay);
    }
    if (request.method == "PUT" && path.startsWith(QStringLiteral("/raindrop/"))) {
        bool ok = false;
        const qint64 id = path.mid(10).toLongLong(&ok);
        if (ok)
            return update(id, request.body);
    }
    if (request.method == "POST" && path == QStringLiteral("/raindrop"))
        return create(request.body);
    return {404, "Not Found", {}, {}, {}};
}

TestHttpServer::Response FakeRaindropService::listAnswer(const TestHttpServer::Request& request,
                                                         qint64 collection) {
    const QString search = request.query(QStringLiteral("search"));
    const QJsonValue important = searchValue(search, QStringLiteral("important"));
    const QJsonValue tag = searchValue(search, QStringLiteral("tag"));
    const bool newestFirst = request.query(QStringLiteral("sort")) == QStringLiteral("-created");
    const int perPage = request.query(QStringLiteral("perpage")).toInt();

    QList<Bookmark> selected;
    for (const Bookmark& bookmark : std::as_const(m_bookmarks)) {
        if (collection != 0 && bookmark.collectionId != collection)
            continue;
        if (important.isBool() && bookmark.important != important.toBool())
            continue;
        if (tag.isString() && !bookmark.tags.contains(tag.toString()))
            continue;
        selected.append(bookmark);
    }
    if (newestFirst)
        std::reverse(selected.begin(), selected.end());
    if (perPage > 0 && selected.size() > perPage)
        selected.resize(perPage);
    QJsonArray items;
    for (const Bookmark& bookmark : std::as_const(selected))
        items.append(toJson(bookmark));
    return FakeRaindropService::list(items);
}

TestHttpServer::Response FakeRaindropService::update(qint64 id, const QByteArray& body) {
    const QJsonObject changes = QJsonDocument::fromJson(body).object();
    for (Bookmark& bookmark : m_bookmarks) {
        if (bookmark.id != id)
            continue;
        if (changes.value(QStringLiteral("important")).isBool())
            bookmark.important = changes.value(QStringLiteral("important")).toBool();
        return itemAnswer(bookmark);
    }
    return {404, "Not Found", {}, {}, {}};
}

TestHttpServer::Response FakeRaindropService::create(const QByteArray& body) {
    const QJsonObject fields = QJsonDocument::fromJson(body).object();
    Bookmark bookmark;
    bookmark.id = m_nextId++;
    bookmark.link = fields.value(QStringLiteral("link")).toString();
    bookmark.title = fields.value(QStringLiteral("title")).toString();
    if (bookmark.link.isEmpty())
        return {400, "Bad Request", {}, {}, {}};
    m_bookmarks.append(bookmark);
    return itemAnswer(bookmark);
}

QString FakeRaindropService::kindOf(const TestHttpServer::Request& request) {
    if (!request.path.startsWith(restPrefix))
        return request.path;
    const QString path = request.path.mid(restPrefix.size());
    if (request.method == "PUT" && path.startsWith(QStringLiteral("/raindrop/")))
        return QStringLiteral("favourite_") + path.mid(10);
    if (request.method == "POST" && path == QStringLiteral("/raindrop"))
        return QStringLiteral("create");
    if (path == QStringLiteral("/collections"))
        return QStringLiteral("collections");
    if (path == QStringLiteral("/tags"))
        return QStringLiteral("tags");
    if (path == QStringLiteral("/raindrops/0")) {
        const QString search = request.query(QStringLiteral("search"));
        if (searchValue(search, QStringLiteral("important")).isBool())
            return QStringLiteral("favourites");
        if (const QJsonValue tag = searchValue(search, QStringLiteral("tag")); tag.isString())
            return QStringLiteral("tag_") + tag.toString();
        if (request.query(QStringLiteral("sort")) == QStringLiteral("-created"))
            return QStringLiteral("recent");
    }
    if (path.startsWith(QStringLiteral("/raindrops/")))
        return QStringLiteral("col_") + path.mid(11);
    return request.path;
}

QStringList FakeRaindropService::kinds() const {
    QStringList kinds;
    const QList<TestHttpServer::Request> requests = m_server.requests();
    for (const TestHttpServer::Request& request : requests)
        kinds.append(kindOf(request));
    return kinds;
}

QList<TestHttpServer::Request> FakeRaindropService::requestsOf(const QString& kind) const {
    QList<TestHttpServer::Request> matching;
    const QList<TestHttpServer::Request> requests = m_server.requests();
    for (const TestHttpServer::Request& request : requests)
        if (kindOf(request) == kind)
            matching.append(request);
    return matching;
}

TestHttpServer::Response FakeRaindropService::list(const QJsonArray& items) {
    const QJsonObject body{{QStringLiteral("result"), true},
                           {QStringLiteral("items"), items},
                           {QStringLiteral("count"), items.size()}};
    return TestHttpServer::Response::json(QJsonDocument(body).toJson(QJsonDocument::Compact));
}

QJsonObject FakeRaindropService::bookmark(qint64 id, const QString& title, const QString& link,
                                          bool important, qint64 collection) {
    return toJson({id, title, link, collection, important, {}});
}

QJsonObject FakeRaindropService::collection(qint64 id, const QString& title, qint64 count) {
    return {{QStringLiteral("_id"), id},
            {QStringLiteral("title"), title},
            {QStringLiteral("count"), count}};
}

QJsonObject FakeRaindropService::tag(const QString& name, qint64 count) {
    return {{QStringLiteral("_id"), name}, {QStringLiteral("count"), count}};
}

QStringList FakeRaindropService::fullMenuLabels() {
    return {QStringLiteral("📋 Add Clipboard URL"),
            QStringLiteral("🕐 Recent"),
            QStringLiteral("🌐 Open Raindrop Web"),
            QStringLiteral("---"),
            QStringLiteral("❤️ Favourites"),
            QStringLiteral("Tom & Jerry_2"),
            QStringLiteral("---"),
            QStringLiteral("📌 Pinned"),
            QStringLiteral("Work"),
            QStringLiteral("#fun"),
            QStringLiteral("---"),
            QStringLiteral("📁 Collections"),
            QStringLiteral("---"),
            QStringLiteral("🏷 Tags"),
            QStringLiteral("---"),
            QStringLiteral("Settings…"),
            QStringLiteral("Refresh"),
            QStringLiteral("Quillmar v") + Environment::buildVersion(),
            QStringLiteral("Check for Updates…"),
            QStringLiteral("Quit Quillmar")};
}
