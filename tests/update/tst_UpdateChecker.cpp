#include "AlertCatcher.h"
#include "TestHttpServer.h"
#include "Timers.h"
#include "config/AppConfig.h"
#include "update/UpdateChecker.h"

#include <QAbstractButton>
#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMessageBox>
#include <QSettings>
#include <QStandardPaths>
#include <QTest>

#include <functional>
#include <memory>
#include <optional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString manifestPath = u"/apps/quillmar/latest.json"_s;
const QString downloadUrl = u"https://quillmar.app/download/quillmar-2.0.tar.gz"_s;

QByteArray manifest(const QString& version, const QString& url = downloadUrl) {
    return QJsonDocument(QJsonObject{{u"version"_s, version}, {u"download_url"_s, url}})
        .toJson(QJsonDocument::Compact);
}

// Beside the configuration file, in the home directory.
QString settingsFile() {
    return QDir::homePath() + u"/.config/quillmar/quillmar.ini"_s;
}

std::unique_ptr<QSettings> settings() {
    return std::make_unique<QSettings>(settingsFile(), QSettings::IniFormat);
}

std::optional<QString> notifiedVersion() {
    const QVariant value = settings()->value(u"lastNotifiedUpdateVersion"_s);
    return value.isValid() ? std::optional(value.toString()) : std::nullopt;
}

// A silent check through the same network access, waited for: by its end, whatever an earlier
// check still had to do after its answer is done, and a request sent before has arrived. It
// raises no alert where it is used (the version was announced already, or is no newer).
void roundTrip(UpdateChecker& updates) {
    QCoro::waitFor(updates.checkForUpdatesSilently());
}

// The checks' timers are coarse: each may fall due 5 % of its time early or late.
std::chrono::milliseconds earliest(std::chrono::milliseconds timer) {
    return timer * 19 / 20 - 1ms;
}
std::chrono::milliseconds latest(std::chrono::milliseconds timer) {
    return timer * 21 / 20 + 1ms;
}

const QString failedText =
    u"Couldn't check for updates.\nMake sure you're connected to the internet."_s;

} // namespace

// Stands in for the browser: records every address the program asks to open.
class OpenedUrls : public QObject {
    Q_OBJECT
public:
    QList<QUrl> urls;
public Q_SLOTS:
    void open(const QUrl& url) { urls.append(url); }
};

// Acts on each alert while it is open, once the catcher has recorded it. An alert runs its own
// event loop, so this is the only place where a test sees it open; the action must answer it.
class OpenAlertAction : public QObject {
public:
    explicit OpenAlertAction(std::function<void(QMessageBox*)> action)
        : m_action(std::move(action)) {
        connect(&m_timer, &QTimer::timeout, this, &OpenAlertAction::poll);
        m_timer.start(5);
    }

private:
    void poll() {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box || !box->property("alertCatcherSeen").toBool() ||
            box->property("openAlertActionSeen").toBool())
            return;
        box->setProperty("openAlertActionSeen", true);
        m_action(box);
    }

    std::function<void(QMessageBox*)> m_action;
    QTimer m_timer;
};

class tst_UpdateChecker : public QObject {
    Q_OBJECT
public:
    // Programs that follow XDG_CONFIG_HOME write elsewhere than ~/.config; Quillmar does not.
    static void initMain() {
        qputenv("XDG_CONFIG_HOME", (QDir::homePath() + u"/xdg-config-elsewhere"_s).toLocal8Bit());
    }

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void manualOffersNewerVersion();
    void manualDownloadOpensAddress();
    void manualDownloadIgnoresUnusableAddress_data();
    void manualDownloadIgnoresUnusableAddress();
    void manualUpToDate_data();
    void manualUpToDate();
    void manualFailures_data();
    void manualFailures();
    void manualFailsWhenServerIsDown();
    void manualFailsWhenServerNeverAnswers();
    void answeredCheckLeavesNoTimerBehind();
    void manualFailsOnEndlessBody();
    void errorStatusWithManifestIsValid_data();
    void errorStatusWithManifestIsValid();
    void followsRedirects();
    void missingVersionMeansEveryReleaseIsNewer();
    void versionRecordedBeforeAlert();
    void versionKeptBesideConfigurationWhateverXdgConfigHome();
    void silentStaysSilentOnFailureAndUpToDate_data();
    void silentStaysSilentOnFailureAndUpToDate();
    void silentAnnouncesVersionOnce();
    void silentAnnouncesEachNewVersion();
    void overlappingSilentChecksRaiseOneAlert();
    void checkOutlivesItsChecker();
    void firstCheckAfterDelay();
    void firstCheckIsNotCancelledByRescheduling();
    void repeatingTimerIsReplaced();
    void nothingOnceCheckerIsGone();
    void alertScreenshots();

private:
    QString manifestUrl() const { return m_server->baseUrl() + manifestPath; }
    std::unique_ptr<UpdateChecker> checker(const QString& version,
                                           UpdateChecker::Timings timings = {});
    void serve(const QByteArray& body, int status = 200);

