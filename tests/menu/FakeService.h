#pragma once

#include "TestHttpServer.h"
#include "config/Environment.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

// The bookmark service on 127.0.0.1 as the menu's tests need it: every request is known by its
// kind ("favourites", "recent", "collections", "tags", "col_<id>", "tag_<name>",
// "favourite_<id>" for a favourite change, "create" for a new bookmark, else its path), each kind
// answers what the test set (an empty list by default), and the kinds are recorded in order.
class FakeService {
public:
    FakeService() {
        server.setFallback([this](const TestHttpServer::Request& request) {
            const QString kind = kindOf(request);
            if (const auto answer = m_answers.constFind(kind); answer != m_answers.cend())
                return *answer;
            if (request.method != "GET" || kind.startsWith(QLatin1Char('/')))
                return TestHttpServer::Response::json(QByteArrayLiteral("{\"result\":true}"));
            return list({});
        });
    }

    TestHttpServer server;

    Environment environment(const QString& version = QStringLiteral("1.2.3")) const {
        Environment environment;
        environment.apiBase = server.baseUrl() + QStringLiteral("/rest/v1");
        environment.updateManifest =
            server.baseUrl() + QStringLiteral("/apps/quillmar/latest.json");
        environment.version = version;
        return environment;
    }

    static QString kindOf(const TestHttpServer::Request& request) {
        const QString api = QStringLiteral("/rest/v1");
        if (!request.path.startsWith(api))
            return request.path;
        const QString path = request.path.mid(api.size());
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
            const QString tagPrefix = QStringLiteral("[{\"key\":\"tag\",\"val\":\"");
            if (search == QStringLiteral("[{\"key\":\"important\",\"val\":true}]"))
                return QStringLiteral("favourites");
            if (search.startsWith(tagPrefix))
                return QStringLiteral("tag_") + search.mid(tagPrefix.size()).chopped(3);
            if (request.query(QStringLiteral("sort")) == QStringLiteral("-created"))
                return QStringLiteral("recent");
        }
        if (path.startsWith(QStringLiteral("/raindrops/")))
            return QStringLiteral("col_") + path.mid(11);
        return request.path;
    }

    void set(const QString& kind, const TestHttpServer::Response& response) {
        m_answers.insert(kind, response);
    }
    void setItems(const QString& kind, const QJsonArray& items) { set(kind, list(items)); }

    static TestHttpServer::Response list(const QJsonArray& items) {
        const QJsonObject body{{QStringLiteral("result"), true},
                               {QStringLiteral("items"), items},
                               {QStringLiteral("count"), items.size()}};
        return TestHttpServer::Response::json(QJsonDocument(body).toJson(QJsonDocument::Compact));
    }

    QStringList kinds() const {
        QStringList kinds;
        const QList<TestHttpServer::Request> requests = server.requests();
        for (const TestHttpServer::Request& request : requests)
            kinds.append(kindOf(request));
        return kinds;
    }
    int count(const QString& kind) const { return int(kinds().count(kind)); }
    QList<TestHttpServer::Request> requestsOf(const QString& kind) const {
        QList<TestHttpServer::Request> matching;
        const QList<TestHttpServer::Request> requests = server.requests();
        for (const TestHttpServer::Request& request : requests)
            if (kindOf(request) == kind)
                matching.append(request);
        return matching;
    }

    static QJsonObject bookmark(qint64 id, const QString& title, const QString& link,
                                bool important = false, qint64 collection = 1000) {
        return {{QStringLiteral("_id"), id},
                {QStringLiteral("title"), title},
                {QStringLiteral("link"), link},
                {QStringLiteral("excerpt"), QString()},
                {QStringLiteral("important"), important},
                {QStringLiteral("collection"),
                 QJsonObject{{QStringLiteral("$ref"), QStringLiteral("collections")},
                             {QStringLiteral("$id"), collection},
                             {QStringLiteral("oid"), collection}}}};
    }
    static QJsonObject collection(qint64 id, const QString& title, qint64 count) {
        return {{QStringLiteral("_id"), id},
                {QStringLiteral("title"), title},
                {QStringLiteral("count"), count}};
    }
    static QJsonObject tag(const QString& name, qint64 count) {
        return {{QStringLiteral("_id"), name}, {QStringLiteral("count"), count}};
    }

private:
    QHash<QString, TestHttpServer::Response> m_answers;
};
