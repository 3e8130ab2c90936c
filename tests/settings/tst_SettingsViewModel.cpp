#include "SettingsFixtures.h"
#include "TestHttpServer.h"
#include "config/AppConfig.h"
#include "config/Environment.h"
#include "config/SettingsNotifier.h"
#include "service/RaindropAPI.h"
#include "settings/SettingsViewModel.h"

#include <QCoroTask>
#include <QDeadlineTimer>
#include <QMetaProperty>
#include <QSignalSpy>
#include <QTcpServer>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace SettingsFixtures;

namespace {

const QList<Collection> someCollections{{11, u"Alpha"_s, 3}, {12, u"beta"_s, 0}};
const QList<Tag> someTags{{u"reading"_s, 9}, {u"later"_s, 2}};

// The port of a listener that was closed again: connecting to it is refused.
quint16 closedPort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();
    return port;
}

} // namespace

class tst_SettingsViewModel : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { removeConfig(); }
    void cleanup() { removeConfig(); }

    void everyPropertyAnnouncesItsChanges() {
        SettingsViewModel model(Environment().apiBase);
        const QMetaObject* meta = model.metaObject();
        const QStringList names{
            u"token"_s,      u"collections"_s,      u"tags"_s,      u"pinnedCollectionIds"_s,
            u"pinnedTags"_s, u"openMenuShortcut"_s, u"isLoading"_s, u"errorMessage"_s};
        for (const QString& name : names) {
            const int index = meta->indexOfProperty(name.toLatin1().constData());
            QVERIFY2(index >= 0, qPrintable(name));
            QVERIFY2(meta->property(index).hasNotifySignal(), qPrintable(name));
        }
        QSignalSpy token(&model, &SettingsViewModel::tokenChanged);
        QVERIFY(model.setProperty("token", u"abc"_s));
        QCOMPARE(token.count(), 1);
        QCOMPARE(model.token(), u"abc"_s);
        QSignalSpy shortcut(&model, &SettingsViewModel::openMenuShortcutChanged);
        model.setOpenMenuShortcut(std::nullopt);
        QCOMPARE(shortcut.count(), 1);
        QSignalSpy pins(&model, &SettingsViewModel::pinnedCollectionIdsChanged);
        model.toggleCollection(4);
        QCOMPARE(pins.count(), 1);
        QSignalSpy tags(&model, &SettingsViewModel::pinnedTagsChanged);
        model.toggleTag(u"x"_s);
        QCOMPARE(tags.count(), 1);
    }

    void creationReadsTheConfiguration() {
        writeConfig(R"({"token": "abc", "pinned_collections": [3, 1], "pinned_tags": ["b", "a"],
            "open_menu_shortcut": {"keyCode": 40, "modifierFlags": 131072, "displayKey": "K"}})");
        SettingsViewModel model(Environment().apiBase);
        QCOMPARE(model.token(), u"abc"_s);
        QCOMPARE(model.pinnedCollectionIds(), (QSet<qint64>{1, 3}));
        QCOMPARE(model.pinnedTags(), (QSet<QString>{u"a"_s, u"b"_s}));
        QCOMPARE(model.openMenuShortcut(), (ShortcutConfig{40, 0x20000, u"K"_s}));
        QVERIFY(model.collections().isEmpty());
        QVERIFY(model.tags().isEmpty());
        QVERIFY(!model.isLoading());
        QVERIFY(!model.errorMessage());
    }

    void aMissingShortcutBecomesTheDefaultAndIsSaved() {
        writeConfig(R"({"token": "abc"})");
        SettingsViewModel model(Environment().apiBase);
        QCOMPARE(model.openMenuShortcut(), (ShortcutConfig{15, 0x180000, u"R"_s}));
        model.save();
        AppConfig expected;
        expected.token = u"abc"_s;
        expected.openMenuShortcut = ShortcutConfig{15, 0x180000, u"R"_s};
        QCOMPARE(readConfig(), expected.encode());
    }

    void aDamagedFileGivesTheEmptyModelAndIsReplacedOnSave() {
        writeConfig("{not json");
        SettingsViewModel model(Environment().apiBase);
        QCOMPARE(model.token(), QString());
        QVERIFY(model.pinnedCollectionIds().isEmpty());
        QCOMPARE(model.openMenuShortcut(), ShortcutConfig::defaultShortcut());
        model.setToken(u"fresh"_s);
        model.save();
        AppConfig expected;
        expected.token = u"fresh"_s;
        expected.openMenuShortcut = ShortcutConfig::defaultShortcut();
        QCOMPARE(readConfig(), expected.encode());
    }

    void aTokenOfSpacesLoadsNothingButIsSavedAsTyped() {
        TestHttpServer server;
        serveAccount(server, someCollections, someTags);
        SettingsViewModel model(environmentFor(server).apiBase);
        model.setToken(u"   "_s);
        QSignalSpy loading(&model, &SettingsViewModel::isLoadingChanged);
        QCoro::Task<void> load = model.loadData();
        QVERIFY(load.isReady());
        QCOMPARE(loading.count(), 0);
        QVERIFY(!model.isLoading());
        QVERIFY(!model.errorMessage());
        // A load with a token sends the first requests.
        model.setToken(u"tok"_s);
        QCoro::waitFor(model.loadData());
        QCOMPARE(server.requestCount(), 2);

        model.setToken(u"   "_s);
        model.save();
        AppConfig expected;
        expected.token = u"   "_s;
        expected.openMenuShortcut = ShortcutConfig::defaultShortcut();
        QCOMPARE(readConfig(), expected.encode());
    }

    void aTrailingLineBreakIsTrimmedForLoadingButSaved() {
        TestHttpServer server;
        serveAccount(server, someCollections, someTags);
        SettingsViewModel model(environmentFor(server).apiBase);
        model.setToken(u"abc\n"_s);
        QCoro::waitFor(model.loadData());
        QCOMPARE(server.requestCount(), 2);
        for (const TestHttpServer::Request& request : server.requests())
            QCOMPARE(request.header("authorization"), QByteArray("Bearer abc"));
        QCOMPARE(model.collections(), someCollections);

        model.save();
        AppConfig expected;
        expected.token = u"abc\n"_s;
        expected.openMenuShortcut = ShortcutConfig::defaultShortcut();
        QCOMPARE(readConfig(), expected.encode());
    }

    void togglingTwiceRestoresThePins() {
        const QByteArray file =
            R"({"token": "t", "pinned_collections": [5], "pinned_tags": ["Read"]})";
        writeConfig(file);
        SettingsViewModel model(Environment().apiBase);
        model.toggleCollection(7);
        QCOMPARE(model.pinnedCollectionIds(), (QSet<qint64>{5, 7}));
        model.toggleCollection(7);
        QCOMPARE(model.pinnedCollectionIds(), (QSet<qint64>{5}));
        model.toggleCollection(5);
        QVERIFY(model.pinnedCollectionIds().isEmpty());
        // Tag names match exactly, case included.
        model.toggleTag(u"read"_s);
        QCOMPARE(model.pinnedTags(), (QSet<QString>{u"Read"_s, u"read"_s}));
        model.toggleTag(u"Read"_s);
        QCOMPARE(model.pinnedTags(), (QSet<QString>{u"read"_s}));
        // Nothing is written before "Save".
        QCOMPARE(readConfig(), file);
    }

    void aLoadFetchesBothListsAtOnce() {
        TestHttpServer server;
        serveAccount(server, someCollections, someTags, 1s);
        SettingsViewModel model(environmentFor(server).apiBase);
        model.setToken(u"tok"_s);
        QStringList order;
        connect(&model, &SettingsViewModel::collectionsChanged, this,
                [&] { order << u"collections"_s; });
        connect(&model, &SettingsViewModel::tagsChanged, this, [&] { order << u"tags"_s; });
        connect(&model, &SettingsViewModel::isLoadingChanged, this,
                [&] { order << (model.isLoading() ? u"loading"_s : u"done"_s); });

        QCoro::Task<void> load = model.loadData();
        QVERIFY(model.isLoading());
        // Both requests reach the server before either is answered.
        QVERIFY(server.waitForRequests(2, 900ms));
        QVERIFY(model.isLoading());
        QCoro::waitFor(load);
        QCOMPARE(order, (QStringList{u"loading"_s, u"collections"_s, u"tags"_s, u"done"_s}));
        QCOMPARE(model.collections(), someCollections);
        QCOMPARE(model.tags(), someTags);
        QVERIFY(!model.errorMessage());
        QCOMPARE(server.requestsTo(u"/rest/v1/collections"_s).size(), 1);
        QCOMPARE(server.requestsTo(u"/rest/v1/tags"_s).size(), 1);
    }

    void aFailedCollectionsFetchKeepsTheListsAndStopsTheTagsFetch() {
        TestHttpServer server;
        serveAccount(server, someCollections, someTags);
        SettingsViewModel model(environmentFor(server).apiBase);
        model.setToken(u"tok"_s);
        QCoro::waitFor(model.loadData());
        QCOMPARE(model.tags(), someTags);

        server.on("GET", u"/rest/v1/collections"_s, {500, "oops", {}, {}, {}});
        server.on("GET", u"/rest/v1/tags"_s, {200, {}, {}, {}, TestHttpServer::Fault::NeverAnswer});
        // Only the request's own time-out could end a load that waited for the tags.
        const QDeadlineTimer timeOut(RaindropAPI::defaultTimeout * 19 / 20);
        QCoro::waitFor(model.loadData());
        QVERIFY2(!timeOut.hasExpired(), "the tags request was not cancelled");
        QCOMPARE(model.errorMessage(),
                 std::optional(u"Could not load: Unexpected response from Raindrop (HTTP 500)."_s));
        QVERIFY(model.errorMessage()->startsWith(u"Could not load: "_s));
        QCOMPARE(model.tags(), someTags);
        QCOMPARE(model.collections(), someCollections);
        QVERIFY(!model.isLoading());
        QTRY_COMPARE(server.abortedConnections(), 1);
    }

    void aFailedTagsFetchShowsItsError() {
        TestHttpServer server;
        serveAccount(server, someCollections, someTags);
        server.on("GET", u"/rest/v1/tags"_s, {401, "Unauthorized", {}, {}, {}});
        SettingsViewModel model(environmentFor(server).apiBase);
        model.setToken(u"expired"_s);
        QCoro::waitFor(model.loadData());
        QCOMPARE(model.errorMessage(),
                 std::optional(
                     u"Could not load: Invalid API token — check your token and try again."_s));
        // Nothing of a half-successful load is taken over.
        QVERIFY(model.collections().isEmpty());
        QVERIFY(model.tags().isEmpty());
        QVERIFY(!model.isLoading());
    }

    void aSuccessfulLoadClearsAnEarlierError() {
        TestHttpServer server;
        server.on("GET", u"/rest/v1/collections"_s, {401, "Unauthorized", {}, {}, {}});
        server.on("GET", u"/rest/v1/tags"_s, {401, "Unauthorized", {}, {}, {}});
        SettingsViewModel model(environmentFor(server).apiBase);
        model.setToken(u"old"_s);
        QCoro::waitFor(model.loadData());
        QVERIFY(model.errorMessage());

        serveAccount(server, someCollections, someTags, 200ms);
        model.setToken(u"new"_s);
        QCoro::Task<void> load = model.loadData();
        // The error goes as soon as the new load starts.
        QVERIFY(!model.errorMessage());
        QCoro::waitFor(load);
        QVERIFY(!model.errorMessage());
        QCOMPARE(model.collections(), someCollections);
        QCOMPARE(server.requests().last().header("authorization"), QByteArray("Bearer new"));
    }

    void aServiceThatIsDownIsReported() {
        SettingsViewModel model(u"http://127.0.0.1:%1/rest/v1"_s.arg(closedPort()));
        model.setToken(u"tok"_s);
        QCoro::waitFor(model.loadData());
        QCOMPARE(model.errorMessage(), std::optional(u"Could not load: Connection refused"_s));
        QVERIFY(!model.isLoading());
    }

    void aTokenWithInnerSpacesIsSentAsTyped() {
        TestHttpServer server;
        server.setFallback([](const TestHttpServer::Request&) {
            return TestHttpServer::Response{401, "Unauthorized", {}, {}, {}};
        });
        SettingsViewModel model(environmentFor(server).apiBase);
        model.setToken(u" ab cd "_s);
        QCoro::waitFor(model.loadData());
        QCOMPARE(server.requests().first().header("authorization"), QByteArray("Bearer ab cd"));
        QCOMPARE(model.errorMessage(),
                 std::optional(
                     u"Could not load: Invalid API token — check your token and try again."_s));
    }

    void aTokenWithAnInnerLineBreakIsRefusedByTheService() {
        // Like the service: only the exact token opens the account.
        TestHttpServer server;
        server.setFallback([](const TestHttpServer::Request& request) {
            if (request.header("authorization") == "Bearer abcd")
                return TestHttpServer::Response::json(collectionsBody({}));
            return TestHttpServer::Response{401, "Unauthorized", {}, {}, {}};
        });
        SettingsViewModel model(environmentFor(server).apiBase);
        model.setToken(u"ab\ncd"_s);
        QCoro::waitFor(model.loadData());
        QVERIFY(!model.isLoading());
        QCOMPARE(model.errorMessage(),
                 std::optional(
                     u"Could not load: Invalid API token — check your token and try again."_s));
    }

    void aCancelledLoadEndsWithoutAnError() {
        TestHttpServer server;
        // Never answered: only the cancel (or the requests' time-out, with an error) ends the load.
        server.on("GET", u"/rest/v1/collections"_s,
                  {200, {}, {}, {}, TestHttpServer::Fault::NeverAnswer});
        server.on("GET", u"/rest/v1/tags"_s, {200, {}, {}, {}, TestHttpServer::Fault::NeverAnswer});
        SettingsViewModel model(environmentFor(server).apiBase);
        model.setToken(u"tok"_s);
        const auto canceller = std::make_shared<RequestCanceller>();
        QCoro::Task<void> load = model.loadData(canceller);
        QVERIFY(server.waitForRequests(2));
        canceller->cancel();
        QCoro::waitFor(load);
        QVERIFY(!model.isLoading());
        QVERIFY(!model.errorMessage());
        QVERIFY(model.collections().isEmpty());
        QTRY_COMPARE(server.abortedConnections(), 2);
    }

    void aModelDeletedDuringALoadIsLeftAlone() {
        TestHttpServer server;
        serveAccount(server, someCollections, someTags, 200ms);
        auto* model = new SettingsViewModel(environmentFor(server).apiBase);
        model->setToken(u"tok"_s);
        QCoro::Task<void> load = model->loadData();
        QVERIFY(server.waitForRequests(2));
        delete model;
        QCoro::waitFor(load);
    }

    void saveReplacesAllFourFields() {
        writeConfig(R"({"token": "old", "pinned_collections": [1], "pinned_tags": ["x"],
            "open_menu_shortcut": {"keyCode": 40, "modifierFlags": 1048576, "displayKey": "K"}})");
        SettingsViewModel model(Environment().apiBase);
        model.setToken(u"new"_s);
        model.toggleCollection(1);
        model.toggleCollection(30);
        model.toggleCollection(-1);
        model.toggleTag(u"x"_s);
        model.toggleTag(u"b"_s);
        model.toggleTag(u"a"_s);
        model.setOpenMenuShortcut(std::nullopt);
        model.save();
        AppConfig expected;
        expected.token = u"new"_s;
        expected.pinnedCollectionIds = {-1, 30};
        expected.pinnedTags = {u"a"_s, u"b"_s};
        QCOMPARE(readConfig(), expected.encode());
        QVERIFY(!readConfig().contains("open_menu_shortcut"));
    }

    void saveAnnouncesTheChange() {
        SettingsViewModel model(Environment().apiBase);
        model.setToken(u"t"_s);
        QSignalSpy changed(&SettingsNotifier::instance(), &SettingsNotifier::settingsChanged);
        bool writtenFirst = false;
        const QMetaObject::Connection watch =
            connect(&SettingsNotifier::instance(), &SettingsNotifier::settingsChanged, this,
                    [&] { writtenFirst = configExists(); });
        model.save();
        disconnect(watch);
        QCOMPARE(changed.count(), 1);
        QVERIFY(writtenFirst);
    }

    void aFailedWriteStillAnnouncesTheChange() {
        // A folder where the file should be: the write fails.
        QVERIFY(QDir().mkpath(AppConfig::filePath()));
        SettingsViewModel model(Environment().apiBase);
        model.setToken(u"t"_s);
        QSignalSpy changed(&SettingsNotifier::instance(), &SettingsNotifier::settingsChanged);
        model.save();
        QCOMPARE(changed.count(), 1);
        QVERIFY(QFileInfo(AppConfig::filePath()).isDir());
    }
};

QTEST_MAIN(tst_SettingsViewModel)
#include "tst_SettingsViewModel.moc"
