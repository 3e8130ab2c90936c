#include "app/tray/DBusMenuEntryIds.h"

#include <QAction>
#include <QMenu>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// The ids of the menu's entries, given now where missing.
QList<int> idsOf(DBusMenuEntryIds& ids, const QMenu& menu) {
    QList<int> found;
    const QList<QAction*> actions = menu.actions();
    for (QAction* action : actions)
        found.append(ids.idOf(action));
    return found;
}

QList<int> emitted(const QSignalSpy& spy) {
    QList<int> ids;
    for (const QList<QVariant>& arguments : spy)
        ids.append(arguments.at(0).toInt());
    return ids;
}

} // namespace

class tst_DBusMenuEntryIds : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void idsAreGivenOnceAndFound();
    void menusAreFoundByTheirEntry();
    void destroyedEntryIsReleased();
    void replacingEntriesTakeOverIdsInPlace();
    void entriesOutOfPlaceGetNewIds();
    void leftEntriesComeBackOneReplacementLater();
    void submenuWithOtherEntriesIsReported();
    void placeholderLivesWithItsEntry();
};

void tst_DBusMenuEntryIds::idsAreGivenOnceAndFound() {
    QMenu menu;
    QAction* one = menu.addAction(u"One"_s);
    QAction* two = menu.addAction(u"Two"_s);
    DBusMenuEntryIds ids;
    ids.setMenu(&menu);
    QCOMPARE(ids.knownIdOf(one), std::nullopt);
    const int first = ids.idOf(one);
    const int second = ids.idOf(two);
    QVERIFY(first != 0 && second != 0 && first != second);
    QCOMPARE(ids.idOf(one), first);
    QCOMPARE(ids.knownIdOf(one), first);
    QCOMPARE(ids.actionOf(second), two);
    QCOMPARE(ids.actionOf(4711), nullptr);
    QCOMPARE(ids.entryIds().size(), 2);
}

void tst_DBusMenuEntryIds::menusAreFoundByTheirEntry() {
    QMenu menu;
    QMenu* sub = menu.addMenu(u"Sub"_s);
    DBusMenuEntryIds ids;
    ids.setMenu(&menu);
    QCOMPARE(ids.menuOf(0), &menu);
    QCOMPARE(ids.knownIdOfMenu(&menu), 0);
    // A submenu is known once its entry has an id.
    QCOMPARE(ids.knownIdOfMenu(sub), std::nullopt);
    const int id = ids.idOf(sub->menuAction());
    QCOMPARE(ids.knownIdOfMenu(sub), id);
    QCOMPARE(ids.menuOf(id), sub);
    QCOMPARE(ids.menuOf(ids.idOf(menu.addAction(u"Plain"_s))), nullptr);
}

void tst_DBusMenuEntryIds::destroyedEntryIsReleased() {
    QMenu menu;
    auto* gone = new QAction(u"Gone"_s, &menu);
    menu.addAction(gone);
    DBusMenuEntryIds ids;
    ids.setMenu(&menu);
    const int id = ids.idOf(gone);
    QSignalSpy released(&ids, &DBusMenuEntryIds::released);
    delete gone;
    QCOMPARE(emitted(released), QList<int>{id});
    QCOMPARE(ids.actionOf(id), nullptr);
}

void tst_DBusMenuEntryIds::replacingEntriesTakeOverIdsInPlace() {
    QMenu first;
    first.addAction(u"Add"_s);
    first.addSeparator();
    first.addAction(u"Quit"_s);
    QMenu second;
    second.addAction(u"Add"_s);
    second.addSeparator();
    second.addAction(u"Quit"_s);
    DBusMenuEntryIds ids;
    ids.setMenu(&first);
    const QList<int> before = idsOf(ids, first);
    QSignalSpy takenOver(&ids, &DBusMenuEntryIds::takenOver);
    QSignalSpy released(&ids, &DBusMenuEntryIds::released);
    ids.setMenu(&second);
    QCOMPARE(idsOf(ids, second), before);
    QCOMPARE(emitted(takenOver), before);
    QVERIFY(released.isEmpty());
    // The old entries have no ids any more.
    QCOMPARE(ids.knownIdOf(first.actions().constFirst()), std::nullopt);
}

