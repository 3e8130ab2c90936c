// The tray icon on desktops whose panel draws the menu itself (KDE Plasma, GNOME with the
// AppIndicator extension, Xfce, ...): a StatusNotifierItem with its menu exported over
// com.canonical.dbusmenu. The test plays the panel on a private session bus.

#include "AlertCatcher.h"
#include "FakeRaindropService.h"
#include "RoundTrip.h"
#include "TestStatusNotifierHost.h"
#include "TestStatusNotifierWatcher.h"
#include "VirtualDesktop.h"

#include "app/AppDelegate.h"
#include "config/AppConfig.h"
#include "config/SettingsNotifier.h"
#include "service/HttpSession.h"

#include <QApplication>
#include <QClipboard>
#include <QDBusArgument>
#include <QMenu>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QtTest>

#include <algorithm>
#include <memory>

using Node = TestStatusNotifierHost::MenuNode;

namespace {
const QString token = QStringLiteral("sni-test-token");
constexpr qint64 workId = 11;
constexpr qint64 readingId = 12;
} // namespace

class tst_x11_StatusNotifierItem : public QObject {
    Q_OBJECT
public:
    static void initMain() { VirtualDesktop::startShared({.trayHost = false}); }

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void registersItemWithWatcher();
    void exportsSetupMenu();
    void leftClickOpensMenuAtPointer();
    void contextMenuCallOpensMenu();
    void savedSettingsReplaceExportedMenu();
    void labelsShowExactlyAsSent();
    void aboutToShowFillsLazySubmenu();
    void warmedPinnedSubmenuIsFilledAtOnce();
    void hoveredEventPrefetches();
    void clickedEventTriggersAction();
    void aboutToShowOfMenuRefreshesClipboardItem();
    void registersAgainWhenWatcherRestarts();

private:
    // The exported menu once it shows label among its top-level items.
    std::optional<Node> waitForMenuWith(const QString& label);

    std::unique_ptr<TestStatusNotifierWatcher> m_watcher;
    std::unique_ptr<TestStatusNotifierHost> m_host;
    std::unique_ptr<FakeRaindropService> m_service;
    std::unique_ptr<AppDelegate> m_app;
    AlertCatcher m_alerts;
};

void tst_x11_StatusNotifierItem::initTestCase() {
    QFile::remove(AppConfig::filePath());
    const QString bus = VirtualDesktop::shared().busAddress();
    m_watcher = std::make_unique<TestStatusNotifierWatcher>(bus);
    QVERIFY(m_watcher->start());

    m_service = std::make_unique<FakeRaindropService>(token);
    m_service->addCollection(workId, QStringLiteral("Work"));
    m_service->addCollection(readingId, QStringLiteral("Reading & Notes_2024"));
    m_service->addBookmark({101,
                            QStringLiteral("Tom & Jerry_2"),
                            QStringLiteral("https://example.com/tom"),
                            workId,
                            true,
                            {QStringLiteral("fun")}});
    m_service->addBookmark({102,
                            QStringLiteral("Second work item"),
                            QStringLiteral("https://example.com/work2"),
                            workId,
                            false,
                            {}});
    m_service->addBookmark({103,
                            QStringLiteral("Notes page"),
                            QStringLiteral("https://example.com/notes"),
                            readingId,
                            false,
                            {QStringLiteral("later")}});
    // Long enough for "Loading…" to be seen before the bookmarks replace it.
    m_service->setListDelay(std::chrono::milliseconds(300));

    Environment environment;
    environment.apiBase = m_service->apiBase();
    environment.webApp = QStringLiteral("http://127.0.0.1:9");
    environment.updateManifest = QStringLiteral("http://127.0.0.1:9/apps/quillmar/latest.json");
    m_app = std::make_unique<AppDelegate>(AppEnvironment{environment, {}});
    m_app->applicationDidFinishLaunching();

    QVERIFY(m_watcher->waitForItem());
    const auto item = m_watcher->items().constFirst();
    m_host = std::make_unique<TestStatusNotifierHost>(bus);
    QVERIFY(m_host->attach(item.service, item.path));
}

