// Quillmar as a person meets it: the whole program (the same objects as main, with the
// bookmark service, the web pages and the update manifest played by servers on 127.0.0.1) on a
// virtual X display with a real XEmbed tray host, driven by real pointer and key input through
// XTest (xdotool) and the X clipboard (xclip). Every step saves a screenshot under the build
// folder (screenshots/tst_x11_EndToEnd/); the README's pictures are its *-detail.png files. The
// settings window shows the real web application's name and a made-up token of the service's
// shape, in light and, after the desktop's settings portal turns dark, in dark.

#include "ChildProcess.h"
#include "FakeRaindropService.h"
#include "FakeSettingsPortal.h"
#include "TestHttpServer.h"
#include "VirtualDesktop.h"

#include "app/AppDelegate.h"
#include "app/desktop/ColorSchemeFollower.h"
#include "config/AppConfig.h"
#include "settings/GeneralTab.h"
#include "settings/PinRow.h"
#include "settings/RecorderControl.h"
#include "settings/SettingsView.h"
#include "settings/SettingsWindowController.h"

#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QImage>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QTabBar>
#include <QTabWidget>
#include <QTemporaryFile>
#include <QTimer>
#include <QtTest>

#include <memory>

using namespace std::chrono_literals;

namespace {

// Made up, in the shape of the service's test tokens (a UUID): the screenshots show it.
const QString token = QStringLiteral("8d3f2c71-5b9e-4a06-9c4e-2f7d1b6a0e93");
constexpr qint64 workId = 11;
constexpr qint64 readingId = 12;
constexpr qint64 recipesId = 13;

QStringList xdotool(const QStringList& arguments) {
    const auto result = ChildProcess::run(QStringList{QStringLiteral("xdotool")} + arguments);
    if (result.exitCode != 0)
        return {};
    return QString::fromUtf8(result.output).split(u'\n', Qt::SkipEmptyParts);
}

// A window's geometry from the X server, as an outside client sees it.
QRect windowGeometry(const QString& window) {
    QRect geometry;
    for (const QString& line :
         xdotool({QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), window})) {
        const QString name = line.section(u'=', 0, 0);
        const int value = line.section(u'=', 1).toInt();
        if (name == QStringLiteral("X"))
            geometry.moveLeft(value);
        else if (name == QStringLiteral("Y"))
            geometry.moveTop(value);
        else if (name == QStringLiteral("WIDTH"))
            geometry.setWidth(value);
        else if (name == QStringLiteral("HEIGHT"))
            geometry.setHeight(value);
    }
    return geometry;
}

void moveTo(QPoint at) {
    xdotool({QStringLiteral("mousemove"), QStringLiteral("--sync"), QString::number(at.x()),
             QString::number(at.y())});
}

void click(QPoint at) {
    moveTo(at);
    xdotool({QStringLiteral("click"), QStringLiteral("1")});
}

void pressKeys(const QString& keys) {
    xdotool({QStringLiteral("key"), keys});
}

QPoint centreOf(const QWidget* widget) {
    return widget->mapToGlobal(widget->rect().center());
}

QPoint centreOf(const QMenu* menu, const QAction* action) {
    return menu->mapToGlobal(menu->actionGeometry(const_cast<QAction*>(action)).center());
}

// A menu entry's text as drawn ("&&" is a plain "&").
QString shown(const QAction* action) {
    QString text = action->text();
    return text.replace(QStringLiteral("&&"), QStringLiteral("&"));
}

QStringList shownLabels(const QMenu* menu) {
    QStringList labels;
    for (const QAction* action : menu->actions())
        labels.append(action->isSeparator() ? QStringLiteral("---") : shown(action));
    return labels;
}

QAction* entry(const QMenu* menu, const QString& label) {
    for (QAction* action : menu->actions())
        if (!action->isSeparator() && shown(action) == label)
            return action;
    return nullptr;
}

// Whether the X server holds an icon for the window, as title bars and task bars read it.
bool hasWindowIcon(const QWidget* window) {
    const auto result =
        ChildProcess::run({QStringLiteral("xprop"), QStringLiteral("-id"),
                           QString::number(window->winId()), QStringLiteral("_NET_WM_ICON")});
    return result.exitCode == 0 && result.output.contains("_NET_WM_ICON(CARDINAL) = ");
}

