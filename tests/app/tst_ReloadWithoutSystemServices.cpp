#include "../menu/MenuTree.h"

#include "FakeRaindropService.h"
#include "PrivateSessionBus.h"
#include "app/AppDelegate.h"
#include "config/AppConfig.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

QStringList messages;

// What the program says about the bus, the network's state and logind (the offscreen platform
// has its own complaints, and Qt's network access its own about the refused connections, which
// do not count here).
void collect(QtMsgType, const QMessageLogContext& context, const QString& message) {
    const QString text = QString::fromUtf8(context.category) + u' ' + message;
    for (const QString& topic :
         {u"dbus"_s, u"network.info"_s, u"networkinformation"_s, u"networkmanager"_s, u"login"_s})
        if (text.contains(topic, Qt::CaseInsensitive))
            messages.append(text);
}

} // namespace

// A system bus without NetworkManager or logind: the menu is refreshed by its timer only, as
// it always was, and nothing is printed.
class tst_ReloadWithoutSystemServices : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void refreshedByTheTimerOnly();

private:
    PrivateSessionBus m_systemBus{
        PrivateSessionBus::Kind::System,
        {u"org.freedesktop.NetworkManager"_s, u"org.freedesktop.login1"_s}};
};

void tst_ReloadWithoutSystemServices::initTestCase() {
    QVERIFY(m_systemBus.start());
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", m_systemBus.address().toUtf8());
    AppConfig config;
    config.token = u"token"_s;
    QVERIFY(!config.save());
}

void tst_ReloadWithoutSystemServices::cleanupTestCase() {
    QFile::remove(AppConfig::filePath());
    m_systemBus.stop();
}

void tst_ReloadWithoutSystemServices::refreshedByTheTimerOnly() {
    FakeRaindropService service(u"token"_s);
    service.addBookmark({1, u"Favourite"_s, u"https://f.example/"_s, -1, true, {}});
    service.server().setRefusing(true);
    Environment environment;
    environment.apiBase = service.apiBase();
    environment.updateManifest = service.apiBase() + u"/latest.json"_s;
    MenuManager::Timings timings;
    timings.refreshInterval = 1500ms;
    timings.updateCheckDelay = 1h;
    // As if the machine had slept for hours since the build.
    timings.bootClock = [started = std::chrono::steady_clock::now()] {
        return std::chrono::steady_clock::now() - started + std::chrono::hours(8);
    };

    const QtMessageHandler previous = qInstallMessageHandler(collect);
    AppDelegate delegate({environment, timings});
    QElapsedTimer sinceStart;
    sinceStart.start();
    delegate.applicationDidFinishLaunching();
    QMenu* failed = MenuTree::waitForFullMenu(*delegate.statusItem());
    QVERIFY(failed);
    QVERIFY(MenuTree::item(failed, u"Failed to load favourites"_s));
    QTRY_VERIFY(delegate.connectivityWatcher() && delegate.resumeWatcher());
    // The bus is there; the watchers wait for names that nobody owns.
    QVERIFY(delegate.resumeWatcher()->isListening());

    // Someone else on the bus claims that the network is back and the machine woke up: not
    // NetworkManager, not logind, not heard.
    QDBusMessage online =
        QDBusMessage::createSignal(u"/org/freedesktop/NetworkManager"_s,
                                   u"org.freedesktop.DBus.Properties"_s, u"PropertiesChanged"_s);
    online << u"org.freedesktop.NetworkManager"_s
           << QVariantMap{{u"State"_s, QVariant::fromValue(uint(70))}} << QStringList();
    QVERIFY(QDBusConnection::systemBus().send(online));
    QDBusMessage wake = QDBusMessage::createSignal(
        u"/org/freedesktop/login1"_s, u"org.freedesktop.login1.Manager"_s, u"PrepareForSleep"_s);
    wake << false;
    QVERIFY(QDBusConnection::systemBus().send(wake));
    service.server().setRefusing(false);

    // The failure lines stay until the refresh timer fires, which then loads the menu.
    QMenu* menu = MenuTree::waitForFullMenu(*delegate.statusItem(), failed);
    QVERIFY(menu);
    // The timer is a coarse one, which may fire up to 5 % early.
    QVERIFY2(sinceStart.elapsed() >= 1425, QByteArray::number(sinceStart.elapsed()).constData());
    QVERIFY(MenuTree::item(menu, u"Favourite"_s));
    QCOMPARE(service.favouritesRequests(), 1);
    QVERIFY(!delegate.connectivityWatcher()->isAvailable());
    qInstallMessageHandler(previous);
    QCOMPARE(messages.join(u'\n'), QString());
}

QTEST_MAIN(tst_ReloadWithoutSystemServices)
#include "tst_ReloadWithoutSystemServices.moc"
