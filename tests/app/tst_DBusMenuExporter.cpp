// The menu exporter as panels see it: every call goes over a private session bus, as a panel's
// would, and every announcement is read from the bus.
#include "PrivateSessionBus.h"
#include "TestStatusNotifierHost.h"

#include "app/tray/DBusMenuExporter.h"
#include "menu/LazyEntryMenu.h"

#include <QAction>
#include <QDBusConnection>
#include <QElapsedTimer>
#include <QMenu>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

using namespace Qt::StringLiterals;
using Node = TestStatusNotifierHost::MenuNode;

namespace {

const QString menuPath = u"/MenuBar"_s;

// A menu published on a connection of its own, and a panel reading it.
class Published {
public:
    Published(const QString& busAddress, QMenu* menu)
        : m_name(u"exporter-%1"_s.arg(++s_connections))
        , m_connection(QDBusConnection::connectToBus(busAddress, m_name))
        , m_host(busAddress) {
        exporter.setMenu(menu);
        m_registered = exporter.registerOn(m_connection, menuPath) &&
                       m_host.attachMenu(m_connection.baseService(), menuPath);
    }
    ~Published() {
        m_connection.unregisterObject(menuPath);
        QDBusConnection::disconnectFromBus(m_name);
    }
    Published(const Published&) = delete;
    Published& operator=(const Published&) = delete;

    bool isRegistered() const { return m_registered; }
    TestStatusNotifierHost& host() { return m_host; }
    // The whole menu as the panel reads it.
    Node layout() { return m_host.layout().value_or(Node()); }
    // Waits until the announcements of what has changed so far went out.
    void settle() {
        // The exporter announces from the event loop; a zero timer queued now runs after it.
        bool ran = false;
        QTimer::singleShot(0, &exporter, [&ran] { ran = true; });
        QTRY_VERIFY(ran);
        // An answered call means that every signal sent before the answer has arrived.
        QVERIFY(m_host.property(0, u"children-display"_s).isValid());
    }

    DBusMenuExporter exporter;

private:
    static inline int s_connections = 0;
    QString m_name;
    QDBusConnection m_connection;
    TestStatusNotifierHost m_host;
    bool m_registered = false;
};

} // namespace

class tst_DBusMenuExporter : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void protocolLabel_data();
    void protocolLabel();
    void everyMethodAndSignalIsExported();
    void layoutListsEntriesInOrder();
    void layoutHoldsMenuItselfAsIdZero();
    void depthLimitsLayout();
    void shortcutsGoOutAsKeyNames();
    void unknownEntriesAreErrors();
    void addedAndRemovedEntriesAreAnnouncedOncePerBurst();
    void changedPropertiesAreAnnouncedAsProperties();
    void changeBeforeAPartialReadIsStillAnnounced();
    void entryGainingSubmenuIsNewLayout();
    void replacedMenuIsAnnouncedAsWhole();
    void aboutToShowReportsEntriesAddedWhileOpening();
    void aboutToShowGroupOpensEveryMenu();
    void openedEventAfterAboutToShowCountsOnce();
    void closedEventHidesMenu();
    void clickedTriggersEnabledEntriesOnly();
    void hoveredHighlightsEntry();
    void eventGroupDeliversEventsAndReportsUnknownIds();
    void groupPropertiesIncludeMenuItself();
    void propertyOfMenuItself();
    void idsStayWithReplacingEntries();
    void idsComeBackAfterStandInMenu();
    void replacedMenuShowsInOrderWherePanelsNeverMoveEntries();
    void replacingEntriesAnnounceChangedFlags();
    void aboutToShowWaitsForMenuBeingFilled();
    void aboutToShowOfSlowMenuAnsweredAtDeadline();
    void aboutToShowGroupWaitsForEveryMenu();
    void openedThenAboutToShowIsOneOpening();
    void groupedOpeningFillsSubmenusAhead();
    void unreadMenuNeedsUpdateAndAnnouncementFollows();
    void kindsAreToldOnceToPanelsReadingKindsAlone();
    void panelOpenStateFollowsItsEvents();
    void entriesMadeOnDemandAreSubmenusWithAStandIn();
    void standInAnswersLikeAnEntry();
    void aboutToShowMakesTheSubmenu();
    void openedEventMakesTheSubmenu();
    void submenusBeyondReadingAreAnnounced();

private:
    std::unique_ptr<PrivateSessionBus> m_bus;
};

void tst_DBusMenuExporter::initTestCase() {
    m_bus = std::make_unique<PrivateSessionBus>();
    QVERIFY(m_bus->start());
}

void tst_DBusMenuExporter::cleanupTestCase() {
    m_bus.reset();
}

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

void tst_DBusMenuExporter::everyMethodAndSignalIsExported() {
    QMenu menu;
    Published published(m_bus->address(), &menu);
    QVERIFY(published.isRegistered());
    const QString xml = published.host().introspect(menuPath);
    for (const QString& member :
         {u"<method name=\"GetLayout\">"_s, u"<method name=\"GetGroupProperties\">"_s,
          u"<method name=\"GetProperty\">"_s, u"<method name=\"Event\">"_s,
          u"<method name=\"EventGroup\">"_s, u"<method name=\"AboutToShow\">"_s,
          u"<method name=\"AboutToShowGroup\">"_s, u"<signal name=\"LayoutUpdated\">"_s,
          u"<signal name=\"ItemsPropertiesUpdated\">"_s,
          u"<property name=\"Version\" type=\"u\" access=\"read\"/>"_s})
        QVERIFY2(xml.contains(member), qPrintable(member));
}

