// The Wayland hot key against a stand-in for the desktop portal, served on a private session bus
// that the test starts and stops.
#include "PrivateSessionBus.h"
#include "app/hotkey/HotKeyManager.h"
#include "app/hotkey/portal/PortalHotKeyBackend.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QGuiApplication>
#include <QtTest>

#include <memory>

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");

struct Call {
    QString interface;
    QString member;
    QString path;
    QList<QVariant> arguments;
};

} // namespace

// Plays org.freedesktop.portal.Desktop: records every call and answers as a portal does, with
// the Response signal of a request object that is named after the caller and the token.
class FakePortal : public QDBusVirtualObject {
public:
    // Holds CreateSession's Response back until answerHeldSession().
    bool holdSessions = false;
    // The response code CreateSession answers with (0 success, 1 cancelled, 2 other).
    uint sessionResponse = 0;
    QList<Call> calls;

    explicit FakePortal(const QDBusConnection& bus)
        : m_bus(bus) {}

    QString introspect(const QString& path) const override {
        Q_UNUSED(path);
        return {};
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        Q_UNUSED(connection);
        // Virtual objects are called on the bus thread; the work happens on the test's thread.
        QMetaObject::invokeMethod(
            this, [this, message] { handle(message); }, Qt::QueuedConnection);
        return true;
    }

    QList<Call> callsOf(const QString& member) const {
        QList<Call> found;
        for (const Call& call : calls) {
            if (call.member == member)
                found << call;
        }
        return found;
    }

    void answerHeldSession() {
        for (const auto& [request, session] : std::as_const(m_held))
            respond(request, 0, {{QStringLiteral("session_handle"), session}});
        m_held.clear();
    }

    void activate(const QString& session, const QString& shortcutId) {
        QDBusMessage signal =
            QDBusMessage::createSignal(portalPath, shortcutsInterface, QStringLiteral("Activated"));
        signal << QVariant::fromValue(QDBusObjectPath(session)) << shortcutId
               << QVariant::fromValue(qulonglong(1234)) << QVariantMap();
        m_bus.send(signal);
    }

    static QString handleFor(const QDBusMessage& message, const QString& kind,
                             const QString& token) {
        QString sender = message.service().mid(1);
        sender.replace(QLatin1Char('.'), QLatin1Char('_'));
        return portalPath + QLatin1Char('/') + kind + QLatin1Char('/') + sender + QLatin1Char('/') +
               token;
    }

private:
    void handle(const QDBusMessage& message) {
        Call call{message.interface(), message.member(), message.path(), {}};
        for (const QVariant& argument : message.arguments())
            call.arguments << argument;
        calls << call;

        if (message.member() == QLatin1String("CreateSession")) {
            const QVariantMap options = qdbus_cast<QVariantMap>(message.arguments().value(0));
            const QString request =
                handleFor(message, QStringLiteral("request"),
                          options.value(QStringLiteral("handle_token")).toString());
            const QString session =
                handleFor(message, QStringLiteral("session"),
                          options.value(QStringLiteral("session_handle_token")).toString());
            m_bus.send(message.createReply(QVariant::fromValue(QDBusObjectPath(request))));
            if (holdSessions)
                m_held << std::pair{request, session};
            else if (sessionResponse != 0)
                respond(request, sessionResponse, {});
            else
                respond(request, 0, {{QStringLiteral("session_handle"), session}});
        } else if (message.member() == QLatin1String("BindShortcuts")) {
            const QVariantMap options = qdbus_cast<QVariantMap>(message.arguments().value(3));
            const QString request =
                handleFor(message, QStringLiteral("request"),
                          options.value(QStringLiteral("handle_token")).toString());
            m_bus.send(message.createReply(QVariant::fromValue(QDBusObjectPath(request))));
            respond(request, 0, {});
        } else {
            // Registry.Register and Session.Close answer with nothing.
            m_bus.send(message.createReply());
        }
    }