    std::unique_ptr<TestHttpServer> m_server;
    OpenedUrls m_opened;
};

void tst_UpdateChecker::initTestCase() {
    // Left by an earlier run (the home folder stays between runs).
    QDir(qEnvironmentVariable("XDG_CONFIG_HOME")).removeRecursively();
    // Every scheme the tests hand out, and none (a relative address), lands here instead of a
    // browser.
    for (const QString& scheme : {u"https"_s, u"http"_s, u"ftp"_s, QString()})
        QDesktopServices::setUrlHandler(scheme, &m_opened, "open");
}

void tst_UpdateChecker::cleanupTestCase() {
    for (const QString& scheme : {u"https"_s, u"http"_s, u"ftp"_s, QString()})
        QDesktopServices::unsetUrlHandler(scheme);
}

void tst_UpdateChecker::init() {
    auto store = settings();
    store->clear();
    store->sync();
    m_opened.urls.clear();
    m_server = std::make_unique<TestHttpServer>();
}

void tst_UpdateChecker::cleanup() {
    m_server.reset();
}

std::unique_ptr<UpdateChecker> tst_UpdateChecker::checker(const QString& version,
                                                          UpdateChecker::Timings timings) {
    return std::make_unique<UpdateChecker>(manifestUrl(), version, timings);
}

void tst_UpdateChecker::serve(const QByteArray& body, int status) {
    m_server->on("GET", manifestPath, TestHttpServer::Response::json(body, status));
}

void tst_UpdateChecker::manualOffersNewerVersion() {
    serve(manifest(u"1.10"_s));
    AlertCatcher alerts(1); // "Later"
    auto updates = checker(u"1.9"_s);
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1));
    const AlertCatcher::Seen alert = alerts.alerts().constFirst();
    QCOMPARE(alert.windowTitle, u"Quillmar"_s);
    QCOMPARE(alert.text, u"Update Available"_s);
    QCOMPARE(alert.informativeText, u"Quillmar 1.10 is available (you have 1.9)."_s);
    QCOMPARE(alert.buttons, QStringList({u"Download"_s, u"Later"_s}));
    QCOMPARE(alert.icon, QMessageBox::Information);
    QCOMPARE(notifiedVersion(), u"1.10"_s);
    QVERIFY(m_opened.urls.isEmpty());

    const auto requests = m_server->requests();
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.constFirst().method, QByteArray("GET"));
    QCOMPARE(requests.constFirst().path, manifestPath);
    roundTrip(*updates);
    QCOMPARE(alerts.count(), 1);
}

void tst_UpdateChecker::manualDownloadOpensAddress() {
    serve(manifest(u"2.0"_s));
    AlertCatcher alerts(0); // "Download"
    auto updates = checker(u"1.0"_s);
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1));
    QTRY_COMPARE(m_opened.urls.size(), 1);
    QCOMPARE(m_opened.urls.constFirst(), QUrl(downloadUrl));
}

void tst_UpdateChecker::manualDownloadIgnoresUnusableAddress_data() {
    QTest::addColumn<QString>("address");
    QTest::newRow("empty") << QString();
    QTest::newRow("plain words") << u"see our website"_s;
    QTest::newRow("no scheme") << u"//quillmar.app/download"_s;
    QTest::newRow("relative path") << u"download/latest"_s;
    QTest::newRow("bad percent escape") << u"https://quillmar.app/%zz"_s;
    QTest::newRow("space in host") << u"https://quillmar app/download"_s;
}

