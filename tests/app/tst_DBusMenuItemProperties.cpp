#include "app/tray/DBusMenuItemProperties.h"

#include <QAction>
#include <QMenu>
#include <QtTest>

using namespace Qt::StringLiterals;

class tst_DBusMenuItemProperties : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void menuItselfOpensASubmenu();
    void entryHasLabelFlagsAndShortcut();
    void separatorIsKindAndVisibilityOnly();
    void entryOfOnDemandMenuIsASubmenuBeforeItHasOne();
    void placeholderTakesTheHoldingMenusText();
    void shortcut_data();
    void shortcut();
    void chosenKeepsNamedPropertiesOnly();
};

void tst_DBusMenuItemProperties::menuItselfOpensASubmenu() {
    QCOMPARE(DBusMenuItemProperties::ofMenu(),
             (QVariantMap{{u"children-display"_s, u"submenu"_s}}));
}

void tst_DBusMenuItemProperties::entryHasLabelFlagsAndShortcut() {
    QMenu menu;
    QAction* quit = menu.addAction(u"&Quit_now"_s);
    quit->setEnabled(false);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    const QVariantMap properties = DBusMenuItemProperties::ofEntry(quit);
    QCOMPARE(properties.keys(),
             QStringList({u"enabled"_s, u"label"_s, u"shortcut"_s, u"visible"_s}));
    QCOMPARE(properties.value(u"label"_s), QVariant(u"_Quit__now"_s));
    QCOMPARE(properties.value(u"enabled"_s), QVariant(false));
    QCOMPARE(properties.value(u"visible"_s), QVariant(true));
    QCOMPARE(properties.value(u"shortcut"_s).value<QList<QStringList>>(),
             QList<QStringList>({{u"Control"_s, u"Q"_s}}));

    QMenu* sub = menu.addMenu(u"Sub"_s);
    sub->menuAction()->setVisible(false);
    const QVariantMap submenu = DBusMenuItemProperties::ofEntry(sub->menuAction());
    QCOMPARE(submenu.value(u"children-display"_s), QVariant(u"submenu"_s));
    QCOMPARE(submenu.value(u"visible"_s), QVariant(false));
    QVERIFY(!submenu.contains(u"shortcut"_s));
}

void tst_DBusMenuItemProperties::separatorIsKindAndVisibilityOnly() {
    QMenu menu;
    QAction* separator = menu.addSeparator();
    separator->setText(u"Not shown"_s);
    QCOMPARE(DBusMenuItemProperties::ofEntry(separator),
             (QVariantMap{{u"type"_s, u"separator"_s}, {u"visible"_s, true}}));
}

void tst_DBusMenuItemProperties::entryOfOnDemandMenuIsASubmenuBeforeItHasOne() {
    QMenu plain;
    QAction* entry = plain.addAction(u"Collection"_s);
    QVERIFY(!DBusMenuItemProperties::opensSubmenuOnDemand(entry));
    QVERIFY(!DBusMenuItemProperties::ofEntry(entry).contains(u"children-display"_s));

    plain.setProperty("submenusOnDemand", true);
    QVERIFY(DBusMenuItemProperties::opensSubmenuOnDemand(entry));
    QVERIFY(DBusMenuItemProperties::opensSubmenu(entry));
    QCOMPARE(DBusMenuItemProperties::ofEntry(entry).value(u"children-display"_s),
             QVariant(u"submenu"_s));
    // A separator never opens anything; an entry with its submenu made opens that one.
    QVERIFY(!DBusMenuItemProperties::opensSubmenuOnDemand(plain.addSeparator()));
    QMenu* made = plain.addMenu(u"Made"_s);
    QVERIFY(!DBusMenuItemProperties::opensSubmenuOnDemand(made->menuAction()));
    QVERIFY(DBusMenuItemProperties::opensSubmenu(made->menuAction()));
}

void tst_DBusMenuItemProperties::placeholderTakesTheHoldingMenusText() {
    QMenu menu;
    menu.setProperty("submenuPlaceholder", u"Loading_more…"_s);
    QAction* entry = menu.addAction(u"Collection"_s);
    QCOMPARE(DBusMenuItemProperties::ofPlaceholder(entry),
             (QVariantMap{
                 {u"label"_s, u"Loading__more…"_s}, {u"enabled"_s, false}, {u"visible"_s, true}}));
    QCOMPARE(DBusMenuItemProperties::ofPlaceholder(nullptr).value(u"label"_s), QVariant(QString()));
}

void tst_DBusMenuItemProperties::shortcut_data() {
    QTest::addColumn<QKeySequence>("sequence");
    QTest::addColumn<QList<QStringList>>("presses");
    QTest::newRow("none") << QKeySequence() << QList<QStringList>();
    QTest::newRow("plus key") << QKeySequence(Qt::CTRL | Qt::Key_Plus)
                              << QList<QStringList>({{u"Control"_s, u"plus"_s}});
    QTest::newRow("meta is super") << QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_K)
                                   << QList<QStringList>({{u"Super"_s, u"Shift"_s, u"K"_s}});
    QTest::newRow("two presses") << QKeySequence(Qt::CTRL | Qt::Key_X, Qt::ALT | Qt::Key_F5)
                                 << QList<QStringList>(
                                        {{u"Control"_s, u"X"_s}, {u"Alt"_s, u"F5"_s}});
}

void tst_DBusMenuItemProperties::shortcut() {
    QFETCH(QKeySequence, sequence);
    QFETCH(QList<QStringList>, presses);
    QCOMPARE(DBusMenuItemProperties::shortcut(sequence), presses);
}

void tst_DBusMenuItemProperties::chosenKeepsNamedPropertiesOnly() {
    const QVariantMap properties{{u"label"_s, u"A"_s}, {u"visible"_s, true}};
    QCOMPARE(DBusMenuItemProperties::chosen(properties, {}), properties);
    QCOMPARE(DBusMenuItemProperties::chosen(properties, {u"label"_s, u"type"_s}),
             (QVariantMap{{u"label"_s, u"A"_s}}));
}

QTEST_MAIN(tst_DBusMenuItemProperties)
#include "tst_DBusMenuItemProperties.moc"
