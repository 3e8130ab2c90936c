#include "RoundTrip.h"
#include "TestHttpServer.h"

#include "service/RaindropAPI.h"
#include "service/ServiceError.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <functional>
#include <variant>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

using QueryItems = QList<QPair<QString, QString>>;
using TagCounts = QList<QPair<QString, qint64>>;

// Distinctive, so that any error message that carried it would be caught.
const QString token = u"tok-5ecret-4f1e"_s;
const QByteArray bearer = "Bearer tok-5ecret-4f1e";

// What an operation ended with: its value, or the error it failed with.
template <typename T> using Outcome = std::variant<T, ServiceError>;
struct Done {};

template <typename T> QCoro::Task<Outcome<T>> capture(QCoro::Task<T> task) {
    try {
        T value = co_await task;
        co_return Outcome<T>(std::move(value));
    } catch (const ServiceError& error) {
        co_return Outcome<T>(error);
    }
}

QCoro::Task<Outcome<Done>> capture(QCoro::Task<void> task) {
    try {
        co_await task;
        co_return Outcome<Done>(Done{});
    } catch (const ServiceError& error) {
        co_return Outcome<Done>(error);
    }
}

// Runs an operation to its end. QCoro::waitFor alone would never return from a failing task.
template <typename T> auto run(QCoro::Task<T> task) {
    return QCoro::waitFor(capture(std::move(task)));
}

template <typename T> bool failed(const Outcome<T>& outcome) {
    return std::holds_alternative<ServiceError>(outcome);
}

template <typename T> T valueOf(const Outcome<T>& outcome) {
    if (const auto* error = std::get_if<ServiceError>(&outcome))
        qFatal("operation failed: %s", error->what());
    return std::get<T>(outcome);
}

template <typename T> ServiceError errorOf(const Outcome<T>& outcome) {
    if (!failed(outcome))
        qFatal("operation succeeded where it should have failed");
    return std::get<ServiceError>(outcome);
}

QByteArray itemsBody(const QJsonArray& items) {
    return QJsonDocument(QJsonObject{{u"result"_s, true}, {u"items"_s, items}}).toJson();
}

QJsonObject bookmark(qint64 id, const QString& title = u"T"_s) {
    return {{u"_id"_s, id},
            {u"title"_s, title},
            {u"link"_s, u"https://example.com/%1"_s.arg(id)},
            {u"excerpt"_s, u""_s},
            {u"collection"_s, QJsonObject{{u"$ref"_s, u"collections"_s}, {u"$id"_s, 5}}}};
}

QByteArray bookmarksBody(const QList<qint64>& ids) {
    QJsonArray items;
    for (qint64 id : ids)
        items.append(bookmark(id));
    return itemsBody(items);
}

QList<qint64> idsOf(const QList<Raindrop>& raindrops) {
    QList<qint64> ids;
    for (const Raindrop& raindrop : raindrops)
        ids.append(raindrop.id);
    return ids;
}

QByteArray collectionsBody(const QStringList& titles) {
    QJsonArray items;
    for (qsizetype i = 0; i < titles.size(); ++i)
        items.append(QJsonObject{{u"_id"_s, qint64(100 + i)},
                                 {u"title"_s, titles[i]},
                                 {u"count"_s, qint64(i)},
                                 {u"__v"_s, 0}});
    return itemsBody(items);
}

QByteArray tagsBody(const QList<QPair<QString, qint64>>& tags) {
    QJsonArray items;
    for (const auto& [name, count] : tags)
        items.append(QJsonObject{{u"_id"_s, name}, {u"count"_s, count}});
    return itemsBody(items);
}

QByteArray resource(const QString& name) {
    QFile file(u":/testdata/"_s + name);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("missing test resource");
    return file.readAll();
}

// One operation of the client, run to its end, with its outcome reduced to an error or none.
using Operation = std::function<std::optional<ServiceError>(RaindropAPI&)>;

template <typename T> std::optional<ServiceError> errorIfAny(const Outcome<T>& outcome) {
    if (failed(outcome))
        return std::get<ServiceError>(outcome);
    return std::nullopt;
}

struct NamedOperation {
    const char* name;
    QByteArray method;
    QString path;
    Operation operation;
};

QList<NamedOperation> readOperations() {
    return {
        {"fetchCollections", "GET", u"/rest/v1/collections"_s,
         [](RaindropAPI& api) {
             return errorIfAny(run(api.fetchCollections()));
         }},
        {"fetchTags", "GET", u"/rest/v1/tags"_s,
         [](RaindropAPI& api) {
             return errorIfAny(run(api.fetchTags()));
         }},
        {"fetchRecent", "GET", u"/rest/v1/raindrops/0"_s,
         [](RaindropAPI& api) {
             return errorIfAny(run(api.fetchRecent()));
         }},
        {"fetchFavourites", "GET", u"/rest/v1/raindrops/0"_s,
         [](RaindropAPI& api) {
             return errorIfAny(run(api.fetchFavourites()));
         }},
        {"fetchBookmarks", "GET", u"/rest/v1/raindrops/7"_s,
         [](RaindropAPI& api) {
             return errorIfAny(run(api.fetchBookmarks(7)));
         }},
        {"fetchBookmarksByTag", "GET", u"/rest/v1/raindrops/0"_s,
         [](RaindropAPI& api) {
             return errorIfAny(run(api.fetchBookmarksByTag(u"x"_s)));
         }},
    };
}

QList<NamedOperation> writeOperations() {
    return {
        {"setFavourite", "PUT", u"/rest/v1/raindrop/7"_s,
         [](RaindropAPI& api) {
             return errorIfAny(run(api.setFavourite(7, true)));
         }},
        {"createRaindrop", "POST", u"/rest/v1/raindrop"_s,
         [](RaindropAPI& api) {
             return errorIfAny(run(api.createRaindrop(u"https://example.com/"_s, u"T"_s)));
         }},
    };
}

QList<NamedOperation> allOperations() {
    return readOperations() + writeOperations();
}

} // namespace

Q_DECLARE_METATYPE(Operation)

class tst_RaindropAPI : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void construction();
    void requests_data();
    void requests();
    void tagQueryEncoding_data();
    void tagQueryEncoding();
    void authorizationUsesTrimmedToken_data();
    void authorizationUsesTrimmedToken();
    void writeBodies_data();
    void writeBodies();
    void bodiesAreJson();

    void readsReturnItems();
    void readStatusFailures_data();
    void readStatusFailures();
    void readRedirectIsNotFollowed();
    void writeSuccessStatuses_data();
    void writeSuccessStatuses();
    void writeStatusFailures_data();
    void writeStatusFailures();
    void writeRedirectIsNotFollowed();

    void emptyFavouritesAreCached();
    void secondFetchComesFromCache();
    void cacheKeys();
    void failedFetchCachesNothing_data();
    void failedFetchCachesNothing();
    void uncachedOperations();
    void setFavouriteRemovesOnlyFavourites();
    void failedSetFavouriteKeepsFavourites();
    void createRaindropKeepsCache();
    void clearCache();
    void laterStoreWins();

    void collectionsSortedByTitle_data();
    void collectionsSortedByTitle();
    void tagsSortedByCount_data();
    void tagsSortedByCount();

    void decodingFailures_data();
    void decodingFailures();
    void hugeAnswerFails();
    void endlessAnswerFails();
    void largeAnswerWithinLimit();
    void resetMidBodyFails_data();
    void resetMidBodyFails();
    void refusedConnectionFails();
    void badBaseFails_data();
    void badBaseFails();
    void timesOut_data();
    void timesOut();
    void slowAnswerWithinTimeout();
    void cancels();
    void cancelledBeforeTheCall();
    void cancellerOfAnotherCallLeavesThisOne();
    void untrustedCertificateFails_data();
    void untrustedCertificateFails();
    void clientOutlivesItsOwner();
    void parallelOperations();

