#include "app/tray/DBusMenuExporter.h"

#include <QAction>
#include <QMenu>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

class tst_DBusMenuExporter : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void protocolLabel_data();
    void protocolLabel();
    void layoutListsEntriesInOrder();
    void depthLimitsLayout();
    void shortcutsGoOutAsKeyNames();
    void unknownParentGivesNoEntries();
    void changesAreAnnouncedOncePerBurst();
    void replacedMenuIsAnnouncedAsWhole();
    void aboutToShowReportsChangesMadeWhileOpening();
    void openedEventAfterAboutToShowCountsOnce();
    void closedEventHidesMenu();
    void clickedTriggersEnabledEntriesOnly();
    void hoveredHighlightsEntry();
    void eventGroupReportsUnknownIds();
    void groupPropertiesOfAllEntries();
};

void tst_DBusMenuExporter::protocolLabel_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("label");
    QTest::newRow("plain") << u"Settings…"_s << u"Settings…"_s;
    QTest::newRow("escaped ampersand") << u"Tom && Jerry"_s << u"Tom & Jerry"_s;
    QTest::newRow("underscore") << u"snake_case"_s << u"snake__case"_s;
    QTest::newRow("both") << u"A && B_c && d"_s << u"A & B__c & d"_s;
    QTest::newRow("mnemonic") << u"&Open"_s << u"_Open"_s;
    QTest::newRow("trailing ampersand") << u"R&"_s << u"R&"_s;
    QTest::newRow("emoji") << u"📋 Add Clipboard URL"_s << u"📋 Add Clipboard URL"_s;
}

void tst_DBusMenuExporter::protocolLabel() {
    QFETCH(QString, text);
    QFETCH(QString, label);
    QCOMPARE(DBusMenuExporter::protocolLabel(text), label);
}

void tst_DBusMenuExporter::layoutListsEntriesInOrder() {
    QMenu menu;
    menu.addAction(u"Header"_s)->setEnabled(false);
    menu.addSeparator();
    QMenu* sub = menu.addMenu(u"Sub && more"_s);
    sub->addAction(u"Inner_1"_s);
    QAction* hidden = menu.addAction(u"Hidden"_s);
    hidden->setVisible(false);
    DBusMenuExporter exporter;
    exporter.setMenu(&menu);

    DBusMenuLayoutItem layout;
    exporter.GetLayout(0, -1, {}, layout);
    QCOMPARE(layout.id, 0);
    QCOMPARE(layout.properties.value(u"children-display"_s).toString(), u"submenu"_s);
    QCOMPARE(layout.children.size(), 4);
    QCOMPARE(layout.children[0].properties.value(u"label"_s).toString(), u"Header"_s);
    QCOMPARE(layout.children[0].properties.value(u"enabled"_s).toBool(), false);
    QCOMPARE(layout.children[1].properties.value(u"type"_s).toString(), u"separator"_s);
    QCOMPARE(layout.children[2].properties.value(u"label"_s).toString(), u"Sub & more"_s);
    QCOMPARE(layout.children[2].properties.value(u"children-display"_s).toString(), u"submenu"_s);
    QCOMPARE(layout.children[2].children.size(), 1);
    QCOMPARE(layout.children[2].children[0].properties.value(u"label"_s).toString(), u"Inner__1"_s);
    QCOMPARE(layout.children[3].properties.value(u"visible"_s).toBool(), false);

    // Ids stay with their entries.
    DBusMenuLayoutItem again;
    exporter.GetLayout(layout.children[2].id, -1, {u"label"_s}, again);
    QCOMPARE(again.id, layout.children[2].id);
    QCOMPARE(again.children.size(), 1);
    QCOMPARE(again.children[0].id, layout.children[2].children[0].id);
    QCOMPARE(again.children[0].properties.keys(), QStringList({u"label"_s}));
}

void tst_DBusMenuExporter::depthLimitsLayout() {
    QMenu menu;
    menu.addMenu(u"Sub"_s)->addAction(u"Inner"_s);
    DBusMenuExporter exporter;
    exporter.setMenu(&menu);
    DBusMenuLayoutItem layout;
    exporter.GetLayout(0, 1, {}, layout);
    QCOMPARE(layout.children.size(), 1);
    QVERIFY(layout.children[0].children.isEmpty());
    exporter.GetLayout(0, 0, {}, layout);
    QVERIFY(layout.children.isEmpty());
}

