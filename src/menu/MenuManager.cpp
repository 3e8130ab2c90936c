#include "menu/MenuManager.h"

#include "app/alert/Alert.h"
#include "app/clipboard/SystemClipboard.h"
#include "app/tray/StatusItem.h"
#include "menu/ClipboardURL.h"
#include "menu/MenuText.h"
#include "menu/PageTitle.h"
#include "service/HttpSession.h"
#include "service/ServiceError.h"

#include <QApplication>
#include <QCoroNetworkReply>
#include <QDesktopServices>
#include <QKeySequence>
#include <QMenu>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSet>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

// A desktop browser's identity, so that sites serve the page a person would see.
const QByteArray browserUserAgent = QByteArrayLiteral(
    "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 (KHTML, like Gecko) "
    "Version/17.0 Safari/605.1.15");
constexpr int maximumRedirects = 20;

std::optional<Raindrop> bookmarkOf(const QAction* item) {
    if (!item || item->data().metaType() != QMetaType::fromType<Raindrop>())
        return std::nullopt;
    return item->data().value<Raindrop>();
}

// An absolute address, or none.
std::optional<QUrl> parsedURL(const QString& text) {
    const QUrl url(text);
    if (!url.isValid() || url.isRelative())
        return std::nullopt;
    return url;
}

void open(const QString& address) {
    if (const auto url = parsedURL(address))
        QDesktopServices::openUrl(*url);
}

void copy(const QString& text) {
    SystemClipboard::setText(text);
}

// Whether the reply failed before a whole answer arrived. Qt reports the HTTP statuses of
// 400 and above as errors of its own (most 4xx as 201..299, 400 and 418 as a protocol error,
// 407 as a proxy error, 5xx as 401..499); those pages were answered, and their titles count.
bool isTransportFailure(const QNetworkReply* reply) {
    const QNetworkReply::NetworkError error = reply->error();
    if (error == QNetworkReply::NoError)
        return false;
    const int code = int(error);
    const bool fromStatus = (code >= 200 && code < 300) || (code >= 400 && code < 500) ||
                            error == QNetworkReply::ProtocolInvalidOperationError ||
                            error == QNetworkReply::ProxyAuthenticationRequiredError;
    return !(fromStatus && reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid());
}

QCoro::Task<std::optional<QString>> readPageTitle(QString address,
                                                  std::chrono::milliseconds timeout) {
    const std::optional<QUrl> url = parsedURL(address);
    if (!url)
        co_return std::nullopt;
    QNetworkRequest request(*url);
    request.setRawHeader(QByteArrayLiteral("User-Agent"), browserUserAgent);
    // Redirects are followed to other hosts and from http to https. (Qt's user-verified policy,
    // which would follow https to http as well, lost the answer now and then.)
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setMaximumRedirectsAllowed(maximumRedirects);

    std::unique_ptr<QNetworkReply, void (*)(QNetworkReply*)> reply(
        HttpSession::shared().get(request), [](QNetworkReply* r) { r->deleteLater(); });
    QNetworkReply* raw = reply.get();
    // A child of the reply: it goes when the reply goes.
    auto* deadline = new QTimer(raw);
    deadline->setSingleShot(true);
    QObject::connect(deadline, &QTimer::timeout, raw, &QNetworkReply::abort);
    deadline->start(timeout);

    // The page is read only as far as its title, and never beyond the read limit.
    QByteArray body;
    bool cut = false;
    std::optional<QString> title;
    const QMetaObject::Connection reading =
        QObject::connect(raw, &QNetworkReply::readyRead, raw, [raw, &body, &cut, &title] {
            if (cut || title)
                return;
            const qsizetype scanFrom = body.size() - 7;
            body += raw->readAll();
            if (body.size() > PageTitle::readLimit) {
                body.truncate(PageTitle::readLimit);
                cut = true;
            } else if (PageTitle::mayEndTitle(body, scanFrom)) {
                title = PageTitle::extractFromPrefix(body);
            }
            if (cut || title) {
                // Queued: the reading coroutine resumes from the event loop, not from here.
                QMetaObject::invokeMethod(raw, &QNetworkReply::abort, Qt::QueuedConnection);
            }
        });
    if (!raw->isFinished())
        co_await qCoro(raw).waitForFinished();
    QObject::disconnect(reading);

    if (title)
        co_return title;
    if (cut)
        co_return PageTitle::extractFromPrefix(body);
    if (isTransportFailure(raw))
        co_return std::nullopt;
    body += raw->readAll();
    if (body.size() > PageTitle::readLimit)
        co_return PageTitle::extractFromPrefix(body.left(PageTitle::readLimit));
    co_return PageTitle::extract(body);
}