void tst_DBusMenuExporter::layoutListsEntriesInOrder() {
    QMenu menu;
    menu.addAction(u"Header"_s)->setEnabled(false);
    menu.addSeparator();
    QMenu* sub = menu.addMenu(u"Sub && more"_s);
    sub->addAction(u"Inner_1"_s);
    QAction* hidden = menu.addAction(u"Hidden"_s);
    hidden->setVisible(false);
    Published published(m_bus->address(), &menu);
    QVERIFY(published.isRegistered());

    const Node layout = published.layout();
    QCOMPARE(layout.children.size(), 4);
    QCOMPARE(layout.children[0].label(), u"Header"_s);
    QCOMPARE(layout.children[0].isEnabled(), false);
    QVERIFY(layout.children[1].isSeparator());
    QCOMPARE(layout.children[2].label(), u"Sub & more"_s);
    QVERIFY(layout.children[2].hasSubmenu());
    QCOMPARE(layout.children[2].children.size(), 1);
    QCOMPARE(layout.children[2].children[0].label(), u"Inner__1"_s);
    QCOMPARE(layout.children[3].isVisible(), false);

    // Ids stay with their entries; a panel may ask for some properties only.
    const QDBusMessage reply =
        published.host().call(menuPath, u"com.canonical.dbusmenu"_s, u"GetLayout"_s,
                              {layout.children[2].id, -1, QStringList{u"label"_s}});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    const auto again = published.host().layout(layout.children[2].id);
    QVERIFY(again);
    QCOMPARE(again->id, layout.children[2].id);
    QCOMPARE(again->children.size(), 1);
    QCOMPARE(again->children[0].id, layout.children[2].children[0].id);
}

void tst_DBusMenuExporter::layoutHoldsMenuItselfAsIdZero() {
    QMenu menu;
    menu.addAction(u"One"_s);
    Published published(m_bus->address(), &menu);
    const Node layout = published.layout();
    QCOMPARE(layout.id, 0);
    QVERIFY(layout.hasSubmenu());
}

void tst_DBusMenuExporter::depthLimitsLayout() {
    QMenu menu;
    menu.addMenu(u"Sub"_s)->addAction(u"Inner"_s);
    Published published(m_bus->address(), &menu);
    auto layout = published.host().layout(0, 1);
    QVERIFY(layout);
    QCOMPARE(layout->children.size(), 1);
    QVERIFY(layout->children[0].children.isEmpty());
    layout = published.host().layout(0, 0);
    QVERIFY(layout);
    QVERIFY(layout->children.isEmpty());
}

void tst_DBusMenuExporter::shortcutsGoOutAsKeyNames() {
    QMenu menu;
    menu.addAction(u"Quit"_s)->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    Published published(m_bus->address(), &menu);
    const QVariant shortcut =
        published.host().property(published.layout().children[0].id, u"shortcut"_s);
    QCOMPARE(qdbus_cast<QList<QStringList>>(shortcut),
             QList<QStringList>({{u"Control"_s, u"Q"_s}}));
}

void tst_DBusMenuExporter::unknownEntriesAreErrors() {
    QMenu menu;
    menu.addAction(u"One"_s);
    Published published(m_bus->address(), &menu);
    QVERIFY(!published.host().layout(4711));
    QVERIFY(!published.host().aboutToShow(4711));
    QVERIFY(!published.host().event(4711, u"clicked"_s));
    QVERIFY(!published.host().property(4711, u"label"_s).isValid());
}

void tst_DBusMenuExporter::addedAndRemovedEntriesAreAnnouncedOncePerBurst() {
    QMenu menu;
    QMenu* sub = menu.addMenu(u"Sub"_s);
    sub->addAction(u"Loading…"_s);
    Published published(m_bus->address(), &menu);
    const int subId = published.layout().children[0].id;
    published.settle();
    const qsizetype before = published.host().layoutUpdates().size();

    sub->clear();
    sub->addAction(u"First"_s);
    sub->addAction(u"Second"_s);
    QVERIFY(published.host().waitForLayoutUpdate(before));
    published.settle();
    QCOMPARE(published.host().layoutUpdates().size(), before + 1);
    QCOMPARE(published.host().layoutUpdates().constLast().second, subId);
    const uint revision = published.host().layoutUpdates().constLast().first;
    // The revision given with the layout is the announced one.
    const auto layout = published.host().layout(subId);
    QVERIFY(layout);
    QCOMPARE(published.host().lastRevision(), revision);
    QCOMPARE(layout->shownLabels(), QStringList({u"First"_s, u"Second"_s}));
}

