#include "FakeRaindropService.h"
#include "MenuTree.h"

#include "app/tray/StatusItem.h"
#include "menu/MenuManager.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QSet>
#include <QTest>
#include <QThread>

#include <malloc.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

// Qt's object hooks (the ones debugging tools use): called as every QObject is constructed and
// destroyed. Declared in Qt's private qhooks_p.h.
extern quintptr Q_CORE_EXPORT qtHookData[];

namespace {

enum HookIndex { AddQObject = 3, RemoveQObject = 4 };

QMutex liveMutex;
QSet<QObject*>* liveObjects = nullptr;
Qt::HANDLE mainThread = nullptr;

void objectAdded(QObject* object) {
    // Objects of the network threads come and go on their own; the menu lives on this one.
    if (QThread::currentThreadId() != mainThread)
        return;
    QMutexLocker locker(&liveMutex);
    liveObjects->insert(object);
}

void objectRemoved(QObject* object) {
    QMutexLocker locker(&liveMutex);
    liveObjects->remove(object);
}

bool isWithin(const QObject* object, const QObject* root) {
    for (; object; object = object->parent())
        if (object == root)
            return true;
    return false;
}

// Live objects of this thread by class, less those of the test server (its connections).
QHash<QByteArray, int> census(const QObject* server) {
    QMutexLocker locker(&liveMutex);
    QHash<QByteArray, int> counts;
    for (QObject* object : std::as_const(*liveObjects)) {
        if (object->thread() == QThread::currentThread() && !isWithin(object, server))
            ++counts[object->metaObject()->className()];
    }
    return counts;
}

qint64 residentBytes() {
    QFile statm(u"/proc/self/statm"_s);
    if (!statm.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.value(1).toLongLong() * sysconf(_SC_PAGESIZE);
}

void settle() {
    for (int i = 0; i < 3; ++i) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
    }
}

struct TestClock {
    std::shared_ptr<std::chrono::steady_clock::time_point> now =
        std::make_shared<std::chrono::steady_clock::time_point>(std::chrono::steady_clock::now());
};

// A running menu with everything in it, rebuilt and used over and over.
class Workload {
public:
    Workload() {
        QJsonArray favourites;
        for (int i = 0; i < 10; ++i)
            favourites.append(FakeRaindropService::bookmark(
                100 + i, u"Favourite %1"_s.arg(i), u"https://f.example/%1"_s.arg(i), true));
        service.setItems(u"favourites"_s, favourites);
        QJsonArray collections;
        for (int i = 0; i < 20; ++i)
            collections.append(
                FakeRaindropService::collection(i + 1, u"Collection %1"_s.arg(i), i));
        service.setItems(u"collections"_s, collections);
        QJsonArray tags;
        for (int i = 0; i < 30; ++i)
            tags.append(FakeRaindropService::tag(u"tag%1"_s.arg(i), 30 - i));
        service.setItems(u"tags"_s, tags);
        QJsonArray bookmarks;
        for (int i = 0; i < 20; ++i)
            bookmarks.append(FakeRaindropService::bookmark(200 + i, u"Bookmark %1"_s.arg(i),
                                                           u"https://b.example/%1"_s.arg(i)));
        service.setItems(u"recent"_s, bookmarks);
        service.setItems(u"col_1"_s, bookmarks);
        service.setItems(u"col_2"_s, bookmarks);
        service.setItems(u"tag_tag0"_s, bookmarks);

        AppConfig config;
        config.token = u"t"_s;
        config.pinnedCollectionIds = {1};
        config.pinnedTags = {u"tag0"_s};
        MenuManager::Timings timings;
        timings.refreshInterval = 1h;
        timings.clock = [now = clock.now] {
            return *now;
        };
        manager =
            std::make_unique<MenuManager>(&statusItem, config, service.environment(), timings);
        manager->buildInitialMenu();
        manager->loadData();
        menu = MenuTree::waitForFullMenu(statusItem);
    }

    // One refresh: the placeholder, then the full menu again.
    bool refresh() {
        // The test server's record of requests is not the program's memory.
        service.server().clearRequests();
        manager->refresh();
        menu = MenuTree::waitForFullMenu(statusItem, menu);
        settle();
        return menu;
    }

    // A refresh, then the submenus a person opens: a pinned list, a collection, and Recent
    // twice with a stale reload that replaces its items in between.
    bool cycle() {
        if (!refresh())
            return false;
        // Every entry of "Collections" and "Tags" is highlighted, and gets its submenu.
        for (const QString& list : {u"📁 Collections"_s, u"🏷 Tags"_s}) {
            const QMenu* entries = MenuTree::submenu(menu, list);
            const QList<QAction*> actions = entries ? entries->actions() : QList<QAction*>();
            for (const QAction* entry : actions)
                if (!MenuTree::submenu(entries, entry->text()))
                    return false;
        }
        const QList<QMenu*> opened{
            MenuTree::submenu(menu, u"Collection 0"_s),
            MenuTree::submenu(MenuTree::submenu(menu, u"📁 Collections"_s), u"Collection 1  (1)"_s),
            MenuTree::submenu(menu, u"🕐 Recent"_s)};
        for (QMenu* submenu : opened) {
            if (!submenu || !open(submenu))
                return false;
        }
        return reloadRecent();
    }

