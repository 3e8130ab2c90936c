#include "FakeRaindropService.h"
#include "MenuTree.h"

#include "app/tray/StatusItem.h"
#include "menu/MenuManager.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

MenuManager::Timings testTimings() {
    MenuManager::Timings timings;
    timings.refreshInterval = 1h;
    timings.updateCheckDelay = 1h;
    return timings;
}

AppConfig tokenOnly() {
    AppConfig config;
    config.token = u"t"_s;
    return config;
}

int menusWithin(const QMenu* menu) {
    return int(menu->findChildren<QMenu*>().size());
}

} // namespace

// The submenus of the entries of "Collections" and "Tags" are made when an entry is first
// highlighted: a large account's menu holds no submenu per collection until then.
class tst_CollectionsOnDemand : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void entriesHaveNoSubmenuUntilHighlighted();
};

void tst_CollectionsOnDemand::entriesHaveNoSubmenuUntilHighlighted() {
    FakeRaindropService service;
    QJsonArray collections;
    for (int i = 0; i < 200; ++i)
        collections.append(FakeRaindropService::collection(
            1000 + i, u"Collection %1"_s.arg(i, 3, 10, QChar(u'0')), 2));
    service.setItems(u"collections"_s, collections);
    QJsonArray tags;
    for (int i = 0; i < 30; ++i)
        tags.append(FakeRaindropService::tag(u"tag%1"_s.arg(i), 30 - i));
    service.setItems(u"tags"_s, tags);
    service.setItems(u"col_1007"_s, {FakeRaindropService::bookmark(5, u"Seventh's bookmark"_s,
                                                                   u"https://7.example/"_s)});
    StatusItem statusItem;
    MenuManager manager(&statusItem, tokenOnly(), service.environment(), testTimings());
    manager.buildInitialMenu();
    manager.loadData();
    QMenu* menu = MenuTree::waitForFullMenu(statusItem);
    QVERIFY(menu);

    // Recent, Collections, Tags: three menus, not 228.
    QCOMPARE(menusWithin(menu), 3);
    QCOMPARE(manager.lazyDelegates().size(), 1);
    QMenu* list = MenuTree::submenu(menu, u"📁 Collections"_s);
    QCOMPARE(list->actions().size(), 200);
    QCOMPARE(MenuTree::describe(list).value(7), u"Collection 007  (2) ▸"_s);

    // Highlighted, one entry gets its submenu, which loads when it opens.
    QMenu* seventh = MenuTree::submenu(list, u"Collection 007  (2)"_s);
    QVERIFY(seventh);
    QCOMPARE(menusWithin(menu), 4);
    QCOMPARE(manager.lazyDelegates().size(), 2);
    QCOMPARE(MenuTree::describe(seventh), QStringList{u"(off) Loading…"_s});
    QCOMPARE(seventh->menuAction(), MenuTree::item(list, u"Collection 007  (2)"_s));
    Q_EMIT seventh->aboutToShow();
    QTRY_COMPARE(MenuTree::describe(seventh), QStringList{u"Seventh's bookmark ▸"_s});
    QCOMPARE(service.count(u"col_1007"_s), 1);

    // A refresh starts again from entries without submenus.
    manager.refresh();
    QMenu* again = MenuTree::waitForFullMenu(statusItem, menu);
    QVERIFY(again);
    QCOMPARE(menusWithin(again), 3);
}

QTEST_MAIN(tst_CollectionsOnDemand)
#include "tst_CollectionsOnDemand.moc"