    void respond(const QString& request, uint response, const QVariantMap& results) {
        QDBusMessage signal = QDBusMessage::createSignal(
            request, QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"));
        signal << response << results;
        m_bus.send(signal);
    }

    QDBusConnection m_bus;
    QList<std::pair<QString, QString>> m_held;
};

namespace {

struct BoundShortcut {
    QString id;
    QVariantMap properties;
};

QList<BoundShortcut> shortcutsOf(const Call& bind) {
    QList<BoundShortcut> shortcuts;
    const auto argument = bind.arguments.value(1).value<QDBusArgument>();
    argument.beginArray();
    while (!argument.atEnd()) {
        BoundShortcut shortcut;
        argument.beginStructure();
        argument >> shortcut.id >> shortcut.properties;
        argument.endStructure();
        shortcuts << shortcut;
    }
    argument.endArray();
    return shortcuts;
}

QString sessionOf(const Call& bind) {
    return bind.arguments.value(0).value<QDBusObjectPath>().path();
}

bool isPathElement(const QString& text) {
    static const QRegularExpression valid(QStringLiteral("^[A-Za-z0-9_]+$"));
    return valid.match(text).hasMatch();
}

} // namespace

class tst_PortalHotKeyBackend : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void preferredTrigger_data();
    void preferredTrigger();
    void createsSessionAndBindsOneShortcut();
    void backendProposesTheQtKeyItIsGiven();
    void keyWithoutNameLetsTheDesktopChoose();
    void activatedRunsTheAction();
    void activatedForAnotherShortcutOrSessionDoesNothing();
    void updateClosesOldSessionAndBindsNewShortcut();
    void absentShortcutAndDestructionCloseTheSession();
    void sessionArrivingAfterUnregisterIsClosed();
    void refusedSessionBindsNothing();
    void missingPortalReportsNothing();

private:
    void startPortal();
    void waitForBind(int count);

    std::unique_ptr<PrivateSessionBus> m_bus;
    std::unique_ptr<FakePortal> m_portal;
    QDBusConnection m_portalBus{QString()};
    QDBusConnection m_appBus{QString()};
    int m_connection = 0;
};

void tst_PortalHotKeyBackend::initTestCase() {
    QGuiApplication::setDesktopFileName(QStringLiteral("app.quillmar.Quillmar"));
    m_bus = std::make_unique<PrivateSessionBus>();
    QVERIFY(m_bus->start());
}

void tst_PortalHotKeyBackend::init() {
    // Fresh connections per test: no signal subscription or name carries over.
    ++m_connection;
    m_appBus =
        QDBusConnection::connectToBus(m_bus->address(), QStringLiteral("app%1").arg(m_connection));
    QVERIFY(m_appBus.isConnected());
}

void tst_PortalHotKeyBackend::cleanup() {
    if (m_portal) {
        m_portalBus.unregisterObject(portalPath, QDBusConnection::UnregisterTree);
        m_portalBus.unregisterService(portalService);
        m_portal.reset();
    }
    QDBusConnection::disconnectFromBus(m_appBus.name());
    QDBusConnection::disconnectFromBus(m_portalBus.name());
}

void tst_PortalHotKeyBackend::startPortal() {
    m_portalBus = QDBusConnection::connectToBus(m_bus->address(),
                                                QStringLiteral("portal%1").arg(m_connection));
    QVERIFY(m_portalBus.isConnected());
    m_portal = std::make_unique<FakePortal>(m_portalBus);
    QVERIFY(
        m_portalBus.registerVirtualObject(portalPath, m_portal.get(), QDBusConnection::SubPath));
    QVERIFY(m_portalBus.registerService(portalService));
}

void tst_PortalHotKeyBackend::waitForBind(int count) {
    QTRY_COMPARE(m_portal->callsOf(QStringLiteral("BindShortcuts")).size(), count);
}

void tst_PortalHotKeyBackend::preferredTrigger_data() {
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("modifiers");
    QTest::addColumn<QString>("trigger");
    const int ctrl = Qt::ControlModifier;
    const int alt = Qt::AltModifier;
    const int shift = Qt::ShiftModifier;
    const int meta = Qt::MetaModifier;
    QTest::newRow("default") << int(Qt::Key_R) << (ctrl | alt) << QStringLiteral("CTRL+ALT+r");
    QTest::newRow("all four") << int(Qt::Key_K) << (ctrl | alt | shift | meta)
                              << QStringLiteral("CTRL+ALT+SHIFT+LOGO+k");
    QTest::newRow("shift F5") << int(Qt::Key_F5) << shift << QStringLiteral("SHIFT+F5");
    QTest::newRow("bare Escape") << int(Qt::Key_Escape) << 0 << QStringLiteral("Escape");
    QTest::newRow("digit") << int(Qt::Key_1) << ctrl << QStringLiteral("CTRL+1");
    QTest::newRow("arrow") << int(Qt::Key_Up) << meta << QStringLiteral("LOGO+Up");
    QTest::newRow("punctuation") << int(Qt::Key_Slash) << ctrl << QStringLiteral("CTRL+slash");
    QTest::newRow("unknown key") << int(Qt::Key_unknown) << ctrl << QString();
}

