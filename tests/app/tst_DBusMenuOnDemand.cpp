#include "app/tray/DBusMenuExporter.h"
#include "menu/LazyEntryMenu.h"

#include <QAction>
#include <QMenu>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

// "Collections" with two entries, whose submenus are made when highlighted.
struct Exported {
    Exported() {
        collections = new LazyEntryMenu(
            u"📁 Collections"_s, u"Loading…"_s,
            [this](QAction* entry) {
                ++made;
                auto* submenu = new QMenu(entry->text(), collections);
                submenu->addAction(u"Loading…"_s)->setEnabled(false);
                entry->setMenu(submenu);
            },
            &root);
        reading = collections->addAction(u"Reading  (3)"_s);
        later = collections->addAction(u"Later  (1)"_s);
        root.addMenu(collections);
        exporter.setMenu(&root);
    }

    int idOf(const DBusMenuLayoutItem& layout, const QString& label) const {
        for (const DBusMenuLayoutItem& child : layout.children) {
            if (child.properties.value(u"label"_s).toString() == label)
                return child.id;
            if (const int found = idOf(child, label))
                return found;
        }
        return 0;
    }

    QMenu root;
    LazyEntryMenu* collections = nullptr;
    QAction* reading = nullptr;
    QAction* later = nullptr;
    int made = 0;
    DBusMenuExporter exporter;
};

DBusMenuLayoutItem layoutOf(DBusMenuExporter& exporter, int id) {
    DBusMenuLayoutItem layout;
    exporter.GetLayout(id, -1, {}, layout);
    return layout;
}

} // namespace

// Entries whose submenus are made on demand are submenus to a panel from the start.
class tst_DBusMenuOnDemand : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void entriesAreSubmenusWithAStandIn();
    void standInAnswersLikeAnEntry();
    void aboutToShowMakesTheSubmenu();
    void openedEventMakesTheSubmenu();
};

void tst_DBusMenuOnDemand::entriesAreSubmenusWithAStandIn() {
    Exported menu;
    const DBusMenuLayoutItem layout = layoutOf(menu.exporter, 0);
    const DBusMenuLayoutItem& collections = layout.children.value(0);
    QCOMPARE(collections.children.size(), 2);
    for (const DBusMenuLayoutItem& entry : collections.children) {
        QCOMPARE(entry.properties.value(u"children-display"_s).toString(), u"submenu"_s);
        QCOMPARE(entry.children.size(), 1);
        QCOMPARE(entry.children[0].properties.value(u"label"_s).toString(), u"Loading…"_s);
        QCOMPARE(entry.children[0].properties.value(u"enabled"_s).toBool(), false);
    }
    // Reading the whole menu made no submenu.
    QCOMPARE(menu.made, 0);
    QVERIFY(!menu.reading->menu());
    // Its stand-in keeps its id from one reading to the next.
    QCOMPARE(layoutOf(menu.exporter, 0).children[0].children[0].children[0].id,
             collections.children[0].children[0].id);
}

void tst_DBusMenuOnDemand::standInAnswersLikeAnEntry() {
    Exported menu;
    const int standIn = layoutOf(menu.exporter, 0).children[0].children[0].children[0].id;
    const DBusMenuItemList items = menu.exporter.GetGroupProperties({standIn}, {u"label"_s});
    QCOMPARE(items.size(), 1);
    QCOMPARE(items[0].properties, QVariantMap({{u"label"_s, u"Loading…"_s}}));
    QCOMPARE(menu.exporter.GetProperty(standIn, u"enabled"_s).variant().toBool(), false);
    // A click or a highlight of it is no error, and does nothing.
    QCOMPARE(menu.exporter.EventGroup({{standIn, u"clicked"_s, QDBusVariant(0), 0},
                                       {standIn, u"hovered"_s, QDBusVariant(0), 0}}),
             QList<int>());
    QCOMPARE(menu.made, 0);
}

void tst_DBusMenuOnDemand::aboutToShowMakesTheSubmenu() {
    Exported menu;
    const DBusMenuLayoutItem layout = layoutOf(menu.exporter, 0);
    const int reading = menu.idOf(layout, u"Reading  (3)"_s);
    QVERIFY(reading);
    QSignalSpy updates(&menu.exporter, &DBusMenuExporter::LayoutUpdated);
    // Made as the panel is about to show it: the panel should read it again.
    QCOMPARE(menu.exporter.AboutToShow(reading), true);
    QCOMPARE(menu.made, 1);
    QVERIFY(menu.reading->menu());
    QVERIFY(!menu.later->menu());
    const DBusMenuLayoutItem submenu = layoutOf(menu.exporter, reading);
    QCOMPARE(submenu.properties.value(u"children-display"_s).toString(), u"submenu"_s);
    QCOMPARE(submenu.children.size(), 1);
    QCOMPARE(submenu.children[0].properties.value(u"label"_s).toString(), u"Loading…"_s);
    // The entry and "Collections" did not change for the panel: nothing is announced.
    QCoreApplication::processEvents();
    QCOMPARE(updates.size(), 0);
    // Shown again: made already.
    QCOMPARE(menu.exporter.AboutToShow(reading), false);
    QCOMPARE(menu.made, 1);
}

void tst_DBusMenuOnDemand::openedEventMakesTheSubmenu() {
    Exported menu;
    const int later = menu.idOf(layoutOf(menu.exporter, 0), u"Later  (1)"_s);
    menu.exporter.Event(later, u"opened"_s, QDBusVariant(0), 0);
    QCOMPARE(menu.made, 1);
    QVERIFY(menu.later->menu());
    QVERIFY(!menu.reading->menu());
}

QTEST_MAIN(tst_DBusMenuOnDemand)
#include "tst_DBusMenuOnDemand.moc"