private:
    std::shared_ptr<RaindropAPI> makeApi(const QString& apiToken = token,
                                         std::chrono::milliseconds timeout = 5s) const {
        return RaindropAPI::create(apiToken, m_server->baseUrl() + u"/rest/v1"_s, timeout);
    }
    // Every failure of the client must keep the token out of what users and logs see.
    static void checkKeepsTokenOut(const ServiceError& error) {
        QVERIFY(!error.message().contains(token));
        QVERIFY(!QByteArray(error.what()).contains(token.toUtf8()));
        QVERIFY(!error.message().contains(u"5ecret"_s));
    }

    std::unique_ptr<TestHttpServer> m_server;
};

void tst_RaindropAPI::initTestCase() {
    Q_INIT_RESOURCE(testdata);
}

void tst_RaindropAPI::init() {
    m_server = std::make_unique<TestHttpServer>();
}

void tst_RaindropAPI::cleanup() {
    m_server.reset();
}

void tst_RaindropAPI::construction() {
    QCOMPARE(RaindropAPI::defaultTimeout, 15000ms);
    QCOMPARE(RaindropAPI::maximumBodySize, 64 * 1024 * 1024);
    const auto api = makeApi();
    QCOMPARE(api->base(), m_server->baseUrl() + u"/rest/v1"_s);
    // Creating a client sends nothing: its first request is the first one.
    roundTrip(api);
    QCOMPARE(m_server->requestCount(), 1);
    QCOMPARE(RaindropAPI::favouritesKey(), u"_favs"_s);
    QCOMPARE(RaindropAPI::collectionKey(123), u"col_123"_s);
    QCOMPARE(RaindropAPI::collectionKey(-1), u"col_-1"_s);
    QCOMPARE(RaindropAPI::tagKey(u"reading"_s), u"tag_reading"_s);
    QCOMPARE(RaindropAPI::tagKey(u" a b "_s), u"tag_ a b "_s);
}

void tst_RaindropAPI::requests_data() {
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("target");
    QTest::addColumn<QueryItems>("queryItems");

    using Items = QueryItems;
    QTest::newRow("fetchCollections")
        << Operation([](RaindropAPI& api) { return errorIfAny(run(api.fetchCollections())); })
        << QByteArray("GET") << QByteArray("/rest/v1/collections") << Items{};
    QTest::newRow("fetchTags") << Operation([](RaindropAPI& api) {
        return errorIfAny(run(api.fetchTags()));
    }) << QByteArray("GET") << QByteArray("/rest/v1/tags")
                               << Items{};
    QTest::newRow("fetchRecent") << Operation([](RaindropAPI& api) {
        return errorIfAny(run(api.fetchRecent()));
    }) << QByteArray("GET") << QByteArray("/rest/v1/raindrops/0?sort=-created&perpage=10")
                                 << Items{{u"sort"_s, u"-created"_s}, {u"perpage"_s, u"10"_s}};
    QTest::newRow("fetchFavourites")
        << Operation([](RaindropAPI& api) { return errorIfAny(run(api.fetchFavourites())); })
        << QByteArray("GET")
        << QByteArray("/rest/v1/raindrops/0"
                      "?search=%5B%7B%22key%22:%22important%22,%22val%22:true%7D%5D&perpage=25")
        << Items{{u"search"_s, u"[{\"key\":\"important\",\"val\":true}]"_s},
                 {u"perpage"_s, u"25"_s}};
    QTest::newRow("fetchBookmarks")
        << Operation([](RaindropAPI& api) { return errorIfAny(run(api.fetchBookmarks(123))); })
        << QByteArray("GET") << QByteArray("/rest/v1/raindrops/123?perpage=50")
        << Items{{u"perpage"_s, u"50"_s}};
    QTest::newRow("fetchBookmarks unsorted")
        << Operation([](RaindropAPI& api) { return errorIfAny(run(api.fetchBookmarks(-1))); })
        << QByteArray("GET") << QByteArray("/rest/v1/raindrops/-1?perpage=50")
        << Items{{u"perpage"_s, u"50"_s}};
    QTest::newRow("fetchBookmarks 64-bit") << Operation([](RaindropAPI& api) {
        return errorIfAny(run(api.fetchBookmarks(9007199254740993)));
    }) << QByteArray("GET") << QByteArray("/rest/v1/raindrops/9007199254740993?perpage=50")
                                           << Items{{u"perpage"_s, u"50"_s}};
    QTest::newRow("fetchBookmarksByTag")
        << Operation(
               [](RaindropAPI& api) { return errorIfAny(run(api.fetchBookmarksByTag(u"a b"_s))); })
        << QByteArray("GET")
        << QByteArray("/rest/v1/raindrops/0"
                      "?search=%5B%7B%22key%22:%22tag%22,%22val%22:%22a%20b%22%7D%5D&perpage=50")
        << Items{{u"search"_s, u"[{\"key\":\"tag\",\"val\":\"a b\"}]"_s}, {u"perpage"_s, u"50"_s}};
    QTest::newRow("setFavourite") << Operation([](RaindropAPI& api) {
        return errorIfAny(run(api.setFavourite(9007199254740993, true)));
    }) << QByteArray("PUT") << QByteArray("/rest/v1/raindrop/9007199254740993")
                                  << Items{};
    QTest::newRow("createRaindrop") << Operation([](RaindropAPI& api) {
        return errorIfAny(run(api.createRaindrop(u"https://example.com/"_s, {})));
    }) << QByteArray("POST") << QByteArray("/rest/v1/raindrop")
                                    << Items{};
}

void tst_RaindropAPI::requests() {
    QFETCH(Operation, operation);
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, target);
    QFETCH(QueryItems, queryItems);

    m_server->setFallback([](const TestHttpServer::Request&) {
        return TestHttpServer::Response::json(R"({"items": []})");
    });
    const auto api = makeApi(u"  "_s + token + u"\n"_s);
    QCOMPARE(operation(*api), std::nullopt);
    QCOMPARE(m_server->requestCount(), 1);
    const TestHttpServer::Request request = m_server->requests().first();
    QCOMPARE(request.method, method);
    QCOMPARE(request.target, target);
    QCOMPARE(request.queryItems, queryItems);
    QCOMPARE(request.header("authorization"), bearer);
    const bool writes = method != "GET";
    // Only writes say what they send; reads send nothing.
    QCOMPARE(request.hasHeader("content-type"), writes);
    if (writes)
        QCOMPARE(request.header("content-type"), QByteArray("application/json"));
    else
        QVERIFY(request.body.isEmpty());
    QVERIFY(!request.header("user-agent").contains("Quillmar"));
}

