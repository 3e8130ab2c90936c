// The program as make bench measures it, with its bookmark service on 127.0.0.1. Results go to
// standard output, one "name value" line each.
//
//   bench_quillmar start API_BASE   starts as main.cpp does; prints "full" once the full menu is
//                                   attached (the configuration with the token is in HOME)
//   bench_quillmar build API_BASE   the network floor and full builds of the menu, and the
//                                   warmed pinned submenu opened
//   bench_quillmar soak API_BASE    1,000 refreshes: resident memory and the objects left
//   bench_quillmar menu API_BASE FILE  writes the full menu's items to FILE, for the floor
//   bench_quillmar reload API_BASE  as start, printing "full" or "failed" for each full menu; each
//                                   SIGUSR1 moves its clock 400 seconds on, as a suspend does
#include "BenchService.h"

#include "app/AppDelegate.h"
#include "app/Application.h"
#include "app/tray/StatusItem.h"
#include "config/AppConfig.h"
#include "config/Environment.h"
#include "menu/BootClock.h"
#include "menu/LazyMenuDelegate.h"
#include "menu/MenuManager.h"
#include "service/HttpSession.h"

#include <QApplication>
#include <QCoroNetworkReply>
#include <QCoroTask>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QHash>
#include <QKeySequence>
#include <QMenu>
#include <QMutex>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QSet>
#include <QThread>
#include <QTimer>
#include <QUrl>
#include <QUrlQuery>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <malloc.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

// Qt's object hooks, which debugging tools use: called as every QObject is made and destroyed.
// Declared in Qt's private qhooks_p.h.
extern quintptr Q_CORE_EXPORT qtHookData[];

namespace {

enum HookIndex { QtVersionHook = 2, AddQObjectHook = 3, RemoveQObjectHook = 4 };

void print(const char* name, double value) {
    std::printf("%s %.3f\n", name, value);
    std::fflush(stdout);
}

double milliseconds(qint64 nanoseconds) {
    return double(nanoseconds) / 1e6;
}

double median(QList<double> values) {
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? 0 : values.at(values.size() / 2);
}

qint64 residentBytes() {
    QFile statm(u"/proc/self/statm"_s);
    if (!statm.open(QIODevice::ReadOnly))
        return -1;
    return statm.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE);
}

bool isFull(const QMenu* menu) {
    return menu && !menu->actions().isEmpty() &&
           menu->actions().constFirst()->text() == u"📋 Add Clipboard URL"_s;
}

QMenu* submenu(const QMenu* menu, const QString& title) {
    const QList<QAction*> actions = menu->actions();
    for (const QAction* action : actions)
        if (action->text() == title)
            return action->menu();
    return nullptr;
}

Environment environmentFor(const QString& apiBase) {
    Environment environment;
    environment.apiBase = apiBase;
    environment.updateManifest =
        QUrl(apiBase).resolved(QUrl(u"/apps/quillmar/latest.json"_s)).toString();
    return environment;
}

AppConfig benchConfig() {
    AppConfig config;
    config.token = u"bench-token"_s;
    config.pinnedCollectionIds = {BenchService::pinnedCollectionId()};
    config.pinnedTags = {BenchService::pinnedTag()};
    return config;
}

// No timer of the menu fires while it is measured.
MenuManager::Timings quietTimings() {
    MenuManager::Timings timings;
    timings.refreshInterval = 24h;
    timings.updateCheckDelay = 24h;
    timings.updateCheckInterval = 24h;
    return timings;
}

// Every reply the shared HTTP client makes is its child: counting the children it gains counts
// the requests.
class RequestCounter : public QObject {
public:
    RequestCounter() { HttpSession::shared().installEventFilter(this); }
    ~RequestCounter() override { HttpSession::shared().removeEventFilter(this); }
    int count = 0;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::ChildAdded)
            ++count;
        return QObject::eventFilter(watched, event);
    }
};

// Waits until the status item carries a full menu other than previous. A menu attached from now
// on is another one even at previous's address (previous may be gone by then).
QMenu* waitForFullMenu(const StatusItem& statusItem, const QMenu* previous,
                       QElapsedTimer* stopwatch = nullptr, qint64* attachedAt = nullptr) {
    QEventLoop loop;
    QMenu* full = nullptr;
    const auto check = [&](QMenu* menu) {
        if (full || !isFull(menu))
            return;
        full = menu;
        if (stopwatch && attachedAt)
            *attachedAt = stopwatch->nsecsElapsed();
        loop.quit();
    };
    const QMetaObject::Connection connection =
        QObject::connect(&statusItem, &StatusItem::menuChanged, &loop, check);
    if (statusItem.menu() != previous)
        check(statusItem.menu());
    if (!full) {
        QTimer timeout;
        timeout.setSingleShot(true);
        QObject::connect(&timeout, &QTimer::timeout, &loop, &QEventLoop::quit);
        timeout.start(30s);
        loop.exec();
    }
    QObject::disconnect(connection);
    return full;
}