void tst_PortalHotKeyBackend::preferredTrigger() {
    QFETCH(int, key);
    QFETCH(int, modifiers);
    QFETCH(QString, trigger);
    QCOMPARE(PortalHotKeyBackend::preferredTrigger(
                 QKeyCombination(Qt::KeyboardModifiers(modifiers), Qt::Key(key))),
             trigger);
}

void tst_PortalHotKeyBackend::createsSessionAndBindsOneShortcut() {
    startPortal();
    HotKeyManager manager(std::make_unique<PortalHotKeyBackend>(m_appBus));
    manager.update(ShortcutConfig::defaultShortcut(), [] {});
    waitForBind(1);

    QStringList members;
    for (const Call& call : std::as_const(m_portal->calls))
        members << call.interface + QLatin1Char('.') + call.member;
    QCOMPARE(members, (QStringList{QStringLiteral("org.freedesktop.host.portal.Registry.Register"),
                                   QStringLiteral("org.freedesktop.portal.GlobalShortcuts."
                                                  "CreateSession"),
                                   QStringLiteral("org.freedesktop.portal.GlobalShortcuts."
                                                  "BindShortcuts")}));

    const Call registry = m_portal->calls.at(0);
    QCOMPARE(registry.path, portalPath);
    QCOMPARE(registry.arguments.value(0).toString(), QStringLiteral("app.quillmar.Quillmar"));

    const Call create = m_portal->calls.at(1);
    QCOMPARE(create.path, portalPath);
    QCOMPARE(create.arguments.size(), 1);
    const QVariantMap options = qdbus_cast<QVariantMap>(create.arguments.at(0));
    QVERIFY(isPathElement(options.value(QStringLiteral("handle_token")).toString()));
    QVERIFY(isPathElement(options.value(QStringLiteral("session_handle_token")).toString()));

    const Call bind = m_portal->calls.at(2);
    QCOMPARE(bind.path, portalPath);
    QCOMPARE(bind.arguments.size(), 4);
    QCOMPARE(sessionOf(bind),
             portalPath + QStringLiteral("/session/") +
                 m_appBus.baseService().mid(1).replace(QLatin1Char('.'), QLatin1Char('_')) +
                 QLatin1Char('/') +
                 options.value(QStringLiteral("session_handle_token")).toString());
    const QList<BoundShortcut> shortcuts = shortcutsOf(bind);
    QCOMPARE(shortcuts.size(), 1);
    // The desktop keeps the user's choice of key under this id.
    QCOMPARE(shortcuts[0].id, QStringLiteral("open-menu"));
    QCOMPARE(shortcuts[0].properties.value(QStringLiteral("description")).toString(),
             QStringLiteral("Open the Quillmar menu"));
    QCOMPARE(shortcuts[0].properties.value(QStringLiteral("preferred_trigger")).toString(),
             QStringLiteral("CTRL+ALT+r"));
    QCOMPARE(bind.arguments.at(2).toString(), QString());
    const QVariantMap bindOptions = qdbus_cast<QVariantMap>(bind.arguments.at(3));
    QVERIFY(isPathElement(bindOptions.value(QStringLiteral("handle_token")).toString()));
}

