#pragma once

#include "service/Raindrop.h"

#include <QCoroTask>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QRect>
#include <QSet>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QMenu;

// Fills a submenu of bookmarks when it is first opened, and again when its contents have grown
// stale. A menu holds its delegate weakly; the menu manager keeps it alive.
class LazyMenuDelegate : public QObject, public std::enable_shared_from_this<LazyMenuDelegate> {
    Q_OBJECT
public:
    using Fetch = std::function<QCoro::Task<QList<Raindrop>>()>;
    using Populate = std::function<void(QMenu*, const QList<Raindrop>&)>;
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    using TimePoint = std::chrono::steady_clock::time_point;

    LazyMenuDelegate(Fetch fetch, Populate populate, std::chrono::milliseconds staleness,
                     Clock clock);
    ~LazyMenuDelegate() override;

    // Makes this the delegate of menu: menuNeedsUpdate runs just before the menu shows.
    void attach(QMenu* menu);
    // The delegate attached to menu, if it still exists.
    static std::shared_ptr<LazyMenuDelegate> of(const QMenu* menu);

    // Loads the bookmarks unless the last load is fresh. Returns at once: the menu shows what it
    // has ("Loading…", or the older items) until the answer arrives. While it loads, the menu's
    // property "loading" is true.
    void menuNeedsUpdate(QMenu* menu);
    // Fetches the bookmarks so that the service client's cache holds them; changes nothing else.
    void prefetch();
    // Forgets the last load, so that the next opening loads again.
    void reset();

    std::optional<TimePoint> loadedAt() const { return m_loadedAt; }
    QSet<qint64> loadedIds() const { return m_loadedIds; }

private:
    bool isFresh() const;
    QCoro::Task<> load(QPointer<QMenu> menu, bool firstLoad);
    void show(QMenu* menu, const QList<Raindrop>& bookmarks);
    static void removeAllItems(QMenu* menu);
    static void keepBesideParent(QMenu* menu, const QRect& before);

    Fetch m_fetch;
    Populate m_populate;
    std::chrono::milliseconds m_staleness;
    Clock m_clock;
    std::optional<TimePoint> m_loadedAt;
    QSet<qint64> m_loadedIds;
    // Loads under way (one per opening; nothing stops a second before the first ends).
    int m_loads = 0;
};