void tst_UpdateChecker::manualDownloadIgnoresUnusableAddress() {
    QFETCH(QString, address);
    serve(manifest(u"2.0"_s, address));
    AlertCatcher alerts(0); // "Download"
    auto updates = checker(u"1.0"_s);
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1));
    QCOMPARE(alerts.alerts().constFirst().text, u"Update Available"_s);
    roundTrip(*updates);
    QVERIFY(m_opened.urls.isEmpty());
    QCOMPARE(alerts.count(), 1);
}

void tst_UpdateChecker::manualUpToDate_data() {
    QTest::addColumn<QString>("current");
    QTest::addColumn<QString>("published");
    QTest::newRow("same version") << u"2.0"_s << u"2.0"_s;
    QTest::newRow("1.10 is not older than 1.9") << u"1.10"_s << u"1.9"_s;
    QTest::newRow("ahead of the manifest") << u"1.2.0"_s << u"1.2"_s;
    QTest::newRow("leading zero is the same release") << u"1.1"_s << u"1.01"_s;
}

void tst_UpdateChecker::manualUpToDate() {
    QFETCH(QString, current);
    QFETCH(QString, published);
    serve(manifest(published));
    AlertCatcher alerts;
    auto updates = checker(current);
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1));
    const AlertCatcher::Seen alert = alerts.alerts().constFirst();
    QCOMPARE(alert.windowTitle, u"Quillmar"_s);
    QCOMPARE(alert.text, u"You're up to date"_s);
    QCOMPARE(alert.informativeText, u"Quillmar "_s + current + u" is the latest version."_s);
    QCOMPARE(alert.buttons.size(), 1);
    QCOMPARE(alert.icon, QMessageBox::Information);
    QCOMPARE(notifiedVersion(), std::nullopt);
}

void tst_UpdateChecker::manualFailures_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::newRow("numeric version")
        << QByteArray(R"({"version": 2.1, "download_url": "x"})") << 200;
    QTest::newRow("extra key with a number")
        << QByteArray(R"({"version": "2.1", "download_url": "https://x.test/", "size": 42})")
        << 200;
    QTest::newRow("version missing") << QByteArray(R"({"download_url": "https://x.test/"})") << 200;
    QTest::newRow("download_url missing") << QByteArray(R"({"version": "2.1"})") << 200;
    QTest::newRow("not JSON") << QByteArray("version: 2.1") << 200;
    QTest::newRow("array") << QByteArray(R"([{"version": "2.1", "download_url": "x"}])") << 200;
    QTest::newRow("empty body") << QByteArray() << 200;
    QTest::newRow("error page") << QByteArray("<html>Service Unavailable</html>") << 503;
    QTest::newRow("not found") << QByteArray("not found") << 404;
}

void tst_UpdateChecker::manualFailures() {
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    serve(body, status);
    AlertCatcher alerts;
    auto updates = checker(u"1.0"_s);
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1));
    const AlertCatcher::Seen alert = alerts.alerts().constFirst();
    QCOMPARE(alert.windowTitle, u"Quillmar"_s);
    QCOMPARE(alert.text, u"Quillmar"_s);
    QCOMPARE(alert.informativeText, failedText);
    QCOMPARE(alert.buttons.size(), 1);
    QCOMPARE(alert.icon, QMessageBox::Warning);
    QCOMPARE(notifiedVersion(), std::nullopt);
    QVERIFY(m_opened.urls.isEmpty());
}

void tst_UpdateChecker::manualFailsWhenServerIsDown() {
    const QString address = manifestUrl();
    m_server.reset(); // nothing listens on that port any more
    UpdateChecker updates(address, u"1.0"_s);
    AlertCatcher alerts;
    updates.checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1));
    QCOMPARE(alerts.alerts().constFirst().informativeText, failedText);
    QCOMPARE(alerts.alerts().constFirst().icon, QMessageBox::Warning);
}