QString xclipboard() {
    // Read by an outside client; the events processed meanwhile let this program answer.
    return QString::fromUtf8(
        ChildProcess::run({QStringLiteral("xclip"), QStringLiteral("-selection"),
                           QStringLiteral("clipboard"), QStringLiteral("-o")})
            .output);
}

} // namespace

// Stands in for the browser: no test opens a real address.
class Browser : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
public Q_SLOTS:
    void open(const QUrl& url) { opened.append(url); }
};

class tst_x11_EndToEnd : public QObject {
    Q_OBJECT
public:
    static void initMain() { VirtualDesktop::startShared({.trayHost = true}); }

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void firstRunShowsDropAndSetupMenu();
    void settingsTakeTokenPinsAndShortcut();
    void menuIsRebuiltWithoutRestart();
    void pinnedOpensFromCacheAndCollectionLoadsOnOpen();
    void copyUrlReachesXClipboard();
    void clipboardAddressBecomesBookmark();
    void clipboardItemFollowsEveryCopy();
    void hotKeyOpensMenu();
    void checkForUpdatesShowsAlert();

private:
    // Saves the whole screen as name.png, and with a detail also that part of it alone as
    // name-detail.png; false when that does not work.
    bool screenshot(const QString& name, QRect detail = {});
    // The open menus and the drop, with a margin.
    QRect menusArea();
    std::optional<QRect> trayIcon();
    // Clicks the drop in the tray and waits for the attached menu to open.
    QMenu* openMenuByClick();
    void closeMenus();
    // Puts text on the X clipboard from an outside client that stays its owner.
    bool copyFromOutside(const QString& text);
    SettingsView* settingsWindow() const;

    // Switches the desktop's colour scheme and waits until the settings window shows it.
    bool preferDark(bool dark);

    QString m_screenshots;
    Browser m_browser;
    std::unique_ptr<FakeSettingsPortal> m_portal;
    std::unique_ptr<FakeRaindropService> m_service;
    TestHttpServer m_pages;
    TestHttpServer m_manifest;
    std::unique_ptr<AppDelegate> m_app;
    ChildProcess m_clipboardOwner;
    QTemporaryFile m_clipboardText;
};

void tst_x11_EndToEnd::initTestCase() {
    m_screenshots =
        QCoreApplication::applicationDirPath() + QStringLiteral("/screenshots/tst_x11_EndToEnd");
    QDir(m_screenshots).removeRecursively();
    QVERIFY(QDir().mkpath(m_screenshots));
    QFile::remove(AppConfig::filePath());

    m_service = std::make_unique<FakeRaindropService>(token);
    m_service->addCollection(workId, QStringLiteral("Work"));
    m_service->addCollection(readingId, QStringLiteral("Reading & Notes_2024"));
    m_service->addCollection(recipesId, QStringLiteral("Recipes"));
    const QString pages = m_pages.baseUrl();
    m_service->addBookmark({101,
                            QStringLiteral("Tom & Jerry_2"),
                            pages + QStringLiteral("/tom"),
                            workId,
                            true,
                            {QStringLiteral("fun")}});
    m_service->addBookmark({102,
                            QStringLiteral("Second work item"),
                            pages + QStringLiteral("/work"),
                            workId,
                            false,
                            {}});
    m_service->addBookmark({103,
                            QStringLiteral("Notes page"),
                            pages + QStringLiteral("/notes"),
                            readingId,
                            false,
                            {QStringLiteral("later")}});
    m_service->addBookmark({104,
                            QStringLiteral("Pancakes"),
                            pages + QStringLiteral("/pancakes"),
                            recipesId,
                            false,
                            {QStringLiteral("fun"), QStringLiteral("food")}});
    // A list from the service takes a moment, as over the internet; one from the cache does not.
    m_service->setListDelay(600ms);

    m_pages.on("GET", QStringLiteral("/article"),
               {200,
                "<!doctype html><html><head><title>Example &amp; Page</title></head>"
                "<body>An article</body></html>",
                {{"Content-Type", "text/html; charset=utf-8"}},
                {},
                {}});
    // Up to date until the last step, so that the silent check stays silent.
    m_manifest.on("GET", QStringLiteral("/apps/quillmar/latest.json"),
                  TestHttpServer::Response::json(
                      "{\"version\": \"" + Environment::buildVersion().toUtf8() +
                      "\", \"download_url\": \"" + pages.toUtf8() + "/download\"}"));

    // The desktop's settings portal, with no colour preference to begin with.
    m_portal = std::make_unique<FakeSettingsPortal>(VirtualDesktop::shared().busAddress());
    m_portal->setColorScheme(0, false);
    QVERIFY(m_portal->start());
    QDesktopServices::setUrlHandler(QStringLiteral("https"), &m_browser, "open");
    QDesktopServices::setUrlHandler(QStringLiteral("http"), &m_browser, "open");

    Environment environment;
    environment.apiBase = m_service->apiBase();
    // The real web application's name, as the settings window shows it; the browser above
    // keeps any address from being opened.
    environment.webApp = Environment().webApp;
    environment.updateManifest =
        m_manifest.baseUrl() + QStringLiteral("/apps/quillmar/latest.json");
    m_app = std::make_unique<AppDelegate>(AppEnvironment{environment, {}});
    QTimer::singleShot(0, m_app.get(), &AppDelegate::applicationDidFinishLaunching);
    QTRY_VERIFY(m_app->statusItem());
}