void tst_RaindropAPI::tagQueryEncoding_data() {
    QTest::addColumn<QString>("tag");
    QTest::addColumn<QByteArray>("encodedValue");

    // Encoded as a URL-components facility encodes query values: brackets, braces, quotes,
    // spaces, "&", "#", "%" and non-ASCII are encoded; the other characters that a query may
    // hold ("!$'()*+,;=:@/?") travel as they are.
    QTest::newRow("plain") << u"reading"_s << QByteArray("reading");
    QTest::newRow("space") << u"a b"_s << QByteArray("a%20b");
    QTest::newRow("query delimiters") << u"a&b=c+d#e%f"_s << QByteArray("a%26b=c+d%23e%25f");
    QTest::newRow("allowed punctuation") << u"!$'()*+,;=:@/?"_s << QByteArray("!$'()*+,;=:@/?");
    QTest::newRow("brackets and braces") << u"[x]{y}"_s << QByteArray("%5Bx%5D%7By%7D");
    QTest::newRow("backslash, caret, pipe, backtick, angles")
        << u"\\^|`<>"_s << QByteArray("%5C%5E%7C%60%3C%3E");
    QTest::newRow("unreserved") << u"A-z_0.9~"_s << QByteArray("A-z_0.9~");
    QTest::newRow("non-ASCII") << u"über 東京 \U0001F600"_s
                               << QByteArray("%C3%BCber%20%E6%9D%B1%E4%BA%AC%20%F0%9F%98%80");
    QTest::newRow("looks encoded already") << u"%41%2F"_s << QByteArray("%2541%252F");
    // The tag goes into the filter without JSON escaping, quotes and all.
    QTest::newRow("double quote") << u"say \"hi\""_s << QByteArray("say%20%22hi%22");
    QTest::newRow("empty") << QString() << QByteArray();
}

void tst_RaindropAPI::tagQueryEncoding() {
    QFETCH(QString, tag);
    QFETCH(QByteArray, encodedValue);
    m_server->setFallback([](const TestHttpServer::Request&) {
        return TestHttpServer::Response::json(R"({"items": []})");
    });
    const auto api = makeApi();
    QVERIFY(!failed(run(api->fetchBookmarksByTag(tag))));
    QCOMPARE(m_server->requestCount(), 1);
    const TestHttpServer::Request request = m_server->requests().first();
    QCOMPARE(request.rawQuery, "search=%5B%7B%22key%22:%22tag%22,%22val%22:%22" + encodedValue +
                                   "%22%7D%5D&perpage=50");
    QCOMPARE(request.query(u"search"_s), u"[{\"key\":\"tag\",\"val\":\""_s + tag + u"\"}]"_s);
    QVERIFY(api->isCached(u"tag_"_s + tag));
}

void tst_RaindropAPI::authorizationUsesTrimmedToken_data() {
    QTest::addColumn<QString>("given");
    QTest::addColumn<QByteArray>("sent");
    QTest::newRow("spaces and line break") << u"  abc\n"_s << QByteArray("Bearer abc");
    QTest::newRow("tabs and CRLF") << u"\t abc \r\n"_s << QByteArray("Bearer abc");
    QTest::newRow("inner space kept") << u" a b "_s << QByteArray("Bearer a b");
    QTest::newRow("as it is") << u"abc"_s << QByteArray("Bearer abc");
}

void tst_RaindropAPI::authorizationUsesTrimmedToken() {
    QFETCH(QString, given);
    QFETCH(QByteArray, sent);
    m_server->setFallback([](const TestHttpServer::Request&) {
        return TestHttpServer::Response::json(R"({"items": []})");
    });
    const auto api = makeApi(given);
    for (const NamedOperation& operation : allOperations())
        QCOMPARE(operation.operation(*api), std::nullopt);
    QCOMPARE(m_server->requestCount(), allOperations().size());
    for (const TestHttpServer::Request& request : m_server->requests())
        QCOMPARE(request.header("authorization"), sent);
}

void tst_RaindropAPI::writeBodies_data() {
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QJsonObject>("body");

    QTest::newRow("favourite on") << Operation([](RaindropAPI& api) {
        return errorIfAny(run(api.setFavourite(1, true)));
    }) << QJsonObject{{u"important"_s, true}};
    QTest::newRow("favourite off")
        << Operation([](RaindropAPI& api) { return errorIfAny(run(api.setFavourite(1, false))); })
        << QJsonObject{{u"important"_s, false}};
    QTest::newRow("create without title")
        << Operation([](RaindropAPI& api) {
               return errorIfAny(run(api.createRaindrop(u"https://example.com/a?b=c"_s, {})));
           })
        << QJsonObject{{u"link"_s, u"https://example.com/a?b=c"_s},
                       {u"collection"_s, QJsonObject{{u"$id"_s, 0}}}};
    QTest::newRow("create with title") << Operation([](RaindropAPI& api) {
        return errorIfAny(
            run(api.createRaindrop(u"https://example.com/"_s, u"Fish & \"Chips\" 🐟"_s)));
    })
                                       << QJsonObject{{u"link"_s, u"https://example.com/"_s},
                                                      {u"collection"_s, QJsonObject{{u"$id"_s, 0}}},
                                                      {u"title"_s, u"Fish & \"Chips\" 🐟"_s}};
    // Only an absent title leaves the key out; an empty one is sent.
    QTest::newRow("create with empty title")
        << Operation([](RaindropAPI& api) {
               return errorIfAny(run(api.createRaindrop(u"u"_s, QString())));
           })
        << QJsonObject{{u"link"_s, u"u"_s},
                       {u"collection"_s, QJsonObject{{u"$id"_s, 0}}},
                       {u"title"_s, u""_s}};
}

void tst_RaindropAPI::writeBodies() {
    QFETCH(Operation, operation);
    QFETCH(QJsonObject, body);
    m_server->setFallback([](const TestHttpServer::Request&) {
        return TestHttpServer::Response{204, {}, {}};
    });
    const auto api = makeApi();
    QCOMPARE(operation(*api), std::nullopt);
    QCOMPARE(m_server->requestCount(), 1);
    const TestHttpServer::Request request = m_server->requests().first();
    QJsonParseError error;
    const QJsonDocument sent = QJsonDocument::fromJson(request.body, &error);
    QCOMPARE(error.error, QJsonParseError::NoError);
    QCOMPARE(sent.object(), body);
    // The collection id is the integer 0, not a text or a fraction.
    if (body.contains(u"collection"_s))
        QVERIFY(request.body.contains(R"("collection":{"$id":0})"));
}

void tst_RaindropAPI::bodiesAreJson() {
    m_server->setFallback([](const TestHttpServer::Request&) {
        return TestHttpServer::Response{200, {}, {}};
    });
    const auto api = makeApi();
    QVERIFY(!failed(run(api->setFavourite(5, true))));
    QCOMPARE(m_server->requests().first().body, QByteArray(R"({"important":true})"));
    QCOMPARE(m_server->requests().first().header("content-length"), QByteArray("18"));
}

void tst_RaindropAPI::readsReturnItems() {
    m_server->on("GET", u"/rest/v1/raindrops/0"_s,
                 TestHttpServer::Response::json(bookmarksBody({3, 1, 2})));
    m_server->on("GET", u"/rest/v1/raindrops/4"_s,
                 TestHttpServer::Response::json(bookmarksBody({9007199254740993})));
    const auto api = makeApi();
    // Bookmark lists keep the service's order.
    QCOMPARE(idsOf(valueOf(run(api->fetchRecent()))), (QList<qint64>{3, 1, 2}));
    QCOMPARE(idsOf(valueOf(run(api->fetchFavourites()))), (QList<qint64>{3, 1, 2}));
    QCOMPARE(idsOf(valueOf(run(api->fetchBookmarksByTag(u"t"_s)))), (QList<qint64>{3, 1, 2}));
    const QList<Raindrop> exact = valueOf(run(api->fetchBookmarks(4)));
    QCOMPARE(idsOf(exact), QList<qint64>{9007199254740993});
    QCOMPARE(exact.first().title, u"T"_s);
    QCOMPARE(exact.first().link, u"https://example.com/9007199254740993"_s);
    QCOMPARE(exact.first().excerpt, u""_s);
    QCOMPARE(exact.first().important, false);
    QCOMPARE(exact.first().collectionId, 5);
}