void tst_DBusMenuExporter::changedPropertiesAreAnnouncedAsProperties() {
    QMenu menu;
    QAction* entry = menu.addAction(u"Add"_s);
    QAction* other = menu.addAction(u"Other"_s);
    Published published(m_bus->address(), &menu);
    const Node layout = published.layout();
    published.settle();
    const qsizetype layoutUpdates = published.host().layoutUpdates().size();
    const int propertyUpdates = published.host().propertyUpdates();

    entry->setEnabled(false);
    other->setText(u"Renamed_"_s);
    other->setVisible(false);
    QVERIFY(published.host().waitForPropertyUpdate(propertyUpdates));
    published.settle();
    // One announcement for the burst, with exactly what changed, and no new layout: panels
    // update entries in place.
    QCOMPARE(published.host().propertyUpdates(), propertyUpdates + 1);
    QCOMPARE(published.host().layoutUpdates().size(), layoutUpdates);
    const auto updated = published.host().updatedProperties();
    QCOMPARE(updated.size(), 2);
    QCOMPARE(updated[0].first, layout.children[0].id);
    QCOMPARE(updated[0].second, QVariantMap({{u"enabled"_s, false}}));
    QCOMPARE(updated[1].first, layout.children[1].id);
    // A hidden entry cannot be chosen either.
    QCOMPARE(
        updated[1].second,
        QVariantMap({{u"label"_s, u"Renamed__"_s}, {u"visible"_s, false}, {u"enabled"_s, false}}));

    // A change made and undone before the announcement goes out is no change.
    entry->setEnabled(true);
    entry->setEnabled(false);
    other->setData(42);
    published.settle();
    QCOMPARE(published.host().propertyUpdates(), propertyUpdates + 1);
}

void tst_DBusMenuExporter::changeBeforeAPartialReadIsStillAnnounced() {
    QMenu menu;
    QAction* entry = menu.addAction(u"Add"_s);
    Published published(m_bus->address(), &menu);
    const Node layout = published.layout();
    published.settle();
    const int propertyUpdates = published.host().propertyUpdates();

    // A panel reads the kinds of the entries between the change and its announcement: it was
    // told nothing of the change.
    entry->setEnabled(false);
    DBusMenuLayoutItem kinds;
    published.exporter.GetLayout(0, -1, {u"type"_s, u"children-display"_s}, kinds);
    QVERIFY(published.host().waitForPropertyUpdate(propertyUpdates));
    const auto updated = published.host().updatedProperties();
    QCOMPARE(updated.constLast().first, layout.children[0].id);
    QCOMPARE(updated.constLast().second.value(u"enabled"_s), QVariant(false));
}

void tst_DBusMenuExporter::entryGainingSubmenuIsNewLayout() {
    QMenu menu;
    QAction* entry = menu.addAction(u"Entry"_s);
    Published published(m_bus->address(), &menu);
    published.layout();
    published.settle();
    const qsizetype before = published.host().layoutUpdates().size();
    QMenu sub;
    sub.addAction(u"Inner"_s);
    entry->setMenu(&sub);
    QVERIFY(published.host().waitForLayoutUpdate(before));
    QCOMPARE(published.host().layoutUpdates().constLast().second, 0);
    const Node layout = published.layout();
    QVERIFY(layout.children[0].hasSubmenu());
    QCOMPARE(layout.children[0].shownLabels(), QStringList({u"Inner"_s}));
    entry->setMenu(nullptr);
}

void tst_DBusMenuExporter::replacedMenuIsAnnouncedAsWhole() {
    QMenu first;
    first.addAction(u"Setup"_s);
    QMenu second;
    second.addAction(u"Full"_s);
    Published published(m_bus->address(), &first);
    published.layout();
    published.settle();
    const qsizetype before = published.host().layoutUpdates().size();
    published.exporter.setMenu(&second);
    QVERIFY(published.host().waitForLayoutUpdate(before));
    QCOMPARE(published.host().layoutUpdates().constLast().second, 0);
    QCOMPARE(published.layout().shownLabels(), QStringList({u"Full"_s}));
}

void tst_DBusMenuExporter::aboutToShowReportsEntriesAddedWhileOpening() {
    QMenu menu;
    QMenu* sub = menu.addMenu(u"Sub"_s);
    QAction* loading = sub->addAction(u"Loading…"_s);
    Published published(m_bus->address(), &menu);
    const int subId = published.layout().children[0].id;
    published.settle();

    // Filled at once (from a cache): the panel should read the submenu again.
    auto fill = connect(sub, &QMenu::aboutToShow, sub, [sub, loading] {
        sub->removeAction(loading);
        sub->addAction(u"Bookmark"_s);
    });
    QCOMPARE(published.host().aboutToShow(subId), std::optional<bool>(true));
    disconnect(fill);
    QCOMPARE(published.host().layout(subId)->shownLabels(), QStringList({u"Bookmark"_s}));
    QVERIFY(published.host().event(subId, u"closed"_s));
    // Nothing changes: nothing to read.
    QSignalSpy shown(&menu, &QMenu::aboutToShow);
    QCOMPARE(published.host().aboutToShow(0), std::optional<bool>(false));
    QCOMPARE(shown.size(), 1);
}

