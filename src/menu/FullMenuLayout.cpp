#include "menu/FullMenuLayout.h"

#include "menu/BookmarkItems.h"
#include "menu/MenuText.h"
#include "menu/SubmenuPlacement.h"
#include "service/RaindropAPI.h"

#include <QCoreApplication>
#include <QKeySequence>
#include <QMenu>
#include <QPointer>

using namespace Qt::StringLiterals;

namespace {

// The only line of a bookmark submenu until its first load.
const QString loading = u"Loading…"_s;

void addHeader(QMenu* menu, const QString& title) {
    menu->addAction(title)->setEnabled(false);
}

QCoro::Task<QList<Raindrop>> fetchIfAlive(
    QPointer<FullMenuLayout> layout,
    std::function<QCoro::Task<QList<Raindrop>>(const std::shared_ptr<RaindropAPI>&)> call) {
    if (!layout)
        co_return QList<Raindrop>();
    const std::shared_ptr<RaindropAPI> api = layout->api();
    co_return co_await call(api);
}

} // namespace

FullMenuLayout::FullMenuLayout(std::shared_ptr<RaindropAPI> api, Pins pins, QString version,
                               Freshness freshness, BookmarkItems* bookmarks,
                               SubmenuPlacement* placement, QObject* parent)
    : QObject(parent)
    , m_api(std::move(api))
    , m_pins(std::move(pins))
    , m_version(std::move(version))
    , m_freshness(std::move(freshness))
    , m_bookmarks(bookmarks)
    , m_placement(placement) {}

QMenu* FullMenuLayout::build(const Lists& lists, bool offerClipboard) {
    auto* menu = new QMenu();
    // Builds may overlap; the one attached last brings its own delegates and clipboard item.
    m_delegates.clear();

    QAction* addClipboardItem = menu->addAction(u"📋 Add Clipboard URL"_s);
    addClipboardItem->setEnabled(offerClipboard);
    connect(addClipboardItem, &QAction::triggered, this, &FullMenuLayout::addClipboardURLChosen);
    m_addClipboardItem = addClipboardItem;
    menu->addAction(lazySubmenuItem(
        menu, u"🕐 Recent"_s,
        weakFetch([](const std::shared_ptr<RaindropAPI>& a) { return a->fetchRecent(); })));
    QAction* web = menu->addAction(u"🌐 Open Raindrop Web"_s);
    connect(web, &QAction::triggered, this, &FullMenuLayout::openWebChosen);
    menu->addSeparator();

    addHeader(menu, u"❤️ Favourites"_s);
    if (!lists.favourites)
        addHeader(menu, u"Failed to load favourites"_s);
    else if (lists.favourites->isEmpty())
        addHeader(menu, u"No favourites"_s);
    for (const Raindrop& bookmark : lists.favourites.value_or(QList<Raindrop>()))
        m_bookmarks->add(bookmark, menu);

    if (!lists.collections || !lists.tags) {
        menu->addSeparator();
        addHeader(menu, u"Failed to load collections and tags"_s);
    } else {
        QList<Collection> pinnedCollections;
        QList<Collection> otherCollections;
        for (const Collection& collection : std::as_const(*lists.collections))
            (m_pins.collectionIds.contains(collection.id) ? pinnedCollections : otherCollections)
                .append(collection);
        QList<Tag> pinnedTags;
        QList<Tag> otherTags;
        for (const Tag& tag : std::as_const(*lists.tags))
            (m_pins.tags.contains(tag.name) ? pinnedTags : otherTags).append(tag);
        addPinned(menu, pinnedCollections, pinnedTags);
        addCollections(menu, otherCollections);
        addTags(menu, otherTags);
    }

    addFooter(menu);
    return menu;
}

void FullMenuLayout::addPinned(QMenu* menu, const QList<Collection>& collections,
                               const QList<Tag>& tags) {
    if (collections.isEmpty() && tags.isEmpty())
        return;
    menu->addSeparator();
    addHeader(menu, u"📌 Pinned"_s);
    QList<LazyMenuDelegate::Fetch> warmUps;
    for (const Collection& collection : collections) {
        const qint64 id = collection.id;
        auto fetch = weakFetch(
            [id](const std::shared_ptr<RaindropAPI>& a) { return a->fetchBookmarks(id); });
        warmUps.append(fetch);
        menu->addAction(lazySubmenuItem(menu, collection.title, fetch));
    }
    for (const Tag& tag : tags) {
        const QString name = tag.name;
        auto fetch = weakFetch(
            [name](const std::shared_ptr<RaindropAPI>& a) { return a->fetchBookmarksByTag(name); });
        warmUps.append(fetch);
        menu->addAction(lazySubmenuItem(menu, u"#"_s + name, fetch));
    }
    // Fills the client's cache so that opening a pinned submenu is instant; the results and
    // errors go nowhere.
    for (const auto& warmUp : std::as_const(warmUps))
        warmUp();
}