void tst_RaindropAPI::readStatusFailures_data() {
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("message");

    QTest::newRow("401") << 401 << QByteArray("Unauthorized")
                         << u"Invalid API token — check your token and try again."_s;
    QTest::newRow("401 with JSON") << 401 << QByteArray(R"({"items": []})")
                                   << u"Invalid API token — check your token and try again."_s;
    QTest::newRow("403") << 403 << QByteArray("Forbidden")
                         << u"Unexpected response from Raindrop (HTTP 403)."_s;
    QTest::newRow("400") << 400 << QByteArray(R"({"result":false})")
                         << u"Unexpected response from Raindrop (HTTP 400)."_s;
    QTest::newRow("404") << 404 << QByteArray()
                         << u"Unexpected response from Raindrop (HTTP 404)."_s;
    QTest::newRow("418") << 418 << QByteArray()
                         << u"Unexpected response from Raindrop (HTTP 418)."_s;
    QTest::newRow("429") << 429 << QByteArray(R"({"result": false})")
                         << u"Unexpected response from Raindrop (HTTP 429)."_s;
    QTest::newRow("500") << 500 << QByteArray(R"({"items": []})")
                         << u"Unexpected response from Raindrop (HTTP 500)."_s;
    QTest::newRow("503") << 503 << QByteArray()
                         << u"Unexpected response from Raindrop (HTTP 503)."_s;
    // Reads take only 200, even with a body that would decode.
    QTest::newRow("201") << 201 << QByteArray(R"({"items": []})")
                         << u"Unexpected response from Raindrop (HTTP 201)."_s;
    QTest::newRow("204") << 204 << QByteArray()
                         << u"Unexpected response from Raindrop (HTTP 204)."_s;
    QTest::newRow("299") << 299 << QByteArray(R"({"items": []})")
                         << u"Unexpected response from Raindrop (HTTP 299)."_s;
    QTest::newRow("304") << 304 << QByteArray()
                         << u"Unexpected response from Raindrop (HTTP 304)."_s;
}

void tst_RaindropAPI::readStatusFailures() {
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QString, message);
    const QList<QPair<QByteArray, QByteArray>> headers =
        status == 429 ? QList<QPair<QByteArray, QByteArray>>{{"X-RateLimit-Limit", "120"},
                                                             {"X-RateLimit-Remaining", "0"},
                                                             {"X-RateLimit-Reset", "1700000000"}}
                      : QList<QPair<QByteArray, QByteArray>>{};
    m_server->setFallback([&](const TestHttpServer::Request&) {
        return TestHttpServer::Response{status, body, headers};
    });
    for (const NamedOperation& operation : readOperations()) {
        const auto api = makeApi();
        const auto error = operation.operation(*api);
        QVERIFY2(error, operation.name);
        QCOMPARE(error->kind(), ServiceError::Kind::Status);
        QCOMPARE(error->domain(), u"RaindropAPI"_s);
        QCOMPARE(error->code(), status);
        QCOMPARE(error->message(), message);
        QCOMPARE(QString::fromUtf8(error->what()), message);
        checkKeepsTokenOut(*error);
        // Nothing was cached, and nothing was retried.
        QVERIFY(!api->isCached(RaindropAPI::favouritesKey()));
        QVERIFY(!api->isCached(RaindropAPI::collectionKey(7)));
        QVERIFY(!api->isCached(RaindropAPI::tagKey(u"x"_s)));
    }
    QCOMPARE(m_server->requestCount(), readOperations().size());
}

void tst_RaindropAPI::readRedirectIsNotFollowed() {
    for (int status : {301, 302, 303, 307, 308}) {
        m_server->clearRequests();
        m_server->on("GET", u"/rest/v1/collections"_s,
                     {status, {}, {{"Location", "/rest/v1/elsewhere"}}});
        m_server->on("GET", u"/rest/v1/elsewhere"_s,
                     TestHttpServer::Response::json(R"({"items": []})"));
        const auto api = makeApi();
        const ServiceError error = errorOf(run(api->fetchCollections()));
        QCOMPARE(error.code(), status);
        QCOMPARE(error.message(), u"Unexpected response from Raindrop (HTTP %1)."_s.arg(status));
        roundTrip(api);
        // The token never travels on to the other address.
        QCOMPARE(m_server->requestCount(), 2);
        QVERIFY(m_server->requestsTo(u"/rest/v1/elsewhere"_s).isEmpty());
    }
}

void tst_RaindropAPI::writeSuccessStatuses_data() {
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("200") << 200 << QByteArray(R"({"result": true, "item": {}})");
    QTest::newRow("201") << 201 << QByteArray("anything, not even JSON");
    QTest::newRow("204") << 204 << QByteArray();
    QTest::newRow("299") << 299 << QByteArray("\xff\xfe");
}

void tst_RaindropAPI::writeSuccessStatuses() {
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    m_server->setFallback([&](const TestHttpServer::Request&) {
        return TestHttpServer::Response{status, body, {}};
    });
    for (const NamedOperation& operation : writeOperations()) {
        const auto api = makeApi();
        QVERIFY2(!operation.operation(*api), operation.name);
    }
}

void tst_RaindropAPI::writeStatusFailures_data() {
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("message");

    QTest::newRow("401") << 401 << QByteArray("Unauthorized") << u"HTTP 401: Unauthorized"_s;
    QTest::newRow("400 JSON") << 400 << QByteArray(R"({"result":false,"error":"bad"})")
                              << u"HTTP 400: {\"result\":false,\"error\":\"bad\"}"_s;
    QTest::newRow("403 UTF-8") << 403 << QByteArray("Verboten: \xc3\xbc \xe2\x80\x94")
                               << u"HTTP 403: Verboten: ü —"_s;
    QTest::newRow("404 empty") << 404 << QByteArray() << u"HTTP 404: "_s;
    QTest::newRow("418") << 418 << QByteArray("teapot") << u"HTTP 418: teapot"_s;
    QTest::newRow("429") << 429 << QByteArray("Too many") << u"HTTP 429: Too many"_s;
    QTest::newRow("500 empty") << 500 << QByteArray() << u"HTTP 500: "_s;
    QTest::newRow("500 invalid UTF-8")
        << 500 << QByteArray("bad \xff\xfe body") << u"HTTP 500: (no body)"_s;
    QTest::newRow("cut UTF-8 sequence")
        << 502 << QByteArray("cut \xc3") << u"HTTP 502: (no body)"_s;
    QTest::newRow("304") << 304 << QByteArray() << u"HTTP 304: "_s;
}

void tst_RaindropAPI::writeStatusFailures() {
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QString, message);
    m_server->setFallback([&](const TestHttpServer::Request&) {
        return TestHttpServer::Response{status, body, {}};
    });
    for (const NamedOperation& operation : writeOperations()) {
        const auto api = makeApi();
        const auto error = operation.operation(*api);
        QVERIFY2(error, operation.name);
        QCOMPARE(error->kind(), ServiceError::Kind::Status);
        QCOMPARE(error->domain(), u"RaindropAPI"_s);
        QCOMPARE(error->code(), status);
        QCOMPARE(error->message(), message);
        checkKeepsTokenOut(*error);
    }
}

void tst_RaindropAPI::writeRedirectIsNotFollowed() {
    m_server->on("PUT", u"/rest/v1/raindrop/7"_s,
                 {307, "moved", {{"Location", "/rest/v1/elsewhere"}}});
    m_server->on("PUT", u"/rest/v1/elsewhere"_s, {204, {}, {}});
    const auto api = makeApi();
    const ServiceError error = errorOf(run(api->setFavourite(7, true)));
    QCOMPARE(error.code(), 307);
    QCOMPARE(error.message(), u"HTTP 307: moved"_s);
    roundTrip(api);
    QCOMPARE(m_server->requestCount(), 2);
    QVERIFY(m_server->requestsTo(u"/rest/v1/elsewhere"_s).isEmpty());
}