QCoro::Task<> createBookmark(std::shared_ptr<RaindropAPI> api, QString url,
                             std::optional<QString> title) {
    std::optional<QString> failure;
    try {
        co_await api->createRaindrop(url, title);
    } catch (const ServiceError& error) {
        failure = error.message();
    }
    if (failure)
        Alert::run(u"Quillmar"_s, u"Failed to save: "_s + *failure, Alert::Style::Warning);
}

QCoro::Task<> saveWithTitle(std::shared_ptr<RaindropAPI> api, QString url,
                            std::chrono::milliseconds timeout) {
    const std::optional<QString> title = co_await readPageTitle(url, timeout);
    co_await createBookmark(api, url, title);
}

QCoro::Task<> setFavourite(std::shared_ptr<RaindropAPI> api, qint64 id, bool important) {
    std::optional<QString> failure;
    try {
        co_await api->setFavourite(id, important);
    } catch (const ServiceError& error) {
        failure = error.message();
    }
    if (failure)
        Alert::run(u"Quillmar"_s, u"Failed to update favourite: "_s + *failure,
                   Alert::Style::Warning);
}

QCoro::Task<QList<Raindrop>> fetchIfAlive(
    QPointer<MenuManager> manager,
    std::function<QCoro::Task<QList<Raindrop>>(const std::shared_ptr<RaindropAPI>&)> call) {
    if (!manager)
        co_return QList<Raindrop>();
    const std::shared_ptr<RaindropAPI> api = manager->api();
    co_return co_await call(api);
}

// The only line of a bookmark submenu until its first load.
const QString loading = u"Loading…"_s;

void addHeader(QMenu* menu, const QString& title) {
    menu->addAction(title)->setEnabled(false);
}

} // namespace

MenuManager::MenuManager(StatusItem* statusItem, AppConfig config, Environment environment,
                         Timings timings, QObject* parent)
    : QObject(parent)
    , m_statusItem(statusItem)
    , m_config(std::move(config))
    , m_environment(std::move(environment))
    , m_timings(std::move(timings))
    , m_api(RaindropAPI::create(m_config.token, m_environment.apiBase, m_timings.requestTimeout))
    , m_updateChecker(m_environment, {.firstCheckDelay = m_timings.updateCheckDelay,
                                      .checkInterval = m_timings.updateCheckInterval}) {
    m_prefetchTimer.setSingleShot(true);
    m_prefetchTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_prefetchTimer, &QTimer::timeout, this, [this] {
        if (const auto delegate = m_prefetchTarget.lock())
            delegate->prefetch();
    });
    connect(&m_refreshTimer, &QTimer::timeout, this, &MenuManager::refresh);
    // The clipboard follows while a menu is open, its own or the panel's: on Wayland a change
    // reaches this program at once where the compositor tells clipboard managers (sway), else
    // when its menu takes the focus, just after the menu opened; on X11 a change that came just
    // before the menu opened is told a moment later.
    SystemClipboard::whenChanged(this, [this] {
        m_clipboardOffer.reset();
        if (QMenu* menu = m_statusItem->menu(); menu && m_statusItem->isMenuOpen())
            menuWillOpen(menu);
    });
}

MenuManager::~MenuManager() = default;

