#include "menu/LazyMenuDelegate.h"

#include "menu/SubmenuPlacement.h"
#include "service/ServiceError.h"

#include <QMenu>

using namespace Qt::StringLiterals;

namespace {

const char* delegateProperty = "quillmarLazyMenuDelegate";
// True while the menu is being filled, for whoever shows it elsewhere (a panel waits for it).
const char* loadingProperty = "loading";

} // namespace

LazyMenuDelegate::LazyMenuDelegate(Fetch fetch, Populate populate,
                                   std::chrono::milliseconds staleness, Clock clock)
    : m_fetch(std::move(fetch))
    , m_populate(std::move(populate))
    , m_staleness(staleness)
    , m_clock(std::move(clock)) {}

LazyMenuDelegate::~LazyMenuDelegate() = default;

void LazyMenuDelegate::attach(QMenu* menu) {
    menu->setProperty(delegateProperty, QVariant::fromValue(QPointer<LazyMenuDelegate>(this)));
    // The connection ends with this delegate: the menu does not keep it alive.
    connect(menu, &QMenu::aboutToShow, this, [this, menu] { menuNeedsUpdate(menu); });
}

std::shared_ptr<LazyMenuDelegate> LazyMenuDelegate::of(const QMenu* menu) {
    const auto delegate = menu->property(delegateProperty).value<QPointer<LazyMenuDelegate>>();
    return delegate ? delegate->weak_from_this().lock() : nullptr;
}

bool LazyMenuDelegate::isFresh() const {
    return m_loadedAt && m_clock() - *m_loadedAt <= m_staleness;
}

void LazyMenuDelegate::menuNeedsUpdate(QMenu* menu) {
    if (isFresh())
        return;
    load(menu, !m_loadedAt);
}

void LazyMenuDelegate::prefetch() {
    if (isFresh())
        return;
    // Only the service client's cache keeps what this fetches; the task ends on its own.
    m_fetch();
}

void LazyMenuDelegate::reset() {
    m_loadedAt.reset();
    m_loadedIds.clear();
}

QCoro::Task<> LazyMenuDelegate::load(QPointer<QMenu> menu, bool firstLoad) {
    // Held for the whole load, so that the delegate outlives a rebuild of the menu meanwhile.
    const std::shared_ptr<LazyMenuDelegate> self = shared_from_this();
    if (!menu)
        co_return;
    ++m_loads;
    menu->setProperty(loadingProperty, true);
    std::optional<QList<Raindrop>> bookmarks;
    try {
        bookmarks = co_await m_fetch();
    } catch (const ServiceError&) {
        // Shown below as "Failed to load" on a first load; an older list stays otherwise.
    }
    --m_loads;
    if (!menu)
        co_return;
    if (!bookmarks) {
        if (firstLoad) {
            const QRect before = menu->geometry();
            removeAllItems(menu);
            menu->addAction(u"Failed to load"_s)->setEnabled(false);
            keepBesideParent(menu, before);
        }
    } else {
        m_loadedAt = m_clock();
        show(menu, *bookmarks);
    }
    if (m_loads == 0)
        menu->setProperty(loadingProperty, false);
}

void LazyMenuDelegate::show(QMenu* menu, const QList<Raindrop>& bookmarks) {
    QSet<qint64> ids;
    for (const Raindrop& bookmark : bookmarks)
        ids.insert(bookmark.id);
    // The same bookmarks (in any order) leave the items as they are. A first empty list
    // therefore keeps "Loading…"; "No bookmarks" follows only a list that had items.
    if (ids == m_loadedIds)
        return;
    m_loadedIds = ids;
    const QRect before = menu->geometry();
    removeAllItems(menu);
    if (bookmarks.isEmpty())
        menu->addAction(u"No bookmarks"_s)->setEnabled(false);
    else
        m_populate(menu, bookmarks);
    keepBesideParent(menu, before);
}

void LazyMenuDelegate::removeAllItems(QMenu* menu) {
    // The bookmark items are the actions of their own submenus, which clear() leaves alone.
    QList<QMenu*> submenus;
    const QList<QAction*> actions = menu->actions();
    for (QAction* action : actions) {
        if (QMenu* submenu = action->menu())
            submenus.append(submenu);
    }
    menu->clear();
    for (QMenu* submenu : submenus) {
        submenu->hide();
        submenu->deleteLater();
    }
}

void LazyMenuDelegate::keepBesideParent(QMenu* menu, const QRect& before) {
    // An open menu that changes size keeps its top-left corner. One that had opened to the left
    // of its parent (a tray menu at the right screen edge) would then cover the parent.
    const auto* parent = qobject_cast<QMenu*>(menu->parentWidget());
    if (!menu->isVisible() || !parent || !parent->isVisible())
        return;
    QRect geometry(menu->pos(), menu->sizeHint());
    if (SubmenuPlacement::isLeftOfParent(before, menu))
        geometry.moveRight(before.right());
    menu->setGeometry(SubmenuPlacement::keptOnScreen(geometry, parent->screen()));
}