void tst_RaindropAPI::emptyFavouritesAreCached() {
    m_server->on("GET", u"/rest/v1/raindrops/0"_s,
                 TestHttpServer::Response::json(R"({"items": []})"));
    const auto api = makeApi();
    QVERIFY(!api->isCached(u"_favs"_s));
    QCOMPARE(valueOf(run(api->fetchFavourites())), QList<Raindrop>{});
    QVERIFY(api->isCached(u"_favs"_s));
    QCOMPARE(valueOf(run(api->fetchFavourites())), QList<Raindrop>{});
    QCOMPARE(m_server->requestCount(), 1);
}

void tst_RaindropAPI::secondFetchComesFromCache() {
    m_server->on("GET", u"/rest/v1/raindrops/7"_s,
                 TestHttpServer::Response::json(bookmarksBody({1, 2})));
    const auto api = makeApi();
    const QList<Raindrop> first = valueOf(run(api->fetchBookmarks(7)));
    QCOMPARE(idsOf(first), (QList<qint64>{1, 2}));
    QVERIFY(api->isCached(u"col_7"_s));
    // The service now answers differently; the cache does not notice, by design.
    m_server->on("GET", u"/rest/v1/raindrops/7"_s,
                 TestHttpServer::Response::json(bookmarksBody({3})));
    const QList<Raindrop> second = valueOf(run(api->fetchBookmarks(7)));
    QCOMPARE(second, first);
    QCOMPARE(m_server->requestCount(), 1);
    // Another collection is another key.
    m_server->on("GET", u"/rest/v1/raindrops/8"_s,
                 TestHttpServer::Response::json(R"({"items": []})"));
    QCOMPARE(idsOf(valueOf(run(api->fetchBookmarks(8)))), QList<qint64>{});
    QCOMPARE(m_server->requestCount(), 2);
}

void tst_RaindropAPI::cacheKeys() {
    m_server->setFallback([](const TestHttpServer::Request&) {
        return TestHttpServer::Response::json(R"({"items": []})");
    });
    const auto api = makeApi();
    QVERIFY(!failed(run(api->fetchBookmarks(-1))));
    QVERIFY(!failed(run(api->fetchBookmarks(123))));
    QVERIFY(!failed(run(api->fetchBookmarksByTag(u"a b"_s))));
    QVERIFY(!failed(run(api->fetchBookmarksByTag(u"Reading"_s))));
    QVERIFY(api->isCached(u"col_-1"_s));
    QVERIFY(api->isCached(u"col_123"_s));
    QVERIFY(api->isCached(u"tag_a b"_s));
    QVERIFY(api->isCached(u"tag_Reading"_s));
    QVERIFY(!api->isCached(u"tag_reading"_s));
    QVERIFY(!api->isCached(u"_favs"_s));
    // Tags are cached exactly as passed: another spelling is another request.
    QVERIFY(!failed(run(api->fetchBookmarksByTag(u"reading"_s))));
    QCOMPARE(m_server->requestCount(), 5);
    QVERIFY(!failed(run(api->fetchBookmarksByTag(u"a b"_s))));
    QVERIFY(!failed(run(api->fetchBookmarks(-1))));
    QCOMPARE(m_server->requestCount(), 5);
}

void tst_RaindropAPI::failedFetchCachesNothing_data() {
    QTest::addColumn<TestHttpServer::Response>("failure");
    QTest::newRow("status") << TestHttpServer::Response{500, {}, {}};
    QTest::newRow("401") << TestHttpServer::Response{401, "Unauthorized", {}};
    QTest::newRow("undecodable") << TestHttpServer::Response::json(R"({"items": [{"_id": 1}]})");
    QTest::newRow("truncated") << TestHttpServer::Response::json(R"({"items": [{"_id": 1, )");
    QTest::newRow("reset") << TestHttpServer::Response{
        200, bookmarksBody({1, 2, 3}), {}, {}, TestHttpServer::Fault::ResetMidBody};
}

void tst_RaindropAPI::failedFetchCachesNothing() {
    QFETCH(TestHttpServer::Response, failure);
    const auto api = makeApi();
    for (const auto& [key, call] :
         QList<QPair<QString, std::function<QCoro::Task<QList<Raindrop>>()>>>{
             {u"_favs"_s,
              [&] {
                  return api->fetchFavourites();
              }},
             {u"col_7"_s,
              [&] {
                  return api->fetchBookmarks(7);
              }},
             {u"tag_x"_s, [&] {
                  return api->fetchBookmarksByTag(u"x"_s);
              }}}) {
        m_server->clearRequests();
        m_server->setFallback([&](const TestHttpServer::Request&) { return failure; });
        checkKeepsTokenOut(errorOf(run(call())));
        QVERIFY(!api->isCached(key));
        // The next call asks again, and this time succeeds and fills the cache.
        m_server->setFallback([](const TestHttpServer::Request&) {
            return TestHttpServer::Response::json(bookmarksBody({42}));
        });
        QCOMPARE(idsOf(valueOf(run(call()))), QList<qint64>{42});
        QVERIFY(api->isCached(key));
        QCOMPARE(m_server->requestCount(), 2);
    }
}

void tst_RaindropAPI::uncachedOperations() {
    m_server->on("GET", u"/rest/v1/collections"_s,
                 TestHttpServer::Response::json(collectionsBody({u"a"_s})));
    m_server->on("GET", u"/rest/v1/tags"_s,
                 TestHttpServer::Response::json(tagsBody({{u"t"_s, 1}})));
    m_server->on("GET", u"/rest/v1/raindrops/0"_s,
                 TestHttpServer::Response::json(bookmarksBody({1})));
    const auto api = makeApi();
    for (int round = 0; round < 2; ++round) {
        QVERIFY(!failed(run(api->fetchCollections())));
        QVERIFY(!failed(run(api->fetchTags())));
        QVERIFY(!failed(run(api->fetchRecent())));
    }
    QCOMPARE(m_server->requestCount(), 6);
    QVERIFY(!api->isCached(u"_favs"_s));
    QVERIFY(!api->isCached(u"col_0"_s));
}

void tst_RaindropAPI::setFavouriteRemovesOnlyFavourites() {
    m_server->setFallback([](const TestHttpServer::Request& request) {
        if (request.method == "PUT")
            return TestHttpServer::Response{204, {}, {}};
        return TestHttpServer::Response::json(bookmarksBody({1}));
    });
    const auto api = makeApi();
    QVERIFY(!failed(run(api->fetchFavourites())));
    QVERIFY(!failed(run(api->fetchBookmarks(7))));
    QVERIFY(!failed(run(api->fetchBookmarksByTag(u"x"_s))));
    QCOMPARE(m_server->requestCount(), 3);

    QVERIFY(!failed(run(api->setFavourite(1, true))));
    QVERIFY(!api->isCached(u"_favs"_s));
    QVERIFY(api->isCached(u"col_7"_s));
    QVERIFY(api->isCached(u"tag_x"_s));

    QVERIFY(!failed(run(api->fetchFavourites())));
    QVERIFY(!failed(run(api->fetchBookmarks(7))));
    QVERIFY(!failed(run(api->fetchBookmarksByTag(u"x"_s))));
    // Only the favourites were asked for again.
    QCOMPARE(m_server->requestCount(), 5);
    QCOMPARE(m_server->requests().last().query(u"perpage"_s), u"25"_s);
}