void tst_DBusMenuExporter::aboutToShowGroupOpensEveryMenu() {
    QMenu menu;
    QMenu* first = menu.addMenu(u"First"_s);
    QMenu* second = menu.addMenu(u"Second"_s);
    first->addAction(u"Loading…"_s);
    second->addAction(u"Inner"_s);
    Published published(m_bus->address(), &menu);
    const Node layout = published.layout();
    published.settle();
    QSignalSpy firstShown(first, &QMenu::aboutToShow);
    QSignalSpy secondShown(second, &QMenu::aboutToShow);
    auto fill =
        connect(first, &QMenu::aboutToShow, first, [first] { first->addAction(u"Bookmark"_s); });

    const auto answer =
        published.host().aboutToShowGroup({layout.children[0].id, layout.children[1].id, 999});
    disconnect(fill);
    QVERIFY(answer);
    QCOMPARE(answer->updatesNeeded, QList<int>({layout.children[0].id}));
    QCOMPARE(answer->idErrors, QList<int>({999}));
    QCOMPARE(firstShown.size(), 1);
    QCOMPARE(secondShown.size(), 1);
}

void tst_DBusMenuExporter::openedEventAfterAboutToShowCountsOnce() {
    QMenu menu;
    menu.addAction(u"One"_s);
    Published published(m_bus->address(), &menu);
    published.layout();
    QSignalSpy shown(&menu, &QMenu::aboutToShow);
    QVERIFY(published.host().aboutToShow(0));
    QVERIFY(published.host().event(0, u"opened"_s));
    QCOMPARE(shown.size(), 1);
    QVERIFY(published.host().event(0, u"closed"_s));
    // A panel that sends only the event.
    QVERIFY(published.host().event(0, u"opened"_s));
    QCOMPARE(shown.size(), 2);
}

void tst_DBusMenuExporter::closedEventHidesMenu() {
    QMenu menu;
    QMenu* sub = menu.addMenu(u"Sub"_s);
    Published published(m_bus->address(), &menu);
    const Node layout = published.layout();
    QSignalSpy hidden(sub, &QMenu::aboutToHide);
    QVERIFY(published.host().event(layout.children[0].id, u"closed"_s));
    QCOMPARE(hidden.size(), 1);
}

void tst_DBusMenuExporter::clickedTriggersEnabledEntriesOnly() {
    QMenu menu;
    QAction* enabled = menu.addAction(u"Enabled"_s);
    QAction* disabled = menu.addAction(u"Disabled"_s);
    disabled->setEnabled(false);
    QMenu* sub = menu.addMenu(u"Sub"_s);
    Published published(m_bus->address(), &menu);
    const Node layout = published.layout();
    QSignalSpy enabledSpy(enabled, &QAction::triggered);
    QSignalSpy disabledSpy(disabled, &QAction::triggered);
    QSignalSpy subSpy(sub->menuAction(), &QAction::triggered);
    for (const Node& child : layout.children)
        QVERIFY(published.host().event(child.id, u"clicked"_s));
    QTRY_COMPARE(enabledSpy.size(), 1);
    published.settle();
    QCOMPARE(disabledSpy.size(), 0);
    QCOMPARE(subSpy.size(), 0);
}

void tst_DBusMenuExporter::hoveredHighlightsEntry() {
    QMenu menu;
    QAction* entry = menu.addAction(u"Entry"_s);
    Published published(m_bus->address(), &menu);
    const Node layout = published.layout();
    QSignalSpy hovered(&menu, &QMenu::hovered);
    QVERIFY(published.host().event(layout.children[0].id, u"hovered"_s));
    QCOMPARE(hovered.size(), 1);
    QCOMPARE(hovered[0][0].value<QAction*>(), entry);
}

void tst_DBusMenuExporter::eventGroupDeliversEventsAndReportsUnknownIds() {
    QMenu menu;
    QAction* entry = menu.addAction(u"Entry"_s);
    QMenu* sub = menu.addMenu(u"Sub"_s);
    Published published(m_bus->address(), &menu);
    const Node layout = published.layout();
    QSignalSpy triggered(entry, &QAction::triggered);
    QSignalSpy opened(sub, &QMenu::aboutToShow);
    const auto errors = published.host().eventGroup({{layout.children[0].id, u"clicked"_s},
                                                     {layout.children[1].id, u"opened"_s},
                                                     {999, u"clicked"_s}});
    QVERIFY(errors);
    QCOMPARE(*errors, QList<int>({999}));
    QTRY_COMPARE(triggered.size(), 1);
    QCOMPARE(opened.size(), 1);
}

void tst_DBusMenuExporter::groupPropertiesIncludeMenuItself() {
    QMenu menu;
    menu.addAction(u"One"_s);
    menu.addAction(u"Two"_s);
    Published published(m_bus->address(), &menu);
    const Node layout = published.layout();

    // Panels built on libdbusmenu ask for the menu itself (0) with every reading.
    const auto some = published.host().groupProperties({0, layout.children[1].id});
    QVERIFY(some);
    QCOMPARE(some->size(), 2);
    QCOMPARE(some->at(0).first, 0);
    QCOMPARE(some->at(0).second.value(u"children-display"_s).toString(), u"submenu"_s);
    QCOMPARE(some->at(1).first, layout.children[1].id);
    QCOMPARE(some->at(1).second.value(u"label"_s).toString(), u"Two"_s);

    // No ids: everything, the menu itself too.
    const auto all = published.host().groupProperties({}, {u"label"_s});
    QVERIFY(all);
    QCOMPARE(all->size(), 3);
    QList<int> ids;
    for (const auto& [id, properties] : *all)
        ids.append(id);
    std::sort(ids.begin(), ids.end());
    QCOMPARE(ids, QList<int>({0, layout.children[0].id, layout.children[1].id}));
}