void tst_x11_StatusNotifierItem::cleanupTestCase() {
    m_app.reset();
    // Warm-ups and prefetches may still be in flight: let them end before the program does, or
    // Qt's HTTP layer leaves them half torn down at exit.
    QTRY_VERIFY_WITH_TIMEOUT(
        [] {
            const auto replies = HttpSession::shared().findChildren<QNetworkReply*>();
            return std::none_of(replies.begin(), replies.end(),
                                [](const QNetworkReply* reply) { return !reply->isFinished(); });
        }(),
        30000);
    m_host.reset();
    m_watcher.reset();
    QFile::remove(AppConfig::filePath());
}

void tst_x11_StatusNotifierItem::registersItemWithWatcher() {
    QCOMPARE(m_watcher->items().size(), 1);
    QCOMPARE(m_host->itemProperty(QStringLiteral("Title")).toString(), QStringLiteral("Quillmar"));
    QCOMPARE(m_host->itemProperty(QStringLiteral("Status")).toString(), QStringLiteral("Active"));
    QCOMPARE(m_host->itemProperty(QStringLiteral("Category")).toString(),
             QStringLiteral("ApplicationStatus"));
    // A left click is an activation that the program answers itself.
    QCOMPARE(m_host->itemProperty(QStringLiteral("ItemIsMenu")).toBool(), false);

    // The drop, as pixmaps the panel can draw without an icon theme.
    const QDBusArgument pixmaps =
        m_host->itemProperty(QStringLiteral("IconPixmap")).value<QDBusArgument>();
    int images = 0;
    pixmaps.beginArray();
    while (!pixmaps.atEnd()) {
        int width = 0;
        int height = 0;
        QByteArray data;
        pixmaps.beginStructure();
        pixmaps >> width >> height >> data;
        pixmaps.endStructure();
        QVERIFY(width > 0);
        QCOMPARE(data.size(), qsizetype(width) * height * 4);
        ++images;
    }
    pixmaps.endArray();
    QVERIFY(images > 0);
}

void tst_x11_StatusNotifierItem::exportsSetupMenu() {
    const auto menu = m_host->layout();
    QVERIFY(menu);
    QCOMPARE(
        menu->shownLabels(),
        QStringList({QStringLiteral("Welcome to Quillmar"),
                     QStringLiteral("Open Settings to add your API token"), QStringLiteral("---"),
                     QStringLiteral("Settings…"), QStringLiteral("Quit")}));
    QCOMPARE(menu->children[0].isEnabled(), false);
    QCOMPARE(menu->children[1].isEnabled(), false);
    QCOMPARE(menu->children[3].isEnabled(), true);
    QCOMPARE(menu->children[4].isEnabled(), true);
}

void tst_x11_StatusNotifierItem::leftClickOpensMenuAtPointer() {
    QMenu* menu = m_app->statusItem()->menu();
    QVERIFY(menu);
    QVERIFY(m_host->activate(QPoint(1200, 12)));
    QTRY_COMPARE(QApplication::activePopupWidget(), menu);
    // Beside the point the panel gave, on screen.
    QVERIFY(QRect(QPoint(900, 0), QSize(380, 60)).contains(menu->geometry().topLeft()));
    menu->hide();
    QTRY_VERIFY(!QApplication::activePopupWidget());
}

void tst_x11_StatusNotifierItem::contextMenuCallOpensMenu() {
    // Panels that draw no menus ask the program to show its own.
    QMenu* menu = m_app->statusItem()->menu();
    QVERIFY(m_host->contextMenu(QPoint(1200, 12)));
    QTRY_COMPARE(QApplication::activePopupWidget(), menu);
    menu->hide();
    QTRY_VERIFY(!QApplication::activePopupWidget());
}

std::optional<Node> tst_x11_StatusNotifierItem::waitForMenuWith(const QString& label) {
    // Panels read the layout again when told that it changed.
    for (int attempt = 0; attempt < 50; ++attempt) {
        const qsizetype seen = m_host->layoutUpdates().size();
        const auto menu = m_host->layout();
        if (menu && menu->shownLabels().contains(label))
            return menu;
        if (!m_host->waitForLayoutUpdate(seen))
            return std::nullopt;
    }
    return std::nullopt;
}