void tst_RaindropAPI::failedSetFavouriteKeepsFavourites() {
    m_server->setFallback([](const TestHttpServer::Request& request) {
        if (request.method == "PUT")
            return TestHttpServer::Response{401, "Unauthorized", {}};
        return TestHttpServer::Response::json(bookmarksBody({1}));
    });
    const auto api = makeApi();
    QVERIFY(!failed(run(api->fetchFavourites())));
    QCOMPARE(errorOf(run(api->setFavourite(1, false))).message(), u"HTTP 401: Unauthorized"_s);
    QVERIFY(api->isCached(u"_favs"_s));
    // A transport failure keeps it too.
    m_server->on("PUT", u"/rest/v1/raindrop/1"_s,
                 {200, "x", {}, {}, TestHttpServer::Fault::ResetMidBody});
    QCOMPARE(errorOf(run(api->setFavourite(1, false))).kind(), ServiceError::Kind::Transport);
    QVERIFY(api->isCached(u"_favs"_s));
}

void tst_RaindropAPI::createRaindropKeepsCache() {
    m_server->setFallback([](const TestHttpServer::Request& request) {
        if (request.method == "POST")
            return TestHttpServer::Response::json(R"({"result": true})");
        return TestHttpServer::Response::json(bookmarksBody({1}));
    });
    const auto api = makeApi();
    QVERIFY(!failed(run(api->fetchFavourites())));
    QVERIFY(!failed(run(api->fetchBookmarks(0))));
    QVERIFY(!failed(run(api->fetchBookmarksByTag(u"x"_s))));
    QVERIFY(!failed(run(api->createRaindrop(u"https://example.com/"_s, {}))));
    QVERIFY(api->isCached(u"_favs"_s));
    QVERIFY(api->isCached(u"col_0"_s));
    QVERIFY(api->isCached(u"tag_x"_s));
}

void tst_RaindropAPI::clearCache() {
    m_server->setFallback([](const TestHttpServer::Request&) {
        return TestHttpServer::Response::json(bookmarksBody({1}));
    });
    const auto api = makeApi();
    QVERIFY(!failed(run(api->fetchFavourites())));
    QVERIFY(!failed(run(api->fetchBookmarks(3))));
    api->clearCache();
    QVERIFY(!api->isCached(u"_favs"_s));
    QVERIFY(!api->isCached(u"col_3"_s));
    QVERIFY(!failed(run(api->fetchFavourites())));
    QCOMPARE(m_server->requestCount(), 3);
}

void tst_RaindropAPI::laterStoreWins() {
    // Two calls for one key miss the cache together; both fetch, and the one that finishes
    // last leaves its list in the cache.
    int answered = 0;
    m_server->setFallback([&answered](const TestHttpServer::Request&) {
        ++answered;
        if (answered == 1)
            return TestHttpServer::Response::json(bookmarksBody({1})).held();
        return TestHttpServer::Response::json(bookmarksBody({2}));
    });
    const auto api = makeApi();
    auto slow = capture(api->fetchBookmarks(7));
    QVERIFY(m_server->waitForRequests(1));
    auto fast = capture(api->fetchBookmarks(7));
    QCOMPARE(idsOf(valueOf(QCoro::waitFor(fast))), QList<qint64>{2});
    m_server->release();
    QCOMPARE(idsOf(valueOf(QCoro::waitFor(slow))), QList<qint64>{1});
    QCOMPARE(m_server->requestCount(), 2);
    QCOMPARE(idsOf(valueOf(run(api->fetchBookmarks(7)))), QList<qint64>{1});
    QCOMPARE(m_server->requestCount(), 2);
}

void tst_RaindropAPI::collectionsSortedByTitle_data() {
    QTest::addColumn<QStringList>("service");
    QTest::addColumn<QList<int>>("expected"); // positions in the service's list

    QTest::newRow("case ties keep order")
        << QStringList{u"beta"_s, u"Alpha"_s, u"alpha"_s} << QList<int>{1, 2, 0};
    QTest::newRow("case ties keep order, reversed")
        << QStringList{u"beta"_s, u"alpha"_s, u"Alpha"_s} << QList<int>{1, 2, 0};
    QTest::newRow("lower-cased, not case-first")
        << QStringList{u"b"_s, u"B"_s, u"a"_s, u"C"_s} << QList<int>{2, 0, 1, 3};
    // Code points, not the user's locale: "ä" (U+00E4) comes after "z".
    QTest::newRow("not by locale") << QStringList{u"ä"_s, u"Z"_s, u"a"_s} << QList<int>{2, 1, 0};
    QTest::newRow("upper-case accented lower-cased")
        << QStringList{u"Ärger"_s, u"ärger"_s, u"zebra"_s} << QList<int>{2, 0, 1};
    // A decomposed "é" (e + U+0301) and a precomposed one (U+00E9) are the same title.
    QTest::newRow("canonical equivalence keeps order")
        << QStringList{u"cafe\u0301"_s, u"caf\u00e9"_s} << QList<int>{0, 1};
    QTest::newRow("canonical equivalence keeps order, reversed")
        << QStringList{u"caf\u00e9"_s, u"cafe\u0301"_s} << QList<int>{0, 1};
    QTest::newRow("upper-case decomposed")
        << QStringList{u"CAFE\u0301"_s, u"caf\u00e9"_s, u"cafe\u0301"_s} << QList<int>{0, 1, 2};
    // The canonical (composed) form decides the place: "é" is U+00E9, after "f".
    QTest::newRow("decomposed sorts as composed")
        << QStringList{u"e\u0301"_s, u"f"_s, u"e"_s} << QList<int>{2, 1, 0};
    QTest::newRow("combining marks in canonical order")
        << QStringList{u"a\u0323\u0307"_s, u"a\u0307\u0323"_s, u"a"_s} << QList<int>{2, 0, 1};
    // Above U+FFFF: by code point U+1F600 comes after U+FF5E, although its first UTF-16 unit
    // (U+D83D) is smaller.
    QTest::newRow("supplementary plane after U+FFxx")
        << QStringList{u"\U0001F600"_s, u"\uFF5E"_s, u"\uFFFD"_s} << QList<int>{1, 2, 0};
    QTest::newRow("supplementary plane after private use")
        << QStringList{u"\U00010000"_s, u"\uE000"_s} << QList<int>{1, 0};
    QTest::newRow("prefix first") << QStringList{u"ab"_s, u"a"_s, u""_s} << QList<int>{2, 1, 0};
    QTest::newRow("digits and punctuation by code point")
        << QStringList{u"b"_s, u"_"_s, u"10"_s, u"9"_s, u" x"_s} << QList<int>{4, 2, 3, 1, 0};
    QTest::newRow("many equal titles keep order")
        << QStringList{u"x"_s, u"X"_s, u"x"_s, u"X"_s, u"x"_s, u"a"_s, u"X"_s,
                       u"x"_s, u"X"_s, u"x"_s, u"X"_s, u"x"_s, u"X"_s, u"x"_s,
                       u"X"_s, u"x"_s, u"X"_s, u"x"_s, u"X"_s, u"x"_s}
        << QList<int>{5, 0, 1, 2, 3, 4, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
}

void tst_RaindropAPI::collectionsSortedByTitle() {
    QFETCH(QStringList, service);
    QFETCH(QList<int>, expected);
    m_server->on("GET", u"/rest/v1/collections"_s,
                 TestHttpServer::Response::json(collectionsBody(service)));
    const auto api = makeApi();
    const QList<Collection> collections = valueOf(run(api->fetchCollections()));
    QList<int> positions;
    for (const Collection& collection : collections) {
        positions.append(int(collection.id - 100));
        // Titles come back as the service sent them, not lower-cased or normalised.
        QCOMPARE(collection.title, service.at(positions.last()));
        QCOMPARE(collection.count, positions.last());
    }
    QCOMPARE(positions, expected);
}

void tst_RaindropAPI::tagsSortedByCount_data() {
    QTest::addColumn<TagCounts>("service");
    QTest::addColumn<QStringList>("expected");

    using Tags = TagCounts;
    QTest::newRow("3, 9, 3") << Tags{{u"a"_s, 3}, {u"b"_s, 9}, {u"c"_s, 3}}
                             << QStringList{u"b"_s, u"a"_s, u"c"_s};
    // Equal counts keep the service's order; names play no part.
    QTest::newRow("ties keep order") << Tags{{u"z"_s, 1}, {u"y"_s, 5}, {u"x"_s, 1}, {u"w"_s, 5}}
                                     << QStringList{u"y"_s, u"w"_s, u"z"_s, u"x"_s};
    QTest::newRow("already sorted")
        << Tags{{u"a"_s, 3}, {u"b"_s, 2}, {u"c"_s, 1}} << QStringList{u"a"_s, u"b"_s, u"c"_s};
    QTest::newRow("64-bit counts")
        << Tags{{u"small"_s, 9007199254740992}, {u"big"_s, 9007199254740993}, {u"zero"_s, 0}}
        << QStringList{u"big"_s, u"small"_s, u"zero"_s};
    QTest::newRow("empty") << Tags{} << QStringList{};
}

void tst_RaindropAPI::tagsSortedByCount() {
    QFETCH(TagCounts, service);
    QFETCH(QStringList, expected);
    m_server->on("GET", u"/rest/v1/tags"_s, TestHttpServer::Response::json(tagsBody(service)));
    const auto api = makeApi();
    QStringList names;
    for (const Tag& tag : valueOf(run(api->fetchTags())))
        names.append(tag.name);
    QCOMPARE(names, expected);
}

void tst_RaindropAPI::decodingFailures_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("truncated JSON") << QByteArray(R"({"items": [{"_id": 1, "title": "T", "li)");
    QTest::newRow("empty body") << QByteArray();
    QTest::newRow("HTML") << QByteArray("<html><body>Bad Gateway</body></html>");
    QTest::newRow("no items") << QByteArray(R"({"result": true})");
    QTest::newRow("one bad element")
        << QByteArray(R"({"items": [{"_id": 1, "title": "T", "link": "L", "_id2": 0,
            "count": 1}, {"count": 2}]})");
}

