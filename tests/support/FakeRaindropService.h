#pragma once

#include "TestHttpServer.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>

// The bookmark service played on 127.0.0.1 for tests that run the whole program: it keeps
// collections, tags and bookmarks and serves them through the REST paths and query parameters
// the program uses, and it takes favourite changes and new bookmarks. Every request is recorded
// by its server.
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

    explicit FakeRaindropService(QString token, QObject* parent = nullptr);

    // The REST base address to give the program.
    QString apiBase() const;
    TestHttpServer& server() { return m_server; }

    void addCollection(qint64 id, const QString& title);
    // Bookmarks added later count as newer ("🕐 Recent" lists the newest first).
    void addBookmark(const Bookmark& bookmark);
    QList<Bookmark> bookmarks() const { return m_bookmarks; }
    // Bookmark list answers are delayed by this much.
    void setListDelay(std::chrono::milliseconds delay) { m_listDelay = delay; }
    // The next count bookmark list requests of a collection fail with a server error.
    void failListRequests(qint64 collectionId, int count);

    // GET requests of one bookmark list: a collection's, a tag's (by its name), the favourites
    // or the recent bookmarks.
    int collectionRequests(qint64 collectionId) const;
    int tagRequests(const QString& tag) const;
    int favouritesRequests() const;
    int recentRequests() const;

private:
    TestHttpServer::Response answer(const TestHttpServer::Request& request);
    TestHttpServer::Response listAnswer(const TestHttpServer::Request& request, qint64 collection);
    TestHttpServer::Response update(qint64 id, const QByteArray& body);
    TestHttpServer::Response create(const QByteArray& body);
    QList<TestHttpServer::Request> listRequests(qint64 collection) const;

    QString m_token;
    TestHttpServer m_server;
    QList<CollectionEntry> m_collections;
    QList<Bookmark> m_bookmarks;
    std::chrono::milliseconds m_listDelay{0};
    QHash<qint64, int> m_failures;
    qint64 m_nextId = 900000;
};