void tst_PortalHotKeyBackend::backendProposesTheQtKeyItIsGiven() {
    startPortal();
    PortalHotKeyBackend backend(m_appBus);
    backend.registerHotKey(QKeyCombination(Qt::ShiftModifier | Qt::MetaModifier, Qt::Key_F5));
    waitForBind(1);
    const QList<BoundShortcut> shortcuts =
        shortcutsOf(m_portal->callsOf(QStringLiteral("BindShortcuts")).at(0));
    QCOMPARE(shortcuts.size(), 1);
    QCOMPARE(shortcuts[0].id, QStringLiteral("open-menu"));
    QCOMPARE(shortcuts[0].properties.value(QStringLiteral("preferred_trigger")).toString(),
             QStringLiteral("SHIFT+LOGO+F5"));
}

void tst_PortalHotKeyBackend::keyWithoutNameLetsTheDesktopChoose() {
    startPortal();
    HotKeyManager manager(std::make_unique<PortalHotKeyBackend>(m_appBus));
    // A key code from a file written elsewhere, with no key here.
    manager.update(ShortcutConfig{10, ShortcutConfig::CommandFlag, QStringLiteral("§")}, [] {});
    waitForBind(1);
    const QList<BoundShortcut> shortcuts =
        shortcutsOf(m_portal->callsOf(QStringLiteral("BindShortcuts")).at(0));
    QCOMPARE(shortcuts.size(), 1);
    QCOMPARE(shortcuts[0].id, QStringLiteral("open-menu"));
    QVERIFY(!shortcuts[0].properties.contains(QStringLiteral("preferred_trigger")));
    QCOMPARE(shortcuts[0].properties.value(QStringLiteral("description")).toString(),
             QStringLiteral("Open the Quillmar menu"));
}

void tst_PortalHotKeyBackend::activatedRunsTheAction() {
    startPortal();
    int runs = 0;
    HotKeyManager manager(std::make_unique<PortalHotKeyBackend>(m_appBus));
    manager.update(ShortcutConfig::defaultShortcut(), [&runs] { ++runs; });
    waitForBind(1);
    const Call bind = m_portal->callsOf(QStringLiteral("BindShortcuts")).at(0);
    m_portal->activate(sessionOf(bind), shortcutsOf(bind).at(0).id);
    QTRY_COMPARE(runs, 1);
    m_portal->activate(sessionOf(bind), shortcutsOf(bind).at(0).id);
    QTRY_COMPARE(runs, 2);
}

void tst_PortalHotKeyBackend::activatedForAnotherShortcutOrSessionDoesNothing() {
    startPortal();
    int runs = 0;
    HotKeyManager manager(std::make_unique<PortalHotKeyBackend>(m_appBus));
    manager.update(ShortcutConfig::defaultShortcut(), [&runs] { ++runs; });
    waitForBind(1);
    const Call bind = m_portal->callsOf(QStringLiteral("BindShortcuts")).at(0);
    m_portal->activate(sessionOf(bind), QStringLiteral("something-else"));
    m_portal->activate(portalPath + QStringLiteral("/session/other/s1"),
                       shortcutsOf(bind).at(0).id);
    // Signals arrive in order: once the real one has run, the two before it were ignored.
    m_portal->activate(sessionOf(bind), shortcutsOf(bind).at(0).id);
    QTRY_COMPARE(runs, 1);
    QTest::qWait(100);
    QCOMPARE(runs, 1);
}

void tst_PortalHotKeyBackend::updateClosesOldSessionAndBindsNewShortcut() {
    startPortal();
    int runs = 0;
    HotKeyManager manager(std::make_unique<PortalHotKeyBackend>(m_appBus));
    manager.update(ShortcutConfig::defaultShortcut(), [&runs] { ++runs; });
    waitForBind(1);
    const Call first = m_portal->callsOf(QStringLiteral("BindShortcuts")).at(0);

    manager.update(ShortcutConfig{40, 0x120000, QStringLiteral("K")}, [&runs] { ++runs; });
    waitForBind(2);
    const QList<Call> closes = m_portal->callsOf(QStringLiteral("Close"));
    QCOMPARE(closes.size(), 1);
    QCOMPARE(closes[0].path, sessionOf(first));
    QCOMPARE(closes[0].interface, QStringLiteral("org.freedesktop.portal.Session"));
    // The application announces itself once only.
    QCOMPARE(m_portal->callsOf(QStringLiteral("Register")).size(), 1);

    const Call second = m_portal->callsOf(QStringLiteral("BindShortcuts")).at(1);
    QVERIFY(sessionOf(second) != sessionOf(first));
    QCOMPARE(shortcutsOf(second).at(0).properties.value(QStringLiteral("preferred_trigger")),
             QVariant(QStringLiteral("CTRL+SHIFT+k")));

    m_portal->activate(sessionOf(first), shortcutsOf(first).at(0).id);
    m_portal->activate(sessionOf(second), shortcutsOf(second).at(0).id);
    QTRY_COMPARE(runs, 1);
    QTest::qWait(100);
    QCOMPARE(runs, 1);
}