void tst_x11_EndToEnd::cleanupTestCase() {
    closeMenus();
    m_clipboardOwner.stop();
    m_app.reset();
    m_portal.reset();
    QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
    QDesktopServices::unsetUrlHandler(QStringLiteral("http"));
    QFile::remove(AppConfig::filePath());
}

bool tst_x11_EndToEnd::preferDark(bool dark) {
    m_portal->setColorScheme(dark ? 1 : 0);
    SettingsView* window = settingsWindow();
    return QTest::qWaitFor(
        [window, dark] { return ColorSchemeFollower::isDark(window->palette()) == dark; }, 30000);
}

bool tst_x11_EndToEnd::screenshot(const QString& name, QRect detail) {
    // Let the last input's effect reach the screen.
    QTest::qWait(300);
    const QString file = m_screenshots + u'/' + name + QStringLiteral(".png");
    if (ChildProcess::run(
            {QStringLiteral("import"), QStringLiteral("-window"), QStringLiteral("root"), file},
            30s)
            .exitCode != 0)
        return false;
    if (detail.isValid()) {
        detail = detail.intersected(QRect(0, 0, 1280, 800));
        const QString crop = QStringLiteral("%1x%2+%3+%4")
                                 .arg(detail.width())
                                 .arg(detail.height())
                                 .arg(detail.x())
                                 .arg(detail.y());
        if (ChildProcess::run({QStringLiteral("convert"), file, QStringLiteral("-crop"), crop,
                               QStringLiteral("+repage"),
                               m_screenshots + u'/' + name + QStringLiteral("-detail.png")},
                              30s)
                .exitCode != 0)
            return false;
    }
    return QFileInfo(file).size() > 0;
}

QRect tst_x11_EndToEnd::menusArea() {
    QRect area = trayIcon().value_or(QRect());
    for (QWidget* window : QApplication::topLevelWidgets())
        if (qobject_cast<QMenu*>(window) && window->isVisible())
            area = area.united(window->frameGeometry());
    return area.adjusted(-16, 0, 0, 16);
}

std::optional<QRect> tst_x11_EndToEnd::trayIcon() {
    const QString instance = QFileInfo(QCoreApplication::applicationFilePath()).fileName();
    const QStringList trayer = xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                        QStringLiteral("--class"), QStringLiteral("trayer")});
    if (trayer.isEmpty())
        return std::nullopt;
    const QRect tray = windowGeometry(trayer.constFirst());
    // This program's small window inside the tray host's: the drop.
    for (const QString& window : xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                          QStringLiteral("--classname"), instance})) {
        const QRect geometry = windowGeometry(window);
        if (geometry.width() <= 48 && tray.contains(geometry))
            return geometry;
    }
    return std::nullopt;
}

QMenu* tst_x11_EndToEnd::openMenuByClick() {
    const auto icon = trayIcon();
    if (!icon)
        return nullptr;
    click(icon->center());
    QMenu* menu = m_app->statusItem()->menu();
    return QTest::qWaitFor([menu] { return QApplication::activePopupWidget() == menu; }, 30000)
               ? menu
               : nullptr;
}