void MenuManager::buildInitialMenu() {
    auto* menu = new QMenu();
    menu->addAction(u"Loading…"_s)->setEnabled(false);
    menu->addSeparator();
    addQuitItem(menu);
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
    for (const auto& delegate : std::as_const(m_lazyDelegates))
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
    // Owned here until it is attached; dropped with the coroutine when the build is abandoned.
    auto menu = std::make_unique<QMenu>();
    // The placeholder is attached: the delegates of the previous full menu have no menu left.
    m_lazyDelegates.clear();
    QList<std::shared_ptr<LazyMenuDelegate>> delegates;
    const QSet<qint64> pinnedIds(m_config.pinnedCollectionIds.cbegin(),
                                 m_config.pinnedCollectionIds.cend());
    const QSet<QString> pinnedTags(m_config.pinnedTags.cbegin(), m_config.pinnedTags.cend());

    QAction* addClipboardItem = menu->addAction(u"📋 Add Clipboard URL"_s);
    addClipboardItem->setEnabled(offersClipboardItem());
    connect(addClipboardItem, &QAction::triggered, this, &MenuManager::addClipboardURL);
    menu->addAction(lazySubmenuItem(
        menu.get(), u"🕐 Recent"_s,
        weakFetch([](const std::shared_ptr<RaindropAPI>& a) { return a->fetchRecent(); }),
        delegates));
    QAction* web = menu->addAction(u"🌐 Open Raindrop Web"_s);
    connect(web, &QAction::triggered, this, &MenuManager::openRaindropWeb);
    menu->addSeparator();
    addHeader(menu.get(), u"❤️ Favourites"_s);

    std::optional<QList<Raindrop>> favourites;
    try {
        favourites = co_await api->fetchFavourites();
    } catch (const ServiceError&) {
        // Costs only the favourites lines.
    }
    if (!self)
        co_return;
    if (!favourites)
        addHeader(menu.get(), u"Failed to load favourites"_s);
    else if (favourites->isEmpty())
        addHeader(menu.get(), u"No favourites"_s);
    for (const Raindrop& bookmark : favourites.value_or(QList<Raindrop>()))
        addBookmarkItem(bookmark, menu.get());

    // Both requests run at once; the collections are awaited first, and when they fail the
    // tags are not waited for.
    const auto canceller = std::make_shared<RequestCanceller>();
    QCoro::Task<QList<Collection>> collectionsTask = api->fetchCollections();
    QCoro::Task<QList<Tag>> tagsTask = api->fetchTags(canceller);
    std::optional<QList<Collection>> collections;
    std::optional<QList<Tag>> tags;
    try {
        collections = co_await collectionsTask;
    } catch (const ServiceError&) {
        canceller->cancel();
    }
    try {
        tags = co_await tagsTask;
    } catch (const ServiceError&) {
        // A cancelled request ends here too.
    }
    if (!self)
        co_return;

    if (!collections || !tags) {
        menu->addSeparator();
        addHeader(menu.get(), u"Failed to load collections and tags"_s);
    } else {
        QList<Collection> pinnedCollections;
        QList<Collection> otherCollections;
        for (const Collection& collection : std::as_const(*collections))
            (pinnedIds.contains(collection.id) ? pinnedCollections : otherCollections)
                .append(collection);
        QList<Tag> pinnedTagList;
        QList<Tag> otherTags;
        for (const Tag& tag : std::as_const(*tags))
            (pinnedTags.contains(tag.name) ? pinnedTagList : otherTags).append(tag);

        if (!pinnedCollections.isEmpty() || !pinnedTagList.isEmpty()) {
            menu->addSeparator();
            addHeader(menu.get(), u"📌 Pinned"_s);
            QList<LazyMenuDelegate::Fetch> warmUps;
            for (const Collection& collection : std::as_const(pinnedCollections)) {
                const qint64 id = collection.id;
                auto fetch = weakFetch(
                    [id](const std::shared_ptr<RaindropAPI>& a) { return a->fetchBookmarks(id); });
                warmUps.append(fetch);
                menu->addAction(lazySubmenuItem(menu.get(), collection.title, fetch, delegates));
            }
            for (const Tag& tag : std::as_const(pinnedTagList)) {
                const QString name = tag.name;
                auto fetch = weakFetch([name](const std::shared_ptr<RaindropAPI>& a) {
                    return a->fetchBookmarksByTag(name);
                });
                warmUps.append(fetch);
                menu->addAction(lazySubmenuItem(menu.get(), u"#"_s + name, fetch, delegates));
            }
            // Fills the client's cache so that opening a pinned submenu is instant; the
            // results and errors go nowhere.
            for (const auto& warmUp : std::as_const(warmUps))
                warmUp();
        }

        if (!otherCollections.isEmpty()) {
            menu->addSeparator();
            auto* submenu =
                newEntryMenu(u"📁 Collections"_s, menu.get(), [](const QVariant& entry) -> ApiFetch {
                    return [id = entry.toLongLong()](const std::shared_ptr<RaindropAPI>& a) {
                        return a->fetchBookmarks(id);
                    };
                });
            for (const Collection& collection : std::as_const(otherCollections)) {
                const QString title =
                    collection.count < 1
                        ? collection.title
                        : collection.title + u"  ("_s + QString::number(collection.count) + u")"_s;
                submenu->addAction(MenuText::escaped(title))->setData(collection.id);
            }
            menu->addMenu(submenu);
        }

        if (!otherTags.isEmpty()) {
            menu->addSeparator();
            auto* submenu =
                newEntryMenu(u"🏷 Tags"_s, menu.get(), [](const QVariant& entry) -> ApiFetch {
                    return [name = entry.toString()](const std::shared_ptr<RaindropAPI>& a) {
                        return a->fetchBookmarksByTag(name);
                    };
                });
            for (const Tag& tag : otherTags.first(qMin<qsizetype>(otherTags.size(), tagLimit)))
                submenu
                    ->addAction(MenuText::escaped(u"#"_s + tag.name + u"  ("_s +
                                                  QString::number(tag.count) + u")"_s))
                    ->setData(tag.name);
            menu->addMenu(submenu);
        }
    }

    appendFooter(menu.get());

    QMenu* full = menu.release();
    connect(full, &QMenu::aboutToShow, this, [this, full] { menuWillOpen(full); });
    watchHighlight(full);
    // Builds may overlap; the one attached last brings its own delegates and clipboard item.
    m_lazyDelegates = delegates;
    m_addClipboardItem = addClipboardItem;
    m_statusItem->setMenu(full);

    --m_buildsInFlight;
    m_lastBuildStart = startedAt;
    m_lastBuildFailed = !favourites || !collections || !tags;
    if (m_reloadAfterBuild && m_buildsInFlight == 0) {
        m_reloadAfterBuild = false;
        reloadIfOutdated();
    }
}