void tst_UpdateChecker::manualFailsWhenServerNeverAnswers() {
    TestHttpServer::Response silent;
    silent.fault = TestHttpServer::Fault::NeverAnswer;
    m_server->on("GET", manifestPath, silent);
    UpdateChecker::Timings timings;
    timings.fetchTimeout = 500ms;
    auto updates = checker(u"1.0"_s, timings);
    AlertCatcher alerts;
    const QDeadlineTimer beforeDue(earliest(timings.fetchTimeout));
    updates->checkForUpdates();
    // The check gives up at its time-out, not before.
    QVERIFY(Timers::runUntil(beforeDue));
    QCOMPARE(alerts.count(), 0);
    QVERIFY(alerts.waitForAlerts(1));
    QCOMPARE(alerts.alerts().constFirst().informativeText, failedText);
}

namespace {

// Timers started with QTimer::singleShot wait as children of the event dispatcher until they
// fire, whatever became of the object they were for.
qsizetype waitingSingleShots() {
    qsizetype count = 0;
    for (const QObject* child : QAbstractEventDispatcher::instance()->children())
        if (qstrcmp(child->metaObject()->className(), "QSingleShotTimer") == 0)
            ++count;
    return count;
}

} // namespace

void tst_UpdateChecker::answeredCheckLeavesNoTimerBehind() {
    // The deadline of an answered check must not wake the program up later on (an idle program
    // sleeps until its next refresh).
    serve(manifest(u"1.0"_s));
    UpdateChecker::Timings timings;
    timings.fetchTimeout = 60s;
    auto updates = checker(u"1.0"_s, timings);
    const qsizetype before = waitingSingleShots();
    AlertCatcher alerts;
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1));
    QCOMPARE(alerts.alerts().constFirst().text, u"You're up to date"_s);
    QCOMPARE(waitingSingleShots(), before);
}

void tst_UpdateChecker::manualFailsOnEndlessBody() {
    // A body that never ends is cut off by its size well before the deadline.
    TestHttpServer::Response endless;
    endless.fault = TestHttpServer::Fault::EndlessBody;
    m_server->on("GET", manifestPath, endless);
    UpdateChecker::Timings timings;
    timings.fetchTimeout = 60s;
    auto updates = checker(u"1.0"_s, timings);
    AlertCatcher alerts;
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1, 20s));
    QCOMPARE(alerts.alerts().constFirst().informativeText, failedText);
}

void tst_UpdateChecker::errorStatusWithManifestIsValid_data() {
    QTest::addColumn<int>("status");
    QTest::newRow("400") << 400;
    QTest::newRow("404") << 404;
    QTest::newRow("500") << 500;
    QTest::newRow("503") << 503;
}

void tst_UpdateChecker::errorStatusWithManifestIsValid() {
    QFETCH(int, status);
    serve(manifest(u"2.0"_s), status);
    AlertCatcher alerts(0);
    auto updates = checker(u"1.0"_s);
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1));
    QCOMPARE(alerts.alerts().constFirst().text, u"Update Available"_s);
    QCOMPARE(alerts.alerts().constFirst().informativeText,
             u"Quillmar 2.0 is available (you have 1.0)."_s);

    // The silent check takes it as well.
    auto store = settings();
    store->clear();
    store->sync();
    QCoro::waitFor(updates->checkForUpdatesSilently());
    QCOMPARE(alerts.count(), 2);
    QCOMPARE(alerts.alerts().constLast().text, u"Update Available"_s);
}

void tst_UpdateChecker::followsRedirects() {
    m_server->on(
        "GET", manifestPath,
        {302, {}, {{"Location", "/releases/latest.json"}}, {}, TestHttpServer::Fault::None});
    m_server->on("GET", u"/releases/latest.json"_s,
                 TestHttpServer::Response::json(manifest(u"3.0"_s)));
    AlertCatcher alerts(0);
    auto updates = checker(u"2.0"_s);
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1));
    QCOMPARE(alerts.alerts().constFirst().informativeText,
             u"Quillmar 3.0 is available (you have 2.0)."_s);
    QCOMPARE(m_server->requestsTo(u"/releases/latest.json"_s).size(), 1);
}