void tst_x11_EndToEnd::closeMenus() {
    while (QWidget* popup = QApplication::activePopupWidget())
        popup->close();
}

bool tst_x11_EndToEnd::copyFromOutside(const QString& text) {
    m_clipboardOwner.stop();
    if (!m_clipboardText.open())
        return false;
    m_clipboardText.resize(0);
    m_clipboardText.write(text.toUtf8());
    m_clipboardText.flush();
    // -quiet keeps xclip in the foreground, owning the clipboard until it is stopped.
    return m_clipboardOwner.start(
        {QStringLiteral("xclip"), QStringLiteral("-selection"), QStringLiteral("clipboard"),
         QStringLiteral("-quiet"), m_clipboardText.fileName()},
        VirtualDesktop::shared().logDirectory() + QStringLiteral("/xclip.log"));
}

SettingsView* tst_x11_EndToEnd::settingsWindow() const {
    return m_app->settingsWindow()->window();
}

void tst_x11_EndToEnd::firstRunShowsDropAndSetupMenu() {
    // The drop is in the tray host's window.
    QTRY_VERIFY_WITH_TIMEOUT(trayIcon().has_value(), 15000);
    QVERIFY(screenshot(QStringLiteral("01-first-run-tray")));
    // Drawn: the middle of the icon is the drop's blue.
    const QImage screen(m_screenshots + QStringLiteral("/01-first-run-tray.png"));
    const QColor middle = screen.pixelColor(trayIcon()->center() + QPoint(0, 3));
    QVERIFY2(middle.blue() > middle.red() + 80, qPrintable(middle.name()));

    QMenu* menu = openMenuByClick();
    QVERIFY(menu);
    QCOMPARE(shownLabels(menu), QStringList({QStringLiteral("Welcome to Quillmar"),
                                             QStringLiteral("Open Settings to add your API token"),
                                             QStringLiteral("---"), QStringLiteral("Settings…"),
                                             QStringLiteral("Quit")}));
    // Opened below the drop.
    QVERIFY(menu->geometry().top() >= trayIcon()->bottom());
    // A menu is in no title bar or task bar: it carries no icon, which would be drawn and sent
    // to the X server on every opening.
    QVERIFY(!hasWindowIcon(menu));
    QVERIFY(screenshot(QStringLiteral("02-setup-menu"), menusArea()));
}

