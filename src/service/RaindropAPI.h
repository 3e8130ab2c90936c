#pragma once

#include "service/Collection.h"
#include "service/Raindrop.h"
#include "service/RequestCanceller.h"
#include "service/Tag.h"

#include <QCoroTask>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QString>

#include <chrono>
#include <memory>
#include <optional>

class QNetworkRequest;

// The client of the bookmark service's REST interface. Every operation is a coroutine that
// returns its result or throws ServiceError. The object is shared by the coroutines that use
// it, so it stays alive until the last request it started has finished.
class RaindropAPI : public std::enable_shared_from_this<RaindropAPI> {
public:
    static constexpr std::chrono::milliseconds defaultTimeout{15000};
    // Service answers above this size fail as a decoding error instead of filling memory.
    static constexpr qint64 maximumBodySize = 64 * 1024 * 1024;

    // base: the service's address, up to and without the trailing slash.
    static std::shared_ptr<RaindropAPI> create(const QString& token, const QString& base,
                                               std::chrono::milliseconds timeout = defaultTimeout);

    using Canceller = std::shared_ptr<RequestCanceller>;

    // Sorted by lower-cased title in code-point order, stable.
    QCoro::Task<QList<Collection>> fetchCollections(Canceller canceller = {});
    // Sorted by count, highest first, stable.
    QCoro::Task<QList<Tag>> fetchTags(Canceller canceller = {});
    QCoro::Task<QList<Raindrop>> fetchRecent();
    QCoro::Task<QList<Raindrop>> fetchFavourites();
    QCoro::Task<QList<Raindrop>> fetchBookmarks(qint64 collectionId);
    QCoro::Task<QList<Raindrop>> fetchBookmarksByTag(QString tag);
    QCoro::Task<void> setFavourite(qint64 id, bool important);
    QCoro::Task<void> createRaindrop(QString url, std::optional<QString> title);

    // Cache keys of the bookmark lists.
    static QString favouritesKey() { return QStringLiteral("_favs"); }
    static QString collectionKey(qint64 id) { return QStringLiteral("col_") + QString::number(id); }
    static QString tagKey(const QString& tag) { return QStringLiteral("tag_") + tag; }

    bool isCached(const QString& key) const { return m_cache.contains(key); }
    // Forgets every cached list, so that the following fetches go to the service.
    void clearCache() { m_cache.clear(); }

    QString base() const { return m_base; }

private:
    using QueryItems = QList<QPair<QString, QString>>;
    struct Answer {
        int status = 0;
        QByteArray body;
    };

    RaindropAPI(QString token, QString base, std::chrono::milliseconds timeout);

    QCoro::Task<QByteArray> fetch(QString path, QueryItems query, Canceller canceller);
    QCoro::Task<QList<Raindrop>> cachedFetch(QString key, QString path, QueryItems query);
    QCoro::Task<void> write(QByteArray verb, QString path, QJsonObject body);
    QCoro::Task<Answer> send(QNetworkRequest request, QByteArray verb, QByteArray body,
                             Canceller canceller);
    void authorize(QNetworkRequest& request) const;

    QString m_base;
    QString m_token;
    std::chrono::milliseconds m_timeout;
    QHash<QString, QList<Raindrop>> m_cache;
};