void tst_x11_StatusNotifierItem::savedSettingsReplaceExportedMenu() {
    QGuiApplication::clipboard()->clear();
    AppConfig config;
    config.token = token;
    config.pinnedCollectionIds = {workId};
    config.pinnedTags = {QStringLiteral("fun")};
    QVERIFY(!config.save());
    const qsizetype updatesBefore = m_host->layoutUpdates().size();
    SettingsNotifier::instance().post();

    // The panel learns of every new menu through a layout update of the whole menu.
    const auto menu = waitForMenuWith(QStringLiteral("📌 Pinned"));
    QVERIFY(menu);
    QVERIFY(m_host->layoutUpdates().size() > updatesBefore);
    QCOMPARE(m_host->layoutUpdates().constLast().second, 0);
    QCOMPARE(menu->shownLabels(), FakeRaindropService::fullMenuLabels());

    QStringList enabled;
    for (const Node& child : menu->children)
        if (!child.isSeparator() && child.isEnabled())
            enabled.append(child.shownLabel());
    QCOMPARE(enabled,
             QStringList({QStringLiteral("🕐 Recent"), QStringLiteral("🌐 Open Raindrop Web"),
                          QStringLiteral("Tom & Jerry_2"), QStringLiteral("Work"),
                          QStringLiteral("#fun"), QStringLiteral("📁 Collections"),
                          QStringLiteral("🏷 Tags"), QStringLiteral("Settings…"),
                          QStringLiteral("Refresh"), QStringLiteral("Check for Updates…"),
                          QStringLiteral("Quit Quillmar")}));
    const Node* collections = menu->find(QStringLiteral("📁 Collections"));
    QVERIFY(collections && collections->hasSubmenu());
    QCOMPARE(collections->shownLabels(),
             QStringList({QStringLiteral("Reading & Notes_2024  (1)")}));
    QCOMPARE(collections->children[0].shownLabels(), QStringList({QStringLiteral("Loading…")}));
    QCOMPARE(collections->children[0].children[0].isEnabled(), false);
    const Node* tags = menu->find(QStringLiteral("🏷 Tags"));
    QVERIFY(tags);
    QCOMPARE(tags->shownLabels(), QStringList({QStringLiteral("#later  (1)")}));
}

void tst_x11_StatusNotifierItem::labelsShowExactlyAsSent() {
    const auto menu = m_host->layout();
    QVERIFY(menu);
    const Node* favourite = menu->find(QStringLiteral("Tom & Jerry_2"));
    QVERIFY(favourite);
    // The menu protocol marks mnemonics with "_" and writes an underscore as "__"; "&" is
    // plain text there.
    QCOMPARE(favourite->label(), QStringLiteral("Tom & Jerry__2"));
    QCOMPARE(
        favourite->shownLabels(),
        QStringList({QStringLiteral("↗ Open"), QStringLiteral("---"), QStringLiteral("⎘ Copy URL"),
                     QStringLiteral("[ ] Copy as Markdown"), QStringLiteral("✎ Edit in Raindrop"),
                     QStringLiteral("---"), QStringLiteral("♥ Remove from Favourites")}));
    const Node* reading = menu->find(QStringLiteral("Reading & Notes_2024  (1)"));
    QVERIFY(reading);
    QCOMPARE(reading->label(), QStringLiteral("Reading & Notes__2024  (1)"));
}

void tst_x11_StatusNotifierItem::aboutToShowFillsLazySubmenu() {
    auto menu = m_host->layout();
    QVERIFY(menu);
    const Node* reading = menu->find(QStringLiteral("Reading & Notes_2024  (1)"));
    QVERIFY(reading);
    const int readingItem = reading->id;
    QCOMPARE(m_service->collectionRequests(readingId), 0);

    const qsizetype updatesBefore = m_host->layoutUpdates().size();
    // The answer waits for the bookmarks (the service takes 300 ms), so that the panel shows
    // them the first time, and tells the panel to read the submenu again.
    QCOMPARE(m_host->aboutToShow(readingItem), std::optional<bool>(true));
    auto submenu = m_host->layout(readingItem);
    QVERIFY(submenu);
    QCOMPARE(submenu->shownLabels(), QStringList({QStringLiteral("Notes page")}));
    // Panels that wait for signals hear of it too.
    QVERIFY(m_host->waitForLayoutUpdate(updatesBefore));
    QCOMPARE(m_host->layoutUpdates().constLast().second, readingItem);
    QCOMPARE(m_service->collectionRequests(readingId), 1);
    QVERIFY(m_host->event(readingItem, QStringLiteral("closed")));

    // Opened again while fresh: no request, nothing changes.
    QCOMPARE(m_host->aboutToShow(readingItem), std::optional<bool>(false));
    roundTrip(m_app->menuManager()->api());
    QCOMPARE(m_service->collectionRequests(readingId), 1);
    QVERIFY(m_host->event(readingItem, QStringLiteral("closed")));
}