void MenuManager::appendFooter(QMenu* menu) {
    menu->addSeparator();
    QAction* settings = menu->addAction(u"Settings…"_s);
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    connect(settings, &QAction::triggered, this, &MenuManager::openSettings);
    QAction* refresh = menu->addAction(u"Refresh"_s);
    refresh->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_R));
    connect(refresh, &QAction::triggered, this, &MenuManager::refresh);
    addHeader(menu, u"Quillmar v"_s + m_environment.version);
    QAction* updates = menu->addAction(u"Check for Updates…"_s);
    connect(updates, &QAction::triggered, this, &MenuManager::checkForUpdates);
    addQuitItem(menu);
}

void MenuManager::addQuitItem(QMenu* menu) {
    QAction* quit = menu->addAction(u"Quit Quillmar"_s);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    // Queued: the menu that sent it finishes closing first.
    connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}

QMenu* MenuManager::newSubmenu(const QString& title, QMenu* parent) {
    auto* submenu = new QMenu(title, parent);
    m_submenuPlacement.watch(submenu);
    return submenu;
}

LazyEntryMenu* MenuManager::newEntryMenu(const QString& title, QMenu* parent,
                                         std::function<ApiFetch(const QVariant&)> fetchFor) {
    // An entry carries what its fetch needs (a collection's id, a tag's name) as its data.
    auto makeSubmenu = [manager = QPointer<MenuManager>(this), fetchFor](QAction* entry) {
        if (manager)
            entry->setMenu(
                manager->lazySubmenu(entry, manager->weakFetch(fetchFor(entry->data()))));
    };
    auto* menu = new LazyEntryMenu(title, loading, makeSubmenu, parent);
    m_submenuPlacement.watch(menu);
    return menu;
}

