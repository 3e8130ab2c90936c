#include "menu/LazyEntryMenu.h"

#include <QAction>
#include <QStyleOptionMenuItem>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// Reads how the menu draws an entry.
class Drawn : public LazyEntryMenu {
public:
    using LazyEntryMenu::LazyEntryMenu;

    QStyleOptionMenuItem::MenuItemType typeOf(const QAction* action) const {
        QStyleOptionMenuItem option;
        initStyleOption(&option, action);
        return option.menuItemType;
    }
};

} // namespace

// The entries of "Collections" and "Tags" get their submenus when first highlighted.
class tst_LazyEntryMenu : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void entriesLookLikeSubmenusFromTheStart();
    void highlightMakesTheSubmenuOnce();
    void highlightsOfSubmenuItemsMakeNothing();
    void keyboardOpensTheSubmenu();
    void panelsReadTheProperties();
};

void tst_LazyEntryMenu::entriesLookLikeSubmenusFromTheStart() {
    Drawn menu(u"Collections"_s, u"Loading…"_s, [](QAction*) {});
    QAction* entry = menu.addAction(u"Reading  (3)"_s);
    QAction* separator = menu.addSeparator();
    QVERIFY(!entry->menu());
    QCOMPARE(menu.typeOf(entry), QStyleOptionMenuItem::SubMenu);
    QCOMPARE(menu.typeOf(separator), QStyleOptionMenuItem::Separator);
    // As wide as an entry with a submenu: the arrow is measured too.
    QMenu plain;
    plain.addAction(u"Reading  (3)"_s);
    QMenu withSubmenu;
    withSubmenu.addMenu(u"Reading  (3)"_s)->addAction(u"x"_s);
    QCOMPARE(menu.sizeHint().width(), withSubmenu.sizeHint().width());
}

void tst_LazyEntryMenu::highlightMakesTheSubmenuOnce() {
    int made = 0;
    LazyEntryMenu menu(u"Collections"_s, u"Loading…"_s, [&made](QAction* entry) {
        ++made;
        auto* submenu = new QMenu(entry->text());
        submenu->addAction(u"Loading…"_s);
        entry->setMenu(submenu);
    });
    QAction* first = menu.addAction(u"First"_s);
    QAction* second = menu.addAction(u"Second"_s);
    first->hover();
    QCOMPARE(made, 1);
    QVERIFY(first->menu());
    QVERIFY(!second->menu());
    first->hover();
    QCOMPARE(made, 1);
    second->hover();
    QCOMPARE(made, 2);
    delete first->menu();
    delete second->menu();
}

void tst_LazyEntryMenu::highlightsOfSubmenuItemsMakeNothing() {
    int made = 0;
    LazyEntryMenu menu(u"Tags"_s, u"Loading…"_s, [&made](QAction* entry) {
        ++made;
        entry->setMenu(new QMenu(entry->text(), qobject_cast<QWidget*>(entry->parent())));
    });
    QAction* entry = menu.addAction(u"#later  (1)"_s);
    entry->hover();
    QCOMPARE(made, 1);
    // An item of the made submenu, highlighted, is passed on by the menu: nothing more is made.
    QAction* inner = entry->menu()->addAction(u"A bookmark"_s);
    Q_EMIT menu.hovered(inner);
    QAction* elsewhere = new QAction(u"Not an entry"_s, &menu);
    Q_EMIT menu.hovered(elsewhere);
    QCOMPARE(made, 1);
    QVERIFY(!elsewhere->menu());
}

void tst_LazyEntryMenu::keyboardOpensTheSubmenu() {
    LazyEntryMenu menu(u"Collections"_s, u"Loading…"_s, [&menu](QAction* entry) {
        auto* submenu = new QMenu(entry->text(), &menu);
        submenu->addAction(u"Loading…"_s)->setEnabled(false);
        entry->setMenu(submenu);
    });
    QAction* entry = menu.addAction(u"Reading"_s);
    menu.popup(QPoint(10, 10));
    QTRY_VERIFY(menu.isVisible());
    // The first entry becomes active, then the right arrow opens its submenu.
    QTest::keyClick(&menu, Qt::Key_Down);
    QTRY_COMPARE(menu.activeAction(), entry);
    QVERIFY(entry->menu());
    QTest::keyClick(&menu, Qt::Key_Right);
    QTRY_VERIFY(entry->menu()->isVisible());
    menu.hide();
}

void tst_LazyEntryMenu::panelsReadTheProperties() {
    const LazyEntryMenu menu(u"Tags"_s, u"Loading…"_s, [](QAction*) {});
    QCOMPARE(menu.property("submenusOnDemand").toBool(), true);
    QCOMPARE(menu.property("submenuPlaceholder").toString(), u"Loading…"_s);
}

QTEST_MAIN(tst_LazyEntryMenu)
#include "tst_LazyEntryMenu.moc"
