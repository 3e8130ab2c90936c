// The tray menu as each real panel reads it: the whole program on a private session bus, with
// the panel played by a model of that panel's menu importer (GNOME's AppIndicator extension,
// Plasma, libdbusmenu-glib under Xfce and waybar, libdbusmenu-qt under LXQt).
#include "FakeRaindropService.h"
#include "PrivateSessionBus.h"
#include "TestPanelMenu.h"
#include "TestStatusNotifierHost.h"
#include "TestStatusNotifierWatcher.h"

#include "app/AppDelegate.h"
#include "app/clipboard/ClipboardBackend.h"
#include "app/clipboard/SystemClipboard.h"
#include "config/AppConfig.h"
#include "service/HttpSession.h"

#include <QApplication>
#include <QClipboard>
#include <QGuiApplication>
#include <QMenu>
#include <QNetworkReply>
#include <QPointer>
#include <QScopeGuard>
#include <QtTest>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;
using Habits = TestPanelMenu::Habits;

namespace {
const QString token = u"habits-token"_s;
constexpr qint64 workId = 11;
constexpr qint64 readingId = 12;
const QString readingLabel = u"Reading & Notes_2024  (1)"_s;
} // namespace

Q_DECLARE_METATYPE(TestPanelMenu::Habits)

// A desktop that shows the clipboard only to the program with the keyboard (GNOME on Wayland):
// while the panel's menu holds the keyboard, what this program saw of it last is out of date.
class FocusOnlyClipboard : public ClipboardBackend {
public:
    QString seenLast = u"no address here"_s;
    QString current;

    void setText(const QString& text) override { current = text; }
    std::optional<QString> text() override { return seenLast; }
    void readText(Done done) override { done(current); }
    bool readableInBackground() const override { return false; }
};

class tst_PanelHabits : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void lazySubmenuShowsBookmarksOnFirstOpen_data() { habits(); }
    void lazySubmenuShowsBookmarksOnFirstOpen();
    void clipboardItemFollowsClipboard_data() { habits(); }
    void clipboardItemFollowsClipboard();
    void clipboardChangeWhileMenuOpenIsFollowed_data() { panelsThatTellClosing(); }
    void clipboardChangeWhileMenuOpenIsFollowed();
    void clipboardItemReadsWhenChosenWherePanelMenuHidesClipboard();
    void refreshWaitsForOpenMenuToClose_data() { panelsThatTellClosing(); }
    void refreshWaitsForOpenMenuToClose();
    void quittingPrintsNothing();

private:
    static void habits();
    // The panels that say when their menu closes.
    static void panelsThatTellClosing();
    // The panel, once the full menu is published.
    std::unique_ptr<TestPanelMenu> panel(Habits habits);

    std::unique_ptr<PrivateSessionBus> m_bus;
    std::unique_ptr<TestStatusNotifierWatcher> m_watcher;
    std::unique_ptr<FakeRaindropService> m_service;
    std::unique_ptr<AppDelegate> m_app;
    std::unique_ptr<TestStatusNotifierHost> m_host;
};

void tst_PanelHabits::habits() {
    QTest::addColumn<Habits>("habits");
    QTest::newRow("GNOME") << Habits::Gnome;
    QTest::newRow("Plasma") << Habits::Plasma;
    QTest::newRow("libdbusmenu-glib") << Habits::LibdbusmenuGlib;
    QTest::newRow("libdbusmenu-qt") << Habits::LibdbusmenuQt;
}

void tst_PanelHabits::panelsThatTellClosing() {
    QTest::addColumn<Habits>("habits");
    QTest::newRow("GNOME") << Habits::Gnome;
    QTest::newRow("Plasma") << Habits::Plasma;
    QTest::newRow("libdbusmenu-qt") << Habits::LibdbusmenuQt;
}

void tst_PanelHabits::initTestCase() {
    m_bus = std::make_unique<PrivateSessionBus>();
    QVERIFY(m_bus->start());
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus->address().toUtf8());
    m_watcher = std::make_unique<TestStatusNotifierWatcher>(m_bus->address());
    QVERIFY(m_watcher->start());

    m_service = std::make_unique<FakeRaindropService>(token);
    m_service->addCollection(workId, u"Work"_s);
    m_service->addCollection(readingId, u"Reading & Notes_2024"_s);
    m_service->addBookmark(
        {101, u"Tom & Jerry_2"_s, u"https://example.com/tom"_s, workId, true, {u"fun"_s}});
    m_service->addBookmark(
        {103, u"Notes page"_s, u"https://example.com/notes"_s, readingId, false, {u"later"_s}});
    // Longer than a panel takes to show a submenu: the answer arrives while it is open.
    m_service->setListDelay(std::chrono::milliseconds(300));

    AppConfig config;
    config.token = token;
    config.pinnedCollectionIds = {workId};
    QVERIFY(!config.save());
}