// Lets deleted objects go and finished replies end.
void settle() {
    for (int i = 0; i < 3; ++i) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
    }
}

// Waits until no request of the shared HTTP client is in flight, nor about to start.
bool waitForQuiet() {
    QElapsedTimer waited;
    waited.start();
    for (;;) {
        settle();
        const QList<QNetworkReply*> replies = HttpSession::shared().findChildren<QNetworkReply*>();
        if (std::none_of(replies.cbegin(), replies.cend(),
                         [](const QNetworkReply* reply) { return !reply->isFinished(); }))
            return true;
        if (waited.elapsed() > 30000)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
}

// Waits until the warm-up of the pinned collection and tag has filled the client's cache, and
// nothing is left in flight.
bool waitForWarmUp(const RaindropAPI& api) {
    QElapsedTimer waited;
    waited.start();
    while (!api.isCached(RaindropAPI::collectionKey(BenchService::pinnedCollectionId())) ||
           !api.isCached(RaindropAPI::tagKey(BenchService::pinnedTag()))) {
        if (waited.elapsed() > 30000)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return waitForQuiet();
}

// The two round trips on the build's critical path with nothing else: the favourites, then the
// collections and the tags together, each body read whole.
QCoro::Task<> criticalPath(QString apiBase) {
    QNetworkAccessManager& session = HttpSession::shared();
    const auto get = [&session, &apiBase](const QString& path, const QUrlQuery& query) {
        QUrl url(apiBase + path);
        url.setQuery(query);
        QNetworkRequest request(url);
        request.setRawHeader("Authorization", "Bearer bench-token");
        return session.get(request);
    };
    QUrlQuery favouritesQuery;
    favouritesQuery.addQueryItem(u"search"_s, u"[{\"key\":\"important\",\"val\":true}]"_s);
    favouritesQuery.addQueryItem(u"perpage"_s, u"25"_s);
    QNetworkReply* favourites = get(u"/raindrops/0"_s, favouritesQuery);
    co_await qCoro(favourites).waitForFinished();
    favourites->readAll();
    favourites->deleteLater();
    QNetworkReply* collections = get(u"/collections"_s, QUrlQuery());
    QNetworkReply* tags = get(u"/tags"_s, QUrlQuery());
    co_await qCoro(collections).waitForFinished();
    co_await qCoro(tags).waitForFinished();
    collections->readAll();
    tags->readAll();
    collections->deleteLater();
    tags->deleteLater();
}

int start(int argc, char* argv[]) {
    // As main.cpp, with the service's address.
    QApplication app(argc, argv);
    Application quillmar({environmentFor(QString::fromLocal8Bit(argv[2])), {}});
    if (!quillmar.start()) {
        std::puts("error another Quillmar runs");
        return 1;
    }
    // Queued after the launch, so the status item is there.
    QTimer::singleShot(0, &quillmar, [&quillmar] {
        QObject::connect(quillmar.delegate()->statusItem(), &StatusItem::menuChanged,
                         [](QMenu* menu) {
                             if (isFull(menu))
                                 std::puts("full");
                             std::fflush(stdout);
                         });
    });
    return QApplication::exec();
}

// The time the machine slept, as far as the program can tell: SIGUSR1 adds 400 seconds.
std::atomic<long long> sleptSeconds{0};

void sleptAgain(int) {
    sleptSeconds += 400;
}

int reload(int argc, char* argv[]) {
    QApplication app(argc, argv);
    std::signal(SIGUSR1, sleptAgain);
    MenuManager::Timings timings;
    timings.bootClock = [] {
        return BootClock::now() + std::chrono::seconds(sleptSeconds.load());
    };
    Application quillmar({environmentFor(QString::fromLocal8Bit(argv[2])), timings});
    if (!quillmar.start()) {
        std::puts("error another Quillmar runs");
        return 1;
    }
    QTimer::singleShot(0, &quillmar, [&quillmar] {
        QObject::connect(quillmar.delegate()->statusItem(), &StatusItem::menuChanged,
                         [](QMenu* menu) {
                             if (!isFull(menu))
                                 return;
                             const QList<QAction*> actions = menu->actions();
                             const bool failed =
                                 std::any_of(actions.cbegin(), actions.cend(), [](QAction* item) {
                                     return item->text().startsWith(u"Failed to load"_s);
                                 });
                             std::puts(failed ? "failed" : "full");
                             std::fflush(stdout);
                         });
    });
    return QApplication::exec();
}

// One line per item: depth, kind, "on" or "off", the key sequence and the text, tab-separated.
void writeItems(QFile& file, const QMenu* menu, int depth) {
    const QList<QAction*> actions = menu->actions();
    for (const QAction* action : actions) {
        // The entries of the collections and tags get their submenus when highlighted.
        const bool hasSubmenu = action->menu() || menu->property("submenusOnDemand").toBool();
        const char* kind = action->isSeparator() ? "separator" : hasSubmenu ? "submenu" : "item";
        file.write(QByteArray::number(depth) + '\t' + kind + '\t' +
                   (action->isEnabled() ? "on" : "off") + '\t' +
                   action->shortcut().toString(QKeySequence::PortableText).toUtf8() + '\t' +
                   action->text().toUtf8() + '\n');
        if (action->menu())
            writeItems(file, action->menu(), depth + 1);
    }
}

int menu(int argc, char* argv[]) {
    QApplication app(argc, argv);
    if (argc < 4) {
        std::puts("error no file given");
        return 1;
    }
    StatusItem statusItem;
    MenuManager manager(&statusItem, benchConfig(), environmentFor(QString::fromLocal8Bit(argv[2])),
                        quietTimings());
    manager.buildInitialMenu();
    manager.loadData();
    const QMenu* full = waitForFullMenu(statusItem, nullptr);
    QFile file(QString::fromLocal8Bit(argv[3]));
    if (!full || !waitForWarmUp(*manager.api()) || !file.open(QIODevice::WriteOnly)) {
        std::puts("error the menu did not come");
        return 1;
    }
    writeItems(file, full, 0);
    return 0;
}

int build(int argc, char* argv[]) {
    QApplication app(argc, argv);
    const QString apiBase = QString::fromLocal8Bit(argv[2]);
    const int rounds = argc > 3 ? QByteArray(argv[3]).toInt() : 11;
    StatusItem statusItem;

    QList<double> floors;
    for (int i = 0; i <= rounds; ++i) {
        QElapsedTimer stopwatch;
        stopwatch.start();
        QCoro::waitFor(criticalPath(apiBase));
        if (i > 0) // the first round opens the connections
            floors.append(milliseconds(stopwatch.nsecsElapsed()));
        waitForQuiet();
    }
    print("floor_ms", median(floors));

    QList<double> builds;
    QList<double> opens;
    QList<double> opensShown;
    int buildRequests = 0;
    int openRequests = 0;
    for (int i = 0; i <= rounds; ++i) {
        MenuManager manager(&statusItem, benchConfig(), environmentFor(apiBase), quietTimings());
        manager.buildInitialMenu();
        const QMenu* placeholder = statusItem.menu();
        RequestCounter buildCounter;
        QElapsedTimer stopwatch;
        qint64 attachedAt = 0;
        stopwatch.start();
        manager.loadData();
        QMenu* full = waitForFullMenu(statusItem, placeholder, &stopwatch, &attachedAt);
        if (!full) {
            std::puts("error the full menu did not come");
            return 1;
        }
        // The pinned lists are fetched in the background; wait until they are in the cache.
        if (!waitForWarmUp(*manager.api())) {
            std::puts("error the pinned lists did not reach the cache");
            return 1;
        }
        if (i == 0)
            continue; // the first round opens the connections
        builds.append(milliseconds(attachedAt));
        buildRequests = buildCounter.count;

        // The warmed pinned submenu, opened as the platform opens it: its aboutToShow fills it.
        QMenu* pinned = submenu(full, BenchService::pinnedCollectionTitle());
        if (!pinned) {
            std::puts("error no pinned collection in the menu");
            return 1;
        }
        RequestCounter openCounter;
        stopwatch.restart();
        Q_EMIT pinned->aboutToShow();
        while (pinned->actions().size() != 50 && stopwatch.elapsed() < 1000)
            QCoreApplication::processEvents();
        if (pinned->actions().size() != 50) {
            std::printf("error the pinned submenu holds %lld items\n",
                        qlonglong(pinned->actions().size()));
            return 1;
        }
        opens.append(milliseconds(stopwatch.nsecsElapsed()));
        // For the record, the same with the platform's part: filled again from the cache, laid
        // out and put on screen by popup().
        LazyMenuDelegate::of(pinned)->reset();
        stopwatch.restart();
        pinned->popup(QPoint(100, 100));
        opensShown.append(milliseconds(stopwatch.nsecsElapsed()));
        pinned->hide();
        waitForQuiet();
        openRequests += openCounter.count;
    }
    print("build_ms", median(builds));
    print("build_requests", buildRequests);
    print("open_ms", median(opens));
    print("open_shown_ms", median(opensShown));
    print("open_requests", openRequests);
    return 0;
}

QMutex* liveMutex = nullptr;
QSet<QObject*>* liveObjects = nullptr;
Qt::HANDLE mainThread = nullptr;

void objectAdded(QObject* object) {
    // The HTTP client's own thread makes and drops objects of its own; the menu lives here.
    if (QThread::currentThreadId() != mainThread)
        return;
    QMutexLocker locker(liveMutex);
    liveObjects->insert(object);
}

void objectRemoved(QObject* object) {
    QMutexLocker locker(liveMutex);
    liveObjects->remove(object);
}

QHash<QByteArray, int> census() {
    QMutexLocker locker(liveMutex);
    QHash<QByteArray, int> counts;
    for (const QObject* object : std::as_const(*liveObjects))
        ++counts[object->metaObject()->className()];
    return counts;
}

int soak(int argc, char* argv[]) {
    if (qtHookData[QtVersionHook] != quintptr(QT_VERSION)) {
        std::puts("error Qt's object hooks are not the expected ones");
        return 1;
    }
    liveMutex = new QMutex();
    liveObjects = new QSet<QObject*>();
    mainThread = QThread::currentThreadId();
    qtHookData[AddQObjectHook] = reinterpret_cast<quintptr>(&objectAdded);
    qtHookData[RemoveQObjectHook] = reinterpret_cast<quintptr>(&objectRemoved);

    QApplication app(argc, argv);
    const QString apiBase = QString::fromLocal8Bit(argv[2]);
    const int refreshes = argc > 3 ? QByteArray(argv[3]).toInt() : 1000;
    StatusItem statusItem;
    MenuManager manager(&statusItem, benchConfig(), environmentFor(apiBase), quietTimings());
    manager.buildInitialMenu();
    manager.loadData();
    const QMenu* menu = waitForFullMenu(statusItem, nullptr);
    const auto refresh = [&] {
        manager.refresh();
        menu = waitForFullMenu(statusItem, menu);
        return menu && waitForWarmUp(*manager.api());
    };
    // The allocator and Qt's caches reach their working size first.
    for (int i = 0; i < 50; ++i) {
        if (!refresh()) {
            std::puts("error a refresh did not end");
            return 1;
        }
    }
    const QHash<QByteArray, int> before = census();
    const qint64 residentBefore = residentBytes();
    QElapsedTimer stopwatch;
    stopwatch.start();
    for (int i = 0; i < refreshes; ++i) {
        if (!refresh()) {
            std::puts("error a refresh did not end");
            return 1;
        }
    }
    const double elapsed = milliseconds(stopwatch.nsecsElapsed());
    const qint64 residentAfter = residentBytes();
    const QHash<QByteArray, int> after = census();

    print("soak_refreshes", refreshes);
    print("soak_ms", elapsed);
    print("soak_rss_before_mib", double(residentBefore) / 1048576.0);
    print("soak_rss_after_mib", double(residentAfter) / 1048576.0);
    malloc_trim(0);
    print("soak_rss_trimmed_mib", double(residentBytes()) / 1048576.0);
    // Every load arms a one-shot timer for its update check, which goes when it fires (here a
    // day later, so that none fires while measured): counted apart.
    const QByteArray oneShot("QSingleShotTimer");
    int totalBefore = 0;
    int totalAfter = 0;
    for (auto it = before.cbegin(); it != before.cend(); ++it)
        totalBefore += it.key() == oneShot ? 0 : it.value();
    for (auto it = after.cbegin(); it != after.cend(); ++it)
        totalAfter += it.key() == oneShot ? 0 : it.value();
    print("soak_oneshots_before", before.value(oneShot));
    print("soak_oneshots_after", after.value(oneShot));
    print("soak_menus_before", before.value("QMenu"));
    print("soak_menus_after", after.value("QMenu"));
    print("soak_actions_before", before.value("QAction"));
    print("soak_actions_after", after.value("QAction"));
    print("soak_delegates_before", before.value("LazyMenuDelegate"));
    print("soak_delegates_after", after.value("LazyMenuDelegate"));
    print("soak_objects_before", totalBefore);
    print("soak_objects_after", totalAfter);
    for (auto it = after.cbegin(); it != after.cend(); ++it)
        if (it.key() != oneShot && it.value() != before.value(it.key()))
            std::printf("note %s %d → %d\n", it.key().constData(), before.value(it.key()),
                        it.value());
    qtHookData[AddQObjectHook] = 0;
    qtHookData[RemoveQObjectHook] = 0;
    return 0;
}

} // namespace

int main(int argc, char* argv[]) {
    const QByteArray mode = argc > 2 ? QByteArray(argv[1]) : QByteArray();
    if (mode == "start")
        return start(argc, argv);
    if (mode == "build")
        return build(argc, argv);
    if (mode == "soak")
        return soak(argc, argv);
    if (mode == "menu")
        return menu(argc, argv);
    if (mode == "reload")
        return reload(argc, argv);
    std::fprintf(stderr, "usage: %s start|build|soak|menu|reload API_BASE [ROUNDS|FILE]\n",
                 argv[0]);
    return 2;
}