    // Recent again after it went stale, with other bookmarks than before.
    bool reloadRecent() {
        QMenu* recent = MenuTree::submenu(menu, u"🕐 Recent"_s);
        const QString first = recent->actions().constFirst()->text();
        *clock.now += 31min;
        service.setItems(u"recent"_s, ++round % 2 ? QJsonArray{FakeRaindropService::bookmark(
                                                        300, u"Other"_s, u"https://o/"_s)}
                                                  : recentItems());
        Q_EMIT recent->aboutToShow();
        QDeadlineTimer deadline(5s);
        while (recent->actions().constFirst()->text() == first && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        settle();
        return !deadline.hasExpired();
    }

    FakeRaindropService service;
    TestClock clock;
    StatusItem statusItem;
    std::unique_ptr<MenuManager> manager;
    QMenu* menu = nullptr;

private:
    static bool open(QMenu* submenu) {
        Q_EMIT submenu->aboutToShow();
        QDeadlineTimer deadline(5s);
        while (submenu->actions().constFirst()->text() == u"Loading…"_s && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        return !deadline.hasExpired();
    }
    QJsonArray recentItems() const {
        QJsonArray bookmarks;
        for (int i = 0; i < 20; ++i)
            bookmarks.append(FakeRaindropService::bookmark(200 + i, u"Bookmark %1"_s.arg(i),
                                                           u"https://b.example/%1"_s.arg(i)));
        return bookmarks;
    }
    int round = 0;
};

} // namespace

class tst_MenuMemory : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void objectsDoNotGrow();
    void residentMemory();
};

void tst_MenuMemory::initTestCase() {
    QCOMPARE(qtHookData[2], quintptr(QT_VERSION)); // the hook table is the one described above
    liveObjects = new QSet<QObject*>();
    mainThread = QThread::currentThreadId();
    qtHookData[AddQObject] = reinterpret_cast<quintptr>(&objectAdded);
    qtHookData[RemoveQObject] = reinterpret_cast<quintptr>(&objectRemoved);
}

void tst_MenuMemory::cleanupTestCase() {
    qtHookData[AddQObject] = 0;
    qtHookData[RemoveQObject] = 0;
}

void tst_MenuMemory::objectsDoNotGrow() {
    Workload workload;
    QVERIFY(workload.menu);
    for (int i = 0; i < 5; ++i)
        QVERIFY(workload.cycle());
    const QHash<QByteArray, int> before = census(&workload.service.server());
    QVERIFY(before.value("QMenu") > 50);
    QVERIFY(before.value("QAction") > 300);
    QVERIFY(before.value("LazyMenuDelegate") > 40);

    for (int i = 0; i < 100; ++i)
        QVERIFY(workload.cycle());
    const QHash<QByteArray, int> after = census(&workload.service.server());
    for (const QByteArray& name : {QByteArray("QMenu"), QByteArray("QAction"),
                                   QByteArray("LazyMenuDelegate"), QByteArray("QTimer")}) {
        QCOMPARE(after.value(name), before.value(name));
    }
    // Every object counts, less the one-shot timers: each load arms one for its update check,
    // and they go away on their own when they fire.
    const QByteArray oneShots("QSingleShotTimer");
    int beforeTotal = 0;
    for (auto it = before.cbegin(); it != before.cend(); ++it)
        beforeTotal += it.key() == oneShots ? 0 : it.value();
    int afterTotal = 0;
    for (auto it = after.cbegin(); it != after.cend(); ++it) {
        if (it.key() == oneShots)
            continue;
        afterTotal += it.value();
        if (it.value() > before.value(it.key()))
            qWarning("%s: %d -> %d", it.key().constData(), before.value(it.key()), it.value());
    }
    QVERIFY2(afterTotal <= beforeTotal, qPrintable(u"%1 -> %2"_s.arg(beforeTotal).arg(afterTotal)));
    QCOMPARE(workload.manager->lazyDelegates().size(), before.value("LazyMenuDelegate"));

    // Without a refresh, a submenu that is filled again and again releases its old items.
    for (int i = 0; i < 4; ++i)
        QVERIFY(workload.reloadRecent());
    const QHash<QByteArray, int> reloaded = census(&workload.service.server());
    for (int i = 0; i < 50; ++i)
        QVERIFY(workload.reloadRecent());
    const QHash<QByteArray, int> reloadedAgain = census(&workload.service.server());
    QCOMPARE(reloadedAgain.value("QMenu"), reloaded.value("QMenu"));
    QCOMPARE(reloadedAgain.value("QAction"), reloaded.value("QAction"));
}

void tst_MenuMemory::residentMemory() {
#ifdef __SANITIZE_ADDRESS__
    QSKIP("AddressSanitizer holds freed memory in quarantine, so the resident size says nothing "
          "about leaks here; objectsDoNotGrow and LeakSanitizer cover this build.");
#endif
    Workload workload;
    QVERIFY(workload.menu);
    for (int i = 0; i < 50; ++i)
        QVERIFY(workload.cycle());
    const qint64 untrimmedBefore = residentBytes();
    // Freed memory that the allocator keeps is handed back, so that only live memory counts.
    malloc_trim(0);
    const qint64 before = residentBytes();
    QElapsedTimer elapsed;
    elapsed.start();
    for (int i = 0; i < 1000; ++i)
        QVERIFY(workload.refresh());
    const qint64 untrimmedAfter = residentBytes();
    malloc_trim(0);
    const qint64 after = residentBytes();
    qInfo("resident memory before and after 1000 refreshes (%lld ms): %.2f MiB -> %.2f MiB; "
          "before handing freed memory back: %.2f MiB -> %.2f MiB",
          qint64(elapsed.elapsed()), before / 1048576.0, after / 1048576.0,
          untrimmedBefore / 1048576.0, untrimmedAfter / 1048576.0);
    QVERIFY2(after - before < 2 * 1024 * 1024, "resident memory grew by 2 MiB or more");
}

QTEST_MAIN(tst_MenuMemory)
#include "tst_MenuMemory.moc"