void tst_PanelHabits::cleanupTestCase() {
    // Warm-ups may still be in flight: let them end before the program does.
    QTRY_VERIFY_WITH_TIMEOUT(
        [] {
            const auto replies = HttpSession::shared().findChildren<QNetworkReply*>();
            return std::none_of(replies.begin(), replies.end(),
                                [](const QNetworkReply* reply) { return !reply->isFinished(); });
        }(),
        30000);
    m_service.reset();
    m_watcher.reset();
    m_bus.reset();
    QFile::remove(AppConfig::filePath());
}

void tst_PanelHabits::init() {
    // A program of its own for each panel: nothing loaded, nothing cached.
    Environment environment;
    environment.apiBase = m_service->apiBase();
    environment.webApp = u"http://127.0.0.1:9"_s;
    environment.updateManifest = u"http://127.0.0.1:9/apps/quillmar/latest.json"_s;
    QTRY_VERIFY(m_watcher->items().isEmpty());
    m_app = std::make_unique<AppDelegate>(AppEnvironment{environment, {}});
    m_app->applicationDidFinishLaunching();
    QVERIFY(m_watcher->waitForItem());
    const auto item = m_watcher->items().constFirst();
    m_host = std::make_unique<TestStatusNotifierHost>(m_bus->address());
    QVERIFY(m_host->attach(item.service, item.path));
}

void tst_PanelHabits::cleanup() {
    m_host.reset();
    m_app.reset();
}

std::unique_ptr<TestPanelMenu> tst_PanelHabits::panel(Habits habits) {
    // The panel meets the program once its full menu is up.
    if (!QTest::qWaitFor([this] {
            const auto menu = m_host->layout(0, 1);
            return menu && menu->shownLabels().contains(u"📌 Pinned"_s);
        }))
        return nullptr;
    auto panel = std::make_unique<TestPanelMenu>(*m_host, habits);
    if (!panel->start())
        return nullptr;
    return panel;
}

void tst_PanelHabits::lazySubmenuShowsBookmarksOnFirstOpen() {
    QFETCH(Habits, habits);
    const auto panel = this->panel(habits);
    QVERIFY(panel);
    QVERIFY(panel->open(0));
    const int collections = panel->find(u"📁 Collections"_s);
    QVERIFY(collections > 0);
    QVERIFY(panel->open(collections));
    const int reading = panel->find(readingLabel);
    QVERIFY(reading > 0);
    const int requestsBefore = m_service->collectionRequests(readingId);
    if (habits == Habits::Plasma) {
        // This panel shows a submenu at once, placed beside its menu by the size it has then:
        // told to, it reads the stand-in of one made on demand before the user gets there.
        QTRY_COMPARE((panel->follow(), panel->shownLabels(reading)), QStringList({u"Loading…"_s}));
    }

    QVERIFY2(panel->open(reading), qPrintable(panel->errors().join(u", "_s)));
    QTRY_COMPARE((panel->follow(), panel->shownLabels(reading)), QStringList({u"Notes page"_s}));
    // Shown open all along: neither rebuilt nor closed under the user, and loaded once.
    QCOMPARE(panel->collapses(), 0);
    QCOMPARE(m_service->collectionRequests(readingId), requestsBefore + 1);
    if (habits == Habits::LibdbusmenuQt) {
        // This panel waits for the answer: it shows the bookmarks from the start.
        QCOMPARE(panel->shownWhenOpened(reading), QStringList({u"Notes page"_s}));
    }
    if (habits == Habits::Plasma)
        QCOMPARE(panel->shownWhenOpened(reading), QStringList({u"Loading…"_s}));

    // Opened again while fresh: no request, the same bookmarks.
    QVERIFY(panel->close(reading));
    QVERIFY(panel->open(reading));
    QVERIFY(panel->follow());
    QCOMPARE(panel->shownLabels(reading), QStringList({u"Notes page"_s}));
    QCOMPARE(m_service->collectionRequests(readingId), requestsBefore + 1);
    QVERIFY(panel->errors().isEmpty());
}

void tst_PanelHabits::clipboardItemFollowsClipboard() {
    QFETCH(Habits, habits);
    QGuiApplication::clipboard()->clear();
    const auto panel = this->panel(habits);
    QVERIFY(panel);
    const int add = panel->find(u"📋 Add Clipboard URL"_s);
    QVERIFY(add > 0);
    QVERIFY(!panel->isEnabled(add));

    QGuiApplication::clipboard()->setText(u"see https://example.com/new, later"_s);
    QVERIFY(panel->open(0));
    QTRY_VERIFY((panel->follow(), panel->isEnabled(add)));
    QVERIFY(panel->close(0));

    QGuiApplication::clipboard()->setText(u"no address here"_s);
    QVERIFY(panel->open(0));
    QTRY_VERIFY((panel->follow(), !panel->isEnabled(add)));
    QVERIFY(panel->close(0));
    QVERIFY(panel->errors().isEmpty());
}