void tst_RaindropAPI::decodingFailures() {
    QFETCH(QByteArray, body);
    m_server->setFallback(
        [&](const TestHttpServer::Request&) { return TestHttpServer::Response::json(body); });
    for (const NamedOperation& operation : readOperations()) {
        const auto api = makeApi();
        const auto error = operation.operation(*api);
        QVERIFY2(error, operation.name);
        QCOMPARE(error->kind(), ServiceError::Kind::Decoding);
        QCOMPARE(error->code(), 0);
        QCOMPARE(error->message(),
                 u"The data couldn’t be read because it isn’t in the correct format."_s);
        checkKeepsTokenOut(*error);
    }
}

void tst_RaindropAPI::hugeAnswerFails() {
    // Larger than the client takes: it gives up as on a body that does not decode.
    QByteArray body = R"({"items": [)";
    body += QByteArray(RaindropAPI::maximumBodySize + 1024 * 1024 - body.size() - 2, ' ');
    body += "]}";
    m_server->on("GET", u"/rest/v1/raindrops/0"_s, TestHttpServer::Response::json(body));
    body.clear();
    const auto api = makeApi(token, 30s);
    const ServiceError error = errorOf(run(api->fetchFavourites()));
    QCOMPARE(error.kind(), ServiceError::Kind::Decoding);
    QCOMPARE(error.code(), 0);
    QVERIFY(!error.message().isEmpty());
    checkKeepsTokenOut(error);
    QVERIFY(!api->isCached(u"_favs"_s));
}

void tst_RaindropAPI::endlessAnswerFails() {
    m_server->on("GET", u"/rest/v1/collections"_s,
                 {200, {}, {}, {}, TestHttpServer::Fault::EndlessBody});
    const auto api = makeApi(token, 30s);
    const ServiceError error = errorOf(run(api->fetchCollections()));
    QCOMPARE(error.kind(), ServiceError::Kind::Decoding);
    checkKeepsTokenOut(error);
    // The client hung up, and the server saw it go.
    QTRY_COMPARE(m_server->abortedConnections(), 1);
}

void tst_RaindropAPI::largeAnswerWithinLimit() {
    QList<qint64> ids;
    for (qint64 id = 1; id <= 20000; ++id)
        ids.append(id);
    m_server->on("GET", u"/rest/v1/raindrops/3"_s,
                 TestHttpServer::Response::json(bookmarksBody(ids)));
    const auto api = makeApi();
    QCOMPARE(idsOf(valueOf(run(api->fetchBookmarks(3)))), ids);
}

void tst_RaindropAPI::resetMidBodyFails_data() {
    QTest::addColumn<QString>("operation");
    QTest::newRow("read") << u"read"_s;
    QTest::newRow("write") << u"write"_s;
}

void tst_RaindropAPI::resetMidBodyFails() {
    QFETCH(QString, operation);
    m_server->setFallback([](const TestHttpServer::Request&) {
        return TestHttpServer::Response{
            200, bookmarksBody({1, 2, 3}), {}, {}, TestHttpServer::Fault::ResetMidBody};
    });
    const auto api = makeApi();
    const ServiceError error = operation == u"read"_s ? errorOf(run(api->fetchBookmarks(7)))
                                                      : errorOf(run(api->setFavourite(7, true)));
    QCOMPARE(error.kind(), ServiceError::Kind::Transport);
    QCOMPARE(error.code(), 0);
    QVERIFY(!error.message().isEmpty());
    checkKeepsTokenOut(error);
}

void tst_RaindropAPI::refusedConnectionFails() {
    // A port that was just free.
    const QString base = m_server->baseUrl() + u"/rest/v1"_s;
    m_server.reset();
    const auto api = RaindropAPI::create(token, base);
    for (const NamedOperation& operation : allOperations()) {
        const auto error = operation.operation(*api);
        QVERIFY2(error, operation.name);
        QCOMPARE(error->kind(), ServiceError::Kind::Transport);
        QCOMPARE(error->code(), 0);
        checkKeepsTokenOut(*error);
    }
    m_server = std::make_unique<TestHttpServer>();
}

void tst_RaindropAPI::badBaseFails_data() {
    QTest::addColumn<QString>("base");
    QTest::newRow("space in the host") << u"http://exa mple.com/rest/v1"_s;
    QTest::newRow("relative") << u"rest/v1"_s;
    QTest::newRow("empty") << QString();
    QTest::newRow("bad port") << u"http://127.0.0.1:99999/rest/v1"_s;
}

void tst_RaindropAPI::badBaseFails() {
    QFETCH(QString, base);
    const auto api = RaindropAPI::create(token, base);
    for (const NamedOperation& operation : allOperations()) {
        const auto error = operation.operation(*api);
        QVERIFY2(error, operation.name);
        QVERIFY2(error->kind() == ServiceError::Kind::BadUrl, operation.name);
        QCOMPARE(error->message(), u"bad URL"_s);
        QCOMPARE(error->code(), 0);
    }
}

void tst_RaindropAPI::timesOut_data() {
    QTest::addColumn<QString>("operation");
    QTest::newRow("read") << u"read"_s;
    QTest::newRow("write") << u"write"_s;
}