void tst_x11_EndToEnd::settingsTakeTokenPinsAndShortcut() {
    QMenu* menu = m_app->statusItem()->menu();
    QVERIFY(QApplication::activePopupWidget() == menu || (menu = openMenuByClick()));
    QAction* settings = entry(menu, QStringLiteral("Settings…"));
    QVERIFY(settings);
    click(centreOf(menu, settings));
    QTRY_VERIFY(settingsWindow() && settingsWindow()->isVisible());
    SettingsView* window = settingsWindow();
    QTRY_VERIFY(window->isActiveWindow());
    QVERIFY(hasWindowIcon(window));

    // The token, pasted with the keyboard from the X clipboard.
    QVERIFY(copyFromOutside(token));
    auto* tokenField = window->findChild<QLineEdit*>();
    QVERIFY(tokenField);
    click(centreOf(tokenField));
    QTRY_VERIFY(tokenField->hasFocus());
    pressKeys(QStringLiteral("ctrl+v"));
    QTRY_COMPARE(tokenField->text(), token);

    QPushButton* load = nullptr;
    for (QPushButton* button : window->findChildren<QPushButton*>())
        if (button->text() == QStringLiteral("Load"))
            load = button;
    QVERIFY(load && load->isEnabled());
    click(centreOf(load));
    // Collections and tags are listed; two of them get pinned.
    const auto row = [window](const QString& label) -> PinRow* {
        for (PinRow* candidate : window->findChildren<PinRow*>())
            if (candidate->label() == label && candidate->isVisible())
                return candidate;
        return nullptr;
    };
    QTRY_VERIFY_WITH_TIMEOUT(row(QStringLiteral("Work")) && row(QStringLiteral("#fun")), 10000);
    QVERIFY(row(QStringLiteral("Reading & Notes_2024")));
    QVERIFY(row(QStringLiteral("#later")));
    click(centreOf(row(QStringLiteral("Work"))));
    click(centreOf(row(QStringLiteral("#fun"))));
    QTRY_VERIFY(row(QStringLiteral("Work"))->isPinned() && row(QStringLiteral("#fun"))->isPinned());
    QVERIFY(!row(QStringLiteral("Recipes"))->isPinned());
    QVERIFY(screenshot(QStringLiteral("settings-general"), window->frameGeometry()));

    // A shortcut recorded from real key presses.
    auto* tabs = window->findChild<QTabWidget*>();
    QVERIFY(tabs);
    click(tabs->tabBar()->mapToGlobal(tabs->tabBar()->tabRect(1).center()));
    QTRY_COMPARE(tabs->currentIndex(), 1);
    auto* recorder = window->findChild<RecorderControl*>();
    QVERIFY(recorder);
    QTRY_VERIFY(recorder->isVisible());
    click(centreOf(recorder));
    QTRY_VERIFY(recorder->isRecording());
    pressKeys(QStringLiteral("ctrl+alt+k"));
    // The recorder shows the shortcut in use (R) until the keys reach it.
    QTRY_COMPARE(recorder->shortcut() ? recorder->shortcut()->displayKey : QString(),
                 QStringLiteral("K"));
    QVERIFY(screenshot(QStringLiteral("settings-shortcuts"), window->frameGeometry()));

    // The desktop turns dark: the open window follows, both tabs.
    QVERIFY(preferDark(true));
    QVERIFY(screenshot(QStringLiteral("settings-shortcuts-dark"), window->frameGeometry()));
    const QImage darkShot(m_screenshots + QStringLiteral("/settings-shortcuts-dark.png"));
    const QColor darkBackground = darkShot.pixelColor(window->geometry().topLeft() + QPoint(8, 60));
    QVERIFY2(darkBackground.lightnessF() < 0.3, qPrintable(darkBackground.name()));
    click(tabs->tabBar()->mapToGlobal(tabs->tabBar()->tabRect(0).center()));
    QTRY_COMPARE(tabs->currentIndex(), 0);
    QVERIFY(screenshot(QStringLiteral("settings-general-dark"), window->frameGeometry()));
    QVERIFY(preferDark(false));
    QVERIFY(m_browser.opened.isEmpty());

    QPushButton* save = window->findChild<QPushButton*>(QStringLiteral("saveButton"));
    QVERIFY(save && save->isEnabled());
    click(centreOf(save));
    QTRY_VERIFY(!window->isVisible());
    const AppConfig saved = AppConfig::load();
    QCOMPARE(saved.token, token);
    QCOMPARE(saved.pinnedCollectionIds, QList<qint64>({workId}));
    QCOMPARE(saved.pinnedTags, QStringList({QStringLiteral("fun")}));
    QVERIFY(saved.openMenuShortcut.has_value());
    QVERIFY(screenshot(QStringLiteral("03-settings-saved")));
}

void tst_x11_EndToEnd::menuIsRebuiltWithoutRestart() {
    // The full menu replaces the setup menu once the service has answered.
    QTRY_VERIFY_WITH_TIMEOUT(m_app->statusItem()->menu() &&
                                 entry(m_app->statusItem()->menu(), QStringLiteral("📌 Pinned")),
                             15000);
    QMenu* menu = openMenuByClick();
    QVERIFY(menu);
    QCOMPARE(shownLabels(menu), FakeRaindropService::fullMenuLabels());
    QVERIFY(screenshot(QStringLiteral("menu-full"), menusArea()));
}