void tst_DBusMenuExporter::propertyOfMenuItself() {
    QMenu menu;
    Published published(m_bus->address(), &menu);
    QCOMPARE(published.host().property(0, u"children-display"_s).toString(), u"submenu"_s);
}

namespace {

// A menu of two levels; the second menu's entries are the first's with one more.
void fill(QMenu& menu, bool extra = false) {
    menu.addAction(u"Header"_s)->setEnabled(false);
    menu.addSeparator();
    QMenu* sub = menu.addMenu(u"Sub"_s);
    sub->addAction(u"Same"_s);
    sub->addAction(u"Same"_s);
    if (extra)
        menu.addAction(u"New"_s);
    menu.addAction(u"Quit"_s);
}

int idOf(const Node& menu, const QString& label) {
    const Node* node = menu.find(label);
    return node ? node->id : -1;
}

} // namespace

void tst_DBusMenuExporter::idsStayWithReplacingEntries() {
    QMenu first;
    fill(first);
    QMenu second;
    fill(second, true);
    Published published(m_bus->address(), &first);
    const Node before = published.layout();
    published.exporter.setMenu(&second);
    const Node after = published.layout();
    QCOMPARE(after.shownLabels(),
             QStringList({u"Header"_s, u"---"_s, u"Sub"_s, u"New"_s, u"Quit"_s}));
    QCOMPARE(after.children[0].id, before.children[0].id);
    QCOMPARE(after.children[1].id, before.children[1].id);
    QCOMPARE(after.children[2].id, before.children[2].id);
    QCOMPARE(after.children[4].id, before.children[3].id);
    // Entries of the same label stay apart, in order.
    QCOMPARE(after.children[2].children[0].id, before.children[2].children[0].id);
    QCOMPARE(after.children[2].children[1].id, before.children[2].children[1].id);
    // A new entry, a new id.
    const QList<int> old{before.children[0].id,
                         before.children[1].id,
                         before.children[2].id,
                         before.children[3].id,
                         before.children[2].children[0].id,
                         before.children[2].children[1].id};
    QVERIFY(!old.contains(after.children[3].id));
}

void tst_DBusMenuExporter::idsComeBackAfterStandInMenu() {
    // A refresh shows "Loading…" between two full menus.
    QMenu full;
    fill(full);
    QMenu loading;
    loading.addAction(u"Loading…"_s)->setEnabled(false);
    loading.addSeparator();
    loading.addAction(u"Quit"_s);
    QMenu again;
    fill(again);
    Published published(m_bus->address(), &full);
    const Node before = published.layout();
    published.exporter.setMenu(&loading);
    QCOMPARE(published.layout().shownLabels(), QStringList({u"Loading…"_s, u"---"_s, u"Quit"_s}));
    published.exporter.setMenu(&again);
    const Node after = published.layout();
    QCOMPARE(idOf(after, u"Header"_s), idOf(before, u"Header"_s));
    QCOMPARE(idOf(after, u"Sub"_s), idOf(before, u"Sub"_s));
    QCOMPARE(idOf(after, u"Quit"_s), idOf(before, u"Quit"_s));
    QCOMPARE(after.children[2].children[1].id, before.children[2].children[1].id);
}

namespace {

// How GNOME Shell's AppIndicator extension applies a new layout to the entries it shows: an
// entry it did not have goes before the one shown at its index, an entry it keeps stays where
// it is shown, the others are removed.
QList<int> appliedWithoutMoves(QList<int> shown, const QList<int>& wanted) {
    for (qsizetype i = 0; i < wanted.size(); ++i)
        if (!shown.contains(wanted[i]))
            shown.insert(std::min(i, shown.size()), wanted[i]);
    shown.removeIf([&wanted](int id) { return !wanted.contains(id); });
    return shown;
}

QList<int> childIds(const Node& menu) {
    QList<int> ids;
    for (const Node& child : menu.children)
        ids.append(child.id);
    return ids;
}

} // namespace

void tst_DBusMenuExporter::replacedMenuShowsInOrderWherePanelsNeverMoveEntries() {
    // A refresh: the full menu, "Loading…" in its place, the full menu again.
    const auto fillFull = [](QMenu& menu) {
        menu.addAction(u"Add"_s);
        menu.addAction(u"Web"_s);
        menu.addSeparator();
        menu.addAction(u"Favourites"_s)->setEnabled(false);
        menu.addSeparator();
        menu.addAction(u"Settings"_s);
        menu.addAction(u"Quit"_s);
    };
    QMenu full;
    fillFull(full);
    QMenu loading;
    loading.addAction(u"Loading…"_s)->setEnabled(false);
    loading.addSeparator();
    loading.addAction(u"Quit"_s);
    QMenu again;
    fillFull(again);
    Published published(m_bus->address(), &loading);
    Node shown = published.layout();
    QList<Node> layouts;
    for (QMenu* next : {&full, &loading, &again}) {
        published.exporter.setMenu(next);
        const Node layout = published.layout();
        QCOMPARE(appliedWithoutMoves(childIds(shown), childIds(layout)), childIds(layout));
        layouts.append(layout);
        shown = layout;
    }
    // Entries that did not change keep their ids all the same.
    QCOMPARE(childIds(layouts[2]), childIds(layouts[0]));
}