QAction* MenuManager::lazySubmenuItem(QMenu* parent, const QString& title,
                                      LazyMenuDelegate::Fetch fetch,
                                      QList<std::shared_ptr<LazyMenuDelegate>>& delegates) {
    auto* submenu = newSubmenu(MenuText::escaped(title), parent);
    delegates.append(makeLazy(submenu, std::move(fetch)));
    return submenu->menuAction();
}

QMenu* MenuManager::lazySubmenu(QAction* entry, LazyMenuDelegate::Fetch fetch) {
    auto* submenu = newSubmenu(entry->text(), qobject_cast<QMenu*>(entry->parent()));
    // Made after the build, it belongs to the menu that is attached (only that one shows).
    m_lazyDelegates.append(makeLazy(submenu, std::move(fetch)));
    return submenu;
}

std::shared_ptr<LazyMenuDelegate> MenuManager::makeLazy(QMenu* submenu,
                                                        LazyMenuDelegate::Fetch fetch) {
    submenu->addAction(loading)->setEnabled(false);
    auto populate = [manager = QPointer<MenuManager>(this)](QMenu* menu,
                                                            const QList<Raindrop>& bookmarks) {
        if (!manager)
            return;
        for (const Raindrop& bookmark : bookmarks)
            manager->addBookmarkItem(bookmark, menu);
    };
    auto delegate = std::make_shared<LazyMenuDelegate>(std::move(fetch), std::move(populate),
                                                       m_timings.staleness, m_timings.clock);
    delegate->attach(submenu);
    return delegate;
}

LazyMenuDelegate::Fetch MenuManager::weakFetch(ApiFetch call) {
    return [manager = QPointer<MenuManager>(this), call] {
        return fetchIfAlive(manager, call);
    };
}

void MenuManager::addBookmarkItem(const Raindrop& bookmark, QMenu* menu) {
    const QVariant data = QVariant::fromValue(bookmark);
    auto* submenu = newSubmenu(MenuText::escaped(MenuText::bookmarkLabel(bookmark)), menu);
    QAction* item = submenu->menuAction();
    item->setData(data);
    connect(item, &QAction::triggered, this, [this, item] { openBookmark(item); });
    addBookmarkAction(submenu, u"↗ Open"_s, data, &MenuManager::openBookmark);
    submenu->addSeparator();
    addBookmarkAction(submenu, u"⎘ Copy URL"_s, data, &MenuManager::copyBookmark);
    addBookmarkAction(submenu, u"[ ] Copy as Markdown"_s, data, &MenuManager::copyMarkdown);
    addBookmarkAction(submenu, u"✎ Edit in Raindrop"_s, data, &MenuManager::editInRaindrop);
    submenu->addSeparator();
    addBookmarkAction(submenu,
                      bookmark.important ? u"♥ Remove from Favourites"_s : u"♡ Add to Favourites"_s,
                      data, &MenuManager::toggleFavourite);
    menu->addAction(item);
}

QAction* MenuManager::addBookmarkAction(QMenu* menu, const QString& title, const QVariant& bookmark,
                                        void (MenuManager::*action)(QAction*)) {
    QAction* item = menu->addAction(title);
    item->setData(bookmark);
    connect(item, &QAction::triggered, this, [this, item, action] { (this->*action)(item); });
    return item;
}

void MenuManager::watchHighlight(QMenu* menu) {
    connect(menu, &QMenu::hovered, this, [this, menu](QAction* action) {
        // The menu repeats the signal while the pointer moves over one item, and passes on
        // the highlights of its submenus' items; only a change among its own items counts.
        if (action == m_highlighted || !menu->actions().contains(action))
            return;
        menuWillHighlight(action);
    });
    connect(menu, &QMenu::aboutToHide, this, [this] { menuWillHighlight(nullptr); });
    menu->installEventFilter(this);
}