void tst_x11_EndToEnd::pinnedOpensFromCacheAndCollectionLoadsOnOpen() {
    QMenu* menu = QApplication::activePopupWidget() == m_app->statusItem()->menu()
                      ? m_app->statusItem()->menu()
                      : openMenuByClick();
    QVERIFY(menu);
    // The warm-up fetched the pinned collection when the menu was built.
    QTRY_COMPARE(m_service->collectionRequests(workId), 1);
    QAction* work = entry(menu, QStringLiteral("Work"));
    QVERIFY(work && work->menu());
    moveTo(centreOf(menu, work));
    QTRY_VERIFY(work->menu()->isVisible());
    QTRY_COMPARE(shownLabels(work->menu()), QStringList({QStringLiteral("Tom & Jerry_2"),
                                                         QStringLiteral("Second work item")}));
    QCOMPARE(m_service->collectionRequests(workId), 1);
    QVERIFY(screenshot(QStringLiteral("menu-pinned"), menusArea()));

    QAction* collections = entry(menu, QStringLiteral("📁 Collections"));
    QVERIFY(collections && collections->menu());
    moveTo(centreOf(menu, collections));
    QTRY_VERIFY(collections->menu()->isVisible());
    QAction* reading = entry(collections->menu(), QStringLiteral("Reading & Notes_2024  (1)"));
    QVERIFY(reading);
    QCOMPARE(m_service->collectionRequests(readingId), 0);
    // Its submenu is made as the pointer reaches it.
    moveTo(centreOf(collections->menu(), reading));
    QTRY_VERIFY(reading->menu() && reading->menu()->isVisible());
    QTRY_COMPARE(m_service->collectionRequests(readingId), 1);
    QTRY_COMPARE(shownLabels(reading->menu()), QStringList({QStringLiteral("Notes page")}));
    QVERIFY(screenshot(QStringLiteral("menu-collection"), menusArea()));
}

void tst_x11_EndToEnd::copyUrlReachesXClipboard() {
    QMenu* menu = QApplication::activePopupWidget() ? m_app->statusItem()->menu() : nullptr;
    if (!menu) {
        closeMenus();
        menu = openMenuByClick();
    }
    QVERIFY(menu);
    QAction* work = entry(menu, QStringLiteral("Work"));
    QVERIFY(work && work->menu());
    moveTo(centreOf(menu, work));
    QTRY_VERIFY(work->menu()->isVisible());
    QAction* bookmark = entry(work->menu(), QStringLiteral("Tom & Jerry_2"));
    QVERIFY(bookmark && bookmark->menu());
    // Along the entry, into the submenu's column, then down to the bookmark.
    moveTo(QPoint(work->menu()->geometry().center().x(), centreOf(menu, work).y()));
    moveTo(centreOf(work->menu(), bookmark));
    QTRY_VERIFY(bookmark->menu()->isVisible());
    QCOMPARE(
        shownLabels(bookmark->menu()),
        QStringList({QStringLiteral("↗ Open"), QStringLiteral("---"), QStringLiteral("⎘ Copy URL"),
                     QStringLiteral("[ ] Copy as Markdown"), QStringLiteral("✎ Edit in Raindrop"),
                     QStringLiteral("---"), QStringLiteral("♥ Remove from Favourites")}));
    QVERIFY(screenshot(QStringLiteral("menu-bookmark"), menusArea()));
    QAction* copy = entry(bookmark->menu(), QStringLiteral("⎘ Copy URL"));
    QVERIFY(copy);
    moveTo(QPoint(bookmark->menu()->geometry().center().x(), centreOf(work->menu(), bookmark).y()));
    click(centreOf(bookmark->menu(), copy));
    QTRY_VERIFY(!QApplication::activePopupWidget());
    QTRY_COMPARE(xclipboard(), m_pages.baseUrl() + QStringLiteral("/tom"));
    QVERIFY(screenshot(QStringLiteral("05-copied")));
}

// The item's state is kept between openings until another program copies: each copy from
// outside is seen at the next opening, with no moment of the old state.
void tst_x11_EndToEnd::clipboardItemFollowsEveryCopy() {
    const auto openedWith = [this](const QString& text) -> std::optional<bool> {
        if (!copyFromOutside(text) || !QTest::qWaitFor([&text] { return xclipboard() == text; }))
            return std::nullopt;
        QMenu* menu = openMenuByClick();
        QAction* add = menu ? entry(menu, QStringLiteral("📋 Add Clipboard URL")) : nullptr;
        if (!add)
            return std::nullopt;
        const bool enabled = add->isEnabled();
        closeMenus();
        return enabled;
    };
    QCOMPARE(openedWith(QStringLiteral("no address here")), std::optional<bool>(false));
    QCOMPARE(openedWith(QStringLiteral("see https://example.com/a")), std::optional<bool>(true));
    QCOMPARE(openedWith(QStringLiteral("see https://example.com/a")), std::optional<bool>(true));
    QCOMPARE(openedWith(QStringLiteral("no address again")), std::optional<bool>(false));
    QCOMPARE(openedWith(QStringLiteral("https://example.com/b")), std::optional<bool>(true));
}