void tst_DBusMenuExporter::replacingEntriesAnnounceChangedFlags() {
    QMenu first;
    first.addAction(u"Add"_s)->setEnabled(false);
    first.addAction(u"Other"_s);
    QMenu second;
    second.addAction(u"Add"_s);
    second.addAction(u"Other"_s);
    Published published(m_bus->address(), &first);
    const Node layout = published.layout();
    published.settle();
    const int updates = published.host().propertyUpdates();
    published.exporter.setMenu(&second);
    QVERIFY(published.host().waitForPropertyUpdate(updates));
    // Panels that keep the entry (same id) learn that it is enabled now.
    QCOMPARE(published.host().updatedProperties().constLast(),
             (QPair<int, QVariantMap>(layout.children[0].id, {{u"enabled"_s, true}})));
}

void tst_DBusMenuExporter::aboutToShowWaitsForMenuBeingFilled() {
    QMenu menu;
    QMenu* sub = menu.addMenu(u"Sub"_s);
    QAction* loading = sub->addAction(u"Loading…"_s);
    Published published(m_bus->address(), &menu);
    const int subId = published.layout().children[0].id;
    published.settle();
    const qsizetype updates = published.host().layoutUpdates().size();
    // The submenu is filled from the event loop, a while after the panel asked.
    bool filled = false;
    connect(sub, &QMenu::aboutToShow, sub, [&] {
        sub->setProperty("loading", true);
        QTimer::singleShot(50, sub, [&] {
            sub->removeAction(loading);
            sub->addAction(u"Bookmark"_s);
            filled = true;
            sub->setProperty("loading", false);
        });
    });
    // The answer comes once it is filled, and says to read it again.
    QCOMPARE(published.host().aboutToShow(subId), std::optional<bool>(true));
    QVERIFY(filled);
    QCOMPARE(published.host().layout(subId)->shownLabels(), QStringList({u"Bookmark"_s}));
    // And a layout update follows the answer (Plasma ignores the one after its own reading).
    QVERIFY(published.host().waitForLayoutUpdate(updates));
    QCOMPARE(published.host().layoutUpdates().constLast().second, subId);
}

void tst_DBusMenuExporter::aboutToShowOfSlowMenuAnsweredAtDeadline() {
    QMenu menu;
    QMenu* sub = menu.addMenu(u"Sub"_s);
    sub->addAction(u"Loading…"_s);
    Published published(m_bus->address(), &menu);
    const int subId = published.layout().children[0].id;
    connect(sub, &QMenu::aboutToShow, sub, [sub] { sub->setProperty("loading", true); });
    QElapsedTimer clock;
    clock.start();
    // Never filled: answered after the wait, with nothing to read again.
    QCOMPARE(published.host().aboutToShow(subId), std::optional<bool>(false));
    QVERIFY(clock.elapsed() >= DBusMenuExporter::fillWait.count() - 50);
}

void tst_DBusMenuExporter::aboutToShowGroupWaitsForEveryMenu() {
    QMenu menu;
    QMenu* first = menu.addMenu(u"First"_s);
    QMenu* second = menu.addMenu(u"Second"_s);
    first->addAction(u"Loading…"_s);
    second->addAction(u"Inner"_s);
    Published published(m_bus->address(), &menu);
    const Node layout = published.layout();
    connect(first, &QMenu::aboutToShow, first, [first] {
        first->setProperty("loading", true);
        QTimer::singleShot(50, first, [first] {
            first->addAction(u"Bookmark"_s);
            first->setProperty("loading", false);
        });
    });
    const auto answer =
        published.host().aboutToShowGroup({layout.children[0].id, layout.children[1].id, 999});
    QVERIFY(answer);
    QCOMPARE(answer->updatesNeeded, QList<int>({layout.children[0].id}));
    QCOMPARE(answer->idErrors, QList<int>({999}));
}

void tst_DBusMenuExporter::openedThenAboutToShowIsOneOpening() {
    QMenu menu;
    QMenu* sub = menu.addMenu(u"Sub"_s);
    Published published(m_bus->address(), &menu);
    const int subId = published.layout().children[0].id;
    QSignalSpy shown(sub, &QMenu::aboutToShow);
    // GNOME's order.
    QVERIFY(published.host().event(subId, u"opened"_s));
    QVERIFY(published.host().aboutToShow(subId));
    QCOMPARE(shown.size(), 1);
    QVERIFY(published.host().event(subId, u"closed"_s));
    // And again: a new opening.
    QVERIFY(published.host().event(subId, u"opened"_s));
    QVERIFY(published.host().aboutToShow(subId));
    QCOMPARE(shown.size(), 2);
    // A panel that only asks (no events): every call an opening.
    QVERIFY(published.host().event(subId, u"closed"_s));
    QVERIFY(published.host().aboutToShow(subId));
    QVERIFY(published.host().aboutToShow(subId));
    QCOMPARE(shown.size(), 4);
}