void tst_DBusMenuExporter::shortcutsGoOutAsKeyNames() {
    QMenu menu;
    menu.addAction(u"Quit"_s)->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    DBusMenuExporter exporter;
    exporter.setMenu(&menu);
    DBusMenuLayoutItem layout;
    exporter.GetLayout(0, -1, {}, layout);
    const auto shortcut =
        layout.children[0].properties.value(u"shortcut"_s).value<QList<QStringList>>();
    QCOMPARE(shortcut, QList<QStringList>({{u"Control"_s, u"Q"_s}}));
}

void tst_DBusMenuExporter::unknownParentGivesNoEntries() {
    QMenu menu;
    menu.addAction(u"One"_s);
    DBusMenuExporter exporter;
    exporter.setMenu(&menu);
    DBusMenuLayoutItem layout;
    exporter.GetLayout(4711, -1, {}, layout);
    QVERIFY(layout.children.isEmpty());
    QVERIFY(!exporter.AboutToShow(4711));
}

void tst_DBusMenuExporter::changesAreAnnouncedOncePerBurst() {
    QMenu menu;
    QMenu* sub = menu.addMenu(u"Sub"_s);
    sub->addAction(u"Loading…"_s);
    DBusMenuExporter exporter;
    exporter.setMenu(&menu);
    DBusMenuLayoutItem layout;
    exporter.GetLayout(0, -1, {}, layout);
    const int subId = layout.children[0].id;
    QSignalSpy updates(&exporter, &DBusMenuExporter::LayoutUpdated);
    QTRY_COMPARE(updates.size(), 1); // the menu itself, set above
    updates.clear();

    sub->clear();
    sub->addAction(u"First"_s);
    sub->addAction(u"Second"_s);
    QTRY_COMPARE(updates.size(), 1);
    QCOMPARE(updates[0][1].toInt(), subId);
    const uint revision = updates[0][0].toUInt();
    QTest::qWait(50);
    QCOMPARE(updates.size(), 1);
    // The revision given with the layout is the announced one.
    QCOMPARE(exporter.GetLayout(subId, -1, {}, layout), revision);
    QCOMPARE(layout.children.size(), 2);

    menu.actions().constFirst()->setEnabled(false);
    QTRY_COMPARE(updates.size(), 2);
    QCOMPARE(updates[1][1].toInt(), 0);
    QVERIFY(updates[1][0].toUInt() > revision);
}

void tst_DBusMenuExporter::replacedMenuIsAnnouncedAsWhole() {
    QMenu first;
    first.addAction(u"Setup"_s);
    QMenu second;
    second.addAction(u"Full"_s);
    DBusMenuExporter exporter;
    exporter.setMenu(&first);
    QSignalSpy updates(&exporter, &DBusMenuExporter::LayoutUpdated);
    QTRY_COMPARE(updates.size(), 1);
    exporter.setMenu(&second);
    QTRY_COMPARE(updates.size(), 2);
    QCOMPARE(updates[1][1].toInt(), 0);
    DBusMenuLayoutItem layout;
    exporter.GetLayout(0, -1, {}, layout);
    QCOMPARE(layout.children[0].properties.value(u"label"_s).toString(), u"Full"_s);
}

void tst_DBusMenuExporter::aboutToShowReportsChangesMadeWhileOpening() {
    QMenu menu;
    QMenu* sub = menu.addMenu(u"Sub"_s);
    QAction* loading = sub->addAction(u"Loading…"_s);
    DBusMenuExporter exporter;
    exporter.setMenu(&menu);
    DBusMenuLayoutItem layout;
    exporter.GetLayout(0, -1, {}, layout);
    QTest::qWait(10);
    const int subId = layout.children[0].id;

    // Filled at once (from a cache): the panel should read the submenu again.
    auto fill = connect(sub, &QMenu::aboutToShow, sub, [sub, loading] {
        sub->removeAction(loading);
        sub->addAction(u"Bookmark"_s);
    });
    QCOMPARE(exporter.AboutToShow(subId), true);
    disconnect(fill);
    // Nothing changes: nothing to read.
    QSignalSpy shown(&menu, &QMenu::aboutToShow);
    QTest::qWait(10);
    QCOMPARE(exporter.AboutToShow(0), false);
    QCOMPARE(shown.size(), 1);
}