void tst_x11_EndToEnd::clipboardAddressBecomesBookmark() {
    const QString article = m_pages.baseUrl() + QStringLiteral("/article");
    QVERIFY(copyFromOutside(QStringLiteral("Worth reading: ") + article + QStringLiteral(".")));
    QTRY_COMPARE(xclipboard(), QStringLiteral("Worth reading: ") + article + QStringLiteral("."));
    QMenu* menu = openMenuByClick();
    QVERIFY(menu);
    QAction* add = entry(menu, QStringLiteral("📋 Add Clipboard URL"));
    QVERIFY(add);
    QTRY_VERIFY(add->isEnabled());
    QVERIFY(screenshot(QStringLiteral("06-add-clipboard"), menusArea()));
    click(centreOf(menu, add));

    const auto saved = [this, &article]() -> std::optional<FakeRaindropService::Bookmark> {
        for (const auto& bookmark : m_service->bookmarks())
            if (bookmark.link == article)
                return bookmark;
        return std::nullopt;
    };
    QTRY_VERIFY_WITH_TIMEOUT(saved().has_value(), 15000);
    QCOMPARE(saved()->title, QStringLiteral("Example & Page"));
    // The page was read once, as a browser would ask for it.
    const auto reads = m_pages.requestsTo(QStringLiteral("/article"));
    QCOMPARE(reads.size(), 1);
    QVERIFY(reads.constFirst().header("user-agent").startsWith("Mozilla/5.0"));
}

void tst_x11_EndToEnd::hotKeyOpensMenu() {
    closeMenus();
    QTRY_VERIFY(!QApplication::activePopupWidget());
    // The recorded combination, pressed while no window of this program has the keyboard.
    moveTo(QPoint(200, 600));
    pressKeys(QStringLiteral("ctrl+alt+k"));
    QTRY_VERIFY_WITH_TIMEOUT(QApplication::activePopupWidget() == m_app->statusItem()->menu(),
                             10000);
    QVERIFY(screenshot(QStringLiteral("07-hot-key-menu"), menusArea()));
    pressKeys(QStringLiteral("Escape"));
    QTRY_VERIFY(!QApplication::activePopupWidget());
}

void tst_x11_EndToEnd::checkForUpdatesShowsAlert() {
    m_manifest.on("GET", QStringLiteral("/apps/quillmar/latest.json"),
                  TestHttpServer::Response::json("{\"version\": \"9.9.9\", \"download_url\": \"" +
                                                 m_pages.baseUrl().toUtf8() + "/download\"}"));
    QMenu* menu = openMenuByClick();
    QVERIFY(menu);
    QAction* check = entry(menu, QStringLiteral("Check for Updates…"));
    QVERIFY(check);

    // The alert is modal: it is looked at, photographed and answered from within its own loop.
    QString seenTitle;
    QString seenText;
    bool photographed = false;
    bool withIcon = false;
    QTimer watcher;
    connect(&watcher, &QTimer::timeout, this, [&] {
        auto* alert = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!alert || !alert->isVisible())
            return;
        watcher.stop();
        seenTitle = alert->text();
        seenText = alert->informativeText();
        withIcon = hasWindowIcon(alert);
        photographed = screenshot(QStringLiteral("08-update-alert"),
                                  alert->frameGeometry().adjusted(-16, -16, 16, 16));
        for (QAbstractButton* button : alert->buttons())
            if (button->text() == QStringLiteral("Later"))
                click(centreOf(button));
    });
    watcher.start(50);
    click(centreOf(menu, check));
    QTRY_VERIFY_WITH_TIMEOUT(!seenTitle.isEmpty(), 15000);
    QTRY_VERIFY(!QApplication::activeModalWidget());
    QCOMPARE(seenTitle, QStringLiteral("Update Available"));
    QCOMPARE(seenText, QStringLiteral("Quillmar 9.9.9 is available (you have ") +
                           Environment::buildVersion() + QStringLiteral(")."));
    QVERIFY(photographed);
    QVERIFY(withIcon);
}

QTEST_MAIN(tst_x11_EndToEnd)
#include "tst_x11_EndToEnd.moc"