void tst_DBusMenuExporter::groupedOpeningFillsSubmenusAhead() {
    QMenu menu;
    QMenu* sub = menu.addMenu(u"Sub"_s);
    QMenu* inner = sub->addMenu(u"Inner"_s);
    QMenu* hidden = menu.addMenu(u"Hidden"_s);
    hidden->menuAction()->setVisible(false);
    Published published(m_bus->address(), &menu);
    const int subId = published.layout().children[0].id;
    QSignalSpy subShown(sub, &QMenu::aboutToShow);
    QSignalSpy innerShown(inner, &QMenu::aboutToShow);
    QSignalSpy hiddenShown(hidden, &QMenu::aboutToShow);
    // libdbusmenu-gtk opens the menu itself: the submenus it shows fill now, theirs not yet.
    QVERIFY(published.host().aboutToShowGroup({0}));
    QCOMPARE(subShown.size(), 1);
    QCOMPARE(innerShown.size(), 0);
    QCOMPARE(hiddenShown.size(), 0);
    // Opened while it is still being filled: not asked again. A submenu's own submenus fill as
    // each opens (a list of collections holds hundreds).
    sub->setProperty("loading", true);
    const auto errors = published.host().eventGroup({{subId, u"opened"_s}});
    QVERIFY(errors && errors->isEmpty());
    QCOMPARE(subShown.size(), 1);
    QCOMPARE(innerShown.size(), 0);
    sub->setProperty("loading", false);
    QVERIFY(published.host().eventGroup({{subId, u"closed"_s}}));
    // A panel that opens menus with single calls shows them once answered: nothing ahead.
    QVERIFY(published.host().aboutToShow(0));
    QCOMPARE(subShown.size(), 1);
}

void tst_DBusMenuExporter::unreadMenuNeedsUpdateAndAnnouncementFollows() {
    QMenu menu;
    QMenu* sub = menu.addMenu(u"Sub"_s);
    sub->addAction(u"Inner"_s);
    Published published(m_bus->address(), &menu);
    // A panel that reads one level (Plasma) has not read the submenu's entries yet.
    const auto top = published.host().layout(0, 1);
    QVERIFY(top);
    const int subId = top->children[0].id;
    published.settle();
    const qsizetype updates = published.host().layoutUpdates().size();
    QCOMPARE(published.host().aboutToShow(subId), std::optional<bool>(true));
    QVERIFY(published.host().waitForLayoutUpdate(updates));
    QCOMPARE(published.host().layoutUpdates().constLast().second, subId);
    // Read now: nothing more to read next time.
    QVERIFY(published.host().layout(subId, 1));
    QVERIFY(published.host().event(subId, u"closed"_s));
    QCOMPARE(published.host().aboutToShow(subId), std::optional<bool>(false));
}

void tst_DBusMenuExporter::kindsAreToldOnceToPanelsReadingKindsAlone() {
    QMenu menu;
    menu.addSeparator();
    menu.addMenu(u"Sub"_s)->addAction(u"Inner"_s);
    Published published(m_bus->address(), &menu);
    const QStringList kinds{u"type"_s, u"children-display"_s};
    // GNOME's reading: the kinds the first time, not again.
    auto layout = published.host().layout(0, -1, kinds);
    QVERIFY(layout);
    QVERIFY(layout->children[0].isSeparator());
    QVERIFY(layout->children[1].hasSubmenu());
    layout = published.host().layout(0, -1, kinds);
    QVERIFY(layout);
    QVERIFY(layout->children[0].properties.isEmpty());
    QVERIFY(layout->children[1].properties.isEmpty());
    // Panels reading labels with their layouts get everything, every time.
    const QStringList full{u"type"_s, u"label"_s, u"children-display"_s};
    for (int reading = 0; reading < 2; ++reading) {
        layout = published.host().layout(0, -1, full);
        QVERIFY(layout);
        QVERIFY(layout->children[0].isSeparator());
        QVERIFY(layout->children[1].hasSubmenu());
    }
}

void tst_DBusMenuExporter::panelOpenStateFollowsItsEvents() {
    QMenu menu;
    QAction* entry = menu.addAction(u"Entry"_s);
    Published published(m_bus->address(), &menu);
    const Node layout = published.layout();
    QSignalSpy closed(&published.exporter, &DBusMenuExporter::menuClosed);
    QVERIFY(!published.exporter.isMenuOpen());
    // Asking alone does not open it (some panels ask whenever they like).
    QVERIFY(published.host().aboutToShow(0));
    QVERIFY(!published.exporter.isMenuOpen());
    QVERIFY(published.host().event(0, u"opened"_s));
    QVERIFY(published.exporter.isMenuOpen());
    QVERIFY(published.host().event(0, u"closed"_s));
    QVERIFY(!published.exporter.isMenuOpen());
    QCOMPARE(closed.size(), 1);
    // Choosing an entry closes the panel's menu, whether it says so or not.
    QSignalSpy triggered(entry, &QAction::triggered);
    QVERIFY(published.host().event(0, u"opened"_s));
    QVERIFY(published.host().event(layout.children[0].id, u"clicked"_s));
    QTRY_COMPARE(closed.size(), 2);
    QCOMPARE(triggered.size(), 1);
    QVERIFY(!published.exporter.isMenuOpen());
}