void FullMenuLayout::addCollections(QMenu* menu, const QList<Collection>& collections) {
    if (collections.isEmpty())
        return;
    menu->addSeparator();
    auto* submenu = newEntryMenu(u"📁 Collections"_s, menu, [](const QVariant& entry) -> ApiFetch {
        return [id = entry.toLongLong()](const std::shared_ptr<RaindropAPI>& a) {
            return a->fetchBookmarks(id);
        };
    });
    for (const Collection& collection : collections) {
        const QString title = collection.count < 1 ? collection.title
                                                   : collection.title + u"  ("_s +
                                                         QString::number(collection.count) + u")"_s;
        submenu->addAction(MenuText::escaped(title))->setData(collection.id);
    }
    menu->addMenu(submenu);
}

void FullMenuLayout::addTags(QMenu* menu, const QList<Tag>& tags) {
    if (tags.isEmpty())
        return;
    menu->addSeparator();
    auto* submenu = newEntryMenu(u"🏷 Tags"_s, menu, [](const QVariant& entry) -> ApiFetch {
        return [name = entry.toString()](const std::shared_ptr<RaindropAPI>& a) {
            return a->fetchBookmarksByTag(name);
        };
    });
    for (const Tag& tag : tags.first(qMin<qsizetype>(tags.size(), tagLimit)))
        submenu
            ->addAction(MenuText::escaped(u"#"_s + tag.name + u"  ("_s +
                                          QString::number(tag.count) + u")"_s))
            ->setData(tag.name);
    menu->addMenu(submenu);
}

void FullMenuLayout::addFooter(QMenu* menu) {
    menu->addSeparator();
    QAction* settings = menu->addAction(u"Settings…"_s);
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    connect(settings, &QAction::triggered, this, &FullMenuLayout::settingsChosen);
    QAction* refresh = menu->addAction(u"Refresh"_s);
    refresh->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_R));
    connect(refresh, &QAction::triggered, this, &FullMenuLayout::refreshChosen);
    addHeader(menu, u"Quillmar v"_s + m_version);
    QAction* updates = menu->addAction(u"Check for Updates…"_s);
    connect(updates, &QAction::triggered, this, &FullMenuLayout::checkForUpdatesChosen);
    addQuitItem(menu);
}

void FullMenuLayout::addQuitItem(QMenu* menu) {
    QAction* quit = menu->addAction(u"Quit Quillmar"_s);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    // Queued: the menu that sent it finishes closing first.
    connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}

LazyEntryMenu* FullMenuLayout::newEntryMenu(const QString& title, QMenu* parent,
                                            std::function<ApiFetch(const QVariant&)> fetchFor) {
    // An entry carries what its fetch needs (a collection's id, a tag's name) as its data.
    auto makeSubmenu = [layout = QPointer<FullMenuLayout>(this), fetchFor](QAction* entry) {
        if (!layout)
            return;
        // Made after the build, it belongs to the menu that is attached (only that one shows).
        auto* submenu =
            layout->m_placement->newSubmenu(entry->text(), qobject_cast<QMenu*>(entry->parent()));
        layout->makeLazy(submenu, layout->weakFetch(fetchFor(entry->data())));
        entry->setMenu(submenu);
    };
    auto* menu = new LazyEntryMenu(title, loading, makeSubmenu, parent);
    m_placement->watch(menu);
    return menu;
}

QAction* FullMenuLayout::lazySubmenuItem(QMenu* parent, const QString& title,
                                         LazyMenuDelegate::Fetch fetch) {
    auto* submenu = m_placement->newSubmenu(MenuText::escaped(title), parent);
    makeLazy(submenu, std::move(fetch));
    return submenu->menuAction();
}

void FullMenuLayout::makeLazy(QMenu* submenu, LazyMenuDelegate::Fetch fetch) {
    submenu->addAction(loading)->setEnabled(false);
    auto populate = [bookmarks = QPointer<BookmarkItems>(m_bookmarks)](
                        QMenu* menu, const QList<Raindrop>& list) {
        if (!bookmarks)
            return;
        for (const Raindrop& bookmark : list)
            bookmarks->add(bookmark, menu);
    };
    auto delegate = std::make_shared<LazyMenuDelegate>(std::move(fetch), std::move(populate),
                                                       m_freshness.staleness, m_freshness.clock);
    delegate->attach(submenu);
    m_delegates.append(delegate);
}

LazyMenuDelegate::Fetch FullMenuLayout::weakFetch(ApiFetch call) {
    return [layout = QPointer<FullMenuLayout>(this), call] {
        return fetchIfAlive(layout, call);
    };
}
