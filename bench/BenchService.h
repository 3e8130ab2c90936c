#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QThread>

#include <chrono>
#include <memory>

class TestHttpServer;

// The bookmark service of the benchmarks: accounts served on 127.0.0.1 from a thread of their
// own, so that the measured program shares neither its process nor its event loop with them.
// Every request is answered after a fixed delay, like a service a round trip away.
class BenchService {
public:
    struct Account {
        int collections = 200;
        int tags = 1000;
        int favourites = 25;
        // Bookmarks in each collection and under each tag (the service's page size).
        int bookmarksPerList = 50;
        std::chrono::milliseconds delay{50};
    };

    // The pinned collection and tag of every account: the first collection, the first tag.
    static qint64 pinnedCollectionId();
    static QString pinnedCollectionTitle();
    static QString pinnedTag();

    BenchService();
    ~BenchService();
    BenchService(const BenchService&) = delete;
    BenchService& operator=(const BenchService&) = delete;

    // Starts serving account; returns its REST base address ("http://127.0.0.1:PORT/rest/v1").
    QString serve(const Account& account);
    // How many requests all accounts have answered so far.
    int requestCount() const;
    // The account at apiBase refuses every connection from now on, as a service out of reach, or
    // takes them again.
    void setRefusing(const QString& apiBase, bool refusing);

private:
    QThread m_thread;
    // Lives in m_thread: what runs there is invoked on it.
    QObject* m_context;
    QList<TestHttpServer*> m_servers; // live in m_thread
};