void tst_UpdateChecker::missingVersionMeansEveryReleaseIsNewer() {
    auto updates = checker(QString());
    QCOMPARE(updates->currentVersion(), u"0.0.0"_s);

    serve(manifest(u"0.0.1"_s));
    AlertCatcher alerts(0);
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1));
    QCOMPARE(alerts.alerts().constLast().informativeText,
             u"Quillmar 0.0.1 is available (you have 0.0.0)."_s);

    serve(manifest(u"0.0.0"_s));
    alerts.setAnswer(0); // its only button
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(2));
    QCOMPARE(alerts.alerts().constLast().text, u"You're up to date"_s);
    QCOMPARE(alerts.alerts().constLast().informativeText,
             u"Quillmar 0.0.0 is the latest version."_s);
}

void tst_UpdateChecker::versionRecordedBeforeAlert() {
    serve(manifest(u"2.0"_s));
    AlertCatcher alerts(-1);
    std::optional<QString> recordedWhileOpen;
    QByteArray fileWhileOpen;
    OpenAlertAction later([&](QMessageBox* box) {
        recordedWhileOpen = notifiedVersion();
        QFile file(settingsFile());
        if (file.open(QIODevice::ReadOnly))
            fileWhileOpen = file.readAll();
        box->buttons().constLast()->click();
    });
    auto updates = checker(u"1.0"_s);
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1));
    QCOMPARE(recordedWhileOpen, u"2.0"_s);
    // Written through to the file beside the configuration, not only held in memory.
    QVERIFY(fileWhileOpen.contains("lastNotifiedUpdateVersion=2.0"));
}

void tst_UpdateChecker::versionKeptBesideConfigurationWhateverXdgConfigHome() {
    // Both files of Quillmar live in ~/.config/quillmar, also where the desktop sets another
    // configuration folder for programs that follow it (initMain does so for this test).
    const QString elsewhere = qEnvironmentVariable("XDG_CONFIG_HOME");
    QCOMPARE(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation), elsewhere);
    QVERIFY(QFileInfo(elsewhere).dir() != QFileInfo(settingsFile()).dir());

    serve(manifest(u"2.0"_s));
    AlertCatcher alerts(1); // "Later"
    auto updates = checker(u"1.0"_s);
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1));

    QCOMPARE(UpdateChecker::settingsFilePath(), settingsFile());
    QCOMPARE(QFileInfo(settingsFile()).dir(), QFileInfo(AppConfig::filePath()).dir());
    QFile file(settingsFile());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll().contains("lastNotifiedUpdateVersion=2.0"));
    QVERIFY(!QFileInfo::exists(elsewhere + u"/quillmar"_s));
}

void tst_UpdateChecker::silentStaysSilentOnFailureAndUpToDate_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::newRow("up to date") << manifest(u"1.0"_s) << 200;
    QTest::newRow("older") << manifest(u"0.9"_s) << 200;
    QTest::newRow("numeric version") << QByteArray(R"({"version": 2, "download_url": "x"})") << 200;
    QTest::newRow("error page") << QByteArray("<html>Bad Gateway</html>") << 502;
}

void tst_UpdateChecker::silentStaysSilentOnFailureAndUpToDate() {
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    serve(body, status);
    AlertCatcher alerts;
    auto updates = checker(u"1.0"_s);
    QCoro::waitFor(updates->checkForUpdatesSilently());
    QCOMPARE(m_server->requestCount(), 1);
    QCOMPARE(alerts.count(), 0);
    QCOMPARE(notifiedVersion(), std::nullopt);
}

void tst_UpdateChecker::silentAnnouncesVersionOnce() {
    serve(manifest(u"2.0"_s));
    AlertCatcher alerts(0);
    auto updates = checker(u"1.0"_s);
    QCoro::waitFor(updates->checkForUpdatesSilently());
    QCOMPARE(alerts.count(), 1);
    QCOMPARE(alerts.alerts().constFirst().text, u"Update Available"_s);
    QCOMPARE(alerts.alerts().constFirst().buttons, QStringList({u"Download"_s, u"Later"_s}));
    QCOMPARE(notifiedVersion(), u"2.0"_s);

    for (int i = 0; i < 3; ++i)
        QCoro::waitFor(updates->checkForUpdatesSilently());
    // A checker of a later run reads the same record.
    auto nextRun = checker(u"1.0"_s);
    QCoro::waitFor(nextRun->checkForUpdatesSilently());
    QCOMPARE(m_server->requestCount(), 5);
    QCOMPARE(alerts.count(), 1);

    // Asking still answers.
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(2));
    QCOMPARE(alerts.alerts().constLast().text, u"Update Available"_s);
    QCOMPARE(alerts.alerts().constLast().informativeText,
             u"Quillmar 2.0 is available (you have 1.0)."_s);
    QCOMPARE(notifiedVersion(), u"2.0"_s);
}