namespace {

// "Collections" with two entries whose submenus are made when highlighted, each holding
// "Loading…" as made.
struct OnDemand {
    OnDemand() {
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
    }

    QMenu root;
    LazyEntryMenu* collections = nullptr;
    QAction* reading = nullptr;
    QAction* later = nullptr;
    int made = 0;
};

} // namespace

void tst_DBusMenuExporter::entriesMadeOnDemandAreSubmenusWithAStandIn() {
    OnDemand menu;
    Published published(m_bus->address(), &menu.root);
    QVERIFY(published.isRegistered());
    const Node layout = published.layout();
    const Node& collections = layout.children.value(0);
    QCOMPARE(collections.children.size(), 2);
    for (const Node& entry : collections.children) {
        QVERIFY(entry.hasSubmenu());
        QCOMPARE(entry.children.size(), 1);
        QCOMPARE(entry.children[0].label(), u"Loading…"_s);
        QVERIFY(!entry.children[0].isEnabled());
    }
    // Reading the whole menu made no submenu.
    QCOMPARE(menu.made, 0);
    QVERIFY(!menu.reading->menu());
    // The stand-in keeps its id from one reading to the next.
    QCOMPARE(published.layout().children[0].children[0].children[0].id,
             collections.children[0].children[0].id);
}

void tst_DBusMenuExporter::standInAnswersLikeAnEntry() {
    OnDemand menu;
    Published published(m_bus->address(), &menu.root);
    const int standIn = published.layout().children[0].children[0].children[0].id;
    QCOMPARE(published.host().property(standIn, u"label"_s).toString(), u"Loading…"_s);
    QCOMPARE(published.host().property(standIn, u"enabled"_s).toBool(), false);
    // A click or a highlight of it is no error, and does nothing.
    QCOMPARE(published.host().eventGroup({{standIn, u"clicked"_s}, {standIn, u"hovered"_s}}),
             std::optional<QList<int>>(QList<int>()));
    QCOMPARE(menu.made, 0);
}

void tst_DBusMenuExporter::aboutToShowMakesTheSubmenu() {
    OnDemand menu;
    Published published(m_bus->address(), &menu.root);
    const Node layout = published.layout();
    const int reading = layout.children[0].children[0].id;
    // Made as the panel is about to show it: the panel reads it again, and finds what its
    // stand-in showed.
    QCOMPARE(published.host().aboutToShow(reading), std::optional<bool>(true));
    QCOMPARE(menu.made, 1);
    QVERIFY(menu.reading->menu());
    QVERIFY(!menu.later->menu());
    const Node submenu = published.host().layout(reading).value_or(Node());
    QVERIFY(submenu.hasSubmenu());
    QCOMPARE(submenu.shownLabels(), QStringList{u"Loading…"_s});
    // "Collections" and its entries did not change for the panel.
    published.settle();
    for (const auto& [revision, parent] : published.host().layoutUpdates())
        QCOMPARE_NE(parent, layout.children[0].id);
    QCOMPARE(published.layout().children[0].children.size(), 2);
    // Shown again: it was made already.
    QCOMPARE(published.host().aboutToShow(reading), std::optional<bool>(false));
    QCOMPARE(menu.made, 1);
}

void tst_DBusMenuExporter::openedEventMakesTheSubmenu() {
    OnDemand menu;
    Published published(m_bus->address(), &menu.root);
    const int later = published.layout().children[0].children[1].id;
    QVERIFY(published.host().event(later, u"opened"_s));
    QCOMPARE(menu.made, 1);
    QVERIFY(menu.later->menu());
    QVERIFY(!menu.reading->menu());
}

void tst_DBusMenuExporter::submenusBeyondReadingAreAnnounced() {
    QMenu menu;
    QMenu* sub = menu.addMenu(u"Sub"_s);
    sub->addMenu(u"Inner"_s)->addAction(u"Deep"_s);
    menu.addAction(u"Plain"_s);
    Published published(m_bus->address(), &menu);
    published.settle();
    const qsizetype before = published.host().layoutUpdates().size();
    // A panel that reads one level at a time (Plasma) is told of the submenus below it, so
    // that it reads them before the user opens them.
    const auto top = published.host().layout(0, 1);
    QVERIFY(top);
    const int subId = top->children[0].id;
    QVERIFY(published.host().waitForLayoutUpdate(before));
    published.settle();
    QCOMPARE(published.host().layoutUpdates().size(), before + 1);
    QCOMPARE(published.host().layoutUpdates().constLast().second, subId);
    const auto second = published.host().layout(subId, 1);
    QVERIFY(second);
    QVERIFY(published.host().waitForLayoutUpdate(before + 1));
    QCOMPARE(published.host().layoutUpdates().constLast().second, second->children[0].id);
    // Read: not announced again.
    published.host().layout(second->children[0].id, 1);
    published.host().layout(0, 1);
    published.settle();
    QCOMPARE(published.host().layoutUpdates().size(), before + 2);
}

QTEST_MAIN(tst_DBusMenuExporter)
#include "tst_DBusMenuExporter.moc"