void tst_x11_StatusNotifierItem::warmedPinnedSubmenuIsFilledAtOnce() {
    // The pinned collection was fetched when the menu was built: its submenu is filled from the
    // cache while the panel asks, and the answer tells the panel to read it again.
    QTRY_COMPARE(m_service->collectionRequests(workId), 1);
    const auto menu = m_host->layout();
    QVERIFY(menu);
    const Node* work = menu->find(QStringLiteral("Work"));
    QVERIFY(work);
    QCOMPARE(work->shownLabels(), QStringList({QStringLiteral("Loading…")}));
    QCOMPARE(m_host->aboutToShow(work->id), std::optional<bool>(true));
    const auto submenu = m_host->layout(work->id);
    QVERIFY(submenu);
    QCOMPARE(submenu->shownLabels(),
             QStringList({QStringLiteral("Tom & Jerry_2"), QStringLiteral("Second work item")}));
    QCOMPARE(m_service->collectionRequests(workId), 1);
    QVERIFY(m_host->event(work->id, QStringLiteral("closed")));
}

void tst_x11_StatusNotifierItem::hoveredEventPrefetches() {
    const auto menu = m_host->layout();
    QVERIFY(menu);
    const Node* recent = menu->find(QStringLiteral("🕐 Recent"));
    QVERIFY(recent);
    QCOMPARE(m_service->recentRequests(), 0);
    QVERIFY(m_host->aboutToShow(0));
    QVERIFY(m_host->event(recent->id, QStringLiteral("hovered")));
    // Kept highlighted for the hover delay, the submenu's bookmarks are fetched without it
    // being opened.
    QTRY_COMPARE_WITH_TIMEOUT(m_service->recentRequests(), 1, 5000);
    const auto submenu = m_host->layout(recent->id);
    QVERIFY(submenu);
    QCOMPARE(submenu->shownLabels(), QStringList({QStringLiteral("Loading…")}));
    QVERIFY(m_host->event(0, QStringLiteral("closed")));
}

void tst_x11_StatusNotifierItem::clickedEventTriggersAction() {
    const auto menu = m_host->layout();
    QVERIFY(menu);
    const Node* favourite = menu->find(QStringLiteral("Tom & Jerry_2"));
    QVERIFY(favourite);
    const Node* copy = favourite->find(QStringLiteral("⎘ Copy URL"));
    QVERIFY(copy);
    QVERIFY(m_host->event(copy->id, QStringLiteral("clicked")));
    QTRY_COMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("https://example.com/tom"));
}

void tst_x11_StatusNotifierItem::aboutToShowOfMenuRefreshesClipboardItem() {
    QGuiApplication::clipboard()->setText(QStringLiteral("read https://example.com/new, later"));
    const int propertyUpdatesBefore = m_host->propertyUpdates();
    const qsizetype layoutUpdatesBefore = m_host->layoutUpdates().size();
    const auto needsUpdate = m_host->aboutToShow(0);
    QVERIFY(needsUpdate);
    // The panel learns of the change from the answer or from a signal.
    QTRY_VERIFY(*needsUpdate || m_host->propertyUpdates() > propertyUpdatesBefore ||
                m_host->layoutUpdates().size() > layoutUpdatesBefore);
    const auto menu = m_host->layout();
    QVERIFY(menu);
    QCOMPARE(menu->children[0].shownLabel(), QStringLiteral("📋 Add Clipboard URL"));
    QCOMPARE(menu->children[0].isEnabled(), true);
    QVERIFY(m_host->event(0, QStringLiteral("closed")));
}

void tst_x11_StatusNotifierItem::registersAgainWhenWatcherRestarts() {
    // The panel restarts (a crash, a new session of the shell).
    m_watcher->stop();
    QVERIFY(m_watcher->start());
    QVERIFY(m_watcher->waitForItem());
    const auto item = m_watcher->items().constFirst();
    m_host.reset();
    m_host = std::make_unique<TestStatusNotifierHost>(VirtualDesktop::shared().busAddress());
    QVERIFY(m_host->attach(item.service, item.path));
    const auto menu = m_host->layout();
    QVERIFY(menu);
    QCOMPARE(menu->shownLabels(), FakeRaindropService::fullMenuLabels());
}

QTEST_MAIN(tst_x11_StatusNotifierItem)
#include "tst_x11_StatusNotifierItem.moc"
