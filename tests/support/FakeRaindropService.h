#pragma once

#include "TestHttpServer.h"
#include "config/Environment.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>

// The bookmark service played on 127.0.0.1. It keeps collections, tags and bookmarks and serves
// them through the REST paths and query parameters the program uses, and it takes favourite
// changes and new bookmarks. A test can also set the answer to one kind of request, whatever the
// store holds. Every request is recorded by its server, and known by its kind: "favourites",
// "recent", "collections", "tags", "col_<id>", "tag_<name>", "favourite_<id>" for a favourite
// change, "create" for a new bookmark, else its path.
class FakeRaindropService : public QObject {
    Q_OBJECT
public:
    // The tray menu the program builds for this account, as labels shown ("---" a separator).
    static QStringList fullMenuLabels();

    struct Bookmark {
        qint64 id = 0;
        QString title;
        QString link;
        qint64 collectionId = -1;
        bool important = false;
        QStringList tags;
    };
    struct CollectionEntry {
        qint64 id = 0;
        QString title;
    };

    // With a token, a request that does not carry it is refused (401); without one, any is
    // taken.
    explicit FakeRaindropService(QString token = {}, QObject* parent = nullptr);

    // The REST base address to give the program.
    QString apiBase() const;
    // The program's addresses on this server: the REST base and the update manifest.
    Environment environment(const QString& version = QStringLiteral("1.2.3")) const;
    TestHttpServer& server() { return m_server; }
    const TestHttpServer& server() const { return m_server; }

    void addCollection(qint64 id, const QString& title);
    // Bookmarks added later count as newer ("🕐 Recent" lists the newest first).
    void addBookmark(const Bookmark& bookmark);
    QList<Bookmark> bookmarks() const { return m_bookmarks; }
    // Bookmark list answers from the store are delayed by this much.
    void setListDelay(std::chrono::milliseconds delay) { m_listDelay = delay; }
    // The next count bookmark list requests of a collection fail with a server error.
    void failListRequests(qint64 collectionId, int count);

    // Every request of this kind gets response, in place of what the store would answer.
    void set(const QString& kind, const TestHttpServer::Response& response);
    void setItems(const QString& kind, const QJsonArray& items) { set(kind, list(items)); }

    static QString kindOf(const TestHttpServer::Request& request);
    // The kinds of the requests received, in order.
    QStringList kinds() const;
    int count(const QString& kind) const { return int(kinds().count(kind)); }
    QList<TestHttpServer::Request> requestsOf(const QString& kind) const;

    int collectionRequests(qint64 collectionId) const {
        return count(QStringLiteral("col_") + QString::number(collectionId));
    }
    int tagRequests(const QString& tag) const { return count(QStringLiteral("tag_") + tag); }
    int favouritesRequests() const { return count(QStringLiteral("favourites")); }
    int recentRequests() const { return count(QStringLiteral("recent")); }

    // A list answer, and the service's JSON of its items.
    static TestHttpServer::Response list(const QJsonArray& items);
    static QJsonObject bookmark(qint64 id, const QString& title, const QString& link,
                                bool important = false, qint64 collection = 1000);
    static QJsonObject collection(qint64 id, const QString& title, qint64 count);
    static QJsonObject tag(const QString& name, qint64 count);

private:
    TestHttpServer::Response answer(const TestHttpServer::Request& request);
    TestHttpServer::Response storeAnswer(const TestHttpServer::Request& request);
    TestHttpServer::Response listAnswer(const TestHttpServer::Request& request, qint64 collection);
    TestHttpServer::Response update(qint64 id, const QByteArray& body);
    TestHttpServer::Response create(const QByteArray& body);

    QString m_token;
    TestHttpServer m_server;
    QHash<QString, TestHttpServer::Response> m_answers;
    QList<CollectionEntry> m_collections;
    QList<Bookmark> m_bookmarks;
    std::chrono::milliseconds m_listDelay{0};
    QHash<qint64, int> m_failures;
    qint64 m_nextId = 900000;
};