void tst_PanelHabits::clipboardChangeWhileMenuOpenIsFollowed() {
    // Copying while the panel's menu is open (or a change told only after it opened).
    QFETCH(Habits, habits);
    QGuiApplication::clipboard()->setText(u"no address here"_s);
    const auto panel = this->panel(habits);
    QVERIFY(panel);
    const int add = panel->find(u"📋 Add Clipboard URL"_s);
    QVERIFY(add > 0);
    QVERIFY(panel->open(0));
    QTRY_VERIFY((panel->follow(), !panel->isEnabled(add)));
    QGuiApplication::clipboard()->setText(u"see https://example.com/new, later"_s);
    QTRY_VERIFY((panel->follow(), panel->isEnabled(add)));
    QVERIFY(panel->close(0));
    QVERIFY(panel->errors().isEmpty());
}

void tst_PanelHabits::clipboardItemReadsWhenChosenWherePanelMenuHidesClipboard() {
    // The program of this test sees the clipboard as such a desktop shows it.
    cleanup();
    auto* clipboard = new FocusOnlyClipboard;
    SystemClipboard::setBackend(clipboard);
    const auto restore = qScopeGuard([] { SystemClipboard::setBackend(nullptr); });
    init();
    if (QTest::currentTestFailed())
        return;
    const QString link = u"http://127.0.0.1:9/from-the-panel"_s;
    clipboard->current = u"see "_s + link + u", later"_s;

    const auto panel = this->panel(Habits::Gnome);
    QVERIFY(panel);
    const int add = panel->find(u"📋 Add Clipboard URL"_s);
    QVERIFY(add > 0);
    QVERIFY(panel->open(0));
    QTRY_VERIFY((panel->follow(), panel->isEnabled(add)));
    // Chosen, it reads the clipboard as it is now and saves its address.
    QVERIFY(m_host->event(add, u"clicked"_s));
    QVERIFY(panel->close(0));
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            const auto saved = m_service->bookmarks();
            return std::any_of(saved.cbegin(), saved.cend(),
                               [&](const auto& bookmark) { return bookmark.link == link; });
        }(),
        15000);
    QVERIFY(panel->errors().isEmpty());
}

void tst_PanelHabits::refreshWaitsForOpenMenuToClose() {
    QFETCH(Habits, habits);
    const auto panel = this->panel(habits);
    QVERIFY(panel);
    QVERIFY(panel->open(0));
    const int settings = panel->find(u"Settings…"_s);
    const int work = panel->find(u"Work"_s);
    const QStringList shown = panel->shownLabels(0);
    const QPointer<QMenu> open = m_app->statusItem()->menu();
    const qsizetype entries = open->actions().size();
    const int favourites = m_service->favouritesRequests();

    m_app->menuManager()->refresh();
    QVERIFY(panel->follow());
    // Nothing happens while the user reads the menu.
    QCOMPARE(m_app->statusItem()->menu(), open);
    QCOMPARE(m_service->favouritesRequests(), favourites);
    QCOMPARE(panel->shownLabels(0), shown);

    QVERIFY(panel->close(0));
    QTRY_COMPARE(m_service->favouritesRequests(), favourites + 1);
    QTRY_VERIFY(m_app->statusItem()->menu() != open &&
                m_app->statusItem()->menu()->actions().size() == entries);
    QTRY_COMPARE((panel->follow(), panel->shownLabels(0)), shown);
    // The same entries keep their ids: the panel updates what it shows in place.
    QCOMPARE(panel->find(u"Settings…"_s), settings);
    QCOMPARE(panel->find(u"Work"_s), work);
    QVERIFY(panel->errors().isEmpty());
}

namespace {
QStringList printed;
void collect(QtMsgType, const QMessageLogContext&, const QString& message) {
    printed.append(message);
}
} // namespace

void tst_PanelHabits::quittingPrintsNothing() {
    const auto panel = this->panel(Habits::Gnome);
    QVERIFY(panel);
    const int reading = panel->find(readingLabel);
    QVERIFY(panel->open(0));
    QVERIFY(panel->open(panel->find(u"📁 Collections"_s)));
    QVERIFY(panel->open(reading));
    const int quit = panel->find(u"Quit Quillmar"_s);
    QVERIFY(quit > 0);

    printed.clear();
    const QtMessageHandler previous = qInstallMessageHandler(collect);
    // Chosen in the panel's menu while the program runs, as a user quits; then the program
    // ends as main() ends it.
    QTimer::singleShot(0, this, [this, quit] { m_host->event(quit, u"clicked"_s); });
    QTimer::singleShot(10000, [] { QCoreApplication::exit(1); });
    const int code = QApplication::exec();
    m_host.reset();
    m_app.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    qInstallMessageHandler(previous);
    QCOMPARE(code, 0);
    QCOMPARE(printed, QStringList());
}

QTEST_MAIN(tst_PanelHabits)
#include "tst_PanelHabits.moc"
