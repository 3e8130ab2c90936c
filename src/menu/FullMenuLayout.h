#pragma once

#include "menu/LazyEntryMenu.h"
#include "menu/LazyMenuDelegate.h"
#include "service/Collection.h"
#include "service/Raindrop.h"
#include "service/Tag.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class BookmarkItems;
class QAction;
class QMenu;
class RaindropAPI;
class SubmenuPlacement;

// Lays out the full menu from the service's lists: the fixed items, the favourites, the pinned
// collections and tags, the "Collections" and "Tags" submenus and the footer. The bookmarks
// behind a submenu are loaded when it opens; the choices of the fixed items come out as signals.
class FullMenuLayout : public QObject {
    Q_OBJECT
public:
    // The Tags submenu shows no more than this many tags.
    static constexpr int tagLimit = 25;

    // What the service answered; a list that failed to load is none.
    struct Lists {
        std::optional<QList<Raindrop>> favourites;
        std::optional<QList<Collection>> collections;
        std::optional<QList<Tag>> tags;
    };
    struct Pins {
        QSet<qint64> collectionIds;
        QSet<QString> tags;
    };
    // How long a loaded submenu stays fresh, by which clock.
    struct Freshness {
        std::chrono::milliseconds staleness;
        LazyMenuDelegate::Clock clock;
    };

    FullMenuLayout(std::shared_ptr<RaindropAPI> api, Pins pins, QString version,
                   Freshness freshness, BookmarkItems* bookmarks, SubmenuPlacement* placement,
                   QObject* parent = nullptr);

    // The menu for lists; its "📋 Add Clipboard URL" item enabled as offerClipboard says. The
    // delegates of its submenus replace those of the menu built before.
    QMenu* build(const Lists& lists, bool offerClipboard);
    // The placeholder is attached: the submenus of the last full menu are gone with it.
    void forgetDelegates() { m_delegates.clear(); }

    QList<std::shared_ptr<LazyMenuDelegate>> delegates() const { return m_delegates; }
    // The item "📋 Add Clipboard URL" of the last menu built, while that menu lives.
    QAction* addClipboardItem() const { return m_addClipboardItem; }
    std::shared_ptr<RaindropAPI> api() const { return m_api; }

    // "Quit Quillmar", ⌘Q.
    static void addQuitItem(QMenu* menu);

Q_SIGNALS:
    void addClipboardURLChosen();
    void openWebChosen();
    void settingsChosen();
    void refreshChosen();
    void checkForUpdatesChosen();

private:
    using ApiFetch =
        std::function<QCoro::Task<QList<Raindrop>>(const std::shared_ptr<RaindropAPI>&)>;

    void addPinned(QMenu* menu, const QList<Collection>& collections, const QList<Tag>& tags);
    void addCollections(QMenu* menu, const QList<Collection>& collections);
    void addTags(QMenu* menu, const QList<Tag>& tags);
    void addFooter(QMenu* menu);
    // The "Collections" and "Tags" submenus, whose entries get their submenus when highlighted.
    LazyEntryMenu* newEntryMenu(const QString& title, QMenu* parent,
                                std::function<ApiFetch(const QVariant&)> fetchFor);
    QAction* lazySubmenuItem(QMenu* parent, const QString& title, LazyMenuDelegate::Fetch fetch);
    // Gives submenu its "Loading…" line and a delegate that fills it.
    void makeLazy(QMenu* submenu, LazyMenuDelegate::Fetch fetch);
    // A fetch that holds this layout weakly and yields an empty list once it is gone.
    LazyMenuDelegate::Fetch weakFetch(ApiFetch call);

    std::shared_ptr<RaindropAPI> m_api;
    Pins m_pins;
    QString m_version;
    Freshness m_freshness;
    BookmarkItems* m_bookmarks;
    SubmenuPlacement* m_placement;
    QList<std::shared_ptr<LazyMenuDelegate>> m_delegates;
    QPointer<QAction> m_addClipboardItem;
};