void tst_UpdateChecker::silentAnnouncesEachNewVersion() {
    AlertCatcher alerts(0);
    auto updates = checker(u"1.0"_s);
    serve(manifest(u"2.0"_s));
    QCoro::waitFor(updates->checkForUpdatesSilently());
    QCOMPARE(alerts.count(), 1);
    serve(manifest(u"2.1"_s));
    QCoro::waitFor(updates->checkForUpdatesSilently());
    QCOMPARE(alerts.count(), 2);
    QCOMPARE(alerts.alerts().constLast().informativeText,
             u"Quillmar 2.1 is available (you have 1.0)."_s);
    QCOMPARE(notifiedVersion(), u"2.1"_s);
    // Any other version counts as new, even one that went back.
    serve(manifest(u"2.0"_s));
    QCoro::waitFor(updates->checkForUpdatesSilently());
    QCOMPARE(alerts.count(), 3);
    QCOMPARE(notifiedVersion(), u"2.0"_s);
}

void tst_UpdateChecker::overlappingSilentChecksRaiseOneAlert() {
    m_server->on("GET", manifestPath, TestHttpServer::Response::json(manifest(u"2.0"_s)).held());
    AlertCatcher alerts(-1);
    auto updates = checker(u"1.0"_s);
    QCoro::Task<void> first = updates->checkForUpdatesSilently();
    QCoro::Task<void> second = updates->checkForUpdatesSilently();
    // Both are asked before either is answered.
    QVERIFY(m_server->waitForRequests(2));
    m_server->release();
    bool otherFinishedBehindAlert = false;
    int alertsWhileOpen = 0;
    OpenAlertAction later([&](QMessageBox* box) {
        // A second alert would open on top of this one; answer it ("Later") so that the test
        // can end.
        QTimer answerOthers;
        connect(&answerOthers, &QTimer::timeout, [box] {
            auto* other = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (other && other != box)
                other->buttons().constLast()->click();
        });
        answerOthers.start(5);
        // Keep this alert open until the other check has finished too (an alert it raised
        // is in the count by then).
        QVERIFY(QTest::qWaitFor([&] { return first.isReady() || second.isReady(); }, 60000));
        otherFinishedBehindAlert = first.isReady() != second.isReady();
        alertsWhileOpen = alerts.count();
        box->buttons().constLast()->click();
    });
    QVERIFY(alerts.waitForAlerts(1));
    QTRY_VERIFY(first.isReady() && second.isReady());
    QCOMPARE(m_server->requestCount(), 2);
    QVERIFY(otherFinishedBehindAlert);
    QCOMPARE(alertsWhileOpen, 1);
    QCOMPARE(alerts.count(), 1);
    QCOMPARE(notifiedVersion(), u"2.0"_s);
}

void tst_UpdateChecker::checkOutlivesItsChecker() {
    m_server->on("GET", manifestPath, TestHttpServer::Response::json(manifest(u"2.0"_s)).held());
    AlertCatcher alerts(0);
    auto updates = checker(u"1.0"_s);
    updates->checkForUpdates();
    QVERIFY(m_server->waitForRequests(1));
    updates.reset();
    m_server->release();
    QVERIFY(alerts.waitForAlerts(1));
    QCOMPARE(alerts.alerts().constFirst().informativeText,
             u"Quillmar 2.0 is available (you have 1.0)."_s);
}

void tst_UpdateChecker::firstCheckAfterDelay() {
    serve(manifest(u"1.0"_s));
    UpdateChecker::Timings timings;
    timings.firstCheckDelay = 400ms;
    auto updates = checker(u"1.0"_s, timings);
    const QDeadlineTimer beforeDue(earliest(timings.firstCheckDelay));
    updates->scheduleUpdateChecks();
    QVERIFY(Timers::runUntil(beforeDue));
    QCOMPARE(m_server->requestCount(), 0);
    QVERIFY(m_server->waitForRequests(1));
    // Once only.
    QVERIFY(Timers::runPast(latest(timings.firstCheckDelay)));
    roundTrip(*updates);
    QCOMPARE(m_server->requestCount(), 2);
}

