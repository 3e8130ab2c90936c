#include "menu/MenuManager.h"

#include "app/clipboard/SystemClipboard.h"
#include "app/tray/StatusItem.h"
#include "service/ServiceError.h"

#include <QMenu>

using namespace Qt::StringLiterals;

MenuManager::MenuManager(StatusItem* statusItem, AppConfig config, Environment environment,
                         Timings timings, QObject* parent)
    : QObject(parent)
    , m_statusItem(statusItem)
    , m_config(std::move(config))
    , m_environment(std::move(environment))
    , m_timings(std::move(timings))
    , m_api(RaindropAPI::create(m_config.token, m_environment.apiBase, m_timings.requestTimeout))
    , m_updateChecker(m_environment.updateManifest, m_environment.version,
                      {.firstCheckDelay = m_timings.updateCheckDelay,
                       .checkInterval = m_timings.updateCheckInterval})
    , m_bookmarks(m_api, m_environment.webApp, &m_submenuPlacement)
    , m_layout(
          m_api,
          {QSet<qint64>(m_config.pinnedCollectionIds.cbegin(), m_config.pinnedCollectionIds.cend()),
           QSet<QString>(m_config.pinnedTags.cbegin(), m_config.pinnedTags.cend())},
          m_environment.version, {m_timings.staleness, m_timings.clock}, &m_bookmarks,
          &m_submenuPlacement)
    , m_hoverPrefetch(m_timings.hoverPrefetchDelay)
    , m_clipboard(statusItem, m_api, m_timings.pageTitleTimeout) {
    connect(&m_refreshTimer, &QTimer::timeout, this, &MenuManager::refresh);
    connect(&m_layout, &FullMenuLayout::addClipboardURLChosen, this, &MenuManager::addClipboardURL);
    connect(&m_layout, &FullMenuLayout::openWebChosen, this, &MenuManager::openRaindropWeb);
    connect(&m_layout, &FullMenuLayout::settingsChosen, this, &MenuManager::openSettings);
    connect(&m_layout, &FullMenuLayout::refreshChosen, this, &MenuManager::refresh);
    connect(&m_layout, &FullMenuLayout::checkForUpdatesChosen, this, &MenuManager::checkForUpdates);
    // The clipboard follows while a menu is open, its own or the panel's: on Wayland a change
    // reaches this program at once where the compositor tells clipboard managers (sway), else
    // when its menu takes the focus, just after the menu opened; on X11 a change that came just
    // before the menu opened is told a moment later.
    SystemClipboard::whenChanged(this, [this] {
        m_clipboard.forgetOffer();
        if (QMenu* menu = m_statusItem->menu(); menu && m_statusItem->isMenuOpen())
            menuWillOpen(menu);
    });
}

MenuManager::~MenuManager() = default;

void MenuManager::buildInitialMenu() {
    auto* menu = new QMenu();
    menu->addAction(u"Loading…"_s)->setEnabled(false);
    menu->addSeparator();
    FullMenuLayout::addQuitItem(menu);
    m_statusItem->setMenu(menu);
}

void MenuManager::loadData() {
    buildFullMenu();
    m_refreshTimer.start(m_timings.refreshInterval);
    scheduleUpdateChecks();
}

void MenuManager::refresh() {
    // A menu the user is reading is never rebuilt under them: the refresh waits until it closes.
    if (m_statusItem->isMenuOpen()) {
        if (!m_refreshWaiting) {
            m_refreshWaiting = true;
            connect(m_statusItem, &StatusItem::menuClosed, this, &MenuManager::refresh,
                    Qt::SingleShotConnection);
        }
        return;
    }
    m_refreshWaiting = false;
    m_api->clearCache();
    const QList<std::shared_ptr<LazyMenuDelegate>> delegates = m_layout.delegates();
    for (const auto& delegate : delegates)
        delegate->reset();
    buildInitialMenu();
    loadData();
}

void MenuManager::reloadIfOutdated() {
    if (m_buildsInFlight > 0) {
        m_reloadAfterBuild = true;
        return;
    }
    // Under an open menu, the refresh waits until it closes.
    if (isOutdated())
        refresh();
}

