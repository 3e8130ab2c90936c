// Quillmar in a real sway 1.7 session with waybar 0.9.17 as its bar and tray: the whole program
// (the same objects as main, the bookmark service played on 127.0.0.1) as a Wayland client,
// driven by real pointer input (a virtual pointer) and real keys (wtype), the clipboard read by
// another program (wl-paste), the windows read from sway's own tree. Every step saves a
// screenshot under the build folder (screenshots/tst_wayland_Sway/).

#include "ChildProcess.h"
#include "FakeRaindropService.h"
#include "SwaySession.h"
#include "UnprivilegedUser.h"

#include "app/AppDelegate.h"
#include "app/SingleInstance.h"
#include "app/tray/DBusMenuLayoutItem.h"
#include "app/tray/StatusNotifierItem.h"
#include "config/AppConfig.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCall>
#include <QDBusReply>
#include <QDBusVariant>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QMenu>
#include <QPointer>
#include <QStyleHints>
#include <QtTest>

#include <memory>

using namespace std::chrono_literals;

namespace {

const QString token = QStringLiteral("wayland-token-7c1d");
constexpr qint64 workId = 21;
const QString appId = QStringLiteral("app.quillmar.Quillmar");
const QString favouriteLink = QStringLiteral("https://example.org/tom-and-jerry");
const QString workLink = QStringLiteral("https://example.org/second-work-item");
// Where nothing is: the workspace is empty.
const QPoint emptySpot(200, 600);

// Everything Qt reports while the program runs; a user sees none of it.
QStringList& messages() {
    static QStringList list;
    return list;
}

void collectMessage(QtMsgType type, const QMessageLogContext&, const QString& message) {
    if (type != QtDebugMsg)
        messages().append(message);
}

QString shown(const QAction* action) {
    QString text = action->text();
    return text.replace(QStringLiteral("&&"), QStringLiteral("&"));
}

QAction* entry(const QMenu* menu, const QString& label) {
    for (QAction* action : menu->actions()) {
        if (!action->isSeparator() && shown(action).startsWith(label))
            return action;
    }
    return nullptr;
}

// The menus of this program that are open, the top one first.
QList<QMenu*> openMenus() {
    QList<QMenu*> menus;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (auto* menu = qobject_cast<QMenu*>(widget); menu && menu->isVisible())
            menus.append(menu);
    }
    return menus;
}

// A call to this program's own objects: they answer from its event loop, which runs meanwhile.
QDBusMessage callOwn(const QDBusMessage& message) {
    QDBusPendingCall call = QDBusConnection::sessionBus().asyncCall(message);
    if (!QTest::qWaitFor([&] { return call.isFinished(); }, 10000))
        return {};
    return call.reply();
}

// The id of the first entry labelled label below item, depth first.
int findId(const DBusMenuLayoutItem& item, const QString& label) {
    if (item.properties.value(QStringLiteral("label")).toString().remove(u'_') ==
        QString(label).remove(u'_'))
        return item.id;
    for (const DBusMenuLayoutItem& child : item.children) {
        if (const int id = findId(child, label); id >= 0)
            return id;
    }
    return -1;
}

} // namespace

class tst_wayland_Sway : public QObject {
    Q_OBJECT
public:
    static void initMain();

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();

    void trayShowsDropWithTooltip();
    void leftClickOpensSmallFloatingMenuWithKeyboard();
    void clickOutsideClosesMenu();
    void submenusOpenAndChoiceCopiesAndCloses();
    void showMenuOnDBusAndSecondStartFromHotKey();
    void clipboardItemFollowsClipboard();
    void copyChosenInPanelMenuReachesClipboard();
    void settingsFromPanelMenuTakeFocus();
    void nothingPrintedInNormalUse();

private:
    bool screenshot(const QString& name);
    // The top menu's window on screen, as sway places it.
    std::optional<QRect> menuWindow() const;
    // Where an entry of an open menu is on screen: its window is placed by sway (the top menu)
    // or beside its parent menu as Qt asked (a submenu).
    QPoint onScreen(const QMenu* menu, const QAction* action) const;
    QMenu* openMenuByClick();
    // A click on the drop in the bar, never so soon after the last one as to make a double click.
    bool clickIcon();
    // Moves the pointer onto an entry of an open menu, until the menu has seen it.
    bool hover(QMenu* menu, QAction* action);
    void closeMenus();
    // The panel's calls: the menu's layout and a click on an entry.
    DBusMenuLayoutItem panelLayout(int parent) const;
    bool panelAboutToShow(int id) const;
    bool panelClick(int id) const;
    QString itemService() const;