void tst_DBusMenuExporter::openedEventAfterAboutToShowCountsOnce() {
    QMenu menu;
    menu.addAction(u"One"_s);
    DBusMenuExporter exporter;
    exporter.setMenu(&menu);
    QSignalSpy shown(&menu, &QMenu::aboutToShow);
    exporter.AboutToShow(0);
    exporter.Event(0, u"opened"_s, QDBusVariant(QString()), 0);
    QCOMPARE(shown.size(), 1);
    exporter.Event(0, u"closed"_s, QDBusVariant(QString()), 0);
    // A panel that sends only the event.
    exporter.Event(0, u"opened"_s, QDBusVariant(QString()), 0);
    QCOMPARE(shown.size(), 2);
}

void tst_DBusMenuExporter::closedEventHidesMenu() {
    QMenu menu;
    QMenu* sub = menu.addMenu(u"Sub"_s);
    DBusMenuExporter exporter;
    exporter.setMenu(&menu);
    DBusMenuLayoutItem layout;
    exporter.GetLayout(0, -1, {}, layout);
    QSignalSpy hidden(sub, &QMenu::aboutToHide);
    exporter.Event(layout.children[0].id, u"closed"_s, QDBusVariant(QString()), 0);
    QCOMPARE(hidden.size(), 1);
}

void tst_DBusMenuExporter::clickedTriggersEnabledEntriesOnly() {
    QMenu menu;
    QAction* enabled = menu.addAction(u"Enabled"_s);
    QAction* disabled = menu.addAction(u"Disabled"_s);
    disabled->setEnabled(false);
    QMenu* sub = menu.addMenu(u"Sub"_s);
    DBusMenuExporter exporter;
    exporter.setMenu(&menu);
    DBusMenuLayoutItem layout;
    exporter.GetLayout(0, -1, {}, layout);
    QSignalSpy enabledSpy(enabled, &QAction::triggered);
    QSignalSpy disabledSpy(disabled, &QAction::triggered);
    QSignalSpy subSpy(sub->menuAction(), &QAction::triggered);
    for (const DBusMenuLayoutItem& child : std::as_const(layout.children))
        exporter.Event(child.id, u"clicked"_s, QDBusVariant(QString()), 0);
    // After the call has been answered.
    QCOMPARE(enabledSpy.size(), 0);
    QTRY_COMPARE(enabledSpy.size(), 1);
    QTest::qWait(10);
    QCOMPARE(disabledSpy.size(), 0);
    QCOMPARE(subSpy.size(), 0);
}

void tst_DBusMenuExporter::hoveredHighlightsEntry() {
    QMenu menu;
    QAction* entry = menu.addAction(u"Entry"_s);
    DBusMenuExporter exporter;
    exporter.setMenu(&menu);
    DBusMenuLayoutItem layout;
    exporter.GetLayout(0, -1, {}, layout);
    QSignalSpy hovered(&menu, &QMenu::hovered);
    exporter.Event(layout.children[0].id, u"hovered"_s, QDBusVariant(QString()), 0);
    QCOMPARE(hovered.size(), 1);
    QCOMPARE(hovered[0][0].value<QAction*>(), entry);
}

void tst_DBusMenuExporter::eventGroupReportsUnknownIds() {
    QMenu menu;
    QAction* entry = menu.addAction(u"Entry"_s);
    DBusMenuExporter exporter;
    exporter.setMenu(&menu);
    DBusMenuLayoutItem layout;
    exporter.GetLayout(0, -1, {}, layout);
    QSignalSpy triggered(entry, &QAction::triggered);
    const DBusMenuEventList events{{layout.children[0].id, u"clicked"_s, QDBusVariant(0), 0},
                                   {999, u"clicked"_s, QDBusVariant(0), 0}};
    QCOMPARE(exporter.EventGroup(events), QList<int>({999}));
    QTRY_COMPARE(triggered.size(), 1);
}

void tst_DBusMenuExporter::groupPropertiesOfAllEntries() {
    QMenu menu;
    menu.addAction(u"One"_s);
    menu.addAction(u"Two"_s);
    DBusMenuExporter exporter;
    exporter.setMenu(&menu);
    DBusMenuLayoutItem layout;
    exporter.GetLayout(0, -1, {}, layout);
    const DBusMenuItemList all = exporter.GetGroupProperties({}, {u"label"_s});
    QCOMPARE(all.size(), 2);
    const DBusMenuItemList one = exporter.GetGroupProperties({layout.children[1].id}, {});
    QCOMPARE(one.size(), 1);
    QCOMPARE(one[0].properties.value(u"label"_s).toString(), u"Two"_s);
    QCOMPARE(exporter.GetProperty(layout.children[0].id, u"label"_s).variant().toString(),
             u"One"_s);
}

QTEST_MAIN(tst_DBusMenuExporter)
#include "tst_DBusMenuExporter.moc"