bool MenuManager::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::MouseMove || event->type() == QEvent::Leave) {
        // The menu announces no highlight of "nothing" (a separator, a disabled line, outside
        // the menu): look once it has handled the event.
        QMetaObject::invokeMethod(
            this,
            [this, menu = QPointer<QMenu>(qobject_cast<QMenu*>(watched))] {
                if (menu && m_highlighted && !menu->activeAction())
                    menuWillHighlight(nullptr);
            },
            Qt::QueuedConnection);
    }
    return QObject::eventFilter(watched, event);
}

void MenuManager::menuWillHighlight(QAction* item) {
    m_prefetchTimer.stop();
    m_prefetchTarget.reset();
    m_highlighted = item;
    if (!item || !item->menu())
        return;
    const std::shared_ptr<LazyMenuDelegate> delegate = LazyMenuDelegate::of(item->menu());
    if (!delegate)
        return;
    m_prefetchTarget = delegate;
    m_prefetchTimer.start(m_timings.hoverPrefetchDelay);
}

void MenuManager::menuWillOpen(QMenu* menu) {
    if (menu != m_statusItem->menu() || !m_addClipboardItem)
        return;
    m_addClipboardItem->setEnabled(offersClipboardItem());
}

// Offered when the clipboard holds an address, and when it cannot be read now (Wayland shows it
// only to the program with the focus, which a panel's open menu keeps), so that the item is
// there and reads it when chosen.
bool MenuManager::offersClipboardItem() {
    if (m_statusItem->isPanelMenuOpen() && !SystemClipboard::readableInBackground())
        return true;
    // Where every change is told, the clipboard is read again only after one: reading it costs
    // round trips to the display server and the program that holds it, before the menu shows.
    if (m_clipboardOffer)
        return *m_clipboardOffer;
    const std::optional<QString> text = SystemClipboard::text();
    const bool offer = !text || ClipboardURL::extract(*text).has_value();
    if (text && SystemClipboard::announcesEveryChange())
        m_clipboardOffer = offer;
    return offer;
}

std::optional<QString> MenuManager::clipboardURL() const {
    const std::optional<QString> text = SystemClipboard::text();
    if (!text)
        return std::nullopt;
    return ClipboardURL::extract(*text);
}

void MenuManager::addClipboardURL() {
    // Read now where the clipboard is at hand, after a moment where it is not.
    SystemClipboard::readText([self = QPointer<MenuManager>(this)](std::optional<QString> text) {
        if (!self)
            return;
        const std::optional<QString> url = text ? ClipboardURL::extract(*text) : std::nullopt;
        if (!url) {
            Alert::run(u"Quillmar"_s, u"No URL found on clipboard."_s, Alert::Style::Warning);
            return;
        }
        saveWithTitle(self->m_api, *url, self->m_timings.pageTitleTimeout);
    });
}

QCoro::Task<std::optional<QString>> MenuManager::fetchPageTitle(QString url) const {
    return readPageTitle(std::move(url), m_timings.pageTitleTimeout);
}

QCoro::Task<> MenuManager::saveURL(QString url, std::optional<QString> title) {
    return createBookmark(m_api, std::move(url), std::move(title));
}

void MenuManager::openRaindropWeb() {
    open(m_environment.webApp);
}

void MenuManager::openBookmark(QAction* item) {
    if (const auto bookmark = bookmarkOf(item))
        open(bookmark->link);
}

void MenuManager::copyBookmark(QAction* item) {
    if (const auto bookmark = bookmarkOf(item))
        copy(bookmark->link);
}

void MenuManager::copyMarkdown(QAction* item) {
    const auto bookmark = bookmarkOf(item);
    if (!bookmark)
        return;
    // The whole title, nothing escaped.
    const QString label = bookmark->title.isEmpty() ? bookmark->link : bookmark->title;
    copy(u"["_s + label + u"]("_s + bookmark->link + u")"_s);
}

void MenuManager::editInRaindrop(QAction* item) {
    if (const auto bookmark = bookmarkOf(item))
        open(m_environment.webApp + u"/my/"_s + QString::number(bookmark->collectionId) +
             u"/item/"_s + QString::number(bookmark->id) + u"/edit"_s);
}

void MenuManager::toggleFavourite(QAction* item) {
    if (const auto bookmark = bookmarkOf(item))
        setFavourite(m_api, bookmark->id, !bookmark->important);
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