void tst_UpdateChecker::firstCheckIsNotCancelledByRescheduling() {
    serve(manifest(u"1.0"_s));
    UpdateChecker::Timings timings;
    timings.firstCheckDelay = 300ms;
    auto updates = checker(u"1.0"_s, timings);
    updates->scheduleUpdateChecks();
    QVERIFY(Timers::runPast(timings.firstCheckDelay / 3));
    updates->scheduleUpdateChecks();
    QVERIFY(m_server->waitForRequests(2));
    // Two, and no more.
    QVERIFY(Timers::runPast(latest(timings.firstCheckDelay)));
    roundTrip(*updates);
    QCOMPARE(m_server->requestCount(), 3);
}

void tst_UpdateChecker::repeatingTimerIsReplaced() {
    serve(manifest(u"1.0"_s));
    UpdateChecker::Timings timings;
    timings.firstCheckDelay = 1h;
    timings.checkInterval = 1500ms;
    auto updates = checker(u"1.0"_s, timings);
    updates->scheduleUpdateChecks();
    const QDeadlineTimer firstDue(latest(timings.checkInterval));
    QVERIFY(Timers::runPast(timings.checkInterval / 2));
    updates->scheduleUpdateChecks(); // re-armed: now due an interval after this call
    QCOMPARE(updates->findChildren<QTimer*>().size(), 1);

    // The first timer would have fired by now; the second is not due yet.
    QVERIFY(Timers::runUntil(firstDue));
    QCOMPARE(m_server->requestCount(), 0);
    QVERIFY(m_server->waitForRequests(1));
    // It repeats, alone.
    QVERIFY(m_server->waitForRequests(2));
    QCOMPARE(updates->findChildren<QTimer*>().size(), 1);
}

void tst_UpdateChecker::nothingOnceCheckerIsGone() {
    serve(manifest(u"2.0"_s));
    UpdateChecker::Timings timings;
    timings.firstCheckDelay = 100ms;
    timings.checkInterval = 150ms;
    AlertCatcher alerts;
    auto updates = checker(u"1.0"_s, timings);
    updates->scheduleUpdateChecks();
    updates.reset();
    // Past both timers' times, and past a later check through the same network access.
    QVERIFY(Timers::runPast(latest(timings.checkInterval)));
    serve(manifest(u"1.0"_s));
    roundTrip(*checker(u"1.0"_s));
    QCOMPARE(m_server->requestCount(), 1);
    QCOMPARE(alerts.count(), 0);
}

void tst_UpdateChecker::alertScreenshots() {
    // The three alerts as a user sees them; saved when a folder is given.
    AlertCatcher alerts(-1);
    QList<QPixmap> shots;
    int answer = 0;
    OpenAlertAction grab([&](QMessageBox* box) {
        shots.append(box->grab());
        box->buttons().at(answer)->click();
    });

    auto updates = checker(u"1.4.2"_s);
    serve(manifest(u"1.5.0"_s));
    answer = 1; // "Later"
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(1));
    serve(manifest(u"1.4.2"_s));
    answer = 0;
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(2));
    serve("<html>Bad Gateway</html>", 502);
    updates->checkForUpdates();
    QVERIFY(alerts.waitForAlerts(3));

    QCOMPARE(shots.size(), 3);
    for (const QPixmap& shot : std::as_const(shots))
        QVERIFY(shot.width() > 100 && shot.height() > 50);
    const QString folder = qEnvironmentVariable("QUILLMAR_SCREENSHOT_DIR");
    if (folder.isEmpty())
        return;
    const QStringList names{u"available"_s, u"up-to-date"_s, u"failed"_s};
    for (qsizetype i = 0; i < shots.size(); ++i)
        QVERIFY(shots[i].save(QDir(folder).filePath(u"update-"_s + names[i] + u".png"_s)));
}

QTEST_MAIN(tst_UpdateChecker)
#include "tst_UpdateChecker.moc"