bool MenuManager::isOutdated() const {
    return !m_lastBuildStart || m_lastBuildFailed ||
           m_timings.bootClock() - *m_lastBuildStart > m_timings.refreshInterval;
}

QCoro::Task<> MenuManager::buildFullMenu() {
    // Nothing below touches this manager after a suspension without checking that it lives.
    const QPointer<MenuManager> self(this);
    const std::chrono::nanoseconds startedAt = m_timings.bootClock();
    ++m_buildsInFlight;
    const std::shared_ptr<RaindropAPI> api = m_api;
    // The placeholder is attached: the delegates of the previous full menu have no menu left.
    m_layout.forgetDelegates();
    const bool offerClipboard = offersClipboardItem();
    FullMenuLayout::Lists lists;

    try {
        lists.favourites = co_await api->fetchFavourites();
    } catch (const ServiceError&) {
        // Costs only the favourites lines.
    }
    if (!self)
        co_return;

    // Both requests run at once; the collections are awaited first, and when they fail the
    // tags are not waited for.
    const auto canceller = std::make_shared<RequestCanceller>();
    QCoro::Task<QList<Collection>> collectionsTask = api->fetchCollections();
    QCoro::Task<QList<Tag>> tagsTask = api->fetchTags(canceller);
    try {
        lists.collections = co_await collectionsTask;
    } catch (const ServiceError&) {
        canceller->cancel();
    }
    try {
        lists.tags = co_await tagsTask;
    } catch (const ServiceError&) {
        // A cancelled request ends here too.
    }
    if (!self)
        co_return;

    QMenu* full = m_layout.build(lists, offerClipboard);
    connect(full, &QMenu::aboutToShow, this, [this, full] { menuWillOpen(full); });
    m_hoverPrefetch.watch(full);
    m_statusItem->setMenu(full);

    --m_buildsInFlight;
    m_lastBuildStart = startedAt;
    m_lastBuildFailed = !lists.favourites || !lists.collections || !lists.tags;
    if (m_reloadAfterBuild && m_buildsInFlight == 0) {
        m_reloadAfterBuild = false;
        reloadIfOutdated();
    }
}

void MenuManager::menuWillHighlight(QAction* item) {
    m_hoverPrefetch.highlight(item);
}

void MenuManager::menuWillOpen(QMenu* menu) {
    QAction* addClipboardItem = m_layout.addClipboardItem();
    if (menu != m_statusItem->menu() || !addClipboardItem)
        return;
    addClipboardItem->setEnabled(offersClipboardItem());
}

bool MenuManager::offersClipboardItem() {
    return m_clipboard.offersItem();
}

std::optional<QString> MenuManager::clipboardURL() const {
    return m_clipboard.clipboardURL();
}

void MenuManager::addClipboardURL() {
    m_clipboard.addClipboardURL();
}

QCoro::Task<std::optional<QString>> MenuManager::fetchPageTitle(QString url) const {
    return m_clipboard.fetchPageTitle(std::move(url));
}

QCoro::Task<> MenuManager::saveURL(QString url, std::optional<QString> title) {
    return m_clipboard.saveURL(std::move(url), std::move(title));
}

void MenuManager::openRaindropWeb() {
    m_bookmarks.openWebApp();
}

void MenuManager::openBookmark(QAction* item) {
    m_bookmarks.open(item);
}

void MenuManager::copyBookmark(QAction* item) {
    m_bookmarks.copyLink(item);
}

void MenuManager::copyMarkdown(QAction* item) {
    m_bookmarks.copyMarkdown(item);
}

void MenuManager::editInRaindrop(QAction* item) {
    m_bookmarks.edit(item);
}

void MenuManager::toggleFavourite(QAction* item) {
    m_bookmarks.toggleFavourite(item);
}

void MenuManager::checkForUpdates() {
    m_updateChecker.checkForUpdates();
}

void MenuManager::scheduleUpdateChecks() {
    m_updateChecker.scheduleUpdateChecks();
}

QCoro::Task<> MenuManager::checkForUpdatesSilently() {
    return m_updateChecker.checkForUpdatesSilently();
}

void MenuManager::openSettings() {
    Q_EMIT settingsRequested();
}