    QString m_screenshots;
    std::unique_ptr<FakeRaindropService> m_service;
    std::unique_ptr<SingleInstance> m_instance;
    std::unique_ptr<AppDelegate> m_app;
    QPoint m_icon;
    QElapsedTimer m_lastIconClick;
    int m_step = 0;
};

void tst_wayland_Sway::initMain() {
    const QString screenshots = QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
    UnprivilegedUser::writableFolder(QFileInfo(screenshots).path() +
                                     QStringLiteral("/screenshots/tst_wayland_Sway"));
    UnprivilegedUser::runTestAsUnprivilegedUser();
    // The hot key of a sway user: sway binds it to starting Quillmar, whose second start opens
    // the running one's menu.
    SwaySession::startShared(
        {.configuration = {
             QStringLiteral("bindsym Ctrl+Mod1+r exec %1").arg(QStringLiteral(QUILLMAR_BINARY))}});
    qInstallMessageHandler(collectMessage);
}

void tst_wayland_Sway::initTestCase() {
    m_screenshots =
        QCoreApplication::applicationDirPath() + QStringLiteral("/screenshots/tst_wayland_Sway");
    for (const QString& old : QDir(m_screenshots).entryList(QDir::Files))
        QFile::remove(QDir(m_screenshots).filePath(old));
    qDBusRegisterMetaType<DBusMenuLayoutItem>();
    // As the program names itself to the compositor.
    QApplication::setDesktopFileName(appId);

    m_service = std::make_unique<FakeRaindropService>(token);
    m_service->addCollection(workId, QStringLiteral("Work"));
    m_service->addBookmark({101, QStringLiteral("Tom & Jerry_2"), favouriteLink, workId, true, {}});
    m_service->addBookmark({102, QStringLiteral("Second work item"), workLink, workId, false, {}});
    // A list from the service takes a moment, as over the internet.
    m_service->setListDelay(300ms);

    AppConfig config;
    config.token = token;
    QVERIFY(!config.save().has_value());

    Environment environment;
    environment.apiBase = m_service->apiBase();
    environment.webApp = QStringLiteral("http://127.0.0.1:9");
    environment.updateManifest = QStringLiteral("http://127.0.0.1:9/latest.json");
    // waybar's tray takes items once it has registered as their host.
    QTRY_VERIFY_WITH_TIMEOUT(StatusNotifierItem::isHostAvailable(), 20000);
    m_instance = std::make_unique<SingleInstance>();
    QVERIFY(m_instance->claim());
    m_app = std::make_unique<AppDelegate>(environment);
    m_instance->setAction([app = QPointer<AppDelegate>(m_app.get())] {
        if (app && app->statusItem())
            app->statusItem()->performClick();
    });
    m_app->applicationDidFinishLaunching();
    QVERIFY(m_app->statusItem()->isStatusNotifierItem());
    // The full menu, once the service answered.
    QTRY_VERIFY_WITH_TIMEOUT(m_app->statusItem()->menu() &&
                                 entry(m_app->statusItem()->menu(), QStringLiteral("📁")),
                             20000);
    // waybar draws the icon once it has read it.
    std::optional<QPoint> icon;
    QTRY_VERIFY_WITH_TIMEOUT((icon = SwaySession::shared().trayIcon()).has_value(), 20000);
    m_icon = *icon;
}

void tst_wayland_Sway::cleanupTestCase() {
    closeMenus();
    m_app.reset();
    m_instance.reset();
    m_service.reset();
}

void tst_wayland_Sway::cleanup() {
    closeMenus();
}

bool tst_wayland_Sway::screenshot(const QString& name) {
    return SwaySession::screenshot(
        QDir(m_screenshots)
            .filePath(QStringLiteral("%1-%2.png").arg(++m_step, 2, 10, QChar(u'0')).arg(name)));
}

std::optional<QRect> tst_wayland_Sway::menuWindow() const {
    for (const QJsonObject& view : SwaySession::windows(appId)) {
        const QRect rect = SwaySession::rectOf(view);
        if (!view.value(QStringLiteral("name")).toString().contains(QStringLiteral("Settings")))
            return rect;
    }
    return std::nullopt;
}

QPoint tst_wayland_Sway::onScreen(const QMenu* menu, const QAction* action) const {
    const QMenu* top = openMenus().isEmpty() ? menu : nullptr;
    for (QMenu* open : openMenus()) {
        if (!qobject_cast<QMenu*>(open->parentWidget()) || open == m_app->statusItem()->menu())
            top = open;
    }
    const QRect topOnScreen = menuWindow().value_or(QRect());
    // Qt keeps its own idea of where the top menu is; a submenu goes where Qt asks, relative
    // to it.
    const QPoint offset = menu->geometry().topLeft() - top->geometry().topLeft();
    return topOnScreen.topLeft() + offset +
           menu->actionGeometry(const_cast<QAction*>(action)).center();
}