void tst_PortalHotKeyBackend::absentShortcutAndDestructionCloseTheSession() {
    startPortal();
    QString firstSession;
    {
        HotKeyManager manager(std::make_unique<PortalHotKeyBackend>(m_appBus));
        manager.update(ShortcutConfig::defaultShortcut(), [] {});
        waitForBind(1);
        firstSession = sessionOf(m_portal->callsOf(QStringLiteral("BindShortcuts")).at(0));
        manager.update(std::nullopt, [] {});
        QTRY_COMPARE(m_portal->callsOf(QStringLiteral("Close")).size(), 1);
        QCOMPARE(m_portal->callsOf(QStringLiteral("Close")).at(0).path, firstSession);

        manager.update(ShortcutConfig::defaultShortcut(), [] {});
        waitForBind(2);
    }
    QTRY_COMPARE(m_portal->callsOf(QStringLiteral("Close")).size(), 2);
    const QString secondSession =
        sessionOf(m_portal->callsOf(QStringLiteral("BindShortcuts")).at(1));
    QCOMPARE(m_portal->callsOf(QStringLiteral("Close")).at(1).path, secondSession);
}

void tst_PortalHotKeyBackend::sessionArrivingAfterUnregisterIsClosed() {
    startPortal();
    m_portal->holdSessions = true;
    HotKeyManager manager(std::make_unique<PortalHotKeyBackend>(m_appBus));
    manager.update(ShortcutConfig::defaultShortcut(), [] {});
    QTRY_COMPARE(m_portal->callsOf(QStringLiteral("CreateSession")).size(), 1);
    manager.update(std::nullopt, [] {});
    // Let the backend see the reply to CreateSession before the session itself arrives.
    QTest::qWait(100);
    m_portal->answerHeldSession();
    QTRY_COMPARE(m_portal->callsOf(QStringLiteral("Close")).size(), 1);
    QVERIFY(m_portal->callsOf(QStringLiteral("Close"))
                .at(0)
                .path.contains(QStringLiteral("/session/")));
    QTest::qWait(100);
    QCOMPARE(m_portal->callsOf(QStringLiteral("BindShortcuts")).size(), 0);
}

void tst_PortalHotKeyBackend::refusedSessionBindsNothing() {
    startPortal();
    m_portal->sessionResponse = 2;
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
    HotKeyManager manager(std::make_unique<PortalHotKeyBackend>(m_appBus));
    manager.update(ShortcutConfig::defaultShortcut(), [] {});
    QTRY_COMPARE(m_portal->callsOf(QStringLiteral("CreateSession")).size(), 1);
    QTest::qWait(200);
    QCOMPARE(m_portal->callsOf(QStringLiteral("BindShortcuts")).size(), 0);
}

void tst_PortalHotKeyBackend::missingPortalReportsNothing() {
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
    int runs = 0;
    HotKeyManager manager(std::make_unique<PortalHotKeyBackend>(m_appBus));
    manager.update(ShortcutConfig::defaultShortcut(), [&runs] { ++runs; });
    QTest::qWait(300);

    // Quillmar runs on; a portal that appears later serves the next registration.
    startPortal();
    manager.update(ShortcutConfig::defaultShortcut(), [&runs] { ++runs; });
    waitForBind(1);
    const Call bind = m_portal->callsOf(QStringLiteral("BindShortcuts")).at(0);
    m_portal->activate(sessionOf(bind), shortcutsOf(bind).at(0).id);
    QTRY_COMPARE(runs, 1);
    QCOMPARE(m_portal->callsOf(QStringLiteral("CreateSession")).size(), 1);
}

QTEST_MAIN(tst_PortalHotKeyBackend)
#include "tst_PortalHotKeyBackend.moc"
