#include "FakeRaindropService.h"
#include "MenuTree.h"

#include "app/tray/StatusItem.h"
#include "menu/MenuManager.h"

#include <QGuiApplication>
#include <QMenu>
#include <QScreen>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

MenuManager::Timings testTimings() {
    MenuManager::Timings timings;
    timings.refreshInterval = 1h;
    timings.updateCheckDelay = 1h; // no update check in the middle of a test
    timings.hoverPrefetchDelay = 1h;
    return timings;
}

AppConfig config() {
    AppConfig config;
    config.token = u"t"_s;
    return config;
}

// Recent bookmarks, one collection under "📁 Collections" with a bookmark whose title widens
// its submenu once it arrives.
void fill(FakeRaindropService& service) {
    service.setItems(u"recent"_s,
                     {FakeRaindropService::bookmark(1, u"Recent one"_s, u"https://r/"_s)});
    service.setItems(u"collections"_s, {FakeRaindropService::collection(10, u"Reading"_s, 1)});
    service.set(u"col_10"_s,
                FakeRaindropService::list({FakeRaindropService::bookmark(
                                              2, u"A title that widens it"_s, u"https://w/"_s)})
                    .held());
}

// Opens the submenu of item the way the keyboard and the pointer do: Qt places it itself.
QMenu* open(QMenu* menu, const QString& item) {
    QAction* action = MenuTree::item(menu, item);
    // An entry of "Collections" or "Tags" gets its submenu as it is highlighted.
    if (!action || (!action->menu() && !MenuTree::opensSubmenuOnDemand(action)))
        return nullptr;
    menu->setActiveAction(action);
    QMenu* submenu = action->menu();
    return submenu && QTest::qWaitFor([submenu] { return submenu->isVisible(); }) ? submenu
                                                                                  : nullptr;
}

// The full menu of a started manager, popped up at a screen edge.
struct TrayMenu {
    FakeRaindropService service;
    StatusItem statusItem;
    MenuManager manager{&statusItem, config(), service.environment(), testTimings()};
    QMenu* menu = nullptr;

    bool popUp(Qt::Edge edge) {
        fill(service);
        manager.buildInitialMenu();
        manager.loadData();
        menu = MenuTree::waitForFullMenu(statusItem);
        if (!menu)
            return false;
        const QRect available = QGuiApplication::primaryScreen()->availableGeometry();
        menu->popup(QPoint(edge == Qt::RightEdge ? available.right() - menu->sizeHint().width()
                                                 : available.left(),
                           available.top() + 10));
        return QTest::qWaitFor([this] { return menu->isVisible(); });
    }
    ~TrayMenu() {
        if (menu)
            menu->hide();
    }
};

QRect available() {
    return QGuiApplication::primaryScreen()->availableGeometry();
}

} // namespace

class tst_SubmenuPlacement : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void nestedSubmenusStayLeftAtRightEdge();
    void nestedSubmenusStayRightAtLeftEdge();
};

void tst_SubmenuPlacement::nestedSubmenusStayLeftAtRightEdge() {
    TrayMenu tray;
    QVERIFY(tray.popUp(Qt::RightEdge));
    QMenu* menu = tray.menu;

    // A lazy submenu of the top-level menu, and a bookmark's actions inside it.
    QMenu* recent = open(menu, u"🕐 Recent"_s);
    QVERIFY(recent);
    QVERIFY2(recent->geometry().left() < menu->geometry().left(), "Qt opened it to the left");
    QTRY_COMPARE(MenuTree::describe(recent), QStringList{u"Recent one ▸"_s});
    QMenu* actions = open(recent, u"Recent one"_s);
    QVERIFY(actions);
    QVERIFY(!actions->geometry().intersects(menu->geometry()));
    QVERIFY(!actions->geometry().intersects(recent->geometry()));
    QVERIFY(available().contains(actions->geometry()));
    recent->hide();

    // A collection's lazy submenu inside "📁 Collections", before and after it grows, and a
    // bookmark's actions inside that.
    QMenu* collections = open(menu, u"📁 Collections"_s);
    QVERIFY(collections);
    QVERIFY(collections->geometry().left() < menu->geometry().left());
    QMenu* reading = open(collections, u"Reading  (1)"_s);
    QVERIFY(reading);
    const QRect before = reading->geometry();
    QVERIFY(!before.intersects(menu->geometry()));
    QVERIFY(!before.intersects(collections->geometry()));
    QCOMPARE(before.right(), collections->geometry().left() - 1);
    QTRY_COMPARE(tray.service.count(u"col_10"_s), 1);
    tray.service.server().release();
    QTRY_COMPARE(MenuTree::describe(reading).size(), 1);
    QTRY_VERIFY(MenuTree::describe(reading) != QStringList{u"(off) Loading…"_s});
    QTRY_VERIFY2(reading->geometry().width() > before.width(), "grew");
    QTRY_COMPARE(reading->geometry().right(), before.right());
    QVERIFY(!reading->geometry().intersects(menu->geometry()));
    QVERIFY(!reading->geometry().intersects(collections->geometry()));

    QMenu* bookmarkActions = open(reading, reading->actions().constFirst()->text());
    QVERIFY(bookmarkActions);
    QVERIFY(!bookmarkActions->geometry().intersects(menu->geometry()));
    QVERIFY(!bookmarkActions->geometry().intersects(collections->geometry()));
    QVERIFY(!bookmarkActions->geometry().intersects(reading->geometry()));
    QVERIFY(available().contains(bookmarkActions->geometry()));
}

void tst_SubmenuPlacement::nestedSubmenusStayRightAtLeftEdge() {
    TrayMenu tray;
    QVERIFY(tray.popUp(Qt::LeftEdge));
    QMenu* menu = tray.menu;

    // Nothing opened to the left, so Qt's placement to the right stands at every level.
    QMenu* collections = open(menu, u"📁 Collections"_s);
    QVERIFY(collections);
    QVERIFY(collections->geometry().left() > menu->geometry().left());
    QMenu* reading = open(collections, u"Reading  (1)"_s);
    QVERIFY(reading);
    QVERIFY(reading->geometry().left() > collections->geometry().left());
    QTRY_COMPARE(tray.service.count(u"col_10"_s), 1);
    tray.service.server().release();
    QTRY_VERIFY(MenuTree::describe(reading) != QStringList{u"(off) Loading…"_s});
    QMenu* bookmarkActions = open(reading, reading->actions().constFirst()->text());
    QVERIFY(bookmarkActions);
    QVERIFY(bookmarkActions->geometry().left() > reading->geometry().left());
}

QTEST_MAIN(tst_SubmenuPlacement)
#include "tst_SubmenuPlacement.moc"