bool tst_wayland_Sway::hover(QMenu* menu, QAction* action) {
    // A menu window that has just appeared misses the first motions over it (Qt 6.4 on sway):
    // the hand goes on moving until the entry lights up.
    return QTest::qWaitFor(
        [&] {
            return menu->activeAction() == action ||
                   (SwaySession::shared().movePointer(onScreen(menu, action)) &&
                    menu->activeAction() == action);
        },
        10000);
}

bool tst_wayland_Sway::clickIcon() {
    // Two clicks closer together are one double click to the bar (and so to the program).
    const int doubleClick = QGuiApplication::styleHints()->mouseDoubleClickInterval();
    if (m_lastIconClick.isValid() &&
        !QTest::qWaitFor([&] { return m_lastIconClick.elapsed() > doubleClick; }, doubleClick))
        return false;
    const bool clicked = SwaySession::shared().click(m_icon);
    // From when the press has reached the compositor.
    m_lastIconClick.start();
    return clicked;
}

QMenu* tst_wayland_Sway::openMenuByClick() {
    QMenu* menu = m_app->statusItem()->menu();
    if (!clickIcon())
        return nullptr;
    if (!QTest::qWaitFor([&] { return menu->isVisible() && menuWindow().has_value(); }, 10000))
        return nullptr;
    return menu;
}

void tst_wayland_Sway::closeMenus() {
    for (QMenu* menu : openMenus())
        menu->hide();
    // A menu closed in the test goes from sway's tree a moment later.
    if (!QTest::qWaitFor([] { return SwaySession::windows(appId).isEmpty(); }, 5000))
        qWarning("a window of the program stayed open");
}

QString tst_wayland_Sway::itemService() const {
    const QStringList names =
        QDBusConnection::sessionBus().interface()->registeredServiceNames().value();
    for (const QString& name : names) {
        if (name.startsWith(QStringLiteral("org.kde.StatusNotifierItem-%1-")
                                .arg(QCoreApplication::applicationPid())))
            return name;
    }
    return {};
}

DBusMenuLayoutItem tst_wayland_Sway::panelLayout(int parent) const {
    QDBusMessage call = QDBusMessage::createMethodCall(itemService(), QStringLiteral("/MenuBar"),
                                                       QStringLiteral("com.canonical.dbusmenu"),
                                                       QStringLiteral("GetLayout"));
    call.setArguments({parent, -1, QStringList()});
    const QDBusMessage reply = callOwn(call);
    DBusMenuLayoutItem layout;
    if (reply.type() == QDBusMessage::ReplyMessage && reply.arguments().size() == 2)
        reply.arguments().at(1).value<QDBusArgument>() >> layout;
    return layout;
}

bool tst_wayland_Sway::panelAboutToShow(int id) const {
    QDBusMessage call = QDBusMessage::createMethodCall(itemService(), QStringLiteral("/MenuBar"),
                                                       QStringLiteral("com.canonical.dbusmenu"),
                                                       QStringLiteral("AboutToShow"));
    call.setArguments({id});
    return callOwn(call).type() == QDBusMessage::ReplyMessage;
}

bool tst_wayland_Sway::panelClick(int id) const {
    QDBusMessage call = QDBusMessage::createMethodCall(itemService(), QStringLiteral("/MenuBar"),
                                                       QStringLiteral("com.canonical.dbusmenu"),
                                                       QStringLiteral("Event"));
    call.setArguments(
        {id, QStringLiteral("clicked"), QVariant::fromValue(QDBusVariant(QVariant(0))), 0u});
    return callOwn(call).type() == QDBusMessage::ReplyMessage;
}