void tst_RaindropAPI::timesOut() {
    QFETCH(QString, operation);
    m_server->setFallback([](const TestHttpServer::Request&) {
        return TestHttpServer::Response{200, {}, {}, {}, TestHttpServer::Fault::NeverAnswer};
    });
    const auto api = makeApi(token, 300ms);
    QElapsedTimer timer;
    timer.start();
    const ServiceError error = operation == u"read"_s
                                   ? errorOf(run(api->fetchFavourites()))
                                   : errorOf(run(api->createRaindrop(u"u"_s, {})));
    // Not before the time-out (whose timer may fall due 5 % early).
    QVERIFY(timer.elapsed() >= 285);
    QCOMPARE(error.kind(), ServiceError::Kind::Transport);
    QCOMPARE(error.code(), 0);
    QCOMPARE(error.message(), u"The request timed out."_s);
    QCOMPARE(m_server->requestCount(), 1);
    QVERIFY(!api->isCached(u"_favs"_s));
}

void tst_RaindropAPI::slowAnswerWithinTimeout() {
    m_server->on("GET", u"/rest/v1/tags"_s,
                 TestHttpServer::Response::json(tagsBody({{u"t"_s, 1}})).after(300ms));
    // A time-out that only the answer's delay could reach if it counted it twice over.
    const auto api = makeApi(token, 1h);
    QCOMPARE(valueOf(run(api->fetchTags())).size(), 1);
}

void tst_RaindropAPI::cancels() {
    m_server->setFallback([](const TestHttpServer::Request&) {
        return TestHttpServer::Response{200, {}, {}, {}, TestHttpServer::Fault::NeverAnswer};
    });
    const auto api = makeApi(token, 10s);
    for (const QString& which : {u"collections"_s, u"tags"_s}) {
        m_server->clearRequests();
        auto canceller = std::make_shared<RequestCanceller>();
        auto collections = capture(api->fetchCollections(canceller));
        auto tags = capture(api->fetchTags(canceller));
        QVERIFY(m_server->waitForRequests(2));
        canceller->cancel();
        QVERIFY(canceller->isCancelled());
        const ServiceError error = which == u"collections"_s ? errorOf(QCoro::waitFor(collections))
                                                             : errorOf(QCoro::waitFor(tags));
        QCOMPARE(error.kind(), ServiceError::Kind::Transport);
        QCOMPARE(error.code(), 0);
        // A cancel is not a time-out.
        QCOMPARE(error.message(), u"The request was cancelled."_s);
        checkKeepsTokenOut(error);
        // One canceller stops every request it was given.
        if (which == u"collections"_s)
            QVERIFY(failed(QCoro::waitFor(tags)));
        else
            QVERIFY(failed(QCoro::waitFor(collections)));
    }
}

void tst_RaindropAPI::cancelledBeforeTheCall() {
    m_server->setFallback([](const TestHttpServer::Request&) {
        return TestHttpServer::Response::json(collectionsBody({u"a"_s}));
    });
    const auto api = makeApi();
    auto canceller = std::make_shared<RequestCanceller>();
    canceller->cancel();
    const ServiceError error = errorOf(run(api->fetchCollections(canceller)));
    QCOMPARE(error.kind(), ServiceError::Kind::Transport);
    QCOMPARE(error.message(), u"The request was cancelled."_s);
    roundTrip(api);
    QCOMPARE(m_server->requestCount(), 1);
}

void tst_RaindropAPI::cancellerOfAnotherCallLeavesThisOne() {
    m_server->on("GET", u"/rest/v1/collections"_s,
                 TestHttpServer::Response::json(collectionsBody({u"a"_s})).held());
    m_server->on("GET", u"/rest/v1/tags"_s, {200, {}, {}, {}, TestHttpServer::Fault::NeverAnswer});
    const auto api = makeApi();
    auto first = std::make_shared<RequestCanceller>();
    auto second = std::make_shared<RequestCanceller>();
    auto collections = capture(api->fetchCollections(first));
    auto tags = capture(api->fetchTags(second));
    QVERIFY(m_server->waitForRequests(2));
    second->cancel();
    QVERIFY(failed(QCoro::waitFor(tags)));
    m_server->release();
    QCOMPARE(valueOf(QCoro::waitFor(collections)).size(), 1);
}

void tst_RaindropAPI::untrustedCertificateFails_data() {
    QTest::addColumn<QString>("operation");
    for (const NamedOperation& operation : allOperations())
        QTest::newRow(operation.name) << QString::fromLatin1(operation.name);
}

void tst_RaindropAPI::untrustedCertificateFails() {
    QFETCH(QString, operation);
    TestHttpServer tls(resource(u"selfsigned-cert.pem"_s), resource(u"selfsigned-key.pem"_s));
    tls.setFallback([](const TestHttpServer::Request&) {
        return TestHttpServer::Response::json(R"({"items": []})");
    });
    const auto api = RaindropAPI::create(token, tls.baseUrl() + u"/rest/v1"_s, 5s);
    for (const NamedOperation& candidate : allOperations()) {
        if (QString::fromLatin1(candidate.name) != operation)
            continue;
        const auto error = candidate.operation(*api);
        QVERIFY(error);
        QCOMPARE(error->kind(), ServiceError::Kind::Transport);
        QCOMPARE(error->code(), 0);
        checkKeepsTokenOut(*error);
    }
    // The handshake was refused, so no request (and no token) reached the server.
    QTRY_VERIFY(tls.abortedConnections() >= 1);
    QCOMPARE(tls.requestCount(), 0);
}

void tst_RaindropAPI::clientOutlivesItsOwner() {
    m_server->on("GET", u"/rest/v1/raindrops/0"_s,
                 TestHttpServer::Response::json(bookmarksBody({1})).held());
    auto api = makeApi();
    const std::weak_ptr<RaindropAPI> watcher = api;
    auto favourites = capture(api->fetchFavourites());
    api.reset();
    // The request in flight keeps the client alive until it is done.
    QVERIFY(!watcher.expired());
    QVERIFY(m_server->waitForRequests(1));
    m_server->release();
    QCOMPARE(idsOf(valueOf(QCoro::waitFor(favourites))), QList<qint64>{1});
    QTRY_VERIFY(watcher.expired());
}

void tst_RaindropAPI::parallelOperations() {
    m_server->on("GET", u"/rest/v1/collections"_s,
                 TestHttpServer::Response::json(collectionsBody({u"b"_s, u"a"_s})).after(150ms));
    m_server->on("GET", u"/rest/v1/tags"_s,
                 TestHttpServer::Response::json(tagsBody({{u"t"_s, 1}})).after(100ms));
    m_server->on("GET", u"/rest/v1/raindrops/0"_s,
                 TestHttpServer::Response::json(bookmarksBody({1})).after(50ms));
    m_server->on("GET", u"/rest/v1/raindrops/7"_s,
                 TestHttpServer::Response::json(bookmarksBody({7})));
    const auto api = makeApi();
    auto collections = capture(api->fetchCollections());
    auto tags = capture(api->fetchTags());
    auto recent = capture(api->fetchRecent());
    auto favourites = capture(api->fetchFavourites());
    auto bookmarks = capture(api->fetchBookmarks(7));
    QCOMPARE(idsOf(valueOf(QCoro::waitFor(bookmarks))), QList<qint64>{7});
    QCOMPARE(idsOf(valueOf(QCoro::waitFor(favourites))), QList<qint64>{1});
    QCOMPARE(idsOf(valueOf(QCoro::waitFor(recent))), QList<qint64>{1});
    QCOMPARE(valueOf(QCoro::waitFor(tags)).size(), 1);
    QCOMPARE(valueOf(QCoro::waitFor(collections)).first().title, u"a"_s);
    QCOMPARE(m_server->requestCount(), 5);
}

QTEST_MAIN(tst_RaindropAPI)
#include "tst_RaindropAPI.moc"