void tst_DBusMenuEntryIds::entriesOutOfPlaceGetNewIds() {
    QMenu first;
    first.addAction(u"A"_s);
    first.addAction(u"B"_s);
    first.addAction(u"C"_s);
    QMenu second;
    second.addAction(u"C"_s);
    second.addAction(u"B"_s);
    second.addAction(u"A"_s);
    DBusMenuEntryIds ids;
    ids.setMenu(&first);
    const QList<int> before = idsOf(ids, first);
    QSignalSpy released(&ids, &DBusMenuEntryIds::released);
    ids.setMenu(&second);
    // Moved entries are new ones to a panel that never moves what it shows.
    const QList<int> after = idsOf(ids, second);
    for (const int id : after)
        QVERIFY(!before.contains(id));
    QCOMPARE(emitted(released).size(), 3);
}

void tst_DBusMenuEntryIds::leftEntriesComeBackOneReplacementLater() {
    const auto fill = [](QMenu& menu) {
        menu.addAction(u"Header"_s);
        menu.addAction(u"Quit"_s);
    };
    QMenu full;
    fill(full);
    QMenu loading;
    loading.addAction(u"Loading…"_s);
    QMenu again;
    fill(again);
    DBusMenuEntryIds ids;
    ids.setMenu(&full);
    const QList<int> before = idsOf(ids, full);
    ids.setMenu(&loading);
    idsOf(ids, loading);
    ids.setMenu(&again);
    QCOMPARE(idsOf(ids, again), before);

    // Long gone, they are new entries when they come back.
    QMenu empty[3];
    for (QMenu& between : empty)
        ids.setMenu(&between);
    QMenu later;
    fill(later);
    ids.setMenu(&later);
    const QList<int> after = idsOf(ids, later);
    for (const int id : after)
        QVERIFY(!before.contains(id));
}

void tst_DBusMenuEntryIds::submenuWithOtherEntriesIsReported() {
    QMenu first;
    QMenu* firstSub = first.addMenu(u"Sub"_s);
    firstSub->addAction(u"Old"_s);
    QMenu* firstSame = first.addMenu(u"Same"_s);
    firstSame->addAction(u"Kept"_s);
    QMenu second;
    QMenu* secondSub = second.addMenu(u"Sub"_s);
    secondSub->addAction(u"New"_s);
    QMenu* secondSame = second.addMenu(u"Same"_s);
    secondSame->addAction(u"Kept"_s);
    DBusMenuEntryIds ids;
    ids.setMenu(&first);
    idsOf(ids, first);
    idsOf(ids, *firstSub);
    idsOf(ids, *firstSame);
    QSignalSpy entriesChanged(&ids, &DBusMenuEntryIds::entriesChanged);
    ids.setMenu(&second);
    // The menu itself is new anyway; of its submenus only the one with other entries counts.
    QCOMPARE(emitted(entriesChanged), QList<int>{*ids.knownIdOfMenu(secondSub)});
    QVERIFY(ids.knownIdOfMenu(secondSame));
}

void tst_DBusMenuEntryIds::placeholderLivesWithItsEntry() {
    QMenu menu;
    auto* entry = new QAction(u"Collection"_s, &menu);
    menu.addAction(entry);
    DBusMenuEntryIds ids;
    ids.setMenu(&menu);
    const int id = ids.idOf(entry);
    QVERIFY(!ids.isPlaceholder(id));
    const int placeholder = ids.placeholderIdOf(id);
    QVERIFY(placeholder != id);
    QCOMPARE(ids.placeholderIdOf(id), placeholder);
    QVERIFY(ids.isPlaceholder(placeholder));
    QCOMPARE(ids.entryOfPlaceholder(placeholder), entry);
    // A stand-in is no entry of its own.
    QCOMPARE(ids.actionOf(placeholder), nullptr);
    delete entry;
    QVERIFY(!ids.isPlaceholder(placeholder));
    QCOMPARE(ids.entryOfPlaceholder(placeholder), nullptr);
}

QTEST_MAIN(tst_DBusMenuEntryIds)
#include "tst_DBusMenuEntryIds.moc"