void tst_wayland_Sway::trayShowsDropWithTooltip() {
    QVERIFY(screenshot(QStringLiteral("tray")));
    // waybar's watcher lists the item, and the item names itself for the tooltip.
    QDBusMessage get = QDBusMessage::createMethodCall(
        QStringLiteral("org.kde.StatusNotifierWatcher"), QStringLiteral("/StatusNotifierWatcher"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get.setArguments({QStringLiteral("org.kde.StatusNotifierWatcher"),
                      QStringLiteral("RegisteredStatusNotifierItems")});
    const QDBusMessage items = callOwn(get);
    QCOMPARE(items.type(), QDBusMessage::ReplyMessage);
    const QStringList registered =
        items.arguments().value(0).value<QDBusVariant>().variant().toStringList();
    QVERIFY2(registered.join(u' ').contains(itemService()), qPrintable(registered.join(u' ')));
    QDBusMessage title = QDBusMessage::createMethodCall(
        itemService(), QStringLiteral("/StatusNotifierItem"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    title.setArguments({QStringLiteral("org.kde.StatusNotifierItem"), QStringLiteral("Title")});
    QCOMPARE(callOwn(title).arguments().value(0).value<QDBusVariant>().variant().toString(),
             QStringLiteral("Quillmar"));
}

void tst_wayland_Sway::leftClickOpensSmallFloatingMenuWithKeyboard() {
    QMenu* menu = openMenuByClick();
    QVERIFY(menu);
    QVERIFY(screenshot(QStringLiteral("menu-by-click")));
    const QList<QJsonObject> views = SwaySession::windows(appId);
    QCOMPARE(views.size(), 1);
    // Floating, of the menu's own size (not tiled over the screen), and with the keyboard.
    QCOMPARE(views.first().value(QStringLiteral("type")).toString(),
             QStringLiteral("floating_con"));
    QCOMPARE(SwaySession::rectOf(views.first()).size(), menu->size());
    QVERIFY(menu->width() < 600);
    QTRY_VERIFY(views.first().value(QStringLiteral("focused")).toBool() ||
                SwaySession::windows(appId).value(0).value(QStringLiteral("focused")).toBool());
    // The keys reach the menu: Escape closes it.
    QVERIFY(SwaySession::type({QStringLiteral("-k"), QStringLiteral("Escape")}));
    QTRY_VERIFY(!menu->isVisible());
    QTRY_VERIFY(SwaySession::windows(appId).isEmpty());
    QVERIFY(screenshot(QStringLiteral("menu-closed-by-escape")));
}

void tst_wayland_Sway::clickOutsideClosesMenu() {
    QMenu* menu = openMenuByClick();
    QVERIFY(menu);
    QVERIFY(SwaySession::shared().click(emptySpot));
    QTRY_VERIFY(!menu->isVisible());
    QTRY_VERIFY(SwaySession::windows(appId).isEmpty());
    // A second click on the icon closes the menu it opened, as on a menu bar.
    menu = openMenuByClick();
    QVERIFY(menu);
    QVERIFY(clickIcon());
    QTRY_VERIFY(!menu->isVisible());
    QVERIFY(screenshot(QStringLiteral("menu-closed-by-click-outside")));
}

void tst_wayland_Sway::submenusOpenAndChoiceCopiesAndCloses() {
    QMenu* menu = openMenuByClick();
    QVERIFY(menu);
    // A lazily filled collection inside "📁 Collections".
    QAction* collections = entry(menu, QStringLiteral("📁 Collections"));
    QVERIFY(collections);
    QVERIFY(hover(menu, collections));
    QTRY_VERIFY(collections->menu()->isVisible());
    QAction* work = entry(collections->menu(), QStringLiteral("Work"));
    QVERIFY(work);
    QVERIFY(hover(collections->menu(), work));
    QTRY_VERIFY(work->menu()->isVisible());
    QTRY_VERIFY_WITH_TIMEOUT(entry(work->menu(), QStringLiteral("Second work item")), 10000);
    QCOMPARE(m_service->collectionRequests(workId), 1);
    QVERIFY(screenshot(QStringLiteral("collection-submenu")));
    // A bookmark's actions, and "⎘ Copy URL" chosen with the pointer.
    QAction* bookmark = entry(work->menu(), QStringLiteral("Second work item"));
    QVERIFY(hover(work->menu(), bookmark));
    QTRY_VERIFY(bookmark->menu()->isVisible());
    QAction* copy = entry(bookmark->menu(), QStringLiteral("⎘ Copy URL"));
    QVERIFY(copy);
    QVERIFY(screenshot(QStringLiteral("bookmark-actions")));
    QVERIFY(hover(bookmark->menu(), copy));
    QVERIFY(SwaySession::shared().click(onScreen(bookmark->menu(), copy)));
    QTRY_VERIFY(openMenus().isEmpty());
    QTRY_VERIFY(SwaySession::windows(appId).isEmpty());
    QTRY_COMPARE(SwaySession::clipboard(), workLink);
}

void tst_wayland_Sway::showMenuOnDBusAndSecondStartFromHotKey() {
    QMenu* menu = m_app->statusItem()->menu();
    const QDBusMessage show =
        QDBusMessage::createMethodCall(SingleInstance::serviceName(), SingleInstance::objectPath(),
                                       SingleInstance::interfaceName(), QStringLiteral("ShowMenu"));
    QCOMPARE(callOwn(show).type(), QDBusMessage::ReplyMessage);
    QTRY_VERIFY(menu->isVisible());
    QTRY_VERIFY(menuWindow().has_value());
    QCOMPARE(SwaySession::windows(appId).first().value(QStringLiteral("type")).toString(),
             QStringLiteral("floating_con"));
    QVERIFY(screenshot(QStringLiteral("menu-by-dbus")));
    QVERIFY(SwaySession::type({QStringLiteral("-k"), QStringLiteral("Escape")}));
    QTRY_VERIFY(!menu->isVisible());

    // sway runs the second start on the key; it hands over to this one and ends.
    QVERIFY(SwaySession::type({QStringLiteral("-M"), QStringLiteral("ctrl"), QStringLiteral("-M"),
                               QStringLiteral("alt"), QStringLiteral("-k"), QStringLiteral("r"),
                               QStringLiteral("-m"), QStringLiteral("alt"), QStringLiteral("-m"),
                               QStringLiteral("ctrl")}));
    QTRY_VERIFY_WITH_TIMEOUT(menu->isVisible(), 10000);
    QTRY_VERIFY(menuWindow().has_value());
    QVERIFY(screenshot(QStringLiteral("menu-by-hot-key")));
    QVERIFY(SwaySession::type({QStringLiteral("-k"), QStringLiteral("Escape")}));
    QTRY_VERIFY(!menu->isVisible());
}

void tst_wayland_Sway::clipboardItemFollowsClipboard() {
    QVERIFY(SwaySession::shared().setClipboard(QStringLiteral("see https://example.com/a, ok")));
    QMenu* menu = openMenuByClick();
    QVERIFY(menu);
    QAction* add = entry(menu, QStringLiteral("📋 Add Clipboard URL"));
    QVERIFY(add);
    QVERIFY(add->isEnabled());
    QVERIFY(screenshot(QStringLiteral("clipboard-url-enabled")));
    closeMenus();
    QVERIFY(SwaySession::shared().setClipboard(QStringLiteral("no address here")));
    menu = openMenuByClick();
    QVERIFY(menu);
    QVERIFY(!add->isEnabled());
    QVERIFY(screenshot(QStringLiteral("clipboard-url-disabled")));
    // The panel's menu asks the same when it opens.
    closeMenus();
    QVERIFY(SwaySession::shared().setClipboard(QStringLiteral("https://example.com/b")));
    QVERIFY(panelAboutToShow(0));
    QTRY_VERIFY(add->isEnabled());
}

void tst_wayland_Sway::copyChosenInPanelMenuReachesClipboard() {
    QVERIFY(SwaySession::shared().setClipboard(QStringLiteral("something else")));
    // As waybar does: open the favourite's actions, then click "⎘ Copy URL" there.
    const DBusMenuLayoutItem layout = panelLayout(0);
    const int favourite = findId(layout, QStringLiteral("Tom & Jerry_2"));
    QVERIFY(favourite > 0);
    QVERIFY(panelAboutToShow(favourite));
    const int copy = findId(panelLayout(favourite), QStringLiteral("⎘ Copy URL"));
    QVERIFY(copy > 0);
    QVERIFY(panelClick(copy));
    QTRY_COMPARE(SwaySession::clipboard(), favouriteLink);
    // No window was needed for it.
    QVERIFY(SwaySession::windows(appId).isEmpty());
}

void tst_wayland_Sway::settingsFromPanelMenuTakeFocus() {
    const int settings = findId(panelLayout(0), QStringLiteral("Settings…"));
    QVERIFY(settings > 0);
    QVERIFY(panelClick(settings));
    QJsonObject view;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            const QList<QJsonObject> views = SwaySession::windows(appId);
            view = views.value(0);
            return views.size() == 1 && view.value(QStringLiteral("focused")).toBool();
        }(),
        10000);
    QVERIFY(view.value(QStringLiteral("name")).toString().contains(QStringLiteral("Settings")));
    QCOMPARE(view.value(QStringLiteral("type")).toString(), QStringLiteral("floating_con"));
    QVERIFY(screenshot(QStringLiteral("settings-focused")));
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (window->isVisible())
            window->close();
    }
    QTRY_VERIFY(SwaySession::windows(appId).isEmpty());
}

void tst_wayland_Sway::nothingPrintedInNormalUse() {
    QVERIFY2(messages().isEmpty(), qPrintable(messages().join(u'\n')));
}

QTEST_MAIN(tst_wayland_Sway)
#include "tst_wayland_Sway.moc"
